/// @file
/// A program that is run on a line that is recorded.
///
///     session ---- starts, waits for, passes signals on to ----> program == pseudo-terminal == ...
///        |-- starts --> carrier (carrier.h)        ... == carrier == real line == vehicle
///        |-- starts --> writing half (writinghalf.h)
///        |-- starts --> watcher of the thresholds (alarms.h), if there are any
///
/// The session is the process that was started: it has the terminal, gets its signals, prints what the others have to
/// tell, and ends with the program's status. The others are in sessions (setsid(2)) of their own and ignore every signal
/// that can be ignored, so that nothing that stops or ends a job stops or ends them: the line is carried as long as the
/// program lives, even if the session's process is killed.

#ifndef RECORDER_SESSION_H
#define RECORDER_SESSION_H

#include <string>
#include <vector>

#include "recorder/alarms.h"
#include "recorder/linename.h"

namespace vehicle_recorder {

/// What is run, and how.
struct SessionSetUp {
    std::string device;                ///< path of the real line
    std::string out;                   ///< name of the recording, which must not be there yet
    std::vector<std::string> program;  ///< with its arguments; searched in PATH
    LineWay way = LineWay::any;        ///< how the program gets the line's name
    AlarmSetUp alarms;                 ///< what is watched meanwhile
};

/// Runs the program to its end and records the line meanwhile. The process must have one thread only.
///
/// SIGINT, SIGTERM, SIGHUP and SIGQUIT are passed on to the program, unless the terminal sends them to the program itself.
/// When the program has ended and another process holds its line, they end the session.
///
/// @return the program's exit status; 128 and the signal's number when a signal ended it
/// @throws program::Failure  no_bus: the device is no serial line; bad_file: the recording cannot be made; 126 or 127:
///                           the program cannot be run. No recording is left then
int run_session(const SessionSetUp& setup);

}  // namespace vehicle_recorder

#endif
