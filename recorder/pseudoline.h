/// @file
/// The program's side of the tap: a pseudo-terminal (pty(7)) that stands in for the serial line.
///
/// The program opens the near end; the recorder has the far end. What the kernel does not tell of itself is found out
/// here: that the program opened or closed its end (inotify(7), and the hang-up that poll(2) sees), what it set it to,
/// and that it threw away what it had written and was not sent (packet mode, ioctl_tty(2)).
///
/// What a pseudo-terminal cannot pass on: word length and parity, which it keeps at 8 bits and none; the modem lines, for
/// which it has no calls; and when the last byte has left the line, since tcdrain(3) returns at once.

#ifndef RECORDER_PSEUDOLINE_H
#define RECORDER_PSEUDOLINE_H

#include <sys/types.h>
#include <termios.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace vehicle_recorder {

/// A pseudo-terminal whose near end a program takes for its serial line.
class PseudoLine {
public:
    /// Makes the pair. The near end begins raw, without echo, at 9600 baud: bytes that come before the program has set
    /// it are not sent back.
    /// @throws std::system_error  the system has no pseudo-terminal left
    PseudoLine();
    ~PseudoLine();
    PseudoLine(const PseudoLine&) = delete;
    PseudoLine& operator=(const PseudoLine&) = delete;

    /// Path of the near end, /dev/pts/N.
    const std::string& path() const { return path_; }

    /// The far end, for poll(2): POLLPRI when read() has a flush to tell of, POLLHUP while nobody has the near end open.
    int descriptor() const { return far_end_; }

    /// Readable when the near end was opened or closed; -1 if the system gives no such descriptor.
    int openings() const { return watch_; }

    /// Begins to watch for openings and closings. To be called in the process that will look at them.
    void watch_openings();

    /// What happened to the near end since the last look.
    struct Look {
        bool is_open = false;   ///< somebody has it open now
        bool was_left = false;  ///< it was closed by all and opened again since
    };

    /// Looks what happened to the near end.
    Look look();

    /// What read() brought.
    struct Received {
        std::size_t count = 0;  ///< number of bytes
        bool flushed =
            false;  ///< the program threw away what it had written and was not sent: before these bytes
        bool at_end = false;  ///< nobody has the near end open, and all that was written has been read
    };

    /// Reads what the program wrote, without waiting.
    /// @param room  at least 1 byte
    Received read(std::span<std::uint8_t> room) const;

    /// Whether the program threw away what it had written and was not sent, since this or read() was asked last. Takes no
    /// bytes.
    bool take_flush() const;

    /// Whether there is something to read().
    bool has_unread() const;

    /// Writes to the program, without waiting.
    /// @return how many bytes were taken
    std::size_t write(std::span<const std::uint8_t> bytes) const;

    /// What the near end is set to.
    termios attributes() const;

    /// What the near end was set to at first.
    const termios& first_attributes() const { return first_; }

    /// Stops what the program writes: a write that may not wait fails with EAGAIN from now on; or lets it go on.
    /// After this and discard_unread() an opening may have passed without waking up who waits for openings(): look().
    void stop_program(bool stop);

    /// Throws away what was written to the program and not read by it.
    void discard_unread();

    /// Lets go of both ends, as the end of the process does: the near end is hung up.
    void close();

private:
    void at_near_end(const std::function<void(int)>& deed);
    bool take_events();
    int open_near_end() const;

    int far_end_ = -1;
    int watch_ = -1;
    int holders_ = 0;
    termios first_ = {};
    std::string path_;
};

}  // namespace vehicle_recorder

#endif
