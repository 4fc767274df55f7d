#include "recorder/realline.h"

#include <fcntl.h>
#include <linux/serial.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace vehicle_recorder {

namespace {

struct Speed {
    speed_t code;
    unsigned baud;
};

constexpr std::array<Speed, 30> speeds = {{
    {B50, 50},           {B75, 75},           {B110, 110},         {B134, 134},         {B150, 150},
    {B200, 200},         {B300, 300},         {B600, 600},         {B1200, 1200},       {B1800, 1800},
    {B2400, 2400},       {B4800, 4800},       {B9600, 9600},       {B19200, 19200},     {B38400, 38400},
    {B57600, 57600},     {B115200, 115200},   {B230400, 230400},   {B460800, 460800},   {B500000, 500000},
    {B576000, 576000},   {B921600, 921600},   {B1000000, 1000000}, {B1152000, 1152000}, {B1500000, 1500000},
    {B2000000, 2000000}, {B2500000, 2500000}, {B3000000, 3000000}, {B3500000, 3500000}, {B4000000, 4000000},
}};

constexpr tcflag_t followed_control = CSTOPB | CRTSCTS | HUPCL;

unsigned baud_of(speed_t code) {
    const auto* const found =
        std::find_if(speeds.begin(), speeds.end(), [code](const Speed& speed) { return speed.code == code; });
    return found != speeds.end() ? found->baud : 0;
}

// Devices of terminals, as the kernel numbers them: pseudo-terminals have no entry under /sys.
bool is_terminal(dev_t device) {
    constexpr unsigned first_pseudo_terminal = 136;
    constexpr unsigned last_pseudo_terminal = 143;
    if (major(device) >= first_pseudo_terminal && major(device) <= last_pseudo_terminal) {
        return true;
    }
    const std::string entry =
        "/sys/dev/char/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
    std::error_code none;
    const std::filesystem::path subsystem = std::filesystem::read_symlink(entry + "/subsystem", none);
    return none ? !std::filesystem::exists("/sys/dev/char", none) : subsystem.filename() == "tty";
}

}  // namespace

FollowedSettings followed(const termios& attributes) {
    return {.speed = cfgetospeed(&attributes), .control = attributes.c_cflag & followed_control};
}

LineSettings settings_of(const termios& attributes) {
    LineSettings settings;
    settings.speed_baud = baud_of(cfgetospeed(&attributes));
    settings.format = (attributes.c_cflag & CSTOPB) != 0 ? "8N2" : "8N1";
    const bool by_wires = (attributes.c_cflag & CRTSCTS) != 0;
    const bool by_characters = (attributes.c_iflag & (IXON | IXOFF)) != 0;
    if (by_wires && by_characters) {
        settings.flow = "both";
    } else if (by_wires) {
        settings.flow = "rtscts";
    } else if (by_characters) {
        settings.flow = "xonxoff";
    }
    return settings;
}

std::string why_no_line(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK | W_OK) != 0) {
        return path + " cannot be opened: " + std::strerror(errno);
    }
    if (!S_ISCHR(status.st_mode) || !is_terminal(status.st_rdev)) {
        return path + " is no serial line";
    }
    return {};
}

RealLine::~RealLine() {
    close(true);
}

int RealLine::open() {
    const int opened = ::open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (opened < 0) {
        return errno;
    }
    int reason = tcgetattr(opened, &earlier_) != 0 ? errno : 0;
    if (reason == 0 && flock(opened, LOCK_EX | LOCK_NB) != 0) {
        reason = EBUSY;
    }
    if (reason != 0) {
        ::close(opened);
        return reason;
    }
    termios raw = earlier_;
    raw.c_iflag = raw.c_oflag = raw.c_lflag = 0;
    raw.c_cflag = (raw.c_cflag & ~tcflag_t{CSIZE | PARENB | PARODD}) | CS8 | CLOCAL | CREAD;
    std::fill(std::begin(raw.c_cc), std::end(raw.c_cc), cc_t{0});
    raw.c_cc[VMIN] = 1;  // so that a read of 0 bytes is a hang-up and nothing else
    tcsetattr(opened, TCSANOW, &raw);
    descriptor_ = opened;
    return 0;
}

void RealLine::close(bool restore) {
    if (descriptor_ >= 0) {
        if (restore) {
            tcsetattr(descriptor_, TCSANOW, &earlier_);
        }
        flock(descriptor_, LOCK_UN);  // which a guard that is slow, or stopped, would keep with its copy
        ::close(descriptor_);
        descriptor_ = -1;
    }
}

void RealLine::set(const FollowedSettings& settings) const {
    termios now = {};
    if (tcgetattr(descriptor_, &now) == 0) {
        now.c_cflag = (now.c_cflag & ~followed_control) | settings.control;
        cfsetspeed(&now, settings.speed);
        tcsetattr(descriptor_, TCSANOW, &now);
    }
}

bool RealLine::is_drained() const {
    int waiting = 0;
    if (ioctl(descriptor_, TIOCOUTQ, &waiting) == 0 && waiting > 0) {
        return false;
    }
    unsigned state = 0;  // what is in the chip itself; not all drivers tell
    return ioctl(descriptor_, TIOCSERGETLSR, &state) != 0 || (state & TIOCSER_TEMT) != 0;
}

void RealLine::discard_unsent() const {
    tcflush(descriptor_, TCOFLUSH);
}

RealLine::Moved RealLine::read(std::span<std::uint8_t> room) const {
    const ssize_t count = ::read(descriptor_, room.data(), room.size());
    if (count > 0) {
        return {.count = static_cast<std::size_t>(count), .reason = 0};
    }
    const bool is_nothing = count < 0 && (errno == EAGAIN || errno == EINTR);
    return {.count = 0, .reason = is_nothing ? 0 : count == 0 ? EIO : errno};
}

RealLine::Moved RealLine::write(std::span<const std::uint8_t> bytes) const {
    const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
    if (count >= 0) {
        return {.count = static_cast<std::size_t>(count), .reason = 0};
    }
    return {.count = 0, .reason = errno == EAGAIN || errno == EINTR ? 0 : errno};
}

}  // namespace vehicle_recorder
