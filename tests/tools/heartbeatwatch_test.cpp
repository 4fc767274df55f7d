// Heartbeats that are measured, and missed. The times are the test's own.

#include "tools/heartbeatwatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <string>
#include <vector>

#include "nodevik/util/monotonicclock.h"
#include "tests/support/scriptedcandriver.h"

namespace {

using nodevik_tool::HeartbeatWatch;

constexpr std::uint64_t ms = 1'000'000;
constexpr std::uint64_t day_ns = 5'000'000 * ms;  // when the test begins, by the clock of the day

class Heartbeats : public testing::Test {
protected:
    // A frame that the kernel has received at a time and that is read at another one.
    void hear_late(std::uint64_t at_ms, std::uint64_t read_ms, unsigned int id,
                   std::initializer_list<unsigned char> bytes, bool remote = false) {
        std::array<unsigned char, 8> data{};
        std::copy(bytes.begin(), bytes.end(), data.begin());
        ObservedFrame frame(ObservedFrame::Direction::received, id, static_cast<unsigned int>(bytes.size()),
                            data.data());
        frame.remote = remote;
        frame.set_times(day_ns + at_ms * ms, (1 + read_ms) * ms);
        watch.frame_passed(frame);
    }
    void hear(std::uint64_t at_ms, unsigned int id, std::initializer_list<unsigned char> bytes,
              bool remote = false) {
        hear_late(at_ms, at_ms, id, bytes, remote);
    }
    void beat_at(std::initializer_list<std::uint64_t> times_ms) {
        for (const std::uint64_t at_ms : times_ms) {
            hear(at_ms, 0x705, {0x05});
        }
    }
    bool is_lost_at(std::uint64_t at_ms) {
        watch.process((1 + at_ms) * ms);
        return watch.node(5).is_lost;
    }

    ScriptedCanDriver bus;
    ObservedDriver driver{bus};
    HeartbeatWatch watch{driver};
};

}  // namespace

TEST_F(Heartbeats, AreMeasuredByTheMiddleOfTheLastFiveTimes) {
    EXPECT_EQ(watch.heartbeat_ms(5), std::nullopt);
    beat_at({1000});
    EXPECT_EQ(watch.heartbeat_ms(5), std::nullopt);
    beat_at({1200});
    EXPECT_EQ(watch.heartbeat_ms(5), 200U);
    beat_at({1210});  // of two times the longer one
    EXPECT_EQ(watch.heartbeat_ms(5), 200U);
    beat_at({1310, 1410, 1510});
    EXPECT_EQ(watch.heartbeat_ms(5), 100U);
    beat_at({1520, 1530, 1540});  // 100 100 10 10 10
    EXPECT_EQ(watch.heartbeat_ms(5), 10U);
    EXPECT_EQ(watch.heartbeat_ms(6), std::nullopt);
}

TEST_F(Heartbeats, ThatStopMakeTheNodeLost) {
    beat_at({0, 200, 400});
    EXPECT_EQ(watch.node(5).state, NodeState::operational);
    EXPECT_FALSE(is_lost_at(400 + 500));  // two and a half times
    EXPECT_EQ(watch.next_deadline(0), (1 + 400 + 501) * ms);
    EXPECT_TRUE(is_lost_at(400 + 502));
    EXPECT_EQ(watch.node(5).state, NodeState::unknown);
    EXPECT_EQ(watch.heartbeat_ms(5), 200U);
}

TEST_F(Heartbeats, AreMissedOnlyWhenThreeHaveCome) {
    beat_at({0, 10});  // one of them may have been sent at a change of state
    EXPECT_FALSE(is_lost_at(100'000));
    EXPECT_EQ(watch.next_deadline(0), no_deadline);
}

TEST_F(Heartbeats, OfAFewMillisecondsAreNotMissedBeforeATenthOfASecond) {
    beat_at({0, 10, 20});
    EXPECT_FALSE(is_lost_at(20 + 99));
    EXPECT_TRUE(is_lost_at(20 + 101));
}

TEST_F(Heartbeats, ThatComeAgainAreMeasuredAnew) {
    beat_at({0, 100, 200});
    EXPECT_TRUE(is_lost_at(2000));
    beat_at({2000});
    EXPECT_FALSE(watch.node(5).is_lost);
    EXPECT_EQ(watch.node(5).state, NodeState::operational);
    EXPECT_EQ(watch.heartbeat_ms(5), std::nullopt);
    EXPECT_FALSE(is_lost_at(2999));  // its time is another one now
    beat_at({3000, 4000});
    EXPECT_EQ(watch.heartbeat_ms(5), 1000U);
    EXPECT_FALSE(is_lost_at(4000 + 2500));
    EXPECT_TRUE(is_lost_at(4000 + 2502));
}

TEST_F(Heartbeats, BeforeABootUpTellNothingOfThoseAfterIt) {
    beat_at({0, 100, 200});
    hear(250, 0x705, {0x00});
    EXPECT_EQ(watch.heartbeat_ms(5), std::nullopt);
    EXPECT_EQ(watch.node(5).state, NodeState::boot_up);
    EXPECT_EQ(watch.node(5).boot_ups, 1U);
    EXPECT_FALSE(is_lost_at(100'000));  // it may have no heartbeat now
}

TEST_F(Heartbeats, AreMeasuredByWhenTheKernelReceivedThem) {
    for (const std::uint64_t at_ms : {0, 100, 200, 300}) {
        hear_late(at_ms, 900, 0x705, {0x05});  // the program was kept from reading
    }
    EXPECT_EQ(watch.heartbeat_ms(5), 100U);
    EXPECT_FALSE(is_lost_at(900 + 249));
    EXPECT_TRUE(is_lost_at(900 + 252));
}

TEST_F(Heartbeats, DoNotGoBackWhenTheClockIsSet) {
    beat_at({5000, 5100, 5200});
    hear_late(1000, 5300, 0x705, {0x05});
    hear_late(1100, 5400, 0x705, {0x05});
    EXPECT_EQ(watch.heartbeat_ms(5), 100U);
}

TEST_F(Heartbeats, AreToldFromAnswersToGuarding) {
    beat_at({0, 100});
    hear(200, 0x705, {0x85});  // the toggle bit
    beat_at({300});
    hear(400, 0x705, {0x85});
    beat_at({500});
    EXPECT_TRUE(watch.is_guarded(5));
    EXPECT_EQ(watch.heartbeat_ms(5), std::nullopt);
    EXPECT_EQ(watch.node(5).state, NodeState::operational);
    EXPECT_FALSE(is_lost_at(100'000));
    hear(100'000, 0x705, {0x04});
    EXPECT_EQ(watch.node(5).state, NodeState::stopped);
}

TEST_F(Heartbeats, AreNotExpectedOfANodeThatIsAskedByRemoteFrames) {
    beat_at({0, 100, 200});
    hear(210, 0x705, {}, true);
    EXPECT_TRUE(watch.is_guarded(5));
    EXPECT_FALSE(is_lost_at(100'000));
    hear(100'010, 0x705, {0x00});  // it boots, and nobody has guarded it since
    EXPECT_FALSE(watch.is_guarded(5));
}

TEST_F(Heartbeats, AreFramesOfOneByteOfANode) {
    for (const std::uint64_t at_ms : {0, 100, 200}) {
        hear(at_ms, 0x705, {0x05, 0x00});
        hear(at_ms, 0x700, {0x05});
        hear(at_ms, 0x605, {0x05});
        std::array<unsigned char, 1> data{0x05};
        driver.write(0x705, 1, data.data(), 0);  // one's own
    }
    EXPECT_EQ(watch.heartbeat_ms(5), std::nullopt);
    EXPECT_FALSE(is_lost_at(100'000));
    EXPECT_EQ(bus.written.size(), 3U);  // the watch has sent nothing
}

TEST_F(Heartbeats, AreHeardThroughTheDriver) {
    for (int i = 0; i < 3; ++i) {
        bus.queue(0x705, {0x05});
    }
    driver.read_all();
    EXPECT_EQ(watch.node(5).state, NodeState::operational);
    EXPECT_EQ(driver.observer_count(), 1U);
    EXPECT_TRUE(bus.written.empty());
}
