/// @file
/// Times of the day as results.

#ifndef TOOLS_CLOCKTIME_H
#define TOOLS_CLOCKTIME_H

#include <cstdint>
#include <string>

namespace nodevik_tool {

/// The local time of the day: "23:40:00.000001".
/// @param time_us  microseconds since the beginning of 1970, UTC
std::string clock_text(std::uint64_t time_us);

/// A time for JSON: seconds since the beginning of 1970, UTC.
/// @param time_us  microseconds since then
double json_time(std::uint64_t time_us);

/// The time, in microseconds since the beginning of 1970, UTC (CLOCK_REALTIME).
std::uint64_t clock_us();

}  // namespace nodevik_tool

#endif
