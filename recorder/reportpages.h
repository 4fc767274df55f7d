/// @file
/// A report as a page: plain text for a terminal, or HTML for a browser and paper.

#ifndef RECORDER_REPORTPAGES_H
#define RECORDER_REPORTPAGES_H

#include <string>

#include "recorder/phrasing.h"
#include "recorder/report.h"

namespace vehicle_recorder {

/// The page as plain text, UTF-8, no line longer than 80 characters but for names out of the recording.
std::string text_page(const Report& report, const Phrasing& phrasing);

/// The page as one HTML file that needs nothing else: style and drawings stand in it. It follows the reader's choice of
/// light or dark, a narrow window, and paper (A4).
std::string html_page(const Report& report, const Phrasing& phrasing);

}  // namespace vehicle_recorder

#endif
