#include "tools/plot_view/csvtable.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <limits>
#include <optional>
#include <vector>

namespace plot {

namespace {

constexpr std::string_view position_heading = "position";
constexpr std::string_view time_heading = "time";
constexpr std::string_view time_headings[] = {time_heading, "time_s", "seconds", position_heading};
constexpr std::size_t fewest_digits = 4;  // of bytes in hexadecimal that are taken for such

constexpr struct {
    std::string_view word;
    double value;
} words[] = {{"true", 1}, {"false", 0}, {"on", 1}, {"off", 0}};

std::string_view trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

bool is_word(std::string_view text, std::string_view word) {
    return text.size() == word.size() &&
           std::equal(text.begin(), text.end(), word.begin(), [](char a, char b) {
               return (a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a) == b;
           });
}

// Whether a cell holds bytes in hexadecimal. "28676e50" would be a number as well, but nobody writes one like that.
bool is_bytes(std::string_view text) {
    const auto is_letter = [](char c) { return (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); };
    return text.size() >= fewest_digits && text.size() % 2 == 0 &&
           std::any_of(text.begin(), text.end(), is_letter) &&
           std::all_of(text.begin(), text.end(),
                       [&](char c) { return is_letter(c) || (c >= '0' && c <= '9'); });
}

// Separates the cells of a row. A cell in quotation marks may hold the separator, and a mark as two of them.
class Row {
public:
    explicit Row(char separator) : separator_(separator) {}

    const std::vector<std::string>& cells() const { return cells_; }

    void split(std::string_view line) {
        std::size_t count = 0;
        std::size_t at = 0;
        do {
            if (count == cells_.size()) {
                cells_.emplace_back();
            }
            at = take_cell(line, at, cells_[count]);
            ++count;
        } while (at != std::string_view::npos);
        cells_.resize(count);
    }

private:
    // Returns where the next cell begins, or npos behind the last one.
    std::size_t take_cell(std::string_view line, std::size_t at, std::string& cell) const {
        cell.clear();
        if (at < line.size() && line[at] == '"') {
            for (++at; at < line.size(); ++at) {
                if (line[at] == '"' && (at + 1 == line.size() || line[at + 1] != '"')) {
                    ++at;
                    break;
                }
                at += line[at] == '"' ? 1 : 0;
                cell += line[at];
            }
        }
        const std::size_t end = std::min(line.find(separator_, at), line.size());
        cell.append(line.substr(at, end - at));
        return end == line.size() ? std::string_view::npos : end + 1;
    }

    char separator_;
    std::vector<std::string> cells_;
};

// The separator that stands most often in the headings.
char separator_of(std::string_view headings) {
    char best = ',';
    for (const char candidate : {',', ';', '\t'}) {
        if (std::count(headings.begin(), headings.end(), candidate) >
            std::count(headings.begin(), headings.end(), best)) {
            best = candidate;
        }
    }
    return best;
}

// What a cell says.
class CellReader {
public:
    explicit CellReader(char separator) : decimal_comma_(separator != ',') {}

    // A number, which may be none (nan) or infinite.
    std::optional<double> number(std::string_view cell) {
        std::string_view text = trimmed(cell);
        if (!text.empty() && text.front() == '+') {
            text.remove_prefix(1);
            if (!text.empty() && text.front() == '-') {
                return std::nullopt;
            }
        }
        if (decimal_comma_ && text.find(',') != std::string_view::npos) {
            changed_ = text;
            std::replace(changed_.begin(), changed_.end(), ',', '.');
            text = changed_;
        }
        double value = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (end != text.data() + text.size() || text.empty()) {
            return std::nullopt;
        }
        if (error == std::errc::result_out_of_range) {
            return std::strtod(std::string(text).c_str(), nullptr);  // the nearest: nothing, or infinite
        }
        return error == std::errc() ? std::optional(value) : std::nullopt;
    }

    std::optional<double> value(std::string_view cell) {
        const std::string_view text = trimmed(cell);
        for (const auto& [word, value] : words) {
            if (is_word(text, word)) {
                return value;
            }
        }
        return number(text);
    }

private:
    bool decimal_comma_;
    std::string changed_;
};

// Reads digits off the front of a text.
std::optional<int> take_digits(std::string_view& text, std::size_t count) {
    int number = 0;
    if (text.size() < count) {
        return std::nullopt;
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + count, number);
    if (error != std::errc() || end != text.data() + count || number < 0) {
        return std::nullopt;
    }
    text.remove_prefix(count);
    return number;
}

bool take(std::string_view& text, std::string_view characters) {
    if (text.empty() || characters.find(text.front()) == std::string_view::npos) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

// Seconds that a zone is ahead of UTC: "Z", "+02:00", "+0200"; none if the text is no zone.
std::optional<int> zone_offset(std::string_view text) {
    if (text == "Z") {
        return 0;
    }
    const bool behind = !text.empty() && text.front() == '-';
    if (!take(text, "+-")) {
        return std::nullopt;
    }
    const auto hours = take_digits(text, 2);
    take(text, ":");
    const auto minutes = take_digits(text, 2);
    if (!hours || !minutes || !text.empty()) {
        return std::nullopt;
    }
    const int seconds = (*hours * 60 + *minutes) * 60;
    return behind ? -seconds : seconds;
}

// A date with a time of day, ISO 8601, as seconds since 1970.
std::optional<double> clock_time(std::string_view text) {
    tm day{};
    const auto part = [&text](int& field, std::size_t digits, std::string_view before) {
        if (!before.empty() && !take(text, before)) {
            return false;
        }
        const auto number = take_digits(text, digits);
        field = number.value_or(0);
        return number.has_value();
    };
    if (!part(day.tm_year, 4, "") || !part(day.tm_mon, 2, "-") || !part(day.tm_mday, 2, "-") ||
        !part(day.tm_hour, 2, "T ") || !part(day.tm_min, 2, ":")) {
        return std::nullopt;
    }
    double second = 0;
    if (take(text, ":")) {
        const auto [end, error] =
            std::from_chars(text.data(), text.data() + text.size(), second, std::chars_format::fixed);
        if (error != std::errc() || second < 0 || second >= 61) {
            return std::nullopt;
        }
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    }
    day.tm_year -= 1900;
    day.tm_mon -= 1;
    day.tm_isdst = -1;
    if (text.empty()) {
        return static_cast<double>(mktime(&day)) + second;
    }
    const auto offset = zone_offset(text);
    if (!offset) {
        return std::nullopt;
    }
    return static_cast<double>(timegm(&day)) - *offset + second;
}

// Puts a table together, row by row.
class TableReader {
public:
    explicit TableReader(char separator) : row_(separator), cells_(separator) {}

    void take_line(const Lines& lines) {
        if (trimmed(lines.line()).empty()) {
            return;
        }
        row_.split(lines.line());
        if (recording_.data.series.empty()) {
            take_headings();
        } else if (!take_row()) {
            foreign_.add(lines.number());
        }
    }

    Recording finish() {
        leave_out_text();
        if (const std::string sentence = foreign_.sentence("no row of the table"); !sentence.empty()) {
            recording_.notes.push_back(sentence);
        }
        if (recording_.data.samples() == 0) {
            throw BadFile(foreign_.count() > 0 ? "is no table with a column of times, in seconds"
                                               : "holds no samples");
        }
        return std::move(recording_);
    }

private:
    void take_headings() {
        const auto& cells = row_.cells();
        if (cells.size() < 2) {
            throw BadFile("is no table: a column with the time and one with values at least are needed");
        }
        const bool is_row = cells_.number(cells.front()).has_value();
        const auto is_time = [](const std::string& cell) {
            return std::any_of(std::begin(time_headings), std::end(time_headings),
                               [&](std::string_view heading) { return is_word(trimmed(cell), heading); });
        };
        const auto found = std::find_if(cells.begin(), cells.end(), is_time);
        time_column_ = found == cells.end() ? 0 : static_cast<std::size_t>(found - cells.begin());
        if (is_word(trimmed(cells[time_column_]), position_heading)) {
            recording_.data.axis = TimeAxis::positions;
        }
        for (std::size_t column = 0; column < cells.size(); ++column) {
            Series series;
            series.name = is_row || trimmed(cells[column]).empty() ? "column " + std::to_string(column + 1)
                                                                   : std::string(trimmed(cells[column]));
            if (column != time_column_) {
                recording_.data.series.push_back(std::move(series));
            }
        }
        texts_.resize(cells.size() - 1);
        has_bytes_.resize(cells.size() - 1);
        if (is_row) {
            take_row();
        }
    }

    std::optional<double> time_of(const std::string& cell) {
        auto time = cells_.number(cell);
        if (!time) {
            time = clock_time(trimmed(cell));
        }
        return time && std::isfinite(*time) ? time : std::nullopt;
    }

    bool take_row() {
        const auto& cells = row_.cells();
        auto& series = recording_.data.series;
        if (cells.size() != series.size() + 1) {
            return false;
        }
        const auto time = time_of(cells[time_column_]);
        if (!time) {
            return false;
        }
        if (is_first_row_ && recording_.data.axis == TimeAxis::seconds) {
            recording_.data.axis = axis_of(*time);
        }
        is_first_row_ = false;
        for (std::size_t column = 0; column < series.size(); ++column) {
            const std::string_view cell = trimmed(cells[column < time_column_ ? column : column + 1]);
            if (cell.empty()) {
                continue;
            }
            has_bytes_[column] = has_bytes_[column] || is_bytes(cell);
            if (const auto value = cells_.value(cell)) {
                series[column].append(*time, *value);
            } else {
                ++texts_[column];
            }
        }
        return true;
    }

    // Leaves out the columns that are text, and notes them and those that have some.
    void leave_out_text() {
        auto& series = recording_.data.series;
        std::vector<Series> kept;
        std::string left_out;
        std::size_t count = 0;
        for (std::size_t column = 0; column < series.size(); ++column) {
            const std::string name = "'" + series[column].name + "'";
            if (has_bytes_[column] || texts_[column] > series[column].size()) {
                left_out += (count++ == 0 ? "" : ", ") + name;
                continue;
            }
            if (texts_[column] > 0) {
                recording_.notes.push_back("column " + name + " has cells that are no numbers");
            }
            kept.push_back(std::move(series[column]));
        }
        if (count > 0) {
            recording_.notes.push_back(count == 1 ? "column " + left_out + " is text and left out"
                                                  : "columns " + left_out + " are text and left out");
        }
        series = std::move(kept);
    }

    Row row_;
    std::size_t time_column_ = 0;
    CellReader cells_;
    Recording recording_;
    std::vector<std::size_t> texts_;  // for each column, how many cells are no numbers
    std::vector<bool> has_bytes_;     // and whether one is bytes
    PassedLines foreign_;
    bool is_first_row_ = true;
};

void append_number(std::string& text, double number) {
    std::array<char, 32> digits;
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    text.append(digits.data(), end);
}

void append_heading(std::string& text, const std::string& heading) {
    if (heading.find_first_of(",;\t\"\r\n") == std::string::npos) {
        text += heading;
        return;
    }
    text += '"';
    for (const char character : heading) {
        text.append(character == '"' ? 2 : 1, character == '\n' || character == '\r' ? ' ' : character);
    }
    text += '"';
}

// A series of which the samples from `next` to `end` are still to be written.
struct Unwritten {
    const Series* series;
    std::size_t next;
    std::size_t end;

    bool is_at(double time) const { return next < end && series->times()[next] == time; }
};

// The earliest time that is not written yet.
std::optional<double> next_time(const std::vector<Unwritten>& columns) {
    std::optional<double> time;
    for (const Unwritten& column : columns) {
        if (column.next < column.end) {
            const double candidate = column.series->times()[column.next];
            time = time ? std::min(*time, candidate) : candidate;
        }
    }
    return time;
}

}  // namespace

Recording read_table(std::string_view text) {
    Lines lines(text);
    const std::size_t start = std::min(text.find_first_not_of("\r\n \t"), text.size());
    TableReader reader(separator_of(text.substr(start, text.find('\n', start) - start)));
    while (lines.next()) {
        reader.take_line(lines);
    }
    return reader.finish();
}

std::string write_table(const PlotData& data, const Interval& time) {
    std::string text(data.axis == TimeAxis::positions ? position_heading : time_heading);
    std::vector<Unwritten> columns;
    for (const Series& series : data.series) {
        if (series.shown) {
            columns.push_back({&series, series.first_from(time.low), series.first_behind(time.high)});
            text += ',';
            append_heading(text, series.name);
        }
    }
    text += '\n';
    while (const auto row_time = next_time(columns)) {
        append_number(text, *row_time);
        for (Unwritten& column : columns) {
            text += ',';
            if (column.is_at(*row_time)) {
                append_number(text, column.series->values()[column.next]);
                ++column.next;
            }
        }
        text += '\n';
    }
    return text;
}

}  // namespace plot
