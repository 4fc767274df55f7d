/// @file
/// Logs that commands read.

#ifndef TOOLS_LOGINPUT_H
#define TOOLS_LOGINPUT_H

#include <algorithm>
#include <cstdint>
#include <string>

#include "nodevik/recording/framelog.h"
#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// A log that is read, also one that still comes through a pipe. Lines that are none of a log are told, of those ahead
/// of the first frame ten and the number of the others: a file that is no log has many.
class LogInput {
public:
    /// Opens a log; of a pipe it waits for whoever writes.
    ///
    /// @param file  its name
    /// @throws Failure      it cannot be read
    /// @throws Interrupted  a signal has come
    LogInput(const Session& session, const std::string& file);
    LogInput(const LogInput&) = delete;
    LogInput& operator=(const LogInput&) = delete;

    /// Reads up to the next frame.
    ///
    /// @param frame  takes it
    /// @return false at the end of the log
    /// @throws Failure      it cannot be read, or is no log: it has lines, and none of them is one of a log
    /// @throws Interrupted  a signal has come
    /// @throws ClosedPipe   nobody reads the results any more
    bool next(LogFrame& frame);

    /// Begins from the front again. What was told of the log is not told again.
    /// @throws Failure  it cannot be read from the front: it is a pipe
    void rewind();

    /// Tells how many lines of the log hold what is no frame of a classic bus, if there are any.
    void tell_passed_over() const;

    /// Bytes of the log, of its file; 0 of one that comes through a pipe.
    std::uint64_t size() const { return size_; }

    /// About how many of them stand ahead of the next frame.
    std::uint64_t position() const { return size_ == 0 ? passed_bytes_ : std::min(passed_bytes_, size_); }

private:
    void tell_untold() const;
    void require_log() const;
    void wait() const;
    [[noreturn]] void fail(int reason) const;

    const Session* session_;
    std::string file_;
    FrameLogReader reader_;
    int descriptor_ = -1;  // the reader's
    std::uint64_t size_ = 0;
    std::uint64_t passed_bytes_ = 0;
    unsigned int count_ = 0;
    bool has_frames_ = false;
    bool has_foreign_lines_ = false;
    std::uint64_t told_ahead_ = 0;  // foreign lines ahead of the first frame
    FrameLogReader::PassedOver first_pass_;
    bool is_first_pass_ = true;
};

}  // namespace nodevik_tool

#endif
