#include <gtest/gtest.h>

#include <string>

#include "nodevik/nodes/devicedescription.h"

namespace {

using Commissioning = DeviceDescription::Commissioning;

const std::string variable =
    "[1017]\nParameterName=Heartbeat\nObjectType=7\nDataType=6\nAccessType=rw\nDefaultValue=0\nHighLimit="
    "5000\n\n"
    "[MandatoryObjects]\nSupportedObjects=0\n";

DeviceDescription read(const std::string& text) {
    DeviceDescription description;
    EXPECT_TRUE(description.parse(text, "/plant/pump.eds"));
    return description;
}

std::string dcf(const DeviceDescription& description) {
    return description.dcf({});
}

TEST(Dcf, GivesBackEveryLineThatNothingChanged) {
    for (const char* end : {"\n", "\r\n", "\r"}) {
        std::string text =
            "; a comment\n\n[DeviceComissioning]\nNodeID=0x05 ; left\nNodeName=K\xFC\n[Vendor]\nwhat is "
            "this\nx = 1\n\n"
            "[1018]\nParameterName=a\nObjectType=9\nFactor=3\n[1018sub1]\nParameterName=b\nDataType=7\n"
            "AccessType=ro\n\tParameterValue = $NODEID+0x180 ; formula\n;end\n";
        std::string with_end;
        for (const char c : text) {
            with_end += c == '\n' ? std::string(end) : std::string(1, c);
        }
        EXPECT_EQ(dcf(read(with_end)), with_end);
    }
}

TEST(Dcf, PutsAValueBehindTheLastKeyOfItsSection) {
    auto description = read(variable);
    EXPECT_EQ(description.set_value(0x1017, 0, "0x1F4"), "");
    EXPECT_EQ(description.entry(0x1017, 0)->value(), (ObjectBytes{0xF4, 1}));
    EXPECT_EQ(dcf(description),
              "[1017]\nParameterName=Heartbeat\nObjectType=7\nDataType=6\nAccessType=rw\nDefaultValue="
              "0\nHighLimit=5000\n"
              "ParameterValue=0x1F4\n\n[MandatoryObjects]\nSupportedObjects=0\n");
}

TEST(Dcf, ReplacesAndTakesAwayAValue) {
    auto description = read(
        "[1017]\nParameterName=H\nDataType=6\nAccessType=rw\nparametervalue= "
        "7\nParameterValue=8\nFactor=1\n");
    EXPECT_EQ(description.set_value(0x1017, 0, ObjectBytes{9, 0}), "");
    EXPECT_EQ(dcf(description),
              "[1017]\nParameterName=H\nDataType=6\nAccessType=rw\nparametervalue=9\nFactor=1\n");
    EXPECT_EQ(description.set_value(0x1017, 0, ""), "");
    EXPECT_EQ(description.entry(0x1017, 0)->value(), std::nullopt);
    EXPECT_EQ(dcf(description), "[1017]\nParameterName=H\nDataType=6\nAccessType=rw\nFactor=1\n");
}

TEST(Dcf, AKeyWithABlankIsTheSameKey) {
    auto description = read("[1017]\nParameterName=H\nDataType=6\nAccessType=rw\nParameter Value=7\n");
    EXPECT_EQ(description.entry(0x1017, 0)->parameter_text, "7");
    EXPECT_EQ(description.set_value(0x1017, 0, "9"), "");
    EXPECT_EQ(dcf(description), "[1017]\nParameterName=H\nDataType=6\nAccessType=rw\nParameter Value=9\n");
    EXPECT_EQ(description.set_value(0x1017, 0, ""), "");
    EXPECT_EQ(dcf(description), "[1017]\nParameterName=H\nDataType=6\nAccessType=rw\n");
}

TEST(Dcf, RefusesValuesThatDoNotFit) {
    auto description = read(variable + "[2000]\nParameterName=s\nDataType=9\nAccessType=rw\n");
    EXPECT_EQ(description.set_value(0x1017, 0, "5001"), "is above the high limit 5000");
    EXPECT_EQ(description.set_value(0x1017, 0, "70000"), "does not fit UNSIGNED16");
    EXPECT_EQ(description.set_value(0x1017, 0, ObjectBytes{0x89, 0x13}), "is above the high limit 5000");
    EXPECT_EQ(description.set_value(0x1017, 1, "1"), "is not described");
    EXPECT_EQ(description.set_value(0x1016, 0, ObjectBytes{1}), "is not described");
    EXPECT_EQ(description.set_value(0x2000, 0, "a\nb"), "has characters that a DCF cannot hold");
    EXPECT_EQ(description.set_value(0x2000, 0, "\u00e4"), "has characters that a DCF cannot hold");
    EXPECT_EQ(description.set_value(0x2000, 0, std::string(241, 'a')),
              "is longer than a line of a DCF can be");
    EXPECT_EQ(description.set_value(0x2000, 0, std::string(240, 'a')), "");
    EXPECT_EQ(description.entry(0x1017, 0)->parameter_text, "");
}

TEST(Dcf, KeepsTheBlanksAndQuotesOfAString) {
    auto description = read("[2000]\nParameterName=s\nDataType=9\nAccessType=rw\n");
    for (const std::string text : {" a ", "\"a\"", "a", "\""}) {
        const ObjectBytes bytes(text.begin(), text.end());
        EXPECT_EQ(description.set_value(0x2000, 0, bytes), "");
        EXPECT_EQ(read(dcf(description)).entry(0x2000, 0)->value(), bytes) << text;
    }
}

TEST(Dcf, AFormulaIsCheckedAndKept) {
    auto description = read("[1400]\nParameterName=s\nDataType=7\nAccessType=rw\n");
    EXPECT_EQ(description.set_value(0x1400, 0, "$NODEID+0x200"), "");
    EXPECT_EQ(dcf(description),
              "[1400]\nParameterName=s\nDataType=7\nAccessType=rw\nParameterValue=$NODEID+0x200\n");
    EXPECT_EQ(description.set_value(0x1400, 0, "$NODEID*2"), "is no number");
}

TEST(Dcf, AddsTheCommissioningBehindTheDeviceInfo) {
    auto description = read("[FileInfo]\nFileName=pump.eds\n[DeviceInfo]\nVendorName=A\n\n" + variable);
    Commissioning commissioning;
    commissioning.node_id = 5;
    commissioning.node_name = "left";
    commissioning.baud_rate_kbit = 500;
    commissioning.lss_serial_number = 0;
    EXPECT_EQ(description.set_commissioning(commissioning), "");
    EXPECT_EQ(description.node_id(), 5U);
    EXPECT_EQ(description.dcf({"left.dcf", "11-21-2026", "10:00PM", "me"}),
              "[FileInfo]\nFileName=left.dcf\nModificationTime=10:00PM\nModificationDate=11-21-"
              "2026\nModifiedBy=me\n"
              "LastEDS=pump.eds\n[DeviceInfo]\nVendorName=A\n\n\n[DeviceComissioning]\nNodeID=5\nNodeName="
              "left\nBaudrate=500\n"
              "CANopenManager=0\nLSS_SerialNumber=0\n\n" +
                  variable);
}

TEST(Dcf, ChangesTheCommissioningOfADcf) {
    auto description = read("[DeviceComissioning]\nNodeID=5\nNodeName=left\nNodeRefd=x\n" + variable);
    Commissioning commissioning = description.commissioning();
    commissioning.node_id = 6;
    commissioning.node_name = "";
    EXPECT_EQ(description.set_commissioning(commissioning), "");
    EXPECT_EQ(dcf(description), "[DeviceComissioning]\nNodeID=6\nNodeRefd=x\nCANopenManager=0\n" + variable);
}

TEST(Dcf, KeepsNamesThatOnlyAnotherFileMayHave) {
    const std::string names = "NodeName=H\xC3\xA4nde\nNetworkName=n\xF6rdlich\n";
    auto description = read("[DeviceComissioning]\nNodeID=5\n" + names + variable);
    auto commissioning = description.commissioning();
    commissioning.node_id = 6;
    EXPECT_EQ(description.set_commissioning(commissioning), "");
    EXPECT_NE(description.dcf({}).find("NodeID=6\n" + names), std::string::npos) << description.dcf({});
    commissioning.node_name += "\xC3\xA4";
    EXPECT_EQ(description.set_commissioning(commissioning), "NodeName has characters that a DCF cannot hold");
}

TEST(Dcf, RefusesACommissioningThatIsNone) {
    auto description = read(variable);
    Commissioning commissioning;
    commissioning.node_id = 128;
    EXPECT_EQ(description.set_commissioning(commissioning), "the node number is not 1 to 127");
    commissioning.node_id = 1;
    commissioning.node_name = "a\n[1000]";
    EXPECT_EQ(description.set_commissioning(commissioning), "NodeName has characters that a DCF cannot hold");
    commissioning.node_name = "";
    commissioning.network_name = std::string(300, 'a');
    EXPECT_EQ(description.set_commissioning(commissioning),
              "NetworkName is longer than a line of a DCF can be");
    EXPECT_EQ(description.node_id(), 0U);
}

TEST(Dcf, ASectionThatStoodTwiceStandsOnce) {
    auto description =
        read("[1017]\nParameterName=a\nDataType=6\nAccessType=rw\n[1017]\nDataType=7\n[Tools]\n");
    EXPECT_EQ(description.set_value(0x1017, 0, "1"), "");
    EXPECT_EQ(dcf(description),
              "[1017]\nParameterName=a\nDataType=6\nAccessType=rw\nParameterValue=1\n[Tools]\n");
}

TEST(Dcf, ValuesOfACompactArrayStandInASectionOfTheirOwn) {
    const std::string array =
        "[6000]\nParameterName=a\nObjectType=8\nDataType=5\nAccessType=rw\nCompactSubObj=3\n";
    auto description = read(array + "[6000Value]\nNrOfEntries=1\n2=7\n[Tools]\n");
    EXPECT_EQ(description.set_value(0x6000, 3, "9"), "");
    const std::string text = dcf(description);
    EXPECT_EQ(text, array + "[6000Value]\nNrOfEntries=2\n2=7\n3=9\n\n[Tools]\n");
    EXPECT_EQ(read(text).entry(0x6000, 3)->value(), ObjectBytes{9});
    auto without = read(array);
    EXPECT_EQ(dcf(without), array);
    EXPECT_EQ(without.set_value(0x6000, 1, "1"), "");
    EXPECT_EQ(dcf(without), array + "[6000Value]\nNrOfEntries=1\n1=1\n\n");
}

TEST(Dcf, WritesOutACompactPdoThatHasAValue) {
    for (const std::string list : {"[OptionalObjects]\nSupportedObjects=1\n4=0x1017\n", ""}) {
        auto description = read("[DeviceInfo]\nNrOfTXPDO=2\nCompactPDO=3\n" + list + variable);
        EXPECT_EQ(description.set_value(0x1801, 1, "$NODEID+0x40000280"), "");
        const auto again = read(dcf(description));
        ASSERT_NE(again.object(0x1801), nullptr);
        EXPECT_NE(again.object(0x1801)->line, 0U);
        EXPECT_EQ(again.object(0x1801)->list, DeviceDescription::Object::List::optional);
        EXPECT_EQ(again.entry(0x1801, 1)->value(5), (ObjectBytes{0x85, 2, 0, 0x40}));
        EXPECT_EQ(again.entry(0x1801, 2)->value(5), ObjectBytes{255});
        EXPECT_EQ(again.object(0x1800)->line, 0U);
        EXPECT_EQ(again.object(0x1A01)->line, 0U);
        EXPECT_EQ(again.entry_count(), description.entry_count());
        for (const auto& finding : again.findings()) {
            EXPECT_NE(finding.severity, DescriptionFinding::Severity::error) << finding.text();
            EXPECT_EQ(finding.reason.find("number of"), std::string::npos) << finding.text();
        }
    }
}

TEST(Dcf, OfNothingIsEmpty) {
    EXPECT_EQ(dcf(DeviceDescription()), "");
}

}  // namespace
