/// @file
/// How a time spreads: the shortest, the longest and what lies between.

#ifndef RECORDER_SPREAD_H
#define RECORDER_SPREAD_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vehicle_recorder {

/// Counts durations of any number in constant memory.
///
/// Durations up to 2047 us are told apart to the microsecond, longer ones to a thousandth of themselves; the shortest,
/// the longest and the mean are exact.
class Spread {
public:
    Spread();

    /// Adds a duration.
    /// @param duration_us  microseconds; below 0 counts as 0, above 2^40 - 1 (12 days) as that
    void add(std::int64_t duration_us);

    /// How many were added.
    std::uint64_t count() const { return count_; }

    /// The shortest in microseconds; 0 when there is none.
    std::int64_t shortest_us() const { return shortest_us_; }

    /// The longest in microseconds; 0 when there is none.
    std::int64_t longest_us() const { return longest_us_; }

    /// The arithmetic mean in microseconds; 0 when there is none.
    double mean_us() const;

    /// The standard deviation in microseconds, of all durations (not of a sample); 0 when there is none.
    double deviation_us() const;

    /// The duration that @p share of all durations do not exceed, the nearest-rank percentile.
    /// @param share  above 0 to 1; 0.5 is the median
    /// @return microseconds, at most a thousandth too long; 0 when there is none
    std::int64_t percentile_us(double share) const;

    /// How many durations were at least @p from_us and less than @p to_us, as exactly as they are told apart.
    std::uint64_t between(std::int64_t from_us, std::int64_t to_us) const;

private:
    std::vector<std::uint64_t> counts_;
    std::uint64_t count_ = 0;
    std::int64_t shortest_us_ = 0;
    std::int64_t longest_us_ = 0;
    double mean_us_ = 0;
    double squares_us2_ = 0;  // sum of the squared distances from the mean
};

}  // namespace vehicle_recorder

#endif
