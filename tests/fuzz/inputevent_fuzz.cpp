// The reader of input events, fed with arbitrary bytes in arbitrary cuts by an emulated device.

#include <fcntl.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "nodevik/inputevent.h"
#include "tests/fuzz/fuzzinput.h"

namespace {

int device_ends[2] = {-1, -1};

bool is_event_path(const char* path) {
    return std::strncmp(path, "/dev/event", 10) == 0 || std::strncmp(path, "/dev/input/event", 16) == 0;
}

void wait_until_read() {
    int waiting = 1;
    while (waiting != 0) {
        usleep(10);
        ioctl(device_ends[0], FIONREAD, &waiting);
    }
}

}  // namespace

// Stand in front of the library's calls: the linker puts these in the place of open and ioctl.
extern "C" {
int __real_open(const char* path, int flags, ...);
int __real_ioctl(int descriptor, unsigned long request, ...);

int __wrap_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    if (!is_event_path(path)) {
        return __real_open(path, flags, 0600);
    }
    if (std::strcmp(path, "/dev/input/event0") != 0) {
        errno = ENOENT;
        return -1;
    }
    // Packets keep the cuts in which the bytes are sent.
    return socketpair(AF_UNIX, SOCK_SEQPACKET, 0, device_ends) == 0 ? device_ends[0] : -1;
}

int __wrap_ioctl(int descriptor, unsigned long request, ...);
int __wrap_ioctl(int descriptor, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* target = va_arg(arguments, void*);
    va_end(arguments);
    if (descriptor != device_ends[0] || request == FIONREAD) {
        return __real_ioctl(descriptor, request, target);
    }
    std::memset(target, 0xFF, _IOC_SIZE(request));
    static_cast<char*>(target)[_IOC_SIZE(request) - 1] = '\0';
    return 0;
}
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool started = [] {
        silence_standard_output();
        eventinit();
        return true;
    }();
    static_cast<void>(started);
    FuzzInput input(data, size);
    eventdebugmode(input.byte());
    while (!input.empty()) {
        std::vector<std::uint8_t> cut(1 + input.word() % 600);
        input.bytes(cut);
        send(device_ends[1], cut.data(), cut.size(), 0);
        wait_until_read();
    }
    for (unsigned int code = 0; code < 256; ++code) {
        key(static_cast<unsigned char>(code));
        keydown(static_cast<unsigned char>(code));
        keyup(static_cast<unsigned char>(code));
    }
    return 0;
}
