// The program nodevik-plot: its command line, its files, its port, and how it ends.

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/childprocess.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/temporaryfile.h"

namespace {

using Words = std::vector<std::string>;

constexpr const char* table = "time,throttle,speed\n0,12,0\n0.1,,3.5\n0.2,40,nan\n";

ChildResult plot_with(Words environment, const Words& arguments) {
    environment.insert(environment.begin(), "/usr/bin/env");
    environment.emplace_back(PLOT);
    environment.insert(environment.end(), arguments.begin(), arguments.end());
    return run_program(environment);
}

ChildResult plot(const Words& arguments) {
    return plot_with({"QT_QPA_PLATFORM=offscreen"}, arguments);
}

// Without anything to show windows on.
ChildResult plot_blind(const Words& arguments) {
    return plot_with({"-u", "DISPLAY", "-u", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM=xcb"}, arguments);
}

// Width and height in the header of a PNG file (RFC 2083, 4.1.1); 0 and 0 for other files.
std::pair<unsigned, unsigned> picture_size(const std::string& bytes) {
    if (bytes.size() < 24 || bytes.compare(1, 3, "PNG") != 0) {
        return {0, 0};
    }
    const auto number = [&](std::size_t at) {
        unsigned value = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            value = value << 8 | static_cast<std::uint8_t>(bytes[at + i]);
        }
        return value;
    };
    return {number(16), number(20)};
}

}  // namespace

TEST(PlotProgram, AWrongCommandLineIsOneLineAndStatusTwo) {
    const std::vector<std::pair<Words, std::string>> lines = {
        {{"--nope"}, "The following argument was not expected: --nope"},
        {{"--port"}, "--port: 1 required PORT missing"},
        {{"--port", "65536"}, "--port: takes a whole number from 0 to 65535, not '65536'"},
        {{"--port", "+1"}, "--port: takes a whole number from 0 to 65535, not '+1'"},
        {{"--port", "x"}, "--port: takes a whole number from 0 to 65535, not 'x'"},
        {{"--port", "0", "x.csv"}, "FILE excludes --port"},
        {{"--step", "1"}, "--step requires --port"},
        {{"--port", "0", "--step", "0"}, "--step: takes seconds from 1e-9 to 1e6, not '0'"},
        {{"--picture", "x.png"}, "--picture needs a file or a port"},
        {{"a.csv", "b.csv"}, "The following argument was not expected: b.csv"},
    };
    for (const auto& [words, reason] : lines) {
        const ChildResult result = plot_blind(words);
        EXPECT_EQ(result.err, "nodevik-plot: " + reason + "; see --help\n");
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.status, 2);
    }
}

TEST(PlotProgram, HelpNamesEveryOptionAndStatusWithoutADisplay) {
    const ChildResult result = plot_blind({"--help"});
    for (const char* word : {"FILE", "--port", "--step", "--picture", "--version", "--help", "Example:\n",
                             "Exit status: 0 done"}) {
        EXPECT_NE(result.out.find(word), std::string::npos) << word << "\n" << result.out;
    }
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST(PlotProgram, VersionIsAnsweredBesideOtherArgumentsToo) {
    for (const Words& words : {Words{"--version", "--port", "0"}, {"x.csv", "--version"}}) {
        const ChildResult result = plot_blind(words);
        EXPECT_EQ(result.out, "nodevik-plot (ohjauspaneeli) " PROJECT_VERSION "\n");
        EXPECT_EQ(result.status, 0);
    }
}

TEST(PlotProgram, ABadFileIsOneLineAndStatusFiveWithoutADisplay) {
    const TemporaryFile file;
    const std::string name = "nodevik-plot: " + file.path() + ": ";
    const std::vector<std::pair<std::string, std::string>> contents = {
        {"", "is empty"},
        {"time,a\n", "holds no samples"},
        {"{\"node\":1}\n", "holds no frames as 'nodevik --json monitor' writes them"},
        {std::string("PNG\0\0", 5),
         "is no text; a table (CSV) or a recording of 'nodevik monitor --json' can be shown"}};
    for (const auto& [content, reason] : contents) {
        file.write(content);
        const ChildResult result = plot_blind({file.path()});
        EXPECT_EQ(result.err, name + reason + "\n");
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.status, 5);
    }
}

TEST(PlotProgram, AMissingFileIsToldAndAPortThatStandsInItsPlace) {
    EXPECT_EQ(plot_blind({"/nowhere/x.csv"}).err,
              "nodevik-plot: /nowhere/x.csv: cannot be opened: No such file or directory\n");
    const ChildResult result = plot_blind({"5010"});
    EXPECT_EQ(
        result.err,
        "nodevik-plot: 5010: cannot be opened: No such file or directory; a port is given as --port 5010\n");
    EXPECT_EQ(result.status, 5);
}

TEST(PlotProgram, ATakenPortIsOneLineAndStatusFour) {
    const LoopbackSocket holder;
    const ChildResult result = plot({"--port", std::to_string(holder.port())});
    const std::string begin = "nodevik-plot: UDP port " + std::to_string(holder.port()) + " cannot be used: ";
    EXPECT_NE(result.err.find(begin), std::string::npos) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 4);
}

TEST(PlotProgram, SavesThePictureOfAFileAndEnds) {
    const TemporaryFile file;
    const TemporaryFile picture;
    file.write(table);
    const ChildResult result = plot({file.path(), "--picture", picture.path()});
    EXPECT_EQ(result.status, 0) << result.err;
    const auto [width, height] = picture_size(picture.content());
    EXPECT_EQ(width, 900U);
    EXPECT_GT(height, 400U);
}

TEST(PlotProgram, DrawsSharplyOnAScreenOfHighResolution) {
    const TemporaryFile file;
    const TemporaryFile picture;
    file.write(table);
    plot_with({"QT_QPA_PLATFORM=offscreen", "QT_SCALE_FACTOR=2"}, {file.path(), "--picture", picture.path()});
    EXPECT_EQ(picture_size(picture.content()).first, 1800U);
}

TEST(PlotProgram, TellsWhatItPassedOverInAFile) {
    const TemporaryFile file;
    const TemporaryFile picture;
    file.write(std::string(table) + "torn");
    const ChildResult result = plot({file.path(), "--picture", picture.path()});
    EXPECT_NE(
        result.err.find("nodevik-plot: " + file.path() + ": line 5 is no row of the table and left out\n"),
        std::string::npos)
        << result.err;
    EXPECT_EQ(result.status, 0);
}

TEST(PlotProgram, APictureThatCannotBeSavedIsToldWithStatusFive) {
    const TemporaryFile file;
    file.write(table);
    const ChildResult result = plot({file.path(), "--picture", "/nowhere/x.png"});
    EXPECT_NE(result.err.find("nodevik-plot: /nowhere/x.png: cannot be written: No such file or directory\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(result.status, 5);
}

#ifdef PLOT_FEED

// The program on a port that it tells on standard output, and the feed that it draws: a shell holds both together.
TEST(PlotProgram, SavesThePictureOfAFeedWhenItStops) {
    const TemporaryFile picture;
    const ChildResult result = run_program(
        {"/bin/sh", "-c",
         "mkfifo \"$1.ports\" && { QT_QPA_PLATFORM=offscreen \"$2\" --port 0 --step 0.005 --picture \"$1\" "
         ">\"$1.ports\" & read -r word port <\"$1.ports\"; rm \"$1.ports\"; \"$3\" \"$port\" 400 4000; wait "
         "$!; }",
         "sh", picture.path(), PLOT, PLOT_FEED});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(result.out.ends_with("400 samples sent\n")) << result.out;
    EXPECT_EQ(picture_size(picture.content()).first, 900U);
}

#endif
