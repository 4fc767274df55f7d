/// @file
/// A device on the simulated bus: a CANopen node, and the LSS slave that may give it its number.

#ifndef SIMULATOR_NODE_SIMULATEDDEVICE_H
#define SIMULATOR_NODE_SIMULATEDDEVICE_H

#include <memory>
#include <optional>
#include <vector>

#include "simulator/node/canframe.h"
#include "simulator/node/canopennode.h"
#include "simulator/node/lssslave.h"

namespace node_simulator {

/// One device. Without a node number it is heard by LSS alone; with a new number it begins anew as another node, its
/// objects as they were at first.
class SimulatedDevice {
public:
    /// A device without power. @param settings what it is like; node 0 for one without a number
    explicit SimulatedDevice(const NodeSettings& settings);

    /// Its node, or null while it has no number.
    CanopenNode* node() { return node_.get(); }

    /// Switches the power on; see CanopenNode::power_on.
    std::vector<SentFrame> power_on(Time now);

    /// Cuts the power.
    void power_off();

    /// Hears @p frame.
    std::vector<SentFrame> receive(const CanFrame& frame, Time now);

    /// Does what the time calls for; see CanopenNode::advance.
    std::vector<SentFrame> advance(Time now);

    /// When advance() has something to do; none while only frames can bring something.
    std::optional<Time> deadline() const;

private:
    void make_node();
    std::vector<SentFrame> start_anew(Time now);
    bool resets_communication(const CanFrame& frame) const;
    bool is_silent(Time now) const { return now < lss_.silent_until(); }

    NodeSettings settings_;
    LssSlave lss_;
    std::unique_ptr<CanopenNode> node_;
    bool powered_ = false;
};

}  // namespace node_simulator

#endif
