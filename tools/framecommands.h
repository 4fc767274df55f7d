/// @file
/// `nodevik nmt` and `nodevik send`: single frames.

#ifndef TOOLS_FRAMECOMMANDS_H
#define TOOLS_FRAMECOMMANDS_H

#include <array>
#include <string>

#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// A frame as candump and cansend write it.
struct WrittenFrame {
    unsigned int identifier = 0;
    bool extended = false;  ///< 29 bits
    bool remote = false;    ///< a remote request
    unsigned int length = 0;
    std::array<unsigned char, 8> data{};
};

/// Takes "185#0102", "18DAF110#00" (29 bits), "705#R" or "705#R1" (remote requests) apart. Dots between bytes do not
/// count.
/// @throws Failure  it is no frame
WrittenFrame parse_frame(const std::string& text);

/// Sends an NMT command (CiA 301, 7.2.8.3.1).
/// @param command  "start", "stop", "preop", "reset" or "reset-comm"
/// @param node     1 to 127, or 0 for all
/// @throws Failure  the bus does not take it
ExitStatus send_nmt(const Session& session, const std::string& command, unsigned int node);

/// Sends a frame.
/// @param text  the frame, see parse_frame()
/// @throws Failure  it is none, would be an NMT command, or the bus does not take it
ExitStatus send_frame(const Session& session, const std::string& text);

}  // namespace nodevik_tool

#endif
