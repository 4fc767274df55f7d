/// @file
/// One raw serial line of the Linux terminal interface.
///
/// A line is opened as 8 data bits, no parity, one stop bit, no flow control, without any processing of the
/// bytes in either direction (termios(3)). The descriptor is non-blocking and the line's minimum count and
/// time-out are 0, so no call ever waits: a read returns at once with what has arrived, or with 0 bytes.
/// Callers poll.
///
/// There are two ways of reading. `read()` and `read(char*, int)` take what has arrived as a plain run of
/// bytes. `readuntil` and `readuntiltext` gather bytes over as many calls as it takes into a record that ends
/// at a chosen byte:
///
///     arrived: A B | C \n D E | F \n        calls of readuntil('\n', 1, 100), "|" parts what each found
///     results:  0  |    1     |  1          records "A B C \n" and "D E F \n"
///
/// Bytes behind a record are carried over to the next call. A call that finds nothing new drops them,
/// together with a record begun: a record is only ever completed from data that keeps arriving.
///
/// A line that cannot be opened or read is of no use to the programs built on this class, so these failures
/// print a line and end the process; only a failed write is left to the caller. The main thread ends it
/// through exit(3). Any other thread flushes the output and ends it at once: the exit handlers would take
/// away what the main thread still works with.

#ifndef NODEVIK_UTIL_SERIAL_H
#define NODEVIK_UTIL_SERIAL_H

#include <termios.h>

#include <atomic>
#include <string_view>
#include <vector>

#include "nodevik/util/export.h"

/// A serial line with its receive buffer.
///
/// Life: closed, `open`, `close`, closed. The destructor closes an open line too, but leaves the device with
/// the attributes that `open` gave it.
///
/// One thread at a time reads and writes. The descriptor is atomic, so that another thread may open and close
/// the line as long as the two agree on when: @see ControlThread.
class NODEVIK_EXPORT serial {
public:
    /// A closed line with buffers of 100 bytes.
    serial();

    /// A closed line with buffers of @p s bytes; a negative size counts as 0.
    explicit serial(int s);

    /// Closes an open line, without restoring the device's attributes.
    ~serial();

    serial(const serial&) = delete;
    serial& operator=(const serial&) = delete;

    /// Chooses what is traced on standard output.
    ///
    /// Each traced byte is printed as "%2x " from the byte taken as a signed character: 0x41 prints as "41 ",
    /// 0xA5 as "ffffffa5 ". No newline follows.
    ///
    /// @param mode  sum of 1 (bytes received) and 2 (bytes written); 0, as from the start, for no trace
    void debugmode(unsigned int mode);

    /// Opens and configures a device; the new attributes hold at once.
    ///
    /// Does not check whether the line is open already: a second open loses the first descriptor.
    ///
    /// Ends the process with status 1 when the device cannot be opened ("Unable to open serial port: - " and
    /// the system's error text on standard error), and when the speed is none of the five ("Unsupported
    /// SerialPort Speed!").
    ///
    /// @param port   path of the device, e.g. "/dev/ttyS0"
    /// @param speed  9600, 19200, 38400, 57600 or 115200 baud, for both directions
    /// @return the descriptor; 0, if that number was free, is indistinguishable from a closed line
    int open(char* port, int speed);

    /// Reads what has arrived, at most @p count bytes and at most the buffer's size, and copies it to @p
    /// data.
    ///
    /// Leaves `len` as it is; overwrites `buffer`. A failed read prints "read() failed!" and ends the process
    /// with status 0.
    ///
    /// @param data   room for @p count bytes
    /// @param count  largest number of bytes wanted
    /// @return number of bytes received, 0 when nothing was waiting
    int read(char* data, int count);

    /// Reads what has arrived, at most the buffer's size, into `buffer`, and stores the count in `len`.
    ///
    /// The bytes of `buffer` behind the count keep their earlier values. A failed read prints "SerialPort
    /// Read failed!" and ends the process with status 0.
    ///
    /// @return number of bytes received, 0 when nothing was waiting
    int read();

    /// Reads once and goes on gathering a record that ends with the byte @p end.
    ///
    /// An end byte seen while fewer than @p minlen bytes are gathered is an ordinary byte of the record. A
    /// record that reaches @p maxlen bytes (or the room in the buffer) without its end byte is dropped
    /// together with all else that has been read. A failed read prints "Serialport read failed!" and ends the
    /// process with status 0.
    ///
    /// @param end     last byte of a record
    /// @param minlen  least length of a record, its end byte included
    /// @param maxlen  greatest length of a record, its end byte included
    /// @return 1 when a record stands in `buffer`, followed by a NUL byte, with its length in `len`;
    ///         otherwise 0
    int readuntil(char end, int minlen, int maxlen);

    /// Reads once and goes on gathering a record that ends with the last character of the text @p end.
    ///
    /// The text's earlier characters decide nothing: a record is complete at its last character. Otherwise as
    /// `readuntil`, but `len` keeps its value. An empty text prints "serial::readuntiltext: tekstin pituus
    /// outo!" and nothing is read.
    ///
    /// @param end     text whose last character ends a record
    /// @param minlen  least length of a record, its end byte included
    /// @param maxlen  greatest length of a record, its end byte included
    /// @return 1 when a record stands in `buffer`, followed by a NUL byte; otherwise 0
    int readuntiltext(char* end, int minlen, int maxlen);

    /// Writes bytes to the line, without waiting.
    ///
    /// A failed write prints "write() of %i bytes failed!" with @p count; the process goes on.
    ///
    /// @param data   the bytes
    /// @param count  their number
    /// @return number of bytes written, which may be fewer than @p count, or negative when the write failed
    int write(char* data, int count);

    /// Gives the device back the attributes that it had before `open`, at once, and closes it.
    ///
    /// Does not check whether the line is open: closing a closed line does the same to descriptor 0.
    void close();

    /// Prints the received bytes: "Read lengh=%i " with `len`, the `len` first bytes of `buffer` as
    /// hexadecimal numbers on the same line, and the same bytes as characters on the next; then flushes
    /// standard output.
    void print();

private:
    // What the pointers below point to, so both stand before them; one byte more is for the NUL of a full
    // record.
    std::vector<char> receive_storage;
    std::vector<char> scratch_storage;

public:
    int len = 0;  ///< number of bytes of the last `read()`, or length of the last record of `readuntil`
    char* const buffer;  ///< receive buffer, owned by the line; zeros at first

private:
    struct Gathered {
        bool complete;
        int length;
    };

    NODEVIK_LOCAL Gathered gather(char end, int minlen, int maxlen);
    NODEVIK_LOCAL void carry_over(int from, int until);
    NODEVIK_LOCAL void trace(unsigned int what, std::string_view bytes) const;

    std::atomic<int> fd = 0;  // 0: no device is open; hands an opened device over to the thread that reads it
    termios options = {};
    termios options_old = {};  // the device's own attributes, for close
    const int bufsize;
    int srcbufpos = 0;   // bytes at the start of tempbuffer carried over to the next record read
    int destbufpos = 0;  // bytes in buffer of the record begun
    char* const tempbuffer;
    unsigned int debug = 0;
};

#endif
