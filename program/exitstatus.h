/// @file
/// The exit statuses of a program that uses a bus or a line, one for each way to end.

#ifndef PROGRAM_EXITSTATUS_H
#define PROGRAM_EXITSTATUS_H

namespace program {

/// How a program has ended.
enum class ExitStatus : int {
    done = 0,          ///< what was asked for is done
    refused = 1,       ///< the other end refused it
    usage = 2,         ///< the command line is wrong
    no_answer = 3,     ///< nobody answered
    no_bus = 4,        ///< the bus or line cannot be used
    bad_file = 5,      ///< a file cannot be read, used or written
    interrupted = 130  ///< SIGINT or SIGTERM came: 128 and the number of SIGINT, as shells have it
};

}  // namespace program

#endif
