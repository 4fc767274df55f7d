#include "tools/plot_view/curvecolors.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace plot {

namespace {

constexpr unsigned pattern_count = 4;

constexpr std::array<std::uint32_t, color_count> on_light = {0x0072B2, 0xD55E00, 0x009E73, 0xCC79A7,
                                                             0x000000, 0xE69F00, 0x56B4E9};
constexpr std::array<std::uint32_t, color_count> on_dark = {0x56B4E9, 0xE69F00, 0x009E73, 0xCC79A7,
                                                            0xFFFFFF, 0xF0E442, 0xD55E00};

// A channel's share of the light, sRGB (IEC 61966-2-1).
double light(std::uint32_t color, unsigned shift) {
    const double share = static_cast<double>(color >> shift & 0xFFU) / 255.0;
    return share <= 0.04045 ? share / 12.92 : std::pow((share + 0.055) / 1.055, 2.4);
}

double luminance(std::uint32_t color) {
    return 0.2126 * light(color, 16) + 0.7152 * light(color, 8) + 0.0722 * light(color, 0);
}

}  // namespace

std::uint32_t curve_color(unsigned number, bool dark) {
    return (dark ? on_dark : on_light)[number % color_count];
}

unsigned line_pattern(unsigned number) {
    return number / color_count % pattern_count;
}

double contrast(std::uint32_t one, std::uint32_t other) {
    const double a = luminance(one);
    const double b = luminance(other);
    return (std::max(a, b) + 0.05) / (std::min(a, b) + 0.05);
}

}  // namespace plot
