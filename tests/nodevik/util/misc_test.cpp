#include "nodevik/util/misc.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <vector>

#include "tests/support/childprocess.h"

namespace {

// The clock and the scheduler that the functions see: real ones, or what a test sets.
struct PlayedSystem {
    bool plays_clock = false;
    timespec now = {};
    int clock_readings = 0;

    void set(long long seconds, long nanoseconds) {
        plays_clock = true;
        now = {static_cast<time_t>(seconds), nanoseconds};
    }
    void advance_ms(long long ms) {
        const long long total = now.tv_sec * 1000LL + now.tv_nsec / 1000000 + ms;
        set(total / 1000, static_cast<long>(total % 1000) * 1000000);
    }
};

PlayedSystem played;

// What the first calls in the process give, before any test has polled a delay.
const std::array<int, 3> first_delays = []() noexcept {
    played.set(1000, 0);
    const std::array<int, 3> results = {timedelay(0, 100), timedelay(1, 50), timedelay(0, 100)};
    played = {};
    return results;
}();

// The tables belong to the process, so a test starts from its own clean slots.
class Misc : public ::testing::Test {
protected:
    Misc() {
        played = {};
        for (int i = 0; i < 32; ++i) {
            resettimecount(i);
            resettimedelay(i);
        }
    }
    ~Misc() override { played = {}; }
    Misc(const Misc&) = delete;
    Misc& operator=(const Misc&) = delete;
};

std::vector<int> counts(int loop, int n, int calls) {
    std::vector<int> results;
    for (int i = 0; i < calls; ++i) {
        results.push_back(timecount(loop, n));
    }
    return results;
}

}  // namespace

// Stands in front of the C library's function for this executable.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    if (played.plays_clock && clock == CLOCK_MONOTONIC) {
        ++played.clock_readings;
        *time = played.now;
        return 0;
    }
    using Function = int (*)(clockid_t, timespec*);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "clock_gettime"));
    return real(clock, time);
}

TEST_F(Misc, MillisecondsCountSecondsAndNanoseconds) {
    played.set(12, 345999999);
    EXPECT_EQ(get_m_time(), 12345U);
}

TEST_F(Misc, MicrosecondsCountSecondsAndNanoseconds) {
    played.set(12, 345678999);
    EXPECT_EQ(get_u_time(), 12345678U);
}

TEST_F(Misc, MillisecondsWrap) {
    played.set(4294967, 296000000);
    EXPECT_EQ(get_m_time(), 0U);
}

TEST_F(Misc, MicrosecondsWrapToSmallValues) {
    played.set(4294, 967295999);
    EXPECT_EQ(get_u_time(), 4294967295U);
    played.set(4294, 967299000);
    EXPECT_EQ(get_u_time(), 3U);
}

TEST_F(Misc, RealTimeGoesOn) {
    const unsigned int before = get_u_time();
    while (get_u_time() == before) {
    }
    SUCCEED();
}

TEST_F(Misc, TimeCountIsTrueEveryNthCall) {
    EXPECT_EQ(counts(0, 3, 7), (std::vector<int>{0, 0, 1, 0, 0, 1, 0}));
}

TEST_F(Misc, TimeCountOfOneOrLessIsAlwaysTrue) {
    EXPECT_EQ(counts(5, 1, 3), (std::vector<int>{1, 1, 1}));
    EXPECT_EQ(counts(6, 0, 3), (std::vector<int>{1, 1, 1}));
    EXPECT_EQ(counts(7, -4, 3), (std::vector<int>{1, 1, 1}));
    EXPECT_EQ(counts(8, INT32_MIN, 3), (std::vector<int>{1, 1, 1}));
}

TEST_F(Misc, CountersAreIndependent) {
    EXPECT_EQ(timecount(30, 2), 0);
    EXPECT_EQ(timecount(31, 2), 0);
    EXPECT_EQ(timecount(30, 2), 1);
    EXPECT_EQ(timecount(31, 2), 1);
}

TEST_F(Misc, ResetStartsThePeriodAnew) {
    EXPECT_EQ(counts(1, 3, 2), (std::vector<int>{0, 0}));
    resettimecount(1);
    EXPECT_EQ(counts(1, 3, 3), (std::vector<int>{0, 0, 1}));
}

TEST_F(Misc, AnotherCountWaitsForTheNextPeriod) {
    EXPECT_EQ(counts(2, 4, 1), (std::vector<int>{0}));
    EXPECT_EQ(counts(2, 2, 5), (std::vector<int>{0, 0, 1, 0, 1}));
    EXPECT_EQ(counts(2, 2, 1), (std::vector<int>{0}));
    EXPECT_EQ(counts(2, 4, 3), (std::vector<int>{1, 0, 0}));
}

TEST_F(Misc, TimeCountRefusesALargeNumber) {
    const ChildResult result = run_in_child([] { std::exit(timecount(32, 4) == 0 ? 7 : 8); });
    EXPECT_EQ(result.out, "timecount: loopnumber is too large\n");
    EXPECT_EQ(result.status, 7);
}

TEST_F(Misc, ResetTimeCountRefusesALargeNumber) {
    const ChildResult result = run_in_child([] { resettimecount(32); });
    EXPECT_EQ(result.out, "resettimecount: loopnumber is too large\n");
}

TEST_F(Misc, NegativeCounterNumbersStandForTheirLowBits) {
    const ChildResult result = run_in_child([] {
        timecount(31, 2);
        const bool shared = timecount(-1, 2) == 1;
        timecount(31, 2);
        resettimecount(-1);
        std::exit(shared && timecount(31, 2) == 0 ? 7 : 8);
    });
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 7);
}

TEST_F(Misc, TimeDelayPolledAloneNeverComes) {
    played.set(1000, 0);
    timedelay(1, 0);
    EXPECT_EQ(timedelay(0, 100), 0);  // a fresh reading, because another number was asked for
    const int readings = played.clock_readings;
    for (int pass = 0; pass < 50; ++pass) {
        played.advance_ms(100);
        ASSERT_EQ(timedelay(0, 100), 0);
    }
    EXPECT_EQ(played.clock_readings, readings);
}

TEST_F(Misc, AlternatingDelaysReadTheClockAtEveryCallAndComeOnTime) {
    played.set(1000, 0);
    timedelay(2, 0);
    EXPECT_EQ(timedelay(0, 100), 0);
    EXPECT_EQ(timedelay(1, 50), 0);
    int readings = played.clock_readings;
    played.advance_ms(49);
    EXPECT_EQ(timedelay(0, 100), 0);
    EXPECT_EQ(timedelay(1, 50), 0);
    EXPECT_EQ(played.clock_readings, readings + 2);
    played.advance_ms(1);
    EXPECT_EQ(timedelay(0, 100), 0);
    EXPECT_EQ(timedelay(1, 50), 1);
    played.advance_ms(50);
    EXPECT_EQ(timedelay(0, 100), 1);
    EXPECT_EQ(timedelay(1, 50), 0);  // armed again by this call
}

TEST_F(Misc, TheClockIsReadOnlyWhenAnotherDelayWasAskedFor) {
    played.set(1000, 0);
    timedelay(3, 10);
    timedelay(4, 10);
    const int readings = played.clock_readings;
    played.advance_ms(10);
    EXPECT_EQ(timedelay(4, 10), 0);  // alone since the last reading: the old time stands
    EXPECT_EQ(played.clock_readings, readings);
    EXPECT_EQ(timedelay(3, 10), 1);
    EXPECT_EQ(played.clock_readings, readings + 1);
}

TEST_F(Misc, TheFirstDelayOfAProcessGoesByATimeOfZero) {
    EXPECT_EQ(first_delays, (std::array<int, 3>{0, 0, 1}));
}

TEST_F(Misc, ADeadlineThatWrapsIsPastAtOnce) {
    played.set(4294967, 290000000);
    timedelay(1, 0);
    EXPECT_EQ(timedelay(0, 100), 0);
    EXPECT_EQ(timedelay(0, 100), 1);
}

TEST_F(Misc, ADeadlineOfZeroArmsNothing) {
    played.set(4294967, 286000000);
    timedelay(1, 0);
    EXPECT_EQ(timedelay(0, 10), 0);
    EXPECT_EQ(timedelay(0, 10), 0);
    EXPECT_EQ(timedelay(0, 9), 0);  // armed by this call
    EXPECT_EQ(timedelay(0, 10), 0);
    played.advance_ms(9);
    timedelay(1, 0);
    EXPECT_EQ(timedelay(0, 10), 1);
}

TEST_F(Misc, ResetDisarmsADelay) {
    played.set(1000, 0);
    timedelay(1, 0);
    EXPECT_EQ(timedelay(0, 10), 0);
    played.advance_ms(20);
    timedelay(1, 0);
    resettimedelay(0);
    EXPECT_EQ(timedelay(0, 10), 0);
    played.advance_ms(10);
    timedelay(1, 0);
    EXPECT_EQ(timedelay(0, 10), 1);
}

TEST_F(Misc, TheLastDelayNumberIsServed) {
    played.set(1000, 0);
    timedelay(0, 0);
    EXPECT_EQ(timedelay(31, 10), 0);
    played.advance_ms(10);
    timedelay(0, 0);
    EXPECT_EQ(timedelay(31, 10), 1);
}

TEST_F(Misc, NegativeDelayNumbersStandForTheirLowBits) {
    played.set(1000, 0);
    timedelay(0, 0);
    EXPECT_EQ(timedelay(31, 10), 0);
    resettimedelay(-1);
    played.advance_ms(10);
    timedelay(0, 0);
    EXPECT_EQ(timedelay(31, 10), 0);  // armed anew by this call
}

TEST_F(Misc, TimeDelayRefusesALargeNumber) {
    const ChildResult result = run_in_child([] {
        const bool refused = timedelay(40, 10) == 0 && timedelay(32, 10) == 0;
        std::exit(refused ? 7 : 8);
    });
    EXPECT_EQ(result.out, "timedelay: delaynumber is too large\ntimedelay: delaynumber is too large\n");
    EXPECT_EQ(result.status, 7);
}

TEST_F(Misc, ResetTimeDelayRefusesALargeNumber) {
    const ChildResult result = run_in_child([] {
        resettimedelay(32);
        resettimedelay(-1);
    });
    EXPECT_EQ(result.out, "resettimedelay: delaynumber is too large\n");
}

TEST_F(Misc, RealtimeSchedulingIsTakenOrTheFailureReported) {
    const ChildResult result = run_in_child([] {
        const int outcome = set_realtime_schduling(10);
        sched_param parameters = {};
        sched_getparam(0, &parameters);
        const bool taken = sched_getscheduler(0) == SCHED_FIFO &&
                           parameters.sched_priority == sched_get_priority_max(SCHED_FIFO) - 10;
        std::exit(outcome == 0 ? (taken ? 7 : 8) : 9);
    });
    if (result.status == 9) {
        EXPECT_EQ(result.err, "Error - sched_setscheduler()\n: Operation not permitted\n");
    } else {
        EXPECT_EQ(result.status, 7);
        EXPECT_EQ(result.err, "");
    }
}

TEST_F(Misc, APriorityOutsideTheRangeIsReported) {
    const ChildResult result = run_in_child([] { std::exit(set_realtime_schduling(99) == -1 ? 7 : 8); });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.err, "Error - sched_setscheduler()\n: Invalid argument\n");
}
