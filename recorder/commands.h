/// @file
/// The commands of `vehicle-recorder`. Each adds itself to the command line, from a file of its own.

#ifndef RECORDER_COMMANDS_H
#define RECORDER_COMMANDS_H

#include <functional>
#include <string>
#include <vector>

#include "program/exitstatus.h"

namespace CLI {
class App;
}

namespace vehicle_recorder {

/// What the chosen command does once the command line is read. The result is the exit status, a number since that of a
/// started program passes through it. It may throw program::Failure, program::Interrupted and program::ClosedPipe.
using Action = std::function<int()>;

/// Adds a command with an example in its help.
/// @param name     the command's name
/// @param does     what it does, for the help
/// @param example  a command line, for the help
/// @return the command, which belongs to @p app
CLI::App& add_command(CLI::App& app, const std::string& name, const std::string& does,
                      const std::string& example);

/// A command that adds itself: @p action is set when it is chosen.
using AddCommand = void(CLI::App& app, Action& action);

AddCommand add_run_command;     ///< a program on the line, which is recorded
AddCommand add_report_command;  ///< the page that a person reads first
AddCommand add_show_command;    ///< each frame and reply in words
AddCommand add_export_command;  ///< a row for each cycle
AddCommand add_plot_command;    ///< the plotting window
AddCommand add_replay_command;  ///< the vehicle's side, played to a program
AddCommand add_watch_command;   ///< limits of what a growing recording tells

}  // namespace vehicle_recorder

#endif
