/// @file
/// Frames in CANopen's words, by the predefined connection set (CiA 301, 7.3.3).

#ifndef TOOLS_FRAMEWORDS_H
#define TOOLS_FRAMEWORDS_H

#include <string>
#include <vector>

#include "nodevik/observeddriver.h"
#include "nodevik/recording/framelog.h"

namespace nodevik_tool {

/// A frame that is shown: of a bus, or of a log.
struct ShownFrame : LogFrame {
    bool error =
        false;  ///< made up by the controller: the identifier is a set of error classes (linux/can/error.h)
};

/// A frame that an observer was shown.
/// @param bus  name of the bus
ShownFrame shown_frame(const ObservedFrame& frame, const std::string& bus);

/// What kind of frame it is, and of which node.
struct FrameKind {
    /// "nmt", "sync", "emcy", "time", "tpdo1" to "tpdo4", "rpdo1" to "rpdo4", "sdo-answer", "sdo-request", "heartbeat",
    /// "guard", "lss" or "other".
    std::string word;
    unsigned int node = 0;  ///< 1 to 127; 0 when it is of none
};

/// The kind of a frame; frames with 29 bits and error frames are "other".
FrameKind kind_of(const ShownFrame& frame);

/// All words for kinds.
const std::vector<std::string>& frame_kinds();

/// What a frame says: "NMT start, node 5", "SDO answer of node 5: 0x1018:1 is 01 04 00 00".
std::string frame_words(const ShownFrame& frame);

/// What a segment of a block transfer says: "SDO request to node 5: block segment 3, 01 02 03 04 05 06 07". The last one
/// may hold more bytes than the object has left; how many they are is told at the end.
/// @param number  of the segment, see BlockSegments
std::string segment_words(const ShownFrame& frame, unsigned int number);

/// How many bits a frame has on a bus, with half of the stuff bits that it could have at most (ISO 11898-1).
unsigned int frame_bits(const ShownFrame& frame);

}  // namespace nodevik_tool

#endif
