/// @file
/// A process beside the application that brings the vehicle to rest when the application cannot any more.
///
/// A vehicle keeps its last command. An application that is killed, or crashes, or loses its window system
/// sends nothing more: whoever is to send the last frame then must be somebody else. So `main` forks a small
/// process before the toolkit starts. It has one thread and no display connection, ignores every signal that
/// can be ignored, and does one thing: it waits at its end of a socket pair.
///
///     application                                              guard
///     opens the line     --- opened, and the descriptor --->   holds a copy of the line
///     ...
///     before it closes   ------------- closed ------------->   closes its copy
///                        <------------- done ---------------
///     is gone            ------- end of the socket -------->   sends the neutral frame if it holds a line;
///                                                              ends
///
/// The kernel closes the application's end of the socket when its last thread has ended, however that
/// happened, so what the guard sends then is the last thing on the line. The descriptor travels by SCM_RIGHTS
/// (unix(7)).
///
/// The guard sees the application's end, not its silence: of an application that hangs, or is stopped
/// (SIGSTOP), it knows nothing. Nothing but the vehicle's own watchdog helps against that, or against a
/// machine that loses its power.

#ifndef LINEGUARD_H
#define LINEGUARD_H

#include <sys/types.h>

/// The application's end of its guard. One thread at a time uses it. "The application" is the panel, or the recorder's
/// process that carries the line.
class LineGuard {
public:
    /// Starts the guard's process. The calling process must have one thread only.
    ///
    /// A process that cannot be started is reported on standard error, and the application goes on without
    /// it.
    ///
    /// @param arguments  the second argument of `main`: the guard puts its own name, "lineguard", there for
    ///                   ps(1); nullptr leaves them alone
    /// @param owner      who goes on without it, for what is reported; outlives this object. nullptr is the panel
    explicit LineGuard(char** arguments = nullptr, const char* owner = nullptr);

    /// Lets the guard go, and waits for its end for at most 100 ms. A guard that still holds a line sends the
    /// neutral frame.
    ~LineGuard();

    LineGuard(const LineGuard&) = delete;
    LineGuard& operator=(const LineGuard&) = delete;

    /// Hands an opened line over. The guard holds this one from now on and none that it had before.
    ///
    /// @param line  descriptor of the line; stays the caller's
    void hold(int line);

    /// Tells that the line is about to be closed: the guard closes its copy and will send nothing.
    ///
    /// Waits until it has done so, or for 100 ms, so that the caller's own close is the last one of the line.
    /// Does nothing when no line is held.
    void release();

    /// Looks whether the guard is still there. The first time that it is not, says so on standard error.
    ///
    /// @return whether it is there
    bool look();

    /// The descriptor that becomes readable when the guard ends: a reason to `look`. -1 without a guard.
    int descriptor() const { return socket_; }

private:
    bool tell(char message, int line);
    void lose();
    void reap();

    const char* owner_;
    int socket_ = -1;
    pid_t process_ = -1;  // -1: there is none, or its end has been taken
    bool lost_ = true;    // nothing more is said to the guard
    bool holds_ = false;
};

/// What the guard's process does: follows what it is told on a socket until the other end is gone, and then
/// brings the vehicle to rest if it holds a line.
///
/// It sends the neutral frame as bring_to_rest() does. The copy of the line is closed in the end.
///
/// @param socket  its end of the socket pair; stays the caller's
void guard_line(int socket);

/// Sends the neutral frame: 0, 103, 110, 'P'.
///
/// A line that does not take all of it at once, since its queue is full or its flow stopped, loses what is queued and
/// unsent (tcflush(3)), and the whole frame is tried again for at most 2 s. A line that is hung up gets nothing.
///
/// @param line  descriptor of the line; does not wait from now on (O_NONBLOCK)
/// @return whether the line has taken it
bool bring_to_rest(int line);

#endif
