// Every installed program, and what is installed beside them, tell the project's one version.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/childprocess.h"

namespace {

const std::string version = PROJECT_VERSION;

std::string text_of(const std::filesystem::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

}  // namespace

class EveryProgram : public testing::TestWithParam<const char*> {};

TEST_P(EveryProgram, PrintsItsNameAndTheVersionAndEndsItWellWithoutADisplay) {
    const ChildResult result = run_program({"/usr/bin/env", "-u", "DISPLAY", "-u", "WAYLAND_DISPLAY",
                                            "QT_QPA_PLATFORM=xcb", GetParam(), "--version"});
    const std::string name = std::filesystem::path(GetParam()).filename();
    EXPECT_EQ(result.out, name + " (ohjauspaneeli) " + version + "\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST_P(EveryProgram, MentionsTheVersionInItsHelp) {
    const ChildResult result =
        run_program({"/usr/bin/env", "QT_QPA_PLATFORM=offscreen", GetParam(), "--help"});
    EXPECT_NE(result.out.find("--version"), std::string::npos) << result.out;
    EXPECT_EQ(result.status, 0);
}

INSTANTIATE_TEST_SUITE_P(Installed, EveryProgram, testing::Values(PROGRAMS), [](const auto& program) {
    std::string name = std::filesystem::path(program.param).filename();
    for (char& letter : name) {
        letter = letter == '-' ? '_' : letter;
    }
    return name;
});

TEST(Version, IsThatOfThePkgConfigFile) {
    EXPECT_NE(text_of(PACKAGE_CONFIG).find("\nVersion: " + version + "\n"), std::string::npos);
}

TEST(Version, IsThatOfTheReference) {
    EXPECT_EQ(run_program({PROJECT_SOURCE "/script/lib/version"}).out, version + "\n");
}

TEST(Version, HasItsSectionAtTheTopOfTheChangelog) {
    const std::string changelog = text_of(PROJECT_SOURCE "/CHANGELOG.md");
    const std::string unreleased = "\n## [Unreleased]\n";
    ASSERT_NE(changelog.find(unreleased), std::string::npos);
    const auto next = changelog.find("\n## ", changelog.find(unreleased) + unreleased.size());
    ASSERT_NE(next, std::string::npos);
    EXPECT_EQ(changelog.substr(next + 1, version.size() + 5), "## [" + version + "]");
}
