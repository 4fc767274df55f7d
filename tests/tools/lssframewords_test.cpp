// Frames of LSS in words.

#include "tools/lssframewords.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using nodevik_tool::lss_answer_words;
using nodevik_tool::lss_request_words;
using nodevik_tool::LssBytes;

namespace {

using Rows = std::vector<std::pair<LssBytes, const char*>>;

}  // namespace

TEST(LssFrameWords, TellWhatTheMasterAsks) {
    const Rows rows{
        {{0x04, 0}, "switch all slaves to waiting"},
        {{0x04, 1}, "switch all slaves to configuration"},
        {{0x04, 2}, "switch all slaves to an unknown mode"},
        {{0x11, 5}, "set node number 5"},
        {{0x11, 0xFF}, "set no node number"},
        {{0x13, 0, 0}, "set bit rate 1000 kbit/s"},
        {{0x13, 0, 1}, "set bit rate 800 kbit/s"},
        {{0x13, 0, 2}, "set bit rate 500 kbit/s"},
        {{0x13, 0, 3}, "set bit rate 250 kbit/s"},
        {{0x13, 0, 4}, "set bit rate 125 kbit/s"},
        {{0x13, 0, 5}, "set bit rate number 5 of table 0"},
        {{0x13, 0, 6}, "set bit rate 50 kbit/s"},
        {{0x13, 0, 7}, "set bit rate 20 kbit/s"},
        {{0x13, 0, 8}, "set bit rate 10 kbit/s"},
        {{0x13, 0, 9}, "set bit rate automatic"},
        {{0x13, 0, 10}, "set bit rate number 10 of table 0"},
        {{0x13, 128, 3}, "set bit rate number 3 of table 128"},
        {{0x15, 0xF4, 0x01}, "activate the bit rate after 500 ms"},
        {{0x17}, "store"},
        {{0x40, 0xF1, 0x01}, "select vendor 0x000001F1"},
        {{0x41, 0x01, 0x04}, "select product 0x00000401"},
        {{0x42, 0x02, 0, 0x01, 0x80}, "select revision 0x80010002"},
        {{0x43, 0x78, 0x56, 0x34, 0x12}, "select serial number 0x12345678"},
        {{0x46, 0xF1, 0x01}, "identify vendor 0x000001F1"},
        {{0x47, 0x01, 0x04}, "identify product 0x00000401"},
        {{0x48, 0, 0, 0x01}, "identify revision from 0x00010000"},
        {{0x49, 0xFF, 0xFF, 0x01}, "identify revision up to 0x0001FFFF"},
        {{0x4A, 1}, "identify serial number from 0x00000001"},
        {{0x4B, 9}, "identify serial number up to 0x00000009"},
        {{0x4C}, "identify slaves without a node number"},
        {{0x5A}, "read vendor"},
        {{0x5B}, "read product"},
        {{0x5C}, "read revision"},
        {{0x5D}, "read serial number"},
        {{0x5E}, "read node number"},
        {{0x44}, "unknown command 0x44"},
        {{0xB7}, "unknown command 0xB7"},
    };
    for (const auto& [data, words] : rows) {
        EXPECT_EQ(lss_request_words(data), words);
    }
}

TEST(LssFrameWords, TellTheStepsOfAFastscan) {
    const Rows rows{
        {{0x51, 0, 0, 0, 0, 0x80, 0, 0}, "fastscan: any slave without a node number"},
        {{0x51, 0x00, 0x01, 0, 0, 7, 0, 0}, "fastscan: vendor 0x00000100 from bit 7 up"},
        {{0x51, 0xF1, 0x01, 0, 0, 0, 0, 1}, "fastscan: vendor 0x000001F1 from bit 0 up, then product"},
        {{0x51, 0, 0, 0, 0, 0x1F, 1, 1}, "fastscan: product 0x00000000 from bit 31 up"},
        {{0x51, 7, 0, 0, 0, 0, 3, 0}, "fastscan: serial number 0x00000007 from bit 0 up, then vendor"},
        {{0x51, 0, 0, 0, 0, 0x20, 0, 0}, "fastscan: out of range"},
        {{0x51, 0, 0, 0, 0, 0x00, 4, 0}, "fastscan: out of range"},
        {{0x51, 0, 0, 0, 0, 0x00, 0, 4}, "fastscan: out of range"},
    };
    for (const auto& [data, words] : rows) {
        EXPECT_EQ(lss_request_words(data), words);
    }
}

TEST(LssFrameWords, TellWhatASlaveAnswers) {
    const Rows rows{
        {{0x11, 0}, "node number taken"},
        {{0x11, 1}, "node number refused: out of range"},
        {{0x11, 2}, "node number refused: error 2"},
        {{0x11, 0xFF, 7}, "node number refused: the maker's error 7"},
        {{0x13, 0}, "bit rate taken"},
        {{0x13, 1}, "bit rate refused: not supported"},
        {{0x17, 0}, "stored"},
        {{0x17, 1}, "store refused: not supported"},
        {{0x17, 2}, "store refused: the medium failed"},
        {{0x17, 3}, "store refused: error 3"},
        {{0x44}, "selected"},
        {{0x4F}, "identified"},
        {{0x50}, "a slave without a node number"},
        {{0x5A, 0xF1, 0x01}, "vendor 0x000001F1"},
        {{0x5D, 0x78, 0x56, 0x34, 0x12}, "serial number 0x12345678"},
        {{0x5E, 5}, "node number 5"},
        {{0x5E, 0xFF}, "no node number"},
        {{0x51}, "unknown command 0x51"},
    };
    for (const auto& [data, words] : rows) {
        EXPECT_EQ(lss_answer_words(data), words);
    }
}
