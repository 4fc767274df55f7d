/// @file
/// A bus for fuzz targets: it takes or refuses what is sent, and what comes is put in by the target. Time goes by a
/// clock of its own, so that nothing waits; link with --wrap=clock_gettime.

#ifndef TESTS_FUZZ_SCRIPTEDBUS_H
#define TESTS_FUZZ_SCRIPTEDBUS_H

#include <time.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <deque>

#include "nodevik/candriver.h"

/// The time that every clock shows, in nanoseconds.
inline std::uint64_t fuzz_clock_ns = 1'000'000'000;

extern "C" inline __attribute__((used)) int __wrap_clock_gettime(clockid_t, timespec* time) {
    fuzz_clock_ns += 1000;
    time->tv_sec = static_cast<time_t>(fuzz_clock_ns / 1'000'000'000);
    time->tv_nsec = static_cast<long>(fuzz_clock_ns % 1'000'000'000);
    return 0;
}

/// Ends the run as a finding unless @p holds.
inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// A driver with a queue of frames to be read.
class FuzzBus : public CANdriver {
public:
    struct Frame {
        unsigned int id = 0;
        unsigned int length = 8;
        std::array<unsigned char, 8> data{};
    };

    std::deque<Frame> incoming;  ///< what is read next
    Frame last_sent;             ///< what was taken last
    bool refuses = false;        ///< whether write() fails

    int open(unsigned int, unsigned int, unsigned int, bool) override { return 0; }
    void close() override {}
    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override {
        if (incoming.empty()) {
            return 1;
        }
        ID = incoming.front().id;
        length = incoming.front().length;
        std::copy_n(incoming.front().data.begin(), std::min(length, 8U), data);
        incoming.pop_front();
        return 0;
    }
    int write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int) override {
        if (refuses) {
            return -1;
        }
        last_sent.id = cobid;
        last_sent.length = length;
        std::copy_n(data, std::min(length, 8U), last_sent.data.begin());
        return 0;
    }
    int read_error_counters(unsigned int&, unsigned int&, unsigned int&) override { return 0; }
    void reset_rx_errors() override {}
    void reset_tx_errors() override {}
};

#endif
