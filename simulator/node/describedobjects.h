/// @file
/// Makes a node's objects of the description of its maker, an EDS or DCF file.

#ifndef SIMULATOR_NODE_DESCRIBEDOBJECTS_H
#define SIMULATOR_NODE_DESCRIBEDOBJECTS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "nodevik/nodes/devicedescription.h"
#include "simulator/node/nodedictionary.h"

namespace node_simulator {

/// Most bytes that a client may write to a string, and to a domain.
inline constexpr std::size_t largest_string = 10'000;
inline constexpr std::size_t largest_domain = 1'000'000;

/// Adds every object that a description has: with its access, its limits, its size by its type, and its value, that of a
/// DCF before the default. What has no value is 0 or empty.
///
/// @param description  what the node is like
/// @param node         node number, 1 to 127, for values that depend on it
/// @param dictionary   takes the objects
/// @return             what cannot be served and is left out, a line each: "2100sub1 (Motor data): no data type"
std::vector<std::string> add_described_objects(const DeviceDescription& description, std::uint8_t node,
                                               NodeDictionary& dictionary);

}  // namespace node_simulator

#endif
