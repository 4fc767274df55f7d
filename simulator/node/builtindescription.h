/// @file
/// The description of the node that is played when no other one is asked for: node-simulator.eds, built in.

#ifndef SIMULATOR_NODE_BUILTINDESCRIPTION_H
#define SIMULATOR_NODE_BUILTINDESCRIPTION_H

#include "nodevik/nodes/devicedescription.h"

namespace node_simulator {

/// The description; it lives as long as the program.
const DeviceDescription& built_in_description();

}  // namespace node_simulator

#endif
