/// @file
/// A bus over UDP for the program nodevik: node-simulator at its other end, or the test itself.

#ifndef TESTS_TOOLS_SIMULATEDBUS_H
#define TESTS_TOOLS_SIMULATEDBUS_H

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/candatagram.h"
#include "tests/support/childprocess.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/nodeprocess.h"
#include "tests/support/runningprogram.h"
#include "tests/support/temporaryfile.h"

/// Frames as "605 8 40 18 10 02 00 00 00 00": identifier, length, data.
using Frames = std::vector<std::string>;

/// node-simulator, and what it has heard.
class SimulatedBus {
public:
    /// @param nodevik    path of the program nodevik
    /// @param simulator  path of node-simulator
    /// @param options    of node-simulator
    SimulatedBus(std::string nodevik, const std::string& simulator, std::vector<std::string> options)
        : nodevik_(std::move(nodevik)) {
        options.insert(options.end(), {"--log", log_.path()});
        simulator_ = std::make_unique<NodeProcess>(simulator, options);
    }

    /// "127.0.0.1:PORT", for --udp.
    std::string address() const { return "127.0.0.1:" + std::to_string(simulator_->port()); }

    /// The words of a command line with this bus.
    std::vector<std::string> words(const std::vector<std::string>& more) const {
        std::vector<std::string> result{nodevik_, "--udp", address()};
        result.insert(result.end(), more.begin(), more.end());
        return result;
    }

    /// Runs nodevik to its end.
    ChildResult run(const std::vector<std::string>& more) const { return run_program(words(more)); }

    /// Runs nodevik to its end, with time for a simulator on a busy machine to answer.
    ChildResult run_patiently(std::vector<std::string> more) const {
        more.insert(more.end(), {"--timeout", "60000"});
        return run(more);
    }

    /// The simulator, for commands.
    const NodeProcess& simulator() const { return *simulator_; }

    /// Every frame that the simulator has received up to now.
    Frames heard() const {
        const std::string mark(1, static_cast<char>(++calls_));  // in a frame of the test's own
        std::array<char, 16> marker{};
        std::snprintf(marker.data(), marker.size(), "7f0 1 %02x", calls_ & 0xFFU);
        const LoopbackSocket own;
        own.send(simulator_->port(), can_datagram(0x7F0, mark));
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (std::chrono::steady_clock::now() < limit) {
            Frames frames;
            std::istringstream lines(log_.content());
            for (std::string line; std::getline(lines, line);) {
                if (const std::size_t at = line.find(" in  "); at != std::string::npos) {
                    const std::string frame = line.substr(at + 5);
                    if (frame == marker.data()) {
                        return frames;
                    }
                    if (frame.rfind("7f0 ", 0) != 0) {
                        frames.push_back(frame);
                    }
                }
            }
            std::this_thread::yield();
        }
        return {"the simulator is silent"};
    }

    /// How often the simulator has sent a frame up to now.
    std::size_t sent(const std::string& frame) const {
        std::size_t count = 0;
        std::istringstream lines(log_.content());
        for (std::string line; std::getline(lines, line);) {
            const std::size_t at = line.find(" out ");
            count += at != std::string::npos && line.substr(at + 5) == frame ? 1 : 0;
        }
        return count;
    }

private:
    std::string nodevik_;
    mutable unsigned calls_ = 0;  // of heard()
    TemporaryFile log_;
    std::unique_ptr<NodeProcess> simulator_;
};

/// A bus whose other end is the test: it hears every frame, and answers as it likes.
class ScriptedBus {
public:
    /// A frame: identifier and data.
    using Frame = std::pair<unsigned, std::string>;

    /// What is sent when a frame comes; nothing unless it is set.
    std::function<std::vector<Frame>(const Frame& frame)> answer;

    /// Called again and again while the program runs.
    std::function<void()> meanwhile;

    /// Every frame that came.
    Frames heard;

    /// @param nodevik  path of the program
    explicit ScriptedBus(std::string nodevik) : nodevik_(std::move(nodevik)) {
        const LoopbackSocket probe;
        port_ = probe.port();
    }

    /// The words of a command line with this bus.
    std::vector<std::string> words(const std::vector<std::string>& more) const {
        std::vector<std::string> result{
            nodevik_, "--udp", "127.0.0.1:" + std::to_string(socket_.port()) + "," + std::to_string(port_)};
        result.insert(result.end(), more.begin(), more.end());
        return result;
    }

    /// Sends the program a frame.
    void send(const Frame& frame) const { socket_.send(port_, can_datagram(frame.first, frame.second)); }

    /// Runs nodevik to its end, and answers meanwhile.
    /// @param out  takes its standard output, see RunningProgram
    ChildResult run(const std::vector<std::string>& more, int out = -1) {
        RunningProgram program(words(more), out);
        running_ = &program;
        is_signalled_ = false;
        const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (!has_ended(program.process())) {
            if (meanwhile) {
                meanwhile();
            }
            hear(1);
            if (std::chrono::steady_clock::now() > limit) {
                program.signal(SIGKILL);
            }
        }
        while (hear(0)) {
        }
        running_ = nullptr;
        ChildResult result;
        result.status = program.end();
        result.out = program.out();
        result.err = program.err();
        return result;
    }

    /// What the running program has written to standard output so far.
    std::string out() const { return running_->out(); }

    /// Sends the running program a signal, unless it has been sent one.
    void signal(int number) {
        if (!std::exchange(is_signalled_, true)) {
            running_->signal(number);
        }
    }

    /// Whether the running program can be sent frames.
    bool is_open() const { return !socket_line().empty(); }

    /// Whether the running program has read every frame that it was sent.
    bool is_read() const { return socket_line().find(" 00000000:00000000 ") != std::string::npos; }

    /// Has the running program sent frames once it can take them, and something done when it has read them.
    void when_read(std::vector<Frame> frames, std::function<void()> then) {
        meanwhile = [this, frames = std::move(frames), then = std::move(then), are_sent = false]() mutable {
            if (!are_sent && is_open()) {
                for (const Frame& frame : frames) {
                    send(frame);
                }
                are_sent = true;
            } else if (are_sent && is_read()) {
                then();
            }
        };
    }

private:
    static bool has_ended(pid_t process) {
        siginfo_t info{};
        waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT);
        return info.si_pid != 0;
    }

    // What the kernel tells of the program's socket (proc(5)): behind its port the bytes in its queues.
    std::string socket_line() const {
        std::array<char, 8> port{};
        std::snprintf(port.data(), port.size(), ":%04X ", port_);
        std::ifstream sockets("/proc/net/udp");
        for (std::string line; std::getline(sockets, line);) {
            if (line.find(port.data()) != std::string::npos) {
                return line;
            }
        }
        return {};
    }

    // Takes a frame; false when none comes.
    bool hear(int limit_ms) {
        const auto datagram = socket_.receive(limit_ms);
        if (!datagram) {
            return false;
        }
        const auto byte = [&datagram](std::size_t at) { return static_cast<unsigned char>((*datagram)[at]); };
        const Frame frame{byte(0) | byte(1) << 8U, datagram->substr(8, byte(4))};
        std::array<char, 16> text{};
        std::snprintf(text.data(), text.size(), "%03x %u", frame.first, static_cast<unsigned>(byte(4)));
        heard.emplace_back(text.data());
        for (const char data : frame.second) {
            std::snprintf(text.data(), text.size(), " %02x", static_cast<unsigned char>(data));
            heard.back() += text.data();
        }
        if (answer) {
            for (const Frame& one : answer(frame)) {
                send(one);
            }
        }
        return true;
    }

    std::string nodevik_;
    LoopbackSocket socket_;
    unsigned port_ = 0;
    RunningProgram* running_ = nullptr;
    bool is_signalled_ = false;
};

/// Looks that a program has done what it was told to.
inline void expect_done(const ChildResult& result, const std::string& out) {
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, out);
    EXPECT_EQ(result.err, "");
}

/// Looks that a program has ended with a status and a line that says why, without a result.
inline void expect_failure(const ChildResult& result, int status, const std::string& err) {
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "nodevik: " + err + "\n");
}

#endif
