#include "nodevik/util/serial.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int default_bufsize = 100;

constexpr unsigned int trace_received = 1;
constexpr unsigned int trace_written = 2;

struct LineSpeed {
    int baud;
    speed_t code;
};

constexpr std::array<LineSpeed, 5> line_speeds = {{
    {9600, B9600},
    {19200, B19200},
    {38400, B38400},
    {57600, B57600},
    {115200, B115200},
}};

// exit(3) destroys global objects. The main thread may still be working with them when another thread gives
// the process up, so that thread ends it without them.
[[noreturn]] void end_process(int status) {
    if (gettid() != getpid()) {
        std::fflush(nullptr);
        _exit(status);
    }
    std::exit(status);
}

[[noreturn]] void end_process(const char* message, int status) {
    std::printf("%s\n", message);
    end_process(status);
}

// Reads at most `room` bytes; a failure ends the process, since a line with nothing to deliver reads as 0
// bytes.
int read_line(int fd, char* destination, int room, const char* failure) {
    const ssize_t count = ::read(fd, destination, static_cast<std::size_t>(room));
    if (count < 0) {
        end_process(failure, 0);
    }
    return static_cast<int>(count);
}

speed_t speed_code(int baud) {
    for (const LineSpeed& speed : line_speeds) {
        if (speed.baud == baud) {
            return speed.code;
        }
    }
    end_process("Unsupported SerialPort Speed!", 1);
}

// Raw 8-N-1; all control characters are 0, VMIN and VTIME among them, so that a read never waits.
termios raw_attributes(int baud) {
    termios attributes = {};
    cfsetispeed(&attributes, speed_code(baud));  // on Linux the one speed of both directions
    attributes.c_cflag &= static_cast<tcflag_t>(~(PARENB | CSTOPB | CSIZE));
    attributes.c_cflag |= CS8 | CLOCAL | CREAD;
    return attributes;
}

void print_hex(char byte) {
    std::printf("%2x ", static_cast<unsigned int>(static_cast<signed char>(byte)));
}

}  // namespace

serial::serial() : serial(default_bufsize) {}

serial::serial(int s)
    : receive_storage(static_cast<std::size_t>(std::max(s, 0)) + 1),
      scratch_storage(receive_storage.size()),
      buffer(receive_storage.data()),
      bufsize(std::max(s, 0)),
      tempbuffer(scratch_storage.data()) {}

serial::~serial() {
    if (fd != 0) {
        ::close(fd);
    }
}

void serial::debugmode(unsigned int mode) {
    debug = mode;
}

int serial::open(char* port, int speed) {
    const int opened = ::open(port, O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (opened < 0) {
        std::perror("Unable to open serial port: - \n");
        end_process(1);
    }
    tcgetattr(opened, &options_old);
    options = raw_attributes(speed);
    tcsetattr(opened, TCSANOW, &options);
    fd.store(opened, std::memory_order_release);
    return opened;
}

int serial::read(char* data, int count) {
    const int received = read_line(fd.load(std::memory_order_acquire), buffer, std::clamp(count, 0, bufsize),
                                   "read() failed!");
    const std::string_view bytes(buffer, static_cast<std::size_t>(received));
    bytes.copy(data, bytes.size());
    trace(trace_received, bytes);
    return received;
}

int serial::read() {
    len = read_line(fd.load(std::memory_order_acquire), buffer, bufsize, "SerialPort Read failed!");
    trace(trace_received, {buffer, static_cast<std::size_t>(len)});
    return len;
}

int serial::readuntil(char end, int minlen, int maxlen) {
    const Gathered record = gather(end, minlen, maxlen);
    if (record.complete) {
        len = record.length;
    }
    return record.complete ? 1 : 0;
}

int serial::readuntiltext(char* end, int minlen, int maxlen) {
    const std::string_view text(end);
    if (text.empty()) {
        std::printf("serial::readuntiltext: tekstin pituus outo!\n");
        return 0;
    }
    return gather(text.back(), minlen, maxlen).complete ? 1 : 0;
}

int serial::write(char* data, int count) {
    const ssize_t written =
        ::write(fd.load(std::memory_order_acquire), data, static_cast<std::size_t>(count));
    if (written < 0) {
        std::printf("write() of %i bytes failed!\n", count);
    } else {
        trace(trace_written, {data, static_cast<std::size_t>(written)});
    }
    return static_cast<int>(written);
}

void serial::close() {
    const int closing = fd.load(std::memory_order_acquire);
    tcsetattr(closing, TCSANOW, &options_old);
    ::close(closing);
    fd.store(0, std::memory_order_release);
}

void serial::print() {
    const std::string_view bytes(buffer, static_cast<std::size_t>(len));
    std::printf("Read lengh=%i ", len);
    std::for_each(bytes.begin(), bytes.end(), print_hex);
    std::printf("\n");
    for (const char byte : bytes) {
        std::printf("%1c", byte);
    }
    std::printf("\n");
    std::fflush(stdout);
}

// One read behind the carried bytes, then a scan of all of them, carried ones first, into `buffer`.
serial::Gathered serial::gather(char end, int minlen, int maxlen) {
    const int room = bufsize - srcbufpos;
    const int limit = std::min(maxlen, room);
    const int received = read_line(fd.load(std::memory_order_acquire), tempbuffer + srcbufpos, room,
                                   "Serialport read failed!");
    if (received == 0) {
        srcbufpos = 0;
        destbufpos = 0;
        return {false, 0};
    }
    const int available = srcbufpos + received;
    srcbufpos = 0;
    for (int i = 0; i < available; i++) {
        trace(trace_received,
              {buffer + i, 1});  // by the scan's index: the byte there before, not the new one
        buffer[destbufpos++] = tempbuffer[i];
        if (tempbuffer[i] == end && destbufpos >= minlen) {
            const int length = destbufpos;
            carry_over(i + 1, available);
            buffer[length] = 0;
            destbufpos = 0;
            return {true, length};
        }
        if (destbufpos >= limit) {
            destbufpos = 0;
            return {false, 0};
        }
    }
    return {false, 0};
}

// Moves the scratch bytes from `from` up to `until` to the start of the scratch buffer.
void serial::carry_over(int from, int until) {
    srcbufpos = until - from;
    std::memmove(tempbuffer, tempbuffer + from, static_cast<std::size_t>(srcbufpos));
}

void serial::trace(unsigned int what, std::string_view bytes) const {
    if ((debug & what) != 0) {
        std::for_each(bytes.begin(), bytes.end(), print_hex);
    }
}
