/// @file
/// The serial protocol between the operator's panel and the vehicle controller, seen from the controller.
///
/// The panel sends a command frame of four bytes in every cycle:
///
/// | Byte | Content |
/// |---|---|
/// | 0 | throttle, 0 to 255 |
/// | 1 | direction, 0 to 255 |
/// | 2 | bucket, 0 to 255 |
/// | 3 | 'Q' switches the motor on, anything else (the panel sends 'P') off |
///
/// The controller answers each with 39 bytes: 13 slots of three bytes, of which the panel reads the first.
///
/// | Slot | Value |
/// |---|---|
/// | 0, 1 | motor speed, high and low byte; see encode_speed() |
/// | 2, 3 | battery voltage in 0.1 V, high and low byte |
/// | 4, 5 | battery current in 0.1 A, high and low byte |
/// | 6, 7 | battery charge in Ah, high and low byte |
/// | 8 to 11 | latitude in 0.0000001 degrees, a signed 32-bit number, low byte first |
/// | 12 | ground speed in 0.1 m/s |
///
/// Nothing marks the beginning of a frame or of a reply, and nothing checks them.

#ifndef SIMULATOR_VEHICLE_VEHICLEPROTOCOL_H
#define SIMULATOR_VEHICLE_VEHICLEPROTOCOL_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "simulator/vehicle/vehicle.h"

namespace vehicle_simulator {

inline constexpr std::size_t command_length = 4;
inline constexpr std::size_t slot_count = 13;
inline constexpr std::size_t slot_length = 3;
inline constexpr std::size_t reply_length = slot_count * slot_length;

using CommandFrame = std::array<std::uint8_t, command_length>;
using ReplyFrame = std::array<std::uint8_t, reply_length>;

/// What a reply carries, in the units of the wire.
struct Telemetry {
    int speed_rpm = 0;                       ///< -10738 to 10737
    std::uint16_t voltage_dv = 0;            ///< 0.1 V
    std::uint16_t current_da = 0;            ///< 0.1 A
    std::uint16_t capacity_ah = 0;           ///< 0 to 100
    std::int32_t latitude_e7 = 0;            ///< 0.0000001 degrees
    std::uint8_t ground_speed_dm_per_s = 0;  ///< 0.1 m/s, without sign
};

/// Collects the bytes of the line into command frames, four by four.
class CommandReader {
public:
    /// Takes the next byte; returns the frame that it completes, if it does.
    std::optional<CommandFrame> take(std::uint8_t byte);

    /// Forgets the bytes of an unfinished frame, as when the line was closed.
    void reset() { count_ = 0; }

private:
    CommandFrame frame_ = {};
    std::size_t count_ = 0;
};

/// What @p frame asks for.
Command decode_command(const CommandFrame& frame);

/// The 16-bit number that the panel turns back into @p speed_rpm.
///
/// The panel computes -trunc((R - 32767) * 3.27701 / 10.0). About three numbers give the same speed; this is
/// the one closest to 32767, which stands for rest. Speeds beyond -10738 and 10737 are moved to these ends.
std::uint16_t encode_speed(int speed_rpm);

/// The vehicle's state in the units of the wire, rounded, each value within its range.
Telemetry measure(const VehicleState& state);

/// The reply that carries @p telemetry. The unread bytes of slot n are 0xA0 + n and 0xB0 + n: a reader that
/// is out of step shows at once.
ReplyFrame encode_reply(const Telemetry& telemetry);

}  // namespace vehicle_simulator

#endif
