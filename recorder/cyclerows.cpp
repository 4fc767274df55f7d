#include "recorder/cyclerows.h"

#include <array>
#include <charconv>
#include <functional>
#include <string_view>

namespace vehicle_recorder {

namespace {

struct Context {
    const Cycle& cycle;
    const RecordingHeader& header;
    std::optional<vehicle::Telemetry> telemetry;
    vehicle::Command command;
    bool has_frame;
    bool has_set_points;
};

// Appends the value of a column; nothing when it is not known.
using Append = void (*)(std::string& text, const Context& context);

enum class Kind { number, word, truth };

struct Column {
    std::string_view name;
    Kind kind;
    Append append;
};

template <typename Number>
void append_number(std::string& text, Number number) {
    std::array<char, 24> room;
    const auto result = std::to_chars(room.data(), room.data() + room.size(), number);
    text.append(room.data(), result.ptr);
}

void append_milliseconds(std::string& text, const std::optional<std::uint64_t>& time_us) {
    if (time_us) {
        append_number(text, *time_us / 1000);
        const std::string digits = std::to_string(1000 + *time_us % 1000);
        text += '.';
        text.append(digits, 1);
    }
}

template <typename Bytes>
void append_hex(std::string& text, const Bytes& bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4U];
        text += digits[byte & 0xFU];
    }
}

std::string_view state_word(const Cycle& cycle) {
    constexpr std::array<std::string_view, 5> words = {"whole", "short", "garbled", "missing", "closed"};
    return words[static_cast<std::size_t>(cycle.state)];
}

void append_truth(std::string& text, bool truth) {
    text += truth ? "true" : "false";
}

// In the order of the table.
constexpr std::array<Column, 24> columns = {{
    {"cycle", Kind::number,
     [](std::string& text, const Context& c) { c.has_frame ? append_number(text, c.cycle.number) : void(); }},
    {"time_s", Kind::number,
     [](std::string& text, const Context& c) { text += seconds_text(c.cycle.time_us); }},
    {"clock", Kind::word,
     [](std::string& text, const Context& c) {
         text += wall_clock_text(c.header.wall_us + static_cast<std::int64_t>(c.cycle.time_us),
                                 c.header.utc_offset_min);
     }},
    {"since_last_ms", Kind::number,
     [](std::string& text, const Context& c) { append_milliseconds(text, c.cycle.since_us); }},
    {"throttle", Kind::number,
     [](std::string& text, const Context& c) {
         c.has_set_points ? append_number(text, c.command.throttle) : void();
     }},
    {"direction", Kind::number,
     [](std::string& text, const Context& c) {
         c.has_set_points ? append_number(text, c.command.direction) : void();
     }},
    {"direction_mv", Kind::number,
     [](std::string& text, const Context& c) {
         c.has_set_points ? append_number(text, vehicle::control_voltage_mv(c.command.direction)) : void();
     }},
    {"bucket", Kind::number,
     [](std::string& text, const Context& c) {
         c.has_set_points ? append_number(text, c.command.bucket) : void();
     }},
    {"bucket_mv", Kind::number,
     [](std::string& text, const Context& c) {
         c.has_set_points ? append_number(text, vehicle::control_voltage_mv(c.command.bucket)) : void();
     }},
    {"motor", Kind::word,
     [](std::string& text, const Context& c) {
         text += !c.has_set_points ? "" : c.command.motor == vehicle::motor_on ? "on" : "off";
     }},
    {"step_lost", Kind::truth,
     [](std::string& text, const Context& c) {
         c.has_frame ? append_truth(text, c.cycle.step_lost) : void();
     }},
    {"frame", Kind::word,
     [](std::string& text, const Context& c) { c.has_frame ? append_hex(text, c.cycle.frame) : void(); }},
    {"reply", Kind::word, [](std::string& text, const Context& c) { text += state_word(c.cycle); }},
    {"late", Kind::truth, [](std::string& text, const Context& c) { append_truth(text, c.cycle.late); }},
    {"reply_delay_ms", Kind::number,
     [](std::string& text, const Context& c) { append_milliseconds(text, c.cycle.delay_us()); }},
    {"bytes", Kind::number,
     [](std::string& text, const Context& c) {
         append_number(text, c.cycle.reply ? c.cycle.reply->bytes.size() : std::size_t(0));
     }},
    {"bytes_ahead", Kind::number,
     [](std::string& text, const Context& c) {
         append_number(text, c.cycle.reply ? c.cycle.reply->ahead : std::size_t(0));
     }},
    {"speed_rpm", Kind::number,
     [](std::string& text, const Context& c) {
         c.telemetry ? append_number(text, c.telemetry->speed_rpm) : void();
     }},
    {"voltage", Kind::number,
     [](std::string& text, const Context& c) {
         c.telemetry ? append_number(text, c.telemetry->voltage) : void();
     }},
    {"current", Kind::number,
     [](std::string& text, const Context& c) {
         c.telemetry ? append_number(text, c.telemetry->current) : void();
     }},
    {"capacity_ah", Kind::number,
     [](std::string& text, const Context& c) {
         c.telemetry ? append_number(text, c.telemetry->capacity_ah) : void();
     }},
    {"latitude", Kind::number,
     [](std::string& text, const Context& c) {
         c.telemetry ? append_number(text, c.telemetry->latitude) : void();
     }},
    {"at_rest", Kind::truth,
     [](std::string& text, const Context& c) {
         c.has_frame ? append_truth(text, c.cycle.frame == vehicle::neutral_frame) : void();
     }},
    {"data", Kind::word,
     [](std::string& text, const Context& c) {
         c.cycle.reply ? append_hex(text, c.cycle.reply->bytes) : void();
     }},
}};

// Those that make curves, by their place in the table.
constexpr std::array<std::string_view, 9> curve_names = {
    "time_s", "throttle", "direction", "bucket", "motor", "speed_rpm", "voltage", "current", "capacity_ah"};

constexpr std::array<std::size_t, curve_names.size()> curves = [] {
    std::array<std::size_t, curve_names.size()> places = {};
    for (std::size_t curve = 0; curve < curve_names.size(); curve++) {
        while (columns[places[curve]].name != curve_names[curve]) {
            ++places[curve];
        }
    }
    return places;
}();

Context context_of(const Cycle& cycle, const RecordingHeader& header) {
    const bool has_frame = cycle.number > 0;
    return {.cycle = cycle,
            .header = header,
            .telemetry = cycle.reply ? cycle.reply->telemetry() : std::nullopt,
            .command = vehicle::command_of(cycle.frame),
            .has_frame = has_frame,
            .has_set_points = has_frame && !cycle.step_lost};
}

}  // namespace

std::string csv_head() {
    std::string text;
    for (const Column& column : columns) {
        text += text.empty() ? "" : ",";
        text += column.name;
    }
    return text + "\n";
}

std::string csv_row(const Cycle& cycle, const RecordingHeader& header) {
    const Context context = context_of(cycle, header);
    std::string text;
    for (const Column& column : columns) {
        text += &column == columns.data() ? "" : ",";
        column.append(text, context);
    }
    return text + "\n";
}

std::string curve_head() {
    std::string text;
    for (const std::string_view name : curve_names) {
        text += text.empty() ? "" : ",";
        text += name;
    }
    return text + "\n";
}

std::string curve_row(const Cycle& cycle, const RecordingHeader& header) {
    const Context context = context_of(cycle, header);
    std::string text;
    for (const std::size_t curve : curves) {
        text += text.empty() ? "" : ",";
        const std::size_t length = text.size();
        columns[curve].append(text, context);
        text += text.size() == length ? "nan" : "";
    }
    return text + "\n";
}

std::string curve_gap(std::uint64_t time_us) {
    std::string text = seconds_text(time_us);
    for (std::size_t curve = 1; curve < curves.size(); curve++) {
        text += ",nan";
    }
    return text + "\n";
}

std::string json_row(const Cycle& cycle, const RecordingHeader& header) {
    const Context context = context_of(cycle, header);
    std::string text = "{";
    std::string value;
    for (const Column& column : columns) {
        value.clear();
        column.append(value, context);
        text += &column == columns.data() ? "\"" : ",\"";
        text.append(column.name).append("\":");
        if (value.empty()) {
            text += "null";
        } else if (column.kind == Kind::word) {
            text.append("\"").append(value).append("\"");
        } else {
            text += value;
        }
    }
    return text + "}";
}

}  // namespace vehicle_recorder
