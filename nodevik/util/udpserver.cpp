#include "nodevik/util/udpserver.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace {

constexpr int client_signal = SIGUSR2;
constexpr int server_signal = SIGUSR1;

sockaddr_in make_address(unsigned char a, unsigned char b, unsigned char c, unsigned char d, unsigned port) {
    std::array<char, sizeof "255.255.255.255"> text;
    std::snprintf(text.data(), text.size(), "%hhu.%hhu.%hhu.%hhu", a, b, c, d);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    inet_aton(text.data(), &address.sin_addr);
    return address;
}

// The socket calls take every address family through the one generic type.
const sockaddr* generic(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}
sockaddr* generic(sockaddr_in& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

void allow_broadcast(int descriptor, const char* failure_text) {
    const int on = 1;
    if (setsockopt(descriptor, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) < 0) {
        perror(failure_text);
    }
}

// Has the kernel send `signal_number` to this process whenever a datagram arrives.
void install_handler(int descriptor, int signal_number, udpserver::signal_handler handler,
                     struct sigaction& action) {
    action.sa_handler = handler;
    action.sa_flags = 0;
    action.sa_restorer = nullptr;
    sigaction(signal_number, &action, nullptr);
    fcntl(descriptor, F_SETOWN, getpid());
    fcntl(descriptor, F_SETFL, O_ASYNC);
    fcntl(descriptor, F_SETSIG, signal_number);
}

int send_datagram(int descriptor, int len, const char* buf, const sockaddr_in& to, const char* failure_text) {
    const ssize_t count =
        sendto(descriptor, buf, static_cast<size_t>(len), MSG_DONTWAIT, generic(to), sizeof to);
    if (count < 0) {
        perror(failure_text);
    }
    return static_cast<int>(count);
}

int receive_datagram(int descriptor, int len, char* buf, int flags, sockaddr_in& from,
                     const char* failure_text) {
    socklen_t from_length = sizeof from;
    const ssize_t count =
        recvfrom(descriptor, buf, static_cast<size_t>(len), flags, generic(from), &from_length);
    if (count < 0) {
        if (errno == EAGAIN && (flags & MSG_DONTWAIT) != 0) {
            return 0;
        }
        perror(failure_text);
    }
    return static_cast<int>(count);
}

void print_destination(const char* side, const sockaddr_in& address) {
    std::printf("%s Destination Address: %s:%u\n", side, inet_ntoa(address.sin_addr),
                static_cast<unsigned>(ntohs(address.sin_port)));
}

}  // namespace

udpserver::~udpserver() {
    if (servsockfd != 0) {
        close(servsockfd);
    }
    if (clientsockfd != 0) {
        close(clientsockfd);
    }
}

int udpserver::open(signal_handler handler) {
    std::printf("UDPServer::open - Opening socket\n");
    clientsockfd = socket(AF_INET, SOCK_DGRAM, 0);
    if (clientsockfd == -1) {
        perror("open - socket()");
    }
    allow_broadcast(clientsockfd, "UDPServer::openbroadcast - setsockopt()");
    if (handler != nullptr) {
        install_handler(clientsockfd, client_signal, handler, csaio);
    }
    return 0;
}

int udpserver::start_server(unsigned port, signal_handler handler) {
    servaddr = make_address(0, 0, 0, 0, port);
    return bind_server(port, handler);
}

int udpserver::start_server(unsigned char a, unsigned char b, unsigned char c, unsigned char d, unsigned port,
                            signal_handler handler) {
    servaddr = make_address(a, b, c, d, port);
    return bind_server(port, handler);
}

// Creates the server socket and binds it to `servaddr`, whose port is `port`.
int udpserver::bind_server(unsigned port, signal_handler handler) {
    std::printf("UDPServer::startserver - Opening socket for IP %s:%u\n", inet_ntoa(servaddr.sin_addr), port);
    servsockfd = socket(AF_INET, SOCK_DGRAM, 0);
    if (servsockfd < 0) {
        perror("startserver - socket()");
        return -1;
    }
    allow_broadcast(servsockfd, "setsockopt()");
    if (bind(servsockfd, generic(servaddr), sizeof servaddr) < 0) {
        // The reason is reported after the close, as callers know it; close(2) must not replace it.
        const int reason = errno;
        close(servsockfd);
        errno = reason;
        perror("startserver - bind()");
        return -1;
    }
    if (handler != nullptr) {
        install_handler(servsockfd, server_signal, handler, saio);
    }
    return 0;
}

void udpserver::set_client_destination_address(unsigned char a, unsigned char b, unsigned char c,
                                               unsigned char d, unsigned port) {
    client_to_addr = make_address(a, b, c, d, port);
    print_destination("Client", client_to_addr);
}

void udpserver::set_server_destination_address(unsigned char a, unsigned char b, unsigned char c,
                                               unsigned char d, unsigned port) {
    server_to_addr = make_address(a, b, c, d, port);
    print_destination("Server", server_to_addr);
}

int udpserver::client_send(int len, char* buf) {
    return send_datagram(clientsockfd, len, buf, client_to_addr, "clientsend - sendto()");
}

int udpserver::client_send(unsigned char a, unsigned char b, unsigned char c, unsigned char d, unsigned port,
                           int len, char* buf) {
    return send_datagram(clientsockfd, len, buf, make_address(a, b, c, d, port), "clientsend - sendto()");
}

int udpserver::client_receive(int len, char* buf) {
    return receive_datagram(clientsockfd, len, buf, MSG_DONTWAIT | MSG_WAITALL, client_from_addr,
                            "clientrecv - recvfrom()");
}

int udpserver::client_receive_blocking(int len, char* buf) {
    return receive_datagram(clientsockfd, len, buf, 0, client_from_addr, "clientrecvb - recvfrom()");
}

int udpserver::server_send(int len, char* buf) {
    return send_datagram(servsockfd, len, buf, server_to_addr, "servsend - sendto()");
}

int udpserver::server_receive(int len, char* buf) {
    return receive_datagram(servsockfd, len, buf, MSG_DONTWAIT | MSG_WAITALL, server_from_addr,
                            "servrecv - recvfrom()");
}

int udpserver::server_receive_blocking(int len, char* buf) {
    // Log readers look for this text without its closing parenthesis.
    return receive_datagram(servsockfd, len, buf, 0, server_from_addr, "servrecvb - recvfrom(");
}
