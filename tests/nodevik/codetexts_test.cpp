#include "nodevik/codetexts.h"

#include <gtest/gtest.h>

TEST(SdoAbortText, PutsTheCodesOfTheStandardIntoWords) {
    EXPECT_STREQ(sdo_abort_text(0x05030000), "Toggle bit not alternated.");
    EXPECT_STREQ(sdo_abort_text(0x05040004), "CRC error (block mode only).");
    EXPECT_STREQ(sdo_abort_text(0x08000024), "No data available");
    EXPECT_EQ(sdo_abort_text(0), nullptr);
    EXPECT_EQ(sdo_abort_text(0x05040006), nullptr);
}

TEST(EmergencyTexts, TellClassAndCode) {
    EXPECT_STREQ(emergency_class_text(0x8130), "Communication");
    EXPECT_STREQ(emergency_text(0x8130), "Life guard error or heartbeat error");
    EXPECT_STREQ(emergency_class_text(0x31FF), "Mains voltage");
    EXPECT_EQ(emergency_text(0x31FF), nullptr);
    EXPECT_EQ(emergency_class_text(0x1200), nullptr);
    EXPECT_STREQ(emergency_text(0), "Error reset or no error");
}

TEST(NodeStateText, TellsTheStatesOfGuardingAndHeartbeat) {
    EXPECT_STREQ(node_state_text(0), "Initializing/Boot-up");
    EXPECT_STREQ(node_state_text(4), "Stopped");
    EXPECT_STREQ(node_state_text(5), "Operational");
    EXPECT_STREQ(node_state_text(127), "Pre-operational");
    EXPECT_EQ(node_state_text(6), nullptr);
    EXPECT_EQ(node_state_text(0x85), nullptr);
}
