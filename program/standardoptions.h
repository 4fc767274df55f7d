/// @file
/// The options that every installed program knows.
///
/// A program that somebody installed is asked two things before anything else: how it is used and which
/// version it is. The answers have one form for all programs and go to standard output (the usage goes to
/// standard error where nobody has asked for it, because the command line is wrong):
///
///     $ vehicle-simulator --version
///     vehicle-simulator (ohjauspaneeli) 2.1.0
///
/// The name is the one under which the program was started, without its directories; in the parentheses
/// stands the project, whose version all programs share.

#ifndef PROGRAM_STANDARDOPTIONS_H
#define PROGRAM_STANDARDOPTIONS_H

#include <span>

namespace program {

/// The version of the project, such as "2.0.0".
const char* version();

/// Prints the program's name, the project and its version as one line.
void print_version();

/// Prints one line: "usage: ", the program's name and @p operands.
/// @param operands  what follows the name on the command line, such as "PORT [SECONDS]"
void print_usage(const char* operands);

/// The exit status of a program whose command line is wrong.
constexpr int usage_status = 2;

/// Prints the usage, in the form of print_usage(), to standard error.
/// @param operands  as for print_usage()
/// @return          #usage_status, to be returned by main
int refuse_command_line(const char* operands);

/// Answers --version and --help for a program that has no other options.
///
/// Only an option that stands alone counts, so that no operand is taken for one. --help prints the usage and
/// a second line that names both options.
/// @param arguments  the command line without the program's name
/// @param operands   as for print_usage()
/// @return           true when the question is answered: the program ends with status 0
bool answered_standard_option(std::span<const char* const> arguments, const char* operands);

}  // namespace program

#endif
