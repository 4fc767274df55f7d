/// @file
/// Lets a test have the system take a part of a block only.

#ifndef TESTS_SUPPORT_FILESIZELIMIT_H
#define TESTS_SUPPORT_FILESIZELIMIT_H

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <memory>

/// A file in the place of a descriptor, which takes a given number of bytes and no more.
///
/// The limit holds for every file that the process writes (setrlimit(2), RLIMIT_FSIZE), captured output
/// included, from construction to destruction: use it in a child process.
class FileSizeLimit {
public:
    /// @param descriptor  put on a new, empty file
    /// @param bytes       number of bytes that the file takes; a write beyond them fails with EFBIG
    FileSizeLimit(int descriptor, rlim_t bytes) : file_(std::tmpfile(), &std::fclose) {
        std::signal(SIGXFSZ, SIG_IGN);
        dup2(fileno(file_.get()), descriptor);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit = {bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
    rlimit before_ = {};
};

#endif
