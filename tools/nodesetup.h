/// @file
/// Nodes set up from the command line: nodeconfiguration.h on a bus that a signal may end.

#ifndef TOOLS_NODESETUP_H
#define TOOLS_NODESETUP_H

#include <cstdint>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "nodevik/nodes/nodeconfiguration.h"
#include "tools/failure.h"
#include "tools/sdotransfers.h"
#include "tools/session.h"

namespace nodevik_tool {

/// What became of a node that was set up.
struct NodeSetup {
    ConfigurationReport report;  ///< what became of each object
    std::exception_ptr trouble;  ///< what ended it from outside: Interrupted, or a Failure of the bus
    std::vector<std::uint16_t>
        changed_pdos;  ///< that are neither set up nor as they were: their first objects
};

/// Sets a node up, with progress on a terminal. A reset that restoring needs is told.
///
/// When a signal comes, a PDO that is being set up is brought to its end before it is given up, if that takes no longer
/// than a moment.
///
/// @param transfers    with the node
/// @param description  of the node; may be empty when its identity is not checked
/// @param values       what it is to have
NodeSetup set_up_node(const Session& session, SdoTransfers& transfers, const DeviceDescription& description,
                      const std::vector<ConfigurationValue>& values, const ConfigurationOptions& options);

/// How a setup that was not done ends a command, if by itself; of one that a signal or the bus ended, that is thrown.
/// @throws Failure, Interrupted  always, but when the outcome is done
void throw_unless_done(const NodeSetup& setup, SdoTransfers& transfers);

/// Tells which PDOs are neither set up nor as they were, if there are any.
void tell_changed_pdos(const NodeSetup& setup);

/// What became of an object, in JSON.
nlohmann::ordered_json item_json(const ConfigurationItem& item);

/// Why an object was refused, "Unsupported access to an object. (0x06010000)"; empty when it was not.
std::string refusal_text(const ConfigurationItem& item);

}  // namespace nodevik_tool

#endif
