#include "recorder/timeseries.h"

#include <algorithm>

namespace vehicle_recorder {

void Stretch::absorb(const Stretch& later) {
    if (later.count == 0) {
        return;
    }
    if (count == 0) {
        *this = later;
        return;
    }
    count += later.count;
    min = std::min(min, later.min);
    max = std::max(max, later.max);
    sum += later.sum;
    last = later.last;
}

void Series::add(std::int64_t time_us, double value) {
    joined_ = joined_ && time_us - last_us_ <= longest_join_us;
    stretches_.at(time_us).absorb(
        {.count = 1, .min = value, .max = value, .sum = value, .last = value, .joined = joined_});
    joined_ = true;
    if (!extremes_) {
        extremes_ = {value, value};
        first_ = value;
    }
    extremes_ = {std::min(extremes_->min, value), std::max(extremes_->max, value)};
    last_ = value;
    last_us_ = time_us;
}

}  // namespace vehicle_recorder
