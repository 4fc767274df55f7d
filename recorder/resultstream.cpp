#include "recorder/resultstream.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "program/failure.h"

namespace vehicle_recorder {

namespace {

constexpr std::size_t collected_bytes = 65536;
constexpr mode_t all_bits = 07777;
constexpr mode_t new_file_mode = 0666;  // less the umask

// The file that a symbolic link leads to; the name itself where there is nothing yet.
std::string resolved(const std::string& path) {
    char* const target = realpath(path.c_str(), nullptr);
    std::string name = target == nullptr ? path : target;
    std::free(target);
    return name;
}

mode_t mode_of_new_file() {
    const mode_t mask = umask(0);
    umask(mask);
    return new_file_mode & ~mask;
}

}  // namespace

ResultStream::ResultStream(const std::string& path, const Interrupts& interrupts)
    : path_(path), interrupts_(&interrupts) {
    if (path.empty()) {
        descriptor_ = STDOUT_FILENO;
        return;
    }
    struct stat status {};
    const bool is_there = stat(path.c_str(), &status) == 0;
    if (is_there && !S_ISREG(status.st_mode)) {
        descriptor_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor_ < 0) {
            fail(errno);
        }
        return;
    }
    if (is_there && access(path.c_str(), W_OK) != 0) {
        fail(errno);
    }
    path_ = resolved(path);
    std::string name = path_ + ".XXXXXX";
    descriptor_ = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        fail(errno);
    }
    temporary_ = name;
    fchmod(descriptor_, is_there ? status.st_mode & all_bits : mode_of_new_file());
}

ResultStream::~ResultStream() {
    if (descriptor_ > STDERR_FILENO) {
        close(descriptor_);
    }
    if (!temporary_.empty()) {
        unlink(temporary_.c_str());
    }
}

void ResultStream::add(std::string_view text) {
    collected_ += text;
    if (collected_.size() >= collected_bytes) {
        flush();
    }
}

void ResultStream::finish() {
    flush();
    if (temporary_.empty()) {
        return;
    }
    if (fsync(descriptor_) != 0 || std::rename(temporary_.c_str(), path_.c_str()) != 0) {
        fail(errno);
    }
    temporary_.clear();
}

bool ResultStream::is_terminal() const {
    return isatty(descriptor_) == 1;
}

void ResultStream::flush() {
    std::string_view rest = collected_;
    while (!rest.empty()) {
        interrupts_->wait_for_room(descriptor_);
        // So many bytes never block where there is room (pipe(7)); a regular file takes all.
        const std::size_t most = temporary_.empty() ? static_cast<std::size_t>(PIPE_BUF) : rest.size();
        const ssize_t count = write(descriptor_, rest.data(), std::min(rest.size(), most));
        if (count < 0 && errno == EPIPE) {
            throw program::ClosedPipe();
        }
        if (count < 0 && errno != EINTR && errno != EAGAIN) {
            fail(errno);
        }
        rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    collected_.clear();
}

void ResultStream::fail(int reason) const {
    const std::string name = path_.empty() ? "standard output" : path_;
    throw program::Failure(program::ExitStatus::bad_file,
                           name + " cannot be written: " + std::strerror(reason));
}

void refuse_to_overwrite(const std::string& recording, const std::string& result) {
    struct stat source {};
    struct stat target {};
    if (!result.empty() && stat(recording.c_str(), &source) == 0 && stat(result.c_str(), &target) == 0 &&
        source.st_dev == target.st_dev && source.st_ino == target.st_ino) {
        throw program::Failure(program::ExitStatus::usage,
                               result + " is the recording itself: name another file for the result");
    }
}

}  // namespace vehicle_recorder
