// Preloaded into a program that is to get no pseudo-terminal: it is told what a system without devpts tells.

#include <stdlib.h>

#include <cerrno>

extern "C" int posix_openpt(int /*flags*/) {
    errno = ENOENT;
    return -1;
}
