#include "nodevik/nodes/objectvalue.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Type = ObjectDataType;

// The value that a text makes, which has to be one without any remark.
ObjectBytes bytes_of(Type type, std::string_view text, unsigned int node_id = 0) {
    const ObjectParse result = parse_object(type, text, node_id);
    EXPECT_EQ(result.remark, "") << text;
    EXPECT_TRUE(result.bytes.has_value()) << text;
    return result.bytes.value_or(ObjectBytes{});
}

// Why a text makes no value.
std::string refusal(Type type, std::string_view text, unsigned int node_id = 0) {
    const ObjectParse result = parse_object(type, text, node_id);
    EXPECT_FALSE(result.bytes.has_value()) << text;
    return result.remark;
}

// A text that is taken although something is odd about it: what it makes and the remark.
void expect_odd(Type type, std::string_view text, const ObjectBytes& bytes, const std::string& remark) {
    const ObjectParse result = parse_object(type, text);
    EXPECT_EQ(result.bytes, bytes) << text;
    EXPECT_EQ(result.remark, remark) << text;
}

const std::vector<Type> all_types = {
    Type::boolean,        Type::integer8,    Type::integer16,       Type::integer32,      Type::unsigned8,
    Type::unsigned16,     Type::unsigned32,  Type::real32,          Type::visible_string, Type::octet_string,
    Type::unicode_string, Type::time_of_day, Type::time_difference, Type::domain,         Type::integer24,
    Type::real64,         Type::integer40,   Type::integer48,       Type::integer56,      Type::integer64,
    Type::unsigned24,     Type::unsigned40,  Type::unsigned48,      Type::unsigned56,     Type::unsigned64};

TEST(ObjectDataType, HasTheNumbersOfCia301) {
    const std::vector<unsigned int> numbers = {1,    2,    3,    4,    5,    6,    7,    8,    9,
                                               0xA,  0xB,  0xC,  0xD,  0xF,  0x10, 0x11, 0x12, 0x13,
                                               0x14, 0x15, 0x16, 0x18, 0x19, 0x1A, 0x1B};
    ASSERT_EQ(numbers.size(), all_types.size());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        EXPECT_EQ(static_cast<unsigned int>(all_types[i]), numbers[i]);
        EXPECT_EQ(object_data_type(numbers[i]), all_types[i]);
    }
}

TEST(ObjectDataType, OtherNumbersAreNone) {
    for (const unsigned int number : {0U, 0xEU, 0x17U, 0x1CU, 0x20U, 0x21U, 0x40U, 0x10007U, 0xFFFFFFFFU}) {
        EXPECT_EQ(object_data_type(number), Type::none) << number;
    }
}

TEST(ObjectDataType, IsFoundByEitherNameInAnyCase) {
    for (const Type type : all_types) {
        EXPECT_EQ(object_data_type(object_type_name(type)), type);
        EXPECT_EQ(object_data_type(object_type_short_name(type)), type);
    }
    EXPECT_EQ(object_data_type("Unsigned32"), Type::unsigned32);
    EXPECT_EQ(object_data_type("U32"), Type::unsigned32);
    EXPECT_STREQ(object_type_name(Type::unsigned32), "UNSIGNED32");
    EXPECT_STREQ(object_type_short_name(Type::real64), "r64");
    EXPECT_EQ(object_data_type("u31"), Type::none);
    EXPECT_EQ(object_data_type(""), Type::none);
    EXPECT_STREQ(object_type_name(Type::none), "NONE");
}

TEST(ObjectDataType, HasTheSizeOfItsValues) {
    EXPECT_EQ(object_size(Type::boolean), 1U);
    EXPECT_EQ(object_size(Type::integer24), 3U);
    EXPECT_EQ(object_size(Type::unsigned40), 5U);
    EXPECT_EQ(object_size(Type::unsigned56), 7U);
    EXPECT_EQ(object_size(Type::real32), 4U);
    EXPECT_EQ(object_size(Type::real64), 8U);
    EXPECT_EQ(object_size(Type::time_of_day), 6U);
    EXPECT_EQ(object_size(Type::visible_string), 0U);
    EXPECT_EQ(object_size(Type::domain), 0U);
    EXPECT_EQ(object_size(Type::none), 0U);
}

TEST(ObjectDataType, KnowsItsKind) {
    EXPECT_TRUE(object_is_integer(Type::boolean));
    EXPECT_TRUE(object_is_integer(Type::unsigned8));
    EXPECT_TRUE(object_is_integer(Type::integer64));
    EXPECT_FALSE(object_is_integer(Type::real32));
    EXPECT_FALSE(object_is_integer(Type::time_of_day));
    EXPECT_TRUE(object_is_signed(Type::integer8));
    EXPECT_FALSE(object_is_signed(Type::unsigned8));
    EXPECT_TRUE(object_is_real(Type::real64));
    EXPECT_FALSE(object_is_real(Type::unsigned64));
}

TEST(ParseObject, ReadsDecimalHexadecimalAndOctal) {
    EXPECT_EQ(bytes_of(Type::unsigned16, "500"), (ObjectBytes{0xF4, 0x01}));
    EXPECT_EQ(bytes_of(Type::unsigned16, "0x1F4"), (ObjectBytes{0xF4, 0x01}));
    EXPECT_EQ(bytes_of(Type::unsigned16, "0X1f4"), (ObjectBytes{0xF4, 0x01}));
    EXPECT_EQ(bytes_of(Type::unsigned16, "0764"), (ObjectBytes{0xF4, 0x01}));
    EXPECT_EQ(bytes_of(Type::unsigned8, "001"), (ObjectBytes{1}));
    EXPECT_EQ(bytes_of(Type::unsigned8, "0"), (ObjectBytes{0}));
    EXPECT_EQ(bytes_of(Type::unsigned8, " \t7 "), (ObjectBytes{7}));
    EXPECT_EQ(bytes_of(Type::unsigned32, "0x00000007"), (ObjectBytes{7, 0, 0, 0}));
}

TEST(ParseObject, TakesWhatIsOddAndSaysSo) {
    expect_odd(Type::unsigned8, "08", {8}, "has a leading 0 and is not octal: taken as decimal");
    expect_odd(Type::unsigned8, "0.0", {0}, "has a fraction: taken as the whole number");
    expect_odd(Type::unsigned8, "10.", {10}, "has a fraction: taken as the whole number");
    expect_odd(Type::real32, "0x10", {0, 0, 0x80, 0x41}, "is not the whole pattern: taken as a number");
}

TEST(ParseObject, RefusesWhatIsNoNumber) {
    for (const char* text :
         {"0x", "0xG", "abc", "1.5", "1 2", "--1", "+", "1+", "12h", "1,5", "0x-1", ".", ".0", "-"}) {
        EXPECT_EQ(refusal(Type::unsigned32, text), "is no number") << text;
    }
    EXPECT_EQ(refusal(Type::unsigned32, ""), "is empty");
    EXPECT_EQ(refusal(Type::unsigned32, "  "), "is empty");
    EXPECT_EQ(refusal(Type::unsigned64, "18446744073709551616"), "does not fit 64 bits");
    EXPECT_EQ(refusal(Type::none, "1"), "has no data type");
}

TEST(ParseObject, ChecksTheRangeOfUnsignedTypes) {
    EXPECT_EQ(bytes_of(Type::unsigned8, "255"), (ObjectBytes{0xFF}));
    EXPECT_EQ(refusal(Type::unsigned8, "256"), "does not fit UNSIGNED8");
    EXPECT_EQ(refusal(Type::unsigned8, "-1"), "does not fit UNSIGNED8");
    EXPECT_EQ(bytes_of(Type::unsigned8, "-0"), (ObjectBytes{0}));
    EXPECT_EQ(bytes_of(Type::unsigned24, "0xFFFFFF"), (ObjectBytes{0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(refusal(Type::unsigned24, "0x1000000"), "does not fit UNSIGNED24");
    EXPECT_EQ(bytes_of(Type::unsigned64, "18446744073709551615"), ObjectBytes(8, 0xFF));
    EXPECT_EQ(refusal(Type::boolean, "2"), "does not fit BOOLEAN");
    EXPECT_EQ(bytes_of(Type::boolean, "1"), (ObjectBytes{1}));
    EXPECT_EQ(bytes_of(Type::boolean, "TRUE"), (ObjectBytes{1}));
    EXPECT_EQ(bytes_of(Type::boolean, "false"), (ObjectBytes{0}));
    EXPECT_EQ(refusal(Type::unsigned8, "true"), "is no number");
}

TEST(ParseObject, ReadsSignedTypesAlsoAsTwosComplement) {
    EXPECT_EQ(bytes_of(Type::integer16, "-2"), (ObjectBytes{0xFE, 0xFF}));
    EXPECT_EQ(bytes_of(Type::integer16, "0xFFFE"), (ObjectBytes{0xFE, 0xFF}));
    EXPECT_EQ(bytes_of(Type::integer16, "0x8000"), (ObjectBytes{0x00, 0x80}));
    EXPECT_EQ(bytes_of(Type::integer16, "-32768"), (ObjectBytes{0x00, 0x80}));
    EXPECT_EQ(bytes_of(Type::integer16, "-0x8000"), (ObjectBytes{0x00, 0x80}));
    EXPECT_EQ(refusal(Type::integer16, "32768"), "does not fit INTEGER16");
    EXPECT_EQ(refusal(Type::integer16, "-32769"), "does not fit INTEGER16");
    EXPECT_EQ(refusal(Type::integer16, "0x10000"), "does not fit INTEGER16");
    EXPECT_EQ(bytes_of(Type::integer24, "-1"), (ObjectBytes{0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(bytes_of(Type::integer64, "-9223372036854775808"), (ObjectBytes{0, 0, 0, 0, 0, 0, 0, 0x80}));
    EXPECT_EQ(refusal(Type::integer64, "9223372036854775808"), "does not fit INTEGER64");
}

TEST(ParseObject, PutsTheNodesNumberIn) {
    const ObjectBytes expected = {0x85, 0x01, 0x00, 0x00};
    for (const char* text : {"$NODEID+0x180", "$NODEID+384", "$NodeId + 0x180", "0x180+$NODEID",
                             "0x180 +$nodeid", "\t$NODEID +384 "}) {
        EXPECT_EQ(bytes_of(Type::unsigned32, text, 5), expected) << text;
    }
    EXPECT_EQ(bytes_of(Type::unsigned8, "$NODEID", 127), (ObjectBytes{127}));
    EXPECT_EQ(bytes_of(Type::unsigned32, "$NODEID+0x40000180", 5), (ObjectBytes{0x85, 0x01, 0x00, 0x40}));
    EXPECT_EQ(bytes_of(Type::unsigned32, "$NODEID+0x80000180", 5), (ObjectBytes{0x85, 0x01, 0x00, 0x80}));
}

TEST(ParseObject, NeedsTheNodesNumberForAFormula) {
    for (const unsigned int node_id : {0U, 128U}) {
        EXPECT_EQ(refusal(Type::unsigned32, "$NODEID+0x180", node_id), "needs the number of the node");
    }
    EXPECT_EQ(refusal(Type::unsigned32, "$NODEID+$NODEID", 5), "has $NODEID twice");
    EXPECT_EQ(refusal(Type::unsigned32, "$NODEID-1", 5), "is no number");
    EXPECT_EQ(refusal(Type::unsigned32, "$NODEID+", 5), "is no number");
    EXPECT_EQ(refusal(Type::unsigned8, "$NODEID+0xFF", 5), "does not fit UNSIGNED8");
    EXPECT_EQ(refusal(Type::unsigned64, "$NODEID+0xFFFFFFFFFFFFFFFF", 5), "does not fit 64 bits");
    EXPECT_TRUE(object_text_has_node_id("0x180+$nodeid"));
    EXPECT_FALSE(object_text_has_node_id("NODEID"));
}

TEST(ParseObject, ReadsRealNumbers) {
    EXPECT_EQ(bytes_of(Type::real32, "1.5"), (ObjectBytes{0, 0, 0xC0, 0x3F}));
    EXPECT_EQ(bytes_of(Type::real32, "0x3FC00000"), (ObjectBytes{0, 0, 0xC0, 0x3F}));
    EXPECT_EQ(bytes_of(Type::real32, "-2"), (ObjectBytes{0, 0, 0, 0xC0}));
    EXPECT_EQ(bytes_of(Type::real32, "+15e-1"), (ObjectBytes{0, 0, 0xC0, 0x3F}));
    EXPECT_EQ(bytes_of(Type::real64, "1.5"), (ObjectBytes{0, 0, 0, 0, 0, 0, 0xF8, 0x3F}));
    EXPECT_EQ(bytes_of(Type::real64, "0x3FF8000000000000"), (ObjectBytes{0, 0, 0, 0, 0, 0, 0xF8, 0x3F}));
    EXPECT_EQ(refusal(Type::real32, "1e39"), "does not fit a REAL of its size");
    EXPECT_EQ(refusal(Type::real32, "1.5V"), "is no number");
    EXPECT_EQ(refusal(Type::real32, "+"), "is no number");
    EXPECT_EQ(refusal(Type::real32, "0xG"), "is no number");
}

TEST(ParseObject, ReadsStrings) {
    EXPECT_EQ(bytes_of(Type::visible_string, "pump 1"), (ObjectBytes{'p', 'u', 'm', 'p', ' ', '1'}));
    EXPECT_EQ(bytes_of(Type::visible_string, "\"a\""), (ObjectBytes{'a'}));
    EXPECT_EQ(bytes_of(Type::visible_string, "\"\"a\"\""), (ObjectBytes{'"', 'a', '"'}));
    EXPECT_EQ(bytes_of(Type::visible_string, "\""), (ObjectBytes{'"'}));
    EXPECT_EQ(bytes_of(Type::visible_string, "a\\n;#"), (ObjectBytes{'a', '\\', 'n', ';', '#'}));
    EXPECT_EQ(bytes_of(Type::visible_string, ""), ObjectBytes{});
    EXPECT_EQ(bytes_of(Type::visible_string, "$NODEID"), (ObjectBytes{'$', 'N', 'O', 'D', 'E', 'I', 'D'}));
    EXPECT_EQ(bytes_of(Type::unicode_string, "A\u00e4"), (ObjectBytes{0x41, 0, 0xE4, 0}));
    EXPECT_EQ(bytes_of(Type::unicode_string, "\U0001F600"), (ObjectBytes{0x3D, 0xD8, 0x00, 0xDE}));
    EXPECT_EQ(bytes_of(Type::octet_string, "0A 1b"), (ObjectBytes{0x0A, 0x1B}));
    EXPECT_EQ(bytes_of(Type::octet_string, "0x0A1B"), (ObjectBytes{0x0A, 0x1B}));
    EXPECT_EQ(bytes_of(Type::domain, "0A1B"), (ObjectBytes{0x0A, 0x1B}));
    for (const char* text : {"0A1", "0 A", "hello", "0x0"}) {
        EXPECT_EQ(refusal(Type::octet_string, text), "is not made of pairs of hexadecimal digits") << text;
    }
}

TEST(ParseObject, ReadsTimesAsDaysAndMilliseconds) {
    EXPECT_EQ(bytes_of(Type::time_of_day, "1000 5000"), (ObjectBytes{0x88, 0x13, 0, 0, 0xE8, 0x03}));
    EXPECT_EQ(bytes_of(Type::time_difference, "0xFFFF  0x0FFFFFFF"),
              (ObjectBytes{0xFF, 0xFF, 0xFF, 0x0F, 0xFF, 0xFF}));
    EXPECT_EQ(refusal(Type::time_of_day, "65536 0"), "does not fit TIME_OF_DAY");
    EXPECT_EQ(refusal(Type::time_difference, "0 0x10000000"), "does not fit TIME_DIFFERENCE");
    for (const char* text : {"1000", "a b", "-1 0", "0 -1", "1 2 3"}) {
        EXPECT_EQ(refusal(Type::time_of_day, text), "is not two numbers, days and milliseconds") << text;
    }
}

TEST(FormatObject, WritesNumbersInDecimal) {
    EXPECT_EQ(format_object(Type::unsigned16, {0xF4, 0x01}), "500");
    EXPECT_EQ(format_object(Type::integer16, {0xFE, 0xFF}), "-2");
    EXPECT_EQ(format_object(Type::integer24, {0, 0, 0x80}), "-8388608");
    EXPECT_EQ(format_object(Type::unsigned64, ObjectBytes(8, 0xFF)), "18446744073709551615");
    EXPECT_EQ(format_object(Type::integer64, {0, 0, 0, 0, 0, 0, 0, 0x80}), "-9223372036854775808");
    EXPECT_EQ(format_object(Type::boolean, {7}), "1");
    EXPECT_EQ(format_object(Type::real32, {0, 0, 0xC0, 0x3F}), "1.5");
    EXPECT_EQ(format_object(Type::real32, {0xCD, 0xCC, 0xCC, 0x3D}), "0.1");
    EXPECT_EQ(format_object(Type::time_of_day, {0x88, 0x13, 0, 0xF0, 0xE8, 0x03}), "1000 5000");
}

TEST(FormatObject, WritesStringsAsTheyReadAndTheRestInHexadecimal) {
    EXPECT_EQ(format_object(Type::visible_string, {'a', 'b', 0, 0}), "ab");
    EXPECT_EQ(format_object(Type::visible_string, {0xB0, 'C'}), "\u00b0C");
    EXPECT_EQ(format_object(Type::visible_string, {0xC2, 0xB0, 'C'}), "\u00b0C");
    EXPECT_EQ(format_object(Type::unicode_string, {0x41, 0, 0xE4, 0, 0, 0}), "A\u00e4");
    EXPECT_EQ(format_object(Type::unicode_string, {0x3D, 0xD8, 0x00, 0xDE}), "\U0001F600");
    EXPECT_EQ(format_object(Type::unicode_string, {0x3D, 0xD8, 0x41, 0x00}), "\uFFFDA");
    EXPECT_EQ(format_object(Type::octet_string, {0x0A, 0x1B}), "0A1B");
    EXPECT_EQ(format_object(Type::domain, {0xFF}), "FF");
    EXPECT_EQ(format_object(Type::none, {1, 2}), "0102");
    EXPECT_EQ(format_object(Type::unsigned8, ObjectBytes{}), "");
}

TEST(FormatObject, TakesTheBytesThatAreThere) {
    EXPECT_EQ(format_object(Type::unsigned8, {5, 0xFF, 0xFF, 0xFF}), "5");
    EXPECT_EQ(format_object(Type::unsigned32, {5, 1}), "261");
    EXPECT_EQ(format_object(Type::integer32, {0xFF}), "-1");
    EXPECT_EQ(format_object(Type::real32, {0xC0, 0x3F}), "C03F");
    EXPECT_EQ(format_object(Type::time_of_day, {1, 2}), "0102");
}

TEST(FormatObject, MakesTextsThatMakeTheValueAgain) {
    for (const Type type : all_types) {
        for (const unsigned int first : {0x00U, 0x01U, 0x41U}) {
            const std::size_t size = object_size(type) == 0 ? 4 : object_size(type);
            ObjectBytes value(size, static_cast<std::uint8_t>(first));
            if (type == Type::boolean) {
                value = {static_cast<std::uint8_t>(first & 1)};
            } else if (type == Type::time_of_day || type == Type::time_difference) {
                value[3] &= 0x0F;
            } else if (first == 0 && (type == Type::visible_string || type == Type::unicode_string)) {
                value.clear();
            }
            EXPECT_EQ(bytes_of(type, format_object(type, value)), value) << object_type_name(type);
        }
    }
}

TEST(CompareObjects, OrdersNumbersByTheirSize) {
    EXPECT_LT(compare_objects(Type::unsigned16, {0xFF, 0x00}, {0x00, 0x01}), 0);
    EXPECT_GT(compare_objects(Type::unsigned8, {0xFF}, {0x01}), 0);
    EXPECT_LT(compare_objects(Type::integer8, {0xFF}, {0x01}), 0);
    EXPECT_EQ(compare_objects(Type::integer32, {5, 0, 0, 0}, {5, 0, 0, 0}), 0);
    EXPECT_LT(compare_objects(Type::real32, bytes_of(Type::real32, "-1"), bytes_of(Type::real32, "0.5")), 0);
    EXPECT_GT(compare_objects(Type::real64, bytes_of(Type::real64, "2"), bytes_of(Type::real64, "-3")), 0);
    EXPECT_LT(compare_objects(Type::time_of_day, bytes_of(Type::time_of_day, "1 999"),
                              bytes_of(Type::time_of_day, "2 0")),
              0);
    EXPECT_LT(compare_objects(Type::visible_string, {'a'}, {'b'}), 0);
    EXPECT_EQ(compare_objects(Type::visible_string, {'a'}, {'a'}), 0);
    EXPECT_GT(compare_objects(Type::domain, {1, 0}, {1}), 0);
}

TEST(CompareObjects, NoNumberIsTheSameAsAny) {
    EXPECT_EQ(compare_objects(Type::real32, bytes_of(Type::real32, "nan"), bytes_of(Type::real32, "1")), 0);
    EXPECT_EQ(compare_objects(Type::real32, {1}, bytes_of(Type::real32, "1")), 0);
}

}  // namespace
