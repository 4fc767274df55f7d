/// @file
/// The CAN driver for Kvaser interfaces.
///
/// A Kvaser interface has one or more channels, each a CAN controller, which the library CANlib drives. This
/// driver moves the frames of one channel: every operation is one or a few CANlib calls on the channel's
/// handle, without threads and without a buffer of its own.
///
/// Failures are reported on standard output with show_error(), most of them followed by a line with CANlib's
/// code and its text; results tell the rest. The debug word (CANdriver::set_debug()) selects what else
/// happens, by bit value:
///
/// | Bit | Effect                                                                          |
/// |-----|---------------------------------------------------------------------------------|
/// | 1   | open() prints what it does and the bus parameters; set after construction       |
/// | 2   | an error report of open(), read(), read_wait() or write() ends with exit(1)     |
/// | 4   | every frame received is decoded, its line ends in " [R]"                        |
/// | 8   | every frame sent is decoded, its line ends in " [T]"                            |
/// | 16  | an error counter that has been reported is cleared                              |
///
/// On a machine without CANlib the driver works as if every CANlib call failed, see nodevik/canlib.h.
///
/// There is no locking: one driver is used by one thread at a time.

#ifndef NODEVIK_KVASERDRIVER_H
#define NODEVIK_KVASERDRIVER_H

#include "nodevik/candriver.h"
#include "nodevik/canlib.h"
#include "nodevik/util/export.h"

/// A CAN driver over one channel of a Kvaser interface.
class NODEVIK_EXPORT KvaserDriver : public CANdriver {
public:
    /// Builds the driver; nothing is opened.
    KvaserDriver();

    /// Closes the channel if it is open.
    ~KvaserDriver() override;

    /// Opens a channel, for this program alone, and goes on the bus.
    ///
    /// When a step after opening the channel fails, the channel is left as it is: it is not closed again.
    ///
    /// @param speed   bit rate in bit/s: 1000000, 500000, 250000, 125000, 100000, 62000 and 50000 choose a
    ///                setting of CANlib's, any other is passed on as a frequency
    /// @param mode    identifiers of the frames to be sent: 0 for 11 bits, others (1) for 29 bits
    /// @param port    channel number of CANlib's, from 0
    /// @param silent  true to listen without taking part in the bus
    /// @return 0, or the error code of the CANlib call that failed
    int open(unsigned int speed, unsigned int mode, unsigned int port, bool silent) override;

    /// Goes off the bus and closes the channel. What CANlib answers is not looked at.
    void close() override;

    /// Fetches one waiting frame, without blocking.
    ///
    /// A driver that is not open reports that, and makes the CANlib call nevertheless.
    ///
    /// @param[out] ID      identifier; 0 unless a frame was fetched
    /// @param[out] length  number of data bytes; 0 unless a frame was fetched
    /// @param[out] data    room for 8 bytes, all of which are cleared first
    /// @retval 0   a frame has been stored
    /// @retval 1   no frame is waiting
    /// @retval -1  an error, which has been reported
    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override;

    /// Sends one frame.
    ///
    /// A driver that is not open reports that, and makes the CANlib call nevertheless.
    ///
    /// @param cobid   identifier
    /// @param length  number of data bytes, 0 to 8
    /// @param data    the data bytes; eight must be readable while sent frames are decoded
    /// @param flags   0: a data frame with identifiers as opened. Otherwise bit value 1 chooses a 29-bit
    ///                identifier, else 11 bits, and bit value 2 makes it a remote request
    /// @retval 0   CANlib has taken the frame
    /// @retval -1  an error, which has been reported
    int write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) override;

    /// Waits for a frame and fetches it; otherwise like read().
    ///
    /// @param timeout  longest wait in milliseconds
    int read_wait(unsigned int& ID, unsigned int& length, unsigned char* data, long timeout) override;

    /// Reads the controller's error counters: transmit errors first.
    ///
    /// @param[out] txErr  transmit errors
    /// @param[out] rxErr  receive errors
    /// @param[out] ovErr  overruns
    /// @return 0, also when CANlib fails and the counters are left as they are
    int read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) override;

    /// Clears a receive error condition: drops all frames that wait to be read. The error counter itself
    /// stays.
    void reset_rx_errors() override;

    /// Clears a transmit error condition: drops all frames that wait to be sent. The error counter itself
    /// stays.
    void reset_tx_errors() override;

    /// The channel's handle, for CANlib calls of the caller's own; negative when no channel has been opened.
    ///
    /// @return pointer into this driver, valid as long as it lives
    const canHandle* get_handle() const { return &h; }

    /// Whether the frame that was fetched last was a remote request.
    bool is_remote_request() const { return (flags & canMSG_RTR) != 0; }

    /// Whether the frame that was fetched last had a 29-bit identifier.
    bool is_extended() const { return read_frame_type != 0; }

    /// Reports a CANlib code with its text: "Kvaser Error Status = -2 (...)".
    void print_kvaser_error_text(canStatus status);

    /// Puts a CANlib code into words.
    ///
    /// @param status  the code
    /// @param buffer  receives the text with a terminating zero
    /// @param size    room in @p buffer
    /// @return the result of CANlib
    canStatus get_kvaser_error_text(canStatus status, char* buffer, int size);

private:
    bool has_debug(unsigned int bits) const { return (driver_debug & bits) != 0; }
    NODEVIK_LOCAL void exit_if_fatal() const;
    NODEVIK_LOCAL void report_not_open(const char* text) const;
    NODEVIK_LOCAL void report_open_step(const char* function) const;
    NODEVIK_LOCAL canStatus open_failed(const char* function, canStatus code);
    NODEVIK_LOCAL bool read_bus_params(bool silent);
    NODEVIK_LOCAL void print_bus_params(long freq, unsigned int tseg1, unsigned int tseg2, unsigned int sjw,
                                        unsigned int noSamp, bool silent) const;
    NODEVIK_LOCAL void note_frame_type();
    NODEVIK_LOCAL int received(unsigned int& ID, unsigned int length, const unsigned char* data, long id);
    NODEVIK_LOCAL int receive_failed(unsigned int& ID, unsigned int& length, const char* text);
    NODEVIK_LOCAL void trace(unsigned int id, unsigned int length, const unsigned char* data,
                             const char* direction) const;

    canHandle h = -1;             // the open channel; negative: the error code of the failed open
    canStatus stat = canOK;       // result of the last CANlib call
    unsigned int flags = 0;       // canMSG flags of the last frame received
    unsigned long canstatus = 0;  // canSTAT bits that were read last
    // Not used: room that a driver has always had for an error text.
    [[maybe_unused]] char error_buf[100] = {};
};

#endif
