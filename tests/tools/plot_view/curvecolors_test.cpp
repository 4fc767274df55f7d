// The colours of curves, as eyes see them that lack one kind of their cones.

#include "tools/plot_view/curvecolors.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>

using namespace plot;

namespace {

using Triple = std::array<double, 3>;
using Matrix = std::array<Triple, 3>;

// How linear red, green and blue are seen without the cones for long, middle and short waves (Machado, Oliveira,
// Fernandes 2009, severity 1), and as they are.
constexpr Matrix all_cones = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
constexpr Matrix no_long = {
    {{0.152286, 1.052583, -0.204868}, {0.114503, 0.786281, 0.099216}, {-0.003882, -0.048116, 1.051998}}};
constexpr Matrix no_middle = {
    {{0.367322, 0.860646, -0.227968}, {0.280085, 0.672501, 0.047413}, {-0.011820, 0.042940, 0.968881}}};
constexpr Matrix no_short = {
    {{1.255528, -0.076749, -0.178779}, {-0.078411, 0.930809, 0.147602}, {0.004733, 0.691367, 0.303900}}};

Triple times(const Matrix& matrix, const Triple& triple) {
    Triple result{};
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            result[row] += matrix[row][column] * triple[column];
        }
    }
    return result;
}

Triple linear(std::uint32_t color) {
    Triple result{};
    for (std::size_t i = 0; i < 3; ++i) {
        const double share = static_cast<double>(color >> (16 - 8 * i) & 0xFFU) / 255;
        result[i] = share <= 0.04045 ? share / 12.92 : std::pow((share + 0.055) / 1.055, 2.4);
    }
    return result;
}

// CIE L*a*b* of linear sRGB.
Triple lab(const Triple& color) {
    constexpr Matrix to_xyz = {{{0.4124 / 0.9505, 0.3576 / 0.9505, 0.1805 / 0.9505},
                                {0.2126, 0.7152, 0.0722},
                                {0.0193 / 1.089, 0.1192 / 1.089, 0.9505 / 1.089}}};
    Triple xyz = times(to_xyz, color);
    for (double& part : xyz) {
        part = part > 0.008856 ? std::cbrt(part) : 7.787 * part + 16.0 / 116;
    }
    return {116 * xyz[1] - 16, 500 * (xyz[0] - xyz[1]), 200 * (xyz[1] - xyz[2])};
}

double difference(std::uint32_t one, std::uint32_t other, const Matrix& eyes) {
    const Triple a = lab(times(eyes, linear(one)));
    const Triple b = lab(times(eyes, linear(other)));
    return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

}  // namespace

TEST(CurveColors, AreToldApartByEveryKindOfEyes) {
    for (const bool dark : {false, true}) {
        for (const Matrix& eyes : {all_cones, no_long, no_middle, no_short}) {
            for (unsigned one = 0; one < color_count; ++one) {
                for (unsigned other = 0; other < one; ++other) {
                    EXPECT_GT(difference(curve_color(one, dark), curve_color(other, dark), eyes), 12)
                        << std::hex << curve_color(one, dark) << " " << curve_color(other, dark) << " "
                        << dark;
                }
            }
        }
    }
}

TEST(CurveColors, StandOutAgainstTheirField) {
    for (unsigned number = 0; number < color_count; ++number) {
        EXPECT_GE(contrast(curve_color(number, false), 0xFFFFFF), 2);
        EXPECT_GE(contrast(curve_color(number, true), 0x12161A), 4);
    }
}

TEST(CurveColors, SixteenCurvesDifferInColourOrPattern) {
    for (unsigned one = 0; one < 16; ++one) {
        for (unsigned other = 0; other < one; ++other) {
            EXPECT_TRUE(curve_color(one, false) != curve_color(other, false) ||
                        line_pattern(one) != line_pattern(other));
        }
    }
}

TEST(Contrast, GoesFromOneToTwentyOne) {
    EXPECT_DOUBLE_EQ(contrast(0x123456, 0x123456), 1);
    EXPECT_DOUBLE_EQ(contrast(0x000000, 0xFFFFFF), 21);
    EXPECT_DOUBLE_EQ(contrast(0xFFFFFF, 0x000000), 21);
    EXPECT_NEAR(contrast(0x777777, 0xFFFFFF), 4.48, 0.01);
}
