#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <string>

#include "program/failure.h"
#include "recorder/commandoptions.h"
#include "recorder/commands.h"
#include "recorder/cyclewords.h"
#include "recorder/readthrough.h"
#include "recorder/resultstream.h"

namespace vehicle_recorder {

namespace {

struct ShowOptions {
    std::string file;
    std::uint64_t from_us = 0;
    std::uint64_t to_us = UINT64_MAX;
};

// Puts what happened into the order of time. What becomes of a reply is known later than what happens meanwhile.
class Narration {
public:
    Narration(const ShowOptions& options, Language language, ResultStream& output)
        : options_(&options),
          language_(language),
          output_(&output),
          builder_([this](const Cycle& cycle) { take(cycle); }) {}

    // Takes the next entry. Tells whether more is wanted.
    bool take(const Entry& entry) {
        builder_.add(entry);
        if (entry.kind != EntryKind::sent && entry.kind != EntryKind::received) {
            lines_.emplace(entry.time_us, event_words(entry, language_));
        }
        return !is_beyond_;
    }

    void finish() {
        builder_.finish();
        print_before(UINT64_MAX);
        output_->finish();
    }

    bool has_frames() const { return has_frames_; }

private:
    void take(const Cycle& cycle) {
        print_before(cycle.time_us);
        if (cycle.number > 0) {
            has_frames_ = true;
            lines_.emplace(cycle.time_us, frame_words(cycle, language_));
        }
        lines_.emplace(cycle.reply ? cycle.reply->first_us : cycle.time_us, reply_words(cycle, language_));
    }

    void print_before(std::uint64_t time_us) {
        const auto end = lines_.lower_bound(time_us);
        for (auto line = lines_.begin(); line != end; ++line) {
            is_beyond_ = is_beyond_ || line->first > options_->to_us;
            if (line->first >= options_->from_us && !is_beyond_) {
                output_->add(seconds_text(line->first) + " " + line->second + "\n");
            }
        }
        lines_.erase(lines_.begin(), end);
    }

    const ShowOptions* options_;
    Language language_;
    ResultStream* output_;
    CycleBuilder builder_;
    std::multimap<std::uint64_t, std::string> lines_;
    bool has_frames_ = false;
    bool is_beyond_ = false;
};

int show(const ShowOptions& options) {
    RecordingReader reader(options.file);
    const Interrupts interrupts;
    ResultStream output("", interrupts);
    Narration narration(options, language_of_environment(), output);
    read_through(reader, interrupts, !output.is_terminal(),
                 [&narration](const Entry& entry) { return narration.take(entry); });
    narration.finish();
    demand_frames(reader, narration.has_frames());
    return static_cast<int>(program::ExitStatus::done);
}

}  // namespace

void add_show_command(CLI::App& app, Action& action) {
    CLI::App& command = add_command(app, "show", "Show each frame and reply of a recording in words",
                                    "vehicle-recorder show drive.recording --from 12.5 --to 20");
    const auto options = std::make_shared<ShowOptions>();
    add_recording_option(command, options->file);
    add_time_option(command, "--from", options->from_us, "Begin with this time, in seconds since the start");
    add_time_option(command, "--to", options->to_us, "End with this time");
    command.callback([&action, options] {
        if (options->from_us > options->to_us) {
            throw CLI::ValidationError("--to", "is earlier than --from");
        }
        action = [options] { return show(*options); };
    });
}

}  // namespace vehicle_recorder
