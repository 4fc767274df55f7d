/// @file
/// How a program is started that finds a device under the name of the vehicle's line.
///
/// The process that is to become it is a fork of the recorder's. Should it not come to that, it tells the reason through
/// a pipe whose writing end the program does not inherit (O_CLOEXEC): when that pipe ends without a word, it runs.

#ifndef RECORDER_PROGRAMSTART_H
#define RECORDER_PROGRAMSTART_H

#include <string>
#include <vector>

#include "recorder/linename.h"

namespace vehicle_recorder {

/// The program that is run when none is named.
inline constexpr const char* default_program = "ohjauspaneeli";

/// Becomes a program, or tells why not. To be called in a forked process of one thread.
///
/// @param program  with its arguments; searched in PATH
/// @param device   path of the terminal that it finds under the line's name
/// @param way      how it gets that name
/// @param report   the writing end of the pipe
[[noreturn]] void become_program(const std::vector<std::string>& program, const std::string& device,
                                 LineWay way, int report);

/// Waits until the other process has become the program.
/// @param report  the reading end of the pipe, the only one left in this process
/// @throws program::Failure  it has not, with the reason; no_bus, 126 or 127, as env(1) has them. The process has ended
void await_program(int report);

/// The exit status for the end of a program: its own, or 128 and the number of the signal that ended it.
/// @param status  as waitpid(2) tells it
int exit_status_of(int status);

}  // namespace vehicle_recorder

#endif
