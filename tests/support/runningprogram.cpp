#include "tests/support/runningprogram.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

RunningProgram::RunningProgram(const std::vector<std::string>& words, int out) {
    std::vector<std::string> copies = words;
    child_ = fork();
    if (child_ == 0) {
        dup2(out >= 0 ? out : open(out_.path().c_str(), O_WRONLY | O_TRUNC), STDOUT_FILENO);
        dup2(open(err_.path().c_str(), O_WRONLY | O_TRUNC), STDERR_FILENO);
        std::vector<char*> arguments;
        arguments.reserve(copies.size() + 1);
        for (std::string& word : copies) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        execvp(arguments[0], arguments.data());
        _exit(99);
    }
}

RunningProgram::~RunningProgram() {
    if (child_ > 0) {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
}

void RunningProgram::signal(int number) const {
    kill(child_, number);
}

int RunningProgram::end() {
    int status = 0;
    waitpid(child_, &status, 0);
    child_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
