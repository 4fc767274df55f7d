#include "simulator/vehicle/vehiclecontroller.h"

#include <algorithm>

namespace vehicle_simulator {

namespace {

constexpr int voltage_noise_dv = 1;
constexpr int current_noise_da = 2;

}  // namespace

Telemetry VehicleController::exchange(const CommandFrame& frame, double seconds) {
    vehicle_.advance(seconds);
    vehicle_.follow(decode_command(frame));
    Telemetry telemetry = measure(vehicle_.state());
    telemetry.voltage_dv = with_noise(telemetry.voltage_dv, voltage_noise_dv);
    telemetry.current_da = with_noise(telemetry.current_da, current_noise_da);
    return telemetry;
}

std::uint16_t VehicleController::with_noise(std::uint16_t reading, int amplitude) {
    const int noise = static_cast<int>(random_() % static_cast<unsigned>(2 * amplitude + 1)) - amplitude;
    return static_cast<std::uint16_t>(std::clamp(reading + noise, 0, 0xFFFF));
}

}  // namespace vehicle_simulator
