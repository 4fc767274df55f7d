/// @file
/// A file that is there whole or not at all.

#ifndef RECORDER_WHOLEFILE_H
#define RECORDER_WHOLEFILE_H

#include <string>
#include <string_view>

namespace vehicle_recorder {

/// Writes a file under its name only when all of it is on the disk: until then it stands beside it under a temporary
/// one (the name, a full stop and six letters), and what was under the name before stays. What is no regular file, such
/// as /dev/stdout or a pipe, is written to as it is.
/// @param path     name of the file; a symbolic link is followed
/// @param content  what is to stand in it
/// @throws program::Failure  it cannot be written; nothing is left of it then
void write_whole_file(const std::string& path, std::string_view content);

/// A file in the directory for temporary files, TMPDIR or /tmp, that goes with the object.
class TemporaryFile {
public:
    /// @param ending  of its name, such as ".csv"
    /// @throws program::Failure  it cannot be made
    explicit TemporaryFile(const std::string& ending);
    ~TemporaryFile();

    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    /// Its name.
    const std::string& path() const { return path_; }

    /// Takes what is written to it; belongs to this object.
    int descriptor() const { return descriptor_; }

private:
    std::string path_;
    int descriptor_ = -1;
};

}  // namespace vehicle_recorder

#endif
