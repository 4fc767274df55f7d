/// @file
/// The nodes of the master's run: a node-simulator that is commanded, killed and started again.

#ifndef SOAK_NODEBUS_H
#define SOAK_NODEBUS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace soak {

/// Several nodes in one process behind one UDP port, which stays the same over all of the process's lives.
///
/// Failing system calls, and a simulator that does not answer, throw std::runtime_error or std::system_error.
class NodeBus {
public:
    /// @param program      path of node-simulator
    /// @param nodes        node numbers, such as "1,2,3"
    /// @param master_port  UDP port on 127.0.0.1 that the nodes send to
    /// @param directory    where the logs go, nodes.1.log for the first life; empty for no logs
    /// @param options      further options of the simulator
    NodeBus(std::string program, std::string nodes, unsigned master_port, std::string directory,
            std::vector<std::string> options);
    ~NodeBus();
    NodeBus(const NodeBus&) = delete;
    NodeBus& operator=(const NodeBus&) = delete;

    /// Starts the process, and returns when it receives frames; every node boots then.
    /// @pre it is not alive
    void start();

    /// Kills the process on the spot, once it has dealt with every frame sent to it so far.
    /// @pre it is alive
    void kill();

    /// Whether the process runs.
    bool alive() const { return child_ > 0; }

    /// UDP port on 127.0.0.1 that receives frames.
    unsigned port() const { return port_; }

    /// Number of the present or last life, counted from 1.
    unsigned life() const { return life_; }

    /// Cuts a node's power.
    void off(unsigned node) const;

    /// Switches a node on again: it boots.
    void on(unsigned node) const;

    /// Returns when every frame sent so far has been dealt with, and the answers have been sent.
    void settle() const;

private:
    std::string command(const std::string& text) const;
    void expect_ok(const std::string& text) const;
    std::string read_line() const;
    void end(int signal);

    std::string program_;
    std::string nodes_;
    std::string peer_;
    std::string directory_;
    std::vector<std::string> options_;
    pid_t child_ = 0;
    int input_ = -1;
    int output_ = -1;
    unsigned port_ = 0;
    unsigned life_ = 0;
};

}  // namespace soak

#endif
