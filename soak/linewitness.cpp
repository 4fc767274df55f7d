// A witness of the panel's serial line: preloaded into the panel (LD_PRELOAD, ld.so(8)), it writes down every
// call that the panel makes on /dev/ttyS0, and changes nothing.
//
// The file that LINE_WITNESS names gets one line for each call, written at once: the monotonic clock's
// seconds, what was called, its result, and the bytes.
//
//     8127.310021 opened 9
//     8127.612402 read 39 7f a0 b0 ff ...
//     8127.622519 wrote 4 4 00 67 6e 50        (asked for 4 bytes, 4 were taken)
//     8129.104377 closed 9
//
// No memory is allocated, and the file is the one descriptor more that the panel holds. The calls go on to
// whoever would have had them otherwise: the C library, or a sanitizer in front of it.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr const char* line_path = "/dev/ttyS0";
constexpr std::size_t most_bytes = 256;  // of one call that are written down
constexpr std::size_t text_size = 64 + 3 * most_bytes;

template <typename Function>
Function* next(const char* symbol) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
}

std::atomic<int> line{-1};  // the panel's descriptor of its line

int journal() {
    static const int opened = [] {
        const char* path = std::getenv("LINE_WITNESS");
        constexpr int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
        return path == nullptr ? -1 : static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0644));
    }();
    return opened;
}

// Writes one line: the time, `what`, and the bytes.
void note(const char* what, long number, const void* bytes = nullptr, long count = 0) {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::array<char, text_size> text;
    int length = std::snprintf(text.data(), text.size(), "%ld.%06ld %s %ld", static_cast<long>(now.tv_sec),
                               now.tv_nsec / 1000, what, number);
    const auto* byte = static_cast<const unsigned char*>(bytes);
    for (long i = 0; i < count && i < static_cast<long>(most_bytes); ++i) {
        const std::size_t at = static_cast<std::size_t>(length);
        length += std::snprintf(text.data() + at, text.size() - at, " %02x", static_cast<unsigned>(byte[i]));
    }
    text[static_cast<std::size_t>(length)] = '\n';
    syscall(SYS_write, journal(), text.data(), static_cast<std::size_t>(length) + 1);
}

// Opens `path` with the function that would have been called without the witness.
int open_and_note(const char* symbol, const char* path, int flags, unsigned mode) {
    const int opened = next<int(const char*, int, ...)>(symbol)(path, flags, mode);
    if (opened > 0 && std::strcmp(path, line_path) == 0) {
        line = opened;
        note("opened", opened);
    }
    return opened;
}

unsigned mode_of(int flags, va_list arguments) {
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? va_arg(arguments, unsigned) : 0;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = mode_of(flags, arguments);
    va_end(arguments);
    return open_and_note("open", path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = mode_of(flags, arguments);
    va_end(arguments);
    return open_and_note("open64", path, flags, mode);
}

int close(int descriptor) {
    if (descriptor > 0 && descriptor == line) {
        line = -1;
        note("closed", descriptor);
    }
    static const auto next_close = next<int(int)>("close");
    return next_close(descriptor);
}

ssize_t read(int descriptor, void* buffer, size_t size) {
    static const auto next_read = next<ssize_t(int, void*, size_t)>("read");
    const ssize_t count = next_read(descriptor, buffer, size);
    if (descriptor == line) {
        note("read", count, buffer, count);
    }
    return count;
}

ssize_t write(int descriptor, const void* buffer, size_t size) {
    static const auto next_write = next<ssize_t(int, const void*, size_t)>("write");
    const ssize_t count = next_write(descriptor, buffer, size);
    if (descriptor == line) {
        char what[32];
        std::snprintf(what, sizeof what, "wrote %zu", size);
        note(what, count, buffer, static_cast<long>(size));
    }
    return count;
}

}  // extern "C"
