/// @file
/// `nodevik scan`: who is on the bus, with identity. Nothing is sent but SDO requests.

#ifndef TOOLS_SCANCOMMAND_H
#define TOOLS_SCANCOMMAND_H

#include <string>
#include <utility>

#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// What the command line says about a scan.
struct ScanArguments {
    std::string range;     ///< "5" or "1-20"; empty for all nodes
    bool passive = false;  ///< listens only
    double seconds = 2;    ///< how long it listens
};

/// The lowest and the highest node number of "5" or "1-20"; 1 and 127 for no text.
/// @throws Failure  it is no range of node numbers
std::pair<unsigned int, unsigned int> parse_node_range(const std::string& text);

/// Looks for nodes and tells those that were found.
/// @throws Interrupted  a signal has come, once what was found until then has been told
/// @throws Failure      nobody was found, or the bus cannot be used
ExitStatus scan_bus(const Session& session, const ScanArguments& arguments);

}  // namespace nodevik_tool

#endif
