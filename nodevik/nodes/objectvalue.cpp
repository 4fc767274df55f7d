#include "nodevik/nodes/objectvalue.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>
#include <system_error>

#include "nodevik/nodes/edstext.h"

namespace {

enum class Kind { none, boolean, integer, natural, real, text, octets, unicode, time };

struct Row {
    ObjectDataType type;
    Kind kind;
    std::size_t size;
    const char* name;
    const char* short_name;
};

constexpr std::array rows = {
    Row{ObjectDataType::none, Kind::none, 0, "NONE", "none"},
    Row{ObjectDataType::boolean, Kind::boolean, 1, "BOOLEAN", "bool"},
    Row{ObjectDataType::integer8, Kind::integer, 1, "INTEGER8", "i8"},
    Row{ObjectDataType::integer16, Kind::integer, 2, "INTEGER16", "i16"},
    Row{ObjectDataType::integer24, Kind::integer, 3, "INTEGER24", "i24"},
    Row{ObjectDataType::integer32, Kind::integer, 4, "INTEGER32", "i32"},
    Row{ObjectDataType::integer40, Kind::integer, 5, "INTEGER40", "i40"},
    Row{ObjectDataType::integer48, Kind::integer, 6, "INTEGER48", "i48"},
    Row{ObjectDataType::integer56, Kind::integer, 7, "INTEGER56", "i56"},
    Row{ObjectDataType::integer64, Kind::integer, 8, "INTEGER64", "i64"},
    Row{ObjectDataType::unsigned8, Kind::natural, 1, "UNSIGNED8", "u8"},
    Row{ObjectDataType::unsigned16, Kind::natural, 2, "UNSIGNED16", "u16"},
    Row{ObjectDataType::unsigned24, Kind::natural, 3, "UNSIGNED24", "u24"},
    Row{ObjectDataType::unsigned32, Kind::natural, 4, "UNSIGNED32", "u32"},
    Row{ObjectDataType::unsigned40, Kind::natural, 5, "UNSIGNED40", "u40"},
    Row{ObjectDataType::unsigned48, Kind::natural, 6, "UNSIGNED48", "u48"},
    Row{ObjectDataType::unsigned56, Kind::natural, 7, "UNSIGNED56", "u56"},
    Row{ObjectDataType::unsigned64, Kind::natural, 8, "UNSIGNED64", "u64"},
    Row{ObjectDataType::real32, Kind::real, 4, "REAL32", "r32"},
    Row{ObjectDataType::real64, Kind::real, 8, "REAL64", "r64"},
    Row{ObjectDataType::visible_string, Kind::text, 0, "VISIBLE_STRING", "str"},
    Row{ObjectDataType::octet_string, Kind::octets, 0, "OCTET_STRING", "oct"},
    Row{ObjectDataType::unicode_string, Kind::unicode, 0, "UNICODE_STRING", "uni"},
    Row{ObjectDataType::time_of_day, Kind::time, 6, "TIME_OF_DAY", "time"},
    Row{ObjectDataType::time_difference, Kind::time, 6, "TIME_DIFFERENCE", "diff"},
    Row{ObjectDataType::domain, Kind::octets, 0, "DOMAIN", "domain"},
};

/// Where the row of each data type stands; 0, the row of none, for numbers that are no type.
constexpr auto places = [] {
    std::array<std::uint8_t, static_cast<std::size_t>(ObjectDataType::unsigned64) + 1> result = {};
    for (std::size_t i = 0; i < rows.size(); ++i) {
        result[static_cast<std::size_t>(rows[i].type)] = static_cast<std::uint8_t>(i);
    }
    return result;
}();

const Row& row_of(ObjectDataType type) {
    const auto number = static_cast<std::size_t>(type);
    return rows[number < places.size() ? places[number] : 0];
}

ObjectParse refused(std::string reason) {
    return {std::nullopt, std::move(reason)};
}

ObjectBytes little_endian(std::uint64_t number, std::size_t size) {
    ObjectBytes bytes(size);
    for (auto& byte : bytes) {
        byte = static_cast<std::uint8_t>(number);
        number >>= 8;
    }
    return bytes;
}

std::uint64_t number_of(const std::uint8_t* bytes, std::size_t size) {
    std::uint64_t number = 0;
    for (std::size_t i = std::min<std::size_t>(size, 8); i > 0; --i) {
        number = number << 8 | bytes[i - 1];
    }
    return number;
}

/// The bits that a number of @p size bytes has.
std::uint64_t mask_of(std::size_t size) {
    return size >= 8 ? ~std::uint64_t{0} : (std::uint64_t{1} << 8 * size) - 1;
}

std::int64_t sign_extended(std::uint64_t number, std::size_t size) {
    const std::uint64_t sign = std::uint64_t{1} << (8 * size - 1);
    return static_cast<std::int64_t>((number ^ sign) - sign);
}

ObjectParse integer_from(const Row& row, const eds::Number& number) {
    const std::uint64_t mask = mask_of(row.size);
    const std::uint64_t half = mask / 2 + 1;
    const bool with_sign = row.kind == Kind::integer;
    const std::uint64_t most = row.kind == Kind::boolean          ? 1
                               : with_sign && !number.hexadecimal ? half - 1
                                                                  : mask;
    const bool fits = number.negative ? number.magnitude == 0 || (with_sign && number.magnitude <= half)
                                      : number.magnitude <= most;
    if (!fits) {
        return refused(std::string("does not fit ") + row.name);
    }
    const std::uint64_t pattern = number.negative ? ~number.magnitude + 1 : number.magnitude;
    return {little_endian(pattern & mask, row.size), std::string(number.remark)};
}

ObjectParse integer_from_text(const Row& row, std::string_view text, unsigned int node_id) {
    if (row.kind == Kind::boolean && (eds::same_word(text, "true") || eds::same_word(text, "false"))) {
        return {little_endian(eds::same_word(text, "true") ? 1 : 0, 1), {}};
    }
    if (object_text_has_node_id(text) && (node_id < 1 || node_id > 127)) {
        return refused("needs the number of the node");
    }
    const eds::Number number = eds::parse_number(text, node_id);
    return number.valid ? integer_from(row, number) : refused(std::string(number.remark));
}

template <typename Real>
ObjectBytes real_bytes(Real value) {
    ObjectBytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

template <typename Real>
ObjectParse real_from_decimal(std::string_view text) {
    Real value = 0;
    text.remove_prefix(text.front() == '+' ? 1 : 0);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc::result_out_of_range) {
        return refused("does not fit a REAL of its size");
    }
    if (error != std::errc() || end != text.data() + text.size()) {
        return refused("is no number");
    }
    return {real_bytes(value), {}};
}

ObjectParse real_from_text(const Row& row, std::string_view text) {
    const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    if (!hexadecimal) {
        return row.size == 4 ? real_from_decimal<float>(text) : real_from_decimal<double>(text);
    }
    const eds::Number number = eds::parse_number(text, 0);
    if (!number.valid) {
        return refused(std::string(number.remark));
    }
    if (text.size() == 2 + 2 * row.size) {
        return {little_endian(number.magnitude, row.size), {}};
    }
    return {row.size == 4 ? real_bytes(static_cast<float>(number.magnitude))
                          : real_bytes(static_cast<double>(number.magnitude)),
            "is not the whole pattern: taken as a number"};
}

ObjectParse octets_from_text(std::string_view text) {
    if (text.size() > 1 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text.remove_prefix(2);
    }
    ObjectBytes bytes;
    int high = -1;
    for (const char c : text) {
        const int digit = eds::hex_digit(c);
        if (digit < 0 && (!eds::is_blank(c) || high >= 0)) {
            return refused("is not made of pairs of hexadecimal digits");
        }
        if (digit >= 0 && high < 0) {
            high = digit;
        } else if (digit >= 0) {
            bytes.push_back(static_cast<std::uint8_t>(high << 4 | digit));
            high = -1;
        }
    }
    return high < 0 ? ObjectParse{bytes, {}} : refused("is not made of pairs of hexadecimal digits");
}

/// CiA 301, 7.1.6.4: 28 bits of milliseconds, 4 bits nothing, 16 bits of days.
ObjectParse time_from_text(const Row& row, std::string_view text) {
    const std::size_t gap = std::min(text.find_first_of(" \t"), text.size());
    const eds::Number days = eds::parse_number(text.substr(0, gap), 0);
    const eds::Number milliseconds = eds::parse_number(eds::trimmed(text.substr(gap)), 0);
    if (!days.valid || !milliseconds.valid || days.negative || milliseconds.negative) {
        return refused("is not two numbers, days and milliseconds");
    }
    if (days.magnitude > 0xFFFF || milliseconds.magnitude > 0x0FFFFFFF) {
        return refused(std::string("does not fit ") + row.name);
    }
    return {little_endian(days.magnitude << 32 | milliseconds.magnitude, row.size), {}};
}

std::string_view without_quotes(std::string_view text) {
    const bool quoted = text.size() > 1 && text.front() == '"' && text.back() == '"';
    return quoted ? text.substr(1, text.size() - 2) : text;
}

ObjectBytes utf16_from(std::string_view text) {
    ObjectBytes bytes;
    const auto put = [&](std::uint32_t unit) {
        bytes.push_back(static_cast<std::uint8_t>(unit));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    };
    for (std::size_t at = 0; at < text.size();) {
        const std::uint32_t point = eds::next_code_point(text, at);
        if (point >= 0x10000) {
            put(0xD800 + ((point - 0x10000) >> 10));
            put(0xDC00 + ((point - 0x10000) & 0x3FF));
        } else {
            put(point);
        }
    }
    return bytes;
}

std::string text_from_utf16(const std::uint8_t* bytes, std::size_t size) {
    std::string text;
    for (std::size_t at = 0; at + 1 < size; at += 2) {
        std::uint32_t point = bytes[at] | static_cast<std::uint32_t>(bytes[at + 1]) << 8;
        const bool first_half =
            point >= 0xD800 && point < 0xDC00 && at + 3 < size && (bytes[at + 3] & 0xFC) == 0xDC;
        if (first_half) {
            at += 2;
            const std::uint32_t second = bytes[at] | static_cast<std::uint32_t>(bytes[at + 1]) << 8;
            point = 0x10000 + ((point & 0x3FF) << 10) + (second & 0x3FF);
        } else if (point >= 0xD800 && point < 0xE000) {
            point = 0xFFFD;
        }
        eds::append_code_point(text, point);
    }
    while (!text.empty() && text.back() == '\0') {
        text.pop_back();
    }
    return text;
}

std::string hexadecimal(const std::uint8_t* bytes, std::size_t size) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(2 * size);
    for (std::size_t i = 0; i < size; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

template <typename Real>
Real real_from(const std::uint8_t* bytes) {
    Real value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template <typename Real>
std::string shortest(Real value) {
    char text[64];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

/// A value of a REAL type, the wider type for both.
double real_of(const Row& row, const ObjectBytes& bytes) {
    if (bytes.size() < row.size) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    return row.size == 4 ? static_cast<double>(real_from<float>(bytes.data()))
                         : real_from<double>(bytes.data());
}

template <typename T>
int order(T left, T right) {
    return left < right ? -1 : left > right ? 1 : 0;
}

}  // namespace

ObjectDataType object_data_type(unsigned int number) {
    return number > 0xFFFF ? ObjectDataType::none : row_of(static_cast<ObjectDataType>(number)).type;
}

ObjectDataType object_data_type(std::string_view name) {
    const auto* row = std::find_if(rows.begin(), rows.end(), [&](const Row& r) {
        return eds::same_word(name, r.name) || eds::same_word(name, r.short_name);
    });
    return row == rows.end() ? ObjectDataType::none : row->type;
}

const char* object_type_name(ObjectDataType type) {
    return row_of(type).name;
}

const char* object_type_short_name(ObjectDataType type) {
    return row_of(type).short_name;
}

std::size_t object_size(ObjectDataType type) {
    return row_of(type).size;
}

bool object_is_signed(ObjectDataType type) {
    return row_of(type).kind == Kind::integer;
}

bool object_is_integer(ObjectDataType type) {
    const Kind kind = row_of(type).kind;
    return kind == Kind::boolean || kind == Kind::integer || kind == Kind::natural;
}

bool object_is_real(ObjectDataType type) {
    return row_of(type).kind == Kind::real;
}

bool object_text_has_node_id(std::string_view text) {
    return eds::find_word(text, "$nodeid") != text.npos;
}

ObjectParse parse_object(ObjectDataType type, std::string_view text, unsigned int node_id) {
    const Row& row = row_of(type);
    text = eds::trimmed(text);
    const bool may_be_empty = row.kind == Kind::text || row.kind == Kind::octets || row.kind == Kind::unicode;
    if (text.empty() && !may_be_empty) {
        return refused("is empty");
    }
    switch (row.kind) {
        case Kind::boolean:
        case Kind::integer:
        case Kind::natural:
            return integer_from_text(row, text, node_id);
        case Kind::real:
            return real_from_text(row, text);
        case Kind::octets:
            return octets_from_text(text);
        case Kind::time:
            return time_from_text(row, text);
        case Kind::text: {
            const std::string_view inner = without_quotes(text);
            return {ObjectBytes(inner.begin(), inner.end()), {}};
        }
        case Kind::unicode:
            return {utf16_from(without_quotes(text)), {}};
        case Kind::none:
            break;
    }
    return refused("has no data type");
}

std::string format_object(ObjectDataType type, const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) {
        return {};
    }
    const Row& row = row_of(type);
    const std::size_t used = row.size == 0 ? size : std::min(size, row.size);
    switch (row.kind) {
        case Kind::boolean:
            return bytes[0] == 0 ? "0" : "1";
        case Kind::integer:
            return std::to_string(sign_extended(number_of(bytes, used), used));
        case Kind::natural:
            return std::to_string(number_of(bytes, used));
        case Kind::real:
            if (size < row.size) {
                break;
            }
            return row.size == 4 ? shortest(real_from<float>(bytes)) : shortest(real_from<double>(bytes));
        case Kind::text: {
            const char* text = reinterpret_cast<const char*>(bytes);
            std::size_t length = size;
            while (length > 0 && text[length - 1] == '\0') {
                --length;
            }
            return eds::utf8({text, length});
        }
        case Kind::unicode:
            return text_from_utf16(bytes, size);
        case Kind::time:
            if (size < row.size) {
                break;
            }
            return std::to_string(number_of(bytes + 4, 2)) + " " +
                   std::to_string(number_of(bytes, 4) & 0x0FFFFFFF);
        case Kind::octets:
        case Kind::none:
            break;
    }
    return hexadecimal(bytes, size);
}

int compare_objects(ObjectDataType type, const ObjectBytes& left, const ObjectBytes& right) {
    const Row& row = row_of(type);
    if (row.kind == Kind::real) {
        return order(real_of(row, left), real_of(row, right));
    }
    if (object_is_integer(type) && !left.empty() && !right.empty()) {
        const std::uint64_t l = number_of(left.data(), left.size());
        const std::uint64_t r = number_of(right.data(), right.size());
        return row.kind == Kind::integer ? order(sign_extended(l, std::min<std::size_t>(left.size(), 8)),
                                                 sign_extended(r, std::min<std::size_t>(right.size(), 8)))
                                         : order(l, r);
    }
    if (row.kind == Kind::time && left.size() == row.size && right.size() == row.size) {
        const auto moment = [](const ObjectBytes& b) {
            return number_of(b.data() + 4, 2) << 32 | (number_of(b.data(), 4) & 0x0FFFFFFF);
        };
        return order(moment(left), moment(right));
    }
    const auto less = std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end());
    return less ? -1 : left == right ? 0 : 1;
}
