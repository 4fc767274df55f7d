/// @file
/// What is said beside the results.

#ifndef TOOLS_TELL_H
#define TOOLS_TELL_H

#include <string>

namespace nodevik_tool {

/// A text that does not spoil a line, nor command a terminal: control characters (ECMA-48, those of UTF-8 with two bytes
/// among them) are written as "\x0A".
std::string printable(const std::string& text);

/// Prints a line on standard error, printable, with the program's name ahead. On a terminal it takes the place of a bar, and of the
/// Ctrl-C that was typed.
/// @param message  without a line end
void tell(const std::string& message);

}  // namespace nodevik_tool

#endif
