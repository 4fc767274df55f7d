/// @file
/// Why a command cannot go on.

#ifndef TOOLS_FAILURE_H
#define TOOLS_FAILURE_H

#include <stdexcept>
#include <string>

#include "program/exitstatus.h"

namespace nodevik_tool {

using program::ExitStatus;

/// Thrown by a command that cannot go on: one line for standard error, and the exit status.
class Failure : public std::runtime_error {
public:
    /// @param status   the exit status
    /// @param message  what is wrong and what to do about it, without a line end
    Failure(ExitStatus status, const std::string& message) : std::runtime_error(message), status_(status) {}

    /// The exit status.
    ExitStatus status() const { return status_; }

private:
    ExitStatus status_;
};

/// Thrown when SIGINT or SIGTERM has come.
struct Interrupted {};

/// Thrown when nobody reads the results any more.
struct ClosedPipe {};

}  // namespace nodevik_tool

#endif
