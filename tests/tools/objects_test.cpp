// Objects and values as the command line and its results have them.

#include "tools/objects.h"

#include <gtest/gtest.h>

#include "tests/support/temporaryfile.h"
#include "tools/failure.h"

using nodevik_tool::ExitStatus;
using nodevik_tool::Failure;
using nodevik_tool::ObjectAddress;
using nodevik_tool::parse_address;
using nodevik_tool::parse_form;
using nodevik_tool::parse_value;
using nodevik_tool::value_json;
using nodevik_tool::value_text;

namespace {

const char* const description_text =
    "[MandatoryObjects]\nSupportedObjects=1\n1=0x1000\n"
    "[1000]\nParameterName=Device type\nObjectType=7\nDataType=7\nAccessType=ro\n"
    "[ManufacturerObjects]\nSupportedObjects=2\n1=0x2000\n2=0x2001\n"
    "[2000]\nParameterName=Speed\nObjectType=7\nDataType=3\nAccessType=rw\nLowLimit=-100\nHighLimit=100\n"
    "[2001]\nParameterName=Inputs\nObjectType=8\nSubNumber=2\n"
    "[2001sub0]\nParameterName=Count\nObjectType=7\nDataType=5\nAccessType=ro\nDefaultValue=1\n"
    "[2001sub1]\nParameterName=Input\nObjectType=7\nDataType=5\nAccessType=rw\n";

DeviceDescription description() {
    DeviceDescription result;
    result.parse(description_text, "pump.eds");
    return result;
}

ExitStatus status_of(const std::string& text, const DeviceDescription* names) {
    try {
        parse_address(text, names);
    } catch (const Failure& failure) {
        return failure.status();
    }
    return ExitStatus::done;
}

}  // namespace

TEST(ObjectAddress, IsAnIndexWithOrWithoutASubindex) {
    EXPECT_EQ(parse_address("0x1018:1", nullptr).index, 0x1018);
    EXPECT_EQ(parse_address("0x1018:1", nullptr).subindex, 1);
    EXPECT_EQ(parse_address("0x1018:0xFF", nullptr).subindex, 255);
    EXPECT_FALSE(parse_address("0x1018", nullptr).subindex.has_value());
    EXPECT_EQ(parse_address("5", nullptr).index, 5);  // the same in both
    for (const char* text :
         {"", "1018", "10:1", "0x10180", "0x1018:", "0x1018:256", "0x1018:x", ":1", "name"}) {
        EXPECT_EQ(status_of(text, nullptr), ExitStatus::usage) << text;
    }
}

TEST(ObjectAddress, IsANameOfADescription) {
    const DeviceDescription names = description();
    EXPECT_EQ(parse_address("speed", &names).index, 0x2000);
    EXPECT_EQ(parse_address("Inputs", &names).index, 0x2001);
    EXPECT_FALSE(parse_address("Inputs", &names).subindex.has_value());
    EXPECT_EQ(parse_address("Inputs/Input", &names).subindex, 1);
    EXPECT_EQ(parse_address("0x1234:5", &names).index, 0x1234);
    EXPECT_EQ(status_of("Colour", &names), ExitStatus::usage);
}

TEST(ValueForm, HasAWordForEachType) {
    for (const char* word : {"bool", "u8",  "u16", "u24", "u32", "u40", "u48", "u56", "u64", "i8",  "i16",
                             "i24",  "i32", "i40", "i48", "i56", "i64", "r32", "r64", "str", "oct", "hex"}) {
        EXPECT_EQ(parse_form(word).name(), word);
    }
    for (const char* word : {"u9", "UNSIGNED8", "int", "U8"}) {
        EXPECT_THROW(parse_form(word), Failure) << word;
    }
}

TEST(Value, IsReadByItsTypeWithinItsRange) {
    EXPECT_EQ(parse_value(parse_form("u16"), nullptr, "500", 5), (ObjectBytes{0xF4, 0x01}));
    EXPECT_EQ(parse_value(parse_form("i16"), nullptr, "-2", 5), (ObjectBytes{0xFE, 0xFF}));
    EXPECT_EQ(parse_value(parse_form("u64"), nullptr, "18446744073709551615", 5), ObjectBytes(8, 0xFF));
    EXPECT_EQ(parse_value(parse_form("u32"), nullptr, "$NODEID+0x180", 5), (ObjectBytes{0x85, 0x01, 0, 0}));
    EXPECT_EQ(parse_value(parse_form("hex"), nullptr, "0A1b", 5), (ObjectBytes{0x0A, 0x1B}));
    EXPECT_EQ(parse_value(parse_form("str"), nullptr, " \"a\" ", 5), (ObjectBytes{' ', '"', 'a', '"', ' '}));
    EXPECT_EQ(parse_value(parse_form("oct"), nullptr, "0A", 5), (ObjectBytes{'0', 'A'}));
    EXPECT_THROW(parse_value(parse_form("u8"), nullptr, "256", 5), Failure);
    EXPECT_THROW(parse_value(parse_form("u8"), nullptr, "", 5), Failure);
    EXPECT_THROW(parse_value(parse_form("hex"), nullptr, "0A1", 5), Failure);
}

TEST(Value, KeepsTheLimitsOfItsDescription) {
    const DeviceDescription names = description();
    const auto* speed = names.entry(0x2000, 0);
    const auto form = nodevik_tool::entry_form(speed);
    EXPECT_EQ(form.name(), "i16");
    EXPECT_EQ(parse_value(form, speed, "-100", 5), (ObjectBytes{0x9C, 0xFF}));
    EXPECT_THROW(parse_value(form, speed, "-101", 5), Failure);
    EXPECT_THROW(parse_value(form, speed, "101", 5), Failure);
}

TEST(Value, IsShownByItsType) {
    EXPECT_EQ(value_text(parse_form("i16"), {0xFE, 0xFF}), "-2");
    EXPECT_EQ(value_text(parse_form("hex"), {0x0A, 0x1B}), "0A1B");
    EXPECT_EQ(value_text(parse_form("str"), {'a', '\n', 'b'}), "a\\x0Ab");
    EXPECT_EQ(value_text({}, {0xF1, 0x01, 0, 0}), "F1010000  497");
    EXPECT_EQ(value_text({}, ObjectBytes(8, 0xFF)), "FFFFFFFFFFFFFFFF  18446744073709551615");
    EXPECT_EQ(value_text({}, ObjectBytes(9, 0)), "000000000000000000");
    EXPECT_EQ(value_text({}, {}), "");
}

TEST(Value, IsANumberInJsonWhateverItsWidth) {
    EXPECT_EQ(value_json(parse_form("u64"), ObjectBytes(8, 0xFF)).dump(), "18446744073709551615");
    EXPECT_EQ(value_json(parse_form("i64"), {0, 0, 0, 0, 0, 0, 0, 0x80}).dump(), "-9223372036854775808");
    EXPECT_EQ(value_json(parse_form("r32"), {0xCD, 0xCC, 0x8C, 0x3F}).dump(), "1.1");
    EXPECT_EQ(value_json(parse_form("r64"), {0, 0, 0, 0, 0, 0, 0xF8, 0x7F}).dump(), "null");
    EXPECT_EQ(value_json(parse_form("bool"), {1}).dump(), "true");
    EXPECT_EQ(value_json(parse_form("str"), {'a'}).dump(), "\"a\"");
    EXPECT_EQ(value_json(parse_form("oct"), {0xAB}).dump(), "\"ab\"");
    EXPECT_EQ(value_json(parse_form("u8"), {}).dump(), "null");
    EXPECT_EQ(value_json({}, {2, 0}).dump(), "2");
}

TEST(Descriptions, BelongToANodeOrToAll) {
    const TemporaryFile file;
    file.write(description_text);
    const nodevik_tool::Descriptions of_all({file.path()});
    EXPECT_NE(of_all.of(9), nullptr);
    const nodevik_tool::Descriptions of_five({"5=" + file.path()});
    EXPECT_NE(of_five.of(5), nullptr);
    EXPECT_EQ(of_five.of(6), nullptr);
    file.write("nothing");
    try {
        const nodevik_tool::Descriptions none({file.path()});
        ADD_FAILURE();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.status(), ExitStatus::bad_file);
    }
}
