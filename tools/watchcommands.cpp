#include "tools/watchcommands.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <optional>

#include "nodevik/recording/framelog.h"
#include "nodevik/recording/framerecorder.h"
#include "nodevik/util/monotonicclock.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

constexpr double nanoseconds = 1e9;

// Hands each frame that comes to a function.
class Listener final : public FrameObserver {
public:
    using Take = std::function<void(const ShownFrame& frame)>;
    Listener(Bus& bus, Take take) : bus_(&bus), take_(std::move(take)) { bus_->driver().add_observer(*this); }
    ~Listener() { bus_->driver().remove_observer(*this); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    void frame_passed(const ObservedFrame& frame) override { take_(shown_frame(frame, bus_->name())); }

private:
    Bus* bus_;
    Take take_;
};

// The time that listening takes.
class Clock {
public:
    explicit Clock(double seconds) : begin_(monotonic_ns()) {
        if (seconds > 0) {
            end_ = begin_ + static_cast<std::uint64_t>(seconds * nanoseconds);
        }
    }
    std::uint64_t end() const { return end_; }
    bool is_over() const { return monotonic_ns() >= end_; }
    double elapsed() const { return static_cast<double>(monotonic_ns() - begin_) / nanoseconds; }

private:
    std::uint64_t begin_;
    std::uint64_t end_ = no_deadline;
};

// Tells how many frames the kernel had no room for.
void tell_dropped(const Bus& bus) {
    if (const std::uint64_t dropped = bus.dropped_frames(); dropped > 0) {
        tell(std::to_string(dropped) + " frames were lost: the kernel had no room for them");
    }
}

std::string frames_text(std::uint64_t count) {
    return std::to_string(count) + " frames";
}

}  // namespace

ExitStatus monitor_bus(const Session& session, const FrameOptions& frames, const ListenLimits& limits) {
    FramePresenter presenter(session, frames);
    Bus bus(session.options.bus, session.reports, session.interrupts, Bus::Use::listen);
    const Listener listener(bus, [&presenter](const ShownFrame& frame) { presenter.show(frame); });
    const Clock clock(limits.seconds);
    const auto finish = [&] {
        const double seconds = clock.elapsed();
        presenter.show_statistics(seconds);
        session.output.flush_at_end();
        tell(presenter.summary(seconds));
        tell_dropped(bus);
    };
    try {
        while (!presenter.is_complete() && !clock.is_over()) {
            bus.read(clock.end(), &session.output);
            session.output.flush();
        }
    } catch (const Interrupted&) {
        finish();
        throw;
    } catch (const Failure& failure) {
        if (failure.status() == ExitStatus::no_bus) {
            finish();
        }
        throw;
    }
    finish();
    return ExitStatus::done;
}

ExitStatus record_bus(const Session& session, const std::string& file, const ListenLimits& limits) {
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
    const Listener listener(bus, [&](const ShownFrame& frame) {
        std::array<char, longest_log_line> line{};
        bytes += frame.error ? 0 : format_log_line(frame, line);
        if (limits.max_bytes != 0 && bytes > limits.max_bytes && !is_full) {
            is_full = true;  // the recorder comes behind and is not shown this frame
            bus.driver().remove_observer(recorder);
        }
    });
    bus.driver().add_observer(recorder);
    const Clock clock(limits.seconds);
    const auto finish = [&] {
        bus.driver().remove_observer(recorder);
        const int closed = recorder.close();
        const int reason = errno;
        const std::uint64_t lost = recorder.lost();  // some of these were in memory, and counted as recorded
        tell(frames_text(recorder.recorded() - std::min(lost, recorder.recorded())) + " recorded in " + file);
        tell_dropped(bus);
        if (closed != 0 || lost > 0) {
            throw Failure(ExitStatus::bad_file, file + " lacks " + frames_text(lost) +
                                                    ", for which there was no room: " +
                                                    std::strerror(closed != 0 ? reason : ENOSPC));
        }
    };
    try {
        while (!is_full && !clock.is_over()) {
            bus.read(std::min(clock.end(), recorder.next_deadline()));
            recorder.process(monotonic_ns());
        }
    } catch (const Interrupted&) {
        finish();
        throw;
    } catch (const Failure&) {
        finish();
        throw;
    }
    finish();
    return ExitStatus::done;
}

ExitStatus decode_log(const Session& session, const std::string& file, const FrameOptions& frames) {
    FramePresenter presenter(session, frames);
    FrameLogReader log;
    if (log.open(file.c_str()) != 0) {
        throw Failure(ExitStatus::bad_file, file + " cannot be read: " + std::strerror(errno));
    }
    log.set_foreign_line([&file](std::uint64_t line, const char* reason) {
        tell(file + ":" + std::to_string(line) + ": " + reason);
    });
    int result = 0;
    LogFrame frame;
    while (!presenter.is_complete() && (result = log.next(frame)) == 0) {
        ShownFrame shown;
        static_cast<LogFrame&>(shown) = frame;
        presenter.show(shown);
    }
    const int reason = errno;
    presenter.show_statistics(presenter.span());
    session.output.flush();
    tell(presenter.summary(presenter.span()));
    const FrameLogReader::PassedOver& passed = log.passed_over();
    if (passed.error_frames + passed.fd_frames + passed.drop_counts > 0) {
        tell("passed over: " + std::to_string(passed.error_frames) + " error frames, " +
             std::to_string(passed.fd_frames) + " FD frames, " + std::to_string(passed.drop_counts) +
             " counts of lost frames");
    }
    if (result < 0) {
        throw Failure(ExitStatus::bad_file, file + " cannot be read: " + std::strerror(reason));
    }
    return ExitStatus::done;
}

}  // namespace nodevik_tool
