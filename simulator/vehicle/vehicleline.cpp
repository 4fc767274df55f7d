#include "simulator/vehicle/vehicleline.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace vehicle_simulator {

namespace {

struct Speed {
    speed_t code;
    int baud;
};

constexpr Speed speeds[] = {
    {B9600, 9600}, {B19200, 19200}, {B38400, 38400}, {B57600, 57600}, {B115200, 115200}};

void check(bool succeeded, const char* what) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

termios attributes(int fd) {
    termios now = {};
    check(tcgetattr(fd, &now) == 0, "tcgetattr");
    return now;
}

std::string other_side(int fd) {
    std::array<char, 64> name = {};
    check(ptsname_r(fd, name.data(), name.size()) == 0, "ptsname_r");
    return name.data();
}

// A line comes up without echo: an answer that nobody reads must not come back as a command. Opening the
// other side once also makes poll(2) tell whether somebody has it open.
void make_raw(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    check(fd >= 0, path.c_str());
    termios raw = attributes(fd);
    raw.c_iflag = raw.c_oflag = raw.c_lflag = 0;
    raw.c_cflag = (raw.c_cflag & ~tcflag_t{CSIZE | PARENB | CSTOPB}) | CS8 | CLOCAL | CREAD;
    const bool done = tcsetattr(fd, TCSANOW, &raw) == 0;
    ::close(fd);
    check(done, "tcsetattr");
}

}  // namespace

VehicleLine::VehicleLine() : fd_(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    check(fd_ >= 0 && grantpt(fd_) == 0 && unlockpt(fd_) == 0, "pseudo-terminal");
    path_ = other_side(fd_);
    make_raw(path_);
}

VehicleLine::~VehicleLine() {
    hang_up();
}

bool VehicleLine::is_open() const {
    pollfd state = {fd_, POLLIN, 0};
    return poll(&state, 1, 0) >= 0 && (state.revents & POLLHUP) == 0;
}

std::vector<std::uint8_t> VehicleLine::receive() const {
    std::array<std::uint8_t, 4096> block;
    const ssize_t count = ::read(fd_, block.data(), block.size());
    // EIO is how the master side says that nobody has the other side open.
    check(count >= 0 || errno == EAGAIN || errno == EIO || errno == EINTR, "read from the line");
    return {block.begin(), block.begin() + (count > 0 ? count : 0)};
}

void VehicleLine::send(std::span<const std::uint8_t> bytes) const {
    if (!is_open()) {
        return;
    }
    // A full line drops what it cannot hold, as an overrun receiver would.
    const ssize_t count = ::write(fd_, bytes.data(), bytes.size());
    check(count >= 0 || errno == EAGAIN || errno == EIO || errno == EINTR, "write to the line");
}

int VehicleLine::speed_baud() const {
    const termios now = attributes(fd_);
    const speed_t code = cfgetospeed(&now);
    for (const Speed& speed : speeds) {
        if (speed.code == code) {
            return speed.baud;
        }
    }
    return 0;
}

bool VehicleLine::is_raw_8n1() const {
    const termios now = attributes(fd_);
    return (now.c_cflag & (CSIZE | PARENB | CSTOPB)) == CS8 && now.c_iflag == 0 && now.c_oflag == 0 &&
           (now.c_lflag & (ICANON | ECHO | ISIG)) == 0;
}

void VehicleLine::hang_up() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

}  // namespace vehicle_simulator
