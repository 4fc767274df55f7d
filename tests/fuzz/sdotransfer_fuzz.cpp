// Transfers of SdoClient with nodes that answer with arbitrary frames, at arbitrary times, through a driver that does not
// take every frame.

#include <time.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "nodevik/nodes/sdoclient.h"
#include "nodevik/util/monotonicclock.h"
#include "tests/fuzz/fuzzinput.h"

namespace {

// Time goes by the fuzzer's own clock, so that nothing waits.
std::int64_t played_us = 0;

constexpr unsigned int most_node = 3;

// A bus whose frames come from the input: likely answers to the request at hand, or anything else.
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
        length = kind % 16 == 1 ? input_.byte() % 32 : 8;
        ID = kind % 32 == 2 ? input_.word() & 0x7FFU : 0x580U + node_;
        std::fill_n(data, 8, std::uint8_t{0});
        data[0] = likely(kind >> 4);
        if (kind % 2 == 1) {
            input_.bytes({data, 8});
        } else {
            data[1] = input_.byte();
            data[2] = input_.byte();
            data[4] = input_.byte();
        }
        if (kind % 4 != 3) {  // an answer that names the object asked for
            std::copy_n(object_.begin() + 1, 3, data + 1);
        }
        return 0;
    }
    int write(unsigned int cobid, unsigned int, unsigned char* data, unsigned int) override {
        node_ = cobid & 0x7FU;
        last_ = data[0];
        if (data[0] == 0x40 || (data[0] & 0xE0) == 0x20 || (data[0] & 0xE1) == 0xC0 ||
            (data[0] & 0xE3) == 0xA0) {
            std::copy_n(data, 4, object_.begin());
            number_ = 0;
        }
        return refuses_ != 0 && --refuses_ % 3 == 0 ? -1 : 0;
    }
    int read_error_counters(unsigned int&, unsigned int&, unsigned int&) override { return 0; }
    void reset_rx_errors() override {}
    void reset_tx_errors() override {}

    void refuse(unsigned int frames) { refuses_ = frames; }

private:
    // The first byte of an answer that fits what was sent last.
    std::uint8_t likely(unsigned int choice) {
        switch (last_ & 0xE3) {
            case 0x40:
                return choice % 2 == 0 ? 0x41 : 0x43;
            case 0x60:
                return static_cast<std::uint8_t>((last_ & 0x10) | (choice == 3 ? 1 : 0));
            case 0x20:
            case 0x21:
            case 0x23:
                return 0x60;
            case 0xC0:
            case 0xC2:
                return 0xA4;
            case 0xC1:
                return 0xA1;
            case 0xA0:
                return choice % 4 == 0 ? 0x41 : 0xC6;
            case 0xA2:
            case 0xA3:
                ++number_;
                return choice == 5 ? 0xC1 : static_cast<std::uint8_t>(number_ | (choice == 4 ? 0x80 : 0));
            default:
                return choice % 2 == 0 ? 0xA2 : static_cast<std::uint8_t>(0x20 | (last_ & 0x10));
        }
    }

    FuzzInput& input_;
    unsigned int node_ = 1;
    unsigned int refuses_ = 0;
    std::uint8_t last_ = 0;
    std::uint8_t number_ = 0;
    std::array<unsigned char, 4> object_{};
};

class CheckedSink : public SdoSink {
public:
    explicit CheckedSink(std::size_t limit) : limit_(limit) {}
    bool write(const unsigned char* bytes, std::size_t size) override {
        for (std::size_t i = 0; i < size; ++i) {
            sum_ = sum_ + bytes[i];
        }
        got_ += size;
        return got_ < limit_;
    }

private:
    std::size_t limit_;
    std::size_t got_ = 0;
    volatile unsigned int sum_ = 0;
};

class CheckedSource : public SdoSource {
public:
    CheckedSource(std::uint64_t told, std::size_t piece) : told_(told), piece_(piece) {}
    std::uint64_t size() const override { return told_; }
    long read(unsigned char* room, std::size_t size) override {
        const std::size_t count = std::min(size, piece_);
        std::fill_n(room, count, std::uint8_t{0x5A});
        given_ += count;
        return given_ > 3000 ? 0 : static_cast<long>(count);
    }

private:
    std::uint64_t told_;
    std::size_t piece_;
    std::size_t given_ = 0;
};

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

}  // namespace

// The linker puts this in the place of the library's calls.
extern "C" {
int __wrap_clock_gettime(clockid_t, timespec* time);
int __wrap_clock_gettime(clockid_t, timespec* time) {
    played_us += 1;
    time->tv_sec = static_cast<time_t>(played_us / 1000000);
    time->tv_nsec = static_cast<long>(played_us % 1000000) * 1000;
    return 0;
}
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    silence_standard_output();
    FuzzInput input(data, size);
    AnsweringDriver bus(input);
    unsigned int started = 0;
    unsigned int ended = 0;
    {
        // Exactly as much memory as promised, so that a byte too many is seen; it outlives the transfers.
        std::array<std::vector<unsigned char>, most_node + 1> rooms;
        CheckedSink sink(2000);
        CheckedSource source(sdo_unknown_size, 100);
        CheckedSource told_source(2500, 77);
        ObservedDriver driver(bus);
        SdoClient sdo(driver);
        const auto count = [&ended](const SdoResult&) { ++ended; };
        while (!input.empty()) {
            const std::uint8_t operation = input.byte();
            const unsigned int node = 1 + operation / 16 % most_node;
            SdoOptions options;
            options.mode = static_cast<SdoMode>(operation % 3);
            options.timeout_ms = 10;
            const SdoObject object{node, static_cast<std::uint16_t>(0x2000 + operation % 2), 0};
            const bool is_free = !sdo.busy(node);
            int result = -1;
            switch (operation % 16) {
                case 0:
                case 1:
                    if (is_free) {
                        rooms[node].resize(input.byte() * 4U);
                    }
                    result = sdo.start_read(object, rooms[node].data(), rooms[node].size(), count, options);
                    break;
                case 2:
                case 3:
                    if (is_free) {
                        rooms[node].assign(input.byte() * 8U, std::uint8_t{1});
                    }
                    result = sdo.start_write(object, rooms[node].data(), rooms[node].size(), count, options);
                    break;
                case 4:
                    result = sdo.start_read(object, sink, count, options);
                    break;
                case 5:
                    result = sdo.start_write(object, source, count, options);
                    break;
                case 6:
                    result = sdo.start_write(object, told_source, count, options);
                    break;
                case 7:
                    sdo.cancel(node);
                    break;
                case 8:
                    played_us += input.byte() * 100;
                    break;
                case 9:
                    bus.refuse(input.byte());
                    break;
                case 10:
                    sdo.set_pace(1 + operation / 16, 500);
                    break;
                default:
                    break;
            }
            started += result == 0 ? 1 : 0;
            driver.read_all();
            sdo.process(monotonic_ns());
            require(started - ended == sdo.active());
            require((sdo.active() == 0) == (sdo.next_deadline() == no_deadline));
        }
        // Silence ends every transfer.
        bus.refuse(0);
        for (int turn = 0; turn < 20000 && sdo.active() != 0; ++turn) {
            played_us += 1000;
            sdo.process(monotonic_ns());
        }
        require(sdo.active() == 0);
    }
    require(started == ended);
    return 0;
}
