/// @file
/// A kernel's CAN, scripted: the system calls of a SocketCAN driver are answered by a test.
///
/// A test program that is built with use_scripted_can_kernel() of tests/CMakeLists.txt has these calls
/// answered here: socket() of the families AF_CAN and AF_NETLINK, and on descriptors that came from it
/// bind(), setsockopt(), send(), recv(), recvmsg() and poll(); also if_nametoindex(). Everything else goes to
/// the real kernel.
///
/// The descriptors are real ones (of /dev/null), so that whether they have been closed is the real kernel's
/// word.

#ifndef TESTS_SUPPORT_SCRIPTEDCANKERNEL_H
#define TESTS_SUPPORT_SCRIPTEDCANKERNEL_H

#include <linux/can.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

/// What waits to be received: a frame, or the error of a call.
struct ScriptedFrame {
    can_frame frame = {};
    std::uint64_t time_ns = 0;  ///< when it came
    std::uint32_t dropped = 0;  ///< frames dropped until then; 0 is not told, as by the kernel
    int error = 0;              ///< not 0: the call fails with this number
};

/// An interface as the kernel describes it.
struct ScriptedLink {
    int index = 7;
    bool up = true;
    std::string kind = "can";   ///< "can" for a controller
    std::uint32_t bitrate = 0;  ///< of a controller; 0 none set
    bool listen_only = false;   ///< of a controller
    bool bus_off = false;       ///< of a controller
};

/// What the kernel answers, and what it has been asked.
struct CanKernel {
    /// Errors of calls, by the function's name; of AF_NETLINK: "socket(AF_NETLINK)", "send(AF_NETLINK)",
    /// "recv(AF_NETLINK)".
    std::map<std::string, int> errors;

    std::map<std::string, ScriptedLink> links;  ///< the interfaces, by name
    std::deque<ScriptedFrame> queue;  ///< what comes; recvmsg() delivers it as far as the filter lets
    std::vector<std::string> calls;   ///< calls that set something up, as they would be written
    std::vector<can_frame> sent;      ///< frames that were sent
    std::set<int> descriptors;        ///< descriptors that were handed out
    int asked = 0;                    ///< questions about an interface
    bool answers_nothing = false;     ///< the answer to such a question is empty

    /// What happens while poll() waits, one call after the other: the result (a negative one is the error's
    /// number). Without any it waits for its time, and nothing comes.
    std::deque<std::function<int(int timeout)>> waits;

    /// Puts a frame into the queue.
    void put(std::uint32_t identifier, const std::vector<unsigned char>& data);

    /// Puts an error into the queue.
    void put_error(int error);

    /// Descriptors that were handed out and are still open.
    int open_descriptors() const;
};

/// The kernel of this process.
CanKernel& can_kernel();

#endif
