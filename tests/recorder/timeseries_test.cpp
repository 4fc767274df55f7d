#include "recorder/timeseries.h"

#include <gtest/gtest.h>

using vehicle_recorder::Series;
using vehicle_recorder::Stretch;

TEST(Series, IsEmptyAtFirst) {
    const Series series;
    EXPECT_FALSE(series.extremes());
    EXPECT_EQ(series.stretches().size(), 0u);
}

TEST(Series, KeepsTheLowestTheHighestAndTheLastOfAStretch) {
    Series series;
    series.add(100, 5);
    series.add(200, -3);
    series.add(300, 9);
    series.add(999, 7);
    ASSERT_EQ(series.stretches().size(), 1u);
    const Stretch& stretch = series.stretches()[0];
    EXPECT_EQ(stretch.count, 4u);
    EXPECT_EQ(stretch.min, -3);
    EXPECT_EQ(stretch.max, 9);
    EXPECT_EQ(stretch.last, 7);
    ASSERT_TRUE(series.extremes());
    EXPECT_EQ(series.extremes()->min, -3);
    EXPECT_EQ(series.extremes()->max, 9);
    EXPECT_EQ(series.first(), 5);
    EXPECT_EQ(series.last(), 7);
}

TEST(Series, BeginsWithStretchesOfAMillisecond) {
    Series series;
    series.add(999, 1);
    series.add(1000, 2);
    EXPECT_EQ(series.stretches().width_us(), 1000);
    ASSERT_EQ(series.stretches().size(), 2u);
    EXPECT_EQ(series.stretches()[0].last, 1);
    EXPECT_EQ(series.stretches()[1].last, 2);
}

TEST(Series, DoublesTheStretchesWhenTheTimeGoesBeyondThem) {
    Series series;
    for (int index = 0; index < 600; ++index) {
        series.add(index * 1000, index);
    }
    EXPECT_EQ(series.stretches().width_us(), 1000);
    series.add(600'000, 600);
    EXPECT_EQ(series.stretches().width_us(), 2000);
    ASSERT_EQ(series.stretches().size(), 301u);
    EXPECT_EQ(series.stretches()[0].min, 0);
    EXPECT_EQ(series.stretches()[0].max, 1);
    EXPECT_EQ(series.stretches()[299].min, 598);
    EXPECT_EQ(series.stretches()[299].last, 599);
    EXPECT_EQ(series.stretches()[300].last, 600);
    EXPECT_EQ(series.stretches()[300].count, 1u);
}

TEST(Series, LosesNoExtremeHoweverLongItBecomes) {
    Series series;
    std::uint64_t added = 0;
    for (std::int64_t time = 0; time < INT64_C(8) * 3'600'000'000; time += 20'000'000) {
        series.add(time, time == INT64_C(20'000'000) * 333 ? -7 : 1);
        ++added;
    }
    EXPECT_LE(series.stretches().size(), Series::most_points);
    EXPECT_GE(series.stretches().size(), Series::most_points / 2);
    std::uint64_t counted = 0;
    int lowest = 0;
    for (std::size_t index = 0; index < series.stretches().size(); ++index) {
        counted += series.stretches()[index].count;
        lowest += series.stretches()[index].count > 0 && series.stretches()[index].min == -7 ? 1 : 0;
    }
    EXPECT_EQ(counted, added);
    EXPECT_EQ(lowest, 1);
}

TEST(Series, JumpsOverALongPauseInOneStep) {
    Series series;
    series.add(0, 1);
    series.add(std::int64_t{400} * 86'400 * 1'000'000, 2);
    EXPECT_LE(series.stretches().size(), Series::most_points);
    EXPECT_EQ(series.stretches()[0].last, 1);
    EXPECT_EQ(series.stretches()[series.stretches().size() - 1].last, 2);
}

TEST(Series, TellsWhereItWasInterrupted) {
    Series series;
    series.add(0, 1);
    series.add(1000, 1);
    series.interrupt();
    series.add(9000, 2);
    series.add(10'000, 2);
    EXPECT_FALSE(series.stretches()[0].joined);
    EXPECT_TRUE(series.stretches()[1].joined);
    EXPECT_FALSE(series.stretches()[9].joined);
    EXPECT_TRUE(series.stretches()[10].joined);
}

TEST(Series, HasAGapWhereNothingCameForLong) {
    Series series;
    series.add(0, 1);
    series.add(2'000'000, 2);
    series.add(4'000'001, 3);
    const auto& stretches = series.stretches();
    const auto joined_at = [&](std::int64_t time_us) {
        return stretches[static_cast<std::size_t>(time_us / stretches.width_us())].joined;
    };
    EXPECT_TRUE(joined_at(2'000'000));
    EXPECT_FALSE(joined_at(4'000'001));
}

TEST(Series, KeepsAnInterruptionThroughADoubling) {
    Series series;
    series.add(0, 1);
    series.interrupt();
    series.add(301'000, 2);
    series.add(600'000, 3);
    ASSERT_EQ(series.stretches().width_us(), 2000);
    EXPECT_FALSE(series.stretches()[150].joined);
    EXPECT_EQ(series.stretches()[150].last, 2);
}

TEST(Series, TakesATimeBelowZeroAsZero) {
    Series series;
    series.add(-10, 4);
    EXPECT_EQ(series.stretches().size(), 1u);
    EXPECT_EQ(series.stretches()[0].last, 4);
}
