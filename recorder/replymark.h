/// @file
/// By what bytes a reply is known among others.
///
/// Nothing in the vehicle's protocol marks the beginning of a reply. But the second and third byte of each slot are the
/// controller's own, and a controller that puts the same bytes there every time marks its replies all the same: from
/// some replies that came alone these bytes are learned, and from then on each reply can be told from noise, and its
/// beginning from its middle. A controller that fills them otherwise, or all alike, leaves no such mark.

#ifndef RECORDER_REPLYMARK_H
#define RECORDER_REPLYMARK_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "vehicle/telemetry.h"

namespace vehicle_recorder {

/// The bytes that every reply of a controller has at the same places.
class ReplyMark {
public:
    /// For each place of a reply the byte that always stands there, none where bytes change.
    using Bytes = std::array<std::optional<std::uint8_t>, vehicle::reply_bytes>;

    explicit ReplyMark(const Bytes& bytes);

    /// Whether a reply can be told from one that is shifted by any number of bytes.
    bool is_distinct() const { return is_distinct_; }

    /// How many places have a byte of their own.
    std::size_t size() const { return size_; }

    /// Whether @p place (0 to 38) has a byte of its own, and it is another one than @p byte.
    bool contradicts(std::size_t place, std::uint8_t byte) const {
        return bytes_[place].has_value() && *bytes_[place] != byte;
    }

    /// Whether @p place has a byte of its own.
    bool has(std::size_t place) const { return bytes_[place].has_value(); }

private:
    Bytes bytes_;
    std::size_t size_ = 0;
    bool is_distinct_ = false;
};

/// Learns a mark from what came between two frames.
class ReplyMarkLearner {
public:
    static constexpr std::size_t replies = 16;  ///< so many are looked at

    /// Looks at bytes that came between two frames. Only those that are as many as a reply has count.
    void look_at(const std::vector<std::uint8_t>& bytes);

    /// Whether enough was seen.
    bool is_ready() const { return count_ == replies; }

    /// The mark, if what was seen has a distinct one.
    std::optional<ReplyMark> mark() const;

    /// Begins anew.
    void forget() { count_ = 0; }

private:
    std::array<std::array<std::uint8_t, vehicle::reply_bytes>, replies> seen_ = {};
    std::size_t count_ = 0;
};

}  // namespace vehicle_recorder

#endif
