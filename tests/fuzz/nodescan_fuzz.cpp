// Scans of nodes that send arbitrary frames, at arbitrary times: every scan ends, once, and tells each node once.

#include "nodevik/nodes/nodescan.h"

#include <cstdint>
#include <set>

#include "nodevik/util/monotonicclock.h"
#include "tests/fuzz/fuzzinput.h"
#include "tests/fuzz/scriptedbus.h"

namespace {

// An answer to what was asked last, or anything.
FuzzBus::Frame frame_of(FuzzInput& input, const FuzzBus& bus) {
    FuzzBus::Frame frame;
    const std::uint8_t kind = input.byte();
    frame.id = kind % 4 == 3 ? input.word() & 0x7FFU
                             : 0x580U + (kind % 4 == 2 ? input.byte() : bus.last_sent.id) % 128;
    frame.length = kind >= 240 ? kind % 16 : 8;
    input.bytes(frame.data);
    if (kind % 4 < 2) {  // names the object, and is of a kind that may be right
        constexpr std::array<unsigned char, 8> likely{0x43, 0x41, 0x40, 0x4F, 0x80, 0x00, 0x10, 0x01};
        frame.data[0] = likely[frame.data[0] % likely.size()];
        std::copy_n(bus.last_sent.data.begin() + 1, (frame.data[0] & 0xC0) != 0 ? 3 : 0,
                    frame.data.begin() + 1);
    }
    return frame;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    FuzzBus bus;
    ObservedDriver driver(bus);
    SdoClient sdo(driver);
    NodeScanOptions options;
    options.first = 1 + input.byte() % 127;
    options.last = options.first + input.byte() % 8;
    options.attempts = input.byte() % 3;
    options.burst = input.byte() % 6;
    options.timeout_ms = input.byte();
    options.identity = input.byte() % 2 == 0;
    options.names = input.byte() % 2 == 0;
    unsigned int begun = 0;
    unsigned int ended = 0;
    std::set<unsigned int> told;
    {
        NodeScan scan(driver, sdo);
        const NodeScan::Found found = [&told](const ScannedNode& node) {
            require(node.answers || node.heard != 0);
            require(node.name.size() <= 510 && told.insert(node.node).second);
        };
        const NodeScan::Callback end = [&ended, &told](const NodeScanResult& result) {
            ++ended;
            require(result.found == told.size() && result.answering <= result.found);
        };
        while (!input.empty()) {
            const std::uint8_t deed = input.byte();
            if (deed < 20 && !scan.busy()) {
                told.clear();
                begun += scan.start_asking(found, end, options) == 0 ? 1 : 0;
            } else if (deed < 25 && !scan.busy()) {
                told.clear();
                begun += scan.start_listening(input.byte(), found, end) == 0 ? 1 : 0;
            } else if (deed < 200) {
                bus.incoming.push_back(frame_of(input, bus));
                driver.read_all();
            } else if (deed < 250) {
                fuzz_clock_ns += std::uint64_t{deed} * input.byte() * 10'000;
            } else if (deed < 254) {
                bus.refuses = !bus.refuses;
            } else {
                scan.cancel();
            }
            sdo.process(monotonic_ns());
            scan.process(monotonic_ns());
            require(begun == ended + (scan.busy() ? 1 : 0));
        }
        for (int step = 0; scan.busy(); ++step) {
            require(step < 50'000);
            fuzz_clock_ns = std::max(fuzz_clock_ns, std::min(scan.next_deadline(), sdo.next_deadline()));
            sdo.process(monotonic_ns());
            scan.process(monotonic_ns());
        }
        require(sdo.active() == 0 || ended == 0);
    }
    require(begun == ended);
    return 0;
}
