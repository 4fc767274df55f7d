#include "nodevik/arch.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/childprocess.h"

namespace {

// One call to the system that the functions under test have made.
struct SystemCall {
    const char* name = "";
    long seconds = 0;
    long nanoseconds = 0;

    bool operator==(const SystemCall& other) const {
        return std::string(name) == other.name && seconds == other.seconds &&
               nanoseconds == other.nanoseconds;
    }
};

std::ostream& operator<<(std::ostream& stream, const SystemCall& call) {
    return stream << call.name << " " << call.seconds << " s " << call.nanoseconds << " ns";
}

constexpr SystemCall yield{.name = "sched_yield"};

constexpr SystemCall sleep_of(long seconds, long nanoseconds) {
    return {.name = "nanosleep", .seconds = seconds, .nanoseconds = nanoseconds};
}

// The calls recorded. A sanitizer's runtime yields too, from places that must not allocate: only the calls of
// a test are recorded, and in fixed room.
bool recording = false;
bool interrupt_sleeps = false;
std::array<SystemCall, 16> recorded;
std::size_t recorded_count = 0;

void record(const SystemCall& call) {
    if (recorded_count < recorded.size()) {
        recorded[recorded_count++] = call;
    }
}

// The calls to the system that `body` makes, none of which is carried out.
std::vector<SystemCall> calls_of(const std::function<void()>& body) {
    recorded_count = 0;
    recording = true;
    body();
    recording = false;
    interrupt_sleeps = false;
    return {recorded.begin(), recorded.begin() + static_cast<std::ptrdiff_t>(recorded_count)};
}

using Calls = std::vector<SystemCall>;

}  // namespace

// These two stand before the C library's own.
extern "C" int sched_yield() noexcept {
    if (!recording) {
        return static_cast<int>(syscall(SYS_sched_yield));
    }
    record(yield);
    return 0;
}

extern "C" int nanosleep(const timespec* duration, timespec* rest) {
    if (!recording) {
        return static_cast<int>(syscall(SYS_nanosleep, duration, rest));
    }
    record(sleep_of(duration->tv_sec, duration->tv_nsec));
    if (interrupt_sleeps) {
        errno = EINTR;
        return -1;
    }
    return 0;
}

TEST(USleep, ZeroIsAPureYield) {
    EXPECT_EQ(calls_of([] { u_sleep(0); }), Calls{yield});
}

TEST(USleep, YieldsAndThenSleeps) {
    EXPECT_EQ(calls_of([] { u_sleep(1); }), (Calls{yield, sleep_of(0, 1000)}));
}

TEST(USleep, SplitsIntoSecondsAndNanoseconds) {
    EXPECT_EQ(calls_of([] { u_sleep(999999); }), (Calls{yield, sleep_of(0, 999999000)}));
    EXPECT_EQ(calls_of([] { u_sleep(1000000); }), (Calls{yield, sleep_of(1, 0)}));
    EXPECT_EQ(calls_of([] { u_sleep(2500007); }), (Calls{yield, sleep_of(2, 500007000)}));
    EXPECT_EQ(calls_of([] { u_sleep(4294967295U); }), (Calls{yield, sleep_of(4294, 967295000)}));
}

TEST(USleep, AnInterruptedSleepIsNotResumed) {
    interrupt_sleeps = true;
    EXPECT_EQ(calls_of([] { u_sleep(1); }), (Calls{yield, sleep_of(0, 1000)}));
}

TEST(MSleep, ZeroIsAPureYield) {
    EXPECT_EQ(calls_of([] { m_sleep(0); }), Calls{yield});
}

TEST(MSleep, YieldsAndThenSleeps) {
    EXPECT_EQ(calls_of([] { m_sleep(1); }), (Calls{yield, sleep_of(0, 1000000)}));
}

TEST(MSleep, SplitsIntoSecondsAndNanoseconds) {
    EXPECT_EQ(calls_of([] { m_sleep(999); }), (Calls{yield, sleep_of(0, 999000000)}));
    EXPECT_EQ(calls_of([] { m_sleep(1000); }), (Calls{yield, sleep_of(1, 0)}));
    EXPECT_EQ(calls_of([] { m_sleep(1500); }), (Calls{yield, sleep_of(1, 500000000)}));
    EXPECT_EQ(calls_of([] { m_sleep(4294967295U); }), (Calls{yield, sleep_of(4294967, 295000000)}));
}

TEST(MSleep, AnInterruptedSleepIsNotResumed) {
    interrupt_sleeps = true;
    EXPECT_EQ(calls_of([] { m_sleep(1); }), (Calls{yield, sleep_of(0, 1000000)}));
}

TEST(ShowError, PrintsVirheTheFormattedTextAndANewlineAndReturns) {
    const ChildResult result = run_in_child([] {
        show_error("%d", 5);
        std::printf("returned");
    });
    EXPECT_EQ(result.out, "Virhe: 5\nreturned");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST(ShowError, FormatsAllItsArguments) {
    const ChildResult result =
        run_in_child([] { show_error("%s:%c - %#x %llu", "unit", 65, 0x181, 1ULL << 40); });
    EXPECT_EQ(result.out, "Virhe: unit:A - 0x181 1099511627776\n");
}

TEST(ShowError, AddsItsNewlineAlsoAfterATextThatHasOne) {
    const ChildResult result = run_in_child([] { show_error("Write Error !\n"); });
    EXPECT_EQ(result.out, "Virhe: Write Error !\n\n");
}
