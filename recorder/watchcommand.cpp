// The command `watch`: follows a recording that grows, and tells when thresholds are passed.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "program/failure.h"
#include "program/file.h"
#include "recorder/alarms.h"
#include "recorder/commandoptions.h"
#include "recorder/commands.h"
#include "recorder/interrupts.h"
#include "recorder/recordingreader.h"

namespace vehicle_recorder {

namespace {

using program::ExitStatus;
using program::Failure;
using Clock = std::chrono::steady_clock;

constexpr auto pause_at_the_end = std::chrono::milliseconds(50);
// What happened stands in the file a second later at the latest: only beyond that does the file's silence say anything.
constexpr auto flush_period = std::chrono::milliseconds(1200);

// The lines of a file that another process writes, whole ones only.
class GrowingFile {
public:
    explicit GrowingFile(const std::string& path) : file_(std::fopen(path.c_str(), "re")) {
        if (!file_) {
            throw Failure(ExitStatus::bad_file, path + ": cannot be opened");
        }
    }

    // The next line; none when it is not there yet.
    std::optional<std::string> next() {
        for (int byte = std::fgetc(file_.get()); byte != EOF; byte = std::fgetc(file_.get())) {
            if (byte == '\n') {
                return std::exchange(line_, {});
            }
            line_ += static_cast<char>(byte);
        }
        std::clearerr(file_.get());
        return std::nullopt;
    }

private:
    program::File file_;
    std::string line_;
};

struct WatchOptions {
    std::string file;
    AlarmSetUp alarms;
};

int watch(const WatchOptions& options) {
    if (options.alarms.thresholds.empty()) {
        throw Failure(ExitStatus::usage, "nothing to watch: name a limit with --silence, --below or --above");
    }
    const Interrupts interrupts;
    { const RecordingReader checked(options.file); }  // tells what is wrong with the header
    GrowingFile file(options.file);
    EntryParser parser;
    std::uint64_t time_us = 0;
    ThresholdWatch watch(options.alarms.thresholds, [&](const Threshold& threshold, std::int64_t value) {
        raise_alarm(options.alarms, threshold, value, seconds_text(time_us) + " ");
    });
    Clock::time_point grown = Clock::now();
    for (Entry entry; entry.kind != EntryKind::end || time_us == 0;) {
        interrupts.check();
        const std::optional<std::string> line = file.next();
        if (line && !line->starts_with('#') && parser.parse(*line, entry)) {
            time_us = std::max<std::uint64_t>(entry.time_us, 1);
            watch.add(entry);
        }
        if (line) {
            grown = Clock::now();
            continue;
        }
        const auto silent = Clock::now() - grown;
        if (silent > flush_period) {
            const auto beyond = std::chrono::duration_cast<std::chrono::microseconds>(silent - flush_period);
            watch.tick(time_us + static_cast<std::uint64_t>(beyond.count()));
        }
        std::this_thread::sleep_for(pause_at_the_end);
    }
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
