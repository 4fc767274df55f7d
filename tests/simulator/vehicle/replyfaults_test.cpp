#include "simulator/vehicle/replyfaults.h"

#include <gtest/gtest.h>

#include <numeric>

namespace {

using vehicle_simulator::FaultPlan;
using vehicle_simulator::Piece;
using vehicle_simulator::ReplyFaults;
using vehicle_simulator::ReplyFrame;

ReplyFrame counted_reply() {
    ReplyFrame reply = {};
    std::iota(reply.begin(), reply.end(), std::uint8_t{1});
    return reply;
}

std::vector<std::uint8_t> bytes_of(const std::vector<Piece>& pieces) {
    std::vector<std::uint8_t> all;
    for (const Piece& piece : pieces) {
        all.insert(all.end(), piece.bytes.begin(), piece.bytes.end());
    }
    return all;
}

const std::vector<std::uint8_t> whole = bytes_of(ReplyFaults({}, 0).apply(counted_reply()));

}  // namespace

TEST(ReplyFaults, LeaveTheReplyAloneByDefault) {
    const std::vector<Piece> pieces = ReplyFaults({}, 0).apply(counted_reply());
    ASSERT_EQ(pieces.size(), 1U);
    EXPECT_EQ(pieces[0].after_ms, 0);
    EXPECT_EQ(pieces[0].bytes.size(), 39U);
    EXPECT_EQ(pieces[0].bytes[38], 39);
}

TEST(ReplyFaults, MuteLeavesNothing) {
    EXPECT_TRUE(ReplyFaults({.mute = true}, 0).apply(counted_reply()).empty());
}

TEST(ReplyFaults, CutKeepsTheFirstBytes) {
    const std::vector<Piece> pieces = ReplyFaults({.cut = 2}, 0).apply(counted_reply());
    ASSERT_EQ(pieces.size(), 1U);
    EXPECT_EQ(pieces[0].bytes, (std::vector<std::uint8_t>{1, 2}));
}

TEST(ReplyFaults, CutToNothingSendsNothing) {
    EXPECT_TRUE(ReplyFaults({.cut = 0}, 0).apply(counted_reply()).empty());
}

TEST(ReplyFaults, DelayHoldsTheReplyBack) {
    const std::vector<Piece> pieces = ReplyFaults({.delay_ms = 70}, 0).apply(counted_reply());
    ASSERT_EQ(pieces.size(), 1U);
    EXPECT_EQ(pieces[0], (Piece{.after_ms = 70, .bytes = whole}));
}

TEST(ReplyFaults, GarbageComesAheadOfTheReply) {
    const std::vector<std::uint8_t> bytes = bytes_of(ReplyFaults({.garbage = 5}, 3).apply(counted_reply()));
    ASSERT_EQ(bytes.size(), 44U);
    EXPECT_TRUE(std::equal(whole.begin(), whole.end(), bytes.begin() + 5));
}

TEST(ReplyFaults, GarbageIsTheSameForTheSameSeedOnly) {
    ReplyFaults one({.garbage = 40}, 3);
    ReplyFaults same({.garbage = 40}, 3);
    ReplyFaults other({.garbage = 40}, 4);
    const std::vector<Piece> first = one.apply(counted_reply());
    EXPECT_EQ(first, same.apply(counted_reply()));
    EXPECT_NE(first, other.apply(counted_reply()));
    EXPECT_NE(first, one.apply(counted_reply()));
}

TEST(ReplyFaults, SplitSpreadsTheReplyEvenlyInTime) {
    const std::vector<Piece> pieces =
        ReplyFaults({.delay_ms = 10, .split = 4, .split_pause_ms = 3}, 0).apply(counted_reply());
    ASSERT_EQ(pieces.size(), 4U);
    EXPECT_EQ(bytes_of(pieces), whole);
    for (std::size_t number = 0; number < 4; ++number) {
        EXPECT_EQ(pieces[number].after_ms, 10 + 3 * static_cast<int>(number));
        EXPECT_EQ(pieces[number].bytes.size(), number < 3 ? 10U : 9U);
    }
}

TEST(ReplyFaults, SplitMakesNoEmptyWrites) {
    EXPECT_EQ(ReplyFaults({.cut = 2, .split = 10}, 0).apply(counted_reply()).size(), 2U);
}

TEST(ReplyFaults, EveryHitsOnlyEachNthReply) {
    ReplyFaults faults({.mute = true, .every = 3}, 0);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(bytes_of(faults.apply(counted_reply())), whole);
        EXPECT_EQ(bytes_of(faults.apply(counted_reply())), whole);
        EXPECT_TRUE(faults.apply(counted_reply()).empty());
    }
}

TEST(ReplyFaults, HangUpComesWithTheChosenFrame) {
    const ReplyFaults faults({.hang_up = 3}, 0);
    EXPECT_FALSE(faults.hangs_up(2));
    EXPECT_TRUE(faults.hangs_up(3));
    EXPECT_FALSE(ReplyFaults({}, 0).hangs_up(1000000));
}
