/// @file
/// A program that runs beside the test and is interrupted by it.

#ifndef TESTS_TOOLS_SIGNALLEDRUN_H
#define TESTS_TOOLS_SIGNALLEDRUN_H

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/support/temporaryfile.h"

/// One run of a program, with its outputs kept.
class SignalledRun {
public:
    SignalledRun() = default;
    ~SignalledRun() {
        if (child_ > 0) {
            kill(child_, SIGKILL);
            waitpid(child_, nullptr, 0);
        }
    }
    SignalledRun(const SignalledRun&) = delete;
    SignalledRun& operator=(const SignalledRun&) = delete;

    /// Starts a program.
    void start(std::vector<std::string> words) {
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        const int out = open(out_.path().c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
        const int err = open(err_.path().c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
        child_ = fork();
        if (child_ == 0) {
            dup2(out, STDOUT_FILENO);
            dup2(err, STDERR_FILENO);
            execv(arguments[0], arguments.data());
            _exit(99);
        }
        close(out);
        close(err);
    }

    /// Does to it what Ctrl-C does.
    void interrupt() const { kill(child_, SIGINT); }

    /// Waits for its end. @return its exit status, -1 when a signal has ended it
    int status() {
        int status = 0;
        waitpid(child_, &status, 0);
        child_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string out() const { return out_.content(); }  ///< what it wrote to standard output
    std::string err() const { return err_.content(); }  ///< what it wrote to standard error

private:
    pid_t child_ = -1;
    TemporaryFile out_;
    TemporaryFile err_;
};

#endif
