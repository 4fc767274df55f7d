/// @file
/// How the process that carries the line hands over what is to be recorded: through a pipe, without ever waiting.
///
///     carrier                                       writing half
///     EntrySender   -- pipe, a mebibyte -->         EntryReceiver -- Entry --> RecordingWriter
///
/// A reader that is stopped, or waits for its disk, lets the pipe fill. From three quarters on no bytes of the line are
/// taken any more, only counted, until it is half empty again; the last quarter stays for what is rare and must not be
/// missed: openings, closings, settings, notes.

#ifndef RECORDER_ENTRYPIPE_H
#define RECORDER_ENTRYPIPE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "recorder/recording.h"

namespace vehicle_recorder {

/// The sending end. Nothing it does waits, and bytes of the line cost no allocation.
class EntrySender {
public:
    /// How the other end has been doing.
    enum class State {
        taking,  ///< it takes all
        behind,  ///< it is too slow: bytes of the line are only counted
        gone     ///< nobody reads any more
    };

    /// Enlarges the pipe as far as the system lets it. SIGPIPE must be ignored.
    /// @param pipe  the writing end; belongs to this object from now on
    explicit EntrySender(int pipe);
    ~EntrySender();
    EntrySender(const EntrySender&) = delete;
    EntrySender& operator=(const EntrySender&) = delete;

    /// Hands over bytes of the line.
    /// @param kind     EntryKind::sent or EntryKind::received
    /// @param time_us  since the start of the recording
    void bytes(EntryKind kind, std::uint64_t time_us, std::span<const std::uint8_t> data);

    /// Hands over what has no more to it than its time: open, close.
    void event(EntryKind kind, std::uint64_t time_us);

    /// Hands over a note; beyond 4000 bytes it is cut.
    void note(std::uint64_t time_us, std::string_view text);

    /// Hands over the line's settings.
    void settings(std::uint64_t time_us, const LineSettings& settings);

    /// Hands over the end, and what was lost before it. Waits for room, the only call that does.
    /// @param limit_ms  longest wait
    void end(std::uint64_t time_us, int limit_ms);

    /// How the other end does.
    State state() const { return state_; }

    /// Bytes of the line that are not handed over and not yet told of.
    std::uint64_t lost() const { return lost_; }

private:
    bool send(std::uint32_t kind, std::uint64_t time_us, std::span<const std::uint8_t> data);
    void send_loss(std::uint64_t time_us);
    std::size_t filled() const;
    bool has_room_for_bytes(std::uint64_t time_us);

    int pipe_;
    std::size_t capacity_;
    State state_ = State::taking;
    std::uint64_t lost_ = 0;
};

/// The receiving end.
class EntryReceiver {
public:
    /// @param pipe  the reading end; stays the caller's
    explicit EntryReceiver(int pipe) : pipe_(pipe) {}

    /// Called with each entry.
    using TakeEntry = std::function<void(const Entry& entry)>;
    /// Called with the number of bytes that were not handed over.
    using TakeLoss = std::function<void(std::uint64_t count)>;

    /// Reads once, waiting for something to come, and hands on the entries that are whole.
    /// @return false when the other end is gone
    bool read(const TakeEntry& take_entry, const TakeLoss& take_loss);

private:
    int pipe_;
    std::vector<std::uint8_t> begun_;  // of the entry that is not whole yet
};

}  // namespace vehicle_recorder

#endif
