#include "tools/plot_view/ticks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <iterator>

namespace plot {

namespace {

constexpr double precision = 1e-14;      // shortest axis, in parts of its greatest number
constexpr int most_decimals = 15;        // more tell nothing
constexpr double longest_plain = 1e15;   // numbers from here on are written with an exponent
constexpr double shortest_plain = 1e-5;  // steps below it too
constexpr double most_ticks = 1000;      // on any axis
constexpr double minute = 60;
constexpr double hour = 60 * minute;
constexpr double day = 24 * hour;

// Distances between marks of a time axis from a second on, in seconds.
constexpr double time_steps[] = {1,           2,           5,          10,         15,
                                 30,          minute,      2 * minute, 5 * minute, 10 * minute,
                                 15 * minute, 30 * minute, hour,       2 * hour,   3 * hour,
                                 6 * hour,    12 * hour,   day,        2 * day,    7 * day};

template <typename... Values>
std::string formatted(const char* pattern, Values... values) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), pattern, values...);
    return text.data();
}

// Decimals that tell two multiples of a step apart.
int decimals_of(double step) {
    return std::clamp(static_cast<int>(-std::floor(std::log10(step) + 1e-9)), 0, most_decimals);
}

// A mark's number. Zero is no "-0.000", and what is left of it by rounding is zero.
std::string label_of(double value, double step, double greatest) {
    if (std::abs(value) < step / 2) {
        return "0";
    }
    if (greatest >= longest_plain || step < shortest_plain) {
        const int digits = static_cast<int>(std::floor(std::log10(greatest)) - std::floor(std::log10(step)));
        return formatted("%.*e", std::clamp(digits, 0, most_decimals), value);
    }
    return formatted("%.*f", decimals_of(step), value);
}

// The multiples of a step in an axis, moved by an offset.
std::vector<double> multiples(const Interval& axis, double step, double offset = 0) {
    std::vector<double> result;
    const double first = std::ceil((axis.low + offset) / step - 1e-9);
    const double last = std::floor((axis.high + offset) / step + 1e-9);
    for (double number = 0; number <= last - first && number < most_ticks; ++number) {
        result.push_back((first + number) * step - offset);
    }
    return result;
}

double time_step(double span, int most) {
    const double least = span / most;
    if (least <= time_steps[0]) {
        return tick_step(span, most);
    }
    const auto* const found = std::lower_bound(std::begin(time_steps), std::end(time_steps), least);
    return found == std::end(time_steps) ? day * tick_step(span / day, most) : *found;
}

// The local time of a time of a clock.
tm local_time(double time) {
    const auto seconds = static_cast<time_t>(std::floor(std::clamp(time, -1e15, 1e15)));
    tm result{};
    localtime_r(&seconds, &result);
    return result;
}

// What stands behind the second, for steps below one: ".250".
std::string fraction_text(double time, int decimals) {
    if (decimals == 0) {
        return {};
    }
    const std::string text = formatted("%.*f", decimals, time - std::floor(time));
    return text.substr(text.find('.'));
}

// Seconds and their fraction, rounded as one, so that 0.9999 does not become 0.000.
double rounded(double time, int decimals) {
    const double unit = std::pow(10.0, decimals);
    return std::round(time * unit) / unit;
}

std::string clock_label(double value, double step) {
    const int decimals = std::min(decimals_of(step), 6);
    const double time = rounded(value, decimals);
    const tm local = local_time(time);
    if (step >= day) {
        return date_text(time);
    }
    if (step >= minute) {
        return formatted("%02d:%02d", local.tm_hour, local.tm_min);
    }
    return formatted("%02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec) +
           fraction_text(time, decimals);
}

// Seconds since a beginning: "12.5", from two minutes on "2:05".
std::string seconds_label(double value, double step, double greatest) {
    if (greatest < 2 * minute || step < 1) {
        return label_of(value, step, greatest);
    }
    const double amount = std::round(std::abs(value));
    const auto whole = static_cast<std::int64_t>(std::min(amount, longest_plain));
    const char* const sign = value < 0 && whole > 0 ? "-" : "";
    if (greatest < hour) {
        return formatted("%s%lld:%02lld", sign, static_cast<long long>(whole / 60),
                         static_cast<long long>(whole % 60));
    }
    return formatted("%s%lld:%02lld:%02lld", sign, static_cast<long long>(whole / 3600),
                     static_cast<long long>(whole / 60 % 60), static_cast<long long>(whole % 60));
}

double greatest_of(const Interval& axis) {
    return std::max(std::abs(axis.low), std::abs(axis.high));
}

}  // namespace

double tick_step(double span, int most) {
    const double least = span / most;
    const double power = std::pow(10.0, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (power * factor >= least * (1 - 1e-9)) {
            return power * factor;
        }
    }
    return power * 10;
}

Interval fitting_axis(const Interval& values, int most) {
    Interval axis = {std::clamp(values.low, -greatest_value, greatest_value),
                     std::clamp(values.high, -greatest_value, greatest_value)};
    const double least_span = std::max(greatest_of(axis) * precision, 1e-300);
    if (axis.span() < least_span) {
        const double middle = axis.low;
        const double reach = middle == 0 ? 1 : std::max(std::abs(middle) / 10, least_span);
        axis = {middle - reach, middle + reach};
    }
    const double step = tick_step(axis.span(), most - 1);
    return {std::floor(axis.low / step + 1e-9) * step, std::ceil(axis.high / step - 1e-9) * step};
}

std::vector<Tick> number_ticks(const Interval& axis, int most) {
    const double step = tick_step(axis.span(), most);
    std::vector<Tick> ticks;
    for (const double value : multiples(axis, step)) {
        ticks.push_back({value, label_of(value, step, greatest_of(axis))});
    }
    return ticks;
}

std::vector<Tick> time_ticks(const Interval& axis, int most, TimeAxis kind) {
    if (kind == TimeAxis::positions) {
        const double step = std::max(tick_step(axis.span(), most), 1.0);
        std::vector<Tick> ticks;
        for (const double value : multiples(axis, step)) {
            ticks.push_back({value, label_of(value, step, greatest_of(axis))});
        }
        return ticks;
    }
    const double step = time_step(axis.span(), most);
    std::vector<Tick> ticks;
    if (kind == TimeAxis::seconds) {
        for (const double value : multiples(axis, step)) {
            ticks.push_back({value, seconds_label(value, step, greatest_of(axis))});
        }
        return ticks;
    }
    // Whole hours and days are those of the wall clock.
    const auto offset = static_cast<double>(local_time(axis.low + axis.span() / 2).tm_gmtoff);
    for (const double value : multiples(axis, step, offset)) {
        ticks.push_back({value, clock_label(value, step)});
    }
    return ticks;
}

std::string number_text(double value) {
    return formatted("%.12g", value);
}

std::string time_text(double time, TimeAxis kind, double resolution) {
    const int decimals = resolution > 0 ? std::min(decimals_of(resolution), 6) : 6;
    switch (kind) {
        case TimeAxis::positions:
            return "position " + number_text(time);
        case TimeAxis::seconds:
            return (resolution > 0 ? formatted("%.*f", decimals, time) : number_text(time)) + " s";
        case TimeAxis::clock:
            break;
    }
    const double shown = rounded(time, decimals);
    const tm local = local_time(shown);
    return date_text(shown) + formatted(" %02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec) +
           fraction_text(shown, decimals);
}

std::string date_text(double time) {
    const tm local = local_time(time);
    return formatted("%04d-%02d-%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
}

}  // namespace plot
