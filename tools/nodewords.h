/// @file
/// Nodes as results: their states in words, and what is known of them in JSON.

#ifndef TOOLS_NODEWORDS_H
#define TOOLS_NODEWORDS_H

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "nodevik/nodes/nodewatch.h"
#include "tools/colour.h"

namespace nodevik_tool {

/// A state in one word: "boot-up", "stopped", "operational", "pre-operational", "unknown".
std::string_view state_word(NodeState state);

/// The state of a node: also "lost".
std::string_view state_word(const NodeStatus& status);

/// What a word for a state looks like on a terminal.
Colour state_colour(std::string_view word);

/// "0x8130 Life guard error or heartbeat error., register 0x11".
std::string emergency_words(const NodeEmergency& emergency);

/// The keys `time`, `code`, `register`, `data` and `text` of an emergency.
nlohmann::ordered_json emergency_json(const NodeEmergency& emergency);

/// How long something has been: "0.3 s", "12 s", "3 min", "5 h".
std::string duration_text(std::uint64_t duration_ns);

/// A number as "0x00000401".
std::string hex_text(std::uint32_t number);

}  // namespace nodevik_tool

#endif
