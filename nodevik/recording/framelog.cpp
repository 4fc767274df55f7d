#include "nodevik/recording/framelog.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

namespace {

constexpr unsigned int standard_mask = 0x7FF;
constexpr unsigned int extended_mask = 0x1FFFFFFF;
constexpr unsigned int error_flag = 0x20000000;
constexpr std::size_t standard_digits = 3;
constexpr std::size_t extended_digits = 8;
constexpr unsigned int most_bytes = 8;
constexpr std::uint64_t us_per_second = 1'000'000;
constexpr std::size_t us_digits = 6;
constexpr std::size_t second_digits = 10;

constexpr char upper_digits[] = "0123456789ABCDEF";

int digit_of(char character) {
    if (character >= '0' && character <= '9') {
        return character - '0';
    }
    const char lower = static_cast<char>(character | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

bool is_blank(char character) {
    return character == ' ' || character == '\t' || character == '\r';
}

// Takes characters off the front of a text.
class Scanner {
public:
    explicit Scanner(std::string_view text) : rest_(text) {}

    bool done() const { return rest_.empty(); }
    char front() const { return rest_.empty() ? '\0' : rest_.front(); }
    void skip() { rest_.remove_prefix(1); }

    bool take(char wanted) {
        const bool found = front() == wanted && !done();
        if (found) {
            skip();
        }
        return found;
    }

    // Blanks; whether there was one.
    bool take_blanks() {
        const std::size_t before = rest_.size();
        while (!done() && is_blank(front())) {
            skip();
        }
        return rest_.size() != before;
    }

    // Everything up to a blank or one of the characters.
    std::string_view word_until(std::string_view stops) {
        std::size_t length = 0;
        while (length < rest_.size() && !is_blank(rest_[length]) &&
               stops.find(rest_[length]) == std::string_view::npos) {
            ++length;
        }
        const std::string_view word = rest_.substr(0, length);
        rest_.remove_prefix(length);
        return word;
    }

    std::string_view rest() const { return rest_; }

private:
    std::string_view rest_;
};

std::optional<std::uint64_t> decimal(std::string_view text) {
    constexpr std::size_t safe_digits = 18;
    if (text.empty() || text.size() > safe_digits) {
        return std::nullopt;
    }
    std::uint64_t number = 0;
    for (const char character : text) {
        if (character < '0' || character > '9') {
            return std::nullopt;
        }
        number = number * 10 + static_cast<std::uint64_t>(character - '0');
    }
    return number;
}

std::optional<std::uint64_t> hexadecimal(std::string_view text) {
    std::uint64_t number = 0;
    for (const char character : text) {
        const int digit = digit_of(character);
        if (digit < 0) {
            return std::nullopt;
        }
        number = number << 4 | static_cast<std::uint64_t>(digit);
    }
    return number;
}

// "(1436509052.249713)"; digits behind the sixth are cut, missing ones are 0.
std::optional<std::uint64_t> take_time(Scanner& line) {
    if (!line.take('(')) {
        return std::nullopt;
    }
    const auto seconds = decimal(line.word_until("."));
    // Later than the year 500,000 nothing was recorded, and the sum stays within its bits.
    constexpr std::uint64_t latest = 17'000'000'000'000;
    if (!seconds || *seconds > latest || !line.take('.')) {
        return std::nullopt;
    }
    std::string_view digits = line.word_until(")");
    if (!decimal(digits) || !line.take(')')) {
        return std::nullopt;
    }
    digits = digits.substr(0, us_digits);
    std::uint64_t microseconds = *decimal(digits);
    for (std::size_t missing = digits.size(); missing < us_digits; ++missing) {
        microseconds *= 10;
    }
    return *seconds * us_per_second + microseconds;
}

// "R", "R8", "R8_F" behind the '#'.
bool take_remote(Scanner& line, LogFrame& frame) {
    frame.remote = true;
    frame.length = 0;
    line.skip();
    if (line.front() >= '0' && line.front() <= '9') {
        frame.length = static_cast<unsigned int>(line.front() - '0');
        line.skip();
    }
    return frame.length <= most_bytes;
}

// The data bytes behind the '#', dots between them or not.
bool take_data(Scanner& line, LogFrame& frame) {
    frame.length = 0;
    while (digit_of(line.front()) >= 0) {
        const int high = digit_of(line.front());
        line.skip();
        const int low = digit_of(line.front());
        if (low < 0 || frame.length == most_bytes) {
            return false;
        }
        line.skip();
        frame.data[frame.length++] = static_cast<unsigned char>(high << 4 | low);
        line.take('.');
    }
    return true;
}

// The raw length 9 to F of a frame of 8 bytes, "_9" to "_F".
bool take_raw_length(Scanner& line, const LogFrame& frame) {
    if (!line.take('_')) {
        return true;
    }
    const bool valid = frame.length == most_bytes && digit_of(line.front()) > static_cast<int>(most_bytes);
    if (valid) {
        line.skip();
    }
    return valid;
}

bool take_direction(Scanner& line, LogFrame& frame) {
    if (line.done()) {
        return true;
    }
    const bool received = line.take('R');
    if (!received && !line.take('T')) {
        return false;
    }
    frame.direction = received ? LogFrame::Direction::received : LogFrame::Direction::sent;
    line.take_blanks();
    return line.done();
}

// At least so many digits.
char* put_decimal(char* to, std::uint64_t number, std::size_t digits) {
    std::array<char, 20> reversed{};
    std::size_t length = 0;
    do {
        reversed[length++] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0);
    for (std::size_t missing = length; missing < digits; ++missing) {
        *to++ = '0';
    }
    return std::reverse_copy(reversed.begin(), reversed.begin() + length, to);
}

char* put_hexadecimal(char* to, unsigned int number, std::size_t digits) {
    for (std::size_t place = digits; place-- > 0;) {
        *to++ = upper_digits[number >> 4 * place & 0xF];
    }
    return to;
}

}  // namespace

void LogFrame::set_name(const char* interface_name) {
    name = {};
    const std::size_t size = std::min(std::strlen(interface_name), longest_name);
    std::replace_copy_if(
        interface_name, interface_name + size, name.begin(),
        [](char character) { return is_blank(character) || character == '\n'; }, '_');
    if (size == 0) {
        name[0] = '_';
    }
}

bool LogFrame::same_frame(const LogFrame& other) const {
    return time_us == other.time_us && std::strcmp(name.data(), other.name.data()) == 0 &&
           identifier == other.identifier && extended == other.extended && remote == other.remote &&
           length == other.length && data == other.data;
}

LogLine parse_log_line(const char* text, std::size_t length, LogFrame& frame) {
    Scanner line(std::string_view(text, length));
    line.take_blanks();
    if (line.done()) {
        return LogLine::empty;
    }
    if (line.rest().starts_with("DROPCOUNT")) {
        return LogLine::drop_count;
    }
    const auto time_us = take_time(line);
    if (!time_us || !line.take_blanks()) {
        return LogLine::foreign;
    }
    frame = LogFrame();
    frame.time_us = *time_us;
    const std::string_view name = line.word_until("");
    if (name.empty() || name.size() > LogFrame::longest_name || !line.take_blanks()) {
        return LogLine::foreign;
    }
    std::copy(name.begin(), name.end(), frame.name.begin());
    const std::string_view digits = line.word_until("#");
    const auto identifier = hexadecimal(digits);
    if (!identifier || !line.take('#')) {
        return LogLine::foreign;
    }
    // CAN FD is "##", CAN XL an identifier of five digits with further fields.
    if (line.front() == '#' || (digits.size() == 5 && line.rest().find(':') != std::string_view::npos)) {
        return LogLine::fd_frame;
    }
    frame.identifier = static_cast<unsigned int>(*identifier);
    frame.extended = digits.size() == extended_digits;
    if (!frame.extended && digits.size() != standard_digits) {
        return LogLine::foreign;
    }
    if (frame.extended && (frame.identifier & error_flag) != 0) {
        return LogLine::error_frame;
    }
    if (frame.identifier > (frame.extended ? extended_mask : standard_mask)) {
        return LogLine::foreign;
    }
    const bool is_remote = line.front() == 'R' || line.front() == 'r';
    if (!(is_remote ? take_remote(line, frame) : take_data(line, frame)) || !take_raw_length(line, frame)) {
        return LogLine::foreign;
    }
    const bool apart = line.take_blanks();
    if (!line.done() && !apart) {
        return LogLine::foreign;
    }
    return take_direction(line, frame) ? LogLine::frame : LogLine::foreign;
}

std::size_t format_log_line(const LogFrame& frame, std::array<char, longest_log_line>& room) {
    char* to = room.data();
    *to++ = '(';
    to = put_decimal(to, frame.time_us / us_per_second, second_digits);
    *to++ = '.';
    to = put_decimal(to, frame.time_us % us_per_second, us_digits);
    *to++ = ')';
    *to++ = ' ';
    for (const char* from = frame.name.data(); *from != '\0'; ++from) {
        *to++ = *from;
    }
    *to++ = ' ';
    to = frame.extended ? put_hexadecimal(to, frame.identifier & extended_mask, extended_digits)
                        : put_hexadecimal(to, frame.identifier & standard_mask, standard_digits);
    *to++ = '#';
    const unsigned int length = std::min(frame.length, most_bytes);
    if (frame.remote) {
        *to++ = 'R';
        if (length != 0) {
            *to++ = upper_digits[length];
        }
    } else {
        for (unsigned int i = 0; i < length; ++i) {
            to = put_hexadecimal(to, frame.data[i], 2);
        }
    }
    *to++ = '\n';
    return static_cast<std::size_t>(to - room.data());
}

FrameLogReader::~FrameLogReader() {
    close();
}

int FrameLogReader::open(const char* path) {
    close();
    file = ::open(path, O_RDONLY | O_CLOEXEC);
    return file < 0 ? -1 : 0;
}

void FrameLogReader::adopt(int descriptor) {
    close();
    file = descriptor;
}

void FrameLogReader::close() {
    if (file >= 0) {
        ::close(file);
    }
    file = -1;
    begin = 0;
    end = 0;
    at_end = false;
    line_number = 0;
    counts = PassedOver();
}

int FrameLogReader::rewind() {
    if (lseek(file, 0, SEEK_SET) < 0) {
        return -1;
    }
    begin = 0;
    end = 0;
    at_end = false;
    line_number = 0;
    counts = PassedOver();
    return 0;
}

// Reads more of the file behind what is there; -1 when the system tells an error.
int FrameLogReader::fill() {
    std::copy(buffer.begin() + static_cast<std::ptrdiff_t>(begin),
              buffer.begin() + static_cast<std::ptrdiff_t>(end), buffer.begin());
    end -= begin;
    begin = 0;
    ssize_t count = 0;
    do {
        count = ::read(file, buffer.data() + end, buffer.size() - end);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        return -1;
    }
    at_end = count == 0;
    end += static_cast<std::size_t>(count);
    return 0;
}

void FrameLogReader::pass_over(const char* reason) {
    ++counts.foreign;
    if (foreign_line) {
        foreign_line(line_number, reason);
    }
}

int FrameLogReader::next(LogFrame& frame) {
    bool too_long = false;
    for (;;) {
        const char* from = buffer.data() + begin;
        const auto* feed = static_cast<const char*>(std::memchr(from, '\n', end - begin));
        if (feed == nullptr && !at_end) {
            if (end - begin > longest_line) {
                too_long = true;
                begin = end;  // what has come of it is of no use
            }
            if (fill() != 0) {
                return -1;
            }
            continue;
        }
        if (feed == nullptr) {
            if (begin == end && !too_long) {
                return 1;
            }
            ++line_number;
            begin = end;
            pass_over("the log ends within the line");
            return 1;
        }
        const auto length = static_cast<std::size_t>(feed - from);
        begin += length + 1;
        ++line_number;
        if (std::exchange(too_long, false) || length > longest_line) {
            pass_over("longer than any line of a log");
            continue;
        }
        switch (parse_log_line(from, length, frame)) {
            case LogLine::frame:
                return 0;
            case LogLine::empty:
                break;
            case LogLine::error_frame:
                ++counts.error_frames;
                break;
            case LogLine::fd_frame:
                ++counts.fd_frames;
                break;
            case LogLine::drop_count:
                ++counts.drop_counts;
                break;
            case LogLine::foreign:
                pass_over("no frame in candump's format");
                break;
        }
    }
}

FrameLogWriter::~FrameLogWriter() {
    close();
}

int FrameLogWriter::open(const char* path) {
    close();
    file = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    filled = 0;
    written = 0;
    lost_frames = 0;
    return file < 0 ? -1 : 0;
}

int FrameLogWriter::close() {
    if (file < 0) {
        return 0;
    }
    int result = flush();
    if (result != 0) {
        const int reason = errno;
        lost_frames += static_cast<std::uint64_t>(
            std::count(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(filled), '\n'));
        filled = 0;
        ::close(file);
        errno = reason;
    } else if (::close(file) != 0) {
        result = -1;
    }
    file = -1;
    return result;
}

int FrameLogWriter::append(const LogFrame& frame) {
    if (file < 0) {
        ++lost_frames;
        errno = EBADF;
        return -1;
    }
    std::array<char, longest_log_line> line;
    const std::size_t length = format_log_line(frame, line);
    if (filled + length > buffer.size() && flush() != 0 && filled + length > buffer.size()) {
        ++lost_frames;
        return -1;
    }
    std::copy_n(line.begin(), length, buffer.begin() + static_cast<std::ptrdiff_t>(filled));
    filled += length;
    return 0;
}

int FrameLogWriter::flush() {
    std::size_t done = 0;
    int reason = file < 0 && filled != 0 ? EBADF : 0;
    while (reason == 0 && done < filled) {
        const ssize_t count = ::write(file, buffer.data() + done, filled - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            reason = count == 0 ? ENOSPC : errno;
        }
    }
    written += done;
    std::size_t kept_from = done;
    if (reason != 0 && done != 0 && buffer[done - 1] != '\n') {
        // The disk took a line in part: cut it off again, and keep the whole line for the next time.
        while (kept_from > 0 && buffer[kept_from - 1] != '\n') {
            --kept_from;
        }
        if (!cut_to(written - (done - kept_from))) {
            kept_from = done;
        }
    }
    std::copy(buffer.begin() + static_cast<std::ptrdiff_t>(kept_from),
              buffer.begin() + static_cast<std::ptrdiff_t>(filled), buffer.begin());
    filled -= kept_from;
    errno = reason;
    return reason == 0 ? 0 : -1;
}

// Makes the file end after so many bytes; false where that cannot be had, as in a pipe.
bool FrameLogWriter::cut_to(std::uint64_t length) {
    if (ftruncate(file, static_cast<off_t>(length)) != 0 ||
        lseek(file, static_cast<off_t>(length), SEEK_SET) < 0) {
        return false;
    }
    written = length;
    return true;
}
