// The axes of a plot.

#include "tools/plot_view/ticks.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>
#include <vector>

using namespace plot;

namespace {

std::vector<std::string> labels(const std::vector<Tick>& ticks) {
    std::vector<std::string> result;
    for (const Tick& tick : ticks) {
        result.push_back(tick.label);
    }
    return result;
}

using Labels = std::vector<std::string>;

// A zone whose whole hours are none of UTC.
class ClockTicks : public testing::Test {
protected:
    ClockTicks() {
        setenv("TZ", "XYZ-5:30", 1);
        tzset();
    }
    ~ClockTicks() override {
        unsetenv("TZ");
        tzset();
    }
};

constexpr double noon = 1'795'329'000;  // 2026-11-22 12:00 in that zone

}  // namespace

TEST(TickStep, IsOneTwoOrFiveTimesAPowerOfTen) {
    EXPECT_DOUBLE_EQ(tick_step(10, 10), 1);
    EXPECT_DOUBLE_EQ(tick_step(10, 6), 2);
    EXPECT_DOUBLE_EQ(tick_step(10, 4), 5);
    EXPECT_DOUBLE_EQ(tick_step(10, 1), 10);
    EXPECT_DOUBLE_EQ(tick_step(0.002, 5), 0.0005);
    EXPECT_DOUBLE_EQ(tick_step(7e6, 5), 2e6);
}

TEST(FittingAxis, FillsTheFieldWithSmallValues) {
    const Interval axis = fitting_axis({-0.001, 0.001}, 8);
    EXPECT_NEAR(axis.low, -0.001, 1e-12);
    EXPECT_NEAR(axis.high, 0.001, 1e-12);
}

TEST(FittingAxis, FillsTheFieldWithSmallDifferencesOfGreatValues) {
    const Interval axis = fitting_axis({1e9 - 1, 1e9 + 1}, 8);
    EXPECT_LE(axis.span(), 3);
    EXPECT_TRUE(axis.contains(1e9 - 1));
    EXPECT_TRUE(axis.contains(1e9 + 1));
}

TEST(FittingAxis, AlwaysHoldsTheValuesAndIsAtMostHalfEmpty) {
    for (const double low : {-1e12, -345.6, -1.0, 0.0, 0.3, 99.999, 1e-9, 7e15}) {
        for (const double length : {1e-8, 0.1, 3.0, 17.0, 123.4, 9.99e5, 3e13}) {
            const Interval values = {low, low + length};
            if (length < std::abs(low) * 1e-13) {
                continue;
            }
            const Interval axis = fitting_axis(values, 8);
            EXPECT_LE(axis.low, values.low + length * 1e-6) << low << " " << length;
            EXPECT_GE(axis.high, values.high - length * 1e-6) << low << " " << length;
            EXPECT_LE(axis.span(), length * 2.01) << low << " " << length;
        }
    }
}

TEST(FittingAxis, PutsASingleValueInTheMiddle) {
    EXPECT_EQ(fitting_axis({0, 0}, 8), (Interval{-1, 1}));
    for (const double value : {5.0, -1e9, 1e-20, 12345.678}) {
        const Interval axis = fitting_axis({value, value}, 8);
        EXPECT_LT(axis.low, value);
        EXPECT_GT(axis.high, value);
        EXPECT_LT(axis.span(), std::abs(value));
    }
}

TEST(FittingAxis, OfTheGreatestNumbersIsFinite) {
    const double greatest = std::numeric_limits<double>::max();
    const Interval axis = fitting_axis({-greatest, greatest}, 8);
    EXPECT_TRUE(std::isfinite(axis.span()));
    EXPECT_LE(axis.low, -greatest_value);
    EXPECT_GE(axis.high, greatest_value);
    EXPECT_GE(number_ticks(axis, 8).size(), 3U);
}

TEST(NumberTicks, HaveAsManyDecimalsAsTellThemApart) {
    EXPECT_EQ(labels(number_ticks({-1, 1}, 4)), (Labels{"-1.0", "-0.5", "0", "0.5", "1.0"}));
    EXPECT_EQ(labels(number_ticks({-0.001, 0.001}, 4)),
              (Labels{"-0.0010", "-0.0005", "0", "0.0005", "0.0010"}));
    EXPECT_EQ(labels(number_ticks({999999999, 1000000001}, 4)),
              (Labels{"999999999.0", "999999999.5", "1000000000.0", "1000000000.5", "1000000001.0"}));
    EXPECT_EQ(labels(number_ticks({0, 400}, 4)), (Labels{"0", "100", "200", "300", "400"}));
}

TEST(NumberTicks, OfGreatAndTinyNumbersHaveAnExponent) {
    EXPECT_EQ(labels(number_ticks({0, 2e20}, 4)), (Labels{"0", "5.0e+19", "1.0e+20", "1.5e+20", "2.0e+20"}));
    EXPECT_EQ(labels(number_ticks({-1e-9, 1e-9}, 2)), (Labels{"-1e-09", "0", "1e-09"}));
}

TEST(NumberTicks, AreNeverWithoutEnd) {
    EXPECT_LE(number_ticks({1e17, 1e17 + 64}, 100).size(), 1000U);
}

TEST(PositionTicks, AreWholeNumbers) {
    EXPECT_EQ(labels(time_ticks({0, 2}, 10, TimeAxis::positions)), (Labels{"0", "1", "2"}));
    EXPECT_EQ(labels(time_ticks({0, 400}, 4, TimeAxis::positions)),
              (Labels{"0", "100", "200", "300", "400"}));
}

TEST(SecondsTicks, AreNumbersUpToTwoMinutesThenMinutesThenHours) {
    EXPECT_EQ(labels(time_ticks({0, 1}, 2, TimeAxis::seconds)), (Labels{"0", "0.5", "1.0"}));
    EXPECT_EQ(labels(time_ticks({0, 90}, 3, TimeAxis::seconds)), (Labels{"0", "30", "60", "90"}));
    EXPECT_EQ(labels(time_ticks({0, 600}, 2, TimeAxis::seconds)), (Labels{"0:00", "5:00", "10:00"}));
    EXPECT_EQ(labels(time_ticks({-60, 7200}, 2, TimeAxis::seconds)), (Labels{"0:00:00", "2:00:00"}));
    EXPECT_EQ(labels(time_ticks({-120, 0}, 2, TimeAxis::seconds)), (Labels{"-2:00", "-1:00", "0:00"}));
}

TEST(SecondsTicks, OfAShortTimeLateOnTellTheirFraction) {
    EXPECT_EQ(labels(time_ticks({5000, 5000.2}, 2, TimeAxis::seconds)),
              (Labels{"5000.0", "5000.1", "5000.2"}));
}

TEST_F(ClockTicks, AreAtWholeHoursOfTheLocalTime) {
    EXPECT_EQ(labels(time_ticks({noon - 4000, noon + 4000}, 3, TimeAxis::clock)),
              (Labels{"11:00", "12:00", "13:00"}));
}

TEST_F(ClockTicks, AreAtMidnightWhereTheyAreDays) {
    EXPECT_EQ(labels(time_ticks({noon - 86400, noon + 86400}, 2, TimeAxis::clock)),
              (Labels{"2026-11-22", "2026-11-23"}));
}

TEST_F(ClockTicks, TellSecondsAndTheirFractions) {
    EXPECT_EQ(labels(time_ticks({noon, noon + 20}, 2, TimeAxis::clock)),
              (Labels{"12:00:00", "12:00:10", "12:00:20"}));
    EXPECT_EQ(labels(time_ticks({noon + 0.999, noon + 1.001}, 2, TimeAxis::clock)),
              (Labels{"12:00:00.999", "12:00:01.000", "12:00:01.001"}));
}

TEST_F(ClockTicks, TimesAreToldWithDateAndAsExactlyAsItMatters) {
    EXPECT_EQ(time_text(noon + 1.25, TimeAxis::clock), "2026-11-22 12:00:01.250000");
    EXPECT_EQ(time_text(noon + 1.25, TimeAxis::clock, 0.01), "2026-11-22 12:00:01.25");
    EXPECT_EQ(time_text(noon + 1.25, TimeAxis::clock, 10), "2026-11-22 12:00:01");
    EXPECT_EQ(time_text(noon + 0.9999, TimeAxis::clock, 0.01), "2026-11-22 12:00:01.00");
}

TEST(TimeText, NamesItsUnit) {
    EXPECT_EQ(time_text(12, TimeAxis::positions), "position 12");
    EXPECT_EQ(time_text(12.5, TimeAxis::seconds), "12.5 s");
    EXPECT_EQ(time_text(12.3456, TimeAxis::seconds, 0.01), "12.35 s");
}

TEST(NumberText, HasTwelveDigits) {
    EXPECT_EQ(number_text(0.1 + 0.2), "0.3");
    EXPECT_EQ(number_text(1e9 + 1), "1000000001");
    EXPECT_EQ(number_text(std::numeric_limits<double>::quiet_NaN()), "nan");
}
