// What nodevik tells of two EDS or DCF files that differ.

#include <gtest/gtest.h>

#include "tests/support/childprocess.h"
#include "tests/support/temporaryfile.h"
#include "tests/tools/describeddevice.h"

namespace {

const std::string file_text =
    "[FileInfo]\nFileName=a.eds\nModifiedBy=somebody\n[DeviceInfo]\nVendorNumber=0x10\nBaudRate_500=1\n" +
    description_text;

// Two files, of which the second one is changed by a test.
class EdsDiff : public testing::Test {
protected:
    EdsDiff() { left_.write(file_text); }

    void change(const std::string& from, const std::string& to) {
        const std::size_t at = text_.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        text_.replace(at, from.size(), to);
    }

    ChildResult diff(const std::vector<std::string>& options = {}) const {
        right_.write(text_);
        std::vector<std::string> words{NODEVIK, "eds", "diff", left_.path(), right_.path()};
        words.insert(words.end(), options.begin(), options.end());
        return run_program(words);
    }

    void expect_lines(const std::string& lines) const {
        const ChildResult result = diff();
        EXPECT_EQ(result.status, lines.empty() ? 0 : 1);
        EXPECT_EQ(result.out, lines);
        EXPECT_EQ(result.err, "");
    }

    void expect_objects(const std::string& lines) const {
        const ChildResult result = diff({"--json"});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, lines);
        EXPECT_EQ(result.err, "");
    }

    const std::string& left() const { return left_.path(); }
    const std::string& right() const { return right_.path(); }

private:
    std::string text_ = file_text;
    TemporaryFile left_;
    TemporaryFile right_;
};

}  // namespace

TEST_F(EdsDiff, TellsNothingOfFilesThatAreTheSame) {
    expect_lines("");
    EXPECT_EQ(diff({"--json"}).out, "");
}

TEST_F(EdsDiff, DoesNotMindWhoMadeAFileOrHowANumberIsWritten) {
    change("FileName=a.eds\nModifiedBy=somebody\n", "; a comment\nFileName=b.eds\n");
    change("VendorNumber=0x10", "VendorNumber=16");
    change("DefaultValue=0x191", "DefaultValue=401");
    change("LowLimit=-100", "LowLimit=0xFF9C");
    expect_lines("");
}

TEST_F(EdsDiff, TellsEachThingThatDiffers) {
    change("ParameterName=Speed", "ParameterName=Pace");
    change("DataType=3\nAccessType=rww", "DataType=6\nAccessType=rw");
    change("LowLimit=-100\nHighLimit=100\nPDOMapping=1", "HighLimit=200\nDefaultValue=7\nObjFlags=1");
    expect_lines(
        "0x2000:0    name Speed -> Pace  Speed\n"
        "0x2000:0    type i16 -> u16  Speed\n"
        "0x2000:0    access rww -> rw  Speed\n"
        "0x2000:0    default none -> 7  Speed\n"
        "0x2000:0    low -100 -> none  Speed\n"
        "0x2000:0    high 100 -> 200  Speed\n"
        "0x2000:0    pdo yes -> no  Speed\n"
        "0x2000:0    flags 0 -> 1  Speed\n");
    expect_objects(
        "{\"index\":\"0x2000\",\"sub\":0,\"name\":\"Speed\",\"what\":\"name\",\"a\":\"Speed\",\"b\":\"Pace\"}"
        "\n"
        "{\"index\":\"0x2000\",\"sub\":0,\"name\":\"Speed\",\"what\":\"type\",\"a\":\"i16\",\"b\":\"u16\"}\n"
        "{\"index\":\"0x2000\",\"sub\":0,\"name\":\"Speed\",\"what\":\"access\",\"a\":\"rww\",\"b\":\"rw\"}\n"
        "{\"index\":\"0x2000\",\"sub\":0,\"name\":\"Speed\",\"what\":\"default\",\"a\":null,\"b\":7}\n"
        "{\"index\":\"0x2000\",\"sub\":0,\"name\":\"Speed\",\"what\":\"low\",\"a\":-100,\"b\":null}\n"
        "{\"index\":\"0x2000\",\"sub\":0,\"name\":\"Speed\",\"what\":\"high\",\"a\":100,\"b\":200}\n"
        "{\"index\":\"0x2000\",\"sub\":0,\"name\":\"Speed\",\"what\":\"pdo\",\"a\":true,\"b\":false}\n"
        "{\"index\":\"0x2000\",\"sub\":0,\"name\":\"Speed\",\"what\":\"flags\",\"a\":0,\"b\":1}\n");
}

TEST_F(EdsDiff, TellsEntriesThatOnlyOneFileHas) {
    change("ParameterName=Source\n", "ParameterName=Source\nObjFlags=0\n");
    change("[2001sub1]", "[2001sub2]");
    change("2=0x2001\n", "2=0x2001\n3=0x3000\n");
    change("[2000]", "[3000]\nParameterName=Program\nObjectType=2\n[2000]");
    expect_lines("0x2001:1    only in " + left() + "  Inputs/Source\n0x2001:2    only in " + right() +
                 "  Inputs/Source\n0x3000:0    only in " + right() + "  Program\n");
    expect_objects(
        "{\"index\":\"0x2001\",\"sub\":1,\"name\":\"Inputs/"
        "Source\",\"what\":\"entry\",\"a\":true,\"b\":false}\n"
        "{\"index\":\"0x2001\",\"sub\":2,\"name\":\"Inputs/"
        "Source\",\"what\":\"entry\",\"a\":false,\"b\":true}\n"
        "{\"index\":\"0x3000\",\"sub\":0,\"name\":\"Program\",\"what\":\"entry\",\"a\":false,\"b\":true}\n");
}

TEST_F(EdsDiff, TellsAnObjectOfAnotherKind) {
    change("ParameterName=Inputs\nObjectType=8", "ParameterName=Ins\nObjectType=9");
    expect_lines("0x2001      kind array -> record  Inputs\n0x2001      name Inputs -> Ins  Inputs\n");
}

TEST_F(EdsDiff, TellsWhatTheFilesSayOfTheDevice) {
    change("VendorNumber=0x10\nBaudRate_500=1\n", "VendorNumber=0x11\nBaudRate_500=1\nBaudRate_125=1\n");
    expect_lines("DeviceInfo  VendorNumber 16 -> 17\nDeviceInfo  BaudRate 500 -> 125 500\n");
    expect_objects(
        "{\"section\":\"DeviceInfo\",\"what\":\"VendorNumber\",\"a\":16,\"b\":17}\n"
        "{\"section\":\"DeviceInfo\",\"what\":\"BaudRate\",\"a\":\"500\",\"b\":\"125 500\"}\n");
}

TEST_F(EdsDiff, TellsTheValuesOfADcf) {
    change("DefaultValue=$NODEID+0x180\n",
           "DefaultValue=$NODEID+0x180\nParameterValue=0x285\n[DeviceComissioning]\nNodeID=5\n");
    expect_lines("DeviceComissioning  NodeID 0 -> 5\n0x2001:1    value none -> 0x285  Inputs/Source\n");
}

TEST_F(EdsDiff, TakesAValueForWhatItIsForTheFilesNode) {
    change("DefaultValue=$NODEID+0x180\n", "DefaultValue=0x185\n[DeviceComissioning]\nNodeID=5\n");
    // Whose node the first file is for is not known, so its value is a formula.
    expect_lines(
        "DeviceComissioning  NodeID 0 -> 5\n0x2001:1    default $NODEID+0x180 -> 0x185  Inputs/Source\n");
    const TemporaryFile same;
    same.write(file_text + "[DeviceComissioning]\nNodeID=5\n");
    const ChildResult result = run_program({NODEVIK, "eds", "diff", same.path(), right()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
}

TEST_F(EdsDiff, TellsWhenAFileHasErrors) {
    change("LowLimit=-100", "LowLimit=slow");
    const ChildResult result = diff();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "0x2000:0    low -100 -> none  Speed\n");
    EXPECT_EQ(result.err, "nodevik: " + right() +
                              " has errors, and what cannot be used is passed over; 'nodevik eds check " +
                              right() + "' tells more\n");
}

TEST_F(EdsDiff, EndsWith5WhenAFileCannotBeUsed) {
    for (const bool first : {false, true}) {
        const ChildResult result = first ? run_program({NODEVIK, "eds", "diff", "/no/such", left()})
                                         : run_program({NODEVIK, "eds", "diff", left(), "/no/such"});
        EXPECT_EQ(result.status, 5);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "nodevik: /no/such: cannot be read: No such file or directory\n");
    }
    const TemporaryFile empty;
    EXPECT_EQ(run_program({NODEVIK, "eds", "diff", left(), empty.path()}).status, 5);
}
