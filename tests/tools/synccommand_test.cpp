// nodevik sync: what is sent, when, and how it ends.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <regex>

#include "tests/tools/simulatedbus.h"

namespace {

// "nodevik: 7 SYNC sent in 0.1 s", with the periods that a busy machine has left out.
bool tells_syncs(const std::string& text, const std::string& count) {
    return std::regex_match(text, std::regex("nodevik: " + count +
                                             " SYNC sent in [0-9]+\\.[0-9] s(, [0-9]+ left out: the machine "
                                             "was too busy)?\n"));
}

bool are_syncs(const Frames& frames) {
    return std::all_of(frames.begin(), frames.end(),
                       [](const std::string& frame) { return frame == "080 0"; });
}

}  // namespace

TEST(Sync, IsSentAsOftenAsWasAskedForAndNothingElse) {
    const SimulatedBus bus(NODEVIK, NODE_SIMULATOR, {"--nodes", "5"});
    const ChildResult result = bus.run({"sync", "--period", "1", "--count", "7"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(tells_syncs(result.err, "7")) << result.err;
    EXPECT_EQ(bus.heard(), Frames(7, "080 0"));
}

TEST(Sync, BeginsAtOnceAndComesOnceInAPeriod) {
    ScriptedBus bus(NODEVIK);
    using Clock = std::chrono::steady_clock;
    std::vector<Clock::time_point> times;
    bus.answer = [&times](const ScriptedBus::Frame&) {
        times.push_back(Clock::now());
        return std::vector<ScriptedBus::Frame>();
    };
    const auto begin = Clock::now();
    EXPECT_EQ(bus.run({"sync", "--period", "20.5", "--count", "4"}).status, 0);
    ASSERT_EQ(times.size(), 4U);
    EXPECT_GE(Clock::now() - begin, std::chrono::microseconds(3 * 20500));
    EXPECT_EQ(bus.heard, Frames(4, "080 0"));
    // A period that is longer than the test may take: the first one does not wait for it.
    bus.heard.clear();
    EXPECT_EQ(bus.run({"sync", "--period", "3600000", "--count", "1"}).status, 0);
    EXPECT_EQ(bus.heard, Frames(1, "080 0"));
}

TEST(Sync, EndsAtASignalAndSendsNoMore) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        ScriptedBus bus(NODEVIK);
        bus.meanwhile = [&bus, number] {
            if (bus.heard.size() == 3) {
                bus.signal(number);
            }
        };
        const ChildResult result = bus.run({"sync", "--period", "5"});
        EXPECT_EQ(result.status, 130);
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(tells_syncs(result.err, std::to_string(bus.heard.size()))) << result.err;
        EXPECT_TRUE(are_syncs(bus.heard));
    }
}

TEST(Sync, GoesOnWithoutATerminalWhenItWasStartedSo) {
    ScriptedBus bus(NODEVIK);
    bus.meanwhile = [&bus] {
        if (bus.heard.size() >= 3) {
            bus.signal(SIGHUP);
        }
    };
    std::signal(SIGHUP, SIG_IGN);  // as nohup(1) does
    EXPECT_EQ(bus.run({"sync", "--period", "1", "--count", "200"}).status, 0);
    std::signal(SIGHUP, SIG_DFL);
    EXPECT_EQ(bus.heard, Frames(200, "080 0"));
}

TEST(Sync, IsNotKeptFromItsEndByAShortPeriod) {
    ScriptedBus bus(NODEVIK);
    bus.meanwhile = [&bus] {
        if (bus.heard.size() >= 3) {
            bus.signal(SIGINT);
        }
    };
    EXPECT_EQ(bus.run({"sync", "--period", "0.1"}).status, 130);
    EXPECT_TRUE(are_syncs(bus.heard));
}

TEST(Sync, TellsItsEndAsJson) {
    ScriptedBus bus(NODEVIK);
    const ChildResult result = bus.run({"--json", "sync", "--period", "1", "--count", "2"});
    EXPECT_TRUE(std::regex_match(result.out,
                                 std::regex("\\{\"sent\":2,\"missed\":[0-9]+,\"seconds\":[0-9.e-]+\\}\n")))
        << result.out;
}

TEST(Sync, EndsQuietlyWhenNobodyReadsItsResults) {
    ScriptedBus bus(NODEVIK);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const ChildResult result = bus.run({"sync", "--period", "10"}, ends[1]);
    close(ends[1]);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
}

TEST(Sync, TakesAPeriodFromATenthOfAMillisecondToAnHour) {
    ScriptedBus bus(NODEVIK);
    const std::string more = "; 'nodevik sync --help' tells more";
    expect_failure(bus.run({"sync"}), 2, "--period is required" + more);
    for (const char* period : {"0", "0.09", "3600001", "-1", "nan"}) {
        expect_failure(
            bus.run({"sync", "--period", period}), 2,
            "--period: Value " + std::string(period) + " not in range 0.100000 to 3600000.000000" + more);
    }
    EXPECT_EQ(bus.run({"sync", "--period", "x"}).status, 2);
    EXPECT_EQ(bus.run({"sync", "--period", "1", "--count", "0"}).status, 2);
    EXPECT_EQ(bus.heard, Frames());
}
