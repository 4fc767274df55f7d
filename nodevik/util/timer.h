/// @file
/// One POSIX per-process timer on the monotonic clock.
///
/// A timer notifies in one of three ways, chosen by the operation that creates it:
///
/// - init_realtime_timer(): a blocked realtime signal that a loop waits for, tick by tick, with
/// wait_signal();
/// - set_sigfunction(): a signal handler;
/// - set_function(): a function started in a new thread at each expiry.
///
/// Then a setter chooses the time (set_relative(), set_absolute(), set_interval()) and start() arms it:
///
/// @code
/// timer tick;
/// tick.init_realtime_timer(1);
/// tick.set_interval(1000);
/// tick.start();
/// for (;;) {
///     tick.wait_signal();
///     // once per millisecond
/// }
/// @endcode
///
/// @par More than one thread, or more than one timer
/// The signal of init_realtime_timer() is sent to the process, not to a thread. A thread in which it is not
/// blocked may get it, and as nothing handles it, it ends the process ("Real-time signal 29"). And each call
/// unblocks the signals of the timers before. So set up all timers in main() before the first thread starts,
/// then block all their signals once more, and start them only after that; threads inherit the mask and wait
/// with wait_signal():
///
/// @code
/// control.init_realtime_timer(1);
/// display.init_realtime_timer(2);
/// sigset_t ticks;
/// sigemptyset(&ticks);
/// sigaddset(&ticks, SIGRTMAX - 1);
/// sigaddset(&ticks, SIGRTMAX - 2);
/// pthread_sigmask(SIG_BLOCK, &ticks, nullptr);
/// @endcode
///
/// Failures of the system calls end the process with status 1 after a line on standard error; only the wait
/// operations report and go on.

#ifndef NODEVIK_UTIL_TIMER_H
#define NODEVIK_UTIL_TIMER_H

#include <csignal>
#include <ctime>

#include "nodevik/util/export.h"

/// A timer on CLOCK_MONOTONIC. All times are microseconds, 0 to 2^32 - 1 (about 71 minutes).
///
/// @see timer_create(2), timer_settime(2), sigwaitinfo(2)
class NODEVIK_EXPORT timer {
public:
    /// Reads and prints the clock's resolution: "Clock resolution %li sec %li nsec\n". No system timer exists
    /// yet.
    ///
    /// Ends the process with status 1 when the resolution cannot be read ("clock_getres ").
    timer();

    /// Stops and deletes the system timer, and restores the signal action that the creating operation
    /// replaced.
    ~timer();

    timer(const timer&) = delete;
    timer& operator=(const timer&) = delete;

    /// Signal-and-wait mode: the expiries are taken by wait_signal() and wait_signal_time().
    ///
    /// Replaces the *whole* signal mask of the calling thread by the timer's signal alone (other blocked
    /// signals, those of other timers too, are unblocked): call it in the thread that will wait, or in main()
    /// before that thread is created, which inherits the mask. Every thread of the process has to block the
    /// signal, or the first tick that it gets ends the process.
    ///
    /// @param priority  the timer's signal is SIGRTMAX - @p priority
    void init_realtime_timer(int priority);

    /// Handler mode: @p f is called as the handler of SIGRTMAX at each expiry.
    ///
    /// A tick cuts the sleep of u_sleep() and m_sleep() short and interrupts other system calls (EINTR), in
    /// whatever thread it arrives.
    ///
    /// @param f  handler; only what signal-safety(7) allows may be called in it. func() is one that does
    ///           nothing.
    void set_sigfunction(void (*f)(int, siginfo_t*, void*));

    /// Thread mode: @p f is started in a new thread at each expiry.
    ///
    /// @param f  function to start
    void set_function(void (*f)());

    /// Chooses one expiry @p us microseconds after start().
    void set_relative(unsigned int us);

    /// Chooses one expiry @p us microseconds after this call, as an absolute time: the time that passes until
    /// start() counts.
    void set_absolute(unsigned int us);

    /// Chooses periodic expiries every @p us microseconds, the first one period after start().
    void set_interval(unsigned int us);

    /// The time to the first expiry that was chosen, in microseconds modulo 2^32; after set_absolute() the
    /// clock time.
    unsigned int get_interval_time();

    /// Arms the timer with the chosen time.
    void start();

    /// Disarms the timer and forgets the chosen time: start() after stop() needs a setter call in between.
    void stop();

    /// Expiries that the last notification stands for beyond the first.
    ///
    /// @see timer_getoverrun(2)
    int get_overrun();

    /// Waits for the next expiry. When #waitover is positive, clears it and returns at once instead.
    ///
    /// @return the signal's number, 0 for a skipped wait, or -1 after a report on standard error ("Error !
    ///         timer::wait")
    /// @pre init_realtime_timer() was called in this thread
    int wait_signal();

    /// Waits for the next expiry, @p us microseconds at most.
    ///
    /// @return the signal's number, or -1 after a report on standard error ("timer::sigtimedwait "), also
    ///         when the time is over
    /// @pre init_realtime_timer() was called in this thread
    int wait_signal_time(unsigned int us);

protected:
    itimerspec itsp{};       ///< the times that start() hands to the system
    timespec resolution{};   ///< the clock's resolution
    timespec timeout{};      ///< time-out of wait_signal_time()
    sigevent se{};           ///< how the timer notifies
    struct sigaction sa {};  ///< action installed for the signal; its mask is the set that the waits wait for
    struct sigaction oldsa {};  ///< the action that it replaced
    timer_t ctimer{};           ///< the system timer, zero until one is created
    int settime_flags = 0;      ///< 0 for a relative time, TIMER_ABSTIME for an absolute one

public:
    /// When positive, the next wait_signal() returns 0 at once and clears it. Only the owner sets it, to let
    /// a loop pass once without waiting.
    int waitover = 0;

protected:
    int signal_priority = 0;  ///< offset of the timer's signal below SIGRTMAX

private:
    NODEVIK_LOCAL void create_system_timer(const char* failure);
    NODEVIK_LOCAL void set_times(const char* failure, int flags);

    bool created = false;  // the system's first timer may well be number zero
};

/// A signal handler that does nothing, for timer::set_sigfunction().
NODEVIK_EXPORT void func(int signal, siginfo_t* info, void* context);

#endif
