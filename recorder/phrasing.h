/// @file
/// How numbers and times are written in the language of what a person reads.

#ifndef RECORDER_PHRASING_H
#define RECORDER_PHRASING_H

#include <cstdint>
#include <string>

#include "recorder/recording.h"
#include "recorder/texts.h"

namespace vehicle_recorder {

/// Writes numbers, times and dates as readers of a language expect them.
class Phrasing {
public:
    explicit Phrasing(Language language) : language_(language) {}

    /// The language.
    Language language() const { return language_; }

    /// The text in this language.
    const char* operator()(const Phrase& phrase) const { return phrase.in(language_); }

    /// A whole number, its thousands apart: "1,234", "1 234".
    std::string whole(std::int64_t number) const;

    /// The same for a count.
    std::string whole(std::uint64_t number) const { return whole(static_cast<std::int64_t>(number)); }

    /// A number with decimals: "1,234.5", "1 234,5".
    std::string decimal(double number, int decimals) const;

    /// A number with as few of at most three decimals as tell it: "482", "0.5".
    std::string plain(double number) const;

    /// A share of a whole in per cent: "1.0 %". Whatever is neither nothing nor all is not told as such: "under 0.1 %".
    std::string share(std::uint64_t part, std::uint64_t whole) const;

    /// A time in the unit that suits it: "3.2 ms", "1.25 s", "12 min 5 s", "8 h 0 min".
    std::string duration(std::int64_t time_us) const;

    /// A time in milliseconds: "210.4 ms", "45.02 ms".
    std::string milliseconds(double time_us) const;

    /// Seconds since the start as the recording has them, six decimals and a full stop in any language, so that they
    /// can be searched for in the file: "5.100000".
    static std::string seconds(std::int64_t time_us);

    /// The date with its weekday: "Sunday 22 November 2026", "sunnuntai 22.11.2026".
    std::string date(const RecordingHeader& start) const;

    /// The time of day: "03:25:03", "3.25.03".
    /// @param time_us  since @p start
    std::string time_of_day(const RecordingHeader& start, std::int64_t time_us) const;

    /// The same without seconds, or with parts of a second.
    /// @param decimals  of the seconds, 0 to 3; -1 for no seconds at all
    std::string time_of_day(const RecordingHeader& start, std::int64_t time_us, int decimals) const;

private:
    Language language_;
};

}  // namespace vehicle_recorder

#endif
