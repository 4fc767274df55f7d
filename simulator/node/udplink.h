/// @file
/// The nodes behind CAN-over-UDP: one frame per datagram.

#ifndef SIMULATOR_NODE_UDPLINK_H
#define SIMULATOR_NODE_UDPLINK_H

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <string>

#include "simulator/node/descriptor.h"
#include "simulator/node/nodelink.h"

namespace node_simulator {

/// A UDP socket on 127.0.0.1 that receives frames, and sends them to one peer.
class UdpLink : public NodeLink {
public:
    /// @param port  UDP port to receive on; 0 lets the system pick one
    /// @param peer  where frames go; none: to the last sender
    /// @throws std::system_error  when the port is taken
    UdpLink(std::uint16_t port, const std::optional<sockaddr_in>& peer);

    /// "port N".
    std::string announcement() const override;
    int descriptor() const override { return socket_.get(); }
    bool receive(std::optional<CanFrame>& frame) override;
    bool has_peer() const override { return peer_.has_value(); }
    void send(const CanFrame& frame) override;

    /// Without a peer, frames go from now on to a port that nobody uses: the command will bind it.
    void expect_command() override;

    /// Replaces "{node}" by the port that receives, "{master}" by the port that frames go to.
    void fill_in(std::string& argument) const override;

    /// Whether some program has bound the port that frames go to (proc(5), /proc/net/udp).
    bool is_heard() const override;

private:
    Descriptor socket_;
    std::optional<sockaddr_in> peer_;
    bool follows_sender_;
};

}  // namespace node_simulator

#endif
