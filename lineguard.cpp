#include "lineguard.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>

#include "vehicle/commandframe.h"

namespace {

using namespace std::chrono_literals;

constexpr std::string_view process_name = "lineguard";

constexpr char message_opened = 'O';
constexpr char message_closed = 'C';

using vehicle::neutral_frame;

constexpr auto longest_try = 2s;
constexpr auto pause_between_tries = 5ms;

constexpr auto longest_wait = 100ms;

constexpr int first_own_descriptor = STDERR_FILENO + 1;

// Room for one descriptor, aligned as the kernel wants it (cmsg(3)).
union DescriptorRoom {
    cmsghdr alignment;
    std::array<char, CMSG_SPACE(sizeof(int))> bytes;
};

// --- the guard's process ---

struct Message {
    bool is_end = true;  // the other end is gone
    char what = 0;
    int line = -1;
};

// Waits for the next message. A reset connection only tells that an answer was not read: what had been sent
// before the end is still to come.
Message receive(int socket) {
    Message message;
    DescriptorRoom room = {};
    iovec data = {&message.what, 1};
    msghdr header = {};
    header.msg_iov = &data;
    header.msg_iovlen = 1;
    ssize_t count = 0;
    do {
        header.msg_control = room.bytes.data();
        header.msg_controllen = room.bytes.size();
        count = recvmsg(socket, &header, MSG_CMSG_CLOEXEC);
    } while (count < 0 && (errno == EINTR || errno == ECONNRESET));
    message.is_end = count <= 0;
    const cmsghdr* const passed = count > 0 ? CMSG_FIRSTHDR(&header) : nullptr;
    if (passed != nullptr && passed->cmsg_level == SOL_SOCKET && passed->cmsg_type == SCM_RIGHTS) {
        std::memcpy(&message.line, CMSG_DATA(passed), sizeof message.line);
    }
    return message;
}

void close_line(int& line) {
    if (line != -1) {
        ::close(line);
        line = -1;
    }
}

// Whether there is no sense in trying again: the frame is out, or the line is gone.
bool has_settled(ssize_t written) {
    const bool takes_nothing_now = written < 0 && (errno == EAGAIN || errno == EINTR);
    return written == static_cast<ssize_t>(neutral_frame.size()) || (written < 0 && !takes_nothing_now);
}

// Overwrites the arguments, which lie one behind the other, with the process's name.
void name_process(char** arguments) {
    prctl(PR_SET_NAME, process_name.data());
    if (arguments == nullptr || arguments[0] == nullptr) {
        return;
    }
    char* const begin = arguments[0];
    char* end = begin;
    for (int i = 0; arguments[i] == end; i++) {
        end += std::strlen(end) + 1;
    }
    std::fill(begin, end, '\0');
    process_name.copy(begin, static_cast<std::size_t>(end - begin) - 1);
}

// Nothing that ends the application, or its session or terminal, is to reach this process; and nothing that
// waits for the application to close something is to wait for this process.
void leave_the_application(int socket, char** arguments) {
    for (int number = 1; number <= SIGRTMAX; number++) {
        std::signal(number, SIG_IGN);
    }
    setsid();
    name_process(arguments);
    [[maybe_unused]] const int changed = chdir("/");  // a directory that it stays in cannot be unmounted
    const int null_device = ::open("/dev/null", O_RDWR);
    for (int standard = STDIN_FILENO; standard <= STDERR_FILENO; standard++) {
        if (null_device == -1) {
            ::close(standard);
        } else if (null_device != standard) {
            dup2(null_device, standard);
        }
    }
    dup2(socket, first_own_descriptor);
    closefrom(first_own_descriptor + 1);
}

// --- the application's end ---

// A socket pair beyond the standard descriptors, which may be closed: what is printed must not end up in it.
bool make_socket_pair(std::array<int, 2>& ends) {
    std::array<int, 2> made = {};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, made.data()) != 0) {
        return false;
    }
    std::transform(made.begin(), made.end(), ends.begin(),
                   [](int end) { return fcntl(end, F_DUPFD_CLOEXEC, first_own_descriptor); });
    const int reason = errno;
    std::for_each(made.begin(), made.end(), ::close);
    errno = reason;
    return std::find(ends.begin(), ends.end(), -1) == ends.end();
}

void close_both(const std::array<int, 2>& ends) {
    for (const int end : ends) {
        if (end != -1) {
            ::close(end);
        }
    }
}

// Forks with all signals held back: one that was meant for the application must not meet a guard that does
// not ignore it yet.
pid_t fork_undisturbed() {
    sigset_t all = {};
    sigset_t earlier = {};
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &earlier);
    const pid_t process = fork();
    if (process != 0) {
        const int reason = errno;
        pthread_sigmask(SIG_SETMASK, &earlier, nullptr);
        errno = reason;
    }
    return process;
}

}  // namespace

bool bring_to_rest(int line) {
    fcntl(line, F_SETFL, fcntl(line, F_GETFL) | O_NONBLOCK);
    const auto end = std::chrono::steady_clock::now() + longest_try;
    for (;;) {
        const ssize_t written = ::write(line, neutral_frame.data(), neutral_frame.size());
        if (has_settled(written)) {
            return written > 0;
        }
        tcflush(line, TCOFLUSH);
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(pause_between_tries);
    }
}

void guard_line(int socket) {
    int line = -1;
    for (Message message = receive(socket); !message.is_end; message = receive(socket)) {
        close_line(line);
        line = message.line;
        if (message.what == message_closed) {
            send(socket, &message_closed, 1, MSG_NOSIGNAL | MSG_DONTWAIT);
        }
    }
    if (line != -1) {
        bring_to_rest(line);
    }
    close_line(line);
}

LineGuard::LineGuard(char** arguments, const char* owner) : owner_(owner != nullptr ? owner : "the panel") {
    std::array<int, 2> ends = {-1, -1};
    if (make_socket_pair(ends)) {
        process_ = fork_undisturbed();
    }
    if (process_ == -1) {
        std::fprintf(stderr, "lineguard: cannot be started, %s goes on without it: %s\n", owner_,
                     std::strerror(errno));
        close_both(ends);
        return;
    }
    if (process_ == 0) {
        leave_the_application(ends[1], arguments);
        guard_line(first_own_descriptor);
        _exit(EXIT_SUCCESS);
    }
    ::close(ends[1]);
    socket_ = ends[0];
    lost_ = false;
}

LineGuard::~LineGuard() {
    if (socket_ != -1) {
        ::close(socket_);
    }
    reap();
}

void LineGuard::hold(int line) {
    holds_ = tell(message_opened, line);
}

void LineGuard::release() {
    if (!holds_ || !look()) {  // looking takes an answer that came too late the last time
        return;
    }
    holds_ = false;
    if (tell(message_closed, -1)) {
        pollfd answer = {socket_, POLLIN, 0};
        poll(&answer, 1, std::chrono::milliseconds(longest_wait).count());
        look();
    }
}

bool LineGuard::look() {
    char answer = 0;
    while (!lost_) {
        const ssize_t count = recv(socket_, &answer, 1, MSG_DONTWAIT);
        if (count < 0 && errno == EAGAIN) {
            return true;
        }
        if (count == 0 || (count < 0 && errno != EINTR)) {
            lose();
        }
    }
    return false;
}

// Says something to the guard, without waiting. A guard whose queue is full is as good as none.
bool LineGuard::tell(char message, int line) {
    if (lost_) {
        return false;
    }
    DescriptorRoom room = {};
    iovec data = {&message, 1};
    msghdr header = {};
    header.msg_iov = &data;
    header.msg_iovlen = 1;
    if (line != -1) {
        header.msg_control = room.bytes.data();
        header.msg_controllen = room.bytes.size();
        cmsghdr* const passed = CMSG_FIRSTHDR(&header);
        passed->cmsg_level = SOL_SOCKET;
        passed->cmsg_type = SCM_RIGHTS;
        passed->cmsg_len = CMSG_LEN(sizeof line);
        std::memcpy(CMSG_DATA(passed), &line, sizeof line);
    }
    if (sendmsg(socket_, &header, MSG_NOSIGNAL | MSG_DONTWAIT) != 1) {
        lose();
    }
    return !lost_;
}

void LineGuard::lose() {
    lost_ = true;
    holds_ = false;
    std::fprintf(stderr, "lineguard: does not answer any more, %s goes on without it\n", owner_);
    reap();
}

// Takes the process's end, if that comes soon enough, so that it is left neither running nor as a zombie.
void LineGuard::reap() {
    const auto end = std::chrono::steady_clock::now() + longest_wait;
    while (process_ > 0) {
        if (waitpid(process_, nullptr, WNOHANG) != 0) {
            process_ = -1;
        } else if (std::chrono::steady_clock::now() >= end) {
            return;
        } else {
            std::this_thread::sleep_for(1ms);
        }
    }
}
