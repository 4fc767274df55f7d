// The examples of the fieldbus, each against node-simulator.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/childprocess.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/nodeprocess.h"

namespace {

using Words = std::vector<std::string>;

// Runs an example with the ports as its first two arguments, against nodes with `options`.
ChildResult run_example(const std::string& example, const Words& arguments, const Words& options = {}) {
    Words words{NODE_SIMULATOR, "--listen", "0"};
    words.insert(words.end(), options.begin(), options.end());
    words.insert(words.end(), {"--run", example, "{master}", "{node}"});
    words.insert(words.end(), arguments.begin(), arguments.end());
    return run_program(words);
}

// What an example prints after the lines that its driver prints while it opens.
std::string own_output(const ChildResult& result) {
    const std::size_t last_line = result.out.find("Client Destination Address: ");
    return last_line == std::string::npos ? result.out
                                          : result.out.substr(result.out.find('\n', last_line) + 1);
}

// `text` without the terminal's colour sequences.
std::string without_colours(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\033') {
            i = text.find('m', i);
        } else {
            plain.push_back(text[i]);
        }
    }
    return plain;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

TEST(CyclicExchange, ReadsBackInEachCycleWhatItSent) {
    const ChildResult result = run_example(CYCLIC_EXCHANGE, {"7", "3"}, {"--nodes", "7"});
    EXPECT_EQ(own_output(result),
              "cycle 1: out   1   2   3   4  in   1   2   3   4\n"
              "cycle 2: out   2   3   4   5  in   2   3   4   5\n"
              "cycle 3: out   3   4   5   6  in   3   4   5   6\n");
    EXPECT_EQ(result.status, 0);
}

TEST(CyclicExchange, TellsItsUsage) {
    const ChildResult result = run_program({CYCLIC_EXCHANGE});
    EXPECT_EQ(result.err, "usage: cyclic_exchange MASTER_PORT NODE_PORT [NODE [CYCLES]]\n");
    EXPECT_EQ(result.status, 2);
}

TEST(Sdo, ReadsATextOfManySegments) {
    const ChildResult result = run_example(SDO, {"read", "1", "0x2000", "0", "text"});
    EXPECT_EQ(own_output(result), "a text of more than four bytes  (30 bytes)\ndone\n");
    EXPECT_EQ(result.status, 0);
}

TEST(Sdo, ReadsANumberAsHexadecimalBytes) {
    const ChildResult result = run_example(SDO, {"read", "1", "0x1000", "0"});
    EXPECT_EQ(own_output(result), "91010f00  (4 bytes)\ndone\n");
    EXPECT_EQ(result.status, 0);
}

TEST(Sdo, WritesNumbersTextsAndHexadecimalBytes) {
    unsigned master_port = 0;
    {
        const LoopbackSocket free_port;
        master_port = free_port.port();
    }
    const NodeProcess node(NODE_SIMULATOR, {"--peer", "127.0.0.1:" + std::to_string(master_port)});
    const auto sdo = [&](const Words& arguments) {
        Words words{SDO, std::to_string(master_port), std::to_string(node.port())};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return own_output(run_program(words));
    };
    EXPECT_EQ(sdo({"write", "1", "0x2002", "3", "3", "0x123456"}), "done\n");
    EXPECT_EQ(sdo({"read", "1", "0x2002", "3"}), "563412  (3 bytes)\ndone\n");
    EXPECT_EQ(sdo({"write", "1", "0x2000", "0", "text", "terve, maailma"}), "done\n");
    EXPECT_EQ(sdo({"read", "1", "0x2000", "0", "text"}), "terve, maailma  (14 bytes)\ndone\n");
    EXPECT_EQ(sdo({"write", "1", "0x2001", "0", "hex", "00ff10a5deadbeef"}), "done\n");
    EXPECT_EQ(sdo({"read", "1", "0x2001", "0", "hex"}), "00ff10a5deadbeef  (8 bytes)\ndone\n");
}

TEST(Sdo, ShowsWhyTheNodeRefuses) {
    const ChildResult result = run_example(SDO, {"write", "1", "0x1000", "0", "4", "1"});
    EXPECT_TRUE(contains(result.out, "Attempt to write a read only object.")) << result.out;
    EXPECT_TRUE(result.out.ends_with("failed\n")) << result.out;
    EXPECT_EQ(result.status, 1);
}

TEST(Sdo, TellsANodeThatDoesNotAnswer) {
    const ChildResult result = run_example(SDO, {"read", "9", "0x1000", "0"});
    EXPECT_TRUE(contains(result.out, "Error: No SDO Response: nodeID=0x09 Index=0x1000 SubIndex=0x00\n"))
        << result.out;
    EXPECT_EQ(result.status, 1);
}

TEST(BusMonitor, PrintsAndLogsWhatPasses) {
    const std::string log_path = testing::TempDir() + "bus_monitor." + std::to_string(getpid()) + ".log";
    const ChildResult result =
        run_example(BUS_MONITOR, {"2", "all", log_path},
                    {"--nodes", "1,2", "--start", "--sync", "50", "--heartbeat", "100"});
    const std::string output = without_colours(own_output(result));
    std::ifstream log(log_path);
    const std::string logged{std::istreambuf_iterator<char>(log), {}};
    std::remove(log_path.c_str());
    for (const char* line :
         {" - Nodeguard Response/Heartbeat ID=0x01: Initializing/Boot-up\n",
          " - Nodeguard Response/Heartbeat ID=0x02: Operational\n", " - SYNC\n",
          " - Transmit PDO 1 ID 0x01 (Unmapped)\n", " - Transmit PDO 2 ID 0x02 (Unmapped)\n"}) {
        EXPECT_TRUE(contains(output, line)) << line;
        EXPECT_TRUE(contains(logged, line)) << line;
    }
    EXPECT_EQ(result.status, 0);
}

TEST(BusMonitor, ShowsOnlyTheChosenKinds) {
    const ChildResult result =
        run_example(BUS_MONITOR, {"1", "sync,guard"}, {"--nodes", "1", "--start", "--sync", "50"});
    const std::string output = without_colours(own_output(result));
    EXPECT_TRUE(contains(output, " - SYNC\n"));
    EXPECT_TRUE(contains(output, "Boot-up"));
    EXPECT_FALSE(contains(output, "Transmit PDO"));
}

TEST(NodeSetup, ListsTheActivePdos) {
    const ChildResult result = run_example(NODE_SETUP, {"3", "list"}, {"--nodes", "3"});
    EXPECT_EQ(own_output(result),
              "NodeID = 0x003 : TPDO cobid = 0x00000183\n"
              "NodeID = 0x003 : TPDO cobid = 0x00000283\n"
              "Number of active TPDOs is 2\n\n"
              "NodeID = 0x003 : RPDO cobid = 0x00000203\n"
              "NodeID = 0x003 : RPDO cobid = 0x00000303\n"
              "Number of active RPDOs is 2\n\n");
    EXPECT_EQ(result.status, 0);
}

TEST(NodeSetup, ShowsAMapping) {
    const ChildResult result = run_example(NODE_SETUP, {"1", "show", "rpdo", "1"});
    EXPECT_EQ(own_output(result),
              "COB-ID 0x301, 4 mapped objects\n"
              "Mapping Nro= 0  Index=0x6411  Subindex=0x01  Lenght=16\n"
              "Mapping Nro= 1  Index=0x6411  Subindex=0x02  Lenght=16\n"
              "Mapping Nro= 2  Index=0x6411  Subindex=0x03  Lenght=16\n"
              "Mapping Nro= 3  Index=0x6411  Subindex=0x04  Lenght=16\n"
              "SYNC type=0xff\n");
}

TEST(NodeSetup, SavesAChangedSetUp) {
    const ChildResult result =
        run_example(NODE_SETUP, {"1", "set", "tpdo", "2", "0x381", "1", "0x60000108", "0x64010210"});
    EXPECT_EQ(own_output(result),
              "COB-ID 0x381, 2 mapped objects\n"
              "Mapping Nro= 0  Index=0x6000  Subindex=0x01  Lenght= 8\n"
              "Mapping Nro= 1  Index=0x6401  Subindex=0x02  Lenght=16\n"
              "SYNC type=0x01\n");
    EXPECT_EQ(result.status, 0);
}
