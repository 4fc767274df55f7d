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

/// @throws program::Failure  usage: there is no threshold, and something is to be done about one
[[noreturn]] void refuse_to_watch_nothing();

/// Raises alarms. An object of it has the process's children to itself: it takes their ends (waitpid(2)).
class Alarms {
public:
    static constexpr std::size_t most_commands = 8;  ///< which have not ended, at once

    /// @param setup  lives as long as this object
    explicit Alarms(const AlarmSetUp& setup);

    /// Says a passed threshold on standard error, in the language of the environment, and starts the command. The command
    /// finds the words in the environment variable RECORDER_ALARM and nothing on its standard input. Nobody waits for it;
    /// when most_commands of them have not ended, that is told once, and no more is started until one has.
    /// @param when  ahead of the words; may be empty
    void raise(const Threshold& threshold, std::int64_t value, const std::string& when);

private:
    bool has_room();
    void start_command(const std::string& words);

    const AlarmSetUp& setup_;
    std::size_t running_ = 0;
    bool told_ = false;  // that there is no room
};

/// What the watching process does: watches what comes through the pipe (EntrySender) until the other end is gone.
/// @param pipe      the reading end
/// @param start_us  beginning of the recording on CLOCK_MONOTONIC
void watch_what_comes(int pipe, const AlarmSetUp& setup, std::uint64_t start_us);

}  // namespace vehicle_recorder

#endif
