/// @file
/// Reads a recording from its beginning to its end for a command.

#ifndef RECORDER_READTHROUGH_H
#define RECORDER_READTHROUGH_H

#include <functional>
#include <string>

#include "recorder/interrupts.h"
#include "recorder/recordingreader.h"

namespace vehicle_recorder {

/// Hands out all entries, with progress on a terminal, and tells of damage on standard error in the end.
///
/// @param reader      the recording
/// @param interrupts  are looked at meanwhile
/// @param progress    whether progress is to be drawn if standard error is a terminal
/// @param take        gets each entry; the result says whether to go on
/// @throws program::Failure, program::Interrupted  as the reader and the interrupts do
void read_through(RecordingReader& reader, const Interrupts& interrupts, bool progress,
                  const std::function<bool(const Entry&)>& take);

}  // namespace vehicle_recorder

#endif
