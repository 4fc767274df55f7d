#include "recorder/recordingreader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "program/failure.h"

namespace vehicle_recorder {

namespace {

constexpr std::size_t room_bytes = 262'144;

}  // namespace

RecordingReader::RecordingReader(const std::string& path, Growth growth)
    : path_(path), grows_(growth == Growth::goes_on), file_(std::fopen(path.c_str(), "rbe")) {
    if (!file_) {
        fail(std::string(" cannot be read: ") + std::strerror(errno));
    }
    std::setvbuf(file_.get(), nullptr, _IONBF, 0);
    struct stat status {};
    if (fstat(fileno(file_.get()), &status) == 0 && S_ISREG(status.st_mode)) {
        size_ = static_cast<std::uint64_t>(status.st_size);
    }
    buffer_.resize(room_bytes);
    read_header();
}

void RecordingReader::read_header() {
    std::string_view line;
    while (header_goes_on() && next_line(line) == LineKind::whole) {
        const HeaderParser::Line kind = header_.parse(line);
        if (kind == HeaderParser::Line::newer) {
            fail(" is a recording of a newer format than this program reads: '" + std::string(line) + "'");
        }
        if (kind == HeaderParser::Line::none) {
            fail(line_ == 1 ? " is no recording of vehicle-recorder"
                            : ": line " + std::to_string(line_) + " of the header is wrong");
        }
    }
    if (!header_.is_whole()) {
        fail(!header_.has_begun() ? " is no recording of vehicle-recorder"
                                  : " ends within its header: nothing is recorded in it");
    }
}

bool RecordingReader::header_goes_on() {
    return (begin_ < end_ || fill()) && buffer_[begin_] == '#';
}

bool RecordingReader::next(Entry& entry) {
    std::string_view line;
    while (!ended_) {
        const LineKind kind = next_line(line);
        if (kind == LineKind::unfinished || kind == LineKind::none) {
            damage_.is_cut = !grows_;
            damage_.cut_line = kind == LineKind::unfinished ? line_ : 0;
            return false;
        }
        if (kind == LineKind::too_long || !parser_.parse(line, entry)) {
            pass_over();
            continue;
        }
        if (entry.time_us < last_us_) {
            fail(": the time runs backwards in line " + std::to_string(line_));
        }
        last_us_ = entry.time_us;
        if (entry.kind == EntryKind::end) {
            ended_ = true;
            read_to_end();
        }
        return true;
    }
    return false;
}

// What stands behind the end is no part of the recording.
void RecordingReader::read_to_end() {
    const std::uint64_t line_of_end = line_;
    std::string_view line;
    while (next_line(line) != LineKind::none) {
        pass_over();
    }
    line_ = line_of_end;
}

void RecordingReader::pass_over() {
    damage_.first_line = damage_.passed_over == 0 ? line_ : damage_.first_line;
    ++damage_.passed_over;
}

std::string RecordingReader::damage_text() const {
    std::string text;
    if (damage_.passed_over > 0) {
        text = path_ + ": ";
        text += damage_.passed_over == 1
                    ? "1 line that is no entry is passed over: line "
                    : std::to_string(damage_.passed_over) +
                          " lines that are no entries are passed over, the first is line ";
        text += std::to_string(damage_.first_line);
    }
    if (damage_.is_cut) {
        text += text.empty() ? path_ : "; it";
        text += " is cut off: ";
        text += damage_.cut_line != 0
                    ? "line " + std::to_string(damage_.cut_line) + " is unfinished and left out"
                    : "it does not tell its end";
    }
    return text;
}

// The next line. Its text stands in the buffer until the next call.
RecordingReader::LineKind RecordingReader::next_line(std::string_view& line) {
    std::size_t searched = 0;
    while (!skips_) {
        const char* const text = buffer_.data() + begin_;
        const std::size_t length = end_ - begin_;
        if (const void* found = std::memchr(text + searched, '\n', length - searched)) {
            line = {text, static_cast<std::size_t>(static_cast<const char*>(found) - text)};
            begin_ += line.size() + 1;
            ++line_;
            return line.size() > longest_line ? LineKind::too_long : LineKind::whole;
        }
        if (length > longest_line) {
            skips_ = true;
            ++line_;
            break;
        }
        searched = length;
        if (!fill()) {
            if (!grows_ && length > 0) {
                ++line_;
                begin_ = end_;
                return LineKind::unfinished;
            }
            return LineKind::none;
        }
    }
    return skip_line();
}

// The rest of a line that is too long to be kept.
RecordingReader::LineKind RecordingReader::skip_line() {
    do {
        const char* const text = buffer_.data() + begin_;
        if (const void* found = std::memchr(text, '\n', end_ - begin_)) {
            begin_ += static_cast<std::size_t>(static_cast<const char*>(found) - text) + 1;
            skips_ = false;
            return LineKind::too_long;
        }
        begin_ = end_;
    } while (fill());
    skips_ = grows_;
    return grows_ ? LineKind::none : LineKind::unfinished;
}

// Reads on behind what is not read yet. False at the end of the file.
bool RecordingReader::fill() {
    std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_),
              buffer_.begin() + static_cast<std::ptrdiff_t>(end_), buffer_.begin());
    end_ -= begin_;
    begin_ = 0;
    if (buffer_.size() - end_ < room_bytes / 2) {
        buffer_.resize(buffer_.size() + room_bytes);
    }
    errno = 0;
    std::clearerr(file_.get());  // a file that was read to its end may have grown
    const std::size_t count = std::fread(buffer_.data() + end_, 1, buffer_.size() - end_, file_.get());
    if (count == 0 && std::ferror(file_.get()) != 0) {
        fail(std::string(" cannot be read: ") + std::strerror(errno));
    }
    end_ += count;
    position_ += count;
    return count > 0;
}

void RecordingReader::fail(const std::string& what) const {
    throw program::Failure(program::ExitStatus::bad_file, path_ + what);
}

}  // namespace vehicle_recorder
