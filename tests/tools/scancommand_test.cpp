// nodevik scan: who is found, what is told of them, and that nothing but SDO requests is sent.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "tests/support/scriptedsdonode.h"
#include "tests/tools/simulatedbus.h"

namespace {

const std::string simulated = "  0x000F0191  0x00000000  0x00000401  0x00010000  0x0000000";
const std::string names = "  node-simulator, hardware simulated hardware, software 1.0\n";

// Nodes of a simulator that are switched on, and said so before the scan.
class Scan : public testing::Test {
protected:
    Scan() : bus(NODEVIK, NODE_SIMULATOR, {"--nodes", "5,6"}) {
        EXPECT_EQ(bus.run({"sdo", "read", "5", "0x1001:0", "--segments"}).status, 0);
        before = bus.heard().size();
    }

    // What the scan has sent.
    Frames asked() const {
        Frames frames = bus.heard();
        frames.erase(frames.begin(), frames.begin() + static_cast<std::ptrdiff_t>(before));
        return frames;
    }

    SimulatedBus bus;
    std::size_t before = 0;
};

// Nodes whose SDO servers the test has written.
class ScriptedScan : public testing::Test {
protected:
    ScriptedScan() {
        bus.answer = [this](const ScriptedBus::Frame& frame) {
            std::vector<ScriptedBus::Frame> answers;
            const unsigned node = frame.first - 0x600;
            if (const auto found = nodes.find(node); found != nodes.end() && frame.second.size() == 8) {
                ScriptedSdoNode::Data data{};
                std::copy(frame.second.begin(), frame.second.end(), data.begin());
                for (const ScriptedSdoNode::Data& one : found->second.receive(data)) {
                    answers.emplace_back(0x580 + node, std::string(one.begin(), one.end()));
                }
            }
            return answers;
        };
    }

    // A node with a device type.
    ScriptedSdoNode& add(unsigned node) {
        ScriptedSdoNode& one = nodes[node];
        one.objects[0x100000] = {0x91, 0x01, 0x00, 0x00};
        return one;
    }
    void set_name(unsigned node, const std::string& name) {
        nodes[node].objects[0x100800] = {name.begin(), name.end()};
    }
    void expect_requests_only() const {
        for (const std::string& frame : bus.heard) {
            EXPECT_EQ(frame.front(), '6') << frame;
        }
    }

    ScriptedBus bus{NODEVIK};
    std::map<unsigned, ScriptedSdoNode> nodes;
};

}  // namespace

TEST_F(Scan, FindsTheNodesThatAnswer) {
    expect_done(bus.run({"scan", "5-6", "--timeout", "20000"}),
                "5  unknown" + simulated + "5" + names + "6  unknown" + simulated + "6" + names);
    for (const std::string& frame : asked()) {
        EXPECT_TRUE(frame.rfind("605 8 ", 0) == 0 || frame.rfind("606 8 ", 0) == 0) << frame;
        EXPECT_NE(frame.substr(6, 2), "80") << "an abort";
    }
}

TEST_F(Scan, TellsThemAsJson) {
    expect_done(
        bus.run({"scan", "6", "--json", "--timeout", "20000"}),
        "{\"node\":6,\"state\":\"unknown\",\"answers\":true,\"device_type\":983441,\"vendor\":0,"
        "\"product\":1025,\"revision\":65536,\"serial\":6,\"name\":\"node-simulator\",\"hardware\":"
        "\"simulated hardware\",\"software\":\"1.0\",\"evidence\":[\"sdo-answer\"],\"duplicate\":false,"
        "\"repeated\":false}\n");
}

TEST_F(Scan, AsksEveryNumberOnceWhenNoneIsNamed) {
    EXPECT_EQ(bus.run({"scan", "--timeout", "300"}).status, 0);
    const Frames frames = asked();
    for (unsigned node = 1; node <= 127; ++node) {
        std::array<char, 40> request{};
        std::snprintf(request.data(), request.size(), "%x 8 40 00 10 00 00 00 00 00", 0x600 + node);
        EXPECT_EQ(std::count(frames.begin(), frames.end(), request.data()), 1) << node;
    }
}

TEST_F(Scan, EndsWith3WhenNobodyAnswers) {
    expect_failure(bus.run({"scan", "7", "--timeout", "50"}), 3,
                   "no node has answered within 50 ms; are the nodes on, and is this their bus and its bit "
                   "rate?");
    EXPECT_EQ(asked(), (Frames{"607 8 40 00 10 00 00 00 00 00", "607 8 80 00 10 00 00 00 04 05"}));
}

TEST_F(Scan, RefusesWhatIsNoRangeBeforeAnythingIsSent) {
    for (const char* range : {"0", "128", "1-128", "5-4", "5-", "-", "x", "1-2-3", " 5"}) {
        expect_failure(
            bus.run({"scan", "--", range}), 2,
            "'" + std::string(range) + "' is no range of nodes; right are 5, 1-20 and whatever is in 1-127");
    }
    expect_failure(bus.run({"scan", "--seconds", "1"}), 2,
                   "--seconds requires --passive; 'nodevik scan --help' tells more");
    EXPECT_EQ(asked(), Frames());
}

TEST_F(ScriptedScan, TellsWhatNodesSayOfThemselves) {
    add(5).objects[0x101801] = {0x2B, 0, 0, 0};
    set_name(5, "pump");
    add(6);
    expect_done(bus.run({"scan", "5-6", "--timeout", "20000"}),
                "5  unknown  0x00000191  0x0000002B  -  -  -  pump\n"
                "6  unknown  0x00000191  -           -  -  -\n");
    expect_requests_only();
}

TEST_F(ScriptedScan, KeepsANodesTextFromCommandingTheTerminal) {
    add(5);
    set_name(5, "\x1b[31mred\nnode \xFF");
    const ChildResult text = bus.run({"scan", "5", "--timeout", "20000"});
    EXPECT_EQ(text.out.find('\x1b'), std::string::npos);
    EXPECT_EQ(std::count(text.out.begin(), text.out.end(), '\n'), 1) << text.out;
    const ChildResult json = bus.run({"scan", "5", "--json", "--timeout", "20000"});
    EXPECT_EQ(json.out.find('\x1b'), std::string::npos);
    EXPECT_EQ(std::count(json.out.begin(), json.out.end(), '\n'), 1) << json.out;
}

TEST_F(ScriptedScan, FindsANodeThatRefusesEverything) {
    nodes[5];
    expect_done(bus.run({"scan", "5", "--timeout", "20000"}), "5  unknown  -  -  -  -  -\n");
}

TEST_F(ScriptedScan, TellsANodeThatFallsSilent) {
    add(5).objects[0x101801] = {0x2B, 0, 0, 0};
    nodes[5].tamper = [](unsigned first, ScriptedSdoNode::Answers& answers) {
        if (first >= 2) {
            answers.clear();
        }
    };
    expect_done(bus.run({"scan", "5", "--timeout", "200"}), "5  unknown  0x00000191  -  -  -  -\n");
    expect_requests_only();
}

TEST_F(ScriptedScan, TellsTwoNodesWithOneNumber) {
    add(5);
    nodes[5].tamper = [](unsigned, ScriptedSdoNode::Answers& answers) {
        ScriptedSdoNode::Data other = answers.front();
        other[4] = static_cast<std::uint8_t>(other[4] + 1);
        answers.push_back(other);
    };
    const ChildResult result = bus.run({"scan", "5", "--timeout", "20000"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("  two nodes have this number\n"), std::string::npos) << result.out;
    EXPECT_NE(bus.run({"scan", "5", "--json", "--timeout", "20000"}).out.find("\"duplicate\":true"),
              std::string::npos);
}

TEST_F(ScriptedScan, TellsAnswersThatComeTwice) {
    add(5);
    nodes[5].tamper = [](unsigned, ScriptedSdoNode::Answers& answers) { answers.push_back(answers.front()); };
    EXPECT_EQ(bus.run({"scan", "5", "--timeout", "20000"}).out,
              "5  unknown  0x00000191  -  -  -  -  answers come twice\n");
}

TEST_F(ScriptedScan, FindsANodeThatOnlySpeaks) {
    bus.when_read({}, [this] { bus.send({0x705, "\x04"}); });
    expect_done(bus.run({"scan", "5", "--timeout", "300"}),
                "5  stopped  -  -  -  -  -  only heard: heartbeat\n");
}

TEST_F(ScriptedScan, IsNotMisledByTheAnswersOfOthers) {
    bus.answer = [](const ScriptedBus::Frame& frame) {
        return std::vector<ScriptedBus::Frame>{{frame.first - 0x600 + 0x581, frame.second}};
    };
    EXPECT_EQ(bus.run({"scan", "5", "--timeout", "50"}).status, 3);
}

TEST_F(ScriptedScan, TellsAtASignalWhoWasFound) {
    add(5);
    set_name(5, "pump");
    nodes[5].objects[0x100A00] = {'2'};
    bool is_asked_last = false;
    const auto answer = bus.answer;
    bus.answer = [&](const ScriptedBus::Frame& frame) {
        is_asked_last = is_asked_last || frame.second.substr(0, 4) == std::string("\x40\x0A\x10\x00", 4);
        return answer(frame);
    };
    // The node is told when its last answer has settled; nobody tells when that is, and so it is heard twice.
    bus.meanwhile = [&, since = std::chrono::steady_clock::time_point()]() mutable {
        if (!is_asked_last) {
            since = std::chrono::steady_clock::now();
        } else if (std::chrono::steady_clock::now() - since > std::chrono::milliseconds(300)) {
            bus.signal(SIGINT);
        }
    };
    const ChildResult result = bus.run({"scan", "5-7", "--timeout", "600000"});
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.out, "5  unknown  0x00000191  -  -  -  -  pump, software 2\n");
    EXPECT_EQ(result.err, "");
    expect_requests_only();
    EXPECT_EQ(bus.heard.back(), "607 8 80 00 10 00 00 00 00 08");  // whoever is still asked is told
}

TEST_F(ScriptedScan, EndsQuietlyWhenNobodyReadsItsResults) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const ChildResult result = bus.run({"scan"}, ends[1]);
    close(ends[1]);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    expect_requests_only();
}

TEST_F(ScriptedScan, ThatIsPassiveSendsNothing) {
    add(5);
    bus.when_read({{0x705, "\x05"}, {0x189, "\x01"}, {0x720, std::string(1, '\0')}},
                  [this] { bus.signal(SIGINT); });
    const ChildResult result = bus.run({"scan", "--passive", "5-20"});
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.out,
              "5  operational  -  -  -  -  -  only heard: heartbeat\n"
              "9  unknown      -  -  -  -  -  only heard: tpdo\n");
    EXPECT_EQ(bus.heard, Frames());
}

TEST_F(ScriptedScan, ThatIsPassiveEndsWith3WhenNobodySpeaks) {
    expect_failure(bus.run({"scan", "--passive", "--seconds", "0.01"}), 3,
                   "no node was heard; one that sends nothing by itself answers a scan without --passive");
    EXPECT_EQ(bus.heard, Frames());
}

TEST_F(Scan, EndsWith5WhenItsResultsFindNoRoom) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    RunningProgram program(bus.words({"scan", "5", "--timeout", "20000"}), full);
    EXPECT_EQ(program.end(), 5);
    EXPECT_EQ(program.err(), "nodevik: standard output takes nothing more: No space left on device\n");
    close(full);
}
