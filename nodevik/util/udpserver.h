/// @file
/// Two IPv4 datagram sockets side by side: one that is bound to a port and receives, one that sends.
///
/// A datagram (udp(7)) arrives whole or not at all, and it may be lost on its way without a word. The
/// *server* socket has a port of its own, so peers know where to send to; the *client* socket is never bound,
/// the system picks its port at the first send. The two therefore have different local ports, and the answer
/// to a datagram that was sent from the client socket arrives on the client socket:
///
///     udpserver endpoint;
///     endpoint.open(nullptr);                                         // the client socket
///     endpoint.start_server(5000, nullptr);                           // the server socket, port 5000
///     endpoint.set_client_destination_address(127, 0, 0, 1, 5001);
///     endpoint.client_send(length, bytes);
///     int count = endpoint.server_receive(size, room);                // 0 when nothing waits
///
/// Either socket can announce its datagrams by a signal (signal-driven input, fcntl(2) F_SETSIG): SIGUSR1 for
/// the server socket and SIGUSR2 for the client socket.

#ifndef NODEVIK_UTIL_UDPSERVER_H
#define NODEVIK_UTIL_UDPSERVER_H

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include "nodevik/util/export.h"

/// A bound socket that receives and an unbound one that sends, each with a remembered destination.
///
/// Addresses are given as four octets a.b.c.d, most significant first, and a port in host order (0 to 65535).
/// Nothing is retried. A failed system call is reported on standard error by perror(3) under a text of its
/// own, which each operation names.
///
/// No locking: one thread per object. A handler runs in whatever thread the kernel picks; it gets only the
/// signal number, may find that several datagrams came under one signal, and is expected to call the
/// non-blocking receive until that returns 0. Handlers belong to the whole process: of two objects that
/// install one, the later installation serves both.
class NODEVIK_EXPORT udpserver {
public:
    /// A handler of signal-driven input; it receives the signal's number.
    using signal_handler = void (*)(int);

    /// Opens nothing.
    udpserver() = default;

    /// Closes the server socket, then the client socket, each if its descriptor is not 0.
    ~udpserver();

    udpserver(const udpserver&) = delete;
    udpserver& operator=(const udpserver&) = delete;

    /// Creates the client socket, allowed to broadcast. An earlier client socket is not closed.
    ///
    /// Prints "UDPServer::open - Opening socket" and a newline. perror texts: "open - socket()" and
    /// "UDPServer::openbroadcast - setsockopt()".
    ///
    /// @param handler  called on SIGUSR2 when a datagram has arrived on the client socket; null for none
    /// @return         0, also after a failure
    int open(signal_handler handler);

    /// Creates the server socket, allowed to broadcast, and binds it to @p port on every local address.
    ///
    /// Prints "UDPServer::startserver - Opening socket for IP 0.0.0.0:" with the port and a newline. perror
    /// texts: "startserver - socket()", "setsockopt()" (reported only) and "startserver - bind()".
    ///
    /// @param port     local port, host order; 0 lets the system pick one (see server_socket())
    /// @param handler  called on SIGUSR1 when a datagram has arrived on the server socket; null for none
    /// @return         0, or -1 when there is no socket or the port is taken
    int start_server(unsigned port, signal_handler handler);

    /// The same, bound to the local address @p a.@p b.@p c.@p d only.
    int start_server(unsigned char a, unsigned char b, unsigned char c, unsigned char d, unsigned port,
                     signal_handler handler);

    /// Sets where client_send(int, char*) sends, and prints "Client Destination Address: a.b.c.d:port" and a
    /// newline.
    void set_client_destination_address(unsigned char a, unsigned char b, unsigned char c, unsigned char d,
                                        unsigned port);

    /// Sets where server_send() sends, and prints "Server Destination Address: a.b.c.d:port" and a newline.
    void set_server_destination_address(unsigned char a, unsigned char b, unsigned char c, unsigned char d,
                                        unsigned port);

    /// Sends one datagram from the client socket to its destination, without blocking.
    ///
    /// @pre open() and set_client_destination_address() have been called.
    /// @param len  bytes to send
    /// @param buf  the bytes
    /// @return     bytes sent, or -1 after the perror text "clientsend - sendto()"
    int client_send(int len, char* buf);

    /// The same, once, to @p a.@p b.@p c.@p d:@p port; the remembered destination stays as it is.
    int client_send(unsigned char a, unsigned char b, unsigned char c, unsigned char d, unsigned port,
                    int len, char* buf);

    /// Takes one waiting datagram from the client socket, without blocking. What does not fit is cut off.
    ///
    /// @pre open() has been called.
    /// @param len  room in @p buf, in bytes
    /// @param buf  filled with the datagram
    /// @return     bytes received, 0 when nothing waits (or the datagram was empty), or -1 after the perror
    ///             text "clientrecv - recvfrom()"
    int client_receive(int len, char* buf);

    /// Waits for a datagram on the client socket, as long as it takes.
    ///
    /// @return bytes received, or -1 after the perror text "clientrecvb - recvfrom()" (also when a signal
    ///         interrupted the wait)
    /// @see client_receive
    int client_receive_blocking(int len, char* buf);

    /// Sends one datagram from the server socket to its destination, without blocking.
    ///
    /// @pre start_server() and set_server_destination_address() have been called.
    /// @return bytes sent, or -1 after the perror text "servsend - sendto()"
    int server_send(int len, char* buf);

    /// Takes one waiting datagram from the server socket, without blocking. What does not fit is cut off.
    ///
    /// @pre start_server() has been called.
    /// @param len  room in @p buf, in bytes
    /// @param buf  filled with the datagram
    /// @return     bytes received, 0 when nothing waits (or the datagram was empty), or -1 after the perror
    ///             text "servrecv - recvfrom()"
    int server_receive(int len, char* buf);

    /// Waits for a datagram on the server socket, as long as it takes.
    ///
    /// @return bytes received, or -1 after the perror text "servrecvb - recvfrom(" (also when a signal
    ///         interrupted the wait)
    /// @see server_receive
    int server_receive_blocking(int len, char* buf);

    /// Descriptor of the client socket, for poll(2), getsockname(2) and the like; 0 when none was created.
    int client_socket() const { return clientsockfd; }

    /// Descriptor of the server socket; 0 when none was created.
    int server_socket() const { return servsockfd; }

    /// Sender of the last datagram that was received on the client socket.
    const sockaddr_in& client_from() const { return client_from_addr; }

    /// Sender of the last datagram that was received on the server socket.
    const sockaddr_in& server_from() const { return server_from_addr; }

private:
    NODEVIK_LOCAL int bind_server(unsigned port, signal_handler handler);

    int clientsockfd = 0;
    int servsockfd = 0;
    sockaddr_in client_from_addr{};
    sockaddr_in client_to_addr{};
    sockaddr_in servaddr{};
    sockaddr_in server_from_addr{};
    sockaddr_in server_to_addr{};
    struct sigaction saio {};
    struct sigaction csaio {};
};

#endif
