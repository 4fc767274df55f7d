/// @file
/// Limits of what the vehicle tells, and whether they are passed.
///
/// Replies are taken as they come: 39 bytes between two frames, or over two such spaces, are one, and it is looked at when
/// the next frame or a pause follows. Anything else is none: an empty, cut or garbled reply says nothing about a limit, and
/// does not end a silence.

#ifndef RECORDER_THRESHOLDS_H
#define RECORDER_THRESHOLDS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recorder/recording.h"
#include "recorder/texts.h"
#include "vehicle/telemetry.h"

namespace vehicle_recorder {

/// What has a limit.
enum class Quantity {
    silence,   ///< time without a whole reply since the line was used, in milliseconds
    rpm,       ///< motor speed
    voltage,   ///< battery voltage in the controller's unit
    current,   ///< battery current in the controller's unit
    capacity,  ///< remaining capacity in Ah
};

/// A limit.
struct Threshold {
    Quantity quantity = Quantity::silence;
    bool above = true;       ///< it is passed upwards; false: downwards
    std::int64_t limit = 0;  ///< the last value that is all right

    bool operator==(const Threshold&) const = default;
};

/// Reads "capacity=20" and the like: rpm, voltage, current or capacity, and a whole number.
/// @return none if @p text is no such thing
std::optional<Threshold> read_threshold(std::string_view text, bool above);

/// What is said of a passed threshold, such as "capacity 19 Ah, below 20 Ah".
std::string describe(const Threshold& threshold, std::int64_t value, Language language);

/// Tells when thresholds are passed.
///
/// A threshold that has been passed is told of once. It counts as passed again when the value has come back by a fiftieth
/// of the limit, at least by 1, and passes it anew. Each threshold is told of once in 5 s at most: what passes it sooner is
/// told of then, if it is still passed.
class ThresholdWatch {
public:
    static constexpr std::uint64_t least_pause_us = 5'000'000;  ///< between two alarms of a threshold

    /// Called with a passed threshold and the value that passes it.
    using Alarm = std::function<void(const Threshold& threshold, std::int64_t value)>;

    ThresholdWatch(const std::vector<Threshold>& thresholds, Alarm alarm);

    /// Takes what happened on the line.
    void add(const Entry& entry);

    /// Tells how late it is: a silence is not told by anything else. What add() takes next may have happened before that.
    /// @param now_us  since the start of the recording
    void tick(std::uint64_t now_us);

private:
    struct Watched {
        Threshold threshold;
        bool passed = false;  // since the value was all right the last time
        bool told = false;    // of this passing
        std::int64_t value = 0;
        std::optional<std::uint64_t> told_us;
    };

    void open();
    void take_frame(std::uint64_t time_us);
    void take_reply();
    void look(Watched& watched, std::int64_t value);
    void tell(Watched& watched, std::uint64_t now_us) const;

    std::vector<Watched> watched_;
    Alarm alarm_;
    std::vector<std::uint8_t> heard_;  // of a reply that may still be going on
    std::size_t heard_before_ = 0;     // how much of it came before the last frame
    std::uint64_t heard_us_ = 0;       // when the last of it came
    bool taken_ = false;               // it was a whole reply, and has been looked at
    unsigned sent_ = 0;                // bytes of a frame that is not whole
    bool is_open_ = false;
    std::optional<std::uint64_t> silent_since_us_;  // none: nothing has been asked yet
};

}  // namespace vehicle_recorder

#endif
