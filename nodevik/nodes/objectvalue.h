/// @file
/// Values of objects: their data types, and how a value is written as text and as the bytes that travel.
///
/// CiA 301 (7.4.7) numbers the data types: BOOLEAN is 1, UNSIGNED32 is 7. A value travels with its least significant
/// byte first; people and EDS files (CiA 306-1) write it as text:
///
///     UNSIGNED16   500  0x1F4  0764         -> F4 01
///     INTEGER16    -2  0xFFFE               -> FE FF
///     REAL32       1.5  0x3FC00000          -> 00 00 C0 3F
///     VISIBLE_STRING  "pump 1"              -> 70 75 6D 70 20 31
///     OCTET_STRING, DOMAIN  0A 1B, 0A1B     -> 0A 1B
///     TIME_OF_DAY  1000 5000 (days, ms)     -> 88 13 00 00 E8 03
///     UNSIGNED32   $NODEID+0x180, node 5    -> 85 01 00 00
///
/// Nothing here prints, ends the process or knows a bus.

#ifndef NODEVIK_NODES_OBJECTVALUE_H
#define NODEVIK_NODES_OBJECTVALUE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nodevik/util/export.h"

/// A value as it travels.
using ObjectBytes = std::vector<std::uint8_t>;

/// Data types, numbered as in the object dictionary (CiA 301, 7.4.7.1).
enum class ObjectDataType : std::uint16_t {
    none = 0,  ///< a type that is no value: unknown, or a structure
    boolean = 0x01,
    integer8 = 0x02,
    integer16 = 0x03,
    integer32 = 0x04,
    unsigned8 = 0x05,
    unsigned16 = 0x06,
    unsigned32 = 0x07,
    real32 = 0x08,
    visible_string = 0x09,
    octet_string = 0x0A,
    unicode_string = 0x0B,
    time_of_day = 0x0C,
    time_difference = 0x0D,
    domain = 0x0F,
    integer24 = 0x10,
    real64 = 0x11,
    integer40 = 0x12,
    integer48 = 0x13,
    integer56 = 0x14,
    integer64 = 0x15,
    unsigned24 = 0x16,
    unsigned40 = 0x18,
    unsigned48 = 0x19,
    unsigned56 = 0x1A,
    unsigned64 = 0x1B
};

/// The data type of a number in a dictionary or an EDS file.
/// @param number  data type as CiA 301 numbers it
/// @return none for a number that is no type of a value
NODEVIK_EXPORT ObjectDataType object_data_type(unsigned int number);

/// The data type of a name.
/// @param name  "UNSIGNED32", or short: bool, u8 to u64, i8 to i64, r32, r64, str, oct, uni, time, diff, domain; in any
///              case
/// @return none for any other name
NODEVIK_EXPORT ObjectDataType object_data_type(std::string_view name);

/// The name of a data type as CiA 301 writes it, "UNSIGNED32"; "NONE" for none.
NODEVIK_EXPORT const char* object_type_name(ObjectDataType type);

/// The short name of a data type, "u32"; "none" for none.
NODEVIK_EXPORT const char* object_type_short_name(ObjectDataType type);

/// The size of a value in bytes.
/// @return 1 to 8; 0 for strings, domains and none, which have no size of their own
NODEVIK_EXPORT std::size_t object_size(ObjectDataType type);

/// Tells whether values of a type are whole numbers that can be negative.
NODEVIK_EXPORT bool object_is_signed(ObjectDataType type);

/// Tells whether values of a type are whole numbers; a BOOLEAN is one.
NODEVIK_EXPORT bool object_is_integer(ObjectDataType type);

/// Tells whether values of a type are REAL32 or REAL64.
NODEVIK_EXPORT bool object_is_real(ObjectDataType type);

/// What became of a text.
struct ObjectParse {
    std::optional<ObjectBytes> bytes;  ///< the value, nothing when the text is none of its type
    std::string remark;                ///< why it is none, or what is odd about it; empty when all is well
};

/// Makes a value of a text.
///
/// Whole numbers are decimal, hexadecimal with 0x, or octal with a leading 0 (as EDS files have it); hexadecimal digits
/// of a signed type may be its two's complement. `$NODEID`, in any case, with a number added before or behind, stands
/// for the node's number. REAL is decimal, or the pattern in hexadecimal with all its digits. One pair of quotes around
/// a string is taken off. Blanks around the text do not count.
///
/// Taken, with a remark: a number with a leading 0 that has a digit 8 or 9 (decimal), and a whole number with a
/// fraction of zeros ("0.0").
///
/// @param type     data type; none makes no value
/// @param text     the text, UTF-8
/// @param node_id  node number, 1 to 127; 0 when it is not known: then a text with `$NODEID` makes no value
/// @return the value, or why there is none
NODEVIK_EXPORT ObjectParse parse_object(ObjectDataType type, std::string_view text, unsigned int node_id = 0);

/// Tells whether a text speaks of the node's number, `$NODEID` in any case.
NODEVIK_EXPORT bool object_text_has_node_id(std::string_view text);

/// Makes a text of a value; parse_object() makes the same value of it, but of a string that is changed here or has blanks
/// or a pair of quotes at its ends.
///
/// Numbers are decimal, BOOLEAN 0 or 1, REAL with as many digits as tell it from its neighbours, octet strings and
/// domains pairs of hexadecimal digits. Of a string, zero bytes at its end are left out and bytes that are no UTF-8 are
/// taken as Latin-1. A number that came with more bytes than its type has is cut to those; one with less is the number
/// that these make.
///
/// @param type   data type; none is written as a domain is
/// @param bytes  the value
/// @param size   number of its bytes
/// @return the text in UTF-8; empty for no bytes
NODEVIK_EXPORT std::string format_object(ObjectDataType type, const std::uint8_t* bytes, std::size_t size);

/// Makes a text of a value.
/// @see format_object
inline std::string format_object(ObjectDataType type, const ObjectBytes& bytes) {
    return format_object(type, bytes.data(), bytes.size());
}

/// Compares two values of a type: numbers by size, all else byte by byte.
/// @return negative, 0 or positive as @p left is less, the same or more; REAL that is no number is the same as any
NODEVIK_EXPORT int compare_objects(ObjectDataType type, const ObjectBytes& left, const ObjectBytes& right);

#endif
