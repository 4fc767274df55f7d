/// @file
/// The library's assertion: always on, in release builds too.

#ifndef NODEVIK_UTIL_ASSERTION_H
#define NODEVIK_UTIL_ASSERTION_H

#include "nodevik/util/export.h"

/// Ends the process because a condition that the library relies on does not hold.
///
/// Prints "<unit>: Assertion failed: <expression>" and a newline on standard error, then calls abort(3).
///
/// @param unit        source unit, its path without the ending, e.g. "nodevik/canopen"
/// @param expression  the condition's text, word for word
NODEVIK_EXPORT [[noreturn]] void nodevik_assertion_failed(const char* unit, const char* expression);

/// Checks @p expression under the name @p text and ends the process when it does not hold.
#define NODEVIK_ASSERT_AS(unit, expression, text) \
    ((expression) ? static_cast<void>(0) : nodevik_assertion_failed((unit), (text)))

/// Checks @p expression, named by its own text, and ends the process when it does not hold.
#define NODEVIK_ASSERT(unit, expression) NODEVIK_ASSERT_AS(unit, expression, #expression)

#endif
