#include "recorder/programstart.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "program/failure.h"

namespace vehicle_recorder {

namespace {

using program::ExitStatus;

constexpr auto cannot_be_run = static_cast<ExitStatus>(126);  // as env(1) and the shells have it
constexpr auto cannot_be_found = static_cast<ExitStatus>(127);
constexpr int status_of_signals = 128;

// Why the program did not come to run, as its process tells it.
struct Refusal {
    ExitStatus status = cannot_be_run;
    std::array<char, 500> text = {};
};

[[noreturn]] void refuse(int report, ExitStatus status, const std::string& text) {
    Refusal refusal;
    refusal.status = status;
    text.copy(refusal.text.data(), refusal.text.size() - 1);
    [[maybe_unused]] const ssize_t told = write(report, &refusal, sizeof refusal);
    _exit(EXIT_FAILURE);
}

}  // namespace

void become_program(const std::vector<std::string>& program, const std::string& device, LineWay way,
                    int report) {
    const std::string failure = give_line_name(device, way);
    if (!failure.empty()) {
        refuse(report, ExitStatus::no_bus, failure);
    }
    std::vector<char*> arguments;
    arguments.reserve(program.size() + 1);
    for (const std::string& argument : program) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    const int reason = errno;
    refuse(report, reason == ENOENT ? cannot_be_found : cannot_be_run,
           program[0] + " cannot be run: " + std::strerror(reason));
}

void await_program(int report) {
    Refusal refusal;
    ssize_t count = -1;
    do {
        count = read(report, &refusal, sizeof refusal);
    } while (count < 0 && errno == EINTR);
    if (count > 0) {
        throw program::Failure(refusal.status, refusal.text.data());
    }
}

int exit_status_of(int status) {
    return WIFSIGNALED(status) ? status_of_signals + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace vehicle_recorder
