/// @file
/// Time stamps, counters and time-outs for a polling control loop, and the switch to realtime scheduling.
///
/// A control loop on Linux often polls: it runs pass after pass, does some things on every n-th pass and
/// others once a time has gone by, and never blocks. These functions keep the bookkeeping of such a loop in
/// fixed tables of 32 slots each, addressed by number:
///
/// @code
/// for (;;) {
///     if (timecount(0, 10)) { /* every tenth pass */ }
///     if (timedelay(0, 100)) { /* every 100 ms */ }
///     if (timedelay(1, 2000)) { /* every 2 s */ }
/// }
/// @endcode
///
/// The tables belong to the process and are not locked: one polling thread uses them. Nothing here allocates.

#ifndef NODEVIK_UTIL_MISC_H
#define NODEVIK_UTIL_MISC_H

#include "nodevik/util/export.h"

/// Reads the monotonic clock in milliseconds.
///
/// @return seconds * 1000 + nanoseconds / 1000000, modulo 2^32 (wraps after about 49 days of uptime)
/// @see clock_gettime(2), CLOCK_MONOTONIC
NODEVIK_EXPORT unsigned int get_m_time();

/// Reads the monotonic clock in microseconds.
///
/// @return seconds * 1000000 + nanoseconds / 1000, modulo 2^32 (wraps after about 71 minutes of uptime)
/// @see clock_gettime(2), CLOCK_MONOTONIC
NODEVIK_EXPORT unsigned int get_u_time();

/// Counts passes: true on every @p n-th call for a counter.
///
/// With n = 3 the results are 0, 0, 1, 0, 0, 1, ...; with n of 1 or less every call returns 1.
///
/// @param loop  number of the counter, 0 to 31; 32 and above print "timecount: loopnumber is too large". A
///              negative number passes that test and stands for its low five bits.
/// @param n     calls per period
/// @return 1 when the period is full, else 0; 0 for a number that is too large
NODEVIK_EXPORT int timecount(int loop, int n);

/// Starts the period of a counter anew: the next timecount() takes its n afresh.
///
/// @param loop  number of the counter, 0 to 31; 32 and above print "resettimecount: loopnumber is too large".
///              A negative number passes that test and stands for its low five bits.
NODEVIK_EXPORT void resettimecount(int loop);

/// Keeps a time-out without blocking: arms itself on the first call and is true once when the time is up.
///
/// All deadlines share one time stamp, which is read from the clock once per pass: when a call comes for a
/// deadline while a *different* one has been asked for since the last reading. A pass over several deadlines
/// thus sees one time. A program that polls one deadline alone never gets a new reading, and its time-out
/// never comes: poll at least two.
///
/// @param number  number of the deadline, 0 to 31; others print "timedelay: delaynumber is too large"
/// @param ms      time-out in milliseconds, taken when the deadline is armed
/// @return 1 when the time is up (the next call arms it again), else 0; 0 for a bad number
NODEVIK_EXPORT int timedelay(unsigned int number, unsigned int ms);

/// Disarms a deadline: the next timedelay() arms it anew.
///
/// @param number  number of the deadline, 0 to 31; 32 and above print "resettimedelay: delaynumber is too
///                large". A negative number passes that test and stands for its low five bits.
NODEVIK_EXPORT void resettimedelay(int number);

/// Puts the calling process under realtime scheduling (SCHED_FIFO).
///
/// @param below_max  how far its priority stays below the highest one of SCHED_FIFO, 0 to 98 on Linux
/// @return 0, or -1 after printing the system's error on standard error, headed by "Error -
///         sched_setscheduler()"
/// @see sched_setscheduler(2); needs root, CAP_SYS_NICE or a limit RLIMIT_RTPRIO
NODEVIK_EXPORT int set_realtime_schduling(int below_max);

#endif
