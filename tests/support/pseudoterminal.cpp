#include "tests/support/pseudoterminal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

int remaining_ms(Clock::time_point end) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::abort();
}

}  // namespace

PseudoTerminal::PseudoTerminal() : far_end_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    char name[128];
    if (far_end_ < 0 || grantpt(far_end_) != 0 || unlockpt(far_end_) != 0 ||
        ptsname_r(far_end_, name, sizeof name) != 0) {
        fail("pseudo-terminal");
    }
    path_ = name;
    keeper_ = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (keeper_ < 0) {
        fail(name);
    }
}

PseudoTerminal::~PseudoTerminal() {
    hang_up();
    ::close(keeper_);
}

void PseudoTerminal::send(const std::string& bytes) const {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::write(far_end_, bytes.data() + sent, bytes.size() - sent);
        if (count < 0) {
            fail("write to the pseudo-terminal");
        }
        sent += static_cast<std::size_t>(count);
    }
}

std::string PseudoTerminal::receive(std::size_t count, int limit_ms) const {
    const auto end = Clock::now() + std::chrono::milliseconds(limit_ms);
    std::string bytes;
    while (bytes.size() < count) {
        pollfd waiting = {far_end_, POLLIN, 0};
        if (poll(&waiting, 1, remaining_ms(end)) <= 0) {
            break;
        }
        char block[256];
        const std::size_t room = count - bytes.size() < sizeof block ? count - bytes.size() : sizeof block;
        const ssize_t got = ::read(far_end_, block, room);
        if (got <= 0) {
            break;
        }
        bytes.append(block, static_cast<std::size_t>(got));
    }
    return bytes;
}

termios PseudoTerminal::attributes() const {
    termios now = {};
    if (tcgetattr(keeper_, &now) != 0) {
        fail("tcgetattr");
    }
    return now;
}

bool PseudoTerminal::wait_readable(int near_end, int count, int limit_ms) const {
    const auto end = Clock::now() + std::chrono::milliseconds(limit_ms);
    for (;;) {
        int waiting = 0;
        if (ioctl(near_end, FIONREAD, &waiting) == 0 && waiting >= count) {
            return true;
        }
        if (Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void PseudoTerminal::hang_up() {
    if (far_end_ >= 0) {
        ::close(far_end_);
        far_end_ = -1;
    }
}
