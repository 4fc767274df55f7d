// The random faults of the vehicle's line, and the losses that nothing tells of.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "simulator/vehicle/replyfaults.h"
#include "simulator/vehicle/vehicleoptions.h"

namespace {

using vehicle_simulator::FaultPlan;
using vehicle_simulator::Piece;
using vehicle_simulator::ReplyFaults;
using vehicle_simulator::ReplyFrame;
using Bytes = std::vector<std::uint8_t>;

constexpr int replies = 3000;

ReplyFrame counted_reply() {
    ReplyFrame reply = {};
    std::iota(reply.begin(), reply.end(), std::uint8_t{1});
    return reply;
}

Bytes bytes_of(const std::vector<Piece>& pieces) {
    Bytes all;
    for (const Piece& piece : pieces) {
        all.insert(all.end(), piece.bytes.begin(), piece.bytes.end());
    }
    return all;
}

const Bytes whole = bytes_of(ReplyFaults({}, 0).apply(counted_reply()));

// A fault as it is told: its kind, and its numbers.
struct Told {
    std::string kind;
    int number = 0;
    int pause_ms = 0;

    explicit Told(const std::string& text) {
        std::istringstream words(text);
        std::string name;
        words >> kind >> number >> name >> pause_ms;
    }
};

// Checks that `pieces` are what the fault, as told, makes of the reply.
void expect_as_told(const Told& told, const std::vector<Piece>& pieces) {
    const Bytes bytes = bytes_of(pieces);
    if (told.kind == "muted") {
        EXPECT_TRUE(pieces.empty());
    } else if (told.kind == "short") {
        ASSERT_EQ(pieces.size(), 1U);
        ASSERT_TRUE(told.number >= 1 && told.number <= 38) << told.number;
        EXPECT_EQ(bytes.size(), static_cast<std::size_t>(told.number));
        EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), whole.begin()));
    } else if (told.kind == "split") {
        ASSERT_TRUE(told.number >= 2 && told.number <= 13) << told.number;
        ASSERT_TRUE(told.pause_ms >= 1 && told.pause_ms <= 15) << told.pause_ms;
        ASSERT_EQ(pieces.size(), static_cast<std::size_t>(told.number));
        EXPECT_EQ(bytes, whole);
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            EXPECT_EQ(pieces[i].after_ms, static_cast<int>(i) * told.pause_ms);
        }
    } else if (told.kind == "garbage") {
        ASSERT_TRUE(told.number >= 1 && told.number <= 120) << told.number;
        ASSERT_EQ(bytes.size(), 39U + static_cast<std::size_t>(told.number));
        EXPECT_TRUE(std::equal(bytes.end() - 39, bytes.end(), whole.begin()));
    } else {
        ASSERT_EQ(told.kind, "delayed");
        ASSERT_TRUE(told.number >= 1 && told.number <= 150) << told.number;
        ASSERT_EQ(pieces.size(), 1U);
        EXPECT_EQ(pieces[0], (Piece{.after_ms = told.number, .bytes = whole}));
    }
}

std::string error_of(const std::vector<const char*>& arguments) {
    return vehicle_simulator::parse_vehicle_options(arguments).error;
}

}  // namespace

TEST(RandomFaults, AreNoneByDefault) {
    ReplyFaults faults({}, 1);
    for (int i = 0; i < replies; ++i) {
        EXPECT_EQ(bytes_of(faults.apply(counted_reply())), whole);
        EXPECT_EQ(faults.random_fault(), "");
    }
}

TEST(RandomFaults, AreAllFiveKindsAndDoWhatIsTold) {
    ReplyFaults faults({.random_percent = 100}, 1);
    std::map<std::string, int> counts;
    for (int i = 0; i < replies; ++i) {
        const std::vector<Piece> pieces = faults.apply(counted_reply());
        const Told told(faults.random_fault());
        ++counts[told.kind];
        expect_as_told(told, pieces);
    }
    ASSERT_EQ(counts.size(), 5U);
    for (const auto& [kind, count] : counts) {
        EXPECT_GT(count, replies / 10) << kind;
    }
}

TEST(RandomFaults, HitTheChosenShareAndLeaveTheOthersWhole) {
    ReplyFaults faults({.random_percent = 20}, 5);
    int hit = 0;
    for (int i = 0; i < replies; ++i) {
        const std::vector<Piece> pieces = faults.apply(counted_reply());
        if (faults.random_fault().empty()) {
            EXPECT_EQ(pieces, (std::vector<Piece>{{.after_ms = 0, .bytes = whole}}));
        } else {
            ++hit;
        }
    }
    EXPECT_GT(hit, replies * 15 / 100);
    EXPECT_LT(hit, replies * 25 / 100);
}

TEST(RandomFaults, VaryInSize) {
    ReplyFaults faults({.random_percent = 100}, 2);
    std::map<std::string, std::set<int>> sizes;
    for (int i = 0; i < replies; ++i) {
        faults.apply(counted_reply());
        const Told told(faults.random_fault());
        sizes[told.kind].insert(told.number);
    }
    EXPECT_EQ(sizes["short"].size(), 38U);
    EXPECT_EQ(sizes["split"].size(), 12U);
    EXPECT_GT(sizes["garbage"].size(), 100U);
    EXPECT_GT(sizes["delayed"].size(), 100U);
}

TEST(RandomFaults, AreTheSameForTheSameSeedOnly) {
    ReplyFaults one({.random_percent = 50}, 7);
    ReplyFaults same({.random_percent = 50}, 7);
    ReplyFaults other({.random_percent = 50}, 8);
    int differences = 0;
    for (int i = 0; i < replies; ++i) {
        const std::vector<Piece> pieces = one.apply(counted_reply());
        EXPECT_EQ(pieces, same.apply(counted_reply()));
        EXPECT_EQ(one.random_fault(), same.random_fault());
        differences += pieces == other.apply(counted_reply()) ? 0 : 1;
    }
    EXPECT_GT(differences, 0);
}

TEST(RandomFaults, GoBesideAFaultOfThePlan) {
    ReplyFaults faults({.cut = 5, .random_percent = 50}, 7);
    for (int i = 0; i < replies; ++i) {
        const std::vector<Piece> pieces = faults.apply(counted_reply());
        if (faults.random_fault().empty()) {
            EXPECT_EQ(bytes_of(pieces), (Bytes{1, 2, 3, 4, 5}));
        } else {
            expect_as_told(Told(faults.random_fault()), pieces);
        }
    }
}

TEST(RandomFaults, LossesHitOneFrameAndOneReply) {
    const ReplyFaults faults({.lose_frame = 3, .lose_reply = 4}, 0);
    EXPECT_FALSE(faults.loses_frame(2));
    EXPECT_TRUE(faults.loses_frame(3));
    EXPECT_FALSE(faults.loses_frame(4));
    EXPECT_FALSE(faults.loses_reply(3));
    EXPECT_TRUE(faults.loses_reply(4));
    EXPECT_FALSE(ReplyFaults({}, 0).loses_frame(1));
    EXPECT_FALSE(ReplyFaults({}, 0).loses_reply(1));
}

TEST(RandomFaultOptions, AreTaken) {
    const auto [none, no_error] = vehicle_simulator::parse_vehicle_options({});
    EXPECT_EQ(none.faults.random_percent, 0);
    EXPECT_FALSE(none.faults.lose_frame);
    EXPECT_FALSE(none.faults.lose_reply);
    const std::vector<const char*> arguments{"--random", "30", "--lose-frame", "7", "--lose-reply=8"};
    const auto [options, error] = vehicle_simulator::parse_vehicle_options(arguments);
    EXPECT_EQ(error, "");
    EXPECT_EQ(options.faults.random_percent, 30);
    EXPECT_EQ(options.faults.lose_frame, 7);
    EXPECT_EQ(options.faults.lose_reply, 8);
}

TEST(RandomFaultOptions, RefuseWhatIsOutOfRange) {
    EXPECT_EQ(error_of({"--random", "101"}), "--random takes a whole number from 0 to 100, not '101'");
    EXPECT_EQ(error_of({"--lose-frame", "0"}),
              "--lose-frame takes a whole number from 1 to 1000000000, not '0'");
    EXPECT_EQ(error_of({"--lose-reply", "x"}),
              "--lose-reply takes a whole number from 1 to 1000000000, not 'x'");
}

TEST(RandomFaultOptions, StandInTheHelp) {
    const std::string help = vehicle_simulator::vehicle_help();
    for (const char* option : {"--random PERCENT", "--lose-frame N", "--lose-reply N"}) {
        EXPECT_NE(help.find(option), std::string::npos) << option;
    }
}
