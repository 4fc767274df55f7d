// Samples over time: extents by blocks, and the line that stands for them in a picture.

#include "tools/plot_view/plotseries.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

using namespace plot;

namespace {

constexpr double none = std::numeric_limits<double>::quiet_NaN();
constexpr double infinite = std::numeric_limits<double>::infinity();

Series series_of(const std::vector<Point>& points) {
    Series series;
    for (const Point& point : points) {
        series.append(point.time, point.value);
    }
    return series;
}

// Values without an order, a second apart; some are none.
Series random_series(std::size_t size, unsigned seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> any(-1000, 1000);
    Series series;
    for (std::size_t i = 0; i < size; ++i) {
        series.append(static_cast<double>(i), i % 97 == 13 ? none : any(generator));
    }
    return series;
}

std::optional<Interval> plain_extent(const Series& series, std::size_t begin, std::size_t end) {
    std::optional<Interval> all;
    for (std::size_t i = begin; i < end; ++i) {
        const double value = series.values()[i];
        if (std::isfinite(value)) {
            all = united(all, Interval{value, value});
        }
    }
    return all;
}

}  // namespace

TEST(Interval, UnitesWithOthersOrNone) {
    EXPECT_EQ((Interval{1, 2}).united({-1, 1.5}), (Interval{-1, 2}));
    EXPECT_EQ(united(std::nullopt, Interval{1, 2}), (Interval{1, 2}));
    EXPECT_EQ(united(Interval{1, 2}, std::nullopt), (Interval{1, 2}));
    EXPECT_EQ(united(std::nullopt, std::nullopt), std::nullopt);
}

TEST(SeriesExtent, IsThatOfEverySampleBetween) {
    const Series series = random_series(5000, 1);
    std::mt19937 generator(2);
    std::uniform_int_distribution<std::size_t> any(0, series.size());
    for (int i = 0; i < 500; ++i) {
        const auto [begin, end] = std::minmax({any(generator), any(generator)});
        EXPECT_EQ(series.extent(begin, end), plain_extent(series, begin, end)) << begin << " to " << end;
    }
    EXPECT_EQ(series.extent(0, series.size()), plain_extent(series, 0, series.size()));
}

TEST(SeriesExtent, GoesByTimesWithBothEnds) {
    const Series series = series_of({{0, 5}, {1, -3}, {2, 8}, {3, 1}});
    EXPECT_EQ(series.extent(Interval{1, 2}), (Interval{-3, 8}));
    EXPECT_EQ(series.extent(Interval{3, 10}), (Interval{1, 1}));
    EXPECT_EQ(series.extent(Interval{4, 10}), std::nullopt);
    EXPECT_EQ(series.extent(Interval{-2, -1}), std::nullopt);
}

TEST(SeriesExtent, FollowsTheLineBetweenTwoSamples) {
    const Series series = series_of({{0, 0}, {10, 100}, {20, none}, {30, 5}});
    EXPECT_EQ(series.extent(Interval{2.5, 7.5}), (Interval{25, 75}));
    EXPECT_EQ(series.extent(Interval{5, 12}), (Interval{50, 100}));
    EXPECT_EQ(series.extent(Interval{22, 28}), std::nullopt);
}

TEST(SeriesExtent, LeavesOutWhatIsNotFinite) {
    EXPECT_EQ(series_of({{0, none}, {1, infinite}, {2, 3}, {3, -infinite}}).extent(0, 4), (Interval{3, 3}));
    EXPECT_EQ(series_of({{0, none}}).extent(0, 1), std::nullopt);
    EXPECT_EQ(Series().extent(0, 0), std::nullopt);
}

TEST(Series, FindsTheSampleThatIsNearestInTime) {
    const Series series = series_of({{1, 0}, {2, 0}, {4, 0}});
    EXPECT_EQ(series.nearest(-10), 0U);
    EXPECT_EQ(series.nearest(1.4), 0U);
    EXPECT_EQ(series.nearest(1.6), 1U);
    EXPECT_EQ(series.nearest(2.9), 1U);
    EXPECT_EQ(series.nearest(3.1), 2U);
    EXPECT_EQ(series.nearest(99), 2U);
    EXPECT_EQ(Series().nearest(1), std::nullopt);
}

TEST(Series, FindsTheFirstSampleFromATimeOnAndTheFirstBehindIt) {
    const Series series = series_of({{1, 0}, {2, 0}, {2, 1}, {4, 0}});
    EXPECT_EQ(series.first_from(2), 1U);
    EXPECT_EQ(series.first_behind(2), 3U);
    EXPECT_EQ(series.first_from(5), 4U);
    EXPECT_EQ(series.duration(), (Interval{1, 4}));
    EXPECT_EQ(Series().duration(), std::nullopt);
}

TEST(Series, IsSortedByTimeWithThoseOfOneTimeInTheirOrder) {
    Series series;
    for (const auto& [time, value] : {std::pair(3.0, 30.0), {1.0, 10.0}, {3.0, 31.0}, {2.0, 20.0}}) {
        series.append(time, value);
    }
    series.sort_by_time();
    EXPECT_EQ(std::vector<double>(series.times().begin(), series.times().end()),
              (std::vector<double>{1, 2, 3, 3}));
    EXPECT_EQ(std::vector<double>(series.values().begin(), series.values().end()),
              (std::vector<double>{10, 20, 30, 31}));
    EXPECT_EQ(series.extent(0, 2), (Interval{10, 20}));
}

TEST(Series, HasItsBlocksInOrderAfterSorting) {
    Series series;
    for (int i = 999; i >= 0; --i) {
        series.append(i, i);
    }
    series.sort_by_time();
    EXPECT_EQ(series.extent(16, 800), (Interval{16, 799}));
}

TEST(SeriesLine, HasEverySampleWhenTheyAreFew) {
    const std::vector<Point> points = {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}};
    EXPECT_EQ(series_of(points).line({0, 4}, 10), points);
}

TEST(SeriesLine, GoesOnToTheSamplesBesideThePicture) {
    const Series series = series_of({{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}});
    EXPECT_EQ(series.line({1.5, 2.5}, 10), (std::vector<Point>{{1, 2}, {2, 3}, {3, 4}}));
    EXPECT_EQ(series.line({2.2, 2.8}, 10), (std::vector<Point>{{2, 3}, {3, 4}}));
    EXPECT_EQ(series.line({9, 10}, 10), (std::vector<Point>{{4, 5}}));
}

TEST(SeriesLine, OfManySamplesHasFourPointsAColumnAndMissesNoPeak) {
    constexpr std::size_t columns = 50;
    const Series series = random_series(100'000, 3);
    const Interval time = {10'000, 89'999};
    const std::vector<Point> line = series.line(time, columns);
    EXPECT_LE(line.size(), columns * 4 + 2);
    EXPECT_TRUE(std::is_sorted(line.begin(), line.end(),
                               [](const Point& one, const Point& other) { return one.time < other.time; }));
    for (std::size_t column = 0; column < columns; ++column) {
        const double from = time.low + time.span() * static_cast<double>(column) / columns;
        const double to = time.low + time.span() * static_cast<double>(column + 1) / columns;
        std::optional<Interval> drawn;
        for (const Point& point : line) {
            if (point.time >= from && (point.time < to || column + 1 == columns) && point.time <= time.high &&
                std::isfinite(point.value)) {
                drawn = united(drawn, Interval{point.value, point.value});
            }
        }
        const std::size_t end =
            column + 1 == columns ? series.first_behind(time.high) : series.first_from(to);
        EXPECT_EQ(drawn, plain_extent(series, series.first_from(from), end)) << column;
    }
}

TEST(SeriesLine, EntersAndLeavesAColumnWhereItsSamplesDo) {
    Series series;
    for (int i = 0; i < 1000; ++i) {
        series.append(i, i % 10 == 5 ? 100 : i);
    }
    const std::vector<Point> line = series.line({0, 999}, 10);
    EXPECT_EQ(line.front(), (Point{0, 0}));
    EXPECT_EQ(line[3], (Point{99, 99}));
    EXPECT_EQ(line[4], (Point{100, 100}));
    EXPECT_EQ(line.back(), (Point{999, 999}));
}

TEST(SeriesLine, KeepsGapsThatAreWiderThanAColumn) {
    Series series;
    for (int i = 0; i < 1000; ++i) {
        series.append(i, i >= 400 && i < 600 ? none : 1);
    }
    const std::vector<Point> line = series.line({0, 999}, 20);
    EXPECT_TRUE(std::any_of(line.begin(), line.end(), [](const Point& point) {
        return point.time > 410 && !std::isfinite(point.value);
    }));
    EXPECT_TRUE(std::none_of(line.begin(), line.end(), [](const Point& point) {
        return point.time >= 400 && point.time < 600 && std::isfinite(point.value);
    }));
}

TEST(PlotData, ReachesFromItsFirstToItsLastSample) {
    PlotData data;
    EXPECT_EQ(data.duration(), std::nullopt);
    data.series = {series_of({{3, 0}, {5, 0}}), Series(), series_of({{1, 0}})};
    EXPECT_EQ(data.duration(), (Interval{1, 5}));
    EXPECT_EQ(data.samples(), 3U);
}
