/// @file
/// What every command has at hand.

#ifndef TOOLS_SESSION_H
#define TOOLS_SESSION_H

#include <string>
#include <vector>

#include "tools/bus.h"
#include "tools/interrupts.h"
#include "tools/output.h"

namespace nodevik_tool {

/// What stands before the command, or among its options.
struct CommonOptions {
    BusOptions bus;
    bool json = false;
    bool quiet = false;             ///< no progress
    unsigned int timeout_ms = 500;  ///< longest wait for an answer
    std::vector<std::string> eds;   ///< "FILE" or "NODE=FILE"
};

/// What a command works with.
struct Session {
    const CommonOptions& options;
    const LibraryReports& reports;
    const Interrupts& interrupts;
    Output& output;
};

}  // namespace nodevik_tool

#endif
