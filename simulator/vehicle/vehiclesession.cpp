#include "simulator/vehicle/vehiclesession.h"

#include <poll.h>

#include <algorithm>
#include <ctime>
#include <random>
#include <string>

namespace vehicle_simulator {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

// While nobody has the line open, it is looked at this often: poll(2) has no event for an opening.
constexpr milliseconds opening_look = milliseconds(2);
constexpr milliseconds longest_wait = milliseconds(1000);
constexpr double seeded_frame_time_s = 0.1;

timespec to_timespec(nanoseconds time) {
    constexpr std::int64_t second = 1'000'000'000;
    return {.tv_sec = time.count() / second, .tv_nsec = time.count() % second};
}

std::uint32_t seed_of(const VehicleOptions& options) {
    return options.seed ? *options.seed : std::random_device()();
}

}  // namespace

VehicleSession::VehicleSession(const VehicleOptions& options, VehicleLine& line, VehicleLog& log)
    : options_(options),
      line_(line),
      log_(log),
      controller_(options.capacity_ah, seed_of(options)),
      faults_(options.faults, seed_of(options)),
      last_frame_(Clock::now()) {}

void VehicleSession::run(const volatile std::sig_atomic_t& end, const sigset_t& waiting_mask) {
    while (end == 0 && !hung_up_) {
        wait(waiting_mask);
        note_opening_and_closing();
        if (open_) {
            take_bytes();
            send_what_is_due();
        }
    }
}

void VehicleSession::wait(const sigset_t& waiting_mask) const {
    nanoseconds time = open_ ? longest_wait : opening_look;
    if (!sendings_.empty()) {
        time = std::clamp<nanoseconds>(sendings_.front().due - Clock::now(), nanoseconds(0), time);
    }
    const timespec limit = to_timespec(time);
    // A closed line is always "hung up" and would end the waiting at once: then only the time counts.
    pollfd line = {line_.descriptor(), POLLIN, 0};
    ppoll(&line, open_ ? 1 : 0, &limit, &waiting_mask);
}

void VehicleSession::note_opening_and_closing() {
    if (line_.is_open() == open_) {
        return;
    }
    if (open_) {
        take_bytes();
        sendings_.clear();
        reader_.reset();
        settings_known_ = false;
    }
    open_ = !open_;
    log_.line(open_ ? "opened" : "closed");
}

void VehicleSession::take_bytes() {
    for (const std::uint8_t byte : line_.receive()) {
        const std::optional<CommandFrame> frame = reader_.take(byte);
        if (frame && !hung_up_) {
            ++frames_;
            if (!faults_.loses_frame(frames_)) {
                answer(*frame);
            }
        }
    }
}

void VehicleSession::answer(const CommandFrame& frame) {
    if (!settings_known_) {
        settings_known_ = true;
        log_.line("settings " + std::to_string(line_.speed_baud()) + " baud " +
                  (line_.is_raw_8n1() ? "8N1" : "not 8N1"));
    }
    log_.line(describe(frame));
    const Telemetry telemetry = controller_.exchange(frame, seconds_since_last_frame());
    std::vector<std::uint8_t> all;
    const Clock::time_point now = Clock::now();
    for (Piece& piece : faults_.apply(encode_reply(telemetry))) {
        all.insert(all.end(), piece.bytes.begin(), piece.bytes.end());
        if (!faults_.loses_reply(frames_)) {
            sendings_.push_back({.due = now + milliseconds(piece.after_ms), .bytes = std::move(piece.bytes)});
        }
    }
    if (!faults_.random_fault().empty()) {
        log_.line("fault " + faults_.random_fault());
    }
    log_.line(describe(all, telemetry));
    if (faults_.hangs_up(frames_)) {
        hung_up_ = true;
        line_.hang_up();
        log_.line("hung up");
    }
}

void VehicleSession::send_what_is_due() {
    while (!hung_up_ && !sendings_.empty() && sendings_.front().due <= Clock::now()) {
        line_.send(sendings_.front().bytes);
        sendings_.pop_front();
    }
}

double VehicleSession::seconds_since_last_frame() {
    if (options_.seed) {
        return seeded_frame_time_s;
    }
    const Clock::time_point now = Clock::now();
    const std::chrono::duration<double> passed = now - last_frame_;
    last_frame_ = now;
    return passed.count();
}

}  // namespace vehicle_simulator
