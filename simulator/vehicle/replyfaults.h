/// @file
/// Faults of the vehicle controller's line: what becomes of a reply on its way.

#ifndef SIMULATOR_VEHICLE_REPLYFAULTS_H
#define SIMULATOR_VEHICLE_REPLYFAULTS_H

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "simulator/vehicle/vehicleprotocol.h"

namespace vehicle_simulator {

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
    int random_percent = 0;  ///< share of the replies that one fault, drawn at random, hits, 0 to 100
    std::optional<int> lose_frame = {};  ///< the frame of this number is lost: no log, no reply
    std::optional<int> lose_reply = {};  ///< the reply of this number is lost, though the log tells of it
};

/// A part of a reply that goes out in one write.
struct Piece {
    int after_ms = 0;  ///< time after the frame
    std::vector<std::uint8_t> bytes;

    bool operator==(const Piece&) const = default;
};

/// Applies a plan to one reply after the other.
///
/// A reply that a random fault hits has this fault alone, whatever else the plan says; the fault's kind and
/// size are drawn anew for each:
///
/// | Told as            | The reply                                                              |
/// |--------------------|------------------------------------------------------------------------|
/// | muted              | does not come                                                          |
/// | short N            | ends after N bytes, 1 to 38                                            |
/// | split N pause MS   | comes in N writes, 2 to 13, with 1 to 15 ms between two                 |
/// | garbage N          | follows N random bytes, 1 to 120                                       |
/// | delayed MS         | comes 1 to 150 ms late                                                 |
class ReplyFaults {
public:
    /// @param seed  starts the random bytes and faults: the same seed gives the same ones
    ReplyFaults(const FaultPlan& plan, std::uint32_t seed) : plan_(plan), random_(seed) {}

    /// The writes that remain of the next reply, in order of time. Empty when it is muted or cut to nothing.
    std::vector<Piece> apply(const ReplyFrame& reply);

    /// The random fault that hit the last reply, in the words above; empty when none did.
    const std::string& random_fault() const { return random_fault_; }

    /// Whether the frame of this number, counted from 1, is lost on its way to the controller.
    bool loses_frame(int number) const { return plan_.lose_frame == number; }

    /// Whether the reply to the frame of this number, counted from 1, is lost behind the log's back.
    bool loses_reply(int number) const { return plan_.lose_reply == number; }

    /// Whether the line is to be hung up now that @p frames frames have come.
    bool hangs_up(int frames) const { return plan_.hang_up && frames >= *plan_.hang_up; }

private:
    FaultPlan draw_fault();
    int draw(int lowest, int highest);
    std::vector<std::uint8_t> garbage(int count);

    FaultPlan plan_;
    std::mt19937 random_;
    std::string random_fault_;
    int replies_ = 0;
};

}  // namespace vehicle_simulator

#endif
