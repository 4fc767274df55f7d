// Scans of a bus: nodes that a test plays frame by frame behind a transmit queue of ten frames, the clock in its hands; and
// node-simulator over UDP.

#include "nodevik/nodes/nodescan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "nodevik/util/monotonicclock.h"
#include "tests/support/childprocess.h"
#include "tests/support/scriptedcandriver.h"
#include "tests/support/scriptedclock.h"
#include "tests/support/scriptedsdonode.h"

namespace {

using Bytes = ScriptedSdoNode::Bytes;

constexpr std::size_t queue_room = 10;

Bytes text(const std::string& words) {
    return {words.begin(), words.end()};
}

Bytes number(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
            static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
}

// A bus with the scan at one end of it. What is sent waits in a queue that holds ten frames, and leaves it one frame time
// after the other; a node hears it then, and answers at once.
class Scan : public testing::Test {
protected:
    Scan() {
        wire.on_write = [this](const ScriptedFrame& frame) {
            drain();
            const bool is_full = blocked || queue.size() >= queue_room;
            refusals += is_full ? 1 : 0;
            wire.write_result = is_full ? -1 : 0;
            if (!is_full) {
                if (queue.empty()) {
                    next_us = clock.now_us + frame_us;
                }
                queue.push_back(frame);
                most_queued = std::max(most_queued, queue.size());
            }
        };
    }

    // A scan that is destroyed still sends, when the queue is gone.
    ~Scan() override { wire.on_write = nullptr; }

    ScriptedSdoNode& add(unsigned int node, std::uint32_t device_type = 0xF0191) {
        ScriptedSdoNode& made = nodes.emplace(node, ScriptedSdoNode())->second;
        made.objects[0x100000] = number(device_type);
        return made;
    }

    ScriptedSdoNode& add_whole(unsigned int node) {
        ScriptedSdoNode& made = add(node);
        made.objects[0x101801] = number(0x1F1);
        made.objects[0x101802] = number(0x401);
        made.objects[0x101803] = number(0x10002);
        made.objects[0x101804] = number(1000 + node);
        made.objects[0x100800] = text("pump drive");
        made.objects[0x100900] = text("B");
        made.objects[0x100A00] = text("2.07");
        return made;
    }

    // Brings the frames whose time has come to the nodes.
    void drain() {
        while (!queue.empty() && clock.now_us >= next_us) {
            const ScriptedFrame frame = queue.front();
            queue.pop_front();
            next_us += frame_us;
            heard.push_back(frame);
            const auto [begin, end] = nodes.equal_range(frame.cobid - 0x600);
            for (auto node = begin; node != end; ++node) {
                for (const auto& data : node->second.receive(frame.data)) {
                    ScriptedFrame answer(0x580 + node->first, {});
                    answer.length = 8;
                    answer.data = data;
                    wire.queue(answer);
                }
            }
        }
    }

    void run() {
        for (int turn = 0; turn < 200'000 && scan.busy(); ++turn) {
            drain();
            driver.read_all();
            sdo.process(monotonic_ns());
            scan.process(monotonic_ns());
            if (wire.pending() == 0) {
                std::uint64_t next = std::min(scan.next_deadline(), sdo.next_deadline());
                next = queue.empty() ? next : std::min(next, next_us * 1000);
                if (next != no_deadline) {
                    clock.now_us = std::max(clock.now_us, (next + 999) / 1000);
                }
            }
        }
        ASSERT_FALSE(scan.busy());
    }

    NodeScan::Found note() {
        return [this](const ScannedNode& node) { found.push_back(node); };
    }
    NodeScan::Callback end() {
        return [this](const NodeScanResult& ended) { results.push_back(ended); };
    }

    // A scan from its beginning to its end.
    NodeScanResult asked(const NodeScanOptions& options = {}) {
        EXPECT_EQ(scan.start_asking(note(), end(), options), 0);
        run();
        EXPECT_EQ(results.size(), 1U);
        return results.empty() ? NodeScanResult() : results.back();
    }

    // How often each object of a node was asked for.
    std::map<std::string, int> questions(unsigned int node) const {
        std::map<std::string, int> counts;
        for (const ScriptedFrame& frame : heard) {
            if (frame.cobid == 0x600 + node && frame.data[0] == 0x40) {
                char name[16];
                std::snprintf(name, sizeof name, "%02X%02X:%02X", frame.data[2], frame.data[1],
                              frame.data[3]);
                ++counts[name];
            }
        }
        return counts;
    }

    static NodeScanOptions only(unsigned int first, unsigned int last) {
        NodeScanOptions options;
        options.first = first;
        options.last = last;
        return options;
    }

    ScriptedClock clock;
    ScriptedCanDriver wire;
    ObservedDriver driver{wire};
    SdoClient sdo{driver};
    NodeScan scan{driver, sdo};

    std::multimap<unsigned int, ScriptedSdoNode> nodes;
    std::deque<ScriptedFrame> queue;
    std::uint64_t frame_us = 1000;  // 8 bytes at 125 kbit/s
    std::uint64_t next_us = 0;
    std::size_t most_queued = 0;
    unsigned long refusals = 0;
    bool blocked = false;
    std::vector<ScriptedFrame> heard;
    std::vector<ScannedNode> found;
    std::vector<NodeScanResult> results;
    ScriptedSdoNode::Answers late;
};

}  // namespace

TEST_F(Scan, AsksEveryNumberOnceAndFindsWhoAnswers) {
    add_whole(1);
    add_whole(64);
    add_whole(127);
    const NodeScanResult result = asked();
    EXPECT_TRUE(result.ok());
    EXPECT_EQ(result.found, 3U);
    EXPECT_EQ(result.answering, 3U);
    ASSERT_EQ(found.size(), 3U);
    for (unsigned int node = 1; node <= 127; ++node) {
        EXPECT_EQ(questions(node)["1000:00"], 1) << node;
    }
    const ScannedNode last = scan.nodes().back();
    EXPECT_EQ(last.node, 127U);
    EXPECT_TRUE(last.answers);
    EXPECT_EQ(last.device_type, 0xF0191U);
    EXPECT_EQ(last.vendor, 0x1F1U);
    EXPECT_EQ(last.product, 0x401U);
    EXPECT_EQ(last.revision, 0x10002U);
    EXPECT_EQ(last.serial, 1127U);
    EXPECT_EQ(last.name, "pump drive");
    EXPECT_EQ(last.hardware_version, "B");
    EXPECT_EQ(last.software_version, "2.07");
    EXPECT_FALSE(last.is_duplicate);
    EXPECT_FALSE(last.is_repeated);
    EXPECT_STREQ(result.words(), "done");
}

TEST_F(Scan, AQueueOfTenFramesNeverOverflowsAtTheSpeedThatIsTold) {
    for (unsigned int node = 1; node <= 127; node += 3) {
        add_whole(node);
    }
    EXPECT_EQ(asked().found, 43U);
    EXPECT_EQ(refusals, 0U);
    EXPECT_LE(most_queued, queue_room);
}

TEST_F(Scan, AllNumbersTogetherCostOneTimeOut) {
    const std::uint64_t begun = clock.now_us;
    EXPECT_EQ(asked().found, 0U);
    EXPECT_LE(clock.now_us - begun, 500'000U + 127 * 1250 + 10'000);
}

TEST_F(Scan, WhatASlowBusRefusesIsSentLaterAndNobodyIsLeftOut) {
    frame_us = 13'500;  // 10 kbit/s: 127 requests take 1.7 s
    for (unsigned int node = 1; node <= 127; node += 2) {
        add(node);
    }
    NodeScanOptions options;
    options.identity = false;
    options.names = false;
    options.burst = 100;
    EXPECT_EQ(asked(options).answering, 64U);
    EXPECT_GT(refusals, 0U);
    for (unsigned int node = 1; node <= 127; ++node) {
        EXPECT_EQ(questions(node)["1000:00"], 1) << node;
    }
}

TEST_F(Scan, ADriverThatTakesNothingForAWhileIsWaitedFor) {
    add(5);
    blocked = true;
    ASSERT_EQ(scan.start_asking(note(), end(), only(5, 6)), 0);
    // Longer than the time-out of a request.
    for (int i = 0; i < 190; ++i) {
        clock.now_us += 10'000;
        sdo.process(monotonic_ns());
        scan.process(monotonic_ns());
    }
    blocked = false;
    run();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].node, 5U);
    EXPECT_TRUE(found[0].answers);
}

TEST_F(Scan, ADriverThatNeverTakesAFrameEndsIt) {
    blocked = true;
    const std::uint64_t begun = clock.now_us;
    const NodeScanResult result = asked();
    EXPECT_EQ(result.outcome, NodeScanOutcome::driver_failed);
    EXPECT_STREQ(result.words(), "the driver took no frame");
    EXPECT_GE(clock.now_us - begun, 2'000'000U);
    EXPECT_EQ(sdo.active(), 0U) << "nothing goes on behind it";
}

TEST_F(Scan, ObjectsThatANodeDoesNotHaveAreMissing) {
    add(9).objects[0x101801] = number(0x1F1);
    EXPECT_EQ(asked(only(9, 9)).answering, 1U);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].vendor, 0x1F1U);
    EXPECT_FALSE(found[0].product);
    EXPECT_FALSE(found[0].revision);
    EXPECT_FALSE(found[0].serial);
    EXPECT_EQ(found[0].name, "");
    EXPECT_EQ(questions(9).size(), 8U) << "each was asked for";
}

TEST_F(Scan, ANodeThatOnlyAbortsIsThere) {
    nodes.emplace(7, ScriptedSdoNode());
    EXPECT_EQ(asked(only(1, 10)).answering, 1U);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].node, 7U);
    EXPECT_TRUE(found[0].answers);
    EXPECT_FALSE(found[0].device_type);
}

TEST_F(Scan, AsksOnlyWhatItIsToAsk) {
    add_whole(7);
    NodeScanOptions options = only(7, 7);
    options.names = false;
    asked(options);
    EXPECT_EQ(questions(7).size(), 5U);
    EXPECT_EQ(found.back().serial, 1007U);
    EXPECT_EQ(found.back().name, "");
    heard.clear();
    results.clear();
    options.names = true;
    options.identity = false;
    asked(options);
    EXPECT_EQ(questions(7).size(), 4U);
    EXPECT_FALSE(found.back().vendor);
    EXPECT_EQ(found.back().name, "pump drive");
}

TEST_F(Scan, AsksOnlyTheRange) {
    add(4);
    add(5);
    add(6);
    add(7);
    EXPECT_EQ(asked(only(5, 6)).found, 2U);
    EXPECT_TRUE(questions(4).empty());
    EXPECT_TRUE(questions(7).empty());
}

TEST_F(Scan, NumbersOutOfRangeAreRefused) {
    for (const auto& [first, last] : {std::pair<unsigned, unsigned>{0, 5}, {5, 128}, {6, 5}}) {
        EXPECT_EQ(scan.start_asking(note(), end(), only(first, last)), -1);
    }
    EXPECT_FALSE(scan.busy());
    EXPECT_TRUE(wire.written.empty());
    EXPECT_EQ(scan.next_deadline(), no_deadline);
}

TEST_F(Scan, OneScanAtATime) {
    ASSERT_EQ(scan.start_asking(note()), 0);
    EXPECT_EQ(scan.start_asking(note()), -1);
    EXPECT_EQ(scan.start_listening(1, note()), -1);
}

TEST_F(Scan, NamesAreCutAtTheirEndAndReadAsText) {
    ScriptedSdoNode& node = add(5);
    node.objects[0x100800] = text(std::string("R\xFChrwerk\0\0x", 11));
    node.objects[0x100900] = text(std::string(300, 'h'));
    node.objects[0x100A00] = text("");
    asked(only(5, 5));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].name, "R\xC3\xBChrwerk") << "Latin-1 becomes UTF-8";
    EXPECT_EQ(found[0].hardware_version, std::string(255, 'h'));
    EXPECT_EQ(found[0].software_version, "");
}

TEST_F(Scan, HalfANameIsNone) {
    ScriptedSdoNode& node = add(5);
    node.objects[0x100800] = text("a name of several segments");
    node.tamper = [](unsigned int, ScriptedSdoNode::Answers& answers) {
        if (!answers.empty() && answers[0][0] == 0x10) {
            answers.clear();  // the second segment never comes
        }
    };
    asked(only(5, 5));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].name, "");
}

TEST_F(Scan, ShortNumbersAreWhatTheyAreAndLongOnesMissing) {
    ScriptedSdoNode& node = add(5);
    node.objects[0x101801] = {0xF1, 0x01};
    node.objects[0x101802] = {1, 2, 3, 4, 5};
    asked(only(5, 5));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].vendor, 0x1F1U);
    EXPECT_FALSE(found[0].product);
}

TEST_F(Scan, ANodeThatFallsSilentIsAskedTwoMoreQuestionsAtMost) {
    ScriptedSdoNode& node = add_whole(5);
    node.tamper = [](unsigned int first, ScriptedSdoNode::Answers& answers) {
        if (first > 2) {
            answers.clear();
        }
    };
    asked(only(5, 5));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].vendor, 0x1F1U);
    EXPECT_FALSE(found[0].product);
    EXPECT_EQ(questions(5).size(), 4U);
}

TEST_F(Scan, ANodeThatIgnoresOneQuestionIsAskedTheNext) {
    ScriptedSdoNode& node = add_whole(5);
    node.tamper = [](unsigned int, ScriptedSdoNode::Answers& answers) {
        if (!answers.empty() && answers[0][2] == 0x10 && answers[0][1] == 0x18 && answers[0][3] == 2) {
            answers.clear();
        }
    };
    asked(only(5, 5));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_FALSE(found[0].product);
    EXPECT_EQ(found[0].revision, 0x10002U);
    EXPECT_EQ(found[0].name, "pump drive");
}

TEST_F(Scan, AsksAgainAsOftenAsToldWhenNoAnswerComes) {
    ScriptedSdoNode& node = add(5);
    node.lost_requests = {1, 3};  // the second is the abort
    NodeScanOptions options = only(5, 6);
    options.attempts = 3;
    options.identity = options.names = false;
    EXPECT_EQ(asked(options).answering, 1U);
    EXPECT_EQ(questions(5)["1000:00"], 3);
    EXPECT_EQ(questions(6)["1000:00"], 3);
}

TEST_F(Scan, TellsTwoNodesThatDiffer) {
    add_whole(5);
    add_whole(5).objects[0x101804] = number(77);
    asked(only(5, 6));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_TRUE(found[0].is_duplicate);
    EXPECT_TRUE(found[0].is_repeated);
}

TEST_F(Scan, TellsTwoNodesOfWhichOneHasNotTheObject) {
    add_whole(5);
    add_whole(5).objects.erase(0x101804);
    asked(only(5, 5));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_TRUE(found[0].is_duplicate);
}

TEST_F(Scan, TwoNodesThatAnswerAlikeAreARepetition) {
    add(5);
    add(5);
    NodeScanOptions options = only(5, 5);
    options.names = options.identity = false;
    asked(options);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_FALSE(found[0].is_duplicate);
    EXPECT_TRUE(found[0].is_repeated);
}

TEST_F(Scan, TheSecondOfTwoNodesMayAnswerLater) {
    add(5);
    NodeScanOptions options = only(5, 5);
    options.names = options.identity = false;
    ASSERT_EQ(scan.start_asking(note(), end(), options), 0);
    clock.now_us += 2000;
    drain();
    driver.read_all();
    clock.now_us += 40'000;
    scan.process(monotonic_ns());
    EXPECT_TRUE(found.empty());
    wire.queue(0x585, {0x43, 0x00, 0x10, 0x00, 0x92, 0x01, 0, 0});
    run();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_TRUE(found[0].is_duplicate);
}

TEST_F(Scan, AnAnswerThatWasAskedForTwiceIsNoSecondNode) {
    ScriptedSdoNode& node = add(5);
    node.tamper = [this](unsigned int, ScriptedSdoNode::Answers& answers) {
        if (late.empty()) {
            late = answers;
            answers.clear();
        } else {
            answers.insert(answers.begin(), late.begin(), late.end());
        }
    };
    NodeScanOptions options = only(5, 5);
    options.attempts = 2;
    options.names = options.identity = false;
    asked(options);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_FALSE(found[0].is_duplicate);
    EXPECT_FALSE(found[0].is_repeated);
}

TEST_F(Scan, ANodeThatIsOnlyHeardIsTold) {
    for (const auto& [frame, evidence] :
         {std::pair{ScriptedFrame(0x705, {0}), scan_heard_boot_up},
          {ScriptedFrame(0x705, {4}), scan_heard_error_control},
          {ScriptedFrame(0x085, {0, 0, 0, 0, 0, 0, 0, 0}), scan_heard_emergency},
          {ScriptedFrame(0x185, {1}), scan_heard_process_data},
          {ScriptedFrame(0x485, {1}), scan_heard_process_data},
          {ScriptedFrame(0x585, {0x80, 0, 0, 0, 0, 0, 0, 8}), scan_heard_service_answer}}) {
        found.clear();
        results.clear();
        wire.queue(frame);
        EXPECT_EQ(asked(only(1, 10)).found, 1U) << frame.cobid;
        EXPECT_EQ(results[0].answering, 0U);
        ASSERT_EQ(found.size(), 1U) << frame.cobid;
        EXPECT_EQ(found[0].node, 5U);
        EXPECT_FALSE(found[0].answers);
        EXPECT_EQ(found[0].heard, static_cast<unsigned int>(evidence));
    }
}

TEST_F(Scan, FramesThatNoNodeOfThatNumberSendsAreNoEvidence) {
    wire.queue(0x080, {});
    wire.queue(0x205, {1});  // RPDOs and requests come from masters
    wire.queue(0x505, {1});
    wire.queue(0x605, {0x40, 0, 0x10, 0, 0, 0, 0, 0});
    wire.queue(0x705, {0, 0});
    wire.queue(0x785, {0});
    wire.queue(0x7E4, {0x4F, 0, 0, 0, 0, 0, 0, 0});
    wire.queue(0x100, {0, 0, 0, 0, 0, 0});
    wire.queue(0x000, {1, 5});
    wire.queue(0x700, {5});
    ASSERT_EQ(scan.start_listening(100, note(), end()), 0);
    run();
    EXPECT_TRUE(found.empty());
}

TEST_F(Scan, ListeningSendsNothingAndTellsEachNodeOnce) {
    ASSERT_EQ(scan.start_listening(1000, note(), end()), 0);
    EXPECT_EQ(scan.next_deadline(), (clock.now_us - 1) * 1000 + 1'000'000'000U);
    wire.queue(0x705, {0});
    wire.queue(0x705, {0x7F});
    wire.queue(0x187, {1, 2});
    driver.read_all();
    ASSERT_EQ(found.size(), 2U) << "at once";
    EXPECT_EQ(found[0].node, 5U);
    EXPECT_EQ(found[1].node, 7U);
    EXPECT_TRUE(results.empty());
    run();
    EXPECT_TRUE(wire.written.empty());
    ASSERT_EQ(results.size(), 1U);
    EXPECT_TRUE(results[0].ok());
    EXPECT_EQ(results[0].found, 2U);
    EXPECT_EQ(results[0].answering, 0U);
    ASSERT_EQ(scan.nodes().size(), 2U);
    EXPECT_EQ(scan.nodes()[0].heard, scan_heard_boot_up | scan_heard_error_control);
    EXPECT_EQ(found.size(), 2U);
}

TEST_F(Scan, OwnFramesAreNotHeard) {
    scan.start_listening(100, note(), end());
    unsigned char data[8] = {0x7F};
    driver.write(0x705, 1, data, 0);
    run();
    EXPECT_TRUE(found.empty());
}

TEST_F(Scan, ProgressIsToldForEachNumber) {
    add_whole(2);
    std::vector<std::pair<unsigned, unsigned>> told;
    scan.set_progress([&told](unsigned done, unsigned total) { told.emplace_back(done, total); });
    asked(only(1, 5));
    EXPECT_EQ(told, (std::vector<std::pair<unsigned, unsigned>>{{1, 5}, {2, 5}, {3, 5}, {4, 5}, {5, 5}}));
}

TEST_F(Scan, ANodeWithWhichTheProgramIsBusyIsAskedAfterwards) {
    ScriptedSdoNode& node = add(5);
    node.objects[0x200000] = text("something that takes a while");
    std::array<char, 40> room{};
    bool is_read = false;
    ASSERT_EQ(sdo.start_read({5, 0x2000, 0}, room.data(), room.size(),
                             [&is_read](const SdoResult& result) { is_read = result.ok(); }),
              0);
    EXPECT_EQ(asked(only(4, 6)).answering, 1U);
    EXPECT_TRUE(is_read);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_TRUE(found[0].answers);
}

TEST_F(Scan, CancellingEndsTheRequestsAndTheScanOnce) {
    ASSERT_EQ(scan.start_asking(note(), end()), 0);
    EXPECT_GT(sdo.active(), 0U);
    scan.cancel();
    EXPECT_EQ(sdo.active(), 0U);
    ASSERT_EQ(results.size(), 1U);
    EXPECT_EQ(results[0].outcome, NodeScanOutcome::cancelled);
    EXPECT_STREQ(results[0].words(), "cancelled");
    scan.cancel();
    run();
    EXPECT_EQ(results.size(), 1U);
}

TEST_F(Scan, CancellingIsPossibleWhileTheDriverTakesNothing) {
    add(5);
    ASSERT_EQ(scan.start_asking(note(), end()), 0);
    blocked = true;
    scan.cancel();
    EXPECT_EQ(sdo.active(), 0U);
    EXPECT_EQ(results.size(), 1U);
}

TEST_F(Scan, TheFoundCallbackMayCancel) {
    add(3);
    add(4);
    ASSERT_EQ(scan.start_asking(
                  [this](const ScannedNode& node) {
                      found.push_back(node);
                      scan.cancel();
                  },
                  end()),
              0);
    run();
    EXPECT_EQ(found.size(), 1U);
    ASSERT_EQ(results.size(), 1U);
    EXPECT_EQ(results[0].outcome, NodeScanOutcome::cancelled);
}

TEST_F(Scan, TheEndMayBeginTheNextScan) {
    add(3);
    ASSERT_EQ(scan.start_listening(10, note(),
                                   [this](const NodeScanResult&) {
                                       EXPECT_EQ(scan.start_asking(note(), end(), only(3, 3)), 0);
                                   }),
              0);
    run();
    ASSERT_EQ(results.size(), 1U);
    EXPECT_EQ(results[0].answering, 1U);
}

TEST_F(Scan, WhatAnEarlierScanFoundIsForgotten) {
    add(3);
    asked(only(1, 5));
    EXPECT_EQ(scan.nodes().size(), 1U);
    nodes.clear();
    results.clear();
    asked(only(1, 5));
    EXPECT_TRUE(scan.nodes().empty());
}

TEST_F(Scan, NothingBeginsWhileItIsDestroyed) {
    add(5);
    int begun = 0;
    {
        NodeScan other(driver, sdo);
        other.start_asking(note(), [&](const NodeScanResult& ended) {
            results.push_back(ended);
            begun = other.start_asking(note(), end());
        });
    }
    EXPECT_EQ(begun, -1);
    EXPECT_EQ(results.size(), 1U);
    EXPECT_EQ(sdo.active(), 0U);
}

TEST_F(Scan, DestroyingItEndsWhatIsUnderWay) {
    {
        NodeScan other(driver, sdo);
        other.start_asking(note(), end());
    }
    ASSERT_EQ(results.size(), 1U);
    EXPECT_EQ(results[0].outcome, NodeScanOutcome::cancelled);
    EXPECT_EQ(sdo.active(), 0U);
    EXPECT_EQ(driver.observer_count(), 2U);
}

TEST_F(Scan, ADriverWithoutRoomForItEndsTheProcess) {
    const ChildResult child = run_in_child([this] {
        std::vector<std::unique_ptr<NodeScan>> scans;
        for (int i = 0; i < 8; ++i) {
            scans.push_back(std::make_unique<NodeScan>(driver, sdo));
        }
    });
    EXPECT_EQ(child.err, "nodevik/nodes/nodescan: Assertion failed: is_observing\n");
}
