#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <regex.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/childprocess.h"

namespace {

constexpr int limit_ms = 20000;
const std::string neutral("\0gnP", 4);

// vehicle-simulator with its standard output on a pipe.
class Simulator {
public:
    explicit Simulator(std::vector<std::string> options) {
        int ends[2];
        if (pipe(ends) != 0) {
            std::abort();
        }
        options.insert(options.begin(), VEHICLE_SIMULATOR);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(ends[1], STDOUT_FILENO);
            ::close(ends[0]);
            ::close(ends[1]);
            std::vector<char*> argv;
            for (std::string& option : options) {
                argv.push_back(option.data());
            }
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        ::close(ends[1]);
        out_ = ends[0];
    }
    ~Simulator() {
        if (pid_ > 0) {
            end();
        }
        ::close(out_);
    }
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // The next line of standard output without its newline; empty when there is none within the limit.
    std::string line() {
        std::string text;
        for (char c = 0; read_byte(c) && c != '\n';) {
            text += c;
        }
        return text;
    }

    // The next line without its time stamp.
    std::string event() {
        const std::string text = line();
        return text.substr(text.find(' ') + 1);
    }

    int end(int signal = SIGTERM) {
        kill(pid_, signal);
        return wait();
    }

    int wait() {
        int state = 0;
        waitpid(pid_, &state, 0);
        pid_ = -1;
        return WIFEXITED(state) ? WEXITSTATUS(state) : 1000 + WTERMSIG(state);
    }

private:
    bool read_byte(char& c) const {
        pollfd waiting = {out_, POLLIN, 0};
        return poll(&waiting, 1, limit_ms) > 0 && ::read(out_, &c, 1) == 1;
    }

    pid_t pid_ = -1;
    int out_ = -1;
};

// The panel's end of the line.
class NearEnd {
public:
    explicit NearEnd(const std::string& path) : fd_(::open(path.c_str(), O_RDWR | O_NOCTTY)) {}
    ~NearEnd() { close(); }
    NearEnd(const NearEnd&) = delete;
    NearEnd& operator=(const NearEnd&) = delete;

    bool is_open() const { return fd_ >= 0; }
    void send(const std::string& bytes) const {
        ASSERT_EQ(::write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    std::string receive(std::size_t count, int limit = limit_ms) const {
        std::string bytes;
        pollfd waiting = {fd_, POLLIN, 0};
        while (bytes.size() < count && poll(&waiting, 1, limit) > 0) {
            char block[256];
            const ssize_t got = ::read(fd_, block, std::min(sizeof block, count - bytes.size()));
            if (got <= 0) {
                break;
            }
            bytes.append(block, static_cast<std::size_t>(got));
        }
        return bytes;
    }
    void set_speed(speed_t speed) const {
        termios now = {};
        tcgetattr(fd_, &now);
        cfsetispeed(&now, speed);
        cfsetospeed(&now, speed);
        ASSERT_EQ(tcsetattr(fd_, TCSANOW, &now), 0);
    }
    void close() {
        if (fd_ >= 0) {
            ::close(fd_);
            fd_ = -1;
        }
    }
    int descriptor() const { return fd_; }

private:
    int fd_;
};

std::string contents(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

int byte(const std::string& bytes, std::size_t position) {
    return static_cast<unsigned char>(bytes.at(position));
}

// Whether all of `text` matches the extended regular expression (regex(7)).
bool matches(const std::string& text, const std::string& expression) {
    regex_t compiled;
    if (regcomp(&compiled, ("^" + expression + "$").c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
        return false;
    }
    const bool matched = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return matched;
}

bool starts_with(const std::string& text, const std::string& beginning) {
    return text.rfind(beginning, 0) == 0;
}

}  // namespace

TEST(VehicleSimulator, PrintsTheTerminalsPathFirst) {
    Simulator simulator({});
    const std::string path = simulator.line();
    EXPECT_TRUE(starts_with(path, "/dev/pts/")) << path;
    EXPECT_TRUE(NearEnd(path).is_open());
}

TEST(VehicleSimulator, AnswersEachFrameWithTelemetry) {
    Simulator simulator({"--capacity", "63"});
    const NearEnd line(simulator.line());
    for (int round = 0; round < 3; ++round) {
        line.send(neutral);
        const std::string reply = line.receive(39);
        ASSERT_EQ(reply.size(), 39U);
        EXPECT_EQ(byte(reply, 0) * 256 + byte(reply, 3), 32767);
        EXPECT_EQ(byte(reply, 18) * 256 + byte(reply, 21), 63);
    }
}

TEST(VehicleSimulator, GathersFramesThatComeInParts) {
    Simulator simulator({});
    const NearEnd line(simulator.line());
    line.send("\x01\x02");
    line.send("\x03P\x05");
    EXPECT_EQ(line.receive(39).size(), 39U);
    line.send("\x06\x07Q");
    EXPECT_EQ(line.receive(39).size(), 39U);
    EXPECT_EQ(simulator.event(), "opened");
    simulator.line();
    EXPECT_TRUE(starts_with(simulator.event(), "received 01 02 03 50 "));
    simulator.line();
    EXPECT_TRUE(starts_with(simulator.event(), "received 05 06 07 51 "));
}

TEST(VehicleSimulator, LogsEveryFrameAndEveryReplyWithItsTime) {
    Simulator simulator({});
    const NearEnd line(simulator.line());
    line.send(neutral);
    line.receive(39);
    EXPECT_TRUE(matches(simulator.line(), "[0-9]+[.][0-9]{6} opened"));
    EXPECT_TRUE(starts_with(simulator.event(), "settings 38400 baud 8N1"));
    EXPECT_TRUE(matches(simulator.line(),
                        "[0-9]+[.][0-9]{6} received 00 67 6e 50 throttle 0 direction 103 bucket 110 "
                        "motor off"));
    EXPECT_TRUE(matches(simulator.line(),
                        "[0-9]+[.][0-9]{6} replied 39 bytes( [0-9a-f]{2}){39} speed 0 voltage [0-9]+ "
                        "current [0-9]+ capacity 100 latitude 601700000"));
}

TEST(VehicleSimulator, TellsTheLinesSpeedWithTheFirstFrame) {
    Simulator simulator({});
    const std::string path = simulator.line();
    const std::pair<speed_t, std::string> speeds[] = {{B9600, "9600"},     {B19200, "19200"},
                                                      {B38400, "38400"},   {B57600, "57600"},
                                                      {B115200, "115200"}, {B4800, "0"}};
    for (const auto& [code, name] : speeds) {
        NearEnd line(path);
        line.set_speed(code);
        line.send(neutral);
        EXPECT_EQ(simulator.event(), "opened");
        EXPECT_EQ(simulator.event(), "settings " + name + " baud 8N1");
        simulator.line();
        simulator.line();
        line.close();
        EXPECT_EQ(simulator.event(), "closed");
    }
}

TEST(VehicleSimulator, TellsALineThatIsNotRaw) {
    Simulator simulator({});
    const NearEnd line(simulator.line());
    termios now = {};
    tcgetattr(line.descriptor(), &now);
    now.c_iflag |= IXON;
    tcsetattr(line.descriptor(), TCSANOW, &now);
    line.send(neutral);
    simulator.line();
    EXPECT_EQ(simulator.event(), "settings 38400 baud not 8N1");
}

TEST(VehicleSimulator, LogsToAFile) {
    const std::string log = testing::TempDir() + "vehicle-log-" + std::to_string(getpid());
    Simulator simulator({"--log", log});
    {
        const NearEnd line(simulator.line());
        line.send(neutral);
        EXPECT_EQ(line.receive(39).size(), 39U);
    }
    EXPECT_EQ(simulator.end(), 0);
    EXPECT_EQ(simulator.line(), "");
    EXPECT_NE(contents(log).find("received 00 67 6e 50"), std::string::npos);
    std::filesystem::remove(log);
}

TEST(VehicleSimulator, DropsAnUnfinishedFrameWhenTheLineIsClosed) {
    Simulator simulator({});
    const std::string path = simulator.line();
    {
        const NearEnd line(path);
        line.send("\x01\x02");
        EXPECT_EQ(simulator.event(), "opened");
    }
    EXPECT_EQ(simulator.event(), "closed");
    const NearEnd line(path);
    line.send(neutral);
    EXPECT_EQ(simulator.event(), "opened");
    simulator.line();
    EXPECT_TRUE(starts_with(simulator.event(), "received 00 67 6e 50 "));
}

TEST(VehicleSimulator, RepeatsARunWithTheSameSeed) {
    std::string replies[2];
    for (std::string& reply : replies) {
        Simulator simulator({"--seed", "5"});
        const NearEnd line(simulator.line());
        for (int frame = 0; frame < 30; ++frame) {
            line.send("\xff\x78\x2fQ");
            reply += line.receive(39);
        }
    }
    EXPECT_EQ(replies[0].size(), 30U * 39U);
    EXPECT_EQ(replies[0], replies[1]);
    EXPECT_LT(byte(replies[0], 29 * 39), 0x7f);
}

TEST(VehicleSimulator, DrivesByTheClockWithoutASeed) {
    Simulator simulator({});
    const NearEnd line(simulator.line());
    line.send("\xff\x67\x2fQ");
    line.receive(39);
    int speed_number = 32767;
    for (int frame = 0; frame < 10000 && speed_number > 32000; ++frame) {
        usleep(1000);
        line.send("\xff\x67\x2fQ");
        const std::string reply = line.receive(39);
        ASSERT_EQ(reply.size(), 39U);
        speed_number = byte(reply, 0) * 256 + byte(reply, 3);
    }
    EXPECT_LE(speed_number, 32000);
}

TEST(VehicleSimulator, MutedSendsNothing) {
    Simulator simulator({"--mute", "--every", "2"});
    const NearEnd line(simulator.line());
    line.send(neutral + neutral + neutral);
    EXPECT_EQ(line.receive(79, 200).size(), 78U);
    for (const char* event :
         {"opened", "settings", "received", "replied", "received", "muted", "received", "replied"}) {
        EXPECT_TRUE(starts_with(simulator.event(), event)) << event;
    }
}

TEST(VehicleSimulator, CutSendsTheBeginningOnly) {
    Simulator simulator({"--cut", "7"});
    const NearEnd line(simulator.line());
    line.send(neutral);
    EXPECT_EQ(line.receive(8, 200).size(), 7U);
}

TEST(VehicleSimulator, DelayedAndSplitSendsAllInTheEnd) {
    Simulator simulator({"--delay", "30", "--split", "3", "--split-pause", "20"});
    const NearEnd line(simulator.line());
    line.send(neutral);
    pollfd waiting = {line.descriptor(), POLLIN, 0};
    ASSERT_EQ(poll(&waiting, 1, limit_ms), 1);
    EXPECT_EQ(line.receive(39).size(), 39U);
}

TEST(VehicleSimulator, DelayedReplyIsLostWhenTheLineIsClosedMeanwhile) {
    Simulator simulator({"--delay", "300", "--every", "2"});
    const std::string path = simulator.line();
    {
        const NearEnd line(path);
        line.send(neutral + neutral);
        EXPECT_EQ(line.receive(39).size(), 39U);
    }
    while (simulator.event() != "closed") {
    }
    const NearEnd line(path);
    EXPECT_EQ(line.receive(1, 500), "");
}

TEST(VehicleSimulator, GarbageComesAheadOfTheReply) {
    Simulator simulator({"--garbage", "4", "--seed", "1"});
    const NearEnd line(simulator.line());
    line.send(neutral);
    const std::string reply = line.receive(43);
    ASSERT_EQ(reply.size(), 43U);
    EXPECT_EQ(byte(reply, 5), 0xA0);
}

TEST(VehicleSimulator, HangsTheLineUpAfterTheChosenFrame) {
    Simulator simulator({"--hang-up", "2"});
    const NearEnd line(simulator.line());
    line.send(neutral);
    EXPECT_EQ(line.receive(39).size(), 39U);
    line.send(neutral);
    EXPECT_EQ(simulator.wait(), 0);
    EXPECT_EQ(::write(line.descriptor(), "x", 1), -1);
    std::string last;
    for (std::string event = simulator.event(); !event.empty(); event = simulator.event()) {
        last = event;
    }
    EXPECT_EQ(last, "hung up");
}

TEST(VehicleSimulator, EndsOnASignalWithStatusZero) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Simulator simulator({});
        simulator.line();
        EXPECT_EQ(simulator.end(signal), 0);
    }
}

TEST(VehicleSimulator, PrintsItsHelp) {
    const ChildResult result = run_program({VEHICLE_SIMULATOR, "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(starts_with(result.out, "usage: vehicle-simulator [OPTION ...]\n"));
    EXPECT_EQ(result.err, "");
}

TEST(VehicleSimulator, RefusesABadOptionWithStatusTwo) {
    const ChildResult result = run_program({VEHICLE_SIMULATOR, "--cut", "40"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "vehicle-simulator: --cut takes a whole number from 0 to 39, not '40'\n"
              "Try 'vehicle-simulator --help'.\n");
}

TEST(VehicleSimulator, RefusesALogThatItCannotWrite) {
    const ChildResult result = run_program({VEHICLE_SIMULATOR, "--log", "/nowhere/log"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err,
              "vehicle-simulator: cannot write the log to /nowhere/log: No such file or directory\n");
}

TEST(VehicleSimulator, TellsThatItGetsNoTerminal) {
    const ChildResult result = run_preloaded(NO_TERMINAL, {VEHICLE_SIMULATOR});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vehicle-simulator: pseudo-terminal: No such file or directory\n");
}
