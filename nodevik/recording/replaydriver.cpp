#include "nodevik/recording/replaydriver.h"

#include <algorithm>
#include <cmath>

#include "nodevik/arch.h"
#include "nodevik/candriverwords.h"
#include "nodevik/util/monotonicclock.h"

namespace {

constexpr std::uint64_t ns_per_us = 1000;
constexpr std::uint64_t ns_per_ms = 1'000'000;
constexpr double longest_time = 9e18;  // in any unit, with room for another of its kind
constexpr unsigned int highest_standard = 0x7FF;

// Identifiers of what a master sends, by the predefined connection set.
struct Range {
    unsigned int first;
    unsigned int last;
};
constexpr Range master_ranges[] = {
    {0x000, 0x000},                                                  // NMT
    {0x080, 0x080},                                                  // SYNC
    {0x100, 0x100},                                                  // TIME
    {0x201, 0x27F}, {0x301, 0x37F}, {0x401, 0x47F}, {0x501, 0x57F},  // RPDOs of the nodes
    {0x601, 0x67F},                                                  // SDO requests
    {0x7E5, 0x7E5},                                                  // LSS
};

}  // namespace

ReplayDriver::ReplayDriver() = default;

bool ReplayDriver::master_sends(const LogFrame& frame) {
    if (frame.extended) {
        return false;
    }
    return frame.remote ||
           std::any_of(std::begin(master_ranges), std::end(master_ranges), [&frame](const Range& range) {
               return frame.identifier >= range.first && frame.identifier <= range.last;
           });
}

int ReplayDriver::open_log(const char* path) {
    close();
    if (heard.open(path) != 0 || own.open(path) != 0) {
        heard.close();
        return -1;
    }
    isopen = 1;
    ended = false;
    compared = Comparison();
    return 0;
}

void ReplayDriver::set_speed(double factor) {
    // What has passed so far passed at the speed of before.
    if (started) {
        const std::uint64_t now = monotonic_ns();
        const double passed_us =
            std::min(static_cast<double>(now - origin_ns) * speed / ns_per_us, longest_time);
        origin_us =
            speed > 0 ? origin_us + static_cast<std::uint64_t>(passed_us) : std::max(origin_us, last.time_us);
        origin_ns = now;
    }
    speed = factor > 0 && std::isfinite(factor) ? factor : 0;
}

void ReplayDriver::start() {
    fetch();
    started = true;
    origin_ns = monotonic_ns();
    origin_us = has_next ? next.time_us : 0;
}

bool ReplayDriver::was_sent(const LogFrame& frame) const {
    if (decides) {
        return decides(frame);
    }
    return frame.direction == LogFrame::Direction::unknown ? master_sends(frame)
                                                           : frame.direction == LogFrame::Direction::sent;
}

// The next frame of the program, or of the others.
int ReplayDriver::find(FrameLogReader& log, bool sent, LogFrame& frame) const {
    int result = log.next(frame);
    while (result == 0 && was_sent(frame) != sent) {
        result = log.next(frame);
    }
    return result;
}

// Has the next frame of the others at hand, if there is one.
void ReplayDriver::fetch() {
    if (has_next || ended) {
        return;
    }
    const int result = find(heard, false, next);
    has_next = result == 0;
    ended = !has_next;
    failed = result < 0;
}

// When a frame's time comes.
std::uint64_t ReplayDriver::due(const LogFrame& frame) const {
    // A log whose time goes back, or stands still, holds nothing up.
    if (speed <= 0 || frame.time_us <= origin_us) {
        return origin_ns;
    }
    const double wait_ns = static_cast<double>(frame.time_us - origin_us) * ns_per_us / speed;
    return origin_ns + static_cast<std::uint64_t>(std::min(wait_ns, longest_time));
}

std::uint64_t ReplayDriver::next_deadline() {
    if (!started) {
        start();
    }
    fetch();
    return has_next ? due(next) : no_deadline;
}

std::uint64_t ReplayDriver::missing() {
    std::uint64_t count = 0;
    LogFrame frame;
    while (isopen != 0 && find(own, true, frame) == 0) {
        ++count;
    }
    return count;
}

ObservedDriver::Details ReplayDriver::details(const CANdriver& driver) {
    const LogFrame& frame = static_cast<const ReplayDriver&>(driver).last;
    ObservedDriver::Details details;
    details.time_ns = frame.time_us * ns_per_us;
    details.remote = frame.remote;
    details.extended = frame.extended;
    return details;
}

int ReplayDriver::open(unsigned int /*speed*/, unsigned int /*mode*/, unsigned int /*port*/,
                       bool /*silent*/) {
    return isopen != 0 ? 0 : -1;
}

void ReplayDriver::close() {
    heard.close();
    own.close();
    isopen = 0;
    has_next = false;
    ended = true;
    failed = false;
    started = false;
}

int ReplayDriver::read(unsigned int& ID, unsigned int& length, unsigned char* data) {
    const std::uint64_t deadline = next_deadline();
    if (!has_next) {
        return failed || isopen == 0 ? -1 : 1;
    }
    if (speed > 0 && deadline > monotonic_ns()) {
        return 1;
    }
    last = next;
    has_next = false;
    fetch();  // so that the end is known with the last frame
    ID = last.identifier;
    length = last.length;
    std::copy_n(last.data.begin(), last.remote ? 0 : last.length, data);
    return 0;
}

int ReplayDriver::write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) {
    LogFrame now;
    now.identifier = cobid;
    now.extended = (flags & can_driver::write_extended) != 0 || cobid > highest_standard;
    now.remote = (flags & can_driver::write_remote) != 0;
    now.length = std::min(length, 8U);
    if (!now.remote && data != nullptr) {
        std::copy_n(data, now.length, now.data.begin());
    }
    LogFrame then;
    const bool known = isopen != 0 && find(own, true, then) == 0;
    if (known) {
        now.time_us = then.time_us;
        now.name = then.name;
        // Without flags it depends on how the driver was opened.
        now.extended = now.extended || (flags == 0 && then.extended && cobid == then.identifier);
    }
    const bool same = known && now.same_frame(then);
    ++(same ? compared.same : (known ? compared.different : compared.more));
    if (!same && difference) {
        difference(now, known ? &then : nullptr);
    }
    return 0;
}

int ReplayDriver::read_wait(unsigned int& ID, unsigned int& length, unsigned char* data, long timeout) {
    const std::uint64_t until =
        monotonic_ns() + static_cast<std::uint64_t>(std::max(timeout, 0L)) * ns_per_ms;
    for (;;) {
        const int result = read(ID, length, data);
        const std::uint64_t now = monotonic_ns();
        if (result != 1 || now >= until || ended) {
            return result;
        }
        const std::uint64_t wait_ns = std::min(until, next_deadline()) - std::min(now, next_deadline());
        u_sleep(static_cast<unsigned int>(std::min<std::uint64_t>(wait_ns / ns_per_us + 1, ns_per_ms)));
    }
}

int ReplayDriver::read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) {
    txErr = TXerrors;
    rxErr = RXerrors;
    ovErr = OVerrors;
    return 0;
}
