/// @file
/// Results of any length on their way to standard output or into a file.

#ifndef RECORDER_RESULTSTREAM_H
#define RECORDER_RESULTSTREAM_H

#include <string>
#include <string_view>

#include "recorder/interrupts.h"

namespace vehicle_recorder {

/// Takes text piece by piece. A file stands under its name only when all of it is on the disk: until then it stands
/// beside it under a temporary one (the name, a full stop and six letters), and is removed when finish() is not reached.
/// What was under the name before stays until then. What is no regular file is written to as it is.
class ResultStream {
public:
    /// @param path        name of the file; empty for standard output
    /// @param interrupts  end the wait for a reader that does not read; must outlive this object
    /// @throws program::Failure  it cannot be written
    ResultStream(const std::string& path, const Interrupts& interrupts);
    ~ResultStream();
    ResultStream(const ResultStream&) = delete;
    ResultStream& operator=(const ResultStream&) = delete;

    /// Adds text.
    /// @throws program::ClosedPipe, program::Interrupted, program::Failure  as finish()
    void add(std::string_view text);

    /// Writes what is collected, and gives a file its name.
    /// @throws program::ClosedPipe   nobody reads any more
    /// @throws program::Interrupted  a signal came while nobody read
    /// @throws program::Failure      it cannot be written: the disk is full
    void finish();

    /// Whether what is added comes up on a terminal.
    bool is_terminal() const;

private:
    void flush();
    [[noreturn]] void fail(int reason) const;

    std::string path_;
    std::string temporary_;  // empty: nothing to remove
    const Interrupts* interrupts_;
    int descriptor_ = -1;
    std::string collected_;
};

/// Keeps a result from taking the place of the recording that it is made of.
/// @param recording  name of the recording
/// @param result     name of the file for the result; empty for standard output
/// @throws program::Failure  both are the same file, by whatever names (wrong usage)
void refuse_to_overwrite(const std::string& recording, const std::string& result);

}  // namespace vehicle_recorder

#endif
