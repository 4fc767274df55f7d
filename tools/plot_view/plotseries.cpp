#include "tools/plot_view/plotseries.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <numeric>

namespace plot {

namespace {

constexpr std::size_t block_size = 16;         // samples in a block, and blocks in a greater one
constexpr std::size_t points_of_a_column = 4;  // first, lowest, highest, last

}  // namespace

Interval Interval::united(const Interval& other) const {
    return {std::min(low, other.low), std::max(high, other.high)};
}

std::optional<Interval> united(const std::optional<Interval>& one, const std::optional<Interval>& other) {
    if (!one || !other) {
        return one ? one : other;
    }
    return one->united(*other);
}

void Series::Block::include(double value) {
    if (std::isfinite(value)) {
        low = std::min(low, value);
        high = std::max(high, value);
    }
}

void Series::Block::include(const Block& other) {
    low = std::min(low, other.low);
    high = std::max(high, other.high);
}

Series::Block Series::nothing() {
    return {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
}

void Series::append(double time, double value) {
    times_.push_back(time);
    values_.push_back(value);
    add_to_blocks(values_.size() - 1);
}

void Series::add_to_blocks(std::size_t number) {
    std::size_t block = number;
    for (std::vector<Block>& level : levels_) {
        block /= block_size;
        if (block == level.size()) {
            level.push_back(nothing());
        }
        level[block].include(values_[number]);
    }
}

void Series::build_blocks() {
    for (std::vector<Block>& level : levels_) {
        level.clear();
    }
    for (std::size_t number = 0; number < values_.size(); ++number) {
        add_to_blocks(number);
    }
}

void Series::sort_by_time() {
    if (std::is_sorted(times_.begin(), times_.end())) {
        return;
    }
    std::vector<std::size_t> order(times_.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [this](std::size_t one, std::size_t other) { return times_[one] < times_[other]; });
    std::vector<double> times;
    std::vector<double> values;
    times.reserve(order.size());
    values.reserve(order.size());
    for (const std::size_t number : order) {
        times.push_back(times_[number]);
        values.push_back(values_[number]);
    }
    times_ = std::move(times);
    values_ = std::move(values);
    build_blocks();
}

std::size_t Series::first_from(double time) const {
    return static_cast<std::size_t>(std::lower_bound(times_.begin(), times_.end(), time) - times_.begin());
}

std::size_t Series::first_behind(double time) const {
    return static_cast<std::size_t>(std::upper_bound(times_.begin(), times_.end(), time) - times_.begin());
}

std::optional<std::size_t> Series::nearest(double time) const {
    if (empty()) {
        return std::nullopt;
    }
    const std::size_t behind = first_from(time);
    if (behind == 0) {
        return 0;
    }
    const bool is_behind = behind < size() && times_[behind] - time < time - times_[behind - 1];
    return is_behind ? behind : behind - 1;
}

std::optional<Interval> Series::duration() const {
    if (empty()) {
        return std::nullopt;
    }
    return Interval{times_.front(), times_.back()};
}

std::optional<Interval> Series::extent(std::size_t begin, std::size_t end) const {
    Block all = nothing();
    while (begin < end) {
        // The greatest block that begins here and ends in time.
        std::size_t size = 1;
        std::size_t level = 0;
        while (level < levels_.size() && begin % (size * block_size) == 0 &&
               begin + size * block_size <= end) {
            size *= block_size;
            ++level;
        }
        if (level == 0) {
            all.include(values_[begin]);
        } else {
            all.include(levels_[level - 1][begin / size]);
        }
        begin += size;
    }
    if (all.low > all.high) {
        return std::nullopt;
    }
    return Interval{all.low, all.high};
}

std::optional<Interval> Series::extent(const Interval& time) const {
    return united(extent(first_from(time.low), first_behind(time.high)),
                  united(crossing(time.low), crossing(time.high)));
}

// Where the line between two samples is at a time; none if there is no line.
std::optional<Interval> Series::crossing(double time) const {
    const std::size_t behind = first_behind(time);
    if (behind == 0 || behind == size()) {
        return std::nullopt;
    }
    const double share = (time - times_[behind - 1]) / (times_[behind] - times_[behind - 1]);
    const double value = values_[behind - 1] * (1 - share) + values_[behind] * share;
    return std::isfinite(value) ? std::optional(Interval{value, value}) : std::nullopt;
}

std::vector<Point> Series::line(const Interval& time, std::size_t columns) const {
    const std::size_t shown_begin = first_from(time.low);
    const std::size_t shown_end = first_behind(time.high);
    const std::size_t begin = shown_begin - (shown_begin > 0 ? 1 : 0);
    const std::size_t end = std::min(shown_end + 1, size());
    std::vector<Point> points;
    if (end - begin <= points_of_a_column * columns) {
        points.reserve(end - begin);
        for (std::size_t i = begin; i < end; ++i) {
            points.push_back({times_[i], values_[i]});
        }
        return points;
    }
    points.reserve(points_of_a_column * columns + 2);
    append_column(begin, shown_begin, points);
    std::size_t first = shown_begin;
    for (std::size_t column = 1; column <= columns; ++column) {
        const double border =
            time.low + time.span() * (static_cast<double>(column) / static_cast<double>(columns));
        const auto rest = std::span(times_).subspan(first, shown_end - first);
        const std::size_t next =
            column == columns
                ? shown_end
                : first + static_cast<std::size_t>(std::lower_bound(rest.begin(), rest.end(), border) -
                                                   rest.begin());
        append_column(first, next, points);
        first = next;
    }
    append_column(shown_end, end, points);
    return points;
}

void Series::append_column(std::size_t begin, std::size_t end, std::vector<Point>& points) const {
    if (begin == end) {
        return;
    }
    points.push_back({times_[begin], values_[begin]});
    if (end - begin > 2) {
        if (const auto between = extent(begin, end)) {
            points.push_back({times_[begin], between->low});
            points.push_back({times_[begin], between->high});
        }
    }
    if (end - begin > 1) {
        points.push_back({times_[end - 1], values_[end - 1]});
    }
}

std::optional<Interval> PlotData::duration() const {
    std::optional<Interval> all;
    for (const Series& one : series) {
        all = united(all, one.duration());
    }
    return all;
}

std::size_t PlotData::samples() const {
    std::size_t sum = 0;
    for (const Series& one : series) {
        sum += one.size();
    }
    return sum;
}

}  // namespace plot
