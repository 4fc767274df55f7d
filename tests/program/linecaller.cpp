// Asks for a file with every function of the C library that line_preload.so stands in front of, and prints a line for
// each: linecaller DIRECTORY PATH [FUNCTION]. DIRECTORY is where the functions look that are given one.
//
// A line has the function's name, and the device number of what was found ("1:5"), the text that was found, or the
// system's reason.

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "program/fortifiedcalls.h"

namespace {

int directory = -1;
char room[4096];

std::string reason() {
    return strerrorname_np(errno);
}

template <typename Device>
std::string number(Device device) {
    return std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

std::string opened(int descriptor) {
    struct stat status = {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0) {
        return reason();
    }
    close(descriptor);
    return number(status.st_rdev);
}

std::string opened(std::FILE* stream) {
    if (stream == nullptr) {
        return reason();
    }
    const std::string found = opened(dup(fileno(stream)));
    std::fclose(stream);
    return found;
}

// A standard stream that is reopened, for the C library keeps the memory of another one that cannot be.
std::string reopened(std::FILE* stream) {
    return stream == nullptr ? reason() : opened(dup(fileno(stream)));
}

// Whether a program can be spawned with the file as its standard input; the program prints the number that it finds.
std::string spawned(const char* path) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, path, O_RDONLY, 0);
    char program[] = "stat", option[] = "-L", form[] = "-c%t:%T", file[] = "/proc/self/fd/0";
    char* const arguments[] = {program, option, form, file, nullptr};
    pid_t child = 0;
    std::fflush(stdout);
    const int result = posix_spawnp(&child, program, &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (result == 0) {
        waitpid(child, &status, 0);
    }
    return result == 0 ? "spawned" : strerrorname_np(result);
}

template <typename Status>
std::string asked(int result, const Status& status) {
    return result == 0 ? number(status.st_rdev) : reason();
}

std::string allowed(int result) {
    return result == 0 ? "allowed" : reason();
}

std::string linked(ssize_t length) {
    return length >= 0 ? std::string(room, static_cast<std::size_t>(length)) : reason();
}

std::string resolved(char* path) {
    if (path == nullptr) {
        return reason();
    }
    const std::string found = path;
    if (path != room) {
        std::free(path);
    }
    return found;
}

struct stat status = {};
struct stat64 status64 = {};

struct Function {
    const char* name;
    std::string (*call)(const char* path);
};

const Function functions[] = {
    {"open", [](const char* path) { return opened(open(path, O_RDONLY)); }},
    {"open64", [](const char* path) { return opened(open64(path, O_RDONLY | O_NOFOLLOW)); }},
    {"openat", [](const char* path) { return opened(openat(directory, path, O_RDONLY)); }},
    {"openat64", [](const char* path) { return opened(openat64(directory, path, O_RDONLY)); }},
    {"__open_2", [](const char* path) { return opened(__open_2(path, O_RDONLY)); }},
    {"__open64_2", [](const char* path) { return opened(__open64_2(path, O_RDONLY)); }},
    {"__openat_2", [](const char* path) { return opened(__openat_2(directory, path, O_RDONLY)); }},
    {"__openat64_2", [](const char* path) { return opened(__openat64_2(directory, path, O_RDONLY)); }},
    {"fopen", [](const char* path) { return opened(fopen(path, "r")); }},
    {"fopen64", [](const char* path) { return opened(fopen64(path, "r")); }},
    {"freopen", [](const char* path) { return reopened(freopen(path, "r", stdin)); }},
    {"freopen64", [](const char* path) { return reopened(freopen64(path, "r", stderr)); }},
    {"stat", [](const char* path) { return asked(stat(path, &status), status); }},
    {"stat64", [](const char* path) { return asked(stat64(path, &status64), status64); }},
    {"lstat", [](const char* path) { return asked(lstat(path, &status), status); }},
    {"lstat64", [](const char* path) { return asked(lstat64(path, &status64), status64); }},
    {"fstatat",
     [](const char* path) { return asked(fstatat(directory, path, &status, AT_SYMLINK_NOFOLLOW), status); }},
    {"fstatat64",
     [](const char* path) { return asked(fstatat64(directory, path, &status64, AT_EMPTY_PATH), status64); }},
    {"statx",
     [](const char* path) {
         struct statx found = {};
         const int result =
             statx(directory, path, AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH, STATX_BASIC_STATS, &found);
         return result == 0 ? number(makedev(found.stx_rdev_major, found.stx_rdev_minor)) : reason();
     }},
    {"access", [](const char* path) { return allowed(access(path, R_OK)); }},
    {"eaccess", [](const char* path) { return allowed(eaccess(path, R_OK)); }},
    {"euidaccess", [](const char* path) { return allowed(euidaccess(path, R_OK)); }},
    {"faccessat", [](const char* path) { return allowed(faccessat(directory, path, R_OK, AT_EACCESS)); }},
    {"readlink", [](const char* path) { return linked(readlink(path, room, sizeof room)); }},
    {"readlinkat", [](const char* path) { return linked(readlinkat(directory, path, room, sizeof room)); }},
    {"__readlink_chk",
     [](const char* path) { return linked(__readlink_chk(path, room, sizeof room, sizeof room)); }},
    {"__readlinkat_chk",
     [](const char* path) {
         return linked(__readlinkat_chk(directory, path, room, sizeof room, sizeof room));
     }},
    {"realpath", [](const char* path) { return resolved(realpath(path, nullptr)); }},
    {"__realpath_chk", [](const char* path) { return resolved(__realpath_chk(path, room, sizeof room)); }},
    {"canonicalize_file_name", [](const char* path) { return resolved(canonicalize_file_name(path)); }},
    {"posix_spawn_file_actions_addopen", spawned},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        return 2;
    }
    directory = open(argv[1], O_RDONLY | O_DIRECTORY);
    for (const Function& function : functions) {
        if (argc == 3 || std::strcmp(function.name, argv[3]) == 0) {
            std::printf("%s %s\n", function.name, function.call(argv[2]).c_str());
        }
    }
    return 0;
}
