#include "recorder/pseudoline.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

namespace vehicle_recorder {

namespace {

void check(bool succeeded, const char* what) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

std::string near_end_of(int far_end) {
    std::array<char, 64> name = {};
    check(ptsname_r(far_end, name.data(), name.size()) == 0, "a pseudo-terminal");
    return name.data();
}

void make_raw(int near_end) {
    termios raw = {};
    check(tcgetattr(near_end, &raw) == 0, "a pseudo-terminal");
    cfmakeraw(&raw);
    cfsetspeed(&raw, B9600);
    raw.c_cflag |= CLOCAL | CREAD | HUPCL;
    check(tcsetattr(near_end, TCSANOW, &raw) == 0, "a pseudo-terminal");
}

}  // namespace

PseudoLine::PseudoLine() : far_end_(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    check(far_end_ >= 0, "a pseudo-terminal");
    check(grantpt(far_end_) == 0 && unlockpt(far_end_) == 0, "a pseudo-terminal");
    path_ = near_end_of(far_end_);
    const int on = 1;
    check(ioctl(far_end_, TIOCPKT, &on) == 0, "a pseudo-terminal");
    // Its closing also makes poll(2) see the hang-up from the start.
    const int near_end = open_near_end();
    check(near_end >= 0, path_.c_str());
    make_raw(near_end);
    first_ = attributes();
    ::close(near_end);
}

PseudoLine::~PseudoLine() {
    close();
}

void PseudoLine::close() {
    for (int* const descriptor : {&far_end_, &watch_}) {
        if (*descriptor >= 0) {
            ::close(*descriptor);
            *descriptor = -1;
        }
    }
}

void PseudoLine::watch_openings() {
    watch_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (watch_ >= 0 && inotify_add_watch(watch_, path_.c_str(), IN_OPEN | IN_CLOSE) < 0) {
        ::close(watch_);
        watch_ = -1;
    }
}

PseudoLine::Look PseudoLine::look() {
    Look result;
    result.was_left = take_events();
    pollfd state = {far_end_, 0, 0};
    result.is_open = ::poll(&state, 1, 0) >= 0 && (state.revents & POLLHUP) == 0;
    holders_ = result.is_open ? std::max(holders_, 1) : 0;
    return result;
}

// Counts who has the near end open; tells whether the last one closed it and another opened it. Events that repeat the
// one before are told once (inotify(7)), so the count is a hint only, and look() sets it right.
bool PseudoLine::take_events() {
    bool left = false;
    bool reopened = false;
    alignas(inotify_event) std::array<char, 4096> block;
    for (ssize_t count = 1; watch_ >= 0 && count > 0;) {
        count = ::read(watch_, block.data(), block.size());
        for (ssize_t at = 0; at < count;) {
            inotify_event event = {};
            std::memcpy(&event, block.data() + at, sizeof event);
            at += static_cast<ssize_t>(sizeof event + event.len);
            if ((event.mask & IN_OPEN) != 0) {
                holders_++;
                reopened = reopened || left;
            } else if ((event.mask & IN_CLOSE) != 0 && --holders_ <= 0) {
                holders_ = 0;
                left = true;
            }
        }
    }
    return reopened;
}

PseudoLine::Received PseudoLine::read(std::span<std::uint8_t> room) const {
    Received received;
    std::array<std::uint8_t, 1 + 4096> block;  // in packet mode a byte stands ahead
    const std::size_t wanted = std::min(room.size(), block.size() - 1);
    for (;;) {
        const ssize_t count = ::read(far_end_, block.data(), 1 + wanted);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            received.at_end = count == 0 || errno == EIO;
            return received;
        }
        if (block[0] != TIOCPKT_DATA) {
            received.flushed = received.flushed || (block[0] & TIOCPKT_FLUSHWRITE) != 0;
            continue;
        }
        received.count = static_cast<std::size_t>(count - 1);
        std::copy_n(block.begin() + 1, received.count, room.begin());
        if (received.count > 0) {
            return received;
        }
    }
}

// With room for the leading byte alone, bytes stay where they are.
bool PseudoLine::take_flush() const {
    std::uint8_t status = TIOCPKT_DATA;
    return ::read(far_end_, &status, 1) == 1 && (status & TIOCPKT_FLUSHWRITE) != 0;
}

bool PseudoLine::has_unread() const {
    take_flush();
    pollfd state = {far_end_, POLLIN, 0};
    return ::poll(&state, 1, 0) > 0 && (state.revents & POLLIN) != 0;
}

std::size_t PseudoLine::write(std::span<const std::uint8_t> bytes) const {
    ssize_t count = -1;
    do {
        count = ::write(far_end_, bytes.data(), bytes.size());
    } while (count < 0 && errno == EINTR);
    return static_cast<std::size_t>(std::max<ssize_t>(count, 0));
}

termios PseudoLine::attributes() const {
    termios now = {};
    tcgetattr(far_end_, &now);  // at the far end it tells of the near one
    return now;
}

void PseudoLine::stop_program(bool stop) {
    at_near_end([stop](int near_end) { tcflow(near_end, stop ? TCOOFF : TCOON); });
}

void PseudoLine::discard_unread() {
    at_near_end([](int near_end) { tcflush(near_end, TCIFLUSH); });
}

int PseudoLine::open_near_end() const {
    return ::open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
}

// Some calls work at the near end only. The events of this opening are taken out at once; whether the program has its
// end open is to be looked at afresh after it.
void PseudoLine::at_near_end(const std::function<void(int)>& deed) {
    const int holders = holders_;
    const int near_end = open_near_end();
    if (near_end >= 0) {
        deed(near_end);
        ::close(near_end);
        take_events();
        holders_ = holders;
    }
}

}  // namespace vehicle_recorder
