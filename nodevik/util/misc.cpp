#include "nodevik/util/misc.h"

#include <sched.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace {

constexpr int slot_count = 32;

// A number below zero passes the range tests; its low bits keep it inside the tables.
constexpr std::size_t slot(int number) {
    return static_cast<unsigned int>(number) & (slot_count - 1);
}

struct DelayTable {
    std::array<std::uint32_t, slot_count> deadlines_ms{};  // 0: not armed
    timespec now{};                                        // the reading that this pass goes by
    std::uint32_t asked = 0;  // bit n: deadline n was asked for since that reading
};

std::array<int, slot_count> counters{};
DelayTable delays;

timespec monotonic_now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

std::uint32_t milliseconds(const timespec& time) {
    return static_cast<std::uint32_t>(time.tv_sec) * 1000U +
           static_cast<std::uint32_t>(time.tv_nsec / 1000000);
}

}  // namespace

unsigned int get_m_time() {
    return milliseconds(monotonic_now());
}

unsigned int get_u_time() {
    const timespec now = monotonic_now();
    return static_cast<std::uint32_t>(now.tv_sec) * 1000000U + static_cast<std::uint32_t>(now.tv_nsec / 1000);
}

int timecount(int loop, int n) {
    if (loop >= slot_count) {
        std::puts("timecount: loopnumber is too large");
        return 0;
    }
    int& counter = counters[slot(loop)];
    if (counter < 1) {
        counter = n;
    }
    if (counter >= 1) {  // an n of INT_MIN has nothing to count down from
        --counter;
    }
    return counter < 1 ? 1 : 0;
}

void resettimecount(int loop) {
    if (loop >= slot_count) {
        std::puts("resettimecount: loopnumber is too large");
        return;
    }
    counters[slot(loop)] = 0;
}

int timedelay(unsigned int number, unsigned int ms) {
    if (number >= slot_count) {
        std::puts("timedelay: delaynumber is too large");
        return 0;
    }
    const std::uint32_t own_bit = 1U << number;
    if ((delays.asked & ~own_bit) != 0) {
        delays.now = monotonic_now();
        delays.asked = 0;
    }
    delays.asked |= own_bit;

    const std::uint32_t now_ms = milliseconds(delays.now);
    std::uint32_t& deadline_ms = delays.deadlines_ms[number];
    if (deadline_ms == 0) {
        deadline_ms = now_ms + ms;
        return 0;
    }
    if (deadline_ms <= now_ms) {
        deadline_ms = 0;
        return 1;
    }
    return 0;
}

void resettimedelay(int number) {
    if (number >= slot_count) {
        std::puts("resettimedelay: delaynumber is too large");
        return;
    }
    delays.deadlines_ms[slot(number)] = 0;
}

int set_realtime_schduling(int below_max) {
    sched_param parameters = {};
    parameters.sched_priority = sched_get_priority_max(SCHED_FIFO) - below_max;
    const int result = sched_setscheduler(0, SCHED_FIFO, &parameters);
    if (result == -1) {
        std::perror("Error - sched_setscheduler()\n");
    }
    return result;
}
