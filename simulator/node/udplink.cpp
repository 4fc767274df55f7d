#include "simulator/node/udplink.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <span>
#include <system_error>

namespace node_simulator {

namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// The socket calls take every address family through the one generic type.
const sockaddr* generic(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}
sockaddr* generic(sockaddr_in& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// A datagram socket on a loopback port.
int bound_socket(std::uint16_t port) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        fail("cannot open a socket");
    }
    const sockaddr_in address = loopback(port);
    if (bind(descriptor, generic(address), sizeof address) < 0) {
        const int reason = errno;
        close(descriptor);
        errno = reason;
        fail("cannot receive on port " + std::to_string(port));
    }
    return descriptor;
}

std::uint16_t port_of(int descriptor) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(descriptor, generic(address), &length);
    return ntohs(address.sin_port);
}

}  // namespace

UdpLink::UdpLink(std::uint16_t port, const std::optional<sockaddr_in>& peer)
    : socket_(bound_socket(port)), peer_(peer), follows_sender_(!peer) {}

std::string UdpLink::announcement() const {
    return "port " + std::to_string(port_of(socket_.get()));
}

bool UdpLink::receive(std::optional<CanFrame>& frame) {
    std::array<std::uint8_t, 64> room;
    sockaddr_in from{};
    socklen_t from_length = sizeof from;
    const ssize_t count =
        recvfrom(socket_.get(), room.data(), room.size(), MSG_DONTWAIT, generic(from), &from_length);
    if (count < 0) {
        return false;
    }
    if (follows_sender_) {
        peer_ = from;
    }
    frame = from_datagram(std::span(room).first(static_cast<std::size_t>(count)));
    return true;
}

void UdpLink::send(const CanFrame& frame) {
    const auto datagram = to_datagram(frame);
    sendto(socket_.get(), datagram.data(), datagram.size(), 0, generic(*peer_), sizeof *peer_);
}

void UdpLink::expect_command() {
    follows_sender_ = false;
    if (!peer_) {
        const Descriptor probe(bound_socket(0));
        peer_ = loopback(port_of(probe.get()));
    }
}

void UdpLink::fill_in(std::string& argument) const {
    replace_all(argument, "{node}", std::to_string(port_of(socket_.get())));
    replace_all(argument, "{master}", std::to_string(ntohs(peer_->sin_port)));
}

bool UdpLink::is_heard() const {
    std::ifstream table("/proc/net/udp");
    std::array<char, 8> port;
    std::snprintf(port.data(), port.size(), ":%04X", static_cast<unsigned>(ntohs(peer_->sin_port)));
    std::string line;
    while (std::getline(table, line)) {
        const std::size_t local = line.find(':', line.find(':') + 1);
        if (local != std::string::npos && line.compare(local, 5, port.data()) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace node_simulator
