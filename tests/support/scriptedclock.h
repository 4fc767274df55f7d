/// @file
/// The monotonic clock, nanosleep(2) and sched_yield(2) in the hands of the test. Include it in one source of a test
/// program only: it defines these functions for the whole program.

#ifndef TESTS_SUPPORT_SCRIPTEDCLOCK_H
#define TESTS_SUPPORT_SCRIPTEDCLOCK_H

#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <vector>

/// While an object exists, CLOCK_MONOTONIC shows its time and nanosleep only moves it on. Each look at the
/// clock takes a microsecond, so that a loop that waits for a time comes to an end. The processor is not yielded: on a
/// busy machine it would come back milliseconds later, and an object of a mebibyte has 150,000 segments.
class ScriptedClock {
public:
    explicit ScriptedClock(std::uint64_t start_us = 1000000) : now_us(start_us) { running = this; }
    ~ScriptedClock() { running = nullptr; }
    ScriptedClock(const ScriptedClock&) = delete;
    ScriptedClock& operator=(const ScriptedClock&) = delete;

    std::uint64_t now_us;                  ///< what the next look at the clock shows
    std::vector<std::uint64_t> pauses_us;  ///< every sleep, in order

    /// The object that exists, or null.
    static inline ScriptedClock* running = nullptr;
};

extern "C" inline __attribute__((used)) int clock_gettime(clockid_t clock, timespec* now) noexcept {
    if (clock != CLOCK_MONOTONIC || ScriptedClock::running == nullptr) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    }
    const std::uint64_t us = ScriptedClock::running->now_us++;
    now->tv_sec = static_cast<time_t>(us / 1000000);
    now->tv_nsec = static_cast<long>(us % 1000000) * 1000;
    return 0;
}

extern "C" inline __attribute__((used)) int nanosleep(const timespec* length, timespec* left) {
    if (ScriptedClock::running == nullptr) {
        return static_cast<int>(syscall(SYS_nanosleep, length, left));
    }
    const std::uint64_t us = static_cast<std::uint64_t>(length->tv_sec) * 1000000 +
                             static_cast<std::uint64_t>(length->tv_nsec) / 1000;
    ScriptedClock::running->now_us += us;
    ScriptedClock::running->pauses_us.push_back(us);
    return 0;
}

extern "C" inline __attribute__((used)) int sched_yield() noexcept {
    return ScriptedClock::running == nullptr ? static_cast<int>(syscall(SYS_sched_yield)) : 0;
}

#endif
