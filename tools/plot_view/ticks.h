/// @file
/// The axes of a plot: how far they go, where their marks stand, and what is written beside the marks.

#ifndef TOOLS_PLOT_VIEW_TICKS_H
#define TOOLS_PLOT_VIEW_TICKS_H

#include <string>
#include <vector>

#include "tools/plot_view/plotseries.h"

namespace plot {

/// A mark of an axis.
struct Tick {
    double value;
    std::string label;
};

/// The greatest amount that an axis goes to; what is beyond is drawn at its edge.
constexpr double greatest_value = 1e300;

/// The distance between the marks of an axis: 1, 2 or 5 times a power of ten.
/// @param span  length of the axis, above 0
/// @param most  how many distances may lie in it, at least 1
double tick_step(double span, int most);

/// What an axis of values shows so that values fill it: from a mark to a mark. A single value stands in the middle.
/// @param values  the lowest and highest value
/// @param most    how many distances between marks there may be, at least 2
Interval fitting_axis(const Interval& values, int most);

/// The marks of an axis of numbers.
/// @param axis  what it shows; longer than the precision of its numbers, as those of fitting_axis() are
/// @param most  how many distances between marks there may be
std::vector<Tick> number_ticks(const Interval& axis, int most);

/// The marks of a time axis: at whole seconds, minutes, hours or days where it is long enough, by local time if the
/// axis is that of a clock.
/// @param axis  what it shows
/// @param most  how many distances between marks there may be
/// @param kind  what the numbers are
std::vector<Tick> time_ticks(const Interval& axis, int most, TimeAxis kind);

/// A number in words, with up to 12 digits.
std::string number_text(double value);

/// A time in words: "position 12", "12.5 s", "2026-11-22 13:30:05.250000".
/// @param resolution  which differences in time are worth telling, such as the time of a pixel; 0 for all digits
std::string time_text(double time, TimeAxis kind, double resolution = 0);

/// The local date of a time of a clock, such as "2026-11-22".
std::string date_text(double time);

}  // namespace plot

#endif
