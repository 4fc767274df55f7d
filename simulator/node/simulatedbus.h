/// @file
/// A CAN bus with several nodes on it, and one connection to the outside.

#ifndef SIMULATOR_NODE_SIMULATEDBUS_H
#define SIMULATOR_NODE_SIMULATEDBUS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "simulator/node/answerfaults.h"
#include "simulator/node/canframe.h"
#include "simulator/node/canopennode.h"
#include "simulator/node/simulateddevice.h"

namespace node_simulator {

/// The bus: every frame, from outside or from a node, reaches every (other) node; frames of nodes go outside.
///
/// It has no clock of its own: calls bring the time. The order of frames is that of their sending; only
/// answers that a fault has made late come later.
class SimulatedBus {
public:
    /// An empty bus. @param faults what happens to the nodes' answers
    explicit SimulatedBus(const FaultSettings& faults = {});

    /// Adds a device, still without power.
    void add_node(const NodeSettings& settings);

    /// The node of that number, or null. It lives until its device gets another number.
    CanopenNode* find(unsigned number);

    /// Switches every node's power on.
    void power_on(Time now);

    /// Switches one node's power on. @pre the node is on the bus
    void power_on(CanopenNode& node, Time now);

    /// Cuts the power of one node. @pre the node is on the bus
    void power_off(CanopenNode& node);

    /// A frame from outside.
    void receive(const CanFrame& frame, Time now);

    /// Lets @p node send an emergency; see CanopenNode::emergency.
    void emergency(CanopenNode& node, std::uint16_t code, Time now);

    /// Sets a digital input of @p node; see CanopenNode::set_input.
    void set_input(CanopenNode& node, std::uint8_t channel, std::uint8_t value, Time now);

    /// Replaces the faults.
    void set_faults(const FaultSettings& faults);

    /// Lets the nodes do what the time calls for.
    void advance(Time now);

    /// The next frame that goes outside at @p now; none when there is none.
    std::optional<CanFrame> take(Time now);

    /// When there is something to do (advance() or take()); none while only frames can bring something.
    std::optional<Time> deadline() const;

private:
    SimulatedDevice& device_of(const CanopenNode& node);
    void put(const SimulatedDevice& sender, const std::vector<SentFrame>& frames, Time now);
    void spread(Time now);

    // A frame on the bus that the other nodes have not heard yet.
    struct Heard {
        CanFrame frame;
        const SimulatedDevice* sender;
    };

    std::vector<std::unique_ptr<SimulatedDevice>> devices_;
    AnswerFaults faults_;
    std::deque<Heard> to_nodes_;
    std::deque<TimedFrame> to_outside_;  // by time
};

}  // namespace node_simulator

#endif
