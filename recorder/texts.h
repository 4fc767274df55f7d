/// @file
/// What the program says to a person, in the person's language.
///
/// Results are in Finnish or English, as the environment asks for messages (locale(7)); help texts and error lines are
/// English always. A command keeps its phrases beside the code that says them:
///
///     constexpr Phrase frames = {"frames", "viestiä"};
///     output += frames.in(language);

#ifndef RECORDER_TEXTS_H
#define RECORDER_TEXTS_H

namespace vehicle_recorder {

/// The languages there are.
enum class Language { english, finnish };

/// The language for messages: the first of LC_ALL, LC_MESSAGES and LANG that is set and not empty decides.
/// @return Finnish when its value names the language "fi", English for anything else
Language language_of_environment();

/// The same in each language, UTF-8.
struct Phrase {
    const char* english;
    const char* finnish;

    /// The one of @p language.
    constexpr const char* in(Language language) const {
        return language == Language::finnish ? finnish : english;
    }
};

/// What more than one command says.
namespace phrases {
inline constexpr Phrase throttle = {"throttle", "kaasu"};
inline constexpr Phrase direction = {"direction", "suunta"};
inline constexpr Phrase bucket = {"bucket", "kauha"};
inline constexpr Phrase motor_on = {"motor on", "moottori päällä"};
inline constexpr Phrase motor_off = {"motor off", "moottori pois päältä"};
inline constexpr Phrase speed = {"speed", "nopeus"};
inline constexpr Phrase voltage = {"voltage", "jännite"};
inline constexpr Phrase current = {"current", "virta"};
inline constexpr Phrase capacity = {"capacity", "kapasiteetti"};
inline constexpr Phrase latitude = {"latitude", "leveysaste"};
inline constexpr Phrase bytes = {"bytes", "tavua"};
}  // namespace phrases

}  // namespace vehicle_recorder

#endif
