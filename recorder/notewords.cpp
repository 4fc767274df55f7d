#include "recorder/notewords.h"

namespace vehicle_recorder {

namespace {

// A note as it is recorded, and in Finnish. An asterisk is a number, a name or a reason; there is one at most, or two
// with words in between.
constexpr Phrase notes[] = {
    {"the program ended with status *", "ohjelma päättyi, paluuarvo *"},
    {"the program was ended by signal *", "ohjelman lopetti signaali *"},
    {"the program discarded what was not sent", "ohjelma perui sen, mitä ei ollut vielä lähetetty"},
    {"bytes not taken by the program *", "tavuja, joita ohjelma ei lukenut: *"},
    {"bytes not taken by the line *", "tavuja, joita linja ei ottanut vastaan: *"},
    {"bytes not recorded *", "tavuja, joita ei tallennettu: *"},
    {"neutral frame sent by the recorder", "tallennin lähetti pysäyttävän viestin"},
    {"the line takes no neutral frame", "linja ei ottanut vastaan pysäyttävää viestiä"},
    {"the process that carried the line was ended", "linjaa välittänyt prosessi päättyi"},
    {"the line * is lost: *", "linja * katosi: *"},
    {"* cannot be opened: *", "laitetta * ei voitu avata: *"},
};

// What a text has in the places of the asterisks of a pattern is put into those of another one; empty if it does not fit.
std::string rewritten(std::string_view text, std::string_view pattern, std::string_view into) {
    std::string result;
    for (;;) {
        const std::size_t place = pattern.find('*');
        if (place == std::string_view::npos) {
            return text == pattern ? result.append(into) : std::string();
        }
        if (!text.starts_with(pattern.substr(0, place))) {
            return {};
        }
        text.remove_prefix(place);
        pattern.remove_prefix(place + 1);
        const std::string_view behind = pattern.substr(0, pattern.find('*'));
        const std::size_t end = behind.empty() ? text.size() : text.find(behind);
        if (end == std::string_view::npos) {
            return {};
        }
        result.append(into.substr(0, into.find('*'))).append(text.substr(0, end));
        text.remove_prefix(end);
        into.remove_prefix(into.find('*') + 1);
    }
}

}  // namespace

std::string note_words(std::string_view note, Language language) {
    if (language == Language::finnish) {
        for (const Phrase& one : notes) {
            if (std::string words = rewritten(note, one.english, one.finnish); !words.empty()) {
                return words;
            }
        }
    }
    return std::string(note);
}

}  // namespace vehicle_recorder
