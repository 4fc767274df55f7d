/// @file
/// The gauges' assertion: always on, in release builds too.

#ifndef WIDGETS_ASSERTION_H
#define WIDGETS_ASSERTION_H

#include <cstdio>
#include <cstdlib>

/// Ends the process because a condition that the gauges rely on does not hold.
///
/// Prints "<unit>: Assertion failed: <expression>" and a newline on standard error, then calls abort(3).
///
/// @param unit        source unit, its path without the ending, e.g. "widgets/manometer"
/// @param expression  the condition's text, word for word
[[noreturn]] inline void gauges_assertion_failed(const char* unit, const char* expression) {
    std::fprintf(stderr, "%s: Assertion failed: %s\n", unit, expression);
    std::abort();
}

/// Checks @p expression under the name @p text and ends the process when it does not hold.
#define GAUGES_ASSERT_AS(unit, expression, text) \
    ((expression) ? static_cast<void>(0) : gauges_assertion_failed((unit), (text)))

/// Checks @p expression, named by its own text, and ends the process when it does not hold.
#define GAUGES_ASSERT(unit, expression) GAUGES_ASSERT_AS(unit, expression, #expression)

#endif
