// The LSS master against devices that send arbitrary frames, at arbitrary times: every service ends, once.

#include "nodevik/nodes/lss.h"

#include <cstdint>

#include "nodevik/util/monotonicclock.h"
#include "tests/fuzz/fuzzinput.h"
#include "tests/fuzz/scriptedbus.h"

namespace {

// Services that have begun, and callbacks that have told their ends.
struct Account {
    unsigned int begun = 0;
    unsigned int ended = 0;
};

LssIdentity identity_of(FuzzInput& input) {
    return {input.dword(), input.dword(), input.dword(), input.dword()};
}

int start(Lss& lss, FuzzInput& input, const Lss::Callback& end) {
    switch (input.byte() % 12) {
        case 0:
            return lss.start_switch_all(input.byte() % 2 == 1, end);
        case 1:
            return lss.start_switch_one(identity_of(input), end);
        case 2:
            return lss.start_set_node(input.byte(), end);
        case 3:
            return lss.start_set_bit_rate(input.word(), end);
        case 4:
            return lss.start_activate(input.word(), end);
        case 5:
            return lss.start_store(end);
        case 6:
            return lss.start_inquire_identity(end);
        case 7:
            return lss.start_inquire_node(end);
        case 8:
            return lss.start_identify({}, end);
        case 9:
            return lss.start_identify_unconfigured(end);
        case 10: {
            LssKnown known;
            const std::uint8_t bits = input.byte();
            for (std::size_t i = 0; i < known.known.size(); ++i) {
                known.known[i] = (bits >> i & 1) != 0;
                known.value[i] = input.byte();
            }
            return lss.start_fastscan(known, end);
        }
        default: {
            const std::uint8_t node = input.byte();
            return lss.start_assign([node](const LssIdentity&) { return node; },
                                    [](const LssAssignment& one) { require(one.node <= 255); }, node % 2 == 1,
                                    end);
        }
    }
}

// An answer to what was asked last, or anything.
FuzzBus::Frame frame_of(FuzzInput& input, const FuzzBus& bus) {
    FuzzBus::Frame frame;
    const std::uint8_t kind = input.byte();
    frame.id = kind % 8 == 7 ? input.word() & 0x7FFU : kind % 8 == 6 ? 0x700U + input.byte() % 128 : 0x7E4U;
    frame.length = kind % 8 == 6 ? 1 : kind >= 240 ? kind % 16 : 8;
    input.bytes(frame.data);
    const unsigned char asked = bus.last_sent.data[0];
    if (kind % 8 < 4) {
        frame.data[0] = asked == 0x51 || asked == 0x4B ? 0x4F
                        : asked == 0x43                ? 0x44
                        : asked == 0x4C                ? 0x50
                                                       : asked;
    }
    if (kind % 8 == 6) {
        frame.data[0] = static_cast<unsigned char>(frame.data[0] % 2 * 5);
    }
    return frame;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    FuzzBus bus;
    ObservedDriver driver(bus);
    Account account;
    {
        Lss lss(driver);
        LssTiming timing;
        timing.first_answer_ends_step = input.byte() % 2 == 1;
        lss.set_timing(timing);
        const Lss::Callback end = [&account](const LssResult& result) {
            ++account.ended;
            require(lss_words(result.outcome)[0] != '\0');
        };
        while (!input.empty()) {
            const std::uint8_t deed = input.byte();
            if (deed < 40) {
                account.begun += start(lss, input, end) == 0 ? 1 : 0;
            } else if (deed < 180) {
                bus.incoming.push_back(frame_of(input, bus));
                driver.read_all();
            } else if (deed < 250) {
                fuzz_clock_ns += std::uint64_t{deed} * input.byte() * 10'000;
            } else if (deed < 253) {
                bus.refuses = !bus.refuses;
            } else {
                lss.cancel();
            }
            lss.process(monotonic_ns());
            require(account.begun == account.ended + (lss.busy() ? 1 : 0));
        }
        // Time alone ends what is under way: the longest is an assignment that fails at its end.
        for (int step = 0; lss.busy(); ++step) {
            require(step < 5000);
            fuzz_clock_ns = std::max(fuzz_clock_ns, lss.next_deadline());
            lss.process(monotonic_ns());
        }
    }
    require(account.begun == account.ended);
    return 0;
}
