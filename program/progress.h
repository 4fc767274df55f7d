/// @file
/// How far something long has come, as one line on a terminal that is drawn over and over.

#ifndef PROGRAM_PROGRESS_H
#define PROGRAM_PROGRESS_H

#include <cstdint>

namespace program {

/// A bar on standard error, taken away again at the end. Where standard error is no terminal nothing is drawn.
class Progress {
public:
    /// @param wanted  false draws nothing
    explicit Progress(bool wanted);

    /// Takes the bar away.
    ~Progress();

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Shows how much is done, ten times a second at most.
    /// @param done   bytes so far
    /// @param total  bytes of all; 0 when nobody knows
    void update(std::uint64_t done, std::uint64_t total);

    /// Takes the bar away: what is printed next begins on an empty line.
    void clear();

private:
    bool wanted_;
    bool drawn_ = false;
    std::uint64_t next_ms_ = 0;  // CLOCK_MONOTONIC
};

}  // namespace program

#endif
