/// @file
/// The nodes on a CAN interface of the kernel.

#ifndef SIMULATOR_NODE_SOCKETCANLINK_H
#define SIMULATOR_NODE_SOCKETCANLINK_H

#include <optional>
#include <string>

#include "nodevik/socketcandriver.h"
#include "simulator/node/nodelink.h"

namespace node_simulator {

/// A SocketCAN interface, real or virtual. Frames with 29-bit identifiers are for nobody here.
class SocketCanLink : public NodeLink {
public:
    /// @param interface  name of the interface
    /// @throws std::runtime_error  when the interface cannot be opened; the driver has told why
    explicit SocketCanLink(const std::string& interface);

    /// "can INTERFACE".
    std::string announcement() const override;
    int descriptor() const override { return driver_.get_socket(); }
    bool receive(std::optional<CanFrame>& frame) override;

    /// Always: everybody on the bus is.
    bool has_peer() const override { return true; }
    void send(const CanFrame& frame) override;

    /// From now on, programs that already listen do not count for is_heard().
    void expect_command() override;

    /// Replaces "{can}" by the name of the interface.
    void fill_in(std::string& argument) const override;

    /// Whether another program of this machine has come to receive every frame of the interface, or every one
    /// of some kinds (/proc/net/can/rcvlist_all and rcvlist_fil, which have a line for each that does).
    bool is_heard() const override;

private:
    std::string interface_;
    SocketCanDriver driver_;
    int receivers_before_ = 1;  // the driver itself
};

}  // namespace node_simulator

#endif
