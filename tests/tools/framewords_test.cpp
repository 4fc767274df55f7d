// Frames in CANopen's words.

#include "tools/framewords.h"

#include <gtest/gtest.h>
#include <linux/can/error.h>

using nodevik_tool::frame_bits;
using nodevik_tool::frame_words;
using nodevik_tool::kind_of;
using nodevik_tool::ShownFrame;

namespace {

ShownFrame frame_of(unsigned int identifier, std::initializer_list<unsigned int> bytes) {
    ShownFrame frame;
    frame.identifier = identifier;
    for (const unsigned int byte : bytes) {
        frame.data[frame.length++] = static_cast<unsigned char>(byte);
    }
    return frame;
}

std::string words_of(unsigned int identifier, std::initializer_list<unsigned int> bytes) {
    return frame_words(frame_of(identifier, bytes));
}

}  // namespace

TEST(FrameKinds, AreThoseOfThePredefinedConnectionSet) {
    const std::vector<std::tuple<unsigned int, const char*, unsigned int>> expected{
        {0x000, "nmt", 0},         {0x001, "other", 0},       {0x080, "sync", 0},  {0x081, "emcy", 1},
        {0x0FF, "emcy", 127},      {0x100, "time", 0},        {0x101, "other", 0}, {0x181, "tpdo1", 1},
        {0x200, "other", 0},       {0x205, "rpdo1", 5},       {0x285, "tpdo2", 5}, {0x305, "rpdo2", 5},
        {0x385, "tpdo3", 5},       {0x405, "rpdo3", 5},       {0x485, "tpdo4", 5}, {0x505, "rpdo4", 5},
        {0x585, "sdo-answer", 5},  {0x605, "sdo-request", 5}, {0x685, "other", 0}, {0x700, "other", 0},
        {0x77F, "heartbeat", 127}, {0x7E4, "lss", 0},         {0x7E5, "lss", 0},   {0x7FF, "other", 0}};
    for (const auto& [identifier, word, node] : expected) {
        EXPECT_EQ(kind_of(frame_of(identifier, {})).word, word) << std::hex << identifier;
        EXPECT_EQ(kind_of(frame_of(identifier, {})).node, node) << std::hex << identifier;
    }
    ShownFrame guarding = frame_of(0x705, {});
    guarding.remote = true;
    EXPECT_EQ(kind_of(guarding).word, "guard");
    ShownFrame wide = frame_of(0x185, {});
    wide.extended = true;
    EXPECT_EQ(kind_of(wide).word, "other");
}

TEST(FrameWords, TellStatesAndTheirCommands) {
    EXPECT_EQ(words_of(0x000, {0x01, 5}), "NMT start, node 5");
    EXPECT_EQ(words_of(0x000, {0x82, 0}), "NMT reset-comm, all nodes");
    EXPECT_EQ(words_of(0x000, {0x07, 1}), "NMT of an unknown command, node 1");
    EXPECT_EQ(words_of(0x000, {0x01}), "NMT of a wrong length");
    EXPECT_EQ(words_of(0x705, {0x00}), "boot-up of node 5");
    EXPECT_EQ(words_of(0x705, {0x05}), "heartbeat of node 5: Operational");
    EXPECT_EQ(words_of(0x705, {0xFF}), "heartbeat of node 5: Pre-operational");
    EXPECT_EQ(words_of(0x705, {0x33}), "heartbeat of node 5: unknown state");
    EXPECT_EQ(words_of(0x080, {}), "SYNC");
    EXPECT_EQ(words_of(0x080, {7}), "SYNC 7");
    ShownFrame guarding = frame_of(0x705, {});
    guarding.remote = true;
    EXPECT_EQ(frame_words(guarding), "guarding request, node 5");
}

TEST(FrameWords, TellTransfers) {
    EXPECT_EQ(words_of(0x605, {0x40, 0x18, 0x10, 1, 0, 0, 0, 0}), "SDO request to node 5: read 0x1018:1");
    EXPECT_EQ(words_of(0x605, {0x2B, 0x17, 0x10, 0, 0xF4, 1, 0, 0}),
              "SDO request to node 5: write 0x1017:0 F4 01");
    EXPECT_EQ(words_of(0x605, {0x21, 0x02, 0x20, 0, 0x10, 0x27, 0, 0}),
              "SDO request to node 5: write 0x2002:0, 10000 bytes");
    EXPECT_EQ(words_of(0x585, {0x43, 0x18, 0x10, 2, 1, 4, 0, 0}),
              "SDO answer of node 5: 0x1018:2 is 01 04 00 00");
    EXPECT_EQ(words_of(0x585, {0x41, 0x08, 0x10, 0, 14, 0, 0, 0}),
              "SDO answer of node 5: 0x1008:0, 14 bytes");
    EXPECT_EQ(words_of(0x585, {0x60, 0x17, 0x10, 0, 0, 0, 0, 0}), "SDO answer of node 5: 0x1017:0 written");
    EXPECT_EQ(words_of(0x605, {0x70, 0, 0, 0, 0, 0, 0, 0}), "SDO request to node 5: next segment");
    EXPECT_EQ(words_of(0x585, {0x0B, 1, 2, 0, 0, 0, 0, 0}), "SDO answer of node 5: segment 01 02");
    EXPECT_EQ(words_of(0x585, {0x80, 0x18, 0x10, 9, 0x11, 0, 0x09, 0x06}),
              "SDO answer of node 5: abort 0x1018:9 0x06090011 Sub-index does not exist.");
    EXPECT_EQ(words_of(0x605, {0x40}), "SDO request to node 5: wrong length");
}

TEST(FrameWords, TellABlockThatIsWritten) {
    EXPECT_EQ(words_of(0x605, {0xC6, 0x02, 0x20, 0, 0x10, 0x27, 0, 0}),
              "SDO request to node 5: block write 0x2002:0, 10000 bytes");
    EXPECT_EQ(words_of(0x605, {0xC4, 0x02, 0x20, 0, 0, 0, 0, 0}),
              "SDO request to node 5: block write 0x2002:0");
    EXPECT_EQ(words_of(0x585, {0xA4, 0x02, 0x20, 0, 127, 0, 0, 0}),
              "SDO answer of node 5: block write 0x2002:0 begins, 127 segments a block");
    EXPECT_EQ(words_of(0x585, {0xA2, 126, 64, 0, 0, 0, 0, 0}),
              "SDO answer of node 5: segments up to 126 came, 64 in the next block");
    EXPECT_EQ(words_of(0x605, {0xC1, 0xC3, 0x31, 0, 0, 0, 0, 0}),
              "SDO request to node 5: block end, 7 bytes in the last segment");
    EXPECT_EQ(words_of(0x605, {0xD9, 0xC3, 0x31, 0, 0, 0, 0, 0}),
              "SDO request to node 5: block end, 1 byte in the last segment");
    EXPECT_EQ(words_of(0x585, {0xA1, 0, 0, 0, 0, 0, 0, 0}), "SDO answer of node 5: block write ended");
    EXPECT_EQ(words_of(0x585, {0xA3, 0, 0, 0, 0, 0, 0, 0}), "SDO answer of node 5: unknown command");
}

TEST(FrameWords, TellABlockThatIsRead) {
    EXPECT_EQ(words_of(0x605, {0xA4, 0x08, 0x10, 0, 127, 0, 0, 0}),
              "SDO request to node 5: block read 0x1008:0, 127 segments a block");
    EXPECT_EQ(words_of(0x585, {0xC6, 0x08, 0x10, 0, 26, 0, 0, 0}),
              "SDO answer of node 5: 0x1008:0 in blocks, 26 bytes");
    EXPECT_EQ(words_of(0x585, {0xC0, 0x08, 0x10, 0, 0, 0, 0, 0}), "SDO answer of node 5: 0x1008:0 in blocks");
    EXPECT_EQ(words_of(0x605, {0xA3, 0, 0, 0, 0, 0, 0, 0}), "SDO request to node 5: block read begins");
    EXPECT_EQ(words_of(0x605, {0xA2, 0, 127, 0, 0, 0, 0, 0}),
              "SDO request to node 5: segments up to 0 came, 127 in the next block");
    EXPECT_EQ(words_of(0x585, {0xC9, 0x12, 0x34, 0, 0, 0, 0, 0}),
              "SDO answer of node 5: block end, 5 bytes in the last segment");
    EXPECT_EQ(words_of(0x605, {0xA1, 0, 0, 0, 0, 0, 0, 0}), "SDO request to node 5: block read ended");
}

TEST(FrameWords, TellTheTime) {
    EXPECT_EQ(words_of(0x100, {0, 0, 0, 0, 0, 0}), "TIME 1984-01-01 00:00:00.000");
    EXPECT_EQ(words_of(0x100, {0xFF, 0x5B, 0x26, 0x05, 0x3C, 0x00}), "TIME 1984-03-01 23:59:59.999");
    // The upper four bits are reserved, and a day may have more milliseconds than fit.
    EXPECT_EQ(words_of(0x100, {0x01, 0x5C, 0x26, 0xF5, 0x00, 0x00}), "TIME 1984-01-02 00:00:00.001");
    EXPECT_EQ(words_of(0x100, {0, 0, 0, 0, 0xFF, 0xFF}), "TIME 2163-06-06 00:00:00.000");
    EXPECT_EQ(words_of(0x100, {0, 0, 0, 0}), "TIME of a wrong length");
}

TEST(FrameWords, TellLss) {
    EXPECT_EQ(words_of(0x7E5, {0x40, 0xF1, 0x01, 0, 0, 0, 0, 0}), "LSS request: select vendor 0x000001F1");
    EXPECT_EQ(words_of(0x7E4, {0x44, 0, 0, 0, 0, 0, 0, 0}), "LSS answer: selected");
    EXPECT_EQ(words_of(0x7E4, {0x44}), "LSS answer: wrong length");
}

TEST(FrameWords, TellProcessDataAndEmergencies) {
    EXPECT_EQ(words_of(0x185, {1}), "TPDO1 of node 5");
    EXPECT_EQ(words_of(0x505, {1}), "RPDO4 to node 5");
    EXPECT_EQ(words_of(0x085, {0, 0, 0, 0, 0, 0, 0, 0}).rfind("EMCY of node 5: 0x0000 ", 0), 0U);
    EXPECT_EQ(words_of(0x085, {1}), "EMCY of node 5 of a wrong length");
    EXPECT_EQ(words_of(0x7FF, {1}), "");
}

TEST(FrameWords, TellErrorsOfTheController) {
    ShownFrame frame = frame_of(CAN_ERR_BUSOFF, {0, 0, 0, 0, 0, 0, 0, 0});
    frame.error = true;
    EXPECT_EQ(frame_words(frame), "error of the bus: bus-off");
    frame.identifier = CAN_ERR_ACK | CAN_ERR_CRTL;
    frame.data[1] = CAN_ERR_CRTL_TX_PASSIVE;
    EXPECT_EQ(frame_words(frame),
              "error of the bus: no acknowledgement, controller error passive at sending");
    frame.identifier = 0;
    EXPECT_EQ(frame_words(frame), "error of the bus: unknown");
    frame.identifier = CAN_ERR_BUSERROR | CAN_ERR_CNT;
    frame.data[6] = 128;
    frame.data[7] = 9;
    EXPECT_EQ(frame_words(frame), "error of the bus: bus error, transmit errors 128, receive errors 9");
    EXPECT_EQ(kind_of(frame).word, "other");
    EXPECT_EQ(frame_bits(frame), 0U);
}

TEST(FrameBits, LieBetweenTheFewestAndTheMost) {
    EXPECT_EQ(frame_bits(frame_of(0x185, {})), 47U + 4U);
    EXPECT_EQ(frame_bits(frame_of(0x185, {1, 2, 3, 4, 5, 6, 7, 8})), 111U + 12U);
}
