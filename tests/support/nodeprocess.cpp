#include "tests/support/nodeprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int limit_ms = 20000;

}  // namespace

NodeProcess::NodeProcess(const std::string& program, const std::vector<std::string>& arguments) {
    int to_child[2];
    int from_child[2];
    if (pipe2(to_child, O_CLOEXEC) != 0 || pipe2(from_child, O_CLOEXEC) != 0) {
        std::perror("pipe2");
        std::abort();
    }
    std::vector<std::string> words{program, "--listen", "0"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    child_ = fork();
    if (child_ == 0) {
        dup2(to_child[0], STDIN_FILENO);
        dup2(from_child[1], STDOUT_FILENO);
        execv(argv[0], argv.data());
        std::perror(argv[0]);
        _exit(127);
    }
    close(to_child[0]);
    close(from_child[1]);
    input_ = to_child[1];
    output_ = from_child[0];
    unsigned port = 0;
    if (std::sscanf(read_line().c_str(), "port %u", &port) == 1) {
        port_ = port;
    }
}

NodeProcess::~NodeProcess() {
    kill(child_, SIGTERM);
    waitpid(child_, nullptr, 0);
    close(input_);
    close(output_);
}

std::string NodeProcess::command(const std::string& text) const {
    const std::string line = text + "\n";
    if (write(input_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        return "error: the simulator takes no commands";
    }
    return read_line();
}

std::string NodeProcess::read_line() const {
    std::string line;
    char byte = 0;
    pollfd entry{output_, POLLIN, 0};
    while (poll(&entry, 1, limit_ms) == 1 && read(output_, &byte, 1) == 1 && byte != '\n') {
        line.push_back(byte);
    }
    return line;
}
