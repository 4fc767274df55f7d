#include "terminationsignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::array<int, 3> termination_signals = {SIGINT, SIGTERM, SIGHUP};

// What the handler can reach; both ends are open exactly as long as the object lives.
std::array<int, 2> signal_pipe = {-1, -1};
std::array<struct sigaction, termination_signals.size()> earlier_actions;

// A full pipe is as good as a byte more in it: the event loop wakes up all the same.
void note_signal(int /*number*/) {
    const int saved_errno = errno;
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = ::write(signal_pipe[1], &byte, 1);
    errno = saved_errno;
}

void take_over(int number, struct sigaction& earlier) {
    struct sigaction action = {};
    action.sa_handler = note_signal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(number, nullptr, &earlier);
    if (earlier.sa_handler != SIG_IGN) {
        sigaction(number, &action, nullptr);
    }
}

}  // namespace

TerminationSignals::TerminationSignals(QObject* parent) : QObject(parent) {
    if (pipe2(signal_pipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        std::perror("pipe2");
        _exit(EXIT_FAILURE);
    }
    auto* const notifier = new QSocketNotifier(signal_pipe[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &TerminationSignals::EmptyPipe);
    for (std::size_t i = 0; i < termination_signals.size(); i++) {
        take_over(termination_signals[i], earlier_actions[i]);
    }
}

TerminationSignals::~TerminationSignals() {
    for (std::size_t i = 0; i < termination_signals.size(); i++) {
        sigaction(termination_signals[i], &earlier_actions[i], nullptr);
    }
    for (int& descriptor : signal_pipe) {
        ::close(descriptor);
        descriptor = -1;
    }
}

void TerminationSignals::EmptyPipe() {
    std::array<char, 64> bytes = {};
    while (::read(signal_pipe[0], bytes.data(), bytes.size()) > 0) {
    }
    Q_EMIT received();
}
