#include "descriptorzero.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

bool is_free(int descriptor) {
    return fcntl(descriptor, F_GETFD) == -1 && errno == EBADF;
}

// The lowest free descriptor: 0 if that is free, and unless another thread takes it first.
int open_null() {
    return ::open("/dev/null", O_RDWR);
}

}  // namespace

void fill_descriptor_zero() {
    if (!is_free(STDIN_FILENO)) {
        return;
    }
    const int null_device = open_null();
    if (null_device > STDIN_FILENO) {
        ::close(null_device);
    }
}

void put_null_on_descriptor_zero() {
    const int null_device = open_null();
    if (null_device > STDIN_FILENO) {
        dup2(null_device, STDIN_FILENO);
        ::close(null_device);
    }
}
