// What nodevik-plot answers to its command line, before it shows anything.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/childprocess.h"

namespace {

ChildResult plot_view(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {"/usr/bin/env", "QT_QPA_PLATFORM=offscreen",
                                        "XDG_RUNTIME_DIR=", PLOT};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run_program(command);
}

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

TEST(PlotViewOptions, VersionIsAnsweredBesideOtherArgumentsToo) {
    const std::vector<std::vector<std::string>> lines = {
        {"--version", "0"}, {"0", "--version"}, {"--picture", "nowhere.png", "--version"}};
    for (const std::vector<std::string>& line : lines) {
        const ChildResult result = plot_view(line);
        EXPECT_EQ(result.out, "nodevik-plot (ohjauspaneeli) " PROJECT_VERSION "\n");
        EXPECT_EQ(result.status, 0);
    }
}

TEST(PlotViewOptions, AnUnknownOptionIsAWrongCommandLine) {
    const ChildResult result = plot_view({"--nope", "0"});
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(ends_with(result.err, "nodevik-plot: Unknown option 'nope'.\n")) << result.err;
    EXPECT_EQ(result.status, 2);
}

TEST(PlotViewOptions, AnOptionWithoutItsValueIsAWrongCommandLine) {
    const ChildResult result = plot_view({"0", "--picture"});
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(ends_with(result.err, "nodevik-plot: Missing value after '--picture'.\n")) << result.err;
    EXPECT_EQ(result.status, 2);
}

TEST(PlotViewOptions, HelpNamesEveryOption) {
    const ChildResult result = plot_view({"--help"});
    for (const char* option : {"--help", "--help-all", "--picture <file>", "--version"}) {
        EXPECT_NE(result.out.find(option), std::string::npos) << result.out;
    }
    EXPECT_EQ(result.status, 0);
}
