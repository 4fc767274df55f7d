/// @file
/// A CAN driver whose bus is written by the test: what it reads, and what answers to what is sent.

#ifndef TESTS_SUPPORT_SCRIPTEDCANDRIVER_H
#define TESTS_SUPPORT_SCRIPTEDCANDRIVER_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <deque>
#include <functional>
#include <initializer_list>
#include <vector>

#include "nodevik/candriver.h"

/// A CAN frame as a test writes it: `ScriptedFrame(0x181, {1, 2, 3})`.
struct ScriptedFrame {
    unsigned int cobid = 0;                  ///< COB-ID
    unsigned int length = 0;                 ///< number of data bytes
    std::array<unsigned char, 8> data = {};  ///< data bytes, zero after @p length
    unsigned int flags = 0;                  ///< write flags: 0 for a data frame, 2 for a remote request

    ScriptedFrame() = default;

    /// A frame of the bytes given; its length is their number.
    ScriptedFrame(unsigned int id, std::initializer_list<unsigned char> bytes, unsigned int write_flags = 0)
        : cobid(id), length(static_cast<unsigned int>(bytes.size())), flags(write_flags) {
        std::copy_n(bytes.begin(), std::min(bytes.size(), data.size()), data.begin());
    }

    /// Equal in COB-ID, length, all 8 data bytes and flags.
    bool operator==(const ScriptedFrame& other) const = default;
};

/// A CAN driver on an imagined bus.
///
/// read() takes the queue's next step, a frame or a result other than 0, and returns 1 when there is none.
/// write() records the frame in `written`. With `on_write` a test plays a node that answers each frame: it is
/// called after every write and may queue frames. With `on_read` a test lets time pass: it is called before
/// every read, may queue frames too, and is told how many reads have been made before.
class ScriptedCanDriver : public CANdriver {
public:
    /// Queues a frame to be read.
    void queue(const ScriptedFrame& frame) { steps_.push_back({0, frame}); }

    /// Queues a frame of the bytes given.
    void queue(unsigned int cobid, std::initializer_list<unsigned char> bytes) {
        queue(ScriptedFrame(cobid, bytes));
    }

    /// Queues a read that stores nothing and returns @p result: 1 for "no frame waiting", another for an
    /// error.
    void queue_result(int result) { steps_.push_back({result, ScriptedFrame()}); }

    /// Number of steps that are still to be read.
    std::size_t pending() const { return steps_.size(); }

    /// Number of calls of read().
    unsigned long reads() const { return reads_; }

    std::vector<ScriptedFrame> written;                  ///< every frame sent, in order
    std::function<void(const ScriptedFrame&)> on_write;  ///< called after each write, with the frame sent
    std::function<void(unsigned long)> on_read;  ///< called before each read, with the number of earlier ones
    int write_result = 0;                        ///< what write() returns

    int open(unsigned int /*speed*/, unsigned int /*mode*/, unsigned int /*port*/, bool /*silent*/) override {
        isopen = 1;
        return 0;
    }

    void close() override { isopen = 0; }

    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override {
        if (on_read) {
            on_read(reads_);
        }
        ++reads_;
        if (steps_.empty()) {
            return 1;
        }
        const Step step = steps_.front();
        steps_.pop_front();
        if (step.result == 0) {
            ID = step.frame.cobid;
            length = step.frame.length;
            // Bytes past the frame's length are not the driver's to write.
            std::copy_n(step.frame.data.begin(), std::min<std::size_t>(length, 8), data);
        }
        return step.result;
    }

    int write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) override {
        ScriptedFrame frame(cobid, {}, flags);
        frame.length = length;
        if (data != nullptr) {
            std::copy_n(data, std::min<std::size_t>(length, 8), frame.data.begin());
        }
        written.push_back(frame);
        if (on_write) {
            on_write(frame);
        }
        return write_result;
    }

    int read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) override {
        txErr = TXerrors;
        rxErr = RXerrors;
        ovErr = OVerrors;
        return 0;
    }

    void reset_rx_errors() override { RXerrors = 0; }

    void reset_tx_errors() override { TXerrors = 0; }

private:
    struct Step {
        int result;
        ScriptedFrame frame;
    };

    std::deque<Step> steps_;
    unsigned long reads_ = 0;
};

#endif
