#include "recorder/session.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <system_error>
#include <utility>

#include "lineguard.h"
#include "program/failure.h"
#include "recorder/carrier.h"
#include "recorder/descriptor.h"
#include "recorder/entrypipe.h"
#include "recorder/heldsignals.h"
#include "recorder/programstart.h"
#include "recorder/pseudoline.h"
#include "recorder/realline.h"
#include "recorder/recordingwriter.h"
#include "recorder/writinghalf.h"

namespace vehicle_recorder {

namespace {

using program::ExitStatus;
using program::Failure;

constexpr int carrier_priority = -10;
// The writing half gets this long for what is left when all others have ended.
constexpr std::chrono::seconds longest_writing{10};

void tell(const std::string& text) {
    std::fprintf(stderr, "vehicle-recorder: %s\n", text.c_str());
}

[[noreturn]] void fail(const char* what) {
    throw Failure(ExitStatus::no_bus, std::string(what) + " cannot be made: " + std::strerror(errno));
}

// --- descriptors ---

Ends make_sockets() {
    std::array<int, 2> ends = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0) {
        fail("a pair of sockets");
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

constexpr const char* recording_gone =
    "the process that writes the recording is gone: the line is carried on without being recorded";
constexpr const char* recording_behind =
    "the recording is not written fast enough: the line is carried on, bytes are not recorded";
constexpr const char* watcher_gone =
    "the process that watches the limits is gone: they are not watched any more";
constexpr const char* watcher_behind =
    "the process that watches the limits is too slow: it does not see all bytes";

// Nothing that is opened here may get the number of a standard descriptor that is closed: what is printed would end up
// in it.
void fill_standard_descriptors() {
    for (int number = open("/dev/null", O_RDWR); number >= 0; number = open("/dev/null", O_RDWR)) {
        if (number > STDERR_FILENO) {
            close(number);
            return;
        }
    }
}

void close_all_but(std::vector<int> kept) {
    std::sort(kept.begin(), kept.end());
    unsigned next = STDERR_FILENO + 1;
    for (const int number : kept) {
        if (number >= static_cast<int>(next)) {
            close_range(next, static_cast<unsigned>(number) - 1, 0);
            next = static_cast<unsigned>(number) + 1;
        }
    }
    close_range(next, ~0U, 0);
}

// --- processes beside this one ---

// Whatever is thrown there ends the process: it must not get to what its parent does then.
[[noreturn]] void work_to_the_end(const std::function<void()>& work) noexcept {
    work();
    _exit(EXIT_SUCCESS);
}

// Starts a process that nothing reaches that is meant for the session or its terminal. It keeps the standard error and
// the given descriptors only.
pid_t start_worker(const char* name, const std::vector<int>& kept, const std::function<void()>& work) {
    const pid_t worker = fork();
    if (worker < 0) {
        fail(name);
    }
    if (worker > 0) {
        return worker;
    }
    for (int number = 1; number <= SIGRTMAX; number++) {
        std::signal(number, SIG_IGN);
    }
    sigset_t none = {};
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    setsid();
    prctl(PR_SET_NAME, name);
    const int null_device = open("/dev/null", O_RDWR);
    dup2(null_device, STDIN_FILENO);
    dup2(null_device, STDOUT_FILENO);
    close_all_but(kept);
    work_to_the_end(work);
}

// Whether the real line is open, as the carrier knows and others see.
class SharedFlag {
public:
    SharedFlag() {
        void* const room = mmap(nullptr, sizeof(std::atomic<bool>), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (room == MAP_FAILED) {
            fail("shared memory");
        }
        flag_ = new (room) std::atomic<bool>(false);
    }
    ~SharedFlag() { munmap(static_cast<void*>(flag_), sizeof *flag_); }
    SharedFlag(const SharedFlag&) = delete;
    SharedFlag& operator=(const SharedFlag&) = delete;

    std::atomic<bool>* get() const { return flag_; }

private:
    std::atomic<bool>* flag_ = nullptr;
};

// The recording that goes again if nothing comes of the session.
class NewFile {
public:
    explicit NewFile(std::string path) : path_(std::move(path)) {}
    ~NewFile() {
        if (!path_.empty()) {
            unlink(path_.c_str());
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void keep() { path_.clear(); }

private:
    std::string path_;
};

// --- the program ---

// Becomes the program, once it may.
[[noreturn]] void await_permission(const SessionSetUp& setup, const std::string& device, int permission,
                                   int report) {
    char go = 0;
    if (read(permission, &go, 1) != 1) {
        _exit(EXIT_FAILURE);
    }
    become_program(setup.program, device, setup.way, report);
}

std::string describe(int status) {
    return WIFSIGNALED(status) ? "the program was ended by signal " + std::to_string(WTERMSIG(status))
                               : "the program ended with status " + std::to_string(WEXITSTATUS(status));
}

// --- the session ---

class Session {
public:
    explicit Session(const SessionSetUp& setup) : setup_(setup) {}

    int run() {
        start_writing_half();
        NewFile file(setup_.out);
        start_watcher();
        start_program_and_carrier();
        let_program_go();
        file.keep();
        while (program_ > 0 || carrier_ > 0 || (watcher_ > 0 && !impatient_)) {
            wait(-1);
        }
        const auto end = std::chrono::steady_clock::now() + longest_writing;
        while (writing_half_ > 0 && std::chrono::steady_clock::now() < end && !impatient_) {
            wait(100);
        }
        if (writing_half_ > 0) {
            tell("the recording is not written to its end yet: the disk is slow, or its process is stopped");
        }
        return exit_status_of(program_status_);
    }

private:
    void start_writing_half() {
        RecordingHeader header = header_of_now(setup_.device);
        start_us_ = header.monotonic_us;
        RecordingWriter writer(setup_.out, header, tell);
        Ends pipe = make_pipe();
        const int reading = pipe.first.get();
        writing_half_ = start_worker("linewriter", {reading, writer.descriptor()},
                                     [&] { write_what_comes(reading, writer, start_us_); });
        recording_ = std::move(pipe.second);
    }

    void start_watcher() {
        if (setup_.alarms.thresholds.empty()) {
            return;
        }
        Ends pipe = make_pipe();
        const int reading = pipe.first.get();
        watcher_ = start_worker("linewatcher", {reading},
                                [&] { watch_what_comes(reading, setup_.alarms, start_us_); });
        watched_ = std::move(pipe.second);
    }

    void start_program_and_carrier() {
        PseudoLine line;
        Ends permission = make_pipe();
        Ends report = make_pipe();
        program_ = fork();
        if (program_ < 0) {
            fail("the program's process");
        }
        if (program_ == 0) {
            signals_.restore();
            permission.second.reset();
            await_permission(setup_, line.path(), permission.first.get(), report.second.get());
        }
        permission_ = std::move(permission.second);
        report_ = std::move(report.first);
        report.second.reset();

        const Descriptor program(static_cast<int>(syscall(SYS_pidfd_open, program_, 0)));
        if (program.get() < 0) {
            fail("a descriptor for the program");
        }
        Ends orders = make_sockets();
        Ends messages = make_pipe();
        fcntl(messages.second.get(), F_SETFL, O_NONBLOCK);
        const std::vector<int> kept = {line.descriptor(),     program.get(),    orders.second.get(),
                                       messages.second.get(), recording_.get(), watched_.get()};
        carrier_ = start_worker("linecarrier", kept, [&] {
            carry(line, program.get(), orders.second.get(), messages.second.get());
        });
        orders_ = std::move(orders.first);
        messages_ = std::move(messages.first);
        recording_.reset();
        watched_.reset();
    }

    // What the carrier's process does. What is printed there goes to the session, which may wait for its terminal.
    void carry(PseudoLine& line, int program, int orders, int messages) {
        dup2(messages, STDERR_FILENO);
        close(messages);
        setpriority(PRIO_PROCESS, 0, carrier_priority);  // for whoever may; it is short of time, not of work
        mlockall(MCL_CURRENT);                           // nothing of it is to come from a disk
        EntrySender recording(recording_.release());
        CarrierSetUp setup;
        setup.device = setup_.device;
        setup.program = program;
        setup.orders = orders;
        setup.start_us = start_us_;
        setup.takers.push_back({&recording, recording_gone, recording_behind});
        std::optional<EntrySender> watched;
        if (watched_.get() >= 0) {
            watched.emplace(watched_.release());
            setup.takers.push_back({&*watched, watcher_gone, watcher_behind});
        }
        setup.at_work = at_work_.get();
        Carrier(line, setup).run();
    }

    // Lets the program's process go on, and sees whether it becomes the program.
    void let_program_go() {
        [[maybe_unused]] const ssize_t told = write(permission_.get(), "g", 1);
        permission_.reset();
        try {
            await_program(report_.get());
        } catch (const Failure&) {
            while (program_ > 0 || carrier_ > 0 || writing_half_ > 0 || watcher_ > 0) {
                wait(-1);
            }
            throw;
        }
        report_.reset();
    }

    void wait(int limit_ms) {
        std::array<pollfd, 2> events = {{{signals_.descriptor(), POLLIN, 0}, {messages_.get(), POLLIN, 0}}};
        poll(events.data(), events.size(), limit_ms);
        pass_messages_on();
        while (const std::optional<signalfd_siginfo> signal = signals_.next()) {
            if (signal->ssi_signo != SIGCHLD) {
                pass_signal_on(*signal);
            }
        }
        int status = 0;
        for (pid_t child = waitpid(-1, &status, WNOHANG); child > 0; child = waitpid(-1, &status, WNOHANG)) {
            take_end(child, status);
        }
    }

    void pass_messages_on() {
        std::array<char, 1024> text;
        ssize_t count = 0;
        while (messages_.get() >= 0 && (count = read_ready(text)) > 0) {
            std::fwrite(text.data(), 1, static_cast<std::size_t>(count), stderr);
        }
    }

    // What has come; 0 when nothing has, and at the end.
    ssize_t read_ready(std::array<char, 1024>& text) {
        pollfd ready = {messages_.get(), POLLIN, 0};
        if (poll(&ready, 1, 0) <= 0) {
            return 0;
        }
        const ssize_t count = read(messages_.get(), text.data(), text.size());
        if (count <= 0) {
            messages_.reset();
        }
        return count;
    }

    void pass_signal_on(const signalfd_siginfo& signal) {
        if (program_ > 0) {
            pass_on(signal, program_);
            return;
        }
        impatient_ = carrier_ < 0;
        send(orders_.get(), &orders::finish, 1, MSG_NOSIGNAL | MSG_DONTWAIT);
    }

    void take_end(pid_t child, int status) {
        if (child == program_) {
            program_ = -1;
            program_status_ = status;
            const std::string order = orders::program_ended + describe(status);
            send(orders_.get(), order.data(), order.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        } else if (child == carrier_) {
            carrier_ = -1;
            pass_messages_on();
            if (!WIFEXITED(status) || WEXITSTATUS(status) != EXIT_SUCCESS) {
                lose_carrier();
            }
        } else if (child == writing_half_) {
            writing_half_ = -1;
        } else if (child == watcher_) {
            watcher_ = -1;
        }
    }

    // The guard has sent the neutral frame, unless it was killed with the carrier or is stopped. A second one does no
    // harm.
    void lose_carrier() {
        tell("the process that carried the line was ended: the program has lost its line");
        if (*at_work_.get()) {
            const Descriptor line(open(setup_.device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
            if (line.get() >= 0) {
                bring_to_rest(line.get());
            }
        }
    }

    const SessionSetUp& setup_;
    const HeldSignals signals_;
    const SharedFlag at_work_;
    std::uint64_t start_us_ = 0;  // of the recording, on CLOCK_MONOTONIC
    Descriptor recording_;        // the writing half reads its other end
    Descriptor watched_;          // the watcher reads its other end
    Descriptor orders_;
    Descriptor messages_;
    Descriptor permission_;
    Descriptor report_;
    pid_t program_ = -1;
    pid_t carrier_ = -1;
    pid_t writing_half_ = -1;
    pid_t watcher_ = -1;
    int program_status_ = 0;
    bool impatient_ = false;  // asked to end without waiting for the writing half
};

}  // namespace

int run_session(const SessionSetUp& setup) {
    fill_standard_descriptors();
    const std::string fault = why_no_line(setup.device);
    if (!fault.empty()) {
        throw Failure(ExitStatus::no_bus, fault);
    }
    try {
        return Session(setup).run();
    } catch (const std::system_error& error) {
        throw Failure(ExitStatus::no_bus, std::string(error.what()));
    }
}

}  // namespace vehicle_recorder
