/// @file
/// What happened on the line, in words: a line for each frame, each reply, and whatever else is recorded.

#ifndef RECORDER_CYCLEWORDS_H
#define RECORDER_CYCLEWORDS_H

#include <string>

#include "recorder/cycles.h"
#include "recorder/recording.h"
#include "recorder/texts.h"

namespace vehicle_recorder {

/// The frame of a cycle: "frame 12: throttle 40, direction 103, bucket 110, motor on".
std::string frame_words(const Cycle& cycle, Language language);

/// Its reply: "reply to 12 after 12.041 ms: speed 1280 rpm, voltage 520, current 6, capacity 100 Ah, latitude 601700000",
/// or what is wrong with it.
std::string reply_words(const Cycle& cycle, Language language);

/// An entry that is neither bytes: "the line is set to 9600 baud, 8N1".
std::string event_words(const Entry& entry, Language language);

}  // namespace vehicle_recorder

#endif
