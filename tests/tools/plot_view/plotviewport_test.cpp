// The port on the command line of nodevik-plot.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/childprocess.h"

namespace {

using Words = std::vector<std::string>;

ChildResult plot_view(const Words& arguments) {
    Words command = {"/usr/bin/env", "QT_QPA_PLATFORM=offscreen", "XDG_RUNTIME_DIR=", PLOT};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run_program(command);
}

}  // namespace

TEST(PlotViewPort, IsOneWholeNumber) {
    const std::vector<Words> lines = {{},     {""},   {"65536"}, {"--", "-1"}, {"5010x"},
                                      {" 0"}, {"+0"}, {"port"},  {"0", "1"},   {"99999999999999999999"}};
    for (const Words& line : lines) {
        const ChildResult result = plot_view(line);
        EXPECT_TRUE(result.err.ends_with("nodevik-plot: give one UDP port, 0 to 65535\n"))
            << result.err << (line.empty() ? "" : line.back());
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.status, 2);
    }
}
