/// @file
/// SIGINT, SIGTERM and SIGHUP as something that can be waited for together with a bus.

#ifndef TOOLS_INTERRUPTS_H
#define TOOLS_INTERRUPTS_H

#include <array>
#include <csignal>
#include <cstdint>

namespace nodevik_tool {

/// Has SIGINT, SIGTERM and SIGHUP come through a descriptor (signalfd(2)) from construction on, but SIGHUP not when the
/// program was started with it ignored (nohup(1)); and SIGPIPE ignored, so that a closed pipe is told by write(2).
class Interrupts {
public:
    Interrupts();
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /// Waits until something can be read or written, or a deadline comes.
    ///
    /// @param descriptor   what is waited for; -1 for nothing but the deadline
    /// @param events       of poll(2)
    /// @param deadline_ns  nanoseconds of CLOCK_MONOTONIC, or no_deadline
    /// @param results      a pipe whose reader may go meanwhile; -1 none
    /// @return the events that came, 0 at the deadline
    /// @throws Interrupted  when a signal has come
    /// @throws ClosedPipe   when nobody reads the results any more
    short wait(int descriptor, short events, std::uint64_t deadline_ns, int results = -1) const;

private:
    int descriptor_;
};

/// Whether one of these signals has come since Interrupts was constructed, waited for or not.
bool signal_has_come();

/// While it is there, one of these signals ends the process at once, with the status 130: for a call that waits for a
/// file or the network where nothing wakes it, and nothing has been done yet that would have to be put right.
class SuddenEnd {
public:
    SuddenEnd();
    ~SuddenEnd();
    SuddenEnd(const SuddenEnd&) = delete;
    SuddenEnd& operator=(const SuddenEnd&) = delete;

private:
    static constexpr std::array<int, 3> signals{SIGINT, SIGTERM, SIGHUP};

    sigset_t mask_{};
    std::array<struct sigaction, signals.size()> actions_{};
};

}  // namespace nodevik_tool

#endif
