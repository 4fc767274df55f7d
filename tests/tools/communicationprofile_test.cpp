#include "tools/communicationprofile.h"

#include <gtest/gtest.h>

using nodevik_tool::is_no_setting;
using nodevik_tool::profile_entry;
using nodevik_tool::profile_object;

TEST(CommunicationProfile, KnowsItsVariables) {
    EXPECT_EQ(profile_object(0x1017).name, "Producer heartbeat time");
    EXPECT_EQ(profile_object(0x1017).code, ObjectCode::variable);
    EXPECT_TRUE(profile_object(0x1017).is_known);
    EXPECT_EQ(profile_entry(0x1017, 0).name, "Producer heartbeat time");
    EXPECT_EQ(profile_entry(0x1017, 0).type, ObjectDataType::unsigned16);
    EXPECT_EQ(profile_entry(0x1017, 0).access, ObjectAccess::read_write);
    EXPECT_EQ(profile_entry(0x1008, 0).type, ObjectDataType::visible_string);
    EXPECT_EQ(profile_entry(0x1008, 0).access, ObjectAccess::constant);
    EXPECT_EQ(profile_entry(0x1001, 0).access, ObjectAccess::read_only);
}

TEST(CommunicationProfile, KnowsItsArrays) {
    EXPECT_EQ(profile_object(0x1016).code, ObjectCode::array);
    EXPECT_EQ(profile_entry(0x1016, 0).type, ObjectDataType::unsigned8);
    EXPECT_EQ(profile_entry(0x1016, 0).access, ObjectAccess::read_only);
    EXPECT_EQ(profile_entry(0x1016, 127).type, ObjectDataType::unsigned32);
    EXPECT_EQ(profile_entry(0x1029, 1).type, ObjectDataType::unsigned8);
    // How many objects are mapped can be written.
    EXPECT_EQ(profile_entry(0x1600, 0).access, ObjectAccess::read_write);
    EXPECT_EQ(profile_entry(0x1BFF, 0).access, ObjectAccess::read_write);
    EXPECT_EQ(profile_entry(0x1A00, 64).type, ObjectDataType::unsigned32);
}

TEST(CommunicationProfile, KnowsItsRecords) {
    EXPECT_EQ(profile_object(0x1018).code, ObjectCode::record);
    EXPECT_EQ(profile_entry(0x1018, 4).name, "Serial number");
    EXPECT_EQ(profile_entry(0x1018, 4).access, ObjectAccess::read_only);
    EXPECT_EQ(profile_entry(0x1400, 1).type, ObjectDataType::unsigned32);
    EXPECT_EQ(profile_entry(0x1800, 2).type, ObjectDataType::unsigned8);
    EXPECT_EQ(profile_entry(0x19FF, 3).type, ObjectDataType::unsigned16);
    EXPECT_EQ(profile_entry(0x1800, 5).name, "Event timer");
    EXPECT_EQ(profile_entry(0x1800, 7).type, ObjectDataType::none);
    EXPECT_EQ(profile_entry(0x1200, 1).access, ObjectAccess::read_only);
    EXPECT_EQ(profile_entry(0x1280, 3).type, ObjectDataType::unsigned8);
    EXPECT_EQ(profile_entry(0x1280, 3).access, ObjectAccess::read_write);
}

TEST(CommunicationProfile, NumbersObjectsOfOneKind) {
    EXPECT_EQ(profile_object(0x1400).name, "RPDO communication parameter 1");
    EXPECT_EQ(profile_object(0x15FF).name, "RPDO communication parameter 512");
    EXPECT_EQ(profile_object(0x1A03).name, "TPDO mapping parameter 4");
    EXPECT_EQ(profile_object(0x1200).name, "SDO server parameter");
    EXPECT_EQ(profile_object(0x1201).name, "SDO server parameter 2");
    EXPECT_EQ(profile_object(0x1280).name, "SDO client parameter 1");
}

TEST(CommunicationProfile, NamesWhatItDoesNotKnowByItsIndex) {
    EXPECT_EQ(profile_object(0x1F80).name, "Object 0x1F80");
    EXPECT_FALSE(profile_object(0x1F80).is_known);
    EXPECT_EQ(profile_entry(0x1F80, 2).type, ObjectDataType::none);
}

TEST(CommunicationProfile, TellsHistoriesAndCommandsFromSettings) {
    for (const int index : {0x1003, 0x1010, 0x1011, 0x1021, 0x1023, 0x1024, 0x1026, 0x1F50, 0x1F51}) {
        EXPECT_TRUE(is_no_setting(static_cast<std::uint16_t>(index))) << index;
    }
    for (const int index : {0x1000, 0x1005, 0x1014, 0x1017, 0x1020, 0x1029, 0x1600, 0x1F80}) {
        EXPECT_FALSE(is_no_setting(static_cast<std::uint16_t>(index))) << index;
    }
}
