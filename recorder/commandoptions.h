/// @file
/// Options that more than one command has.

#ifndef RECORDER_COMMANDOPTIONS_H
#define RECORDER_COMMANDOPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

#include "recorder/linename.h"

namespace CLI {
class App;
}

namespace vehicle_recorder {

/// Adds an option for a time of a recording, in seconds since its start.
/// @param name     with its dashes
/// @param time_us  gets the time in microseconds; must live as long as the command
/// @param does     for the help
void add_time_option(CLI::App& command, const std::string& name, std::uint64_t& time_us,
                     const std::string& does);

/// Adds the recording, an argument that is required.
/// @param file  gets the name; must live as long as the command
void add_recording_option(CLI::App& command, std::string& file);

/// Adds an option for the file that gets the result; an empty name is refused.
/// @param name  with its dashes
/// @param file  gets the file's name; must live as long as the command
/// @param does  for the help
void add_result_option(CLI::App& command, const std::string& name, std::string& file,
                       const std::string& does);

/// Adds the program with its arguments, and how it gets the line's name.
/// @param program  gets the program, #default_program without one; must live as long as the command
/// @param way      gets the way; must live as long
void add_program_options(CLI::App& command, std::vector<std::string>& program, LineWay& way);

}  // namespace vehicle_recorder

#endif
