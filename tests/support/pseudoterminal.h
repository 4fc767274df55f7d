/// @file
/// A pseudo-terminal pair: the test plays the far end of a serial line.

#ifndef TESTS_SUPPORT_PSEUDOTERMINAL_H
#define TESTS_SUPPORT_PSEUDOTERMINAL_H

#include <termios.h>

#include <cstddef>
#include <string>

/// The far end of a serial line. The near end is opened by what is being tested, under path().
class PseudoTerminal {
public:
    PseudoTerminal();
    ~PseudoTerminal();
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    /// Path of the near end, /dev/pts/N; valid as long as the object.
    const std::string& path() const { return path_; }

    /// The same, as the char* that the line's open takes.
    char* device() { return path_.data(); }

    /// Descriptor of the far end.
    int far_end() const { return far_end_; }

    /// Writes all of @p bytes into the line, towards the near end.
    void send(const std::string& bytes) const;

    /// Reads until @p count bytes have come from the near end or @p limit_ms have passed; returns what came.
    std::string receive(std::size_t count, int limit_ms = 10000) const;

    /// The line's attributes as they stand now.
    termios attributes() const;

    /// Waits until the near end could read @p count bytes; false after @p limit_ms.
    bool wait_readable(int near_end, int count, int limit_ms = 10000) const;

    /// Hangs the line up: closes the far end. Reading and writing the near end fail from now on.
    void hang_up();

private:
    int far_end_ = -1;
    int keeper_ = -1;  // keeps the near end open, so that its attributes and bytes survive a close
    std::string path_;
};

#endif
