/// @file
/// `nodevik monitor`, `nodevik record` and `nodevik decode`: frames shown and kept. Nothing is sent.

#ifndef TOOLS_WATCHCOMMANDS_H
#define TOOLS_WATCHCOMMANDS_H

#include <cstdint>
#include <string>

#include "tools/failure.h"
#include "tools/framepresenter.h"
#include "tools/session.h"

namespace nodevik_tool {

/// When listening to a bus ends by itself.
struct ListenLimits {
    double seconds = 0;           ///< after this time; 0 never
    std::uint64_t max_bytes = 0;  ///< of a recording, before it is longer; 0 never
};

/// Shows the frames of the bus until a limit or a signal comes.
/// @throws Interrupted  the signal, once everything has been told
/// @throws Failure      the bus can no longer be used, or an option is wrong
ExitStatus monitor_bus(const Session& session, const FrameOptions& frames, const ListenLimits& limits);

/// Writes the frames of the bus into a log, as monitor_bus().
/// @param file  name of the log
/// @throws Failure  also when the log cannot be written
ExitStatus record_bus(const Session& session, const std::string& file, const ListenLimits& limits);

/// Shows the frames of a log.
/// @param file  name of the log
/// @throws Failure  it cannot be read
ExitStatus decode_log(const Session& session, const std::string& file, const FrameOptions& frames);

}  // namespace nodevik_tool

#endif
