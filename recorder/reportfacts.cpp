#include "recorder/reportfacts.h"

#include <cctype>

#include "recorder/reportphrases.h"

namespace vehicle_recorder {

namespace {

namespace words = report_phrases;

Fact fault_fact(const Report& report, Fault fault, const Phrase& name, const Phrasing& phrasing) {
    const std::uint64_t count = report.faults[fault];
    return {.name = phrasing(name),
            .value = phrasing.whole(count),
            .note = count == 0 ? "" : phrasing.share(count, report.frames),
            .wrong = count > 0};
}

std::string time_and_unit(std::int64_t time_us, const Phrasing& phrasing) {
    return phrasing.milliseconds(static_cast<double>(time_us));
}

}  // namespace

std::string period_of(const Report& report, const Phrasing& phrasing) {
    RecordingHeader end = report.header;
    end.wall_us += report.length_us;
    std::string first_day = phrasing.date(report.header);
    const std::string last_day = phrasing.date(end);
    const std::string before_time = phrasing({", ", " klo\u00a0"});
    const bool one_day = first_day == last_day;
    first_day[0] =
        static_cast<char>(std::toupper(static_cast<unsigned char>(first_day[0])));  // it begins a heading
    return first_day + before_time + phrasing.time_of_day(report.header, 0) +
           (one_day ? phrasing({" to ", "\u2013"}) + phrasing.time_of_day(end, 0)
                    : phrasing({" to ", " \u2013 "}) + last_day + before_time + phrasing.time_of_day(end, 0));
}

std::vector<Fact> main_facts(const Report& report, const Phrasing& phrasing) {
    std::vector<Fact> facts;
    facts.push_back({.name = phrasing(words::duration), .value = phrasing.duration(report.length_us)});
    facts.push_back({.name = phrasing(words::frames), .value = phrasing.whole(report.frames)});
    facts.push_back({.name = phrasing(words::replies),
                     .value = phrasing.whole(report.replies),
                     .note = report.replies == 0 ? ""
                                                 : phrasing.share(report.good_replies, report.replies) + " " +
                                                       phrasing(words::faultless)});
    facts.push_back(fault_fact(report, Fault::lost, words::lost, phrasing));
    facts.push_back(fault_fact(report, Fault::late, words::late, phrasing));
    facts.push_back(fault_fact(report, Fault::cut, words::cut, phrasing));
    facts.push_back(fault_fact(report, Fault::garbled, words::garbled, phrasing));
    Fact silence = {.name = phrasing(words::silence), .value = "\u2013"};
    if (report.frames > 0) {
        silence.value = phrasing.duration(report.silence_us);
        silence.note =
            phrasing({"from ", "alkaen "}) + phrasing.time_of_day(report.header, report.silence_from_us);
    }
    facts.push_back(silence);
    Fact cycle = {.name = phrasing(words::cycle), .value = "\u2013"};
    if (report.cycle.count() > 0) {
        cycle.value = time_and_unit(report.cycle.percentile_us(0.5), phrasing);
        cycle.note = phrasing.decimal(static_cast<double>(report.cycle.shortest_us()) / 1000, 1) +
                     " \u2026 " + time_and_unit(report.cycle.longest_us(), phrasing);
    }
    facts.push_back(cycle);
    const auto extreme = [&](const Phrase& name, const Series& series, bool highest,
                             const std::string& unit) {
        Fact fact = {.name = phrasing(name), .value = "\u2013"};
        if (const std::optional<Extremes>& extremes = series.extremes()) {
            fact.value = phrasing.plain(highest ? extremes->max : extremes->min) + unit;
        }
        facts.push_back(fact);
    };
    extreme(words::top_speed, report.speed, true, "\u00a0rpm");
    extreme(words::lowest_voltage, report.voltage, false, "");
    Fact capacity = {.name = phrasing(words::capacity), .value = "\u2013"};
    if (report.capacity.extremes()) {
        capacity.value = phrasing.plain(report.capacity.last()) + "\u00a0Ah";
        capacity.note =
            phrasing({"at first ", "alussa "}) + phrasing.plain(report.capacity.first()) + "\u00a0Ah";
    }
    facts.push_back(capacity);
    return facts;
}

std::vector<Fact> spread_facts(const Spread& spread, const Phrasing& phrasing) {
    if (spread.count() == 0) {
        return {};
    }
    return {{.name = phrasing(words::shortest), .value = time_and_unit(spread.shortest_us(), phrasing)},
            {.name = phrasing(words::median), .value = time_and_unit(spread.percentile_us(0.5), phrasing)},
            {.name = "95\u00a0%", .value = time_and_unit(spread.percentile_us(0.95), phrasing)},
            {.name = "99\u00a0%", .value = time_and_unit(spread.percentile_us(0.99), phrasing)},
            {.name = phrasing(words::longest), .value = time_and_unit(spread.longest_us(), phrasing)},
            {.name = phrasing(words::mean), .value = phrasing.milliseconds(spread.mean_us())},
            {.name = phrasing(words::deviation), .value = phrasing.milliseconds(spread.deviation_us())}};
}

std::vector<Fact> origin_facts(const Report& report, const Phrasing& phrasing) {
    std::vector<Fact> facts = {
        {.name = phrasing(words::file), .value = report.file},
        {.name = phrasing(words::device), .value = report.header.device},
        {.name = phrasing(words::writer), .value = report.header.program},
        {.name = phrasing(words::bytes_sent), .value = phrasing.whole(report.bytes_sent)},
        {.name = phrasing(words::bytes_received), .value = phrasing.whole(report.bytes_received)}};
    if (report.stray_bytes > 0) {
        facts.push_back({.name = phrasing(words::stray_bytes), .value = phrasing.whole(report.stray_bytes)});
    }
    if (report.frames_out_of_step > 0) {
        facts.push_back(
            {.name = phrasing(words::out_of_step), .value = phrasing.whole(report.frames_out_of_step)});
    }
    return facts;
}

std::string first_of(std::size_t shown, std::uint64_t all, const Phrasing& phrasing) {
    return phrasing({"the first ", "ensimmäiset "}) + phrasing.whole(std::uint64_t{shown}) +
           phrasing({" of ", ", kaikkiaan "}) + phrasing.whole(all);
}

std::string words_of(const FaultyReply& reply, const Phrasing& phrasing) {
    const std::string count = ", " + std::to_string(reply.bytes) + phrasing({" bytes", " tavua"});
    const std::string delay =
        reply.delay_us ? ", " + time_and_unit(*reply.delay_us, phrasing) : std::string();
    const std::string late =
        reply.late ? std::string(", ") + phrasing(words::fault_late) + delay : std::string();
    switch (reply.fault) {
        case Fault::lost:
            return phrasing(words::fault_lost);
        case Fault::late:
            return phrasing(words::fault_late) + delay;
        case Fault::cut:
            return phrasing(words::fault_cut) + count + late;
        case Fault::garbled:
            break;
    }
    return phrasing(words::fault_garbled) + count + late;
}

}  // namespace vehicle_recorder
