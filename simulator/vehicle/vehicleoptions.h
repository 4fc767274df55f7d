/// @file
/// The command line of vehicle-simulator.

#ifndef SIMULATOR_VEHICLE_VEHICLEOPTIONS_H
#define SIMULATOR_VEHICLE_VEHICLEOPTIONS_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "simulator/vehicle/replyfaults.h"

namespace vehicle_simulator {

/// What the command line asks for.
struct VehicleOptions {
    bool help = false;                  ///< print the help text and end
    bool version = false;               ///< print the version and end
    std::string log_file;               ///< where the log goes; empty is standard output
    std::optional<std::uint32_t> seed;  ///< makes the run repeatable
    double capacity_ah = 100;           ///< charge of the battery at the start
    FaultPlan faults;                   ///< the line's faults
};

/// Either options or, when the command line is wrong, the reason.
struct ParsedVehicleOptions {
    VehicleOptions options;
    std::string error;  ///< empty when all is well
};

/// Reads the arguments of the command line, the program's name not included.
ParsedVehicleOptions parse_vehicle_options(std::span<const char* const> arguments);

/// The text that --help prints.
std::string vehicle_help();

}  // namespace vehicle_simulator

#endif
