/// @file
/// Logs of a bus in candump's format: one line of text for each frame.
///
///     (1436509052.249713) can0 185#1122334455667788
///      |                  |    |   the data bytes, two hexadecimal digits each; none: nothing behind the '#'
///      |                  |    the identifier: 3 digits for 11 bits, 8 for 29
///      |                  the name of the interface
///      seconds since 1970, UTC, and microseconds
///
/// A remote request is `123#R8`, 8 being the length that is asked for, left out when it is 0. These are the logs that
/// `candump -L` and `candump -l` of can-utils write; canplayer, Wireshark, SavvyCAN and others read them, and theirs are
/// read here.
///
/// Written are lines that all of them read: one blank between the fields, six digits of microseconds, no letter for the
/// direction and no other lines. Read is more: any number of digits of a second, the letters R and T (received, sent),
/// small hexadecimal digits, dots between bytes. Lines that hold no frame of a classic bus are passed over and counted by
/// kind, so that nothing is missing without a word.

#ifndef NODEVIK_RECORDING_FRAMELOG_H
#define NODEVIK_RECORDING_FRAMELOG_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include "nodevik/util/export.h"

/// A frame as a log holds it.
struct NODEVIK_EXPORT LogFrame {
    /// Which way a frame went, if the log says so.
    enum class Direction : unsigned char { unknown, received, sent };

    /// Most characters of an interface's name, as on Linux.
    static constexpr std::size_t longest_name = 15;

    std::uint64_t time_us = 0;                  ///< microseconds since 1970, UTC
    std::array<char, longest_name + 1> name{};  ///< name of the interface, with its end
    unsigned int identifier = 0;                ///< 11 or 29 bits
    bool extended = false;                      ///< the identifier has 29 bits
    bool remote = false;                        ///< a remote request: no data, `length` is what is asked for
    unsigned int length = 0;                    ///< 0 to 8
    std::array<unsigned char, 8> data{};        ///< the data; bytes behind the length are 0
    Direction direction = Direction::unknown;   ///< which way it went; not written

    /// Sets the name of the interface. What is longer than an interface's name may be is cut; blanks, and a name of no
    /// characters, which no reader takes, become '_'.
    void set_name(const char* interface_name);

    /// Equal in all that a log holds, the direction left aside.
    bool same_frame(const LogFrame& other) const;
};

/// What a line of a log is.
enum class LogLine : unsigned char {
    frame,        ///< a frame
    empty,        ///< nothing but blanks
    error_frame,  ///< an error frame, which the controller made up and the bus never saw
    fd_frame,     ///< a frame of CAN FD or CAN XL, which is no frame of a classic bus
    drop_count,   ///< candump tells that frames were lost
    foreign       ///< anything else: no line of such a log, or a torn one
};

/// Takes a line apart.
///
/// @param text        the line without its end; no terminator needed
/// @param length      its characters
/// @param[out] frame  the frame, when the line holds one; else unspecified
/// @return            what it is
NODEVIK_EXPORT LogLine parse_log_line(const char* text, std::size_t length, LogFrame& frame);

/// Most characters of a line that is written, its end included.
inline constexpr std::size_t longest_log_line = 80;

/// Writes a frame as a line.
///
/// @param frame  the frame; of a length over 8 the first 8 bytes
/// @param room   takes the line and its line feed, no terminator
/// @return       number of characters
NODEVIK_EXPORT std::size_t format_log_line(const LogFrame& frame, std::array<char, longest_log_line>& room);

/// Reads a log, frame after frame.
class NODEVIK_EXPORT FrameLogReader {
public:
    /// Lines that held no frame.
    struct PassedOver {
        std::uint64_t error_frames = 0;  ///< error frames
        std::uint64_t fd_frames = 0;     ///< frames of CAN FD or CAN XL
        std::uint64_t drop_counts = 0;   ///< lines that tell of lost frames
        std::uint64_t foreign = 0;       ///< lines that are none of such a log, or torn
    };

    /// Called for each foreign line.
    /// @param line    its number, from 1 on
    /// @param reason  what is wrong with it
    using ForeignLine = std::function<void(std::uint64_t line, const char* reason)>;

    /// Opens nothing.
    FrameLogReader() = default;

    /// Closes the log.
    ~FrameLogReader();

    FrameLogReader(const FrameLogReader&) = delete;
    FrameLogReader& operator=(const FrameLogReader&) = delete;

    /// Opens a log; an earlier one is closed.
    ///
    /// @param path  name of the file
    /// @retval 0   it is open
    /// @retval -1  it is not, and errno tells why
    int open(const char* path);

    /// Reads from a descriptor that is open already, such as a pipe's; an earlier log is closed.
    ///
    /// Of one that does not block (O_NONBLOCK), next() fails with EAGAIN while nothing has come; the call after it goes on.
    ///
    /// @param descriptor  closed with the log
    void adopt(int descriptor);

    /// Closes the log.
    void close();

    /// Begins from the front again, with the counts at 0.
    ///
    /// @retval 0   done
    /// @retval -1  no log is open, or the file cannot be read from the front (a pipe); errno tells why
    int rewind();

    /// Reads up to the next frame.
    ///
    /// A last line without a line feed is torn: its frame may have been longer, so it is foreign.
    ///
    /// @param[out] frame  the frame
    /// @retval 0   a frame has been stored
    /// @retval 1   the log is at its end
    /// @retval -1  it cannot be read, and errno tells why; EBADF when no log is open
    int next(LogFrame& frame);

    /// Number of the line that was read last, from 1 on.
    std::uint64_t line() const { return line_number; }

    /// What was passed over so far.
    const PassedOver& passed_over() const { return counts; }

    /// Sets who is told of foreign lines; may be empty.
    void set_foreign_line(ForeignLine callback) { foreign_line = std::move(callback); }

private:
    NODEVIK_LOCAL int fill();
    NODEVIK_LOCAL void pass_over(const char* reason);

    // A line of a log is short. A longer one is foreign, however long, and read over piece by piece.
    static constexpr std::size_t longest_line = 4096;

    int file = -1;
    std::array<char, 4 * longest_line> buffer{};
    std::size_t begin = 0;  // of what is still to be read
    std::size_t end = 0;
    bool at_end = false;
    std::uint64_t line_number = 0;
    PassedOver counts;
    ForeignLine foreign_line;
};

/// Writes a log. Frames are collected and written together, so that a frame costs next to nothing.
///
/// What is in the file are whole lines, also when the disk is full: of a block that the disk took in part, the torn line
/// is cut off again.
class NODEVIK_EXPORT FrameLogWriter {
public:
    /// Opens nothing.
    FrameLogWriter() = default;

    /// Writes what is collected and closes the log.
    ~FrameLogWriter();

    FrameLogWriter(const FrameLogWriter&) = delete;
    FrameLogWriter& operator=(const FrameLogWriter&) = delete;

    /// Creates a log, or empties one that is there; an earlier one is closed.
    ///
    /// @param path  name of the file
    /// @retval 0   it is open
    /// @retval -1  it is not, and errno tells why
    int open(const char* path);

    /// Writes what is collected and closes the log.
    ///
    /// @retval 0   all frames are in the file
    /// @retval -1  some are not, see lost(), or the system told an error at closing; errno tells why
    int close();

    /// Whether a log is open.
    bool is_open() const { return file >= 0; }

    /// Adds a frame. It is in the file after the next flush(), which a full buffer calls for.
    ///
    /// @retval 0   it is collected
    /// @retval -1  there is no room and it is lost: the disk takes nothing, or no log is open; errno tells why
    int append(const LogFrame& frame);

    /// Writes what is collected. What the disk does not take stays collected, and is tried again with the next call.
    ///
    /// @retval 0   all of it is in the file
    /// @retval -1  it is not, and errno tells why
    int flush();

    /// Bytes in the file.
    std::uint64_t size() const { return written; }

    /// Frames that are lost.
    std::uint64_t lost() const { return lost_frames; }

private:
    NODEVIK_LOCAL bool cut_to(std::uint64_t length);

    int file = -1;
    std::array<char, 65536> buffer{};
    std::size_t filled = 0;
    std::uint64_t written = 0;
    std::uint64_t lost_frames = 0;
};

#endif
