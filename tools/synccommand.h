/// @file
/// `nodevik sync`: SYNC messages in a period (CiA 301, 7.2.5).

#ifndef TOOLS_SYNCCOMMAND_H
#define TOOLS_SYNCCOMMAND_H

#include <cstdint>

#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// What the command line says about SYNC.
struct SyncArguments {
    double period_ms = 0;     ///< greater than 0
    std::uint64_t count = 0;  ///< how many; 0 until a signal comes
};

/// Sends a SYNC at once and then one in each period. A period in which the machine did not come to it passes without
/// one: two are never sent close to each other to catch up.
/// @throws Interrupted  a signal has come, once it has been told how many were sent
/// @throws Failure      the bus takes no more
ExitStatus produce_sync(const Session& session, const SyncArguments& arguments);

}  // namespace nodevik_tool

#endif
