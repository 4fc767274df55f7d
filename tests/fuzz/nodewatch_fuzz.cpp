// A watch over nodes that send arbitrary frames at arbitrary times.

#include <array>
#include <cstdint>
#include <cstdlib>

#include "nodevik/nodes/nodewatch.h"
#include "nodevik/util/monotonicclock.h"
#include "tests/fuzz/fuzzinput.h"

namespace {

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

class SilentDriver : public CANdriver {
public:
    int open(unsigned int, unsigned int, unsigned int, bool) override { return 0; }
    void close() override {}
    int read(unsigned int&, unsigned int&, unsigned char*) override { return 1; }
    int write(unsigned int, unsigned int, unsigned char*, unsigned int) override { return 0; }
    int read_error_counters(unsigned int&, unsigned int&, unsigned int&) override { return 0; }
    void reset_rx_errors() override {}
    void reset_tx_errors() override {}
};

// News of a node fit together: what is lost was there, what comes back was lost, states change.
class Checker : public NodeListener {
public:
    void state_changed(unsigned int node, NodeState before, NodeState now) override {
        require(node >= 1 && node <= 127 && before != now);
        require(states_[node] == before);
        states_[node] = now;
    }
    void lost(unsigned int node) override {
        require(!lost_[node]);
        lost_[node] = true;
    }
    void back(unsigned int node) override {
        require(lost_[node]);
        lost_[node] = false;
    }
    void emergency(unsigned int, const NodeEmergency& emergency) override {
        require(emergency.text() != nullptr);
    }
    void forget(unsigned int node) { lost_[node] = false; }

private:
    std::array<bool, 128> lost_{};
    std::array<NodeState, 128> states_ = [] {
        std::array<NodeState, 128> states{};
        states.fill(NodeState::unknown);
        return states;
    }();
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    silence_standard_output();
    FuzzInput input(data, size);
    SilentDriver bus;
    ObservedDriver driver(bus);
    NodeWatch watch(driver);
    Checker checker;
    watch.set_listener(&checker);
    std::uint64_t now_ns = 1;
    while (!input.empty()) {
        const std::uint8_t operation = input.byte();
        const unsigned int node = input.byte() % 4 + 4;
        switch (operation % 8) {
            case 0:
                watch.expect_heartbeat(node, input.byte());
                checker.forget(node);
                break;
            case 1:
                if (const unsigned int factor = input.byte() % 4; factor != 0) {
                    watch.guard(node, input.byte(), factor);
                    checker.forget(node);
                }
                break;
            case 2:
                now_ns += input.word() * 10'000ULL;
                watch.process(now_ns);
                break;
            default: {
                std::array<std::uint8_t, 8> bytes{};
                const std::array<unsigned int, 4> ids = {0x700 + node, 0x080 + node, 0x180 + node,
                                                         input.word() & 0x7FFU};
                input.bytes(bytes);
                ObservedFrame frame(ObservedFrame::Direction::received, ids[operation / 8 % 4],
                                    operation < 128 ? operation / 8 % 4 == 0 ? 1U : 8U : input.byte() % 32U,
                                    bytes.data());
                frame.remote = operation == 255;
                frame.set_times(now_ns, now_ns);
                watch.frame_passed(frame);
                break;
            }
        }
        require(watch.next_deadline(now_ns) >= now_ns);
        for (unsigned int number = 4; number < 8; ++number) {
            const NodeStatus& status = watch.node(number);
            require(!status.is_lost || status.state == NodeState::unknown);
            require((status.emergency(0) != nullptr) == (status.emergencies != 0));
            require(status.emergency(8) == nullptr);
        }
    }
    return 0;
}
