/// @file
/// The CAN driver interface: what lies between the CANopen master and the bus.
///
/// A CAN data frame is an identifier (11 bits, or 29 in the extended format), a length of 0 to 8 and that
/// many data bytes. A remote frame has an identifier and no data: it asks whoever produces that identifier to
/// send it. CANopen calls the identifier COB-ID.
///
/// The master knows the bus only as a CANdriver. It reads until the driver has no frame left, writes one
/// frame at a time, and leaves opening, closing and error counters to the application:
///
///     read   ->  0  a frame has been stored        write(..., flags 0)  a data frame
///                1  no frame is waiting            write(..., flags 2)  a remote request
///                other  an error
///
/// The application constructs and opens a concrete driver, hands it to CCANopen::load_driver and keeps it
/// alive as long as the master can use it; the master neither opens, closes nor deletes it.
///
/// There is no locking: one driver object is used by one thread at a time.

#ifndef NODEVIK_CANDRIVER_H
#define NODEVIK_CANDRIVER_H

#include "nodevik/decoder.h"
#include "nodevik/util/export.h"

/// Abstract CAN driver, the base of every driver of the library.
///
/// Each driver is a CDecoder too and can print the frames that it moves. The order of the virtual operations
/// is part of the interface: destructor, set_typefilter and decode_message (both inherited), then as declared
/// here.
class NODEVIK_EXPORT CANdriver : public CDecoder {
public:
    /// Constructs the driver closed: debug word 1, no payload, frame types 0.
    CANdriver();

    /// Destroys the decoder base and nothing else: a concrete driver closes its own channel.
    ~CANdriver() override;

    CANdriver(const CANdriver&) = delete;
    CANdriver& operator=(const CANdriver&) = delete;

    /// Opens the driver's channel.
    ///
    /// @param speed   bit rate; its values are the concrete driver's
    /// @param mode    identifier format; its values are the concrete driver's
    /// @param port    channel number; its values are the concrete driver's
    /// @param silent  true to listen without acknowledging frames, where the driver can
    /// @return the concrete driver's result
    virtual int open(unsigned int speed, unsigned int mode, unsigned int port, bool silent) = 0;

    /// Closes the driver's channel.
    virtual void close() = 0;

    /// Fetches one waiting frame, without blocking.
    ///
    /// @param[out] ID      the frame's COB-ID
    /// @param[out] length  number of data bytes that the frame carries
    /// @param[out] data    room for 8 bytes; at most 8 are written
    /// @retval 0      a frame has been stored
    /// @retval 1      no frame is waiting
    /// @retval other  an error, by the concrete driver's own code
    virtual int read(unsigned int& ID, unsigned int& length, unsigned char* data) = 0;

    /// Sends one frame.
    ///
    /// @param cobid   the frame's COB-ID
    /// @param length  number of data bytes, 0 to 8
    /// @param data    the @p length data bytes; owned by the caller, not kept
    /// @param flags   0 for a data frame, 2 for a remote request
    /// @return the concrete driver's result; the master ignores it
    virtual int write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) = 0;

    /// Waits for a frame and fetches it.
    ///
    /// The default reads nothing: it fails the assertion "1 == 2" of nodevik/candriver, which ends the
    /// process. A driver that cannot block must not answer with a made-up result. The same holds for a driver
    /// whose own blocking read has other parameters and so does not override this one.
    ///
    /// @param[out] ID      the frame's COB-ID
    /// @param[out] length  number of data bytes that the frame carries
    /// @param[out] data    room for 8 bytes
    /// @param timeout      longest wait, in the concrete driver's unit
    /// @return as read()
    virtual int read_wait(unsigned int& ID, unsigned int& length, unsigned char* data, long timeout);

    /// Tells how many errors the driver has counted.
    ///
    /// @param[out] txErr  transmit errors
    /// @param[out] rxErr  receive errors
    /// @param[out] ovErr  overruns
    /// @return the concrete driver's result
    virtual int read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) = 0;

    /// Clears the receive error condition.
    virtual void reset_rx_errors() = 0;

    /// Clears the transmit error condition.
    virtual void reset_tx_errors() = 0;

    /// Replaces the debug word.
    ///
    /// Bit value 1: a fatal usage error ends the process. Bit value 4: frames are decoded and printed as they
    /// pass; the master or-s it in when its own debug word has it, and never clears it. Further bits are the
    /// driver's own.
    ///
    /// @param d  the new debug word
    void set_debug(unsigned int d) { driver_debug = d; }

    /// The debug word; 1 after construction.
    unsigned int get_debug() const { return driver_debug; }

protected:
    unsigned char candata[8] = {};     ///< payload of the last frame that the driver handled
    unsigned long timestamp = 0;       ///< time stamp of the last received frame, in the driver's own unit
    int isopen = 0;                    ///< non-zero while the channel is open
    unsigned int driver_debug = 1;     ///< debug word, see set_debug()
    unsigned int RXerrors = 0;         ///< receive errors counted by the driver
    unsigned int TXerrors = 0;         ///< transmit errors counted by the driver
    unsigned int OVerrors = 0;         ///< overruns counted by the driver
    unsigned int frame_type = 0;       ///< identifier format of transmission; its values are the driver's
    unsigned int read_frame_type = 0;  ///< identifier format of the last frame read
};

#endif
