#include "tools/resultfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "program/file.h"
#include "tools/failure.h"

namespace nodevik_tool {

namespace {

constexpr mode_t file_mode = 0666;  // less the umask

[[noreturn]] void fail(const std::string& path, const char* what, int reason) {
    throw Failure(ExitStatus::bad_file, path + " cannot be " + what + ": " + std::strerror(reason));
}

}  // namespace

std::string file_content(const std::string& path) {
    const program::File file(std::fopen(path.c_str(), "rbe"));
    if (!file) {
        fail(path, "read", errno);
    }
    std::string content;
    std::array<char, 65536> room;
    while (const std::size_t count = std::fread(room.data(), 1, room.size(), file.get())) {
        content.append(room.data(), count);
    }
    if (std::ferror(file.get()) != 0) {
        fail(path, "read", errno);
    }
    return content;
}

ResultFile::ResultFile(const std::string& path) : path_(path) {
    descriptor_ = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, file_mode);
    is_new_ = descriptor_ >= 0;
    if (!is_new_) {
        descriptor_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    }
    if (descriptor_ < 0) {
        fail(path, "written", errno);
    }
}

ResultFile::~ResultFile() {
    close(descriptor_);
    if (is_new_) {
        unlink(path_.c_str());
    }
}

void ResultFile::write(std::string_view bytes) {
    struct stat status {};
    if (fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode) && ftruncate(descriptor_, 0) != 0) {
        fail(path_, "written", errno);
    }
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            fail(path_, "written", errno);
        }
        bytes.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    is_new_ = false;
}

}  // namespace nodevik_tool
