#include "nodevik/arch.h"

#include <sched.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace {

// Yields, then sleeps unless the duration is zero.
void yield_and_sleep(const timespec& duration) {
    sched_yield();
    if (duration.tv_sec != 0 || duration.tv_nsec != 0) {
        nanosleep(&duration, nullptr);
    }
}

}  // namespace

void u_sleep(unsigned int t) {
    yield_and_sleep({.tv_sec = t / 1000000U, .tv_nsec = static_cast<long>(t % 1000000U) * 1000L});
}

void m_sleep(unsigned int t) {
    yield_and_sleep({.tv_sec = t / 1000U, .tv_nsec = static_cast<long>(t % 1000U) * 1000000L});
}

void show_error(const char* fmt, ...) {
    std::printf("Virhe: ");
    std::va_list arguments;
    va_start(arguments, fmt);
    std::vprintf(fmt, arguments);
    va_end(arguments);
    std::putchar('\n');
}
