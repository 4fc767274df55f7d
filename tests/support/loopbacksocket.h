/// @file
/// The far end of a datagram conversation: a UDP socket on 127.0.0.1 that the test holds.

#ifndef TESTS_SUPPORT_LOOPBACKSOCKET_H
#define TESTS_SUPPORT_LOOPBACKSOCKET_H

#include <optional>
#include <string>

/// A datagram socket bound to 127.0.0.1 on a port that the system picked. Sends to nowhere but 127.0.0.1.
class LoopbackSocket {
public:
    LoopbackSocket();
    ~LoopbackSocket();
    LoopbackSocket(const LoopbackSocket&) = delete;
    LoopbackSocket& operator=(const LoopbackSocket&) = delete;

    /// The port that the socket is bound to.
    unsigned port() const { return port_; }

    /// Sends @p bytes as one datagram to @p port.
    void send(unsigned port, const std::string& bytes) const;

    /// Waits for the next datagram; none when @p limit_ms have passed. Its sender is told by last_sender().
    std::optional<std::string> receive(int limit_ms = 10000);

    /// Port that the last received datagram came from.
    unsigned last_sender() const { return last_sender_; }

private:
    int descriptor_ = -1;
    unsigned port_ = 0;
    unsigned last_sender_ = 0;
};

/// The local port of the datagram socket @p descriptor; 0 when it is not bound yet.
unsigned local_port(int descriptor);

/// Waits until @p descriptor can be read; false after @p limit_ms.
bool wait_readable(int descriptor, int limit_ms = 10000);

#endif
