/// @file
/// The vehicle's side of a recording, so that it can be played to a program again.
///
/// A program that drives the vehicle reads what has come, waits 10 ms, and sends a frame. What it shows after a frame is
/// what came since the read before: that is what it gets here for a frame, whichever frame of the recording is at hand.
/// So it shows the same again though its cycle is another one, or the recording is played faster, slower or not from
/// its beginning; while it stands still, the program gets the same for each frame.

#ifndef RECORDER_REPLAYTRACK_H
#define RECORDER_REPLAYTRACK_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "recorder/recording.h"

namespace vehicle_recorder {

/// What a program read of the line, by the frames that it sent. Takes memory for each frame and each byte.
class ReplayTrack {
public:
    /// Adds the next entry of the recording.
    void add(const Entry& entry);

    /// Tells that no entry follows.
    void finish();

    /// How many frames there are.
    std::size_t frames() const { return frames_.size(); }

    /// When the first frame was sent, since the start of the recording; 0 without one.
    std::uint64_t begin_us() const { return frames_.empty() ? 0 : frames_.front().time_us; }

    /// When the last thing happened.
    std::uint64_t end_us() const { return last_us_; }

    /// What the program found at its read behind the frame that was the last one at a time.
    /// @param time_us  since the start of the recording
    /// @return the bytes; none when nothing had come, when the line was closed, and at the end
    std::span<const std::uint8_t> read_after(std::uint64_t time_us) const;

private:
    struct Frame {
        std::uint64_t time_us = 0;
        std::uint64_t until_us = UINT64_MAX;  // the next frame or the closing
        std::size_t begin = 0;                // of what was read behind it, in bytes_
        std::size_t end = 0;
    };

    struct Piece {
        std::uint64_t time_us;
        std::size_t begin;  // in bytes_
    };

    void add_frame(std::uint64_t time_us);
    void end_line(std::uint64_t time_us);

    std::vector<Frame> frames_;
    std::vector<std::uint8_t> bytes_;
    std::vector<Piece> pieces_;  // since the last read
    std::size_t part_ = 0;       // bytes of a frame that is not whole
    bool is_closed_ = true;      // no frame of this opening yet
    std::uint64_t last_us_ = 0;
};

/// Where a replay stands. Time comes in from outside.
class ReplayClock {
public:
    static constexpr double slowest = 0.0625;  ///< of the speeds that can be chosen
    static constexpr double fastest = 64;      ///< of the speeds that can be chosen

    /// A clock that stands at the beginning.
    /// @param begin_us  where seek() ends backwards
    /// @param end_us    where everything ends
    ReplayClock(std::uint64_t begin_us, std::uint64_t end_us)
        : begin_us_(begin_us), end_us_(end_us), at_us_(begin_us) {}

    /// Where it stands, between beginning and end.
    /// @param now_us  of any clock that runs on
    std::uint64_t position_us(std::uint64_t now_us) const;

    /// Lets it run, if it does not.
    void run(std::uint64_t now_us);

    /// Has it stand still, if it runs.
    void pause(std::uint64_t now_us);

    /// Whether it runs.
    bool runs() const { return since_us_.has_value(); }

    /// Moves it by a time, not beyond beginning or end.
    void seek(std::uint64_t now_us, std::int64_t by_us);

    /// Sets how many times as fast as the recording it runs, within #slowest and #fastest.
    void set_speed(std::uint64_t now_us, double speed);

    /// How many times as fast as the recording it runs.
    double speed() const { return speed_; }

private:
    void hold(std::uint64_t now_us);

    std::uint64_t begin_us_;
    std::uint64_t end_us_;
    std::uint64_t at_us_;                    // at since_us_, or as long as it stands
    std::optional<std::uint64_t> since_us_;  // it runs
    double speed_ = 1;
};

}  // namespace vehicle_recorder

#endif
