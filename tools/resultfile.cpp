#include "tools/resultfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include "tools/failure.h"
#include "tools/interrupts.h"

namespace nodevik_tool {

namespace {

constexpr std::size_t most_bytes = std::size_t{1} << 28;  // no node takes more
constexpr mode_t file_mode = 0666;                        // less the umask
constexpr mode_t permissions = 07777;

[[noreturn]] void fail(const std::string& path, const char* what, int reason) {
    throw Failure(ExitStatus::bad_file, path + " cannot be " + what + ": " + std::strerror(reason));
}

bool is_same_file(int left, int right) {
    struct stat one {};
    struct stat other {};
    return fstat(left, &one) == 0 && fstat(right, &other) == 0 && one.st_dev == other.st_dev &&
           one.st_ino == other.st_ino;
}

// Writes all bytes. Returns the system's reason when it does not, else 0.
int write_all(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        bytes.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return 0;
}

// Reads all bytes. Returns the system's reason when it does not, else 0.
int read_all(int descriptor, std::string& content) {
    struct stat status {};
    if (fstat(descriptor, &status) == 0 && status.st_size > static_cast<off_t>(most_bytes)) {
        return EFBIG;
    }
    std::array<char, 65536> room;
    for (;;) {
        const ssize_t count = read(descriptor, room.data(), room.size());
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        if (count == 0) {
            return 0;
        }
        content.append(room.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (content.size() > most_bytes) {
            return EFBIG;  // of a device that never ends, for example
        }
    }
}

}  // namespace

std::string file_content(const std::string& path) {
    const SuddenEnd sudden_end;  // it may be a pipe
    std::string content;
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const int reason = file < 0 ? errno : read_all(file, content);
    if (file >= 0) {
        close(file);
    }
    if (reason != 0) {
        fail(path, "read", reason);
    }
    return content;
}

ResultFile::ResultFile(const std::string& path, Output& output) : path_(path), output_(&output) {
    descriptor_ = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, file_mode);
    is_new_ = descriptor_ >= 0;
    if (!is_new_) {
        const SuddenEnd sudden_end;  // a pipe has to have a reader
        descriptor_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    }
    if (descriptor_ < 0) {
        fail(path, "written", errno);
    }
    // In this process the path of standard output leads to where the library's reports go.
    is_standard_output_ = is_same_file(descriptor_, STDOUT_FILENO);
}

ResultFile::~ResultFile() {
    close(descriptor_);
    if (is_new_) {
        unlink(path_.c_str());
    }
}

void ResultFile::write(std::string_view bytes) {
    if (is_standard_output_) {
        output_->bytes(bytes);
        output_->flush();
        return;
    }
    struct stat status {};
    const bool is_kept = !is_new_ && fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
    if (is_kept && replace(bytes, status.st_mode)) {
        return;
    }
    if (is_kept && ftruncate(descriptor_, 0) != 0) {
        fail(path_, "written", errno);
    }
    std::optional<SuddenEnd> sudden_end;
    if (!is_new_ && !is_kept) {
        sudden_end.emplace();  // a pipe or a device may take nothing
    }
    if (const int reason = write_all(descriptor_, bytes); reason != 0) {
        fail(path_, "written", reason);
    }
    is_new_ = false;
}

// Puts a new file in the place of the old one, which stays when the disk does not take all of it. False when no file can
// be made beside the old one.
bool ResultFile::replace(std::string_view bytes, mode_t mode) const {
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path_.c_str(), nullptr), &std::free);
    if (real == nullptr) {
        return false;
    }
    const std::string target = real.get();
    std::string name = target + ".XXXXXX";
    const int file = mkostemp(name.data(), O_CLOEXEC);
    if (file < 0) {
        return false;
    }
    int reason = write_all(file, bytes);
    if (reason == 0 && (fchmod(file, mode & permissions) != 0 || rename(name.c_str(), target.c_str()) != 0)) {
        reason = errno;
    }
    close(file);
    if (reason != 0) {
        unlink(name.c_str());
        fail(path_, "written", reason);
    }
    return true;
}

}  // namespace nodevik_tool
