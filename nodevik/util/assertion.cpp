#include "nodevik/util/assertion.h"

#include <cstdio>
#include <cstdlib>

void nodevik_assertion_failed(const char* unit, const char* expression) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s: Assertion failed: %s\n", unit, expression);
    std::abort();
}
