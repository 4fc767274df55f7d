#include "recorder/phrasing.h"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace vehicle_recorder {

namespace {

constexpr std::int64_t second_us = 1'000'000;
constexpr std::int64_t minute_us = 60 * second_us;
constexpr std::int64_t hour_us = 60 * minute_us;
constexpr std::int64_t day_us = 24 * hour_us;
constexpr const char* no_break_space = "\u00a0";

constexpr std::array<const char*, 7> english_days = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                     "Thursday", "Friday", "Saturday"};
constexpr std::array<const char*, 7> finnish_days = {"sunnuntai", "maanantai", "tiistai", "keskiviikko",
                                                     "torstai",   "perjantai", "lauantai"};
constexpr std::array<const char*, 12> english_months = {"January",   "February", "March",    "April",
                                                        "May",       "June",     "July",     "August",
                                                        "September", "October",  "November", "December"};

template <typename... Arguments>
std::string formatted(const char* format, Arguments... arguments) {
    std::array<char, 128> text = {};
    std::snprintf(text.data(), text.size(), format, arguments...);
    return text.data();
}

// Microseconds since midnight of the start's time zone, 0 to a day.
std::int64_t since_midnight_us(const RecordingHeader& start, std::int64_t time_us) {
    const std::int64_t local = start.wall_us + start.utc_offset_min * minute_us + time_us;
    return ((local % day_us) + day_us) % day_us;
}

}  // namespace

std::string Phrasing::whole(std::int64_t number) const {
    std::string digits = std::to_string(number);
    const std::size_t sign = number < 0 ? 1 : 0;
    const char* const separator = (*this)({",", no_break_space});
    for (std::size_t place = digits.size(); place > sign + 3;) {
        place -= 3;
        digits.insert(place, separator);
    }
    return sign == 0 ? digits : "−" + digits.substr(1);
}

std::string Phrasing::decimal(double number, int decimals) const {
    std::string text = formatted("%.*f", decimals, std::abs(number));
    const std::size_t point = text.find('.');
    const std::string after = point == std::string::npos ? "" : (*this)({".", ","}) + text.substr(point + 1);
    const bool zero = text.find_first_of("123456789") == std::string::npos;
    const std::string before = whole(static_cast<std::int64_t>(std::strtoll(text.c_str(), nullptr, 10)));
    return (number < 0 && !zero ? "−" : "") + before + after;
}

std::string Phrasing::plain(double number) const {
    constexpr int most_decimals = 3;
    int decimals = 0;
    double scaled = std::abs(number);
    while (decimals < most_decimals && std::abs(scaled - std::round(scaled)) > 1e-6) {
        ++decimals;
        scaled *= 10;
    }
    return decimal(number, decimals);
}

std::string Phrasing::share(std::uint64_t part, std::uint64_t whole) const {
    const std::string unit = std::string(no_break_space) + "%";
    if (part == 0 || whole == 0) {
        return "0" + unit;
    }
    const double percent = 100 * static_cast<double>(part) / static_cast<double>(whole);
    if (percent < 0.1) {
        return (*this)({"under 0.1", "alle 0,1"}) + unit;
    }
    if (part < whole && percent > 99.9) {
        return (*this)({"over 99.9", "yli 99,9"}) + unit;
    }
    return decimal(percent, part == whole ? 0 : 1) + unit;
}

std::string Phrasing::duration(std::int64_t time_us) const {
    const std::string space = no_break_space;
    if (time_us < second_us) {
        return milliseconds(static_cast<double>(time_us));
    }
    if (time_us < minute_us) {
        // Cut, not rounded: 59.999 s must not become 60.00 s.
        const std::int64_t hundredths = time_us / 10'000;
        return decimal(static_cast<double>(hundredths) / 100, 2) + space + "s";
    }
    if (time_us < hour_us) {
        return whole(time_us / minute_us) + space + "min" + space + whole(time_us % minute_us / second_us) +
               space + "s";
    }
    return whole(time_us / hour_us) + space + "h" + space + whole(time_us % hour_us / minute_us) + space +
           "min";
}

std::string Phrasing::milliseconds(double time_us) const {
    constexpr double long_us = 100'000;  // from here on one decimal is enough
    return decimal(time_us / 1000, std::abs(time_us) < long_us ? 2 : 1) + no_break_space + "ms";
}

std::string Phrasing::seconds(std::int64_t time_us) {
    return formatted("%lld.%06lld", static_cast<long long>(time_us / second_us),
                     static_cast<long long>(time_us % second_us));
}

std::string Phrasing::date(const RecordingHeader& start) const {
    using std::chrono::days;
    const std::int64_t local = start.wall_us + start.utc_offset_min * minute_us;
    const auto day = std::chrono::floor<days>(
        std::chrono::sys_time<std::chrono::microseconds>(std::chrono::microseconds(local)));
    const std::chrono::year_month_day date(day);
    const unsigned weekday = std::chrono::weekday(day).c_encoding();
    const auto month = static_cast<unsigned>(date.month());
    const auto day_of_month = static_cast<unsigned>(date.day());
    const int year = static_cast<int>(date.year());
    if (language_ == Language::finnish) {
        return formatted("%s %u.%u.%d", finnish_days[weekday], day_of_month, month, year);
    }
    return formatted("%s %u %s %d", english_days[weekday], day_of_month, english_months[month - 1], year);
}

std::string Phrasing::time_of_day(const RecordingHeader& start, std::int64_t time_us) const {
    return time_of_day(start, time_us, 0);
}

std::string Phrasing::time_of_day(const RecordingHeader& start, std::int64_t time_us, int decimals) const {
    const std::int64_t time = since_midnight_us(start, time_us);
    const auto hours = static_cast<int>(time / hour_us);
    const auto minutes = static_cast<int>(time % hour_us / minute_us);
    const auto seconds = static_cast<int>(time % minute_us / second_us);
    std::string text = language_ == Language::finnish ? formatted("%d.%02d", hours, minutes)
                                                      : formatted("%02d:%02d", hours, minutes);
    if (decimals >= 0) {
        text += formatted((*this)({":%02d", ".%02d"}), seconds);
    }
    if (decimals > 0) {
        const std::string fraction = formatted("%06d", static_cast<int>(time % second_us));
        text += (*this)({".", ","}) + fraction.substr(0, static_cast<std::size_t>(decimals));
    }
    return text;
}

}  // namespace vehicle_recorder
