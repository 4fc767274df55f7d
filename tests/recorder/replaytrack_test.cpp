#include "recorder/replaytrack.h"

#include <gtest/gtest.h>

#include <vector>

namespace vehicle_recorder {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t ms = 1000;
const Bytes frame = {0, 103, 110, 'P'};

class Track : public testing::Test {
protected:
    void add(std::uint64_t time_us, EntryKind kind, Bytes bytes = {}) {
        track.add({.time_us = time_us, .kind = kind, .bytes = std::move(bytes), .settings = {}, .text = {}});
    }

    Bytes read_after(std::uint64_t time_us) const {
        const auto bytes = track.read_after(time_us);
        return {bytes.begin(), bytes.end()};
    }

    ReplayTrack track;
};

TEST_F(Track, FrameIsFollowedByWhatWasReadBehindIt) {
    add(0, EntryKind::open);
    add(100 * ms, EntryKind::sent, frame);
    add(110 * ms, EntryKind::received, {1, 2});
    add(120 * ms, EntryKind::received, {3});
    add(300 * ms, EntryKind::sent, frame);
    add(310 * ms, EntryKind::received, {4});
    add(500 * ms, EntryKind::close);
    add(600 * ms, EntryKind::end);
    track.finish();
    EXPECT_EQ(track.frames(), 2U);
    EXPECT_EQ(track.begin_us(), 100 * ms);
    EXPECT_EQ(track.end_us(), 600 * ms);
    EXPECT_EQ(read_after(99 * ms), Bytes());
    EXPECT_EQ(read_after(100 * ms), (Bytes{1, 2, 3}));
    EXPECT_EQ(read_after(299 * ms), (Bytes{1, 2, 3}));
    EXPECT_EQ(read_after(300 * ms), Bytes{4});
    EXPECT_EQ(read_after(499 * ms), Bytes{4});
    EXPECT_EQ(read_after(500 * ms), Bytes());
    EXPECT_EQ(read_after(9999 * ms), Bytes());
}

TEST_F(Track, ReadIsTenMillisecondsAheadOfTheFrame) {
    add(100 * ms, EntryKind::sent, frame);
    add(290 * ms, EntryKind::received, {1});
    add(290 * ms + 1, EntryKind::received, {2});
    add(300 * ms, EntryKind::sent, frame);
    add(500 * ms, EntryKind::end);
    track.finish();
    EXPECT_EQ(read_after(100 * ms), Bytes{1});
    EXPECT_EQ(read_after(300 * ms), Bytes{2});
}

TEST_F(Track, LateReplyIsReadBehindTheNextFrame) {
    add(100 * ms, EntryKind::sent, frame);
    add(300 * ms, EntryKind::sent, frame);
    add(310 * ms, EntryKind::received, {1});
    add(310 * ms, EntryKind::received, {2});
    add(500 * ms, EntryKind::sent, frame);
    track.finish();
    EXPECT_EQ(read_after(200 * ms), Bytes());
    EXPECT_EQ(read_after(300 * ms), (Bytes{1, 2}));
}

TEST_F(Track, EachOpeningBeginsAnew) {
    add(100 * ms, EntryKind::sent, {0, 103});
    add(110 * ms, EntryKind::received, {9});
    add(200 * ms, EntryKind::close);
    add(300 * ms, EntryKind::open);
    add(310 * ms, EntryKind::received, {8});
    add(400 * ms, EntryKind::sent, frame);
    add(410 * ms, EntryKind::received, {7});
    add(500 * ms, EntryKind::end);
    track.finish();
    EXPECT_EQ(track.frames(), 1U);
    EXPECT_EQ(read_after(350 * ms), Bytes());
    EXPECT_EQ(read_after(450 * ms), Bytes{7});
}

TEST_F(Track, FramesMayComeInPieces) {
    add(100 * ms, EntryKind::sent, {0, 103, 110});
    add(101 * ms, EntryKind::sent, {'P', 0, 103, 110, 'P'});
    track.finish();
    EXPECT_EQ(track.frames(), 2U);
    EXPECT_EQ(track.begin_us(), 101 * ms);
}

TEST_F(Track, WithoutFramesThereIsNothingToRead) {
    add(0, EntryKind::received, {1});
    track.finish();
    EXPECT_EQ(track.frames(), 0U);
    EXPECT_EQ(track.begin_us(), 0U);
    EXPECT_EQ(read_after(0), Bytes());
}

TEST(ReplayClock, StandsUntilItRuns) {
    ReplayClock clock(100, 1000);
    EXPECT_FALSE(clock.runs());
    EXPECT_EQ(clock.position_us(5000), 100U);
    clock.run(5000);
    EXPECT_TRUE(clock.runs());
    EXPECT_EQ(clock.position_us(5000), 100U);
    EXPECT_EQ(clock.position_us(5300), 400U);
    EXPECT_EQ(clock.position_us(99999), 1000U);
}

TEST(ReplayClock, PausesAndGoesOn) {
    ReplayClock clock(0, 1000);
    clock.run(0);
    clock.pause(300);
    EXPECT_FALSE(clock.runs());
    EXPECT_EQ(clock.position_us(800), 300U);
    clock.run(800);
    clock.run(850);
    EXPECT_EQ(clock.position_us(900), 400U);
}

TEST(ReplayClock, SpeedCountsFromItsChangeOn) {
    ReplayClock clock(0, 10000);
    clock.run(0);
    clock.set_speed(1000, 2);
    EXPECT_EQ(clock.position_us(1000), 1000U);
    EXPECT_EQ(clock.position_us(2000), 3000U);
    clock.set_speed(2000, 0.5);
    EXPECT_EQ(clock.position_us(3000), 3500U);
    clock.set_speed(3000, 1000);
    EXPECT_EQ(clock.speed(), ReplayClock::fastest);
    clock.set_speed(3000, 0);
    EXPECT_EQ(clock.speed(), ReplayClock::slowest);
}

TEST(ReplayClock, SeeksWithinBeginningAndEnd) {
    ReplayClock clock(100, 1000);
    clock.run(0);
    clock.seek(200, 400);
    EXPECT_EQ(clock.position_us(200), 700U);
    EXPECT_EQ(clock.position_us(250), 750U);
    clock.seek(250, -10000);
    EXPECT_EQ(clock.position_us(250), 100U);
    clock.seek(250, 10000);
    EXPECT_EQ(clock.position_us(250), 1000U);
    clock.pause(250);
    clock.seek(300, -100);
    EXPECT_EQ(clock.position_us(9999), 900U);
}

}  // namespace
}  // namespace vehicle_recorder
