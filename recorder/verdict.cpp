#include "recorder/verdict.h"

#include <algorithm>
#include <csignal>
#include <cstring>

#include "recorder/reportphrases.h"

namespace vehicle_recorder {

namespace {

std::string sentence_of_frames(const Report& report, const Phrasing& phrasing) {
    const std::string count = phrasing.whole(report.frames);
    return report.frames == 1
               ? phrasing({"1 frame was sent.", "Lähetettiin 1 viesti."})
               : phrasing({"", "Lähetettiin "}) + count + phrasing({" frames were sent.", " viestiä."});
}

// "3 late, 2 short", without what did not occur.
std::string faulty_replies(const Report& report, const Phrasing& phrasing) {
    struct Kind {
        Fault fault;
        const char* english;
        const char* finnish;
    };
    constexpr Kind kinds[] = {{Fault::late, " late", "myöhässä "},
                              {Fault::cut, " short", "vajaita "},
                              {Fault::garbled, " garbled", "virheellisiä "}};
    std::string text;
    for (const Kind& kind : kinds) {
        if (const std::uint64_t count = report.faults[kind.fault]; count > 0) {
            text += text.empty() ? "" : ", ";
            text += phrasing.language() == Language::finnish ? kind.finnish + phrasing.whole(count)
                                                             : phrasing.whole(count) + kind.english;
        }
    }
    return text;
}

std::string line_sentences(const Report& report, const Phrasing& phrasing) {
    if (report.frames == 0) {
        return report.openings.count == 0 ? phrasing({"The port was never opened.", "Porttia ei avattu."})
                                          : phrasing({"The port was opened, but nothing was sent.",
                                                      "Portti avattiin, mutta mitään ei lähetetty."});
    }
    const std::string sent = sentence_of_frames(report, phrasing);
    if (report.replies == 0) {
        return sent + phrasing({" The vehicle did not answer at all.", " Ajoneuvo ei vastannut lainkaan."});
    }
    if (report.faults.all() == 0) {
        return sent + phrasing({" The vehicle answered in time, each time.",
                                " Ajoneuvo vastasi ajoissa joka kerta."});
    }
    std::string text = sent;
    if (const std::uint64_t lost = report.faults[Fault::lost]; lost > 0) {
        text += phrasing({" Unanswered: ", " Vastaamatta jäi "}) + phrasing.whole(lost) + " (" +
                phrasing.share(lost, report.frames) + ").";
    }
    if (const std::string faulty = faulty_replies(report, phrasing); !faulty.empty()) {
        text += phrasing({" Of the replies: ", " Vastauksista "}) + faulty + ".";
    }
    return text;
}

bool is_crash(int signal) {
    constexpr int crashes[] = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSYS, SIGTRAP};
    return std::find(std::begin(crashes), std::end(crashes), signal) != std::end(crashes);
}

std::string signal_words(int signal, const Phrasing& phrasing) {
    const char* const name = sigabbrev_np(signal);
    return phrasing({"signal ", "signaali "}) + std::to_string(signal) +
           (name == nullptr ? "" : ", SIG" + std::string(name));
}

std::string program_sentence(const ProgramEnd& program, const Phrasing& phrasing) {
    if (program.signal) {
        const std::string words = " (" + signal_words(*program.signal, phrasing) + ").";
        if (is_crash(*program.signal)) {
            return phrasing({"The program crashed", "Ohjelma kaatui"}) + words;
        }
        return phrasing({"The program was ended from outside", "Ohjelma lopetettiin ulkopuolelta"}) + words;
    }
    if (program.status && *program.status != 0) {
        return phrasing({"The program ended with status ", "Ohjelma päättyi virheeseen, paluuarvo "}) +
               std::to_string(*program.status) + ".";
    }
    return {};
}

std::string rest_sentence(const Ending& ending, const Phrasing& phrasing) {
    const std::string throttle = std::to_string(ending.frame[0]);
    switch (ending.rest) {
        case Rest::no_frame:
            return {};
        case Rest::neutral:
            if (ending.sender == LastSender::recorder) {
                return phrasing(
                    {"The program was gone without stopping the vehicle: the recorder sent the frame "
                     "that brings it to rest.",
                     "Ohjelma päättyi pysäyttämättä ajoneuvoa: tallennin "
                     "lähetti pysäyttävän viestin."});
            }
            return phrasing(
                {"The last frame brought the vehicle to rest.", "Viimeinen viesti pysäytti ajoneuvon."});
        case Rest::motor_off:
            return phrasing({"The last frame had the motor switched off.",
                             "Viimeisessä viestissä moottori oli pois päältä."});
        case Rest::motor_on:
            return phrasing(
                {"The last frame left the motor switched on: the vehicle was not brought to rest.",
                 "Viimeinen viesti jätti moottorin päälle: ajoneuvoa ei pysäytetty."});
        case Rest::driving:
            break;
    }
    return phrasing({"The last frame asked for throttle ", "Viimeinen viesti pyysi kaasua "}) + throttle +
           phrasing({" with the motor on: the vehicle was not brought to rest.",
                     " moottori päällä: ajoneuvoa ei pysäytetty."});
}

std::string cut_sentence(const Report& report, const Phrasing& phrasing) {
    const std::string moment = phrasing.time_of_day(report.header, report.length_us);
    return phrasing({"The recording breaks off at ", "Tallenne katkeaa kello "}) + moment +
           phrasing({": what happened after that is not known.", ": mitä sen jälkeen tapahtui, ei tiedetä."});
}

// Closings in between: what the last frame of all asked for is told by itself.
std::string left_on_sentence(const Report& report, const Phrasing& phrasing) {
    const LeftOn& left_on = report.left_on;
    if (left_on.count == 0) {
        return {};
    }
    const std::string moment =
        phrasing.time_of_day(report.header, left_on.first.closed_us.value_or(report.length_us));
    const std::string consequence =
        phrasing({": the vehicle was not brought to rest.", ": ajoneuvoa ei pysäytetty."});
    if (left_on.count > 1) {
        return phrasing({"The port was closed ", "Portti suljettiin "}) + phrasing.whole(left_on.count) +
               phrasing({" times with the motor on, first at ",
                         " kertaa moottorin ollessa päällä, ensimmäisen kerran kello "}) +
               moment + consequence;
    }
    const std::string throttle =
        left_on.first.rest == Rest::driving
            ? phrasing({" and throttle ", " ja kaasu "}) + std::to_string(left_on.first.throttle)
            : std::string();
    return phrasing({"At ", "Portti suljettiin kello "}) + moment +
           phrasing({" the port was closed with the motor on", ", kun moottori oli päällä"}) + throttle +
           consequence;
}

Grade grade_of(const Report& report) {
    const Ending& ending = report.ending;
    const bool moving = ending.rest == Rest::driving || ending.rest == Rest::motor_on;
    const bool crashed = ending.program.signal && is_crash(*ending.program.signal);
    const bool mute = report.frames > 0 && report.replies == 0;
    if (moving || report.left_on.count > 0 || crashed || mute || ending.line_lost) {
        return Grade::trouble;
    }
    const bool failed = ending.program.signal || ending.program.status.value_or(0) != 0;
    const bool incomplete = !ending.whole || ending.bytes_not_recorded > 0 || report.unread_lines > 0;
    if (report.faults.all() > 0 || report.frames_out_of_step > 0 || failed || incomplete ||
        report.frames == 0 || ending.line_refused || ending.sender == LastSender::recorder) {
        return Grade::look;
    }
    return Grade::good;
}

}  // namespace

Verdict verdict_on(const Report& report, const Phrasing& phrasing) {
    const Ending& ending = report.ending;
    Verdict verdict = {.grade = grade_of(report), .line = line_sentences(report, phrasing), .ending = {}};
    const auto tell = [&verdict](const std::string& sentence) {
        if (!sentence.empty()) {
            verdict.ending.push_back(sentence);
        }
    };
    tell(left_on_sentence(report, phrasing));
    tell(rest_sentence(ending, phrasing));
    tell(program_sentence(ending.program, phrasing));
    if (ending.line_lost) {
        tell(phrasing({"The line went away: the cable or the adapter came off.",
                       "Linja katosi: kaapeli tai sovitin irtosi."}));
    }
    if (ending.line_refused) {
        tell(phrasing({"The line could not be opened when the program wanted it.",
                       "Linjaa ei voitu avata, kun ohjelma yritti avata sen."}));
    }
    if (!ending.whole) {
        tell(cut_sentence(report, phrasing));
    }
    if (ending.bytes_not_recorded > 0) {
        tell(phrasing({"Bytes that passed without being recorded: ", "Tallentamatta jäi tavuja: "}) +
             phrasing.whole(ending.bytes_not_recorded) + ".");
    }
    if (report.unread_lines > 0) {
        tell(phrasing(
                 {"Lines of the file that could not be read: ", "Tiedoston rivejä, joita ei voitu lukea: "}) +
             phrasing.whole(report.unread_lines) +
             phrasing({", the first is line ", ", ensimmäinen on rivi "}) +
             phrasing.whole(report.first_unread_line) + ".");
    }
    return verdict;
}

const Phrase& grade_phrase(Grade grade) {
    switch (grade) {
        case Grade::good:
            return report_phrases::all_good;
        case Grade::look:
            return report_phrases::look;
        case Grade::trouble:
            break;
    }
    return report_phrases::trouble;
}

std::string words_of(Rest rest, unsigned throttle, const Phrasing& phrasing) {
    switch (rest) {
        case Rest::no_frame:
            return phrasing({"no frame", "ei viestiä"});
        case Rest::neutral:
            return phrasing({"at rest", "pysäytetty"});
        case Rest::motor_off:
            return phrasing({"motor off", "moottori pois päältä"});
        case Rest::motor_on:
            return phrasing({"motor on", "moottori päällä"});
        case Rest::driving:
            break;
    }
    return phrasing({"motor on, throttle ", "moottori päällä, kaasu "}) + std::to_string(throttle);
}

}  // namespace vehicle_recorder
