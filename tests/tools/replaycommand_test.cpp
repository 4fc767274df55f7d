// nodevik replay: every frame that it sends, and what it tells of a log.

#include <fnmatch.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>

#include "tests/support/candatagram.h"
#include "tests/support/childprocess.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/pseudoterminal.h"
#include "tests/support/runningprogram.h"
#include "tests/support/temporaryfile.h"

namespace {

using Lines = std::vector<std::string>;

// A log, and whoever receives what is sent of it.
class Replay : public testing::Test {
protected:
    void write(const std::string& lines) { log_.write(lines); }

    std::string bus() const { return "127.0.0.1:" + std::to_string(peer_.port()); }

    Lines words(const Lines& options) const {
        Lines all{NODEVIK, "--udp", bus(), "replay", log_.path()};
        all.insert(all.end(), options.begin(), options.end());
        return all;
    }

    ChildResult replay(const Lines& options = {}) const { return run_program(words(options)); }

    // What has been sent: "185#0102".
    Lines sent() {
        Lines frames;
        while (const auto datagram = peer_.receive(0)) {
            frames.push_back(text_of(*datagram));
        }
        return frames;
    }

    // The next frame that is sent.
    std::string next_sent() {
        const auto datagram = peer_.receive(60000);
        return datagram ? text_of(*datagram) : "nothing";
    }

    void expect_told(const ChildResult& result, int status, const std::string& pattern) const {
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(fnmatch(pattern.c_str(), result.err.c_str(), 0), 0) << result.err;
    }

    const std::string& log() const { return log_.path(); }

private:
    static std::string text_of(const std::string& datagram) {
        const auto byte = [&datagram](std::size_t at) { return static_cast<unsigned char>(datagram.at(at)); };
        char text[8];
        std::snprintf(text, sizeof text, "%03X#", static_cast<unsigned int>(byte(0) | byte(1) << 8));
        std::string frame = text;
        for (unsigned int i = 0; i < byte(4); ++i) {
            std::snprintf(text, sizeof text, "%02X", static_cast<unsigned int>(byte(8 + i)));
            frame += text;
        }
        return frame;
    }

    TemporaryFile log_;
    LoopbackSocket peer_;
};

}  // namespace

TEST_F(Replay, SendsEveryFrameInOrderAndNothingElse) {
    std::string lines;
    Lines expected;
    for (unsigned int i = 0; i < 150; ++i) {
        char data[20] = "";
        for (unsigned int k = 0; k < i % 9; ++k) {
            std::snprintf(data + 2 * k, sizeof data - 2 * k, "%02X", (i * 31 + k) & 0xFF);
        }
        char line[64];
        std::snprintf(line, sizeof line, "(1436509052.%06u) can0 ", i * 10);
        char frame[32];
        std::snprintf(frame, sizeof frame, "%03X#%s", 1 + i * 13 % 0x7FF, data);
        lines += line + std::string(frame) + "\n";
        expected.emplace_back(frame);
    }
    write(lines);
    expect_told(replay(), 0, "nodevik: 150 frames sent in *[0-9].[0-9] s\n");
    EXPECT_EQ(sent(), expected);
}

TEST_F(Replay, KeepsTheTimesBetweenTheFrames) {
    write("(1000000000.000000) can0 181#01\n(1000000000.400000) can0 182#02\n");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(replay().status, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(400));
    const auto second = std::chrono::steady_clock::now();
    EXPECT_EQ(replay({"--speed", "2"}).status, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - second, std::chrono::milliseconds(200));
    EXPECT_EQ(sent(), (Lines{"181#01", "182#02", "181#01", "182#02"}));
}

TEST_F(Replay, GoesAsFastAsItIsAsked) {
    // At the log's own pace these would take an hour.
    write("(1000000000.000000) can0 181#01\n(1000003600.000000) can0 182#02\n");
    EXPECT_EQ(replay({"--speed", "1000000"}).status, 0);
    EXPECT_EQ(replay({"--speed", "0"}).status, 0);
    EXPECT_EQ(sent(), (Lines{"181#01", "182#02", "181#01", "182#02"}));
}

TEST_F(Replay, IsNotHeldUpByALogWhoseTimeGoesBack) {
    write(
        "(1000003600.000000) can0 181#01\n(1000000000.000000) can0 182#02\n(1000000000.000100) can0 183#03\n"
        "(1000003600.000000) can0 184#04\n");
    RunningProgram run(words({}));
    EXPECT_EQ(next_sent(), "181#01");
    EXPECT_EQ(next_sent(), "182#02");
    EXPECT_EQ(next_sent(), "183#03");
    // The fourth one is an hour later again.
    run.signal(SIGINT);
    EXPECT_EQ(run.end(), 130);
    EXPECT_EQ(fnmatch("nodevik: 3 frames sent in *[0-9].[0-9] s\n", run.err().c_str(), 0), 0) << run.err();
    EXPECT_EQ(sent(), Lines{});
}

TEST_F(Replay, SendsTheIdentifiersThatAreAskedFor) {
    write("(1.000000) can0 181#01\n(1.000001) can0 200#02\n(1.000002) can0 201#03\n(1.000003) can0 27F#\n");
    expect_told(replay({"--id", "0x200-0x201"}), 0, "nodevik: 2 frames sent in *\n");
    expect_told(replay({"--id", "0x27F"}), 0, "nodevik: 1 frames sent in *\n");
    EXPECT_EQ(sent(), (Lines{"200#02", "201#03", "27F#"}));
}

TEST_F(Replay, SendsTheLogAsOftenAsItIsAsked) {
    write("(1.000000) can0 181#01\nfoo\n(1.000001) can0 182#02\n");
    expect_told(replay({"--loop", "3"}), 0, "nodevik: " + log() + ":2: *\nnodevik: 6 frames sent in *\n");
    EXPECT_EQ(sent(), (Lines{"181#01", "182#02", "181#01", "182#02", "181#01", "182#02"}));
}

TEST_F(Replay, SendsTheLogUntilASignalComes) {
    write("(1.000000) can0 181#01\n(1.001000) can0 182#02\n");
    RunningProgram run(words({"--loop", "0"}));
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(next_sent(), i % 2 == 0 ? "181#01" : "182#02");
    }
    run.signal(SIGINT);
    EXPECT_EQ(run.end(), 130);
    EXPECT_EQ(fnmatch("nodevik: *[0-9] frames sent in *\n", run.err().c_str(), 0), 0) << run.err();
    for (const std::string& frame : sent()) {
        EXPECT_TRUE(frame == "181#01" || frame == "182#02") << frame;
    }
}

TEST_F(Replay, EndsWhenThereIsNothingToSendHoweverOften) {
    write("");
    expect_told(replay({"--loop", "0"}), 0, "nodevik: 0 frames sent in *\n");
    write("(1.000000) can0 181#01\n");
    expect_told(replay({"--loop", "0", "--id", "0x182"}), 0, "nodevik: 0 frames sent in *\n");
    EXPECT_EQ(sent(), Lines{});
}

TEST_F(Replay, LeavesNmtOutUnlessItIsAskedFor) {
    write("(1.000000) can0 000#0105\n(1.000001) can0 080#\n(1.000002) can0 000#8100\n");
    expect_told(replay(), 0,
                "nodevik: 1 frames sent in *\n"
                "nodevik: 2 NMT commands were left out; --nmt sends them too\n");
    EXPECT_EQ(sent(), Lines{"080#"});
    expect_told(replay({"--nmt"}), 0, "nodevik: 3 frames sent in *\n");
    EXPECT_EQ(sent(), (Lines{"000#0105", "080#", "000#8100"}));
}

TEST_F(Replay, TellsWhatTheBusHasNoRoomFor) {
    write("(1.000000) can0 18DAF110#00\n(1.000001) can0 705#R\n(1.000002) can0 181#01\n");
    expect_told(
        replay(), 0,
        "nodevik: 1 frames sent in *\n"
        "nodevik: 2 frames were left out: over UDP there are no remote requests and no 29-bit identifiers\n");
    EXPECT_EQ(sent(), Lines{"181#01"});
}

TEST_F(Replay, TellsItsEndAsJson) {
    write(
        "(1763768400.000000) can0 185#01\n(1763768400.000000) can0 000#0105\n"
        "(1763768400.000000) can0 18DAF110#02\n(1763768400.000000) can0 705#05\n");
    const ChildResult result = replay({"--json", "--loop", "010"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(fnmatch(R"({"sent":20,"left_out":20,"seconds":[0-9]*})"
                      "\n",
                      result.out.c_str(), 0),
              0)
        << result.out;
}

TEST_F(Replay, ShowsOnATerminalHowFarItIsUnlessItIsToBeQuiet) {
    write("(1763768400.000000) can0 185#01\n(1763768400.200000) can0 185#02\n");
    for (const std::string quiet : {"", "--quiet"}) {
        const PseudoTerminal terminal;
        const ChildResult result =
            run_program({"/bin/sh", "-c", "exec \"$0\" --udp \"$1\" replay \"$2\" $4 2> \"$3\"", NODEVIK,
                         bus(), log(), terminal.path(), quiet});
        EXPECT_EQ(result.status, 0);
        std::string shown;
        while (shown.find("2 frames sent in ") == std::string::npos && !testing::Test::HasFailure()) {
            const std::string more = terminal.receive(1);
            EXPECT_NE(more, "") << shown;
            shown += more;
        }
        EXPECT_EQ(shown.find(" 50 %") != std::string::npos, quiet.empty()) << shown;
    }
}

TEST_F(Replay, TellsLinesThatAreNoneOfALog) {
    write(
        "# a comment\n(1.000000) can0 181#01\n(1.000001) can0 20000004#000C000000000000\n(1.000002) can0 "
        "123##1AA\n(1.000003) can0 181#0\n(1.000004) can0 182#02\n(1.000005) can0 183#0");
    expect_told(replay(), 0,
                "nodevik: " + log() + ":1: *\nnodevik: " + log() + ":5: *\nnodevik: " + log() +
                    ":7: *\nnodevik: 2 frames sent in *\n"
                    "nodevik: passed over: 1 error frames, 1 FD frames, 0 counts of lost frames\n");
    EXPECT_EQ(sent(), (Lines{"181#01", "182#02"}));
}

TEST_F(Replay, ReadsALogThatComesThroughAPipe) {
    write("(1.000000) can0 181#01\n(1.000001) can0 182#02\n");
    const ChildResult result =
        run_program({"/bin/sh", "-c", "cat \"$0\" | \"$1\" --udp \"$2\" replay /dev/stdin", log(), NODEVIK,
                     words({})[2]});
    expect_told(result, 0, "nodevik: 2 frames sent in *\n");
    EXPECT_EQ(sent(), (Lines{"181#01", "182#02"}));
    const ChildResult again =
        run_program({"/bin/sh", "-c", "cat \"$0\" | \"$1\" --udp \"$2\" replay /dev/stdin --loop 2", log(),
                     NODEVIK, words({})[2]});
    expect_told(again, 5, "nodevik: 2 frames sent in *\nnodevik: /dev/stdin cannot be read: Illegal seek\n");
}

TEST_F(Replay, EndsWithTheStatusThatTheTroubleHas) {
    expect_told(run_program({NODEVIK, "--udp", "127.0.0.1:1", "replay", "/no/such"}), 5,
                "nodevik: /no/such cannot be read: No such file or directory\n");
    expect_told(run_program({NODEVIK, "--udp", "127.0.0.1:1", "replay", "/"}), 5,
                "nodevik: *\nnodevik: / cannot be read: Is a directory\n");
    write("(1.000000) can0 181#01\n");
    for (const char* speed : {"-1", "nan", "fast", "1e9"}) {
        expect_told(
            replay({"--speed", speed}), 2,
            "nodevik: --speed: '" + std::string(speed) +
                "' is no speed; right are 0 to 1000000, such as 0.5 or 2; 'nodevik replay --help' tells "
                "more\n");
    }
    expect_told(
        replay({"--loop", "-1"}), 2,
        "nodevik: --loop: '-1' is no number of times; right are 0, 1 and more; 'nodevik replay --help' tells "
        "more\n");
    expect_told(
        replay({"--id", "0x200-0x100"}), 2,
        "nodevik: --id takes an identifier or a range, such as 0x185 or 0x180-0x1FF, not '0x200-0x100'\n");
    const LoopbackSocket taken;
    const std::string port = std::to_string(taken.port());
    expect_told(run_program({NODEVIK, "--udp", "127.0.0.1:1," + port, "replay", log()}), 4,
                "nodevik: UDP port " + port + " cannot be used: *\n");
    EXPECT_EQ(sent(), Lines{});
}
