/// @file
/// The program `nodevik`: its command line, and what it prints when a command cannot be done.

#ifndef TOOLS_COMMAND_H
#define TOOLS_COMMAND_H

#include <string>
#include <vector>

namespace nodevik_tool {

/// Runs the program: results on standard output, one line on standard error when something is wrong.
///
/// @param arguments  the command line without the program's name
/// @return the exit status, see program::ExitStatus
int run_command(std::vector<std::string> arguments);

}  // namespace nodevik_tool

#endif
