// What the CANopen master costs, on a driver in memory.
//
//     canopen_bench SCENARIO COUNT
//
// runs the scenario's operation COUNT times and prints the nanoseconds of one. Under `valgrind
// --tool=callgrind` the difference of two run lengths gives the instructions of one, without those of the
// start.

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "nodevik/canopen.h"

namespace {

// A driver that delivers the frames of `bus` once, and answers SDO requests.
class MemoryDriver : public CANdriver {
public:
    struct Frame {
        unsigned int cobid = 0;
        unsigned int length = 8;
        std::array<unsigned char, 8> data = {};
    };

    std::vector<Frame> bus = std::vector<Frame>(1);
    std::size_t delivered = 1;

    // Has all the frames delivered once more.
    void deliver() {
        ++bus.front().data[0];
        delivered = 0;
    }

    int open(unsigned int, unsigned int, unsigned int, bool) override { return 0; }
    void close() override {}
    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override {
        if (delivered == bus.size()) {
            return 1;
        }
        const Frame& frame = bus[delivered];
        ++delivered;
        ID = frame.cobid;
        length = frame.length;
        std::memcpy(data, frame.data.data(), frame.data.size());
        return 0;
    }
    int write(unsigned int cobid, unsigned int, unsigned char* data, unsigned int) override {
        if ((cobid & 0x780) == 0x600) {
            bus.front().cobid = cobid - 0x80;
            std::memcpy(bus.front().data.data(), data, bus.front().data.size());
            bus.front().data[0] = data[0] == 0x40 ? 0x43 : 0x60;
            delivered = 0;
        }
        return 0;
    }
    int read_error_counters(unsigned int&, unsigned int&, unsigned int&) override { return 0; }
    void reset_rx_errors() override {}
    void reset_tx_errors() override {}
};

// The COB-ID of the i-th of 512 TPDOs: the four function codes, with 128 numbers each.
unsigned int tpdo_cobid(int i) {
    const auto number = static_cast<unsigned int>(i);
    return 0x180 + number / 128 * 0x100 + number % 128;
}

// A master with `count` TPDOs of four mapped 16-bit variables.
class Receiver {
public:
    explicit Receiver(int count) : variables_(static_cast<std::size_t>(count)) {
        master.load_driver(driver);
        for (int i = 0; i < count; ++i) {
            pdos_.push_back(std::make_unique<PDO>());
            // The field and not set_cobid(), which does not take node number 0.
            pdos_.back()->cobid = tpdo_cobid(i);
            for (unsigned int v = 0; v < 4; ++v) {
                pdos_.back()->mapcopy(2 * v, variables_[static_cast<std::size_t>(i)][v]);
            }
            if (master.add_tpdo(*pdos_.back()) != 0) {
                std::exit(1);
            }
        }
    }

    unsigned int cobid(std::size_t i) const { return pdos_[i]->get_cobid(); }
    std::size_t count() const { return pdos_.size(); }

    MemoryDriver driver;
    CCANopen master;

private:
    std::vector<std::array<unsigned short, 4>> variables_;
    std::vector<std::unique_ptr<PDO>> pdos_;
};

// Receives frames one at a time, in turn for the positions from `first` to `last`.
void receive(int tpdos, std::size_t first, std::size_t last, long count) {
    Receiver receiver(tpdos);
    std::size_t position = first;
    for (long i = 0; i < count; ++i) {
        receiver.driver.bus.front().cobid = receiver.cobid(position);
        receiver.driver.deliver();
        receiver.master.read_all_messages();
        position = position == last ? first : position + 1;
    }
}

// Receives whole cycles, one frame for each TPDO and all of them in one call, until there are `count` frames.
void receive_cycles(int tpdos, int (CCANopen::*read)(), long count) {
    Receiver receiver(tpdos);
    receiver.driver.bus.resize(receiver.count());
    for (std::size_t i = 0; i < receiver.count(); ++i) {
        receiver.driver.bus[i].cobid = receiver.cobid(i);
    }
    for (long i = 0; i < count; i += tpdos) {
        receiver.driver.deliver();
        (receiver.master.*read)();
    }
}

void receive_all(int tpdos, long count) {
    receive_cycles(tpdos, &CCANopen::read_all_messages, count);
}

void receive_until_duplicate(int tpdos, long count) {
    receive_cycles(tpdos, &CCANopen::read_all_until_duplicate_tpdo, count);
}

void send(bool changing, long count) {
    MemoryDriver driver;
    CCANopen master;
    std::array<unsigned short, 4> variables = {};
    PDO pdo(0x201);
    for (unsigned int v = 0; v < 4; ++v) {
        pdo.mapcopy(2 * v, variables[v]);
    }
    master.load_driver(driver);
    master.add_rpdo(pdo);
    for (long i = 0; i < count; ++i) {
        variables[0] = static_cast<unsigned short>(variables[0] + (changing ? 1 : 0));
        master.send_only_changed_rpdos();
    }
}

void read_object(long count) {
    MemoryDriver driver;
    CCANopen master;
    int data = 0;
    master.load_driver(driver);
    for (long i = 0; i < count; ++i) {
        master.sdo_read(5, 0x1000, 0, data);
    }
}

void write_object(long count) {
    MemoryDriver driver;
    CCANopen master;
    master.load_driver(driver);
    for (long i = 0; i < count; ++i) {
        master.sdo_write(5, 0x6040, 0, 2, 15);
    }
}

struct Scenario {
    const char* name;
    void (*run)(long count);
};

constexpr Scenario scenarios[] = {
    {"tpdo-1", [](long count) { receive(1, 0, 0, count); }},
    {"tpdo-512-first", [](long count) { receive(512, 0, 0, count); }},
    {"tpdo-512-last", [](long count) { receive(512, 511, 511, count); }},
    {"tpdo-512-mean", [](long count) { receive(512, 0, 511, count); }},
    {"cycle-4", [](long count) { receive_all(4, count); }},
    {"cycle-64", [](long count) { receive_all(64, count); }},
    {"cycle-512", [](long count) { receive_all(512, count); }},
    {"duplicate-4", [](long count) { receive_until_duplicate(4, count); }},
    {"duplicate-64", [](long count) { receive_until_duplicate(64, count); }},
    {"duplicate-512", [](long count) { receive_until_duplicate(512, count); }},
    {"rpdo-changed", [](long count) { send(true, count); }},
    {"rpdo-unchanged", [](long count) { send(false, count); }},
    {"sdo-read", read_object},
    {"sdo-write", write_object},
};

}  // namespace

int main(int argc, char** argv) {
    const long count = argc == 3 ? std::strtol(argv[2], nullptr, 10) : 0;
    for (const Scenario& scenario : scenarios) {
        if (argc == 3 && count > 0 && std::strcmp(scenario.name, argv[1]) == 0) {
            const auto start = std::chrono::steady_clock::now();
            scenario.run(count);
            const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
            std::printf("%-16s %10.1f ns\n", scenario.name, took.count() / static_cast<double>(count));
            return 0;
        }
    }
    std::fputs("usage: canopen_bench SCENARIO COUNT\nscenarios:", stderr);
    for (const Scenario& scenario : scenarios) {
        std::fprintf(stderr, " %s", scenario.name);
    }
    std::fputs("\n", stderr);
    return 2;
}
