#include "tools/interrupts.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "nodevik/util/monotonicclock.h"
#include "tools/failure.h"

namespace nodevik_tool {

namespace {

timespec time_until(std::uint64_t deadline_ns, std::uint64_t now_ns) {
    constexpr std::uint64_t nanoseconds = 1'000'000'000;
    const std::uint64_t left_ns = deadline_ns > now_ns ? deadline_ns - now_ns : 0;
    return {static_cast<time_t>(left_ns / nanoseconds), static_cast<long>(left_ns % nanoseconds)};
}

}  // namespace

Interrupts::Interrupts() {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    struct sigaction hang_up {};
    if (sigaction(SIGHUP, nullptr, &hang_up) == 0 && hang_up.sa_handler != SIG_IGN) {
        sigaddset(&set, SIGHUP);  // nohup(1) has it ignored, also while it is blocked
    }
    sigprocmask(SIG_BLOCK, &set, nullptr);
    descriptor_ = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    if (descriptor_ < 0) {
        throw Failure(ExitStatus::no_bus, std::string("no descriptor for signals: ") + std::strerror(errno));
    }
}

Interrupts::~Interrupts() {
    close(descriptor_);
}

short Interrupts::wait(int descriptor, short events, std::uint64_t deadline_ns, int results) const {
    for (;;) {
        std::array<pollfd, 3> entries{{{descriptor_, POLLIN, 0}, {descriptor, events, 0}, {results, 0, 0}}};
        const timespec left = time_until(deadline_ns, monotonic_ns());
        const int count =
            ppoll(entries.data(), entries.size(), deadline_ns == no_deadline ? nullptr : &left, nullptr);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (entries[0].revents != 0) {
            signalfd_siginfo signal{};
            [[maybe_unused]] const ssize_t taken = read(descriptor_, &signal, sizeof signal);
            throw Interrupted();
        }
        if ((entries[2].revents & POLLERR) != 0) {
            throw ClosedPipe();
        }
        return entries[1].revents;
    }
}

}  // namespace nodevik_tool
