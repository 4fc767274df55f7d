/// @file
/// The commands that node-simulator takes while it runs, one per line.

#ifndef SIMULATOR_NODE_NODECONSOLE_H
#define SIMULATOR_NODE_NODECONSOLE_H

#include <string>
#include <string_view>

#include "simulator/node/answerfaults.h"
#include "simulator/node/simulatedbus.h"

namespace node_simulator {

/// Carries out one command on @p bus; see the help text of node-simulator for the commands.
///
/// @param bus     the bus
/// @param faults  the faults of the start: what the command "faults" does not name stays as it is there
/// @param line    the command, without the end of the line
/// @param now     the time
/// @return        "ok" or "error: " and the reason; nothing for an empty line
std::string run_console_command(SimulatedBus& bus, const FaultSettings& faults, std::string_view line,
                                Time now);

}  // namespace node_simulator

#endif
