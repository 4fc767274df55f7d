#include "nodevik/nodes/sdoclient.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "nodevik/util/monotonicclock.h"
#include "tests/support/allocationcount.h"
#include "tests/support/childprocess.h"
#include "tests/support/scriptedcandriver.h"
#include "tests/support/scriptedclock.h"
#include "tests/support/scriptedsdonode.h"

namespace {

using Bytes = ScriptedSdoNode::Bytes;
using Lines = std::vector<std::string>;
using Answers = ScriptedSdoNode::Answers;

constexpr std::uint32_t key_2000_01 = 0x200001;

// So many bytes, all of them different from their neighbours.
Bytes bytes_of(std::size_t size, unsigned int first = 0x10) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::uint8_t>(first + i + i / 251);
    }
    return bytes;
}

std::string hex(const unsigned char* bytes, std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), i == 0 ? "%02X" : " %02X", bytes[i]);
        text += digits.data();
    }
    return text;
}

// The ends that callbacks have told.
struct Ends {
    std::vector<SdoResult> results;
    SdoCallback keep() {
        return [this](const SdoResult& result) { results.push_back(result); };
    }
    const SdoResult& only() const {
        EXPECT_EQ(results.size(), 1U);
        static const SdoResult none;
        return results.empty() ? none : results.front();
    }
};

class Collector : public SdoSink {
public:
    bool begin(std::uint64_t size) override {
        announced = size;
        return accepts;
    }
    bool write(const unsigned char* data, std::size_t size) override {
        if (bytes.size() + size > limit) {
            return false;
        }
        bytes.insert(bytes.end(), data, data + size);
        return true;
    }
    Bytes bytes;
    std::uint64_t announced = 0;
    bool accepts = true;
    std::size_t limit = SIZE_MAX;
};

class Provider : public SdoSource {
public:
    std::uint64_t size() const override { return told.value_or(bytes.size()); }
    long read(unsigned char* room, std::size_t size) override {
        const std::size_t count = std::min({size, piece, bytes.size() - at});
        if (at >= fails_at) {
            return -1;
        }
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), count, room);
        at += count;
        return static_cast<long>(count);
    }
    Bytes bytes;
    std::optional<std::uint64_t> told;
    std::size_t at = 0;
    std::size_t piece = SIZE_MAX;
    std::size_t fails_at = SIZE_MAX;
};

// A bus with the client at one end and scripted nodes at the other, in a time of its own. What nodes answer late waits
// until the time has come.
class Sdo : public testing::Test {
public:
    Sdo() {
        add(5);
        bus.on_write = [this](const ScriptedFrame& frame) {
            sent.push_back(hex(frame.data.data(), 8));
            frames.push_back("-> " + sent.back());
            const unsigned int number = frame.cobid - 0x600;
            if (frame.length != 8 || frame.flags != 0 || nodes.count(number) == 0) {
                return;
            }
            for (const auto& answer : nodes.at(number).receive(frame.data)) {
                say(answer, number);
            }
        };
    }

    ScriptedSdoNode& add(unsigned int number) { return nodes[number]; }

    void say(const ScriptedSdoNode::Data& bytes, unsigned int number = 5) {
        frames.push_back("<- " + hex(bytes.data(), 8));
        ScriptedFrame frame(0x580 + number, {});
        frame.length = 8;
        frame.data = bytes;
        bus.queue(frame);
    }

    void say_late(const ScriptedSdoNode::Data& bytes, std::uint64_t delay_us) {
        late.emplace_back(clock.now_us + delay_us, bytes);
    }

    // Reads what waits and lets the time pass, until no transfer is under way and nothing is to come.
    void run() {
        for (int turn = 0; turn < 200000; ++turn) {
            driver.read_all();
            sdo.process(clock.now_us * 1000);
            if (bus.pending() != 0) {
                continue;
            }
            if (sdo.active() == 0 && late.empty()) {
                return;
            }
            const std::uint64_t deadline = sdo.next_deadline();
            std::uint64_t next_us = deadline == no_deadline ? UINT64_MAX : (deadline + 999) / 1000;
            for (const auto& [due, bytes] : late) {
                next_us = std::min(next_us, due);
            }
            clock.now_us = std::max(clock.now_us, next_us);
            while (!late.empty() && late.front().first <= clock.now_us) {
                say(late.front().second);
                late.erase(late.begin());
            }
        }
        ADD_FAILURE() << "the transfer does not end";
    }

    SdoResult upload(Bytes& room, SdoOptions options = {}) {
        Ends ends;
        EXPECT_EQ(sdo.start_read({5, 0x2000, 1}, room.data(), room.size(), ends.keep(), std::move(options)),
                  0);
        run();
        return ends.only();
    }
    SdoResult download(const Bytes& data, SdoOptions options = {}) {
        Ends ends;
        EXPECT_EQ(sdo.start_write({5, 0x2000, 1}, data.data(), data.size(), ends.keep(), std::move(options)),
                  0);
        run();
        return ends.only();
    }

    // The one client's abort, as a node takes it.
    std::string abort_sent() const {
        return sent.empty() || sent.back().substr(0, 2) != "80" ? "" : sent.back();
    }

    ScriptedClock clock;
    ScriptedCanDriver bus;
    ObservedDriver driver{bus};
    SdoClient sdo{driver};
    std::map<unsigned int, ScriptedSdoNode> nodes;
    ScriptedSdoNode& node = nodes[5];
    std::vector<std::pair<std::uint64_t, ScriptedSdoNode::Data>> late;
    Lines sent;
    Lines frames;
};

SdoOptions by(SdoMode mode) {
    SdoOptions options;
    options.mode = mode;
    return options;
}

SdoOptions blocks_of(unsigned int size) {
    SdoOptions options = by(SdoMode::block);
    options.block_size = size;
    options.switch_threshold = 0;
    return options;
}

}  // namespace

// What stands on the bus.

TEST_F(Sdo, ExpeditedUploadHasTheBytesOfTheStandard) {
    node.objects[0x100000] = {0x91, 0x01, 0x0F, 0x00};
    std::uint32_t value = 0;
    Ends ends;
    EXPECT_EQ(sdo.start_read({5, 0x1000, 0}, &value, sizeof value, ends.keep()), 0);
    EXPECT_TRUE(sdo.busy(5));
    EXPECT_TRUE(ends.results.empty());
    run();
    EXPECT_EQ(frames, (Lines{"-> 40 00 10 00 00 00 00 00", "<- 43 00 10 00 91 01 0F 00"}));
    EXPECT_EQ(ends.only().outcome, SdoOutcome::done);
    EXPECT_TRUE(ends.only().ok());
    EXPECT_EQ(ends.only().bytes, 4U);
    EXPECT_EQ(ends.only().object.index, 0x1000);
    EXPECT_FALSE(ends.only().by_blocks);
    EXPECT_STREQ(ends.only().words(), "Done");
    EXPECT_EQ(value, 0xF0191U);
    EXPECT_FALSE(sdo.busy(5));
}

TEST_F(Sdo, ExpeditedUploadsOfOneToFourBytesFillAsMuch) {
    for (std::size_t size = 1; size <= 4; ++size) {
        node.objects[key_2000_01] = bytes_of(size);
        Bytes room(8, 0xEE);
        const SdoResult result = upload(room);
        EXPECT_TRUE(result.ok());
        EXPECT_EQ(result.bytes, size);
        Bytes expected = bytes_of(size);
        expected.resize(8, 0xEE);
        EXPECT_EQ(room, expected);
    }
}

TEST_F(Sdo, AnExpeditedAnswerWithoutASizeHasFourBytes) {
    node.objects[key_2000_01] = bytes_of(4);
    node.tamper = [](unsigned int, Answers& answers) { answers[0][0] = 0x42; };
    Bytes room(8);
    EXPECT_EQ(upload(room).bytes, 4U);
}

TEST_F(Sdo, AnExpeditedAnswerWithoutASizeIsAsLongAsTheRoom) {
    node.objects[key_2000_01] = bytes_of(4);
    node.tamper = [](unsigned int, Answers& answers) { answers[0][0] = 0x42; };
    Bytes room(2);
    const SdoResult result = upload(room);
    EXPECT_TRUE(result.ok());
    EXPECT_EQ(result.bytes, 2U);
    EXPECT_EQ(room, bytes_of(2));
    EXPECT_EQ(sent.size(), 1U);
}

TEST_F(Sdo, ExpeditedDownloadsTellTheirLength) {
    for (const auto& [size, first] : {std::pair<std::size_t, const char*>{1, "2F 00 20 01 10 00 00 00"},
                                      {2, "2B 00 20 01 10 11 00 00"},
                                      {3, "27 00 20 01 10 11 12 00"},
                                      {4, "23 00 20 01 10 11 12 13"}}) {
        sent.clear();
        EXPECT_TRUE(download(bytes_of(size)).ok());
        EXPECT_EQ(sent, Lines{first});
        EXPECT_EQ(node.objects[key_2000_01], bytes_of(size));
    }
}

TEST_F(Sdo, SegmentedUploadHasTheBytesOfTheStandard) {
    node.objects[key_2000_01] = bytes_of(10);
    Bytes room(20);
    EXPECT_EQ(upload(room).bytes, 10U);
    EXPECT_EQ(frames, (Lines{"-> 40 00 20 01 00 00 00 00", "<- 41 00 20 01 0A 00 00 00",
                             "-> 60 00 00 00 00 00 00 00", "<- 00 10 11 12 13 14 15 16",
                             "-> 70 00 00 00 00 00 00 00", "<- 19 17 18 19 00 00 00 00"}));
    room.resize(10);
    EXPECT_EQ(room, bytes_of(10));
}

TEST_F(Sdo, SegmentedDownloadHasTheBytesOfTheStandard) {
    EXPECT_EQ(download(bytes_of(10)).bytes, 10U);
    EXPECT_EQ(frames, (Lines{"-> 21 00 20 01 0A 00 00 00", "<- 60 00 20 01 00 00 00 00",
                             "-> 00 10 11 12 13 14 15 16", "<- 20 00 00 00 00 00 00 00",
                             "-> 19 17 18 19 00 00 00 00", "<- 30 00 00 00 00 00 00 00"}));
    EXPECT_EQ(node.objects[key_2000_01], bytes_of(10));
}

TEST_F(Sdo, AnEmptyDownloadIsAnEmptyLastSegment) {
    EXPECT_TRUE(download({}).ok());
    EXPECT_EQ(sent, (Lines{"21 00 20 01 00 00 00 00", "0F 00 00 00 00 00 00 00"}));
    EXPECT_EQ(node.writes, 1U);
}

TEST_F(Sdo, AnEmptyUploadIsDoneWithoutBytes) {
    node.objects[key_2000_01] = {};
    for (const bool tells : {true, false}) {
        node.tells_size = tells;
        Bytes room(4);
        const SdoResult result = upload(room);
        EXPECT_TRUE(result.ok());
        EXPECT_EQ(result.bytes, 0U);
    }
}

// 20 bytes in blocks of 4 segments, the second of which is lost; the CRC is CD61.
TEST_F(Sdo, BlockDownloadWithALostSegmentHasTheBytesOfTheStandard) {
    node.block_size = [] { return 4U; };
    node.lost_requests = {3};
    EXPECT_EQ(download(bytes_of(20), by(SdoMode::block)).bytes, 20U);
    EXPECT_EQ(frames,
              (Lines{"-> C6 00 20 01 14 00 00 00", "<- A4 00 20 01 04 00 00 00", "-> 01 10 11 12 13 14 15 16",
                     "-> 02 17 18 19 1A 1B 1C 1D", "-> 83 1E 1F 20 21 22 23 00", "<- A2 01 04 00 00 00 00 00",
                     "-> 01 17 18 19 1A 1B 1C 1D", "-> 82 1E 1F 20 21 22 23 00", "<- A2 02 04 00 00 00 00 00",
                     "-> C5 61 CD 00 00 00 00 00", "<- A1 00 00 00 00 00 00 00"}));
    EXPECT_EQ(node.objects[key_2000_01], bytes_of(20));
}

TEST_F(Sdo, BlockUploadWithALostSegmentHasTheBytesOfTheStandard) {
    node.objects[key_2000_01] = bytes_of(20);
    node.tamper = [](unsigned int first, Answers& answers) {
        if (first == 2) {
            answers.erase(answers.begin() + 1);
        }
    };
    Bytes room(20);
    const SdoResult result = upload(room, blocks_of(4));
    EXPECT_TRUE(result.ok());
    EXPECT_TRUE(result.by_blocks);
    EXPECT_EQ(frames,
              (Lines{"-> A4 00 20 01 04 00 00 00", "<- C6 00 20 01 14 00 00 00", "-> A3 00 00 00 00 00 00 00",
                     "<- 01 10 11 12 13 14 15 16", "<- 83 1E 1F 20 21 22 23 00", "-> A2 01 04 00 00 00 00 00",
                     "<- 01 17 18 19 1A 1B 1C 1D", "<- 82 1E 1F 20 21 22 23 00", "-> A2 02 04 00 00 00 00 00",
                     "<- C5 61 CD 00 00 00 00 00", "-> A1 00 00 00 00 00 00 00"}));
    EXPECT_EQ(room, bytes_of(20));
    EXPECT_EQ(sdo.dropped().out_of_order, 1U);
}

TEST_F(Sdo, TheCrcOfTheDigitsIsTheStandardsCheckValue) {
    const std::string digits = "123456789";
    EXPECT_TRUE(download(Bytes(digits.begin(), digits.end()), by(SdoMode::block)).ok());
    EXPECT_EQ(sent.back(), "D5 C3 31 00 00 00 00 00");
    EXPECT_EQ(ScriptedSdoNode::crc(Bytes(digits.begin(), digits.end())), 0x31C3);
}

TEST_F(Sdo, TheUnusedBytesOfTheLastSegmentAreInTheEndOfTheBlock) {
    const std::array<const char*, 8> ends = {"DD", "D9", "D5", "D1", "CD", "C9", "C5", "C1"};
    for (std::size_t size = 0; size <= 7; ++size) {
        EXPECT_TRUE(download(bytes_of(size), by(SdoMode::block)).ok());
        EXPECT_EQ(sent.back().substr(0, 2), ends[size]);
        EXPECT_EQ(node.objects[key_2000_01], bytes_of(size));
        Bytes room(size);
        EXPECT_TRUE(upload(room, blocks_of(3)).ok());
        EXPECT_EQ(room, bytes_of(size));
    }
}

// Lengths, pieces, and which kind is chosen.

TEST_F(Sdo, EveryLengthPassesInEveryKindBothWays) {
    for (const SdoMode mode : {SdoMode::automatic, SdoMode::segmented, SdoMode::block}) {
        for (const std::size_t size :
             {0U,   1U,   4U,   5U,   6U,   7U,   8U,   13U,  14U,   15U,   111U,  112U,
              113U, 888U, 889U, 890U, 891U, 895U, 896U, 897U, 1778U, 1779U, 10000U}) {
            for (const unsigned int block : {1U, 2U, 126U, 127U}) {
                node.block_size = [block] { return block; };
                SdoOptions options = blocks_of(block);
                options.mode = mode;
                EXPECT_TRUE(download(bytes_of(size), options).ok()) << size;
                EXPECT_EQ(node.objects[key_2000_01], bytes_of(size)) << size;
                Bytes room(size);
                EXPECT_TRUE(upload(room, options).ok()) << size;
                EXPECT_EQ(room, bytes_of(size)) << size;
                if (mode != SdoMode::block) {
                    break;
                }
            }
        }
    }
    EXPECT_TRUE(node.aborts.empty());
    EXPECT_TRUE(node.is_idle());
}

TEST_F(Sdo, BlocksAreChosenForMoreThan112Bytes) {
    EXPECT_FALSE(download(bytes_of(112)).by_blocks);
    EXPECT_TRUE(download(bytes_of(113)).by_blocks);
    Bytes room(112);
    node.objects[key_2000_01] = bytes_of(100);
    EXPECT_FALSE(upload(room).by_blocks);
    EXPECT_EQ(sent.back().substr(0, 1), "6");
    room.resize(113);
    sent.clear();
    EXPECT_FALSE(upload(room).by_blocks) << "the node may answer short objects in the ordinary way";
    EXPECT_EQ(sent.front(), "A4 00 20 01 7F 70 00 00");
    node.objects[key_2000_01] = bytes_of(113);
    EXPECT_TRUE(upload(room).by_blocks);
}

TEST_F(Sdo, SourcesAndSinksWorkInPiecesWithAndWithoutALength) {
    for (const SdoMode mode : {SdoMode::automatic, SdoMode::segmented, SdoMode::block}) {
        for (const std::size_t size : {0U, 3U, 4U, 7U, 8U, 20U, 889U, 890U, 5000U}) {
            for (const std::size_t piece : {1U, 7U, 64U, 4096U}) {
                for (const bool known : {true, false}) {
                    Provider source;
                    source.bytes = bytes_of(size);
                    source.piece = piece;
                    if (!known) {
                        source.told = sdo_unknown_size;
                    }
                    node.tells_size = known;
                    Ends ends;
                    sdo.start_write({5, 0x2000, 1}, source, ends.keep(), by(mode));
                    run();
                    EXPECT_TRUE(ends.only().ok()) << size;
                    EXPECT_EQ(ends.only().bytes, size);
                    EXPECT_EQ(node.objects[key_2000_01], bytes_of(size)) << size;
                    Collector sink;
                    Ends read;
                    sdo.start_read({5, 0x2000, 1}, sink, read.keep(), by(mode));
                    run();
                    EXPECT_TRUE(read.only().ok()) << size;
                    EXPECT_EQ(sink.bytes, bytes_of(size)) << size;
                }
            }
        }
    }
    EXPECT_TRUE(node.aborts.empty());
}

TEST_F(Sdo, ASinkIsToldTheLengthAndMayRefuse) {
    node.objects[key_2000_01] = bytes_of(300);
    Collector sink;
    sink.accepts = false;
    Ends ends;
    sdo.start_read({5, 0x2000, 1}, sink, ends.keep());
    run();
    EXPECT_EQ(sink.announced, 300U);
    EXPECT_EQ(ends.only().outcome, SdoOutcome::aborted_by_client);
    EXPECT_EQ(ends.only().abort_code, 0x05040005U);
    EXPECT_STREQ(ends.only().words(), "Out of memory.");
    EXPECT_EQ(abort_sent(), "80 00 20 01 05 00 04 05");
    node.tells_size = false;
    sink.accepts = true;
    sink.limit = 100;
    for (const SdoMode mode : {SdoMode::segmented, SdoMode::block}) {
        Ends other;
        sdo.start_read({5, 0x2000, 1}, sink, other.keep(), by(mode));
        run();
        EXPECT_EQ(sink.announced, sdo_unknown_size);
        EXPECT_EQ(other.only().abort_code, 0x05040005U);
    }
    EXPECT_EQ(node.aborts, (std::vector<std::uint32_t>{0x05040005, 0x05040005, 0x05040005}));
}

TEST_F(Sdo, ASourceThatFailsAbortsAndTheCallbackIsNeverCalledFromWithinTheStart) {
    for (const SdoMode mode : {SdoMode::segmented, SdoMode::block}) {
        for (const std::size_t size : {3U, 50U}) {
            Provider source;
            source.bytes = bytes_of(size);
            source.fails_at = size == 3 ? 0 : 7;
            source.piece = 7;
            Ends ends;
            EXPECT_EQ(sdo.start_write({5, 0x2000, 1}, source, ends.keep(), by(mode)), 0);
            EXPECT_TRUE(ends.results.empty());
            run();
            EXPECT_EQ(ends.only().outcome, SdoOutcome::aborted_by_client);
            EXPECT_EQ(ends.only().abort_code, 0x08000020U);
        }
    }
    EXPECT_EQ(node.writes, 0U);
    EXPECT_TRUE(node.is_idle());
}

TEST_F(Sdo, ASourceThatEndsTooEarlyAborts) {
    Provider source;
    source.bytes = bytes_of(30);
    source.told = 31;
    Ends ends;
    sdo.start_write({5, 0x2000, 1}, source, ends.keep());
    run();
    EXPECT_EQ(ends.only().abort_code, 0x06070013U);
    EXPECT_EQ(node.writes, 0U);
}

TEST_F(Sdo, WhatIsWrittenIsCopiedAtTheStartUpToItsLimit) {
    Bytes data = bytes_of(SdoClient::copied_bytes);
    Ends ends;
    sdo.start_write({5, 0x2000, 1}, data.data(), data.size(), ends.keep(), by(SdoMode::segmented));
    std::fill(data.begin(), data.end(), std::uint8_t{0});
    run();
    EXPECT_EQ(node.objects[key_2000_01], bytes_of(SdoClient::copied_bytes));
}

TEST_F(Sdo, ProgressIsToldAndMayCancel) {
    for (const SdoMode mode : {SdoMode::segmented, SdoMode::block}) {
        std::vector<std::uint64_t> steps;
        SdoOptions options = by(mode);
        node.block_size = [] { return 2U; };
        options.block_size = 2;
        options.switch_threshold = 0;
        options.progress = [&steps](std::uint64_t bytes, std::uint64_t total) {
            steps.push_back(bytes);
            EXPECT_EQ(total, 20U);
        };
        EXPECT_TRUE(download(bytes_of(20), options).ok());
        const std::vector<std::uint64_t> expected = mode == SdoMode::block
                                                        ? std::vector<std::uint64_t>{14, 20}
                                                        : std::vector<std::uint64_t>{7, 14, 20};
        EXPECT_EQ(steps, expected);
        steps.clear();
        Bytes room(20);
        EXPECT_TRUE(upload(room, options).ok());
        EXPECT_EQ(steps.back(), 20U);
        EXPECT_TRUE(std::is_sorted(steps.begin(), steps.end()));
        options.progress = [this](std::uint64_t, std::uint64_t) { sdo.cancel(5); };
        EXPECT_EQ(download(bytes_of(20), options).outcome, SdoOutcome::cancelled);
        EXPECT_EQ(upload(room, options).outcome, SdoOutcome::cancelled);
        EXPECT_TRUE(node.is_idle());
    }
}

TEST_F(Sdo, ProgressMayReadTheBusAndTakeItsTime) {
    for (const SdoMode mode : {SdoMode::segmented, SdoMode::block}) {
        node.block_size = [] { return 2U; };
        ScriptedSdoNode::Data last{};
        node.tamper = [&last](unsigned int, Answers& answers) { last = answers.back(); };
        SdoOptions options = by(mode);
        options.block_size = 2;
        options.switch_threshold = 0;
        options.progress = [&](std::uint64_t, std::uint64_t) {
            say(last);  // once more
            driver.read_all();
            clock.now_us += 600'000;
            sdo.process(clock.now_us * 1000);
        };
        EXPECT_TRUE(download(bytes_of(60), options).ok());
        EXPECT_EQ(node.objects[key_2000_01], bytes_of(60));
        Bytes room(60);
        EXPECT_TRUE(upload(room, options).ok());
        EXPECT_EQ(room, bytes_of(60));
    }
}

// Nodes as they are.

TEST_F(Sdo, ANodeWithoutBlocksIsAskedAgainBySegmentsAndRemembered) {
    node.knows_blocks = false;
    EXPECT_FALSE(sdo.refuses_blocks(5));
    const SdoResult first = download(bytes_of(200));
    EXPECT_TRUE(first.ok());
    EXPECT_FALSE(first.by_blocks);
    EXPECT_EQ(sent[0].substr(0, 2), "C6");
    EXPECT_EQ(sent[1].substr(0, 2), "21");
    EXPECT_TRUE(sdo.refuses_blocks(5));
    sent.clear();
    Bytes room(300);
    EXPECT_TRUE(upload(room).ok());
    EXPECT_EQ(sent[0].substr(0, 2), "40");
    sent.clear();
    EXPECT_TRUE(download(bytes_of(200), by(SdoMode::block)).ok()) << "who insists is asked for blocks first";
    EXPECT_EQ(sent[0].substr(0, 2), "C6");
    bus.queue(0x705, {0});
    run();
    EXPECT_FALSE(sdo.refuses_blocks(5));
}

TEST_F(Sdo, BlocksAreGivenUpAfterAnyRefusalThatIsNotAboutTheObject) {
    for (const std::uint32_t code : {0x05040001U, 0x06010000U, 0x08000000U, 0x05040002U, 0x05040005U}) {
        node.knows_blocks = false;
        node.refusal = code;
        node.objects[key_2000_01] = bytes_of(200);
        Bytes room(200);
        EXPECT_TRUE(upload(room, by(SdoMode::block)).ok());
        EXPECT_TRUE(download(bytes_of(200), by(SdoMode::block)).ok());
    }
    for (const std::uint32_t code : {0x06020000U, 0x06090011U, 0x06010001U, 0x06010002U}) {
        node.refusal = code;
        sent.clear();
        const SdoResult result = download(bytes_of(200), by(SdoMode::block));
        EXPECT_EQ(result.outcome, SdoOutcome::aborted_by_node);
        EXPECT_EQ(result.abort_code, code);
        EXPECT_EQ(sent.size(), 1U);
    }
}

TEST_F(Sdo, ANodeThatIsSilentToBlocksIsSentAnAbortAndAskedBySegments) {
    node.knows_blocks = false;
    node.refusal = 0;
    EXPECT_TRUE(download(bytes_of(200)).ok());
    EXPECT_EQ(sent[0].substr(0, 2), "C6");
    EXPECT_EQ(sent[1], "80 00 20 01 00 00 04 05");
    EXPECT_EQ(sent[2].substr(0, 2), "21");
    EXPECT_TRUE(sdo.refuses_blocks(5));
}

TEST_F(Sdo, ALateAnswerToTheBlockRequestDoesNotDisturbTheSegments) {
    node.knows_blocks = false;
    node.refusal = 0;
    node.tamper = [this](unsigned int first, Answers& answers) {
        if (first == 1) {
            answers.insert(answers.begin(), {0xA4, 0x00, 0x20, 0x01, 0x7F});
        }
    };
    EXPECT_TRUE(download(bytes_of(200)).ok());
    EXPECT_EQ(sdo.dropped().foreign, 1U);
}

TEST_F(Sdo, ALateRefusalOfTheBlockRequestDoesNotEndTheSegments) {
    node.knows_blocks = false;
    node.refusal = 0;
    node.tamper = [this](unsigned int first, Answers& answers) {
        if (first == 1) {
            answers.insert(answers.begin(), {0x80, 0x00, 0x20, 0x01, 0x01, 0x00, 0x04, 0x05});
        }
    };
    EXPECT_TRUE(download(bytes_of(200)).ok());
    EXPECT_EQ(sdo.dropped().foreign, 1U);
}

TEST_F(Sdo, ANodeThatIsGoneIsNotTakenForOneWithoutBlocks) {
    nodes.erase(5);
    EXPECT_EQ(download(bytes_of(200)).outcome, SdoOutcome::timed_out);
    EXPECT_FALSE(sdo.refuses_blocks(5));
}

TEST_F(Sdo, ASmallerBlockIsOfferedToANodeThatRefusesTheLargest) {
    node.objects[key_2000_01] = bytes_of(500);
    node.most_block_size = 20;
    Bytes room(500);
    const SdoResult result = upload(room, blocks_of(127));
    EXPECT_TRUE(result.ok());
    EXPECT_TRUE(result.by_blocks);
    EXPECT_EQ(room, bytes_of(500));
    EXPECT_EQ(sent[0].substr(12, 2), "7F");
    EXPECT_EQ(sent[1].substr(12, 2), "40");
    EXPECT_EQ(sent[2].substr(12, 2), "20");
    EXPECT_EQ(sent[3].substr(12, 2), "10");
}

TEST_F(Sdo, ANodeMayChangeItsBlockSizeEachTime) {
    unsigned int turn = 0;
    node.block_size = [&turn] { return std::array{127U, 3U, 1U, 64U, 5U}[turn++ % 5]; };
    EXPECT_TRUE(download(bytes_of(6000)).ok());
    EXPECT_EQ(node.objects[key_2000_01], bytes_of(6000));
}

TEST_F(Sdo, ABlockSizeOutOfItsRangeAborts) {
    for (const unsigned int size : {0U, 128U, 255U}) {
        node.block_size = [size] { return size; };
        const SdoResult result = download(bytes_of(200));
        EXPECT_EQ(result.outcome, SdoOutcome::aborted_by_client);
        EXPECT_EQ(result.abort_code, 0x05040002U);
        unsigned int turn = 0;
        node.block_size = [&turn, size] { return turn++ == 0 ? 4U : size; };
        EXPECT_EQ(download(bytes_of(200)).abort_code, 0x05040002U);
        turn = 0;
        EXPECT_TRUE(download(bytes_of(28), by(SdoMode::block)).ok())
            << "in the last confirmation it has no use";
    }
}

TEST_F(Sdo, TheCrcIsUsedOnlyIfBothSidesCan) {
    for (const bool node_can : {true, false}) {
        for (const bool client_can : {true, false}) {
            node.can_crc = node_can;
            SdoOptions options = blocks_of(127);
            options.crc = client_can;
            sent.clear();
            EXPECT_TRUE(download(bytes_of(20), options).ok());
            EXPECT_EQ(sent.front().substr(0, 2), client_can ? "C6" : "C2");
            EXPECT_EQ(sent.back(),
                      node_can && client_can ? "C5 61 CD 00 00 00 00 00" : "C5 00 00 00 00 00 00 00");
            Bytes room(20);
            EXPECT_TRUE(upload(room, options).ok());
        }
    }
}

TEST_F(Sdo, AWrongCrcAborts) {
    node.objects[key_2000_01] = bytes_of(20);
    node.tamper = [](unsigned int, Answers& answers) {
        if ((answers[0][0] & 0xE3) == 0xC1) {
            answers[0][2] ^= 1;
        }
    };
    Bytes room(20);
    const SdoResult result = upload(room, blocks_of(127));
    EXPECT_EQ(result.abort_code, 0x05040004U);
    EXPECT_EQ(abort_sent(), "80 00 20 01 04 00 04 05");
    SdoOptions without = blocks_of(127);
    without.crc = false;
    EXPECT_TRUE(upload(room, without).ok());
}

TEST_F(Sdo, ANodeThatConfirmsAtTheGapIsFollowed) {
    node.answers_at_gap = true;
    node.lost_requests = {5, 20, 41, 42};
    EXPECT_TRUE(download(bytes_of(2000)).ok());
    EXPECT_EQ(node.objects[key_2000_01], bytes_of(2000));
}

TEST_F(Sdo, PacedSegmentsStopWhereTheNodeTellsOfAGap) {
    sdo.set_pace(4, 1000);
    node.answers_at_gap = true;
    node.lost_requests = {3};
    EXPECT_TRUE(download(bytes_of(889)).ok());
    EXPECT_EQ(node.objects[key_2000_01], bytes_of(889));
    // 4 segments, then the node's answer to the lost second one, then all from there on.
    EXPECT_EQ(sent.size(), 1U + 4 + 126 + 1);
}

TEST_F(Sdo, SegmentsArePacedInTime) {
    sdo.set_pace(10, 2000);
    const std::uint64_t start_us = clock.now_us;
    EXPECT_TRUE(download(bytes_of(700)).ok());
    EXPECT_GE(clock.now_us - start_us, 9 * 2000U);
    EXPECT_LT(clock.now_us - start_us, 11 * 2000U);
}

TEST_F(Sdo, APausedSubBlockDoesNotTimeOut) {
    sdo.set_pace(1, 400'000);
    EXPECT_TRUE(download(bytes_of(35), by(SdoMode::block)).ok());
    sdo.set_pace(1, 900'000);
    EXPECT_TRUE(download(bytes_of(35), by(SdoMode::block)).ok()) << "the time-out is the node's";
}

TEST_F(Sdo, TheLastSegmentOfASubBlockMayBeLost) {
    node.objects[key_2000_01] = bytes_of(50);
    node.tamper = [](unsigned int first, Answers& answers) {
        if (first == 2) {
            answers.pop_back();
        }
    };
    Bytes room(50);
    const std::uint64_t start_us = clock.now_us;
    EXPECT_TRUE(upload(room, blocks_of(5)).ok());
    EXPECT_EQ(room, bytes_of(50));
    EXPECT_GE(clock.now_us - start_us, 350'000U) << "what came is confirmed after 7 tenths of the time-out";
    EXPECT_LT(clock.now_us - start_us, 400'000U);
}

TEST_F(Sdo, TheNodeHasItsWholeTimeAfterAConfirmationThatTheTimeBrought) {
    node.objects[key_2000_01] = bytes_of(50);
    node.tamper = [this](unsigned int first, Answers& answers) {
        if (first == 2) {
            answers.pop_back();
        } else if (first == 7) {
            for (const auto& answer : answers) {
                say_late(answer, 400'000);
            }
            answers.clear();
        }
    };
    Bytes room(50);
    EXPECT_TRUE(upload(room, blocks_of(5)).ok());
    EXPECT_EQ(room, bytes_of(50));
}

// The number of a segment that came again is higher than those that are still to come.
TEST_F(Sdo, EverySegmentBeginsTheTimeAgainAlsoAfterALateOne) {
    node.objects[key_2000_01] = bytes_of(70);
    node.tamper = [this](unsigned int first, Answers& answers) {
        if (first == 6) {
            say({0x03, 0x1E, 0x1F, 0x20, 0x21, 0x22, 0x23, 0x24});  // of the sub-block before
            for (std::size_t i = 0; i < answers.size(); ++i) {
                say_late(answers[i], 300'000 * (i + 1));
            }
            answers.clear();
        }
    };
    Bytes room(70);
    EXPECT_TRUE(upload(room, blocks_of(4)).ok());
    EXPECT_EQ(room, bytes_of(70));
    EXPECT_EQ(std::count(sent.begin(), sent.end(), "A2 01 04 00 00 00 00 00"), 0) << "none before its end";
}

TEST_F(Sdo, ADoubledLastSegmentBehindALostOneIsPassedOver) {
    node.objects[key_2000_01] = bytes_of(20);
    node.tamper = [](unsigned int first, Answers& answers) {
        if (first == 2) {
            answers[1] = answers[2];
        }
    };
    Bytes room(20);
    EXPECT_TRUE(upload(room, blocks_of(4)).ok());
    EXPECT_EQ(room, bytes_of(20));
    EXPECT_EQ(sdo.dropped().doubled, 1U);
    EXPECT_EQ(sdo.dropped().out_of_order, 1U);
}

// Byte 0 of a last segment with the number 65 is that of the end of the block.
TEST_F(Sdo, ADoubledLastSegmentIsNotTheEndOfTheBlock) {
    for (std::size_t segments = 60; segments <= 100; ++segments) {
        const Bytes data = bytes_of(7 * segments);
        node.objects[key_2000_01] = data;
        node.tamper = [](unsigned int, Answers& answers) {
            if (answers.size() > 1) {
                answers.push_back(answers.back());
            }
        };
        Bytes room(data.size());
        SdoOptions options = blocks_of(127);
        options.crc = segments % 2 == 0;
        EXPECT_TRUE(upload(room, options).ok()) << segments;
        EXPECT_EQ(room, data) << segments;
    }
    EXPECT_EQ(sdo.dropped().doubled, 41U);
}

TEST_F(Sdo, ALateSegmentBeforeTheEndOfTheBlockIsPassedOver) {
    node.objects[key_2000_01] = bytes_of(20);
    node.tamper = [this](unsigned int first, Answers& answers) {
        if (first == 5) {
            say({0x02, 0x17, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1D});
            say(answers[0]);
            answers.clear();
        }
    };
    Bytes room(20);
    EXPECT_TRUE(upload(room, blocks_of(4)).ok());
    EXPECT_EQ(sdo.dropped().doubled, 1U);
}

TEST_F(Sdo, ASubBlockWhoseFirstSegmentIsLostTwiceIsRepeatedTwice) {
    node.objects[key_2000_01] = bytes_of(14);
    unsigned int lost = 0;
    node.tamper = [&lost](unsigned int, Answers& answers) {
        if (answers[0][0] == 0x01 && lost < 2) {
            ++lost;
            answers.erase(answers.begin());
        }
    };
    Bytes room(14);
    EXPECT_TRUE(upload(room, blocks_of(4)).ok());
    EXPECT_EQ(room, bytes_of(14));
}

TEST_F(Sdo, LengthsThatDoNotHoldAbort) {
    node.objects[key_2000_01] = bytes_of(20);
    for (const SdoMode mode : {SdoMode::segmented, SdoMode::block}) {
        for (const auto& [told, code] : {std::pair<std::uint8_t, std::uint32_t>{19, 0x06070012},
                                         {21, 0x06070013},
                                         {0, 0x06070012},
                                         {40, 0x06070013}}) {
            node.tamper = [told = told](unsigned int first, Answers& answers) {
                if (first == 1) {
                    answers[0][4] = told;
                }
            };
            node.answered = 0;
            Bytes room(64);
            SdoOptions options = blocks_of(2);
            options.mode = mode;
            const SdoResult result = upload(room, options);
            EXPECT_EQ(result.outcome, SdoOutcome::aborted_by_client);
            EXPECT_EQ(result.abort_code, code) << static_cast<int>(told);
            EXPECT_FALSE(abort_sent().empty());
        }
    }
}

TEST_F(Sdo, MoreThanTheRoomAborts) {
    node.objects[key_2000_01] = bytes_of(20);
    for (const SdoMode mode : {SdoMode::segmented, SdoMode::block}) {
        for (const bool tells : {true, false}) {
            node.tells_size = tells;
            SdoOptions options = blocks_of(2);
            options.mode = mode;
            Bytes room(19, 0xEE);
            const SdoResult result = upload(room, options);
            EXPECT_EQ(result.abort_code, 0x05040005U);
            EXPECT_EQ(result.outcome, SdoOutcome::aborted_by_client);
        }
    }
    node.objects[key_2000_01] = bytes_of(4);
    Bytes room(2, 0xEE);
    EXPECT_EQ(upload(room).abort_code, 0x05040005U);
    EXPECT_EQ(room, Bytes(2, 0xEE));
}

TEST_F(Sdo, AnUploadThatNeverEndsIsEnded) {
    node.objects[key_2000_01] = bytes_of(20);
    node.tells_size = false;
    node.tamper = [](unsigned int first, Answers& answers) {
        if (first > 1) {
            answers[0] = {static_cast<std::uint8_t>(first % 2 == 0 ? 0x0E : 0x1E)};
        }
    };
    Bytes room(20);
    EXPECT_EQ(upload(room, by(SdoMode::segmented)).abort_code, 0x05040001U);
}

TEST_F(Sdo, ANodeThatConfirmsNothingIsGivenUp) {
    node.tamper = [](unsigned int, Answers& answers) {
        if (answers[0][0] == 0xA2) {
            answers[0][1] = 0;
        }
    };
    node.block_size = [] { return 2U; };
    const SdoResult result = download(bytes_of(200));
    EXPECT_EQ(result.outcome, SdoOutcome::aborted_by_client);
    EXPECT_EQ(result.abort_code, 0x05040003U);
}

TEST_F(Sdo, ANodeWhoseFirstSegmentNeverComesIsGivenUp) {
    node.objects[key_2000_01] = bytes_of(20);
    node.tamper = [](unsigned int, Answers& answers) {
        if (answers[0][0] == 0x01) {
            answers.erase(answers.begin());
        }
    };
    Bytes room(20);
    EXPECT_EQ(upload(room, blocks_of(4)).abort_code, 0x05040003U);
}

TEST_F(Sdo, ImpossibleSequenceNumbersAbort) {
    EXPECT_TRUE(node.aborts.empty());
    node.tamper = [](unsigned int, Answers& answers) {
        if (answers[0][0] == 0xA2) {
            answers[0][1] = 4;
        }
    };
    EXPECT_EQ(download(bytes_of(20), by(SdoMode::block)).abort_code, 0x05040003U);
    node.objects[key_2000_01] = bytes_of(20);
    for (const unsigned char first : {'\x00', '\x05', '\x7F'}) {
        node.tamper = [first](unsigned int, Answers& answers) {
            if (answers[0][0] == 0x01) {
                answers[0][0] = first;
            }
        };
        Bytes room(20);
        EXPECT_EQ(upload(room, blocks_of(4)).abort_code, 0x05040003U);
    }
}

TEST_F(Sdo, AnAbortOfTheNodeEndsTheTransferWhateverObjectItNames) {
    node.objects[key_2000_01] = bytes_of(20);
    for (const ScriptedSdoNode::Data abort :
         {ScriptedSdoNode::Data{0x80, 0x00, 0x20, 0x01, 0x21, 0x00, 0x00, 0x08},
          ScriptedSdoNode::Data{0x80, 0x00, 0x00, 0x00, 0x21, 0x00, 0x00, 0x08},
          ScriptedSdoNode::Data{0x80, 0x99, 0x60, 0x00, 0x21, 0x00, 0x00, 0x08}}) {
        for (unsigned int step = 1; step <= 3; ++step) {
            node.answered = 0;
            node.tamper = [&](unsigned int first, Answers& answers) {
                if (first == step) {
                    answers = {abort};
                }
            };
            Bytes room(20);
            const SdoResult result = upload(room, by(SdoMode::segmented));
            EXPECT_EQ(result.outcome, SdoOutcome::aborted_by_node);
            EXPECT_EQ(result.abort_code, 0x08000021U);
            EXPECT_STREQ(result.words(),
                         "Data cannot be transferred or stored to the application because of local control.");
            node.receive({0x80});
        }
    }
}

TEST_F(Sdo, AnUnknownCodeHasWordsToo) {
    node.tamper = [](unsigned int, Answers& answers) { answers = {{0x80, 0, 0x20, 1, 1, 2, 3, 4}}; };
    const SdoResult result = download(bytes_of(4));
    EXPECT_EQ(result.abort_code, 0x04030201U);
    EXPECT_STREQ(result.words(), "Unknown abort code");
}

// Time.

TEST_F(Sdo, ASilentNodeTimesOutAfterTheCallersTimeAndIsSentAnAbort) {
    nodes.erase(5);
    for (const unsigned int timeout_ms : {500U, 20U}) {
        SdoOptions options;
        options.timeout_ms = timeout_ms;
        const std::uint64_t start_us = clock.now_us;
        const SdoResult result = download(bytes_of(4), options);
        EXPECT_EQ(result.outcome, SdoOutcome::timed_out);
        EXPECT_EQ(result.abort_code, 0x05040000U);
        EXPECT_STREQ(result.words(), "The node does not answer");
        EXPECT_EQ(abort_sent(), "80 00 20 01 00 00 04 05");
        EXPECT_GE(clock.now_us - start_us, timeout_ms * 1000U);
        EXPECT_LT(clock.now_us - start_us, timeout_ms * 1000U + 100);
    }
    EXPECT_EQ(sent.size(), 4U) << "nothing is asked twice";
}

TEST_F(Sdo, TheFirstAndTheLastRequestMayTakeLonger) {
    SdoOptions options = by(SdoMode::segmented);
    options.timeout_ms = 100;
    options.slow_timeout_ms = 3000;
    for (const SdoMode mode : {SdoMode::segmented, SdoMode::block}) {
        options.mode = mode;
        for (const bool is_last : {false, true}) {
            node.answered = 0;
            node.tamper = [&](unsigned int first, Answers& answers) {
                const bool ends = answers[0][0] == 0xA1 || (mode == SdoMode::segmented && first == 4);
                if (is_last ? ends : first == 1) {
                    say_late(answers[0], 2'900'000);
                    answers.clear();
                }
            };
            EXPECT_TRUE(download(bytes_of(20), options).ok());
        }
        node.answered = 0;
        node.tamper = [&](unsigned int first, Answers& answers) {
            if (first == 2) {
                say_late(answers[0], 110'000);
                answers.clear();
            }
        };
        EXPECT_EQ(download(bytes_of(20), options).outcome, SdoOutcome::timed_out);
    }
}

TEST_F(Sdo, TheTimeBeginsAgainWithEachFrame) {
    node.tamper = [this](unsigned int, Answers& answers) {
        say_late(answers[0], 450'000);
        answers.clear();
    };
    EXPECT_TRUE(download(bytes_of(50), by(SdoMode::segmented)).ok());
}

TEST_F(Sdo, AFullQueueIsTriedAgainUntilTheTimeOut) {
    bus.write_result = -1;
    auto answering = std::move(bus.on_write);
    unsigned int refused = 0;
    bus.on_write = [&](const ScriptedFrame& frame) {
        if (++refused == 20) {
            bus.write_result = 0;
        }
        if (bus.write_result == 0) {
            answering(frame);
        }
    };
    const std::uint64_t start_us = clock.now_us;
    EXPECT_TRUE(download(bytes_of(4)).ok());
    EXPECT_EQ(refused, 20U);
    EXPECT_GE(clock.now_us - start_us, 19'000U);
    EXPECT_EQ(node.requests, 1U);
}

TEST_F(Sdo, ADriverThatTakesNothingFails) {
    bus.write_result = -1;
    bus.on_write = nullptr;
    for (const std::size_t size : {4U, 20U, 200U}) {
        const std::uint64_t start_us = clock.now_us;
        const SdoResult result = download(bytes_of(size));
        EXPECT_EQ(result.outcome, SdoOutcome::driver_failed);
        EXPECT_EQ(result.abort_code, 0U);
        EXPECT_STREQ(result.words(), "The driver does not take frames");
        EXPECT_GE(clock.now_us - start_us, 500'000U);
        EXPECT_LT(clock.now_us - start_us, 502'000U);
    }
}

TEST_F(Sdo, AQueueOfTenFramesIsFilledInOrderAndNeverSkipped) {
    auto answering = std::move(bus.on_write);
    unsigned int room = 10;
    std::uint64_t emptied_us = clock.now_us;
    bus.on_write = [&](const ScriptedFrame& frame) {
        if (clock.now_us - emptied_us > 900) {
            room = 10;
            emptied_us = clock.now_us;
        }
        bus.write_result = room > 0 ? 0 : -1;
        if (room > 0) {
            --room;
            answering(frame);
        }
    };
    EXPECT_TRUE(download(bytes_of(3000)).ok());
    EXPECT_EQ(node.objects[key_2000_01], bytes_of(3000));
    EXPECT_EQ(sdo.dropped().out_of_order, 0U);
}

TEST_F(Sdo, ADriverThatFailsInTheMiddleOfABlockEndsIt) {
    auto answering = std::move(bus.on_write);
    unsigned int count = 0;
    bus.on_write = [&](const ScriptedFrame& frame) {
        bus.write_result = ++count > 5 ? -1 : 0;
        if (bus.write_result == 0) {
            answering(frame);
        }
    };
    const std::uint64_t start_us = clock.now_us;
    EXPECT_EQ(download(bytes_of(200)).outcome, SdoOutcome::driver_failed);
    EXPECT_LT(clock.now_us - start_us, 510'000U);
}

// What is no answer.

TEST_F(Sdo, FramesThatAreNotAboutTheTransferAreCountedAndDropped) {
    node.objects[0x100000] = {1, 2, 3, 4};
    std::uint32_t value = 0;
    Ends ends;
    node.tamper = [this](unsigned int, Answers& answers) {
        bus.queue(0x585, {0x43, 0, 0x10});                    // too short
        bus.queue(0x586, {0x43, 0, 0x10, 0, 9, 9, 9, 9});     // of a node that nobody asked
        bus.queue(0x585, {0x43, 0, 0x10, 1, 9, 9, 9, 9});     // of another subindex
        bus.queue(0x585, {0x43, 1, 0x10, 0, 9, 9, 9, 9});     // of another index
        bus.queue(0x585, {0x60, 0x17, 0x10, 0, 0, 0, 0, 0});  // of another question
        bus.queue(0x605, {0x43, 0, 0x10, 0, 9, 9, 9, 9});     // no answer
        bus.queue(0x185, {0x43, 0, 0x10, 0, 9, 9, 9, 9});     // no SDO
        ScriptedFrame long_one(0x585, {0x43, 0, 0x10, 0, 9, 9, 9, 9});
        long_one.length = 9;
        bus.queue(long_one);
        say(answers[0]);
        say(answers[0]);  // once more
        answers.clear();
    };
    sdo.start_read({5, 0x1000, 0}, &value, sizeof value, ends.keep());
    run();
    EXPECT_TRUE(ends.only().ok());
    EXPECT_EQ(value, 0x04030201U);
    EXPECT_EQ(sdo.dropped().malformed, 2U);
    EXPECT_EQ(sdo.dropped().foreign, 3U);
    EXPECT_EQ(sdo.dropped().unexpected, 2U);
}

TEST_F(Sdo, ExtendedFramesRemoteRequestsAndErrorFramesAreNoAnswers) {
    node.tamper = [](unsigned int, Answers& answers) { answers.clear(); };
    Ends ends;
    sdo.start_write({5, 0x2000, 1}, "\1", 1, ends.keep());
    const std::array<unsigned char, 8> bytes{0x60, 0x00, 0x20, 0x01};
    ObservedFrame frame(ObservedFrame::Direction::received, 0x585, 8, bytes.data());
    frame.extended = true;
    sdo.frame_passed(frame);
    frame.extended = false;
    frame.remote = true;
    sdo.frame_passed(frame);
    frame.remote = false;
    frame.error = true;
    sdo.frame_passed(frame);
    EXPECT_TRUE(ends.results.empty());
    frame.error = false;
    sdo.frame_passed(frame);
    EXPECT_TRUE(ends.only().ok());
}

TEST_F(Sdo, NodeZeroHasNoAnswers) {
    bus.queue(0x580, {0x43, 0, 0x10, 0, 9, 9, 9, 9});
    driver.read_all();
    EXPECT_EQ(sdo.dropped().unexpected, 0U);
}

TEST_F(Sdo, ALateAnswerToAnEarlierRequestDoesNotDisturbTheNext) {
    node.tamper = [this](unsigned int first, Answers& answers) {
        if (first == 1) {
            say_late(answers[0], 510'000);
            answers.clear();
        } else {
            const auto right = answers[0];
            say_late(right, 50'000);
            answers.clear();
        }
    };
    node.objects[key_2000_01] = bytes_of(4);
    Ends ends;
    Bytes room(4);
    // A write that is confirmed too late, then a read of the same object: 60 is no answer to 40.
    sdo.start_write({5, 0x2000, 1}, room.data(), 4, [&](const SdoResult& result) {
        ends.results.push_back(result);
        sdo.start_read({5, 0x2000, 1}, room.data(), 4, ends.keep());
    });
    run();
    ASSERT_EQ(ends.results.size(), 2U);
    EXPECT_EQ(ends.results[0].outcome, SdoOutcome::timed_out);
    EXPECT_TRUE(ends.results[1].ok());
    EXPECT_EQ(sdo.dropped().foreign, 1U);
}

TEST_F(Sdo, ALateAbortOfAnEarlierRequestDoesNotEndTheNext) {
    node.tamper = [this](unsigned int first, Answers& answers) {
        if (first == 1) {
            say_late({0x80, 0x00, 0x20, 0x01, 0, 0, 0, 8}, 510'000);
        } else {
            say_late(answers[0], 50'000);
        }
        answers.clear();
    };
    Ends ends;
    sdo.start_write({5, 0x2000, 1}, "\1", 1, [&](const SdoResult&) {
        sdo.start_write({5, 0x2000, 2}, "\2", 1, ends.keep());
    });
    run();
    EXPECT_TRUE(ends.only().ok());
    EXPECT_EQ(sdo.dropped().foreign, 1U);
}

TEST_F(Sdo, AnAnswerThatIsNoneAbortsTheTransfer) {
    node.objects[key_2000_01] = bytes_of(20);
    struct Case {
        SdoMode mode;
        bool is_upload;
        unsigned int step;
        std::uint8_t specifier;
        std::uint32_t code;
    };
    for (const Case& c : {Case{SdoMode::segmented, true, 1, 0x60, 0x05040001},
                          {SdoMode::segmented, true, 1, 0xE0, 0x05040001},
                          {SdoMode::segmented, true, 2, 0x20, 0x05040001},
                          {SdoMode::segmented, true, 2, 0x10, 0x05030000},
                          {SdoMode::segmented, true, 3, 0x00, 0x05030000},
                          {SdoMode::segmented, false, 1, 0x40, 0x05040001},
                          {SdoMode::segmented, false, 2, 0x30, 0x05030000},
                          {SdoMode::segmented, false, 2, 0x00, 0x05040001},
                          {SdoMode::segmented, false, 3, 0x20, 0x05030000},
                          {SdoMode::block, true, 1, 0xC1, 0x05040001},
                          {SdoMode::block, false, 1, 0xA2, 0x05040001},
                          {SdoMode::block, false, 2, 0x20, 0x05040001},
                          {SdoMode::block, false, 3, 0xA2, 0x05040001},
                          {SdoMode::block, true, 5, 0x60, 0x05040001}}) {
        node.answered = 0;
        node.block_size = [] { return 127U; };
        node.tamper = [&c](unsigned int first, Answers& answers) {
            if (first == c.step) {
                answers[0][0] = c.specifier;
                answers[0][7] ^= 0xFF;  // not the answer before once more
            }
        };
        sent.clear();
        Bytes room(20);
        SdoOptions options = blocks_of(127);
        options.mode = c.mode;
        const SdoResult result = c.is_upload ? upload(room, options) : download(bytes_of(20), options);
        EXPECT_EQ(result.outcome, SdoOutcome::aborted_by_client) << c.step << " " << int{c.specifier};
        EXPECT_EQ(result.abort_code, c.code) << c.step << " " << int{c.specifier};
        EXPECT_EQ(abort_sent().substr(0, 11), "80 00 20 01");
        EXPECT_TRUE(node.is_idle());
    }
}

// Every step of every kind of transfer, disturbed in every way: it ends once, and what has ended well is right.
TEST_F(Sdo, WhateverHappensAtWhateverStepATransferEndsOnceAndIsNeverWrong) {
    using Fault = std::function<void(Sdo&, Answers&)>;
    struct Named {
        const char* name;
        bool harmless;  // the transfer ends well all the same
        Fault fault;
    };
    const std::vector<Named> faults = {
        {"silent", false, [](Sdo&, Answers& answers) { answers.clear(); }},
        {"only the first lost", false, [](Sdo&, Answers& answers) { answers.erase(answers.begin()); }},
        {"only the last lost", false, [](Sdo&, Answers& answers) { answers.pop_back(); }},
        {"all doubled", true,
         [](Sdo&, Answers& answers) {
             Answers twice;
             for (const auto& answer : answers) {
                 twice.push_back(answer);
                 twice.push_back(answer);
             }
             answers = twice;
         }},
        {"foreign before", true,
         [](Sdo& test, Answers&) {
             test.bus.queue(0x586, {0x60, 0x00, 0x20, 0x01, 0, 0, 0, 0});
             test.bus.queue(0x585, {0x60, 0x00});
         }},
        {"late", false,
         [](Sdo& test, Answers& answers) {
             test.say_late(answers[0], 600'000);
             answers.clear();
         }},
        {"slow", true,
         [](Sdo& test, Answers& answers) {
             for (const auto& answer : answers) {
                 test.say_late(answer, 300'000);
             }
             answers.clear();
         }},
        {"abort", false,
         [](Sdo&, Answers& answers) {
             answers = {{0x80, 0x00, 0x20, 0x01, 0, 0, 0, 8}};
         }},
        {"other specifier", false, [](Sdo&, Answers& answers) { answers[0][0] ^= 0xE0; }},
        {"other toggle or number", false, [](Sdo&, Answers& answers) { answers[0][0] ^= 0x10; }},
        {"other data", false, [](Sdo&, Answers& answers) { answers.back()[6] ^= 0x01; }},
        {"other index", false, [](Sdo&, Answers& answers) { answers[0][1] ^= 0x40; }},
        {"restarted", false,
         [](Sdo& test, Answers& answers) {
             answers.clear();
             test.node.receive({0x80});
         }},
    };
    for (const SdoMode mode : {SdoMode::automatic, SdoMode::segmented, SdoMode::block}) {
        for (const bool is_upload : {true, false}) {
            for (const Named& named : faults) {
                for (unsigned int step = 1; step <= 12; ++step) {
                    SCOPED_TRACE(std::string(named.name) + " at step " + std::to_string(step) +
                                 (is_upload ? " of an upload" : " of a download") + " in mode " +
                                 std::to_string(static_cast<int>(mode)));
                    const Bytes data = mode == SdoMode::automatic ? bytes_of(4) : bytes_of(60);
                    node.objects[key_2000_01] = is_upload ? data : Bytes{};
                    node.answered = 0;
                    node.writes = 0;
                    node.block_size = [] { return 4U; };
                    bool struck = false;
                    bool strikes_data = false;
                    node.tamper = [&](unsigned int first, Answers& answers) {
                        if (first <= step && step < first + answers.size() && !struck) {
                            struck = true;
                            strikes_data = is_upload;
                            named.fault(*this, answers);
                        }
                    };
                    Bytes room(60);
                    SdoOptions options = blocks_of(4);
                    options.mode = mode;
                    const SdoResult result = is_upload ? upload(room, options) : download(data, options);
                    if (named.harmless || !struck) {
                        EXPECT_TRUE(result.ok()) << result.words();
                    }
                    const bool checked = mode == SdoMode::block || !strikes_data;
                    if (result.ok() && is_upload && checked) {
                        EXPECT_EQ(
                            Bytes(room.begin(), room.begin() + static_cast<std::ptrdiff_t>(data.size())),
                            data);
                    }
                    if (result.ok() && !is_upload) {
                        EXPECT_EQ(node.objects[key_2000_01], data);
                        EXPECT_EQ(node.writes, 1U);
                    }
                    EXPECT_EQ(sdo.active(), 0U);
                    node.receive({0x80});
                    // The next transfer is not disturbed.
                    node.tamper = nullptr;
                    Bytes next = bytes_of(30, 0x77);
                    EXPECT_TRUE(download(next, by(SdoMode::segmented)).ok());
                    EXPECT_EQ(node.objects[key_2000_01], next);
                }
            }
        }
    }
}

TEST_F(Sdo, AnyLostFrameOfTheClientEndsTheTransferOnceAndNeverWrong) {
    for (const SdoMode mode : {SdoMode::automatic, SdoMode::segmented, SdoMode::block}) {
        for (const bool is_upload : {true, false}) {
            for (unsigned int step = 1; step <= 20; ++step) {
                const Bytes data = mode == SdoMode::automatic ? bytes_of(4) : bytes_of(60);
                node.objects[key_2000_01] = is_upload ? data : Bytes{};
                node.requests = 0;
                node.lost_requests = {step};
                node.block_size = [] { return 4U; };
                Bytes room(60);
                SdoOptions options = blocks_of(4);
                options.mode = mode;
                const SdoResult result = is_upload ? upload(room, options) : download(data, options);
                if (result.ok()) {
                    room.resize(data.size());
                    EXPECT_EQ(is_upload ? room : node.objects[key_2000_01], data);
                }
                node.lost_requests.clear();
                node.receive({0x80});
            }
        }
    }
}

// Several at once, ends, and what the caller may do.

TEST_F(Sdo, ManyNodesAreAskedAtOnce) {
    std::vector<std::uint32_t> values(128);
    Ends ends;
    for (unsigned int number = 1; number <= 127; ++number) {
        add(number).objects[0x100000] = {static_cast<std::uint8_t>(number), 0, 0, 0};
        EXPECT_EQ(sdo.start_read({number, 0x1000, 0}, &values[number], 4, ends.keep()), 0);
    }
    EXPECT_EQ(sdo.active(), 127U);
    EXPECT_EQ(sent.size(), 127U);
    run();
    EXPECT_EQ(ends.results.size(), 127U);
    for (unsigned int number = 1; number <= 127; ++number) {
        EXPECT_EQ(values[number], number);
    }
}

TEST_F(Sdo, OneTransferPerNodeAndOnlyNodes1To127) {
    Ends ends;
    EXPECT_EQ(sdo.start_write({0, 0x2000, 1}, "\1", 1, ends.keep()), -1);
    EXPECT_EQ(sdo.start_write({128, 0x2000, 1}, "\1", 1, ends.keep()), -1);
    EXPECT_EQ(sdo.start_write({5, 0x2000, 1}, nullptr, 1, ends.keep()), -1);
    EXPECT_EQ(sdo.start_read({5, 0x2000, 1}, nullptr, 1, ends.keep()), -1);
    EXPECT_EQ(sdo.start_write({5, 0x2000, 1}, "\1", 1, ends.keep()), 0);
    EXPECT_EQ(sdo.start_write({5, 0x2000, 2}, "\1", 1, ends.keep()), -1);
    run();
    EXPECT_TRUE(ends.only().ok());
    EXPECT_FALSE(sdo.busy(0));
    EXPECT_FALSE(sdo.busy(128));
}

TEST_F(Sdo, TheCallbackMayStartTheNextTransferWithTheSameNode) {
    unsigned int count = 0;
    std::function<void(const SdoResult&)> next = [&](const SdoResult& result) {
        EXPECT_TRUE(result.ok());
        if (++count < 5) {
            sdo.start_write({5, 0x2000, static_cast<std::uint8_t>(count)}, &count, 4,
                            [&](const SdoResult& end) { next(end); });
        }
    };
    sdo.start_write({5, 0x2000, 0}, &count, 4, [&](const SdoResult& end) { next(end); });
    run();
    EXPECT_EQ(count, 5U);
    EXPECT_EQ(node.writes, 5U);
}

TEST_F(Sdo, CancelTellsTheNodeAndCallsTheCallbackOnce) {
    Ends ends;
    nodes.erase(5);
    sdo.start_write({5, 0x2000, 1}, "\1", 1, ends.keep());
    sdo.cancel(5);
    sdo.cancel(5);
    sdo.cancel(6);
    sdo.cancel(200);
    EXPECT_EQ(ends.only().outcome, SdoOutcome::cancelled);
    EXPECT_EQ(ends.only().abort_code, 0x08000000U);
    EXPECT_STREQ(ends.only().words(), "Cancelled");
    EXPECT_EQ(abort_sent(), "80 00 20 01 00 00 00 08");
    EXPECT_EQ(sdo.next_deadline(), no_deadline);
}

TEST_F(Sdo, AnObserverOfAnyFrameMayCancelTheTransferAndStartTheNext) {
    struct : FrameObserver {
        void frame_passed(const ObservedFrame& frame) override {
            if (frame.direction == ObservedFrame::Direction::sent && frame.data[0] != 0x80 && left != 0 &&
                --left == 0) {
                cancel();
            }
        }
        std::function<void()> cancel;
        unsigned int left = 0;
    } observer;
    driver.add_observer(observer);
    for (const SdoMode mode : {SdoMode::automatic, SdoMode::segmented, SdoMode::block}) {
        for (const bool is_upload : {true, false}) {
            for (unsigned int step = 1; step <= 20; ++step) {
                const Bytes data = mode == SdoMode::automatic ? bytes_of(4) : bytes_of(60);
                node.objects[key_2000_01] = is_upload ? data : Bytes{};
                node.block_size = [] { return 4U; };
                Bytes room(60);
                Ends ends;
                Ends next;
                std::uint32_t value = 0;
                node.objects[0x100000] = {1, 0, 0, 0};
                observer.left = step;
                observer.cancel = [&] {
                    sdo.cancel(5);
                    EXPECT_EQ(sdo.start_read({5, 0x1000, 0}, &value, 4, next.keep()), 0);
                };
                SdoOptions options = blocks_of(4);
                options.mode = mode;
                if (is_upload) {
                    sdo.start_read({5, 0x2000, 1}, room.data(), room.size(), ends.keep(), options);
                } else {
                    sdo.start_write({5, 0x2000, 1}, data.data(), data.size(), ends.keep(), options);
                }
                run();
                EXPECT_EQ(ends.results.size(), 1U);
                EXPECT_EQ(next.results.size(), observer.left == 0 ? 1U : 0U);
                if (observer.left == 0) {
                    EXPECT_TRUE(next.only().ok()) << next.only().words() << " " << step;
                    EXPECT_EQ(sent.back(), "40 00 10 00 00 00 00 00") << "nothing of the transfer before";
                }
                EXPECT_EQ(sdo.active(), 0U);
                EXPECT_FALSE(sdo.busy(5));
                observer.left = 0;
                node.receive({0x80});
                EXPECT_TRUE(download(bytes_of(30), by(SdoMode::segmented)).ok()) << step;
            }
        }
    }
    driver.remove_observer(observer);
}

TEST_F(Sdo, ACancelledTransferThatTheNodeNeverSawSendsNothing) {
    Ends ends;
    bus.write_result = -1;
    bus.on_write = nullptr;
    sdo.start_write({5, 0x2000, 1}, "\1", 1, ends.keep());
    bus.written.clear();
    sdo.cancel(5);
    EXPECT_EQ(ends.only().outcome, SdoOutcome::cancelled);
    EXPECT_EQ(ends.only().abort_code, 0U);
    EXPECT_TRUE(bus.written.empty());
}

TEST_F(Sdo, DestroyingTheClientEndsItsTransfers) {
    Ends ends;
    {
        SdoClient other(driver);
        other.start_write({9, 0x2000, 1}, "\1", 1, [&](const SdoResult& result) {
            ends.results.push_back(result);
            EXPECT_EQ(other.start_write({9, 0x2000, 1}, "\1", 1, {}), -1);
        });
        bus.write_result = -1;
    }
    EXPECT_EQ(ends.only().outcome, SdoOutcome::cancelled);
    EXPECT_EQ(driver.observer_count(), 1U);
}

TEST_F(Sdo, AnEmptyCallbackIsNotCalled) {
    EXPECT_EQ(sdo.start_write({5, 0x2000, 1}, "\1", 1, {}), 0);
    run();
    EXPECT_EQ(node.writes, 1U);
}

TEST_F(Sdo, ADriverWithoutRoomForTheClientEndsTheProcess) {
    const ChildResult result = run_in_child([this] {
        std::vector<std::unique_ptr<SdoClient>> clients;
        for (int i = 0; i < 8; ++i) {
            clients.push_back(std::make_unique<SdoClient>(driver));
        }
    });
    EXPECT_EQ(result.err, "nodevik/nodes/sdoclient: Assertion failed: is_observing\n");
}

TEST_F(Sdo, WaitingCallsReadTheBusThemselves) {
    node.objects[key_2000_01] = bytes_of(300);
    Bytes room(300);
    EXPECT_TRUE(sdo.read({5, 0x2000, 1}, room.data(), room.size()).ok());
    EXPECT_EQ(room, bytes_of(300));
    EXPECT_TRUE(sdo.write({5, 0x2000, 2}, room.data(), room.size()).ok());
    Collector sink;
    EXPECT_TRUE(sdo.read({5, 0x2000, 2}, sink).ok());
    EXPECT_EQ(sink.bytes, bytes_of(300));
    Provider source;
    source.bytes = bytes_of(30);
    EXPECT_TRUE(sdo.write({5, 0x2000, 2}, source).ok());
    EXPECT_EQ(node.objects[0x200002], bytes_of(30));
    const SdoResult refused = sdo.write({0, 0x2000, 2}, source);
    EXPECT_EQ(refused.outcome, SdoOutcome::cancelled);
    SdoOptions options;
    options.timeout_ms = 5;
    EXPECT_EQ(sdo.read({77, 0x2000, 1}, room.data(), room.size(), options).outcome, SdoOutcome::timed_out);
}

TEST_F(Sdo, WaitingCallsReadByTheReaderThatIsSet) {
    unsigned int calls = 0;
    sdo.set_reader([&] {
        ++calls;
        driver.read_all();
    });
    node.objects[key_2000_01] = bytes_of(20);
    Bytes room(20);
    EXPECT_TRUE(sdo.read({5, 0x2000, 1}, room.data(), room.size()).ok());
    EXPECT_GT(calls, 0U);
}

TEST_F(Sdo, NothingIsAllocatedAfterTheConstruction) {
    // A node of the simplest kind, which allocates nothing itself.
    struct : ScriptedCanDriver {
        int read(unsigned int& ID, unsigned int& length, unsigned char* data) override {
            if (!waiting) {
                return 1;
            }
            waiting = false;
            ID = 0x585;
            length = 8;
            std::copy_n(answer.begin(), 8, data);
            return 0;
        }
        int write(unsigned int, unsigned int, unsigned char* data, unsigned int) override {
            std::copy_n(data, 8, answer.begin());
            const unsigned char first = data[0];
            answer[0] = first == 0xC6   ? 0xA4
                        : first == 0xA4 ? 0xC6
                        : first == 0x40 ? 0x43
                        : first == 0xC1 ? 0xA1
                                        : 0x60;
            if (first == 0xC6) {
                answer[4] = 127;
            }
            if ((first & 0x80) != 0 && first < 0xA0) {
                answer = {0xA2, static_cast<unsigned char>(first & 0x7F), 127};
            }
            waiting = first == 0xC6 || first == 0x40 || first == 0x23 || (first & 0x80) != 0;
            return 0;
        }
        std::array<unsigned char, 8> answer{};
        bool waiting = false;
    } quiet;
    ObservedDriver front(quiet);
    SdoClient client(front);
    const Bytes data = bytes_of(889 - 3);
    struct {
        unsigned int ended = 0;
        unsigned int right = 0;
    } ends;
    const unsigned long before = allocations();
    std::uint32_t value = 0;
    const auto count = [&ends](const SdoResult& result) {
        ++ends.ended;
        ends.right += result.ok() ? 1 : 0;
    };
    client.start_read({5, 0x1000, 0}, &value, sizeof value, count);
    front.read_all();
    client.start_write({5, 0x1000, 0}, &value, sizeof value, count);
    front.read_all();
    client.start_write({5, 0x1000, 0}, data.data(), 886, count);
    front.read_all();
    front.read_all();
    front.read_all();
    client.process(monotonic_ns());
    const unsigned long after = allocations();
    EXPECT_EQ(after, before);
    EXPECT_EQ(ends.ended, 3U);
    EXPECT_GE(ends.right, 2U);
}
