// What the examples answer to a command line that is wrong: the usage on standard error, and nothing else.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/childprocess.h"

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

}  // namespace

TEST(NodeSettingsCommandLine, HasAllItsWordsInTheirRanges) {
    const auto refuses = [](const std::vector<Words>& lines) {
        expect_refused(NODE_SETTINGS, "MASTER_PORT NODE_PORT [NODE]", lines);
    };
    const Words line{"5000", "5001", "1"};
    refuses({{}, {"5000"}, {"5000", "5001", "1", "more"}});
    refuses(with(line, 0, no_ports));
    refuses(with(line, 1, no_ports));
    refuses(with(line, 2, {"", "0", "128", "-1", "257", "one", "1x"}));
}

TEST(BusLogCommandLine, HasAllItsWordsInTheirRanges) {
    const auto refuses = [](const std::vector<Words>& lines) {
        expect_refused(BUS_LOG, "MASTER_PORT NODE_PORT SECONDS [LOGFILE]", lines);
    };
    const Words line{"5000", "5001", "1", "bus.log"};
    refuses({{}, {"5000", "5001"}, {"5000", "5001", "1", "bus.log", "more"}});
    refuses(with(line, 0, no_ports));
    refuses(with(line, 1, no_ports));
    refuses(with(line, 2, {"", "0", "-1", "10000001", "1s", " 1", "1.5"}));
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
