#include "simulator/node/lssslave.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <optional>

namespace {

using node_simulator::CanFrame;
using node_simulator::load_le;
using node_simulator::LssIdentity;
using node_simulator::LssSlave;
using node_simulator::make_frame;
using node_simulator::no_node;

using Answer = std::optional<CanFrame>;

constexpr LssIdentity identity{0x000001F1, 0x00000401, 0x00010002, 0x000003E9};

Answer answer(std::initializer_list<unsigned> bytes) {
    CanFrame frame = make_frame(0x7E4, bytes);
    frame.length = 8;
    return frame;
}

class Lss : public testing::Test {
protected:
    Answer ask(std::initializer_list<unsigned> bytes) {
        CanFrame request = make_frame(0x7E5, bytes);
        request.length = 8;
        return slave.hear(request, 0);
    }

    Answer ask_number(unsigned command, std::uint32_t number) {
        return ask({command, number & 0xFF, number >> 8 & 0xFF, number >> 16 & 0xFF, number >> 24});
    }

    Answer scan(std::uint32_t number, unsigned bit, unsigned part, unsigned next) {
        return ask(
            {0x51, number & 0xFF, number >> 8 & 0xFF, number >> 16 & 0xFF, number >> 24, bit, part, next});
    }

    // The four frames that select a slave; the last answer.
    Answer select(const LssIdentity& wanted) {
        for (unsigned part = 0; part < 3; ++part) {
            EXPECT_EQ(ask_number(0x40 + part, wanted[part]), Answer{});
        }
        return ask_number(0x43, wanted[3]);
    }

    Answer identify(std::initializer_list<std::uint32_t> bounds) {
        Answer last;
        unsigned command = 0x46;
        for (const std::uint32_t bound : bounds) {
            EXPECT_EQ(last, Answer{});
            last = ask_number(command++, bound);
        }
        return last;
    }

    void configure() { ask({0x04, 1}); }

    LssSlave slave{identity, no_node};
};

}  // namespace

TEST_F(Lss, IsSwitchedByItsIdentity) {
    EXPECT_EQ(ask({0x5E}), Answer{});
    EXPECT_EQ(select(identity), answer({0x44}));
    EXPECT_EQ(ask({0x5E}), answer({0x5E, 0xFF}));
}

TEST_F(Lss, IsNotSwitchedByAnotherIdentity) {
    for (unsigned part = 0; part < 4; ++part) {
        LssIdentity other = identity;
        ++other[part];
        EXPECT_EQ(select(other), Answer{}) << part;
        EXPECT_EQ(ask({0x5E}), Answer{}) << part;
    }
}

TEST_F(Lss, AFrameInBetweenEndsTheSelection) {
    ask_number(0x40, identity[0]);
    ask_number(0x41, identity[1]);
    ask({0x4C});
    ask_number(0x42, identity[2]);
    EXPECT_EQ(ask_number(0x43, identity[3]), Answer{});
}

TEST_F(Lss, ASelectionOrIdentificationThatBrokeOffMayBeginAgain) {
    ask_number(0x40, identity[0]);
    ask_number(0x41, identity[1]);
    EXPECT_EQ(select(identity), answer({0x44}));
    ask({0x04, 0});
    ask_number(0x46, identity[0]);
    EXPECT_EQ(identify({identity[0], identity[1], 0, 0xFFFFFFFF, 0, 0xFFFFFFFF}), answer({0x4F}));
}

TEST_F(Lss, IsSwitchedTogetherWithAllOthers) {
    configure();
    EXPECT_EQ(ask({0x5E}), answer({0x5E, 0xFF}));
    EXPECT_EQ(ask({0x04, 0}), Answer{});
    EXPECT_EQ(ask({0x5E}), Answer{});
}

TEST_F(Lss, TellsItsIdentityInConfiguration) {
    EXPECT_EQ(ask({0x5A}), Answer{});
    configure();
    EXPECT_EQ(ask({0x5A}), answer({0x5A, 0xF1, 0x01, 0x00, 0x00}));
    EXPECT_EQ(ask({0x5B}), answer({0x5B, 0x01, 0x04, 0x00, 0x00}));
    EXPECT_EQ(ask({0x5C}), answer({0x5C, 0x02, 0x00, 0x01, 0x00}));
    EXPECT_EQ(ask({0x5D}), answer({0x5D, 0xE9, 0x03, 0x00, 0x00}));
}

TEST_F(Lss, TakesANodeNumberAndBeginsWithItWhenSentWaiting) {
    EXPECT_EQ(ask({0x11, 5}), Answer{});
    configure();
    EXPECT_EQ(ask({0x11, 5}), answer({0x11, 0}));
    EXPECT_EQ(slave.active(), no_node);
    EXPECT_EQ(slave.pending(), 5);
    EXPECT_FALSE(slave.wants_to_start());
    ask({0x04, 0});
    EXPECT_TRUE(slave.wants_to_start());
    slave.reset_communication();
    EXPECT_EQ(slave.active(), 5);
    EXPECT_FALSE(slave.wants_to_start());
}

TEST_F(Lss, RefusesANodeNumberOutOfRange) {
    configure();
    for (const unsigned node : {0U, 128U, 254U}) {
        EXPECT_EQ(ask({0x11, node}), answer({0x11, 1})) << node;
    }
    EXPECT_EQ(slave.pending(), no_node);
    EXPECT_EQ(ask({0x11, 127}), answer({0x11, 0}));
    EXPECT_EQ(ask({0x11, 0xFF}), answer({0x11, 0}));
    EXPECT_EQ(slave.pending(), no_node);
}

TEST_F(Lss, WithANumberANewOneWaitsForAReset) {
    LssSlave node(identity, 9);
    CanFrame request = make_frame(0x7E5, {0x04, 1, 0, 0, 0, 0, 0, 0});
    node.hear(request, 0);
    request.data = {0x11, 5};
    node.hear(request, 0);
    request.data = {0x04, 0};
    node.hear(request, 0);
    EXPECT_FALSE(node.wants_to_start());
    EXPECT_EQ(node.active(), 9);
    node.reset_communication();
    EXPECT_EQ(node.active(), 5);
}

TEST_F(Lss, OnlyAStoredNumberOutlivesThePower) {
    configure();
    ask({0x11, 5});
    slave.power_on();
    EXPECT_EQ(slave.pending(), no_node);
    configure();
    ask({0x11, 5});
    EXPECT_EQ(ask({0x17}), answer({0x17, 0}));
    slave.power_on();
    EXPECT_EQ(slave.active(), 5);
    EXPECT_EQ(ask({0x5E}), Answer{}) << "waits after power-on";
}

TEST_F(Lss, KnowsTheBitTimingsOfTheStandardTable) {
    configure();
    for (unsigned index = 0; index <= 9; ++index) {
        const unsigned refused = index == 5 || index == 9 ? 1 : 0;
        EXPECT_EQ(ask({0x13, 0, index}), answer({0x13, refused})) << index;
    }
    EXPECT_EQ(ask({0x13, 1, 0}), answer({0x13, 1}));
}

TEST_F(Lss, IsSilentWhileTheBitTimingChanges) {
    EXPECT_EQ(ask({0x15, 0xE8, 0x03}), Answer{});
    EXPECT_EQ(slave.silent_until(), 0U) << "not while it waits";
    configure();
    EXPECT_EQ(ask({0x15, 0xE8, 0x03}), Answer{});
    EXPECT_EQ(slave.silent_until(), 2'000'000U);
}

TEST_F(Lss, IsIdentifiedWithinInclusiveBounds) {
    EXPECT_EQ(identify({0x1F1, 0x401, 0x10000, 0x1FFFF, 0x3E8, 0x3EA}), answer({0x4F}));
    EXPECT_EQ(identify({0x1F1, 0x401, 0x10002, 0x10002, 0x3E9, 0x3E9}), answer({0x4F}));
    EXPECT_EQ(identify({0x1F2, 0x401, 0x10000, 0x1FFFF, 0x3E8, 0x3EA}), Answer{});
    EXPECT_EQ(identify({0x1F1, 0x402, 0x10000, 0x1FFFF, 0x3E8, 0x3EA}), Answer{});
    EXPECT_EQ(identify({0x1F1, 0x401, 0x10003, 0x1FFFF, 0x3E8, 0x3EA}), Answer{});
    EXPECT_EQ(identify({0x1F1, 0x401, 0x10000, 0x10001, 0x3E8, 0x3EA}), Answer{});
    EXPECT_EQ(identify({0x1F1, 0x401, 0x10000, 0x1FFFF, 0x3EA, 0x3EB}), Answer{});
    EXPECT_EQ(identify({0x1F1, 0x401, 0x10000, 0x1FFFF, 0x3E7, 0x3E8}), Answer{});
    configure();
    EXPECT_EQ(identify({0x1F1, 0x401, 0x10000, 0x1FFFF, 0x3E8, 0x3EA}), answer({0x4F}))
        << "in configuration, too";
}

TEST_F(Lss, TellsThatItHasNoNumber) {
    EXPECT_EQ(ask({0x4C}), answer({0x50}));
    configure();
    ask({0x11, 5});
    ask({0x04, 0});
    slave.reset_communication();
    EXPECT_EQ(ask({0x4C}), Answer{});
}

TEST_F(Lss, FastscanFindsTheIdentityBitByBit) {
    ASSERT_EQ(scan(0, 0x80, 0, 0), answer({0x4F}));
    LssIdentity found{};
    for (unsigned part = 0; part < 4; ++part) {
        for (unsigned bit = 32; bit-- > 0;) {
            if (!scan(found[part], bit, part, part)) {
                found[part] |= 1U << bit;
            }
        }
        EXPECT_EQ(ask({0x5E}), Answer{}) << "still waiting";
        EXPECT_EQ(scan(found[part], 0, part, (part + 1) & 3), answer({0x4F})) << part;
    }
    EXPECT_EQ(found, identity);
    EXPECT_EQ(ask({0x5E}), answer({0x5E, 0xFF})) << "in configuration";
    EXPECT_EQ(scan(0, 0x80, 0, 0), Answer{}) << "no more while it is";
}

TEST_F(Lss, FastscanOfTheVendorAsInTheStandardsExample) {
    scan(0, 0x80, 0, 0);
    EXPECT_EQ(scan(0x000, 8, 0, 0), Answer{});
    EXPECT_EQ(scan(0x100, 7, 0, 0), Answer{});
    EXPECT_EQ(scan(0x180, 6, 0, 0), Answer{});
    EXPECT_EQ(scan(0x1C0, 5, 0, 0), Answer{});
    EXPECT_EQ(scan(0x1E0, 4, 0, 0), Answer{});
    EXPECT_EQ(scan(0x1F0, 3, 0, 0), answer({0x4F}));
    EXPECT_EQ(scan(0x1F0, 2, 0, 0), answer({0x4F}));
    EXPECT_EQ(scan(0x1F0, 1, 0, 0), answer({0x4F}));
    EXPECT_EQ(scan(0x1F0, 0, 0, 0), Answer{});
    EXPECT_EQ(scan(0x1F1, 0, 0, 1), answer({0x4F}));
    EXPECT_EQ(scan(0, 0x1F, 1, 1), answer({0x4F}));
    EXPECT_EQ(scan(0x1F1, 0, 0, 1), Answer{}) << "it has gone on to the product";
}

TEST_F(Lss, FastscanIsOnlyForThoseWithoutANumber) {
    LssSlave node(identity, 9);
    EXPECT_EQ(node.hear(make_frame(0x7E5, {0x51, 0, 0, 0, 0, 0x80, 0, 0}), 0), Answer{});
}

TEST_F(Lss, FastscanPassesOverWhatTheStandardDoesNotKnow) {
    scan(0, 0x80, 0, 0);
    EXPECT_EQ(scan(0, 32, 0, 0), Answer{});
    EXPECT_EQ(scan(identity[0], 0, 4, 0), Answer{});
    EXPECT_EQ(scan(identity[0], 0, 0, 4), Answer{});
}

TEST_F(Lss, PassesOverFramesOfAnotherLength) {
    EXPECT_EQ(slave.hear(make_frame(0x7E5, {0x4C, 0, 0, 0, 0, 0, 0}), 0), Answer{});
}
