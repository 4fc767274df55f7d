/// @file
/// The CAN driver for every adapter that the Linux kernel drives: SocketCAN.
///
/// The kernel shows a CAN controller as a network interface ("can0"), beside virtual ones that connect the
/// programs of one machine ("vcan0"). A raw CAN socket bound to an interface (socket(2), Linux's
/// Documentation/networking/can.rst) moves one frame per call, as a structure of 16 bytes:
///
/// | Offset | Size | Field      | Holds                                                               |
/// |--------|------|------------|---------------------------------------------------------------------|
/// | 0      | 4    | identifier | 11 or 29 bits; bit 31: 29 bits, bit 30: remote request, bit 29: error |
/// | 4      | 1    | length     | 0 to 8                                                              |
/// | 8      | 8    | data       | as many bytes as the length says                                    |
///
/// Any number of programs may use an interface at once, and each receives every frame: those from the bus,
/// and those that other programs of the machine send. A driver does not receive what it has sent itself.
///
/// The interface belongs to the administrator. Bit rate and state are set with ip(8), as root, before a
/// driver is opened; the driver needs no privilege:
///
///     ip link set can0 up type can bitrate 500000        # a controller
///     ip link add vcan0 type vcan && ip link set vcan0 up  # a virtual one
///
///     SocketCanDriver driver;
///     driver.open("can0", 0, false);                     # or open(500000, 0, 0, false): and at this rate
///     master.load_driver(driver);
///
/// A driver with 11-bit identifiers, as a CANopen master wants it, hands out the data frames that have them and
/// nothing else: CANdriver::read() cannot tell a remote request, or a frame with a 29-bit identifier, from
/// them, and a master would take the one for data and the other for a node's. The kernel keeps both away
/// (CAN_RAW_FILTER, can.rst 4.1.1). A program that listens to everything says so before it opens, and asks
/// after each frame what it was:
///
///     driver.receive_also(SocketCanDriver::every_kind);
///     driver.open("can0", 0, true);
///     while (driver.read_wait(id, length, data, -1) == 0) {
///         if (driver.is_error_frame()) ...               # is_remote_request(), is_extended()
///     }
///
/// What goes wrong on the bus comes as error frames, in order between the others. read() and read_wait() take
/// them out, unless they are asked for: they feed the error counters and tell when the controller has gone
/// bus-off. Nothing is learned without reading.
///
/// Failures are reported on standard output with show_error(): what could not be done, then what has happened
/// and what to do about it. The debug word (CANdriver::set_debug()) selects what else happens, by bit value:
///
/// | Bit | Effect                                                                          |
/// |-----|---------------------------------------------------------------------------------|
/// | 1   | open() prints what it does; set after construction                              |
/// | 2   | an error report of open(), read(), read_wait() or write() ends with exit(1)     |
/// | 4   | every frame received is decoded, its line ends in " [R]"                        |
/// | 8   | every frame sent is decoded, its line ends in " [T]"                            |
/// | 16  | an error counter that has been reported is cleared                              |
///
/// There are no threads, no buffers and no locking: one driver is used by one thread at a time.

#ifndef NODEVIK_SOCKETCANDRIVER_H
#define NODEVIK_SOCKETCANDRIVER_H

#include <array>
#include <cstdint>

#include "nodevik/candriver.h"
#include "nodevik/util/export.h"

struct can_frame;
struct can_link;
struct msghdr;

/// A CAN driver over a SocketCAN interface.
class NODEVIK_EXPORT SocketCanDriver : public CANdriver {
public:
    /// Kinds of frames beside data frames with 11-bit identifiers; they may be or-ed together.
    enum frame_kinds : unsigned int {
        remote_requests = 1,  ///< remote requests, with identifiers of the widths that are received
        extended_frames = 2,  ///< frames with 29-bit identifiers
        error_frames = 4,     ///< what the controller tells about the bus, see read()
        every_kind = 7        ///< all of them
    };

    /// Opens nothing.
    SocketCanDriver();

    /// Closes the socket if it is open. Nothing is sent.
    ~SocketCanDriver() override;

    /// Chooses what read() and read_wait() hand out beside what the mode of open() has them hand out. It
    /// counts from the next open() on, for that one and all later ones.
    ///
    /// A master that reads through this driver gets those frames too, and takes them for data: a program that
    /// has a master and listens as well does so with a second driver on the same interface.
    ///
    /// @param kinds  set of frame_kinds bits; 0, the state of a new driver, for nothing more
    void receive_also(unsigned int kinds) { more_kinds = kinds; }

    /// Opens the interface "can<port>", if it runs at the given bit rate.
    ///
    /// A driver never sets a bit rate: that takes an administrator, and concerns every program on the
    /// interface. It compares, because a node with a wrong rate disturbs the traffic of all others. When the
    /// rates differ, the report names both and the command that sets the right one, and nothing stays open.
    /// An interface without a bit rate, such as a virtual one, has nothing to compare.
    ///
    /// @param speed   bit rate in bit/s that the interface must have; 0 takes the interface as it is
    /// @param mode    identifiers: 0 for 11 bits, others (1) for 29 bits; see the three-argument open()
    /// @param port    number of the interface: 0 for "can0"
    /// @param silent  see the three-argument open()
    /// @retval 0   the driver is open
    /// @retval -1  it is not; the reason has been reported
    int open(unsigned int speed, unsigned int mode, unsigned int port, bool silent) override;

    /// Opens an interface, at whatever bit rate it has.
    ///
    /// What was open before is closed first, whatever comes after. The interface must be a CAN interface, be
    /// up and not bus-off. The error counters start again from 0.
    ///
    /// Silent means that this program sends nothing: write() refuses. Whether the controller acknowledges the
    /// frames of other nodes, and marks faulty ones, is no choice of a program's, because the interface may
    /// have other users: only the administrator makes it a listener that leaves no trace on the bus ("ip link
    /// set can0 up type can bitrate 500000 listen-only on"). When it is none, open() says so if the debug
    /// word has bit 1, and goes on.
    ///
    /// @param interface  name of the interface, 1 to 15 characters; reports go on to use it if the interface
    ///                   is renamed
    /// @param mode       identifiers. 0: frames are sent with 11 bits, and data frames with 11 bits are
    ///                   received. Others (1): frames are sent with 29 bits, and data frames and remote
    ///                   requests of both widths are received. receive_also() adds to what is received
    /// @param silent     true to send nothing
    /// @retval 0   the driver is open
    /// @retval -1  it is not; the reason has been reported
    int open(const char* interface, unsigned int mode, bool silent);

    /// Closes the socket; the interface stays as it is. What is waiting to be read is lost, what has been
    /// sent still goes out.
    void close() override;

    /// Fetches one waiting frame, without blocking.
    ///
    /// Error frames on the way are taken out, see the file's description. After a remote request @p length is
    /// the length that is asked for and @p data stays cleared; is_remote_request() tells it from a data
    /// frame.
    ///
    /// With receive_also(error_frames) an error frame is handed out like a frame, when it has been counted and
    /// what it tells has been reported: @p ID is then the set of error classes (CAN_ERR_MASK,
    /// linux/can/error.h), and @p data has the details. It is not traced.
    ///
    /// When the interface has gone down, or its controller bus-off, that is reported once, unless write() has
    /// already reported it. As long as it lasts, a call that finds no frame is answered with -1, not with 1;
    /// when the interface is back, reading and writing go on by themselves. An interface that is gone (an
    /// adapter was unplugged) stays gone for this driver, even if it comes back under its name, until the
    /// driver is opened again.
    ///
    /// @param[out] ID      identifier, 11 or 29 bits; 0 unless a frame was fetched
    /// @param[out] length  number of data bytes, 0 to 8; 0 unless a frame was fetched
    /// @param[out] data    room for 8 bytes, all of which are cleared first
    /// @retval 0   a frame has been stored
    /// @retval 1   no frame is waiting
    /// @retval -1  an error, which has been reported; or the driver is not open
    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override;

    /// Sends one frame: hands it to the interface's transmit queue, without blocking.
    ///
    /// That a frame has been taken does not mean that another node has received it: the controller repeats it
    /// until one acknowledges it. Every frame that is not taken is reported. The first frame after an
    /// interface was down is one of them if nothing has been read meanwhile, even when the interface is up
    /// again.
    ///
    /// @param cobid   identifier; it must fit into 11 or 29 bits
    /// @param length  number of data bytes, 0 to 8; of a remote request, the number that is asked for
    /// @param data    the @p length data bytes; not looked at for a remote request
    /// @param flags   0: a data frame with identifiers as opened. Otherwise bit value 1 chooses a 29-bit
    ///                identifier, else 11 bits, and bit value 2 makes it a remote request
    /// @retval 0   the frame is in the transmit queue
    /// @retval -1  it is not: the driver is not open or silent, the identifier or length too large, the queue
    ///             full, the controller bus-off, the interface down or gone; the reason has been reported
    int write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) override;

    /// Waits for a frame and fetches it; otherwise like read(). A signal does not end the wait, nor does an
    /// error frame that only changes counters.
    ///
    /// @param timeout  longest wait in milliseconds; 0 does not wait. Negative, or more than 2147483647,
    ///                 waits until a frame or an error comes
    int read_wait(unsigned int& ID, unsigned int& length, unsigned char* data, long timeout) override;

    /// Tells the error counters as read() has last learned them: transmit errors first.
    ///
    /// The first two are the controller's own (ISO 11898-1: from 96 on a warning, from 128 on it is "error
    /// passive", above 255 it goes bus-off), as far as its kernel driver puts them into error frames
    /// (CAN_ERR_CNT). Overruns count the frames that the socket's queue had no room for, and the occasions on
    /// which the controller has reported an overflow of its own; they count from open() on.
    ///
    /// @param[out] txErr  transmit errors, 0 to 255
    /// @param[out] rxErr  receive errors, 0 to 255
    /// @param[out] ovErr  overruns
    /// @return 0
    int read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) override;

    /// Forgets the receive errors, until an error frame tells new ones. The controller's own counter stays,
    /// and so do the frames that wait to be read.
    void reset_rx_errors() override;

    /// Forgets the transmit errors, until an error frame tells new ones. The controller's own counter stays,
    /// and so do the frames that wait to be sent.
    void reset_tx_errors() override;

    /// How many frames the socket's queue has had no room for since open() (SO_RXQ_OVFL, socket(7)). The kernel
    /// tells it with the next frame that finds room: when the number has grown with a frame, that many are
    /// missing before it. Frames that the kernel keeps away do not count.
    std::uint32_t dropped_frames() const { return last_dropped; }

    /// When the kernel received the frame that was fetched last (SO_TIMESTAMPNS, socket(7)).
    ///
    /// @return nanoseconds since the beginning of 1970, UTC, by the system's clock (CLOCK_REALTIME): it steps
    ///         when the clock is set. 0 before the first frame
    std::uint64_t receive_time_ns() const { return timestamp; }

    /// Whether the frame that was fetched last was a remote request.
    bool is_remote_request() const { return remote_request; }

    /// Whether the frame that was fetched last had a 29-bit identifier.
    bool is_extended() const { return read_frame_type != 0; }

    /// Whether the frame that was fetched last was an error frame.
    bool is_error_frame() const { return error_frame; }

    /// Whether the driver knows that the controller is bus-off: it has left the bus, until it is restarted. Learned by
    /// reading, see read().
    bool is_bus_off() const { return condition == Condition::bus_off; }

    /// The interface's bit rate, asked from the kernel.
    ///
    /// @return bit/s; 0 when it has none, as a virtual one, when the kernel does not tell, or the driver is not open
    std::uint32_t bit_rate() const;

    /// The socket, to be waited for with poll(2) together with others; -1 when the driver is not open. Frames
    /// are moved with read() and write() only.
    int get_socket() const { return bus_socket.get(); }

    /// The same as get_socket(), by the name that it has in every driver that can be waited for.
    int descriptor() const { return bus_socket.get(); }

private:
    // A descriptor that is closed with its owner; -1 none.
    class Descriptor {
    public:
        Descriptor() = default;
        ~Descriptor() { reset(-1); }
        Descriptor(const Descriptor&) = delete;
        Descriptor& operator=(const Descriptor&) = delete;
        int get() const { return number; }
        void reset(int other);

    private:
        int number = -1;
    };

    // What keeps the interface from moving frames.
    enum class Condition : unsigned char { none, down, gone, bus_off };

    bool has_debug(unsigned int bits) const { return (driver_debug & bits) != 0; }
    NODEVIK_LOCAL void exit_if_fatal() const;
    NODEVIK_LOCAL bool check_open(const char* text) const;

    NODEVIK_LOCAL int open_interface(const char* interface, unsigned int speed, unsigned int mode,
                                     bool silent);
    NODEVIK_LOCAL bool adopt_name(const char* interface);
    NODEVIK_LOCAL bool open_sockets();
    NODEVIK_LOCAL bool bind_to_interface();
    NODEVIK_LOCAL unsigned int received_kinds() const;
    NODEVIK_LOCAL bool check_link(unsigned int speed) const;
    NODEVIK_LOCAL void print_link(const can_link& link) const;
    NODEVIK_LOCAL bool open_failed(const char* step, const char* pattern) const;

    NODEVIK_LOCAL int fetch(unsigned int& ID, unsigned int& length, unsigned char* data);
    NODEVIK_LOCAL int take(const can_frame& frame, unsigned int& ID, unsigned int& length,
                           unsigned char* data);
    NODEVIK_LOCAL void note_control(msghdr& message, bool is_handed_out);
    NODEVIK_LOCAL void note_error_frame(const can_frame& frame);
    NODEVIK_LOCAL int nothing_waits();
    NODEVIK_LOCAL Condition ask_condition() const;
    NODEVIK_LOCAL int enter(Condition found);
    NODEVIK_LOCAL int fetch_failed(int code);
    NODEVIK_LOCAL int send_failed(int code);
    NODEVIK_LOCAL int report_fetch(const char* pattern);
    NODEVIK_LOCAL int report_write(const char* pattern);
    NODEVIK_LOCAL void trace(unsigned int id, unsigned int length, const char* direction) const;

    Descriptor bus_socket;
    Descriptor link_socket;       // rtnetlink: asks for the interface's state
    std::array<char, 16> name{};  // of the interface
    int index = 0;                // of the interface
    const char* fetching = "";    // the fetching operation under way, as reports name it
    Condition condition = Condition::none;
    bool silent_mode = false;
    bool remote_request = false;
    bool error_frame = false;
    unsigned int more_kinds = 0;     // see receive_also()
    unsigned int handed_out = 0;     // kinds that are received since open()
    std::uint32_t last_dropped = 0;  // SO_RXQ_OVFL: frames dropped since the socket was opened
};

#endif
