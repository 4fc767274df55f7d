/// @file
/// The signals of a session in which a program is run.

#ifndef RECORDER_HELDSIGNALS_H
#define RECORDER_HELDSIGNALS_H

#include <sys/signalfd.h>
#include <sys/types.h>

#include <csignal>
#include <optional>

#include "recorder/descriptor.h"

namespace vehicle_recorder {

/// While an object exists, the signals that are meant for the program (SIGINT, SIGTERM, SIGHUP, SIGQUIT) and those that
/// tell of children are held back and read instead; SIGPIPE and SIGTTOU do nothing. The ends of children are told even
/// where whoever started this process had them ignored (SIGCHLD, waitpid(2)).
class HeldSignals {
public:
    /// @throws program::Failure  no_bus: the system has no descriptor left
    HeldSignals();
    ~HeldSignals() { restore(); }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    /// Readable when a signal has come.
    int descriptor() const { return descriptor_.get(); }

    /// The next signal that has come; none when none has.
    std::optional<signalfd_siginfo> next() const;

    /// Has all be as it was before: for the process that is to become the program.
    void restore() const;

private:
    sigset_t earlier_ = {};
    struct sigaction earlier_of_children_ = {};
    Descriptor descriptor_;
};

/// Passes a signal on to a program, unless it came from the terminal, which sends it to all of the job, the program
/// included. That it was hung up (SIGHUP) a terminal tells its session's leader alone: if this process is the one, as in
/// a terminal's window that was opened for it, it passes that on, too.
void pass_on(const signalfd_siginfo& signal, pid_t program);

}  // namespace vehicle_recorder

#endif
