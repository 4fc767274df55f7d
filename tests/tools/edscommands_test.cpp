// What nodevik tells of EDS and DCF files, and the DCF files that it makes.

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "tests/support/childprocess.h"
#include "tests/support/temporaryfile.h"
#include "tests/tools/describeddevice.h"

namespace {

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

TEST(EdsShow, KeepsTheTextsOfAFileFromCommandingTheTerminal) {
    const TemporaryFile file;
    file.write(
        "[1000]\nParameterName=a\x1b[31mb\xC2\x9B"
        "2J\nObjectType=7\nDataType=9\nAccessType=rw\n"
        "DefaultValue=c\x7f\nLowLimit=\x1b[0m\n");
    const ChildResult shown = eds({"show", file.path()});
    EXPECT_NE(shown.out.find("a\\x1B[31mb\\xC2\\x9B2J = c\\x7F"), std::string::npos) << shown.out;
    for (const std::string& text : {shown.out, shown.err, eds({"check", file.path()}).out}) {
        EXPECT_EQ(text.find_first_of("\x1b\x7f"), std::string::npos) << text;
        EXPECT_EQ(text.find("\xC2\x9B"), std::string::npos) << text;
    }
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

namespace {

void expect_wrong(const std::vector<std::string>& words, const std::string& message) {
    const ChildResult result = eds(words);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "nodevik: " + message + "\n");
}

}  // namespace

TEST(EdsDcf, HasTheNodeAndTheValuesThatWereAskedFor) {
    const TemporaryFile file;
    file.write("; mine\n[FileInfo]\nFileName=pump.eds\nVendorsOwn=1\n" + description_text);
    const ChildResult result =
        eds({"dcf", file.path(), "5", "Speed=-7", "0x2001:1=$NODEID+0x280", "inputs/count=0x1"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    std::string expected =
        "; mine\n[FileInfo]\nFileName=pump.eds\nVendorsOwn=1\nModificationTime=T\nModificationDate=D\n"
        "ModifiedBy=nodevik\nLastEDS=" +
        file.path().substr(file.path().rfind('/') + 1) + "\n" + description_text;
    const auto append = [&expected](const std::string& behind, const std::string& line) {
        expected.insert(expected.find(behind) + behind.size(), line);
    };
    append("PDOMapping=1\n", "ParameterValue=-7\n");
    append("DefaultValue=1\n", "ParameterValue=0x1\n");
    append("DefaultValue=$NODEID+0x180\n", "ParameterValue=$NODEID+0x280\n");
    expected += "\n[DeviceComissioning]\nNodeID=5\nCANopenManager=0\n\n";
    std::string shown = std::regex_replace(
        result.out, std::regex("ModificationTime=[01][0-9]:[0-5][0-9][AP]M\n"), "ModificationTime=T\n");
    shown = std::regex_replace(shown, std::regex("ModificationDate=[01][0-9]-[0-3][0-9]-[0-9]{4}\n"),
                               "ModificationDate=D\n");
    EXPECT_EQ(shown, expected);
}

TEST(EdsDcf, IsReadByCheckAndShow) {
    const TemporaryFile dcf;
    const ChildResult made =
        eds({"dcf", EDS, "127", "0x1017=0x1F4", "0x1800:1=$NODEID+0x380", "--out", dcf.path()});
    EXPECT_EQ(made.status, 0);
    EXPECT_EQ(made.out, "");
    EXPECT_EQ(made.err, "");
    const ChildResult check = eds({"check", dcf.path()});
    EXPECT_EQ(check.status, 0);
    EXPECT_EQ(check.out, "");
    EXPECT_NE(eds({"show", dcf.path(), "0x1800:1", "--json"}).out.find("\"value\":1023}"), std::string::npos);
    EXPECT_NE(dcf.content().find("FileName=" + dcf.path().substr(dcf.path().rfind('/') + 1) + "\n"),
              std::string::npos);
}

TEST(EdsDcf, KeepsTheValuesOfADcfAndTakesThoseOffThatAreEmpty) {
    const TemporaryFile first;
    const TemporaryFile second;
    eds({"dcf", EDS, "5", "0x1017=500", "0x100C=7", "--out", first.path()});
    eds({"dcf", first.path(), "6", "0x100C=", "--out", second.path()});
    const ChildResult result = eds({"diff", first.path(), second.path()});
    EXPECT_EQ(result.out, "DeviceComissioning  NodeID 5 -> 6\n0x100C:0    value 7 -> none  Guard time\n");
}

TEST(EdsShow, SaysSoWhenAnObjectIsMissingInAFileThatIsTorn) {
    const TemporaryFile file;
    file.write(description_text.substr(0, description_text.find("[2001]")));
    const std::string more = "; the file has errors: 'nodevik eds check " + file.path() + "' tells more\n";
    EXPECT_EQ(eds({"show", file.path(), "0x2001"}).err,
              "nodevik: " + file.path() + " has no object 0x2001" + more);
    EXPECT_EQ(eds({"show", file.path(), "Inputs"}).err,
              "nodevik: no object of " + file.path() + " is named 'Inputs'" + more);
    EXPECT_EQ(eds({"dcf", file.path(), "5", "0x2001:1=5"}).status, 2);
}

TEST(EdsDcf, KeepsNamesOfOtherLanguages) {
    const TemporaryFile file;
    const std::string names = "NodeName=H\xC3\xA4nde\nNetworkName=n\xF6rdlich\n";
    file.write(description_text + "[DeviceComissioning]\nNodeID=5\n" + names);
    const ChildResult result = eds({"dcf", file.path(), "6"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_NE(result.out.find("NodeID=6\n" + names), std::string::npos) << result.out;
}

TEST(EdsDcf, ShowsTheValuesInJson) {
    const TemporaryFile file;
    file.write(description_text);
    const TemporaryFile dcf;
    const std::string lines =
        "{\"index\":\"0x2000\",\"sub\":0,\"name\":\"Speed\",\"type\":\"i16\",\"access\":\"rww\","
        "\"default\":null,\"low\":-100,\"high\":100,\"pdo\":true,\"value\":-7}\n";
    EXPECT_EQ(eds({"dcf", file.path(), "5", "speed=-7", "--json"}).out, lines);
    EXPECT_EQ(eds({"dcf", file.path(), "5", "speed=-7", "--json", "--out", dcf.path()}).out, lines);
    EXPECT_EQ(eds({"check", dcf.path()}).status, 0);
}

TEST(EdsDcf, RefusesWhatIsNoValueAndLeavesTheFileAsItWas) {
    const TemporaryFile file;
    file.write(description_text);
    const TemporaryFile out;
    out.write("before");
    const auto refused = [&](const std::string& word, const std::string& message) {
        expect_wrong({"dcf", file.path(), "5", word, "--out", out.path()}, message);
        EXPECT_EQ(out.content(), "before");
    };
    refused("Speed=101", "Speed: the value '101' is above the high limit 100");
    refused("Speed=fast", "Speed: the value 'fast' is no number");
    refused("Speed", "'Speed' is no value for an object; right is OBJECT=VALUE, such as 0x1017=500");
    refused("Inputs=1", "'Inputs' has several entries; name one, such as 0x2001:1");
    refused("0x2001:9=1", file.path() + " has no object 0x2001:9");
    refused("0x3000=1", file.path() + " has no object 0x3000");
    refused("Pressure=1", "no object of " + file.path() + " is named 'Pressure'");
    EXPECT_EQ(eds({"dcf", file.path(), "128"}).status, 2);
}

TEST(EdsDcf, EndsWith5WhenAFileIsBad) {
    EXPECT_EQ(eds({"dcf", "/no/such", "5"}).err,
              "nodevik: /no/such: cannot be read: No such file or directory\n");
    EXPECT_EQ(eds({"dcf", "/no/such", "5"}).status, 5);
    EXPECT_EQ(eds({"dcf", EDS, "5", "--out", "/no/such/file"}).status, 5);
    const ChildResult full = eds({"dcf", EDS, "5", "--out", "/dev/full"});
    EXPECT_EQ(full.status, 5);
    EXPECT_EQ(full.err, "nodevik: /dev/full cannot be written: No space left on device\n");
}
