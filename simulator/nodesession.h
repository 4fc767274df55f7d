/// @file
/// One run of node-simulator: the bus, its UDP socket, the log, the commands and the program run against it.

#ifndef SIMULATOR_NODESESSION_H
#define SIMULATOR_NODESESSION_H

#include <netinet/in.h>
#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "simulator/canframe.h"
#include "simulator/nodeoptions.h"
#include "simulator/simulatedbus.h"

namespace node_simulator {

/// A file descriptor that is closed with its owner.
class Descriptor {
public:
    /// @param number  the descriptor; -1 none
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /// The number; -1 none.
    int get() const { return number_; }

private:
    int number_;
};

/// The nodes behind their UDP socket, until a signal or the end of the command.
class NodeSession {
public:
    /// Opens the socket and the log.
    ///
    /// @param options  what the command line asks for
    /// @throws std::system_error  when the port is taken or the log cannot be written
    explicit NodeSession(const NodeOptions& options);

    /// Ends the command if it still runs.
    ~NodeSession();

    NodeSession(const NodeSession&) = delete;
    NodeSession& operator=(const NodeSession&) = delete;

    /// Prints the port, switches the nodes on and serves them until SIGINT, SIGTERM or the end of the
    /// command.
    ///
    /// @return  exit status: 0, or that of the command
    int run();

private:
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    void choose_master_port();
    void start_command();
    bool master_listens() const;
    bool can_be_heard(Time now) const;
    void switch_on(Time now);
    void serve();
    void wait() const;
    bool receive_frames();
    bool receive_frame();
    void send_frames();
    void read_commands();
    void read_signals();
    void log(const char* direction, const CanFrame& frame, Time now) const;

    NodeOptions options_;
    SimulatedBus bus_;
    Descriptor socket_;
    Descriptor signals_;
    std::unique_ptr<std::FILE, CloseFile> log_;
    std::optional<sockaddr_in> peer_;
    Time started_;
    bool switched_on_ = false;
    bool reads_commands_ = false;
    std::string input_;  // of a command whose line has not ended
    pid_t command_ = 0;
    std::optional<int> status_;  // set when the run is over
};

}  // namespace node_simulator

#endif
