/// @file
/// `nodevik eds check` and `nodevik eds show`: what EDS and DCF files hold (CiA 306-1). No bus is needed.

#ifndef TOOLS_EDSCOMMANDS_H
#define TOOLS_EDSCOMMANDS_H

#include <string>

#include "tools/failure.h"
#include "tools/output.h"

namespace nodevik_tool {

/// Tells everything about a file that its reader should know.
/// @param file  name of the file
/// @throws Failure  there are errors among it
ExitStatus check_description(Output& output, const std::string& file);

/// Shows the entries of a file.
/// @param file    name of the file
/// @param object  "0x1018", "0x1018:1" or a name; empty for all
/// @throws Failure  the file cannot be used, or it has no such object
ExitStatus show_description(Output& output, const std::string& file, const std::string& object);

}  // namespace nodevik_tool

#endif
