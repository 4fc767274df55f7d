// Preloaded into the panel (LD_PRELOAD, ld.so(8)): as soon as the file that UNREADABLE_LINE names exists, no terminal
// can be read any more, as when a serial adapter's driver fails. Writing goes on.

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

extern "C" ssize_t read(int descriptor, void* buffer, size_t size) {
    using Read = ssize_t(int, void*, size_t);
    static auto* const next_read = reinterpret_cast<Read*>(dlsym(RTLD_NEXT, "read"));
    static const char* const sign = std::getenv("UNREADABLE_LINE");
    if (sign != nullptr && isatty(descriptor) != 0 && access(sign, F_OK) == 0) {
        errno = EIO;
        return -1;
    }
    return next_read(descriptor, buffer, size);
}
