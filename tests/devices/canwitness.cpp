#include "tests/devices/canwitness.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tests/support/childprocess.h"

namespace {

constexpr int limit_ms = 60000;

// Runs a program; whether it succeeded. What it says goes to standard error.
bool run(const std::vector<std::string>& arguments) {
    const ChildResult result = run_program(arguments);
    if (result.status != 0) {
        std::fprintf(stderr, "%s: status %d\n%s%s", arguments[0].c_str(), result.status, result.out.c_str(),
                     result.err.c_str());
    }
    return result.status == 0;
}

}  // namespace

int count_receivers(const std::string& interface) {
    std::ifstream table("/proc/net/can/rcvlist_all");
    int receivers = 0;
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string device;
        words >> device;
        receivers += device == interface ? 1 : 0;
    }
    return receivers;
}

bool run_ip(const std::string& arguments) {
    std::vector<std::string> words{"ip"};
    std::istringstream all(arguments);
    for (std::string word; all >> word;) {
        words.push_back(word);
    }
    return run(words);
}

VirtualCan::VirtualCan(const std::string& name) : name_(name) {
    if (!run_ip("link add " + name + " type vcan") || !run_ip("link set " + name + " up")) {
        std::abort();
    }
}

VirtualCan::~VirtualCan() {
    run_program({"ip", "link", "del", name_});
}

Candump::Candump(const std::string& interface) {
    const int before = count_receivers(interface);
    int pipe_ends[2];
    if (pipe2(pipe_ends, O_CLOEXEC) != 0) {
        std::perror("pipe2");
        std::abort();
    }
    const std::string everything = interface + ",0:0,#FFFFFFFF";
    child_ = fork();
    if (child_ == 0) {
        dup2(pipe_ends[1], STDOUT_FILENO);
        execlp("candump", "candump", "-L", everything.c_str(), static_cast<char*>(nullptr));
        std::perror("candump");
        _exit(127);
    }
    close(pipe_ends[1]);
    output_ = pipe_ends[0];
    for (int i = 0; i < limit_ms / 10 && count_receivers(interface) == before; ++i) {
        poll(nullptr, 0, 10);
    }
}

Candump::~Candump() {
    kill(child_, SIGTERM);
    waitpid(child_, nullptr, 0);
    close(output_);
}

std::string Candump::frame() {
    unsigned long long seconds = 0;
    unsigned long long microseconds = 0;
    char text[64] = "";
    std::sscanf(read_line().c_str(), "(%llu.%llu) %*s %63s", &seconds, &microseconds, text);
    time_us_ = seconds * 1'000'000 + microseconds;
    return text;
}

std::string Candump::read_line() const {
    std::string line;
    char byte = 0;
    pollfd entry{output_, POLLIN, 0};
    while (poll(&entry, 1, limit_ms) == 1 && read(output_, &byte, 1) == 1 && byte != '\n') {
        line.push_back(byte);
    }
    return line;
}

bool cansend(const std::string& interface, const std::string& frame) {
    return run({"cansend", interface, frame});
}
