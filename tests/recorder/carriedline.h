/// @file
/// A carrier in a process of its own, between a pseudo-terminal that plays the vehicle's line and a test that plays the
/// program.

#ifndef TESTS_RECORDER_CARRIEDLINE_H
#define TESTS_RECORDER_CARRIEDLINE_H

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "recorder/carrier.h"
#include "recorder/entrypipe.h"
#include "recorder/pseudoline.h"
#include "tests/support/pseudoterminal.h"

namespace vehicle_recorder {

/// Waits until a condition holds; false after a minute.
inline bool eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// The only child of a process, or -1.
inline pid_t child_of(pid_t process) {
    const std::string path =
        "/proc/" + std::to_string(process) + "/task/" + std::to_string(process) + "/children";
    std::FILE* const file = std::fopen(path.c_str(), "r");
    int child = -1;
    if (file != nullptr) {
        if (std::fscanf(file, "%d", &child) != 1) {
            child = -1;
        }
        std::fclose(file);
    }
    return child;
}

/// The carrier and all that it needs. The test's own end of the program's line is opened with open_line().
class CarriedLine {
public:
    /// @param measure  called in the carrier's process when it has carried to its end; see measured()
    explicit CarriedLine(unsigned long (*measure)() = nullptr)
        : measured_(static_cast<unsigned long*>(mmap(nullptr, sizeof(unsigned long), PROT_READ | PROT_WRITE,
                                                     MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
        program_ = fork();
        if (program_ == 0) {
            vehicle.hang_up();  // this process's copy
            pause();
            _exit(0);
        }
        std::array<int, 2> pipe_ends = {-1, -1};
        std::array<int, 2> sockets = {-1, -1};
        std::array<int, 2> messages = {-1, -1};
        if (measured_ == MAP_FAILED || program_ < 0 || pipe2(pipe_ends.data(), O_CLOEXEC) != 0 ||
            pipe2(messages.data(), O_CLOEXEC) != 0 ||
            socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
            std::perror("carried line");
            std::abort();
        }
        PseudoLine program_line;
        path_ = program_line.path();
        carrier_ = fork();
        if (carrier_ == 0) {
            setpgid(0, 0);
            for (int number = 1; number <= SIGRTMAX; number++) {
                std::signal(number, SIG_IGN);
            }
            dup2(messages[1], STDERR_FILENO);
            vehicle.hang_up();  // this process's copy
            close(pipe_ends[0]);
            close(sockets[0]);
            close(messages[0]);
            close(messages[1]);
            EntrySender sender(pipe_ends[1]);
            CarrierSetUp setup;
            setup.device = vehicle.path();
            setup.program = static_cast<int>(syscall(SYS_pidfd_open, program_, 0));
            setup.orders = sockets[1];
            setup.start_us = monotonic_now_us();
            setup.takers.push_back({&sender, "the recording is gone", "the recording is too slow"});
            Carrier(program_line, setup).run();
            if (measure != nullptr) {
                *measured_ = measure();
            }
            _exit(0);
        }
        close(pipe_ends[1]);
        close(sockets[1]);
        close(messages[1]);
        recording_ = pipe_ends[0];
        orders_ = sockets[0];
        messages_ = messages[0];
    }

    ~CarriedLine() {
        close_line();
        kill(program_, SIGKILL);
        waitpid(program_, nullptr, 0);
        if (carrier_ > 0) {
            kill(carrier_, SIGKILL);
            waitpid(carrier_, nullptr, 0);
        }
        for (const int descriptor : {recording_, orders_, messages_}) {
            if (descriptor >= 0) {
                close(descriptor);
            }
        }
        munmap(measured_, sizeof *measured_);
    }

    CarriedLine(const CarriedLine&) = delete;
    CarriedLine& operator=(const CarriedLine&) = delete;

    /// Path of the program's line.
    const std::string& path() const { return path_; }

    /// Opens the program's line as the panel does.
    /// @param speed  B0 leaves it as it is found
    void open_line(speed_t speed = B9600) {
        line = ::open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        tcgetattr(line, &found);
        if (speed != B0) {
            set_speed(speed);
        }
        eventually([this] { return is_held() && vehicle.attributes().c_lflag == 0; });
    }

    void set_speed(speed_t speed) const {
        termios raw = {};
        cfsetispeed(&raw, speed);
        raw.c_cflag |= CS8 | CLOCAL | CREAD;
        tcsetattr(line, TCSANOW, &raw);
    }

    void close_line() {
        if (line >= 0) {
            close(line);
            line = -1;
        }
    }

    /// Writes to the program's line, waiting for room.
    void write_all(const std::string& bytes) const {
        for (std::size_t at = 0; at < bytes.size();) {
            const ssize_t count = ::write(line, bytes.data() + at, bytes.size() - at);
            if (count > 0) {
                at += static_cast<std::size_t>(count);
            } else {
                pollfd room = {line, POLLOUT, 0};
                poll(&room, 1, 100);
            }
        }
    }

    /// Reads once from the program's line; empty when nothing is there.
    std::string read_some() const {
        std::array<char, 4096> block;
        const ssize_t got = ::read(line, block.data(), block.size());
        return {block.data(), static_cast<std::size_t>(got > 0 ? got : 0)};
    }

    /// Reads from the program's line until so many bytes have come.
    std::string read_all(std::size_t count) const {
        std::string bytes;
        eventually([&] {
            bytes += read_some();
            return bytes.size() >= count;
        });
        return bytes;
    }

    /// Whether the carrier, or its guard, has the real line open.
    bool is_held() const {
        const int other = ::open(vehicle.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        const bool is_free = flock(other, LOCK_EX | LOCK_NB) == 0;
        close(other);
        return !is_free;
    }

    void end_program() {
        kill(program_, SIGKILL);
        close(orders_);  // nothing more will be told
        orders_ = -1;
    }

    void order(const std::string& text) const { send(orders_, text.data(), text.size(), MSG_NOSIGNAL); }

    pid_t carrier() const { return carrier_; }
    pid_t guard() const { return child_of(carrier_); }

    void kill_carrier() {
        kill(carrier_, SIGKILL);
        wait_for_carrier();
    }

    /// Waits for the carrier's end; returns what waitpid(2) tells.
    int wait_for_carrier() {
        int status = -1;
        waitpid(carrier_, &status, 0);
        carrier_ = -1;
        return status;
    }

    /// What was measured; to be asked when the carrier has ended.
    unsigned long measured() const { return *measured_; }

    void stop_reading_recording() {
        close(recording_);
        recording_ = -1;
    }

    /// What is recorded until the carrier ends.
    std::vector<Entry> recording() {
        while (read_recording()) {
        }
        return entries_;
    }

    /// Waits until something of this kind is recorded.
    void wait_for(EntryKind kind) {
        while (std::none_of(entries_.begin(), entries_.end(),
                            [kind](const Entry& entry) { return entry.kind == kind; }) &&
               read_recording()) {
        }
    }

    /// What the carrier has told until now.
    std::string messages() {
        pollfd ready = {messages_, POLLIN, 0};
        std::array<char, 1024> block;
        while (poll(&ready, 1, 0) > 0) {
            const ssize_t count = ::read(messages_, block.data(), block.size());
            if (count <= 0) {
                break;
            }
            told_.append(block.data(), static_cast<std::size_t>(count));
        }
        return told_;
    }

    PseudoTerminal vehicle;
    int line = -1;
    termios found = {};
    std::uint64_t lost = 0;

private:
    bool read_recording() {
        if (!receiver_) {
            receiver_.emplace(recording_);
        }
        return receiver_->read([this](const Entry& entry) { entries_.push_back(entry); },
                               [this](std::uint64_t count) { lost += count; });
    }

    unsigned long* measured_;  // shared with the carrier
    std::optional<EntryReceiver> receiver_;
    std::vector<Entry> entries_;
    pid_t program_ = -1;
    pid_t carrier_ = -1;
    int recording_ = -1;
    int orders_ = -1;
    int messages_ = -1;
    std::string path_;
    std::string told_;
};

/// All bytes of a kind, in their order.
inline std::string bytes_of(const std::vector<Entry>& entries, EntryKind kind) {
    std::string all;
    for (const Entry& entry : entries) {
        if (entry.kind == kind) {
            all.append(entry.bytes.begin(), entry.bytes.end());
        }
    }
    return all;
}

/// What else happened, a word or text each.
inline std::vector<std::string> story_of(const std::vector<Entry>& entries) {
    std::vector<std::string> story;
    for (const Entry& entry : entries) {
        switch (entry.kind) {
            case EntryKind::open:
                story.emplace_back("open");
                break;
            case EntryKind::close:
                story.emplace_back("close");
                break;
            case EntryKind::end:
                story.emplace_back("end");
                break;
            case EntryKind::note:
                story.push_back(entry.text);
                break;
            case EntryKind::line:
                story.push_back(std::to_string(entry.settings.speed_baud) + " " + entry.settings.format +
                                " " + entry.settings.flow);
                break;
            default:
                break;
        }
    }
    return story;
}

}  // namespace vehicle_recorder

#endif
