#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/recorder/recordings.h"
#include "tests/support/childprocess.h"

namespace {

namespace fs = std::filesystem;

const std::string drive = recording_header +
                          "0.000000 open\n0.300000 > 00676e50\n0.500000 > 78672f51\n0.600000 close\n"
                          "0.700000 end\n";

// A directory with a recording, and one of programs, which may have a stand-in for the plotting window.
class PlotCommand : public testing::Test {
public:
    ~PlotCommand() override { fs::remove_all(directory_); }

protected:
    PlotCommand() {
        std::string name = (fs::temp_directory_path() / "plotcommand-XXXXXX").string();
        directory_ = mkdtemp(name.data());
        fs::create_directory(path("bin"));
        fs::create_directory(path("tmp"));
        std::ofstream(path("drive.recording")) << drive;
    }

    std::string path(const std::string& name) const { return (directory_ / name).string(); }

    void install_window(const std::string& script) const {
        std::ofstream(path("bin/nodevik-plot")) << "#!/bin/sh\n" << script;
        chmod(path("bin/nodevik-plot").c_str(), 0755);
    }

    ChildResult plot(const std::string& recording) const {
        return run_program({"/usr/bin/env", "PATH=" + path("bin") + ":/usr/bin:/bin", "TMPDIR=" + path("tmp"),
                            "KEPT=" + path("kept.csv"), VEHICLE_RECORDER, "plot", recording});
    }

    std::string kept() const {
        std::ifstream file(path("kept.csv"));
        return {std::istreambuf_iterator<char>(file), {}};
    }

    bool nothing_left() const { return fs::is_empty(path("tmp")); }

private:
    fs::path directory_;
};

}  // namespace

TEST_F(PlotCommand, GivesTheWindowTheCurvesUnderTheRecordingsName) {
    install_window("[ $# -eq 1 ] && case $1 in */drive.csv) cp \"$1\" \"$KEPT\" ;; esac\n");
    std::ofstream(path("drive.recording"))
        << recording_header +
               "0.000000 open\n0.200000 < 01\n0.300000 > 00676e50\n"
               "+40000 < 70a0b0bda1b101a2b2e2a3b300a4b4c1a5b500a6b63fa7b7a0a8b842a9b9ddaaba23abbb00acbc\n"
               "0.500000 > 78672f51\n0.600000 close\n5.000000 open\n5.300000 > 78672f58\n"
               "5.400000 close\n5.500000 end\n";
    const ChildResult result = plot(path("drive.recording"));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    // The line is interrupted while the port is closed, and where nothing is known.
    EXPECT_EQ(kept(),
              "time_s,throttle,direction,bucket,motor,speed_rpm,voltage,current,capacity_ah\n"
              "0.300000,0,103,110,off,1280,482,193,63\n"
              "0.500000,120,103,47,on,nan,nan,nan,nan\n"
              "0.500000,nan,nan,nan,nan,nan,nan,nan,nan\n"
              "5.300000,nan,nan,nan,nan,nan,nan,nan,nan\n");
    EXPECT_TRUE(nothing_left());
}

TEST_F(PlotCommand, EndsWithTheStatusOfTheWindow) {
    install_window("exit 7\n");
    EXPECT_EQ(plot(path("drive.recording")).status, 7);
    EXPECT_TRUE(nothing_left());
    install_window("kill -KILL $$\n");
    EXPECT_EQ(plot(path("drive.recording")).status, 128 + 9);
    EXPECT_TRUE(nothing_left());
}

TEST_F(PlotCommand, TellsThatTheWindowIsNotInstalled) {
    const ChildResult result = plot(path("drive.recording"));
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(
        result.err,
        "vehicle-recorder: nodevik-plot is not installed: it comes with the package ohjauspaneeli-tools\n");
    EXPECT_TRUE(nothing_left());
}

TEST_F(PlotCommand, TellsWhatIsNoRecordingOrHasNoFrames) {
    install_window("exit 0\n");
    const ChildResult none = plot(path("bin/nodevik-plot"));
    EXPECT_EQ(none.status, 5);
    EXPECT_EQ(none.err,
              "vehicle-recorder: " + path("bin/nodevik-plot") + " is no recording of vehicle-recorder\n");
    std::ofstream(path("drive.recording")) << recording_header << "0.000000 end\n";
    const ChildResult empty = plot(path("drive.recording"));
    EXPECT_EQ(empty.status, 5);
    EXPECT_EQ(empty.err, "vehicle-recorder: " + path("drive.recording") + " has no frames\n");
    EXPECT_TRUE(nothing_left());
}

TEST_F(PlotCommand, EndsTheWindowAndClearsAwayWhenItIsInterrupted) {
    // The stand-in ends the command that has started it, and waits to be ended by it.
    install_window(
        "trap 'echo ended >\"$KEPT\"; exit' TERM\nkill -TERM $PPID\nwhile :; do sleep 0.05; done\n");
    const ChildResult result = plot(path("drive.recording"));
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(kept(), "ended\n");
    EXPECT_TRUE(nothing_left());
}
