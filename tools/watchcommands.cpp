#include "tools/watchcommands.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "nodevik/recording/framerecorder.h"
#include "nodevik/util/monotonicclock.h"
#include "tools/frameintake.h"
#include "tools/loginput.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

constexpr double nanoseconds = 1e9;
constexpr std::uint64_t ns_per_us = 1000;
constexpr std::uint64_t gather_ns = 5'000'000;  // frames that follow each other are handed out together
constexpr std::uint64_t rest_ns = 40'000'000;   // for frames that still wait after a signal
constexpr unsigned int look_around = 1024;      // frames until a signal is looked for

// The frames of a bus, one after the other, until a limit, a signal or the end of the bus.
class Listening {
public:
    // The bus outlives this.
    Listening(const Session& session, Bus& bus, double seconds)
        : interrupts_(&session.interrupts), bus_(&bus), intake_(bus), begin_ns_(monotonic_ns()) {
        if (seconds > 0) {
            end_ns_ = begin_ns_ + static_cast<std::uint64_t>(seconds * nanoseconds);
        }
    }

    // Waits until frames have come, or a deadline; false when the time is over. Throws what Interrupts::wait() does.
    bool wait(std::uint64_t deadline_ns, const Output* results) {
        const std::uint64_t now = monotonic_ns();
        if (now >= end_ns_) {
            return false;
        }
        const int reader = results != nullptr ? results->descriptor() : -1;
        const std::uint64_t until = std::min(end_ns_, deadline_ns);
        if (now < gather_until_ns_) {
            interrupts_->wait(-1, 0, std::min(until, gather_until_ns_), reader);
        }
        interrupts_->wait(intake_.descriptor(), POLLIN, until, reader);
        gather_until_ns_ = monotonic_ns() + gather_ns;
        fetch();
        return true;
    }

    // Gives what has come to a function, as long as that returns true. Throws Failure when no more can come.
    template <typename Take>
    void hand_out(const Take& take) {
        while (next_ < frames_.size()) {
            if (next_ % look_around == 0) {
                interrupts_->wait(-1, 0, 0);
            }
            if (!take(frames_[next_++])) {
                return;
            }
        }
        if (!trouble_.empty()) {
            throw Failure(ExitStatus::no_bus, trouble_);
        }
    }

    // Ends listening, and gives out what has come until now.
    template <typename Take>
    void finish(const Take& take) {
        stop();
        hand_out(take);
        fetch();
        hand_out(take);
    }

    // The same in no more than a moment, after a signal: what is not given out then is told at the end.
    template <typename Take>
    void finish_at_once(const Take& take) {
        stop();
        const std::uint64_t deadline = monotonic_ns() + rest_ns;
        do {
            while (next_ < frames_.size() && (next_ % look_around != 0 || monotonic_ns() < deadline)) {
                if (!take(frames_[next_++])) {
                    return;
                }
            }
            if (next_ < frames_.size()) {
                kept_back_ += frames_.size() - next_;
                next_ = frames_.size();
            }
            fetch();
        } while (next_ < frames_.size());
    }

    // How long it has listened.
    double seconds() const {
        const std::uint64_t end = stopped_ns_ != 0 ? stopped_ns_ : monotonic_ns();
        return static_cast<double>(end - begin_ns_) / nanoseconds;
    }

    // How many frames are missing, once it has finished.
    std::uint64_t missing() const { return bus_->dropped_frames() + intake_.left_out() + kept_back_; }

    // Tells what is missing, once it has finished.
    void tell_missing() const {
        tell_lost(bus_->dropped_frames(), "the kernel had no room for them");
        tell_lost(intake_.left_out(), "they came faster than they could be passed on");
        tell_lost(kept_back_, "they still waited to be passed on");
    }

private:
    static void tell_lost(std::uint64_t count, const char* reason) {
        if (count > 0) {
            tell(std::to_string(count) + " frames were lost: " + reason);
        }
    }

    void fetch() {
        FrameIntake::News news = intake_.take();
        if (!news.remark.empty()) {
            tell(news.remark);
        }
        frames_ = std::move(news.frames);
        next_ = 0;
        trouble_ = std::move(news.trouble);
    }

    void stop() {
        stopped_ns_ = stopped_ns_ != 0 ? stopped_ns_ : monotonic_ns();
        intake_.stop();
    }

    const Interrupts* interrupts_;
    Bus* bus_;
    FrameIntake intake_;
    std::uint64_t begin_ns_;
    std::uint64_t end_ns_ = no_deadline;
    std::uint64_t stopped_ns_ = 0;
    std::uint64_t gather_until_ns_ = 0;
    std::vector<ShownFrame> frames_;
    std::size_t next_ = 0;  // of the frames
    std::uint64_t kept_back_ = 0;
    std::string trouble_;
};

// A frame as a recorder takes it.
ObservedFrame observed(const ShownFrame& frame) {
    ObservedFrame result(ObservedFrame::Direction::received, frame.identifier, frame.length,
                         frame.data.data());
    result.remote = frame.remote;
    result.extended = frame.extended;
    result.error = frame.error;
    result.set_times(frame.time_us * ns_per_us, 0);
    return result;
}

// A recording goes to a disk: what makes a writer wait, or is somebody else's, is refused.
void require_a_file(const std::string& file) {
    struct stat there {};
    struct stat reports {};
    if (stat(file.c_str(), &there) != 0) {
        return;  // it is created, or opening it tells the reason
    }
    const bool is_standard_output = fstat(STDOUT_FILENO, &reports) == 0 && there.st_dev == reports.st_dev &&
                                    there.st_ino == reports.st_ino;
    if (S_ISFIFO(there.st_mode) || S_ISSOCK(there.st_mode) || is_standard_output) {
        throw Failure(
            ExitStatus::bad_file,
            file +
                " cannot be written: a recording is a file; 'nodevik monitor --raw' writes to standard "
                "output and into pipes");
    }
}

std::string frames_text(std::uint64_t count) {
    return std::to_string(count) + " frames";
}

}  // namespace

ExitStatus monitor_bus(const Session& session, const FrameOptions& frames, const ListenLimits& limits) {
    FramePresenter presenter(session, frames);
    Bus bus(session.options.bus, session.reports, session.interrupts, Bus::Use::listen);
    presenter.set_bit_rate(bus.bit_rate());
    Listening listening(session, bus, limits.seconds);
    const auto show = [&presenter](const ShownFrame& frame) {
        presenter.show(frame);
        return !presenter.is_complete();
    };
    const auto tell_end = [&] {
        presenter.show_statistics(listening.seconds());
        session.output.flush();
        tell(presenter.summary(listening.seconds()));
        listening.tell_missing();
    };
    try {
        while (!presenter.is_complete() && listening.wait(no_deadline, &session.output)) {
            listening.hand_out(show);
            session.output.flush();
        }
        listening.finish(show);
        session.output.flush();
    } catch (const Interrupted&) {
        session.output.hurry();
        listening.finish_at_once(show);
        tell_end();
        throw;
    } catch (const Failure& failure) {
        if (failure.status() == ExitStatus::no_bus) {
            listening.finish_at_once(show);
            tell_end();
        }
        throw;
    }
    tell_end();
    return ExitStatus::done;
}

ExitStatus record_bus(const Session& session, const std::string& file, const ListenLimits& limits) {
    require_a_file(file);
    Bus bus(session.options.bus, session.reports, session.interrupts, Bus::Use::listen);
    FrameRecorder recorder(bus.name().c_str());
    recorder.set_failure([&file](int reason) {
        tell(file + " takes nothing more: " + std::strerror(reason) +
             "; recording goes on when there is room");
    });
    if (recorder.open(file.c_str()) != 0) {
        throw Failure(ExitStatus::bad_file, file + " cannot be written: " + std::strerror(errno));
    }
    bool is_full = false;
    std::uint64_t bytes = 0;
    const auto keep = [&](const ShownFrame& frame) {
        std::array<char, longest_log_line> line{};
        bytes += frame.error || limits.max_bytes == 0 ? 0 : format_log_line(frame, line);
        is_full = limits.max_bytes != 0 && bytes > limits.max_bytes;
        if (!is_full) {
            recorder.frame_passed(observed(frame));
        }
        return !is_full;
    };
    Listening listening(session, bus, limits.seconds);
    const auto close = [&] {
        const int closed = recorder.close();
        const int reason = errno;
        const std::uint64_t lost = recorder.lost();  // some of these were in memory, and counted as recorded
        const std::uint64_t recorded = recorder.recorded() - std::min(lost, recorder.recorded());
        tell(frames_text(recorded) + " recorded in " + file);
        listening.tell_missing();
        if (session.output.json()) {
            session.output.object({{"recorded", recorded},
                                   {"lost", lost + listening.missing()},
                                   {"seconds", listening.seconds()}});
            session.output.flush();
        }
        if (closed != 0 || lost > 0) {
            throw Failure(ExitStatus::bad_file, file + " lacks " + frames_text(lost) +
                                                    ", for which there was no room: " +
                                                    std::strerror(closed != 0 ? reason : ENOSPC));
        }
    };
    try {
        while (!is_full && listening.wait(recorder.next_deadline(), nullptr)) {
            listening.hand_out(keep);
            recorder.process(monotonic_ns());
        }
        if (!is_full) {
            listening.finish(keep);
        }
    } catch (const Interrupted&) {
        session.output.hurry();
        listening.finish_at_once(keep);
        close();
        throw;
    } catch (const Failure&) {
        listening.finish_at_once(keep);
        close();
        throw;
    }
    close();
    return ExitStatus::done;
}

ExitStatus decode_log(const Session& session, const std::string& file, const FrameOptions& frames) {
    FramePresenter presenter(session, frames);
    LogInput log(session, file);
    const auto tell_end = [&] {
        presenter.show_statistics(presenter.span());
        session.output.flush();
        tell(presenter.summary(presenter.span()));
        log.tell_passed_over();
    };
    try {
        ShownFrame frame;
        while (!presenter.is_complete() && log.next(frame)) {
            presenter.show(frame);
        }
        session.output.flush();
    } catch (const Interrupted&) {
        session.output.hurry();
        tell_end();
        throw;
    } catch (const Failure&) {
        presenter.show_statistics(presenter.span());
        session.output.flush();
        throw;
    }
    tell_end();
    return ExitStatus::done;
}

}  // namespace nodevik_tool
