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

/// How often answers are disturbed, each kind in percent of the answers (0 to 100).
struct FaultSettings {
    unsigned lost = 0;             ///< the answer never comes
    unsigned late = 0;             ///< the answer comes delay_ms later
    unsigned duplicated = 0;       ///< the answer comes twice
    unsigned foreign = 0;          ///< an answer of another node, to another question, comes first
    unsigned delay_ms = 30;        ///< how late a late answer is
    std::optional<unsigned> most;  ///< disturb no more answers than this; none: no limit
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

private:
    bool strikes(unsigned percent);

    FaultSettings settings_;
    std::mt19937 random_;
    unsigned struck_ = 0;
};

}  // namespace node_simulator

#endif
