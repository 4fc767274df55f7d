// Block transfers of the simulated node: the worked example of a download and an upload of 20 bytes whose second segment
// is lost, and what may go wrong at each step.

#include "simulator/node/blocktransfer.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <numeric>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/node/answerfaults.h"
#include "simulator/node/sdoserver.h"

namespace {

using node_simulator::Access;
using node_simulator::block_crc;
using node_simulator::BlockSettings;
using node_simulator::Bytes;
using node_simulator::CanFrame;
using node_simulator::FaultSettings;
using node_simulator::make_frame;
using node_simulator::NodeDictionary;
using node_simulator::SdoServer;
using node_simulator::Time;

CanFrame frame(std::uint32_t identifier, std::initializer_list<unsigned> bytes) {
    CanFrame result = make_frame(identifier, bytes);
    result.length = 8;
    return result;
}

CanFrame answer(std::initializer_list<unsigned> bytes) {
    return frame(0x585, bytes);
}

using Frames = std::vector<CanFrame>;

// Node 5 with an object of 20 bytes, 10h to 23h, and room for 30.
class BlockTransfer : public testing::Test {
protected:
    BlockTransfer() {
        dictionary.add_number(0x2000, 0, Access::read_only, 1, 1);
        dictionary.add_bytes(0x2000, 1, Access::read_write, 30, "");
        dictionary.add_bytes(0x2001, 0, Access::read_write, 10, "");
        dictionary.add_number(0x2002, 0, Access::read_only, 4, 0x44332211);
        dictionary.add_bytes(0x2003, 0, Access::read_write, 2000, "");
    }

    void SetUp() override {
        Bytes& value = dictionary.at(0x2000, 1).value;
        value.resize(20);
        std::iota(value.begin(), value.end(), std::uint8_t{0x10});
    }

    // Everything that the server sends when it hears this.
    Frames ask(std::initializer_list<unsigned> bytes, Time now = 0) {
        Frames frames;
        if (const std::optional<CanFrame> first = server().answer(frame(0x605, bytes), now)) {
            frames.push_back(*first);
        }
        while (const std::optional<CanFrame> next = server().more()) {
            frames.push_back(*next);
        }
        return frames;
    }

    static BlockSettings blocks_of_four() {
        BlockSettings settings;
        settings.block_sizes = {4};
        return settings;
    }

    void use(const BlockSettings& settings, const FaultSettings& faults = {}) {
        server_.emplace(dictionary, 5, settings, faults);
    }

    SdoServer& server() { return *server_; }

    NodeDictionary dictionary;

private:
    std::optional<SdoServer> server_{std::in_place, dictionary, std::uint8_t{5}, blocks_of_four()};
};

const Frames no_frames;
const Frames segments_of_the_example{answer({0x01, 0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16}),
                                     answer({0x02, 0x17, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1D}),
                                     answer({0x83, 0x1E, 0x1F, 0x20, 0x21, 0x22, 0x23, 0x00})};

Frames aborted(unsigned index, unsigned subindex, unsigned code) {
    return {answer({0x80, index & 0xFF, index >> 8, subindex, code & 0xFF, code >> 8 & 0xFF,
                    code >> 16 & 0xFF, code >> 24})};
}

}  // namespace

TEST(BlockCrc, IsThatOfTheStandard) {
    constexpr std::string_view digits = "123456789";
    EXPECT_EQ(block_crc(Bytes(digits.begin(), digits.end())), 0x31C3);
    EXPECT_EQ(block_crc({}), 0);
}

TEST_F(BlockTransfer, DownloadRepeatsFromTheLostSegmentOn) {
    dictionary.at(0x2000, 1).value.clear();
    EXPECT_EQ(ask({0xC6, 0x00, 0x20, 0x01, 0x14}), Frames{answer({0xA4, 0x00, 0x20, 0x01, 0x04})});
    EXPECT_EQ(ask({0x01, 0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16}), no_frames);
    EXPECT_EQ(ask({0x83, 0x1E, 0x1F, 0x20, 0x21, 0x22, 0x23, 0x00}), Frames{answer({0xA2, 0x01, 0x04})});
    EXPECT_EQ(ask({0x01, 0x17, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1D}), no_frames);
    EXPECT_EQ(ask({0x82, 0x1E, 0x1F, 0x20, 0x21, 0x22, 0x23, 0x00}), Frames{answer({0xA2, 0x02, 0x04})});
    EXPECT_EQ(ask({0xC5, 0x61, 0xCD}), Frames{answer({0xA1})});
    Bytes expected(20);
    std::iota(expected.begin(), expected.end(), std::uint8_t{0x10});
    EXPECT_EQ(dictionary.at(0x2000, 1).value, expected);
    EXPECT_EQ(server().deadline(), std::nullopt);
}

TEST_F(BlockTransfer, UploadRepeatsFromTheLostSegmentOn) {
    EXPECT_EQ(ask({0xA4, 0x00, 0x20, 0x01, 0x04}), Frames{answer({0xC6, 0x00, 0x20, 0x01, 0x14})});
    EXPECT_EQ(ask({0xA3}), segments_of_the_example);
    EXPECT_EQ(ask({0xA2, 0x01, 0x04}), (Frames{answer({0x01, 0x17, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1D}),
                                               answer({0x82, 0x1E, 0x1F, 0x20, 0x21, 0x22, 0x23, 0x00})}));
    EXPECT_EQ(ask({0xA2, 0x02, 0x04}), Frames{answer({0xC5, 0x61, 0xCD})});
    EXPECT_EQ(ask({0xA1}), no_frames);
    EXPECT_EQ(server().deadline(), std::nullopt);
}

TEST_F(BlockTransfer, UploadRepeatsAllWhenNothingArrived) {
    ask({0xA4, 0x00, 0x20, 0x01, 0x02});
    const Frames first{segments_of_the_example[0], segments_of_the_example[1]};
    EXPECT_EQ(ask({0xA3}), first);
    EXPECT_EQ(ask({0xA2, 0x00, 0x02}), first);
    EXPECT_EQ(ask({0xA2, 0x02, 0x7F}), Frames{answer({0x81, 0x1E, 0x1F, 0x20, 0x21, 0x22, 0x23, 0x00})});
    EXPECT_EQ(ask({0xA2, 0x01, 0x00}), Frames{answer({0xC5, 0x61, 0xCD})});  // the size has no use any more
}

TEST_F(BlockTransfer, UploadWithoutCheckSumSendsZeros) {
    ask({0xA0, 0x00, 0x20, 0x01, 0x7F});
    EXPECT_EQ(ask({0xA3}), segments_of_the_example);
    EXPECT_EQ(ask({0xA2, 0x03, 0x7F}), Frames{answer({0xC5})});
}

TEST_F(BlockTransfer, UploadOfNothingIsOneEmptySegment) {
    EXPECT_EQ(ask({0xA4, 0x01, 0x20, 0x00, 0x7F}), Frames{answer({0xC6, 0x01, 0x20, 0x00})});
    EXPECT_EQ(ask({0xA3}), Frames{answer({0x81})});
    EXPECT_EQ(ask({0xA2, 0x01, 0x7F}), Frames{answer({0xDD})});
}

TEST_F(BlockTransfer, ASmallValueIsUploadedInTheOrdinaryWayWhenTheClientAllowsIt) {
    EXPECT_EQ(ask({0xA4, 0x00, 0x20, 0x01, 0x04, 20}), Frames{answer({0x41, 0x00, 0x20, 0x01, 0x14})});
    EXPECT_EQ(ask({0x60}), Frames{answer({0x00, 0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16})});
    EXPECT_EQ(ask({0xA4, 0x02, 0x20, 0x00, 0x04, 4}),
              Frames{answer({0x43, 0x02, 0x20, 0, 0x11, 0x22, 0x33, 0x44})});
    EXPECT_EQ(ask({0xA4, 0x00, 0x20, 0x01, 0x04, 19}), Frames{answer({0xC6, 0x00, 0x20, 0x01, 0x14})});
}

TEST_F(BlockTransfer, TheSizesOfDownloadedBlocksTakeTurns) {
    BlockSettings settings;
    settings.block_sizes = {2, 1, 3};
    use(settings);
    EXPECT_EQ(ask({0xC2, 0x00, 0x20, 0x01, 28}), Frames{answer({0xA4, 0x00, 0x20, 0x01, 2})});
    EXPECT_EQ(ask({0x01, 1}), no_frames);
    EXPECT_EQ(ask({0x02, 2}), Frames{answer({0xA2, 2, 1})});
    EXPECT_EQ(ask({0x01, 3}), Frames{answer({0xA2, 1, 3})});
    EXPECT_EQ(ask({0x81, 4}), Frames{answer({0xA2, 1, 2})});
    EXPECT_EQ(ask({0xC1}), Frames{answer({0xA1})});
    EXPECT_EQ(dictionary.at(0x2000, 1).value.size(), 28U);
}

TEST_F(BlockTransfer, ASegmentThatComesTwiceIsTakenOnce) {
    ask({0xC2, 0x00, 0x20, 0x01, 20});
    EXPECT_EQ(ask({0x01, 1}), no_frames);
    EXPECT_EQ(ask({0x01, 1}), no_frames);
    EXPECT_EQ(ask({0x02, 2}), no_frames);
    EXPECT_EQ(ask({0x83, 3}), Frames{answer({0xA2, 3, 4})});
    EXPECT_EQ(ask({0x83, 3}), no_frames);
    EXPECT_EQ(ask({0xC5}), Frames{answer({0xA1})});
    EXPECT_EQ(dictionary.at(0x2000, 1).value,
              (Bytes{1, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0}));
}

TEST_F(BlockTransfer, ASegmentNumberThatDoesNotExistEndsTheDownload) {
    ask({0xC2, 0x00, 0x20, 0x01, 20});
    EXPECT_EQ(ask({0x05, 1}), aborted(0x2000, 1, 0x05040003));
    ask({0xC2, 0x00, 0x20, 0x01, 20});
    EXPECT_EQ(ask({0x00, 1}), aborted(0x2000, 1, 0x05040003));
}

TEST_F(BlockTransfer, ByteEightyAmongTheSegmentsIsTheClientsAbort) {
    ask({0xC2, 0x00, 0x20, 0x01, 20});
    EXPECT_EQ(ask({0x80, 0x00, 0x20, 0x01}), no_frames);
    EXPECT_EQ(server().deadline(), std::nullopt);
    EXPECT_EQ(dictionary.at(0x2000, 1).value.size(), 20U);
}

TEST_F(BlockTransfer, AWrongCheckSumIsRefusedAndNothingIsWritten) {
    ask({0xC6, 0x01, 0x20, 0x00, 7});
    ask({0x81, 1, 2, 3, 4, 5, 6, 7});
    EXPECT_EQ(ask({0xC1, 0x12, 0x34}), aborted(0x2001, 0, 0x05040004));
    EXPECT_TRUE(dictionary.at(0x2001, 0).value.empty());
}

TEST_F(BlockTransfer, WithoutTheClientsWordTheCheckSumIsNotLookedAt) {
    ask({0xC2, 0x01, 0x20, 0x00, 7});
    ask({0x81, 1, 2, 3, 4, 5, 6, 7});
    EXPECT_EQ(ask({0xC1, 0x12, 0x34}), Frames{answer({0xA1})});
}

TEST_F(BlockTransfer, MoreOrLessThanToldIsRefused) {
    ask({0xC2, 0x01, 0x20, 0x00, 6});
    ask({0x81});
    EXPECT_EQ(ask({0xC1}), aborted(0x2001, 0, 0x06070012));
    ask({0xC2, 0x01, 0x20, 0x00, 8});
    ask({0x81});
    EXPECT_EQ(ask({0xC1}), aborted(0x2001, 0, 0x06070013));
}

TEST_F(BlockTransfer, ADownloadWithoutASizeMayFillTheObject) {
    ask({0xC0, 0x01, 0x20, 0x00});
    ask({0x01, 1});
    ask({0x82, 2});
    EXPECT_EQ(ask({0xD1}), Frames{answer({0xA1})});
    EXPECT_EQ(dictionary.at(0x2001, 0).value.size(), 10U);
    ask({0xC0, 0x01, 0x20, 0x00});
    ask({0x01});
    ask({0x02});
    EXPECT_EQ(ask({0x03}), aborted(0x2001, 0, 0x06070012));
}

TEST_F(BlockTransfer, WhatMayNotBeWrittenOrReadIsRefusedAtOnce) {
    EXPECT_EQ(ask({0xC2, 0x02, 0x20, 0x00, 4}), aborted(0x2002, 0, 0x06010002));
    EXPECT_EQ(ask({0xC2, 0x09, 0x20, 0x00, 4}), aborted(0x2009, 0, 0x06020000));
    EXPECT_EQ(ask({0xA4, 0x09, 0x20, 0x00, 4}), aborted(0x2009, 0, 0x06020000));
    EXPECT_EQ(ask({0xC2, 0x01, 0x20, 0x00, 11}), aborted(0x2001, 0, 0x05040005));
}

TEST_F(BlockTransfer, ABlockSizeOutsideOneTo127IsRefused) {
    EXPECT_EQ(ask({0xA4, 0x00, 0x20, 0x01, 0}), aborted(0x2000, 1, 0x05040002));
    EXPECT_EQ(ask({0xA4, 0x00, 0x20, 0x01, 128}), aborted(0x2000, 1, 0x05040002));
    ask({0xA4, 0x00, 0x20, 0x01, 1});
    ask({0xA3});
    EXPECT_EQ(ask({0xA2, 0x01, 0x00}), aborted(0x2000, 1, 0x05040002));
}

TEST_F(BlockTransfer, AnAcknowledgementOfMoreThanWasSentIsRefused) {
    ask({0xA4, 0x00, 0x20, 0x01, 2});
    ask({0xA3});
    EXPECT_EQ(ask({0xA2, 0x03, 0x04}), aborted(0x2000, 1, 0x05040003));
}

TEST_F(BlockTransfer, AStepOutOfTurnIsRefused) {
    EXPECT_EQ(ask({0xA3}), aborted(0, 0, 0x05040001));
    EXPECT_EQ(ask({0xC1}), aborted(0, 0, 0x05040001));
    ask({0xA4, 0x00, 0x20, 0x01, 4});
    EXPECT_EQ(ask({0xA2, 0x01, 0x04}), aborted(0x2000, 1, 0x05040001));
}

TEST_F(BlockTransfer, AServerWithoutBlocksRefusesThem) {
    BlockSettings settings;
    settings.supported = false;
    use(settings);
    EXPECT_EQ(ask({0xA4, 0x00, 0x20, 0x01, 4, 0xFF}), aborted(0x2000, 1, 0x05040001));
    EXPECT_EQ(ask({0xC6, 0x00, 0x20, 0x01, 20}), aborted(0x2000, 1, 0x05040001));
}

TEST_F(BlockTransfer, ASubBlockThatStopsInTheMiddleIsAnsweredWithWhatCame) {
    ask({0xC2, 0x00, 0x20, 0x01, 20}, 1000);
    ask({0x01, 1}, 2000);
    const Time quiet = 2000 + SdoServer::sub_block_patience_us;
    EXPECT_EQ(server().deadline(), quiet);
    EXPECT_EQ(server().expire(quiet - 1), std::nullopt);
    EXPECT_EQ(server().expire(quiet), answer({0xA2, 1, 4}));
    EXPECT_EQ(server().deadline(), 2000 + SdoServer::patience_us);
    EXPECT_EQ(server().expire(2000 + SdoServer::patience_us), aborted(0x2000, 1, 0x05040000).front());
    EXPECT_EQ(server().deadline(), std::nullopt);
}

TEST_F(BlockTransfer, ASilentClientLosesItsUpload) {
    ask({0xA4, 0x00, 0x20, 0x01, 4}, 1000);
    EXPECT_EQ(server().expire(1000 + SdoServer::patience_us), aborted(0x2000, 1, 0x05040000).front());
    EXPECT_EQ(server().deadline(), std::nullopt);
}

TEST_F(BlockTransfer, TheCheckSumOfAnUploadCanBeWrong) {
    FaultSettings faults;
    faults.wrong_crc = 100;
    faults.most = 1;
    use(blocks_of_four(), faults);
    for (const unsigned low : {0x60U, 0x61U}) {
        ask({0xA4, 0x00, 0x20, 0x01, 4});
        ask({0xA3});
        EXPECT_EQ(ask({0xA2, 0x03, 0x04}), Frames{answer({0xC5, low, 0xCD})});
    }
}

TEST_F(BlockTransfer, AnUploadCanBeWithoutEnd) {
    FaultSettings faults;
    faults.endless = 100;
    use(blocks_of_four(), faults);
    ask({0xA4, 0x00, 0x20, 0x01, 4});
    EXPECT_EQ(ask({0xA3}).size(), 4U);
    for (int block = 0; block < 100; ++block) {
        EXPECT_EQ(ask({0xA2, 0x04, 0x04}), (Frames{answer({1}), answer({2}), answer({3}), answer({4})}));
    }
    EXPECT_EQ(ask({0x40, 0x00, 0x20, 0x01}), Frames{answer({0x41, 0x00, 0x20, 0x01, 0x14})});
    for (int segment = 0; segment < 100; ++segment) {
        EXPECT_EQ(ask({0x60}).front().data[0], 0x00);
        EXPECT_EQ(ask({0x70}).front().data[0], 0x10);
    }
}

TEST_F(BlockTransfer, TogglesOfSegmentsCanBeWrong) {
    FaultSettings faults;
    faults.toggled = 100;
    faults.most = 2;
    use(blocks_of_four(), faults);
    ask({0x40, 0x00, 0x20, 0x01});
    EXPECT_EQ(ask({0x60}).front().data[0], 0x10);
    ask({0x21, 0x00, 0x20, 0x01, 20});
    EXPECT_EQ(ask({0x00, 1}), Frames{answer({0x30})});
    EXPECT_EQ(ask({0x10, 1}), Frames{answer({0x30})});
}
