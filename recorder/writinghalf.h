/// @file
/// The process that writes the recording. It may wait for its disk, be stopped, or crash: the line goes on.

#ifndef RECORDER_WRITINGHALF_H
#define RECORDER_WRITINGHALF_H

#include <cstdint>

#include "recorder/recordingwriter.h"

namespace vehicle_recorder {

/// What the process does: writes what comes through the pipe (EntrySender) until the other end is gone. If that had not
/// said that it would end, a note tells so, and the recording stays one that was cut.
///
/// @param pipe      the reading end
/// @param writer    takes the entries
/// @param start_us  beginning of the recording on CLOCK_MONOTONIC
void write_what_comes(int pipe, RecordingWriter& writer, std::uint64_t start_us);

}  // namespace vehicle_recorder

#endif
