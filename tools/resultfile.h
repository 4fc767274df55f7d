/// @file
/// A file that is written when its content is complete.

#ifndef TOOLS_RESULTFILE_H
#define TOOLS_RESULTFILE_H

#include <sys/types.h>

#include <string>
#include <string_view>

#include "tools/output.h"

namespace nodevik_tool {

/// The whole content of a file, or of what a pipe brings; a signal ends the process while it waits for that.
/// @throws Failure  it cannot be read
std::string file_content(const std::string& path);

/// Opens a file for results. What is in it stays until there is something else to be put there, and a new file goes
/// again when nothing is.
class ResultFile {
public:
    /// @param path    name of the file; /dev/stdout too
    /// @param output  the results, for a path that leads to standard output
    /// @throws Failure  it cannot be written
    ResultFile(const std::string& path, Output& output);
    ~ResultFile();
    ResultFile(const ResultFile&) = delete;
    ResultFile& operator=(const ResultFile&) = delete;

    /// Replaces what is in the file: a new file takes its place where one can be made beside it.
    /// @throws Failure  the disk does not take all of it: what was in the file stays
    /// @throws ClosedPipe, Interrupted  of standard output, see Output::flush()
    void write(std::string_view bytes);

private:
    bool replace(std::string_view bytes, mode_t mode) const;

    std::string path_;
    Output* output_;
    int descriptor_ = -1;
    bool is_new_ = false;  // made by this object, and without its content yet
    bool is_standard_output_ = false;
};

}  // namespace nodevik_tool

#endif
