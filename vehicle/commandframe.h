/// @file
/// The command frame: what the operator's panel sends to the vehicle controller in every cycle.
///
/// | Byte | Content                                        | At rest |
/// |------|------------------------------------------------|---------|
/// | 0    | throttle set-point, 0 (rest) to 255 (full)     | 0       |
/// | 1    | direction set-point, 103 is straight ahead     | 103     |
/// | 2    | bucket set-point                               | 110     |
/// | 3    | motor: 'Q' on, 'P' off                         | 'P'     |
///
/// The bytes are raw numbers. Nothing marks the beginning of a frame, and nothing checks it.

#ifndef VEHICLE_COMMANDFRAME_H
#define VEHICLE_COMMANDFRAME_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace vehicle {

inline constexpr std::size_t frame_bytes = 4;  ///< length of a command frame

inline constexpr std::uint8_t motor_on = 'Q';   ///< byte 3: the motor turns
inline constexpr std::uint8_t motor_off = 'P';  ///< byte 3: the motor stands

inline constexpr std::uint8_t rest_throttle = 0;     ///< byte 0 of a vehicle at rest
inline constexpr std::uint8_t straight_ahead = 103;  ///< byte 1 of a vehicle at rest
inline constexpr std::uint8_t rest_bucket = 110;     ///< byte 2 of a vehicle at rest

/// The bytes of a command frame in the order of the line.
using FrameBytes = std::array<std::uint8_t, frame_bytes>;

/// The frame that brings the vehicle to rest.
inline constexpr FrameBytes neutral_frame = {rest_throttle, straight_ahead, rest_bucket, motor_off};

/// What a command frame asks for.
struct Command {
    std::uint8_t throttle = rest_throttle;    ///< 0 (rest) to 255 (full)
    std::uint8_t direction = straight_ahead;  ///< the panel sends 35 to 175
    std::uint8_t bucket = rest_bucket;        ///< the panel sends 47 to 172
    std::uint8_t motor = motor_off;  ///< #motor_on or #motor_off; anything else is no frame of the panel's

    bool operator==(const Command&) const = default;
};

/// What @p bytes ask for.
constexpr Command command_of(const FrameBytes& bytes) {
    return {bytes[0], bytes[1], bytes[2], bytes[3]};
}

/// Whether @p bytes can be a frame of the panel's: the motor byte is one of the two.
constexpr bool is_frame(const FrameBytes& bytes) {
    return bytes[3] == motor_on || bytes[3] == motor_off;
}

/// The control voltage that stands for a set-point of direction or bucket, as the panel shows it.
/// @param set_point  0 to 255
/// @return           millivolts, rounded towards zero
constexpr int control_voltage_mv(int set_point) {
    constexpr double millivolts_per_step = 19.5;
    return static_cast<int>(set_point * millivolts_per_step);
}

}  // namespace vehicle

#endif
