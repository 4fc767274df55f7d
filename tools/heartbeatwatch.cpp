#include "tools/heartbeatwatch.h"

#include <algorithm>

namespace nodevik_tool {

namespace {

constexpr unsigned int error_control_id = 0x700;  // CiA 301, 7.3.5
constexpr unsigned int highest_node = 127;
constexpr unsigned int toggle_bit = 0x80;
constexpr std::uint64_t nanoseconds_per_millisecond = 1'000'000;
constexpr std::size_t enough_times =
    2;  // a single one may be between a change of state and the next heartbeat

// Two and a half heartbeat times: two heartbeats are missing.
unsigned int longest_silence_ms(std::uint64_t heartbeat_ns) {
    const std::uint64_t silence_ms = heartbeat_ns * 5 / (2 * nanoseconds_per_millisecond) + 1;
    return static_cast<unsigned int>(
        std::clamp<std::uint64_t>(silence_ms, HeartbeatWatch::shortest_silence_ms, UINT32_MAX));
}

}  // namespace

HeartbeatWatch::HeartbeatWatch(ObservedDriver& driver) : driver_(&driver), watch_(driver) {
    driver_->remove_observer(watch_);
    driver_->add_observer(*this);
}

std::optional<std::uint64_t> HeartbeatWatch::heartbeat_ms(unsigned int number) const {
    const Beats& beats = beats_[number];
    if (beats.measured == 0) {
        return std::nullopt;
    }
    return (middle(beats) + nanoseconds_per_millisecond / 2) / nanoseconds_per_millisecond;
}

void HeartbeatWatch::frame_passed(const ObservedFrame& frame) {
    const unsigned int number = frame.identifier & highest_node;
    const bool is_error_control = frame.identifier == error_control_id + number && number != 0;
    if (is_error_control && frame.direction == ObservedFrame::Direction::received && !frame.extended &&
        !frame.error) {
        note(number, frame);
    }
    watch_.frame_passed(frame);
}

/// Something has come on a node's identifier of error control.
void HeartbeatWatch::note(unsigned int number, const ObservedFrame& frame) {
    if (!frame.remote && frame.length != 1) {
        return;
    }
    const unsigned int byte = frame.remote ? 0 : frame.data[0];
    const bool is_guarding = frame.remote || (byte & toggle_bit) != 0;
    if (is_guarding || byte == 0) {  // what was before a boot-up tells nothing of what comes now
        beats_[number] = Beats();
        beats_[number].is_guarded = is_guarding;
        watch_.ignore(number);
    } else if (!beats_[number].is_guarded) {
        measure(number, frame.time_ns());
    }
}

/// A heartbeat has come.
/// @param time_ns  when the kernel received it: the program may have come to read it late
void HeartbeatWatch::measure(unsigned int number, std::uint64_t time_ns) {
    Beats& beats = beats_[number];
    if (watch_.node(number).is_lost) {
        beats = Beats();
        watch_.ignore(number);
    }
    if (beats.last_ns != 0 && time_ns > beats.last_ns) {  // the clock of the day may be set
        beats.times[beats.measured++ % kept_times] = time_ns - beats.last_ns;
    }
    beats.last_ns = time_ns;
    if (beats.measured >= enough_times) {
        watch_.expect_heartbeat(number, longest_silence_ms(middle(beats)));
    }
}

/// The middle of the times; of two in the middle the longer one.
std::uint64_t HeartbeatWatch::middle(const Beats& beats) {
    std::array<std::uint64_t, kept_times> times = beats.times;
    const std::size_t count = std::min(beats.measured, kept_times);
    std::sort(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(count));
    return times[count / 2];
}

}  // namespace nodevik_tool
