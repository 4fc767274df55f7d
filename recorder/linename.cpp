#include "recorder/linename.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "program/linepreload.h"
#include "recorder/heldsignals.h"

namespace vehicle_recorder {

namespace {

namespace files = std::filesystem;

constexpr const char* preload_variable = "LD_PRELOAD";
constexpr const char* library_path_variable = "LD_LIBRARY_PATH";
constexpr const char* library_variable = "LINE_PRELOAD_LIBRARY";
constexpr const char* sanitizer_variable = "ASAN_OPTIONS";

bool write_file(const char* path, const std::string& text) {
    const int file = ::open(path, O_WRONLY | O_CLOEXEC);
    const bool written =
        file >= 0 && ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (file >= 0) {
        ::close(file);
    }
    return written;
}

// Without root a mount namespace comes with a user namespace, in which the user stays who he is. The right to mount is
// lost again when the program is executed.
bool enter_namespace() {
    if (unshare(CLONE_NEWNS) == 0) {
        return true;
    }
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && write_file("/proc/self/setgroups", "deny") &&
           write_file("/proc/self/uid_map", user + " " + user + " 1") &&
           write_file("/proc/self/gid_map", group + " " + group + " 1");
}

bool is_same_device(const char* one, const char* other) {
    struct stat first = {};
    struct stat second = {};
    return stat(one, &first) == 0 && stat(other, &second) == 0 && first.st_rdev == second.st_rdev;
}

bool bind_over_the_name(const std::string& device) {
    return access(line_preload::line_name, F_OK) == 0 && enter_namespace() &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount(device.c_str(), line_preload::line_name, nullptr, MS_BIND, nullptr) == 0 &&
           is_same_device(device.c_str(), line_preload::line_name);
}

// Why the device cannot be bound over the name, 0 if it can: tried in a process of its own, since one that has entered a
// namespace, and came no further there, cannot leave it any more.
int why_not_bound(const std::string& device) {
    Ends report = make_pipe();
    const pid_t trial = fork();
    if (trial == 0) {
        const int reason = bind_over_the_name(device) ? 0 : errno;
        [[maybe_unused]] const ssize_t told = ::write(report.second.get(), &reason, sizeof reason);
        _exit(EXIT_SUCCESS);
    }
    const int no_process = errno;
    report.second.reset();
    int reason = 0;
    if (trial < 0 || ::read(report.first.get(), &reason, sizeof reason) != sizeof reason) {
        reason = trial < 0 ? no_process : EPERM;
    }
    if (trial > 0) {
        waitpid(trial, nullptr, 0);
    }
    return reason;
}

// Puts a value behind those that the variable has.
void append_to_variable(const char* name, const std::string& value) {
    const char* const earlier = std::getenv(name);
    const std::string before = earlier != nullptr && *earlier != '\0' ? std::string(earlier) + ":" : "";
    setenv(name, (before + value).c_str(), 1);
}

std::string find_library() {
    std::error_code none;
    const char* const named = std::getenv(library_variable);
    if (named != nullptr && *named != '\0') {
        return files::is_regular_file(named, none) ? files::absolute(named, none).string() : std::string();
    }
    const files::path here = files::read_symlink("/proc/self/exe", none).parent_path();
    for (const char* const place : {RECORDER_INSTALLED_PRELOAD, RECORDER_BUILT_PRELOAD}) {
        const files::path library = files::weakly_canonical(here / place, none);
        if (files::is_regular_file(library, none)) {
            return library.string();
        }
    }
    return {};
}

// The loader takes a blank in a path for the path's end, but not in the list of directories to look in.
void load_into_the_program(files::path library) {
    if (library.string().find(' ') != std::string::npos) {
        append_to_variable(library_path_variable, library.parent_path().string());
        library = library.filename();
    }
    append_to_variable(preload_variable, library.string());
    append_to_variable(sanitizer_variable, "verify_asan_link_order=0");  // it would refuse to come second
}

std::string preload(const std::string& device) {
    const char* const loaded = std::getenv(line_preload::device_variable);
    if (loaded == nullptr || *loaded == '\0') {
        const std::string library = find_library();
        if (library.empty()) {
            return "line_preload.so is not there, and no mount namespace can be made";
        }
        load_into_the_program(library);
    }
    setenv(line_preload::device_variable, device.c_str(), 1);
    return {};
}

}  // namespace

std::string give_line_name(const std::string& device, LineWay way) {
    if (way == LineWay::preload) {
        return preload(device);
    }
    int reason = why_not_bound(device);
    if (reason == 0 && bind_over_the_name(device)) {
        unsetenv(line_preload::device_variable);  // the name is what it stands for, whatever was loaded
        return {};
    }
    reason = reason == 0 ? errno : reason;
    return way == LineWay::any ? preload(device)
                               : std::string("no mount namespace can be made with ") +
                                     line_preload::line_name + " in it: " + std::strerror(reason);
}

}  // namespace vehicle_recorder
