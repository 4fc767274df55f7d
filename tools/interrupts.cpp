#include "tools/interrupts.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
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

std::atomic<bool> has_come{false};  // a signal, and was waited for

bool is_ignored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

// The signals that end a command.
sigset_t ending_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    if (!is_ignored(SIGHUP)) {
        sigaddset(&set, SIGHUP);  // nohup(1) has it ignored, also while it is blocked
    }
    return set;
}

void end_at_once(int /*signal*/) {
    _exit(static_cast<int>(ExitStatus::interrupted));
}

}  // namespace

Interrupts::Interrupts() {
    std::signal(SIGPIPE, SIG_IGN);
    has_come = false;
    const sigset_t set = ending_signals();
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
            has_come = true;
            throw Interrupted();
        }
        if ((entries[2].revents & POLLERR) != 0) {
            throw ClosedPipe();
        }
        return entries[1].revents;
    }
}

bool signal_has_come() {
    sigset_t pending;
    return has_come || (sigpending(&pending) == 0 &&
                        (sigismember(&pending, SIGINT) == 1 || sigismember(&pending, SIGTERM) == 1 ||
                         sigismember(&pending, SIGHUP) == 1));
}

SuddenEnd::SuddenEnd() {
    const sigset_t set = ending_signals();
    for (std::size_t i = 0; i < signals.size(); ++i) {
        struct sigaction action {};
        action.sa_handler = end_at_once;
        const bool is_wanted = sigismember(&set, signals[i]) == 1;
        sigaction(signals[i], is_wanted ? &action : nullptr, &actions_[i]);
    }
    sigprocmask(SIG_UNBLOCK, &set, &mask_);
}

SuddenEnd::~SuddenEnd() {
    sigprocmask(SIG_SETMASK, &mask_, nullptr);
    for (std::size_t i = 0; i < signals.size(); ++i) {
        sigaction(signals[i], &actions_[i], nullptr);
    }
}

}  // namespace nodevik_tool
