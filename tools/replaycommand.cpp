#include "tools/replaycommand.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "nodevik/candriverwords.h"
#include "nodevik/util/monotonicclock.h"
#include "program/progress.h"
#include "tools/framepresenter.h"
#include "tools/loginput.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

constexpr double nanoseconds = 1e9;
constexpr double ns_per_us = 1e3;
constexpr double longest_wait_ns = 9e18;

// When the frames of a log are due.
class Schedule {
public:
    explicit Schedule(double speed) : speed_(speed) {}

    // The next frame is due at once, and the others as long after it as they came.
    void restart() { is_running_ = false; }

    std::uint64_t due(const LogFrame& frame) {
        if (!is_running_ || frame.time_us < last_us_) {
            is_running_ = true;
            origin_us_ = frame.time_us;
            origin_ns_ = monotonic_ns();
        }
        last_us_ = frame.time_us;
        if (speed_ <= 0) {
            return 0;
        }
        const double wait_ns = static_cast<double>(frame.time_us - origin_us_) * ns_per_us / speed_;
        return origin_ns_ + static_cast<std::uint64_t>(std::min(wait_ns, longest_wait_ns));
    }

private:
    double speed_;
    bool is_running_ = false;
    std::uint64_t origin_us_ = 0;  // of the log, which is
    std::uint64_t origin_ns_ = 0;  // this time
    std::uint64_t last_us_ = 0;
};

// Sends frames and counts what became of them.
class Replay {
public:
    Replay(const Session& session, const ReplayArguments& arguments)
        : session_(&session),
          arguments_(&arguments),
          identifiers_(parse_identifiers(arguments.identifiers)),
          log_(session, arguments.file),
          bus_(session.options.bus, session.reports, session.interrupts),
          schedule_(arguments.speed),
          progress_(!session.options.quiet),
          begin_ns_(monotonic_ns()) {}

    void run() {
        for (std::uint64_t loop = 0; arguments_->loops == 0 || loop < arguments_->loops; ++loop) {
            if (loop > 0) {
                log_.rewind();
            }
            const std::uint64_t before = sent_;
            schedule_.restart();
            LogFrame frame;
            while (log_.next(frame)) {
                if (is_sent(frame)) {
                    wait_until(schedule_.due(frame));
                    send(frame);
                    ++sent_;
                    show_progress(loop);
                }
            }
            if (sent_ == before) {
                break;  // nor will anything be sent the next time
            }
        }
    }

    // Tells how far it came.
    void tell_end() {
        progress_.clear();
        const double seconds = static_cast<double>(monotonic_ns() - begin_ns_) / nanoseconds;
        Output& output = session_->output;
        if (output.json()) {
            output.object({{"sent", sent_}, {"left_out", nmt_ + without_room_}, {"seconds", seconds}});
        }
        output.flush();
        std::array<char, 64> words{};
        std::snprintf(words.data(), words.size(), " frames sent in %.1f s", seconds);
        tell(std::to_string(sent_) + words.data());
        if (nmt_ > 0) {
            tell(std::to_string(nmt_) + " NMT commands were left out; --nmt sends them too");
        }
        if (without_room_ > 0) {
            tell(std::to_string(without_room_) +
                 " frames were left out: over UDP there are no remote requests and no 29-bit identifiers");
        }
        log_.tell_passed_over();
    }

private:
    // Of a log that is sent until a signal comes, the bar begins anew with each time.
    void show_progress(std::uint64_t loop) {
        const std::uint64_t loops = arguments_->loops;
        progress_.update(log_.position() + (loops == 0 ? 0 : loop * log_.size()),
                         log_.size() * std::max<std::uint64_t>(loops, 1));
    }

    // Whether a frame is to be sent; counts what is left out.
    bool is_sent(const LogFrame& frame) {
        if (frame.identifier < identifiers_.first || frame.identifier > identifiers_.second) {
            return false;
        }
        const bool is_nmt = frame.identifier == 0 && !frame.extended && !frame.remote;
        const bool has_room = bus_.has_all_frames() || (!frame.extended && !frame.remote);
        nmt_ += is_nmt && !arguments_->nmt ? 1 : 0;
        without_room_ += has_room ? 0 : 1;
        return has_room && (!is_nmt || arguments_->nmt);
    }

    // Waits, and takes what the bus sends meanwhile: nobody wants it, but the driver learns from it how the bus is.
    void wait_until(std::uint64_t due_ns) {
        do {
            bus_.read(due_ns);
        } while (monotonic_ns() < due_ns);
    }

    void send(const LogFrame& frame) {
        const unsigned int flags =
            (frame.extended ? can_driver::write_extended : 0) | (frame.remote ? can_driver::write_remote : 0);
        bus_.send(frame.identifier, frame.length, frame.data, flags, session_->options.timeout_ms);
    }

    const Session* session_;
    const ReplayArguments* arguments_;
    std::pair<unsigned int, unsigned int> identifiers_;
    LogInput log_;
    Bus bus_;
    Schedule schedule_;
    program::Progress progress_;
    std::uint64_t begin_ns_;
    std::uint64_t sent_ = 0;
    std::uint64_t nmt_ = 0;           // commands that were left out
    std::uint64_t without_room_ = 0;  // frames that the bus cannot carry
};

}  // namespace

ExitStatus replay_log(const Session& session, const ReplayArguments& arguments) {
    Replay replay(session, arguments);
    try {
        replay.run();
    } catch (const Interrupted&) {
        session.output.hurry();
        replay.tell_end();
        throw;
    } catch (const Failure&) {
        replay.tell_end();
        throw;
    }
    replay.tell_end();
    return ExitStatus::done;
}

}  // namespace nodevik_tool
