/// @file
/// Says that a threshold was passed, and starts a command for it.

#ifndef RECORDER_ALARMS_H
#define RECORDER_ALARMS_H

#include <cstdint>
#include <string>
#include <vector>

#include "recorder/recordingwriter.h"
#include "recorder/thresholds.h"

namespace CLI {
class App;
}

namespace vehicle_recorder {

/// What is watched, and what is done then.
struct AlarmSetUp {
    std::vector<Threshold> thresholds;
    std::string command;  ///< for the shell; empty: none
};

/// Adds the options --silence, --below, --above and --exec to a command.
/// @param setup  gets what they say; lives as long as @p command
void add_alarm_options(CLI::App& command, AlarmSetUp& setup);

/// Says a passed threshold on standard error, in the language of the environment, and starts the command. The command
/// finds the words in the environment variable RECORDER_ALARM, and nobody waits for it.
/// @param when  ahead of the words; may be empty
void raise_alarm(const AlarmSetUp& setup, const Threshold& threshold, std::int64_t value,
                 const std::string& when);

/// What the watching process does: watches what comes through the pipe (EntrySender) until the other end is gone.
/// @param pipe      the reading end
/// @param start_us  beginning of the recording on CLOCK_MONOTONIC
void watch_what_comes(int pipe, const AlarmSetUp& setup, std::uint64_t start_us);

}  // namespace vehicle_recorder

#endif
