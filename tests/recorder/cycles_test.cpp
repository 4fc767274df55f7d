#include "recorder/cycles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "simulator/vehicle/replyfaults.h"
#include "simulator/vehicle/vehicleprotocol.h"

namespace vehicle_recorder {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t ms = 1000;
constexpr std::uint64_t period_us = 100 * ms;

// A recording that is made of what a vehicle's line carries.
class Line {
public:
    explicit Line(std::uint64_t period = period_us) : period_us_(period) { add(0, EntryKind::open); }

    // Sends the frame of a number, from 0 on, at its time.
    void frame(std::uint64_t number, Bytes bytes = {0, 103, 110, 'P'}) {
        add(time_of(number), EntryKind::sent, std::move(bytes));
    }

    // Bytes from the vehicle, so long after the frame of a number.
    void reply(std::uint64_t number, const Bytes& bytes, std::uint64_t after_us = ms) {
        add(time_of(number) + after_us, EntryKind::received, bytes);
    }

    // So many frames from a number on, each answered.
    void answered(std::uint64_t first, std::uint64_t count);

    void close(std::uint64_t number) { add(time_of(number), EntryKind::close); }
    void open(std::uint64_t number) { add(time_of(number), EntryKind::open); }

    std::vector<Cycle> cycles() const {
        std::vector<Cycle> cycles;
        CycleBuilder builder([&cycles](const Cycle& cycle) { cycles.push_back(cycle); });
        for (const Entry& entry : entries_) {
            builder.add(entry);
        }
        builder.finish();
        return cycles;
    }

    std::uint64_t time_of(std::uint64_t number) const { return (number + 1) * period_us_; }

    std::size_t received_bytes() const {
        std::size_t bytes = 0;
        for (const Entry& entry : entries_) {
            bytes += entry.kind == EntryKind::received ? entry.bytes.size() : 0;
        }
        return bytes;
    }

    void add(std::uint64_t time_us, EntryKind kind, Bytes bytes = {}) {
        entries_.push_back(
            {.time_us = time_us, .kind = kind, .bytes = std::move(bytes), .settings = {}, .text = {}});
    }

private:
    std::uint64_t period_us_;
    std::vector<Entry> entries_;
};

// The reply of a controller that marks its slots, with a voltage to know it by.
Bytes marked_reply(std::uint64_t voltage = 0) {
    const vehicle_simulator::ReplyFrame reply =
        vehicle_simulator::encode_reply({.speed_rpm = 0,
                                         .voltage_dv = static_cast<std::uint16_t>(voltage),
                                         .current_da = 0,
                                         .capacity_ah = 0,
                                         .latitude_e7 = 0,
                                         .ground_speed_dm_per_s = 0});
    return {reply.begin(), reply.end()};
}

// The reply of a controller that leaves the rest of its slots empty.
Bytes plain_reply(std::uint8_t voltage) {
    Bytes bytes(vehicle::reply_bytes);
    bytes[9] = voltage;
    return bytes;
}

Bytes first(const Bytes& bytes, std::size_t count) {
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

Bytes last(const Bytes& bytes, std::size_t count) {
    return {bytes.end() - static_cast<std::ptrdiff_t>(count), bytes.end()};
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

void Line::answered(std::uint64_t first_number, std::uint64_t count) {
    for (std::uint64_t number = first_number; number < first_number + count; number++) {
        frame(number);
        reply(number, marked_reply(number));
    }
}

const Bytes noise = {0x11, 0x22, 0x33, 0x44, 0x55};

// The state of each cycle in a letter: whole, short, garbled, missing, closed; capital when late, ' for a stray.
std::string told(const std::vector<Cycle>& cycles) {
    std::string text;
    for (const Cycle& cycle : cycles) {
        const char letter = std::string("wsgmc")[static_cast<std::size_t>(cycle.state)];
        text += cycle.late ? static_cast<char>(letter - 'a' + 'A') : letter;
        text += cycle.number == 0 ? "'" : "";
    }
    return text;
}

// The same behind as many whole replies as it takes to know the mark.
std::string told_behind_mark(const std::vector<Cycle>& cycles) {
    return told(cycles).substr(ReplyMarkLearner::replies);
}

constexpr std::uint64_t n = ReplyMarkLearner::replies;

class MarkedLine : public testing::Test {
protected:
    MarkedLine() { line.answered(0, n); }

    Line line;
};

TEST(Cycles, AreFrameAndReply) {
    Line line;
    line.frame(0, {1, 2, 3, 'Q'});
    line.reply(0, plain_reply(7), 12 * ms);
    line.frame(1);
    line.reply(1, plain_reply(8), 13 * ms);
    const std::vector<Cycle> cycles = line.cycles();
    ASSERT_EQ(told(cycles), "ww");
    EXPECT_EQ(cycles[0].number, 1U);
    EXPECT_EQ(cycles[0].time_us, period_us);
    EXPECT_EQ(cycles[0].frame, (vehicle::FrameBytes{1, 2, 3, 'Q'}));
    EXPECT_FALSE(cycles[0].step_lost);
    EXPECT_EQ(cycles[0].since_us, std::nullopt);
    EXPECT_EQ(cycles[0].delay_us(), 12 * ms);
    EXPECT_EQ(cycles[0].reply->bytes, plain_reply(7));
    EXPECT_EQ(cycles[0].reply->telemetry()->voltage, 7);
    EXPECT_EQ(cycles[1].since_us, period_us);
    EXPECT_EQ(cycles[1].reply->telemetry()->voltage, 8);
}

TEST(Cycles, ReplyInPiecesHasItsFirstAndLastTime) {
    Line line;
    line.frame(0);
    const Bytes reply = plain_reply(7);
    line.reply(0, first(reply, 16), 12 * ms);
    line.reply(0, last(reply, 23), 20 * ms);
    line.frame(1);
    const std::vector<Cycle> cycles = line.cycles();
    ASSERT_EQ(told(cycles), "wc");
    EXPECT_EQ(cycles[0].reply->first_us, period_us + 12 * ms);
    EXPECT_EQ(cycles[0].reply->last_us, period_us + 20 * ms);
    EXPECT_EQ(cycles[0].reply->bytes, reply);
}

TEST(Cycles, FramesAreCountedOffHoweverTheirBytesCome) {
    Line line;
    line.add(period_us, EntryKind::sent, {1, 103});
    line.add(period_us + 5, EntryKind::sent, {110, 'P', 2, 103, 110, 'Q'});
    const std::vector<Cycle> cycles = line.cycles();
    ASSERT_EQ(cycles.size(), 2U);
    EXPECT_EQ(cycles[0].frame, (vehicle::FrameBytes{1, 103, 110, 'P'}));
    EXPECT_EQ(cycles[0].time_us, period_us + 5);
    EXPECT_EQ(cycles[1].frame, (vehicle::FrameBytes{2, 103, 110, 'Q'}));
}

TEST(Cycles, LostStepOfFramesIsToldAndCountingGoesOnAsTheControllerDoes) {
    Line line;
    line.frame(0);
    line.frame(1, {0, 103});
    line.frame(2);
    line.frame(3);
    const std::vector<Cycle> cycles = line.cycles();
    ASSERT_EQ(cycles.size(), 3U);
    EXPECT_FALSE(cycles[0].step_lost);
    EXPECT_TRUE(cycles[1].step_lost);
    EXPECT_EQ(cycles[1].frame, (vehicle::FrameBytes{0, 103, 0, 103}));
    EXPECT_TRUE(cycles[2].step_lost);
}

TEST(Cycles, CountingBeginsAnewWithEachOpening) {
    Line line;
    line.frame(0, {0, 103});
    line.close(1);
    line.open(2);
    line.frame(3);
    const std::vector<Cycle> cycles = line.cycles();
    ASSERT_EQ(cycles.size(), 1U);
    EXPECT_FALSE(cycles[0].step_lost);
    EXPECT_EQ(cycles[0].since_us, std::nullopt);
}

TEST(Cycles, WithoutAnyThereAreNone) {
    EXPECT_EQ(told(Line().cycles()), "");
}

TEST_F(MarkedLine, MissingReplyIsOneThatNeverComes) {
    line.frame(n);
    line.answered(n + 1, 2);
    EXPECT_EQ(told_behind_mark(line.cycles()), "mww");
}

TEST_F(MarkedLine, ShortReplyStaysWithItsFrame) {
    for (const std::size_t length : {1U, 2U, 3U, 20U, 38U}) {
        Line one = line;
        one.frame(n);
        one.reply(n, first(marked_reply(), length));
        one.answered(n + 1, 2);
        const std::vector<Cycle> cycles = one.cycles();
        EXPECT_EQ(told_behind_mark(cycles), "sww") << length;
        EXPECT_EQ(cycles[n].reply->bytes.size(), length);
        EXPECT_FALSE(cycles[n].reply->telemetry());
    }
}

TEST_F(MarkedLine, GarbledReplyIsFoundBehindTheNoise) {
    for (const std::size_t length : {1U, 5U, 39U, 61U, 120U}) {
        Line one = line;
        one.frame(n);
        one.reply(n, Bytes(length, 0x11) + marked_reply(77));
        one.answered(n + 1, 2);
        const std::vector<Cycle> cycles = one.cycles();
        EXPECT_EQ(told_behind_mark(cycles), "gww") << length;
        EXPECT_EQ(cycles[n].reply->ahead, length);
        EXPECT_EQ(cycles[n].reply->bytes.size(), length + vehicle::reply_bytes);
        EXPECT_EQ(cycles[n].reply->telemetry()->voltage, 77);
    }
}

TEST_F(MarkedLine, ReplyWithWrongBytesIsGarbledAndTellsNothing) {
    Bytes wrong = marked_reply();
    wrong[19] ^= 0x10U;
    line.frame(n);
    line.reply(n, wrong);
    line.answered(n + 1, 2);
    const std::vector<Cycle> cycles = line.cycles();
    EXPECT_EQ(told_behind_mark(cycles), "gww");
    EXPECT_FALSE(cycles[n].reply->telemetry());
}

TEST_F(MarkedLine, NoiseAloneIsGarbledAndNotAReply) {
    line.frame(n);
    line.reply(n, noise);
    line.answered(n + 1, 2);
    const std::vector<Cycle> cycles = line.cycles();
    EXPECT_EQ(told_behind_mark(cycles), "gww");
    EXPECT_FALSE(cycles[n].reply->is_whole);
}

TEST_F(MarkedLine, LateReplyBelongsToItsFrameWhenTheNextReplyCameToo) {
    line.frame(n);
    line.frame(n + 1);
    line.reply(n + 1, marked_reply(1), 30 * ms);
    line.reply(n + 1, marked_reply(2), 30 * ms);
    line.answered(n + 2, 1);
    const std::vector<Cycle> cycles = line.cycles();
    EXPECT_EQ(told_behind_mark(cycles), "Www");
    EXPECT_EQ(cycles[n].reply->telemetry()->voltage, 1);
    EXPECT_EQ(cycles[n].delay_us(), period_us + 30 * ms);
    EXPECT_EQ(cycles[n + 1].reply->telemetry()->voltage, 2);
}

TEST_F(MarkedLine, ReplyThatEndsBehindTheNextFrameIsLate) {
    const Bytes reply = marked_reply(5);
    line.frame(n);
    line.reply(n, first(reply, 30), period_us - ms);
    line.frame(n + 1);
    line.reply(n + 1, last(reply, 9) + marked_reply(6));
    line.answered(n + 2, 1);
    EXPECT_EQ(told_behind_mark(line.cycles()), "Www");
}

TEST_F(MarkedLine, HeapOfRepliesGoesToItsFramesInOrder) {
    for (std::uint64_t i = 0; i < 7; i++) {
        line.frame(n + i);
    }
    Bytes heap;
    for (std::uint64_t i = 0; i < 7; i++) {
        heap = heap + marked_reply(i);
    }
    line.reply(n + 6, heap);
    line.answered(n + 7, 1);
    const std::vector<Cycle> cycles = line.cycles();
    EXPECT_EQ(told_behind_mark(cycles), "WWWWWWww");
    for (std::uint64_t i = 0; i < 7; i++) {
        EXPECT_EQ(cycles[n + i].reply->telemetry()->voltage, static_cast<int>(i));
    }
}

TEST_F(MarkedLine, HeapWithoutOneReplyMissesOne) {
    for (std::uint64_t i = 0; i < 4; i++) {
        line.frame(n + i);
    }
    line.reply(n + 3, marked_reply(0) + marked_reply(1) + marked_reply(2));
    line.answered(n + 4, 1);
    EXPECT_EQ(told_behind_mark(line.cycles()), "mWWww");
}

TEST_F(MarkedLine, HeapThatGoesOnBehindTheNextFrameIsOne) {
    for (std::uint64_t i = 0; i < 4; i++) {
        line.frame(n + i);
    }
    line.reply(n + 3, marked_reply(0) + marked_reply(1), period_us - 1);
    line.frame(n + 4);
    line.reply(n + 4, marked_reply(2) + marked_reply(3) + marked_reply(4), 1);
    line.answered(n + 5, 1);
    const std::vector<Cycle> cycles = line.cycles();
    EXPECT_EQ(told_behind_mark(cycles), "WWWWww");
    EXPECT_EQ(cycles[n].reply->telemetry()->voltage, 0);
}

TEST_F(MarkedLine, ShortAndGarbledRepliesInAHeapAreToldApart) {
    for (std::uint64_t i = 0; i < 5; i++) {
        line.frame(n + i);
    }
    line.reply(n + 4, marked_reply(0) + first(marked_reply(1), 20) + first(marked_reply(2), 1) +
                          marked_reply(3) + noise + marked_reply(4));
    line.answered(n + 5, 1);
    EXPECT_EQ(told_behind_mark(line.cycles()), "WSSWgw");
}

TEST_F(MarkedLine, ShortReplyAheadOfNoiseInAHeapIsOne) {
    for (std::uint64_t i = 0; i < 4; i++) {
        line.frame(n + i);
    }
    line.reply(n + 3,
               marked_reply(0) + marked_reply(1) + first(marked_reply(2), 2) + noise + marked_reply(3));
    line.answered(n + 4, 1);
    const std::vector<Cycle> cycles = line.cycles();
    EXPECT_EQ(told_behind_mark(cycles), "WWSgw");
    EXPECT_EQ(cycles[n + 2].reply->bytes.size(), 2U);
    EXPECT_EQ(cycles[n + 3].reply->ahead, noise.size());
}

TEST_F(MarkedLine, NoiseAheadOfAReplyInTimeIsNoReply) {
    line.frame(n);
    line.frame(n + 1);
    line.reply(n + 1, first(marked_reply(), 2) + marked_reply());
    line.answered(n + 2, 1);
    EXPECT_EQ(told_behind_mark(line.cycles()), "mgw");
}

TEST_F(MarkedLine, MoreRepliesThanFramesAnswerNone) {
    line.answered(n, 2);
    Bytes more;
    for (int i = 0; i < 70; i++) {
        more = more + marked_reply();
    }
    line.reply(n + 1, more, 50 * ms);
    line.answered(n + 2, 1);
    const std::string states = told(line.cycles());
    EXPECT_EQ(std::count(states.begin(), states.end(), '\''), 70);
}

TEST_F(MarkedLine, RepliesThatTheClosingForestallsAreNotMissing) {
    line.frame(n);
    line.frame(n + 1);
    line.close(n + 2);
    line.open(n + 3);
    line.answered(n + 4, 1);
    EXPECT_EQ(told_behind_mark(line.cycles()), "ccw");
}

TEST_F(MarkedLine, BytesBeforeTheFirstFrameAnswerNone) {
    line.close(n);
    line.open(n + 1);
    line.reply(n + 2, noise);
    line.answered(n + 3, 2);
    const std::vector<Cycle> cycles = line.cycles();
    ASSERT_EQ(told_behind_mark(cycles), "g'ww");
    EXPECT_EQ(cycles[n].number, 0U);
    EXPECT_EQ(cycles[n].time_us, line.time_of(n + 2) + ms);
    EXPECT_EQ(cycles[n].delay_us(), std::nullopt);
}

TEST_F(MarkedLine, AnotherControllersMarkIsLearnedAnew) {
    Bytes other = marked_reply();
    for (std::size_t place = 0; place < other.size(); place++) {
        other[place] = static_cast<std::uint8_t>(place % 3 == 0 ? other[place] : 0xFF - other[place]);
    }
    constexpr std::uint64_t count = 100;
    for (std::uint64_t i = 0; i < count; i++) {
        line.frame(n + i);
        line.reply(n + i, other);
    }
    line.frame(n + count);
    line.reply(n + count, noise + other);
    line.frame(n + count + 1);
    line.reply(n + count + 1, other);
    const std::string states = told(line.cycles());
    EXPECT_EQ(states.substr(n + 60), std::string(count - 60, 'w') + "gw");
}

TEST(CyclesWithoutAMark, AreToldByTheNumberOfBytes) {
    Line line;
    const Bytes reply = plain_reply(9);
    std::uint64_t i = 0;
    for (; i < 30; i++) {
        line.frame(i);
        line.reply(i, reply);
    }
    line.frame(i++);  // missing
    line.frame(i);
    line.reply(i++, first(reply, 10));  // short
    line.frame(i);
    line.reply(i++, reply);
    line.frame(i);
    line.reply(i++, noise + reply);  // garbled
    line.frame(i);
    line.reply(i++, reply);
    line.frame(i++);
    line.frame(i);
    line.reply(i++, reply + reply);  // late
    line.frame(i);
    line.reply(i, first(reply, 20), 99 * ms);
    line.frame(++i);
    line.reply(i++, last(reply, 19) + reply);  // late
    line.frame(i);
    line.reply(i, reply);
    EXPECT_EQ(told(line.cycles()).substr(30), "mswgwWwWww");
}

TEST(CyclesWithoutAMark, BytesWithoutEndAreKeptInBounds) {
    Line line;
    line.frame(0);
    for (int i = 0; i < 1000; i++) {
        line.reply(0, Bytes(1000, 0xA5));
    }
    const std::vector<Cycle> cycles = line.cycles();
    std::size_t bytes = 0;
    for (const Cycle& cycle : cycles) {
        ASSERT_TRUE(cycle.reply);
        ASSERT_LE(cycle.reply->bytes.size(), 6000U);
        bytes += cycle.reply->bytes.size();
    }
    EXPECT_EQ(bytes, 1000000U);
}

// A line on which anything may stand: pieces of replies, noise, frames whole and torn, openings and closings.
Line anything(std::uint32_t seed) {
    std::mt19937 random(seed);
    const auto draw = [&random](std::size_t most) { return static_cast<std::size_t>(random() % (most + 1)); };
    Line line;
    if (draw(1) == 0) {
        line.answered(0, n);
    }
    std::uint64_t time_us = line.time_of(n);
    for (int i = 0; i < 2000; i++) {
        time_us += draw(2) == 0 ? draw(300 * ms) : draw(1);
        Bytes bytes = marked_reply(draw(65535)) + marked_reply(draw(65535));
        const std::size_t begin = draw(bytes.size() - 1);
        const std::size_t length = 1 + draw(bytes.size() - begin - 1);
        switch (draw(9)) {
            case 0:
                line.add(time_us, draw(1) == 0 ? EntryKind::open : EntryKind::close);
                break;
            case 1:
                line.add(time_us, EntryKind::sent, Bytes(1 + draw(9), 'P'));
                break;
            case 2:
                for (std::uint8_t& byte : bytes) {
                    byte = static_cast<std::uint8_t>(random());
                }
                line.add(time_us, EntryKind::received, first(bytes, length));
                break;
            case 3:
            case 4:
                line.add(time_us, EntryKind::received, last(bytes, bytes.size() - begin));
                break;
            case 5:
                line.add(time_us, EntryKind::received, marked_reply());
                break;
            default:
                line.add(time_us, EntryKind::sent, {0, 103, 110, 'P'});
                break;
        }
    }
    return line;
}

TEST(CyclesOfAnything, GiveEachByteAndEachFrameOnce) {
    for (std::uint32_t seed = 1; seed <= 40; seed++) {
        SCOPED_TRACE(seed);
        const Line line = anything(seed);
        std::size_t bytes = 0;
        std::uint64_t frames = 0;
        std::uint64_t last_us = 0;
        for (const Cycle& cycle : line.cycles()) {
            bytes += cycle.reply ? cycle.reply->bytes.size() : 0;
            ASSERT_EQ(cycle.reply.has_value(),
                      cycle.state != ReplyState::missing && cycle.state != ReplyState::closed);
            if (cycle.reply) {
                ASSERT_LE(cycle.reply->ahead + (cycle.reply->is_whole ? vehicle::reply_bytes : 0),
                          cycle.reply->bytes.size());
                ASSERT_LE(cycle.reply->first_us, cycle.reply->last_us);
            }
            if (cycle.number > 0) {
                ASSERT_EQ(cycle.number, ++frames);
                ASSERT_GE(cycle.time_us, last_us);
                ASSERT_TRUE(!cycle.reply || cycle.reply->first_us >= cycle.time_us);
                last_us = cycle.time_us;
            }
        }
        EXPECT_EQ(bytes, line.received_bytes());
    }
}

// What a vehicle with random faults made of its replies, and what is told of them.
struct Comparison {
    std::map<std::string, int> made;
    std::map<std::string, int> told;
};

// The simulated vehicle's faults on a line that hands on what is there every `poll_us`.
Comparison compare(std::uint32_t seed, std::uint64_t period, std::uint64_t poll_us, int frames) {
    vehicle_simulator::ReplyFaults faults({.random_percent = 25}, seed);
    struct Sending {
        std::uint64_t due_us;
        int frame;
        Bytes bytes;
    };
    std::vector<Sending> sendings;
    Comparison result;
    Line line(period);
    std::vector<bool> has_reply(static_cast<std::size_t>(frames));
    std::uint64_t sent_us = 0;
    for (int i = 0; i < frames; i++) {
        const Bytes reply = marked_reply(static_cast<std::uint64_t>(i));
        vehicle_simulator::ReplyFrame frame;
        std::copy(reply.begin(), reply.end(), frame.begin());
        for (const vehicle_simulator::Piece& piece : faults.apply(frame)) {
            const std::uint64_t due_us = line.time_of(static_cast<std::uint64_t>(i)) + 100 +
                                         static_cast<std::uint64_t>(piece.after_ms) * ms;
            sent_us = std::max(sent_us, due_us);
            sendings.push_back({(sent_us + poll_us - 1) / poll_us * poll_us, i, piece.bytes});
            has_reply[static_cast<std::size_t>(i)] = true;
        }
        const std::string fault = faults.random_fault();
        result.made["muted"] += fault == "muted";
        result.made["short"] += fault.rfind("short", 0) == 0;
        result.made["garbled"] += fault.rfind("garbage", 0) == 0;
    }
    std::vector<std::uint64_t> ends(static_cast<std::size_t>(frames));
    std::size_t next = 0;
    for (int i = 0; i < frames; i++) {
        line.frame(static_cast<std::uint64_t>(i));
        const std::uint64_t until_us = line.time_of(static_cast<std::uint64_t>(i) + 1);
        while (next < sendings.size() && sendings[next].due_us < until_us) {
            const std::uint64_t now_us = sendings[next].due_us;
            Bytes bytes;
            for (; next < sendings.size() && sendings[next].due_us == now_us; next++) {
                bytes = bytes + sendings[next].bytes;
                ends[static_cast<std::size_t>(sendings[next].frame)] = now_us;
            }
            line.add(now_us, EntryKind::received, bytes);
        }
    }
    for (std::size_t i = 0; i + 1 < ends.size(); i++) {
        result.made["late"] += has_reply[i] && ends[i] > line.time_of(i + 1);
    }
    for (const Cycle& cycle : line.cycles()) {
        result.told["muted"] += cycle.state == ReplyState::missing;
        result.told["short"] += cycle.state == ReplyState::too_short;
        result.told["garbled"] += cycle.state == ReplyState::garbled;
        result.told["late"] += cycle.late;
        result.told["stray"] += cycle.number == 0;
    }
    return result;
}

constexpr int many_frames = 3000;

// Whether the numbers are the same, up to some in a thousand.
void expect_same(Comparison& both, const char* what, int permille) {
    EXPECT_NEAR(both.told[what], both.made[what], both.made[what] * permille / 1000.0) << what;
}

TEST(CyclesOfAFaultyLine, AreToldAsTheVehicleMadeThem) {
    for (const std::uint64_t poll_us : {std::uint64_t(1), 5 * ms}) {
        for (std::uint32_t seed = 1; seed <= 5; seed++) {
            SCOPED_TRACE(seed);
            Comparison both = compare(seed, 210 * ms, poll_us, many_frames);
            EXPECT_GT(both.made["muted"], 100);
            for (const char* what : {"muted", "short", "garbled", "late", "stray"}) {
                expect_same(both, what, 0);
            }
        }
    }
}

// Faults that outlast some frames heap the replies up. Which of a heap is missing cannot be known, so some that are
// told as late or in time were not; a byte or two of a short reply may look like noise ahead of the next.
TEST(CyclesOfAFaultyLine, AreToldInHeapsAsFarAsTheyCanBeKnown) {
    for (const std::uint64_t poll_us : {std::uint64_t(1), 5 * ms}) {
        for (std::uint32_t seed = 1; seed <= 5; seed++) {
            SCOPED_TRACE(seed);
            Comparison slow = compare(seed, 50 * ms, poll_us, many_frames);
            Comparison fast = compare(seed, 20 * ms, poll_us, many_frames);
            EXPECT_GT(slow.made["late"], 200);
            EXPECT_GT(fast.made["late"], 600);
            for (const char* what : {"muted", "short", "garbled"}) {
                expect_same(slow, what, 10);
                expect_same(fast, what, 30);
            }
            expect_same(slow, "late", 60);
            expect_same(fast, "late", 40);
            EXPECT_EQ(slow.told["stray"], 0);
            EXPECT_EQ(fast.told["stray"], 0);
        }
    }
}

}  // namespace
}  // namespace vehicle_recorder
