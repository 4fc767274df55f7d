#include "tools/table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

namespace nodevik_tool {

namespace {

constexpr const char* gap = "  ";
constexpr std::size_t usual_width = 80;  // of a terminal that does not tell its size
constexpr std::size_t usual_height = 24;

// ECMA-48, 8.3.22, 8.3.39, 8.3.41 and 8.3.57.
constexpr const char* clear_screen = "\033[H\033[J";
constexpr const char* erase_rest_of_line = "\033[K";
constexpr const char* erase_below = "\033[J";

std::string up(std::size_t lines) {
    return lines == 0 ? "\r" : "\r\033[" + std::to_string(lines) + "A";
}

winsize size_of(int descriptor) {
    winsize size{};
    ioctl(descriptor, TIOCGWINSZ, &size);
    return size;
}

}  // namespace

std::vector<std::string> Table::lines(const Output& output, bool titles, std::size_t width) const {
    std::vector<std::vector<Cell>> rows;
    if (titles) {
        rows.emplace_back();
        for (const Column& column : columns_) {
            rows.back().push_back({column.title, Colour::faint});
        }
    }
    rows.insert(rows.end(), rows_.begin(), rows_.end());
    std::vector<std::size_t> widths(columns_.size(), 0);
    for (const std::vector<Cell>& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].text.size());
        }
    }
    std::vector<std::string> result;
    for (const std::vector<Cell>& row : rows) {
        std::string line;
        std::size_t room = width;
        std::string blanks;
        for (std::size_t i = 0; i < row.size() && room > 0; ++i) {
            const std::string fill(widths[i] - row[i].text.size(), ' ');
            blanks += (i == 0 ? "" : gap) + (columns_[i].is_number ? fill : "");
            if (!row[i].text.empty()) {
                line += blanks.substr(0, room);
                room -= std::min(room, blanks.size());
                line += output.paint(row[i].text.substr(0, room), row[i].colour);
                room -= std::min(room, row[i].text.size());
                blanks.clear();
            }
            blanks += columns_[i].is_number ? "" : fill;
        }
        result.push_back(line);
    }
    return result;
}

void Table::show(Output& output) const {
    if (rows_.empty()) {
        return;
    }
    if (takes_escapes(output.descriptor())) {
        output.bytes(begin_line);  // where the terminal has shown the Ctrl-C
    }
    for (const std::string& line : lines(output, isatty(output.descriptor()) == 1)) {
        output.line(line);
    }
}

bool Screen::is_possible(const Output& output) {
    return !output.json() && takes_escapes(output.descriptor());
}

std::size_t Screen::width() const {
    const winsize size = size_of(output_->descriptor());
    return size.ws_col == 0 ? usual_width : size.ws_col;
}

void Screen::draw(std::vector<std::string> lines) {
    const winsize size = size_of(output_->descriptor());
    const std::size_t height = size.ws_row == 0 ? usual_height : std::max<std::size_t>(size.ws_row, 3);
    if (lines.size() >= height) {  // the cursor stands below the last line
        const std::size_t missing = lines.size() - (height - 2);
        lines.resize(height - 2);
        lines.push_back("and " + std::to_string(missing) + " more");
    }
    const bool is_resized = drawn_width_ != 0 && drawn_width_ != width();
    if (lines == drawn_ && !is_resized) {
        return;
    }
    std::string text = is_resized ? clear_screen : up(drawn_.size());
    for (const std::string& line : lines) {
        text += line + erase_rest_of_line + "\n";
    }
    output_->bytes(text + erase_below);
    drawn_ = std::move(lines);
    drawn_width_ = width();
}

}  // namespace nodevik_tool
