/// @file
/// The program `vehicle-recorder`: its command line, and what it prints when a command cannot be done.

#ifndef RECORDER_COMMAND_H
#define RECORDER_COMMAND_H

#include <string>
#include <vector>

namespace vehicle_recorder {

/// Runs the program: results on standard output, one line on standard error when something is wrong.
///
/// @param arguments  the command line without the program's name
/// @return the exit status: of program::ExitStatus, or that of a started program
int run_command(std::vector<std::string> arguments);

}  // namespace vehicle_recorder

#endif
