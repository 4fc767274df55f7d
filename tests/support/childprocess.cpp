#include "tests/support/childprocess.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

// Present in a coverage build alone.
extern "C" void __gcov_dump() __attribute__((weak));

namespace {

// What abort(3) ends has been covered too: coverage counts are written before the end.
void keep_coverage_on_abort() {
    if (__gcov_dump != nullptr) {
        std::signal(SIGABRT, [](int number) {
            __gcov_dump();
            std::signal(number, SIG_DFL);
            std::raise(number);
        });
    }
}

// A file without a name that a child writes to or reads from.
class MemoryFile {
public:
    MemoryFile() : fd_(memfd_create("captured", MFD_CLOEXEC)) {
        if (fd_ < 0) {
            std::perror("memfd_create");
            std::abort();
        }
    }
    ~MemoryFile() { ::close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    void put_at(int descriptor) const {
        if (dup2(fd_, descriptor) < 0) {
            _exit(127);
        }
    }

    void fill(const std::string& text) const {
        if (pwrite(fd_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
            std::perror("pwrite");
            std::abort();
        }
    }

    std::string contents() const {
        std::string text;
        char block[4096];
        for (ssize_t got = 0; (got = pread(fd_, block, sizeof block, static_cast<off_t>(text.size()))) > 0;) {
            text.append(block, static_cast<size_t>(got));
        }
        return text;
    }

private:
    int fd_;
};

ChildResult wait_for(pid_t child, const MemoryFile& out, const MemoryFile& err) {
    ChildResult result;
    int state = 0;
    while (waitpid(child, &state, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(state)) {
        result.status = WEXITSTATUS(state);
    } else if (WIFSIGNALED(state)) {
        result.signal = WTERMSIG(state);
    }
    result.out = out.contents();
    result.err = err.contents();
    return result;
}

pid_t checked_fork() {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        std::perror("fork");
        std::abort();
    }
    return child;
}

}  // namespace

ChildResult run_in_child(const std::function<void()>& body) {
    const MemoryFile out;
    const MemoryFile err;
    const pid_t child = checked_fork();
    if (child == 0) {
        out.put_at(STDOUT_FILENO);
        err.put_at(STDERR_FILENO);
        keep_coverage_on_abort();
        body();
        std::exit(0);
    }
    return wait_for(child, out, err);
}

ChildResult run_program(const std::vector<std::string>& arguments, const std::string& input) {
    const MemoryFile in;
    const MemoryFile out;
    const MemoryFile err;
    in.fill(input);
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    const pid_t child = checked_fork();
    if (child == 0) {
        in.put_at(STDIN_FILENO);
        out.put_at(STDOUT_FILENO);
        err.put_at(STDERR_FILENO);
        execvp(argv[0], argv.data());
        std::fprintf(stderr, "%s: %s\n", argv[0], std::strerror(errno));
        _exit(127);
    }
    return wait_for(child, out, err);
}

ChildResult run_preloaded(const std::string& library, const std::vector<std::string>& arguments) {
    const std::filesystem::path path(library);
    const char* const options = std::getenv("ASAN_OPTIONS");
    // By its directory, for a blank would end the path of a preloaded library. A sanitizer in the program would refuse
    // to come second.
    std::vector<std::string> words = {
        "/usr/bin/env", "LD_PRELOAD=" + path.filename().string(),
        "LD_LIBRARY_PATH=" + path.parent_path().string(),
        std::string("ASAN_OPTIONS=") + (options == nullptr ? "" : options) + ":verify_asan_link_order=0"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return run_program(words);
}
