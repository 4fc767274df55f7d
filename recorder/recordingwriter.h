/// @file
/// Writes a recording into a file.

#ifndef RECORDER_RECORDINGWRITER_H
#define RECORDER_RECORDINGWRITER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "recorder/recording.h"

namespace vehicle_recorder {

/// Appends entries to a new file.
///
/// Lines are collected and given to the disk (write(2), fdatasync(2)) once they are a second old, or many. A disk that
/// takes nothing, or loses what it has taken, is told once, and tried again each second: lines that wait for it are kept up to a limit, beyond it
/// entries are dropped, and once there is room again a note tells how many bytes were not recorded. What is in the file
/// is at each moment the beginning of a whole recording. As long as it is written the file has a shared lock (flock(2)).
///
/// Time comes in with the entries and with tick(), as microseconds since the start: no clock is looked at. A call waits
/// for the disk as long as the disk takes, so this stands in a process or thread that may wait.
class RecordingWriter {
public:
    /// Told of a disk that takes nothing, once: a message without a line end.
    using Report = std::function<void(const std::string& message)>;

    static constexpr std::uint64_t flush_period_us =
        1'000'000;                                           ///< longest time that a line waits for the disk
    static constexpr std::size_t collected_bytes = 65'536;   ///< so many are written at once, however young
    static constexpr std::size_t waiting_bytes = 4'194'304;  ///< so many wait for a disk that takes nothing

    /// Makes the file, which must not be there yet, and writes the header into it at once.
    ///
    /// @param path    name of the file
    /// @param header  how the recording begins
    /// @param report  is told of a disk that takes nothing
    /// @throws program::Failure  it cannot be made, or does not take the header; no file is left then
    RecordingWriter(const std::string& path, const RecordingHeader& header, Report report);

    /// Gives what is collected to the disk. Without end() before, the file is one that was cut.
    ~RecordingWriter();

    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    /// Adds an entry, and gives the disk what is due.
    /// @param entry  not older than the one before
    void write(const Entry& entry);

    /// Gives the disk what is due.
    /// @param now_us  microseconds since the start
    void tick(std::uint64_t now_us);

    /// The time at which something is due: tick() is to be called then at the latest. UINT64_MAX when nothing is.
    std::uint64_t due_us() const;

    /// Gives the disk all that is collected, however young.
    /// @return whether the disk has all
    bool flush(std::uint64_t now_us);

    /// Descriptor of the file, for a process that closes all others.
    int descriptor() const { return descriptor_; }

    /// Adds that @p count bytes of the line were lost before they came here: the note tells of them, too.
    void lose(std::uint64_t count) { lost_ += count; }

    /// Adds the entry `end` and gives all to the disk.
    /// @param now_us  microseconds since the start
    /// @return whether the disk has all
    bool end(std::uint64_t now_us);

private:
    bool put(std::uint64_t now_us);
    void fail(int reason);
    void note_losses();
    void append(const Entry& entry);

    std::string path_;
    Report report_;
    int descriptor_ = -1;
    EntryFormatter formatter_;
    std::string waiting_;
    std::uint64_t last_us_ = 0;    // of the last entry that came
    std::uint64_t oldest_us_ = 0;  // of what waits
    std::uint64_t retry_us_ = 0;   // a disk that takes nothing is not tried again before
    std::uint64_t lost_ = 0;       // bytes of the line that are not recorded and not told of yet
    bool told_ = false;
};

}  // namespace vehicle_recorder

#endif
