// node-simulator as a program: its output, its socket, its end.

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "simulator/node/canframe.h"
#include "simulator/node/nodeoptions.h"
#include "tests/support/childprocess.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/nodeprocess.h"
#include "tests/support/temporaryfile.h"

namespace {

using node_simulator::CanFrame;
using node_simulator::make_frame;

std::string datagram(const CanFrame& frame) {
    const auto bytes = node_simulator::to_datagram(frame);
    return {bytes.begin(), bytes.end()};
}

const std::string read_device_type = datagram(make_frame(0x601, {0x40, 0, 0x10, 0, 0, 0, 0, 0}));
const std::string device_type = datagram(make_frame(0x581, {0x43, 0, 0x10, 0, 0x91, 0x01, 0x0F, 0}));
const std::string boot_up = datagram(make_frame(0x701, {0}));

std::string peer_option(const LoopbackSocket& socket) {
    return "127.0.0.1:" + std::to_string(socket.port());
}

ChildResult run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), NODE_SIMULATOR);
    return run_program(arguments);
}

}  // namespace

TEST(NodeSimulator, SendsToThePeerFromTheStart) {
    LoopbackSocket master;
    const NodeProcess node(NODE_SIMULATOR, {"--peer", peer_option(master)});
    EXPECT_EQ(master.receive(), boot_up);
    EXPECT_EQ(master.last_sender(), node.port());
    const LoopbackSocket other;
    other.send(node.port(), read_device_type);
    EXPECT_EQ(master.receive(), device_type);
}

TEST(NodeSimulator, WithoutPeerAnswersTheLastSender) {
    LoopbackSocket first;
    LoopbackSocket second;
    const NodeProcess node(NODE_SIMULATOR, {});
    first.send(node.port(), read_device_type);
    EXPECT_EQ(first.receive(), boot_up);
    EXPECT_EQ(first.receive(), device_type);
    second.send(node.port(), read_device_type);
    EXPECT_EQ(second.receive(), device_type);
}

TEST(NodeSimulator, IgnoresWhatIsNoFrame) {
    LoopbackSocket master;
    const NodeProcess node(NODE_SIMULATOR, {"--peer", peer_option(master)});
    EXPECT_EQ(master.receive(), boot_up);
    master.send(node.port(), "");
    master.send(node.port(), "too short");
    master.send(node.port(), read_device_type);
    EXPECT_EQ(master.receive(), device_type);
}

TEST(NodeSimulator, AnswersCommands) {
    LoopbackSocket master;
    const NodeProcess node(NODE_SIMULATOR, {"--peer", peer_option(master), "--nodes", "1,2"});
    EXPECT_EQ(master.receive(), boot_up);
    ASSERT_TRUE(master.receive());
    EXPECT_EQ(node.command("emergency 2 0x1000"), "ok");
    EXPECT_EQ(master.receive(), datagram(make_frame(0x82, {0, 0x10, 1, 0, 0, 0, 0, 0})));
    EXPECT_EQ(node.command("dance"), "error: unknown command 'dance'");
}

TEST(NodeSimulator, HeartbeatsKeepComing) {
    LoopbackSocket master;
    const NodeProcess node(NODE_SIMULATOR, {"--peer", peer_option(master), "--heartbeat", "5"});
    EXPECT_EQ(master.receive(), boot_up);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(master.receive(), datagram(make_frame(0x701, {127})));
    }
}

TEST(NodeSimulator, LateAnswersComeByThemselves) {
    LoopbackSocket master;
    const NodeProcess node(NODE_SIMULATOR, {"--peer", peer_option(master), "--late", "100", "--delay", "10"});
    EXPECT_EQ(master.receive(), boot_up);
    master.send(node.port(), read_device_type);
    EXPECT_EQ(master.receive(), device_type);
}

TEST(NodeSimulator, LogsEachFrame) {
    LoopbackSocket master;
    const std::string path = testing::TempDir() + "node." + std::to_string(master.port()) + ".log";
    {
        const NodeProcess node(NODE_SIMULATOR, {"--peer", peer_option(master), "--log", path});
        EXPECT_EQ(master.receive(), boot_up);
        master.send(node.port(), read_device_type);
        EXPECT_EQ(master.receive(), device_type);
    }
    std::ifstream log(path);
    const std::string text{std::istreambuf_iterator<char>(log), {}};
    std::remove(path.c_str());
    EXPECT_NE(text.find(" out 701 1 00\n"), std::string::npos) << text;
    EXPECT_NE(text.find(" in  601 8 40 00 10 00 00 00 00 00\n"), std::string::npos) << text;
    EXPECT_NE(text.find(" out 581 8 43 00 10 00 91 01 0f 00\n"), std::string::npos) << text;
}

TEST(NodeSimulator, RunsACommandWithThePortsAndEndsWithItsStatus) {
    const ChildResult result = run({"--listen", "0", "--run", "sh", "-c", "echo {master}.{node}; exit 5"});
    unsigned port = 0;
    unsigned master = 0;
    unsigned node = 0;
    ASSERT_EQ(std::sscanf(result.out.c_str(), "port %u\n%u.%u", &port, &master, &node), 3) << result.out;
    EXPECT_EQ(node, port);
    EXPECT_NE(master, 0U);
    EXPECT_NE(master, port);
    EXPECT_EQ(result.status, 5);
}

TEST(NodeSimulator, TellsTheSignalThatEndedItsCommand) {
    EXPECT_EQ(run({"--listen", "0", "--run", "sh", "-c", "kill -9 $$"}).status, 128 + 9);
}

TEST(NodeSimulator, ACommandThatDoesNotExistHasStatus127) {
    const ChildResult result = run({"--listen", "0", "--run", "/no/such/program"});
    EXPECT_EQ(result.status, 127);
    EXPECT_EQ(result.err, "node-simulator: cannot run /no/such/program: No such file or directory\n");
}

TEST(NodeSimulator, EndsTheCommandWhenItIsEndedItself) {
    const ChildResult result = run({"--listen", "0", "--run", "sh", "-c", "kill $PPID; exec sleep 1000"});
    EXPECT_EQ(result.status, 0);
}

TEST(NodeSimulator, BadOptionsEndItWithStatus2) {
    const ChildResult result = run({"--nodes", "0"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(
        result.err,
        "node-simulator: --nodes takes node numbers from 1 to 127 with commas between them, such as 1,2,5\n"
        "Try 'node-simulator --help'.\n");
}

TEST(NodeSimulator, ATakenPortEndsItWithStatus2) {
    const LoopbackSocket taken;
    const std::string port = std::to_string(taken.port());
    const ChildResult result = run({"--listen", port});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "node-simulator: cannot receive on port " + port + ": Address already in use\n");
}

TEST(NodeSimulator, ALogThatCannotBeWrittenEndsItWithStatus2) {
    const ChildResult result = run({"--listen", "0", "--log", "/no/such/directory/log"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err,
              "node-simulator: cannot write the log to /no/such/directory/log: No such file or directory\n");
}

TEST(NodeSimulator, PrintsItsHelp) {
    const ChildResult result = run({"--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, node_simulator::node_help());
}

TEST(NodeSimulator, PlaysWhatAFileDescribes) {
    const TemporaryFile file;
    file.write(
        "[1000]\nDataType=7\nAccessType=ro\nDefaultValue=0x12345678\n[2000]\nDataType=0x22\nAccessType=rw\n"
        "[2001]\nDataType=5\nDefaultValue=256\n");
    LoopbackSocket master;
    const NodeProcess node(NODE_SIMULATOR,
                           {"--peer", peer_option(master), "--nodes", "1,2", "--eds", "2=" + file.path()});
    EXPECT_EQ(master.receive(), boot_up);
    EXPECT_EQ(master.receive(), datagram(make_frame(0x702, {0})));
    master.send(node.port(), datagram(make_frame(0x602, {0x40, 0, 0x10, 0, 0, 0, 0, 0})));
    EXPECT_EQ(master.receive(), datagram(make_frame(0x582, {0x43, 0, 0x10, 0, 0x78, 0x56, 0x34, 0x12})));
    master.send(node.port(), read_device_type);
    EXPECT_EQ(master.receive(), device_type);
}

TEST(NodeSimulator, NamesWhatItDoesNotServe) {
    const TemporaryFile file;
    file.write(
        "[1000]\nDataType=7\nAccessType=ro\n[2000]\nParameterName=Odd\nDataType=0x22\nAccessType=rw\n"
        "[2001]\nDataType=5\nAccessType=rw\nDefaultValue=256\n");
    const ChildResult result = run({"--listen", "0", "--eds", file.path(), "--run", "true"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(
        result.err.find("node-simulator: node 1 does not serve 2000 (Odd): no data type that has values\n"),
        std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("node-simulator: " + file.path() + ":"), std::string::npos) << result.err;
}

TEST(NodeSimulator, RefusesAFileThatDescribesNothing) {
    EXPECT_EQ(run({"--eds", "/nowhere/pump.eds"}).status, 2);
    const TemporaryFile file;
    file.write("nothing");
    const ChildResult result = run({"--eds", file.path()});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("node-simulator: " + file.path()), std::string::npos) << result.err;
}
