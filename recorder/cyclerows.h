/// @file
/// Cycles as rows of a table: for a spreadsheet, or for another program.

#ifndef RECORDER_CYCLEROWS_H
#define RECORDER_CYCLEROWS_H

#include <string>

#include "recorder/cycles.h"
#include "recorder/recording.h"

namespace vehicle_recorder {

/// The names of the columns as the first line of a CSV file (RFC 4180, but with a line feed alone at its end).
std::string csv_head();

/// A cycle as a line of a CSV file, with its line end. What is not known is empty.
std::string csv_row(const Cycle& cycle, const RecordingHeader& header);

/// A cycle as a JSON object with the columns' names, without a line end. What is not known is null.
std::string json_row(const Cycle& cycle, const RecordingHeader& header);

/// The names of those columns that a drive's curves are made of, as the first line of a CSV file: the time, the
/// set-points, and what the vehicle tells.
std::string curve_head();

/// A cycle as a line of that file. What is not known is "nan", which interrupts a curve.
std::string curve_row(const Cycle& cycle, const RecordingHeader& header);

/// A line that interrupts all curves.
/// @param time_us  when, since the start
std::string curve_gap(std::uint64_t time_us);

}  // namespace vehicle_recorder

#endif
