/// @file
/// Reads a recording from a file, entry by entry.

#ifndef RECORDER_RECORDINGREADER_H
#define RECORDER_RECORDINGREADER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "program/file.h"
#include "recorder/recording.h"

namespace vehicle_recorder {

/// What is wrong with a recording that can be used nevertheless.
struct Damage {
    bool is_cut = false;            ///< the file ends within a line, or without the entry `end`
    std::uint64_t cut_line = 0;     ///< number of the unfinished last line; 0 when the last line is whole
    std::uint64_t passed_over = 0;  ///< lines that are no entries, the unfinished last one not among them
    std::uint64_t first_line = 0;   ///< number of the first of these; 0 when there is none

    bool operator==(const Damage&) const = default;
};

/// Streams a recording. The memory that it takes does not grow with the file.
///
///     RecordingReader reader(path);
///     Entry entry;
///     while (reader.next(entry)) {
///         ...
///     }
///     reader.damage();  // what was passed over
///
/// Every failure is a program::Failure with the status program::ExitStatus::bad_file, and a message that begins with
/// the file's name.
class RecordingReader {
public:
    static constexpr std::size_t longest_line = 1'048'576;  ///< bytes; a longer one is no entry

    /// Whether a file is still being written.
    enum class Growth {
        done,    ///< its end is the recording's
        goes_on  ///< more may come behind what is there
    };

    /// Opens a file and reads its header.
    /// @param path    name of the file
    /// @param growth  whether it is still being written
    /// @throws program::Failure  it cannot be read, is no recording, ends within its header, or has a newer format
    explicit RecordingReader(const std::string& path, Growth growth = Growth::done);

    /// Name of the file.
    const std::string& path() const { return path_; }

    /// How the recording begins.
    const RecordingHeader& header() const { return header_.header(); }

    /// Reads the next entry. Lines that are none are passed over.
    /// @param entry  gets it; its room is used again
    /// @return false at the end: the file's, or the entry `end`, which is given out like every other. Of a file that grows
    ///         the next call reads on there
    /// @throws program::Failure  the file cannot be read on, or its time runs backwards
    bool next(Entry& entry);

    /// Whether the entry `end` has been read.
    bool has_ended() const { return ended_; }

    /// Number of the line of the last entry, from 1 on.
    std::uint64_t line() const { return line_; }

    /// What is wrong with what was read so far. That the file is cut is known at its end; one that grows is not.
    const Damage& damage() const { return damage_; }

    /// What is to be told of the damage, as a line without a line end; empty when there is none.
    std::string damage_text() const;

    /// How many bytes were read.
    std::uint64_t position() const { return position_; }

    /// How many bytes the file had when it was opened; 0 for a pipe.
    std::uint64_t size() const { return size_; }

private:
    enum class LineKind { whole, too_long, unfinished, none };

    void read_header();
    bool header_goes_on();
    LineKind next_line(std::string_view& line);
    LineKind skip_line();
    void read_to_end();
    void pass_over();
    bool fill();
    [[noreturn]] void fail(const std::string& what) const;

    std::string path_;
    bool grows_;
    program::File file_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;  // of what is not read yet
    std::size_t end_ = 0;
    HeaderParser header_;
    EntryParser parser_;
    bool skips_ = false;  // the rest of a line that is too long
    bool ended_ = false;  // by the entry `end`
    std::uint64_t last_us_ = 0;
    std::uint64_t line_ = 0;
    std::uint64_t position_ = 0;
    std::uint64_t size_ = 0;
    Damage damage_;
};

}  // namespace vehicle_recorder

#endif
