#include "tools/plot_view/plotfile.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "program/file.h"
#include "tools/plot_view/csvtable.h"
#include "tools/plot_view/framerecording.h"

namespace plot {

namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
constexpr double first_clock_time = 1e8;
constexpr std::size_t looked_at = 4096;  // bytes that tell a text from what is none

[[noreturn]] void fail(const char* what) {
    throw BadFile(std::string(what) + ": " + std::generic_category().message(errno));
}

std::string bytes_of(const std::string& path) {
    const program::File file(std::fopen(path.c_str(), "rb"));
    if (file == nullptr) {
        fail("cannot be opened");
    }
    struct stat status {};
    if (fstat(fileno(file.get()), &status) == 0 && S_ISDIR(status.st_mode)) {
        throw BadFile("is a directory");
    }
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(std::max<off_t>(status.st_size, 0)) + 1);
    std::array<char, 65536> part;
    std::size_t count = 0;
    while ((count = std::fread(part.data(), 1, part.size(), file.get())) > 0) {
        bytes.append(part.data(), count);
    }
    if (std::ferror(file.get()) != 0) {
        fail("cannot be read");
    }
    return bytes;
}

}  // namespace

void PassedLines::add(std::size_t number) {
    first_ = count_ == 0 ? number : first_;
    ++count_;
}

std::string PassedLines::sentence(std::string_view what) const {
    if (count_ == 0) {
        return {};
    }
    const std::string first = std::to_string(first_);
    if (count_ == 1) {
        return "line " + first + " is " + std::string(what) + " and left out";
    }
    return std::to_string(count_) + " lines are " + std::string(what) + " and left out, the first is line " +
           first;
}

bool Lines::next() {
    if (rest_.empty()) {
        return false;
    }
    const std::size_t end = rest_.find('\n');
    line_ = rest_.substr(0, end);
    rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
    if (!line_.empty() && line_.back() == '\r') {
        line_.remove_suffix(1);
    }
    ++number_;
    return true;
}

TimeAxis axis_of(double first_time) {
    return first_time >= first_clock_time ? TimeAxis::clock : TimeAxis::seconds;
}

void sort_series(Recording& recording) {
    bool sorted = true;
    for (Series& series : recording.data.series) {
        sorted = sorted && std::is_sorted(series.times().begin(), series.times().end());
        series.sort_by_time();
    }
    if (!sorted) {
        recording.notes.emplace_back(
            "the times run backwards; the samples stand in the order of their times");
    }
}

Recording read_recording(const std::string& path) {
    const std::string bytes = bytes_of(path);
    std::string_view text = bytes;
    if (text.substr(0, byte_order_mark.size()) == byte_order_mark) {
        text.remove_prefix(byte_order_mark.size());
    }
    const std::size_t start = text.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos) {
        throw BadFile("is empty");
    }
    if (text.substr(0, looked_at).find('\0') != std::string_view::npos) {
        throw BadFile("is no text; a table (CSV) or a recording of 'nodevik monitor --json' can be shown");
    }
    if (text.starts_with("# vehicle-recorder recording ")) {
        throw BadFile("is a recording of the vehicle's line: 'vehicle-recorder plot' shows it");
    }
    Recording recording = text[start] == '{' ? read_frames(text) : read_table(text);
    sort_series(recording);
    for (unsigned id = 0; Series & series : recording.data.series) {
        series.id = id++;
    }
    return recording;
}

}  // namespace plot
