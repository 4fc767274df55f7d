/// @file
/// `nodevik nodes`: who is on the bus by what is heard. Nothing is sent.

#ifndef TOOLS_NODESCOMMAND_H
#define TOOLS_NODESCOMMAND_H

#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// What the command line says about listening to nodes.
struct NodesArguments {
    bool watch = false;  ///< shows what happens as it happens
    double seconds = 0;  ///< how long; 0 is not said: 2 s, or with `watch` for ever
};

/// Listens to the bus and tells the nodes: each once at the end, or with `watch` a table in place on a terminal, and
/// elsewhere a line for each thing that happens to a node.
/// @throws Interrupted  a signal has come, once everything has been told
/// @throws Failure      the bus can no longer be used
ExitStatus show_nodes(const Session& session, const NodesArguments& arguments);

}  // namespace nodevik_tool

#endif
