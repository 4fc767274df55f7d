// Shows a control loop of 1 kHz that keeps its cycle while a long object is written to another node: the SDO client does
// a little of the transfer in each cycle, and never waits.
//
//     control_loop_download MASTER_PORT NODE_PORT [BYTES]
//
// The loop exchanges PDOs with node 1. After its first second it begins to write BYTES bytes, 100000 if not told, to
// object 0x2006 of node 2, by blocks and at most five segments a cycle: with the loop's own frames that fits on a bus of
// 1 Mbit/s. At the end it tells how late its wake-ups came, and how long the work of a cycle took, before and meanwhile.

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/nodes/sdoclient.h"
#include "nodevik/pdo.h"
#include "nodevik/udpdriver.h"
#include "nodevik/util/misc.h"
#include "nodevik/util/monotonicclock.h"
#include "nodevik/util/timer.h"

namespace {

constexpr const char* usage = "usage: control_loop_download MASTER_PORT NODE_PORT [BYTES]";
constexpr unsigned char controlled_node = 1;
constexpr unsigned char loaded_node = 2;
constexpr unsigned cycles_before = 1000;
constexpr unsigned period_us = 1000;
constexpr unsigned segments_a_cycle = 5;

// A whole number from 1 to `highest`, or 0.
unsigned positive(std::string_view text, unsigned highest) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number <= highest ? number : 0;
}

// What the cycles of one part of the run were like, in microseconds.
class Spread {
public:
    Spread() {
        late.reserve(100'000);
        work.reserve(late.capacity());
    }
    void add(double late_us, double work_us) {
        late.push_back(late_us);
        work.push_back(work_us);
    }
    std::size_t count() const { return late.size(); }
    void print(const char* name) {
        std::printf("%s: %zu cycles\n", name, count());
        print("  late by us", late);
        print("  work of us", work);
    }

private:
    static void print(const char* name, std::vector<double>& values) {
        std::sort(values.begin(), values.end());
        const auto percentile = [&values](double share) {
            return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
        };
        std::printf("%s: 50%% %.1f  99%% %.1f  99.9%% %.1f  max %.1f\n", name, percentile(0.5),
                    percentile(0.99), percentile(0.999), values.back());
    }
    std::vector<double> late;
    std::vector<double> work;
};

struct Loop {
    CCANopen& master;
    SdoClient& sdo;
    unsigned& output;
    Spread before = {};
    Spread meanwhile = {};
    unsigned skipped = 0;

    // Cycles until the transfer that begins with cycle number `cycles_before` has ended.
    void run(const std::vector<unsigned char>& object, SdoResult& result) {
        using Clock = std::chrono::steady_clock;  // CLOCK_MONOTONIC, as the timer's
        using Microseconds = std::chrono::duration<double, std::micro>;
        bool is_over = false;
        timer tick;
        tick.init_realtime_timer(1);
        tick.set_interval(period_us);
        Clock::time_point due = Clock::now();
        tick.start();
        while (!is_over) {
            tick.wait_signal();
            const Clock::time_point begun = Clock::now();
            const int missed = tick.get_overrun();
            due += std::chrono::microseconds(period_us) * (1 + missed);
            skipped += static_cast<unsigned>(missed);

            master.read_all_messages();  // TPDOs into their variables, SDO answers to the client
            ++output;
            master.send_only_changed_rpdos();
            master.sync();
            sdo.process(monotonic_ns());  // behind what the cycle is for

            const bool is_loading = sdo.active() != 0;
            (is_loading ? meanwhile : before)
                .add(Microseconds(begun - due).count(), Microseconds(Clock::now() - begun).count());
            if (before.count() == cycles_before && !is_loading) {
                sdo.start_write({loaded_node, 0x2006, 0}, object.data(), object.size(),
                                [&](const SdoResult& end) {
                                    result = end;
                                    is_over = true;
                                });
            }
        }
        tick.stop();
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::puts(usage);
        return 0;
    }
    const unsigned master_port = argc > 2 ? positive(argv[1], 65535) : 0;
    const unsigned node_port = argc > 2 ? positive(argv[2], 65535) : 0;
    const unsigned bytes = argc > 3 ? positive(argv[3], 1'000'000) : 100'000;
    if (argc > 4 || master_port == 0 || node_port == 0 || bytes == 0) {
        std::fprintf(stderr, "%s\n", usage);
        return 2;
    }

    udpDriver bus;
    bus.open(master_port, 0, 0);
    bus.endpoint().set_client_destination_address(127, 0, 0, 1, node_port);
    ObservedDriver driver(bus);
    CCANopen master;
    master.load_driver(driver);
    SdoClient sdo(driver);
    // A little less than the period: a wake-up that comes early finds the next segments due.
    sdo.set_pace(segments_a_cycle, period_us * 9 / 10);

    unsigned output = 0;
    PDO rpdo(0x200U + controlled_node);
    rpdo.mapcopy(0, output);
    master.add_rpdo(rpdo);
    master.start_node(controlled_node);

    std::puts(set_realtime_schduling(10) == 0 ? "realtime scheduling" : "ordinary scheduling");
    const std::vector<unsigned char> object(bytes, 0x55);
    SdoResult result;
    Loop loop{master, sdo, output};
    loop.run(object, result);
    std::printf("%s, %llu bytes%s; %u periods skipped\n", result.words(),
                static_cast<unsigned long long>(result.bytes), result.by_blocks ? " by blocks" : "",
                loop.skipped);
    loop.before.print("before the transfer");
    loop.meanwhile.print("meanwhile");
    return result.ok() ? 0 : 1;
}
