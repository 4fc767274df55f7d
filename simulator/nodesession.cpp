#include "simulator/nodesession.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <system_error>

#include "simulator/nodeconsole.h"

namespace node_simulator {

namespace {

constexpr int burst = 256;                    // frames taken before others get their turn
constexpr Time linger_us = 100;               // after a frame: the next one of a transfer is on its way
constexpr int look_again_ms = 5;              // for the command's port
constexpr Time longest_wait_us = 60'000'000;  // of one poll; then it is called again
constexpr Time master_patience_us = 2'000'000;

Time monotonic_us() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<Time>(now.tv_sec) * 1'000'000 + static_cast<Time>(now.tv_nsec) / 1000;
}

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// The socket calls take every address family through the one generic type.
const sockaddr* generic(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}
sockaddr* generic(sockaddr_in& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// A datagram socket on a loopback port.
int bound_socket(std::uint16_t port) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        fail("cannot open a socket");
    }
    const sockaddr_in address = loopback(port);
    if (bind(descriptor, generic(address), sizeof address) < 0) {
        const int reason = errno;
        close(descriptor);
        errno = reason;
        fail("cannot receive on port " + std::to_string(port));
    }
    return descriptor;
}

std::uint16_t port_of(int descriptor) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(descriptor, generic(address), &length);
    return ntohs(address.sin_port);
}

// The signals of a session come through a descriptor, between two frames.
sigset_t session_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGCHLD}) {
        sigaddset(&set, number);
    }
    return set;
}

int signal_descriptor() {
    const sigset_t set = session_signals();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

void replace_all(std::string& text, const std::string& what, const std::string& by) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
        text.replace(at, what.size(), by);
    }
}

}  // namespace

Descriptor::~Descriptor() {
    if (number_ >= 0) {
        close(number_);
    }
}

NodeSession::NodeSession(const NodeOptions& options)
    : options_(options),
      bus_(options.faults),
      socket_(bound_socket(options.listen_port)),
      signals_(signal_descriptor()),
      peer_(options.peer),
      started_(monotonic_us()) {
    if (!options_.log_file.empty()) {
        log_.reset(std::fopen(options_.log_file.c_str(), "we"));
        if (!log_) {
            fail("cannot write the log to " + options_.log_file);
        }
        std::setvbuf(log_.get(), nullptr, _IOLBF, BUFSIZ);
    }
    NodeSettings settings;
    settings.heartbeat_ms = options_.heartbeat_ms;
    settings.sync_period_us = options_.sync_period_ms * 1000;
    settings.self_starting = options_.self_starting;
    settings.strict_counts = options_.strict_counts;
    for (const std::uint8_t number : options_.nodes) {
        settings.node = number;
        bus_.add_node(settings);
        settings.sync_period_us = 0;  // a bus has one producer
    }
}

NodeSession::~NodeSession() {
    if (command_ != 0) {
        kill(command_, SIGTERM);
        waitpid(command_, nullptr, 0);
    }
}

int NodeSession::run() {
    std::printf("port %u\n", static_cast<unsigned>(port_of(socket_.get())));
    std::fflush(stdout);
    if (!options_.command.empty()) {
        choose_master_port();
        start_command();
    }
    reads_commands_ = options_.command.empty();
    started_ = monotonic_us();
    while (!status_) {
        serve();
    }
    return *status_;
}

// Without a peer, frames go to a port that nobody uses: the command will bind it.
void NodeSession::choose_master_port() {
    if (!peer_) {
        const Descriptor probe(bound_socket(0));
        peer_ = loopback(port_of(probe.get()));
    }
}

void NodeSession::start_command() {
    std::vector<char*> arguments;
    for (std::string& argument : options_.command) {
        replace_all(argument, "{node}", std::to_string(port_of(socket_.get())));
        replace_all(argument, "{master}", std::to_string(ntohs(peer_->sin_port)));
        arguments.push_back(argument.data());
    }
    arguments.push_back(nullptr);
    command_ = fork();
    if (command_ < 0) {
        command_ = 0;
        fail("cannot run " + options_.command[0]);
    }
    if (command_ == 0) {
        const sigset_t set = session_signals();
        sigprocmask(SIG_UNBLOCK, &set, nullptr);
        execvp(arguments[0], arguments.data());
        std::fprintf(stderr, "node-simulator: cannot run ");
        std::perror(arguments[0]);
        _exit(127);
    }
}

// Whether some program has bound the port that frames go to (proc(5), /proc/net/udp).
bool NodeSession::master_listens() const {
    std::ifstream table("/proc/net/udp");
    std::array<char, 8> port;
    std::snprintf(port.data(), port.size(), ":%04X", static_cast<unsigned>(ntohs(peer_->sin_port)));
    std::string line;
    while (std::getline(table, line)) {
        const std::size_t local = line.find(':', line.find(':') + 1);
        if (local != std::string::npos && line.compare(local, 5, port.data()) == 0) {
            return true;
        }
    }
    return false;
}

// The boot-up messages are for somebody: the nodes wait until they can be heard.
bool NodeSession::can_be_heard(Time now) const {
    return peer_ && (command_ == 0 || master_listens() || now >= started_ + master_patience_us);
}

void NodeSession::switch_on(Time now) {
    if (!switched_on_) {
        switched_on_ = true;
        bus_.power_on(now);
    }
}

void NodeSession::serve() {
    if (!switched_on_ && can_be_heard(monotonic_us())) {
        switch_on(monotonic_us());
    }
    if (!receive_frames()) {
        bus_.advance(monotonic_us());
        send_frames();
        wait();
        read_signals();
        read_commands();
    }
    bus_.advance(monotonic_us());
    send_frames();
}

// Sleeps until a frame, a command, a signal or the bus's next deadline comes.
void NodeSession::wait() const {
    std::array<pollfd, 3> entries{{{socket_.get(), POLLIN, 0},
                                   {signals_.get(), POLLIN, 0},
                                   {reads_commands_ ? STDIN_FILENO : -1, POLLIN, 0}}};
    const Time now = monotonic_us();
    Time wait_us = longest_wait_us;
    if (const std::optional<Time> deadline = bus_.deadline()) {
        wait_us = *deadline <= now ? 0 : std::min(*deadline - now, longest_wait_us);
    }
    if (command_ != 0 && !switched_on_) {
        wait_us = std::min<Time>(wait_us, Time{look_again_ms} * 1000);
    }
    const timespec limit{static_cast<time_t>(wait_us / 1'000'000),
                         static_cast<long>(wait_us % 1'000'000) * 1000};
    ppoll(entries.data(), entries.size(), &limit, nullptr);
}

// Hands waiting frames to the bus, and its answers out; false when none was waiting. After a frame it stays
// awake for a moment: going to sleep and waking up would take longer than the client needs to go on.
bool NodeSession::receive_frames() {
    Time linger_until = 0;
    for (int frames = 0; frames < burst;) {
        if (receive_frame()) {
            ++frames;
            linger_until = monotonic_us() + linger_us;
        } else if (monotonic_us() < linger_until) {
            sched_yield();
        } else {
            break;
        }
    }
    return linger_until != 0;
}

bool NodeSession::receive_frame() {
    std::array<std::uint8_t, 64> room;
    sockaddr_in from{};
    socklen_t from_length = sizeof from;
    const ssize_t count =
        recvfrom(socket_.get(), room.data(), room.size(), MSG_DONTWAIT, generic(from), &from_length);
    if (count < 0) {
        return false;
    }
    if (!options_.peer && command_ == 0) {
        peer_ = from;
    }
    const Time now = monotonic_us();
    switch_on(now);
    if (const auto frame = from_datagram(std::span(room).first(static_cast<std::size_t>(count)))) {
        log("in ", *frame, now);
        bus_.receive(*frame, now);
        send_frames();
    }
    return true;
}

void NodeSession::send_frames() {
    const Time now = monotonic_us();
    while (const std::optional<CanFrame> frame = bus_.take(now)) {
        if (!peer_) {
            continue;  // nobody has been heard yet
        }
        log("out", *frame, now);
        const auto datagram = to_datagram(*frame);
        sendto(socket_.get(), datagram.data(), datagram.size(), 0, generic(*peer_), sizeof *peer_);
    }
}

void NodeSession::read_commands() {
    pollfd entry{STDIN_FILENO, POLLIN, 0};
    if (!reads_commands_ || poll(&entry, 1, 0) != 1) {
        return;
    }
    std::array<char, 512> room;
    const ssize_t count = read(STDIN_FILENO, room.data(), room.size());
    if (count <= 0) {
        reads_commands_ = false;
        return;
    }
    input_.append(room.data(), static_cast<std::size_t>(count));
    for (std::size_t end = 0; (end = input_.find('\n')) != std::string::npos; input_.erase(0, end + 1)) {
        const std::string answer = run_console_command(
            bus_, options_.faults, std::string_view(input_).substr(0, end), monotonic_us());
        if (!answer.empty()) {
            std::printf("%s\n", answer.c_str());
            std::fflush(stdout);
        }
    }
}

void NodeSession::read_signals() {
    signalfd_siginfo info;
    while (read(signals_.get(), &info, sizeof info) == sizeof info) {
        if (info.ssi_signo != SIGCHLD) {
            status_ = 0;
        } else if (int state = 0; command_ != 0 && waitpid(command_, &state, WNOHANG) == command_) {
            command_ = 0;
            status_ = WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state);
        }
    }
}

void NodeSession::log(const char* direction, const CanFrame& frame, Time now) const {
    if (!log_) {
        return;
    }
    const Time since = now - std::min(now, started_);
    std::fprintf(log_.get(), "%6u.%06u %s %03x %u", static_cast<unsigned>(since / 1'000'000),
                 static_cast<unsigned>(since % 1'000'000), direction, frame.identifier,
                 static_cast<unsigned>(frame.length));
    for (std::size_t i = 0; i < frame.length; ++i) {
        std::fprintf(log_.get(), " %02x", static_cast<unsigned>(frame.data[i]));
    }
    std::fputc('\n', log_.get());
}

}  // namespace node_simulator
