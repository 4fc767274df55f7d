/// @file
/// What the two ways of mapping variables, PDO and CObjectDictionary, have in common. Not for callers.

#ifndef NODEVIK_PDOMAPPING_H
#define NODEVIK_PDOMAPPING_H

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "nodevik/pdo.h"

/// Helpers for mapping tables.
namespace pdo_mapping {

inline constexpr unsigned int data_bytes = 8;    ///< bytes of a PDO
inline constexpr unsigned int data_bits = 64;    ///< bits of a PDO
inline constexpr unsigned int max_entries = 64;  ///< entries of a mapping table

/// Size of a mapped variable by its maptype; 0 for none.
inline constexpr std::array<unsigned char, 12> variable_sizes = {0, 1, 2, 4, 1, 2, 4, 1, 2, 4, 8, 8};

/// Prints a line and ends the process with status 1.
[[noreturn]] inline void refuse(const char* line) {
    std::puts(line);
    std::exit(1);
}

/// Tells whether a small number stands where an address is meant.
inline bool is_suspicious(const void* address) {
    constexpr std::uintptr_t lowest_address = 10000;
    return reinterpret_cast<std::uintptr_t>(address) < lowest_address;
}

/// Prints what is wrong with an address.
inline void report_address(const char* line) {
    std::puts(line);
    std::puts("Are you sure that you havent got faulty pointer !");
}

/// Ends the process when the address of a variable to be mapped is suspicious.
inline void require_address(const void* address) {
    if (is_suspicious(address)) {
        report_address("Mapping of an variable address smaller than 10000 !");
        std::exit(1);
    }
}

/// Size of a byte mapping; ends the process when @p t is not the type of one.
inline unsigned int byte_size(PDO::maptype t) {
    if (t == PDO::none) {
        refuse("PDO::mapref failed: wrong type 'none' ");
    }
    if (t < PDO::char1 || t > PDO::ulonglong8) {
        refuse("PDO::mapref failed: Unknown Type ");
    }
    return variable_sizes[t];
}

/// Type of a bit mapping into a variable of @p size bytes; ends the process when there is none.
inline PDO::maptype bit_type(unsigned int size) {
    switch (size) {
        case 1:
            return PDO::bit1;
        case 2:
            return PDO::bit2;
        case 4:
            return PDO::bit4;
        default:
            refuse("PDO::mapref failed: Unknown Type ");
    }
}

/// Ends the process when the bytes from @p pos on, @p size of them, overlap those of mapping @p number.
///
/// Of a bit mapping, the bit number and the variable's size stand for bytes here: callers rely on which
/// combinations are let through.
template <typename Entry>
void require_no_overlap(const Entry& earlier, int number, unsigned int pos, unsigned int size) {
    const unsigned int earlier_begin = earlier.pos;
    const unsigned int earlier_end = earlier_begin + earlier.len;
    if (pos < earlier_end && earlier_begin < pos + size) {
        std::printf("PDO::mapref Duplicate mapping for mapping nro=%2i, mapping pos=%2i, mapping size=%2i\n",
                    number, static_cast<int>(pos), static_cast<int>(size));
        std::exit(1);
    }
}

/// Loads a value from an address of any alignment.
template <typename T>
T load(const unsigned char* from) {
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

/// Stores a bit of a value as a whole value of its type, 0 or 1, at an address of any alignment.
template <typename T>
void store_bit(void* variable, T value, unsigned int bit) {
    value = (value >> bit) & 1U;
    std::memcpy(variable, &value, sizeof value);
}

/// Sets or clears a bit of the byte at @p to by the lowest bit of the variable's first byte.
inline void take_bit(unsigned char* to, unsigned int bit, const void* variable) {
    unsigned char first = 0;
    std::memcpy(&first, variable, 1);
    const unsigned int mask = 1U << bit;
    *to = static_cast<unsigned char>((first & 1U) != 0 ? *to | mask : *to & ~mask);
}

}  // namespace pdo_mapping

#endif
