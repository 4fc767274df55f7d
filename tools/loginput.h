/// @file
/// Logs that commands read.

#ifndef TOOLS_LOGINPUT_H
#define TOOLS_LOGINPUT_H

#include <string>

#include "nodevik/recording/framelog.h"
#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// A log that is read, also one that still comes through a pipe. Lines that are none of a log are told.
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

private:
    void require_log() const;
    void wait() const;
    [[noreturn]] void fail(int reason) const;

    const Session* session_;
    std::string file_;
    FrameLogReader reader_;
    int descriptor_ = -1;  // the reader's
    unsigned int count_ = 0;
    bool has_frames_ = false;
    bool has_foreign_lines_ = false;
    FrameLogReader::PassedOver first_pass_;
    bool is_first_pass_ = true;
};

}  // namespace nodevik_tool

#endif
