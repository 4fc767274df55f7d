/// @file
/// The layer setting services in numbers (CiA 305). Not for callers.

#ifndef NODEVIK_NODES_LSSPROTOCOL_H
#define NODEVIK_NODES_LSSPROTOCOL_H

#include <array>

namespace lss {

inline constexpr unsigned int request_identifier = 0x7E5;
inline constexpr unsigned int answer_identifier = 0x7E4;

/// Byte 0 of a request and of its answer. Of a range each command has one of the four numbers of an identity, or one of
/// the six bounds of a range of identities.
enum Command : unsigned char {
    switch_state_global = 0x04,
    configure_node = 0x11,
    configure_bit_timing = 0x13,
    activate_bit_timing = 0x15,
    store_configuration = 0x17,
    switch_selective_first = 0x40,
    switched = 0x44,
    identify_first = 0x46,
    identify_unconfigured = 0x4C,
    identified = 0x4F,
    unconfigured = 0x50,
    fastscan = 0x51,
    inquire_first = 0x5A,
    inquire_node = 0x5E
};

inline constexpr unsigned int identity_parts = 4;  ///< vendor, product, revision, serial number
inline constexpr unsigned int range_parts = 6;     ///< vendor, product, and two bounds of each of the others
inline constexpr unsigned char scan_begin = 0x80;  ///< as the bit of a fastscan: whoever has no node number
inline constexpr unsigned int highest_bit = 31;    ///< of a fastscan
inline constexpr unsigned char specific_error = 0xFF;  ///< the next byte has the manufacturer's error code

/// A bit rate of the standard table.
struct BitRate {
    unsigned int kbit;    ///< in kbit/s; 0: the node finds it by itself
    unsigned char index;  ///< in the table
};

/// The standard table (CiA 305, 6.4.3); 5 is reserved.
inline constexpr std::array<BitRate, 9> bit_rates{
    {{1000, 0}, {800, 1}, {500, 2}, {250, 3}, {125, 4}, {50, 6}, {20, 7}, {10, 8}, {0, 9}}};
inline constexpr unsigned int standard_table = 0;

}  // namespace lss

#endif
