#include "simulator/node/nodesession.h"

#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "simulator/node/nodeconsole.h"
#include "simulator/node/socketcanlink.h"
#include "simulator/node/udplink.h"

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

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
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

// Where the options want the nodes.
std::unique_ptr<NodeLink> make_link(const NodeOptions& options) {
    if (!options.can_interface.empty()) {
        return std::make_unique<SocketCanLink>(options.can_interface);
    }
    return std::make_unique<UdpLink>(options.listen_port, options.peer);
}

// Reads a description, and tells what is wrong with it.
std::shared_ptr<const DeviceDescription> read_description(const std::string& file) {
    auto description = std::make_shared<DeviceDescription>();
    const bool usable = description->load(file);
    std::string reason = "nothing in it can be used";
    for (const DescriptionFinding& finding : description->findings()) {
        if (finding.severity == DescriptionFinding::Severity::error) {
            reason = finding.text();
            if (usable) {
                std::fprintf(stderr, "node-simulator: %s\n", reason.c_str());
            }
        }
    }
    if (!usable) {
        throw std::runtime_error(reason);
    }
    return description;
}

int signal_descriptor() {
    const sigset_t set = session_signals();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

}  // namespace

NodeSession::NodeSession(const NodeOptions& options)
    : options_(options),
      bus_(options.faults),
      link_(make_link(options)),
      signals_(signal_descriptor()),
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
    settings.blocks = {!options_.no_blocks, options_.block_sizes};
    settings.faults = options_.faults;
    for (const std::uint8_t number : options_.nodes) {
        settings.node = number;
        settings.description = description_of(number);
        bus_.add_node(settings);
        for (const std::string& line : bus_.find(number)->left_out()) {
            std::fprintf(stderr, "node-simulator: node %u does not serve %s\n", unsigned{number},
                         line.c_str());
        }
        settings.sync_period_us = 0;  // a bus has one producer
    }
    settings.node = 0;
    settings.description = description_of(0);
    for (const std::uint32_t serial : options_.unconfigured) {
        settings.serial = serial;
        bus_.add_node(settings);
    }
}

// What describes the node of a number, 0 for those without one; null when nothing does.
std::shared_ptr<const DeviceDescription> NodeSession::description_of(std::uint8_t node) {
    std::shared_ptr<const DeviceDescription> found;
    for (const NodeDescription& description : options_.descriptions) {
        if (description.node == 0 || description.node == node) {
            auto& read = descriptions_[description.file];
            if (read == nullptr) {
                read = read_description(description.file);
            }
            found = read;
        }
    }
    return found;
}

NodeSession::~NodeSession() {
    if (command_ != 0) {
        kill(command_, SIGTERM);
        waitpid(command_, nullptr, 0);
    }
}

int NodeSession::run() {
    std::printf("%s\n", link_->announcement().c_str());
    std::fflush(stdout);
    if (!options_.command.empty()) {
        link_->expect_command();
        start_command();
    }
    reads_commands_ = options_.command.empty();
    started_ = monotonic_us();
    while (!status_) {
        serve();
    }
    return *status_;
}

void NodeSession::start_command() {
    std::vector<char*> arguments;
    for (std::string& argument : options_.command) {
        link_->fill_in(argument);
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

// The boot-up messages are for somebody: the nodes wait until they can be heard.
bool NodeSession::can_be_heard(Time now) const {
    return link_->has_peer() && (command_ == 0 || link_->is_heard() || now >= started_ + master_patience_us);
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
    std::array<pollfd, 3> entries{{{link_->descriptor(), POLLIN, 0},
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
    std::optional<CanFrame> frame;
    if (!link_->receive(frame)) {
        return false;
    }
    const Time now = monotonic_us();
    switch_on(now);
    if (frame) {
        log("in ", *frame, now);
        bus_.receive(*frame, now);
        send_frames();
    }
    return true;
}

void NodeSession::send_frames() {
    const Time now = monotonic_us();
    while (const std::optional<CanFrame> frame = bus_.take(now)) {
        if (!link_->has_peer()) {
            continue;  // nobody has been heard yet
        }
        log("out", *frame, now);
        link_->send(*frame);
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
