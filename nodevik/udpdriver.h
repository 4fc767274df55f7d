/// @file
/// A CAN driver that carries CAN frames in UDP datagrams instead of on a bus.
///
/// One frame travels in one datagram of 16 bytes, integers little-endian:
///
/// | Offset | Size | Field       | Sent                                   | Received                   |
/// |--------|------|-------------|----------------------------------------|----------------------------|
/// | 0      | 4    | identifier  | as given                               | the low 11 bits (& 0x7FF)  |
/// | 4      | 4    | data length | as given                               | the low 5 bits (& 0x1F)    |
/// | 8      | 8    | data        | always 8 bytes, whatever the length    | always 8 bytes             |
///
/// No frame type, remote-request flag or time stamp travels along: a remote request arrives at the peer as a
/// data frame of the same length. Frames are received on a socket bound to a port of this program and sent
/// from another one, so a peer does not answer to the address that a frame came from, but to that port:
///
///     udpDriver driver;
///     driver.open(5000, 0, 0);                                                  // frames come to port 5000
///     driver.endpoint().set_client_destination_address(127, 0, 0, 1, 5001);     // and go to the peer
///     master.load_driver(driver);

#ifndef NODEVIK_UDPDRIVER_H
#define NODEVIK_UDPDRIVER_H

#include <array>

#include "nodevik/candriver.h"
#include "nodevik/util/export.h"
#include "nodevik/util/udpserver.h"

/// CAN frames over UDP. Decodes no frame and counts no errors; one thread per driver.
class NODEVIK_EXPORT udpDriver : public CANdriver {
public:
    /// Opens nothing.
    udpDriver() = default;

    /// Sends the stop command when open (see close()), then closes the sockets.
    ~udpDriver() override;

    udpDriver(const udpDriver&) = delete;
    udpDriver& operator=(const udpDriver&) = delete;

    /// Binds the receiving socket and creates the sending one. The sockets of an earlier open stay open.
    ///
    /// Prints "Trying to open CAN channel with 11-bit mode" for mode 0, "Trying to open CAN channel with
    /// 28-bit mode" for mode 1, nothing for others; then the endpoint's own lines.
    ///
    /// @param speed  local UDP port to receive on, on every address; 0 lets the system pick one
    /// @param mode   0 standard, 1 extended identifiers; only kept
    /// @param port   not used
    /// @return       0, also when the endpoint reported a failure
    int open(unsigned speed, unsigned mode, unsigned port);

    /// The driver interface's open: the same as the three-argument one.
    ///
    /// @param silent  not used: there is no bus to be silent on
    int open(unsigned int speed, unsigned int mode, unsigned int port, bool silent) override;

    /// Sends the NMT command "stop" to all nodes (identifier 0, data 02 00) and counts as closed from then
    /// on. The sockets stay open until the driver is destroyed.
    void close() override;

    /// Takes one waiting frame, without blocking.
    ///
    /// @p ID, @p length and @p data are set in every case; when nothing was taken they show the frame that
    /// was last received or written. A datagram of more than 16 bytes counts by its first 16; a shorter one
    /// leaves the rest as the frame before had it. Ends the process with status 1 after "\n\nRead: CAN
    /// connection is not Open !\n" when the driver is closed.
    ///
    /// @param ID      identifier, 0 to 0x7FF
    /// @param length  data length as sent, 0 to 31
    /// @param data    room for 8 bytes; all 8 are written
    /// @return        0 a frame was taken, 1 nothing waits, -1 a socket error (reported)
    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override;

    /// Sends one frame to the endpoint's client destination, without blocking.
    ///
    /// Ends the process with status 1 after "\n\nWrite: CAN connection is not Open !\n" when the driver is
    /// closed.
    ///
    /// @pre endpoint().set_client_destination_address() has been called.
    /// @param cobid   identifier
    /// @param length  data length, 0 to 8
    /// @param data    8 bytes; all of them travel, whatever the length
    /// @param flags   not used: a remote request is sent as the data frame of the same length
    /// @return        0, or -1 after "udpDriver: Write Error !"
    int write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) override;

    /// Clears @p data and returns 0; it neither waits nor receives, @p ID and @p length stay as they are.
    ///
    /// Ends the process with status 1 after "\n\nReadWait: CAN connection is not Open !\n" when the driver is
    /// closed.
    ///
    /// @param data  room for 8 bytes
    /// @return      0
    int read_wait(unsigned int& ID, unsigned int& length, unsigned char* data);

    /// The timed read_wait stays the interface's: it ends the process, for this driver cannot wait.
    using CANdriver::read_wait;

    /// Writes nothing. @return 0
    int read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) override;

    /// Does nothing.
    void reset_rx_errors() override;

    /// Does nothing.
    void reset_tx_errors() override;

    /// The sockets, to set the peer's address (set_client_destination_address) before the first write.
    udpserver& endpoint() { return u; }

    /// The receiving socket, to be waited for with poll(2) together with others; -1 before the first open().
    int descriptor() const { return u.server_socket() != 0 ? u.server_socket() : -1; }

private:
    NODEVIK_LOCAL void prepare_stop();

    std::array<unsigned char, 1600> netdata{};  // the frame last received or written
    udpserver u;
};

#endif
