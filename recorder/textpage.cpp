#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>

#include "recorder/notewords.h"
#include "recorder/reportfacts.h"
#include "recorder/reportpages.h"
#include "recorder/reportphrases.h"
#include "recorder/verdict.h"

namespace vehicle_recorder {

namespace {

namespace words = report_phrases;

constexpr std::size_t page_width = 80;  // characters
constexpr std::size_t curve_width = 40;
constexpr std::size_t seconds_width = 14;
constexpr std::size_t most_faults = 20;  // of those that are listed one by one

// Characters of a UTF-8 text.
std::size_t length_of(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    }));
}

std::string padded(const std::string& text, std::size_t width) {
    const std::size_t length = length_of(text);
    return text + std::string(width > length ? width - length : 0, ' ');
}

std::string right(const std::string& text, std::size_t width) {
    const std::size_t length = length_of(text);
    return std::string(width > length ? width - length : 0, ' ') + text;
}

// Breaks a text between words.
std::string wrapped(const std::string& text) {
    std::string page;
    std::size_t column = 0;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(' ', begin), text.size());
        const std::string word = text.substr(begin, end - begin);
        const std::size_t length = length_of(word);
        if (column > 0) {
            const bool fits = column + 1 + length <= page_width;
            page += fits ? ' ' : '\n';
            column = fits ? column + 1 : 0;
        }
        page += word;
        column += length;
        begin = end + 1;
    }
    return page + "\n";
}

std::string heading(const std::string& text) {
    return "\n" + text + "\n";
}

std::string fact_lines(const std::vector<Fact>& facts) {
    std::size_t width = 0;
    for (const Fact& fact : facts) {
        width = std::max(width, length_of(fact.name));
    }
    std::string lines;
    for (const Fact& fact : facts) {
        lines += "  " + padded(fact.name, width) + "  " + fact.value +
                 (fact.note.empty() ? "" : "  (" + fact.note + ")") + "\n";
    }
    return lines;
}

// A series as a row of bars, each as high as the middle of the values in its part of the time; blank without a value.
std::string bars(const Series& series, std::int64_t length_us) {
    constexpr std::array<const char*, 8> heights = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const TimeBuckets<Stretch>& stretches = series.stretches();
    std::array<Stretch, curve_width> parts;
    for (std::size_t index = 0; index < stretches.size(); ++index) {
        const auto middle =
            static_cast<std::uint64_t>((2 * static_cast<std::int64_t>(index) + 1) * stretches.width_us() / 2);
        const auto whole = static_cast<std::uint64_t>(std::max<std::int64_t>(length_us, 1));
        const std::uint64_t part = middle * curve_width / whole;
        parts[std::min<std::uint64_t>(part, curve_width - 1)].absorb(stretches[index]);
    }
    const Extremes extremes = series.extremes().value_or(Extremes{0, 0});
    const double range = extremes.max - extremes.min;
    std::string row;
    for (const Stretch& part : parts) {
        const double share = range > 0 ? ((part.min + part.max) / 2 - extremes.min) / range : 0;
        const auto height =
            static_cast<std::size_t>(std::lround(share * static_cast<double>(heights.size() - 1)));
        row += part.count == 0 ? " " : heights[height];
    }
    return row;
}

struct Curve {
    std::string name;
    const Series* series;
};

std::string curve_lines(const Report& report, const std::vector<Curve>& curves, const Phrasing& phrasing) {
    constexpr std::size_t name_width = 19;
    constexpr std::size_t number_width = 7;
    std::string lines = "  " + padded("", name_width + curve_width + 1) +
                        right(phrasing(words::lowest), number_width) + " " +
                        right(phrasing(words::highest), number_width) + "\n";
    for (const Curve& curve : curves) {
        if (const std::optional<Extremes>& extremes = curve.series->extremes()) {
            lines += "  " + padded(curve.name, name_width) + bars(*curve.series, report.length_us) + " " +
                     right(phrasing.plain(extremes->min), number_width) + " " +
                     right(phrasing.plain(extremes->max), number_width) + "\n";
        }
    }
    return lines;
}

std::string curve_section(const Report& report, const Phrasing& phrasing) {
    const auto with_unit = [&](const Phrase& name, const char* unit) {
        return phrasing(name) + std::string(unit);
    };
    return heading(phrasing(words::over_time)) +
           curve_lines(report,
                       {{with_unit(words::speed_short, " (rpm)"), &report.speed},
                        {phrasing(words::throttle), &report.throttle},
                        {phrasing(words::direction), &report.direction},
                        {phrasing(words::bucket), &report.bucket},
                        {phrasing(words::motor), &report.motor},
                        {phrasing(words::voltage), &report.voltage},
                        {phrasing(words::current), &report.current},
                        {with_unit(words::capacity, " (Ah)"), &report.capacity},
                        {with_unit(words::cycle, " (ms)"), &report.cycle_ms},
                        {with_unit(words::delay, " (ms)"), &report.delay_ms}},
                       phrasing);
}

std::string spread_line(const Phrase& name, const Spread& spread, const Phrasing& phrasing) {
    std::string line;
    for (const Fact& fact : spread_facts(spread, phrasing)) {
        std::string called = fact.name;
        if (!line.empty()) {
            called[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(called[0])));
        }
        line += (line.empty() ? "" : ", ") + called + "\u00a0" + fact.value;
    }
    return line.empty() ? "" : heading(phrasing(name)) + wrapped(line);
}

std::string in_part(std::size_t shown, std::uint64_t all, const Phrasing& phrasing) {
    return shown == all ? "" : " (" + first_of(shown, all, phrasing) + ")";
}

std::string moment(const Report& report, std::int64_t time_us, const Phrasing& phrasing) {
    return right(Phrasing::seconds(time_us), seconds_width) + "  " +
           phrasing.time_of_day(report.header, time_us, 3);
}

std::string opening_section(const Report& report, const Phrasing& phrasing) {
    const FirstOf<Opening>& openings = report.openings;
    if (openings.count == 0) {
        return {};
    }
    std::string section =
        heading(phrasing(words::openings) + in_part(openings.entries.size(), openings.count, phrasing));
    for (const Opening& opening : openings.entries) {
        section += moment(report, opening.opened_us, phrasing) + "  " + phrasing({"opened", "avattu"}) +
                   (opening.settings.empty() ? "" : ", " + opening.settings) + "\n";
        section += opening.closed_us ? moment(report, *opening.closed_us, phrasing) + "  " +
                                           phrasing({"closed", "suljettu"})
                                     : std::string(seconds_width, ' ') + "  " + phrasing(words::not_closed);
        section += ", " + phrasing.whole(opening.frames) + phrasing({" frames, ", " viestiä, "}) +
                   phrasing.whole(opening.replies) + phrasing({" replies;\n", " vastausta;\n"}) +
                   std::string(seconds_width + 2, ' ') +
                   phrasing({"left the vehicle: ", "ajoneuvon tila: "}) +
                   words_of(opening.rest, opening.throttle, phrasing) + "\n";
    }
    return section;
}

std::string fault_section(const Report& report, const Phrasing& phrasing) {
    const FirstOf<FaultyReply>& faulty = report.faulty;
    if (faulty.count == 0) {
        return {};
    }
    const std::size_t shown = std::min(most_faults, faulty.entries.size());
    std::string section = heading(phrasing(words::faulty) + in_part(shown, faulty.count, phrasing));
    for (std::size_t index = 0; index < shown; ++index) {
        const FaultyReply& reply = faulty.entries[index];
        section += moment(report, reply.time_us, phrasing) + "  " + words_of(reply, phrasing) + "\n";
    }
    return section;
}

std::string note_section(const Report& report, const Phrasing& phrasing) {
    if (report.notes.count == 0) {
        return {};
    }
    std::string section =
        heading(phrasing(words::notes) + in_part(report.notes.entries.size(), report.notes.count, phrasing));
    for (const Note& note : report.notes.entries) {
        section +=
            moment(report, note.time_us, phrasing) + "  " + note_words(note.text, phrasing.language()) + "\n";
    }
    return section;
}

}  // namespace

std::string text_page(const Report& report, const Phrasing& phrasing) {
    const Verdict verdict = verdict_on(report, phrasing);
    std::string judgement = phrasing(grade_phrase(verdict.grade)) + std::string(". ") + verdict.line;
    for (const std::string& sentence : verdict.ending) {
        judgement += " " + sentence;
    }
    std::string page = phrasing(words::kind) + std::string("\n") + period_of(report, phrasing) + "\n\n" +
                       wrapped(judgement) + heading(phrasing(words::at_a_glance)) +
                       fact_lines(main_facts(report, phrasing)) + curve_section(report, phrasing) +
                       spread_line(words::cycle, report.cycle, phrasing) +
                       spread_line(words::delay, report.delay, phrasing) + opening_section(report, phrasing) +
                       fault_section(report, phrasing) + note_section(report, phrasing) +
                       heading(phrasing(words::about)) + fact_lines(origin_facts(report, phrasing));
    // On a terminal a blank is a blank.
    const std::string no_break_space = "\u00a0";
    for (std::size_t place = 0; (place = page.find(no_break_space, place)) != std::string::npos;) {
        page.replace(place, no_break_space.size(), " ");
    }
    return page;
}

}  // namespace vehicle_recorder
