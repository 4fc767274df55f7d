/// @file
/// Runs a piece of a test in a child process of its own, so that what ends a process or prints can be told
/// from outside, byte for byte.

#ifndef TESTS_SUPPORT_CHILDPROCESS_H
#define TESTS_SUPPORT_CHILDPROCESS_H

#include <functional>
#include <string>
#include <vector>

/// What a child process left behind.
struct ChildResult {
    int status = -1;  ///< exit status, or -1 when a signal ended the child
    int signal = 0;   ///< signal that ended the child, or 0
    std::string out;  ///< everything that it wrote to standard output
    std::string err;  ///< everything that it wrote to standard error
};

/// Forks, runs @p body in the child with both outputs captured, and waits for its end.
///
/// The child exits with status 0 when @p body returns. It must not use the assertions of a test framework:
/// the result is judged in the parent.
ChildResult run_in_child(const std::function<void()>& body);

/// Runs the program @p arguments[0] (searched in PATH) with the rest as arguments, both outputs captured and
/// @p input as standard input.
ChildResult run_program(const std::vector<std::string>& arguments, const std::string& input = std::string());

/// Runs the program @p arguments[0] as run_program() does, with the library in the file @p library preloaded.
ChildResult run_preloaded(const std::string& library, const std::vector<std::string>& arguments);

#endif
