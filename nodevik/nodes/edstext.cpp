#include "nodevik/nodes/edstext.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace eds {

namespace {

constexpr std::string_view node_id_word = "$nodeid";

Number refused(const char* reason) {
    Number number;
    number.remark = reason;
    return number;
}

/// Cuts ".0", ".00" and so on off the end. @return whether there was one
bool cut_zero_fraction(std::string_view& text) {
    const std::size_t point = text.find('.');
    if (point == text.npos || point == 0 || text.find_first_not_of('0', point + 1) != text.npos) {
        return false;
    }
    text = text.substr(0, point);
    return true;
}

/// Reads the digits of one number without sign.
Number parse_digits(std::string_view text) {
    Number number;
    int base = 10;
    if (text.size() > 1 && text[0] == '0' && lower(text[1]) == 'x') {
        text.remove_prefix(2);
        base = 16;
        number.hexadecimal = true;
    } else if (cut_zero_fraction(text)) {
        number.remark = "has a fraction: taken as the whole number";
    } else if (text.size() > 1 && text[0] == '0') {
        base = text.find_first_of("89") == text.npos ? 8 : 10;
        number.remark = base == 8 ? "" : "has a leading 0 and is not octal: taken as decimal";
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number.magnitude, base);
    if (error == std::errc::result_out_of_range) {
        return refused("does not fit 64 bits");
    }
    if (error != std::errc() || end != text.data() + text.size()) {
        return refused("is no number");
    }
    number.valid = true;
    return number;
}

bool is_continuation(std::string_view text, std::size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

/// The length of the UTF-8 sequence that begins at @p at, 0 when there is none.
std::size_t sequence_length(std::string_view text, std::size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    const std::size_t length = lead < 0x80                   ? 1
                               : lead >= 0xC2 && lead < 0xE0 ? 2
                               : (lead & 0xF0) == 0xE0       ? 3
                               : lead >= 0xF0 && lead < 0xF5 ? 4
                                                             : 0;
    for (std::size_t i = 1; i < length; ++i) {
        if (!is_continuation(text, at + i)) {
            return 0;
        }
    }
    if (length < 3) {
        return length;
    }
    const auto second = static_cast<unsigned char>(text[at + 1]);
    const bool too_long = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
    const bool no_character = (lead == 0xED && second >= 0xA0) || (lead == 0xF4 && second >= 0x90);
    return too_long || no_character ? 0 : length;
}

bool is_utf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = sequence_length(text, at);
        if (length == 0) {
            return false;
        }
        at += length;
    }
    return true;
}

bool is_ascii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

bool same_word(std::string_view left, std::string_view right) {
    return left.size() == right.size() && std::equal(left.begin(), left.end(), right.begin(),
                                                     [](char l, char r) { return lower(l) == lower(r); });
}

std::size_t find_word(std::string_view text, std::string_view word) {
    const auto found = std::search(text.begin(), text.end(), word.begin(), word.end(),
                                   [](char l, char r) { return lower(l) == r; });
    return found == text.end() ? text.npos : static_cast<std::size_t>(found - text.begin());
}

bool is_key(std::string_view key, std::string_view word) {
    if (key.empty() || lower(key.front()) != lower(word.front())) {
        return false;  // nearly always, and so first
    }
    if (key.size() == word.size()) {
        return same_word(key, word);
    }
    std::size_t at = 0;
    for (const char c : key) {
        if (is_blank(c)) {
            continue;
        }
        if (at == word.size() || lower(c) != lower(word[at])) {
            return false;
        }
        ++at;
    }
    return at == word.size();
}

std::string_view without_comment(std::string_view value) {
    for (std::size_t at = value.find(';'); at != value.npos; at = value.find(';', at + 1)) {
        if (at == 0 || is_blank(value[at - 1])) {
            return trimmed(value.substr(0, at));
        }
    }
    return value;
}

std::string hexadecimal(unsigned int number, int digits) {
    constexpr char characters[] = "0123456789ABCDEF";
    std::string text;
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
        text += characters[number >> shift & 15];
    }
    return text;
}

Number parse_number(std::string_view text, unsigned int node_id) {
    text = trimmed(text);
    if (!text.empty() && text.front() == '-') {
        Number number = parse_digits(text.substr(1));
        number.negative = true;
        return number;
    }
    Number sum;
    sum.valid = true;
    bool with_node_id = false;
    for (bool more = true; more;) {
        const std::size_t plus = text.find('+');
        const std::string_view term = trimmed(text.substr(0, plus));
        more = plus != text.npos;
        text.remove_prefix(more ? plus + 1 : text.size());
        Number number;
        if (same_word(term, node_id_word)) {
            number.magnitude = node_id;
            if (with_node_id) {
                return refused("has $NODEID twice");
            }
            with_node_id = true;
        } else {
            number = parse_digits(term);
            if (!number.valid) {
                return number;
            }
            sum.hexadecimal = sum.hexadecimal || number.hexadecimal;
            sum.remark = *number.remark == '\0' ? sum.remark : number.remark;
        }
        if (number.magnitude > ~sum.magnitude) {
            return refused("does not fit 64 bits");
        }
        sum.magnitude += number.magnitude;
    }
    return sum;
}

std::string utf8(std::string_view text) {
    if (is_ascii(text) || is_utf8(text)) {
        return std::string(text);
    }
    std::string result;
    for (const char c : text) {
        append_code_point(result, static_cast<unsigned char>(c));
    }
    return result;
}

std::uint32_t next_code_point(std::string_view text, std::size_t& at) {
    const std::size_t length = sequence_length(text, at);
    const auto lead = static_cast<unsigned char>(text[at++]);
    if (length < 2) {
        return lead;
    }
    std::uint32_t point = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        point = point << 6 | (static_cast<unsigned char>(text[at++]) & 0x3F);
    }
    return point;
}

void append_code_point(std::string& text, std::uint32_t point) {
    const auto put = [&](std::uint32_t byte) { text += static_cast<char>(static_cast<unsigned char>(byte)); };
    if (point < 0x80) {
        put(point);
        return;
    }
    if (point < 0x800) {
        put(0xC0 | point >> 6);
    } else if (point < 0x10000) {
        put(0xE0 | point >> 12);
        put(0x80 | (point >> 6 & 0x3F));
    } else {
        put(0xF0 | point >> 18);
        put(0x80 | (point >> 12 & 0x3F));
        put(0x80 | (point >> 6 & 0x3F));
    }
    put(0x80 | (point & 0x3F));
}

}  // namespace eds
