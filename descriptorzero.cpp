#include "descriptorzero.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

bool is_free(int descriptor) {
    return fcntl(descriptor, F_GETFD) == -1 && errno == EBADF;
}

// Takes the lowest free descriptor: 0 if that is free.
int open_null_device() {
    return ::open("/dev/null", O_RDWR);
}

void close_unless_zero(int descriptor) {
    if (descriptor > STDIN_FILENO) {
        ::close(descriptor);
    }
}

}  // namespace

// Should another thread have taken descriptor 0 just now, it is left alone.
void fill_descriptor_zero() {
    if (is_free(STDIN_FILENO)) {
        close_unless_zero(open_null_device());
    }
}

void put_null_on_descriptor_zero() {
    put_null_on_descriptor(STDIN_FILENO);
}

void put_null_on_descriptor(int descriptor) {
    const int null_device = open_null_device();
    if (null_device != -1 && null_device != descriptor) {
        dup2(null_device, descriptor);
        close_unless_zero(null_device);
    }
}
