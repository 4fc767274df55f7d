/// @file
/// A program that runs beside the test, with its outputs in files.

#ifndef TESTS_SUPPORT_RUNNINGPROGRAM_H
#define TESTS_SUPPORT_RUNNINGPROGRAM_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/temporaryfile.h"

/// Waits until a condition holds; false when it does not for a minute.
template <typename Condition>
bool eventually(const Condition& condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// A running program; it is killed with its owner.
class RunningProgram {
public:
    /// Starts it.
    ///
    /// @param words  path of the program, or its name in PATH, and its arguments
    /// @param out    takes its standard output; -1 for a file that out() reads
    explicit RunningProgram(const std::vector<std::string>& words, int out = -1);
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    /// Its process, as long as end() has not been called.
    pid_t process() const { return child_; }

    /// Sends it a signal.
    void signal(int number) const;

    /// Waits until it has ended. @return its exit status, or -1 when a signal ended it
    int end();

    /// What it has written so far to standard output, and to standard error.
    std::string out() const { return out_.content(); }
    std::string err() const { return err_.content(); }

private:
    TemporaryFile out_;
    TemporaryFile err_;
    pid_t child_ = -1;
};

#endif
