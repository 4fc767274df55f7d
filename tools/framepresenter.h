/// @file
/// Frames as results: a line or a JSON object each, those that are wanted, and what they were together.

#ifndef TOOLS_FRAMEPRESENTER_H
#define TOOLS_FRAMEPRESENTER_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "nodevik/nodes/devicepdo.h"
#include "tools/blocksegments.h"
#include "tools/framewords.h"
#include "tools/objects.h"
#include "tools/session.h"

namespace nodevik_tool {

/// Which frames are shown, and how.
struct FrameOptions {
    std::string kinds;        ///< words of kind_of() with commas between them; empty for all
    std::string identifiers;  ///< "0x181", "0x180-0x1FF"; empty for all
    std::uint64_t count = 0;  ///< how many are shown at most; 0 all
    bool raw = false;         ///< as lines of candump's log
    bool statistics = false;  ///< a line for each identifier at the end instead
};

/// Takes "0x181" or "0x180-0x1FF" apart.
/// @param text  empty for all
/// @return the first and the last identifier
/// @throws Failure  it is none
std::pair<unsigned int, unsigned int> parse_identifiers(const std::string& text);

/// Shows frames.
class FramePresenter {
public:
    /// @throws Failure  kinds or identifiers are none, or a description cannot be used
    FramePresenter(const Session& session, const FrameOptions& options);

    /// Shows a frame if it is wanted.
    void show(const ShownFrame& frame);

    /// Sets the bit rate that the summary's load refers to.
    /// @param bit_rate  bit/s; 0 when it is not known: no load is told
    void set_bit_rate(unsigned int bit_rate) { bit_rate_ = bit_rate; }

    /// Whether as many as were asked for have been shown.
    bool is_complete() const { return options_.count != 0 && shown_ >= options_.count; }

    /// Shows the statistics, if they were asked for.
    /// @param seconds  what rates refer to; 0 when nobody knows
    void show_statistics(double seconds);

    /// "12 frames in 3.0 s, 4.0 frames/s, 0.4 kbit/s", and with a bit rate the load: " (0.1 % of 500 kbit/s)".
    std::string summary(double seconds) const;

    /// Seconds between the first and the last frame.
    double span() const;

private:
    struct Identifier {
        FrameKind kind;
        std::uint64_t frames = 0;
    };

    bool is_wanted(const ShownFrame& frame, const FrameKind& kind) const;
    nlohmann::ordered_json objects_json(const ShownFrame& frame) const;
    void show_json(const ShownFrame& frame, const FrameKind& kind, unsigned int segment);
    void show_text(const ShownFrame& frame, const FrameKind& kind, unsigned int segment);

    Output* output_;
    FrameOptions options_;
    Descriptions descriptions_;
    FrameNames names_;
    BlockSegments blocks_;
    std::set<std::string> kinds_;
    std::pair<unsigned int, unsigned int> identifiers_{0, UINT32_MAX};
    std::map<std::pair<bool, unsigned int>, Identifier> statistics_;
    std::uint64_t shown_ = 0;
    std::uint64_t bits_ = 0;
    unsigned int bit_rate_ = 0;
    std::uint64_t first_us_ = 0;
    std::uint64_t last_us_ = 0;
};

}  // namespace nodevik_tool

#endif
