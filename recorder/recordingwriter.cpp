#include "recorder/recordingwriter.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "program/failure.h"

namespace vehicle_recorder {

namespace {

constexpr mode_t file_mode = 0666;           // less the umask
constexpr std::size_t small_bytes = 65'536;  // for what is no bytes of the line, beyond the limit for those

[[noreturn]] void refuse(const std::string& path, int reason) {
    throw program::Failure(program::ExitStatus::bad_file,
                           path + " cannot be made for the recording: " + std::strerror(reason));
}

bool has_bytes(const Entry& entry) {
    return entry.kind == EntryKind::sent || entry.kind == EntryKind::received;
}

}  // namespace

RecordingWriter::RecordingWriter(const std::string& path, const RecordingHeader& header, Report report)
    : path_(path), report_(std::move(report)) {
    descriptor_ = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, file_mode);
    if (descriptor_ < 0) {
        refuse(path, errno);
    }
    flock(descriptor_, LOCK_SH | LOCK_NB);
    const std::string text = text_of(header);
    const ssize_t count = ::write(descriptor_, text.data(), text.size());
    if (count != static_cast<ssize_t>(text.size())) {
        const int reason = count < 0 ? errno : ENOSPC;
        close(descriptor_);
        unlink(path.c_str());
        refuse(path, reason);
    }
}

RecordingWriter::~RecordingWriter() {
    put(retry_us_);
    close(descriptor_);
}

void RecordingWriter::write(const Entry& entry) {
    last_us_ = entry.time_us;
    note_losses();
    if (has_bytes(entry) && (lost_ > 0 || waiting_.size() + 2 * entry.bytes.size() > waiting_bytes)) {
        lost_ += entry.bytes.size();
    } else if (waiting_.size() < waiting_bytes + small_bytes && !(has_bytes(entry) && entry.bytes.empty())) {
        append(entry);
    }
    tick(entry.time_us);
}

void RecordingWriter::tick(std::uint64_t now_us) {
    note_losses();
    if (now_us >= due_us() || waiting_.size() >= collected_bytes) {
        put(now_us);
    }
}

std::uint64_t RecordingWriter::due_us() const {
    return waiting_.empty() ? UINT64_MAX : std::max(oldest_us_ + flush_period_us, retry_us_);
}

bool RecordingWriter::flush(std::uint64_t now_us) {
    retry_us_ = 0;
    return put(now_us);
}

bool RecordingWriter::end(std::uint64_t now_us) {
    flush(now_us);
    last_us_ = now_us;
    note_losses();
    append({.time_us = now_us, .kind = EntryKind::end, .bytes = {}, .settings = {}, .text = {}});
    return flush(now_us);
}

void RecordingWriter::append(const Entry& entry) {
    if (waiting_.empty()) {
        oldest_us_ = entry.time_us;
    }
    formatter_.append(waiting_, entry);
}

// Tells of what is not recorded as soon as there is room again: with the time of the last entry, since those that follow
// may be older than the clock tells now.
void RecordingWriter::note_losses() {
    if (lost_ > 0 && waiting_.size() < waiting_bytes / 2) {
        append({.time_us = last_us_,
                .kind = EntryKind::note,
                .bytes = {},
                .settings = {},
                .text = "bytes not recorded " + std::to_string(std::exchange(lost_, 0))});
    }
}

// Gives all to the disk, as far as it takes it. What it does not take waits, also the rest of a line.
bool RecordingWriter::put(std::uint64_t now_us) {
    if (waiting_.empty()) {
        return true;
    }
    if (now_us < retry_us_) {
        return false;
    }
    std::size_t written = 0;
    while (written < waiting_.size()) {
        const ssize_t count = ::write(descriptor_, waiting_.data() + written, waiting_.size() - written);
        if (count > 0) {
            written += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            fail(count == 0 ? ENOSPC : errno);
            retry_us_ = now_us + flush_period_us;
            break;
        }
    }
    waiting_.erase(0, written);
    oldest_us_ = now_us;
    if (fdatasync(descriptor_) != 0) {  // what the system had taken is lost
        fail(errno);
    }
    return waiting_.empty();
}

void RecordingWriter::fail(int reason) {
    if (!std::exchange(told_, true) && report_) {
        report_(path_ + " takes nothing more, the line is carried on without being recorded: " +
                std::strerror(reason));
    }
}

}  // namespace vehicle_recorder
