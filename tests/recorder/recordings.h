/// @file
/// Recordings made by the tests.

#ifndef TESTS_RECORDER_RECORDINGS_H
#define TESTS_RECORDER_RECORDINGS_H

#include <string>

/// The header of a recording.
inline const std::string recording_header =
    "# vehicle-recorder recording 1\n"
    "# program vehicle-recorder 2.1.0\n"
    "# device /dev/ttyUSB0\n"
    "# start 2026-11-22T03:25:03.123456+02:00 monotonic 1234.567890\n";

#endif
