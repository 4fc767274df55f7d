#include "simulator/node/simulateddevice.h"

namespace node_simulator {

namespace {

constexpr unsigned reset_node = 129;
constexpr unsigned reset_communication = 130;

}  // namespace

SimulatedDevice::SimulatedDevice(const NodeSettings& settings)
    : settings_(settings), lss_(settings.identity(), settings.node == 0 ? no_node : settings.node) {
    make_node();
}

// The node of the number in force; none while there is none. It keeps who it is.
void SimulatedDevice::make_node() {
    settings_.serial = settings_.identity()[3];
    node_.reset();
    if (lss_.active() != no_node) {
        settings_.node = lss_.active();
        node_ = std::make_unique<CanopenNode>(settings_);
    }
}

std::vector<SentFrame> SimulatedDevice::start_anew(Time now) {
    make_node();
    return node_ ? node_->power_on(now) : std::vector<SentFrame>{};
}

std::vector<SentFrame> SimulatedDevice::power_on(Time now) {
    powered_ = true;
    lss_.power_on();
    const bool same = node_ && node_->number() == lss_.active();
    return same ? node_->power_on(now) : start_anew(now);
}

void SimulatedDevice::power_off() {
    powered_ = false;
    if (node_) {
        node_->power_off();
    }
}

bool SimulatedDevice::resets_communication(const CanFrame& frame) const {
    return frame.identifier == 0 && frame.length >= 2 && node_ &&
           (frame.data[1] == 0 || frame.data[1] == node_->number()) &&
           (frame.data[0] == reset_node || frame.data[0] == reset_communication);
}

std::vector<SentFrame> SimulatedDevice::receive(const CanFrame& frame, Time now) {
    if (!powered_ || is_silent(now)) {
        return {};
    }
    if (frame.identifier == LssSlave::request_identifier) {
        std::vector<SentFrame> sent;
        if (const std::optional<CanFrame> answer = lss_.hear(frame, now)) {
            sent.push_back({*answer, true});
        }
        if (lss_.wants_to_start()) {
            lss_.reset_communication();
            for (const SentFrame& frame_of_node : start_anew(now)) {
                sent.push_back(frame_of_node);
            }
        }
        return sent;
    }
    if (resets_communication(frame)) {
        const bool other = lss_.pending() != lss_.active();
        lss_.reset_communication();
        if (other) {
            return start_anew(now);
        }
    }
    return node_ ? node_->receive(frame, now) : std::vector<SentFrame>{};
}

std::vector<SentFrame> SimulatedDevice::advance(Time now) {
    return node_ && powered_ && !is_silent(now) ? node_->advance(now) : std::vector<SentFrame>{};
}

std::optional<Time> SimulatedDevice::deadline() const {
    const std::optional<Time> deadline = node_ && powered_ ? node_->deadline() : std::nullopt;
    return deadline ? std::optional(std::max(*deadline, lss_.silent_until())) : std::nullopt;
}

}  // namespace node_simulator
