// Frames as they are written on the command line.

#include "tools/framecommands.h"

#include <gtest/gtest.h>

#include "tools/failure.h"

using nodevik_tool::parse_frame;

TEST(WrittenFrame, HasElevenBitsWithThreeDigits) {
    const auto frame = parse_frame("7fF#01aB");
    EXPECT_EQ(frame.identifier, 0x7FFU);
    EXPECT_FALSE(frame.extended);
    EXPECT_FALSE(frame.remote);
    ASSERT_EQ(frame.length, 2U);
    EXPECT_EQ(frame.data[0], 0x01);
    EXPECT_EQ(frame.data[1], 0xAB);
}

TEST(WrittenFrame, HasTwentyNineBitsWithEightDigits) {
    const auto frame = parse_frame("1FFFFFFF#");
    EXPECT_EQ(frame.identifier, 0x1FFFFFFFU);
    EXPECT_TRUE(frame.extended);
    EXPECT_EQ(frame.length, 0U);
}

TEST(WrittenFrame, HasUpToEightBytesWithOrWithoutDots) {
    EXPECT_EQ(parse_frame("080#").length, 0U);
    EXPECT_EQ(parse_frame("080#0102030405060708").length, 8U);
    const auto frame = parse_frame("080#01.02.0304.05.06.07.08");
    EXPECT_EQ(frame.length, 8U);
    EXPECT_EQ(frame.data[7], 8);
}

TEST(WrittenFrame, CanBeARemoteRequestWithALength) {
    EXPECT_TRUE(parse_frame("705#R").remote);
    EXPECT_EQ(parse_frame("705#R").length, 0U);
    EXPECT_EQ(parse_frame("705#r8").length, 8U);
}

TEST(WrittenFrame, IsRefusedOtherwise) {
    for (const char* text : {"",       "#",         "185",     "18#01",      "1850#01",
                             "800#",   "20000000#", "xyz#",    "185#0",      "185#010",
                             "185#0g", "185#.01",   "185#01.", "185#01..02", "185#010203040506070809",
                             "185#R9", "185#R12",   "185#RR",  "185##0",     "+85#",
                             "-01#"}) {
        try {
            parse_frame(text);
            ADD_FAILURE() << text;
        } catch (const nodevik_tool::Failure& failure) {
            EXPECT_EQ(failure.status(), nodevik_tool::ExitStatus::usage) << text;
        }
    }
}
