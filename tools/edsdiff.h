/// @file
/// `nodevik eds diff`: how two EDS or DCF files differ. No bus is needed.

#ifndef TOOLS_EDSDIFF_H
#define TOOLS_EDSDIFF_H

#include <string>

#include "tools/failure.h"
#include "tools/output.h"

namespace nodevik_tool {

/// Tells how two files differ in what they say about a node: a line for each thing that is not the same.
///
/// Values are compared as a node would have them: 500 and 0x1F4 are the same. Who made a file and when, its comments and
/// its lists of objects do not count.
///
/// @param left   name of the one file
/// @param right  name of the other
/// @return done when they are the same, refused when not
/// @throws Failure  a file cannot be used
ExitStatus diff_descriptions(Output& output, const std::string& left, const std::string& right);

}  // namespace nodevik_tool

#endif
