// What the examples answer to a command line that is wrong: the usage on standard error, and nothing else.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/childprocess.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/nodeprocess.h"

namespace {

using Words = std::vector<std::string>;

ChildResult run(const std::string& example, const Words& arguments) {
    Words words{example};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return run_program(words);
}

std::string joined(const Words& words) {
    std::string line;
    for (const std::string& word : words) {
        line += " '" + word + "'";
    }
    return line;
}

// Expects that each line is refused with the usage, before anything is opened, which would be printed.
void expect_refused(const std::string& example, const std::string& operands,
                    const std::vector<Words>& lines) {
    const std::string name = std::filesystem::path(example).filename();
    for (const Words& line : lines) {
        const ChildResult result = run(example, line);
        EXPECT_EQ(result.err, "usage: " + name + " " + operands + "\n") << joined(line);
        EXPECT_EQ(result.out, "") << joined(line);
        EXPECT_EQ(result.status, 2) << joined(line);
    }
}

// What is no number from 1 to 65535, in every way that an argument can be wrong.
const Words no_ports = {"",      "0",     "65536", "-1", "99999999999999999999", "x", "5000x",
                        "5000 ", " 5000", "0x",    "5e3"};

// `line` with the word at `place` replaced by each of `words`.
std::vector<Words> with(const Words& line, std::size_t place, const Words& words) {
    std::vector<Words> lines;
    for (const std::string& word : words) {
        lines.push_back(line);
        lines.back()[place] = word;
    }
    return lines;
}

// Two ports on which a program may be let loose, for nobody listens on the second.
Words free_ports() {
    const LoopbackSocket first;
    const LoopbackSocket second;
    return {std::to_string(first.port()), std::to_string(second.port())};
}

}  // namespace

TEST(SdoCommandLine, HasAllItsWordsInTheirRanges) {
    const auto refuses = [](const std::vector<Words>& lines) {
        expect_refused(SDO, "MASTER_PORT NODE_PORT read|write NODE INDEX SUBINDEX [text|hex|SIZE [VALUE]]",
                       lines);
    };
    refuses({{},
             {"5000"},
             {"5000", "5001", "read", "1", "0x1008"},
             {"5000", "5001", "read", "1", "0x1008", "0", "text", "more"},
             {"5000", "5001", "write", "1", "0x2000", "0"},
             {"5000", "5001", "write", "1", "0x2000", "0", "hex"},
             {"5000", "5001", "write", "1", "0x2000", "0", "hex", "00", "11"},
             {"5000", "5001", "erase", "1", "0x2000", "0"}});
    const Words read{"5000", "5001", "read", "1", "0x1008", "0", "text"};
    refuses(with(read, 0, no_ports));
    refuses(with(read, 1, no_ports));
    refuses(with(read, 3, {"", "0", "128", "-1", "257", "one", "1x"}));
    refuses(with(read, 4, {"", "0x10000", "-1", "1008h", "0x"}));
    refuses(with(read, 5, {"", "256", "-1", "x"}));
    refuses(with(read, 6, {"", "octal", "4", "Text"}));
    const Words write{"5000", "5001", "write", "1", "0x2000", "0", "hex", "00ff"};
    refuses(with(write, 6, {"", "octal", "0", "5", "-1", "1x", "Text"}));
    refuses(with(write, 7, {"zz", "abc", "0", "0x12", "12 34", "-1", "1g", " 12", "12\n"}));
    const Words write_number{"5000", "5001", "write", "1", "0x2002", "1", "1", "255"};
    refuses(with(write_number, 7, {"", "256", "-129", "0x100", "1x", "x"}));
    refuses({{"5000", "5001", "write", "1", "0x2002", "2", "2", "65536"},
             {"5000", "5001", "write", "1", "0x2002", "2", "2", "-32769"},
             {"5000", "5001", "write", "1", "0x2002", "3", "3", "16777216"},
             {"5000", "5001", "write", "1", "0x2002", "3", "3", "-8388609"},
             {"5000", "5001", "write", "1", "0x2002", "4", "4", "4294967296"},
             {"5000", "5001", "write", "1", "0x2002", "4", "4", "-2147483649"}});
}

TEST(SdoCommandLine, TakesTheEndsOfEachRange) {
    const Words ports = free_ports();
    const NodeProcess node(NODE_SIMULATOR, {"--peer", "127.0.0.1:" + ports[0]});
    const auto sdo = [&](const Words& words) {
        Words line{ports[0], std::to_string(node.port())};
        line.insert(line.end(), words.begin(), words.end());
        return run(SDO, line).out;
    };
    struct {
        const char* subindex;  // and size
        const char* number;
        const char* bytes;
    } const numbers[] = {{"1", "255", "ff"},
                         {"1", "-128", "80"},
                         {"2", "0xFFFF", "ffff"},
                         {"2", "-32768", "0080"},
                         {"3", "16777215", "ffffff"},
                         {"3", "-8388608", "000080"},
                         {"4", "4294967295", "ffffffff"},
                         {"4", "-2147483648", "00000080"}};
    for (const auto& row : numbers) {
        EXPECT_TRUE(
            sdo({"write", "1", "0x2002", row.subindex, row.subindex, row.number}).ends_with("\ndone\n"));
        const std::string shown = "\n" + std::string(row.bytes) + "  (" + row.subindex + " bytes)\ndone\n";
        EXPECT_TRUE(sdo({"read", "1", "0x2002", row.subindex}).ends_with(shown)) << shown;
    }
    EXPECT_TRUE(sdo({"write", "1", "0x2001", "0", "hex", ""}).ends_with("\ndone\n"));
    EXPECT_TRUE(sdo({"read", "1", "0x2001", "0x0", "hex"}).ends_with("\n  (0 bytes)\ndone\n"));
}

TEST(NodeSetupCommandLine, HasAllItsWordsInTheirRanges) {
    const auto refuses = [](const std::vector<Words>& lines) {
        expect_refused(NODE_SETUP,
                       "MASTER_PORT NODE_PORT NODE list|show|set [tpdo|rpdo NUMBER [COBID TYPE [ENTRY ...]]]",
                       lines);
    };
    refuses({{},
             {"5000", "5001", "1"},
             {"5000", "5001", "1", "erase"},
             {"5000", "5001", "1", "list", "tpdo"},
             {"5000", "5001", "1", "show"},
             {"5000", "5001", "1", "show", "tpdo"},
             {"5000", "5001", "1", "show", "tpdo", "0", "0x181"},
             {"5000", "5001", "1", "set", "tpdo", "2"},
             {"5000", "5001", "1", "set", "tpdo", "2", "0x381"}});
    const Words list{"5000", "5001", "1", "list"};
    refuses(with(list, 0, no_ports));
    refuses(with(list, 1, no_ports));
    refuses(with(list, 2, {"", "0", "128", "-1", "257", "1x"}));
    const Words show{"5000", "5001", "1", "show", "tpdo", "0"};
    refuses(with(show, 4, {"", "pdo", "TPDO"}));
    refuses(with(show, 5, {"", "512", "-1", "first"}));
    Words set{"5000", "5001", "1", "set", "rpdo", "2", "0x381", "1", "0x60000108"};
    refuses(with(set, 6, {"", "0x180", "0x580", "-1", "381h"}));
    refuses(with(set, 7, {"", "256", "-1", "sync"}));
    refuses(with(set, 8, {"", "0x100000000", "-1", "0x6000:1"}));
    set.insert(set.end(), 8, "0x60000108");  // one entry too many
    refuses({set});
}

TEST(BusMonitorCommandLine, HasAllItsWordsInTheirRanges) {
    const auto refuses = [](const std::vector<Words>& lines) {
        expect_refused(BUS_MONITOR, "MASTER_PORT NODE_PORT SECONDS [KINDS [LOGFILE]]", lines);
    };
    refuses({{}, {"5000", "5001"}, {"x", "y", "z"}, {"5000", "5001", "1", "all", "log", "more"}});
    const Words line{"5000", "5001", "1", "nmt,sync"};
    refuses(with(line, 0, no_ports));
    refuses(with(line, 1, no_ports));
    refuses(with(line, 2, {"", "-1", "z", "1s", " 1", "nan", "inf", "1e8"}));
    refuses(with(line, 3, {"", "sdo,", ",sdo", "sdo,,nmt", "emergency", "nmt sync"}));
}

TEST(BusMonitorCommandLine, TakesFractionsOfSecondsAndEveryKind) {
    const Words ports = free_ports();
    for (const Words& words :
         {Words{"0"}, {"0.01"}, {"1e-2"}, {"0", "all"}, {"0", "nmt,tpdo,rpdo,sdo,sync,guard"}}) {
        Words line = ports;
        line.insert(line.end(), words.begin(), words.end());
        const ChildResult result = run(BUS_MONITOR, line);
        EXPECT_EQ(result.err, "") << joined(line);
        EXPECT_EQ(result.status, 0) << joined(line);
    }
}

TEST(CyclicExchangeCommandLine, HasAllItsWordsInTheirRanges) {
    const auto refuses = [](const std::vector<Words>& lines) {
        expect_refused(CYCLIC_EXCHANGE, "MASTER_PORT NODE_PORT [NODE [CYCLES]]", lines);
    };
    const Words line{"5000", "5001", "1", "10"};
    refuses({{}, {"5000"}, {"5000", "5001", "1", "10", "more"}});
    refuses(with(line, 0, no_ports));
    refuses(with(line, 1, no_ports));
    refuses(with(line, 2, {"", "0", "128", "x"}));
    refuses(with(line, 3, {"", "0", "10000001", "-1", "x"}));
}

TEST(ControlLoopCommandLine, HasAllItsWordsInTheirRanges) {
    const auto refuses = [](const std::vector<Words>& lines) {
        expect_refused(CONTROL_LOOP, "MASTER_PORT NODE_PORT [PERIOD_US [CYCLES]]", lines);
    };
    const Words line{"5000", "5001", "1000", "10"};
    refuses(with(line, 0, no_ports));
    refuses(with(line, 1, no_ports));
    refuses(with(line, 2, {"", "0", "60000001", "-18446744073709551615"}));
    refuses(with(line, 3, {"", "0", "10000001", "x"}));
}

TEST(ControlLoopDownloadCommandLine, HasAllItsWordsInTheirRanges) {
    const auto refuses = [](const std::vector<Words>& lines) {
        expect_refused(CONTROL_LOOP_DOWNLOAD, "MASTER_PORT NODE_PORT [BYTES]", lines);
    };
    const Words line{"5000", "5001", "1000"};
    refuses(with(line, 0, no_ports));
    refuses(with(line, 1, no_ports));
    refuses(with(line, 2, {"", "0", "1000001", "-1", "1x"}));
    refuses({{}, {"5000"}, {"5000", "5001", "1", "1"}});
}

TEST(PlotFeedCommandLine, HasAllItsWordsInTheirRanges) {
    const auto refuses = [](const std::vector<Words>& lines) {
        expect_refused(PLOT_FEED, "PORT [SAMPLES [SAMPLES_PER_SECOND]]", lines);
    };
    const Words line{"5000", "100", "1000"};
    refuses(with(line, 0, no_ports));
    refuses(with(line, 1, {"", "0", "100000001", "-18446744073709551615"}));
    refuses(with(line, 2, {"", "0", "100001", "x"}));
}
