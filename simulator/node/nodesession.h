/// @file
/// One run of node-simulator: the bus, its link to the outside, the log, the commands and the program that is
/// run against it.

#ifndef SIMULATOR_NODE_NODESESSION_H
#define SIMULATOR_NODE_NODESESSION_H

#include <sys/types.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "program/file.h"
#include "simulator/node/canframe.h"
#include "simulator/node/descriptor.h"
#include "simulator/node/nodelink.h"
#include "simulator/node/nodeoptions.h"
#include "simulator/node/simulatedbus.h"

namespace node_simulator {

/// The nodes behind their link, until a signal or the end of the command.
class NodeSession {
public:
    /// Opens the link and the log.
    ///
    /// @param options  what the command line asks for
    /// @throws std::runtime_error  when the link cannot be opened, a description cannot be used or the log cannot be
    ///                             written
    explicit NodeSession(const NodeOptions& options);

    /// Ends the command if it still runs.
    ~NodeSession();

    NodeSession(const NodeSession&) = delete;
    NodeSession& operator=(const NodeSession&) = delete;

    /// Prints where frames are received, switches the nodes on and serves them until SIGINT, SIGTERM or the
    /// end of the command.
    ///
    /// @return  exit status: 0, or that of the command
    int run();

private:
    std::shared_ptr<const DeviceDescription> description_of(std::uint8_t node);
    void start_command();
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
    std::unique_ptr<NodeLink> link_;
    Descriptor signals_;
    std::map<std::string, std::shared_ptr<const DeviceDescription>> descriptions_;  // by the file's name
    program::File log_;
    Time started_;
    bool switched_on_ = false;
    bool reads_commands_ = false;
    std::string input_;  // of a command whose line has not ended
    pid_t command_ = 0;
    std::optional<int> status_;  // set when the run is over
};

}  // namespace node_simulator

#endif
