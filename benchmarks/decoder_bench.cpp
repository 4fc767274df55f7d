/// @file
/// Speed of the decoder: from a frame to its finished line.
///
///     decoder_bench                    wall-clock nanoseconds per line of every scenario
///     decoder_bench SCENARIO COUNT     builds COUNT lines of one scenario and prints nothing
///
/// The second form is for counting instructions: under `valgrind --tool=callgrind`, the difference of two run
/// lengths divided by the difference of their counts is the cost of one line, free of start-up. Each scenario
/// NAME has a companion NAME-snprintf: one bare snprintf call that writes the same line.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "nodevik/candriver.h"
#include "nodevik/canopen.h"
#include "nodevik/decoder.h"
#include "nodevik/pdo.h"

namespace {

using frame_bytes = std::array<uint8_t, 8>;

/// Keeps the compiler from leaving out what writes @p memory.
void use(const void* memory) {
    asm volatile("" : : "g"(memory) : "memory");
}

void count_nothing(const char* /*line*/) {}

/// Lets @p decoder build the line of the same frame @p count times.
void decode(const CDecoder& decoder, int count, uint32_t id, uint8_t len, frame_bytes data) {
    CDecoder::register_callback(count_nothing);
    CDecoder::clear_message();
    for (int i = 0; i < count; ++i) {
        use(data.data());
        decoder.print_message(id, len, data.data());
        use(CDecoder::get_message());
    }
}

void decode_canopen(int count, uint32_t id, uint8_t len, const frame_bytes& data) {
    decode(CCANopen(), count, id, len, data);
}

/// A bus on which one frame has been waiting.
class OneFrameDriver : public CANdriver {
public:
    explicit OneFrameDriver(uint32_t id) : id_(id) {}

    int open(unsigned int /*speed*/, unsigned int /*mode*/, unsigned int /*port*/, bool /*silent*/) override {
        return 0;
    }
    void close() override {}
    int read(unsigned int& ID, unsigned int& length, unsigned char* /*data*/) override {
        ID = id_;
        length = 8;
        return waiting_-- > 0 ? 0 : 1;
    }
    int write(unsigned int /*cobid*/, unsigned int /*length*/, unsigned char* /*data*/,
              unsigned int /*flags*/) override {
        return 0;
    }
    int read_error_counters(unsigned int& /*txErr*/, unsigned int& /*rxErr*/,
                            unsigned int& /*ovErr*/) override {
        return 0;
    }
    void reset_rx_errors() override {}
    void reset_tx_errors() override {}

private:
    uint32_t id_;
    int waiting_ = 1;
};

/// The same with a master that receives @p mapped PDOs, 0x181 and on, and has just received this one.
void decode_mapped(int count, int mapped, uint32_t id) {
    CCANopen master;
    std::vector<std::unique_ptr<PDO>> pdos;
    for (int i = 0; i < mapped; ++i) {
        pdos.push_back(std::make_unique<PDO>(0x181U + static_cast<unsigned int>(i)));
        master.add_tpdo(*pdos.back());
    }
    OneFrameDriver driver(id);
    master.load_driver(driver);
    master.read_all_messages();
    decode(master, count, id, 8, {});
}

/// Writes a line with one snprintf call, @p count times; `values` are its arguments.
template <typename... Values>
void print_bare(int count, const char* format, Values... values) {
    char line[301];
    for (int i = 0; i < count; ++i) {
        use(format);
        std::snprintf(line, sizeof line, format, values...);
        use(line);
    }
}

struct scenario {
    const char* name;
    void (*run)(int count);
};

constexpr std::array scenarios = {
    scenario{"dump",
             [](int count) {
                 decode(CDecoder(), count, 0x181, 8, {1, 2, 3, 4, 5, 6, 7, 8});
             }},
    scenario{"dump-snprintf",
             [](int count) {
                 print_bare(count, "id 0x%08x  len %u  data %02x %02x %02x %02x %02x %02x %02x %02x", 0x181U,
                            8U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U);
             }},
    scenario{"nmt",
             [](int count) {
                 decode_canopen(count, 0x000, 2, {130, 5});
             }},
    scenario{"nmt-snprintf",
             [](int count) { print_bare(count, " - NMT: %s ID 0x%02x", "Reset Communication", 5U); }},
    scenario{"sync", [](int count) { decode_canopen(count, 0x080, 0, {}); }},
    scenario{"sync-snprintf", [](int count) { print_bare(count, " - %s", "SYNC"); }},
    scenario{"emergency",
             [](int count) {
                 decode_canopen(count, 0x085, 8, {0x40, 0x81});
             }},
    scenario{"emergency-snprintf",
             [](int count) {
                 print_bare(count,
                            " - NMT Emergency, Class: %s, Error Code: %s, Manufacturer Error Code : "
                            "%02x%02x%02x%02x%02x",
                            "Communication", "recovered from bus off", 0U, 0U, 0U, 0U, 0U);
             }},
    scenario{"tpdo", [](int count) { decode_mapped(count, 1, 0x185); }},
    scenario{"tpdo-snprintf",
             [](int count) { print_bare(count, " - Transmit PDO %u ID 0x%02x (Unmapped)", 1U, 5U); }},
    scenario{"tpdo-mapped", [](int count) { decode_mapped(count, 64, 0x1C0); }},
    scenario{"tpdo-mapped-512", [](int count) { decode_mapped(count, 512, 0x380); }},
    scenario{"tpdo-mapped-snprintf",
             [](int count) {
                 print_bare(count, " - Transmit PDO %u ID 0x%02xTransmit PDO %u ID 0x%02x (Unmapped)", 1U,
                            64U, 1U, 64U);
             }},
    scenario{"rpdo", [](int count) { decode_canopen(count, 0x205, 8, {}); }},
    scenario{"rpdo-snprintf", [](int count) { print_bare(count, " - Receive  PDO %u ID 0x%02x", 1U, 5U); }},
    scenario{"sdo-response",
             [](int count) {
                 decode_canopen(count, 0x585, 8, {0x43, 0x18, 0x10, 1, 4, 3, 2, 1});
             }},
    scenario{"sdo-response-snprintf",
             [](int count) {
                 print_bare(
                     count,
                     " - SDO Initiate Upload (expedited) Response: ID=0x%02x Index=0x%04x Subindex=0x%02x "
                     "len=%u data=0x%08x",
                     5U, 0x1018U, 1U, 4U, 0x01020304U);
             }},
    scenario{"sdo-request",
             [](int count) {
                 decode_canopen(count, 0x605, 8, {0x40, 0x18, 0x10, 1});
             }},
    scenario{"sdo-request-snprintf",
             [](int count) {
                 print_bare(
                     count,
                     " - SDO Initiate Upload:                      ID=0x%02x Index=0x%04x Subindex=0x%02x",
                     5U, 0x1018U, 1U);
             }},
    scenario{"sdo-abort",
             [](int count) {
                 decode_canopen(count, 0x585, 8, {0x80, 0x18, 0x10, 1, 0x24, 0, 0, 8});
             }},
    scenario{
        "sdo-abort-snprintf",
        [](int count) {
            print_bare(
                count,
                " - SDO Abort Domain Transfer:                ID=0x%02x Index=0x%04x Subindex=0x%02x - %s",
                5U, 0x1018U, 1U, "No data available");
        }},
    scenario{"heartbeat", [](int count) { decode_canopen(count, 0x705, 1, {5}); }},
    scenario{"heartbeat-snprintf",
             [](int count) {
                 print_bare(count, " - Nodeguard Response/Heartbeat ID=0x%02x: %s", 5U, "Operational");
             }},
};

/// Nanoseconds of one line in @p each, the best of several runs.
double nanoseconds(const scenario& each) {
    using clock = std::chrono::steady_clock;
    constexpr int runs = 5;
    constexpr int count = 100000;
    double best = 0;
    for (int run = 0; run < runs; ++run) {
        const auto start = clock::now();
        each.run(count);
        const std::chrono::duration<double, std::nano> took = clock::now() - start;
        best = run == 0 ? took.count() : std::min(best, took.count());
    }
    return best / count;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 1) {
        for (const scenario& each : scenarios) {
            std::printf("%s %.0f\n", each.name, nanoseconds(each));
        }
        return 0;
    }
    for (const scenario& each : scenarios) {
        if (argc == 3 && std::strcmp(argv[1], each.name) == 0) {
            each.run(std::atoi(argv[2]));
            return 0;
        }
    }
    std::fprintf(stderr, "usage: %s [SCENARIO COUNT]\n", argv[0]);
    return 2;
}
