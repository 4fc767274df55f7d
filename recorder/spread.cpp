#include "recorder/spread.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace vehicle_recorder {

namespace {

// Each power of two from 2048 on is divided into 1024 steps.
constexpr int step_bits = 10;
constexpr std::int64_t steps = std::int64_t{1} << step_bits;
constexpr int most_bits = 40;
constexpr std::int64_t most_us = (std::int64_t{1} << most_bits) - 1;
constexpr std::size_t room = static_cast<std::size_t>((most_bits - step_bits) * steps + steps);

// How many of its lowest bits a duration loses.
int lost_bits(std::int64_t duration_us) {
    const int bits = static_cast<int>(std::bit_width(static_cast<std::uint64_t>(duration_us)));
    return std::max(0, bits - step_bits - 1);
}

std::size_t index_of(std::int64_t duration_us) {
    const int lost = lost_bits(duration_us);
    return static_cast<std::size_t>(lost * steps + (duration_us >> lost));
}

// The shortest duration of a step.
std::int64_t lower_end(std::size_t index) {
    const auto number = static_cast<std::int64_t>(index);
    const std::int64_t lost = std::max<std::int64_t>(0, number / steps - 1);
    return (number - lost * steps) << lost;
}

}  // namespace

Spread::Spread() : counts_(room) {}

void Spread::add(std::int64_t duration_us) {
    const std::int64_t duration = std::clamp<std::int64_t>(duration_us, 0, most_us);
    ++counts_[index_of(duration)];
    shortest_us_ = count_ == 0 ? duration : std::min(shortest_us_, duration);
    longest_us_ = std::max(longest_us_, duration);
    ++count_;
    // Welford's method: the sum of squares itself would drown the differences of long runs.
    const double distance = static_cast<double>(duration) - mean_us_;
    mean_us_ += distance / static_cast<double>(count_);
    squares_us2_ += distance * (static_cast<double>(duration) - mean_us_);
}

double Spread::mean_us() const {
    return mean_us_;
}

double Spread::deviation_us() const {
    return count_ == 0 ? 0 : std::sqrt(squares_us2_ / static_cast<double>(count_));
}

std::int64_t Spread::percentile_us(double share) const {
    const auto rank = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(count_)));
    std::uint64_t passed = 0;
    for (std::size_t index = 0; index < counts_.size(); ++index) {
        passed += counts_[index];
        if (counts_[index] > 0 && passed >= rank) {
            return std::clamp(lower_end(index + 1) - 1, shortest_us_, longest_us_);
        }
    }
    return 0;
}

std::uint64_t Spread::between(std::int64_t from_us, std::int64_t to_us) const {
    std::uint64_t found = 0;
    const std::size_t begin = index_of(std::clamp<std::int64_t>(from_us, 0, most_us));
    for (std::size_t index = begin; index < counts_.size() && lower_end(index) < to_us; ++index) {
        found += counts_[index];
    }
    return found;
}

}  // namespace vehicle_recorder
