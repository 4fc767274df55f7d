/// @file
/// What happened over a time of unknown length, in a bounded number of points.

#ifndef RECORDER_TIMEBUCKETS_H
#define RECORDER_TIMEBUCKETS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vehicle_recorder {

/// Equal stretches of time, each with what was added to it.
///
/// The stretches begin a millisecond long. When the time goes beyond the last one, each pair of neighbours becomes one
/// and all are twice as long: an hour takes as much memory as a second, and is kept as exactly as a picture of so many
/// points can show it.
///
/// @tparam Content  default-constructed it is an empty stretch; `void absorb(const Content& later)` adds what happened
///                  in the stretch behind it
template <typename Content>
class TimeBuckets {
public:
    /// @param most  number of stretches, even and above 0
    explicit TimeBuckets(std::size_t most) : buckets_(most) {}

    /// The stretch that a time falls into. A time below 0 falls into the first one.
    /// @param time_us  microseconds since the start
    Content& at(std::int64_t time_us) {
        const std::int64_t time = std::max<std::int64_t>(time_us, 0);
        while (time / width_us_ >= static_cast<std::int64_t>(buckets_.size())) {
            double_width();
        }
        const auto index = static_cast<std::size_t>(time / width_us_);
        used_ = std::max(used_, index + 1);
        return buckets_[index];
    }

    /// The stretches up to the last that was asked for.
    std::size_t size() const { return used_; }

    /// A stretch by its number, 0 to size() - 1.
    const Content& operator[](std::size_t index) const { return buckets_[index]; }

    /// How long each is, in microseconds: a power of two times 1000.
    std::int64_t width_us() const { return width_us_; }

private:
    void double_width() {
        const std::size_t half = buckets_.size() / 2;
        for (std::size_t index = 0; index < half; ++index) {
            Content merged = buckets_[2 * index];
            merged.absorb(buckets_[2 * index + 1]);
            buckets_[index] = merged;
        }
        std::fill(buckets_.begin() + static_cast<std::ptrdiff_t>(half), buckets_.end(), Content());
        width_us_ *= 2;
        used_ = (used_ + 1) / 2;
    }

    std::vector<Content> buckets_;
    std::int64_t width_us_ = 1000;
    std::size_t used_ = 0;
};

}  // namespace vehicle_recorder

#endif
