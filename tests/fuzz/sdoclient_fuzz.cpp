// The SDO client against a server that answers with arbitrary frames.

#include <time.h>

#include <cstdint>
#include <vector>

#include "nodevik/canopen.h"
#include "tests/fuzz/fuzzinput.h"

namespace {

// Time goes by the fuzzer's own clock, so that nothing waits.
std::int64_t played_us = 0;

// A bus whose frames come from the input: an answer to the request at hand, or anything else.
class AnsweringDriver : public CANdriver {
public:
    explicit AnsweringDriver(FuzzInput& input) : input_(input) {}

    int open(unsigned int, unsigned int, unsigned int, bool) override { return 0; }
    void close() override {}
    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override {
        if (input_.empty()) {
            return 1;
        }
        const std::uint8_t kind = input_.byte();
        if (kind % 8 == 0) {
            return kind < 128 ? 1 : -1;
        }
        length = kind % 16 == 1 ? input_.byte() % 16 : 8;
        ID = kind % 16 == 2 ? input_.word() & 0x7FFU : 0x580U + node_;
        input_.bytes({data, 8});
        if (kind % 4 == 3) {  // an answer that names the object asked for
            for (int i = 1; i < 4; ++i) {
                data[i] = object_[i];
            }
        }
        return 0;
    }
    int write(unsigned int cobid, unsigned int, unsigned char* data, unsigned int) override {
        node_ = cobid & 0x7FU;
        if ((data[0] & 0xE0) == 0x40 || (data[0] & 0xE0) == 0x20) {
            std::copy_n(data, 4, object_);
        }
        return 0;
    }
    int read_error_counters(unsigned int&, unsigned int&, unsigned int&) override { return 0; }
    void reset_rx_errors() override {}
    void reset_tx_errors() override {}

private:
    FuzzInput& input_;
    unsigned int node_ = 0;
    unsigned char object_[4] = {};
};

}  // namespace

// The linker puts these in the place of the library's calls.
extern "C" {
int __wrap_clock_gettime(clockid_t, timespec* time);
int __wrap_clock_gettime(clockid_t, timespec* time) {
    played_us += 100;
    time->tv_sec = static_cast<time_t>(played_us / 1000000);
    time->tv_nsec = static_cast<long>(played_us % 1000000) * 1000;
    return 0;
}

int __wrap_nanosleep(const timespec* time, timespec*);
int __wrap_nanosleep(const timespec* time, timespec*) {
    played_us += time->tv_sec * 1000000 + time->tv_nsec / 1000;
    return 0;
}

int __wrap_sched_yield();
int __wrap_sched_yield() {
    return 0;
}
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    silence_standard_output();
    FuzzInput input(data, size);
    AnsweringDriver driver(input);
    CCANopen master;
    master.load_driver(driver);
    for (int i = 0; i < 4 && !input.empty(); ++i) {
        master.set_debug(input.byte() & 0xFEU);  // bit 1 would end the process at the first abort
        const std::uint8_t operation = input.byte();
        master.discard_late_sdo_answers(operation >= 128);
        const std::uint8_t node = input.byte();
        const std::uint16_t index = input.word();
        const std::uint8_t subindex = input.byte();
        if (operation % 4 == 0) {
            int value = 0;
            master.sdo_read(node, index, subindex, value);
        } else if (operation % 4 == 1) {
            master.sdo_write(node, index, subindex, input.byte() % 6, static_cast<int>(input.dword()));
        } else {
            // Exactly as much memory as promised, so that a byte too many is seen.
            std::vector<char> bytes(input.byte() % 64);
            unsigned int length = static_cast<unsigned int>(bytes.size());
            if (operation % 4 == 2) {
                master.sdo_read_segment(node, index, subindex, length, bytes.data());
            } else {
                master.sdo_write_segment(node, index, subindex, length, bytes.data());
            }
        }
    }
    return 0;
}
