#include "soak/nodebus.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace soak {

namespace {

constexpr int limit_ms = 60'000;  // for an answer; only a simulator that hangs takes as long

void check(bool succeeded, const char* what) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

}  // namespace

NodeBus::NodeBus(std::string program, std::string nodes, unsigned master_port, std::string directory,
                 std::vector<std::string> options)
    : program_(std::move(program)),
      nodes_(std::move(nodes)),
      peer_("127.0.0.1:" + std::to_string(master_port)),
      directory_(std::move(directory)),
      options_(std::move(options)) {}

NodeBus::~NodeBus() {
    if (alive()) {
        end(SIGTERM);
    }
}

void NodeBus::start() {
    ++life_;
    std::vector<std::string> words{program_, "--listen", std::to_string(port_), "--nodes", nodes_,
                                   "--peer", peer_};
    if (!directory_.empty()) {
        words.insert(words.end(), {"--log", directory_ + "/nodes." + std::to_string(life_) + ".log"});
    }
    words.insert(words.end(), options_.begin(), options_.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    int to_child[2];
    int from_child[2];
    check(pipe2(to_child, O_CLOEXEC) == 0 && pipe2(from_child, O_CLOEXEC) == 0, "pipe");
    child_ = fork();
    check(child_ >= 0, "fork");
    if (child_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        dup2(to_child[0], STDIN_FILENO);
        dup2(from_child[1], STDOUT_FILENO);
        execv(argv[0], argv.data());
        std::perror(argv[0]);
        _exit(127);
    }
    ::close(to_child[0]);
    ::close(from_child[1]);
    input_ = to_child[1];
    output_ = from_child[0];
    unsigned port = 0;
    if (std::sscanf(read_line().c_str(), "port %u", &port) != 1) {
        throw std::runtime_error("the nodes do not start");
    }
    port_ = port;
}

void NodeBus::kill() {
    settle();
    end(SIGKILL);
}

void NodeBus::off(unsigned node) const {
    expect_ok("off " + std::to_string(node));
}

void NodeBus::on(unsigned node) const {
    expect_ok("on " + std::to_string(node));
}

// The simulator looks for a command when no frame waits. A frame may come in between those two looks, but
// before the next command it is taken.
void NodeBus::settle() const {
    for (int i = 0; i < 2; ++i) {
        command("nothing");  // unknown to the simulator, which says so
    }
}

void NodeBus::expect_ok(const std::string& text) const {
    const std::string answer = command(text);
    if (answer != "ok") {
        throw std::runtime_error("the nodes answer '" + answer + "' to '" + text + "'");
    }
}

std::string NodeBus::command(const std::string& text) const {
    const std::string line = text + "\n";
    check(::write(input_, line.data(), line.size()) == static_cast<ssize_t>(line.size()),
          "command to the nodes");
    const std::string answer = read_line();
    if (answer.empty()) {
        throw std::runtime_error("the nodes do not answer to '" + text + "'");
    }
    return answer;
}

std::string NodeBus::read_line() const {
    std::string line;
    char byte = 0;
    pollfd entry{output_, POLLIN, 0};
    while (poll(&entry, 1, limit_ms) == 1 && ::read(output_, &byte, 1) == 1 && byte != '\n') {
        line.push_back(byte);
    }
    return line;
}

void NodeBus::end(int signal) {
    ::kill(child_, signal);
    waitpid(child_, nullptr, 0);
    ::close(input_);
    ::close(output_);
    child_ = 0;
}

}  // namespace soak
