/// @file
/// Faults of the vehicle controller's line: what becomes of a reply on its way.

#ifndef SIMULATOR_REPLYFAULTS_H
#define SIMULATOR_REPLYFAULTS_H

#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "simulator/vehicleprotocol.h"

namespace simulator {

/// The faults that are chosen; the default is a line without any.
struct FaultPlan {
    bool mute = false;                ///< no reply at all
    std::optional<int> cut = {};      ///< only the first bytes of the reply, 0 to 39
    int delay_ms = 0;                 ///< time between the frame and its reply
    int garbage = 0;                  ///< this many random bytes ahead of the reply
    int split = 1;                    ///< number of writes that the reply is spread over
    int split_pause_ms = 5;           ///< time between two of these writes
    int every = 1;                    ///< only each n-th reply is hit, the first one that is being the n-th
    std::optional<int> hang_up = {};  ///< the line is hung up after this many frames
};

/// A part of a reply that goes out in one write.
struct Piece {
    int after_ms = 0;  ///< time after the frame
    std::vector<std::uint8_t> bytes;

    bool operator==(const Piece&) const = default;
};

/// Applies a plan to one reply after the other.
class ReplyFaults {
public:
    /// @param seed  starts the random bytes: the same seed gives the same ones
    ReplyFaults(const FaultPlan& plan, std::uint32_t seed) : plan_(plan), random_(seed) {}

    /// The writes that remain of the next reply, in order of time. Empty when it is muted or cut to nothing.
    std::vector<Piece> apply(const ReplyFrame& reply);

    /// Whether the line is to be hung up now that @p frames frames have come.
    bool hangs_up(int frames) const { return plan_.hang_up && frames >= *plan_.hang_up; }

private:
    std::vector<std::uint8_t> garbage();

    FaultPlan plan_;
    std::mt19937 random_;
    int replies_ = 0;
};

}  // namespace simulator

#endif
