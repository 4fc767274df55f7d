/// @file
/// The clock that deadlines are told by.
///
/// Whatever waits for a time tells when it is next to be looked at, as nanoseconds of CLOCK_MONOTONIC
/// (clock_gettime(2)): the clock that no one sets. A loop asks every part of the program for its deadline,
/// waits with poll(2) until the first of them or until a frame comes, and tells each part the time:
///
/// @code
/// pollfd bus{driver.descriptor(), POLLIN, 0};
/// poll(&bus, 1, milliseconds_until(watch.next_deadline(monotonic_ns()), monotonic_ns()));
/// watch.process(monotonic_ns());
/// @endcode

#ifndef NODEVIK_UTIL_MONOTONICCLOCK_H
#define NODEVIK_UTIL_MONOTONICCLOCK_H

#include <cstdint>

#include "nodevik/util/export.h"

/// The deadline of something that waits for no time.
inline constexpr std::uint64_t no_deadline = UINT64_MAX;

/// The time: nanoseconds of CLOCK_MONOTONIC.
NODEVIK_EXPORT std::uint64_t monotonic_ns();

/// How long poll(2) may wait for a deadline.
///
/// @param deadline_ns  nanoseconds of CLOCK_MONOTONIC, or no_deadline
/// @param now_ns       the time, nanoseconds of CLOCK_MONOTONIC
/// @return milliseconds, rounded up, so that the deadline has come after the wait; 0 when it has come
///         already; -1, which to poll(2) means "as long as it takes", for no_deadline; at most 2147483647
NODEVIK_EXPORT int milliseconds_until(std::uint64_t deadline_ns, std::uint64_t now_ns);

#endif
