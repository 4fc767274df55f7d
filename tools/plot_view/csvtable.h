/// @file
/// Curves as a table in text, RFC 4180:
///
///     time,throttle,speed
///     0,12,0
///     0.1,,3.5
///     0.2,40,nan
///
/// The time is the column "time", "time_s" or "seconds", or else the first one, in seconds: since 1970 from 100,000,000
/// on, else since some beginning. It may also be a date and a time of day ("2026-11-22T13:30:05.25Z", without a "Z" local
/// time), and under the heading "position" it is the number of a sample. Every other column is a curve under its heading,
/// if it is not text: words, or bytes in hexadecimal. An empty cell is no sample, "nan" and "inf" are gaps in the line,
/// "true" and "on" are 1, "false" and "off" 0. Semicolons and tabs also separate cells, and numbers may have a decimal
/// comma then. Without a row of headings the columns are called after their numbers.

#ifndef TOOLS_PLOT_VIEW_CSVTABLE_H
#define TOOLS_PLOT_VIEW_CSVTABLE_H

#include <string>
#include <string_view>

#include "tools/plot_view/plotfile.h"

namespace plot {

/// Reads a table.
/// @param text  all of it
/// @return      the curves; rows that are none, and columns without any number, are left out and noted
/// @throws BadFile  there is no curve in it
Recording read_table(std::string_view text);

/// Writes curves as a table that read_table() reads back to the last digit. Each time that a series has a sample at is
/// a row; of several samples of one series at one time each has its own.
/// @param data   the curves; those that are not Series::shown are left out
/// @param time   the times that are written
/// @return       the table
std::string write_table(const PlotData& data, const Interval& time);

}  // namespace plot

#endif
