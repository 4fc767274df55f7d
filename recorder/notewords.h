/// @file
/// What the recorder notes, in the words of the person who reads it.

#ifndef RECORDER_NOTEWORDS_H
#define RECORDER_NOTEWORDS_H

#include <string>
#include <string_view>

#include "recorder/texts.h"

namespace vehicle_recorder {

/// A note of a recording in a language. What the recorder writes is known here; anything else is given as it stands.
/// @param note      as the recording has it
/// @param language  for whom
std::string note_words(std::string_view note, Language language);

}  // namespace vehicle_recorder

#endif
