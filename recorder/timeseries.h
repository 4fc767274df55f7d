/// @file
/// A value over time, for a curve.

#ifndef RECORDER_TIMESERIES_H
#define RECORDER_TIMESERIES_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "recorder/timebuckets.h"

namespace vehicle_recorder {

/// What a value was in a stretch of time.
struct Stretch {
    std::uint64_t count = 0;  ///< how many values; 0 leaves the others without a meaning
    double min = 0;           ///< the lowest
    double max = 0;           ///< the highest
    double sum = 0;           ///< of all
    double last = 0;          ///< the latest
    bool joined = false;      ///< whether the first one follows the value before it without an interruption

    /// The arithmetic mean; 0 without a value.
    double mean() const { return count == 0 ? 0 : sum / static_cast<double>(count); }

    /// Adds a later stretch.
    void absorb(const Stretch& later);
};

/// The lowest and the highest of all values.
struct Extremes {
    double min = 0;
    double max = 0;
};

/// A value over time in constant memory: the lowest, highest, mean and last of each of at most #most_points stretches.
class Series {
public:
    static constexpr std::size_t most_points = 600;  ///< as many as a picture of a page's width can show
    static constexpr std::int64_t longest_join_us =
        2'000'000;  ///< values farther apart have a gap between them

    /// Adds a value.
    /// @param time_us  microseconds since the start, as a rule not before that of the last value
    void add(std::int64_t time_us, double value);

    /// Tells that the next value does not follow the last one: the curve has a gap between them.
    void interrupt() { joined_ = false; }

    /// The stretches.
    const TimeBuckets<Stretch>& stretches() const { return stretches_; }

    /// The lowest and highest of all values; none when there is no value.
    const std::optional<Extremes>& extremes() const { return extremes_; }

    /// The first value; 0 when there is none.
    double first() const { return first_; }

    /// The latest value; 0 when there is none.
    double last() const { return last_; }

private:
    TimeBuckets<Stretch> stretches_{most_points};
    std::optional<Extremes> extremes_;
    double first_ = 0;
    double last_ = 0;
    std::int64_t last_us_ = 0;
    bool joined_ = false;
};

}  // namespace vehicle_recorder

#endif
