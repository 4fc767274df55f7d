/// @file
/// A CAN driver that shows what passes: it stands in front of another one and passes everything on.
///
/// The master, and whoever else uses the bus, is given the ObservedDriver in the place of the driver itself.
/// Each frame that is read or written through it is shown to its observers, in the order in which they were
/// added: a recorder, a watch over the nodes, a transfer that waits for its answer. None of them takes a frame
/// away: whoever reads gets them all.
///
/// @code
/// SocketCanDriver bus;
/// bus.open("can0", 0, false);
/// ObservedDriver driver(bus);
/// driver.add_observer(recorder);   // from now on it sees every frame
/// driver.add_observer(watch);
/// master.load_driver(driver);
/// @endcode
///
/// A frame is read by one place of the program only: CCANopen::read_all_messages() if there is a master, else
/// read_all(), which reads for the observers alone. Nothing is shown of what nobody reads.
///
/// Nothing is allocated, and there is no locking: a driver, its observers and the master belong to one thread.

#ifndef NODEVIK_OBSERVEDDRIVER_H
#define NODEVIK_OBSERVEDDRIVER_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "nodevik/candriver.h"
#include "nodevik/util/export.h"

/// A frame that has passed, as an observer is shown it. It is valid during the call only.
class NODEVIK_EXPORT ObservedFrame {
public:
    /// Which way a frame went.
    enum class Direction : unsigned char {
        received,  ///< the program has read it
        sent       ///< the program has written it
    };

    /// Builds a frame without times of its own, as tests and other sources of frames need it.
    ///
    /// @param way   which way it goes
    /// @param id    identifier
    /// @param size  number of data bytes as told by the driver
    /// @param bytes the data, kept as a pointer; at least size() bytes, may be null when that is 0
    ObservedFrame(Direction way, unsigned int id, unsigned int size, const unsigned char* bytes)
        : direction(way), identifier(id), length(size), data(bytes) {}

    Direction direction;        ///< which way it went
    bool remote = false;        ///< a remote request: without data, `length` is the length that is asked for
    bool extended = false;      ///< the identifier has 29 bits
    bool error = false;         ///< an error frame, see SocketCanDriver::receive_also(): no frame of the bus
    unsigned int identifier;    ///< 11 or 29 bits
    unsigned int length;        ///< as the driver told it: 0 to 8, or up to 31 from a peer over UDP
    const unsigned char* data;  ///< the first size() bytes may be read; may be null when that is 0

    /// Number of bytes at `data`: `length`, but at most 8, and 0 for a remote request.
    unsigned int size() const { return remote ? 0 : (length < 8 ? length : 8); }

    /// When the frame passed, by the clock of the day.
    ///
    /// @return nanoseconds since the beginning of 1970, UTC (CLOCK_REALTIME): when the kernel received it, if
    ///         the driver knows, else when it was read or written. Every observer is told the same time
    std::uint64_t time_ns() const;

    /// When the frame was read or written, by the clock of deadlines.
    ///
    /// @return nanoseconds of CLOCK_MONOTONIC, see monotonic_ns(). Every observer is told the same time
    std::uint64_t monotonic_time_ns() const;

    /// Gives the frame its times, each of which is otherwise the time at which it is first asked for.
    ///
    /// @param utc_ns        for time_ns(); 0 leaves it open
    /// @param monotonic_ns  for monotonic_time_ns(); 0 leaves it open
    void set_times(std::uint64_t utc_ns, std::uint64_t monotonic_ns) {
        utc = utc_ns;
        monotonic = monotonic_ns;
    }

private:
    // A clock is read when somebody wants to know, once for all observers; 0 not yet.
    mutable std::uint64_t utc = 0;
    mutable std::uint64_t monotonic = 0;
};

/// Who is shown the frames.
class NODEVIK_EXPORT FrameObserver {
public:
    /// A frame has passed. The observer may send frames, and add or remove observers, itself too.
    ///
    /// @param frame  the frame; valid during the call only
    virtual void frame_passed(const ObservedFrame& frame) = 0;

protected:
    FrameObserver() = default;
    FrameObserver(const FrameObserver&) = default;             ///< there is nothing to copy
    FrameObserver& operator=(const FrameObserver&) = default;  ///< there is nothing to copy
    ~FrameObserver() = default;
};

/// A driver in front of another, with up to 8 observers.
///
/// Results, printed lines and the end of the process are those of the driver behind. That driver belongs to
/// the caller, who keeps it alive as long as this one, and reads and writes through this one only.
class NODEVIK_EXPORT ObservedDriver : public CANdriver {
public:
    /// Most observers at a time.
    static constexpr std::size_t max_observers = 8;

    /// What a driver knows of the frame that it has fetched last, beside what read() tells.
    struct Details {
        std::uint64_t time_ns = 0;  ///< when it came, nanoseconds since 1970, UTC; 0 not known
        bool remote = false;        ///< it was a remote request
        bool extended = false;      ///< it had a 29-bit identifier
        bool error = false;         ///< it was an error frame
    };

    /// Tells a driver's Details.
    using DetailsReader = Details (*)(const CANdriver& driver);

    /// Stands in front of a driver, which may be open or not yet. In front of another ObservedDriver the reader
    /// is named too, `ObservedDriver outer(inner, nullptr)`, for `outer(inner)` would mean a copy.
    ///
    /// @param driver  the driver behind; kept as a pointer
    /// @param reader  tells the details of the frame fetched last, for drivers of one's own. Null knows those
    ///                of SocketCanDriver, KvaserDriver and ObservedDriver; for others, udpDriver among them,
    ///                there are none: no time, no remote request, 11 bits
    explicit ObservedDriver(CANdriver& driver, DetailsReader reader = nullptr);

    /// Leaves the driver behind as it is, open if it was open.
    ~ObservedDriver() override;

    /// Adds an observer behind those that are there. From within frame_passed() it is shown the frames that
    /// pass from then on, not the one at hand.
    ///
    /// A frame that an observer sends is shown at once: the observers behind it see that frame before the one
    /// that it answers. Who must know the order, such as a recorder, is added first.
    ///
    /// @param observer  kept as a pointer, until it is removed
    /// @retval 0   it is added
    /// @retval -1  it is not: it is there already, or 8 others are
    int add_observer(FrameObserver& observer);

    /// Removes an observer. From within frame_passed() it is not shown the frame at hand if it has not been
    /// yet.
    ///
    /// @retval 0   it is removed
    /// @retval -1  it was not there
    int remove_observer(const FrameObserver& observer);

    /// Number of observers.
    std::size_t observer_count() const { return count; }

    /// Reads every frame that waits, for the observers alone: for programs without a master.
    ///
    /// @retval 0   no frame waits any more
    /// @retval -1  the driver told an error, and reading ended there
    int read_all();

    /// What poll(2) can wait for: the descriptor of a SocketCanDriver or udpDriver behind; -1 for other drivers, and for
    /// one that is not open.
    int descriptor() const;

    /// Details of the frame that was fetched last.
    Details last_details() const { return read_details != nullptr ? read_details(*behind) : Details(); }

    /// @name Passed on to the driver behind
    /// A frame is shown when read() or read_wait() gave it with the result 0, and when write() took it: with
    /// a result that is not negative. A new debug word or type filter is passed on with the next call.
    /// @{
    void set_typefilter(uint32_t filter) override;
    int decode_message(uint32_t id, uint8_t len, const void* data) const override;
    int open(unsigned int speed, unsigned int mode, unsigned int port, bool silent) override;
    void close() override;
    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override;
    int write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) override;
    int read_wait(unsigned int& ID, unsigned int& length, unsigned char* data, long timeout) override;
    int read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) override;
    void reset_rx_errors() override;
    void reset_tx_errors() override;
    /// @}

private:
    // How far a frame has been shown; frames that are sent from within stand in front of it.
    struct Showing {
        std::size_t next;
        std::size_t end;
        Showing* outer;
    };

    void check_words() {
        if (driver_debug != passed_debug || m_TypeFilter != passed_filter) {
            pass_words_on();
        }
    }
    NODEVIK_LOCAL void pass_words_on();
    // Both stand in the way of every frame: their calls would cost as much as they do.
    NODEVIK_LOCAL [[gnu::always_inline]] void show(const ObservedFrame& frame);
    NODEVIK_LOCAL [[gnu::always_inline]] void show_received(unsigned int id, unsigned int length,
                                                            const unsigned char* data);

    CANdriver* behind;
    const CANdriver* opened;  // the one behind all observed drivers
    DetailsReader read_details;
    unsigned int passed_debug;
    std::uint32_t passed_filter;
    std::array<FrameObserver*, max_observers> observers{};
    std::size_t count = 0;
    Showing* showing = nullptr;
};

#endif
