#include "program/numbers.h"

#include <charconv>

namespace program {

std::optional<std::int64_t> whole_number(std::string_view text, std::int64_t lowest, std::int64_t highest) {
    const bool negative = text.starts_with('-');
    text.remove_prefix(negative ? 1 : 0);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hexadecimal ? 2 : 0);
    if (text.starts_with('-')) {
        return std::nullopt;  // a second sign, which std::from_chars would take
    }
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, hexadecimal ? 16 : 10);
    number = negative ? -number : number;
    if (error != std::errc() || stop != end || number < lowest || number > highest) {
        return std::nullopt;
    }
    return number;
}

unsigned Numbers::read(std::string_view text, unsigned lowest, unsigned highest) {
    const std::optional<std::int64_t> number = whole_number(text, lowest, highest);
    all_right_ = all_right_ && number;
    return static_cast<unsigned>(number.value_or(lowest));
}

}  // namespace program
