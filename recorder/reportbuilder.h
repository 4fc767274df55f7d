/// @file
/// Makes a report of a recording's entries.

#ifndef RECORDER_REPORTBUILDER_H
#define RECORDER_REPORTBUILDER_H

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "recorder/cycles.h"
#include "recorder/interrupts.h"
#include "recorder/recording.h"
#include "recorder/recordingreader.h"
#include "recorder/report.h"

namespace vehicle_recorder {

/// Takes the entries of a recording one by one and gathers what a Report tells. Its memory does not grow with the
/// recording. It stays where it is: what comes of the entries is handed to it later.
class ReportBuilder {
public:
    /// A frame without a reply is unanswered when the line stayed open for so long behind it.
    static constexpr std::int64_t longest_wait_us = 1'000'000;

    /// @param header  how the recording begins
    explicit ReportBuilder(const RecordingHeader& header);

    ReportBuilder(const ReportBuilder&) = delete;
    ReportBuilder& operator=(const ReportBuilder&) = delete;

    /// Takes the next entry.
    void add(const Entry& entry);

    /// Takes the end of the file, and gives the report out.
    /// @param damage  what was wrong with the file
    Report finish(const Damage& damage);

private:
    void open(std::int64_t time_us);
    void close(std::int64_t time_us);
    void end_opening();
    void sent(const Entry& entry);
    void received(const Entry& entry);
    void note(const Entry& entry);
    void hear(std::int64_t time_us);
    void take(const Cycle& cycle);
    void take_frame(const Cycle& cycle);
    void take_reply(const Cycle& cycle);
    void interrupt_curves();
    void judge(const Cycle& cycle);
    bool was_awaited_in_vain(const Cycle& cycle);
    Opening* opening_at(std::int64_t time_us);
    void keep(Opening opening);

    Report report_;
    CycleBuilder cycles_;
    std::deque<Opening> openings_;      // those whose cycles may still come, in order
    std::optional<Opening> last_used_;  // the last one that is complete and had frames
    bool is_open_ = false;
    vehicle::FrameBytes last_sent_ = {};
    std::uint64_t sent_ = 0;  // bytes in this opening
    std::optional<std::int64_t>
        heard_us_;  // since when the vehicle has been silent; none while it is not awaited
};

/// Reads a recording as a whole, with progress on a terminal; what is wrong with the file is told on standard error.
/// @param path        name of the file
/// @param interrupts  are looked at meanwhile
/// @throws program::Failure, program::Interrupted  as read_through()
Report read_report(const std::string& path, const Interrupts& interrupts);

}  // namespace vehicle_recorder

#endif
