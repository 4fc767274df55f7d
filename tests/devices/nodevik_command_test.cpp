// The command nodevik on CAN interfaces of a real kernel, with the programs of can-utils beside it: what each command
// sends is what was asked, and what is shown and recorded is what passed.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/devices/canwitness.h"
#include "tests/support/childprocess.h"
#include "tests/support/nodeprocess.h"
#include "tests/support/runningprogram.h"
#include "tests/support/temporaryfile.h"

namespace {

using Words = std::vector<std::string>;

constexpr const char* marker = "7F0#";  // ends what a command has sent

// nodevik on an interface. The machine is emulated, and slow.
Words nodevik(const std::string& interface, const Words& more) {
    Words words{NODEVIK, "--can", interface, "--timeout", "3000"};
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

// nodevik while it listens to an interface.
class Listening : public RunningProgram {
public:
    Listening(const std::string& interface, const Words& more, int before = count_receivers("vcan0"))
        : RunningProgram(nodevik(interface, more)), interface_(interface), before_(before) {}

    bool is_ready() const {
        return eventually([this] { return count_receivers(interface_) > before_; });
    }
    bool shows(const std::string& text) const {
        return eventually([&] { return out().find(text) != std::string::npos; });
    }

private:
    std::string interface_;
    int before_;
};

// A virtual interface, a witness that hears all of it, and node 5.
class NodevikOnCan : public testing::Test {
protected:
    NodevikOnCan() { EXPECT_EQ(witness.frame(), "705#00"); }

    // Every frame that passes while a command runs, its own and the node's.
    Words passed(const Words& words) {
        result = run_program(nodevik("vcan0", words));
        return passed_until_now();
    }

    Words passed_until_now() {
        EXPECT_TRUE(cansend("vcan0", marker));
        Words frames;
        for (std::string frame = witness.frame(); !frame.empty() && frame != marker;
             frame = witness.frame()) {
            frames.push_back(frame);
        }
        return frames;
    }

    VirtualCan interface { "vcan0" };
    Candump witness{"vcan0"};
    NodeProcess node{NODE_SIMULATOR, {"--nodes", "5", "--can", "vcan0"}};
    ChildResult result;
};

}  // namespace

TEST_F(NodevikOnCan, ReadingSendsNothingButItsRequests) {
    EXPECT_EQ(passed({"sdo", "read", "5", "0x1018:2", "--segments"}),
              (Words{"605#4018100200000000", "585#4318100201040000"}));
    EXPECT_EQ(result.out, "0x1018:2  01040000  1025\n");
    EXPECT_EQ(passed({"sdo", "read", "5", "0x1008", "--type", "str", "--segments"}),
              (Words{"605#4008100000000000", "585#410810000E000000", "605#6000000000000000",
                     "585#006E6F64652D7369", "605#7000000000000000", "585#116D756C61746F72"}));
    EXPECT_EQ(passed({"sdo", "read", "5", "0x5555:1", "--segments"}),
              (Words{"605#4055550100000000", "585#8055550100000206"}));
    EXPECT_EQ(result.status, 1);
}

TEST_F(NodevikOnCan, WritingSendsTheValue) {
    EXPECT_EQ(passed({"sdo", "write", "5", "0x1017", "0", "--type", "u16"}),
              (Words{"605#2B17100000000000", "585#6017100000000000"}));
    EXPECT_EQ(passed({"sdo", "write", "5", "0x2006", "abcdefghij", "--type", "str", "--segments"}),
              (Words{"605#210620000A000000", "585#6006200000000000", "605#0061626364656667",
                     "585#2000000000000000", "605#1968696A00000000", "585#3000000000000000"}));
    EXPECT_EQ(passed({"sdo", "write", "5", "0x1017", "70000", "--type", "u16"}), Words{});
    EXPECT_EQ(result.status, 2);
}

TEST_F(NodevikOnCan, NmtAndSendSendOneFrame) {
    EXPECT_EQ(passed({"nmt", "start", "5"}), Words{"000#0105"});
    EXPECT_EQ(passed({"nmt", "stop", "all"}), Words{"000#0200"});
    EXPECT_EQ(passed({"nmt", "preop", "7"}), Words{"000#8007"});
    EXPECT_EQ(passed({"send", "321#0102030405060708"}), Words{"321#0102030405060708"});
    EXPECT_EQ(passed({"send", "18DAF110#00"}), Words{"18DAF110#00"});
    EXPECT_EQ(passed({"send", "321#R4"}), Words{"321#R4"});
}

TEST_F(NodevikOnCan, SyncIsSentAsOftenAsWasAsked) {
    EXPECT_EQ(passed({"sync", "--period", "2", "--count", "3"}), (Words{"080#", "080#", "080#"}));
    EXPECT_EQ(result.status, 0) << result.err;
}

TEST_F(NodevikOnCan, ListingNodesSendsNothing) {
    EXPECT_EQ(passed({"nodes", "--seconds", "0.2"}), Words{});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(passed({"scan", "--passive", "--seconds", "0.2"}), Words{});
}

TEST_F(NodevikOnCan, ScanningAndSettingUpSendNothingButRequestsToTheNodesThatWereNamed) {
    const auto all_are_of = [](const Words& frames, const Words& heads) {
        return std::all_of(frames.begin(), frames.end(), [&heads](const std::string& frame) {
            return std::find(heads.begin(), heads.end(), frame.substr(0, 4)) != heads.end();
        });
    };
    const Words scanned = passed({"scan", "4-6"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.rfind("5", result.out.find_first_not_of(' ')), result.out.find_first_not_of(' '))
        << result.out;
    EXPECT_TRUE(all_are_of(scanned, {"604#", "605#", "606#", "585#"}));
    const TemporaryFile configuration;
    configuration.write(run_program({NODEVIK, "eds", "dcf", EDS, "5", "0x1017=100"}).out);
    for (const Words& command :
         {Words{"pdo", "list", "5"}, Words{"pdo", "set", "5", "tpdo", "1", "0x185", "255", "0x6000:1/8"},
          Words{"configure", "5", configuration.path(), "--dry-run"}, Words{"--eds", EDS, "dump", "5"}}) {
        const Words frames = passed(command);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_FALSE(frames.empty());
        EXPECT_TRUE(all_are_of(frames, {"605#", "585#"})) << command.front();
    }
}

TEST_F(NodevikOnCan, LssSendsNothingButItsOwnRequests) {
    const NodeProcess device(NODE_SIMULATOR, {"--nodes", "none", "--unconfigured", "7", "--can", "vcan0"});
    const std::string answer = "7E4#4F00000000000000";
    EXPECT_EQ(passed({"lss", "fastscan", "--vendor", "0", "--product", "0x401", "--revision", "0x10000",
                      "--serial", "7", "--step", "1000"}),
              (Words{"7E5#0400000000000000", "7E5#5100000000800000", answer, "7E5#5100000000000001", answer,
                     "7E5#5101040000000102", answer, "7E5#5100000100000203", answer, "7E5#5107000000000300",
                     answer, "7E5#0400000000000000"}));
    EXPECT_EQ(result.out, "0x00000000 0x00000401 0x00010000 0x00000007\n") << result.err;
}

TEST_F(NodevikOnCan, TheOnlyInterfaceThatIsUpNeedsNoName) {
    result = run_program({NODEVIK, "send", "321#01"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(passed_until_now(), Words{"321#01"});
}

TEST_F(NodevikOnCan, ListeningSendsNothing) {
    const TemporaryFile log;
    for (const Words& command : {Words{"monitor"}, Words{"record", log.path()}}) {
        Listening listening("vcan0", command);
        ASSERT_TRUE(listening.is_ready());
        EXPECT_TRUE(cansend("vcan0", "705#05"));
        listening.signal(SIGINT);
        EXPECT_EQ(listening.end(), 130) << listening.err();
        EXPECT_EQ(passed_until_now(), Words{"705#05"});
    }
}

TEST_F(NodevikOnCan, MonitoringShowsEveryKindOfFrameAndGoesOnAfterBusOff) {
    Listening monitor("vcan0", {"--json", "monitor"});
    ASSERT_TRUE(monitor.is_ready());
    for (const char* frame : {"185#01", "18DAF110#0102", "705#R", "20000040#0000000000000000", "186#"}) {
        EXPECT_TRUE(cansend("vcan0", frame));
    }
    EXPECT_TRUE(monitor.shows("0x186"));
    monitor.signal(SIGINT);
    EXPECT_EQ(monitor.end(), 130);
    const std::string bus = "\"bus\":\"vcan0\",\"id\":";
    std::size_t at = 0;
    for (const char* frame :
         {R"("0x185","length":1,"data":"01","kind":"tpdo1","node":5})",
          R"("0x18DAF110","length":2,"data":"0102","kind":"other","extended":true})",
          R"("0x705","length":0,"data":"","kind":"guard","node":5,"remote":true})",
          R"("0x00000040","length":8,"data":"0000000000000000","kind":"other","error":true})",
          R"("0x186","length":0,"data":"","kind":"tpdo1","node":6})"}) {
        at = monitor.out().find(bus + frame + "\n", at);
        EXPECT_NE(at, std::string::npos) << frame << "\n" << monitor.out();
    }
}

TEST(NodevikOnVirtualCan, ThatGoesDownOrAwayEndsListening) {
    const VirtualCan interface("vcan0");
    const TemporaryFile log;
    for (const char* change : {"link set vcan0 down", "link del vcan0"}) {
        ASSERT_TRUE(run_ip("link set vcan0 up"));
        Listening monitor("vcan0", {"monitor", "--raw"});
        ASSERT_TRUE(monitor.is_ready());
        Listening record("vcan0", {"record", log.path()});
        ASSERT_TRUE(record.is_ready());
        EXPECT_TRUE(cansend("vcan0", "185#01"));
        ASSERT_TRUE(run_ip(change));
        const bool is_down = std::string(change).find("down") != std::string::npos;
        const std::string reason =
            is_down ? "nodevik: interface vcan0 is down: " : "nodevik: interface vcan0 is gone, ";
        EXPECT_EQ(monitor.end(), 4);
        EXPECT_EQ(record.end(), 4);
        EXPECT_NE(monitor.out().find(" vcan0 185#01\n"), std::string::npos) << monitor.out();
        EXPECT_NE(log.content().find(" vcan0 185#01\n"), std::string::npos) << log.content();
        EXPECT_EQ(monitor.err().rfind("nodevik: 1 frames in ", 0), 0U) << monitor.err();
        EXPECT_NE(monitor.err().find(reason), std::string::npos) << monitor.err();
        EXPECT_NE(record.err().find(reason), std::string::npos) << record.err();
    }
}

TEST(NodevikOnVirtualCan, ThatIsDownOrMissingIsTold) {
    const VirtualCan interface("vcan0");
    for (const Words& command :
         {Words{"monitor"}, Words{"sdo", "read", "5", "0x1000"}, Words{"nmt", "start", "5"}}) {
        ChildResult result = run_program(nodevik("vcan7", command));
        EXPECT_EQ(result.status, 4);
        EXPECT_NE(result.err.find("there is no interface vcan7: "), std::string::npos) << result.err;
        ASSERT_TRUE(run_ip("link set vcan0 down"));
        result = run_program(nodevik("vcan0", command));
        EXPECT_EQ(result.status, 4);
        EXPECT_NE(result.err.find("interface vcan0 is down: "), std::string::npos) << result.err;
        result = run_program({NODEVIK, "nmt", "start", "5"});
        EXPECT_EQ(result.status, 4);
        EXPECT_NE(result.err.find("no CAN interface is up (can0 is down, can1 is down, vcan0 is down)"),
                  std::string::npos)
            << result.err;
        ASSERT_TRUE(run_ip("link set vcan0 up"));
    }
}

TEST(NodevikOnControllers, TheLoadIsThatOfTheInterfacesBitRate) {
    for (const std::string name : {"can0", "can1"}) {
        EXPECT_TRUE(run_ip("link set " + name + " down"));
        EXPECT_TRUE(run_ip("link set " + name + " up type can bitrate 250000 listen-only off"));
    }
    Listening monitor("can0", {"monitor", "--count", "2"}, count_receivers("can0"));
    ASSERT_TRUE(monitor.is_ready());
    const ChildResult unnamed = run_program({NODEVIK, "send", "185#01"});
    EXPECT_EQ(unnamed.status, 2);
    EXPECT_EQ(unnamed.err,
              "nodevik: several CAN interfaces are up (can0 is up, can1 is up); name one with --can\n");
    EXPECT_EQ(run_program(nodevik("can1", {"send", "185#0102"})).status, 0);
    EXPECT_TRUE(cansend("can1", "18DAF110#00"));
    EXPECT_EQ(monitor.end(), 0);
    EXPECT_NE(monitor.out().find("can0       185  2  01 02 "), std::string::npos) << monitor.out();
    EXPECT_NE(monitor.err().find(" % of 250 kbit/s)\n"), std::string::npos) << monitor.err();
    run_ip("link set can0 down");
    run_ip("link set can1 down");
}

namespace {

constexpr unsigned int log_frames = 100'000;

// A log with every kind of frame and every length.
std::string long_log() {
    std::string text;
    unsigned int state = 1;
    const auto next = [&state] {
        state = state * 1103515245U + 12345U;
        return state >> 8;
    };
    for (unsigned int i = 0; i < log_frames; ++i) {
        std::array<char, 64> head{};
        const bool is_long = next() % 4 == 0;
        std::snprintf(head.data(), head.size(), is_long ? "(%u.%06u) vcan0 %08X#" : "(%u.%06u) vcan0 %03X#",
                      1763768400 + i / 1'000'000, i % 1'000'000, next() & (is_long ? 0x1FFFFFFFU : 0x7FFU));
        text += head.data();
        const unsigned int length = next() % 9;
        if (next() % 16 == 0) {
            text += length == 0 ? "R" : "R" + std::to_string(length);
        } else {
            for (unsigned int byte = 0; byte < length; ++byte) {
                std::snprintf(head.data(), head.size(), "%02X", next() & 0xFFU);
                text += head.data();
            }
        }
        text += "\n";
    }
    return text;
}

// The frames of a log without their times.
std::string frames_of(const std::string& log) {
    std::istringstream lines(log);
    std::string frames;
    for (std::string line; std::getline(lines, line);) {
        frames += line.substr(line.find(") ") + 2) + "\n";
    }
    return frames;
}

// How long the frames of a log took, by their times.
double seconds_of(const std::string& log) {
    const std::size_t last = log.rfind('(');
    return std::stod(log.substr(last + 1)) - std::stod(log.substr(1));
}

// candump with its log in a file.
class CandumpLog : public RunningProgram {
public:
    CandumpLog()
        : RunningProgram({"candump", "-L", "-r", "33554432", "-n", std::to_string(log_frames), "vcan0"}) {}
};

}  // namespace

TEST(NodevikLogs, GoThroughTheToolsOfOthersAndBack) {
    const VirtualCan interface("vcan0");
    const TemporaryFile original;
    const TemporaryFile recorded;
    original.write(long_log());
    const std::string frames = frames_of(original.content());
    {
        Listening record("vcan0", {"record", recorded.path()});
        ASSERT_TRUE(record.is_ready());
        const int before = count_receivers("vcan0");
        CandumpLog candump;
        ASSERT_TRUE(eventually([before] { return count_receivers("vcan0") > before; }));
        EXPECT_EQ(run_program({"canplayer", "-t", "-I", original.path()}).status, 0);
        EXPECT_EQ(candump.end(), 0);
        const auto size = std::filesystem::file_size(original.path());
        EXPECT_TRUE(eventually([&] { return std::filesystem::file_size(recorded.path()) == size; }));
        record.signal(SIGINT);
        EXPECT_EQ(record.end(), 130);
        EXPECT_EQ(record.err(), "nodevik: 100000 frames recorded in " + recorded.path() + "\n");
        EXPECT_TRUE(frames_of(recorded.content()) == frames) << "what was played is not what was recorded";
        EXPECT_TRUE(recorded.content() == candump.out()) << "candump has written another log";
        std::printf("%u frames in %.1f s\n", log_frames, seconds_of(recorded.content()));
    }
    const ChildResult decoded = run_program({NODEVIK, "decode", recorded.path(), "--raw"});
    EXPECT_TRUE(decoded.out == recorded.content()) << decoded.err;
    CandumpLog candump;
    ASSERT_TRUE(eventually([] { return count_receivers("vcan0") > 0; }));
    const ChildResult played =
        run_program(nodevik("vcan0", {"replay", recorded.path(), "--speed", "0", "--nmt"}));
    EXPECT_EQ(played.status, 0) << played.err;
    EXPECT_EQ(candump.end(), 0);
    EXPECT_TRUE(frames_of(candump.out()) == frames) << "what was recorded is not what was played";
}
