#include "recorder/interrupts.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "program/failure.h"

namespace vehicle_recorder {

Interrupts::Interrupts() {
    sigemptyset(&ending_);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&ending_, number);
    }
    sigprocmask(SIG_BLOCK, &ending_, &earlier_);
    signals_ = signalfd(-1, &ending_, SFD_CLOEXEC);
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &earlier_pipe_);
}

Interrupts::~Interrupts() {
    if (signals_ >= 0) {
        close(signals_);
    }
    sigaction(SIGPIPE, &earlier_pipe_, nullptr);
    sigprocmask(SIG_SETMASK, &earlier_, nullptr);
}

void Interrupts::check() const {
    const timespec at_once = {};
    if (sigtimedwait(&ending_, nullptr, &at_once) > 0) {
        throw program::Interrupted();
    }
}

void Interrupts::wait_for_room(int descriptor) const {
    std::array<pollfd, 2> entries = {{{descriptor, POLLOUT, 0}, {signals_, POLLIN, 0}}};
    while (poll(entries.data(), entries.size(), -1) < 0 && errno == EINTR) {
    }
    check();
}

}  // namespace vehicle_recorder
