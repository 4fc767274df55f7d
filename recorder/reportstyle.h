/// @file
/// The looks of an HTML report.

#ifndef RECORDER_REPORTSTYLE_H
#define RECORDER_REPORTSTYLE_H

namespace vehicle_recorder {

/// The page's style sheet, CSS: light and dark, narrow windows, paper.
extern const char* const report_style;

}  // namespace vehicle_recorder

#endif
