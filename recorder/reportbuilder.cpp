#include "recorder/reportbuilder.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <string_view>

#include "recorder/readthrough.h"
#include "vehicle/telemetry.h"

namespace vehicle_recorder {

namespace {

std::string settings_text(const LineSettings& settings) {
    return std::to_string(settings.speed_baud) + " " + settings.format +
           (settings.flow == "none" ? "" : " " + settings.flow);
}

// The number behind `words` at the beginning of a text.
std::optional<std::uint64_t> number_behind(std::string_view text, std::string_view words) {
    if (!text.starts_with(words)) {
        return {};
    }
    text.remove_prefix(words.size());
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

Rest rest_after(const vehicle::FrameBytes& frame) {
    const vehicle::Command command = vehicle::command_of(frame);
    if (frame == vehicle::neutral_frame) {
        return Rest::neutral;
    }
    if (command.motor != vehicle::motor_on) {
        return Rest::motor_off;
    }
    return command.throttle == vehicle::rest_throttle ? Rest::motor_on : Rest::driving;
}

std::optional<Fault> fault_of(ReplyState state) {
    switch (state) {
        case ReplyState::too_short:
            return Fault::cut;
        case ReplyState::garbled:
            return Fault::garbled;
        case ReplyState::missing:
            return Fault::lost;
        case ReplyState::whole:
        case ReplyState::closed:
            break;
    }
    return {};
}

// Tenths of a millisecond, which is what a curve shows.
double milliseconds(std::int64_t time_us) {
    const std::int64_t tenths = (time_us + 50) / 100;
    return static_cast<double>(tenths) / 10;
}

}  // namespace

ReportBuilder::ReportBuilder(const RecordingHeader& header)
    : cycles_([this](const Cycle& cycle) { take(cycle); }) {
    report_.header = header;
}

void ReportBuilder::add(const Entry& entry) {
    const auto time_us = static_cast<std::int64_t>(entry.time_us);
    report_.length_us = std::max(report_.length_us, time_us);
    switch (entry.kind) {
        case EntryKind::open:
            open(time_us);
            break;
        case EntryKind::line:
            if (is_open_) {
                openings_.back().settings = settings_text(entry.settings);
            }
            break;
        case EntryKind::sent:
            sent(entry);
            break;
        case EntryKind::received:
            received(entry);
            break;
        case EntryKind::close:
            close(time_us);
            break;
        case EntryKind::note:
            note(entry);
            break;
        case EntryKind::end:
            report_.ending.whole = true;
            break;
    }
    cycles_.add(entry);  // what it gives out is asked where the line was open
}

Report ReportBuilder::finish(const Damage& damage) {
    cycles_.finish();
    hear(report_.length_us);
    end_opening();
    for (const Opening& opening : openings_) {
        keep(opening);
    }
    openings_.clear();
    if (last_sent_ == vehicle::neutral_frame) {
        report_.ending.rest = Rest::neutral;
        report_.ending.frame = last_sent_;
    }
    report_.unread_lines = damage.passed_over;
    report_.first_unread_line = damage.first_line;
    return std::move(report_);
}

void ReportBuilder::open(std::int64_t time_us) {
    openings_.push_back({.opened_us = time_us});
    is_open_ = true;
    sent_ = 0;
}

void ReportBuilder::close(std::int64_t time_us) {
    hear(time_us);
    heard_us_.reset();
    if (is_open_) {
        openings_.back().closed_us = time_us;
    }
    end_opening();
    is_open_ = false;
}

// Takes what the line's last bytes tell, of which the frames may be counted off otherwise.
void ReportBuilder::end_opening() {
    if (is_open_) {
        openings_.back().ended_neutral = sent_ >= last_sent_.size() && last_sent_ == vehicle::neutral_frame;
    }
}

// Takes an opening whose frames are all known.
void ReportBuilder::keep(Opening opening) {
    if (opening.ended_neutral) {
        opening.rest = Rest::neutral;
    }
    report_.openings.add(opening);
    if (opening.frames == 0) {
        return;
    }
    if (last_used_ && (last_used_->rest == Rest::motor_on || last_used_->rest == Rest::driving)) {
        LeftOn& left_on = report_.left_on;
        left_on.first = left_on.count == 0 ? *last_used_ : left_on.first;
        ++left_on.count;
    }
    last_used_ = opening;
}

// The vehicle is awaited from the first frame on.
void ReportBuilder::sent(const Entry& entry) {
    report_.bytes_sent += entry.bytes.size();
    sent_ += entry.bytes.size();
    if (is_open_ && !heard_us_) {
        heard_us_ = static_cast<std::int64_t>(entry.time_us);
    }
    for (const std::uint8_t byte : entry.bytes) {
        std::rotate(last_sent_.begin(), last_sent_.begin() + 1, last_sent_.end());
        last_sent_.back() = byte;
    }
    report_.ending.sender = LastSender::program;
}

void ReportBuilder::received(const Entry& entry) {
    report_.bytes_received += entry.bytes.size();
    if (heard_us_) {
        hear(static_cast<std::int64_t>(entry.time_us));
        heard_us_ = static_cast<std::int64_t>(entry.time_us);
    }
}

// Takes the end of a time without a byte.
void ReportBuilder::hear(std::int64_t time_us) {
    if (heard_us_ && time_us - *heard_us_ > report_.silence_us) {
        report_.silence_us = time_us - *heard_us_;
        report_.silence_from_us = *heard_us_;
    }
}

void ReportBuilder::note(const Entry& entry) {
    report_.notes.add({.time_us = static_cast<std::int64_t>(entry.time_us), .text = entry.text});
    Ending& ending = report_.ending;
    if (const auto status = number_behind(entry.text, "the program ended with status ")) {
        ending.program = {.known = true, .status = static_cast<int>(*status), .signal = {}};
    } else if (const auto signal = number_behind(entry.text, "the program was ended by signal ")) {
        ending.program = {.known = true, .status = {}, .signal = static_cast<int>(*signal)};
    } else if (const auto count = number_behind(entry.text, "bytes not recorded ")) {
        ending.bytes_not_recorded += *count;
    } else if (entry.text == "neutral frame sent by the recorder") {
        ending.sender = LastSender::recorder;
    } else if (entry.text.starts_with("the line ") && entry.text.find(" is lost") != std::string::npos) {
        ending.line_lost = true;
    } else if (entry.text.find(" cannot be opened: ") != std::string::npos) {
        ending.line_refused = true;
    }
}

void ReportBuilder::take(const Cycle& cycle) {
    if (cycle.number == 0) {
        report_.stray_bytes += cycle.reply ? cycle.reply->bytes.size() : 0;
        return;
    }
    take_frame(cycle);
    take_reply(cycle);
    judge(cycle);
}

void ReportBuilder::take_frame(const Cycle& cycle) {
    ++report_.frames;
    const auto time_us = static_cast<std::int64_t>(cycle.time_us);
    Opening* const opening = opening_at(time_us);
    if (opening != nullptr) {
        ++opening->frames;
    }
    if (cycle.since_us) {
        const auto since_us = static_cast<std::int64_t>(*cycle.since_us);
        report_.cycle.add(since_us);
        report_.cycle_ms.add(time_us, milliseconds(since_us));
    }
    if (!cycle.since_us) {
        interrupt_curves();
    }
    if (cycle.step_lost) {
        ++report_.frames_out_of_step;
        return;
    }
    const vehicle::Command command = vehicle::command_of(cycle.frame);
    report_.throttle.add(time_us, command.throttle);
    report_.direction.add(time_us, command.direction);
    report_.bucket.add(time_us, command.bucket);
    report_.motor.add(time_us, command.motor == vehicle::motor_on ? 1 : 0);
    report_.ending.rest = rest_after(cycle.frame);
    report_.ending.frame = cycle.frame;
    if (opening != nullptr) {
        opening->rest = report_.ending.rest;
        opening->throttle = command.throttle;
    }
}

// The first frame of an opening follows nothing.
void ReportBuilder::interrupt_curves() {
    for (Series* const series :
         {&report_.throttle, &report_.direction, &report_.bucket, &report_.motor, &report_.speed,
          &report_.voltage, &report_.current, &report_.capacity, &report_.cycle_ms, &report_.delay_ms}) {
        series->interrupt();
    }
}

void ReportBuilder::take_reply(const Cycle& cycle) {
    if (!cycle.reply) {
        return;
    }
    ++report_.replies;
    if (Opening* const opening = opening_at(static_cast<std::int64_t>(cycle.time_us)); opening != nullptr) {
        ++opening->replies;
    }
    if (const auto delay_us = cycle.delay_us()) {
        report_.delay.add(static_cast<std::int64_t>(*delay_us));
        report_.delay_ms.add(static_cast<std::int64_t>(cycle.reply->first_us),
                             milliseconds(static_cast<std::int64_t>(*delay_us)));
    }
    if (const std::optional<vehicle::Telemetry> telemetry = cycle.reply->telemetry()) {
        const auto time_us = static_cast<std::int64_t>(cycle.reply->last_us);
        report_.speed.add(time_us, telemetry->speed_rpm);
        report_.voltage.add(time_us, telemetry->voltage);
        report_.current.add(time_us, telemetry->current);
        report_.capacity.add(time_us, telemetry->capacity_ah);
    }
}

// A reply may be late besides being short or garbled: both are counted, and it is listed once.
void ReportBuilder::judge(const Cycle& cycle) {
    const auto time_us = static_cast<std::int64_t>(cycle.time_us);
    const auto count = [&](Fault fault) {
        report_.faults.add(fault);
        report_.faults_over_time.at(time_us).add(fault);
    };
    const std::optional<Fault> fault = was_awaited_in_vain(cycle) ? Fault::lost : fault_of(cycle.state);
    if (fault) {
        count(*fault);
    }
    if (cycle.late) {
        count(Fault::late);
    }
    if (!fault && !cycle.late) {
        report_.good_replies += cycle.state == ReplyState::whole ? 1 : 0;
        return;
    }
    FaultyReply faulty = {.time_us = time_us, .fault = fault.value_or(Fault::late), .late = cycle.late};
    if (cycle.reply) {
        faulty.bytes = cycle.reply->bytes.size();
    }
    if (const auto delay_us = cycle.delay_us()) {
        faulty.delay_us = static_cast<std::int64_t>(*delay_us);
    }
    report_.faulty.add(faulty);
}

// A vehicle is not so slow that its reply may still come after so long, whether or not later frames were answered.
bool ReportBuilder::was_awaited_in_vain(const Cycle& cycle) {
    const auto time_us = static_cast<std::int64_t>(cycle.time_us);
    const Opening* const opening = opening_at(time_us);
    return cycle.state == ReplyState::closed && opening != nullptr &&
           opening->closed_us.value_or(report_.length_us) - time_us >= longest_wait_us;
}

// The opening that a time belongs to; null beside all of them. Those before it are complete.
Opening* ReportBuilder::opening_at(std::int64_t time_us) {
    while (openings_.size() > 1 && openings_[1].opened_us <= time_us) {
        keep(openings_.front());
        openings_.pop_front();
    }
    const bool is_inside = !openings_.empty() && openings_.front().opened_us <= time_us &&
                           time_us <= openings_.front().closed_us.value_or(time_us);
    return is_inside ? &openings_.front() : nullptr;
}

Report read_report(const std::string& path, const Interrupts& interrupts) {
    RecordingReader reader(path);
    ReportBuilder builder(reader.header());
    read_through(reader, interrupts, true, [&builder](const Entry& entry) {
        builder.add(entry);
        return true;
    });
    tell_damage(reader);
    Report report = builder.finish(reader.damage());
    report.file = std::filesystem::path(path).filename().string();
    report.file_bytes = reader.position();
    return report;
}

}  // namespace vehicle_recorder
