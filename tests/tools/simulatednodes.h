/// @file
/// The program nodevik beside node-simulator, over UDP: what it prints, and every frame that it sends.

#ifndef TESTS_TOOLS_SIMULATEDNODES_H
#define TESTS_TOOLS_SIMULATEDNODES_H

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/candatagram.h"
#include "tests/support/childprocess.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/nodeprocess.h"
#include "tests/support/temporaryfile.h"

/// Frames as the simulator logs them: "605 8 40 18 10 01 00 00 00 00".
using Frames = std::vector<std::string>;

/// A running node-simulator, and what it has heard.
class SimulatedNodes {
public:
    /// @param arguments  of node-simulator, without --listen and --log
    explicit SimulatedNodes(std::vector<std::string> arguments)
        : node_(NODE_SIMULATOR, with_log(std::move(arguments), log_.path())) {}

    /// What --udp takes.
    std::string bus() const { return "127.0.0.1:" + std::to_string(node_.port()); }

    /// Runs the program on the bus of the nodes.
    ChildResult run(const std::vector<std::string>& words) const {
        std::vector<std::string> all{NODEVIK, "--udp", bus()};
        all.insert(all.end(), words.begin(), words.end());
        return run_program(all);
    }

    /// Every frame that the simulator has received up to now, but the test's own.
    Frames heard() const {
        const LoopbackSocket own;
        const std::string marker = "7f0 1 " + hex(++markers_);
        own.send(node_.port(), can_datagram(0x7F0, std::string(1, static_cast<char>(markers_))));
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < limit) {
            Frames frames;
            std::istringstream lines(log_.content());
            for (std::string line; std::getline(lines, line);) {
                const std::size_t at = line.find(" in  ");
                const std::string frame = at == std::string::npos ? "" : line.substr(at + 5);
                if (frame == marker) {
                    return frames;
                }
                if (!frame.empty() && frame.rfind("7f0 ", 0) != 0) {
                    frames.push_back(frame);
                }
            }
            std::this_thread::yield();
        }
        return {"the simulator is silent"};
    }

    /// Commands of the simulator.
    const NodeProcess& process() const { return node_; }

private:
    static std::vector<std::string> with_log(std::vector<std::string> arguments, const std::string& log) {
        arguments.insert(arguments.end(), {"--log", log});
        return arguments;
    }
    static std::string hex(unsigned char number) {
        constexpr const char* digits = "0123456789abcdef";
        return {digits[number >> 4], digits[number & 0xF]};
    }

    TemporaryFile log_;
    NodeProcess node_;
    mutable unsigned char markers_ = 0;
};

/// Those frames that change something: NMT, and the requests of SDO writes.
inline Frames changing(const Frames& frames) {
    Frames result;
    for (const std::string& frame : frames) {
        const std::string command = frame.size() > 6 ? frame.substr(6, 2) : "";
        const bool reads =
            frame[0] == '6' && (command == "40" || command == "60" || command == "70" || command == "a4" ||
                                command == "a3" || command == "a2" || command == "a1");
        if (!reads) {
            result.push_back(frame);
        }
    }
    return result;
}

/// Expects an end without a word on standard error.
inline void expect_done(const ChildResult& result, const std::string& out) {
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, out);
    EXPECT_EQ(result.err, "");
}

/// Expects nothing but a message.
inline void expect_failure(const ChildResult& result, int status, const std::string& err) {
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "nodevik: " + err + "\n");
}

#endif
