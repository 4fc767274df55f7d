/// @file
/// The vehicle's side of the tap: the serial line itself.

#ifndef RECORDER_REALLINE_H
#define RECORDER_REALLINE_H

#include <termios.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "recorder/recording.h"

namespace vehicle_recorder {

/// What of a terminal's attributes is followed: speed, stop bits, flow control by wires, and whether the modem lines fall
/// at the end. What is done to the bytes (input, output and local modes) is done once, at the program's own end.
struct FollowedSettings {
    speed_t speed = B0;    ///< code of the speed, termios(3)
    tcflag_t control = 0;  ///< of the control modes CSTOPB, CRTSCTS and HUPCL

    bool operator==(const FollowedSettings&) const = default;
};

/// What of @p attributes is followed.
FollowedSettings followed(const termios& attributes);

/// The settings of a line as a person reads them.
/// @param attributes  of the program's end of the line
LineSettings settings_of(const termios& attributes);

/// Whether the device could be a serial line: it is there, may be read and written, and is a terminal. It is not opened
/// for that: opening a line raises its modem lines, which resets some controllers.
/// @return an empty text, or what is wrong
std::string why_no_line(const std::string& path);

/// A serial line that is open or not. No call waits for it.
class RealLine {
public:
    /// @param path  of the device
    explicit RealLine(std::string path) : path_(std::move(path)) {}
    ~RealLine();
    RealLine(const RealLine&) = delete;
    RealLine& operator=(const RealLine&) = delete;

    /// Opens it, raw, at the speed that it has.
    /// @return 0, or the reason (errno): EBUSY also when another recorder has it open
    int open();

    /// Closes it.
    /// @param restore  gives it back the attributes that it had before it was opened
    void close(bool restore);

    bool is_open() const { return descriptor_ >= 0; }

    /// For poll(2); -1 while it is closed.
    int descriptor() const { return descriptor_; }

    const std::string& path() const { return path_; }

    /// Sets what is followed, at once.
    void set(const FollowedSettings& settings) const;

    /// Whether all that was written has left it, as far as its driver tells.
    bool is_drained() const;

    /// Throws away what was written and is not sent yet.
    void discard_unsent() const;

    /// How a call went.
    struct Moved {
        std::size_t count = 0;  ///< bytes read or taken
        int reason = 0;         ///< not 0: the line is lost, errno
    };

    /// Reads what has come.
    Moved read(std::span<std::uint8_t> room) const;

    /// Writes as much as it takes.
    Moved write(std::span<const std::uint8_t> bytes) const;

private:
    std::string path_;
    int descriptor_ = -1;
    termios earlier_ = {};
};

}  // namespace vehicle_recorder

#endif
