#include "tools/udpframes.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>

namespace nodevik_tool {

namespace {

constexpr std::size_t datagram_size = 16;
constexpr std::size_t length_at = 4;
constexpr std::size_t data_at = 8;
constexpr std::size_t data_size = 8;
constexpr int receive_buffer = 8 * 1024 * 1024;  // bytes: some seconds of a full bus

std::uint32_t load_le32(const unsigned char* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

void store_le32(unsigned char* bytes, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

struct FreeAddresses {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

}  // namespace

void enlarge_receive_buffer(int descriptor) {
    if (setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &receive_buffer, sizeof receive_buffer) != 0) {
        setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    }
}

UdpFrames::~UdpFrames() {
    UdpFrames::close();
}

std::string UdpFrames::open(const std::string& host, unsigned int port, unsigned int local_port) {
    close();
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* list = nullptr;
    if (const int code = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &list); code != 0) {
        return "host '" + host + "' cannot be found: " + gai_strerror(code) +
               "; look for a slip of the pen, or give its IPv4 address";
    }
    const std::unique_ptr<addrinfo, FreeAddresses> peer(list);
    socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket_ < 0) {
        return std::string("no UDP socket can be opened: ") + std::strerror(errno);
    }
    enlarge_receive_buffer(socket_);
    constexpr int on = 1;
    setsockopt(socket_, SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
    setsockopt(socket_, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<std::uint16_t>(local_port));
    if (bind(socket_, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        const int reason = errno;
        close();
        return "UDP port " + std::to_string(local_port) + " cannot be used: " + std::strerror(reason) +
               "; choose another LOCALPORT, or leave it out";
    }
    std::memcpy(&peer_, peer->ai_addr, sizeof peer_);
    isopen = 1;
    return {};
}

int UdpFrames::open(unsigned int /*speed*/, unsigned int /*mode*/, unsigned int /*port*/, bool /*silent*/) {
    return -1;
}

void UdpFrames::close() {
    if (socket_ >= 0) {
        ::close(socket_);
    }
    socket_ = -1;
    isopen = 0;
}

int UdpFrames::read(unsigned int& ID, unsigned int& length, unsigned char* data) {
    for (;;) {
        std::array<unsigned char, 64> datagram{};
        iovec part{datagram.data(), datagram.size()};
        alignas(cmsghdr) std::array<char, 128> control;
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t count = recvmsg(socket_, &message, MSG_DONTWAIT);
        if (count < 0) {
            const bool none_waits = errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
            error_ = none_waits ? error_ : errno;
            return none_waits ? 1 : -1;
        }
        for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
             header = CMSG_NXTHDR(&message, header)) {
            if (header->cmsg_level == SOL_SOCKET && header->cmsg_type == SO_RXQ_OVFL) {
                std::memcpy(&dropped_, CMSG_DATA(header), sizeof dropped_);
            } else if (header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_TIMESTAMPNS) {
                timespec time{};
                std::memcpy(&time, CMSG_DATA(header), sizeof time);
                received_ns_ = static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
                               static_cast<std::uint64_t>(time.tv_nsec);
            }
        }
        if (static_cast<std::size_t>(count) < datagram_size) {
            continue;
        }
        ID = load_le32(datagram.data()) & 0x7FF;
        length = load_le32(&datagram[length_at]) & 0x1F;
        std::copy_n(&datagram[data_at], data_size, data);
        return 0;
    }
}

int UdpFrames::write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) {
    if (flags != 0) {
        return -1;
    }
    std::array<unsigned char, datagram_size> datagram{};
    store_le32(datagram.data(), cobid);
    store_le32(&datagram[length_at], length);
    std::copy_n(data, std::min<std::size_t>(length, data_size), &datagram[data_at]);
    const ssize_t count = sendto(socket_, datagram.data(), datagram.size(), 0,
                                 reinterpret_cast<const sockaddr*>(&peer_), sizeof peer_);
    if (count == static_cast<ssize_t>(datagram.size())) {
        return 0;
    }
    error_ = errno;
    return -1;
}

int UdpFrames::read_error_counters(unsigned int& /*txErr*/, unsigned int& /*rxErr*/,
                                   unsigned int& /*ovErr*/) {
    return 0;
}

ObservedDriver::Details UdpFrames::details(const CANdriver& driver) {
    ObservedDriver::Details result;
    result.time_ns = dynamic_cast<const UdpFrames&>(driver).received_ns_;
    return result;
}

}  // namespace nodevik_tool
