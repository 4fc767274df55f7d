// How long a frame and its reply are on their way, with the recorder between program and vehicle and without:
// carrier_bench VEHICLE-RECORDER NEW-RECORDING. A frame of 4 bytes each millisecond, each answered by 39 bytes.
//
// The program of the line is this one again; both sides note the time of each sending in memory that they share.

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr std::size_t frames = 10'000;
constexpr std::size_t frame_bytes = 4;
constexpr std::size_t reply_bytes = 39;
constexpr long pause_ns = 1'000'000;

struct Times {
    std::array<std::atomic<std::int64_t>, frames> frame_sent_ns;
    std::array<std::atomic<std::int64_t>, frames> reply_sent_ns;
    std::array<std::atomic<std::int64_t>, frames> reply_came_ns;
};

std::int64_t now_ns() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::exit(1);
}

Times& share(int file) {
    void* const room = mmap(nullptr, sizeof(Times), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (room == MAP_FAILED) {
        fail("mmap");
    }
    return *static_cast<Times*>(room);
}

void read_all(int line, std::size_t count) {
    std::array<char, reply_bytes> bytes;
    while (count > 0) {
        pollfd ready = {line, POLLIN, 0};
        poll(&ready, 1, -1);
        const ssize_t got = read(line, bytes.data(), std::min(count, bytes.size()));
        count -= static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    }
}

void write_all(int line, const char* bytes, std::size_t count) {
    if (write(line, bytes, count) != static_cast<ssize_t>(count)) {
        fail("write");
    }
}

int be_program(const char* device, int file) {
    Times& times = share(file);
    const int line = open(device, O_RDWR | O_NOCTTY | O_NONBLOCK);
    termios raw = {};
    cfsetispeed(&raw, B115200);
    raw.c_cflag |= CS8 | CLOCAL | CREAD;
    if (line < 0 || tcsetattr(line, TCSANOW, &raw) != 0) {
        fail(device);
    }
    usleep(300'000);
    for (std::size_t i = 0; i < frames; i++) {
        const timespec pause = {0, pause_ns};
        nanosleep(&pause, nullptr);
        times.frame_sent_ns[i] = now_ns();
        write_all(line, "\0gnP", frame_bytes);
        read_all(line, reply_bytes);
        times.reply_came_ns[i] = now_ns();
    }
    close(line);
    return 0;
}

void print(const std::string& name, std::vector<std::int64_t> delays_ns) {
    std::sort(delays_ns.begin(), delays_ns.end());
    const auto microseconds = [&](std::size_t at) { return static_cast<double>(delays_ns[at]) / 1000; };
    std::printf("%s_median %.1f\n%s_99 %.1f\n%s_worst %.1f\n", name.c_str(), microseconds(frames / 2),
                name.c_str(), microseconds(frames / 100 * 99), name.c_str(), microseconds(frames - 1));
}

// Plays the vehicle to a program that is started by `command`.
void measure(const std::string& name, const std::vector<std::string>& command, int vehicle, int file) {
    Times& times = share(file);
    const pid_t child = fork();
    if (child == 0) {
        std::vector<char*> arguments;
        for (const std::string& word : command) {
            arguments.push_back(const_cast<char*>(word.c_str()));
        }
        arguments.push_back(nullptr);
        execv(arguments[0], arguments.data());
        fail(arguments[0]);
    }
    const std::string reply(reply_bytes, 'r');
    std::vector<std::int64_t> to_vehicle(frames);
    for (std::size_t i = 0; i < frames; i++) {
        read_all(vehicle, frame_bytes);
        const std::int64_t came_ns = now_ns();
        to_vehicle[i] = came_ns - times.frame_sent_ns[i];
        times.reply_sent_ns[i] = now_ns();
        write_all(vehicle, reply.data(), reply.size());
    }
    int status = -1;
    waitpid(child, &status, 0);
    if (status != 0) {
        std::exit(1);
    }
    std::vector<std::int64_t> to_program(frames);
    for (std::size_t i = 0; i < frames; i++) {
        to_program[i] = times.reply_came_ns[i] - times.reply_sent_ns[i];
    }
    print(name + "_frame", to_vehicle);
    print(name + "_reply", to_program);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "program") == 0) {
        return be_program(argv[2], std::atoi(argv[3]));
    }
    if (argc != 3) {
        return 2;
    }
    const int file = memfd_create("times", 0);
    const int vehicle = posix_openpt(O_RDWR | O_NOCTTY);
    std::array<char, 64> device = {};
    if (file < 0 || ftruncate(file, sizeof(Times)) != 0 || vehicle < 0 || grantpt(vehicle) != 0 ||
        unlockpt(vehicle) != 0 || ptsname_r(vehicle, device.data(), device.size()) != 0) {
        fail("pseudo-terminal");
    }
    const int keeper = open(device.data(), O_RDWR | O_NOCTTY);  // keeps the vehicle's end from being hung up
    termios raw = {};
    tcgetattr(keeper, &raw);
    cfmakeraw(&raw);
    tcsetattr(keeper, TCSANOW, &raw);
    const std::string self = "/proc/self/exe";
    const std::string times = std::to_string(file);
    measure("direct", {self, "program", device.data(), times}, vehicle, file);
    std::array<char, 4096> own = {};
    if (readlink(self.c_str(), own.data(), own.size() - 1) < 0) {
        fail("readlink");
    }
    measure("recorded",
            {argv[1], "run", "--device", device.data(), "--out", argv[2], "--", own.data(), "program",
             "/dev/ttyS0", times},
            vehicle, file);
    return 0;
}
