#include "recorder/thresholds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace vehicle_recorder;

namespace {

// A reply that tells a capacity; the motor stands.
std::vector<std::uint8_t> reply(unsigned capacity_ah, unsigned raw_speed = 32767) {
    std::vector<std::uint8_t> bytes(39, 0x55);
    bytes[0] = static_cast<std::uint8_t>(raw_speed >> 8);
    bytes[3] = static_cast<std::uint8_t>(raw_speed & 255);
    bytes[18] = static_cast<std::uint8_t>(capacity_ah >> 8);
    bytes[21] = static_cast<std::uint8_t>(capacity_ah & 255);
    return bytes;
}

// A watch, and what happens on its line, a tenth of a second apart.
class Line {
public:
    explicit Line(const std::vector<Threshold>& thresholds)
        : watch_(thresholds, [this](const Threshold& threshold, std::int64_t value) {
              alarms.push_back(std::to_string(now_us / 1000) + ": " +
                               describe(threshold, value, Language::english));
          }) {
        pass(EntryKind::open, {});
    }

    void pass(EntryKind kind, const std::vector<std::uint8_t>& bytes) {
        Entry entry;
        entry.kind = kind;
        entry.time_us = now_us;
        entry.bytes = bytes;
        watch_.add(entry);
    }

    // A frame and what comes after it, and then the rest of the tenth of a second.
    void cycle(const std::vector<std::vector<std::uint8_t>>& pieces) {
        pass(EntryKind::sent, {0, 103, 110, 'P'});
        for (const std::vector<std::uint8_t>& piece : pieces) {
            now_us += 5'000;
            pass(EntryKind::received, piece);
        }
        const std::uint64_t end_us = now_us / 100'000 * 100'000 + 100'000;
        while (now_us < end_us) {
            now_us += 5'000;
            watch_.tick(now_us);
        }
    }

    void cycles(int count, const std::vector<std::vector<std::uint8_t>>& pieces) {
        for (int i = 0; i < count; i++) {
            cycle(pieces);
        }
    }

    void tick(std::uint64_t time_us) { watch_.tick(time_us); }

    std::uint64_t now_us = 0;
    std::vector<std::string> alarms;

private:
    ThresholdWatch watch_;
};

const Threshold low_capacity = {.quantity = Quantity::capacity, .above = false, .limit = 100};
const Threshold silence = {.quantity = Quantity::silence, .above = true, .limit = 300};

using Alarms = std::vector<std::string>;

}  // namespace

// --- the command line's words ---

TEST(Thresholds, AreReadFromTheirWords) {
    EXPECT_EQ(read_threshold("capacity=20", false),
              (Threshold{.quantity = Quantity::capacity, .above = false, .limit = 20}));
    EXPECT_EQ(read_threshold("rpm=-500", true),
              (Threshold{.quantity = Quantity::rpm, .above = true, .limit = -500}));
    EXPECT_EQ(read_threshold("voltage=480", true)->quantity, Quantity::voltage);
    EXPECT_EQ(read_threshold("current=12", true)->quantity, Quantity::current);
}

TEST(Thresholds, AnythingElseIsNone) {
    for (const char* text :
         {"", "capacity", "capacity=", "=20", "capacity=20 ", "capacity= 20", "capacity=2x", "speed=3",
          "capacity=1000001", "capacity=99999999999999999999", "silence=3", "rpm=1.5"}) {
        EXPECT_FALSE(read_threshold(text, true)) << text;
    }
}

TEST(Thresholds, AreDescribedInBothLanguages) {
    EXPECT_EQ(describe(low_capacity, 19, Language::english), "capacity 19 Ah, below 100 Ah");
    EXPECT_EQ(describe(low_capacity, 19, Language::finnish), "kapasiteetti 19 Ah, alle 100 Ah");
    EXPECT_EQ(describe(*read_threshold("rpm=10", true), 11, Language::english), "speed 11 rpm, above 10 rpm");
    EXPECT_EQ(describe(silence, 301, Language::english), "no whole reply for 301 ms");
    EXPECT_EQ(describe(silence, 301, Language::finnish), "ei kokonaista vastausta 301 ms");
}

// --- limits ---

TEST(Thresholds, ValueAtTheLimitIsAllRight) {
    Line line({low_capacity});
    line.cycles(5, {reply(100)});
    EXPECT_EQ(line.alarms, Alarms{});
}

TEST(Thresholds, PassedLimitIsToldOnce) {
    Line line({low_capacity});
    line.cycles(100, {reply(99)});
    EXPECT_EQ(line.alarms, Alarms{"20: capacity 99 Ah, below 100 Ah"});
}

TEST(Thresholds, ValueThatComesBackALittleIsNotToldAgain) {
    Line line({low_capacity});
    line.cycles(60, {reply(99)});
    line.cycles(60, {reply(101)});  // not by a fiftieth
    line.cycles(60, {reply(99)});
    EXPECT_EQ(line.alarms.size(), 1U);
}

TEST(Thresholds, ValueThatComesBackAndPassesAgainIsToldAgain) {
    Line line({low_capacity});
    line.cycles(60, {reply(99)});
    line.cycle({reply(102)});
    line.cycle({reply(98)});
    EXPECT_EQ(line.alarms,
              (Alarms{"20: capacity 99 Ah, below 100 Ah", "6120: capacity 98 Ah, below 100 Ah"}));
}

TEST(Thresholds, NoMoreThanOneInFiveSeconds) {
    Line line({low_capacity});
    for (int i = 0; i < 100; i++) {
        line.cycle({reply(99)});
        line.cycle({reply(200)});
    }
    EXPECT_EQ(line.alarms.size(), 4U);  // in 20 s
}

// As it is when the watching process was late: what it reads then has happened before.
TEST(Thresholds, NoMoreThanOneInFiveSecondsThoughTheClockWasAheadOfWhatIsRead) {
    Line line({low_capacity});
    line.pass(EntryKind::sent, {0, 103, 110, 'P'});
    line.pass(EntryKind::received, reply(99));
    line.tick(60'000);
    EXPECT_EQ(line.alarms.size(), 1U);
    line.now_us = 50'000;
    for (const unsigned capacity_ah : {200, 99}) {
        line.pass(EntryKind::sent, {0, 103, 110, 'P'});
        line.pass(EntryKind::received, reply(capacity_ah));
    }
    line.pass(EntryKind::sent, {0, 103, 110, 'P'});
    EXPECT_EQ(line.alarms.size(), 1U);
}

TEST(Thresholds, PassingThatCameTooSoonIsToldLaterIfItLasts) {
    Line line({low_capacity});
    line.cycle({reply(99)});
    line.cycle({reply(200)});
    line.cycles(60, {reply(98)});
    EXPECT_EQ(line.alarms,
              (Alarms{"20: capacity 99 Ah, below 100 Ah", "5020: capacity 98 Ah, below 100 Ah"}));
}

TEST(Thresholds, EachIsToldForItself) {
    Line line({low_capacity, *read_threshold("rpm=1000", true)});
    line.cycle({reply(99, 20'000)});
    EXPECT_EQ(line.alarms,
              (Alarms{"20: capacity 99 Ah, below 100 Ah", "20: speed 4183 rpm, above 1000 rpm"}));
}

TEST(Thresholds, ReplyInPiecesOverTwoCyclesIsOne) {
    Line line({low_capacity});
    const std::vector<std::uint8_t> whole = reply(99);
    line.cycle({{whole.begin(), whole.begin() + 20}});
    line.cycle({{whole.begin() + 20, whole.end()}});
    EXPECT_EQ(line.alarms, Alarms{"120: capacity 99 Ah, below 100 Ah"});
}

TEST(Thresholds, EmptyAndGarbledRepliesSayNothing) {
    Line line({low_capacity});
    std::vector<std::uint8_t> more = reply(0);
    more.push_back(0);
    std::vector<std::uint8_t> fewer = reply(0);
    fewer.pop_back();
    line.cycles(10, {});
    line.cycles(10, {more});
    line.cycles(10, {fewer, {}});
    EXPECT_EQ(line.alarms, Alarms{});
    line.cycles(2, {reply(50)});
    EXPECT_EQ(line.alarms.size(), 1U);
}

// --- silence ---

TEST(Thresholds, SilenceIsToldWhenItHasLasted) {
    Line line({silence});
    line.cycles(10, {reply(100)});
    line.cycles(10, {});
    EXPECT_EQ(line.alarms, Alarms{"1210: no whole reply for 305 ms"});
}

TEST(Thresholds, RepliesInTimeAreNoSilence) {
    Line line({silence});
    line.cycles(100, {reply(100)});
    EXPECT_EQ(line.alarms, Alarms{});
}

TEST(Thresholds, EmptyOrGarbledRepliesNeverEndASilence) {
    const std::vector<std::uint8_t> noise(7, 0x21);
    Line line({silence});
    line.cycles(3, {reply(100)});
    line.cycles(100, {noise});
    line.cycles(100, {{}, noise, noise});
    EXPECT_EQ(line.alarms.size(), 1U);
    line.cycles(2, {reply(100)});
    line.cycles(10, {noise});
    EXPECT_EQ(line.alarms.size(), 2U);
}

TEST(Thresholds, ClosedLineIsNotSilent) {
    Line line({silence});
    line.cycles(3, {reply(100)});
    line.pass(EntryKind::close, {});
    line.now_us += 10'000'000;
    line.pass(EntryKind::open, {});
    line.now_us += 10'000'000;  // and nothing has been asked yet
    line.cycles(3, {reply(100)});
    EXPECT_EQ(line.alarms, Alarms{});
}
