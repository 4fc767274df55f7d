#include "nodevik/util/monotonicclock.h"

#include <time.h>

#include <algorithm>
#include <climits>

std::uint64_t monotonic_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(now.tv_nsec);
}

int milliseconds_until(std::uint64_t deadline_ns, std::uint64_t now_ns) {
    if (deadline_ns == no_deadline) {
        return -1;
    }
    if (deadline_ns <= now_ns) {
        return 0;
    }
    constexpr std::uint64_t nanoseconds = 1'000'000;
    const std::uint64_t left_ns = deadline_ns - now_ns;
    const std::uint64_t left_ms = left_ns / nanoseconds + (left_ns % nanoseconds != 0 ? 1 : 0);
    return static_cast<int>(std::min<std::uint64_t>(left_ms, INT_MAX));
}
