/// @file
/// Colours for people at a terminal.

#ifndef TOOLS_COLOUR_H
#define TOOLS_COLOUR_H

#include <string>
#include <string_view>

namespace nodevik_tool {

/// What a colour is used for; `plain` is the terminal's own.
enum class Colour : unsigned char {
    plain,
    bad,      ///< a fault, a refusal: red
    good,     ///< in order: green
    notable,  ///< something has changed: yellow
    asked,    ///< a question and its answer: cyan
    faint     ///< of little interest
};

/// Empties the line of a terminal in which the cursor is, and begins it anew (ECMA-48, 8.3.41).
inline constexpr const char* begin_line = "\r\033[K";

/// Whether a descriptor is a terminal that can be commanded: TERM is set, and not "dumb".
bool takes_escapes(int descriptor);

/// Whether what is written to a descriptor may have colours: it is such a terminal, and the user has not set NO_COLOR to
/// anything (https://no-color.org).
bool takes_colour(int descriptor);

/// A text in a colour, which ends with it; the text alone when it is empty or the colour `plain`.
std::string painted(std::string_view text, Colour colour);

}  // namespace nodevik_tool

#endif
