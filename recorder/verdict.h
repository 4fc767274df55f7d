/// @file
/// What a recording comes down to, in sentences that an operator understands.

#ifndef RECORDER_VERDICT_H
#define RECORDER_VERDICT_H

#include <string>
#include <vector>

#include "recorder/phrasing.h"
#include "recorder/report.h"

namespace vehicle_recorder {

/// How serious it is.
enum class Grade {
    good,    ///< nothing to be done
    look,    ///< worth a look: the vehicle was safe, but not all was as it should be
    trouble  ///< something went wrong
};

/// The verdict on a recording.
struct Verdict {
    Grade grade = Grade::good;
    std::string line;                 ///< what became of the frames: one to three sentences
    std::vector<std::string> ending;  ///< how it ended, a sentence each, the vehicle first
};

/// Judges a recording.
Verdict verdict_on(const Report& report, const Phrasing& phrasing);

/// A grade in a few words: "All well".
const Phrase& grade_phrase(Grade grade);

/// What a last frame left the vehicle with, in a few words: "at rest", "motor on, throttle 120".
std::string words_of(Rest rest, unsigned throttle, const Phrasing& phrasing);

}  // namespace vehicle_recorder

#endif
