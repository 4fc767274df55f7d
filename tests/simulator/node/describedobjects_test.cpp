// Nodes that are played as an EDS or DCF file describes them.

#include "simulator/node/describedobjects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "simulator/node/builtindescription.h"
#include "simulator/node/canopennode.h"

namespace {

using node_simulator::AbortCode;
using node_simulator::Access;
using node_simulator::add_described_objects;
using node_simulator::Bytes;
using node_simulator::CanFrame;
using node_simulator::CanopenNode;
using node_simulator::make_frame;
using node_simulator::Mapping;
using node_simulator::NodeDictionary;
using node_simulator::NodeSettings;
using node_simulator::SentFrame;

constexpr const char* pump = R"([DeviceInfo]
NrOfTXPDO=1
[1000]
ParameterName=Device type
DataType=7
AccessType=ro
DefaultValue=0x00020192
[1018]
ParameterName=Identity object
ObjectType=9
SubNumber=2
[1018sub0]
ParameterName=Highest sub-index supported
DataType=5
AccessType=ro
DefaultValue=1
[1018sub1]
ParameterName=Vendor-ID
DataType=7
AccessType=ro
DefaultValue=0x1F1
[1800]
ParameterName=TPDO communication parameter
ObjectType=9
[1800sub1]
ParameterName=COB-ID
DataType=7
AccessType=rw
DefaultValue=$NODEID+0x180
[1A00]
ParameterName=TPDO mapping parameter
ObjectType=9
[1A00sub0]
ParameterName=Number of entries
DataType=5
AccessType=rw
DefaultValue=2
[1A00sub1]
ParameterName=Entry 1
DataType=7
AccessType=rw
DefaultValue=0x20000010
[1A00sub2]
ParameterName=Entry 2
DataType=7
AccessType=rw
DefaultValue=0x20990008
[2000]
ParameterName=Pressure
DataType=3
AccessType=rwr
DefaultValue=-5
LowLimit=-10
HighLimit=100
PDOMapping=1
[2001]
ParameterName=Name
DataType=9
AccessType=rw
DefaultValue=pump 1
[2002]
ParameterName=Set point
DataType=6
AccessType=wo
PDOMapping=1
[2003]
ParameterName=Program
ObjectType=2
AccessType=rw
[2004]
ParameterName=Structure
ObjectType=7
DataType=0x22
AccessType=rw
[2005]
ParameterName=Both
DataType=5
AccessType=rw
PDOMapping=1
)";

class DescribedObjects : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(description->parse(pump, "pump.eds")); }

    AbortCode write(std::uint16_t index, const Bytes& value) { return dictionary.write(index, 0, value); }

    std::shared_ptr<DeviceDescription> description = std::make_shared<DeviceDescription>();
    NodeDictionary dictionary;
};

}  // namespace

TEST_F(DescribedObjects, HaveTheirSizesAndValues) {
    add_described_objects(*description, 5, dictionary);
    EXPECT_EQ(dictionary.at(0x1000, 0).value, (Bytes{0x92, 0x01, 0x02, 0x00}));
    EXPECT_EQ(dictionary.at(0x1800, 1).number(), 0x185U);
    EXPECT_EQ(dictionary.at(0x2000, 0).value, (Bytes{0xFB, 0xFF}));
    EXPECT_EQ(dictionary.at(0x2001, 0).value, (Bytes{'p', 'u', 'm', 'p', ' ', '1'}));
    EXPECT_EQ(dictionary.at(0x2002, 0).value, (Bytes{0, 0})) << "no value in the file";
    EXPECT_TRUE(dictionary.at(0x2003, 0).value.empty());
}

TEST_F(DescribedObjects, HaveTheirAccess) {
    add_described_objects(*description, 5, dictionary);
    EXPECT_EQ(dictionary.at(0x1000, 0).access, Access::read_only);
    EXPECT_EQ(dictionary.at(0x2000, 0).access, Access::read_write);
    EXPECT_EQ(dictionary.at(0x2002, 0).access, Access::write_only);
    EXPECT_EQ(write(0x1000, {1, 2, 3, 4}), 0x06010002U);
    Bytes value;
    EXPECT_EQ(dictionary.read(0x2002, 0, value), 0x06010001U);
}

TEST_F(DescribedObjects, RefuseWhatIsOutsideOfTheirLimits) {
    add_described_objects(*description, 5, dictionary);
    EXPECT_EQ(write(0x2000, {0xF6, 0xFF}), 0U);
    EXPECT_EQ(write(0x2000, {0xF5, 0xFF}), 0x06090032U);
    EXPECT_EQ(write(0x2000, {100, 0}), 0U);
    EXPECT_EQ(write(0x2000, {101, 0}), 0x06090031U);
    EXPECT_EQ(write(0x2000, {1}), 0x06070013U);
}

TEST_F(DescribedObjects, TakeLongTextsAndLongerDomains) {
    add_described_objects(*description, 5, dictionary);
    EXPECT_EQ(write(0x2001, Bytes(10'000)), 0U);
    EXPECT_EQ(write(0x2001, Bytes(10'001)), 0x05040005U);
    EXPECT_EQ(write(0x2003, Bytes(1'000'000)), 0U);
    EXPECT_EQ(write(0x2003, Bytes(1'000'001)), 0x05040005U);
}

TEST_F(DescribedObjects, CanBeMappedAsTheirAccessSays) {
    add_described_objects(*description, 5, dictionary);
    EXPECT_EQ(dictionary.at(0x2000, 0).mapping, Mapping::transmit);
    EXPECT_EQ(dictionary.at(0x2002, 0).mapping, Mapping::receive);
    EXPECT_EQ(dictionary.at(0x2005, 0).mapping, Mapping::both);
    EXPECT_EQ(dictionary.at(0x2001, 0).mapping, Mapping::none);
}

TEST_F(DescribedObjects, WithoutATypeOfValuesAreLeftOutAndNamed) {
    const std::vector<std::string> left_out = add_described_objects(*description, 5, dictionary);
    EXPECT_EQ(left_out, std::vector<std::string>{"2004 (Structure): no data type that has values"});
    EXPECT_EQ(dictionary.find(0x2004, 0), nullptr);
}

TEST_F(DescribedObjects, MakeANode) {
    NodeSettings settings;
    settings.node = 5;
    settings.description = description;
    settings.self_starting = true;
    CanopenNode node(settings);
    EXPECT_EQ(node.left_out(),
              (std::vector<std::string>{"2004 (Structure): no data type that has values",
                                        "mapping 1A00: 20990008: no such object, or not of that size"}));
    const std::vector<SentFrame> sent = node.power_on(0);
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].frame, make_frame(0x705, {0}));
    EXPECT_EQ(sent[1].frame, make_frame(0x185, {0xFB, 0xFF})) << "what of the mapping can be served";
    EXPECT_EQ(settings.identity()[0], 0x1F1U);
}

TEST_F(DescribedObjects, ThatANodeDoesNotHaveAreMissedByNobody) {
    NodeSettings settings;
    settings.node = 5;
    settings.description = description;
    CanopenNode node(settings);
    node.power_on(0);
    EXPECT_EQ(node.emergency(0x1000, {}, 0).at(0).frame, make_frame(0x85, {0x00, 0x10, 0x01, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(node.set_input(1, 1, 0).empty());
    EXPECT_TRUE(node.receive(make_frame(0x80, {}), 0).empty());
    EXPECT_TRUE(node.receive(make_frame(0x77F, {5}), 0).empty());
    EXPECT_EQ(node.deadline(), std::nullopt);
}

TEST(BuiltInDescription, IsAFileWithoutAFault) {
    const DeviceDescription& description = node_simulator::built_in_description();
    for (const DescriptionFinding& finding : description.findings()) {
        ADD_FAILURE() << finding.text();
    }
    EXPECT_EQ(description.device_info().product_name, "node-simulator");
    NodeDictionary dictionary;
    EXPECT_TRUE(add_described_objects(description, 5, dictionary).empty());
}

TEST(BuiltInDescription, IsWhatTheNodeTellsOfItself) {
    NodeSettings settings;
    settings.node = 5;
    EXPECT_EQ(settings.identity(), (node_simulator::LssIdentity{0, 0x401, 0x10000, 5}));
    CanopenNode node(settings);
    EXPECT_TRUE(node.left_out().empty());
}
