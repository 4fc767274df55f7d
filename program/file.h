/// @file
/// Ownership of a C stream.

#ifndef PROGRAM_FILE_H
#define PROGRAM_FILE_H

#include <cstdio>
#include <memory>

namespace program {

/// Closes a stream, fclose(3).
struct CloseFile {
    /// @param file  the stream, not null
    void operator()(std::FILE* file) const { std::fclose(file); }
};

/// A stream that is closed with its owner; null when there is none.
using File = std::unique_ptr<std::FILE, CloseFile>;

}  // namespace program

#endif
