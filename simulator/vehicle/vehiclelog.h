/// @file
/// The log of vehicle-simulator: one line for each thing that happens on the line.
///
/// Each line begins with the seconds since the start, to the microsecond, and a word that says what happened.
/// A program opens the line and sends frames; here the dots stand for bytes of the reply:
///
///     1.510482 opened
///     1.510533 settings 9600 baud 8N1
///     1.510542 received 00 67 6e 50 throttle 0 direction 103 bucket 110 motor off
///     1.510578 replied 39 bytes 7f a0 ... bc speed 0 voltage 520 current 6 capacity 100 latitude 601700000
///
/// A fault chosen at random is told before the reply that it hits; a reply without a byte is muted:
///
///     1.819901 fault short 38
///     1.819907 replied 38 bytes 7f a0 ... ac speed 0 voltage 521 current 3 capacity 100 latitude 601700000
///     2.315080 fault muted
///     2.315083 muted speed 0 voltage 520 current 2 capacity 100 latitude 601700000
///
/// At the end the program closes the line, or the vehicle hangs it up:
///
///     2.415192 closed
///     2.480116 hung up

#ifndef SIMULATOR_VEHICLE_VEHICLELOG_H
#define SIMULATOR_VEHICLE_VEHICLELOG_H

#include <chrono>
#include <cstdio>
#include <span>
#include <string>

#include "simulator/vehicle/vehicleprotocol.h"

namespace vehicle_simulator {

/// Writes the log, each line at once.
class VehicleLog {
public:
    /// @param file  where the lines go; stays the caller's
    explicit VehicleLog(std::FILE* file) : file_(file), start_(std::chrono::steady_clock::now()) {}

    /// Writes the time and @p what.
    void line(const std::string& what);

private:
    std::FILE* file_;
    std::chrono::steady_clock::time_point start_;
};

/// "received", the bytes of @p frame and what they ask for.
std::string describe(const CommandFrame& frame);

/// "replied", the number of @p bytes, the bytes, and the telemetry they were made from; "muted" when there
/// are none.
std::string describe(std::span<const std::uint8_t> bytes, const Telemetry& telemetry);

}  // namespace vehicle_simulator

#endif
