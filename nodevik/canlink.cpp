#include "nodevik/canlink.h"

#include <linux/can/netlink.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

namespace {

using Bytes = std::span<const std::byte>;

constexpr std::size_t answer_size = 16384;

/// A request for one interface, without its statistics.
struct link_request {
    nlmsghdr header;
    ifinfomsg interface;
    rtattr mask_header;
    std::uint32_t mask;
};
static_assert(sizeof(link_request) == NLMSG_LENGTH(sizeof(ifinfomsg)) + RTA_LENGTH(sizeof(std::uint32_t)));

/// The structure at the beginning of `bytes`; zeros where there are too few.
template <typename Structure>
Structure load(Bytes bytes) {
    Structure structure{};
    if (!bytes.empty()) {
        std::memcpy(&structure, bytes.data(), std::min(bytes.size(), sizeof structure));
    }
    return structure;
}

/// What follows a structure of `size` bytes, with its padding, in `bytes`.
Bytes after(Bytes bytes, std::size_t size) {
    const std::size_t padded = NLMSG_ALIGN(size);
    return padded < bytes.size() ? bytes.subspan(padded) : Bytes();
}

/// The value of the first attribute of `type`; empty when there is none.
Bytes find_attribute(Bytes attributes, unsigned int type) {
    while (attributes.size() >= sizeof(rtattr)) {
        const rtattr header = load<rtattr>(attributes);
        if (header.rta_len < sizeof(rtattr) || header.rta_len > attributes.size()) {
            break;
        }
        if ((header.rta_type & NLA_TYPE_MASK) == type) {
            return attributes.first(header.rta_len).subspan(sizeof(rtattr));
        }
        attributes = after(attributes, header.rta_len);
    }
    return {};
}

/// The text of an attribute, without its terminating zero.
std::string_view text_of(Bytes value) {
    if (value.empty()) {
        return {};
    }
    const auto* characters = reinterpret_cast<const char*>(value.data());
    return {characters, strnlen(characters, value.size())};
}

can_link read_link(Bytes message) {
    can_link link;
    link.up = (load<ifinfomsg>(message).ifi_flags & IFF_UP) != 0;
    const Bytes info = find_attribute(after(message, sizeof(ifinfomsg)), IFLA_LINKINFO);
    link.controller = text_of(find_attribute(info, IFLA_INFO_KIND)) == "can";
    if (link.controller) {
        const Bytes settings = find_attribute(info, IFLA_INFO_DATA);
        link.bitrate = load<can_bittiming>(find_attribute(settings, IFLA_CAN_BITTIMING)).bitrate;
        const auto modes = load<can_ctrlmode>(find_attribute(settings, IFLA_CAN_CTRLMODE));
        link.listen_only = (modes.flags & CAN_CTRLMODE_LISTENONLY) != 0;
        link.bus_off = load<std::uint32_t>(find_attribute(settings, IFLA_CAN_STATE)) == CAN_STATE_BUS_OFF;
    }
    return link;
}

int send_request(int descriptor, int index) {
    link_request request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.interface.ifi_family = AF_UNSPEC;
    request.interface.ifi_index = index;
    request.mask_header.rta_len = RTA_LENGTH(sizeof request.mask);
    request.mask_header.rta_type = IFLA_EXT_MASK;
    request.mask = RTEXT_FILTER_SKIP_STATS;
    return send(descriptor, &request, sizeof request, 0) < 0 ? errno : 0;
}

}  // namespace

int open_link_socket() {
    return socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
}

int ask_can_link(int descriptor, int index, can_link& link) {
    if (const int code = send_request(descriptor, index); code != 0) {
        return code;
    }
    std::array<std::byte, answer_size> room;
    // The kernel has put its answer into the queue before send() returns.
    const ssize_t size = recv(descriptor, room.data(), room.size(), MSG_DONTWAIT);
    if (size < 0) {
        return errno;
    }
    const Bytes answer = Bytes(room).first(static_cast<std::size_t>(size));
    const Bytes body = after(answer, sizeof(nlmsghdr));
    switch (load<nlmsghdr>(answer).nlmsg_type) {
        case NLMSG_ERROR:
            return -load<nlmsgerr>(body).error;
        case RTM_NEWLINK:
            link = read_link(body);
            return 0;
        default:
            return EPROTO;
    }
}
