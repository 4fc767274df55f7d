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

TEST(NodeSettings, ShowsObjectsOfAllSizesAndSetsUpATpdo) {
    const ChildResult result = run_example(NODE_SETTINGS, {"3"}, {"--nodes", "3"});
    EXPECT_EQ(own_output(result),
              "device type: 0xf0191\n"
              "device name: node-simulator\n"
              "object 0x2000: a text that takes some segments\n"
              "third TPDO: COB-ID 0x383, 2 objects\n"
              "Mapping Nro= 0  Index=0x6000  Subindex=0x01  Lenght= 8\n"
              "Mapping Nro= 1  Index=0x6401  Subindex=0x02  Lenght=16\n"
              "SYNC type=0x01\n");
    EXPECT_EQ(result.status, 0);
}

TEST(NodeSettings, TellsANodeThatDoesNotAnswer) {
    const ChildResult result = run_example(NODE_SETTINGS, {"9"});
    EXPECT_TRUE(contains(result.out, "Error: No SDO Response: nodeID=0x09 Index=0x1000 SubIndex=0x00\n"))
        << result.out;
    EXPECT_FALSE(contains(result.out, "device type"));
    EXPECT_EQ(result.status, 1);
}

TEST(NodeSettings, TellsItsUsage) {
    const ChildResult result = run_program({NODE_SETTINGS});
    EXPECT_EQ(result.err, "usage: node_settings MASTER_PORT NODE_PORT [NODE]\n");
    EXPECT_EQ(result.status, 2);
}

TEST(BusLog, PrintsAndLogsWhatPassesButForSync) {
    const std::string log_path = testing::TempDir() + "bus_log." + std::to_string(getpid()) + ".log";
    const ChildResult result = run_example(
        BUS_LOG, {"2", log_path}, {"--nodes", "1,2", "--start", "--sync", "50", "--heartbeat", "100"});
    const std::string output = without_colours(own_output(result));
    std::ifstream log(log_path);
    const std::string logged{std::istreambuf_iterator<char>(log), {}};
    std::remove(log_path.c_str());
    for (const char* line :
         {" - Nodeguard Response/Heartbeat ID=0x01: Initializing/Boot-up\n",
          " - Nodeguard Response/Heartbeat ID=0x02: Operational\n", " - Transmit PDO 1 ID 0x01 (Unmapped)\n",
          " - Transmit PDO 2 ID 0x02 (Unmapped)\n"}) {
        EXPECT_TRUE(contains(output, line)) << line;
        EXPECT_TRUE(contains(logged, line)) << line;
    }
    EXPECT_FALSE(contains(output, " - SYNC"));
    EXPECT_EQ(result.status, 0);
}

TEST(BusLog, EndsWhenTheLogCannotBeWritten) {
    const ChildResult result = run_example(BUS_LOG, {"1", "/nowhere/at/all.log"});
    EXPECT_EQ(result.status, 1);
}
