/// @file
/// Waits for a frame on a real bus, which is read meanwhile.

#ifndef TESTS_SUPPORT_AWAITFRAME_H
#define TESTS_SUPPORT_AWAITFRAME_H

#include <cstdint>

#include "nodevik/observeddriver.h"
#include "nodevik/util/monotonicclock.h"
#include "tests/support/loopbacksocket.h"

/// Reads frames until one of the identifier comes; false when none does for two minutes.
/// @param length  takes the number of its bytes, may be null
inline bool await_frame(ObservedDriver& driver, unsigned int identifier, unsigned int* length = nullptr) {
    struct Listener : FrameObserver {
        unsigned int wanted = 0;
        bool has_come = false;
        unsigned int length = 0;
        void frame_passed(const ObservedFrame& frame) override {
            if (!has_come && frame.identifier == wanted) {
                has_come = true;
                length = frame.length;
            }
        }
    } listener;
    constexpr std::uint64_t limit_ns = 120'000'000'000;
    listener.wanted = identifier;
    driver.add_observer(listener);
    const std::uint64_t end = monotonic_ns() + limit_ns;
    while (!listener.has_come && monotonic_ns() < end) {
        wait_readable(driver.descriptor(), 100);
        driver.read_all();
    }
    driver.remove_observer(listener);
    if (length != nullptr) {
        *length = listener.length;
    }
    return listener.has_come;
}

#endif
