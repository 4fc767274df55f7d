#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "nodevik/canopen.h"
#include "tests/support/answerrelay.h"
#include "tests/support/childprocess.h"
#include "tests/support/scriptedcandriver.h"
#include "tests/support/scriptedclock.h"

namespace {

using Frames = std::vector<ScriptedFrame>;

constexpr char yellow[] = "\033[1;33m";
constexpr char red[] = "\033[1;31m";
constexpr char modes_off[] = "\033[m";

// What the master's decoder makes of an abort with code 0x06020000 of object 0x6040, subindex 0, by node 5.
constexpr char decoded_abort[] =
    "\033[1;31m - SDO Abort Domain Transfer:                ID=0x05 Index=0x6040 Subindex=0x00 - "
    "Object does not exist in the object dictionary.\n\033[m";

// A master on a scripted driver and clock whose errors do not end the process. Each request is answered with
// the next frames of a list.
class Sdo : public testing::Test {
protected:
    Sdo() {
        master.load_driver(driver);
        master.set_debug(0);
    }

    // Answers the n-th request with the n-th group of frames; later ones stay unanswered.
    void answer(const std::vector<Frames>& groups) {
        std::size_t next = 0;
        driver.on_write = [this, groups, next](const ScriptedFrame&) mutable {
            if (next < groups.size()) {
                for (const ScriptedFrame& frame : groups[next]) {
                    driver.queue(frame);
                }
                ++next;
            }
        };
    }

    // The same with one frame for each request.
    void answer_each(const Frames& frames) {
        std::vector<Frames> groups;
        for (const ScriptedFrame& frame : frames) {
            groups.push_back({frame});
        }
        answer(groups);
    }

    ScriptedClock clock;
    ScriptedCanDriver driver;
    CCANopen master;
};

using SdoWrite = Sdo;
using SdoRead = Sdo;
using SdoReadSegment = Sdo;
using SdoWriteSegment = Sdo;
using SdoWait = Sdo;
using PdoSetUp = Sdo;

// What `body` prints when it is expected to carry on.
std::string printed(const std::function<void()>& body) {
    const ChildResult result = run_in_child(body);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    return result.out;
}

// What `body` prints when it is expected to end the process with `status`.
std::string last_words(int status, const std::function<void()>& body) {
    const ChildResult result = run_in_child([&] {
        body();
        std::printf("carried on");
    });
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.err, "");
    return result.out;
}

std::string bytes(const ScriptedFrame& frame) {
    std::string text;
    char part[4];
    for (unsigned int i = 0; i < frame.length; ++i) {
        std::snprintf(part, sizeof part, "%02X ", frame.data[i]);
        text += part;
    }
    return text;
}

// The frames that a test has seen going out, one per line: COB-ID and bytes.
std::string sent(const ScriptedCanDriver& driver) {
    std::string text;
    char id[16];
    for (const ScriptedFrame& frame : driver.written) {
        std::snprintf(id, sizeof id, "%03X ", frame.cobid);
        text += id + bytes(frame) + (frame.flags == 0 ? "\n" : "with flags\n");
    }
    return text;
}

std::string repeated(int times, const std::string& text) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

const ScriptedFrame write_done(0x585, {0x60, 0x40, 0x60, 0, 0, 0, 0, 0});
const ScriptedFrame abort_answer(0x585, {0x80, 0x40, 0x60, 0, 0x00, 0x00, 0x02, 0x06});

}  // namespace

TEST_F(SdoWrite, SendsTheRequestToTheNode) {
    answer_each({write_done});
    EXPECT_EQ(master.sdo_write(5, 0x6040, 0, 2, 0x12345), 0);
    EXPECT_EQ(sent(driver), "605 2B 40 60 00 45 23 00 00 \n");
}

TEST_F(SdoWrite, TheSpecifierTellsTheLengthAndTheDataAreCutToIt) {
    struct Row {
        unsigned int len;
        const char* frame;
    };
    constexpr Row rows[] = {{1, "605 2F 40 60 00 84 00 00 00 \n"},
                            {2, "605 2B 40 60 00 84 83 00 00 \n"},
                            {3, "605 27 40 60 00 84 83 82 00 \n"},
                            {4, "605 23 40 60 00 84 83 82 81 \n"}};
    for (const Row& row : rows) {
        driver.written.clear();
        answer_each({write_done});
        EXPECT_EQ(master.sdo_write(5, 0x6040, 0, row.len, static_cast<int>(0x81828384U)), 0);
        EXPECT_EQ(sent(driver), row.frame);
    }
}

TEST_F(SdoWrite, OnlyTheLowSevenBitsOfTheNodeNumberCount) {
    answer_each({ScriptedFrame(0x585, {0x60, 0x34, 0x12, 0x56})});
    EXPECT_EQ(master.sdo_write(0x785, 0x1234, 0x56, 1, 0), 0);
    EXPECT_EQ(sent(driver), "605 2F 34 12 56 00 00 00 00 \n");
}

TEST_F(SdoWrite, AWrongLengthIsRefusedWithAMessage) {
    for (const unsigned int len : {0U, 5U, 0xFFFFFFFFU}) {
        EXPECT_EQ(
            printed([&] {
                const int result = master.sdo_write(0x85, 0x6040, 2, len, 1);
                std::printf("%d %zu", result, driver.written.size());
            }),
            "CCANopen::SDO_write: nodeID=0x85 Index=0x6040 SubIndex=0x02 : Data Lenght must be 1 - 4 \n1 0");
    }
}

TEST_F(SdoWrite, AWrongLengthEndsTheProcessUnderBit1) {
    master.set_debug(1);
    EXPECT_EQ(last_words(255, [&] { master.sdo_write(5, 0x6040, 2, 0, 1); }),
              "CCANopen::SDO_write: nodeID=0x05 Index=0x6040 SubIndex=0x02 : Data Lenght must be 1 - 4 \n");
}

TEST_F(SdoWrite, AnAbortPrintsItsCodeAndReturnsMinusTwo) {
    answer_each({abort_answer});
    EXPECT_EQ(printed([&] {
                  const int result = master.sdo_write(5, 0x6040, 0, 1, 1);
                  std::printf("%d", result);
              }),
              std::string(red) + "Received SDO abort code: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + decoded_abort + "-2");
}

TEST_F(SdoWrite, AnAbortEndsTheProcessUnderBit1AfterItsCodeIsPrinted) {
    answer_each({abort_answer});
    master.set_debug(1);
    EXPECT_EQ(last_words(1, [&] { master.sdo_write(5, 0x6040, 0, 1, 1); }),
              std::string(red) + "Received SDO abort code: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + decoded_abort);
}

TEST_F(SdoWrite, AnAbortNamesTheNodeThatAnswered) {
    answer_each({ScriptedFrame(0x586, {0x80, 0x40, 0x60, 0, 0, 0, 2, 6})});
    const std::string out = printed([&] { master.sdo_write(5, 0x6040, 0, 1, 1); });
    EXPECT_NE(out.find("Received SDO abort code: nodeID=0x06 "), std::string::npos) << out;
}

TEST_F(SdoWrite, AnUnknownAnswerPrintsAMessageAndReturnsOne) {
    for (const unsigned char command :
         std::initializer_list<unsigned char>{0x00, 0x20, 0x43, 0xA0, 0xC0, 0xE0}) {
        answer_each({ScriptedFrame(0x585, {command, 0x40, 0x60, 0})});
        EXPECT_EQ(printed([&] {
                      const int result = master.sdo_write(5, 0x6040, 0, 1, 1);
                      std::printf("%d %zu", result, driver.written.size());
                  }),
                  std::string(yellow) +
                      "Unknown SDO_write response: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" + modes_off +
                      "1 1");
    }
}

TEST_F(SdoWrite, AnUnknownAnswerIsReportedWithTheNodeThatSentIt) {
    answer_each({ScriptedFrame(0x586, {0x43, 0x40, 0x60, 0})});
    const std::string out = printed([&] { master.sdo_write(5, 0x6040, 0, 1, 1); });
    EXPECT_NE(out.find("Unknown SDO_write response: nodeID=0x06 "), std::string::npos) << out;
}

TEST_F(SdoWrite, AnUnknownAnswerDoesNotEndTheProcess) {
    answer_each({ScriptedFrame(0x585, {0x43, 0x40, 0x60, 0})});
    master.set_debug(1);
    EXPECT_NE(printed([&] { std::printf("%d", master.sdo_write(5, 0x6040, 0, 1, 1)); }), "");
}

TEST_F(SdoWrite, EveryCommandWithTheUpperBits011Confirms) {
    for (const unsigned char command : std::initializer_list<unsigned char>{0x60, 0x61, 0x7F}) {
        answer_each({ScriptedFrame(0x585, {command, 0x40, 0x60, 0})});
        EXPECT_EQ(master.sdo_write(5, 0x6040, 0, 1, 1), 0);
    }
}

TEST_F(SdoWait, AnAnswerFromAnotherNodeIsAccepted) {
    answer_each(
        {ScriptedFrame(0x5FF, {0x60, 0x40, 0x60, 0}), ScriptedFrame(0x580, {0x43, 0x40, 0x60, 0, 7})});
    int data = 0;
    EXPECT_EQ(master.sdo_write(5, 0x6040, 0, 1, 1), 0);
    EXPECT_EQ(master.sdo_read(5, 0x6040, 0, data), 0);
    EXPECT_EQ(data, 7);
}

TEST_F(SdoWait, FramesThatNameAnotherObjectOrFunctionAreNoAnswers) {
    answer({{ScriptedFrame(0x585, {0x60, 0x41, 0x60, 0}), ScriptedFrame(0x585, {0x60, 0x40, 0x61, 0}),
             ScriptedFrame(0x585, {0x60, 0x40, 0x60, 1}), ScriptedFrame(0x605, {0x60, 0x40, 0x60, 0}),
             ScriptedFrame(0x505, {0x60, 0x40, 0x60, 0}), ScriptedFrame(0x785, {0x60, 0x40, 0x60, 0})}});
    EXPECT_EQ(master.sdo_write(5, 0x6040, 0, 1, 1), -1);
    EXPECT_EQ(driver.pending(), 0U);
    EXPECT_EQ(driver.written.size(), 4U);
}

TEST_F(SdoWait, ForeignFramesAreServedMeanwhile) {
    unsigned char lamp = 0;
    PDO tpdo(0x181);
    tpdo.mapcopy(0, lamp);
    master.add_tpdo(tpdo);
    answer({{ScriptedFrame(0x181, {7}), ScriptedFrame(0x181, {8}), write_done, ScriptedFrame(0x181, {9})}});
    EXPECT_EQ(master.sdo_write(5, 0x6040, 0, 1, 1), 0);
    EXPECT_EQ(lamp, 8);
    EXPECT_EQ(tpdo.PDO_updated, 2U);
    EXPECT_EQ(driver.pending(), 1U);
}

TEST_F(SdoWait, Bit4PrintsForeignFramesAndNotTheAnswer) {
    answer({{ScriptedFrame(0x080, {}), write_done}});
    EXPECT_EQ(printed([&] {
                  master.set_debug(4);
                  master.sdo_write(5, 0x6040, 0, 1, 1);
              }),
              "\033[1;34m - SYNC\n\033[m");
}

TEST_F(SdoWait, FourAttemptsTwentyMillisecondsApartThenMinusOne) {
    std::vector<std::uint64_t> times;
    driver.on_write = [&](const ScriptedFrame&) { times.push_back(clock.now_us); };
    EXPECT_EQ(printed([&] { master.sdo_write(5, 0x6040, 0, 1, 1); }), "");
    EXPECT_EQ(master.sdo_write(5, 0x6040, 0, 1, 1), -1);
    EXPECT_EQ(sent(driver), repeated(4, "605 2F 40 60 00 01 00 00 00 \n"));
    ASSERT_EQ(times.size(), 4U);
    for (std::size_t i = 1; i < times.size(); ++i) {
        EXPECT_GE(times[i] - times[i - 1], 20000U);
        EXPECT_LE(times[i] - times[i - 1], 20200U);
    }
    // 101 us each with the look at the clock.
    EXPECT_EQ(clock.pauses_us, std::vector<std::uint64_t>(4 * 199, 100));
}

TEST_F(SdoWait, ReadingMakesTheSameAttempts) {
    int data = 77;
    EXPECT_EQ(master.sdo_read(5, 0x6040, 1, data), -1);
    EXPECT_EQ(sent(driver), repeated(4, "605 40 40 60 01 00 00 00 00 \n"));
    EXPECT_EQ(data, 77);
}

TEST_F(SdoWait, ALaterAttemptCanSucceed) {
    answer({{}, {}, {}, {write_done}});
    EXPECT_EQ(master.sdo_write(5, 0x6040, 0, 1, 1), 0);
    EXPECT_EQ(driver.written.size(), 4U);
}

TEST_F(SdoWait, ADriverErrorCountsAsAnEmptyQueue) {
    driver.queue_result(-1);
    driver.queue(write_done);
    EXPECT_EQ(master.sdo_write(5, 0x6040, 0, 1, 1), 0);
    EXPECT_EQ(clock.pauses_us.size(), 2U);
}

TEST_F(SdoWait, SilenceIsReportedOnlyUnderBit2) {
    EXPECT_EQ(
        printed([&] {
            master.set_debug(2);
            master.sdo_write(0x85, 0x6040, 0x12, 1, 1);
        }),
        std::string(yellow) + "Error: No SDO Response: nodeID=0x05 Index=0x6040 SubIndex=0x12\n" + modes_off);
    EXPECT_EQ(
        printed([&] {
            int data = 0;
            master.set_debug(2);
            master.sdo_read(5, 0x0040, 2, data);
        }),
        std::string(yellow) + "Error: No SDO Response: nodeID=0x05 Index=0x0040 SubIndex=0x02\n" + modes_off);
    EXPECT_EQ(printed([&] {
                  master.set_debug(0xF8);
                  master.sdo_write(5, 0x6040, 0x12, 1, 1);
              }),
              "");
}

TEST_F(SdoWait, SilenceEndsTheProcessUnderBit1) {
    int data = 0;
    master.set_debug(1);
    EXPECT_EQ(last_words(1, [&] { master.sdo_write(5, 0x6040, 0, 1, 1); }), "");
    master.set_debug(3);
    EXPECT_EQ(
        last_words(1, [&] { master.sdo_read(5, 0x6040, 0, data); }),
        std::string(yellow) + "Error: No SDO Response: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" + modes_off);
}

TEST_F(SdoWait, TheTimeOfAnAttemptStartsAfterItsRequestIsSent) {
    driver.on_write = [&](const ScriptedFrame&) { clock.now_us += 5000; };
    EXPECT_EQ(master.sdo_write(5, 0x6040, 0, 1, 1), -1);
    EXPECT_EQ(clock.pauses_us.size(), 4U * 199U);
}

TEST_F(SdoRead, TakesAsManyBytesAsTheAnswerIndicates) {
    struct Row {
        unsigned char command;
        unsigned int value;
    };
    constexpr Row rows[] = {
        {0x43, 0x81828384}, {0x47, 0x828384}, {0x4B, 0x8384}, {0x4F, 0x84}, {0x53, 0x81828384}};
    for (const Row& row : rows) {
        answer_each({ScriptedFrame(0x585, {row.command, 0x00, 0x10, 0x00, 0x84, 0x83, 0x82, 0x81})});
        int data = -1;
        EXPECT_EQ(master.sdo_read(5, 0x1000, 0, data), 0);
        EXPECT_EQ(static_cast<unsigned int>(data), row.value);
    }
    EXPECT_EQ(driver.written.front(), ScriptedFrame(0x605, {0x40, 0x00, 0x10, 0, 0, 0, 0, 0}));
}

TEST_F(SdoRead, AnUnindicatedSizeIsPrintedAndCutsTheValueByItself) {
    struct Row {
        unsigned int value;
        unsigned int result;
        const char* text;
    };
    constexpr Row rows[] = {{1, 1, "1"},
                            {2, 2, "2"},
                            {3, 3, "3"},
                            {4, 4, "4"},
                            {0, 0, "0"},
                            {0x01020304, 0x01020304, "16909060"},
                            {0xFFFFFFFF, 0xFFFFFFFF, "-1"}};
    for (const Row& row : rows) {
        const auto byte = [&](int i) { return static_cast<unsigned char>(row.value >> (8 * i)); };
        answer_each({ScriptedFrame(0x585, {0x42, 0x00, 0x10, 0, byte(0), byte(1), byte(2), byte(3)})});
        EXPECT_EQ(printed([&] {
                      int data = 0;
                      const int result = master.sdo_read(5, 0x1000, 0, data);
                      std::printf("%d %u", result, static_cast<unsigned int>(data));
                  }),
                  std::string("sdo_read() - e=1,s=0 - sdo_length = ") + row.text + " - scs=2\n0 " +
                      std::to_string(row.result));
    }
}

TEST_F(SdoRead, AbortStoresTheCodeAndReturnsMinusOne) {
    answer_each({abort_answer});
    EXPECT_EQ(printed([&] {
                  int data = 0;
                  const int result = master.sdo_read(5, 0x6040, 0, data);
                  std::printf("%d 0x%08x", result, static_cast<unsigned int>(data));
              }),
              std::string(red) + "Received SDO abort code: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + decoded_abort + "-1 0x06020000");
}

TEST_F(SdoRead, AbortEndsTheProcessUnderBit1) {
    answer_each({abort_answer});
    master.set_debug(1);
    EXPECT_EQ(last_words(1,
                         [&] {
                             int data = 0;
                             master.sdo_read(5, 0x6040, 0, data);
                         }),
              std::string(red) + "Received SDO abort code: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + decoded_abort);
}

TEST_F(SdoRead, AnUnknownAnswerIsReportedAndTheWaitGoesOn) {
    for (const unsigned char command : std::initializer_list<unsigned char>{0x00, 0x20, 0x40, 0x60, 0xA0}) {
        answer({{ScriptedFrame(0x585, {command, 0x40, 0x60, 0}),
                 ScriptedFrame(0x585, {0x4F, 0x40, 0x60, 0, 0x2A})}});
        EXPECT_EQ(printed([&] {
                      int data = 0;
                      const int result = master.sdo_read(5, 0x6040, 0, data);
                      std::printf("%d %d %zu", result, data, driver.written.size());
                  }),
                  std::string(yellow) +
                      "Unknown SDO_read response: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" + modes_off +
                      "0 42 1");
    }
}

TEST_F(SdoRead, AnUnknownAnswerIsReportedWithTheNodeThatSentIt) {
    answer({{ScriptedFrame(0x586, {0x60, 0x40, 0x60, 0}), ScriptedFrame(0x585, {0x4F, 0x40, 0x60, 0, 1})}});
    const std::string out = printed([&] {
        int data = 0;
        master.sdo_read(5, 0x6040, 0, data);
    });
    EXPECT_NE(out.find("Unknown SDO_read response: nodeID=0x06 "), std::string::npos) << out;
}

TEST_F(SdoRead, ASegmentedObjectIsReadToItsEndAndItsFirstFourBytesKept) {
    answer_each({ScriptedFrame(0x585, {0x41, 0x08, 0x10, 0, 16, 0, 0, 0}),
                 ScriptedFrame(0x585, {0x00, 1, 2, 3, 0x84, 5, 6, 7}),
                 ScriptedFrame(0x585, {0x10, 8, 9, 10, 11, 12, 13, 14}),
                 ScriptedFrame(0x585, {0x0B, 15, 16, 0, 0, 0, 0, 0})});
    int data = 0;
    EXPECT_EQ(master.sdo_read(5, 0x1008, 0, data), 0);
    EXPECT_EQ(static_cast<unsigned int>(data), 0x84030201U);
    EXPECT_EQ(sent(driver),
              "605 40 08 10 00 00 00 00 00 \n"
              "605 60 00 00 00 00 00 00 00 \n"
              "605 70 00 00 00 00 00 00 00 \n"
              "605 60 00 00 00 00 00 00 00 \n");
}

TEST_F(SdoRead, AShortSegmentedObjectIsFilledWithZeros) {
    answer_each({ScriptedFrame(0x585, {0x41, 0x08, 0x10, 0, 2, 0, 0, 0}),
                 ScriptedFrame(0x585, {0x0B, 0x41, 0x42, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})});
    int data = -1;
    EXPECT_EQ(master.sdo_read(5, 0x1008, 0, data), 0);
    EXPECT_EQ(data, 0x4241);
}

TEST_F(SdoRead, AbortBetweenSegmentsStoresTheCode) {
    answer_each({ScriptedFrame(0x585, {0x41, 0x40, 0x60, 0, 16, 0, 0, 0}),
                 ScriptedFrame(0x585, {0x00, 1, 2, 3, 4, 5, 6, 7}), abort_answer});
    EXPECT_EQ(printed([&] {
                  int data = 0;
                  const int result = master.sdo_read(5, 0x6040, 0, data);
                  std::printf("%d 0x%08x", result, static_cast<unsigned int>(data));
              }),
              std::string(red) + "Received SDO abort code: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + decoded_abort + "-1 0x06020000");
}

TEST_F(SdoRead, SilenceBetweenSegmentsAbortsTheTransferAndLeavesDataAlone) {
    answer_each({ScriptedFrame(0x585, {0x41, 0x40, 0x60, 0, 16, 0, 0, 0})});
    int data = 77;
    EXPECT_EQ(master.sdo_read(5, 0x6040, 0, data), -1);
    EXPECT_EQ(data, 77);
    EXPECT_EQ(sent(driver),
              "605 40 40 60 00 00 00 00 00 \n"
              "605 60 00 00 00 00 00 00 00 \n"
              "605 80 40 60 00 00 00 04 05 \n");
}

TEST_F(SdoRead, OnlyTwoBitsOfTheAnswerTellItsSize) {
    answer_each({ScriptedFrame(0x585, {0x5F, 0x00, 0x10, 0x00, 0x84, 0x83, 0x82, 0x81})});
    int data = 0;
    EXPECT_EQ(master.sdo_read(5, 0x1000, 0, data), 0);
    EXPECT_EQ(data, 0x84);
}

namespace {

// The result of reading a segmented object.
struct Reading {
    int result = 99;
    unsigned int len = 0;
    std::string data;
};

Reading read_segments(CCANopen& master, unsigned int room, unsigned int node = 5) {
    std::vector<char> buffer(room + 1, '#');
    Reading reading;
    reading.len = room;
    reading.result = master.sdo_read_segment(node, 0x6040, 0, reading.len, buffer.data());
    EXPECT_LE(reading.len, room);
    EXPECT_EQ(buffer[room], '#');
    reading.data.assign(buffer.data(), std::min(reading.len, room));
    return reading;
}

const ScriptedFrame sixteen_bytes(0x585, {0x41, 0x40, 0x60, 0, 16, 0, 0, 0});
const ScriptedFrame first_segment(0x585, {0x00, 'a', 'b', 'c', 'd', 'e', 'f', 'g'});
const ScriptedFrame second_segment(0x585, {0x10, 'h', 'i', 'j', 'k', 'l', 'm', 'n'});
const ScriptedFrame last_segment(0x585, {0x0B, 'o', 'p', 0, 0, 0, 0, 0});

constexpr char ask[] = "605 40 40 60 00 00 00 00 00 \n";
constexpr char ask_even[] = "605 60 00 00 00 00 00 00 00 \n";
constexpr char ask_odd[] = "605 70 00 00 00 00 00 00 00 \n";
constexpr char toggle_abort[] = "605 80 40 60 00 00 00 03 05 \n";
constexpr char time_out_abort[] = "605 80 40 60 00 00 00 04 05 \n";
constexpr char unknown_command_abort[] = "605 80 40 60 00 01 00 04 05 \n";
constexpr char memory_abort[] = "605 80 40 60 00 05 00 04 05 \n";

}  // namespace

TEST_F(SdoReadSegment, GathersAllSegments) {
    answer_each({sixteen_bytes, first_segment, second_segment, last_segment});
    const Reading reading = read_segments(master, 100);
    EXPECT_EQ(reading.result, 0);
    EXPECT_EQ(reading.data, "abcdefghijklmnop");
    EXPECT_EQ(sent(driver), std::string(ask) + ask_even + ask_odd + ask_even);
}

TEST_F(SdoReadSegment, RoomForExactlyTheObjectIsEnough) {
    answer_each({sixteen_bytes, first_segment, second_segment, last_segment});
    EXPECT_EQ(read_segments(master, 16).data, "abcdefghijklmnop");
}

TEST_F(SdoReadSegment, EverySizeOfTheLastSegmentIsTaken) {
    for (unsigned int size = 0; size <= 7; ++size) {
        const auto command = static_cast<unsigned char>((7 - size) << 1 | 1);
        answer_each({sixteen_bytes, ScriptedFrame(0x585, {command, 'a', 'b', 'c', 'd', 'e', 'f', 'g'})});
        const Reading reading = read_segments(master, 16);
        EXPECT_EQ(reading.result, 0);
        EXPECT_EQ(reading.data, std::string("abcdefg").substr(0, size));
    }
}

TEST_F(SdoReadSegment, AnEarlierSegmentMayBeShortToo) {
    answer_each(
        {sixteen_bytes, ScriptedFrame(0x585, {0x0C, 'x', 0, 0, 0, 0, 0, 0}), second_segment, last_segment});
    EXPECT_EQ(read_segments(master, 16).data, "xhijklmnop");
}

TEST_F(SdoReadSegment, AnExpeditedAnswerIsTakenToo) {
    struct Row {
        unsigned char command;
        const char* data;
    };
    constexpr Row rows[] = {{0x43, "abcd"}, {0x47, "abc"}, {0x4B, "ab"}, {0x4F, "a"}, {0x42, "abcd"}};
    for (const Row& row : rows) {
        driver.written.clear();
        answer_each({ScriptedFrame(0x585, {row.command, 0x40, 0x60, 0, 'a', 'b', 'c', 'd'})});
        const Reading reading = read_segments(master, 4);
        EXPECT_EQ(reading.result, 0);
        EXPECT_EQ(reading.data, row.data);
        EXPECT_EQ(sent(driver), ask);
    }
}

TEST_F(SdoReadSegment, AnExpeditedAnswerLargerThanTheRoomIsRefused) {
    answer_each({ScriptedFrame(0x585, {0x43, 0x40, 0x60, 0, 'a', 'b', 'c', 'd'})});
    const Reading reading = read_segments(master, 3);
    EXPECT_EQ(reading.result, -1);
    EXPECT_EQ(reading.len, 0U);
    EXPECT_EQ(sent(driver), std::string(ask) + memory_abort);
}

TEST_F(SdoReadSegment, AnAnnouncedSizeLargerThanTheRoomIsRefusedAtOnce) {
    answer_each({sixteen_bytes, first_segment});
    const Reading reading = read_segments(master, 15);
    EXPECT_EQ(reading.result, -1);
    EXPECT_EQ(reading.len, 0U);
    EXPECT_EQ(sent(driver), std::string(ask) + memory_abort);
}

namespace {

const ScriptedFrame eight_bytes(0x585, {0x41, 0x40, 0x60, 0, 8, 0, 0, 0});
const ScriptedFrame any_number_of_bytes(0x585, {0x40, 0x40, 0x60, 0, 0, 0, 0, 0});

// A node that answers the upload request with `start` and each request for a segment with the next seven bytes
// of an object of `size` bytes; without a size the last segment never comes.
void serve_segments(ScriptedCanDriver& driver, const ScriptedFrame& start, std::optional<unsigned int> size) {
    driver.on_write = [&driver, start, size, served = 0U](const ScriptedFrame& request) mutable {
        if ((request.data[0] & 0xE0) == 0x40) {
            driver.queue(start);
        } else if ((request.data[0] & 0xE0) == 0x60) {
            const unsigned int bytes = std::min(size.value_or(served + 7) - served, 7U);
            served += bytes;
            driver.queue(0x585, {static_cast<unsigned char>((request.data[0] & 0x10) | (7 - bytes) << 1 |
                                                            (served == size ? 1 : 0)),
                                 'a', 'b', 'c', 'd', 'e', 'f', 'g'});
        }
    };
}

constexpr unsigned int one_mebibyte = 1024 * 1024;

}  // namespace

TEST_F(SdoReadSegment, MoreBytesThanAnnouncedAreRefusedWhereverThereIsRoom) {
    answer_each({eight_bytes, first_segment, second_segment});
    const Reading reading = read_segments(master, 100);
    EXPECT_EQ(reading.result, -1);
    EXPECT_EQ(reading.data, "abcdefg");
    EXPECT_EQ(sent(driver), std::string(ask) + ask_even + ask_odd + memory_abort);
}

TEST_F(SdoReadSegment, ALastSegmentWithMoreBytesThanAnnouncedIsRefusedToo) {
    answer_each({eight_bytes, first_segment, ScriptedFrame(0x585, {0x1B, 'h', 'i'})});
    EXPECT_EQ(read_segments(master, 100).result, -1);
    EXPECT_EQ(sent(driver), std::string(ask) + ask_even + ask_odd + memory_abort);
}

TEST_F(SdoReadSegment, AnythingIsMoreThanAnAnnouncementOfNothing) {
    answer_each({ScriptedFrame(0x585, {0x41, 0x40, 0x60, 0, 0, 0, 0, 0}), first_segment});
    const Reading reading = read_segments(master, 100);
    EXPECT_EQ(reading.result, -1);
    EXPECT_EQ(reading.len, 0U);
    EXPECT_EQ(sent(driver), std::string(ask) + ask_even + memory_abort);
}

TEST_F(SdoReadSegment, MoreThanTheRoomWithoutAnAnnouncementIsRefused) {
    serve_segments(driver, any_number_of_bytes, 16);
    const Reading reading = read_segments(master, 15);
    EXPECT_EQ(reading.result, -1);
    EXPECT_EQ(reading.len, 14U);
    EXPECT_EQ(sent(driver), std::string(ask) + ask_even + ask_odd + ask_even + memory_abort);
}

TEST_F(SdoReadSegment, FewerBytesThanAnnouncedAreTaken) {
    answer_each({sixteen_bytes, ScriptedFrame(0x585, {0x01, 'a', 'b', 'c', 'd', 'e', 'f', 'g'})});
    const Reading reading = read_segments(master, 100);
    EXPECT_EQ(reading.result, 0);
    EXPECT_EQ(reading.data, "abcdefg");
}

TEST_F(SdoReadSegment, AnEmptySegmentThatIsNotTheLastAbortsTheTransfer) {
    answer_each({sixteen_bytes, first_segment, ScriptedFrame(0x585, {0x1E})});
    const Reading reading = read_segments(master, 100);
    EXPECT_EQ(reading.result, -1);
    EXPECT_EQ(reading.data, "abcdefg");
    EXPECT_EQ(sent(driver), std::string(ask) + ask_even + ask_odd + unknown_command_abort);
}

TEST_F(SdoReadSegment, AnEmptyLastSegmentEndsTheTransfer) {
    answer_each({sixteen_bytes, first_segment, ScriptedFrame(0x585, {0x1F})});
    const Reading reading = read_segments(master, 100);
    EXPECT_EQ(reading.result, 0);
    EXPECT_EQ(reading.data, "abcdefg");
}

TEST_F(SdoReadSegment, OneMebibyteNeedsNoAnnouncement) {
    serve_segments(driver, any_number_of_bytes, one_mebibyte);
    const Reading reading = read_segments(master, 2 * one_mebibyte);
    EXPECT_EQ(reading.result, 0);
    EXPECT_EQ(reading.len, one_mebibyte);
}

TEST_F(SdoReadSegment, MoreThanOneMebibyteWithoutAnAnnouncementIsRefused) {
    serve_segments(driver, any_number_of_bytes, one_mebibyte + 1);
    const Reading reading = read_segments(master, 2 * one_mebibyte);
    EXPECT_EQ(reading.result, -1);
    EXPECT_EQ(reading.len, one_mebibyte / 7 * 7);
    EXPECT_EQ("605 " + bytes(driver.written.back()) + "\n", memory_abort);
}

TEST_F(SdoReadSegment, MoreThanOneMebibyteIsTakenWhenAnnounced) {
    serve_segments(driver, ScriptedFrame(0x585, {0x41, 0x40, 0x60, 0, 1, 0, 0x10, 0}), one_mebibyte + 1);
    const Reading reading = read_segments(master, 2 * one_mebibyte);
    EXPECT_EQ(reading.result, 0);
    EXPECT_EQ(reading.len, one_mebibyte + 1);
}

TEST_F(SdoReadSegment, ANodeThatNeverEndsIsStopped) {
    serve_segments(driver, any_number_of_bytes, std::nullopt);
    EXPECT_EQ(read_segments(master, 2 * one_mebibyte).result, -1);
    EXPECT_EQ("605 " + bytes(driver.written.back()) + "\n", memory_abort);
    EXPECT_EQ(driver.written.size(), 1 + one_mebibyte / 7 + 1 + 1);
}

TEST_F(SdoRead, ANodeThatNeverEndsIsStoppedAtWhatItHasAnnounced) {
    serve_segments(driver, sixteen_bytes, std::nullopt);
    int data = 77;
    EXPECT_EQ(master.sdo_read(5, 0x6040, 0, data), -1);
    EXPECT_EQ(data, 77);
    EXPECT_EQ(sent(driver), std::string(ask) + ask_even + ask_odd + ask_even + memory_abort);
}

TEST_F(SdoRead, EverySegmentOfALongObjectIsFetched) {
    serve_segments(driver, ScriptedFrame(0x585, {0x41, 0x40, 0x60, 0, 1, 0, 0x10, 0}), one_mebibyte + 1);
    int data = 0;
    EXPECT_EQ(master.sdo_read(5, 0x6040, 0, data), 0);
    EXPECT_EQ(data, 0x64636261);
    EXPECT_EQ(driver.written.size(), 1 + one_mebibyte / 7 + 1);
}

TEST_F(SdoRead, AnEmptySegmentThatIsNotTheLastAbortsTheTransfer) {
    answer_each({sixteen_bytes, ScriptedFrame(0x585, {0x0E, 1, 2, 3, 4, 5, 6, 7})});
    int data = 77;
    EXPECT_EQ(master.sdo_read(5, 0x6040, 0, data), -1);
    EXPECT_EQ(data, 77);
    EXPECT_EQ(sent(driver), std::string(ask) + ask_even + unknown_command_abort);
}

TEST_F(SdoReadSegment, MoreBytesThanAnnouncedAreRefusedWhenTheRoomIsFull) {
    answer_each({eight_bytes, first_segment, second_segment});
    const Reading reading = read_segments(master, 8);
    EXPECT_EQ(reading.result, -1);
    EXPECT_EQ(reading.data, "abcdefg");
    EXPECT_EQ(sent(driver), std::string(ask) + ask_even + ask_odd + memory_abort);
}

TEST_F(SdoReadSegment, SegmentsOfUnannouncedSizeAreFollowed) {
    answer_each({ScriptedFrame(0x585, {0x40, 0x40, 0x60, 0, 0xFF, 0xFF, 0xFF, 0xFF}), first_segment,
                 ScriptedFrame(0x585, {0x1F, 0, 0, 0, 0, 0, 0, 0})});
    const Reading reading = read_segments(master, 100);
    EXPECT_EQ(reading.result, 0);
    EXPECT_EQ(reading.data, "abcdefg");
}

TEST_F(SdoReadSegment, AnAnswerFromAnotherNodeCarriesTheWholeTransfer) {
    answer({{ScriptedFrame(0x586, {0x41, 0x40, 0x60, 0, 7, 0, 0, 0})},
            {first_segment, ScriptedFrame(0x586, {0x01, 'A', 'B', 'C', 'D', 'E', 'F', 'G'})}});
    EXPECT_EQ(read_segments(master, 16).data, "ABCDEFG");
}

TEST_F(SdoReadSegment, ForeignFramesAreServedBetweenSegments) {
    PDO tpdo(0x181);
    master.add_tpdo(tpdo);
    answer({{sixteen_bytes},
            {ScriptedFrame(0x181, {1}), ScriptedFrame(0x586, {0x00, 'X'}),
             ScriptedFrame(0x585, {0x60, 0x40, 0x61, 0}), ScriptedFrame(0x585, {0x80, 0x41, 0x60, 0}),
             first_segment},
            {ScriptedFrame(0x181, {2}), second_segment},
            {last_segment}});
    EXPECT_EQ(read_segments(master, 100).data, "abcdefghijklmnop");
    EXPECT_EQ(tpdo.PDO_updated, 2U);
    EXPECT_EQ(tpdo.get_value(), 2U);
}

TEST_F(SdoReadSegment, AWrongFirstToggleBitAbortsTheTransfer) {
    answer_each({sixteen_bytes, second_segment});
    const Reading reading = read_segments(master, 100);
    EXPECT_EQ(reading.result, -1);
    EXPECT_EQ(reading.len, 0U);
    EXPECT_EQ(sent(driver), std::string(ask) + ask_even + toggle_abort);
}

TEST_F(SdoReadSegment, ANewSegmentWithTheOldToggleBitAbortsTheTransfer) {
    answer_each(
        {sixteen_bytes, first_segment, ScriptedFrame(0x585, {0x00, 'h', 'i', 'j', 'k', 'l', 'm', 'n'})});
    const Reading reading = read_segments(master, 100);
    EXPECT_EQ(reading.result, -1);
    EXPECT_EQ(reading.data, "abcdefg");
    EXPECT_EQ(sent(driver), std::string(ask) + ask_even + ask_odd + toggle_abort);
}

TEST_F(SdoReadSegment, DoubledAnswersDoNoHarm) {
    answer({{sixteen_bytes, sixteen_bytes},
            {first_segment, first_segment},
            {first_segment, second_segment, second_segment},
            {last_segment, last_segment}});
    const Reading reading = read_segments(master, 100);
    EXPECT_EQ(reading.result, 0);
    EXPECT_EQ(reading.data, "abcdefghijklmnop");
    EXPECT_EQ(sent(driver), std::string(ask) + ask_even + ask_odd + ask_even);
}

TEST_F(SdoReadSegment, OnlyRepeatsOfTheOldSegmentCountAsAWrongToggleBitInTheEnd) {
    answer({{sixteen_bytes}, {first_segment}, {first_segment, first_segment}});
    const Reading reading = read_segments(master, 100);
    EXPECT_EQ(reading.result, -1);
    EXPECT_EQ(sent(driver), std::string(ask) + ask_even + ask_odd + toggle_abort);
}

TEST_F(SdoReadSegment, ASegmentIsAskedForOnceAndSilenceAbortsTheTransfer) {
    answer({{sixteen_bytes}, {first_segment}});
    EXPECT_EQ(printed([&] {
                  master.set_debug(2);
                  const Reading reading = read_segments(master, 100);
                  std::printf("%d %s\n%s", reading.result, reading.data.c_str(), sent(driver).c_str());
              }),
              std::string(yellow) + "Error: No SDO Response: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + "-1 abcdefg\n" + ask + ask_even + ask_odd + time_out_abort);
}

TEST_F(SdoReadSegment, NothingButTheAttemptsIsSentToANodeThatNeverAnswers) {
    EXPECT_EQ(read_segments(master, 100).result, -1);
    EXPECT_EQ(sent(driver), repeated(4, ask));
}

TEST_F(SdoReadSegment, NothingButTheAttemptsIsSentAfterAnUnknownFirstAnswer) {
    answer_each({ScriptedFrame(0x585, {0x60, 0x40, 0x60, 0})});
    EXPECT_EQ(printed([&] {
                  const Reading reading = read_segments(master, 100);
                  std::printf("%d\n%s", reading.result, sent(driver).c_str());
              }),
              std::string(yellow) + "Unknown SDO_read response: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + "-1\n" + repeated(4, ask));
}

TEST_F(SdoReadSegment, NothingIsSentAfterAnAbortAtTheStart) {
    answer_each({abort_answer});
    testing::internal::CaptureStdout();
    EXPECT_EQ(read_segments(master, 100).result, -1);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(sent(driver), ask);
}

TEST_F(SdoReadSegment, NothingButAnUnknownAnswerToASegmentAbortsTheTransfer) {
    answer_each({sixteen_bytes, ScriptedFrame(0x585, {0xA0, 0x40, 0x60, 0})});
    EXPECT_EQ(printed([&] {
                  master.set_debug(2);
                  const Reading reading = read_segments(master, 100);
                  std::printf("%d\n%s", reading.result, sent(driver).c_str());
              }),
              std::string(yellow) + "Unknown SDO_read response: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + yellow + "Error: No SDO Response: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + "-1\n" + ask + ask_even + unknown_command_abort);
}

TEST_F(SdoReadSegment, SilenceEndsTheProcessUnderBit1AfterTheAbort) {
    answer({{sixteen_bytes}});
    master.set_debug(1);
    driver.on_read = [&](unsigned long) { std::fflush(stdout); };
    const auto answering = driver.on_write;
    driver.on_write = [&, answering](const ScriptedFrame& frame) {
        answering(frame);
        std::printf("%s\n", bytes(frame).c_str());
    };
    EXPECT_EQ(last_words(1, [&] { read_segments(master, 100); }),
              "40 40 60 00 00 00 00 00 \n"
              "60 00 00 00 00 00 00 00 \n"
              "80 40 60 00 00 00 04 05 \n");
}

TEST_F(SdoReadSegment, AnAbortByTheNodeReturnsMinusOne) {
    answer({{sixteen_bytes}, {first_segment}, {abort_answer}});
    EXPECT_EQ(printed([&] {
                  const Reading reading = read_segments(master, 100);
                  std::printf("%d %s %zu", reading.result, reading.data.c_str(), driver.written.size());
              }),
              std::string(red) + "Received SDO abort code: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + decoded_abort + "-1 abcdefg 3");
}

TEST_F(SdoReadSegment, AnAbortAtTheStartReturnsMinusOne) {
    answer({{abort_answer}});
    EXPECT_EQ(printed([&] { std::printf("%d", read_segments(master, 100).result); }),
              std::string(red) + "Received SDO abort code: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + decoded_abort + "-1");
}

TEST_F(SdoReadSegment, AnUnknownAnswerIsReportedAndTheWaitGoesOn) {
    answer({{sixteen_bytes},
            {ScriptedFrame(0x585, {0xA0, 0x40, 0x60, 0}), first_segment},
            {second_segment},
            {last_segment}});
    EXPECT_EQ(printed([&] { std::printf("%s", read_segments(master, 100).data.c_str()); }),
              std::string(yellow) + "Unknown SDO_read response: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + "abcdefghijklmnop");
}

TEST_F(SdoReadSegment, SegmentsAreAwaitedWithoutPauses) {
    answer_each({sixteen_bytes, first_segment, second_segment, last_segment});
    for (int empty_reads = 0; empty_reads < 2; ++empty_reads) {
        driver.queue_result(1);
    }
    read_segments(master, 100);
    // Only the first request, which may be answered at once as well, is awaited at the steady pace: here in
    // three polls.
    EXPECT_EQ(clock.pauses_us, std::vector<std::uint64_t>(3, 100));
}

TEST_F(SdoReadSegment, ASilentNodeIsNotPolledWithoutPausesForLong) {
    answer_each({sixteen_bytes});
    read_segments(master, 100);
    // A thousand polls of 1 us, then 101 us each, as long as all attempts of an expedited request together.
    EXPECT_EQ(clock.pauses_us.size(), 1U + 783U);
    EXPECT_EQ(*std::max_element(clock.pauses_us.begin(), clock.pauses_us.end()), 100U);
}

TEST_F(SdoReadSegment, NoRoomTakesAnEmptyObjectOnly) {
    answer_each({ScriptedFrame(0x585, {0x41, 0x40, 0x60, 0, 0, 0, 0, 0}), ScriptedFrame(0x585, {0x0F})});
    EXPECT_EQ(read_segments(master, 0).result, 0);
    answer_each({ScriptedFrame(0x585, {0x41, 0x40, 0x60, 0, 0, 0, 0, 0}), ScriptedFrame(0x585, {0x0D, 'a'})});
    EXPECT_EQ(read_segments(master, 0).result, -1);
}

namespace {

int write_segments(CCANopen& master, std::string data) {
    return master.sdo_write_segment(5, 0x6040, 0, static_cast<unsigned int>(data.size()), data.data());
}

const ScriptedFrame even_done(0x585, {0x20, 0, 0, 0, 0, 0, 0, 0});
const ScriptedFrame odd_done(0x585, {0x30, 0, 0, 0, 0, 0, 0, 0});

constexpr char offer_sixteen[] = "605 21 40 60 00 10 00 00 00 \n";
constexpr char send_first[] = "605 00 61 62 63 64 65 66 67 \n";
constexpr char send_second[] = "605 10 68 69 6A 6B 6C 6D 6E \n";
constexpr char send_last[] = "605 0B 6F 70 00 00 00 00 00 \n";
constexpr char sixteen_letters[] = "abcdefghijklmnop";

}  // namespace

TEST_F(SdoWriteSegment, SendsAllSegments) {
    answer_each({write_done, even_done, odd_done, even_done});
    EXPECT_EQ(write_segments(master, sixteen_letters), 0);
    EXPECT_EQ(sent(driver), std::string(offer_sixteen) + send_first + send_second + send_last);
}

TEST_F(SdoWriteSegment, TheLastSegmentTellsHowManyBytesItLacks) {
    struct Row {
        const char* data;
        const char* frames;
    };
    constexpr Row rows[] = {
        {"", "605 21 40 60 00 00 00 00 00 \n605 0F 00 00 00 00 00 00 00 \n"},
        {"a", "605 21 40 60 00 01 00 00 00 \n605 0D 61 00 00 00 00 00 00 \n"},
        {"ab", "605 21 40 60 00 02 00 00 00 \n605 0B 61 62 00 00 00 00 00 \n"},
        {"abc", "605 21 40 60 00 03 00 00 00 \n605 09 61 62 63 00 00 00 00 \n"},
        {"abcd", "605 21 40 60 00 04 00 00 00 \n605 07 61 62 63 64 00 00 00 \n"},
        {"abcde", "605 21 40 60 00 05 00 00 00 \n605 05 61 62 63 64 65 00 00 \n"},
        {"abcdef", "605 21 40 60 00 06 00 00 00 \n605 03 61 62 63 64 65 66 00 \n"},
        {"abcdefg", "605 21 40 60 00 07 00 00 00 \n605 01 61 62 63 64 65 66 67 \n"},
        {"abcdefgh",
         "605 21 40 60 00 08 00 00 00 \n605 00 61 62 63 64 65 66 67 \n605 1D 68 00 00 00 00 00 00 \n"},
    };
    for (const Row& row : rows) {
        driver.written.clear();
        answer_each({write_done, even_done, odd_done});
        EXPECT_EQ(write_segments(master, row.data), 0);
        EXPECT_EQ(sent(driver), row.frames);
    }
}

TEST_F(SdoWriteSegment, NoDataNeedNoBuffer) {
    answer_each({write_done, even_done});
    EXPECT_EQ(master.sdo_write_segment(5, 0x6040, 0, 0, nullptr), 0);
}

TEST_F(SdoWriteSegment, TheSizeIsAnnouncedInFourBytes) {
    std::string data(0x012345, 'x');
    bool odd = false;
    driver.on_write = [&](const ScriptedFrame& frame) {
        if (frame.data[0] == 0x21) {
            driver.queue(write_done);
        } else {
            driver.queue(odd ? odd_done : even_done);
            odd = !odd;
        }
    };
    EXPECT_EQ(write_segments(master, data), 0);
    EXPECT_EQ(bytes(driver.written[0]), "21 40 60 00 45 23 01 00 ");
    EXPECT_EQ(driver.written.size(), 1 + (data.size() + 6) / 7);
}

TEST_F(SdoWriteSegment, AnAbortByTheNodeReturnsMinusTwo) {
    for (const std::vector<Frames>& answers :
         {std::vector<Frames>{{abort_answer}},
          std::vector<Frames>{{write_done}, {even_done}, {abort_answer}}}) {
        answer(answers);
        EXPECT_EQ(printed([&] {
                      const int result = write_segments(master, sixteen_letters);
                      std::printf("%d %d", result, driver.written.size() == answers.size());
                  }),
                  std::string(red) + "Received SDO abort code: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                      modes_off + decoded_abort + "-2 1");
    }
}

TEST_F(SdoWriteSegment, AnAbortByTheNodeEndsTheProcessUnderBit1) {
    answer({{write_done}, {abort_answer}});
    master.set_debug(1);
    EXPECT_EQ(last_words(1, [&] { write_segments(master, sixteen_letters); }),
              std::string(red) + "Received SDO abort code: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + decoded_abort);
}

TEST_F(SdoWriteSegment, AnUnknownAnswerToTheOfferReturnsOne) {
    answer_each({ScriptedFrame(0x585, {0x43, 0x40, 0x60, 0})});
    EXPECT_EQ(printed([&] {
                  const int result = write_segments(master, sixteen_letters);
                  std::printf("%d\n%s", result, sent(driver).c_str());
              }),
              std::string(yellow) + "Unknown SDO_write response: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + "1\n" + offer_sixteen);
}

TEST_F(SdoWriteSegment, AnUnknownAnswerToASegmentReturnsOne) {
    answer_each({write_done, ScriptedFrame(0x585, {0x43, 0x40, 0x60, 0})});
    EXPECT_EQ(printed([&] {
                  const int result = write_segments(master, sixteen_letters);
                  std::printf("%d\n%s", result, sent(driver).c_str());
              }),
              std::string(yellow) + "Unknown SDO_write response: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + "1\n" + offer_sixteen + send_first + unknown_command_abort);
}

TEST_F(SdoWriteSegment, AnUnknownAnswerBehindADoubledOneReturnsOne) {
    answer({{write_done}, {even_done}, {even_done, ScriptedFrame(0x585, {0x43, 0x40, 0x60, 0})}});
    EXPECT_EQ(write_segments(master, sixteen_letters), 1);
    EXPECT_EQ(sent(driver), std::string(offer_sixteen) + send_first + send_second + unknown_command_abort);
}

TEST_F(SdoWriteSegment, AWrongFirstToggleBitAbortsTheTransfer) {
    answer_each({write_done, odd_done});
    EXPECT_EQ(write_segments(master, sixteen_letters), -1);
    EXPECT_EQ(sent(driver), std::string(offer_sixteen) + send_first + toggle_abort);
}

TEST_F(SdoWriteSegment, DoubledAnswersDoNoHarm) {
    answer({{write_done, write_done}, {even_done, even_done}, {even_done, odd_done, odd_done}, {even_done}});
    EXPECT_EQ(write_segments(master, sixteen_letters), 0);
    EXPECT_EQ(sent(driver), std::string(offer_sixteen) + send_first + send_second + send_last);
}

TEST_F(SdoWriteSegment, AToggleBitThatNeverAlternatesAbortsTheTransfer) {
    answer({{write_done}, {even_done}, {even_done}, {even_done}, {even_done}, {even_done}});
    EXPECT_EQ(write_segments(master, sixteen_letters), -1);
    EXPECT_EQ(sent(driver), std::string(offer_sixteen) + send_first + send_second + toggle_abort);
}

TEST_F(SdoWriteSegment, ASegmentIsSentOnceAndSilenceAbortsTheTransfer) {
    answer({{write_done}});
    EXPECT_EQ(printed([&] {
                  master.set_debug(2);
                  const int result = write_segments(master, sixteen_letters);
                  std::printf("%d\n%s", result, sent(driver).c_str());
              }),
              std::string(yellow) + "Error: No SDO Response: nodeID=0x05 Index=0x6040 SubIndex=0x00\n" +
                  modes_off + "-1\n" + offer_sixteen + send_first + time_out_abort);
}

TEST_F(SdoWriteSegment, NothingButTheAttemptsIsSentToANodeThatNeverAnswers) {
    EXPECT_EQ(write_segments(master, sixteen_letters), -1);
    EXPECT_EQ(sent(driver), repeated(4, offer_sixteen));
}

TEST_F(SdoWriteSegment, SilenceEndsTheProcessUnderBit1) {
    answer({{write_done}});
    master.set_debug(1);
    EXPECT_EQ(last_words(1, [&] { write_segments(master, sixteen_letters); }), "");
}

TEST_F(SdoWriteSegment, ForeignFramesAreServedBetweenSegments) {
    PDO tpdo(0x181);
    master.add_tpdo(tpdo);
    answer(
        {{write_done},
         {ScriptedFrame(0x181, {1}), ScriptedFrame(0x586, {0x20}), ScriptedFrame(0x585, {0x00}), even_done},
         {odd_done},
         {ScriptedFrame(0x181, {2}), even_done}});
    EXPECT_EQ(write_segments(master, sixteen_letters), 0);
    EXPECT_EQ(tpdo.PDO_updated, 2U);
}

namespace {

// A node whose object 0x6040 counts the requests to read it, behind a relay that disturbs its answers.
class LateSdo : public Sdo {
protected:
    LateSdo()
        : relay(driver, clock, [this](const ScriptedFrame& request) {
              ++requests;
              return ScriptedFrame(
                  0x585, {0x43, request.data[1], request.data[2], request.data[3],
                          static_cast<unsigned char>(requests), static_cast<unsigned char>(requests >> 8),
                          static_cast<unsigned char>(requests >> 16), 0});
          }) {}

    // The value that a read brings; -1 when it fails.
    int read() {
        int data = 0;
        return master.sdo_read(5, 0x6040, 0, data) == 0 ? data : -1;
    }

    void pause_ms(unsigned int ms) { clock.now_us += 1000ULL * ms; }

    int requests = 0;
    AnswerRelay relay;
};

}  // namespace

TEST_F(LateSdo, ANewMasterTakesLateAnswersAsTheyFit) {
    relay.deliver_after_us({{25000}});
    EXPECT_EQ(read(), 2);  // the first answer comes after the answer to the second attempt
    for (int i = 0; i < 999; ++i) {
        pause_ms(10);
        const int newest = requests;
        ASSERT_EQ(read(), i == 0 ? 1 : newest);
    }
}

TEST_F(LateSdo, NoReadBringsTheValueBeforeWhenLateAnswersAreDiscarded) {
    master.discard_late_sdo_answers(true);
    relay.deliver_after_us({{25000}});
    EXPECT_EQ(read(), 2);
    for (int i = 0; i < 999; ++i) {
        pause_ms(10);
        ASSERT_EQ(read(), requests);
        ASSERT_EQ(requests, i + 3);
    }
}

TEST_F(LateSdo, AnAnswerMayStillComeDuringALaterAttempt) {
    master.discard_late_sdo_answers(true);
    relay.deliver_after_us({{25000}, {30000}});
    EXPECT_EQ(read(), 1);
    EXPECT_EQ(requests, 2);
    pause_ms(30);
    EXPECT_EQ(read(), 3);
}

TEST_F(LateSdo, DoubledAnswersAreDiscarded) {
    master.discard_late_sdo_answers(true);
    for (int i = 1; i <= 100; ++i) {
        relay.deliver_after_us({{0, 0, 3000}});
        ASSERT_EQ(read(), i);
        pause_ms(5);
    }
}

TEST_F(LateSdo, SwitchedOffAgainTheMasterTakesWhatFits) {
    master.discard_late_sdo_answers(true);
    master.discard_late_sdo_answers(false);
    relay.deliver_after_us({{0, 0}});
    EXPECT_EQ(read(), 1);
    EXPECT_EQ(read(), 1);
}

TEST_F(LateSdo, WhateverTheRelayDoesAValueIsOfItsOwnRequest) {
    master.discard_late_sdo_answers(true);
    std::mt19937 random(1);
    for (int i = 0; i < 2000; ++i) {
        // Lost, once or twice, in time or late, and so in any order.
        std::vector<std::vector<std::uint64_t>> copies(4);
        for (std::vector<std::uint64_t>& delays : copies) {
            delays.resize(random() % 3);
            std::generate(delays.begin(), delays.end(), [&random] { return random() % 60000; });
        }
        relay.deliver_after_us(copies);
        const int before = requests;
        const int value = read();
        if (value != -1) {
            ASSERT_GT(value, before);
            ASSERT_LE(value, requests);
        } else {
            ASSERT_EQ(requests, before + 4);
        }
        pause_ms(60);
    }
}

TEST_F(SdoWait, WhatIsDiscardedIsTreatedAsByReadAllMessages) {
    unsigned char lamp = 0;
    PDO tpdo(0x181);
    tpdo.mapcopy(0, lamp);
    master.add_tpdo(tpdo);
    master.discard_late_sdo_answers(true);
    driver.queue(write_done);
    driver.queue(0x181, {7});
    driver.queue(0x080, {});
    answer_each({write_done});
    EXPECT_EQ(
        printed([&] {
            master.set_debug(4);
            const int result = master.sdo_write(5, 0x6040, 0, 1, 1);
            std::printf("%d %u %u %zu", result, lamp, tpdo.PDO_updated, driver.pending());
        }),
        "\033[1;33m - SDO Initiate Download Response:           ID=0x05 Index=0x6040 Subindex=0x00\n\033[m"
        "\033[1;36m - Transmit PDO 1 ID 0x01Transmit PDO 1 ID 0x01 (Unmapped)\n\033[m"
        "\033[1;34m - SYNC\n\033[m"
        "0 7 1 0");
}

TEST_F(SdoWait, EachRequestButNotEachAttemptDiscards) {
    master.discard_late_sdo_answers(true);
    std::vector<unsigned long> reads_before_write;
    driver.on_write = [&](const ScriptedFrame&) { reads_before_write.push_back(driver.reads()); };
    EXPECT_EQ(master.sdo_write(5, 0x6040, 0, 1, 1), -1);
    ASSERT_EQ(reads_before_write.size(), 4U);
    // One look at the queue before the first attempt; then those of waiting.
    EXPECT_EQ(reads_before_write[0], 1U);
    EXPECT_EQ(reads_before_write[1], 1U + 199U);
    EXPECT_EQ(reads_before_write[2], 1U + 2 * 199U);
}

TEST_F(SdoWait, ADriverErrorDoesNotKeepTheRequestBack) {
    master.discard_late_sdo_answers(true);
    driver.queue_result(-1);
    answer_each({write_done});
    EXPECT_EQ(master.sdo_write(5, 0x6040, 0, 1, 1), 0);
}

TEST_F(SdoReadSegment, LateAnswersAreDiscardedBeforeEachSegment) {
    const ScriptedFrame stale(0x585, {0x10, 's', 't', 'a', 'l', 'e', '!', '!'});
    const std::vector<Frames> answers = {
        {sixteen_bytes}, {first_segment, stale}, {second_segment}, {last_segment}};
    answer(answers);
    EXPECT_EQ(read_segments(master, 100).data.substr(7, 7), "stale!!");
    master.read_all_messages();
    master.discard_late_sdo_answers(true);
    answer(answers);
    EXPECT_EQ(read_segments(master, 100).data, "abcdefghijklmnop");
}

TEST_F(SdoWriteSegment, LateAnswersAreDiscardedBeforeEachSegment) {
    const ScriptedFrame stale_unknown(0x585, {0x43, 0x40, 0x60, 0});
    answer({{write_done, stale_unknown}, {even_done, stale_unknown}, {odd_done}, {even_done}});
    master.discard_late_sdo_answers(true);
    EXPECT_EQ(write_segments(master, sixteen_letters), 0);
    EXPECT_EQ(sent(driver), std::string(offer_sixteen) + send_first + send_second + send_last);
}

namespace {

// A node's object dictionary: confirms every write, and answers a read with what `objects` holds or with an
// abort.
struct Object {
    unsigned int index;
    unsigned int subindex;
    unsigned int value;
};

void serve(ScriptedCanDriver& driver, const std::vector<Object>& objects) {
    driver.on_write = [&driver, objects](const ScriptedFrame& request) {
        ScriptedFrame answer = request;
        answer.cobid = 0x580 + (request.cobid & 0x7F);
        answer.data[0] = request.data[0] == 0x40 ? 0x80 : 0x60;
        for (const Object& object : objects) {
            if (request.data[0] == 0x40 &&
                (request.data[1] | request.data[2] << 8) == static_cast<int>(object.index) &&
                request.data[3] == object.subindex) {
                answer.data[0] = 0x43;
                for (unsigned int i = 0; i < 4; ++i) {
                    answer.data[4 + i] = static_cast<unsigned char>(object.value >> (8 * i));
                }
            }
        }
        driver.queue(answer);
    };
}

void fill(PDO& pdo) {
    pdo.obj_info.mappingcount = 2;
    pdo.obj_info.pdo_mappings[0] = 0x60410010;
    pdo.obj_info.pdo_mappings[1] = 0x60640020;
    pdo.set_transmission_type(0xFE);
}

}  // namespace

TEST_F(PdoSetUp, SavingATpdoDisablesItWhileItsMappingChanges) {
    serve(driver, {});
    PDO pdo(0x185);
    fill(pdo);
    master.save_tpdo_mappings(5, 1, pdo);
    EXPECT_EQ(sent(driver),
              "605 23 01 18 01 85 01 00 80 \n"
              "605 23 01 1A 00 00 00 00 00 \n"
              "605 23 01 1A 01 10 00 41 60 \n"
              "605 23 01 1A 02 20 00 64 60 \n"
              "605 23 01 1A 00 02 00 00 00 \n"
              "605 2F 01 18 02 FE 00 00 00 \n"
              "605 23 01 18 01 85 01 00 00 \n");
}

TEST_F(PdoSetUp, SavingAnRpdoUsesItsOwnObjects) {
    serve(driver, {});
    PDO pdo(0x205);
    fill(pdo);
    pdo.obj_info.mappingcount = 0;
    master.save_rpdo_mappings(5, 513, pdo);
    EXPECT_EQ(sent(driver),
              "605 23 01 14 01 05 02 00 80 \n"
              "605 23 01 16 00 00 00 00 00 \n"
              "605 23 01 16 00 00 00 00 00 \n"
              "605 2F 01 14 02 FE 00 00 00 \n"
              "605 23 01 14 01 05 02 00 00 \n");
}

TEST_F(PdoSetUp, SavingSixtyFourMappingsWritesTheCountOnly) {
    serve(driver, {});
    PDO pdo(0x185);
    pdo.obj_info.mappingcount = 63;
    master.save_tpdo_mappings(5, 0, pdo);
    EXPECT_EQ(driver.written.size(), 5U + 63U);
    driver.written.clear();
    pdo.obj_info.mappingcount = 64;
    master.save_tpdo_mappings(5, 0, pdo);
    EXPECT_EQ(driver.written.size(), 5U);
    EXPECT_EQ(driver.written[2], ScriptedFrame(0x605, {0x23, 0x00, 0x1A, 0x00, 64, 0, 0, 0}));
}

TEST_F(PdoSetUp, SavingGoesOnAfterFailures) {
    driver.on_write = [&](const ScriptedFrame& request) {
        driver.queue(
            ScriptedFrame(0x585, {0x80, request.data[1], request.data[2], request.data[3], 0, 0, 2, 6}));
    };
    PDO pdo(0x185);
    fill(pdo);
    testing::internal::CaptureStdout();
    master.save_tpdo_mappings(5, 1, pdo);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(driver.written.size(), 7U);
}

TEST_F(PdoSetUp, LoadingATpdoReadsCobidMappingsAndType) {
    serve(driver, {{0x1801, 1, 0x5FFFFA85},
                   {0x1A01, 0, 2},
                   {0x1A01, 1, 0x60410010},
                   {0x1A01, 2, 0x60640020},
                   {0x1801, 2, 0xFE}});
    PDO pdo(0x185);
    master.load_tpdo_mappings(5, 1, pdo);
    EXPECT_EQ(pdo.get_cobid(), 0x285U);
    EXPECT_EQ(pdo.obj_info.mappingcount, 2);
    EXPECT_EQ(pdo.obj_info.pdo_mappings[0], 0x60410010);
    EXPECT_EQ(pdo.obj_info.pdo_mappings[1], 0x60640020);
    EXPECT_EQ(pdo.obj_info.transmission_type, 0xFE);
    EXPECT_EQ(sent(driver),
              "605 40 01 18 01 00 00 00 00 \n"
              "605 40 01 1A 00 00 00 00 00 \n"
              "605 40 01 1A 01 00 00 00 00 \n"
              "605 40 01 1A 02 00 00 00 00 \n"
              "605 40 01 18 02 00 00 00 00 \n");
}

TEST_F(PdoSetUp, LoadingAnRpdoUsesItsOwnObjects) {
    serve(driver, {{0x15FF, 1, 0x205}, {0x17FF, 0, 1}, {0x17FF, 1, 0x60400010}, {0x15FF, 2, 1}});
    PDO pdo(0x185);
    master.load_rpdo_mappings(5, 511 + 512, pdo);
    EXPECT_EQ(pdo.get_cobid(), 0x205U);
    EXPECT_EQ(pdo.obj_info.pdo_mappings[0], 0x60400010);
    EXPECT_EQ(pdo.obj_info.transmission_type, 1);
}

TEST_F(PdoSetUp, LoadingTakesUpToSixtyFourMappings) {
    std::vector<Object> objects = {{0x1800, 1, 0x185}, {0x1A00, 0, 64}, {0x1800, 2, 1}};
    for (unsigned int i = 1; i <= 64; ++i) {
        objects.push_back({0x1A00, i, 0x60000000 + i});
    }
    serve(driver, objects);
    PDO pdo(0x185);
    master.load_tpdo_mappings(5, 0, pdo);
    EXPECT_EQ(pdo.obj_info.mappingcount, 64);
    EXPECT_EQ(pdo.obj_info.pdo_mappings[63], 0x60000040);
}

TEST_F(PdoSetUp, LoadingReadsNoMappingsOfACountOutOfRange) {
    for (const unsigned int count : {0U, 65U, 0xFEU, 0x80000001U}) {
        driver.written.clear();
        serve(driver, {{0x1800, 1, 0x185}, {0x1A00, 0, count}, {0x1A00, 1, 5}, {0x1800, 2, 7}});
        PDO pdo(0x185);
        master.load_tpdo_mappings(5, 0, pdo);
        EXPECT_EQ(pdo.obj_info.mappingcount, static_cast<int>(count));
        EXPECT_EQ(pdo.obj_info.transmission_type, 7);
        EXPECT_EQ(driver.written.size(), 3U);
    }
}

TEST_F(PdoSetUp, LoadingADisabledPdoPrintsAMessageAndEmptiesTheMapping) {
    for (const unsigned int cobid : {0x80000185U, 0x180U, 0U}) {
        serve(driver, {{0x1801, 1, cobid}});
        PDO pdo(0x186);
        fill(pdo);
        EXPECT_EQ(printed([&] {
                      master.load_tpdo_mappings(5, 513, pdo);
                      std::printf("%d %x %zu", pdo.obj_info.mappingcount, pdo.get_cobid(),
                                  driver.written.size());
                  }),
                  "CCANopen::get_pdo_mappings: PDO number 513 is disabled!\n0 186 1");
    }
}

TEST_F(PdoSetUp, LoadingStopsSilentlyWhenTheCobidCannotBeRead) {
    PDO pdo(0x186);
    fill(pdo);
    EXPECT_EQ(printed([&] {
                  master.load_tpdo_mappings(5, 0, pdo);
                  std::printf("%d %x %zu", pdo.obj_info.mappingcount, pdo.get_cobid(), driver.written.size());
              }),
              "2 186 4");
}

TEST_F(PdoSetUp, LoadingACobidOutOfRangeEndsTheProcess) {
    serve(driver, {{0x1800, 1, 0x605}});
    PDO pdo(0x186);
    EXPECT_EQ(last_words(1, [&] { master.load_tpdo_mappings(5, 0, pdo); }),
              "Error: PDO::set_cobid  ID 0x605 out of range\n");
}

TEST_F(PdoSetUp, LoadingKeepsNoAbortCodeInPlaceOfAnEntry) {
    serve(driver, {{0x1800, 1, 0x185}, {0x1A00, 0, 2}, {0x1A00, 2, 5}});
    PDO pdo(0x185);
    fill(pdo);
    testing::internal::CaptureStdout();
    master.load_tpdo_mappings(5, 0, pdo);
    EXPECT_EQ(pdo.obj_info.pdo_mappings[0], 0x60410010);
    EXPECT_EQ(pdo.obj_info.pdo_mappings[1], 5);
    EXPECT_EQ(pdo.obj_info.transmission_type, 0xFE);
    serve(driver, {{0x1800, 1, 0x185}});
    master.load_tpdo_mappings(5, 0, pdo);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(pdo.obj_info.mappingcount, 0);
}

TEST_F(PdoSetUp, ShowingStopsAtTheFirstDisabledPdo) {
    serve(driver, {{0x1800, 1, 0x40000185}, {0x1801, 1, 0x285}, {0x1802, 1, 0x80000385}, {0x1803, 1, 0x485}});
    EXPECT_EQ(printed([&] { master.show_node_tpdo_cobids(0x85); }),
              "NodeID = 0x085 : TPDO cobid = 0x40000185\n"
              "NodeID = 0x085 : TPDO cobid = 0x00000285\n"
              "Number of active TPDOs is 2\n\n");
}

TEST_F(PdoSetUp, ShowingStopsAtANodePartOfZero) {
    serve(driver, {{0x1400, 1, 0x205}, {0x1401, 1, 0x300}, {0x1402, 1, 0x405}});
    EXPECT_EQ(printed([&] { master.show_node_rpdo_cobids(5); }),
              "NodeID = 0x005 : RPDO cobid = 0x00000205\n"
              "Number of active RPDOs is 1\n\n");
}

TEST_F(PdoSetUp, ShowingStopsAtTheFirstFailedRead) {
    EXPECT_EQ(printed([&] { master.show_node_rpdo_cobids(5); }), "Number of active RPDOs is 0\n\n");
}

TEST_F(PdoSetUp, ShowingEndsAfterFiveHundredAndTwelvePdos) {
    std::vector<Object> objects;
    for (unsigned int i = 0; i < 600; ++i) {
        objects.push_back({0x1800 + i, 1, 0x185});
    }
    serve(driver, objects);
    const std::string out = printed([&] { master.show_node_tpdo_cobids(5); });
    EXPECT_EQ(out, repeated(512, "NodeID = 0x005 : TPDO cobid = 0x00000185\n") +
                       "Number of active TPDOs is 512\n\n");
}
