/// @file
/// The log of vehicle-simulator: one line for each thing that happens on the line.
///
/// Each line begins with the seconds since the start, to the microsecond, and a word that says what happened:
///
///     0.000000 opened
///     0.310214 settings 9600 baud 8N1
///     0.310221 received 00 67 6e 50 throttle 0 direction 103 bucket 110 motor off
///     0.310260 replied 39 bytes 7f a0 b0 ff a1 b1 ... speed 0 voltage 520 current 4 capacity 100 latitude
///     601700000

#ifndef SIMULATOR_VEHICLELOG_H
#define SIMULATOR_VEHICLELOG_H

#include <chrono>
#include <cstdio>
#include <span>
#include <string>

#include "simulator/vehicleprotocol.h"

namespace simulator {

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

}  // namespace simulator

#endif
