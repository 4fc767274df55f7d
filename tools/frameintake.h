/// @file
/// Takes the frames of a bus from the kernel as soon as they come, whatever the rest of the program is busy with.
///
/// The kernel keeps some hundred frames for a program that may not ask for more, which is some hundredths of a second of a
/// full bus. A terminal that scrolls, a disk that writes or a reader of a pipe that waits take longer. A thread of its own
/// does nothing but read, into memory, and the program takes from there what has come.

#ifndef TOOLS_FRAMEINTAKE_H
#define TOOLS_FRAMEINTAKE_H

#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "nodevik/observeddriver.h"
#include "tools/bus.h"
#include "tools/framewords.h"

namespace nodevik_tool {

/// Reads a bus in a thread of its own. As long as it does, nobody else uses the bus.
class FrameIntake final : private FrameObserver {
public:
    /// Room for a minute of a full bus of 1 Mbit/s.
    static constexpr std::size_t most_frames = 1'000'000;

    /// Begins to read.
    /// @param bus   open for listening; outlives this
    /// @param room  most frames that are kept in memory
    /// @throws Failure  the system has no descriptor or thread for it
    explicit FrameIntake(Bus& bus, std::size_t room = most_frames);

    /// Ends reading.
    ~FrameIntake();

    FrameIntake(const FrameIntake&) = delete;
    FrameIntake& operator=(const FrameIntake&) = delete;

    /// Can be read when take() has something new to tell.
    int descriptor() const { return news_; }

    /// What has come since the last time.
    struct News {
        std::vector<ShownFrame> frames;  ///< in their order
        std::string remark;   ///< what else the driver tells: that the controller is bus-off; else empty
        std::string trouble;  ///< why no more frames come, said again with each call; else empty
    };

    /// Takes what has come.
    News take();

    /// Ends reading; what has come can still be taken.
    void stop();

    /// Frames that memory had no room for, because they were not taken. To be asked after stop().
    std::uint64_t left_out() const { return left_out_; }

private:
    // How reading went.
    enum class Reading : unsigned char { all, more, failed };

    void end();
    void run();
    bool wait() const;
    Reading read();
    void pass_on(std::string remark, const std::string& trouble);
    void frame_passed(const ObservedFrame& frame) override;

    Bus* bus_;
    std::size_t room_;
    int news_ = -1;                  // eventfd(2): written by the thread
    int stop_ = -1;                  // eventfd(2): read by the thread
    std::vector<ShownFrame> batch_;  // of the thread
    bool has_told_bus_off_ = false;  // of the thread
    std::mutex mutex_;
    News collected_;  // under the mutex, as what follows
    std::uint64_t left_out_ = 0;
    std::thread thread_;
};

}  // namespace nodevik_tool

#endif
