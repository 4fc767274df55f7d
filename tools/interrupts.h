/// @file
/// SIGINT, SIGTERM and SIGHUP as something that can be waited for together with a bus.

#ifndef TOOLS_INTERRUPTS_H
#define TOOLS_INTERRUPTS_H

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

}  // namespace nodevik_tool

#endif
