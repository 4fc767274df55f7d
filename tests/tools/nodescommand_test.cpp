// nodevik nodes: who is told, what happens to nodes, and that nothing is sent.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <regex>

#include "tests/support/pseudoterminal.h"
#include "tests/tools/simulatedbus.h"

namespace {

using Bytes = std::string;

const std::vector<ScriptedBus::Frame> some_life{
    {0x705, Bytes("\x00", 1)},                              // it boots
    {0x705, "\x05"},                                        // operational
    {0x085, Bytes("\x30\x81\x11\x01\x02\x03\x04\x05", 8)},  // an emergency
    {0x085, Bytes("\x00\x00\x00\x00\x00\x00\x00\x00", 8)},  // and its end
    {0x18C, "\x01"},                                        // a TPDO of node 12
    {0x707, "\x7F"},
    {0x705, "\x05"},
    {0x702, "\x04"}};

bool matches(const std::string& text, const std::string& pattern) {
    return std::regex_match(text, std::regex(pattern));
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::size_t lines_in(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

// Runs the command until it has read some frames, and then interrupts it.
ChildResult interrupted(ScriptedBus& bus, const std::vector<std::string>& words,
                        const std::vector<ScriptedBus::Frame>& frames, int out = -1) {
    bus.when_read(frames, [&bus] { bus.signal(SIGINT); });
    return bus.run(words, out);
}

}  // namespace

TEST(Nodes, AreThoseThatWereHeard) {
    ScriptedBus bus(NODEVIK);
    const ChildResult result = interrupted(bus, {"nodes"}, some_life);
    EXPECT_EQ(result.status, 130);
    EXPECT_TRUE(matches(result.out,
                        " 2  stopped +[0-9.]+ s +-  0  0\n"
                        " 5  operational +[0-9.]+ s +[0-9]+ ms  1  2  0x0000 [^\n]*, register 0x00\n"
                        " 7  pre-operational +[0-9.]+ s +-  0  0\n"
                        "12  unknown +[0-9.]+ s +-  0  0\n"))
        << result.out;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(bus.heard, Frames());
}

TEST(Nodes, AreToldAsJson) {
    ScriptedBus bus(NODEVIK);
    const std::vector<ScriptedBus::Frame> frames(some_life.begin(), some_life.begin() + 3);
    const ChildResult result = interrupted(bus, {"--json", "nodes"}, frames);
    EXPECT_TRUE(matches(
        result.out,
        "\\{\"node\":5,\"state\":\"operational\",\"heard\":[0-9.]+,\"heartbeat_ms\":null,\"guarded\":false,"
        "\"boot_ups\":1,\"emergencies\":1,\"trouble\":true,\"emergency\":\\{\"time\":[0-9.]+,"
        "\"code\":\"0x8130\",\"register\":17,\"data\":\"0102030405\",\"text\":\"[^\"]+\"\\}\\}\n"))
        << result.out;
}

TEST(Nodes, ThatAnswerToGuardingSaySo) {
    ScriptedBus bus(NODEVIK);
    const std::vector<ScriptedBus::Frame> frames{{0x703, "\x05"}, {0x703, "\x85"}, {0x703, "\x05"}};
    EXPECT_TRUE(
        has(interrupted(bus, {"nodes", "--json"}, frames).out, "\"heartbeat_ms\":null,\"guarded\":true,"));
    EXPECT_TRUE(has(interrupted(bus, {"nodes"}, frames).out, "  guarded  "));
}

TEST(Nodes, AreListenedForAsLongAsWasSaid) {
    ScriptedBus bus(NODEVIK);
    const auto begin = std::chrono::steady_clock::now();
    const ChildResult result = bus.run({"nodes", "--seconds", "0.05"});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(matches(result.err,
                        "nodevik: no node was heard within [0-9.]+ s; one that sends nothing by itself "
                        "answers 'nodevik scan'\n"))
        << result.err;
    EXPECT_EQ(bus.heard, Frames());
}

TEST(Nodes, AreListenedForTwoSecondsUnlessMoreIsSaid) {
    ScriptedBus bus(NODEVIK);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(bus.run({"nodes"}).status, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
}

TEST(Nodes, FrameThatTellNothingAreNoNodes) {
    ScriptedBus bus(NODEVIK);
    const ChildResult result =
        interrupted(bus, {"nodes"},
                    {{0x080, ""}, {0x700, "\x05"}, {0x605, "\x40"}, {0x705, "\x05\x05"}, {0x7E4, "\x44"}});
    EXPECT_EQ(result.out, "");
}

TEST(NodesWatch, TellsWhatHappensALineEach) {
    ScriptedBus bus(NODEVIK);
    std::string text;
    bus.when_read(some_life, [&] {
        text = bus.out();
        if (lines_in(text) >= 7) {
            bus.signal(SIGINT);
        }
    });
    const ChildResult result = bus.run({"nodes", "--watch"});
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.err, "");
    const std::string time = "[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}  node ";
    // Node 12 tells no state; it is found when the frames that wait have been read.
    EXPECT_TRUE(matches(result.out, time + "5  boot-up\n" + time + "5  operational\n" + time +
                                        "5  emergency 0x8130 [^\n]*, register 0x11\n" + time +
                                        "5  emergency over: 0x0000 [^\n]*, register 0x00\n(" + time +
                                        "12  heard\n)?" + time + "7  pre-operational\n(" + time +
                                        "12  heard\n)?" + time + "2  stopped\n(" + time + "12  heard\n)?"))
        << result.out;
    EXPECT_TRUE(has(text, "node 12  heard\n"));
    EXPECT_EQ(bus.heard, Frames());
}

TEST(NodesWatch, TellsANodeWhoseHeartbeatStopsLost) {
    ScriptedBus bus(NODEVIK);
    bool comes_back = false;
    const std::vector<ScriptedBus::Frame> beats{{0x705, "\x05"}, {0x705, "\x05"}, {0x705, "\x05"}};
    bus.when_read(beats, [&] {
        const std::string out = bus.out();
        if (!comes_back && has(out, "\"event\":\"lost\"")) {
            bus.send({0x705, "\x7F"});
            comes_back = true;
        } else if (has(out, "\"pre-operational\"")) {
            bus.signal(SIGINT);
        }
    });
    const ChildResult result = bus.run({"--json", "nodes", "--watch"});
    EXPECT_EQ(result.status, 130);
    const std::string rest =
        "\"heard\":[0-9.]+,\"heartbeat_ms\":([0-9]+|null),\"guarded\":false,"
        "\"boot_ups\":0,\"emergencies\":0,\"trouble\":false,\"emergency\":null\\}\n";
    EXPECT_TRUE(matches(
        result.out, "\\{\"time\":[0-9.]+,\"event\":\"state\",\"node\":5,\"state\":\"operational\"," + rest +
                        "\\{\"time\":[0-9.]+,\"event\":\"lost\",\"node\":5,\"state\":\"lost\"," + rest +
                        "\\{\"time\":[0-9.]+,\"event\":\"state\",\"node\":5,\"state\":\"pre-operational\"," +
                        rest))
        << result.out;
    EXPECT_EQ(bus.heard, Frames());
}

TEST(NodesWatch, IsATableInPlaceOnATerminal) {
    setenv("TERM", "xterm", 1);
    unsetenv("NO_COLOR");
    const PseudoTerminal terminal;
    const int near_end = open(terminal.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    winsize size{};
    size.ws_col = 100;
    size.ws_row = 20;
    ioctl(near_end, TIOCSWINSZ, &size);
    ScriptedBus bus(NODEVIK);
    std::string shown;
    bool is_seen = false;
    bus.when_read({{0x705, "\x05"}}, [&] {
        shown += terminal.receive(65536, 0);
        if (!is_seen && has(shown, "operational")) {
            bus.send({0x705, "\x05"});
            bus.send({0x705, "\x05"});
            is_seen = true;
        } else if (has(shown, "lost")) {
            bus.signal(SIGINT);
        }
    });
    const ChildResult result = bus.run({"nodes", "--watch"}, near_end);
    shown += terminal.receive(65536, 0);
    close(near_end);
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(shown.rfind("\r\033[2mNODE\033[m  \033[2mSTATE\033[m  ", 0), 0U) << shown;
    EXPECT_TRUE(has(shown, "\033[J\r\033[1A\033[2mNODE")) << shown;  // one line before the node was heard
    EXPECT_TRUE(has(shown, "\n   5  \033[32moperational\033[m  ")) << shown;
    EXPECT_TRUE(has(shown, "\033[J\r\033[2A\033[2mNODE")) << shown;
    EXPECT_TRUE(has(shown, "\n   5  \033[31mlost\033[m  ")) << shown;
    EXPECT_EQ(shown.substr(shown.size() - 3), "\033[J");
    EXPECT_EQ(bus.heard, Frames());
}

TEST(NodesWatch, EndsQuietlyWhenNobodyReadsItsResults) {
    ScriptedBus bus(NODEVIK);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    bus.when_read({}, [&ends] {
        close(ends[0]);
        ends[0] = -1;
    });
    const ChildResult result = bus.run({"nodes", "--watch"}, ends[1]);
    close(ends[1]);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
}

TEST(NodesWatch, EndsAfterItsTime) {
    ScriptedBus bus(NODEVIK);
    expect_done(bus.run({"nodes", "--watch", "--seconds", "0.01"}), "");
}

TEST(Nodes, OfASimulatorAreSentNothing) {
    unsigned port = 0;
    {
        const LoopbackSocket probe;
        port = probe.port();
    }
    const std::string own = std::to_string(port);
    const SimulatedBus bus(NODEVIK, NODE_SIMULATOR,
                           {"--nodes", "5,9", "--heartbeat", "50", "--start", "--peer", "127.0.0.1:" + own});
    RunningProgram program({NODEVIK, "--udp", bus.address() + "," + own, "nodes", "--watch"});
    EXPECT_TRUE(eventually([&] { return has(program.out(), "node 9  operational\n"); }));
    EXPECT_EQ(bus.simulator().command("emergency 5 0x8130"), "ok");
    EXPECT_TRUE(eventually([&] { return has(program.out(), "node 5  emergency 0x8130 "); }));
    const std::size_t before = bus.sent("709 1 05");
    EXPECT_TRUE(eventually([&] { return bus.sent("709 1 05") >= before + 3; }));  // and so has been measured
    EXPECT_EQ(bus.simulator().command("off 9"), "ok");
    EXPECT_TRUE(eventually([&] { return has(program.out(), "node 9  lost\n"); }));
    EXPECT_EQ(bus.simulator().command("on 9"), "ok");
    EXPECT_TRUE(eventually([&] { return has(program.out(), "node 9  boot-up\n"); }));
    program.signal(SIGINT);
    EXPECT_EQ(program.end(), 130);
    EXPECT_EQ(bus.heard(), Frames());
}
