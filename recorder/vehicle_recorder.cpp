// The black box of the vehicle's line.

#include <fcntl.h>
#include <unistd.h>

#include "recorder/command.h"

namespace {

// A standard descriptor that is closed must not become that of a file, which would get what is printed. In its place
// stands one that can be read to its end at once, and written to as little as the closed one.
void hold_standard_descriptors() {
    int descriptor = 0;
    while ((descriptor = open("/dev/null", O_RDONLY)) >= 0 && descriptor <= STDERR_FILENO) {
    }
    if (descriptor > STDERR_FILENO) {
        close(descriptor);
    }
}

}  // namespace

int main(int argc, char** argv) {
    hold_standard_descriptors();
    return vehicle_recorder::run_command({argv + (argc > 0 ? 1 : 0), argv + argc});
}
