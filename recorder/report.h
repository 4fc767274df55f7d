/// @file
/// What a recording tells as a whole: the page that a person reads first.
///
/// A Report is what remains of a recording of any length in a bounded amount of memory: totals, extremes, curves of a
/// bounded number of points, and the first entries of each list with the number of all. A ReportBuilder makes one from
/// the entries of a recording, in their order.

#ifndef RECORDER_REPORT_H
#define RECORDER_REPORT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "recorder/recording.h"
#include "recorder/spread.h"
#include "recorder/timebuckets.h"
#include "recorder/timeseries.h"

namespace vehicle_recorder {

/// What can be wrong with the reply to a frame.
enum class Fault {
    lost,    ///< not a byte of it came, though the line stayed open
    late,    ///< its last byte came when the next frame was out already
    cut,     ///< fewer bytes came than a reply has
    garbled  ///< bytes that belong to no reply stand ahead of it, or in it
};

/// How often each fault occurred.
struct FaultCounts {
    static constexpr std::size_t kinds = 4;

    std::array<std::uint64_t, kinds> counts = {};

    /// How often @p fault occurred.
    std::uint64_t operator[](Fault fault) const { return counts[static_cast<std::size_t>(fault)]; }

    /// Counts one more.
    void add(Fault fault) { ++counts[static_cast<std::size_t>(fault)]; }

    /// How often any of them occurred.
    std::uint64_t all() const;

    /// Adds later ones.
    void absorb(const FaultCounts& later);
};

/// A list of which only the first entries are kept.
template <typename Entry>
struct FirstOf {
    static constexpr std::size_t most = 50;  ///< how many are kept

    std::vector<Entry> entries;  ///< the first of them
    std::uint64_t count = 0;     ///< how many there were

    /// Counts an entry, and keeps it if there is room.
    void add(const Entry& entry) {
        ++count;
        if (entries.size() < most) {
            entries.push_back(entry);
        }
    }
};

/// One reply that was not as it should be.
struct FaultyReply {
    std::int64_t time_us = 0;                   ///< when the frame went out, since the start
    Fault fault = Fault::lost;                  ///< what was wrong
    bool late = false;                          ///< whether it was late besides
    std::size_t bytes = 0;                      ///< how many bytes came
    std::optional<std::int64_t> delay_us = {};  ///< from the frame to the first of them
};

/// Something that the recorder noted.
struct Note {
    std::int64_t time_us = 0;  ///< since the start
    std::string text;          ///< as the recording has it
};

/// What the last frame left the vehicle with.
enum class Rest {
    no_frame,   ///< no frame was sent at all
    neutral,    ///< the neutral frame: at rest
    motor_off,  ///< another frame with the motor off
    motor_on,   ///< the motor on, without throttle
    driving,    ///< the motor on, with throttle
};

/// A time in which the program had the line open.
struct Opening {
    std::int64_t opened_us = 0;                  ///< since the start
    std::optional<std::int64_t> closed_us = {};  ///< none when the recording ends before
    std::string settings = {};   ///< as the recording has them: "9600 8N1 none"; empty when unknown
    std::uint64_t frames = 0;    ///< sent meanwhile
    std::uint64_t replies = 0;   ///< frames that were answered with at least a byte
    Rest rest = Rest::no_frame;  ///< what its last frame left the vehicle with
    std::uint8_t throttle = 0;   ///< set-point of that frame
    bool ended_neutral = false;  ///< the neutral frame was the last of its bytes, wherever frames began
};

/// Closings that left the vehicle with its motor on, though the program went on later.
struct LeftOn {
    std::uint64_t count = 0;  ///< how many
    Opening first = {};       ///< the first of the openings that ended so
};

/// Who sent the last frame.
enum class LastSender {
    program,  ///< the recorded program, or the guard that it has
    recorder  ///< the recorder, since the program was gone without a neutral frame
};

/// How the recorded program ended.
struct ProgramEnd {
    bool known = false;              ///< the recording tells of it
    std::optional<int> status = {};  ///< exit status
    std::optional<int> signal = {};  ///< the signal that ended it
};

/// How a recording ended.
struct Ending {
    bool whole = false;                       ///< the recording was ended in order, not cut
    Rest rest = Rest::no_frame;               ///< what the vehicle was left with
    LastSender sender = LastSender::program;  ///< who sent that
    std::array<std::uint8_t, 4> frame = {};   ///< the last frame, unless there was none
    ProgramEnd program;                       ///< what became of the program
    bool line_lost = false;                   ///< the line itself went away
    bool line_refused = false;                ///< the line could not be opened when the program wanted it
    std::uint64_t bytes_not_recorded = 0;     ///< passed on, but not written down
};

/// A recording as a whole. Times are microseconds since its start.
struct Report {
    std::string file;              ///< its name, without directories
    RecordingHeader header;        ///< how it begins
    std::int64_t length_us = 0;    ///< up to the last entry
    std::uint64_t file_bytes = 0;  ///< size of the file

    std::uint64_t frames = 0;              ///< whole frames sent
    std::uint64_t replies = 0;             ///< frames that were answered with at least a byte
    std::uint64_t good_replies = 0;        ///< of these, whole and in time
    std::uint64_t bytes_sent = 0;          ///< to the vehicle
    std::uint64_t bytes_received = 0;      ///< from the vehicle
    FaultCounts faults;                    ///< what was wrong with replies
    std::uint64_t frames_out_of_step = 0;  ///< frames that do not end with a motor command
    std::uint64_t stray_bytes = 0;         ///< bytes from the vehicle that answer no frame
    std::int64_t silence_us = 0;  ///< the longest time without a byte from the vehicle while frames were sent
    std::int64_t silence_from_us = 0;  ///< when it began

    Spread cycle;  ///< from one frame to the next while the line is open
    Spread delay;  ///< from a frame to the first byte of its reply

    Series throttle;                                       ///< set-points, 0 to 255
    Series direction;                                      ///< 103 is straight ahead
    Series bucket;                                         ///< 110 is rest
    Series motor;                                          ///< 1 on, 0 off
    Series speed;                                          ///< rpm
    Series voltage;                                        ///< as the panel shows it
    Series current;                                        ///< as the panel shows it
    Series capacity;                                       ///< Ah
    Series cycle_ms;                                       ///< cycle time
    Series delay_ms;                                       ///< reply delay
    TimeBuckets<FaultCounts> faults_over_time{most_bars};  ///< when they occurred

    FirstOf<FaultyReply> faulty;
    FirstOf<Opening> openings;
    LeftOn left_on;  ///< the last frame of all is not meant: Ending tells of it
    FirstOf<Note> notes;
    std::uint64_t unread_lines = 0;       ///< lines of the file that are no entries
    std::uint64_t first_unread_line = 0;  ///< number of the first of them, counted from 1
    Ending ending;

    static constexpr std::size_t most_bars = 120;  ///< bars that a page's width has room for
};

}  // namespace vehicle_recorder

#endif
