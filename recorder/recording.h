/// @file
/// The recording of what passed on the vehicle's line: a text, a line for each thing that happened.
///
///     # vehicle-recorder recording 1
///     # program vehicle-recorder 2.1.0
///     # device /dev/ttyUSB0
///     # start 2026-11-22T03:25:03.123456+02:00 monotonic 1234.567890
///     0.000000 open
///     0.000100 line 9600 8N1 none
///     0.310000 > 00676e50
///     +12041 < 7fa0b0fe
///     +13988 < a1b1
///     5.100000 close
///     5.200000 note the program ended with status 0
///     5.300000 end
///
/// A line begins with its time: seconds since the start on the monotonic clock, six digits behind the point; or a plus
/// sign and microseconds since the last line that has its seconds. The latter is how bytes from the vehicle stand
/// within a second after such a line, so that most of them tell how long after the frame they came, and a recording of a
/// whole shift stays small.
///
/// | Word   | What happened                                                                       |
/// |--------|-------------------------------------------------------------------------------------|
/// | open   | the program opened the line                                                         |
/// | line   | the line has this speed, format and flow control from here on                       |
/// | >      | bytes from the program to the vehicle, as they were passed on, in hexadecimal       |
/// | <      | bytes from the vehicle to the program                                               |
/// | close  | the program closed the line                                                         |
/// | note   | something else, in words                                                            |
/// | end    | the recording was ended in order: one without this line was cut                     |
///
/// Texts (device, program, note) stand on one line: a control character and a backslash are written as `\xHH`.

#ifndef RECORDER_RECORDING_H
#define RECORDER_RECORDING_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vehicle_recorder {

/// The format that is written, and the newest that is read.
inline constexpr unsigned recording_format = 1;

/// What an entry tells.
enum class EntryKind {
    open,      ///< the program opened the line
    line,      ///< the line's settings from here on
    sent,      ///< bytes from the program to the vehicle
    received,  ///< bytes from the vehicle to the program
    close,     ///< the program closed the line
    note,      ///< something else, in words
    end        ///< the recording was ended in order
};

/// What a line is set to.
struct LineSettings {
    unsigned speed_baud = 0;     ///< in both directions; 0 hangs up
    std::string format = "8N1";  ///< data bits 5 to 8, parity N, E or O, stop bits 1 or 2
    std::string flow = "none";   ///< flow control: none, rtscts, xonxoff or both

    bool operator==(const LineSettings&) const = default;
};

/// One thing that happened.
struct Entry {
    std::uint64_t time_us = 0;        ///< since the start, on the monotonic clock
    EntryKind kind = EntryKind::end;  ///< tells which of the following counts
    std::vector<std::uint8_t> bytes;  ///< sent, received: 1 or more
    LineSettings settings;            ///< line
    std::string text;                 ///< note

    bool operator==(const Entry&) const = default;
};

/// How a recording begins.
struct RecordingHeader {
    std::string program;             ///< who wrote it: name and version
    std::string device;              ///< the real line
    std::int64_t wall_us = 0;        ///< the start: microseconds since 1970-01-01T00:00:00Z
    int utc_offset_min = 0;          ///< local time less UTC at the start
    std::uint64_t monotonic_us = 0;  ///< the start on CLOCK_MONOTONIC

    bool operator==(const RecordingHeader&) const = default;
};

/// The header of a recording that starts now, in the local time zone.
/// @param device  path of the real line
RecordingHeader header_of_now(const std::string& device);

/// Now on CLOCK_MONOTONIC, in microseconds.
std::uint64_t monotonic_now_us();

/// A moment as it is read and written: 2026-11-22T03:25:03.123456+02:00 (RFC 3339).
/// @param wall_us         microseconds since 1970-01-01T00:00:00Z
/// @param utc_offset_min  local time less UTC, in minutes
std::string wall_clock_text(std::int64_t wall_us, int utc_offset_min);

/// Seconds with six digits behind the point: 0.310000.
std::string seconds_text(std::uint64_t time_us);

/// Reads seconds: digits, and behind a point up to six more.
/// @return microseconds; none when @p text is no such number, or is beyond a hundred years
std::optional<std::uint64_t> read_seconds(std::string_view text);

/// The lines of the header.
std::string text_of(const RecordingHeader& header);

/// Writes entries as lines, one after the other.
class EntryFormatter {
public:
    /// Appends the line of @p entry to @p text.
    void append(std::string& text, const Entry& entry);

private:
    std::optional<std::uint64_t> full_time_us_;  // of the last line that has its seconds
};

/// Reads lines as entries, one after the other.
class EntryParser {
public:
    /// Reads a line.
    /// @param line   without its line end
    /// @param entry  gets what it tells; its room is used again. Undefined when the line is none
    /// @return       whether it is an entry's line
    bool parse(std::string_view line, Entry& entry);

private:
    std::optional<std::uint64_t> full_time_us_;
};

/// Reads the lines of a header, one after the other.
class HeaderParser {
public:
    /// What a line of the header is.
    enum class Line {
        header,  ///< one of the header's, also one of a kind that this version does not know
        newer,   ///< the first line of a newer format
        none     ///< none of a recording's header
    };

    /// Reads a line that begins with a number sign.
    Line parse(std::string_view line);

    /// Whether the first line has come.
    bool has_begun() const { return has_format_; }

    /// Whether all that a header must have has come.
    bool is_whole() const { return has_format_ && has_program_ && has_device_ && has_start_; }

    /// What has come so far.
    const RecordingHeader& header() const { return header_; }

private:
    bool parse_start(std::string_view text);

    RecordingHeader header_;
    bool has_format_ = false;
    bool has_program_ = false;
    bool has_device_ = false;
    bool has_start_ = false;
};

}  // namespace vehicle_recorder

#endif
