#include "simulator/node/simulatedbus.h"

#include <algorithm>

namespace node_simulator {

namespace {

// Nodes that answer each other's PDOs without end leave room for the outside after so many frames.
constexpr int most_hops = 64;

// A frame that asks one node for an answer: SDO, node guarding.
bool is_request(const CanFrame& frame) {
    return frame.remote || (frame.identifier > 0x600 && frame.identifier < 0x680);
}

}  // namespace

SimulatedBus::SimulatedBus(const FaultSettings& faults) : faults_(faults) {}

void SimulatedBus::add_node(const NodeSettings& settings) {
    devices_.push_back(std::make_unique<SimulatedDevice>(settings));
}

CanopenNode* SimulatedBus::find(unsigned number) {
    for (const auto& device : devices_) {
        if (device->node() != nullptr && device->node()->number() == number) {
            return device->node();
        }
    }
    return nullptr;
}

SimulatedDevice& SimulatedBus::device_of(const CanopenNode& node) {
    return **std::find_if(devices_.begin(), devices_.end(),
                          [&node](const auto& device) { return device->node() == &node; });
}

void SimulatedBus::power_on(Time now) {
    for (const auto& device : devices_) {
        put(*device, device->power_on(now), now);
        spread(now);
    }
}

void SimulatedBus::power_on(CanopenNode& node, Time now) {
    SimulatedDevice& device = device_of(node);
    put(device, device.power_on(now), now);
    spread(now);
}

void SimulatedBus::power_off(CanopenNode& node) {
    device_of(node).power_off();
}

void SimulatedBus::receive(const CanFrame& frame, Time now) {
    if (is_request(frame) && faults_.loses_request()) {
        return;
    }
    to_nodes_.push_back({frame, nullptr});
    spread(now);
}

void SimulatedBus::emergency(CanopenNode& node, std::uint16_t code, Time now) {
    put(device_of(node), node.emergency(code, {}, now), now);
    spread(now);
}

void SimulatedBus::set_input(CanopenNode& node, std::uint8_t channel, std::uint8_t value, Time now) {
    put(device_of(node), node.set_input(channel, value, now), now);
    spread(now);
}

void SimulatedBus::set_faults(const FaultSettings& faults) {
    faults_ = AnswerFaults(faults);
}

void SimulatedBus::advance(Time now) {
    for (const auto& device : devices_) {
        put(*device, device->advance(now), now);
    }
    spread(now);
}

std::optional<CanFrame> SimulatedBus::take(Time now) {
    if (to_outside_.empty() || to_outside_.front().due > now) {
        return std::nullopt;
    }
    const CanFrame frame = to_outside_.front().frame;
    to_outside_.pop_front();
    return frame;
}

std::optional<Time> SimulatedBus::deadline() const {
    std::optional<Time> earliest;
    if (!to_nodes_.empty()) {
        earliest = 0;
    } else if (!to_outside_.empty()) {
        earliest = to_outside_.front().due;
    }
    for (const auto& device : devices_) {
        if (const std::optional<Time> time = device->deadline(); time && (!earliest || *time < *earliest)) {
            earliest = time;
        }
    }
    return earliest;
}

// Puts what `sender` sends on the bus.
void SimulatedBus::put(const SimulatedDevice& sender, const std::vector<SentFrame>& frames, Time now) {
    for (const SentFrame& sent : frames) {
        to_nodes_.push_back({sent.frame, &sender});
        const std::vector<TimedFrame> going =
            sent.answer ? faults_.disturb(sent.frame, now) : std::vector<TimedFrame>{{sent.frame, now}};
        for (const TimedFrame& timed : going) {
            const auto later =
                std::find_if(to_outside_.begin(), to_outside_.end(),
                             [&timed](const TimedFrame& other) { return other.due > timed.due; });
            to_outside_.insert(later, timed);
        }
    }
}

// Lets every node hear the frames of the others.
void SimulatedBus::spread(Time now) {
    for (int hop = 0; hop < most_hops && !to_nodes_.empty(); ++hop) {
        const Heard heard = to_nodes_.front();
        to_nodes_.pop_front();
        for (const auto& device : devices_) {
            if (device.get() != heard.sender) {
                put(*device, device->receive(heard.frame, now), now);
            }
        }
    }
}

}  // namespace node_simulator
