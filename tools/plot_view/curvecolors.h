/// @file
/// Colours of curves that nobody has chosen one for, and how well colours stand out.

#ifndef TOOLS_PLOT_VIEW_CURVECOLORS_H
#define TOOLS_PLOT_VIEW_CURVECOLORS_H

#include <cstdint>

namespace plot {

/// Colours that eyes tell apart that see no red, no green or no blue: after Okabe and Ito, "Color Universal Design", the
/// one that is faint on the field exchanged. Where they begin again the lines have another pattern.
constexpr unsigned color_count = 7;

/// The colour of a curve, 0xRRGGBB.
/// @param number  of the curve, from 0; the colours begin again after #color_count
/// @param dark    whether the field behind it is dark
std::uint32_t curve_color(unsigned number, bool dark);

/// The pattern of a curve's line: 0 solid, 1 dashed, 2 dotted, 3 dashes and dots, and so on again.
unsigned line_pattern(unsigned number);

/// How well two colours stand out against each other: 1 (the same) to 21 (black and white), by WCAG 2.1.
/// @param one    0xRRGGBB
/// @param other  0xRRGGBB
double contrast(std::uint32_t one, std::uint32_t other);

}  // namespace plot

#endif
