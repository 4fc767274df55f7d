#include "tests/support/scriptedcankernel.h"

#include <fcntl.h>
#include <linux/can/netlink.h>
#include <linux/can/raw.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::uint64_t nanoseconds_per_second = 1'000'000'000;

// What a descriptor that was handed out stands for.
struct Socket {
    int family = 0;
    std::set<std::string> options;
    can_filter filter = {};  // of identifiers
    nlmsghdr request = {};   // the last question
    int index = 0;           // whom it is about
};

std::map<int, Socket>& sockets() {
    static std::map<int, Socket> all;
    return all;
}

Socket* find(int descriptor) {
    const auto found = sockets().find(descriptor);
    return found == sockets().end() ? nullptr : &found->second;
}

int fail(int error) {
    errno = error;
    return -1;
}

// The error that is scripted for a function; 0 none.
int error_of(const std::string& function) {
    const auto found = can_kernel().errors.find(function);
    return found == can_kernel().errors.end() ? 0 : found->second;
}

std::string option_name(int level, int option) {
    if (level == SOL_CAN_RAW && option == CAN_RAW_ERR_FILTER) {
        return "CAN_RAW_ERR_FILTER";
    }
    if (level == SOL_CAN_RAW && option == CAN_RAW_FILTER) {
        return "CAN_RAW_FILTER";
    }
    if (level == SOL_SOCKET && option == SO_TIMESTAMPNS) {
        return "SO_TIMESTAMPNS";
    }
    if (level == SOL_SOCKET && option == SO_RXQ_OVFL) {
        return "SO_RXQ_OVFL";
    }
    return std::to_string(level) + "/" + std::to_string(option);
}

std::string as_hex(unsigned number) {
    char text[16];
    std::snprintf(text, sizeof text, "%08x", number);
    return text;
}

// Whether a socket with this filter receives a frame. Errors and error frames have no part in it.
bool passes(const ScriptedFrame& item, const can_filter& filter) {
    return item.error != 0 || (item.frame.can_id & CAN_ERR_FLAG) != 0 ||
           (item.frame.can_id & filter.can_mask) == (filter.can_id & filter.can_mask);
}

// Bytes of messages, padded to multiples of four.
class Bytes {
public:
    template <typename Structure>
    void add(const Structure& structure) {
        add(&structure, sizeof structure);
    }
    void add(const void* start, std::size_t size) {
        const auto* bytes = static_cast<const char*>(start);
        all_.insert(all_.end(), bytes, bytes + size);
        all_.resize((all_.size() + 3) / 4 * 4);
    }
    void add_attribute(unsigned type, const void* start, std::size_t size) {
        const rtattr header{static_cast<unsigned short>(sizeof(rtattr) + size),
                            static_cast<unsigned short>(type)};
        add(header);
        add(start, size);
    }
    void add_attribute(unsigned type, const Bytes& nested) {
        add_attribute(type | NLA_F_NESTED, nested.all_.data(), nested.all_.size());
    }
    const std::vector<char>& all() const { return all_; }

private:
    std::vector<char> all_;
};

Bytes describe_controller(const ScriptedLink& link) {
    can_bittiming timing{};
    timing.bitrate = link.bitrate;
    const can_ctrlmode modes{0, link.listen_only ? CAN_CTRLMODE_LISTENONLY : 0U};
    const std::uint32_t state = link.bus_off ? CAN_STATE_BUS_OFF : CAN_STATE_ERROR_ACTIVE;
    Bytes settings;
    settings.add_attribute(IFLA_CAN_STATE, &state, sizeof state);
    if (link.bitrate != 0) {
        settings.add_attribute(IFLA_CAN_BITTIMING, &timing, sizeof timing);
    }
    settings.add_attribute(IFLA_CAN_CTRLMODE, &modes, sizeof modes);
    return settings;
}

Bytes describe_link(const std::string& name, const ScriptedLink& link) {
    ifinfomsg info{};
    info.ifi_index = link.index;
    if (link.up) {
        info.ifi_flags |= IFF_UP;
    }
    if (link.up && !link.bus_off) {
        info.ifi_flags |= IFF_RUNNING;  // a controller that is bus-off has no carrier
    }
    Bytes nested;
    nested.add_attribute(IFLA_INFO_KIND, link.kind.c_str(), link.kind.size() + 1);
    if (link.kind == "can") {
        nested.add_attribute(IFLA_INFO_DATA, describe_controller(link));
    }
    Bytes body;
    body.add(info);
    body.add_attribute(IFLA_IFNAME, name.c_str(), name.size() + 1);
    if (!link.kind.empty()) {
        body.add_attribute(IFLA_LINKINFO, nested);
    }
    return body;
}

Bytes message(unsigned short type, const Bytes& body, const nlmsghdr& request) {
    nlmsghdr header{};
    header.nlmsg_len = static_cast<unsigned>(sizeof header + body.all().size());
    header.nlmsg_type = type;
    header.nlmsg_seq = request.nlmsg_seq;
    Bytes whole;
    whole.add(header);
    whole.add(body.all().data(), body.all().size());
    return whole;
}

// The answer to the last question on a socket.
Bytes answer(const Socket& asked) {
    for (const auto& [name, link] : can_kernel().links) {
        if (link.index == asked.index) {
            return message(RTM_NEWLINK, describe_link(name, link), asked.request);
        }
    }
    Bytes body;
    body.add(nlmsgerr{-ENODEV, asked.request});
    return message(NLMSG_ERROR, body, asked.request);
}

void add_control(msghdr& message, std::size_t& used, int type, const void* value, std::size_t size) {
    cmsghdr header{};
    header.cmsg_len = CMSG_LEN(size);
    header.cmsg_level = SOL_SOCKET;
    header.cmsg_type = type;
    if (used + CMSG_SPACE(size) > message.msg_controllen) {
        message.msg_flags |= MSG_CTRUNC;
        return;
    }
    char* at = static_cast<char*>(message.msg_control) + used;
    std::memcpy(at, &header, sizeof header);
    std::memcpy(at + CMSG_LEN(0), value, size);
    used += CMSG_SPACE(size);
}

}  // namespace

void CanKernel::put(std::uint32_t identifier, const std::vector<unsigned char>& data) {
    ScriptedFrame item;
    item.frame.can_id = identifier;
    item.frame.can_dlc = static_cast<unsigned char>(data.size());
    std::copy(data.begin(), data.end(), std::begin(item.frame.data));
    queue.push_back(item);
}

void CanKernel::put_error(int error) {
    ScriptedFrame item;
    item.error = error;
    queue.push_back(item);
}

int CanKernel::open_descriptors() const {
    return static_cast<int>(std::count_if(descriptors.begin(), descriptors.end(),
                                          [](int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }));
}

CanKernel& can_kernel() {
    static CanKernel kernel;
    return kernel;
}

extern "C" {

int __real_socket(int family, int type, int protocol);
int __real_bind(int descriptor, const sockaddr* address, socklen_t size);
int __real_setsockopt(int descriptor, int level, int option, const void* value, socklen_t size);
ssize_t __real_send(int descriptor, const void* data, size_t size, int flags);
ssize_t __real_recv(int descriptor, void* data, size_t size, int flags);
ssize_t __real_recvmsg(int descriptor, msghdr* message, int flags);
int __real_poll(pollfd* entries, nfds_t count, int timeout);

int __wrap_socket(int family, int type, int protocol) {
    if (family != AF_CAN && family != AF_NETLINK) {
        return __real_socket(family, type, protocol);
    }
    const std::string name = family == AF_CAN ? "socket" : "socket(AF_NETLINK)";
    if (family == AF_CAN) {
        const int flags = SOCK_NONBLOCK | SOCK_CLOEXEC;
        can_kernel().calls.push_back(
            "socket(" + std::to_string(type & ~flags) + ((type & SOCK_NONBLOCK) != 0 ? ", nonblock" : "") +
            ((type & SOCK_CLOEXEC) != 0 ? ", cloexec" : "") + ", " + std::to_string(protocol) + ")");
    }
    if (const int error = error_of(name); error != 0) {
        return fail(error);
    }
    const int descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
    sockets()[descriptor] = Socket{};
    sockets()[descriptor].family = family;
    can_kernel().descriptors.insert(descriptor);
    return descriptor;
}

unsigned __wrap_if_nametoindex(const char* name) {
    if (const int error = error_of("if_nametoindex"); error != 0) {
        errno = error;
        return 0;
    }
    const auto found = can_kernel().links.find(name);
    if (found == can_kernel().links.end()) {
        errno = ENODEV;
        return 0;
    }
    return static_cast<unsigned>(found->second.index);
}

int __wrap_bind(int descriptor, const sockaddr* address, socklen_t size) {
    if (find(descriptor) == nullptr) {
        return __real_bind(descriptor, address, size);
    }
    sockaddr_can can{};
    std::memcpy(&can, address, std::min<std::size_t>(size, sizeof can));
    can_kernel().calls.push_back("bind(" + std::to_string(can.can_family) + ", " +
                                 std::to_string(can.can_ifindex) + ")");
    const int error = error_of("bind");
    return error != 0 ? fail(error) : 0;
}

int __wrap_setsockopt(int descriptor, int level, int option, const void* value, socklen_t size) {
    Socket* scripted = find(descriptor);
    if (scripted == nullptr) {
        return __real_setsockopt(descriptor, level, option, value, size);
    }
    unsigned number = 0;
    std::memcpy(&number, value, std::min<std::size_t>(size, sizeof number));
    const std::string name = option_name(level, option);
    std::string text = std::to_string(number);
    if (name == "CAN_RAW_FILTER") {
        if (size != sizeof(can_filter)) {
            return fail(EINVAL);
        }
        std::memcpy(&scripted->filter, value, size);
        text = as_hex(scripted->filter.can_id) + "/" + as_hex(scripted->filter.can_mask);
    }
    can_kernel().calls.push_back("setsockopt(" + name + ", " + text + ")");
    if (const int error = error_of("setsockopt"); error != 0) {
        return fail(error);
    }
    scripted->options.insert(name);
    return 0;
}

ssize_t __wrap_send(int descriptor, const void* data, size_t size, int flags) {
    Socket* scripted = find(descriptor);
    if (scripted == nullptr) {
        return __real_send(descriptor, data, size, flags);
    }
    const bool question = scripted->family == AF_NETLINK;
    if (const int error = error_of(question ? "send(AF_NETLINK)" : "send"); error != 0) {
        return fail(error);
    }
    if (question) {
        ifinfomsg info{};
        std::memcpy(&scripted->request, data, sizeof scripted->request);
        std::memcpy(&info, static_cast<const char*>(data) + sizeof scripted->request, sizeof info);
        scripted->index = info.ifi_index;
        ++can_kernel().asked;
    } else {
        can_frame frame{};
        std::memcpy(&frame, data, std::min(size, sizeof frame));
        can_kernel().sent.push_back(frame);
    }
    return static_cast<ssize_t>(size);
}

ssize_t __wrap_recv(int descriptor, void* data, size_t size, int flags) {
    const Socket* scripted = find(descriptor);
    if (scripted == nullptr) {
        return __real_recv(descriptor, data, size, flags);
    }
    if (const int error = error_of("recv(AF_NETLINK)"); error != 0) {
        return fail(error);
    }
    const Bytes bytes = can_kernel().answers_nothing ? Bytes() : answer(*scripted);
    const std::size_t count = std::min(size, bytes.all().size());
    std::copy_n(bytes.all().data(), count, static_cast<char*>(data));
    return static_cast<ssize_t>(count);
}

ssize_t __wrap_recvmsg(int descriptor, msghdr* message, int flags) {
    const Socket* scripted = find(descriptor);
    if (scripted == nullptr) {
        return __real_recvmsg(descriptor, message, flags);
    }
    while (!can_kernel().queue.empty() && !passes(can_kernel().queue.front(), scripted->filter)) {
        can_kernel().queue.pop_front();
    }
    if (can_kernel().queue.empty()) {
        return fail(EAGAIN);
    }
    const ScriptedFrame item = can_kernel().queue.front();
    can_kernel().queue.pop_front();
    if (item.error != 0) {
        return fail(item.error);
    }
    const std::size_t count = std::min(message->msg_iov[0].iov_len, sizeof item.frame);
    std::memcpy(message->msg_iov[0].iov_base, &item.frame, count);
    std::size_t used = 0;
    if (scripted->options.count("SO_TIMESTAMPNS") != 0) {
        const timespec time{static_cast<time_t>(item.time_ns / nanoseconds_per_second),
                            static_cast<long>(item.time_ns % nanoseconds_per_second)};
        add_control(*message, used, SCM_TIMESTAMPNS, &time, sizeof time);
    }
    if (scripted->options.count("SO_RXQ_OVFL") != 0 && item.dropped != 0) {
        add_control(*message, used, SO_RXQ_OVFL, &item.dropped, sizeof item.dropped);
    }
    message->msg_controllen = used;
    return static_cast<ssize_t>(count);
}

int __wrap_poll(pollfd* entries, nfds_t count, int timeout) {
    if (count == 0 || find(entries[0].fd) == nullptr) {
        return __real_poll(entries, count, timeout);
    }
    if (can_kernel().waits.empty()) {
        return __real_poll(nullptr, 0, timeout);
    }
    const std::function<int(int)> wait = can_kernel().waits.front();
    can_kernel().waits.pop_front();
    const int result = wait(timeout);
    return result < 0 ? fail(-result) : result;
}

}  // extern "C"
