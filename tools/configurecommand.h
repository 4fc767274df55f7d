/// @file
/// `nodevik configure`: a node set up as its DCF says (CiA 302-2).

#ifndef TOOLS_CONFIGURECOMMAND_H
#define TOOLS_CONFIGURECOMMAND_H

#include <string>

#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// What the command line says about setting a node up.
struct ConfigureArguments {
    unsigned int node = 0;  ///< 1 to 127
    std::string file;       ///< the DCF
    bool dry_run = false;   ///< only reads and compares
    bool store = false;     ///< has the node store its values at the end
    bool restore = false;   ///< has the node restore its maker's values first, and resets it
};

/// Sets a node up, and tells what became of each object.
/// @throws Failure      the file cannot be used, or the node refuses, does not answer, or is another one
/// @throws Interrupted  once it has been told how far it came
ExitStatus configure_node(const Session& session, const ConfigureArguments& arguments);

}  // namespace nodevik_tool

#endif
