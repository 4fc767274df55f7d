#include "tests/support/loopbacksocket.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

sockaddr_in loopback(unsigned port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void require(bool done, const char* what) {
    if (!done) {
        std::perror(what);
        std::abort();
    }
}

}  // namespace

LoopbackSocket::LoopbackSocket() : descriptor_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    require(descriptor_ >= 0, "socket");
    const sockaddr_in address = loopback(0);
    require(bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "bind");
    port_ = local_port(descriptor_);
}

LoopbackSocket::~LoopbackSocket() {
    ::close(descriptor_);
}

void LoopbackSocket::send(unsigned port, const std::string& bytes) const {
    const sockaddr_in to = loopback(port);
    const ssize_t sent =
        sendto(descriptor_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    require(sent == static_cast<ssize_t>(bytes.size()), "sendto");
}

std::optional<std::string> LoopbackSocket::receive(int limit_ms) {
    if (!wait_readable(descriptor_, limit_ms)) {
        return std::nullopt;
    }
    std::array<char, 65536> room;
    sockaddr_in from{};
    socklen_t from_length = sizeof from;
    const ssize_t count =
        recvfrom(descriptor_, room.data(), room.size(), 0, reinterpret_cast<sockaddr*>(&from), &from_length);
    require(count >= 0, "recvfrom");
    last_sender_ = ntohs(from.sin_port);
    return std::string(room.data(), static_cast<size_t>(count));
}

unsigned local_port(int descriptor) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    require(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0, "getsockname");
    return ntohs(address.sin_port);
}

bool wait_readable(int descriptor, int limit_ms) {
    pollfd entry{descriptor, POLLIN, 0};
    return poll(&entry, 1, limit_ms) == 1;
}
