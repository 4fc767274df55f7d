#include "nodevik/nodes/nodewatch.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "nodevik/util/monotonicclock.h"
#include "tests/support/allocationcount.h"
#include "tests/support/childprocess.h"
#include "tests/support/scriptedcandriver.h"

namespace {

using Lines = std::vector<std::string>;

constexpr std::uint64_t ms = 1'000'000;

// Keeps what it is told, as text.
class Diary : public NodeListener {
public:
    void state_changed(unsigned int node, NodeState before, NodeState now) override {
        note(node, std::string(node_state_name(before)) + " -> " + node_state_name(now));
    }
    void lost(unsigned int node) override {
        note(node, "lost");
        if (on_lost) {
            on_lost();
        }
    }
    void back(unsigned int node) override { note(node, "back"); }
    void booted(unsigned int node) override { note(node, "booted"); }
    void emergency(unsigned int node, const NodeEmergency& emergency) override {
        note(node, std::string("emergency: ") + emergency.text());
    }
    void emergency_over(unsigned int node, const NodeEmergency& emergency) override {
        note(node, "over, register " + std::to_string(emergency.error_register));
    }

    Lines take() {
        Lines taken;
        taken.swap(lines);
        return taken;
    }

    Lines lines;
    std::function<void()> on_lost;

private:
    void note(unsigned int node, const std::string& text) {
        lines.push_back(std::to_string(node) + ": " + text);
    }
};

class Watching : public testing::Test {
protected:
    Watching() { watch.set_listener(&diary); }

    // A frame comes at a time.
    void hear(std::uint64_t at_ms, unsigned int id, std::initializer_list<unsigned char> bytes,
              unsigned int length = 99) {
        std::array<unsigned char, 8> data{};
        std::copy(bytes.begin(), bytes.end(), data.begin());
        ObservedFrame frame(ObservedFrame::Direction::received, id,
                            length == 99 ? static_cast<unsigned int>(bytes.size()) : length, data.data());
        frame.set_times(5'000'000 * ms + at_ms * ms, at_ms * ms);
        watch.frame_passed(frame);
    }

    std::size_t asked() const { return bus.written.size(); }

    ScriptedCanDriver bus;
    ObservedDriver driver{bus};
    NodeWatch watch{driver};
    Diary diary;
};

}  // namespace

TEST_F(Watching, KnowsNothingAtFirst) {
    for (unsigned int number = 0; number <= 128; ++number) {
        const NodeStatus& node = watch.node(number);
        EXPECT_EQ(node.state, NodeState::unknown);
        EXPECT_FALSE(node.is_lost);
        EXPECT_EQ(node.heard_ns, 0U);
        EXPECT_EQ(node.boot_ups + node.emergencies, 0U);
        EXPECT_EQ(node.emergency(0), nullptr);
    }
    EXPECT_EQ(watch.next_deadline(7), no_deadline);
    EXPECT_STREQ(node_state_name(NodeState::unknown), "Unknown");
}

TEST_F(Watching, HeartbeatsTellTheStateOfEveryNode) {
    hear(1, 0x701, {0x7F});
    hear(2, 0x701, {0x05});
    hear(3, 0x701, {0x05});
    hear(4, 0x77F, {0x04});
    EXPECT_EQ(watch.node(1).state, NodeState::operational);
    EXPECT_EQ(watch.node(127).state, NodeState::stopped);
    EXPECT_EQ(watch.node(1).heard_ns, 3 * ms);
    EXPECT_EQ(diary.lines, (Lines{"1: Unknown -> Pre-operational", "1: Pre-operational -> Operational",
                                  "127: Unknown -> Stopped"}));
}

TEST_F(Watching, BootUpsAreCountedAndTold) {
    hear(1, 0x705, {0x00});
    hear(2, 0x705, {0x00});
    hear(3, 0x705, {0x05});
    hear(4, 0x705, {0x00});
    EXPECT_EQ(watch.node(5).boot_ups, 3U);
    EXPECT_EQ(watch.node(5).state, NodeState::boot_up);
    EXPECT_EQ(diary.lines, (Lines{"5: booted", "5: Unknown -> Initializing/Boot-up", "5: booted",
                                  "5: Initializing/Boot-up -> Operational", "5: booted",
                                  "5: Operational -> Initializing/Boot-up"}));
}

TEST_F(Watching, TheBusItselfIsWatchedThroughTheDriver) {
    bus.queue(0x705, {0x05});
    driver.read_all();
    EXPECT_EQ(watch.node(5).state, NodeState::operational);
    EXPECT_GT(watch.node(5).heard_ns, 0U);
    std::array<unsigned char, 8> data{0x04};
    driver.write(0x706, 1, data.data(), 0);
    EXPECT_EQ(watch.node(6).state, NodeState::unknown) << "what the program sends tells of no node";
}

TEST_F(Watching, ANodeIsLostWhenItsHeartbeatStaysAwayAndBackWithTheNext) {
    EXPECT_EQ(watch.expect_heartbeat(5, 300), 0);
    watch.process(10'000 * ms);
    EXPECT_EQ(watch.next_deadline(0), no_deadline) << "the watch begins with the first heartbeat";
    hear(10'000, 0x705, {0x05});
    EXPECT_EQ(watch.next_deadline(10'000 * ms), 10'300 * ms);
    hear(10'200, 0x705, {0x05});
    watch.process(10'499 * ms);
    EXPECT_FALSE(watch.node(5).is_lost);
    EXPECT_EQ(watch.next_deadline(10'499 * ms), 10'500 * ms);
    EXPECT_EQ(watch.next_deadline(10'600 * ms), 10'600 * ms) << "it is due";
    diary.take();
    watch.process(10'500 * ms);
    EXPECT_TRUE(watch.node(5).is_lost);
    EXPECT_EQ(watch.node(5).state, NodeState::unknown);
    EXPECT_EQ(diary.take(), (Lines{"5: lost", "5: Operational -> Unknown"}));
    EXPECT_EQ(watch.next_deadline(0), no_deadline);
    watch.process(20'000 * ms);
    EXPECT_TRUE(diary.take().empty()) << "it is told once";
    hear(20'001, 0x705, {0x7F});
    EXPECT_FALSE(watch.node(5).is_lost);
    EXPECT_EQ(diary.take(), (Lines{"5: back", "5: Unknown -> Pre-operational"}));
    EXPECT_EQ(watch.next_deadline(0), 20'301 * ms);
    watch.process(20'301 * ms);
    EXPECT_EQ(diary.take().front(), "5: lost");
}

TEST_F(Watching, ABootUpEndsTheWatchUntilTheNextHeartbeat) {
    watch.expect_heartbeat(5, 300);
    hear(1, 0x705, {0x05});
    hear(2, 0x705, {0x00});
    EXPECT_EQ(watch.next_deadline(0), no_deadline);
    watch.process(100'000 * ms);
    EXPECT_FALSE(watch.node(5).is_lost);
    hear(100'001, 0x705, {0x05});
    watch.process(100'301 * ms);
    EXPECT_TRUE(watch.node(5).is_lost);
    diary.take();
    hear(100'400, 0x705, {0x00});
    EXPECT_EQ(diary.take(), (Lines{"5: back", "5: booted", "5: Unknown -> Initializing/Boot-up"}));
}

TEST_F(Watching, AHeartbeatHasNoToggleBit) {
    watch.expect_heartbeat(5, 300);
    hear(1, 0x705, {0x85});
    EXPECT_EQ(watch.node(5).state, NodeState::unknown);
    EXPECT_EQ(watch.ignored().wrong_toggles, 1U);
    EXPECT_EQ(watch.next_deadline(0), no_deadline);
    hear(2, 0x706, {0x85});
    EXPECT_EQ(watch.node(6).state, NodeState::operational)
        << "somebody else guards a node that is not watched";
}

TEST_F(Watching, OnlyHeartbeatsKeepANodeFromBeingLost) {
    watch.expect_heartbeat(5, 300);
    hear(10, 0x705, {0x05});
    hear(200, 0x185, {1, 2});
    hear(250, 0x585, {0x60, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(watch.node(5).heard_ns, 250 * ms);
    watch.process(310 * ms);
    EXPECT_TRUE(watch.node(5).is_lost);
}

TEST_F(Watching, TheWatchMayBeChangedAndEnded) {
    watch.expect_heartbeat(5, 300);
    hear(10, 0x705, {0x05});
    watch.expect_heartbeat(5, 1000);
    hear(100, 0x705, {0x05});
    watch.process(1099 * ms);
    EXPECT_FALSE(watch.node(5).is_lost);
    EXPECT_EQ(watch.ignore(5), 0);
    watch.process(5000 * ms);
    EXPECT_FALSE(watch.node(5).is_lost);
    EXPECT_EQ(watch.next_deadline(0), no_deadline);
    for (const unsigned int number : {0U, 128U, 5000U}) {
        EXPECT_EQ(watch.expect_heartbeat(number, 100), -1);
        EXPECT_EQ(watch.guard(number, 100, 1), -1);
        EXPECT_EQ(watch.ignore(number), -1);
    }
}

TEST_F(Watching, TheListenerMayChangeTheWatchFromWithin) {
    watch.expect_heartbeat(5, 100);
    watch.expect_heartbeat(6, 100);
    hear(10, 0x705, {0x05});
    hear(10, 0x706, {0x05});
    diary.on_lost = [this] {
        watch.ignore(5);
        watch.ignore(6);
    };
    diary.take();
    watch.process(110 * ms);
    EXPECT_EQ(diary.take().front(), "5: lost");
    EXPECT_FALSE(watch.node(6).is_lost);
    diary.on_lost = [this] { watch.guard(7, 100, 1); };
    watch.guard(7, 100, 1);
    watch.process(1000 * ms);
    EXPECT_EQ(asked(), 1U);
    watch.process(1100 * ms);
    EXPECT_EQ(asked(), 1U) << "begun anew, it is asked at the next call";
    watch.process(1100 * ms);
    EXPECT_EQ(asked(), 2U);
}

TEST_F(Watching, GuardingAsksByRemoteFramesInItsPeriod) {
    EXPECT_EQ(watch.guard(6, 100, 3), 0);
    EXPECT_EQ(watch.next_deadline(1000 * ms), 1000 * ms);
    watch.process(1000 * ms);
    EXPECT_EQ(bus.written, (std::vector<ScriptedFrame>{ScriptedFrame(0x706, {}, 2)}));
    EXPECT_EQ(watch.next_deadline(1000 * ms), 1100 * ms);
    hear(1001, 0x706, {0x05});
    watch.process(1099 * ms);
    EXPECT_EQ(asked(), 1U);
    watch.process(1103 * ms);
    EXPECT_EQ(asked(), 2U);
    EXPECT_EQ(watch.next_deadline(1103 * ms), 1200 * ms) << "the period does not drift";
    EXPECT_EQ(watch.node(6).state, NodeState::operational);
    watch.process(9000 * ms);
    EXPECT_EQ(asked(), 3U) << "what was missed is not asked at once";
    EXPECT_EQ(watch.next_deadline(9000 * ms), 9100 * ms);
}

TEST_F(Watching, AGuardedNodeIsLostAfterItsLifeTimeFactor) {
    watch.guard(6, 100, 3);
    watch.process(1000 * ms);
    hear(1001, 0x706, {0x05});
    watch.process(1100 * ms);
    watch.process(1200 * ms);
    watch.process(1300 * ms);
    EXPECT_FALSE(watch.node(6).is_lost);
    diary.take();
    watch.process(1400 * ms);
    EXPECT_EQ(diary.take(), (Lines{"6: lost", "6: Operational -> Unknown"}));
    EXPECT_EQ(asked(), 5U) << "it is asked on";
    watch.process(1500 * ms);
    EXPECT_EQ(asked(), 6U);
    EXPECT_TRUE(diary.take().empty());
    hear(1501, 0x706, {0x05});
    EXPECT_EQ(diary.take(), (Lines{"6: back", "6: Unknown -> Operational"}))
        << "whatever its toggle bit is by now";
}

TEST_F(Watching, AnAnswerInBetweenBeginsTheCountAgain) {
    watch.guard(6, 100, 2);
    unsigned char toggle = 0;
    for (std::uint64_t at = 0; at < 20; ++at) {
        watch.process(1000 * ms + at * 100 * ms);
        if (at % 2 == 1) {
            hear(1001 + at * 100, 0x706, {static_cast<unsigned char>(0x05 | toggle)});
            toggle ^= 0x80;
        }
    }
    EXPECT_FALSE(watch.node(6).is_lost);
}

TEST_F(Watching, ARepeatedToggleBitIsNoAnswer) {
    watch.guard(6, 100, 2);
    watch.process(1000 * ms);
    hear(1001, 0x706, {0x85});
    EXPECT_EQ(watch.node(6).state, NodeState::operational) << "the first may have either";
    watch.process(1100 * ms);
    hear(1101, 0x706, {0x84});
    EXPECT_EQ(watch.node(6).state, NodeState::operational);
    EXPECT_EQ(watch.ignored().wrong_toggles, 1U);
    watch.process(1200 * ms);
    hear(1201, 0x706, {0x84});
    watch.process(1300 * ms);
    EXPECT_TRUE(watch.node(6).is_lost);
}

TEST_F(Watching, AfterABootUpTheFirstToggleBitIsZero) {
    watch.guard(6, 100, 2);
    hear(999, 0x706, {0x00});
    watch.process(1000 * ms);
    hear(1001, 0x706, {0xFF});
    EXPECT_EQ(watch.node(6).state, NodeState::boot_up);
    hear(1002, 0x706, {0x7F});
    EXPECT_EQ(watch.node(6).state, NodeState::pre_operational);
    hear(1003, 0x706, {0xFF});
    hear(1004, 0x706, {0x05});
    EXPECT_EQ(watch.node(6).state, NodeState::operational);
    EXPECT_EQ(watch.ignored().wrong_toggles, 1U);
}

TEST_F(Watching, ANodeThatNeverAnswersIsLostToo) {
    watch.guard(6, 100, 1);
    watch.process(0);
    watch.process(100 * ms);
    EXPECT_EQ(diary.take(), Lines{"6: lost"});
}

TEST_F(Watching, ARequestThatTheDriverDoesNotSendHasNoAnswer) {
    bus.write_result = -1;
    watch.guard(6, 100, 1);
    watch.process(1 * ms);
    watch.process(101 * ms);
    EXPECT_TRUE(watch.node(6).is_lost);
}

TEST_F(Watching, GuardingNeedsAFactorAndATime) {
    EXPECT_EQ(watch.guard(6, 100, 0), -1);
    EXPECT_EQ(watch.guard(6, 0, 3), 0);
    watch.process(1000 * ms);
    EXPECT_EQ(asked(), 0U);
    watch.guard(6, 100, 1);
    watch.expect_heartbeat(6, 300);
    watch.process(2000 * ms);
    EXPECT_EQ(asked(), 0U);
    EXPECT_FALSE(watch.node(6).is_lost);
}

TEST_F(Watching, EmergenciesAreToldAndTheLastEightKept) {
    hear(1, 0x085, {0x10, 0x42, 0x08, 1, 2, 3, 4, 5});
    const NodeEmergency* newest = watch.node(5).emergency(0);
    ASSERT_NE(newest, nullptr);
    EXPECT_EQ(newest->code, 0x4210);
    EXPECT_EQ(newest->error_register, 8);
    EXPECT_EQ(newest->manufacturer, (std::array<std::uint8_t, 5>{1, 2, 3, 4, 5}));
    EXPECT_EQ(newest->time_ns, 5'000'001 * ms);
    EXPECT_STREQ(newest->text(), "Amplifier Over Temperature");
    EXPECT_TRUE(watch.node(5).in_trouble);
    EXPECT_EQ(diary.take(), Lines{"5: emergency: Amplifier Over Temperature"});
    EXPECT_EQ(watch.node(5).emergency(1), nullptr);
    for (unsigned char code = 1; code <= 20; ++code) {
        hear(code, 0x085, {code, 0x81, 0x10, 0, 0, 0, 0, 0});
    }
    for (std::size_t age = 0; age < 8; ++age) {
        ASSERT_NE(watch.node(5).emergency(age), nullptr);
        EXPECT_EQ(watch.node(5).emergency(age)->code, 0x8100 + 20 - age);
    }
    EXPECT_EQ(watch.node(5).emergency(8), nullptr);
    EXPECT_EQ(watch.node(5).emergencies, 21U);
    EXPECT_EQ(diary.lines.back(), "5: emergency: Communication") << "an unknown code by its class";
}

TEST_F(Watching, AnEmergencyIsOverWithCodeZeroAndTheRegisterSaysWhatIsLeft) {
    hear(1, 0x085, {0x30, 0x81, 0x11, 0, 0, 0, 0, 0});
    hear(2, 0x085, {0x00, 0x00, 0x01, 0, 0, 0, 0, 0});
    EXPECT_TRUE(watch.node(5).in_trouble);
    hear(3, 0x085, {0x00, 0x00, 0x00, 0, 0, 0, 0, 0});
    EXPECT_FALSE(watch.node(5).in_trouble);
    EXPECT_EQ(diary.lines, (Lines{"5: emergency: Life guard error or heartbeat error", "5: over, register 1",
                                  "5: over, register 0"}));
    EXPECT_TRUE(watch.node(5).emergency(0)->is_over());
    hear(4, 0x085, {0x30, 0x81, 0x11, 0, 0, 0, 0, 0});
    hear(5, 0x705, {0x00});
    EXPECT_FALSE(watch.node(5).in_trouble) << "it has started anew";
}

TEST(NodeEmergencyText, OfAnUnknownClassIsSo) {
    NodeEmergency emergency;
    emergency.code = 0x1234;
    EXPECT_STREQ(emergency.text(), "Unknown");
}

TEST_F(Watching, TpdosAreCountedByNode) {
    hear(1, 0x185, {1});
    hear(2, 0x285, {1});
    hear(3, 0x285, {});
    hear(4, 0x485, {1});
    hear(5, 0x205, {1});
    hear(6, 0x505, {1});
    EXPECT_EQ(watch.node(5).tpdos, (std::array<std::uint64_t, 4>{1, 2, 0, 1}));
    EXPECT_EQ(watch.node(5).heard_ns, 4 * ms) << "PDOs to a node are not from it";
}

TEST_F(Watching, BadFramesAreCountedAndAreNoNews) {
    watch.expect_heartbeat(5, 300);
    hear(10, 0x705, {0x05});
    diary.take();
    hear(1, 0x705, {});
    hear(1, 0x705, {0x04, 0x04});
    hear(1, 0x705, {0x04}, 31);
    hear(1, 0x085, {0x10, 0x42, 0x08});
    hear(1, 0x085, {0x10, 0x42, 0x08, 0, 0, 0, 0, 0}, 20);
    hear(1, 0x085, {});
    EXPECT_EQ(watch.ignored().wrong_length, 6U);
    hear(1, 0x700, {0x05});
    hear(1, 0x180, {1});
    hear(1, 0x580, {1});
    EXPECT_EQ(watch.ignored().node_zero, 3U);
    for (const unsigned char state : std::array<unsigned char, 6>{1, 2, 3, 6, 80, 126}) {
        hear(1, 0x706, {state});
    }
    EXPECT_EQ(watch.ignored().unknown_states, 6U);
    hear(1, 0x080, {1, 2, 3, 4, 5, 6, 7, 8});
    hear(1, 0x000, {1, 5});
    hear(1, 0x100, {1, 2, 3, 4, 5, 6});
    hear(1, 0x7E5, {4, 1, 0, 0, 0, 0, 0, 0});
    EXPECT_TRUE(diary.lines.empty());
    EXPECT_EQ(watch.node(5).emergencies, 0U);
    EXPECT_EQ(watch.node(5).heard_ns, 10 * ms);
    EXPECT_EQ(watch.node(6).state, NodeState::unknown);
    EXPECT_EQ(watch.node(0).heard_ns, 0U);
}

TEST_F(Watching, ANodeWithAStrangeStateIsNotSilent) {
    watch.expect_heartbeat(5, 300);
    hear(10, 0x705, {0x05});
    diary.take();
    hear(200, 0x705, {0x06});
    watch.process(400 * ms);
    EXPECT_TRUE(diary.lines.empty());
    watch.process(500 * ms);
    EXPECT_EQ(diary.take().front(), "5: lost");
    hear(600, 0x705, {0x06});
    EXPECT_TRUE(diary.lines.empty());
    EXPECT_EQ(watch.next_deadline(0), no_deadline);
}

TEST_F(Watching, ExtendedFramesAndRemoteRequestsTellNothing) {
    const unsigned char state = 5;
    ObservedFrame frame(ObservedFrame::Direction::received, 0x705, 1, &state);
    frame.remote = true;
    watch.frame_passed(frame);
    frame.remote = false;
    frame.extended = true;
    watch.frame_passed(frame);
    EXPECT_TRUE(diary.lines.empty());
    EXPECT_EQ(watch.ignored().wrong_length, 0U);
}

// Its identifier is a set of error classes: 0x88, a protocol violation, would be an emergency of node 8.
TEST_F(Watching, ErrorFramesOfTheControllerTellNothing) {
    const std::array<unsigned char, 8> details{0, 0, 0x04, 0x0A, 0, 0, 0, 0};
    ObservedFrame frame(ObservedFrame::Direction::received, 0x088, 8, details.data());
    frame.error = true;
    watch.frame_passed(frame);
    frame.identifier = 0x188;
    watch.frame_passed(frame);
    EXPECT_TRUE(diary.lines.empty());
    EXPECT_EQ(watch.node(8).emergencies, 0U);
    EXPECT_EQ(watch.node(8).tpdos[0], 0U);
    EXPECT_EQ(watch.node(8).heard_ns, 0U);
}

TEST_F(Watching, AToggleBitWithoutAStateIsAnUnknownState) {
    hear(1, 0x706, {0x00});
    hear(2, 0x706, {0x80});
    EXPECT_EQ(watch.ignored().unknown_states, 1U);
    EXPECT_EQ(watch.node(6).heard_ns, 1 * ms);
}

TEST_F(Watching, AWatchWithoutAListenerKeepsItsTable) {
    watch.set_listener(nullptr);
    watch.expect_heartbeat(5, 100);
    hear(1, 0x705, {0x00});
    hear(1, 0x705, {0x05});
    hear(2, 0x085, {0x10, 0x42, 0x08, 0, 0, 0, 0, 0});
    hear(2, 0x085, {0x00, 0x00, 0x00, 0, 0, 0, 0, 0});
    watch.process(200 * ms);
    EXPECT_TRUE(watch.node(5).is_lost);
    hear(201, 0x705, {0x05});
    EXPECT_FALSE(watch.node(5).is_lost);
    EXPECT_EQ(watch.node(5).boot_ups, 1U);
    EXPECT_EQ(watch.node(5).emergencies, 2U);
}

TEST_F(Watching, NothingIsAllocatedAfterTheConstruction) {
    struct : ScriptedCanDriver {
        int write(unsigned int, unsigned int, unsigned char*, unsigned int) override { return 0; }
    } quiet;
    ObservedDriver front(quiet);
    NodeWatch other(front);
    const std::array<unsigned char, 8> data{0x05};
    const unsigned long before = allocations();
    other.expect_heartbeat(5, 100);
    other.guard(6, 100, 1);
    ObservedFrame heartbeat(ObservedFrame::Direction::received, 0x705, 1, data.data());
    heartbeat.set_times(1, 1);
    ObservedFrame emergency(ObservedFrame::Direction::received, 0x085, 8, data.data());
    other.frame_passed(heartbeat);
    other.frame_passed(emergency);
    other.process(1000 * ms);
    other.process(2000 * ms);
    EXPECT_EQ(allocations(), before);
    EXPECT_TRUE(other.node(6).is_lost);
}

TEST_F(Watching, ADriverWithoutRoomForTheWatchEndsTheProcess) {
    const ChildResult result = run_in_child([this] {
        std::vector<std::unique_ptr<NodeWatch>> watches;
        for (int i = 0; i < 8; ++i) {
            watches.push_back(std::make_unique<NodeWatch>(driver));
        }
    });
    EXPECT_EQ(result.err, "nodevik/nodes/nodewatch: Assertion failed: is_observing\n");
}

TEST(NodeWatchEnd, CeasesToObserve) {
    ScriptedCanDriver bus;
    ObservedDriver driver(bus);
    { const NodeWatch watch(driver); }
    EXPECT_EQ(driver.observer_count(), 0U);
}
