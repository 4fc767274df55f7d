// The command `plot`: a recording in the plotting window, which is a program of its own.

#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "program/failure.h"
#include "recorder/commandoptions.h"
#include "recorder/commands.h"
#include "recorder/cyclerows.h"
#include "recorder/readthrough.h"
#include "recorder/resultstream.h"

namespace vehicle_recorder {

namespace {

using program::ExitStatus;
using program::Failure;

constexpr const char* plotting_program = "nodevik-plot";
constexpr int status_of_signals = 128;

// A file with the recording's name, which the window shows, below the directory for temporary files. It goes with the
// object.
class TemporaryTable {
public:
    explicit TemporaryTable(const std::string& recording) {
        const char* const directory = std::getenv("TMPDIR");
        directory_ = std::string(directory == nullptr || *directory == '\0' ? "/tmp" : directory) +
                     "/vehicle-recorder-XXXXXX";
        if (mkdtemp(directory_.data()) == nullptr) {
            throw Failure(ExitStatus::bad_file, directory_ + " cannot be written: " + std::strerror(errno));
        }
        path_ = directory_ + "/" + std::filesystem::path(recording).stem().string() + ".csv";
    }
    ~TemporaryTable() {
        unlink(path_.c_str());
        rmdir(directory_.c_str());
    }
    TemporaryTable(const TemporaryTable&) = delete;
    TemporaryTable& operator=(const TemporaryTable&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string directory_;
    std::string path_;
};

void write_table(const std::string& recording, const std::string& table, const Interrupts& interrupts) {
    RecordingReader reader(recording);
    ResultStream output(table, interrupts);
    bool has_frames = false;
    std::uint64_t last_us = 0;
    CycleBuilder builder([&](const Cycle& cycle) {
        if (cycle.number == 0) {
            return;
        }
        if (!has_frames) {
            output.add(curve_head());
        } else if (!cycle.since_us) {
            output.add(curve_gap(last_us));  // the line was closed meanwhile
        }
        output.add(curve_row(cycle, reader.header()));
        has_frames = true;
        last_us = cycle.time_us;
    });
    read_through(reader, interrupts, true, [&builder](const Entry& entry) {
        builder.add(entry);
        return true;
    });
    builder.finish();
    demand_frames(reader, has_frames);
    output.finish();
}

// Starts the window with the signals as they were before they were made to wait here.
pid_t start_window(const std::string& table) {
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    sigset_t ignored_here;
    sigemptyset(&ignored_here);
    sigaddset(&ignored_here, SIGPIPE);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &ignored_here);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    std::string name = plotting_program;
    std::string file = table;
    char* const arguments[] = {name.data(), file.data(), nullptr};
    pid_t child = -1;
    const int failure = posix_spawnp(&child, plotting_program, nullptr, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    if (failure == ENOENT) {
        throw Failure(ExitStatus::bad_file,
                      std::string(plotting_program) +
                          " is not installed: it comes with the package ohjauspaneeli-tools");
    }
    if (failure != 0) {
        throw Failure(ExitStatus::bad_file,
                      std::string(plotting_program) + " cannot be started: " + std::strerror(failure));
    }
    return child;
}

int wait_for_end(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? status_of_signals + WTERMSIG(status) : WEXITSTATUS(status);
}

// The window's exit status. It ends with this program.
int watch_window(pid_t child, const Interrupts& interrupts) {
    constexpr int look_ms = 100;
    const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    try {
        pollfd end = {descriptor, POLLIN, 0};
        while (poll(&end, 1, look_ms) == 0) {
            interrupts.check();
        }
    } catch (...) {
        kill(child, SIGTERM);
        wait_for_end(child);
        close(descriptor);
        throw;
    }
    close(descriptor);
    return wait_for_end(child);
}

int plot(const std::string& recording) {
    const Interrupts interrupts;
    const TemporaryTable table(recording);
    write_table(recording, table.path(), interrupts);
    return watch_window(start_window(table.path()), interrupts);
}

}  // namespace

void add_plot_command(CLI::App& app, Action& action) {
    CLI::App& command = add_command(app, "plot", "Show a recording in the plotting window",
                                    "vehicle-recorder plot drive.recording");
    const auto file = std::make_shared<std::string>();
    add_recording_option(command, *file);
    command.callback([&action, file] { action = [file] { return plot(*file); }; });
}

}  // namespace vehicle_recorder
