/// @file
/// A file of a test's own.

#ifndef TESTS_SUPPORT_TEMPORARYFILE_H
#define TESTS_SUPPORT_TEMPORARYFILE_H

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "tests/support/filecontent.h"

/// An empty file with a name that no other has; it goes with its owner.
class TemporaryFile {
public:
    TemporaryFile() {
        const char* directory = std::getenv("TMPDIR");
        name_ = std::string(directory != nullptr ? directory : "/tmp") + "/nodevik-test-XXXXXX";
        const int file = mkstemp(name_.data());
        if (file >= 0) {
            close(file);
        }
    }
    ~TemporaryFile() { std::remove(name_.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    /// Its path.
    const std::string& path() const { return name_; }

    /// Replaces what is in it.
    void write(const std::string& text) const { std::ofstream(name_, std::ios::binary) << text; }

    /// What is in it.
    std::string content() const { return file_content(name_); }

private:
    std::string name_;
};

#endif
