// Which SDO frames are segments of block transfers.

#include "tools/blocksegments.h"

#include <gtest/gtest.h>

#include <algorithm>

using nodevik_tool::BlockSegments;
using nodevik_tool::ShownFrame;

namespace {

class Blocks : public testing::Test {
protected:
    // The number of the segment that a frame of eight bytes is.
    unsigned int take(unsigned int identifier, std::initializer_list<unsigned int> bytes) {
        return take(frame_of(identifier, bytes));
    }
    unsigned int take(const ShownFrame& frame) { return blocks_.take(frame, nodevik_tool::kind_of(frame)); }

    static ShownFrame frame_of(unsigned int identifier, std::initializer_list<unsigned int> bytes) {
        ShownFrame frame;
        frame.identifier = identifier;
        frame.length = 8;
        std::copy(bytes.begin(), bytes.end(), frame.data.begin());
        return frame;
    }

    // A client begins to write 0x2006, in blocks of so many segments.
    void begin_download(unsigned int size) {
        EXPECT_EQ(take(0x605, {0xC6, 0x06, 0x20, 0, 100}), 0U);
        EXPECT_EQ(take(0x585, {0xA4, 0x06, 0x20, 0, size}), 0U);
    }

private:
    BlockSegments blocks_;
};

}  // namespace

TEST_F(Blocks, OfADownloadComeFromTheClient) {
    begin_download(2);
    EXPECT_EQ(take(0x605, {0x01, 0x40}), 1U);
    EXPECT_EQ(take(0x605, {0x02, 0x40}), 2U);
    EXPECT_EQ(take(0x585, {0xA2, 2, 127}), 0U);
    EXPECT_EQ(take(0x605, {0x01}), 1U);
    EXPECT_EQ(take(0x605, {0x82}), 2U);
    EXPECT_EQ(take(0x585, {0xA2, 2, 127}), 0U);
    EXPECT_EQ(take(0x605, {0xC1}), 0U);
    EXPECT_EQ(take(0x585, {0xA1}), 0U);
    EXPECT_EQ(take(0x605, {0x01}), 0U);
}

TEST_F(Blocks, OfAnUploadComeFromTheServer) {
    EXPECT_EQ(take(0x605, {0xA4, 0x06, 0x20, 0, 2}), 0U);
    EXPECT_EQ(take(0x585, {0xC6, 0x06, 0x20, 0, 100}), 0U);
    EXPECT_EQ(take(0x605, {0xA3}), 0U);
    EXPECT_EQ(take(0x585, {0x01}), 1U);
    EXPECT_EQ(take(0x585, {0x02}), 2U);
    EXPECT_EQ(take(0x605, {0xA2, 2, 3}), 0U);
    EXPECT_EQ(take(0x585, {0x01}), 1U);
    EXPECT_EQ(take(0x585, {0x82}), 2U);
    EXPECT_EQ(take(0x605, {0xA2, 2, 3}), 0U);
    EXPECT_EQ(take(0x585, {0xC1}), 0U);
    EXPECT_EQ(take(0x605, {0xA1}), 0U);
    EXPECT_EQ(take(0x585, {0x01}), 0U);
}

TEST_F(Blocks, MayHaveTheBytesOfAnyCommand) {
    begin_download(127);
    for (unsigned int number = 1; number <= 127; ++number) {
        EXPECT_EQ(take(0x605, {number}), number);
    }
    EXPECT_EQ(take(0x605, {0x40, 0x18, 0x10, 1}), 0U);  // a block has no more
}

TEST_F(Blocks, ThatWereLostAreSentAgainWithNewNumbers) {
    begin_download(3);
    EXPECT_EQ(take(0x605, {0x01}), 1U);
    EXPECT_EQ(take(0x605, {0x02}), 2U);
    EXPECT_EQ(take(0x605, {0x83}), 3U);
    EXPECT_EQ(take(0x585, {0xA2, 1, 3}), 0U);
    EXPECT_EQ(take(0x605, {0x01}), 1U);
    EXPECT_EQ(take(0x605, {0x82}), 2U);
    EXPECT_EQ(take(0x585, {0xA2, 2, 3}), 0U);
    EXPECT_EQ(take(0x605, {0x01}), 0U);
}

TEST_F(Blocks, EndWithAnAbortOfEitherSide) {
    for (const unsigned int side : {0x605U, 0x585U}) {
        begin_download(127);
        EXPECT_EQ(take(0x605, {0x01}), 1U);
        EXPECT_EQ(take(side, {0x80, 0x06, 0x20, 0, 0, 0, 4, 5}), 0U);
        EXPECT_EQ(take(0x605, {0x02}), 0U);
    }
}

TEST_F(Blocks, EndWhereTheNumbersDoNotGoOn) {
    begin_download(127);
    EXPECT_EQ(take(0x605, {0x01}), 1U);
    EXPECT_EQ(take(0x605, {0x40, 0x18, 0x10, 1}), 0U);  // the client has begun anew, and reads
    EXPECT_EQ(take(0x605, {0x02}), 0U);
}

TEST_F(Blocks, AreKnownFromTheNextConfirmationOn) {
    EXPECT_EQ(take(0x605, {0x05}), 0U);
    EXPECT_EQ(take(0x585, {0xA2, 5, 2}), 0U);
    EXPECT_EQ(take(0x605, {0x01}), 1U);
}

TEST_F(Blocks, BelongToTheirNode) {
    begin_download(127);
    EXPECT_EQ(take(0x606, {0x01}), 0U);
    EXPECT_EQ(take(0x585, {0x01}), 0U);
    EXPECT_EQ(take(0x605, {0x01}), 1U);
}

TEST_F(Blocks, AreDataFramesOfEightBytesWithElevenBits) {
    begin_download(127);
    ShownFrame frame = frame_of(0x605, {0x01});
    frame.extended = true;
    EXPECT_EQ(take(frame), 0U);
    frame.extended = false;
    frame.length = 7;
    EXPECT_EQ(take(frame), 0U);
    frame.length = 8;
    frame.remote = true;
    EXPECT_EQ(take(frame), 0U);
    EXPECT_EQ(take(0x605, {0x01}), 1U);
}

TEST_F(Blocks, OfASizeThatIsNoneAreNotFollowed) {
    for (const unsigned int size : {0U, 128U}) {
        begin_download(size);
        EXPECT_EQ(take(0x605, {0x01}), 0U);
    }
}
