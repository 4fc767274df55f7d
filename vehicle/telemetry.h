/// @file
/// The reply: what the vehicle controller answers to a command frame.
///
/// 39 bytes: 13 slots of three bytes, of which the first counts. The other two are the controller's own.
///
/// | Slot    | Content                                                      |
/// |---------|--------------------------------------------------------------|
/// | 0, 1    | motor speed, high and low byte; see speed_rpm()              |
/// | 2, 3    | battery voltage, high and low byte                           |
/// | 4, 5    | battery current, high and low byte                           |
/// | 6, 7    | battery capacity in Ah, high and low byte                    |
/// | 8 to 11 | latitude, a signed number of 32 bits, lowest byte first      |
/// | 12      | shown nowhere                                                |
///
/// The units of voltage, current and latitude are the controller's: they are shown as the numbers that arrive.

#ifndef VEHICLE_TELEMETRY_H
#define VEHICLE_TELEMETRY_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace vehicle {

inline constexpr std::size_t slot_count = 13;                        ///< values of a reply
inline constexpr std::size_t slot_bytes = 3;                         ///< bytes of a slot
inline constexpr std::size_t reply_bytes = slot_count * slot_bytes;  ///< length of a reply
inline constexpr std::size_t longest_read = 100;  ///< most bytes that the panel takes in a cycle

/// The first byte of each slot, in slot order.
using Slots = std::array<std::uint8_t, slot_count>;

/// Takes the slots out of a receive buffer, beginning with its first byte whatever arrived there.
/// @tparam Byte  char or std::uint8_t
/// @param buffer  at least 37 bytes
template <typename Byte>
constexpr Slots slots_of(const Byte* buffer) {
    Slots slots = {};
    for (std::size_t i = 0; i < slots.size(); i++) {
        slots[i] = static_cast<std::uint8_t>(buffer[i * slot_bytes]);
    }
    return slots;
}

/// A number of two bytes, 0 to 65535.
constexpr int from_bytes(std::uint8_t high, std::uint8_t low) {
    return high * 256 + low;
}

/// Motor speed. The controller counts from 32767 downwards for forward rotation.
/// @param raw  0 to 65535
/// @return     revolutions per minute, 10737 to -10738, negative backwards
constexpr int speed_rpm(int raw) {
    constexpr int standstill = 32767;
    constexpr double rpm_per_ten_counts = 3.27701;
    return -static_cast<int>((raw - standstill) * rpm_per_ten_counts / 10.0);
}

/// A signed number of four bytes, lowest byte first.
constexpr std::int32_t from_bytes(std::uint8_t byte0, std::uint8_t byte1, std::uint8_t byte2,
                                  std::uint8_t byte3) {
    const std::uint32_t bits = static_cast<std::uint32_t>(byte0) | static_cast<std::uint32_t>(byte1) << 8U |
                               static_cast<std::uint32_t>(byte2) << 16U |
                               static_cast<std::uint32_t>(byte3) << 24U;
    return static_cast<std::int32_t>(bits);
}

/// What a reply tells, as the panel shows it.
struct Telemetry {
    int speed_rpm = 0;          ///< motor speed, 10737 to -10738, negative backwards
    int voltage = 0;            ///< battery voltage in the controller's unit, 0 to 65535
    int current = 0;            ///< battery current in the controller's unit, 0 to 65535
    int capacity_ah = 0;        ///< remaining capacity, 0 to 65535
    std::int32_t latitude = 0;  ///< in the controller's unit

    bool operator==(const Telemetry&) const = default;
};

/// What @p slots tell.
constexpr Telemetry telemetry_of(const Slots& slots) {
    return {.speed_rpm = speed_rpm(from_bytes(slots[0], slots[1])),
            .voltage = from_bytes(slots[2], slots[3]),
            .current = from_bytes(slots[4], slots[5]),
            .capacity_ah = from_bytes(slots[6], slots[7]),
            .latitude = from_bytes(slots[8], slots[9], slots[10], slots[11])};
}

}  // namespace vehicle

#endif
