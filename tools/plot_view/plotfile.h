/// @file
/// Files with curves in them.

#ifndef TOOLS_PLOT_VIEW_PLOTFILE_H
#define TOOLS_PLOT_VIEW_PLOTFILE_H

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tools/plot_view/plotseries.h"

namespace plot {

/// What was read from a file.
struct Recording {
    PlotData data;
    std::vector<std::string> notes;  ///< what was passed over or changed in the file, a sentence each
};

/// A file cannot be opened, read or written, or there is no curve in it. what() says why, without the file's name.
class BadFile : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Notes lines that were passed over, as one sentence for all of them.
class PassedLines {
public:
    /// Notes a line.
    /// @param number  of the line in its file, from 1
    void add(std::size_t number);

    /// Number of the lines so far.
    std::size_t count() const { return count_; }

    /// "line 7 is ...", "3 lines are ..., the first is line 7"; empty without any.
    /// @param what  what they are, such as "no row of the table"
    std::string sentence(std::string_view what) const;

private:
    std::size_t count_ = 0;
    std::size_t first_ = 0;
};

/// Takes lines off a text.
class Lines {
public:
    /// @param text  outlives this object
    explicit Lines(std::string_view text) : rest_(text) {}

    /// Goes on to the next line.
    /// @return false behind the last one
    bool next();

    /// The line, without its end ("\n" or "\r\n").
    std::string_view line() const { return line_; }

    /// Its number, from 1.
    std::size_t number() const { return number_; }

private:
    std::string_view rest_;
    std::string_view line_;
    std::size_t number_ = 0;
};

/// What the times of a recording are, by its first one: those of a clock from 100,000,000 s on, else seconds since some
/// beginning. As a duration that would be three years.
TimeAxis axis_of(double first_time);

/// Brings series whose samples do not stand in the order of their times into it, and notes that.
void sort_series(Recording& recording);

/// Reads a file: a table (csvtable.h) or a recording of frames (framerecording.h).
/// @param path  its name
/// @throws BadFile
Recording read_recording(const std::string& path);

}  // namespace plot

#endif
