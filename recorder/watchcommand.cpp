// The command `watch`: follows a recording that grows, and tells when thresholds are passed.

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "program/exitstatus.h"
#include "recorder/alarms.h"
#include "recorder/commandoptions.h"
#include "recorder/commands.h"
#include "recorder/interrupts.h"
#include "recorder/readthrough.h"
#include "recorder/recordingreader.h"

namespace vehicle_recorder {

namespace {

using program::ExitStatus;
using Clock = std::chrono::steady_clock;

constexpr auto pause_at_the_end = std::chrono::milliseconds(50);
// What happened stands in the file a second later at the latest: only beyond that does the file's silence say anything.
constexpr auto flush_period = std::chrono::milliseconds(1200);

struct WatchOptions {
    std::string file;
    AlarmSetUp alarms;
};

int watch(const WatchOptions& options) {
    if (options.alarms.thresholds.empty()) {
        refuse_to_watch_nothing();
    }
    const Interrupts interrupts;
    RecordingReader reader(options.file, RecordingReader::Growth::goes_on);
    Alarms alarms(options.alarms);
    std::uint64_t now_us = 0;  // in the recording
    ThresholdWatch watch(options.alarms.thresholds, [&](const Threshold& threshold, std::int64_t value) {
        alarms.raise(threshold, value, seconds_text(now_us) + " ");
    });
    std::uint64_t last_us = 0;
    Clock::time_point grown = Clock::now();
    for (Entry entry; !reader.has_ended();) {
        interrupts.check();
        if (reader.next(entry)) {
            now_us = last_us = entry.time_us;
            watch.add(entry);
            grown = Clock::now();
            continue;
        }
        const auto silent = Clock::now() - grown;
        if (silent > flush_period) {
            const auto beyond = std::chrono::duration_cast<std::chrono::microseconds>(silent - flush_period);
            now_us = last_us + static_cast<std::uint64_t>(beyond.count());
            watch.tick(now_us);
        }
        std::this_thread::sleep_for(pause_at_the_end);
    }
    tell_damage(reader);
    return static_cast<int>(ExitStatus::done);
}

}  // namespace

void add_watch_command(CLI::App& app, Action& action) {
    const auto options = std::make_shared<WatchOptions>();
    CLI::App& command =
        add_command(app, "watch", "Follow a recording and say when limits are passed",
                    "vehicle-recorder watch drive.recording --silence 500 --below capacity=20");
    add_recording_option(command, options->file);
    add_alarm_options(command, options->alarms);
    command.callback([&action, options] { action = [options] { return watch(*options); }; });
}

}  // namespace vehicle_recorder
