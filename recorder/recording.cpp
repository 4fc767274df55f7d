#include "recorder/recording.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "program/standardoptions.h"

namespace vehicle_recorder {

namespace {

constexpr std::uint64_t second_us = 1'000'000;
constexpr std::uint64_t longest_seconds = 100ULL * 366 * 24 * 3600;
constexpr int fraction_digits = 6;
constexpr int minute_s = 60;

constexpr std::string_view first_words = "# vehicle-recorder recording ";
constexpr std::string_view program_words = "# program ";
constexpr std::string_view device_words = "# device ";
constexpr std::string_view start_words = "# start ";
constexpr std::string_view monotonic_words = " monotonic ";

struct Word {
    EntryKind kind;
    std::string_view word;
};

constexpr std::array<Word, 7> words = {{{EntryKind::sent, ">"},
                                        {EntryKind::received, "<"},
                                        {EntryKind::open, "open"},
                                        {EntryKind::line, "line"},
                                        {EntryKind::close, "close"},
                                        {EntryKind::note, "note"},
                                        {EntryKind::end, "end"}}};

constexpr std::string_view hex_digits = "0123456789abcdef";

// The value of a hexadecimal digit of the small letters, -1 for anything else.
constexpr std::array<std::int8_t, 256> hex_values = [] {
    std::array<std::int8_t, 256> values = {};
    values.fill(-1);
    for (std::size_t i = 0; i < hex_digits.size(); i++) {
        values[static_cast<unsigned char>(hex_digits[i])] = static_cast<std::int8_t>(i);
    }
    return values;
}();

int hex_value(char digit) {
    return hex_values[static_cast<unsigned char>(digit)];
}

void append_hex(std::string& text, std::uint8_t byte) {
    text += hex_digits[byte >> 4U];
    text += hex_digits[byte & 0xFU];
}

bool parse_hex(std::string_view text, std::vector<std::uint8_t>& bytes) {
    bytes.clear();
    if (text.empty() || text.size() % 2 != 0) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = hex_value(text[i]);
        const int low = hex_value(text[i + 1]);
        if (high < 0 || low < 0) {
            return false;
        }
        bytes.push_back(static_cast<std::uint8_t>(high * 16 + low));
    }
    return true;
}

template <typename Number>
void append_number(std::string& text, Number number) {
    std::array<char, 24> room;
    const auto result = std::to_chars(room.data(), room.data() + room.size(), number);
    text.append(room.data(), result.ptr);
}

// Digits alone: no sign, no blank.
template <typename Number>
std::optional<Number> parse_number(std::string_view text) {
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool right = error == std::errc() && end == text.data() + text.size() && text.front() != '-';
    return right ? std::optional(number) : std::nullopt;
}

void append_seconds(std::string& text, std::uint64_t time_us) {
    append_number(text, time_us / second_us);
    text += '.';
    std::array<char, fraction_digits> digits;
    std::uint64_t rest = time_us % second_us;
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
        *digit = static_cast<char>('0' + rest % 10);
        rest /= 10;
    }
    text.append(digits.data(), digits.size());
}

bool is_control(char character) {
    const auto code = static_cast<unsigned char>(character);
    return code < 0x20 || code == 0x7F;
}

void append_escaped(std::string& text, std::string_view words_of_somebody) {
    for (const char character : words_of_somebody) {
        if (is_control(character) || character == '\\') {
            text += "\\x";
            append_hex(text, static_cast<std::uint8_t>(character));
        } else {
            text += character;
        }
    }
}

// What append_escaped() was given. A backslash that begins nothing stands for itself.
void unescape(std::string_view text, std::string& result) {
    result.clear();
    constexpr std::size_t length = 4;
    for (std::size_t i = 0; i < text.size(); i++) {
        const std::string_view rest = text.substr(i);
        if (rest.size() >= length && rest.starts_with("\\x") && hex_value(rest[2]) >= 0 &&
            hex_value(rest[3]) >= 0) {
            result += static_cast<char>(hex_value(rest[2]) * 16 + hex_value(rest[3]));
            i += length - 1;
        } else {
            result += text[i];
        }
    }
}

// Cuts the part up to a character off, and the character too.
std::string_view take_until(std::string_view& text, char character) {
    const std::size_t length = std::min(text.find(character), text.size());
    const std::string_view part = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return part;
}

bool parse_settings(std::string_view text, LineSettings& settings) {
    const std::optional<unsigned> speed = parse_number<unsigned>(take_until(text, ' '));
    settings.speed_baud = speed.value_or(0);
    settings.format = take_until(text, ' ');
    settings.flow = text;
    return speed && settings.format.size() == 3 && !settings.flow.empty() &&
           settings.flow.find(' ') == std::string::npos;
}

// The digits at a place of a text, as a number.
std::optional<int> digits_at(std::string_view text, std::size_t position, std::size_t count) {
    const std::string_view digits = text.substr(std::min(position, text.size()), count);
    const bool all = digits.size() == count && std::all_of(digits.begin(), digits.end(), [](char character) {
                         return character >= '0' && character <= '9';
                     });
    return all ? parse_number<int>(digits) : std::nullopt;
}

struct WallClock {
    std::int64_t us = 0;
    int utc_offset_min = 0;
};

std::optional<WallClock> parse_wall_clock(std::string_view text) {
    constexpr std::string_view pattern = "dddd-dd-ddTdd:dd:dd.dddddd+dd:dd";
    if (text.size() != pattern.size()) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < pattern.size(); i++) {
        const bool right = pattern[i] == 'd'   ? digits_at(text, i, 1).has_value()
                           : pattern[i] == '+' ? text[i] == '+' || text[i] == '-'
                                               : text[i] == pattern[i];
        if (!right) {
            return std::nullopt;
        }
    }
    using namespace std::chrono;
    const auto number = [text](std::size_t position, std::size_t count) {
        return digits_at(text, position, count).value_or(0);
    };
    const year_month_day date(year(number(0, 4)), month(static_cast<unsigned>(number(5, 2))),
                              day(static_cast<unsigned>(number(8, 2))));
    if (!date.ok()) {
        return std::nullopt;
    }
    const int offset_min = (number(27, 2) * minute_s + number(30, 2)) * (text[26] == '-' ? -1 : 1);
    const auto local = sys_days(date).time_since_epoch() + hours(number(11, 2)) + minutes(number(14, 2)) +
                       seconds(number(17, 2)) + microseconds(number(20, 6));
    return WallClock{microseconds(local - minutes(offset_min)).count(), offset_min};
}

}  // namespace

std::uint64_t monotonic_now_us() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * second_us +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000;
}

RecordingHeader header_of_now(const std::string& device) {
    RecordingHeader header;
    header.program = std::string("vehicle-recorder ") + program::version();
    header.device = device;
    timespec wall = {};
    clock_gettime(CLOCK_REALTIME, &wall);
    header.monotonic_us = monotonic_now_us();
    tm local = {};
    localtime_r(&wall.tv_sec, &local);
    header.wall_us =
        static_cast<std::int64_t>(wall.tv_sec) * static_cast<std::int64_t>(second_us) + wall.tv_nsec / 1000;
    header.utc_offset_min = static_cast<int>(local.tm_gmtoff / minute_s);
    return header;
}

std::string wall_clock_text(std::int64_t wall_us, int utc_offset_min) {
    using namespace std::chrono;
    const sys_time<microseconds> local(microseconds(wall_us) + minutes(utc_offset_min));
    const sys_days day_of = floor<days>(local);
    const year_month_day date(day_of);
    const hh_mm_ss time(local - day_of);
    const int offset = std::abs(utc_offset_min);
    std::array<char, 64> room;
    std::snprintf(room.data(), room.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%06d%c%02d:%02d",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
                  static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
                  static_cast<int>(time.subseconds().count()), utc_offset_min < 0 ? '-' : '+',
                  offset / minute_s, offset % minute_s);
    return room.data();
}

std::string seconds_text(std::uint64_t time_us) {
    std::string text;
    append_seconds(text, time_us);
    return text;
}

std::optional<std::uint64_t> read_seconds(std::string_view text) {
    const std::size_t point = text.find('.');
    const std::optional<std::uint64_t> whole = parse_number<std::uint64_t>(text.substr(0, point));
    if (!whole || *whole > longest_seconds) {
        return std::nullopt;
    }
    std::uint64_t time_us = *whole * second_us;
    if (point == std::string_view::npos) {
        return time_us;
    }
    const std::string_view digits = text.substr(point + 1);
    if (digits.empty() || digits.size() > fraction_digits) {
        return std::nullopt;
    }
    std::uint64_t unit = second_us / 10;
    for (const char digit : digits) {
        if (digit < '0' || digit > '9') {
            return std::nullopt;
        }
        time_us += static_cast<std::uint64_t>(digit - '0') * unit;
        unit /= 10;
    }
    return time_us;
}

std::string text_of(const RecordingHeader& header) {
    std::string text(first_words);
    append_number(text, recording_format);
    text.append("\n").append(program_words);
    append_escaped(text, header.program);
    text.append("\n").append(device_words);
    append_escaped(text, header.device);
    text.append("\n").append(start_words).append(wall_clock_text(header.wall_us, header.utc_offset_min));
    text.append(monotonic_words).append(seconds_text(header.monotonic_us)).append("\n");
    return text;
}

void EntryFormatter::append(std::string& text, const Entry& entry) {
    const bool after_full = full_time_us_ && entry.time_us >= *full_time_us_;
    if (entry.kind == EntryKind::received && after_full && entry.time_us - *full_time_us_ < second_us) {
        text += '+';
        append_number(text, entry.time_us - *full_time_us_);
    } else {
        append_seconds(text, entry.time_us);
        full_time_us_ = entry.time_us;
    }
    const auto word = std::find_if(words.begin(), words.end(),
                                   [&entry](const Word& one) { return one.kind == entry.kind; });
    text.append(" ").append(word->word);
    switch (entry.kind) {
        case EntryKind::sent:
        case EntryKind::received:
            text += ' ';
            for (const std::uint8_t byte : entry.bytes) {
                append_hex(text, byte);
            }
            break;
        case EntryKind::line:
            text += ' ';
            append_number(text, entry.settings.speed_baud);
            text.append(" ").append(entry.settings.format).append(" ").append(entry.settings.flow);
            break;
        case EntryKind::note:
            text += ' ';
            append_escaped(text, entry.text);
            break;
        default:
            break;
    }
    text += '\n';
}

bool EntryParser::parse(std::string_view line, Entry& entry) {
    std::string_view time = take_until(line, ' ');
    const bool is_relative = time.starts_with('+');
    if (is_relative) {
        const std::optional<std::uint64_t> since = parse_number<std::uint64_t>(time.substr(1));
        if (!since || !full_time_us_ || *since >= second_us) {
            return false;
        }
        entry.time_us = *full_time_us_ + *since;
    } else {
        const std::optional<std::uint64_t> full = read_seconds(time);
        if (!full || time.size() < fraction_digits + 2 || time[time.size() - fraction_digits - 1] != '.') {
            return false;
        }
        entry.time_us = *full;
    }
    const std::string_view named = take_until(line, ' ');
    const auto word =
        std::find_if(words.begin(), words.end(), [named](const Word& one) { return one.word == named; });
    if (word == words.end()) {
        return false;
    }
    entry.kind = word->kind;
    bool right = true;
    switch (entry.kind) {
        case EntryKind::sent:
        case EntryKind::received:
            right = parse_hex(line, entry.bytes);
            break;
        case EntryKind::line:
            right = parse_settings(line, entry.settings);
            break;
        case EntryKind::note:
            unescape(line, entry.text);
            break;
        default:
            right = line.empty();
            break;
    }
    if (right && !is_relative) {
        full_time_us_ = entry.time_us;
    }
    return right;
}

HeaderParser::Line HeaderParser::parse(std::string_view line) {
    const auto follows = [line](std::string_view start) { return line.starts_with(start); };
    if (!has_format_) {
        if (!follows(first_words)) {
            return Line::none;
        }
        const std::optional<unsigned> format = parse_number<unsigned>(line.substr(first_words.size()));
        has_format_ = format == recording_format;
        return has_format_ ? Line::header : format > recording_format ? Line::newer : Line::none;
    }
    if (follows(program_words)) {
        unescape(line.substr(program_words.size()), header_.program);
        has_program_ = true;
    } else if (follows(device_words)) {
        unescape(line.substr(device_words.size()), header_.device);
        has_device_ = true;
    } else if (follows(start_words)) {
        has_start_ = parse_start(line.substr(start_words.size()));
        return has_start_ ? Line::header : Line::none;
    }
    return line.starts_with('#') ? Line::header : Line::none;
}

bool HeaderParser::parse_start(std::string_view text) {
    const std::size_t end = text.find(monotonic_words);
    if (end == std::string_view::npos) {
        return false;
    }
    const std::optional<WallClock> wall = parse_wall_clock(text.substr(0, end));
    const std::optional<std::uint64_t> monotonic = read_seconds(text.substr(end + monotonic_words.size()));
    if (!wall || !monotonic) {
        return false;
    }
    header_.wall_us = wall->us;
    header_.utc_offset_min = wall->utc_offset_min;
    header_.monotonic_us = *monotonic;
    return true;
}

}  // namespace vehicle_recorder
