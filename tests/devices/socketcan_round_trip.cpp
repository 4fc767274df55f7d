// How long an SDO read takes, request to answer, over a virtual CAN interface and over UDP on the loopback
// network, with the same node in another process. Prints the figures; fails only when a read brings something
// wrong.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/socketcandriver.h"
#include "nodevik/udpdriver.h"
#include "tests/devices/canwitness.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/nodeprocess.h"

namespace {

constexpr int reads = 2000;
constexpr int device_type = 0x000F0191;
constexpr int boot_up_limit_ms = 60000;

// Microseconds of each read that was answered.
std::vector<double> measure(CCANopen& master) {
    using Clock = std::chrono::steady_clock;
    std::vector<double> times;
    for (int i = 0; i < reads; ++i) {
        int value = 0;
        const Clock::time_point start = Clock::now();
        const int result = master.sdo_read(1, 0x1000, 0, value);
        const Clock::time_point end = Clock::now();
        if (result == 0 && value != device_type) {
            std::fprintf(stderr, "read 0x%08x, not 0x%08x\n", static_cast<unsigned>(value),
                         static_cast<unsigned>(device_type));
            std::exit(1);
        }
        if (result == 0) {
            times.push_back(std::chrono::duration<double, std::micro>(end - start).count());
        }
    }
    std::sort(times.begin(), times.end());
    return times;
}

void print(const char* way, const std::vector<double>& times) {
    if (times.empty()) {
        std::fprintf(stderr, "%s: no read was answered\n", way);
        std::exit(1);
    }
    const auto quantile = [&times](double part) {
        return times[static_cast<std::size_t>(part * static_cast<double>(times.size() - 1))];
    };
    std::printf("SDO read over %-12s us: min %.1f  50%% %.1f  90%% %.1f  99%% %.1f  max %.1f  (%zu of %d)\n",
                way, times.front(), quantile(0.5), quantile(0.9), quantile(0.99), times.back(), times.size(),
                reads);
    std::fflush(stdout);
}

void measure_vcan() {
    const VirtualCan interface("vcan0");
    SocketCanDriver driver;
    driver.set_debug(0);
    if (driver.open("vcan0", 0, false) != 0) {
        std::exit(1);
    }
    const NodeProcess node(NODE_SIMULATOR, {"--can", "vcan0"});
    CCANopen master;
    master.load_driver(driver);
    master.set_debug(0);
    wait_readable(driver.get_socket(), boot_up_limit_ms);
    master.read_all_messages();
    print("vcan", measure(master));
}

void measure_udp() {
    udpDriver driver;
    driver.open(0, 2, 0);
    const unsigned port = local_port(driver.endpoint().server_socket());
    const NodeProcess node(NODE_SIMULATOR, {"--peer", "127.0.0.1:" + std::to_string(port)});
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, node.port());
    CCANopen master;
    master.load_driver(driver);
    master.set_debug(0);
    wait_readable(driver.endpoint().server_socket(), boot_up_limit_ms);
    master.read_all_messages();
    print("UDP", measure(master));
}

}  // namespace

int main() {
    measure_vcan();
    measure_udp();
}
