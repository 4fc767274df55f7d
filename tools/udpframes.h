/// @file
/// Frames over UDP for a program that only does what it was asked to: nothing is sent at its end.

#ifndef TOOLS_UDPFRAMES_H
#define TOOLS_UDPFRAMES_H

#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "nodevik/candriver.h"
#include "nodevik/observeddriver.h"

namespace nodevik_tool {

/// Has the kernel keep as many received frames as it lets this program.
/// @param descriptor  a socket
void enlarge_receive_buffer(int descriptor);

/// A CAN driver with udpDriver's datagrams on one socket, which sends and receives.
///
/// Remote requests and 29-bit identifiers have no place in the datagrams. Datagrams of fewer than 16 bytes are passed
/// over. Nothing is printed, and the process is not ended: a call on a closed driver fails.
class UdpFrames final : public CANdriver {
public:
    /// Opens nothing.
    UdpFrames() = default;

    /// Closes the socket. Nothing is sent.
    ~UdpFrames() override;

    UdpFrames(const UdpFrames&) = delete;
    UdpFrames& operator=(const UdpFrames&) = delete;

    /// Opens the socket.
    ///
    /// @param host        name or IPv4 address of the peer
    /// @param port        the peer's port, 1 to 65535
    /// @param local_port  port to receive on; 0 lets the system pick one
    /// @return empty, or what went wrong
    std::string open(const std::string& host, unsigned int port, unsigned int local_port);

    /// Fails: a peer is needed. @return -1
    int open(unsigned int speed, unsigned int mode, unsigned int port, bool silent) override;

    /// Closes the socket. Nothing is sent.
    void close() override;

    /// Takes one waiting frame. @retval 0 a frame @retval 1 none waits @retval -1 the socket is in trouble
    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override;

    /// Sends one data frame. @retval 0 sent @retval -1 not: the socket takes nothing, or @p flags is not 0
    int write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) override;

    /// Writes nothing. @return 0
    int read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) override;

    /// Does nothing.
    void reset_rx_errors() override {}

    /// Does nothing.
    void reset_tx_errors() override {}

    /// The socket; -1 when closed.
    int descriptor() const { return socket_; }

    /// Why the last call of read() or write() has failed, errno; 0 when none has yet.
    int last_error() const { return error_; }

    /// Datagrams that the kernel had no room for since the socket was opened (SO_RXQ_OVFL, socket(7)).
    std::uint32_t dropped_frames() const { return dropped_; }

    /// For the constructor of ObservedDriver: when the kernel received the last frame.
    static ObservedDriver::Details details(const CANdriver& driver);

private:
    int socket_ = -1;
    sockaddr_in peer_{};
    int error_ = 0;
    std::uint32_t dropped_ = 0;
    std::uint64_t received_ns_ = 0;  // when the last frame came, CLOCK_REALTIME
};

}  // namespace nodevik_tool

#endif
