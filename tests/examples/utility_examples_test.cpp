// The examples of the Linux utilities, each against what it needs.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/childprocess.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/pseudoterminal.h"
#include "tools/plot_view/curvemodel.h"

namespace {

using Words = std::vector<std::string>;

constexpr int limit_ms = 30000;
constexpr const char* control_loop_usage = "usage: control_loop MASTER_PORT NODE_PORT [PERIOD_US [CYCLES]]\n";
constexpr const char* list_directory_usage =
    "usage: list_directory [DIRECTORY [all|file|dir|link|char|block|fifo|socket [TEXT]]]\n";
constexpr const char* plot_feed_usage = "usage: plot_feed PORT [SAMPLES [SAMPLES_PER_SECOND]]\n";

ChildResult run_control_loop(const Words& arguments, const Words& before = {}) {
    Words words{NODE_SIMULATOR, "--listen", "0", "--run"};
    words.insert(words.end(), before.begin(), before.end());
    words.insert(words.end(), {CONTROL_LOOP, "{master}", "{node}"});
    words.insert(words.end(), arguments.begin(), arguments.end());
    return run_program(words);
}

// What control_loop tells in its two last lines.
struct LoopReport {
    unsigned cycles = 0;
    unsigned period_us = 0;
    unsigned skipped = 0;
    unsigned answered = 0;
    std::array<double, 7> late{};  // min, mean, 50, 90, 99, 99.9 %, max
};

LoopReport read_report(const std::string& output) {
    LoopReport report;
    const std::size_t start = output.find("Clock resolution");
    const std::size_t line = start == std::string::npos ? output.size() : output.find('\n', start) + 1;
    std::sscanf(output.c_str() + line,
                "%u cycles of %u us, %u periods skipped, %u answers within the period\n"
                "late by us: min %lf  mean %lf  50%% %lf  90%% %lf  99%% %lf  99.9%% %lf  max %lf\n",
                &report.cycles, &report.period_us, &report.skipped, &report.answered, &report.late[0],
                &report.late[1], &report.late[2], &report.late[3], &report.late[4], &report.late[5],
                &report.late[6]);
    return report;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// A directory with entries of several kinds; it goes with its owner.
class Tree {
public:
    Tree() {
        std::string pattern = testing::TempDir() + "list_directory.XXXXXX";
        root_ = mkdtemp(pattern.data());
        std::ofstream(root_ + "/speed log.txt") << "1";
        std::ofstream(root_ + "/notes") << "2";
        std::filesystem::create_directory(root_ + "/logs");
        mkfifo((root_ + "/commands").c_str(), 0600);
        std::filesystem::create_symlink("notes", root_ + "/linked");
    }
    ~Tree() { std::filesystem::remove_all(root_); }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    const std::string& path() const { return root_; }

private:
    std::string root_;
};

// `text` with its lines in alphabetical order: the system lists a directory in an order of its own.
std::string sorted_lines(const std::string& text) {
    Words lines;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find('\n', start);
        lines.push_back(text.substr(start, end - start + 1));
        start = end == std::string::npos ? text.size() : end + 1;
    }
    std::sort(lines.begin(), lines.end());
    std::string sorted;
    for (const std::string& line : lines) {
        sorted += line;
    }
    return sorted;
}

std::string entry(const std::string& kind, const std::string& name) {
    char line[80];
    std::snprintf(line, sizeof line, "%-16s  %-30s\n", kind.c_str(), name.c_str());
    return line;
}

// key_state on a terminal and a keyboard that the test plays.
class KeyState {
public:
    KeyState() {
        std::array<int, 2> sockets{};
        socketpair(AF_UNIX, SOCK_STREAM, 0, sockets.data());
        fcntl(sockets[0], F_SETFD, FD_CLOEXEC);
        keyboard_ = sockets[0];
        child_ = fork();
        if (child_ == 0) {
            run(sockets[1]);
        }
        close(sockets[1]);
    }
    ~KeyState() {
        if (child_ > 0) {
            kill(child_, SIGKILL);
            waitpid(child_, nullptr, 0);
        }
        close(keyboard_);
    }
    KeyState(const KeyState&) = delete;
    KeyState& operator=(const KeyState&) = delete;

    void send(unsigned type, unsigned code, int value) const {
        input_event event = {};
        event.type = static_cast<std::uint16_t>(type);
        event.code = static_cast<std::uint16_t>(code);
        event.value = value;
        ASSERT_EQ(write(keyboard_, &event, sizeof event), static_cast<ssize_t>(sizeof event));
    }

    // Waits until the program has shown `text` since the last call; false when the limit passes.
    bool shows(const std::string& text) {
        pollfd entry{terminal_.far_end(), POLLIN, 0};
        char byte = 0;
        while (shown_.find(text) == std::string::npos) {
            if (poll(&entry, 1, limit_ms) != 1 || read(terminal_.far_end(), &byte, 1) != 1) {
                return false;
            }
            shown_.push_back(byte);
        }
        shown_.erase(0, shown_.find(text) + text.size());
        return true;
    }

    const std::string& shown() const { return shown_; }

    // The lamp event that the program wrote next: code and value.
    std::pair<int, int> lamp() const {
        input_event event = {};
        if (!wait_readable(keyboard_, limit_ms) || read(keyboard_, &event, sizeof event) != sizeof event ||
            event.type != EV_LED) {
            return {-1, -1};
        }
        return {event.code, event.value};
    }

    int wait_for_end() {
        int state = 0;
        waitpid(child_, &state, 0);
        child_ = -1;
        return WIFEXITED(state) ? WEXITSTATUS(state) : -1;
    }

    const PseudoTerminal& terminal() const { return terminal_; }

private:
    [[noreturn]] void run(int keyboard) const {
        const int near_end = open(terminal_.path().c_str(), O_RDWR | O_NOCTTY);
        for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            dup2(near_end, descriptor);
        }
        setenv("KEYBOARD_DESCRIPTOR", std::to_string(keyboard).c_str(), 1);
        // The loader ends a name at a blank, which the directory's path may have.
        const std::filesystem::path standin(KEYBOARD_STANDIN);
        if (chdir(standin.parent_path().c_str()) != 0) {
            _exit(127);
        }
        setenv("LD_PRELOAD", ("./" + standin.filename().string()).c_str(), 1);
        // The stand-in comes before the sanitizer's library, which else refuses to start.
        const char* options = getenv("ASAN_OPTIONS");
        setenv("ASAN_OPTIONS",
               (std::string(options != nullptr ? options : "") + ":verify_asan_link_order=0").c_str(), 1);
        execl(KEY_STATE, KEY_STATE, nullptr);
        _exit(127);
    }

    PseudoTerminal terminal_;
    int keyboard_ = -1;
    pid_t child_ = -1;
    std::string shown_;
};

}  // namespace

TEST(ControlLoop, ExchangesInEachPeriodAndTellsTheSpread) {
    const ChildResult result = run_control_loop({"2000", "300"});
    EXPECT_EQ(result.status, 0) << result.err;
    const LoopReport report = read_report(result.out);
    EXPECT_EQ(report.cycles, 300U) << result.out;
    EXPECT_EQ(report.period_us, 2000U);
    EXPECT_GT(report.answered, 0U);
    EXPECT_LT(report.answered, 300U);  // the first cycle has nothing to be answered
    EXPECT_TRUE(std::is_sorted(report.late.begin() + 2, report.late.end())) << result.out;
    EXPECT_LE(report.late[0], report.late[2]);
    EXPECT_LE(report.late[0], report.late[1]);
    EXPECT_LE(report.late[1], report.late[6]);
    EXPECT_GT(report.late[6], 0.0);
}

TEST(ControlLoop, RunsOneMillisecondPeriodsUnlessToldOtherwise) {
    const ChildResult result = run_control_loop({});
    EXPECT_EQ(read_report(result.out).period_us, 1000U) << result.out;
    EXPECT_EQ(read_report(result.out).cycles, 5000U);
}

// Times are not judged here: the machine is not ours alone.
TEST(ControlLoopDownload, KeepsItsCycleWhileALongObjectIsWritten) {
    const std::string log_path =
        testing::TempDir() + "control_loop_download." + std::to_string(getpid()) + ".log";
    const ChildResult result =
        run_program({NODE_SIMULATOR, "--listen", "0", "--nodes", "1,2", "--log", log_path, "--run",
                     CONTROL_LOOP_DOWNLOAD, "{master}", "{node}", "20000"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.out, "Done, 20000 bytes by blocks; ")) << result.out;
    unsigned before = 0;
    unsigned meanwhile = 0;
    const std::size_t report = std::min(result.out.find("before the transfer"), result.out.size());
    std::sscanf(result.out.c_str() + report, "before the transfer: %u cycles", &before);
    const std::size_t second = std::min(result.out.find("meanwhile: "), result.out.size());
    std::sscanf(result.out.c_str() + second, "meanwhile: %u cycles", &meanwhile);
    EXPECT_GE(before, 1000U);
    // 20000 bytes in segments of 7 bytes, at most 5 of them a cycle.
    constexpr unsigned fewest_meanwhile = 20000 / 7 / 5;
    EXPECT_GE(meanwhile, fewest_meanwhile);

    std::ifstream log(log_path);
    unsigned syncs = 0;
    unsigned inputs = 0;
    for (std::string line; std::getline(log, line);) {
        syncs += contains(line, " in  080 ") ? 1 : 0;
        inputs += contains(line, " out 181 ") ? 1 : 0;
    }
    // What is sent while the last confirmation is on its way may find the simulator gone.
    EXPECT_GE(syncs, 1000 + fewest_meanwhile) << "one in each cycle";
    EXPECT_LE(syncs, before + meanwhile);
    EXPECT_GE(inputs, 1000 + fewest_meanwhile) << "and each was answered";
    std::remove(log_path.c_str());
}

TEST(ControlLoop, RunsAsAnOrdinaryProcessWhenRealtimeSchedulingIsRefused) {
    Words without_the_right{"prlimit", "--rtprio=0"};
    if (geteuid() == 0) {
        without_the_right.insert(without_the_right.begin(),
                                 {"setpriv", "--bounding-set=-sys_nice", "--inh-caps=-sys_nice"});
    }
    const ChildResult result = run_control_loop({"1000", "20"}, without_the_right);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "Error - sched_setscheduler()\n: Operation not permitted\n"))
        << result.err;
    EXPECT_TRUE(contains(result.out, "ordinary scheduling\n")) << result.out;
    EXPECT_EQ(read_report(result.out).cycles, 20U) << result.out;
}

TEST(ControlLoop, TellsItsUsage) {
    const ChildResult help = run_program({CONTROL_LOOP, "--help"});
    EXPECT_EQ(help.out, control_loop_usage);
    EXPECT_EQ(help.status, 0);
    for (const Words& wrong : {Words{},
                               {"5000"},
                               {"5000", "65536"},
                               {"5000", "5001", "0"},
                               {"5000", "5001", "1x"},
                               {"5000", "5001", "1", "1", "1"}}) {
        Words words{CONTROL_LOOP};
        words.insert(words.end(), wrong.begin(), wrong.end());
        const ChildResult result = run_program(words);
        EXPECT_EQ(result.err, control_loop_usage);
        EXPECT_EQ(result.status, 2);
    }
}

TEST(ListDirectory, ListsEveryEntry) {
    const Tree tree;
    const ChildResult result = run_program({LIST_DIRECTORY, tree.path()});
    EXPECT_EQ(sorted_lines(result.out), entry("FIFO", "commands") + entry("directory", "logs") +
                                            entry("regular file", "linked") + entry("regular file", "notes") +
                                            entry("regular file", "speed log.txt"));
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST(ListDirectory, ListsOneKind) {
    const Tree tree;
    EXPECT_EQ(run_program({LIST_DIRECTORY, tree.path(), "dir"}).out,
              "directory         logs                          \n");
    EXPECT_EQ(run_program({LIST_DIRECTORY, tree.path(), "fifo"}).out,
              "FIFO              commands                      \n");
    EXPECT_EQ(run_program({LIST_DIRECTORY, tree.path(), "link"}).out, "");
    EXPECT_EQ(run_program({LIST_DIRECTORY, tree.path(), "socket"}).out, "");
}

TEST(ListDirectory, ListsNamesWithATextInThem) {
    const Tree tree;
    EXPECT_EQ(run_program({LIST_DIRECTORY, tree.path(), "file", "log"}).out,
              "regular file      speed log.txt                 \n");
    EXPECT_EQ(sorted_lines(run_program({LIST_DIRECTORY, tree.path(), "all", "log"}).out),
              entry("directory", "logs") + entry("regular file", "speed log.txt"));
}

TEST(ListDirectory, TellsADirectoryThatItCannotRead) {
    const ChildResult result = run_program({LIST_DIRECTORY, "/nowhere"});
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "list_directory: cannot read the directory /nowhere\n");
    EXPECT_EQ(result.status, 1);
}

TEST(ListDirectory, TellsItsUsage) {
    EXPECT_EQ(run_program({LIST_DIRECTORY, "--help"}).out, list_directory_usage);
    for (const Words& wrong : {Words{".", "files"}, {".", "all", "a", "b"}}) {
        Words words{LIST_DIRECTORY};
        words.insert(words.end(), wrong.begin(), wrong.end());
        const ChildResult result = run_program(words);
        EXPECT_EQ(result.err, list_directory_usage);
        EXPECT_EQ(result.status, 2);
    }
}

TEST(PlotFeed, SendsTwoCurvesThatAClientUnderstands) {
    LoopbackSocket client;
    const ChildResult result = run_program({PLOT_FEED, std::to_string(client.port()), "50", "2000"});
    EXPECT_EQ(result.status, 0) << result.err;
    plot::CurveModel model;
    std::vector<std::size_t> sizes;
    while (!model.stopped()) {
        const auto datagram = client.receive();
        ASSERT_TRUE(datagram.has_value());
        sizes.push_back(datagram->size());
        const std::vector<std::uint8_t> bytes(datagram->begin(), datagram->end());
        model.take(bytes);
    }
    EXPECT_EQ(sizes, (std::vector<std::size_t>{13 * 20, 60 * 20, 60 * 20, 30 * 20, 20}));
    EXPECT_EQ(model.range(), 400U);
    EXPECT_EQ(model.position(), 50U);
    EXPECT_FALSE(model.drawing_stopped());

    ASSERT_EQ(model.curves().size(), 2U);
    const plot::Curve& sine = model.curves().at(0);
    const plot::Curve& triangle = model.curves().at(1);
    EXPECT_EQ(sine.name, "speed");
    EXPECT_EQ(sine.color, 0x00FF00U);
    EXPECT_EQ(sine.width, 2);
    EXPECT_EQ(triangle.name, "bucket cylinder pressure");
    EXPECT_EQ(triangle.color, 0xFFFF00U);
    EXPECT_EQ(triangle.width, 1);
    const std::vector<plot::CurvePoint> waves = sine.points(0, 1000);
    const std::vector<plot::CurvePoint> slopes = triangle.points(0, 1000);
    ASSERT_EQ(waves.size(), 50U);
    ASSERT_EQ(slopes.size(), 50U);
    for (unsigned i = 0; i < 50; ++i) {
        EXPECT_NEAR(waves[i].value, 50.0 + 40.0 * std::sin(i * M_PI / 100.0), 1e-9);
        EXPECT_NEAR(slopes[i].value, -90.0 + i, 1e-9);
    }
}

TEST(PlotFeed, ClearsAClientThatWasStoppedBefore) {
    LoopbackSocket client;
    run_program({PLOT_FEED, std::to_string(client.port()), "20", "100000"});
    plot::CurveModel model;
    const auto deliver = [&] {
        const auto datagram = client.receive();
        const std::vector<std::uint8_t> bytes(datagram->begin(), datagram->end());
        model.take(bytes);
    };
    for (int datagram = 0; datagram < 3; ++datagram) {
        deliver();
    }
    ASSERT_TRUE(model.stopped());
    run_program({PLOT_FEED, std::to_string(client.port()), "20", "100000"});
    deliver();
    EXPECT_FALSE(model.stopped());
    EXPECT_EQ(model.position(), 0U);
    EXPECT_FALSE(model.curves().at(0).has_samples());
}

TEST(PlotFeed, TellsItsUsage) {
    EXPECT_EQ(run_program({PLOT_FEED, "--help"}).out, plot_feed_usage);
    for (const Words& wrong :
         {Words{}, {"0"}, {"65536"}, {"5000", "0"}, {"5000", "1", "0"}, {"5000", "1", "1", "1"}}) {
        Words words{PLOT_FEED};
        words.insert(words.end(), wrong.begin(), wrong.end());
        const ChildResult result = run_program(words);
        EXPECT_EQ(result.err, plot_feed_usage);
        EXPECT_EQ(result.status, 2);
    }
}

TEST(KeyStateExample, ShowsKeysMouseAndLampsAsTheyChange) {
    KeyState program;
    ASSERT_TRUE(program.shows("The device says its name is Stand-in keyboard"));
    ASSERT_TRUE(program.shows("keys | mouse 0 0 wheel 0 | buttons | lamps")) << program.shown();
    program.send(EV_KEY, KEY_A, 1);
    EXPECT_TRUE(program.shows("keys 30 | mouse 0 0 wheel 0 | buttons | lamps")) << program.shown();
    program.send(EV_KEY, KEY_LEFTSHIFT, 1);
    EXPECT_TRUE(program.shows("keys 30 42 | mouse")) << program.shown();
    program.send(EV_KEY, KEY_A, 0);
    EXPECT_TRUE(program.shows("keys 42 | mouse")) << program.shown();
    program.send(EV_REL, REL_X, 12);
    EXPECT_TRUE(program.shows("mouse 12 0 wheel 0")) << program.shown();
    program.send(EV_REL, REL_Y, -3);
    EXPECT_TRUE(program.shows("mouse 12 -3 wheel 0")) << program.shown();
    program.send(EV_REL, REL_WHEEL, -1);
    EXPECT_TRUE(program.shows("wheel -1 | buttons | lamps")) << program.shown();
    program.send(EV_KEY, BTN_RIGHT, 1);
    EXPECT_TRUE(program.shows("buttons R | lamps")) << program.shown();
    program.send(EV_KEY, BTN_LEFT, 1);
    EXPECT_TRUE(program.shows("buttons L R | lamps")) << program.shown();
    program.send(EV_KEY, BTN_MIDDLE, 1);
    EXPECT_TRUE(program.shows("buttons L M R | lamps")) << program.shown();
    program.send(EV_LED, LED_CAPSL, 1);
    EXPECT_TRUE(program.shows("lamps Caps")) << program.shown();
}

TEST(KeyStateExample, FunctionKeysToggleTheLamps) {
    KeyState program;
    ASSERT_TRUE(program.shows("| lamps")) << program.shown();
    constexpr std::array<std::pair<unsigned, int>, 3> keys = {
        {{KEY_F1, LED_NUML}, {KEY_F2, LED_CAPSL}, {KEY_F3, LED_SCROLLL}}};
    for (const auto& [key, lamp] : keys) {
        program.send(EV_KEY, key, 1);
        EXPECT_EQ(program.lamp(), std::pair(lamp, 1));
        program.send(EV_KEY, key, 0);
    }
    program.send(EV_LED, LED_NUML, 1);
    ASSERT_TRUE(program.shows("lamps Num")) << program.shown();
    program.send(EV_KEY, KEY_F1, 1);
    EXPECT_EQ(program.lamp(), std::pair(LED_NUML, 0));
}

TEST(KeyStateExample, EscapeEndsItAndPutsTheTerminalInOrder) {
    KeyState program;
    ASSERT_TRUE(program.shows("| lamps")) << program.shown();
    EXPECT_EQ(program.terminal().attributes().c_lflag & ECHO, 0U);
    program.send(EV_KEY, KEY_ESC, 1);
    EXPECT_EQ(program.wait_for_end(), 0);
    EXPECT_EQ(program.terminal().attributes().c_lflag & (ECHO | ICANON),
              static_cast<tcflag_t>(ECHO | ICANON));
    EXPECT_TRUE(program.shows("\033[?25h")) << program.shown();
}

TEST(KeyStateExample, TellsThatItNeedsATerminal) {
    const ChildResult result = run_program({KEY_STATE});
    EXPECT_EQ(result.err, "key_state: standard input is no terminal\n");
    EXPECT_EQ(result.status, 1);
}

TEST(KeyStateExample, TellsItsUsage) {
    EXPECT_EQ(run_program({KEY_STATE, "--help"}).out, "usage: key_state\n");
    const ChildResult result = run_program({KEY_STATE, "30"});
    EXPECT_EQ(result.err, "usage: key_state\n");
    EXPECT_EQ(result.status, 2);
}
