#include "tools/colour.h"

#include <unistd.h>

#include <cstdlib>

namespace nodevik_tool {

namespace {

// A variable of the environment; empty when it is not set.
std::string_view variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

// "Select graphic rendition" (ECMA-48, 8.3.117).
const char* rendition(Colour colour) {
    switch (colour) {
        case Colour::bad:
            return "\033[31m";
        case Colour::good:
            return "\033[32m";
        case Colour::notable:
            return "\033[33m";
        case Colour::asked:
            return "\033[36m";
        case Colour::faint:
            return "\033[2m";
        case Colour::plain:
            break;
    }
    return "";
}

}  // namespace

bool takes_escapes(int descriptor) {
    const std::string_view terminal = variable("TERM");
    return isatty(descriptor) == 1 && !terminal.empty() && terminal != "dumb";
}

bool takes_colour(int descriptor) {
    return takes_escapes(descriptor) && variable("NO_COLOR").empty();
}

std::string painted(std::string_view text, Colour colour) {
    if (text.empty() || colour == Colour::plain) {
        return std::string(text);
    }
    return rendition(colour) + std::string(text) + "\033[m";
}

}  // namespace nodevik_tool
