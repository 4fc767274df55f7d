#include "nodevik/util/monotonicclock.h"

#include <gtest/gtest.h>

#include <climits>

#include "tests/support/scriptedclock.h"

TEST(MonotonicNs, IsTheMonotonicClock) {
    const ScriptedClock clock(12'345'678'901);
    EXPECT_EQ(monotonic_ns(), 12'345'678'901'000U);
    EXPECT_EQ(monotonic_ns(), 12'345'678'902'000U);
}

TEST(MillisecondsUntil, RoundsUpSoThatTheDeadlineHasComeAfterTheWait) {
    EXPECT_EQ(milliseconds_until(5'000'000, 4'000'000), 1);
    EXPECT_EQ(milliseconds_until(5'000'001, 4'000'000), 2);
    EXPECT_EQ(milliseconds_until(5'000'000, 4'999'999), 1);
}

TEST(MillisecondsUntil, IsZeroWhenTheDeadlineHasCome) {
    EXPECT_EQ(milliseconds_until(5'000'000, 5'000'000), 0);
    EXPECT_EQ(milliseconds_until(5'000'000, 9'000'000), 0);
}

TEST(MillisecondsUntil, WaitsForeverWithoutADeadline) {
    EXPECT_EQ(milliseconds_until(no_deadline, 5'000'000), -1);
}

TEST(MillisecondsUntil, IsAtMostWhatPollTakes) {
    EXPECT_EQ(milliseconds_until(no_deadline - 1, 0), INT_MAX);
}
