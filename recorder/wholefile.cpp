#include "recorder/wholefile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "program/failure.h"

namespace vehicle_recorder {

namespace {

constexpr const char* six_letters = "XXXXXX";

[[noreturn]] void fail(const std::string& path, int reason) {
    throw program::Failure(program::ExitStatus::bad_file,
                           path + " cannot be written: " + std::strerror(reason));
}

// Closes a descriptor, and removes a file that has not become what it was to be.
class Unfinished {
public:
    Unfinished(int descriptor, std::string path) : descriptor_(descriptor), path_(std::move(path)) {}
    ~Unfinished() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
        if (!path_.empty()) {
            unlink(path_.c_str());
        }
    }
    Unfinished(const Unfinished&) = delete;
    Unfinished& operator=(const Unfinished&) = delete;

    int descriptor() const { return descriptor_; }
    const std::string& path() const { return path_; }

    // Closes the descriptor; the result of close(2).
    int finish() { return close(std::exchange(descriptor_, -1)); }

    void keep() { path_.clear(); }

private:
    int descriptor_;
    std::string path_;  // empty: nothing to remove
};

bool write_all(int descriptor, std::string_view content) {
    while (!content.empty()) {
        const ssize_t count = write(descriptor, content.data(), content.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        content.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return true;
}

// The permissions that a new file gets from open(2).
mode_t usual_mode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// The file that a name leads to: itself if there is none yet.
std::string target_of(const std::string& path) {
    char* const target = realpath(path.c_str(), nullptr);
    const std::string found = target == nullptr ? path : target;
    std::free(target);
    return found;
}

void write_in_place(const std::string& path, std::string_view content) {
    Unfinished file(open(path.c_str(), O_WRONLY | O_CLOEXEC), "");
    if (file.descriptor() < 0 || !write_all(file.descriptor(), content)) {
        fail(path, errno);
    }
}

}  // namespace

void write_whole_file(const std::string& path, std::string_view content) {
    struct stat status {};
    const bool exists = stat(path.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) {
        fail(path, EISDIR);
    }
    if (exists && !S_ISREG(status.st_mode)) {
        write_in_place(path, content);
        return;
    }
    if (exists && access(path.c_str(), W_OK) != 0) {
        fail(path, errno);
    }
    const std::string target = target_of(path);
    std::string name = target + "." + six_letters;
    const int descriptor = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor < 0) {
        fail(path, errno);
    }
    Unfinished file(descriptor, name);
    const mode_t mode = exists ? status.st_mode & 07777 : usual_mode();
    if (fchmod(descriptor, mode) != 0 || !write_all(descriptor, content) || fsync(descriptor) != 0 ||
        file.finish() != 0 || std::rename(name.c_str(), target.c_str()) != 0) {
        fail(path, errno);
    }
    file.keep();
}

TemporaryFile::TemporaryFile(const std::string& ending) {
    const char* const directory = std::getenv("TMPDIR");
    path_ = std::string(directory == nullptr || *directory == '\0' ? "/tmp" : directory) +
            "/vehicle-recorder-" + six_letters + ending;
    descriptor_ = mkostemps(path_.data(), static_cast<int>(ending.size()), O_CLOEXEC);
    if (descriptor_ < 0) {
        fail(path_, errno);
    }
}

TemporaryFile::~TemporaryFile() {
    close(descriptor_);
    unlink(path_.c_str());
}

}  // namespace vehicle_recorder
