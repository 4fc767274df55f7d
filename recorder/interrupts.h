/// @file
/// Ctrl-C and the like while a recording is read: what is half done is cleared away before the program ends.

#ifndef RECORDER_INTERRUPTS_H
#define RECORDER_INTERRUPTS_H

#include <csignal>

namespace vehicle_recorder {

/// While an object exists SIGINT, SIGTERM and SIGHUP wait until somebody asks for them, and SIGPIPE is ignored, so that a
/// closed pipe is told by write(2). One object at a time.
class Interrupts {
public:
    Interrupts();
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /// Looks whether one of the signals has come.
    /// @throws program::Interrupted  it has
    void check() const;

    /// Waits until a descriptor takes bytes.
    /// @throws program::Interrupted  one of the signals came first
    void wait_for_room(int descriptor) const;

private:
    sigset_t ending_ = {};
    sigset_t earlier_ = {};
    struct sigaction earlier_pipe_ = {};
    int signals_ = -1;  // becomes readable when one has come
};

}  // namespace vehicle_recorder

#endif
