// What knowing the nodes of a bus costs, on a driver in memory.
//
//     nodes_bench SCENARIO COUNT
//
// runs the scenario's operation COUNT times and prints the nanoseconds of one. Under `valgrind
// --tool=callgrind` the difference of two run lengths gives the instructions of one, without those of the
// start.

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "nodevik/nodes/nodewatch.h"
#include "nodevik/nodes/sdoclient.h"
#include "nodevik/observeddriver.h"

namespace {

// A driver that always has the same frame to read.
class MemoryDriver : public CANdriver {
public:
    int open(unsigned int, unsigned int, unsigned int, bool) override { return 0; }
    void close() override {}
    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override {
        ID = identifier;
        length = 8;
        std::memcpy(data, bytes.data(), bytes.size());
        return 0;
    }
    int write(unsigned int, unsigned int, unsigned char* data, unsigned int) override {
        std::memcpy(bytes.data(), data, bytes.size());
        return 0;
    }
    int read_error_counters(unsigned int&, unsigned int&, unsigned int&) override { return 0; }
    void reset_rx_errors() override {}
    void reset_tx_errors() override {}

    unsigned int identifier = 0x181;
    std::array<unsigned char, 8> bytes{1, 2, 3, 4, 5, 6, 7, 8};
};

class IdleObserver : public FrameObserver {
public:
    void frame_passed(const ObservedFrame&) override {}
};

// The compiler is not to see which driver it is, as it does not in a program.
[[gnu::noipa]] void read_frames(CANdriver& driver, long count) {
    unsigned int id = 0;
    unsigned int length = 0;
    std::array<unsigned char, 8> data{};
    for (long i = 0; i < count; ++i) {
        driver.read(id, length, data.data());
    }
}

[[gnu::noipa]] void write_frames(CANdriver& driver, long count) {
    std::array<unsigned char, 8> data{};
    for (long i = 0; i < count; ++i) {
        driver.write(0x201, 8, data.data(), 0);
    }
}

void observed(void (*move)(CANdriver&, long), long count) {
    MemoryDriver bus;
    ObservedDriver driver(bus);
    IdleObserver observer;
    driver.add_observer(observer);
    move(driver, count);
}

void direct(void (*move)(CANdriver&, long), long count) {
    MemoryDriver bus;
    move(bus, count);
}

// A node that answers expedited requests.
class AnsweringDriver : public MemoryDriver {
public:
    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override {
        if (!full_) {
            return 1;
        }
        full_ = false;
        return MemoryDriver::read(ID, length, data);
    }
    int write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) override {
        MemoryDriver::write(cobid, length, data, flags);
        bytes[0] = data[0] == 0x40 ? 0x43 : 0x60;
        identifier = cobid - 0x80;
        full_ = true;
        return 0;
    }

private:
    bool full_ = false;
};

// Each round trip: a start, the frame there, the frame back, the callback.
void transfer(bool is_read, long count) {
    AnsweringDriver bus;
    ObservedDriver driver(bus);
    SdoClient sdo(driver);
    std::array<unsigned char, 4> value{};
    unsigned int id = 0;
    unsigned int length = 0;
    std::array<unsigned char, 8> data{};
    long done = 0;
    const auto ended = [&done](const SdoResult& result) { done += result.ok() ? 1 : 0; };
    for (long i = 0; i < count; ++i) {
        if (is_read) {
            sdo.start_read({5, 0x1000, 0}, value.data(), value.size(), ended);
        } else {
            sdo.start_write({5, 0x6040, 0}, value.data(), value.size(), ended);
        }
        driver.read(id, length, data.data());
    }
    if (done != count) {
        std::exit(1);
    }
}

void watch_heartbeats(long count) {
    MemoryDriver bus;
    ObservedDriver driver(bus);
    NodeWatch watch(driver);
    watch.expect_heartbeat(5, 1000);
    const unsigned char state = 5;
    for (long i = 0; i < count; ++i) {
        ObservedFrame frame(ObservedFrame::Direction::received, 0x705, 1, &state);
        watch.frame_passed(frame);
    }
}

struct Scenario {
    const char* name;
    void (*run)(long count);
};

constexpr Scenario scenarios[] = {
    {"read-direct", [](long count) { direct(read_frames, count); }},
    {"read-observed", [](long count) { observed(read_frames, count); }},
    {"write-direct", [](long count) { direct(write_frames, count); }},
    {"write-observed", [](long count) { observed(write_frames, count); }},
    {"sdo-read", [](long count) { transfer(true, count); }},
    {"sdo-write", [](long count) { transfer(false, count); }},
    {"heartbeat", watch_heartbeats},
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
    std::fputs("usage: nodes_bench SCENARIO COUNT\nscenarios:", stderr);
    for (const Scenario& scenario : scenarios) {
        std::fprintf(stderr, " %s", scenario.name);
    }
    std::fputs("\n", stderr);
    return 2;
}
