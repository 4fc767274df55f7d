/// @file
/// node-simulator in a process of its own: the far end of the fieldbus library's conversations.

#ifndef TESTS_SUPPORT_NODEPROCESS_H
#define TESTS_SUPPORT_NODEPROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

/// A running node-simulator; it ends with its owner.
class NodeProcess {
public:
    /// Starts @p program on a free port and waits until it receives frames.
    ///
    /// @param program    path of node-simulator
    /// @param arguments  its options, without --listen
    NodeProcess(const std::string& program, const std::vector<std::string>& arguments);
    ~NodeProcess();
    NodeProcess(const NodeProcess&) = delete;
    NodeProcess& operator=(const NodeProcess&) = delete;

    /// UDP port on 127.0.0.1 that receives frames; 0 when the program did not start.
    unsigned port() const { return port_; }

    /// Gives a command and returns the line that answers it, without its end.
    std::string command(const std::string& text) const;

private:
    std::string read_line() const;

    pid_t child_ = -1;
    int input_ = -1;
    int output_ = -1;
    unsigned port_ = 0;
};

#endif
