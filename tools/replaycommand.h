/// @file
/// `nodevik replay`: the frames of a log sent again.

#ifndef TOOLS_REPLAYCOMMAND_H
#define TOOLS_REPLAYCOMMAND_H

#include <cstdint>
#include <string>

#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// What the command line says about sending a log.
struct ReplayArguments {
    std::string file;         ///< the log
    std::string identifiers;  ///< "0x181", "0x180-0x1FF"; empty for all
    double speed = 1;         ///< 2 twice as fast as it was; 0 as fast as the bus takes it
    std::uint64_t loops = 1;  ///< how often; 0 until a signal comes
    bool nmt = false;         ///< NMT commands too
};

/// Sends the frames of a log with the times between them.
///
/// NMT commands are left out unless they are asked for, and so is what the bus has no room for; both are told. A log
/// whose time goes back goes on at once.
///
/// @throws Failure      the log cannot be read, or the bus does not take a frame
/// @throws Interrupted  a signal has come, once it has been told how far it came
ExitStatus replay_log(const Session& session, const ReplayArguments& arguments);

}  // namespace nodevik_tool

#endif
