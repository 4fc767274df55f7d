#include "nodevik/recording/framerecorder.h"

#include <algorithm>
#include <cerrno>

namespace {

constexpr std::uint64_t ns_per_us = 1000;

}  // namespace

FrameRecorder::FrameRecorder(const char* interface_name) {
    line.set_name(interface_name);
}

int FrameRecorder::open(const char* path) {
    has_failed = false;
    flush_at = no_flush;
    recorded_frames = 0;
    error_frames = 0;
    return log.open(path);
}

int FrameRecorder::close() {
    flush_at = no_flush;
    return log.close();
}

void FrameRecorder::process(std::uint64_t now_ns) {
    if (now_ns < flush_at) {
        return;
    }
    const int result = log.flush();
    // A disk that is full is tried again, but not at every call.
    flush_at = result == 0 ? no_flush : now_ns + flush_period_ns;
    judge(result);
}

std::uint64_t FrameRecorder::next_deadline() const {
    return flush_at;
}

void FrameRecorder::frame_passed(const ObservedFrame& frame) {
    if (!log.is_open()) {
        return;
    }
    if (frame.error) {
        ++error_frames;
        return;
    }
    line.time_us = frame.time_ns() / ns_per_us;
    line.identifier = frame.identifier;
    line.extended = frame.extended;
    line.remote = frame.remote;
    line.length = std::min(frame.length, 8U);
    line.data = {};
    std::copy_n(frame.data, frame.size(), line.data.begin());
    if (flush_at == no_flush) {
        flush_at = frame.monotonic_time_ns() + flush_period_ns;
    }
    const int result = log.append(line);
    recorded_frames += result == 0 ? 1 : 0;
    if (result != 0) {
        judge(result);
    }
}

// Tells a failure, unless it has been told.
void FrameRecorder::judge(int result) {
    const int reason = errno;
    if (result == 0) {
        has_failed = false;
    } else if (!has_failed) {
        has_failed = true;
        if (failure) {
            failure(reason);
        }
    }
}
