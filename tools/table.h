/// @file
/// Results as a table, and a table that is drawn in place.

#ifndef TOOLS_TABLE_H
#define TOOLS_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

#include "tools/colour.h"
#include "tools/output.h"

namespace nodevik_tool {

/// Rows with columns below each other.
class Table {
public:
    /// A column.
    struct Column {
        const char* title;
        bool is_number = false;  ///< stands to the right
    };

    /// A cell.
    struct Cell {
        std::string text;
        Colour colour = Colour::plain;
    };

    /// @param columns  from left to right; the last one may be as long as it likes
    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    /// Adds a row, with a cell for each column.
    void add(std::vector<Cell> row) { rows_.push_back(std::move(row)); }

    /// The rows as lines.
    ///
    /// @param output  says whether there are colours
    /// @param titles  begins with a line of the columns' titles
    /// @param width   longest line, in characters; what does not fit is cut off
    std::vector<std::string> lines(const Output& output, bool titles,
                                   std::size_t width = std::string::npos) const;

    /// Shows the rows, if there are any, with titles on a terminal only: elsewhere a program may read them.
    void show(Output& output) const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
};

/// Lines on a terminal that are drawn over and over in the same place.
class Screen {
public:
    /// Whether something can be drawn in place: results are text for a terminal that knows how to.
    static bool is_possible(const Output& output);

    /// @param output  takes what is drawn
    explicit Screen(Output& output) : output_(&output) {}

    /// How many characters fit into a line.
    std::size_t width() const;

    /// Draws lines over those that were drawn before, as many as there is room for; the last one then tells how many are
    /// missing. Nothing is drawn when nothing has changed. The output is flushed by the caller.
    /// @param lines  none longer than width()
    void draw(std::vector<std::string> lines);

private:
    Output* output_;
    std::vector<std::string> drawn_;
    std::size_t drawn_width_ = 0;
};

}  // namespace nodevik_tool

#endif
