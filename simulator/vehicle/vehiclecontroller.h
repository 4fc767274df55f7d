/// @file
/// The vehicle controller: takes command frames, drives the vehicle, answers with what its sensors show.

#ifndef SIMULATOR_VEHICLE_VEHICLECONTROLLER_H
#define SIMULATOR_VEHICLE_VEHICLECONTROLLER_H

#include <cstdint>
#include <random>

#include "simulator/vehicle/vehicle.h"
#include "simulator/vehicle/vehicleprotocol.h"

namespace vehicle_simulator {

/// A vehicle with its sensors. The readings of voltage and current are noisy, as real ones are.
class VehicleController {
public:
    /// @param capacity_ah  charge of the battery at the start, 0 to 100
    /// @param seed         starts the noise: the same seed gives the same
    VehicleController(double capacity_ah, std::uint32_t seed) : vehicle_(capacity_ah), random_(seed) {}

    /// Lets @p seconds pass under the command that held so far, then takes over that of @p frame.
    /// @return what the sensors show at that moment
    Telemetry exchange(const CommandFrame& frame, double seconds);

    /// The vehicle behind the sensors.
    const Vehicle& vehicle() const { return vehicle_; }

private:
    std::uint16_t with_noise(std::uint16_t reading, int amplitude);

    Vehicle vehicle_;
    std::mt19937 random_;
};

}  // namespace vehicle_simulator

#endif
