/// @file
/// A node over UDP that does what a test says: it lies, is late, repeats itself or falls silent at any step.

#ifndef TESTS_TOOLS_SCRIPTEDNODE_H
#define TESTS_TOOLS_SCRIPTEDNODE_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/candatagram.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/scriptedsdonode.h"

/// Node 5. It is set up first, then started; a thread of its own answers until it is stopped.
class ScriptedNode {
public:
    using Data = ScriptedSdoNode::Data;
    using Answers = ScriptedSdoNode::Answers;

    static constexpr unsigned int number = 5;

    ScriptedSdoNode sdo;             ///< its objects
    unsigned int silent_from = ~0U;  ///< first request that it does not hear, from 1
    bool boots = true;               ///< tells its boot-up after a reset
    /// Changes the answers to a request; of the request it is told which one it is, from 1.
    std::function<void(unsigned int request, const Data& frame, Answers& answers)> script;
    /// The abort code that refuses a request, which is not done then; 0 does it.
    std::function<std::uint32_t(const std::string& frame)> refusal;
    std::function<void()> when_reset;  ///< called when it is reset

    ScriptedNode() = default;
    ~ScriptedNode() { stop(); }
    ScriptedNode(const ScriptedNode&) = delete;
    ScriptedNode& operator=(const ScriptedNode&) = delete;

    /// What --udp takes.
    std::string bus() const { return "127.0.0.1:" + std::to_string(socket_.port()); }

    /// Adds an object; the bytes beyond the eighth are zero.
    void add(unsigned int index, unsigned int subindex, std::uint64_t value, std::size_t size) {
        ScriptedSdoNode::Bytes& bytes = sdo.objects[index << 8 | subindex];
        for (std::size_t i = 0; i < size; ++i) {
            bytes.push_back(i < sizeof value ? static_cast<std::uint8_t>(value >> 8 * i) : std::uint8_t{0});
        }
    }

    /// The value of an object of up to eight bytes.
    std::uint64_t value(unsigned int index, unsigned int subindex) {
        std::uint64_t result = 0;
        const ScriptedSdoNode::Bytes& bytes = sdo.objects[index << 8 | subindex];
        for (std::size_t i = bytes.size(); i > 0; --i) {
            result = result << 8 | bytes[i - 1];
        }
        return result;
    }

    /// Has a program interrupted, as by Ctrl-C, before a request is answered.
    /// @param step     which request, from 1
    /// @param program  its process
    void signal_at(unsigned int step, pid_t program) {
        script = [step, program](unsigned int request, const Data&, Answers&) {
            if (request == step) {
                kill(program, SIGINT);
            }
        };
    }

    /// Begins to answer.
    void start() {
        stopping_ = false;
        thread_ = std::thread([this] { serve(); });
    }

    /// How many requests have come so far.
    unsigned int requests() const { return requests_; }

    /// Ends, once everything that has arrived is taken. @return every frame: "605 8 40 18 10 01 00 00 00 00"
    std::vector<std::string> stop() {
        stopping_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
        return frames_;
    }

    /// An abort of the request.
    static Data abort(const Data& request, std::uint32_t code) {
        Data frame{0x80, request[1], request[2], request[3]};
        for (int i = 0; i < 4; ++i) {
            frame[4 + i] = static_cast<std::uint8_t>(code >> (8 * i));
        }
        return frame;
    }

private:
    void serve() {
        for (;;) {
            const bool was_stopping = stopping_;
            const auto datagram = socket_.receive(was_stopping ? 0 : 5);
            if (datagram) {
                take(*datagram);
            } else if (was_stopping) {
                return;
            }
        }
    }

    void take(const std::string& datagram) {
        const auto byte = [&datagram](std::size_t at) { return static_cast<unsigned char>(datagram.at(at)); };
        const unsigned int id = byte(0) | static_cast<unsigned int>(byte(1)) << 8;
        const unsigned int length = byte(4);
        char text[40];
        std::snprintf(text, sizeof text, "%03x %u", id, length);
        std::string frame = text;
        Data data{};
        for (unsigned int i = 0; i < length; ++i) {
            data[i] = byte(8 + i);
            std::snprintf(text, sizeof text, " %02x", data[i]);
            frame += text;
        }
        frames_.push_back(frame);
        const bool is_reset = id == 0 && data[0] == 0x81;
        if (is_reset && when_reset) {
            when_reset();
        }
        if (is_reset && boots) {
            send(0x700 + number, std::string(1, '\0'));
        }
        if (id == 0x600 + number) {
            answer(data, frame);
        }
    }

    void answer(const Data& request, const std::string& frame) {
        const unsigned int which = requests_ + 1;
        Answers answers;
        if (which < silent_from) {
            const std::uint32_t code = refusal ? refusal(frame) : 0;
            answers = code != 0 ? Answers{abort(request, code)} : sdo.receive(request);
            if (script) {
                script(which, request, answers);
            }
        }
        requests_ = which;  // the last answer may end the program, and the test asks then
        for (const Data& data : answers) {
            send(0x580 + number, std::string(data.begin(), data.end()));
        }
    }

    void send(unsigned int id, const std::string& data) {
        socket_.send(socket_.last_sender(), can_datagram(id, data));
    }

    LoopbackSocket socket_;
    std::thread thread_;
    std::atomic<bool> stopping_ = false;
    std::atomic<unsigned int> requests_ = 0;
    std::vector<std::string> frames_;
};

/// Those frames that change something: NMT, and the requests of SDO writes and their aborts.
inline std::vector<std::string> changing(const std::vector<std::string>& frames) {
    const std::string reading = " 40 60 70 a4 a3 a2 a1 ";
    std::vector<std::string> result;
    for (const std::string& frame : frames) {
        const bool is_request = frame[0] == '6' && frame.size() > 8;
        if (!is_request || reading.find(" " + frame.substr(6, 2) + " ") == std::string::npos) {
            result.push_back(frame);
        }
    }
    return result;
}

/// Expects that nothing but SDO requests was sent: no NMT above all.
/// @param beginning  what each frame begins with
inline void expect_requests_alone(const std::vector<std::string>& frames,
                                  const std::string& beginning = "605 8 ") {
    for (const std::string& frame : frames) {
        EXPECT_EQ(frame.rfind(beginning, 0), 0U) << frame;
    }
}

#endif
