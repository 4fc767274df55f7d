/// @file
/// What is said beside the results.

#ifndef TOOLS_TELL_H
#define TOOLS_TELL_H

#include <string>

namespace nodevik_tool {

/// Prints a line on standard error, with the program's name ahead. On a terminal it takes the place of a bar, and of the
/// Ctrl-C that was typed.
/// @param message  without a line end
void tell(const std::string& message);

}  // namespace nodevik_tool

#endif
