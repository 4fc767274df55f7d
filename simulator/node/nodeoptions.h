/// @file
/// The command line of node-simulator.

#ifndef SIMULATOR_NODE_NODEOPTIONS_H
#define SIMULATOR_NODE_NODEOPTIONS_H

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "simulator/node/answerfaults.h"

namespace node_simulator {

/// An EDS or DCF file, and whom it describes.
struct NodeDescription {
    std::uint8_t node = 0;  ///< node number, 1 to 127; 0 for all, those without a number too
    std::string file;       ///< name of the file
};

/// What the command line asks for.
struct NodeOptions {
    bool help = false;                   ///< print the help text and end
    bool version = false;                ///< print the version and end
    std::vector<std::uint8_t> nodes{1};  ///< node numbers, each 1 to 127, no two alike
    std::uint16_t listen_port = 5001;    ///< UDP port on 127.0.0.1; 0 lets the system pick one
    std::optional<sockaddr_in> peer;     ///< where frames go; none: to the last sender
    std::vector<NodeDescription>
        descriptions;           ///< what describes the nodes; later ones hold before earlier ones
    std::string can_interface;  ///< CAN interface that the nodes are on; empty: they are behind UDP
    std::string log_file;       ///< where the frames are logged; empty: nowhere
    FaultSettings faults;
    std::uint16_t heartbeat_ms = 0;              ///< heartbeat time of every node; 0 none
    std::uint32_t sync_period_ms = 0;            ///< the first node produces SYNC with this period; 0 not
    bool self_starting = false;                  ///< the nodes become operational by themselves
    bool strict_counts = false;                  ///< see NodeSettings
    std::vector<std::uint32_t> unconfigured;     ///< serial numbers of devices without a node number
    bool no_blocks = false;                      ///< the nodes know no block transfers
    std::vector<std::uint8_t> block_sizes{127};  ///< see BlockSettings
    std::vector<std::string> command;            ///< what to run against the nodes; empty: nothing
};

/// Either options or, when the command line is wrong, the reason.
struct ParsedNodeOptions {
    NodeOptions options;
    std::string error;  ///< empty when all is well
};

/// Reads the arguments of the command line, the program's name not included. Everything after --run is a command.
ParsedNodeOptions parse_node_options(std::span<const char* const> arguments);

/// The text that --help prints.
std::string node_help();

}  // namespace node_simulator

#endif
