#include "simulator/node/simulatedbus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "simulator/node/nodeconsole.h"

namespace {

using node_simulator::CanFrame;
using node_simulator::FaultSettings;
using node_simulator::from_datagram;
using node_simulator::make_frame;
using node_simulator::NmtState;
using node_simulator::NodeSettings;
using node_simulator::run_console_command;
using node_simulator::SimulatedBus;
using node_simulator::Time;
using node_simulator::to_datagram;

using Frames = std::vector<CanFrame>;

const CanFrame read_device_type = make_frame(0x601, {0x40, 0, 0x10, 0, 0, 0, 0, 0});
const CanFrame device_type = make_frame(0x581, {0x43, 0, 0x10, 0, 0x91, 0x01, 0x0F, 0});
const CanFrame somebody_elses = make_frame(0x582, {0x43, 0x18, 0x10, 4, 2, 0, 0, 0});

// Nodes 1 and 2 with their power on.
class Bus : public testing::Test {
protected:
    Bus() {
        NodeSettings settings;
        for (const int number : {1, 2}) {
            settings.node = static_cast<std::uint8_t>(number);
            bus.add_node(settings);
        }
        bus.power_on(0);
        taken(0);
    }

    Frames taken(Time now) {
        Frames frames;
        while (const std::optional<CanFrame> frame = bus.take(now)) {
            frames.push_back(*frame);
        }
        return frames;
    }

    Frames asked(Time now = 0) {
        bus.receive(read_device_type, now);
        return taken(now);
    }

    void disturb(const FaultSettings& settings) { bus.set_faults(settings); }

    std::string command(const std::string& line) {
        return run_console_command(bus, FaultSettings{}, line, 0);
    }

    SimulatedBus bus;
};

}  // namespace

TEST(CanFrameDatagram, HoldsIdentifierLengthAndData) {
    const CanFrame frame = make_frame(0x605, {0x40, 0x41, 0x60});
    const std::array<std::uint8_t, 16> expected{5, 6, 0, 0, 3, 0, 0, 0, 0x40, 0x41, 0x60, 0, 0, 0, 0, 0};
    EXPECT_EQ(to_datagram(frame), expected);
    EXPECT_EQ(from_datagram(expected), frame);
}

TEST(CanFrameDatagram, TellsAGuardingRequestByItsLength) {
    const CanFrame request = make_frame(0x705, {});
    ASSERT_TRUE(from_datagram(to_datagram(request)));
    EXPECT_TRUE(from_datagram(to_datagram(request))->remote);
    EXPECT_FALSE(from_datagram(to_datagram(make_frame(0x705, {5})))->remote);
    EXPECT_FALSE(from_datagram(to_datagram(make_frame(0x80, {})))->remote);
}

TEST(CanFrameDatagram, IgnoresWhatIsNoFrame) {
    std::array<std::uint8_t, 16> bytes = to_datagram(make_frame(1, {}));
    EXPECT_EQ(from_datagram(std::span(bytes).first(15)), std::nullopt);
    bytes[4] = 9;
    EXPECT_EQ(from_datagram(bytes), std::nullopt);
}

TEST(CanFrameDatagram, BytesPastTheLengthDoNotCount) {
    std::array<std::uint8_t, 16> bytes = to_datagram(make_frame(0x201, {1, 2}));
    bytes[15] = 0xFF;
    EXPECT_EQ(from_datagram(bytes), make_frame(0x201, {1, 2}));
}

TEST_F(Bus, EveryNodeBootsAndHearsTheOutside) {
    bus.receive(make_frame(0, {129, 0}), 0);
    EXPECT_EQ(taken(0), (Frames{make_frame(0x701, {0}), make_frame(0x702, {0})}));
    bus.receive(make_frame(0, {1, 0}), 0);
    EXPECT_EQ(bus.find(1)->state(), NmtState::operational);
    EXPECT_EQ(bus.find(2)->state(), NmtState::operational);
    EXPECT_EQ(bus.find(3), nullptr);
}

TEST_F(Bus, NodesHearEachOther) {
    bus.receive(make_frame(0x602, {0x23, 0x00, 0x14, 1, 0x02, 0x02, 0, 0x80}), 0);
    bus.receive(make_frame(0x602, {0x23, 0x00, 0x14, 1, 0x81, 0x01, 0, 0}), 0);
    bus.receive(make_frame(0, {1, 0}), 0);
    bus.set_input(*bus.find(1), 1, 0x42, 0);
    bus.receive(make_frame(0x80, {}), 0);
    EXPECT_EQ(bus.find(2)->dictionary().at(0x6200, 1).number(), 0x42U);
}

TEST_F(Bus, WithoutFaultsAnswersComeOnceAndAtOnce) {
    EXPECT_EQ(asked(), Frames{device_type});
    EXPECT_EQ(bus.deadline(), std::nullopt);
}

TEST_F(Bus, LostAnswersNeverCome) {
    FaultSettings faults;
    faults.lost = 100;
    faults.most = 2;
    disturb(faults);
    EXPECT_EQ(asked(), Frames{});
    EXPECT_EQ(asked(), Frames{});
    EXPECT_EQ(asked(), Frames{device_type});
}

TEST_F(Bus, LateAnswersComeLaterThanWhatIsSentAfterThem) {
    FaultSettings faults;
    faults.late = 100;
    faults.delay_ms = 20;
    disturb(faults);
    EXPECT_EQ(asked(1000), Frames{});
    EXPECT_EQ(bus.deadline(), 21000U);
    bus.emergency(*bus.find(2), 0x1000, 1000);
    EXPECT_EQ(taken(1000), Frames{make_frame(0x82, {0, 0x10, 1, 0, 0, 0, 0, 0})});
    EXPECT_EQ(taken(20999), Frames{});
    EXPECT_EQ(taken(21000), Frames{device_type});
}

TEST_F(Bus, DuplicatedAnswersComeTwice) {
    FaultSettings faults;
    faults.duplicated = 100;
    disturb(faults);
    EXPECT_EQ(asked(), (Frames{device_type, device_type}));
}

TEST_F(Bus, ForeignAnswersComeFirst) {
    FaultSettings faults;
    faults.foreign = 100;
    disturb(faults);
    EXPECT_EQ(asked(), (Frames{somebody_elses, device_type}));
}

TEST_F(Bus, FaultsLeaveOtherFramesAlone) {
    FaultSettings faults;
    faults.lost = 100;
    disturb(faults);
    bus.receive(make_frame(0, {130, 1}), 0);
    EXPECT_EQ(taken(0), Frames{make_frame(0x701, {0})});
}

TEST_F(Bus, TheSameSeedBringsTheSameFaults) {
    FaultSettings faults;
    faults.lost = 30;
    faults.duplicated = 30;
    faults.seed = 7;
    std::array<std::vector<std::size_t>, 2> counts;
    for (auto& run : counts) {
        disturb(faults);
        for (int i = 0; i < 100; ++i) {
            run.push_back(asked().size());
        }
    }
    EXPECT_EQ(counts[0], counts[1]);
    for (const std::size_t size : {0U, 1U, 2U}) {
        EXPECT_NE(std::count(counts[0].begin(), counts[0].end(), size), 0) << size;
    }
}

TEST_F(Bus, NodesThatAnswerEachOtherWithoutEndLeaveTheOutsideItsTurn) {
    for (const unsigned node : {1U, 2U}) {
        const unsigned other = 3 - node;
        bus.receive(make_frame(0x600 + node, {0x2F, 0x00, 0x18, 2, 255, 0, 0, 0}), 0);
        bus.receive(make_frame(0x600 + node, {0x23, 0x00, 0x14, 1, node, 0x02, 0, 0x80}), 0);
        bus.receive(make_frame(0x600 + node, {0x23, 0x00, 0x14, 1, 0x80 + other, 0x01, 0, 0}), 0);
    }
    bus.receive(make_frame(0, {1, 0}), 0);
    for (int i = 0; i < 10; ++i) {
        bus.set_input(*bus.find(1), 1, static_cast<std::uint8_t>(i), 0);
        bus.set_input(*bus.find(2), 1, static_cast<std::uint8_t>(100 + i), 0);
    }
    bus.advance(1);
    EXPECT_FALSE(taken(1).empty());
}

TEST_F(Bus, ConsoleSwitchesNodesOffAndOn) {
    EXPECT_EQ(command("off 1"), "ok");
    EXPECT_EQ(asked(), Frames{});
    EXPECT_EQ(command("  on  1 "), "ok");
    EXPECT_EQ(taken(0), Frames{make_frame(0x701, {0})});
}

TEST_F(Bus, ConsoleSendsEmergencies) {
    EXPECT_EQ(command("emergency 2 0x8130"), "ok");
    EXPECT_EQ(taken(0), Frames{make_frame(0x82, {0x30, 0x81, 0x11, 0, 0, 0, 0, 0})});
    EXPECT_EQ(command("emergency 2 0x10000"), "error: an error code has 16 bits");
}

TEST_F(Bus, ConsoleSetsInputs) {
    EXPECT_EQ(command("input 1 4 255"), "ok");
    EXPECT_EQ(bus.find(1)->dictionary().at(0x6000, 4).number(), 255U);
    EXPECT_EQ(command("input 1 5 0"), "error: a channel is 1 to 4, its value 0 to 255");
    EXPECT_EQ(command("input 1 0 0"), "error: a channel is 1 to 4, its value 0 to 255");
    EXPECT_EQ(command("input 1 1 256"), "error: a channel is 1 to 4, its value 0 to 255");
}

TEST_F(Bus, ConsoleReplacesFaults) {
    EXPECT_EQ(command("faults 100 0 0 0 1"), "ok");
    EXPECT_EQ(asked(), Frames{});
    EXPECT_EQ(asked(), Frames{device_type});
    EXPECT_EQ(command("faults 0 0 100 0"), "ok");
    EXPECT_EQ(asked(), (Frames{device_type, device_type}));
    EXPECT_EQ(command("faults 0 0 101 0"), "error: faults are percentages, 0 to 100");
}

TEST_F(Bus, ConsoleTellsWhatIsWrong) {
    EXPECT_EQ(command(""), "");
    EXPECT_EQ(command("dance"), "error: unknown command 'dance'");
    EXPECT_EQ(command("off"), "error: wrong numbers after 'off'");
    EXPECT_EQ(command("off 1 2"), "error: wrong numbers after 'off'");
    EXPECT_EQ(command("off one"), "error: wrong numbers after 'off'");
    EXPECT_EQ(command("off 0x"), "error: wrong numbers after 'off'");
    EXPECT_EQ(command("off 9"), "error: no node 9");
}

TEST_F(Bus, UnheardRequestsGetNoAnswer) {
    FaultSettings faults;
    faults.unheard = 100;
    faults.most = 1;
    disturb(faults);
    EXPECT_EQ(asked(), Frames{});
    EXPECT_EQ(asked(), Frames{device_type});
}

TEST_F(Bus, UnheardRequestsAreNoCommands) {
    FaultSettings faults;
    faults.unheard = 100;
    disturb(faults);
    bus.receive(make_frame(0, {1, 0}), 0);
    EXPECT_EQ(bus.find(1)->state(), NmtState::operational);
}

TEST_F(Bus, FaultsOfAServerStrikeItsNodeAlone) {
    FaultSettings faults;
    EXPECT_EQ(run_console_command(bus, faults, "transfer-faults 1 100 0 0 1", 0), "ok");
    const auto first_segment_of = [this](std::uint32_t node) {
        bus.receive(make_frame(0x600 + node, {0x40, 0x00, 0x20, 0, 0, 0, 0, 0}), 0);
        bus.receive(make_frame(0x600 + node, {0x60, 0, 0, 0, 0, 0, 0, 0}), 0);
        return taken(0).back().data[0];
    };
    EXPECT_EQ(first_segment_of(2), 0x00);
    EXPECT_EQ(first_segment_of(1), 0x10);
    EXPECT_EQ(first_segment_of(1), 0x00);
    EXPECT_EQ(run_console_command(bus, faults, "transfer-faults 1 101 0 0", 0),
              "error: faults are percentages, 0 to 100");
    EXPECT_EQ(run_console_command(bus, faults, "transfer-faults 3 0 0 0", 0), "error: no node 3");
}

namespace {

// A device without a node number, serial number 1001.
class UnconfiguredDevice : public testing::Test {
protected:
    UnconfiguredDevice() {
        NodeSettings settings;
        settings.node = 0;
        settings.serial = 1001;
        bus.add_node(settings);
        bus.power_on(0);
    }

    Frames hear(std::uint32_t identifier, std::initializer_list<unsigned> bytes, Time now = 0) {
        CanFrame frame = make_frame(identifier, bytes);
        frame.length = identifier == 0 ? 2 : 8;
        bus.receive(frame, now);
        Frames frames;
        while (const std::optional<CanFrame> next = bus.take(now)) {
            frames.push_back(*next);
        }
        return frames;
    }

    // Gives it a number, by LSS.
    Frames configure(unsigned node) {
        hear(0x7E5, {0x04, 1});
        hear(0x7E5, {0x11, node});
        return hear(0x7E5, {0x04, 0});
    }

    SimulatedBus bus;
};

}  // namespace

TEST_F(UnconfiguredDevice, IsSilentUntilItHasANumber) {
    EXPECT_EQ(bus.take(0), std::nullopt);
    EXPECT_EQ(bus.deadline(), std::nullopt);
    EXPECT_EQ(hear(0x601, {0x40, 0, 0x10, 0}), Frames{});
    EXPECT_EQ(hear(0, {129, 0}), Frames{});
    EXPECT_EQ(hear(0x7E5, {0x4C}), Frames{make_frame(0x7E4, {0x50, 0, 0, 0, 0, 0, 0, 0})});
}

TEST_F(UnconfiguredDevice, BootsWithTheNumberThatItIsGiven) {
    EXPECT_EQ(configure(5), Frames{make_frame(0x705, {0})});
    EXPECT_EQ(hear(0x605, {0x40, 0x18, 0x10, 4}),
              Frames{make_frame(0x585, {0x43, 0x18, 0x10, 4, 0xE9, 0x03, 0, 0})});
    EXPECT_EQ(hear(0x7E5, {0x4C}), Frames{});
}

TEST_F(UnconfiguredDevice, GetsAnotherNumberWithAReset) {
    configure(5);
    EXPECT_EQ(configure(6), Frames{});
    EXPECT_NE(bus.find(5), nullptr);
    EXPECT_EQ(hear(0, {130, 5}), Frames{make_frame(0x706, {0})});
    EXPECT_EQ(bus.find(5), nullptr);
    EXPECT_EQ(hear(0x606, {0x40, 0x18, 0x10, 4}),
              Frames{make_frame(0x586, {0x43, 0x18, 0x10, 4, 0xE9, 0x03, 0, 0})});
}

TEST_F(UnconfiguredDevice, ForgetsWithoutPowerWhatIsNotStored) {
    configure(5);
    bus.power_off(*bus.find(5));
    bus.power_on(0);
    EXPECT_EQ(bus.find(5), nullptr);
    configure(5);
    hear(0x7E5, {0x04, 1});
    hear(0x7E5, {0x17});
    bus.power_off(*bus.find(5));
    bus.power_on(0);
    EXPECT_NE(bus.find(5), nullptr);
}

TEST_F(UnconfiguredDevice, IsSilentWhileTheBitTimingChanges) {
    configure(5);
    hear(0x7E5, {0x04, 1});
    hear(0x7E5, {0x15, 10, 0}, 1000);
    EXPECT_EQ(hear(0x605, {0x40, 0, 0x10, 0}, 20'999), Frames{});
    EXPECT_EQ(hear(0x605, {0x40, 0, 0x10, 0}, 21'000).size(), 1U);
}
