#include "nodevik/socketcandriver.h"

#include <linux/can.h>
#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

#include "nodevik/arch.h"
#include "nodevik/candriverwords.h"
#include "nodevik/canlink.h"

namespace {

constexpr unsigned long nanoseconds_per_second = 1'000'000'000;
constexpr std::size_t control_size = CMSG_SPACE(sizeof(timespec)) + CMSG_SPACE(sizeof(std::uint32_t));
static_assert(sizeof(can_frame) == CAN_MTU);

// Bytes of an error frame (linux/can/error.h).
constexpr std::size_t controller_status = 1;
constexpr std::size_t transmit_errors = 6;
constexpr std::size_t receive_errors = 7;

/// A text that has the interface's name filled in.
using Text = std::array<char, 400>;

/// What the number of an error means where it occurs, and what to do; '@' stands for the interface's name.
struct explanation {
    int code;
    const char* text;
};

constexpr const char* no_permission =
    "permission is missing, a container, sandbox or security module keeps this program from it: allow it the "
    "socket families AF_CAN and AF_NETLINK";
constexpr const char* no_can_support =
    "this kernel has no CAN support: load it as root with 'modprobe can-raw', or use a kernel that has "
    "CONFIG_CAN_RAW";
constexpr const char* no_interface =
    "there is no interface @: plug its adapter in, load its driver, or look for its name with 'ip link'";
constexpr const char* not_can =
    "interface @ is not a CAN interface: look for one with 'ip link show type can' or '... type vcan'";
constexpr const char* interface_down = "interface @ is down: bring it up as root with 'ip link set @ up'";
constexpr const char* no_bit_rate =
    "interface @ is down and has no bit rate: bring it up as root with 'ip link set @ up type can bitrate "
    "500000', where 500000 stands for the rate of the bus";
constexpr const char* interface_gone =
    "interface @ is gone, its adapter unplugged or its driver unloaded: open it again when it is back";
constexpr const char* controller_bus_off =
    "interface @ is bus-off, its controller has left the bus after too many failed transmissions: check "
    "wiring, termination and bit rate, then restart it as root with 'ip link set @ type can restart'";
constexpr const char* queue_full =
    "the transmit queue of @ is full: check that another node is on the bus, at the same bit rate, to "
    "acknowledge the frames; for longer bursts lengthen it as root with 'ip link set @ txqueuelen 1000'";
constexpr const char* send_buffer_full =
    "too many frames of this program wait in the transmit queue of @: check that another node is on the bus, "
    "at the same bit rate, to acknowledge the frames; for longer bursts make more room as root with 'sysctl "
    "net.core.wmem_default=1000000', then open it again";

constexpr std::array socket_errors = {
    explanation{EAFNOSUPPORT, no_can_support},
    explanation{EPROTONOSUPPORT, no_can_support},
    explanation{EPERM, no_permission},
    explanation{EACCES, no_permission},
};
constexpr std::array interface_errors = {
    explanation{ENODEV, no_interface},
    explanation{ENXIO, no_interface},
    explanation{EPERM, no_permission},
    explanation{EACCES, no_permission},
};
constexpr std::array bind_errors = {
    explanation{ENODEV, not_can},
    explanation{EPERM, no_permission},
    explanation{EACCES, no_permission},
};
constexpr std::array traffic_errors = {
    explanation{ENETDOWN, interface_down}, explanation{ENODEV, interface_gone},
    explanation{ENXIO, interface_gone},    explanation{ENOBUFS, queue_full},
    explanation{EAGAIN, send_buffer_full}, explanation{EPERM, no_permission},
    explanation{EACCES, no_permission},
};

/// `pattern` with the interface's name for each '@'.
Text fill_in(const char* pattern, const char* name) {
    Text text{};
    std::size_t length = 0;
    for (const char* at = pattern; *at != '\0' && length + 1 < text.size(); ++at) {
        if (*at == '@') {
            length += std::string_view(name).copy(&text[length], text.size() - length - 1);
        } else {
            text[length++] = *at;
        }
    }
    return text;
}

/// The number of an error in words, by the table of the place where it occurred.
const char* explain(int code, std::span<const explanation> errors) {
    const auto row =
        std::find_if(errors.begin(), errors.end(), [code](const explanation& e) { return e.code == code; });
    return row != errors.end() ? row->text : std::strerror(code);
}

/// The socket calls take every address family through the one generic type.
const sockaddr* generic(const sockaddr_can& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

/// The structure that a control message carries.
template <typename Structure>
Structure load(const cmsghdr* header) {
    Structure structure{};
    std::memcpy(&structure, CMSG_DATA(header), sizeof structure);
    return structure;
}

template <typename Value>
bool set_option(int descriptor, int level, int option, const Value& value) {
    return setsockopt(descriptor, level, option, &value, sizeof value) == 0;
}

}  // namespace

SocketCanDriver::SocketCanDriver() = default;

SocketCanDriver::~SocketCanDriver() = default;

void SocketCanDriver::Descriptor::reset(int other) {
    if (number >= 0) {
        ::close(number);
    }
    number = other;
}

int SocketCanDriver::open(unsigned int speed, unsigned int mode, unsigned int port, bool silent) {
    std::array<char, sizeof "can4294967295"> interface {};
    std::snprintf(interface.data(), interface.size(), "can%u", port);
    return open_interface(interface.data(), speed, mode, silent);
}

int SocketCanDriver::open(const char* interface, unsigned int mode, bool silent) {
    return open_interface(interface, 0, mode, silent);
}

void SocketCanDriver::close() {
    bus_socket.reset(-1);
    link_socket.reset(-1);
    isopen = 0;
}

int SocketCanDriver::read(unsigned int& ID, unsigned int& length, unsigned char* data) {
    const bool usable = check_open("\n\nRead: CAN connection is not Open !\n\n");
    fetching = "Read";
    ID = 0;
    length = 0;
    std::fill_n(data, can_driver::frame_size, static_cast<unsigned char>(0));
    return usable ? fetch(ID, length, data) : -1;
}

int SocketCanDriver::write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) {
    if (!check_open("\n\nWrite: CAN connection is not Open !\n\n")) {
        return -1;
    }
    if (silent_mode) {
        return report_write("interface @ was opened silent: to send, open it with silent false");
    }
    const bool extended = can_driver::sends_extended(flags, frame_type);
    const bool remote = (flags & can_driver::write_remote) != 0;
    if (cobid > (extended ? CAN_EFF_MASK : CAN_SFF_MASK)) {
        return report_write(extended ? "the identifier does not fit into 29 bits"
                                     : "the identifier does not fit into 11 bits: open with mode 1, or pass "
                                       "flags with bit value 1, for 29 bits");
    }
    if (length > can_driver::frame_size) {
        return report_write("a frame has 0 to 8 data bytes");
    }
    // The kernel takes frames for a controller that is bus-off, and drops them.
    if (condition == Condition::bus_off && ask_condition() == Condition::bus_off) {
        return report_write(controller_bus_off);
    }
    can_frame frame{};
    frame.can_id = cobid | (extended ? CAN_EFF_FLAG : 0) | (remote ? CAN_RTR_FLAG : 0);
    frame.can_dlc = static_cast<unsigned char>(length);
    if (!remote) {
        std::copy_n(data, length, std::begin(frame.data));
    }
    std::copy_n(std::begin(frame.data), can_driver::frame_size, std::begin(candata));
    if (send(bus_socket.get(), &frame, sizeof frame, MSG_DONTWAIT) < 0) {
        return send_failed(errno);
    }
    if (has_debug(can_driver::debug_trace_sent)) {
        trace(cobid, length, " [T]");
    }
    return 0;
}

int SocketCanDriver::read_wait(unsigned int& ID, unsigned int& length, unsigned char* data, long timeout) {
    using Clock = std::chrono::steady_clock;
    const bool usable = check_open("\n\nReadWait: CAN connection is not Open !\n\n");
    fetching = "ReadWait";
    ID = 0;
    length = 0;
    std::fill_n(data, can_driver::frame_size, static_cast<unsigned char>(0));
    if (!usable) {
        return -1;
    }
    const bool endless = timeout < 0 || timeout > INT_MAX;
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(endless ? 0 : timeout);
    for (;;) {
        if (const int result = fetch(ID, length, data); result != 1) {
            return result;
        }
        const auto rest = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (!endless && rest <= 0) {
            return 1;
        }
        pollfd entry{bus_socket.get(), POLLIN, 0};
        if (poll(&entry, 1, endless ? -1 : static_cast<int>(rest)) < 0 && errno != EINTR) {
            return fetch_failed(errno);
        }
    }
}

int SocketCanDriver::read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) {
    txErr = TXerrors;
    rxErr = RXerrors;
    ovErr = OVerrors;
    return 0;
}

void SocketCanDriver::reset_rx_errors() {
    RXerrors = 0;
}

void SocketCanDriver::reset_tx_errors() {
    TXerrors = 0;
}

std::uint32_t SocketCanDriver::bit_rate() const {
    can_link link;
    return isopen != 0 && ask_can_link(link_socket.get(), index, link) == 0 ? link.bitrate : 0;
}

/// Ends the process after an error report, if the debug word wants that.
void SocketCanDriver::exit_if_fatal() const {
    if (has_debug(can_driver::debug_fatal)) {
        std::exit(1);
    }
}

/// Reports that the driver is not open, when it is not.
bool SocketCanDriver::check_open(const char* text) const {
    if (isopen == 0) {
        show_error("%s", text);
        exit_if_fatal();
    }
    return isopen != 0;
}

int SocketCanDriver::open_interface(const char* interface, unsigned int speed, unsigned int mode,
                                    bool silent) {
    close();
    frame_type = mode;
    silent_mode = silent;
    condition = Condition::none;
    TXerrors = 0;
    RXerrors = 0;
    OVerrors = 0;
    last_dropped = 0;
    if (has_debug(can_driver::debug_progress)) {
        std::printf("socketCanDriver::open() - Trying to open CAN interface %s with %s-bit mode\n", interface,
                    can_driver::identifier_bits(frame_type));
    }
    handed_out = received_kinds();
    if (!adopt_name(interface) || !open_sockets() || !bind_to_interface() || !check_link(speed)) {
        close();
        exit_if_fatal();
        return -1;
    }
    isopen = 1;
    return 0;
}

/// Keeps the interface's name, if it can be one.
bool SocketCanDriver::adopt_name(const char* interface) {
    const std::string_view wanted = interface;
    name.fill('\0');
    if (wanted.empty() || wanted.size() >= name.size()) {
        show_error("socketCanDriver::open() - '%s' is no interface's name: it has 1 to %zu characters\n",
                   interface, name.size() - 1);
        return false;
    }
    wanted.copy(name.data(), wanted.size());
    return true;
}

/// The kinds of frames that the driver hands out, by the mode and what the program has asked for.
unsigned int SocketCanDriver::received_kinds() const {
    return more_kinds | (frame_type != 0 ? remote_requests | extended_frames : 0U);
}

/// Opens the sockets and chooses what the frames' socket delivers: frames of the kinds that are handed out,
/// error frames, time stamps, overruns.
bool SocketCanDriver::open_sockets() {
    bus_socket.reset(socket(AF_CAN, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, CAN_RAW));
    if (bus_socket.get() < 0) {
        return open_failed("socket() : ", explain(errno, socket_errors));
    }
    constexpr can_err_mask_t every_error = CAN_ERR_MASK;
    constexpr int on = 1;
    // A frame passes whose bits of the mask are those of the identifier.
    can_filter kinds{};
    kinds.can_mask |= (handed_out & extended_frames) == 0 ? CAN_EFF_FLAG : 0;
    kinds.can_mask |= (handed_out & remote_requests) == 0 ? CAN_RTR_FLAG : 0;
    if (!set_option(bus_socket.get(), SOL_CAN_RAW, CAN_RAW_FILTER, kinds) ||
        !set_option(bus_socket.get(), SOL_CAN_RAW, CAN_RAW_ERR_FILTER, every_error) ||
        !set_option(bus_socket.get(), SOL_SOCKET, SO_TIMESTAMPNS, on) ||
        !set_option(bus_socket.get(), SOL_SOCKET, SO_RXQ_OVFL, on)) {
        return open_failed("setsockopt() : ", explain(errno, socket_errors));
    }
    link_socket.reset(open_link_socket());
    if (link_socket.get() < 0) {
        return open_failed("socket() : ", explain(errno, socket_errors));
    }
    return true;
}

/// Receives and sends on one interface from now on.
bool SocketCanDriver::bind_to_interface() {
    index = static_cast<int>(if_nametoindex(name.data()));
    if (index == 0) {
        return open_failed("if_nametoindex() : ", explain(errno, interface_errors));
    }
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = index;
    if (bind(bus_socket.get(), generic(address), sizeof address) < 0) {
        return open_failed("bind() : ", explain(errno, bind_errors));
    }
    return true;
}

/// Whether the interface is up and has the right bit rate.
bool SocketCanDriver::check_link(unsigned int speed) const {
    can_link link;
    if (const int code = ask_can_link(link_socket.get(), index, link); code != 0) {
        return open_failed("rtnetlink : ", explain(code, interface_errors));
    }
    if (speed != 0 && link.bitrate != 0 && speed != link.bitrate) {
        show_error(
            "socketCanDriver::open() - interface %s has a bit rate of %u, not of %u: set it as root with 'ip "
            "link set %s down; ip link set %s up type can bitrate %u'\n",
            name.data(), link.bitrate, speed, name.data(), name.data(), speed);
        return false;
    }
    if (!link.up) {
        return open_failed("", link.controller && link.bitrate == 0 ? no_bit_rate : interface_down);
    }
    if (link.bus_off) {
        return open_failed("", controller_bus_off);
    }
    if (has_debug(can_driver::debug_progress)) {
        print_link(link);
    }
    return true;
}

/// Prints what open() has found.
void SocketCanDriver::print_link(const can_link& link) const {
    if (link.bitrate != 0) {
        std::printf("socketCanDriver::open() - Channel speed = %u\n", link.bitrate);
    }
    std::printf("socketCanDriver::open() - Channel opened in %ssilent mode\n", silent_mode ? "" : "non ");
    if (silent_mode && link.controller && !link.listen_only) {
        std::printf(
            "socketCanDriver::open() - The controller acknowledges frames nevertheless: make it listen only "
            "as root with 'ip link set %s down; ip link set %s up type can listen-only on'\n",
            name.data(), name.data());
    }
}

/// Reports why open() fails, after the step that failed if one did.
bool SocketCanDriver::open_failed(const char* step, const char* pattern) const {
    show_error("socketCanDriver::open() - %s%s\n", step, fill_in(pattern, name.data()).data());
    return false;
}

/// Fetches the next frame of a kind that is handed out; see read() for the results.
int SocketCanDriver::fetch(unsigned int& ID, unsigned int& length, unsigned char* data) {
    for (;;) {
        can_frame frame{};
        alignas(cmsghdr) std::array<unsigned char, control_size> control;
        iovec room{&frame, sizeof frame};
        msghdr message{};
        message.msg_iov = &room;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t size = recvmsg(bus_socket.get(), &message, MSG_DONTWAIT);
        if (size < 0) {
            if (errno == EAGAIN) {
                return nothing_waits();
            }
            return fetch_failed(errno);
        }
        const bool is_error = (frame.can_id & CAN_ERR_FLAG) != 0;
        const bool is_handed_out = !is_error || (handed_out & error_frames) != 0;
        note_control(message, is_handed_out);
        const bool bus_off = is_error && (frame.can_id & CAN_ERR_BUSOFF) != 0;
        if (is_error) {
            note_error_frame(frame);
        }
        const int result = bus_off ? enter(Condition::bus_off) : 1;
        if (is_handed_out) {
            return take(frame, ID, length, data);
        }
        if (bus_off) {
            return result;
        }
    }
}

/// Hands a frame over.
int SocketCanDriver::take(const can_frame& frame, unsigned int& ID, unsigned int& length,
                          unsigned char* data) {
    error_frame = (frame.can_id & CAN_ERR_FLAG) != 0;
    const bool extended = !error_frame && (frame.can_id & CAN_EFF_FLAG) != 0;
    remote_request = !error_frame && (frame.can_id & CAN_RTR_FLAG) != 0;
    read_frame_type = extended ? 1 : 0;
    ID = frame.can_id & (extended || error_frame ? CAN_EFF_MASK : CAN_SFF_MASK);
    length = std::min<unsigned int>(frame.can_dlc, can_driver::frame_size);
    if (!remote_request) {
        std::copy_n(std::begin(frame.data), length, data);
    }
    std::copy_n(data, can_driver::frame_size, std::begin(candata));
    if (has_debug(can_driver::debug_trace_received) && !error_frame) {
        trace(ID, length, " [R]");
    }
    return 0;
}

/// Notes what the kernel tells beside a frame: when it came, and how many were dropped until now.
void SocketCanDriver::note_control(msghdr& message, bool is_handed_out) {
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET) {
            continue;
        }
        if (header->cmsg_type == SCM_TIMESTAMPNS && is_handed_out) {
            const auto time = load<timespec>(header);
            timestamp = static_cast<unsigned long>(time.tv_sec) * nanoseconds_per_second +
                        static_cast<unsigned long>(time.tv_nsec);
        } else if (header->cmsg_type == SO_RXQ_OVFL) {
            const auto dropped = load<std::uint32_t>(header);
            OVerrors += dropped - last_dropped;
            last_dropped = dropped;
        }
    }
}

/// Notes what an error frame tells about the controller.
void SocketCanDriver::note_error_frame(const can_frame& frame) {
    if ((frame.can_id & CAN_ERR_CNT) != 0) {
        TXerrors = frame.data[transmit_errors];
        RXerrors = frame.data[receive_errors];
    }
    constexpr unsigned int overflow = CAN_ERR_CRTL_RX_OVERFLOW | CAN_ERR_CRTL_TX_OVERFLOW;
    if ((frame.can_id & CAN_ERR_CRTL) != 0 && (frame.data[controller_status] & overflow) != 0) {
        ++OVerrors;
    }
    if ((frame.can_id & CAN_ERR_RESTARTED) != 0 && condition == Condition::bus_off) {
        condition = Condition::none;
    }
}

/// An empty queue is an error while the interface cannot deliver anything; whether that is over is asked.
int SocketCanDriver::nothing_waits() {
    if (condition == Condition::none) {
        return 1;
    }
    return enter(ask_condition());
}

/// What keeps the interface from moving frames now.
SocketCanDriver::Condition SocketCanDriver::ask_condition() const {
    if (condition == Condition::gone) {
        return condition;
    }
    can_link link;
    const int code = ask_can_link(link_socket.get(), index, link);
    if (code == ENODEV) {
        return Condition::gone;
    }
    if (code != 0) {
        return condition;
    }
    if (!link.up) {
        return Condition::down;
    }
    return link.bus_off ? Condition::bus_off : Condition::none;
}

/// The result of a call that has found the interface in a condition; a new one is reported.
int SocketCanDriver::enter(Condition found) {
    const bool known = found == condition;
    condition = found;
    switch (found) {
        case Condition::none:
            return 1;
        case Condition::down:
            return known ? -1 : report_fetch(interface_down);
        case Condition::gone:
            return known ? -1 : report_fetch(interface_gone);
        case Condition::bus_off:
            return known ? -1 : report_fetch(controller_bus_off);
    }
    return -1;
}

/// The result of a fetching operation whose system call failed.
int SocketCanDriver::fetch_failed(int code) {
    switch (code) {
        case ENETDOWN:
            return enter(Condition::down);
        case ENODEV:
        case ENXIO:
            return enter(Condition::gone);
        default:
            return report_fetch(explain(code, traffic_errors));
    }
}

/// The result of write() when its system call failed. The kernel tells only one call that the interface has
/// gone down or away: what write() learns, the fetching operations must know.
int SocketCanDriver::send_failed(int code) {
    switch (code) {
        case ENETDOWN:
            condition = Condition::down;
            break;
        case ENODEV:
        case ENXIO:
            condition = Condition::gone;
            break;
        default:
            break;
    }
    return report_write(explain(code, traffic_errors));
}

/// Reports a failed fetching operation, and receive errors that are known.
int SocketCanDriver::report_fetch(const char* pattern) {
    show_error("SocketCAN driver: %s Error !\n", fetching);
    show_error("%s\n", fill_in(pattern, name.data()).data());
    exit_if_fatal();
    if (RXerrors != 0) {
        show_error("Read Error ! RX-Errorcounter = %u \n", RXerrors);
        if (has_debug(can_driver::debug_clear_counters)) {
            reset_rx_errors();
        }
    }
    return -1;
}

/// Reports a frame that has not been sent, and transmit errors that are known.
int SocketCanDriver::report_write(const char* pattern) {
    show_error("SocketCAN driver: Write Error !\n");
    show_error("%s\n", fill_in(pattern, name.data()).data());
    exit_if_fatal();
    if (TXerrors != 0) {
        show_error("Transmit Error ! TX-Errorcounter = %u \n", TXerrors);
        if (has_debug(can_driver::debug_clear_counters)) {
            reset_tx_errors();
        }
    }
    return -1;
}

/// Builds the line of the frame whose data were moved last, which tells the direction at its end.
void SocketCanDriver::trace(unsigned int id, unsigned int length, const char* direction) const {
    print_message(id, static_cast<std::uint8_t>(length), &candata[0]);
    add_text(direction);
}
