#include "tools/synccommand.h"

#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "nodevik/util/monotonicclock.h"
#include "tools/bus.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

constexpr unsigned int sync_identifier = 0x080;  // CiA 301, 7.3.5
constexpr double nanoseconds_per_millisecond = 1e6;
constexpr std::uint64_t nanoseconds_per_second = 1'000'000'000;

// A timer that comes at once and then in each period, whatever happens between (timerfd_create(2)).
class Ticks {
public:
    explicit Ticks(std::uint64_t period_ns)
        : descriptor_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {
        itimerspec times{};
        times.it_value.tv_nsec = 1;
        times.it_interval.tv_sec = static_cast<time_t>(period_ns / nanoseconds_per_second);
        times.it_interval.tv_nsec = static_cast<long>(period_ns % nanoseconds_per_second);
        if (descriptor_ < 0 || timerfd_settime(descriptor_, 0, &times, nullptr) != 0) {
            throw Failure(ExitStatus::no_bus,
                          std::string("the system has no timer left: ") + std::strerror(errno));
        }
    }
    ~Ticks() { close(descriptor_); }
    Ticks(const Ticks&) = delete;
    Ticks& operator=(const Ticks&) = delete;

    // Waits for the next period. @return how many have begun since the last call, at least 1
    std::uint64_t wait(const Interrupts& interrupts, const Output& results) const {
        std::uint64_t count = 0;
        do {
            interrupts.wait(descriptor_, POLLIN, no_deadline, results.descriptor());
        } while (read(descriptor_, &count, sizeof count) != sizeof count);
        return count;
    }

private:
    int descriptor_;
};

}  // namespace

ExitStatus produce_sync(const Session& session, const SyncArguments& arguments) {
    Bus bus(session.options.bus, session.reports, session.interrupts);
    const std::uint64_t begin = monotonic_ns();
    std::uint64_t sent = 0;
    std::uint64_t missed = 0;
    const auto finish = [&] {
        const double seconds =
            static_cast<double>(monotonic_ns() - begin) / static_cast<double>(nanoseconds_per_second);
        if (session.output.json()) {
            session.output.object({{"sent", sent}, {"missed", missed}, {"seconds", seconds}});
            session.output.flush();
        }
        std::array<char, 40> duration{};
        std::snprintf(duration.data(), duration.size(), "%.1f s", seconds);
        tell(std::to_string(sent) + " SYNC sent in " + duration.data() +
             (missed > 0 ? ", " + std::to_string(missed) + " left out: the machine was too busy" : ""));
    };
    try {
        const Ticks ticks(static_cast<std::uint64_t>(arguments.period_ms * nanoseconds_per_millisecond));
        while (arguments.count == 0 || sent < arguments.count) {
            missed += ticks.wait(session.interrupts, session.output) - 1;
            bus.send(sync_identifier, 0, {}, 0, session.options.timeout_ms, &session.output);
            ++sent;
        }
    } catch (const Interrupted&) {
        session.output.hurry();
        finish();
        throw;
    } catch (const Failure&) {
        finish();
        throw;
    }
    finish();
    return ExitStatus::done;
}

}  // namespace nodevik_tool
