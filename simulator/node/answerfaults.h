/// @file
/// Faults that a bus puts on the answers of its nodes: late, lost, duplicated, foreign.

#ifndef SIMULATOR_NODE_ANSWERFAULTS_H
#define SIMULATOR_NODE_ANSWERFAULTS_H

#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "simulator/node/canframe.h"

namespace node_simulator {

/// How often answers are disturbed, each kind in percent of what it can strike (0 to 100).
struct FaultSettings {
    unsigned lost = 0;             ///< the answer never comes
    unsigned late = 0;             ///< the answer comes delay_ms later
    unsigned duplicated = 0;       ///< the answer comes twice
    unsigned foreign = 0;          ///< an answer of another node, to another question, comes first
    unsigned unheard = 0;          ///< the request never arrives
    unsigned toggled = 0;          ///< the toggle bit of a segment or of its confirmation is wrong
    unsigned wrong_crc = 0;        ///< the check sum of a block upload is wrong
    unsigned endless = 0;          ///< an upload by segments or blocks never comes to its last segment
    unsigned delay_ms = 30;        ///< how late a late answer is
    std::optional<unsigned> most;  ///< no more faults of the bus, and of each node, than this; none: no limit
    unsigned seed = 1;             ///< same seed, same faults

    bool operator==(const FaultSettings&) const = default;
};

/// A frame and when it goes out.
struct TimedFrame {
    CanFrame frame;
    Time due = 0;
};

/// Disturbs answers, repeatably.
class AnswerFaults {
public:
    /// @param settings  which faults, how often
    explicit AnswerFaults(const FaultSettings& settings);

    /// What goes out instead of @p answer, which is sent at @p now.
    std::vector<TimedFrame> disturb(const CanFrame& answer, Time now);

    /// Whether a request is lost on its way to the nodes.
    bool loses_request();

private:
    bool strikes(unsigned percent);

    FaultSettings settings_;
    std::mt19937 random_;
    unsigned struck_ = 0;
};

/// Faults that a server makes in its transfers, repeatably.
class TransferFaults {
public:
    /// @param settings  which faults, how often
    /// @param node      node number: with the same seed, each node makes faults of its own
    TransferFaults(const FaultSettings& settings, std::uint8_t node);

    /// Whether the toggle bit of the present frame is wrong.
    bool toggled() { return strikes(settings_.toggled); }

    /// Whether the check sum of the present block upload is wrong.
    bool wrong_crc() { return strikes(settings_.wrong_crc); }

    /// Whether the upload that begins has no end.
    bool endless() { return strikes(settings_.endless); }

private:
    bool strikes(unsigned percent);

    FaultSettings settings_;
    std::mt19937 random_;
    unsigned struck_ = 0;
};

}  // namespace node_simulator

#endif
