#include "simulator/vehicle/vehicleprotocol.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vehicle_simulator {

namespace {

constexpr int rest_speed_number = 32767;
constexpr double rpm_per_speed_number = 3.27701 / 10.0;
constexpr int lowest_speed_rpm = -10738;
constexpr int highest_speed_rpm = 10737;

std::uint8_t byte_of(std::uint32_t number, int index) {
    return static_cast<std::uint8_t>(number >> (8 * index));
}

// `value` rounded and moved into the range of Number.
template <typename Number>
Number rounded(double value) {
    return static_cast<Number>(std::clamp(std::round(value), double{std::numeric_limits<Number>::min()},
                                          double{std::numeric_limits<Number>::max()}));
}

}  // namespace

std::optional<CommandFrame> CommandReader::take(std::uint8_t byte) {
    frame_[count_++] = byte;
    if (count_ < command_length) {
        return std::nullopt;
    }
    count_ = 0;
    return frame_;
}

Command decode_command(const CommandFrame& frame) {
    return {.throttle = frame[0], .direction = frame[1], .bucket = frame[2], .motor_on = frame[3] == 'Q'};
}

std::uint16_t encode_speed(int speed_rpm) {
    const int speed = std::clamp(speed_rpm, lowest_speed_rpm, highest_speed_rpm);
    const int distance = static_cast<int>(std::ceil(std::abs(speed) / rpm_per_speed_number));
    return static_cast<std::uint16_t>(speed < 0 ? rest_speed_number + distance
                                                : rest_speed_number - distance);
}

Telemetry measure(const VehicleState& state) {
    return {.speed_rpm = static_cast<int>(std::lround(state.speed_rpm)),
            .voltage_dv = rounded<std::uint16_t>(state.voltage_v * 10),
            .current_da = rounded<std::uint16_t>(state.current_a * 10),
            .capacity_ah = rounded<std::uint16_t>(state.capacity_ah),
            .latitude_e7 = rounded<std::int32_t>(state.latitude_deg * 1e7),
            .ground_speed_dm_per_s = rounded<std::uint8_t>(std::abs(state.ground_speed_m_per_s) * 10)};
}

ReplyFrame encode_reply(const Telemetry& telemetry) {
    const std::uint32_t speed = encode_speed(telemetry.speed_rpm);
    const auto latitude = static_cast<std::uint32_t>(telemetry.latitude_e7);
    const std::array<std::uint8_t, slot_count> values = {
        byte_of(speed, 1),
        byte_of(speed, 0),
        byte_of(telemetry.voltage_dv, 1),
        byte_of(telemetry.voltage_dv, 0),
        byte_of(telemetry.current_da, 1),
        byte_of(telemetry.current_da, 0),
        byte_of(telemetry.capacity_ah, 1),
        byte_of(telemetry.capacity_ah, 0),
        byte_of(latitude, 0),
        byte_of(latitude, 1),
        byte_of(latitude, 2),
        byte_of(latitude, 3),
        telemetry.ground_speed_dm_per_s,
    };
    ReplyFrame reply = {};
    for (std::size_t slot = 0; slot < slot_count; ++slot) {
        reply[slot * slot_length] = values[slot];
        reply[slot * slot_length + 1] = static_cast<std::uint8_t>(0xA0 + slot);
        reply[slot * slot_length + 2] = static_cast<std::uint8_t>(0xB0 + slot);
    }
    return reply;
}

}  // namespace vehicle_simulator
