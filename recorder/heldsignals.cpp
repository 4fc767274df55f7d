#include "recorder/heldsignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include "program/failure.h"

namespace vehicle_recorder {

namespace {

[[noreturn]] void fail(const char* what) {
    throw program::Failure(program::ExitStatus::no_bus,
                           std::string(what) + " cannot be made: " + std::strerror(errno));
}

}  // namespace

Ends make_pipe() {
    std::array<int, 2> ends = {-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        fail("a pipe");
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

HeldSignals::HeldSignals() {
    sigset_t held = {};
    sigemptyset(&held);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD, SIGPIPE, SIGTTOU}) {
        sigaddset(&held, number);
    }
    struct sigaction usual = {};
    usual.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &usual, &earlier_of_children_);
    sigprocmask(SIG_BLOCK, &held, &earlier_);
    sigdelset(&held, SIGPIPE);
    sigdelset(&held, SIGTTOU);
    descriptor_.reset(signalfd(-1, &held, SFD_CLOEXEC | SFD_NONBLOCK));
    if (descriptor_.get() < 0) {
        fail("a descriptor for signals");
    }
}

void HeldSignals::restore() const {
    sigaction(SIGCHLD, &earlier_of_children_, nullptr);
    sigprocmask(SIG_SETMASK, &earlier_, nullptr);
}

std::optional<signalfd_siginfo> HeldSignals::next() const {
    signalfd_siginfo signal = {};
    const bool has_come = read(descriptor_.get(), &signal, sizeof signal) == sizeof signal;
    return has_come ? std::optional(signal) : std::nullopt;
}

void pass_on(const signalfd_siginfo& signal, pid_t program) {
    const bool is_meant_for_all = signal.ssi_code == SI_KERNEL;
    const bool is_meant_for_leader = signal.ssi_signo == SIGHUP && getsid(0) == getpid();
    if (!is_meant_for_all || is_meant_for_leader) {
        kill(program, static_cast<int>(signal.ssi_signo));
    }
}

}  // namespace vehicle_recorder
