// Shows a realtime control loop: a timer wakes it once per period, it exchanges PDOs with a node, and at the
// end it tells how far its wake-ups were spread.
//
//     control_loop MASTER_PORT NODE_PORT [PERIOD_US [CYCLES]]
//
// Each cycle takes what node 1 answered to the cycle before, then sends new outputs and SYNC. Without the
// right to realtime scheduling (root, CAP_SYS_NICE) the library reports it and the loop runs as an ordinary
// process.

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/pdo.h"
#include "nodevik/udpdriver.h"
#include "nodevik/util/misc.h"
#include "nodevik/util/timer.h"

namespace {

constexpr const char* usage = "usage: control_loop MASTER_PORT NODE_PORT [PERIOD_US [CYCLES]]";
constexpr unsigned char node = 1;

using Clock = std::chrono::steady_clock;  // CLOCK_MONOTONIC, as the timer's

// A whole number from 1 to `highest`, or 0.
unsigned positive(std::string_view text, unsigned highest) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number <= highest ? number : 0;
}

// How late the wake-ups came after they were due, in microseconds.
void print_spread(std::vector<double> lateness) {
    std::sort(lateness.begin(), lateness.end());
    const auto percentile = [&lateness](double share) {
        return lateness[static_cast<std::size_t>(share * static_cast<double>(lateness.size() - 1))];
    };
    double sum = 0;
    for (const double late : lateness) {
        sum += late;
    }
    std::printf("late by us: min %.1f  mean %.1f  50%% %.1f  90%% %.1f  99%% %.1f  99.9%% %.1f  max %.1f\n",
                lateness.front(), sum / static_cast<double>(lateness.size()), percentile(0.5),
                percentile(0.9), percentile(0.99), percentile(0.999), lateness.back());
}

void run(CCANopen& master, unsigned& output, const unsigned& input, unsigned period_us, unsigned cycles) {
    std::vector<double> lateness;
    lateness.reserve(cycles);
    unsigned skipped = 0;
    unsigned answered = 0;
    const std::chrono::microseconds period(period_us);

    timer tick;
    tick.init_realtime_timer(1);
    tick.set_interval(period_us);
    Clock::time_point due = Clock::now();
    tick.start();
    while (lateness.size() < cycles) {
        tick.wait_signal();
        const Clock::time_point now = Clock::now();
        const int missed = tick.get_overrun();
        due += period * (1 + missed);
        skipped += static_cast<unsigned>(missed);
        lateness.push_back(std::chrono::duration<double, std::micro>(now - due).count());

        master.read_all_messages();
        answered += master.all_tdpos_updated(1) == 0 && input == output ? 1U : 0U;
        ++output;
        master.send_only_changed_rpdos();
        master.sync();
    }
    tick.stop();
    std::printf("%u cycles of %u us, %u periods skipped, %u answers within the period\n", cycles, period_us,
                skipped, answered);
    print_spread(lateness);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::puts(usage);
        return 0;
    }
    const unsigned master_port = argc > 2 ? positive(argv[1], 65535) : 0;
    const unsigned node_port = argc > 2 ? positive(argv[2], 65535) : 0;
    const unsigned period_us = argc > 3 ? positive(argv[3], 60'000'000) : 1000;
    const unsigned cycles = argc > 4 ? positive(argv[4], 10'000'000) : 5000;
    if (argc > 5 || master_port == 0 || node_port == 0 || period_us == 0 || cycles == 0) {
        std::fprintf(stderr, "%s\n", usage);
        return 2;
    }

    CCANopen master;
    udpDriver driver;
    driver.open(master_port, 0, 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, node_port);
    master.load_driver(driver);

    unsigned output = 0;  // the node's four output bytes as one counter
    unsigned input = 0;
    PDO rpdo(0x200U + node);  // what the node receives
    PDO tpdo(0x180U + node);  // what it transmits
    rpdo.mapcopy(0, output);
    tpdo.mapcopy(0, input);
    master.add_rpdo(rpdo);
    master.add_tpdo(tpdo);
    master.start_node(node);

    if (set_realtime_schduling(10) == 0) {
        std::puts("realtime scheduling");
    } else {
        std::puts("ordinary scheduling");
    }
    run(master, output, input, period_us, cycles);
}
