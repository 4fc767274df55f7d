/// @file
/// Why a command of a program cannot go on.

#ifndef PROGRAM_FAILURE_H
#define PROGRAM_FAILURE_H

#include <stdexcept>
#include <string>

#include "program/exitstatus.h"

namespace program {

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

}  // namespace program

#endif
