// The command line that the simulators share.

#include "simulator/optionreader.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace {

// A program with an option of each kind.
struct Pump {
    int speed = 1;
    std::optional<unsigned int> seed;
    bool mute = false;
    bool help = false;
    bool version = false;
    std::vector<std::string> files;
    std::vector<std::string> command;
    simulator::OptionReader line{"usage: pump [OPTION ...]", "Plays a pump."};

    Pump() {
        line.add_number("--speed", "N", -5, 100, speed, "revolutions a second");
        line.add_number("--seed", "N", 0, 0xFFFFFFFF, seed, "makes it\nrepeatable");
        line.add_command("--run", command, "runs a command");
        line.add_standard_flags(help, version);
        line.begin_group("Others");
        line.add_text(
            "--file", "FILE",
            [this](std::string_view text) {
                files.emplace_back(text);
                return text.empty() ? std::string("no name") : std::string();
            },
            "may be given again");
        line.add_flag("--mute", mute, "no answers");
        line.set_footer("That is all.");
    }
    std::string parse(const std::vector<const char*>& words) { return line.parse(words); }
};

}  // namespace

TEST(OptionReader, TakesValuesInTheNextWordAndBehindAnEqualsSign) {
    Pump pump;
    EXPECT_EQ(pump.parse({"--speed", "-5", "--seed=4294967295", "--file", "--mute", "--file=a=b", "--mute"}),
              "");
    EXPECT_EQ(pump.speed, -5);
    EXPECT_EQ(pump.seed, 4294967295U);
    EXPECT_EQ(pump.files, (std::vector<std::string>{"--mute", "a=b"}));
    EXPECT_TRUE(pump.mute);
    EXPECT_FALSE(pump.help);
}

TEST(OptionReader, TheLastNumberCountsAndEachMustBeRight) {
    Pump pump;
    EXPECT_EQ(pump.parse({"--speed", "7", "--mute", "--speed", "9", "--mute"}), "");
    EXPECT_EQ(pump.speed, 9);
    Pump wrong;
    EXPECT_EQ(wrong.parse({"--speed", "101", "--speed", "9"}),
              "--speed takes a whole number from -5 to 100, not '101'");
}

TEST(OptionReader, BehindTheCommandNothingIsAnOption) {
    Pump pump;
    EXPECT_EQ(pump.parse({"--mute", "--run", "ls", "--speed", "--run"}), "");
    EXPECT_EQ(pump.command, (std::vector<std::string>{"ls", "--speed", "--run"}));
    EXPECT_EQ(Pump().parse({"--run"}), "--run needs a command");
}

TEST(OptionReader, TellsWhatIsWrong) {
    EXPECT_EQ(Pump().parse({"--fast"}), "unknown option '--fast'");
    EXPECT_EQ(Pump().parse({"--speed=1", "--mute=1"}), "unknown option '--mute=1'");
    EXPECT_EQ(Pump().parse({"-m"}), "unknown option '-m'");
    EXPECT_EQ(Pump().parse({"speed"}), "unknown option 'speed'");
    EXPECT_EQ(Pump().parse({""}), "unknown option ''");
    EXPECT_EQ(Pump().parse({"--mute", "--speed"}), "--speed needs a value");
    EXPECT_EQ(Pump().parse({"--file="}), "no name");
    EXPECT_EQ(Pump().parse({"--seed", ""}), "--seed takes a whole number from 0 to 4294967295, not ''");
}

TEST(OptionReader, KnowsTheStandardFlags) {
    Pump pump;
    EXPECT_EQ(pump.parse({"-h", "--version"}), "");
    EXPECT_TRUE(pump.help);
    EXPECT_TRUE(pump.version);
}

TEST(OptionReader, HelpTellsEveryOptionInItsGroup) {
    EXPECT_EQ(Pump().line.help(),
              "usage: pump [OPTION ...]\n"
              "\n"
              "Plays a pump.\n"
              "\n"
              "Options:\n"
              "  --speed N             revolutions a second\n"
              "  --seed N              makes it\n"
              "                        repeatable\n"
              "  --run COMMAND ...     runs a command\n"
              "  --help                this text\n"
              "  --version             the program's version\n"
              "\n"
              "Others:\n"
              "  --file FILE           may be given again\n"
              "  --mute                no answers\n"
              "\n"
              "That is all.\n");
}
