/// @file
/// `nodevik dump`: what a node has, as a DCF (CiA 306-1).

#ifndef TOOLS_DUMPCOMMAND_H
#define TOOLS_DUMPCOMMAND_H

#include <string>

#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// Reads what a node has and makes a DCF of it: the entries of its description, or without one those that it has of the
/// communication profile. With JSON the entries are the results, and the DCF goes to a file only.
///
/// What the node receives in its PDOs is a command of the moment and no setting: the DCF does not have it.
///
/// @param node  1 to 127
/// @param file  where the DCF goes; empty: to the results. It is written when everything has been read
/// @throws Failure      the node is not what the description says, does not answer, or has refused an entry
/// @throws Interrupted  a signal has come: no DCF is made
ExitStatus dump_node(const Session& session, unsigned int node, const std::string& file);

}  // namespace nodevik_tool

#endif
