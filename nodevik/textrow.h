/// @file
/// Tables of codes and their texts, shared by the units that put codes into words. Not for callers.

#ifndef NODEVIK_TEXTROW_H
#define NODEVIK_TEXTROW_H

#include <array>
#include <cstddef>
#include <cstdint>

/// One row of a table of texts.
struct text_row {
    uint32_t code;
    const char* text;
};

/// The text of the first row with this code, or null.
template <std::size_t Count>
const char* find_text(const std::array<text_row, Count>& table, uint32_t code) {
    for (const text_row& row : table) {
        if (row.code == code) {
            return row.text;
        }
    }
    return nullptr;
}

#endif
