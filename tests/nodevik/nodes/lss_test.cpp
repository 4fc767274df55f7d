// The LSS master against slaves that a test plays frame by frame, the clock in the test's hands.

#include "nodevik/nodes/lss.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "nodevik/util/monotonicclock.h"
#include "tests/support/childprocess.h"
#include "tests/support/scriptedcandriver.h"
#include "tests/support/scriptedclock.h"

namespace {

constexpr unsigned int master_id = 0x7E5;
constexpr unsigned int slave_id = 0x7E4;
constexpr LssIdentity somebody{0x000001F1, 0x00000401, 0x00010002, 0x000003E9};

ScriptedFrame frame(unsigned int id, std::initializer_list<unsigned char> bytes) {
    ScriptedFrame result(id, bytes);
    result.length = 8;
    return result;
}

ScriptedFrame request(std::initializer_list<unsigned char> bytes) {
    return frame(master_id, bytes);
}

ScriptedFrame answer(std::initializer_list<unsigned char> bytes) {
    return frame(slave_id, bytes);
}

class LssMaster : public testing::Test {
protected:
    // Lets everything happen that still has to, time included.
    void run() {
        for (int step = 0; step < 100'000 && lss.busy(); ++step) {
            driver.read_all();
            lss.process(monotonic_ns());
            if (lss.busy() && wire.pending() == 0 && lss.next_deadline() > monotonic_ns()) {
                clock.now_us = lss.next_deadline() / 1000 + 1;
            }
        }
        ASSERT_FALSE(lss.busy());
    }

    // Answers each frame that is equal to `asked`.
    void answer_to(const ScriptedFrame& asked, std::vector<ScriptedFrame> answers) {
        script.emplace_back(asked, std::move(answers));
        wire.on_write = [this](const ScriptedFrame& sent) {
            for (const auto& [question, replies] : script) {
                if (question == sent) {
                    for (const ScriptedFrame& reply : replies) {
                        wire.queue(reply);
                    }
                }
            }
        };
    }

    Lss::Callback note() {
        return [this](const LssResult& ended) { results.push_back(ended); };
    }

    LssOutcome outcome() { return results.size() == 1 ? results.front().outcome : LssOutcome::cancelled; }

    // The master goes first, and its last callback still adds to the results.
    std::vector<LssResult> results;
    std::vector<std::pair<ScriptedFrame, std::vector<ScriptedFrame>>> script;
    ScriptedClock clock;
    ScriptedCanDriver wire;
    ObservedDriver driver{wire};
    Lss lss{driver};
};

using Frames = std::vector<ScriptedFrame>;

// A slave without a number, as the standard describes it; enough for a fastscan.
struct Slave {
    std::array<std::uint32_t, 4> identity;
    unsigned int position = 0;
    bool in_configuration = false;
    unsigned char number = 0xFF;
    bool started = false;
    bool mute_after_scan = false;
    bool never_starts = false;
    unsigned char store_error = 0;
    unsigned char number_error = 0;

    std::optional<ScriptedFrame> hear(const ScriptedFrame& sent) {
        const auto& data = sent.data;
        if (sent.cobid != master_id || started) {
            return std::nullopt;
        }
        if (data[0] == 0x04) {
            in_configuration = data[1] == 1;
            if (!in_configuration && number != 0xFF && !never_starts) {
                started = true;
                return ScriptedFrame(0x700U + number, {0});
            }
            return std::nullopt;
        }
        if (data[0] == 0x51 && !in_configuration) {
            return scan(data);
        }
        if (!in_configuration || mute_after_scan) {
            return std::nullopt;
        }
        if (data[0] == 0x11) {
            number = number_error == 0 ? data[1] : number;
            return answer({0x11, number_error});
        }
        if (data[0] == 0x17) {
            return answer({0x17, store_error});
        }
        return std::nullopt;
    }

private:
    std::optional<ScriptedFrame> scan(const std::array<unsigned char, 8>& data) {
        const std::uint32_t id = data[1] | static_cast<std::uint32_t>(data[2]) << 8 |
                                 static_cast<std::uint32_t>(data[3]) << 16 |
                                 static_cast<std::uint32_t>(data[4]) << 24;
        if (data[5] == 0x80) {
            position = 0;
            return answer({0x4F});
        }
        if (data[6] != position || (identity[position] ^ id) >> data[5] != 0) {
            return std::nullopt;
        }
        position = data[7];
        in_configuration = data[5] == 0 && data[7] < data[6];
        return answer({0x4F});
    }
};

class LssScan : public LssMaster {
protected:
    void SetUp() override {
        wire.on_write = [this](const ScriptedFrame& sent) {
            for (Slave& slave : slaves) {
                if (const auto reply = slave.hear(sent)) {
                    wire.queue(*reply);
                }
            }
        };
    }

    // Runs an assignment: the serial number tells the node number.
    void assign(bool store = false) {
        ASSERT_EQ(
            lss.start_assign([](const LssIdentity& who) { return who.serial % 128; },
                             [this](const LssAssignment& one) { assigned.push_back(one); }, store, note()),
            0);
        run();
    }

    std::vector<Slave> slaves;
    std::vector<LssAssignment> assigned;
};

}  // namespace

TEST_F(LssMaster, SwitchesAllWithoutAnAnswer) {
    ASSERT_EQ(lss.start_switch_all(true, note()), 0);
    EXPECT_TRUE(results.empty()) << "not from within the call";
    EXPECT_EQ(wire.written, Frames{request({0x04, 1})});
    run();
    EXPECT_EQ(outcome(), LssOutcome::done);
    ASSERT_EQ(lss.start_switch_all(false), 0);
    run();
    EXPECT_EQ(wire.written.back(), request({0x04, 0}));
}

TEST_F(LssMaster, SwitchesOneByItsFourNumbers) {
    answer_to(request({0x43, 0xE9, 0x03, 0, 0}), {answer({0x44})});
    ASSERT_EQ(lss.start_switch_one(somebody, note()), 0);
    run();
    EXPECT_EQ(outcome(), LssOutcome::done);
    EXPECT_EQ(wire.written, (Frames{request({0x40, 0xF1, 0x01, 0, 0}), request({0x41, 0x01, 0x04, 0, 0}),
                                    request({0x42, 0x02, 0, 0x01, 0}), request({0x43, 0xE9, 0x03, 0, 0})}));
}

TEST_F(LssMaster, ANodeThatIsNotThereIsNotSwitched) {
    const std::uint64_t begun = clock.now_us;
    lss.start_switch_one(somebody, note());
    run();
    EXPECT_EQ(outcome(), LssOutcome::no_answer);
    EXPECT_GE(clock.now_us - begun, 500'000U);
}

TEST_F(LssMaster, TwinsAreSwitchedTogetherAndTold) {
    answer_to(request({0x43, 0xE9, 0x03, 0, 0}), {answer({0x44}), answer({0x44})});
    lss.start_switch_one(somebody, note());
    run();
    EXPECT_EQ(outcome(), LssOutcome::several);
    EXPECT_EQ(results[0].answers, 2U);
}

TEST_F(LssMaster, GivesANodeNumber) {
    answer_to(request({0x11, 5}), {answer({0x11, 0})});
    ASSERT_EQ(lss.start_set_node(5, note()), 0);
    run();
    EXPECT_EQ(outcome(), LssOutcome::done);
    EXPECT_EQ(wire.written, Frames{request({0x11, 5})});
}

TEST_F(LssMaster, TellsWhyANodeRefused) {
    answer_to(request({0x11, 5}), {answer({0x11, 0xFF, 0x2A})});
    lss.start_set_node(5, note());
    run();
    EXPECT_EQ(outcome(), LssOutcome::refused);
    EXPECT_EQ(results[0].error, 0xFF);
    EXPECT_EQ(results[0].specific, 0x2A);
    EXPECT_STREQ(lss_words(LssOutcome::refused), "refused by the node");
}

TEST_F(LssMaster, KnowsWhichNodeNumbersThereAre) {
    for (const unsigned int node : {0U, 128U, 254U, 256U}) {
        EXPECT_EQ(lss.start_set_node(node, note()), -1) << node;
    }
    EXPECT_TRUE(wire.written.empty());
    EXPECT_EQ(lss.start_set_node(Lss::no_node), 0);
    EXPECT_EQ(wire.written, Frames{request({0x11, 0xFF})});
}

TEST_F(LssMaster, GivesTheBitRatesOfTheStandardTable) {
    const std::map<unsigned int, unsigned char> table{{1000, 0}, {800, 1}, {500, 2}, {250, 3}, {125, 4},
                                                      {50, 6},   {20, 7},  {10, 8},  {0, 9}};
    for (const auto& [rate, index] : table) {
        ASSERT_EQ(lss.start_set_bit_rate(rate), 0) << rate;
        EXPECT_EQ(wire.written.back(), request({0x13, 0, index})) << rate;
        lss.cancel();
    }
    EXPECT_EQ(lss.start_set_bit_rate(100), -1);
}

TEST_F(LssMaster, ABitRateChangesAfterTwiceTheDelay) {
    const std::uint64_t begun = clock.now_us;
    ASSERT_EQ(lss.start_activate(1000, note()), 0);
    EXPECT_EQ(wire.written, Frames{request({0x15, 0xE8, 0x03})});
    run();
    EXPECT_EQ(outcome(), LssOutcome::done);
    EXPECT_GE(clock.now_us - begun, 2'000'000U);
    EXPECT_EQ(lss.start_activate(65536), -1);
}

TEST_F(LssMaster, WaitsLongerForAStore) {
    ASSERT_EQ(lss.start_store(note()), 0);
    clock.now_us += 1'900'000;
    lss.process(monotonic_ns());
    EXPECT_TRUE(lss.busy());
    wire.queue(answer({0x17, 0}));
    run();
    EXPECT_EQ(outcome(), LssOutcome::done);
}

TEST_F(LssMaster, AsksWhoTheNodeInConfigurationIs) {
    answer_to(request({0x5A}), {answer({0x5A, 0xF1, 0x01, 0, 0})});
    answer_to(request({0x5B}), {answer({0x5B, 0x01, 0x04, 0, 0})});
    answer_to(request({0x5C}), {answer({0x5C, 0x02, 0, 0x01, 0})});
    answer_to(request({0x5D}), {answer({0x5D, 0xE9, 0x03, 0, 0})});
    lss.start_inquire_identity(note());
    run();
    ASSERT_EQ(outcome(), LssOutcome::done);
    EXPECT_EQ(results[0].identity.vendor, somebody.vendor);
    EXPECT_EQ(results[0].identity.product, somebody.product);
    EXPECT_EQ(results[0].identity.revision, somebody.revision);
    EXPECT_EQ(results[0].identity.serial, somebody.serial);
}

TEST_F(LssMaster, ANodeThatFallsSilentInTheMiddleIsLost) {
    answer_to(request({0x5A}), {answer({0x5A, 0xF1, 0x01, 0, 0})});
    lss.start_inquire_identity(note());
    run();
    EXPECT_EQ(outcome(), LssOutcome::lost);
}

TEST_F(LssMaster, AsksForTheNodeNumber) {
    answer_to(request({0x5E}), {answer({0x5E, 0xFF})});
    lss.start_inquire_node(note());
    run();
    ASSERT_EQ(outcome(), LssOutcome::done);
    EXPECT_EQ(results[0].node, Lss::no_node);
}

TEST_F(LssMaster, IdentifiesWithinInclusiveBounds) {
    answer_to(request({0x4B, 0xFF, 0xFF, 0xFF, 0xFF}), {answer({0x4F}), answer({0x4F}), answer({0x4F})});
    LssRange range;
    range.vendor = 0x1F1;
    range.product = 0x401;
    range.lowest_revision = 0x10000;
    range.highest_revision = 0x1FFFF;
    ASSERT_EQ(lss.start_identify(range, note()), 0);
    run();
    EXPECT_EQ(outcome(), LssOutcome::done);
    EXPECT_EQ(results[0].answers, 3U);
    EXPECT_EQ(wire.written, (Frames{request({0x46, 0xF1, 0x01}), request({0x47, 0x01, 0x04}),
                                    request({0x48, 0, 0, 0x01}), request({0x49, 0xFF, 0xFF, 0x01}),
                                    request({0x4A}), request({0x4B, 0xFF, 0xFF, 0xFF, 0xFF})}));
}

TEST_F(LssMaster, AsksWhoHasNoNumber) {
    answer_to(request({0x4C}), {answer({0x50})});
    lss.start_identify_unconfigured(note());
    run();
    EXPECT_EQ(outcome(), LssOutcome::done);
    EXPECT_EQ(results[0].answers, 1U);
    script.clear();
    lss.start_identify_unconfigured(note());
    run();
    EXPECT_EQ(results.back().outcome, LssOutcome::no_answer);
}

TEST_F(LssMaster, OnlyTheAnswerToTheQuestionCounts) {
    answer_to(request({0x11, 5}), {answer({0x4F}), answer({0x17, 1}), ScriptedFrame(slave_id, {0x11, 1}),
                                   frame(master_id, {0x11, 1}), answer({0x11, 0})});
    lss.start_set_node(5, note());
    run();
    EXPECT_EQ(outcome(), LssOutcome::done);
    EXPECT_EQ(results[0].answers, 1U);
    EXPECT_EQ(lss.dropped(), 3U);
    wire.queue(answer({0x11, 0}));
    driver.read_all();
    EXPECT_EQ(lss.dropped(), 4U) << "nobody asks any more";
}

TEST_F(LssMaster, OneServiceAtATime) {
    lss.start_store(note());
    EXPECT_EQ(lss.start_set_node(5), -1);
    EXPECT_EQ(lss.start_fastscan({}), -1);
    EXPECT_EQ(wire.written.size(), 1U);
}

TEST_F(LssMaster, ACancelledServiceEndsAtOnceAndOnce) {
    lss.start_store(note());
    lss.cancel();
    EXPECT_EQ(outcome(), LssOutcome::cancelled);
    EXPECT_EQ(lss.next_deadline(), no_deadline);
    lss.cancel();
    clock.now_us += 10'000'000;
    lss.process(monotonic_ns());
    EXPECT_EQ(results.size(), 1U);
}

TEST_F(LssMaster, TheCallbackMayBeginTheNextService) {
    answer_to(request({0x17}), {answer({0x17, 0})});
    answer_to(request({0x5E}), {answer({0x5E, 7})});
    lss.start_store([this](const LssResult&) { lss.start_inquire_node(note()); });
    run();
    ASSERT_EQ(outcome(), LssOutcome::done);
    EXPECT_EQ(results[0].node, 7U);
}

TEST_F(LssMaster, AFullDriverIsTriedAgainUntilTheTimeIsOver) {
    wire.write_result = -1;
    lss.start_store(note());
    for (int i = 0; i < 10; ++i) {
        clock.now_us += 1000;
        lss.process(monotonic_ns());
    }
    EXPECT_EQ(wire.written.size(), 11U);
    wire.write_result = 0;
    answer_to(request({0x17}), {answer({0x17, 0})});
    run();
    EXPECT_EQ(outcome(), LssOutcome::done);
    results.clear();
    wire.on_write = nullptr;
    wire.write_result = -1;
    lss.start_store(note());
    run();
    EXPECT_EQ(outcome(), LssOutcome::driver_failed);
}

TEST_F(LssMaster, ADriverThatTakesNothingIsGivenUpAfterTheTimeOfAnAnswer) {
    wire.write_result = -1;
    const std::uint64_t begun = clock.now_us;
    ASSERT_EQ(lss.start_activate(60'000, note()), 0);
    run();
    EXPECT_EQ(outcome(), LssOutcome::driver_failed);
    EXPECT_LT(clock.now_us - begun, 600'000U);
}

TEST_F(LssMaster, EndsWhatIsUnderWayWhenItGoes) {
    {
        Lss other(driver);
        other.start_store(note());
    }
    EXPECT_EQ(outcome(), LssOutcome::cancelled);
    EXPECT_EQ(driver.observer_count(), 1U);
}

TEST_F(LssMaster, BeginsNothingWhileItGoes) {
    int begun = 0;
    {
        Lss other(driver);
        other.start_store([&](const LssResult& ended) {
            results.push_back(ended);
            begun = other.start_switch_all(false, note());
        });
    }
    EXPECT_EQ(outcome(), LssOutcome::cancelled);
    EXPECT_EQ(begun, -1);
    EXPECT_EQ(wire.written, Frames{request({0x17})});
}

TEST_F(LssMaster, WaitsForProgramsWithoutALoop) {
    answer_to(request({0x5E}), {answer({0x5E, 7})});
    lss.start_inquire_node();
    const LssResult result = lss.wait();
    EXPECT_TRUE(result.ok());
    EXPECT_EQ(result.node, 7U);
}

TEST_F(LssScan, FindsNobody) {
    lss.start_fastscan({}, note());
    run();
    EXPECT_EQ(outcome(), LssOutcome::no_answer);
    EXPECT_EQ(wire.written, Frames{request({0x51, 0, 0, 0, 0, 0x80, 0, 0})});
}

TEST_F(LssScan, FindsANodeIn133Questions) {
    slaves.push_back({{0x1F1, 0x401, 0x10002, 0xFFFFFFFF}});
    lss.start_fastscan({}, note());
    run();
    ASSERT_EQ(outcome(), LssOutcome::done);
    EXPECT_EQ(results[0].identity.vendor, 0x1F1U);
    EXPECT_EQ(results[0].identity.product, 0x401U);
    EXPECT_EQ(results[0].identity.revision, 0x10002U);
    EXPECT_EQ(results[0].identity.serial, 0xFFFFFFFFU);
    EXPECT_EQ(wire.written.size(), 133U);
    EXPECT_TRUE(slaves[0].in_configuration);
}

TEST_F(LssScan, AsksForAVendorAsTheStandardDoes) {
    slaves.push_back({{0x1F1, 0, 0, 0}});
    lss.start_fastscan({}, note());
    run();
    const std::vector<std::pair<unsigned, unsigned>> last_bits{{0x000, 8}, {0x100, 7}, {0x180, 6},
                                                               {0x1C0, 5}, {0x1E0, 4}, {0x1F0, 3},
                                                               {0x1F0, 2}, {0x1F0, 1}, {0x1F0, 0}};
    for (std::size_t i = 0; i < last_bits.size(); ++i) {
        const auto [id, bit] = last_bits[i];
        EXPECT_EQ(wire.written[24 + i],
                  request({0x51, static_cast<unsigned char>(id), static_cast<unsigned char>(id >> 8), 0, 0,
                           static_cast<unsigned char>(bit), 0, 0}));
    }
    EXPECT_EQ(wire.written[33], request({0x51, 0xF1, 0x01, 0, 0, 0, 0, 1}));
    EXPECT_EQ(wire.written[34], request({0x51, 0, 0, 0, 0, 0x1F, 1, 1}));
}

TEST_F(LssScan, DoesNotAskForWhatIsKnown) {
    slaves.push_back({{0x1F1, 0x401, 0x10002, 9}});
    LssKnown known;
    known.known = {true, true, true, false};
    known.value = {0x1F1, 0x401, 0x10002, 0};
    lss.start_fastscan(known, note());
    run();
    ASSERT_EQ(outcome(), LssOutcome::done);
    EXPECT_EQ(results[0].identity.serial, 9U);
    EXPECT_EQ(wire.written.size(), 37U);
}

TEST_F(LssScan, AnotherVendorIsNotTheOneThatIsKnown) {
    slaves.push_back({{0x1F2, 0x401, 0x10002, 9}});
    LssKnown known;
    known.known[0] = true;
    known.value[0] = 0x1F1;
    lss.start_fastscan(known, note());
    run();
    EXPECT_EQ(outcome(), LssOutcome::no_answer);
}

TEST_F(LssScan, OfSeveralFindsTheSmallest) {
    slaves.push_back({{0x1F1, 0x402, 1, 1}});
    slaves.push_back({{0x1F1, 0x401, 2, 9}});
    slaves.push_back({{0x1F1, 0x401, 2, 8}});
    lss.start_fastscan({}, note());
    run();
    ASSERT_EQ(outcome(), LssOutcome::done);
    EXPECT_EQ(results[0].identity.product, 0x401U);
    EXPECT_EQ(results[0].identity.serial, 8U);
    EXPECT_FALSE(slaves[0].in_configuration);
    EXPECT_FALSE(slaves[1].in_configuration);
    EXPECT_TRUE(slaves[2].in_configuration);
}

TEST_F(LssScan, WaitsTheWholeTimeOfEachStepUnlessToldOtherwise) {
    slaves.push_back({{0, 0, 0, 0}});
    const std::uint64_t begun = clock.now_us;
    lss.start_fastscan({});
    run();
    EXPECT_GE(clock.now_us - begun, 133U * 100'000);
    slaves[0] = {{0, 0, 0, 0}};
    LssTiming quick;
    quick.first_answer_ends_step = true;
    lss.set_timing(quick);
    const std::uint64_t again = clock.now_us;
    lss.start_fastscan({});
    run();
    EXPECT_LE(clock.now_us - again, 100'000U) << "each question was answered at once";
}

TEST_F(LssScan, GivesEveryNodeItsNumber) {
    slaves.push_back({{0x1F1, 0x401, 1, 12}});
    slaves.push_back({{0x1F1, 0x401, 1, 11}});
    slaves.push_back({{0x1F0, 0x401, 1, 13}});
    assign();
    EXPECT_EQ(outcome(), LssOutcome::done);
    EXPECT_EQ(results[0].answers, 3U);
    ASSERT_EQ(assigned.size(), 3U);
    const std::array<unsigned int, 3> order{13, 11, 12};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(assigned[i].outcome, LssOutcome::done);
        EXPECT_EQ(assigned[i].node, order[i]);
        EXPECT_EQ(assigned[i].identity.serial, order[i]);
        EXPECT_FALSE(assigned[i].stored);
        EXPECT_EQ(assigned[i].boot_ups, 1U);
    }
    EXPECT_EQ(wire.written.front(), request({0x04, 0}));
    EXPECT_EQ(wire.written.back(), request({0x51, 0, 0, 0, 0, 0x80, 0, 0}));
    EXPECT_EQ(std::count(wire.written.begin(), wire.written.end(), request({0x17})), 0);
}

TEST_F(LssScan, HasThemStoreTheirNumbers) {
    slaves.push_back({{0x1F1, 0x401, 1, 11}});
    slaves.push_back({{0x1F1, 0x401, 1, 12}});
    slaves[1].store_error = 1;
    assign(true);
    ASSERT_EQ(assigned.size(), 2U);
    EXPECT_TRUE(assigned[0].stored);
    EXPECT_FALSE(assigned[1].stored);
    EXPECT_EQ(assigned[1].outcome, LssOutcome::done) << "it has its number all the same";
}

TEST_F(LssScan, AssignsNothingWhereNobodyIs) {
    assign();
    EXPECT_EQ(outcome(), LssOutcome::no_answer);
    EXPECT_TRUE(assigned.empty());
}

TEST_F(LssScan, TellsTwins) {
    slaves.push_back({{0x1F1, 0x401, 1, 11}});
    slaves.push_back({{0x1F1, 0x401, 1, 11}});
    assign();
    ASSERT_EQ(assigned.size(), 1U);
    EXPECT_EQ(assigned[0].outcome, LssOutcome::several);
    EXPECT_EQ(assigned[0].boot_ups, 2U);
    EXPECT_EQ(outcome(), LssOutcome::done);
}

TEST_F(LssScan, EndsAtANodeThatFallsSilent) {
    slaves.push_back({{0x1F1, 0x401, 1, 11}});
    slaves[0].mute_after_scan = true;
    assign();
    EXPECT_EQ(outcome(), LssOutcome::lost);
    ASSERT_EQ(assigned.size(), 1U);
    EXPECT_EQ(assigned[0].outcome, LssOutcome::lost);
    EXPECT_EQ(wire.written.back(), request({0x04, 0})) << "nobody is left in configuration";
}

TEST_F(LssScan, EndsAtANodeThatRefusesItsNumber) {
    slaves.push_back({{0x1F1, 0x401, 1, 11}});
    slaves[0].number_error = 1;
    assign();
    EXPECT_EQ(outcome(), LssOutcome::lost);
    ASSERT_EQ(assigned.size(), 1U);
    EXPECT_EQ(assigned[0].outcome, LssOutcome::refused);
}

TEST_F(LssScan, TellsANodeThatDoesNotBoot) {
    slaves.push_back({{0x1F1, 0x401, 1, 11}});
    slaves[0].never_starts = true;
    assign();
    EXPECT_EQ(outcome(), LssOutcome::lost);
    ASSERT_EQ(assigned.size(), 1U);
    EXPECT_EQ(assigned[0].outcome, LssOutcome::lost);
    EXPECT_EQ(assigned[0].boot_ups, 0U);
}

TEST_F(LssScan, EndsWhereNoNumberIsGiven) {
    slaves.push_back({{0x1F1, 0x401, 1, 128}});
    assign();
    EXPECT_EQ(outcome(), LssOutcome::cancelled);
    EXPECT_TRUE(assigned.empty());
    EXPECT_EQ(wire.written.back(), request({0x04, 0}));
}

TEST_F(LssScan, MayBeCancelledFromWithin) {
    slaves.push_back({{0x1F1, 0x401, 1, 11}});
    lss.start_assign(
        [this](const LssIdentity&) {
            lss.cancel();
            return 5U;
        },
        {}, false, note());
    run();
    EXPECT_EQ(outcome(), LssOutcome::cancelled);
    lss.start_assign([](const LssIdentity&) { return 5U; }, [this](const LssAssignment&) { lss.cancel(); },
                     false, note());
    run();
    EXPECT_EQ(results.back().outcome, LssOutcome::cancelled);
    EXPECT_EQ(results.size(), 2U);
}

TEST(LssWithoutRoom, EndsTheProcess) {
    const ChildResult child = run_in_child([] {
        ScriptedCanDriver wire;
        ObservedDriver driver(wire);
        std::array<std::optional<Lss>, ObservedDriver::max_observers + 1> masters;
        for (auto& master : masters) {
            master.emplace(driver);
        }
    });
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_EQ(child.err, "nodevik/nodes/lss: Assertion failed: driver.add_observer(*this) == 0\n");
}
