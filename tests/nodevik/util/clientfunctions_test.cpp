#include "nodevik/util/clientfunctions.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/support/childprocess.h"

namespace {

using Bytes = std::vector<unsigned char>;

class ClientFunctions : public ::testing::Test {
protected:
    ClientFunctions() { batch.resetmessage(); }

    // The bytes first to last of a record.
    Bytes record(int number, int first, int last) {
        const unsigned char* start = batch.getmessage() + 20 * number;
        return {start + first, start + last + 1};
    }

    int records() { return batch.getmessagesize() / 20; }

    CClientFunctions batch;
};

Bytes text(const std::string& characters) {
    return {characters.begin(), characters.end()};
}

}  // namespace

TEST_F(ClientFunctions, DataCarriesTheTableAndTheSample) {
    batch.addmsg_data(3, 1.5);
    EXPECT_EQ(batch.getmessagesize(), 20);
    EXPECT_EQ(record(0, 0, 1), (Bytes{1, 3}));
    EXPECT_EQ(record(0, 4, 11), (Bytes{0, 0, 0, 0, 0, 0, 0xF8, 0x3F}));
}

TEST_F(ClientFunctions, DataTakesTheLowEightBitsOfTheTable) {
    batch.addmsg_data(300, 0.0);
    EXPECT_EQ(record(0, 0, 1), (Bytes{1, 44}));
}

TEST_F(ClientFunctions, ColorsAndNamesTakeTheLowEightBitsOfTheTable) {
    batch.addmsg_color(300, RED, 1);
    batch.addmsg_name(301, "rpm");
    batch.addmsg_name(302, "abcdefghijklmno");
    ASSERT_EQ(records(), 4);
    EXPECT_EQ(record(0, 0, 1), (Bytes{4, 44}));
    EXPECT_EQ(record(1, 0, 1), (Bytes{2, 45}));
    EXPECT_EQ(record(2, 0, 1), (Bytes{14, 46}));
    EXPECT_EQ(record(3, 0, 1), (Bytes{14, 46}));
}

TEST_F(ClientFunctions, ShortNameIsZeroPaddedInAClearedRecord) {
    batch.addmsg_scale(-1, -1.0, -1);
    batch.addmsg_name(2, "rpm");
    EXPECT_EQ(record(1, 0, 19), (Bytes{2, 2, 'r', 'p', 'm', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ClientFunctions, NameOfFourteenCharactersHasNoTerminator) {
    batch.addmsg_name(7, "abcdefghijklmn");
    EXPECT_EQ(records(), 1);
    EXPECT_EQ(record(0, 0, 1), (Bytes{2, 7}));
    EXPECT_EQ(record(0, 2, 15), text("abcdefghijklmn"));
    EXPECT_EQ(record(0, 16, 19), (Bytes{0, 0, 0, 0}));
}

TEST_F(ClientFunctions, EmptyNameIsOneRecord) {
    batch.addmsg_name(1, "");
    EXPECT_EQ(records(), 1);
    EXPECT_EQ(record(0, 0, 15), (Bytes{2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ClientFunctions, NameOfFifteenCharactersGoesOutInTwoParts) {
    batch.addmsg_name(7, "abcdefghijklmno");
    ASSERT_EQ(records(), 2);
    EXPECT_EQ(record(0, 0, 3), (Bytes{14, 7, 0, 15}));
    EXPECT_EQ(record(0, 4, 15), text("abcdefghijkl"));
    EXPECT_EQ(record(1, 0, 3), (Bytes{14, 7, 1, 15}));
    EXPECT_EQ(record(1, 4, 15), (Bytes{'m', 'n', 'o', 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ClientFunctions, NameOfTwentyFourCharactersGoesOutInTwoParts) {
    batch.addmsg_name(1, "abcdefghijklmnopqrstuvwx");
    ASSERT_EQ(records(), 2);
    EXPECT_EQ(record(1, 0, 3), (Bytes{14, 1, 1, 24}));
    EXPECT_EQ(record(1, 4, 15), text("mnopqrstuvwx"));
}

TEST_F(ClientFunctions, NameOfTwentyFiveCharactersGoesOutInThreeParts) {
    batch.addmsg_name(1, "abcdefghijklmnopqrstuvwxy");
    ASSERT_EQ(records(), 3);
    EXPECT_EQ(record(2, 0, 3), (Bytes{14, 1, 2, 25}));
    EXPECT_EQ(record(2, 4, 15), (Bytes{'y', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ClientFunctions, NameLengthIsTheLowEightBits) {
    batch.addmsg_name(1, std::string(260, 'x').c_str());
    ASSERT_EQ(records(), 22);
    EXPECT_EQ(record(21, 0, 3), (Bytes{14, 1, 21, 4}));
    EXPECT_EQ(record(21, 4, 15), (Bytes{'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 0, 0, 0, 0}));
}

TEST_F(ClientFunctions, LongNameLeavesTheBytesBehindItsLayout) {
    batch.addmsg_scale(0, 0.0, 0x01020304);
    batch.addmsg_name(1, "abcdefghijklmno");
    EXPECT_EQ(record(1, 16, 19), (Bytes{4, 3, 2, 1}));
}

TEST_F(ClientFunctions, ColorCarriesAllItsBitsAndTheWidth) {
    batch.addmsg_color(5, 0x123456, 3);
    EXPECT_EQ(record(0, 0, 1), (Bytes{4, 5}));
    EXPECT_EQ(record(0, 4, 8), (Bytes{0x56, 0x34, 0x12, 0, 3}));
}

TEST_F(ClientFunctions, RangeIsThirtyTwoBitsWide) {
    batch.addmsg_range(0x01020304);
    EXPECT_EQ(record(0, 0, 0), (Bytes{5}));
    EXPECT_EQ(record(0, 4, 7), (Bytes{4, 3, 2, 1}));
}

TEST_F(ClientFunctions, StopCarriesTheLowEightBitsOfTheState) {
    batch.addmsg_stop(0x101);
    EXPECT_EQ(record(0, 0, 1), (Bytes{7, 1}));
}

TEST_F(ClientFunctions, SamplePositionIsThirtyTwoBitsWide) {
    batch.addmsg_samplepos(-2);
    EXPECT_EQ(record(0, 0, 0), (Bytes{8}));
    EXPECT_EQ(record(0, 4, 7), (Bytes{0xFE, 0xFF, 0xFF, 0xFF}));
}

TEST_F(ClientFunctions, StopDrawCarriesZeroOrOne) {
    batch.addmsg_stopdraw(true);
    batch.addmsg_stopdraw(false);
    EXPECT_EQ(record(0, 0, 1), (Bytes{9, 1}));
    EXPECT_EQ(record(1, 0, 1), (Bytes{9, 0}));
}

TEST_F(ClientFunctions, ScaleCarriesTheTableInFull) {
    batch.addmsg_scale(300, 2.0, -1);
    EXPECT_EQ(record(0, 0, 0), (Bytes{12}));
    EXPECT_EQ(record(0, 4, 7), (Bytes{0x2C, 1, 0, 0}));
    EXPECT_EQ(record(0, 8, 15), (Bytes{0, 0, 0, 0, 0, 0, 0, 0x40}));
    EXPECT_EQ(record(0, 16, 19), (Bytes{0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST_F(ClientFunctions, CommandsWithoutArgumentsKeepTheOtherBytes) {
    batch.addmsg_scale(0x01020304, 2.0, 0x05060708);
    batch.addmsg_nextsamplepos();
    batch.addmsg_resetsamples();
    EXPECT_EQ(record(1, 0, 0), (Bytes{3}));
    EXPECT_EQ(record(1, 1, 19), record(0, 1, 19));
    EXPECT_EQ(record(2, 0, 0), (Bytes{6}));
    EXPECT_EQ(record(2, 1, 19), record(0, 1, 19));
}

TEST_F(ClientFunctions, BytesThatALayoutDoesNotNameAreKept) {
    struct Row {
        unsigned char commandno;
        void (*add)(CClientFunctions&);
        std::vector<std::size_t> named;
    };
    const Row rows[] = {
        {1, [](CClientFunctions& c) { c.addmsg_data(0, 0.0); }, {1, 4, 5, 6, 7, 8, 9, 10, 11}},
        {4, [](CClientFunctions& c) { c.addmsg_color(0, 0, 0); }, {1, 4, 5, 6, 7, 8}},
        {5, [](CClientFunctions& c) { c.addmsg_range(0); }, {4, 5, 6, 7}},
        {7, [](CClientFunctions& c) { c.addmsg_stop(0); }, {1}},
        {8, [](CClientFunctions& c) { c.addmsg_samplepos(0); }, {4, 5, 6, 7}},
        {9, [](CClientFunctions& c) { c.addmsg_stopdraw(false); }, {1}},
        {12,
         [](CClientFunctions& c) { c.addmsg_scale(0, 0.0, 0); },
         {4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}},
    };
    for (const Row& row : rows) {
        batch.resetmessage();
        batch.addmsg_scale(-1, -1.0, -1);
        batch.addmsg_name(0xFF, std::string(252, '\xFF').c_str());
        Bytes expected = record(records() - 1, 0, 19);  // no byte of it is zero
        for (const std::size_t byte : row.named) {
            expected[byte] = 0;
        }
        expected[0] = row.commandno;
        row.add(batch);
        EXPECT_EQ(record(records() - 1, 0, 19), expected) << "command " << int{row.commandno};
    }
}

TEST_F(ClientFunctions, AddMessageCopiesTheWholeRecord) {
    ProtocolMessage own = {};
    for (unsigned char i = 0; i < 20; ++i) {
        own.bytes[i] = i;
    }
    batch.addmessage(own);
    own.bytes[0] = 99;
    EXPECT_EQ(record(0, 0, 19),
              (Bytes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}));
    EXPECT_EQ(sizeof(Smessagepos), 16U);
}

TEST_F(ClientFunctions, ResetEmptiesTheBatch) {
    batch.addmsg_data(1, 1.0);
    batch.resetmessage();
    EXPECT_EQ(batch.getmessagesize(), 0);
    batch.addmsg_nextsamplepos();
    EXPECT_EQ(batch.getmessagesize(), 20);
}

TEST_F(ClientFunctions, HoldsEightyNineRecords) {
    for (int i = 0; i < 89; ++i) {
        batch.addmsg_data(i, i);
    }
    EXPECT_EQ(batch.getmessagesize(), 1780);
    EXPECT_EQ(batch.getmessagebuffersize(), 1800);
    EXPECT_EQ(record(88, 0, 1), (Bytes{1, 88}));
}

TEST_F(ClientFunctions, TheNinetiethRecordEndsTheProcess) {
    const ChildResult result = run_in_child([this] {
        for (int i = 0; i < 90; ++i) {
            batch.addmsg_nextsamplepos();
        }
    });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.err, "nodevik/util/clientfunctions: Assertion failed: messagesize < 89\n");
}

TEST(PlottingColours, HaveTheClientsValues) {
    EXPECT_EQ(GRAY, 0x808080U);
    EXPECT_EQ(WHITE, 0xFFFFFFU);
    EXPECT_EQ(RED, 0x800000U);
    EXPECT_EQ(BRIGHT_RED, 0xFF0000U);
    EXPECT_EQ(GREEN, 0x008000U);
    EXPECT_EQ(BRIGHT_GREEN, 0x00FF00U);
    EXPECT_EQ(BLUE, 0x000080U);
    EXPECT_EQ(BRIGHT_BLUE, 0x0000FFU);
    EXPECT_EQ(YELLOW, 0x008080U);
    EXPECT_EQ(BRIGHT_YELLOW, 0x00FFFFU);
    EXPECT_EQ(PURPLE, 0x800080U);
    EXPECT_EQ(BRIGHT_PURPLE, 0xFF00FFU);
    EXPECT_EQ(BROWN, 0x808000U);
    EXPECT_EQ(BRIGHT_BROWN, 0xFFFF00U);
    EXPECT_EQ(MEASURENAME_MAX, 14U);
}
