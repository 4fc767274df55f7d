/// @file
/// Frames of the layer setting services in words (CiA 305).

#ifndef TOOLS_LSSFRAMEWORDS_H
#define TOOLS_LSSFRAMEWORDS_H

#include <array>
#include <string>

namespace nodevik_tool {

/// The eight bytes that each frame of LSS has.
using LssBytes = std::array<unsigned char, 8>;

/// What the master asks on 0x7E5: "set node number 5", "fastscan: product 0x00000401 from bit 3 up".
std::string lss_request_words(const LssBytes& data);

/// What a slave answers on 0x7E4: "vendor 0x000001F1", "node number refused: out of range".
std::string lss_answer_words(const LssBytes& data);

}  // namespace nodevik_tool

#endif
