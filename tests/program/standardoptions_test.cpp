#include "program/standardoptions.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/childprocess.h"

namespace {

const std::string name = "standardoptions_test";

// What a program prints and returns that was started with `arguments`.
ChildResult ask(const std::vector<const char*>& arguments) {
    return run_in_child([&] {
        const bool answered = program::answered_standard_option(arguments, "PORT [SECONDS]");
        std::exit(answered ? 0 : 1);
    });
}

}  // namespace

TEST(StandardOptions, VersionNamesTheProgramTheProjectAndTheVersion) {
    const ChildResult result = run_in_child(program::print_version);
    EXPECT_EQ(result.out, name + " (ohjauspaneeli) " PROJECT_VERSION "\n");
    EXPECT_EQ(result.err, "");
}

TEST(StandardOptions, UsageIsTheProgramsNameAndItsOperands) {
    const ChildResult result = run_in_child([] { program::print_usage("PORT [SECONDS]"); });
    EXPECT_EQ(result.out, "usage: " + name + " PORT [SECONDS]\n");
    EXPECT_EQ(result.err, "");
}

TEST(StandardOptions, VersionAloneIsAnswered) {
    const ChildResult result = ask({"--version"});
    EXPECT_EQ(result.out, name + " (ohjauspaneeli) " PROJECT_VERSION "\n");
    EXPECT_EQ(result.status, 0);
}

TEST(StandardOptions, HelpAloneIsAnsweredAndNamesBothOptions) {
    const ChildResult result = ask({"--help"});
    EXPECT_EQ(result.out, "usage: " + name + " PORT [SECONDS]\n       " + name + " --help | --version\n");
    EXPECT_EQ(result.status, 0);
}

TEST(StandardOptions, NothingElseIsAnswered) {
    const std::vector<std::vector<const char*>> others = {
        {}, {""}, {"5000"}, {"--versio"}, {"--version=1"}, {"--version", "5000"}, {"5000", "--help"}};
    for (const std::vector<const char*>& arguments : others) {
        const ChildResult result = ask(arguments);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 1);
    }
}
