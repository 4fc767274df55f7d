#include "simulator/node/canopennode.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <vector>

namespace {

using node_simulator::CanFrame;
using node_simulator::CanopenNode;
using node_simulator::load_le;
using node_simulator::make_frame;
using node_simulator::NmtState;
using node_simulator::NodeSettings;
using node_simulator::SentFrame;
using node_simulator::store_le;
using node_simulator::Time;

using Frames = std::vector<CanFrame>;

constexpr Time ms = 1000;

const CanFrame sync_frame = make_frame(0x80, {});
const CanFrame start_all = make_frame(0, {1, 0});

Frames frames_of(const std::vector<SentFrame>& sent) {
    Frames frames;
    for (const SentFrame& one : sent) {
        frames.push_back(one.frame);
    }
    return frames;
}

NodeSettings plain() {
    NodeSettings settings;
    settings.node = 5;
    return settings;
}

// Node 5, and what it sends.
class Node : public testing::Test {
protected:
    void SetUp() override { node.power_on(0); }

    Frames hear(const CanFrame& frame) { return frames_of(node.receive(frame, now)); }
    Frames wait_until(Time time) {
        now = time;
        return frames_of(node.advance(now));
    }
    Frames guard() {
        CanFrame request = make_frame(0x705, {});
        request.remote = true;
        return hear(request);
    }

    // Writes by SDO; returns the abort code, or 0.
    unsigned write(unsigned index, unsigned subindex, unsigned size, std::uint64_t value) {
        CanFrame request =
            make_frame(0x605, {0x23 | (4 - size) << 2, index & 0xFF, index >> 8, subindex, 0, 0, 0, 0});
        store_le(std::span(request.data).subspan(4, 4), value);
        return abort_in(hear(request));
    }

    std::uint64_t read(unsigned index, unsigned subindex) {
        for (const CanFrame& frame :
             hear(make_frame(0x605, {0x40, index & 0xFF, index >> 8, subindex, 0, 0, 0, 0}))) {
            if (frame.identifier == 0x585) {
                return load_le(std::span(frame.data).subspan(4, 4));
            }
        }
        return ~std::uint64_t{0};
    }

    static unsigned abort_in(const Frames& frames) {
        for (const CanFrame& frame : frames) {
            if (frame.identifier == 0x585 && frame.data[0] == 0x80) {
                return static_cast<unsigned>(load_le(std::span(frame.data).subspan(4, 4)));
            }
        }
        return 0;
    }

    CanopenNode node{plain()};
    Time now = 0;
};

}  // namespace

TEST(NodePower, BootsIntoPreOperationalWithOneMessage) {
    CanopenNode node(plain());
    EXPECT_EQ(node.state(), NmtState::initialising);
    EXPECT_EQ(frames_of(node.power_on(0)), Frames{make_frame(0x705, {0})});
    EXPECT_EQ(node.state(), NmtState::pre_operational);
}

TEST(NodePower, WithoutPowerItIsDeafAndMute) {
    NodeSettings settings = plain();
    settings.heartbeat_ms = 10;
    CanopenNode node(settings);
    EXPECT_TRUE(node.receive(start_all, 0).empty());
    EXPECT_TRUE(node.advance(1000 * ms).empty());
    EXPECT_TRUE(node.emergency(0x1000, {}, 0).empty());
    EXPECT_TRUE(node.set_input(1, 1, 0).empty());
    EXPECT_EQ(node.deadline(), std::nullopt);
    node.power_on(0);
    node.power_off();
    EXPECT_TRUE(node.advance(1000 * ms).empty());
}

TEST(NodePower, ASelfStartingNodeBecomesOperational) {
    NodeSettings settings = plain();
    settings.self_starting = true;
    CanopenNode node(settings);
    node.power_on(0);
    EXPECT_EQ(node.state(), NmtState::operational);
}

TEST_F(Node, FollowsNmtCommandsToItselfAndToAll) {
    hear(make_frame(0, {1, 5}));
    EXPECT_EQ(node.state(), NmtState::operational);
    hear(make_frame(0, {2, 0}));
    EXPECT_EQ(node.state(), NmtState::stopped);
    hear(make_frame(0, {128, 5}));
    EXPECT_EQ(node.state(), NmtState::pre_operational);
    hear(make_frame(0, {1, 6}));
    hear(make_frame(0, {77, 5}));
    hear(make_frame(0, {1}));
    EXPECT_EQ(node.state(), NmtState::pre_operational);
}

TEST_F(Node, ResetCommunicationKeepsTheApplicationsObjects) {
    EXPECT_EQ(write(0x1017, 0, 2, 100), 0U);
    EXPECT_EQ(write(0x6200, 1, 1, 7), 0U);
    EXPECT_EQ(hear(make_frame(0, {130, 5})), Frames{make_frame(0x705, {0})});
    EXPECT_EQ(read(0x1017, 0), 0U);
    EXPECT_EQ(read(0x6200, 1), 7U);
}

TEST_F(Node, ResetNodeResetsEverything) {
    EXPECT_EQ(write(0x6200, 1, 1, 7), 0U);
    EXPECT_EQ(hear(make_frame(0, {129, 0})), Frames{make_frame(0x705, {0})});
    EXPECT_EQ(read(0x6200, 1), 0U);
    EXPECT_EQ(node.state(), NmtState::pre_operational);
}

TEST_F(Node, StoppedAnswersNoSdoButGuarding) {
    hear(make_frame(0, {2, 5}));
    EXPECT_TRUE(hear(make_frame(0x605, {0x40, 0, 0x10, 0, 0, 0, 0, 0})).empty());
    EXPECT_TRUE(node.emergency(0x1000, {}, 0).empty());
    EXPECT_EQ(guard(), Frames{make_frame(0x705, {4})});
}

TEST_F(Node, GuardingAlternatesTheToggleBitFromZero) {
    EXPECT_EQ(guard(), Frames{make_frame(0x705, {0x7F})});
    EXPECT_EQ(guard(), Frames{make_frame(0x705, {0xFF})});
    EXPECT_EQ(guard(), Frames{make_frame(0x705, {0x7F})});
    hear(make_frame(0, {130, 5}));
    EXPECT_EQ(guard(), Frames{make_frame(0x705, {0x7F})});
}

TEST_F(Node, HeartbeatTakesThePlaceOfGuarding) {
    EXPECT_EQ(write(0x1017, 0, 2, 100), 0U);
    EXPECT_TRUE(guard().empty());
    EXPECT_EQ(node.deadline(), 100 * ms);
    EXPECT_TRUE(wait_until(99 * ms).empty());
    EXPECT_EQ(wait_until(100 * ms), Frames{make_frame(0x705, {127})});
    hear(start_all);
    EXPECT_EQ(wait_until(200 * ms), Frames{make_frame(0x705, {5})});
    EXPECT_EQ(write(0x1017, 0, 2, 0), 0U);
    EXPECT_TRUE(wait_until(1000 * ms).empty());
}

TEST_F(Node, AGuardedNodeReportsAMasterThatFellSilent) {
    EXPECT_EQ(write(0x100C, 0, 2, 100), 0U);
    EXPECT_EQ(write(0x100D, 0, 1, 3), 0U);
    hear(start_all);
    EXPECT_TRUE(wait_until(1000 * ms).empty());
    guard();
    EXPECT_TRUE(wait_until(1299 * ms).empty());
    EXPECT_EQ(wait_until(1300 * ms), Frames{make_frame(0x85, {0x30, 0x81, 0x11, 0, 0, 0, 0, 0})});
    EXPECT_EQ(node.state(), NmtState::pre_operational);
    EXPECT_EQ(guard(), (Frames{make_frame(0x705, {0xFF}), make_frame(0x85, {0, 0, 0, 0, 0, 0, 0, 0})}))
        << "the master is there again";
    EXPECT_EQ(guard(), Frames{make_frame(0x705, {0x7F})});
}

TEST_F(Node, TellsItsIdentity) {
    EXPECT_EQ(read(0x1000, 0), 0x000F0191U);
    EXPECT_EQ(read(0x1018, 0), 4U);
    EXPECT_EQ(read(0x1018, 4), 5U);
    EXPECT_EQ(read(0x1200, 1), 0x605U);
    EXPECT_EQ(read(0x1200, 2), 0x585U);
}

TEST_F(Node, AnEmergencySetsTheErrorRegisterAndIsRemembered) {
    const std::array<std::uint8_t, 6> manufacturer{1, 2, 3, 4, 5, 6};
    EXPECT_EQ(frames_of(node.emergency(0x2310, manufacturer, 0)),
              Frames{make_frame(0x85, {0x10, 0x23, 0x03, 1, 2, 3, 4, 5})});
    EXPECT_EQ(frames_of(node.emergency(0xFF00, {}, 0)),
              Frames{make_frame(0x85, {0x00, 0xFF, 0x83, 0, 0, 0, 0, 0})});
    EXPECT_EQ(frames_of(node.emergency(0x6000, {}, 0)),
              Frames{make_frame(0x85, {0x00, 0x60, 0x83, 0, 0, 0, 0, 0})});
    EXPECT_EQ(read(0x1001, 0), 0x83U);
    EXPECT_EQ(read(0x1003, 0), 3U);
    EXPECT_EQ(read(0x1003, 1), 0x6000U);
    EXPECT_EQ(read(0x1003, 3), 0x2310U);
    for (unsigned code = 0x1000; code < 0x1010; ++code) {
        node.emergency(static_cast<std::uint16_t>(code), {}, 0);
    }
    EXPECT_EQ(read(0x1003, 0), 8U);
    EXPECT_EQ(write(0x1003, 0, 1, 1), 0x06090030U);
    EXPECT_EQ(write(0x1003, 0, 1, 0), 0U);
    EXPECT_EQ(read(0x1003, 0), 0U);
    EXPECT_EQ(frames_of(node.emergency(0, {}, 0)), Frames{make_frame(0x85, {0, 0, 0, 0, 0, 0, 0, 0})});
    EXPECT_EQ(read(0x1001, 0), 0U);
}

TEST_F(Node, WritingTheTriggerObjectSendsAnEmergency) {
    const Frames frames = hear(make_frame(0x605, {0x2B, 0x10, 0x20, 0, 0x20, 0x31, 0, 0}));
    EXPECT_EQ(frames, (Frames{make_frame(0x85, {0x20, 0x31, 0x05, 0, 0, 0, 0, 0}),
                              make_frame(0x585, {0x60, 0x10, 0x20, 0, 0, 0, 0, 0})}));
}

TEST_F(Node, RangesAndStatesOfValuesAreWatched) {
    EXPECT_EQ(write(0x2004, 0, 1, 100), 0U);
    EXPECT_EQ(write(0x2004, 0, 1, 101), 0x06090031U);
    EXPECT_EQ(write(0x2004, 0, 1, 9), 0x06090032U);
    EXPECT_EQ(write(0x2005, 0, 2, 1), 0U);
    hear(start_all);
    EXPECT_EQ(write(0x2005, 0, 2, 1), 0x08000022U);
}

TEST_F(Node, SendsItsTpdosAtEachSyncWhenOperational) {
    EXPECT_TRUE(hear(sync_frame).empty());
    hear(start_all);
    node.set_input(2, 0x42, 0);
    EXPECT_EQ(hear(sync_frame),
              (Frames{make_frame(0x185, {0, 0x42, 0, 0}), make_frame(0x285, {0, 0, 0, 0, 0, 0, 0, 0})}));
    hear(make_frame(0, {128, 0}));
    EXPECT_TRUE(hear(sync_frame).empty());
}

TEST_F(Node, SendsACyclicTpdoAtEveryNthSync) {
    EXPECT_EQ(write(0x1800, 2, 1, 3), 0U);
    EXPECT_EQ(write(0x1801, 2, 1, 240), 0U);
    hear(start_all);
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(hear(sync_frame).empty());
        EXPECT_TRUE(hear(sync_frame).empty());
        EXPECT_EQ(hear(sync_frame), Frames{make_frame(0x185, {0, 0, 0, 0})});
    }
}

TEST_F(Node, SendsAnAcyclicTpdoAtTheSyncAfterAChange) {
    EXPECT_EQ(write(0x1800, 2, 1, 0), 0U);
    EXPECT_EQ(write(0x1801, 2, 1, 240), 0U);
    hear(start_all);
    EXPECT_EQ(hear(sync_frame).size(), 1U);
    EXPECT_TRUE(hear(sync_frame).empty());
    EXPECT_TRUE(frames_of(node.set_input(1, 1, 0)).empty());
    EXPECT_EQ(hear(sync_frame), Frames{make_frame(0x185, {1, 0, 0, 0})});
    EXPECT_TRUE(hear(sync_frame).empty());
}

TEST_F(Node, SendsAnEventDrivenTpdoAtTheStartAndAtEachChange) {
    EXPECT_EQ(write(0x1800, 2, 1, 255), 0U);
    EXPECT_EQ(hear(start_all), Frames{make_frame(0x185, {0, 0, 0, 0})});
    EXPECT_EQ(frames_of(node.set_input(4, 9, 0)), Frames{make_frame(0x185, {0, 0, 0, 9})});
    EXPECT_TRUE(frames_of(node.set_input(4, 9, 0)).empty());
}

TEST_F(Node, TheInhibitTimeHoldsAChangeBack) {
    EXPECT_EQ(write(0x1800, 3, 2, 50), 0x08000022U);
    EXPECT_EQ(write(0x1800, 1, 4, 0x80000185), 0U);
    EXPECT_EQ(write(0x1800, 3, 2, 50), 0U);  // 5 ms
    EXPECT_EQ(write(0x1800, 2, 1, 254), 0U);
    EXPECT_EQ(write(0x1800, 1, 4, 0x185), 0U);
    hear(start_all);
    EXPECT_TRUE(frames_of(node.set_input(1, 1, ms)).empty());
    EXPECT_EQ(node.deadline(), 5 * ms);
    EXPECT_EQ(wait_until(5 * ms), Frames{make_frame(0x185, {1, 0, 0, 0})});
}

TEST_F(Node, TheEventTimerSendsWithoutAChange) {
    EXPECT_EQ(write(0x1800, 5, 2, 20), 0U);
    EXPECT_EQ(write(0x1800, 2, 1, 255), 0U);
    hear(start_all);
    EXPECT_EQ(node.deadline(), 20 * ms);
    EXPECT_TRUE(wait_until(19 * ms).empty());
    EXPECT_EQ(wait_until(20 * ms), Frames{make_frame(0x185, {0, 0, 0, 0})});
    EXPECT_EQ(write(0x1800, 5, 2, 40), 0U);
    EXPECT_EQ(node.deadline(), 60 * ms);
}

TEST_F(Node, AnRpdoSetsItsOutputsAtOnceOrAtTheNextSync) {
    hear(start_all);
    hear(make_frame(0x205, {1, 2, 3, 4}));
    EXPECT_EQ(read(0x6200, 3), 3U);
    EXPECT_EQ(read(0x6000, 3), 3U);
    EXPECT_EQ(write(0x1401, 2, 1, 1), 0U);
    hear(make_frame(0x305, {1, 0, 2, 0, 3, 0, 4, 0}));
    EXPECT_EQ(read(0x6411, 2), 0U);
    hear(sync_frame);
    EXPECT_EQ(read(0x6411, 2), 2U);
}

TEST_F(Node, AnRpdoThatIsTooLongCountsByItsMappedBytes) {
    hear(start_all);
    EXPECT_TRUE(hear(make_frame(0x205, {1, 2, 3, 4, 5, 6, 7, 8})).empty());
    EXPECT_EQ(read(0x6200, 4), 4U);
}

TEST_F(Node, AnRpdoThatIsTooShortIsDroppedWithAnEmergency) {
    hear(start_all);
    EXPECT_EQ(hear(make_frame(0x205, {1, 2, 3})),
              Frames{make_frame(0x85, {0x10, 0x82, 0x11, 0, 0, 0, 0, 0})});
    EXPECT_EQ(read(0x6200, 1), 0U);
}

TEST_F(Node, RpdosAreHeardInOperationalOnly) {
    hear(make_frame(0x205, {1, 2, 3, 4}));
    EXPECT_EQ(read(0x6200, 1), 0U);
}

TEST_F(Node, AMappingTakesEffectAsSoonAsItIsWritten) {
    EXPECT_EQ(write(0x1A02, 0, 1, 0), 0U);
    EXPECT_EQ(write(0x1A02, 1, 4, 0x64010210), 0U);
    EXPECT_EQ(write(0x1A02, 2, 4, 0x10010008), 0U);
    EXPECT_EQ(write(0x1A02, 0, 1, 2), 0U);
    EXPECT_EQ(write(0x1802, 2, 1, 1), 0U);
    EXPECT_EQ(write(0x1802, 1, 4, 0x18A), 0U);
    EXPECT_EQ(write(0x6411, 2, 2, 0x1234), 0U);
    hear(start_all);
    const Frames frames = hear(sync_frame);
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(frames[2], make_frame(0x18A, {0x34, 0x12, 0}));
}

TEST_F(Node, AMappingInUseIsNotChanged) {
    EXPECT_EQ(write(0x1A00, 0, 1, 0), 0x08000022U);
    EXPECT_EQ(write(0x1A00, 1, 4, 0x60000208), 0x08000022U);
    EXPECT_EQ(write(0x1800, 1, 4, 0x80000185), 0U);
    EXPECT_EQ(write(0x1A00, 1, 4, 0x60000208), 0x08000022U);
    EXPECT_EQ(write(0x1A00, 0, 1, 0), 0U);
    EXPECT_EQ(write(0x1A00, 1, 4, 0x60000208), 0U);
}

TEST_F(Node, OnlyWhatCanBeMappedIsMapped) {
    EXPECT_EQ(write(0x1A02, 1, 4, 0x50000008), 0x06020000U);
    EXPECT_EQ(write(0x1A02, 1, 4, 0x62000108), 0x06040041U);
    EXPECT_EQ(write(0x1A02, 1, 4, 0x60000110), 0x06040041U);
    EXPECT_EQ(write(0x1602, 1, 4, 0x60000108), 0x06040041U);
    EXPECT_EQ(write(0x1A02, 0, 1, 9), 0x06090031U);
    EXPECT_EQ(write(0x1A02, 0, 1, 1), 0x06020000U);
}

TEST_F(Node, AMappingOfMoreThanEightBytesIsRefused) {
    for (unsigned i = 1; i <= 5; ++i) {
        EXPECT_EQ(write(0x1A02, i, 4, 0x64010010U | (i % 4 + 1) << 8), 0U);
    }
    EXPECT_EQ(write(0x1A02, 0, 1, 5), 0x06040042U);
    EXPECT_EQ(write(0x1A02, 0, 1, 4), 0U);
}

TEST_F(Node, TheNumberOfMappedObjectsMayComeInFourBytes) {
    EXPECT_EQ(write(0x1A02, 1, 4, 0x60000108), 0U);
    EXPECT_EQ(write(0x1A02, 0, 4, 1), 0U);
    EXPECT_EQ(read(0x1A02, 0), 1U);
    EXPECT_EQ(write(0x1A02, 0, 4, 0x101), 0x06090031U);
}

TEST(StrictNode, RefusesALongNumberOfMappedObjects) {
    NodeSettings settings = plain();
    settings.strict_counts = true;
    CanopenNode node(settings);
    node.power_on(0);
    const auto sent = node.receive(make_frame(0x605, {0x23, 0x02, 0x1A, 0, 0, 0, 0, 0}), 0);
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].frame, make_frame(0x585, {0x80, 0x02, 0x1A, 0, 0x12, 0x00, 0x07, 0x06}));
    EXPECT_TRUE(sent[0].answer);
}

TEST_F(Node, IdentifiersAndTypesThatAPdoCannotHaveAreRefused) {
    for (const unsigned identifier :
         {0x20000185U, 0x00000800U, 0U, 0x7FU, 0x80U, 0x101U, 0x581U, 0x67FU, 0x701U}) {
        EXPECT_EQ(write(0x1802, 1, 4, identifier), 0x06090030U) << identifier;
    }
    EXPECT_EQ(write(0x1800, 1, 4, 0x186), 0x06090030U);
    EXPECT_EQ(write(0x1800, 1, 4, 0x40000185), 0U);
    for (const unsigned type : {241U, 252U, 253U}) {
        EXPECT_EQ(write(0x1800, 2, 1, type), 0x06090030U) << type;
    }
}

TEST_F(Node, APdoWithoutMappedObjectsIsNotSent) {
    EXPECT_EQ(write(0x1802, 1, 4, 0x385), 0U);
    for (const CanFrame& frame : hear(start_all)) {
        EXPECT_NE(frame.identifier, 0x385U);
    }
}

TEST(SyncProducer, SendsSyncAndActsOnItItself) {
    NodeSettings settings = plain();
    settings.sync_period_us = 10 * ms;
    settings.self_starting = true;
    CanopenNode node(settings);
    node.power_on(0);
    EXPECT_EQ(node.deadline(), 10 * ms);
    const Frames frames = frames_of(node.advance(10 * ms));
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(frames[0], sync_frame);
    EXPECT_EQ(frames[1].identifier, 0x185U);
    node.receive(make_frame(0, {2, 0}), 11 * ms);
    EXPECT_TRUE(frames_of(node.advance(20 * ms)).empty());
}

TEST_F(Node, LeavesFramesOfOthersAlone) {
    hear(start_all);
    EXPECT_TRUE(hear(make_frame(0x606, {0x40, 0, 0x10, 0, 0, 0, 0, 0})).empty());
    EXPECT_TRUE(hear(make_frame(0x705, {5})).empty());
    EXPECT_TRUE(hear(make_frame(0x123, {1})).empty());
}

TEST_F(Node, ASilentSdoClientGetsAnAbort) {
    hear(make_frame(0x605, {0x40, 0x08, 0x10, 0, 0, 0, 0, 0}));
    ASSERT_TRUE(node.deadline());
    EXPECT_EQ(wait_until(*node.deadline()),
              Frames{make_frame(0x585, {0x80, 0x08, 0x10, 0, 0, 0, 0x04, 0x05})});
}

TEST_F(Node, StoresOnCommandWhatTheNextResetBringsBack) {
    constexpr std::uint64_t save = 0x65766173;
    constexpr std::uint64_t load = 0x64616F6C;
    EXPECT_EQ(read(0x1010, 1), 1U) << "on command";
    write(0x2002, 2, 2, 0x1234);
    write(0x1017, 0, 2, 500);
    EXPECT_EQ(write(0x1010, 1, 4, load), 0x08000020U);
    EXPECT_EQ(write(0x1010, 1, 4, save), 0U);
    write(0x2002, 2, 2, 0x5678);
    hear(make_frame(0, {129, 5}));
    EXPECT_EQ(read(0x2002, 2), 0x1234U);
    EXPECT_EQ(read(0x1017, 0), 500U);

    EXPECT_EQ(write(0x1011, 1, 4, save), 0x08000020U);
    EXPECT_EQ(write(0x1011, 1, 4, load), 0U);
    EXPECT_EQ(read(0x2002, 2), 0x1234U) << "not before the reset";
    hear(make_frame(0, {129, 5}));
    EXPECT_EQ(read(0x2002, 2), 0U);
    EXPECT_EQ(read(0x1017, 0), 0U);
}

TEST_F(Node, StoresTheCommunicationAlone) {
    constexpr std::uint64_t save = 0x65766173;
    write(0x1017, 0, 2, 500);
    write(0x6411, 1, 2, 0x1234);
    EXPECT_EQ(write(0x1010, 2, 4, save), 0U);
    node.power_on(0);
    EXPECT_EQ(read(0x1017, 0), 500U);
    EXPECT_EQ(read(0x6411, 1), 0U);
    write(0x6411, 1, 2, 0x1234);
    EXPECT_EQ(write(0x1010, 3, 4, save), 0U);
    node.power_on(0);
    EXPECT_EQ(read(0x6411, 1), 0x1234U);
}

TEST_F(Node, DoesNotStoreItsErrors) {
    node.emergency(0x1000, {}, 0);
    write(0x1010, 1, 4, 0x65766173);
    node.power_on(0);
    EXPECT_EQ(read(0x1003, 0), 0U);
    EXPECT_EQ(read(0x1001, 0), 0U);
}

TEST_F(Node, ReportsTheLostHeartbeatOfAnotherNodeAndItsReturn) {
    const Frames lost{make_frame(0x85, {0x30, 0x81, 0x11, 0, 0, 0, 0, 0})};
    const CanFrame heartbeat = make_frame(0x77F, {5});
    EXPECT_EQ(write(0x1016, 1, 4, 0x007F0064), 0U);
    hear(start_all);
    EXPECT_TRUE(wait_until(1000 * ms).empty()) << "the time begins with the first heartbeat";
    hear(heartbeat);
    EXPECT_EQ(node.deadline(), 1100 * ms);
    EXPECT_TRUE(wait_until(1099 * ms).empty());
    EXPECT_EQ(wait_until(1100 * ms), lost);
    EXPECT_EQ(node.state(), NmtState::pre_operational);
    EXPECT_TRUE(wait_until(2000 * ms).empty()) << "once";
    EXPECT_EQ(hear(heartbeat), Frames{make_frame(0x85, {0, 0, 0, 0, 0, 0, 0, 0})});
    EXPECT_EQ(wait_until(2100 * ms), lost);
}

TEST_F(Node, ABootUpMessageEndsTheWatchUntilTheNextHeartbeat) {
    EXPECT_EQ(write(0x1016, 1, 4, 0x007F0064), 0U);
    hear(make_frame(0x77F, {5}));
    hear(make_frame(0x77F, {0}));
    EXPECT_EQ(node.deadline(), std::nullopt);
    EXPECT_TRUE(wait_until(1000 * ms).empty());
}

TEST_F(Node, WatchesNoNodeTwiceAndNoUnusedEntry) {
    EXPECT_EQ(write(0x1016, 1, 4, 0x007F0064), 0U);
    EXPECT_EQ(write(0x1016, 2, 4, 0x007F0065), 0x06040043U);
    EXPECT_EQ(write(0x1016, 1, 4, 0x007F0065), 0U) << "its own entry may change";
    EXPECT_EQ(write(0x1016, 2, 4, 0x007F0000), 0U) << "no time, not used";
    EXPECT_EQ(write(0x1016, 3, 4, 0x00000064), 0U);
    EXPECT_EQ(write(0x1016, 4, 4, 0x00000065), 0U);
}
