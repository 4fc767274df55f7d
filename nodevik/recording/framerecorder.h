/// @file
/// Keeps what passes on a bus: an observer that writes a log.
///
/// @code
/// ObservedDriver driver(bus);
/// FrameRecorder recorder("can0");
/// if (recorder.open("bus.log") != 0) {
///     std::perror("bus.log");
/// }
/// driver.add_observer(recorder);               // first of all observers: it sees the frames in their order
/// for (;;) {
///     poll(&bus_entry, 1, milliseconds_until(recorder.next_deadline(), monotonic_ns()));
///     master.read_all_messages();
///     recorder.process(monotonic_ns());        // at least once a second it is all in the file
/// }
/// @endcode
///
/// The bus comes first: a frame is put into memory and costs no system call but once in some thousand. When the disk is
/// full the program is told once, frames that find no room are counted, and recording goes on as soon as there is room
/// again. Nothing is allocated, but in open().

#ifndef NODEVIK_RECORDING_FRAMERECORDER_H
#define NODEVIK_RECORDING_FRAMERECORDER_H

#include <cstdint>
#include <functional>

#include "nodevik/observeddriver.h"
#include "nodevik/recording/framelog.h"
#include "nodevik/util/export.h"

/// Writes each frame that passes into a log.
class NODEVIK_EXPORT FrameRecorder : public FrameObserver {
public:
    /// What is in memory only is at most so old.
    static constexpr std::uint64_t flush_period_ns = 1'000'000'000;

    /// Called when the log cannot be written, once until it can be again.
    /// @param reason  the system's error number, see errno(3)
    using Failure = std::function<void(int reason)>;

    /// Opens nothing.
    /// @param interface_name  stands in every line; see LogFrame::set_name()
    explicit FrameRecorder(const char* interface_name);

    /// Creates a log, or empties one that is there; an earlier one is closed.
    ///
    /// @param path  name of the file
    /// @retval 0   it is open
    /// @retval -1  it is not, and errno tells why
    int open(const char* path);

    /// Writes what is in memory and closes the log.
    ///
    /// @retval 0   every frame is in the file
    /// @retval -1  some are not, see lost(); errno tells why
    int close();

    /// Sets who is told that the log cannot be written; may be empty.
    void set_failure(Failure callback) { failure = std::move(callback); }

    /// Writes what is in memory if the last time was a second ago.
    /// @param now_ns  the time, see monotonic_ns()
    void process(std::uint64_t now_ns);

    /// When process() is to be called next, at the latest.
    /// @return nanoseconds of CLOCK_MONOTONIC; no_deadline when everything is in the file, or no log is open
    std::uint64_t next_deadline() const;

    /// Frames that were recorded, those in memory among them.
    std::uint64_t recorded() const { return recorded_frames; }

    /// Frames that found no room.
    std::uint64_t lost() const { return log.lost(); }

    /// Error frames: they are of the controller and not of the bus, and are not recorded.
    std::uint64_t passed_over() const { return error_frames; }

    /// Bytes in the file.
    std::uint64_t size() const { return log.size(); }

    /// Records a frame. Called by the driver.
    void frame_passed(const ObservedFrame& frame) override;

private:
    NODEVIK_LOCAL void judge(int result);

    FrameLogWriter log;
    LogFrame line;
    Failure failure;
    bool has_failed = false;
    std::uint64_t flush_at = no_flush;
    std::uint64_t recorded_frames = 0;
    std::uint64_t error_frames = 0;

    static constexpr std::uint64_t no_flush = UINT64_MAX;
};

#endif
