// What nodevik tells of EDS and DCF files.

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/childprocess.h"
#include "tests/support/temporaryfile.h"

namespace {

const std::string description_text =
    "[MandatoryObjects]\nSupportedObjects=1\n1=0x1000\n"
    "[1000]\nParameterName=Device type\nObjectType=7\nDataType=7\nAccessType=ro\nDefaultValue=0x191\n"
    "[ManufacturerObjects]\nSupportedObjects=2\n1=0x2000\n2=0x2001\n"
    "[2000]\nParameterName=Speed\nObjectType=7\nDataType=3\nAccessType=rww\nLowLimit=-100\nHighLimit=100\n"
    "PDOMapping=1\n"
    "[2001]\nParameterName=Inputs\nObjectType=8\nSubNumber=2\n"
    "[2001sub0]\nParameterName=Count\nObjectType=7\nDataType=5\nAccessType=ro\nDefaultValue=1\n"
    "[2001sub1]\nParameterName=Source\nObjectType=7\nDataType=7\nAccessType=rw\nDefaultValue=$NODEID+0x180\n";

ChildResult eds(const std::vector<std::string>& words) {
    std::vector<std::string> all{NODEVIK, "eds"};
    all.insert(all.end(), words.begin(), words.end());
    return run_program(all);
}

}  // namespace

TEST(EdsShow, HasALineForEachEntry) {
    const TemporaryFile file;
    file.write(description_text);
    const ChildResult result = eds({"show", file.path()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out,
              "0x1000:0    u32     ro       Device type = 0x191\n"
              "0x2000:0    i16     rww      Speed [-100 to 100], PDO\n"
              "0x2001:0    u8      ro       Inputs/Count = 1\n"
              "0x2001:1    u32     rw       Inputs/Source = $NODEID+0x180\n");
}

TEST(EdsShow, HasAnObjectForEachEntryInJson) {
    const TemporaryFile file;
    file.write(description_text);
    EXPECT_EQ(eds({"show", file.path(), "--json"}).out,
              "{\"index\":\"0x1000\",\"sub\":0,\"name\":\"Device type\",\"type\":\"u32\",\"access\":\"ro\","
              "\"default\":401,\"low\":null,\"high\":null,\"pdo\":false}\n"
              "{\"index\":\"0x2000\",\"sub\":0,\"name\":\"Speed\",\"type\":\"i16\",\"access\":\"rww\","
              "\"default\":null,\"low\":-100,\"high\":100,\"pdo\":true}\n"
              "{\"index\":\"0x2001\",\"sub\":0,\"name\":\"Inputs/Count\",\"type\":\"u8\",\"access\":\"ro\","
              "\"default\":1,\"low\":null,\"high\":null,\"pdo\":false}\n"
              "{\"index\":\"0x2001\",\"sub\":1,\"name\":\"Inputs/Source\",\"type\":\"u32\",\"access\":\"rw\","
              "\"default\":\"$NODEID+0x180\",\"low\":null,\"high\":null,\"pdo\":false}\n");
}

TEST(EdsShow, ShowsTheValuesOfADcfForItsNode) {
    const TemporaryFile file;
    file.write(description_text + "ParameterValue=$NODEID+0x280\n[DeviceComissioning]\nNodeID=5\n");
    EXPECT_EQ(eds({"show", file.path(), "0x2001:1", "--json"}).out,
              "{\"index\":\"0x2001\",\"sub\":1,\"name\":\"Inputs/Source\",\"type\":\"u32\",\"access\":\"rw\","
              "\"default\":389,\"low\":null,\"high\":null,\"pdo\":false,\"value\":645}\n");
}

TEST(EdsShow, ShowsTheObjectThatIsNamed) {
    const TemporaryFile file;
    file.write(description_text);
    for (const char* object : {"0x2001", "inputs"}) {
        const std::string out = eds({"show", file.path(), object}).out;
        EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 2) << out;
    }
    EXPECT_EQ(eds({"show", file.path(), "Speed"}).out,
              "0x2000:0    i16     rww      Speed [-100 to 100], PDO\n");
    const ChildResult none = eds({"show", file.path(), "0x3000"});
    EXPECT_EQ(none.status, 2);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(none.err, "nodevik: " + file.path() + " has no object 0x3000\n");
    EXPECT_EQ(eds({"show", "/no/such"}).status, 5);
}

TEST(EdsCheck, TellsNothingOfAGoodFile) {
    const ChildResult result = eds({"check", EDS});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

TEST(EdsCheck, TellsWhereAFileIsWrongAndEndsWith5) {
    const TemporaryFile file;
    std::string text = description_text;
    text.replace(text.find("LowLimit=-100"), 13, "LowLimit=fast");
    file.write(text);
    const ChildResult result = eds({"check", file.path()});
    EXPECT_EQ(result.status, 5);
    EXPECT_NE(result.out.find("error: " + file.path() + ":19: [2000] LowLimit: "), std::string::npos)
        << result.out;
    EXPECT_EQ(result.err, "nodevik: " + file.path() + " has errors: 1\n");
    const ChildResult json = eds({"check", file.path(), "--json"});
    EXPECT_EQ(json.status, 5);
    EXPECT_NE(
        json.out.find(
            "\"line\":19,\"section\":\"2000\",\"key\":\"LowLimit\",\"severity\":\"error\",\"reason\":\""),
        std::string::npos)
        << json.out;
    EXPECT_EQ(eds({"check", "/no/such"}).status, 5);
}
