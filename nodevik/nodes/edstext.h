/// @file
/// The words and numbers that EDS files are written in (CiA 306-1, clause 6). Private to this room.

#ifndef NODEVIK_NODES_EDSTEXT_H
#define NODEVIK_NODES_EDSTEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace eds {

/// Blank, tab and what else may stand beside them on a line.
constexpr bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\v' || c == '\f' || c == '\0';
}

/// The small letter of an ASCII letter; every other character as it is.
constexpr char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// The value of a hexadecimal digit, -1 for any other character.
constexpr int hex_digit(char c) {
    return c >= '0' && c <= '9' ? c - '0' : lower(c) >= 'a' && lower(c) <= 'f' ? lower(c) - 'a' + 10 : -1;
}

/// The text without the blanks around it.
std::string_view trimmed(std::string_view text);

/// Tells whether two words are the same, the case of ASCII letters aside.
bool same_word(std::string_view left, std::string_view right);

/// Where a word first stands, the case of ASCII letters aside.
/// @param word  in small letters
/// @return npos when it does not
std::size_t find_word(std::string_view text, std::string_view word);

/// Tells whether a key is a word of a table, blanks and the case of ASCII letters aside.
/// @param word  without blanks
bool is_key(std::string_view key, std::string_view word);

/// A value without the comment behind it: from a blank and a semicolon on.
std::string_view without_comment(std::string_view value);

/// A number in hexadecimal, with capital letters.
/// @param digits  how many, 1 to 8
std::string hexadecimal(unsigned int number, int digits);

/// A number of a file.
struct Number {
    bool valid = false;
    bool negative = false;  ///< a minus stood before it
    bool hexadecimal =
        false;  ///< it was written in hexadecimal, in which a signed type has its two's complement
    std::uint64_t magnitude = 0;
    const char* remark = "";  ///< why it is not valid, or what is odd about it
};

/// Reads a number: decimal, 0x hexadecimal, octal with a leading 0, or a sum of these with `$NODEID`.
/// @param node_id  what `$NODEID` stands for
Number parse_number(std::string_view text, unsigned int node_id);

/// The text in UTF-8: as it is when it is UTF-8 already, else its bytes from 80h on taken as Latin-1.
std::string utf8(std::string_view text);

/// The code point that begins at @p at, which moves behind it. What is no UTF-8 counts byte by byte, as Latin-1.
std::uint32_t next_code_point(std::string_view text, std::size_t& at);

/// Appends a code point in UTF-8.
void append_code_point(std::string& text, std::uint32_t point);

}  // namespace eds

#endif
