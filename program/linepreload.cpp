// The functions of the C library that take the path of a file, each with the line's name exchanged for the device.
//
// No memory is allocated and no lock is taken, for a signal handler may open a file. The library calls nothing of the
// C++ runtime, so that whatever it is loaded into carries no more than itself. The calls go on to whoever would have
// had them otherwise: the C library, another preloaded library, or a sanitizer.

#include "program/linepreload.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "program/fortifiedcalls.h"

namespace {

// A function of this name as the libraries after this one have it.
template <typename Function>
class Next {
public:
    constexpr explicit Next(const char* symbol) : symbol_(symbol) {}

    // Needed once before the process has threads or handles signals: dlsym(3) is not for a signal handler.
    Function* look_up() {
        void* found = found_.load(std::memory_order_relaxed);
        if (found == nullptr) {
            found = dlsym(RTLD_NEXT, symbol_);
            found_.store(found, std::memory_order_relaxed);  // the same value, whoever is first
        }
        return reinterpret_cast<Function*>(found);
    }

    template <typename... Arguments>
    auto operator()(Arguments... arguments) {
        return look_up()(arguments...);
    }

private:
    const char* symbol_;
    std::atomic<void*> found_{nullptr};
};

constinit Next<decltype(::open)> next_open("open");
constinit Next<decltype(::open64)> next_open64("open64");
constinit Next<decltype(::openat)> next_openat("openat");
constinit Next<decltype(::openat64)> next_openat64("openat64");
constinit Next<decltype(::__open_2)> next_open_2("__open_2");
constinit Next<decltype(::__open64_2)> next_open64_2("__open64_2");
constinit Next<decltype(::__openat_2)> next_openat_2("__openat_2");
constinit Next<decltype(::__openat64_2)> next_openat64_2("__openat64_2");
constinit Next<decltype(::fopen)> next_fopen("fopen");
constinit Next<decltype(::fopen64)> next_fopen64("fopen64");
constinit Next<decltype(::freopen)> next_freopen("freopen");
constinit Next<decltype(::freopen64)> next_freopen64("freopen64");
constinit Next<decltype(::posix_spawn_file_actions_addopen)> next_addopen("posix_spawn_file_actions_addopen");
constinit Next<decltype(::stat)> next_stat("stat");
constinit Next<decltype(::stat64)> next_stat64("stat64");
constinit Next<decltype(::lstat)> next_lstat("lstat");
constinit Next<decltype(::lstat64)> next_lstat64("lstat64");
constinit Next<decltype(::fstatat)> next_fstatat("fstatat");
constinit Next<decltype(::fstatat64)> next_fstatat64("fstatat64");
constinit Next<decltype(::statx)> next_statx("statx");
constinit Next<decltype(::access)> next_access("access");
constinit Next<decltype(::eaccess)> next_eaccess("eaccess");
constinit Next<decltype(::euidaccess)> next_euidaccess("euidaccess");
constinit Next<decltype(::faccessat)> next_faccessat("faccessat");
constinit Next<decltype(::readlink)> next_readlink("readlink");
constinit Next<decltype(::readlinkat)> next_readlinkat("readlinkat");
constinit Next<decltype(::__readlink_chk)> next_readlink_chk("__readlink_chk");
constinit Next<decltype(::__readlinkat_chk)> next_readlinkat_chk("__readlinkat_chk");
constinit Next<decltype(::realpath)> next_realpath("realpath");
constinit Next<decltype(::__realpath_chk)> next_realpath_chk("__realpath_chk");
constinit Next<decltype(::canonicalize_file_name)> next_canonicalize_file_name("canonicalize_file_name");

template <typename... Functions>
void look_up_all(Functions&... functions) {
    (functions.look_up(), ...);
}

enum class Choice { unread, unchanged, made };
constinit std::atomic<Choice> choice{Choice::unread};

// The path that takes the place of the line's; the empty path, which names no file, when the line is missing.
constinit char device[PATH_MAX] = "";

// Reads the environment. Whoever comes first does it, before the process has threads: at the latest `begin`.
Choice read_choice() {
    const char* value = getenv(line_preload::device_variable);
    if (value == nullptr || *value == '\0' || strlen(value) >= sizeof device) {
        return Choice::unchanged;
    }
    if (strcmp(value, line_preload::no_device) != 0) {
        strncpy(device, value, sizeof device - 1);
    }
    return Choice::made;
}

bool is_chosen() {
    Choice now = choice.load(std::memory_order_relaxed);
    if (now == Choice::unread) {
        now = read_choice();
        choice.store(now, std::memory_order_relaxed);
    }
    return now == Choice::made;
}

__attribute__((constructor)) void begin() {
    is_chosen();
    look_up_all(next_open, next_open64, next_openat, next_openat64, next_open_2, next_open64_2, next_openat_2,
                next_openat64_2, next_fopen, next_fopen64, next_freopen, next_freopen64, next_addopen,
                next_stat, next_stat64, next_lstat, next_lstat64, next_fstatat, next_fstatat64, next_statx,
                next_access, next_eaccess, next_euidaccess, next_faccessat, next_readlink, next_readlinkat,
                next_readlink_chk, next_readlinkat_chk, next_realpath, next_realpath_chk,
                next_canonicalize_file_name);
}

// Whether `path` up to its last `name_length` characters, seen from `directory`, is the directory of the line.
bool leads_to_the_line(int directory, const char* path, size_t path_length, size_t name_length) {
    const size_t length = path_length - name_length;
    char parent[PATH_MAX];
    if (length >= sizeof parent) {
        return false;
    }
    strncpy(parent, path, length);
    parent[length] = '\0';
    const int before = errno;
    struct stat found = {};
    struct stat wanted = {};
    const bool leads = next_fstatat(directory, length == 0 ? "." : parent, &found, 0) == 0 &&
                       next_fstatat(AT_FDCWD, "/dev", &wanted, 0) == 0 && found.st_dev == wanted.st_dev &&
                       found.st_ino == wanted.st_ino;
    errno = before;
    return leads;
}

// Whether `path`, seen from `directory`, names the line.
bool is_line(int directory, const char* path) {
    constexpr const char* name = line_preload::line_name;
    if (path == nullptr || !is_chosen()) {
        return false;
    }
    if (strcmp(path, name) == 0) {
        return true;
    }
    const char* const last_part = strrchr(name, '/') + 1;
    const size_t name_length = strlen(last_part);
    const size_t length = strlen(path);
    if (length < name_length || strcmp(path + length - name_length, last_part) != 0 ||
        (length > name_length && path[length - name_length - 1] != '/')) {
        return false;
    }
    return leads_to_the_line(directory, path, length, name_length);
}

// The path to go on with in the place of `path`.
const char* behind(const char* path) {
    return is_line(AT_FDCWD, path) ? device : path;
}

const char* behind(int directory, const char* path) {
    return is_line(directory, path) ? device : path;
}

// The flags to go on with: the device is meant itself, wherever its path leads, and its path may be the empty one.
int flags_behind(int directory, const char* path, int flags) {
    return is_line(directory, path) ? flags & ~(AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH) : flags;
}

int open_flags_behind(int directory, const char* path, int flags) {
    return is_line(directory, path) ? flags & ~O_NOFOLLOW : flags;
}

// The line is a device and no link, whatever stands behind it.
ssize_t refuse_to_be_a_link() {
    if (next_access(device, F_OK) == 0) {
        errno = EINVAL;
    }
    return -1;
}

// The line's own name as the resolved one if there is a device behind it.
char* resolve_the_line(char* resolved) {
    if (next_access(device, F_OK) != 0) {
        return nullptr;
    }
    constexpr const char* name = line_preload::line_name;
    return resolved == nullptr ? strdup(name) : static_cast<char*>(memcpy(resolved, name, strlen(name) + 1));
}

// The mode that an opening call was given behind its flags.
mode_t mode_of(int flags, va_list arguments) {
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_of(flags, arguments);
    va_end(arguments);
    return next_open(behind(path), open_flags_behind(AT_FDCWD, path, flags), mode);
}

int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_of(flags, arguments);
    va_end(arguments);
    return next_open64(behind(path), open_flags_behind(AT_FDCWD, path, flags), mode);
}

int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_of(flags, arguments);
    va_end(arguments);
    return next_openat(directory, behind(directory, path), open_flags_behind(directory, path, flags), mode);
}

int openat64(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_of(flags, arguments);
    va_end(arguments);
    return next_openat64(directory, behind(directory, path), open_flags_behind(directory, path, flags), mode);
}

int __open_2(const char* path, int flags) {
    return next_open_2(behind(path), open_flags_behind(AT_FDCWD, path, flags));
}

int __open64_2(const char* path, int flags) {
    return next_open64_2(behind(path), open_flags_behind(AT_FDCWD, path, flags));
}

int __openat_2(int directory, const char* path, int flags) {
    return next_openat_2(directory, behind(directory, path), open_flags_behind(directory, path, flags));
}

int __openat64_2(int directory, const char* path, int flags) {
    return next_openat64_2(directory, behind(directory, path), open_flags_behind(directory, path, flags));
}

FILE* fopen(const char* path, const char* mode) {
    return next_fopen(behind(path), mode);
}

FILE* fopen64(const char* path, const char* mode) {
    return next_fopen64(behind(path), mode);
}

FILE* freopen(const char* path, const char* mode, FILE* stream) {
    return next_freopen(behind(path), mode, stream);
}

FILE* freopen64(const char* path, const char* mode, FILE* stream) {
    return next_freopen64(behind(path), mode, stream);
}

int posix_spawn_file_actions_addopen(posix_spawn_file_actions_t* actions, int descriptor, const char* path,
                                     int flags, mode_t mode) noexcept {
    return next_addopen(actions, descriptor, behind(path), open_flags_behind(AT_FDCWD, path, flags), mode);
}

int stat(const char* path, struct stat* status) noexcept {
    return next_stat(behind(path), status);
}

int stat64(const char* path, struct stat64* status) noexcept {
    return next_stat64(behind(path), status);
}

int lstat(const char* path, struct stat* status) noexcept {
    return is_line(AT_FDCWD, path) ? next_stat(device, status) : next_lstat(path, status);
}

int lstat64(const char* path, struct stat64* status) noexcept {
    return is_line(AT_FDCWD, path) ? next_stat64(device, status) : next_lstat64(path, status);
}

int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
    return next_fstatat(directory, behind(directory, path), status, flags_behind(directory, path, flags));
}

int fstatat64(int directory, const char* path, struct stat64* status, int flags) noexcept {
    return next_fstatat64(directory, behind(directory, path), status, flags_behind(directory, path, flags));
}

int statx(int directory, const char* path, int flags, unsigned mask, struct statx* status) noexcept {
    return next_statx(directory, behind(directory, path), flags_behind(directory, path, flags), mask, status);
}

int access(const char* path, int mode) noexcept {
    return next_access(behind(path), mode);
}

int eaccess(const char* path, int mode) noexcept {
    return next_eaccess(behind(path), mode);
}

int euidaccess(const char* path, int mode) noexcept {
    return next_euidaccess(behind(path), mode);
}

int faccessat(int directory, const char* path, int mode, int flags) noexcept {
    return next_faccessat(directory, behind(directory, path), mode, flags_behind(directory, path, flags));
}

ssize_t readlink(const char* path, char* target, size_t size) noexcept {
    return is_line(AT_FDCWD, path) ? refuse_to_be_a_link() : next_readlink(path, target, size);
}

ssize_t readlinkat(int directory, const char* path, char* target, size_t size) noexcept {
    return is_line(directory, path) ? refuse_to_be_a_link() : next_readlinkat(directory, path, target, size);
}

ssize_t __readlink_chk(const char* path, char* target, size_t size, size_t room) {
    return is_line(AT_FDCWD, path) ? refuse_to_be_a_link() : next_readlink_chk(path, target, size, room);
}

ssize_t __readlinkat_chk(int directory, const char* path, char* target, size_t size, size_t room) {
    return is_line(directory, path) ? refuse_to_be_a_link()
                                    : next_readlinkat_chk(directory, path, target, size, room);
}

char* realpath(const char* path, char* resolved) noexcept {
    return is_line(AT_FDCWD, path) ? resolve_the_line(resolved) : next_realpath(path, resolved);
}

char* __realpath_chk(const char* path, char* resolved, size_t room) {
    return is_line(AT_FDCWD, path) ? resolve_the_line(resolved) : next_realpath_chk(path, resolved, room);
}

char* canonicalize_file_name(const char* path) noexcept {
    return is_line(AT_FDCWD, path) ? resolve_the_line(nullptr) : next_canonicalize_file_name(path);
}

}  // extern "C"
