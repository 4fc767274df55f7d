#include "nodevik/arch.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/childprocess.h"

namespace {

// One call to the system that the functions under test have made.
struct SystemCall {
    std::string name;
    long seconds = 0;
    long nanoseconds = 0;

    bool operator==(const SystemCall&) const = default;
};

std::vector<SystemCall> system_calls;
bool interrupt_sleeps = false;

std::ostream& operator<<(std::ostream& stream, const SystemCall& call) {
    return stream << call.name << " " << call.seconds << " s " << call.nanoseconds << " ns";
}

const SystemCall yield{.name = "sched_yield"};

SystemCall sleep_of(long seconds, long nanoseconds) {
    return {.name = "nanosleep", .seconds = seconds, .nanoseconds = nanoseconds};
}

class Sleeping : public testing::Test {
protected:
    Sleeping() {
        system_calls.clear();
        interrupt_sleeps = false;
    }
};

using USleep = Sleeping;
using MSleep = Sleeping;

}  // namespace

// These stand before the C library's own: nothing in this program really sleeps.
extern "C" int sched_yield() noexcept {
    system_calls.push_back(yield);
    return 0;
}

extern "C" int nanosleep(const timespec* duration, timespec* /*rest*/) {
    system_calls.push_back(sleep_of(duration->tv_sec, duration->tv_nsec));
    if (interrupt_sleeps) {
        errno = EINTR;
        return -1;
    }
    return 0;
}

TEST_F(USleep, ZeroIsAPureYield) {
    u_sleep(0);
    EXPECT_EQ(system_calls, std::vector{yield});
}

TEST_F(USleep, YieldsAndThenSleepsTheMicroseconds) {
    u_sleep(1);
    EXPECT_EQ(system_calls, (std::vector{yield, sleep_of(0, 1000)}));
}

TEST_F(USleep, SplitsIntoSecondsAndNanoseconds) {
    u_sleep(999999);
    u_sleep(1000000);
    u_sleep(2500007);
    EXPECT_EQ(system_calls, (std::vector{yield, sleep_of(0, 999999000), yield, sleep_of(1, 0), yield,
                                         sleep_of(2, 500007000)}));
}

TEST_F(USleep, TakesTheLargestNumber) {
    u_sleep(4294967295U);
    EXPECT_EQ(system_calls, (std::vector{yield, sleep_of(4294, 967295000)}));
}

TEST_F(USleep, AnInterruptedSleepIsNotResumed) {
    interrupt_sleeps = true;
    u_sleep(100);
    EXPECT_EQ(system_calls, (std::vector{yield, sleep_of(0, 100000)}));
}

TEST_F(MSleep, ZeroIsAPureYield) {
    m_sleep(0);
    EXPECT_EQ(system_calls, std::vector{yield});
}

TEST_F(MSleep, YieldsAndThenSleepsTheMilliseconds) {
    m_sleep(1);
    EXPECT_EQ(system_calls, (std::vector{yield, sleep_of(0, 1000000)}));
}

TEST_F(MSleep, SplitsIntoSecondsAndNanoseconds) {
    m_sleep(999);
    m_sleep(1000);
    m_sleep(1500);
    EXPECT_EQ(system_calls, (std::vector{yield, sleep_of(0, 999000000), yield, sleep_of(1, 0), yield,
                                         sleep_of(1, 500000000)}));
}

TEST_F(MSleep, TakesTheLargestNumber) {
    m_sleep(4294967295U);
    EXPECT_EQ(system_calls, (std::vector{yield, sleep_of(4294967, 295000000)}));
}

TEST_F(MSleep, AnInterruptedSleepIsNotResumed) {
    interrupt_sleeps = true;
    m_sleep(20);
    EXPECT_EQ(system_calls, (std::vector{yield, sleep_of(0, 20000000)}));
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
