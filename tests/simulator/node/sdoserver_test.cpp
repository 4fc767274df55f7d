#include "simulator/node/sdoserver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <optional>
#include <string>

namespace {

using node_simulator::Access;
using node_simulator::Bytes;
using node_simulator::CanFrame;
using node_simulator::make_frame;
using node_simulator::NodeDictionary;
using node_simulator::SdoServer;

class SdoServerAnswers : public testing::Test {
protected:
    SdoServerAnswers() {
        dictionary.add_number(0x2000, 0, Access::read_only, 1, 2);
        dictionary.add_number(0x2000, 1, Access::read_write, 1, 0x11);
        dictionary.add_number(0x2000, 2, Access::read_write, 2, 0x2211);
        dictionary.add_number(0x2000, 3, Access::read_write, 3, 0x332211);
        dictionary.add_number(0x2000, 4, Access::read_write, 4, 0x44332211);
        dictionary.add_number(0x2000, 5, Access::read_write, 5, 0x5544332211);
        dictionary.add_number(0x2001, 0, Access::write_only, 4, 0);
        dictionary.add_bytes(0x2002, 0, Access::read_write, 20, "0123456789ABCDEF");
        dictionary.add_bytes(0x2003, 0, Access::read_write, 20, "");
    }

    CanFrame ask(std::initializer_list<unsigned> bytes, node_simulator::Time now = 0) {
        CanFrame request = make_frame(0x605, bytes);
        request.length = 8;
        return server.answer(request, now).value_or(CanFrame{});
    }

    NodeDictionary dictionary;
    SdoServer server{dictionary, 5};
};

CanFrame answer(std::initializer_list<unsigned> bytes) {
    CanFrame frame = make_frame(0x585, bytes);
    frame.length = 8;
    return frame;
}

}  // namespace

TEST_F(SdoServerAnswers, UploadsUpToFourBytesAtOnce) {
    EXPECT_EQ(ask({0x40, 0x00, 0x20, 1}), answer({0x4F, 0x00, 0x20, 1, 0x11}));
    EXPECT_EQ(ask({0x40, 0x00, 0x20, 2}), answer({0x4B, 0x00, 0x20, 2, 0x11, 0x22}));
    EXPECT_EQ(ask({0x40, 0x00, 0x20, 3}), answer({0x47, 0x00, 0x20, 3, 0x11, 0x22, 0x33}));
    EXPECT_EQ(ask({0x40, 0x00, 0x20, 4}), answer({0x43, 0x00, 0x20, 4, 0x11, 0x22, 0x33, 0x44}));
}

TEST_F(SdoServerAnswers, UploadsLongerValuesBySegmentsWithAnAlternatingToggle) {
    EXPECT_EQ(ask({0x40, 0x02, 0x20, 0}), answer({0x41, 0x02, 0x20, 0, 16}));
    EXPECT_EQ(ask({0x60}), answer({0x00, '0', '1', '2', '3', '4', '5', '6'}));
    EXPECT_EQ(ask({0x70}), answer({0x10, '7', '8', '9', 'A', 'B', 'C', 'D'}));
    EXPECT_EQ(ask({0x60}), answer({0x0B, 'E', 'F'}));
    EXPECT_EQ(server.deadline(), std::nullopt);
}

TEST_F(SdoServerAnswers, UploadsAnEmptyValueAsOneEmptySegment) {
    EXPECT_EQ(ask({0x40, 0x03, 0x20, 0}), answer({0x41, 0x03, 0x20, 0, 0}));
    EXPECT_EQ(ask({0x60}), answer({0x0F}));
}

TEST_F(SdoServerAnswers, DownloadsUpToFourBytesAtOnce) {
    EXPECT_EQ(ask({0x2F, 0x00, 0x20, 1, 0xA1}), answer({0x60, 0x00, 0x20, 1}));
    EXPECT_EQ(dictionary.at(0x2000, 1).number(), 0xA1U);
    EXPECT_EQ(ask({0x27, 0x00, 0x20, 3, 0xA1, 0xB2, 0xC3}), answer({0x60, 0x00, 0x20, 3}));
    EXPECT_EQ(dictionary.at(0x2000, 3).number(), 0xC3B2A1U);
}

TEST_F(SdoServerAnswers, AnExpeditedValueWithoutSizeIsAsLongAsTheObject) {
    EXPECT_EQ(ask({0x22, 0x00, 0x20, 2, 0xA1, 0xB2, 0xC3, 0xD4}), answer({0x60, 0x00, 0x20, 2}));
    EXPECT_EQ(dictionary.at(0x2000, 2).number(), 0xB2A1U);
    EXPECT_EQ(ask({0x22, 0x00, 0x50, 2}), answer({0x80, 0x00, 0x50, 2, 0, 0, 0x02, 0x06}));
}

TEST_F(SdoServerAnswers, DownloadsLongerValuesBySegments) {
    EXPECT_EQ(ask({0x21, 0x02, 0x20, 0, 9}), answer({0x60, 0x02, 0x20, 0}));
    EXPECT_EQ(ask({0x00, 'a', 'b', 'c', 'd', 'e', 'f', 'g'}), answer({0x20}));
    EXPECT_EQ(ask({0x1B, 'h', 'i'}), answer({0x30}));
    EXPECT_EQ(dictionary.at(0x2002, 0).value, (Bytes{'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i'}));
}

TEST_F(SdoServerAnswers, DownloadsSegmentsWithoutAnAnnouncedSize) {
    EXPECT_EQ(ask({0x20, 0x02, 0x20, 0}), answer({0x60, 0x02, 0x20, 0}));
    EXPECT_EQ(ask({0x0D, 'x'}), answer({0x20}));
    EXPECT_EQ(dictionary.at(0x2002, 0).value, Bytes{'x'});
}

TEST_F(SdoServerAnswers, AShortNumberMayComeBySegmentsToo) {
    EXPECT_EQ(ask({0x21, 0x00, 0x20, 2, 2}), answer({0x60, 0x00, 0x20, 2}));
    EXPECT_EQ(ask({0x0B, 0x34, 0x12}), answer({0x20}));
    EXPECT_EQ(dictionary.at(0x2000, 2).number(), 0x1234U);
}

TEST_F(SdoServerAnswers, RefusesWithTheRightCode) {
    EXPECT_EQ(ask({0x40, 0x00, 0x50, 0}), answer({0x80, 0x00, 0x50, 0, 0x00, 0x00, 0x02, 0x06}));
    EXPECT_EQ(ask({0x40, 0x00, 0x20, 9}), answer({0x80, 0x00, 0x20, 9, 0x11, 0x00, 0x09, 0x06}));
    EXPECT_EQ(ask({0x40, 0x01, 0x20, 0}), answer({0x80, 0x01, 0x20, 0, 0x01, 0x00, 0x01, 0x06}));
    EXPECT_EQ(ask({0x2F, 0x00, 0x20, 0, 1}), answer({0x80, 0x00, 0x20, 0, 0x02, 0x00, 0x01, 0x06}));
    EXPECT_EQ(ask({0x2B, 0x00, 0x20, 1, 1, 0}), answer({0x80, 0x00, 0x20, 1, 0x12, 0x00, 0x07, 0x06}));
    EXPECT_EQ(ask({0x2F, 0x00, 0x20, 2, 1}), answer({0x80, 0x00, 0x20, 2, 0x13, 0x00, 0x07, 0x06}));
    EXPECT_EQ(ask({0x21, 0x02, 0x20, 0, 21}), answer({0x80, 0x02, 0x20, 0, 0x05, 0x00, 0x04, 0x05}));
}

TEST_F(SdoServerAnswers, RefusesUnknownCommandsAndSegmentsWithoutTransfer) {
    EXPECT_EQ(ask({0xE0, 0x00, 0x20, 1}), answer({0x80, 0x00, 0x20, 1, 0x01, 0x00, 0x04, 0x05}));
    EXPECT_EQ(ask({0x60}), answer({0x80, 0x00, 0x20, 1, 0x01, 0x00, 0x04, 0x05}));
    EXPECT_EQ(ask({0x00}), answer({0x80, 0x00, 0x20, 1, 0x01, 0x00, 0x04, 0x05}));
}

TEST_F(SdoServerAnswers, AToggleThatDoesNotAlternateEndsTheTransfer) {
    ask({0x40, 0x02, 0x20, 0});
    EXPECT_EQ(ask({0x70}), answer({0x80, 0x02, 0x20, 0, 0x00, 0x00, 0x03, 0x05}));
    ask({0x21, 0x02, 0x20, 0, 9});
    ask({0x00, 'a', 'b', 'c', 'd', 'e', 'f', 'g'});
    EXPECT_EQ(ask({0x00, 'a'}), answer({0x80, 0x02, 0x20, 0, 0x00, 0x00, 0x03, 0x05}));
    EXPECT_EQ(dictionary.at(0x2002, 0).value.size(), 16U);
}

TEST_F(SdoServerAnswers, SegmentsThatDisagreeWithTheAnnouncedSizeAreRefused) {
    ask({0x21, 0x02, 0x20, 0, 9});
    EXPECT_EQ(ask({0x01, 'a', 'b'}), answer({0x80, 0x02, 0x20, 0, 0x13, 0x00, 0x07, 0x06}));
    ask({0x21, 0x02, 0x20, 0, 5});
    EXPECT_EQ(ask({0x01, 'a', 'b'}), answer({0x80, 0x02, 0x20, 0, 0x12, 0x00, 0x07, 0x06}));
}

TEST_F(SdoServerAnswers, AnAbortOfTheClientEndsTheTransferWithoutAnswer) {
    ask({0x40, 0x02, 0x20, 0});
    EXPECT_EQ(server.answer(answer({0x80, 0x02, 0x20, 0}), 0), std::nullopt);
    EXPECT_EQ(server.deadline(), std::nullopt);
}

TEST_F(SdoServerAnswers, ASilentClientLosesItsTransfer) {
    ask({0x40, 0x02, 0x20, 0}, 1000);
    EXPECT_EQ(server.deadline(), 1000 + SdoServer::patience_us);
    EXPECT_EQ(server.expire(999 + SdoServer::patience_us), std::nullopt);
    EXPECT_EQ(server.expire(1000 + SdoServer::patience_us),
              answer({0x80, 0x02, 0x20, 0, 0x00, 0x00, 0x04, 0x05}));
    EXPECT_EQ(server.expire(2000 + SdoServer::patience_us), std::nullopt);
}

TEST_F(SdoServerAnswers, AFrameOfFewerThanEightBytesIsNoRequest) {
    EXPECT_EQ(server.answer(make_frame(0x605, {0x40, 0x00, 0x20, 1}), 0), std::nullopt);
}
