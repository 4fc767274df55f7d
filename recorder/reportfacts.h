/// @file
/// The figures of a report in words, for every kind of page.

#ifndef RECORDER_REPORTFACTS_H
#define RECORDER_REPORTFACTS_H

#include <string>
#include <vector>

#include "recorder/phrasing.h"
#include "recorder/report.h"

namespace vehicle_recorder {

/// A figure with its name.
struct Fact {
    std::string name;
    std::string value;
    std::string note = {};  ///< what stands beside it in small letters; may be empty
    bool wrong = false;     ///< whether it tells of something that should not be
};

/// Date, from when to when.
std::string period_of(const Report& report, const Phrasing& phrasing);

/// The figures that matter most.
std::vector<Fact> main_facts(const Report& report, const Phrasing& phrasing);

/// The cycle time or the reply delay: shortest, median, 95 and 99 per cent, longest, mean, standard deviation.
std::vector<Fact> spread_facts(const Spread& spread, const Phrasing& phrasing);

/// Where the recording comes from, and its totals.
std::vector<Fact> origin_facts(const Report& report, const Phrasing& phrasing);

/// How much of a list is shown: "the first 100 of 1,234".
std::string first_of(std::size_t shown, std::uint64_t all, const Phrasing& phrasing);

/// What was wrong with a reply.
std::string words_of(const FaultyReply& reply, const Phrasing& phrasing);

}  // namespace vehicle_recorder

#endif
