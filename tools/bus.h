/// @file
/// The bus that a command works on: chosen on the command line, opened, waited for.

#ifndef TOOLS_BUS_H
#define TOOLS_BUS_H

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "nodevik/candriver.h"
#include "nodevik/observeddriver.h"
#include "tools/interrupts.h"
#include "tools/output.h"

namespace nodevik_tool {

/// What the command line says about the bus.
struct BusOptions {
    std::string can;     ///< name of a SocketCAN interface
    std::string udp;     ///< "HOST:PORT", or "HOST:PORT,LOCALPORT"
    std::string kvaser;  ///< "CHANNEL", or "CHANNEL:BITRATE"
};

/// The ends of a bus over UDP.
struct UdpEnds {
    std::string host;             ///< of the peer
    unsigned int port = 0;        ///< of the peer, 1 to 65535
    unsigned int local_port = 0;  ///< to receive on; 0 any
};

/// Takes "HOST:PORT[,LOCALPORT]" apart.
/// @throws Failure  when it is none
UdpEnds parse_udp(const std::string& text);

/// A Kvaser channel.
struct KvaserChannel {
    unsigned int number = 0;        ///< CANlib's, from 0
    unsigned int bitrate = 500000;  ///< bit/s
};

/// Takes "CHANNEL[:BITRATE]" apart.
/// @throws Failure  when it is none
KvaserChannel parse_kvaser(const std::string& text);

/// A CAN interface of this machine.
struct CanInterface {
    std::string name;
    bool up = false;
};

/// The CAN interfaces that there are, by name.
/// @param directory  where the kernel shows its network interfaces (sysfs(5))
std::vector<CanInterface> can_interfaces(const std::string& directory = "/sys/class/net");

/// Chooses the interface for a command line that names no bus.
/// @return the only one that is up
/// @throws Failure  none is up, or several are: the message lists what there is
std::string only_interface(const std::vector<CanInterface>& interfaces);

/// Takes what the library prints away from standard output, which is for results alone.
class LibraryReports {
public:
    LibraryReports();

    /// Gives standard output back.
    ~LibraryReports();

    LibraryReports(const LibraryReports&) = delete;
    LibraryReports& operator=(const LibraryReports&) = delete;

    /// Standard output as it was.
    int results() const { return results_; }

    /// What was printed last, without the name of the function that printed it and without error counters; forgets all
    /// that was printed.
    std::string take_last() const;

private:
    int results_ = -1;
};

/// An open bus.
class Bus {
public:
    /// What a bus is opened for.
    enum class Use : unsigned char {
        talk,   ///< data frames with 11 bits come, others are kept away
        listen  ///< every frame comes, also what the controller tells of errors; nothing is sent
    };

    /// Opens the bus that was chosen.
    ///
    /// @param options     at most one of them is not empty; none is the only CAN interface that is up
    /// @param reports     where the library's reports go
    /// @param interrupts  end every wait
    /// @param use         what it is for
    /// @throws Failure  it cannot be used
    Bus(const BusOptions& options, const LibraryReports& reports, const Interrupts& interrupts,
        Use use = Use::talk);
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    /// What the bus is called in results: the interface's name, "udp" or "kvaser0".
    const std::string& name() const { return name_; }

    /// Whether remote requests and 29-bit identifiers can be sent.
    bool has_all_frames() const { return has_all_frames_; }

    /// The bit rate of the bus in bit/s; 0 when nobody tells it, as over UDP and on a virtual interface.
    unsigned int bit_rate() const;

    /// Whether the controller is known to be bus-off.
    bool is_bus_off() const;

    /// Can be waited for by poll(2); -1 when the driver has none.
    int descriptor() const { return descriptor_; }

    /// The driver, for observers and senders.
    ObservedDriver& driver() { return *observed_; }

    /// Waits for frames and shows some of them to the observers: in a conversation one at a time, so that a signal ends
    /// it between two.
    ///
    /// @param deadline_ns  longest wait, nanoseconds of CLOCK_MONOTONIC
    /// @param results      whose reader may go meanwhile; null looks after none
    /// @throws Interrupted  a signal has come
    /// @throws ClosedPipe   nobody reads the results any more
    /// @throws Failure      the bus can no longer be used
    void read(std::uint64_t deadline_ns, const Output* results = nullptr);

    /// Sends a frame. As long as the driver's queue has no room, other programs may have filled it, the bus is read and
    /// the frame offered again.
    ///
    /// @param identifier  11 bits, or 29 with the flag
    /// @param data        the bytes; as many as there are
    /// @param length      their number, 0 to 8
    /// @param flags       of CANdriver::write()
    /// @param patience_ms longest wait for room, milliseconds
    /// @param results     whose reader may go meanwhile; null looks after none
    /// @throws Interrupted, ClosedPipe, Failure  as read(), or the frame was not taken
    void send(unsigned int identifier, unsigned int length, std::array<unsigned char, 8> data,
              unsigned int flags, unsigned int patience_ms, const Output* results = nullptr);

    /// Frames that the kernel had no room for; 0 where it does not tell.
    std::uint64_t dropped_frames() const;

    /// Why the driver has not sent or read, in one line.
    std::string trouble() const;

private:
    void open_udp(const std::string& text);
    void open_can(const std::string& interface_name, Use use);
    void open_kvaser(const std::string& text, Use use);

    const LibraryReports* reports_;
    const Interrupts* interrupts_;
    unsigned int frames_at_once_;
    std::string name_;
    bool has_all_frames_ = true;
    int descriptor_ = -1;
    unsigned int kvaser_bitrate_ = 0;
    std::unique_ptr<CANdriver> driver_;
    std::unique_ptr<ObservedDriver> observed_;
};

}  // namespace nodevik_tool

#endif
