// The thread that reads a bus, over UDP.

#include "tools/frameintake.h"

#include <gtest/gtest.h>

#include "tests/support/candatagram.h"
#include "tests/support/loopbacksocket.h"

using nodevik_tool::Bus;
using nodevik_tool::FrameIntake;

namespace {

// A bus over UDP that a thread reads, and its other end.
class Intake {
public:
    explicit Intake(std::size_t room)
        : bus_(options(), reports_, interrupts_, Bus::Use::listen), intake_(bus_, room) {}

    FrameIntake& intake() { return intake_; }
    void send(unsigned int identifier) const { peer_.send(port_, can_datagram(identifier, "\x01")); }

private:
    nodevik_tool::BusOptions options() {
        {
            const LoopbackSocket probe;
            port_ = probe.port();
        }
        nodevik_tool::BusOptions options;
        options.udp = "127.0.0.1:" + std::to_string(peer_.port()) + "," + std::to_string(port_);
        return options;
    }

    LoopbackSocket peer_;
    unsigned int port_ = 0;
    nodevik_tool::LibraryReports reports_;
    nodevik_tool::Interrupts interrupts_;
    Bus bus_;
    FrameIntake intake_;
};

}  // namespace

TEST(FrameIntake, TellsThatFramesHaveComeAndHandsThemOutOnce) {
    std::vector<unsigned int> identifiers;
    bool is_readable = true;
    std::size_t left = 1;
    {
        Intake bus(100);
        for (unsigned int i = 0; i < 20; ++i) {
            bus.send(0x181 + i);
        }
        while (identifiers.size() < 20 && is_readable) {
            is_readable = wait_readable(bus.intake().descriptor());
            for (const auto& frame : bus.intake().take().frames) {
                identifiers.push_back(frame.identifier);
            }
        }
        bus.intake().stop();
        left = bus.intake().take().frames.size();
    }
    ASSERT_EQ(identifiers.size(), 20U);
    for (unsigned int i = 0; i < 20; ++i) {
        EXPECT_EQ(identifiers[i], 0x181 + i);
    }
    EXPECT_EQ(left, 0U);
}

TEST(FrameIntake, CountsWhatItHasNoRoomFor) {
    std::vector<unsigned int> identifiers;
    std::uint64_t left_out = 0;
    {
        Intake bus(8);
        for (unsigned int i = 0; i < 20; ++i) {
            bus.send(0x181 + i);
        }
        bus.intake().stop();  // what the kernel has is read before
        for (const auto& frame : bus.intake().take().frames) {
            identifiers.push_back(frame.identifier);
        }
        left_out = bus.intake().left_out();
    }
    ASSERT_EQ(identifiers.size(), 8U);
    EXPECT_EQ(identifiers.front(), 0x181U);
    EXPECT_EQ(identifiers.back(), 0x188U);
    EXPECT_EQ(left_out, 12U);
}
