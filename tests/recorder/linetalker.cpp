// A program on the vehicle's line: sends a frame, prints the voltage that the reply tells, and so on.
// linetalker COUNT: so many frames, each when the reply to the one before is there.
// linetalker: a frame every 5 ms until it is ended; prints a voltage when it is another one.

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "vehicle/commandframe.h"
#include "vehicle/telemetry.h"

namespace {

constexpr int longest_wait_ms = 20000;
constexpr int period_ms = 5;

// The voltage of the reply that comes within a time; -1 when none does.
int voltage_of_reply(int line, int limit_ms) {
    pollfd ready = {line, POLLIN, 0};
    if (poll(&ready, 1, limit_ms) <= 0) {
        return -1;
    }
    std::array<std::uint8_t, vehicle::longest_read> room = {};
    const ssize_t count = read(line, room.data(), room.size());
    return count < 0 ? -1 : vehicle::telemetry_of(vehicle::slots_of(room.data())).voltage;
}

void send_frame(int line) {
    [[maybe_unused]] const ssize_t count = write(line, vehicle::neutral_frame.data(), vehicle::frame_bytes);
}

void print(int voltage) {
    std::printf("%d\n", voltage);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    const int line = open("/dev/ttyS0", O_RDWR | O_NOCTTY | O_NONBLOCK);
    termios raw = {};
    tcgetattr(line, &raw);
    cfmakeraw(&raw);
    tcsetattr(line, TCSANOW, &raw);
    if (argc > 1) {
        for (int i = 0; i < std::atoi(argv[1]); i++) {
            send_frame(line);
            print(voltage_of_reply(line, longest_wait_ms));
        }
        return 0;
    }
    int last = -1;
    for (;;) {
        send_frame(line);
        const int voltage = voltage_of_reply(line, period_ms);
        if (voltage >= 0 && voltage != last) {
            print(last = voltage);
        }
        usleep(period_ms * 1000);
    }
}
