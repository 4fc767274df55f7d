// The command `replay`, with a program on the line that tells what it reads.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/recorder/recordings.h"
#include "tests/support/childprocess.h"
#include "tests/support/temporaryfile.h"

namespace {

constexpr int longest_wait_ms = 60000;
constexpr int seconds = 60;

// A drive of a minute with a frame and a reply each second. The voltage is the second.
std::string minute() {
    std::string text = recording_header + "0.000000 open\n";
    for (int second = 1; second <= seconds; second++) {
        std::array<char, 160> line;
        std::snprintf(line.data(), line.size(),
                      "%d.000000 > 00676e50\n+9000 < 7fa0b0ffa1b100a2b2%02xa3b3%054d\n", second,
                      static_cast<unsigned>(second), 0);
        text += line.data();
    }
    return text + "61.000000 close\n61.000000 end\n";
}

class ReplayCommand : public testing::Test {
protected:
    ReplayCommand() { file.write(minute()); }

    ChildResult replay(std::vector<std::string> options, const std::vector<std::string>& program) const {
        options.insert(options.begin(), {VEHICLE_RECORDER, "replay", file.path()});
        options.emplace_back("--");
        options.insert(options.end(), program.begin(), program.end());
        return run_program(options);
    }

    TemporaryFile file;
};

TEST_F(ReplayCommand, ProgramReadsWhatTheRecordedOneRead) {
    for (const std::string way : {"namespace", "preload"}) {
        const ChildResult result = replay({"--way", way, "--speed", "0.0625"}, {LINETALKER, "3"});
        if (way == "namespace" && result.status == 4) {
            continue;  // none can be made here
        }
        EXPECT_EQ(result.out, "1\n1\n1\n");
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
    }
}

TEST_F(ReplayCommand, BeginsWhereItIsTold) {
    EXPECT_EQ(replay({"--from", "30.5", "--speed", "0.0625"}, {LINETALKER, "1"}).out, "30\n");
    EXPECT_EQ(replay({"--from", "0", "--speed", "0.0625"}, {LINETALKER, "1"}).out, "1\n");
}

TEST_F(ReplayCommand, EndsWithTheProgramsStatus) {
    EXPECT_EQ(replay({}, {"sh", "-c", "exit 7"}).status, 7);
    EXPECT_EQ(replay({}, {"sh", "-c", "kill -KILL $$"}).status, 128 + SIGKILL);
}

TEST_F(ReplayCommand, TellsWhatCannotBeDone) {
    const ChildResult none = replay({}, {"no-such-program"});
    EXPECT_EQ(none.err, "vehicle-recorder: no-such-program cannot be run: No such file or directory\n");
    EXPECT_EQ(none.status, 127);
    const ChildResult late = replay({"--from", "61.5"}, {"true"});
    EXPECT_EQ(late.err, "vehicle-recorder: " + file.path() + " ends at 61.000000 s, before --from\n");
    EXPECT_EQ(late.status, 2);
    for (const char* speed : {"0", "-1", "65", "x"}) {
        EXPECT_EQ(replay({"--speed", speed}, {"true"}).status, 2) << speed;
    }
    file.write(recording_header + "0.000000 open\n0.100000 end\n");
    const ChildResult empty = replay({}, {"true"});
    EXPECT_EQ(empty.err, "vehicle-recorder: " + file.path() + " has no frames\n");
    EXPECT_EQ(empty.status, 5);
}

// A replay on a terminal: what it draws there, and what the program prints.
class OnATerminal : public ReplayCommand {
protected:
    void start(const std::vector<const char*>& options) {
        std::array<int, 2> ends = {};
        ASSERT_EQ(pipe(ends.data()), 0);
        child = forkpty(&terminal, nullptr, nullptr, nullptr);
        if (child == 0) {
            setenv("LC_ALL", "C", 1);
            dup2(ends[1], STDOUT_FILENO);
            std::vector<const char*> words = {VEHICLE_RECORDER, "replay", file.path().c_str()};
            words.insert(words.end(), options.begin(), options.end());
            words.insert(words.end(), {"--", LINETALKER, nullptr});
            execv(VEHICLE_RECORDER, const_cast<char* const*>(words.data()));
            _exit(127);
        }
        close(ends[1]);
        printed_end = ends[0];
    }

    ~OnATerminal() override {
        if (child > 0) {
            kill(child, SIGTERM);
            while (waitpid(child, nullptr, WNOHANG) == 0) {
                take(100);
            }
        }
        close(terminal);
        close(printed_end);
    }

    void press(const std::string& keys) const {
        ASSERT_EQ(write(terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    // Takes what was drawn and printed.
    void take(int limit_ms) {
        std::array<pollfd, 2> ready = {{{terminal, POLLIN, 0}, {printed_end, POLLIN, 0}}};
        poll(ready.data(), ready.size(), limit_ms);
        std::array<char, 4096> room;
        for (const auto& [descriptor, events, revents] : ready) {
            const ssize_t count = revents != 0 ? read(descriptor, room.data(), room.size()) : 0;
            (descriptor == terminal ? drawn : printed)
                .append(room.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        }
    }

    // Waits until something was drawn or printed that was not there at the last wait.
    bool comes(std::string& where, const std::string& text) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(longest_wait_ms);
        while (where.find(text) == std::string::npos) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            take(100);
        }
        where.erase(0, where.find(text) + text.size());
        return true;
    }

    pid_t child = -1;
    int terminal = -1;
    int printed_end = -1;
    std::string drawn;
    std::string printed;
};

TEST_F(OnATerminal, KeysMoveTheRecording) {
    start({"--from", "20.5", "--speed", "0.0625"});
    ASSERT_TRUE(comes(printed, "20\n"));
    press(" ");
    ASSERT_TRUE(comes(drawn, "paused"));
    press("\033[C");
    EXPECT_TRUE(comes(printed, "30\n"));
    press("\033[D");
    EXPECT_TRUE(comes(printed, "20\n"));
    press("\033[C\033[C");
    EXPECT_TRUE(comes(printed, "40\n"));
}

TEST_F(OnATerminal, BlankPausesAndGoesOnToTheEnd) {
    start({"--speed", "0.0625"});
    EXPECT_TRUE(comes(drawn, "playing"));
    press(" ");
    EXPECT_TRUE(comes(drawn, "paused"));
    press(" ");
    EXPECT_TRUE(comes(drawn, "playing"));
    press(std::string(10, '+'));
    EXPECT_TRUE(comes(drawn, "x64  "));
    EXPECT_TRUE(comes(drawn, "1:01.0 / 1:01.0  x64  at the end"));
}

TEST_F(OnATerminal, ArrowsChangeTheSpeed) {
    start({});
    EXPECT_TRUE(comes(drawn, "x1  "));
    press("\033[A");
    EXPECT_TRUE(comes(drawn, "x2  "));
    press("\033[B\033[B");
    EXPECT_TRUE(comes(drawn, "x0.5  "));
    press("+");
    EXPECT_TRUE(comes(drawn, "x1  "));
    press("-");
    EXPECT_TRUE(comes(drawn, "x0.5  "));
    EXPECT_TRUE(comes(drawn, "space: pause"));
}

// A line that is broken by the terminal would be drawn below itself each time.
TEST_F(OnATerminal, StatusStaysWithinOneLine) {
    start({});
    ASSERT_TRUE(comes(drawn, "space: pause  left, right: 10 s  up, down: speed\033[K"));
    const winsize narrow = {.ws_row = 24, .ws_col = 30, .ws_xpixel = 0, .ws_ypixel = 0};
    ASSERT_EQ(ioctl(terminal, TIOCSWINSZ, &narrow), 0);
    // 29 characters; what was drawn before the change of the width may come first.
    EXPECT_TRUE(comes(drawn, " / 1:01.0  x1  playing \033[K")) << drawn.substr(0, 200);
}

TEST_F(OnATerminal, ControlCReachesTheProgramAndTheTerminalIsAsBefore) {
    start({});
    ASSERT_TRUE(comes(printed, "1\n"));
    termios now = {};
    ASSERT_EQ(tcgetattr(terminal, &now), 0);
    EXPECT_EQ(now.c_lflag & (ICANON | ECHO), 0U);
    press("\003");
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        take(100);
    }
    child = -1;
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 128 + SIGINT);
    ASSERT_EQ(tcgetattr(terminal, &now), 0);
    EXPECT_EQ(now.c_lflag & (ICANON | ECHO), static_cast<tcflag_t>(ICANON | ECHO));
}

}  // namespace
