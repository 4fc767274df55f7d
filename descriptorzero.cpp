#include "descriptorzero.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

bool is_free(int descriptor) {
    return fcntl(descriptor, F_GETFD) == -1 && errno == EBADF;
}

// Opens the null device, which takes the lowest free descriptor: 0 if that is free. If it is taken, by
// another thread just now perhaps, it is replaced or left alone.
void open_null_device(bool replace) {
    const int null_device = ::open("/dev/null", O_RDWR);
    if (null_device > STDIN_FILENO) {
        if (replace) {
            dup2(null_device, STDIN_FILENO);
        }
        ::close(null_device);
    }
}

}  // namespace

void fill_descriptor_zero() {
    if (is_free(STDIN_FILENO)) {
        open_null_device(false);
    }
}

void put_null_on_descriptor_zero() {
    open_null_device(true);
}
