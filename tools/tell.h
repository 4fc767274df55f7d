/// @file
/// What is said beside the results.

#ifndef TOOLS_TELL_H
#define TOOLS_TELL_H

#include <string>

namespace nodevik_tool {

/// Prints a line on standard error, with the program's name ahead.
/// @param message  without a line end
void tell(const std::string& message);

}  // namespace nodevik_tool

#endif
