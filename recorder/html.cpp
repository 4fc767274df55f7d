#include "recorder/html.h"

#include <array>
#include <cmath>
#include <cstdio>

namespace vehicle_recorder {

namespace {

// How many bytes of UTF-8 the text begins with one character in (RFC 3629); 0 when it is no such beginning.
std::size_t character_length(std::string_view text) {
    const auto byte = [text](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) {
        return 0;
    }
    for (std::size_t index = 1; index < length; ++index) {
        if ((byte(index) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const bool overlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
    const bool beyond = (first == 0xED && byte(1) > 0x9F) || (first == 0xF4 && byte(1) > 0x8F);
    return overlong || beyond ? 0 : length;
}

}  // namespace

std::string html_escaped(std::string_view text) {
    constexpr const char* no_character = "\ufffd";
    std::string escaped;
    while (!text.empty()) {
        const std::size_t length = character_length(text);
        const char character = text.front();
        if (length != 1) {
            escaped += length == 0 ? no_character : text.substr(0, length);
            text.remove_prefix(length == 0 ? 1 : length);
            continue;
        }
        text.remove_prefix(1);
        switch (character) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&#39;";
                break;
            default:
                if (static_cast<unsigned char>(character) < ' ' || character == '\x7f') {
                    escaped += no_character;
                } else {
                    escaped += character;
                }
        }
    }
    return escaped;
}

std::string coordinate(double value) {
    const double rounded = std::round(value * 10) / 10 + 0.0;  // no -0
    std::array<char, 32> text = {};
    const int decimals = rounded == std::floor(rounded) ? 0 : 1;
    std::snprintf(text.data(), text.size(), "%.*f", decimals, rounded);
    return text.data();
}

}  // namespace vehicle_recorder
