#include "tools/loginput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "nodevik/util/monotonicclock.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

constexpr unsigned int look_around = 1024;     // frames until a signal is looked for
constexpr std::uint64_t most_told_ahead = 10;  // foreign lines ahead of the first frame

// How long a line with this frame is, as candump and the recorder write it.
std::uint64_t line_length(const LogFrame& frame) {
    std::array<char, longest_log_line> line;
    return format_log_line(frame, line);
}

}  // namespace

LogInput::LogInput(const Session& session, const std::string& file) : session_(&session), file_(file) {
    descriptor_ = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat status {};
    if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) {
        fail(errno);
    }
    size_ = S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
    reader_.adopt(descriptor_);
    reader_.set_foreign_line([this](std::uint64_t line, const char* reason) {
        has_foreign_lines_ = true;
        if (has_frames_ || ++told_ahead_ <= most_told_ahead) {
            tell(file_ + ":" + std::to_string(line) + ": " + reason);
        }
        session_->interrupts.wait(-1, 0, 0);  // of a file that is no log there may be many
    });
    if (S_ISFIFO(status.st_mode)) {
        wait();  // for whoever writes
    }
}

bool LogInput::next(LogFrame& frame) {
    if (++count_ % look_around == 0) {
        session_->interrupts.wait(-1, 0, 0);
    }
    for (;;) {
        const int result = reader_.next(frame);
        if (result == 0) {
            tell_untold();
            has_frames_ = true;
            passed_bytes_ += line_length(frame);
            return true;
        }
        if (result > 0) {
            require_log();
            tell_untold();
            return false;
        }
        if (errno != EAGAIN) {
            fail(errno);
        }
        session_->output.flush();
        wait();
    }
}

/// Tells how many foreign lines ahead of the first frame were not told.
void LogInput::tell_untold() const {
    if (!has_frames_ && told_ahead_ > most_told_ahead) {
        tell(std::to_string(told_ahead_ - most_told_ahead) + " more such lines up to line " +
             std::to_string(reader_.line()));
    }
}

/// Looks whether anything of what was read to the end belongs to a log.
void LogInput::require_log() const {
    const FrameLogReader::PassedOver& passed = reader_.passed_over();
    const bool is_log = has_frames_ || passed.error_frames + passed.fd_frames + passed.drop_counts > 0;
    if (has_foreign_lines_ && !is_log) {
        throw Failure(ExitStatus::bad_file, file_ + " is no log: none of its lines is one of candump's");
    }
}

void LogInput::rewind() {
    const FrameLogReader::PassedOver passed = reader_.passed_over();
    if (reader_.rewind() != 0) {
        fail(errno);
    }
    passed_bytes_ = 0;
    if (is_first_pass_) {
        first_pass_ = passed;
        is_first_pass_ = false;
        reader_.set_foreign_line(nullptr);
    }
}

void LogInput::tell_passed_over() const {
    const FrameLogReader::PassedOver& passed = is_first_pass_ ? reader_.passed_over() : first_pass_;
    if (passed.error_frames + passed.fd_frames + passed.drop_counts > 0) {
        tell("passed over: " + std::to_string(passed.error_frames) + " error frames, " +
             std::to_string(passed.fd_frames) + " FD frames, " + std::to_string(passed.drop_counts) +
             " counts of lost frames");
    }
}

void LogInput::wait() const {
    session_->interrupts.wait(descriptor_, POLLIN, no_deadline, session_->output.descriptor());
}

void LogInput::fail(int reason) const {
    throw Failure(ExitStatus::bad_file, file_ + " cannot be read: " + std::strerror(reason));
}

}  // namespace nodevik_tool
