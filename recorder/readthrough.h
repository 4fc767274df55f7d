/// @file
/// Reads a recording from its beginning to its end for a command.

#ifndef RECORDER_READTHROUGH_H
#define RECORDER_READTHROUGH_H

#include <functional>
#include <string>

#include "recorder/interrupts.h"
#include "recorder/recordingreader.h"

namespace vehicle_recorder {

/// Hands out all entries, with progress on a terminal.
///
/// @param reader      the recording
/// @param interrupts  are looked at meanwhile
/// @param progress    whether progress is to be drawn if standard error is a terminal
/// @param take        gets each entry; the result says whether to go on
/// @throws program::Failure, program::Interrupted  as the reader and the interrupts do
void read_through(RecordingReader& reader, const Interrupts& interrupts, bool progress,
                  const std::function<bool(const Entry&)>& take);

/// Tells on standard error what is wrong with what was read, in one line; nothing when all is right.
void tell_damage(const RecordingReader& reader);

/// Ends a command that makes something of frames: tells of damage, unless there is nothing to be told of besides.
///
/// @param reader  the recording, read to its end
/// @param frames  whether frames were found
/// @throws program::Failure  none were; the message tells of damage, too
void demand_frames(const RecordingReader& reader, bool frames);

}  // namespace vehicle_recorder

#endif
