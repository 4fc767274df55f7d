/// @file
/// Platform helpers: waiting, and the common way to report an error.
///
/// Polling code waits with u_sleep() or m_sleep(): the processor is offered to others first, even when no
/// time is to pass, so that a loop around a non-blocking read stays friendly. Library code that finds a fault
/// prints it with show_error() and leaves to its caller whether the process ends.

#ifndef NODEVIK_ARCH_H
#define NODEVIK_ARCH_H

#include "nodevik/util/export.h"

/// Yields the processor (sched_yield(2)), then sleeps @p t microseconds with one nanosleep(2).
///
/// A signal that interrupts the sleep ends it: the rest is not slept. The ticks of a timer with a handler do
/// so.
///
/// @param t  microseconds; 0 is a pure yield, without any sleep
NODEVIK_EXPORT void u_sleep(unsigned int t);

/// Yields the processor (sched_yield(2)), then sleeps @p t milliseconds with one nanosleep(2).
///
/// A signal that interrupts the sleep ends it: the rest is not slept. The ticks of a timer with a handler do
/// so.
///
/// @param t  milliseconds; 0 is a pure yield, without any sleep
NODEVIK_EXPORT void m_sleep(unsigned int t);

/// Prints "Virhe: ", the formatted text and one newline to standard output, and returns.
///
/// The process is not ended. The newline is always added, also after a text that has one of its own.
///
/// @param fmt  format and further arguments as of printf(3)
NODEVIK_EXPORT [[gnu::format(printf, 1, 2)]] void show_error(const char* fmt, ...);

#endif
