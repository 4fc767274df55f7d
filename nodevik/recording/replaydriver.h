/// @file
/// A CAN driver that plays a log: a control program can be run against yesterday's bus.
///
/// @code
/// ReplayDriver bus;
/// if (bus.open_log("bus.log") != 0) {
///     std::perror("bus.log");
/// }
/// bus.set_speed(0);                            // as fast as it is read
/// master.load_driver(bus);
/// while (!bus.at_end()) {
///     one_cycle(master);
/// }
/// assert(bus.comparison().different == 0);     // the program did what it did then
/// @endcode
///
/// The frames that others sent then are read; those that the program itself sent then are not, but what it writes now is
/// compared with them, one after the other. Which ones these are says the log's letter, where it has one (candump -x), or
/// else the identifier: what a CANopen master sends, see master_sends().
///
/// The time of a log begins with the first read() after open_log(), or with start().

#ifndef NODEVIK_RECORDING_REPLAYDRIVER_H
#define NODEVIK_RECORDING_REPLAYDRIVER_H

#include <cstdint>
#include <functional>

#include "nodevik/candriver.h"
#include "nodevik/observeddriver.h"
#include "nodevik/recording/framelog.h"
#include "nodevik/util/export.h"

/// Plays a log.
class NODEVIK_EXPORT ReplayDriver : public CANdriver {
public:
    /// Whether the program itself sent a frame of the log.
    using SentByProgram = std::function<bool(const LogFrame& frame)>;

    /// What was written now, beside what was written then.
    struct Comparison {
        std::uint64_t same = 0;       ///< frames that are equal in identifier, length, data and kind
        std::uint64_t different = 0;  ///< frames that are not
        std::uint64_t more = 0;       ///< frames beyond the last one of the log
    };

    /// Called for each frame that differs.
    /// @param written  what the program writes now; its time is that of the log's frame, or 0
    /// @param then     what it wrote then; null when the log has no further frame
    using Difference = std::function<void(const LogFrame& written, const LogFrame* then)>;

    /// Opens nothing. Frames come in real time.
    ReplayDriver();

    /// Opens a log; an earlier one is closed.
    ///
    /// @param path  name of the file, which can be read from the front more than once
    /// @retval 0   it is open
    /// @retval -1  it is not, and errno tells why
    int open_log(const char* path);

    /// Sets how fast the time of the log passes, from now on.
    /// @param factor  1 as it was, 2 twice as fast; 0: the next frame is always there. Negative, infinite and no number
    ///                count as 0
    void set_speed(double factor);

    /// Sets which frames of the log the program itself sent, before the first read(); empty: as the log's letters say,
    /// else by master_sends().
    void set_sent_by_program(SentByProgram decision) { decides = std::move(decision); }

    /// Sets who is told of frames that differ; may be empty.
    void set_difference(Difference callback) { difference = std::move(callback); }

    /// Begins the time of the log now: its first frame is due at once.
    void start();

    /// Whether a CANopen master sends such frames: NMT, SYNC, TIME, RPDOs and SDO requests by the predefined connection
    /// set (CiA 301, 7.3.3), LSS requests, and every remote request.
    static bool master_sends(const LogFrame& frame);

    /// Whether every frame has been read.
    bool at_end() const { return ended; }

    /// What was written now, beside what was written then.
    const Comparison& comparison() const { return compared; }

    /// Frames of the log that the program has not written again yet. It reads the log to its end.
    std::uint64_t missing();

    /// When the next frame can be read.
    /// @return nanoseconds of CLOCK_MONOTONIC, a time that is past for one that is there; no_deadline at the end
    std::uint64_t next_deadline();

    /// For the constructor of ObservedDriver: the time of the log, and the kind of each frame.
    static ObservedDriver::Details details(const CANdriver& driver);

    /// @name The driver interface
    /// @{

    /// Opens nothing: the log is opened by open_log().
    /// @retval 0   a log is open
    /// @retval -1  none is
    int open(unsigned int speed, unsigned int mode, unsigned int port, bool silent) override;

    /// Closes the log.
    void close() override;

    /// Reads the next frame whose time has come.
    /// @retval 0   a frame has been stored
    /// @retval 1   none is due, or the log is at its end
    /// @retval -1  the log cannot be read, or none is open
    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override;

    /// Compares a frame with the next one that the program wrote then. It goes nowhere.
    /// @retval 0  always
    int write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) override;

    /// Waits for a frame and reads it.
    /// @param timeout  longest wait, in milliseconds
    /// @return as read()
    int read_wait(unsigned int& ID, unsigned int& length, unsigned char* data, long timeout) override;

    /// Counts nothing. @retval 0 always
    int read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) override;

    /// Does nothing.
    void reset_rx_errors() override {}

    /// Does nothing.
    void reset_tx_errors() override {}
    /// @}

private:
    NODEVIK_LOCAL bool was_sent(const LogFrame& frame) const;
    NODEVIK_LOCAL int find(FrameLogReader& log, bool sent, LogFrame& frame) const;
    NODEVIK_LOCAL void fetch();
    NODEVIK_LOCAL std::uint64_t due(const LogFrame& frame) const;

    FrameLogReader heard;  // reads the log for the frames of others,
    FrameLogReader own;    // and for those of the program
    SentByProgram decides;
    Difference difference;
    Comparison compared;
    LogFrame next;
    LogFrame last;
    bool has_next = false;
    bool ended = true;
    bool failed = false;
    double speed = 1;
    bool started = false;
    std::uint64_t origin_ns = 0;  // the time at which origin_us of the log is
    std::uint64_t origin_us = 0;
};

#endif
