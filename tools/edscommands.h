/// @file
/// `nodevik eds check`, `nodevik eds show` and `nodevik eds dcf`: what EDS and DCF files hold (CiA 306-1). No bus is
/// needed.

#ifndef TOOLS_EDSCOMMANDS_H
#define TOOLS_EDSCOMMANDS_H

#include <string>
#include <vector>

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

/// What the command line says about a DCF that is made.
struct DcfArguments {
    std::string file;                 ///< the EDS or DCF that it is made from
    unsigned int node = 0;            ///< whose it is, 1 to 127
    std::vector<std::string> values;  ///< "OBJECT=VALUE"
    std::string out;                  ///< where it goes; empty: to the results
};

/// Makes a DCF for a node. With JSON the entries that have a value in it are the results, and it goes to a file only.
/// @throws Failure  the file cannot be used, a value is none, or the DCF cannot be written
ExitStatus make_dcf(Output& output, const DcfArguments& arguments);

}  // namespace nodevik_tool

#endif
