#include "recorder/spread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

using vehicle_recorder::Spread;

TEST(Spread, IsZeroWithoutADuration) {
    const Spread spread;
    EXPECT_EQ(spread.count(), 0u);
    EXPECT_EQ(spread.shortest_us(), 0);
    EXPECT_EQ(spread.longest_us(), 0);
    EXPECT_EQ(spread.mean_us(), 0);
    EXPECT_EQ(spread.deviation_us(), 0);
    EXPECT_EQ(spread.percentile_us(0.5), 0);
    EXPECT_EQ(spread.between(0, 1000), 0u);
}

TEST(Spread, TellsShortDurationsToTheMicrosecond) {
    Spread spread;
    for (int duration = 1; duration <= 2000; ++duration) {
        spread.add(duration);
    }
    EXPECT_EQ(spread.count(), 2000u);
    EXPECT_EQ(spread.shortest_us(), 1);
    EXPECT_EQ(spread.longest_us(), 2000);
    EXPECT_DOUBLE_EQ(spread.mean_us(), 1000.5);
    EXPECT_NEAR(spread.deviation_us(), std::sqrt((2000.0 * 2000 - 1) / 12), 1e-6);
    EXPECT_EQ(spread.percentile_us(0.5), 1000);
    EXPECT_EQ(spread.percentile_us(0.95), 1900);
    EXPECT_EQ(spread.percentile_us(0.0001), 1);
    EXPECT_EQ(spread.percentile_us(1), 2000);
    EXPECT_EQ(spread.between(100, 200), 100u);
}

TEST(Spread, TellsLongDurationsToAThousandth) {
    std::mt19937 random(1);
    std::vector<std::int64_t> durations;
    Spread spread;
    for (int count = 0; count < 5001; ++count) {
        const std::int64_t duration = 1 + static_cast<std::int64_t>(random() % 30'000'000);
        durations.push_back(duration);
        spread.add(duration);
    }
    std::sort(durations.begin(), durations.end());
    EXPECT_EQ(spread.shortest_us(), durations.front());
    EXPECT_EQ(spread.longest_us(), durations.back());
    for (const double share : {0.01, 0.05, 0.25, 0.5, 0.75, 0.95, 0.99}) {
        const auto rank = static_cast<std::size_t>(std::ceil(share * 5001));
        const auto exact = static_cast<double>(durations[rank - 1]);
        const auto told = static_cast<double>(spread.percentile_us(share));
        EXPECT_GE(told, exact) << share;
        EXPECT_LE(told, exact * 1.001) << share;
    }
}

TEST(Spread, TakesWhatIsOutOfItsRangeAsItsEnds) {
    Spread spread;
    spread.add(-5);
    EXPECT_EQ(spread.shortest_us(), 0);
    EXPECT_EQ(spread.longest_us(), 0);
    spread.add(std::int64_t{1} << 50);
    EXPECT_EQ(spread.longest_us(), (std::int64_t{1} << 40) - 1);
    EXPECT_EQ(spread.percentile_us(1), (std::int64_t{1} << 40) - 1);
}

TEST(Spread, CountsEachDurationInOneStretchOnly) {
    std::mt19937 random(2);
    Spread spread;
    for (int count = 0; count < 1000; ++count) {
        spread.add(static_cast<std::int64_t>(random() % 1'000'000));
    }
    std::uint64_t sum = 0;
    for (std::int64_t from = 0; from < 1'048'576; from += 65'536) {
        sum += spread.between(from, from + 65'536);
    }
    EXPECT_EQ(sum, 1000u);
}
