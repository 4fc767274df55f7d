/// @file
/// The state of a CAN network interface, asked from the kernel over rtnetlink (rtnetlink(7)).
///
/// A program sends a request for one interface; the kernel answers with one message of nested attributes. A
/// CAN controller's settings stand in IFLA_LINKINFO / IFLA_INFO_DATA (linux/can/netlink.h). A virtual
/// interface has no such settings.

#ifndef NODEVIK_CANLINK_H
#define NODEVIK_CANLINK_H

#include <cstdint>

/// What an interface is and does.
struct can_link {
    bool up = false;            ///< the administrator has brought it up
    bool controller = false;    ///< it is a CAN controller, with the settings below
    std::uint32_t bitrate = 0;  ///< in bit/s; 0 not known
    bool listen_only = false;   ///< the controller neither sends nor acknowledges
    bool bus_off = false;       ///< the controller has left the bus
};

/// Opens a socket for ask_can_link().
///
/// @return the descriptor, or -1 with errno set
int open_link_socket();

/// Asks for the state of an interface.
///
/// @param descriptor  from open_link_socket()
/// @param index       number of the interface, from if_nametoindex(3)
/// @param[out] link   its state; as it was unless the result is 0
/// @return 0, or the number of the error: ENODEV when there is no such interface (any more)
int ask_can_link(int descriptor, int index, can_link& link);

#endif
