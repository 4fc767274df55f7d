// Which PDO a received frame goes to, in lists of all sizes, while COB-IDs are written at any time.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/pdo.h"
#include "tests/support/scriptedcandriver.h"

namespace {

constexpr int nobody = -1;

// What happens before a frame is read, in the driver's read(), and the frame's COB-ID.
struct Step {
    unsigned int cobid;
    std::function<void()> change = [] {};
};

// The COB-ID that the i-th TPDO starts with: one of the four function codes and a number below 128.
unsigned int cobid_of(std::size_t i) {
    const auto number = static_cast<unsigned int>(i);
    return 0x180 + number / 128 * 0x100 + number % 128;
}

// A COB-ID that no TPDO starts with: a 29-bit one with a TPDO's function code.
unsigned int free_cobid(std::size_t i) {
    return 0x10000000 + cobid_of(i);
}

// A master with a list of TPDOs.
class TpdoList : public testing::TestWithParam<std::size_t> {
protected:
    TpdoList() : list(GetParam()) {
        master.load_driver(driver);
        master.set_debug(0);
        for (std::size_t i = 0; i < list.size(); ++i) {
            list[i].cobid = cobid_of(i);
            EXPECT_EQ(master.add_tpdo(list[i]), 0);
        }
    }

    // Reads the frames in one call, and tells for each of them the position that received it.
    std::vector<int> receivers(const std::vector<Step>& steps, int (CCANopen::*read)()) {
        std::vector<int> found;
        std::size_t next = 0;
        clear_counters();
        driver.on_read = [&](unsigned long) {
            if (next > 0) {
                found.push_back(take_receiver());
            }
            if (next < steps.size()) {
                steps[next].change();
                driver.queue(steps[next].cobid, {1});
                ++next;
            }
        };
        (master.*read)();
        driver.on_read = nullptr;
        return found;
    }

    std::vector<int> receivers(const std::vector<Step>& steps) {
        return receivers(steps, &CCANopen::read_all_messages);
    }

    std::vector<int> cycle(const std::vector<Step>& steps) {
        return receivers(steps, &CCANopen::read_all_until_duplicate_tpdo);
    }

    // A frame for each TPDO, under the COB-IDs that the TPDOs have when it is read.
    std::vector<Step> whole_cycle() const {
        std::vector<Step> steps;
        for (const PDO& pdo : list) {
            steps.push_back({pdo.cobid});
        }
        return steps;
    }

    std::vector<int> positions() const {
        std::vector<int> all;
        for (std::size_t i = 0; i < list.size(); ++i) {
            all.push_back(static_cast<int>(i));
        }
        return all;
    }

    void clear_counters() {
        for (PDO& pdo : list) {
            pdo.PDO_updated = 0;
        }
        counted.assign(list.size(), 0);
    }

    // The position whose counter has risen by one since the last look; nobody when none has.
    int take_receiver() {
        int receiver = nobody;
        for (std::size_t i = 0; i < list.size(); ++i) {
            if (list[i].PDO_updated != counted[i]) {
                EXPECT_EQ(list[i].PDO_updated, counted[i] + 1);
                EXPECT_EQ(receiver, nobody) << "two have received";
                counted[i] = list[i].PDO_updated;
                receiver = static_cast<int>(i);
            }
        }
        return receiver;
    }

    ScriptedCanDriver driver;
    CCANopen master;
    std::vector<PDO> list;
    std::vector<unsigned int> counted;
};

// The same with at least two TPDOs: pairs of an earlier and a later one.
class TpdoPairs : public TpdoList {
protected:
    std::vector<std::pair<std::size_t, std::size_t>> pairs() const {
        const std::size_t last = list.size() - 1;
        std::vector<std::pair<std::size_t, std::size_t>> all = {{0, 1}, {0, last}};
        if (last > 2) {
            all.insert(all.end(), {{last - 1, last}, {last / 2, last}, {1, last / 2 + 1}});
        }
        return all;
    }

    // Gives every TPDO its first COB-ID again.
    void start_over() {
        for (std::size_t i = 0; i < list.size(); ++i) {
            list[i].cobid = cobid_of(i);
        }
    }
};

std::string size_of_list(const testing::TestParamInfo<std::size_t>& parameter) {
    return "Of" + std::to_string(parameter.param);
}

int at(std::size_t position) {
    return static_cast<int>(position);
}

}  // namespace

TEST_P(TpdoList, EachReceivesItsOwnFrames) {
    std::vector<Step> steps = whole_cycle();
    std::vector<int> expected = positions();
    EXPECT_EQ(receivers(steps), expected);
    EXPECT_EQ(cycle(steps), expected);
    std::reverse(steps.begin(), steps.end());
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(receivers(steps), expected);
    EXPECT_EQ(cycle(steps), expected);
}

TEST_P(TpdoList, AFrameThatNoneHasGoesNowhere) {
    EXPECT_EQ(receivers({{free_cobid(0)}, {cobid_of(0)}, {free_cobid(0)}}),
              (std::vector<int>{nobody, 0, nobody}));
    EXPECT_EQ(cycle({{free_cobid(0)}, {cobid_of(0)}, {free_cobid(0)}}),
              (std::vector<int>{nobody, 0, nobody}));
}

TEST_P(TpdoList, ACobidWrittenBetweenTwoCallsCounts) {
    receivers(whole_cycle());
    for (std::size_t i = 0; i < list.size(); ++i) {
        list[i].cobid = free_cobid(i);
        EXPECT_EQ(receivers({{cobid_of(i)}, {free_cobid(i)}}), (std::vector<int>{nobody, at(i)}));
    }
    EXPECT_EQ(receivers(whole_cycle()), positions());
    EXPECT_EQ(cycle(whole_cycle()), positions());
}

TEST_P(TpdoList, ACobidWrittenWhileTheDriverReadsCounts) {
    for (std::size_t i = 0; i < list.size(); ++i) {
        const auto change = [this, i] { list[i].cobid = free_cobid(i); };
        EXPECT_EQ(receivers({{free_cobid(i), change}}), (std::vector<int>{at(i)}));
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        const auto change = [this, i] { list[i].cobid = cobid_of(i); };
        EXPECT_EQ(cycle({{cobid_of(i), change}}), (std::vector<int>{at(i)}));
    }
}

TEST_P(TpdoList, ACobidWrittenInTheMiddleOfABatchCountsFromTheNextFrameOn) {
    const std::size_t changed = list.size() / 2;
    std::vector<Step> steps = whole_cycle();
    std::vector<int> expected = positions();
    const auto change = [&] { list[changed].cobid = free_cobid(changed); };
    steps.push_back({cobid_of(changed), change});
    expected.push_back(nobody);
    steps.push_back({free_cobid(changed)});
    expected.push_back(at(changed));
    EXPECT_EQ(receivers(steps), expected);
    list[changed].cobid = cobid_of(changed);
    EXPECT_EQ(cycle(steps), std::vector<int>(expected.begin(), expected.end() - 1))
        << "the second frame of a TPDO ends the cycle";
}

TEST_P(TpdoList, ACobidThatIsReceivedIntoAFieldCounts) {
    PDO teller(0x4FF);
    CCANopen other;
    other.load_driver(driver);
    other.set_debug(0);
    unsigned int& field = list[list.size() / 2].cobid;
    teller.mapcopy(0, field);
    ASSERT_EQ(other.add_tpdo(teller), 0);
    receivers(whole_cycle());
    driver.queue(0x4FF, {0xC5, 0x02, 0x00, 0x20});
    other.read_all_messages();
    EXPECT_EQ(receivers({{0x200002C5}}), (std::vector<int>{at(list.size() / 2)}));
}

TEST_P(TpdoList, APdoThatIsAddedReceives) {
    receivers(whole_cycle());
    PDO added;
    added.cobid = free_cobid(0);
    const bool full = list.size() == 512;
    testing::internal::CaptureStdout();
    EXPECT_EQ(master.add_tpdo(added), full ? -1 : 0);
    testing::internal::GetCapturedStdout();
    receivers({{free_cobid(0)}});
    EXPECT_EQ(added.PDO_updated, full ? 0U : 1U);
    EXPECT_EQ(receivers(whole_cycle()), positions());
}

TEST_P(TpdoList, ALineTellsWhetherTheListHasTheCobidNow) {
    // The line of a TPDO that is in the list has its text twice.
    const auto is_called_mapped = [&](unsigned int cobid) {
        const unsigned char data[8] = {};
        CDecoder::clear_message();
        master.print_message(cobid, 8, data);
        const std::string line = CDecoder::get_message();
        CDecoder::clear_message();
        EXPECT_EQ(line.rfind(" - Transmit PDO ", 0), 0U) << line;
        return line.find("Transmit PDO") != line.rfind("Transmit PDO");
    };
    receivers(whole_cycle());
    for (PDO* pdo : {&list.front(), &list[list.size() / 2], &list.back()}) {
        const unsigned int before = pdo->cobid;
        const unsigned int after = before + 0x800;
        EXPECT_TRUE(is_called_mapped(before));
        EXPECT_FALSE(is_called_mapped(after));
        pdo->cobid = after;
        EXPECT_FALSE(is_called_mapped(before));
        EXPECT_TRUE(is_called_mapped(after));
        pdo->cobid = before;
    }
}

TEST_P(TpdoList, GrowsWhileItReceives) {
    std::vector<PDO> pdos(list.size());
    CCANopen growing;
    growing.load_driver(driver);
    for (std::size_t i = 0; i < pdos.size(); ++i) {
        pdos[i].cobid = cobid_of(i);
        driver.on_read = [&, i](unsigned long) {
            if (growing.add_tpdo(pdos[i]) == 0) {
                driver.queue(cobid_of(i), {1});
            }
            driver.on_read = nullptr;
        };
        growing.read_all_messages();
        EXPECT_EQ(pdos[i].PDO_updated, 1U) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Size, TpdoList, testing::Values(1, 4, 15, 16, 17, 64, 512), size_of_list);

TEST_P(TpdoPairs, OfTwoWithOneCobidTheEarlierReceives) {
    for (const auto& [earlier, later] : pairs()) {
        receivers(whole_cycle());
        list[later].cobid = list[earlier].cobid;
        EXPECT_EQ(receivers({{cobid_of(earlier)}, {cobid_of(later)}, {cobid_of(earlier)}}),
                  (std::vector<int>{at(earlier), nobody, at(earlier)}));
        start_over();
        receivers(whole_cycle());
        list[earlier].cobid = list[later].cobid;
        EXPECT_EQ(receivers({{cobid_of(later)}, {cobid_of(earlier)}, {cobid_of(later)}}),
                  (std::vector<int>{at(earlier), nobody, at(earlier)}));
        list[earlier].cobid = cobid_of(earlier);
        EXPECT_EQ(receivers({{cobid_of(later)}, {cobid_of(earlier)}}),
                  (std::vector<int>{at(later), at(earlier)}));
    }
}

TEST_P(TpdoPairs, InACycleBothReceive) {
    for (const auto& [earlier, later] : pairs()) {
        list[earlier].cobid = list[later].cobid;
        clear_counters();
        driver.queue(cobid_of(later), {1});
        EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 0);
        EXPECT_EQ(list[earlier].PDO_updated, 1U);
        EXPECT_EQ(list[later].PDO_updated, 1U);
        start_over();
    }
}

TEST_P(TpdoPairs, SwappedCobidsCount) {
    for (const auto& pair : pairs()) {
        const std::size_t earlier = pair.first;
        const std::size_t later = pair.second;
        const auto swap = [&] { std::swap(list[earlier].cobid, list[later].cobid); };
        std::vector<Step> steps = whole_cycle();
        std::vector<int> expected = positions();
        steps.push_back({cobid_of(earlier), swap});
        expected.push_back(at(later));
        steps.push_back({cobid_of(later)});
        expected.push_back(at(earlier));
        EXPECT_EQ(receivers(steps), expected);
        EXPECT_EQ(receivers({{cobid_of(later)}, {cobid_of(earlier)}}),
                  (std::vector<int>{at(earlier), at(later)}));
        EXPECT_EQ(cycle({{cobid_of(later)}, {cobid_of(earlier)}}),
                  (std::vector<int>{at(earlier), at(later)}));
        start_over();
    }
}

TEST_P(TpdoPairs, ACobidThatMovesToAnEarlierEntryGoesThere) {
    for (const auto& pair : pairs()) {
        const std::size_t earlier = pair.first;
        const std::size_t later = pair.second;
        const auto move = [&] {
            list[earlier].cobid = cobid_of(later);
            list[later].cobid = free_cobid(later);
        };
        std::vector<Step> steps = whole_cycle();
        std::vector<int> expected = positions();
        steps.push_back({cobid_of(later), move});
        expected.push_back(at(earlier));
        steps.push_back({cobid_of(earlier)});
        expected.push_back(nobody);
        steps.push_back({free_cobid(later)});
        expected.push_back(at(later));
        EXPECT_EQ(receivers(steps), expected);
        start_over();
    }
}

TEST_P(TpdoPairs, AnEarlierOneThatTakesACobidInTheMiddleOfABatchGetsItWhenItComesAgain) {
    for (const auto& pair : pairs()) {
        const std::size_t earlier = pair.first;
        const std::size_t later = pair.second;
        const auto take = [&] { list[earlier].cobid = cobid_of(later); };
        std::vector<Step> steps = whole_cycle();
        std::vector<int> expected = positions();
        steps.push_back({cobid_of(later), take});
        expected.push_back(at(earlier));
        steps.push_back({cobid_of(earlier)});
        expected.push_back(nobody);
        EXPECT_EQ(receivers(steps), expected);
        start_over();
    }
}

TEST_P(TpdoPairs, AnEarlierOneThatLeavesACobidInTheMiddleOfABatchLeavesItToTheLater) {
    for (const auto& pair : pairs()) {
        const std::size_t earlier = pair.first;
        const std::size_t later = pair.second;
        list[earlier].cobid = cobid_of(later);
        const auto leave = [&] { list[earlier].cobid = cobid_of(earlier); };
        EXPECT_EQ(receivers({{cobid_of(later)}, {cobid_of(later), leave}, {cobid_of(earlier)}}),
                  (std::vector<int>{at(earlier), at(later), at(earlier)}));
        start_over();
    }
}

TEST_P(TpdoPairs, AFrameDuringAnSdoTransferGoesToTheFirst) {
    std::vector<Step> all_but_the_last = whole_cycle();
    all_but_the_last.pop_back();
    receivers(all_but_the_last);
    list.front().cobid = list.back().cobid;
    clear_counters();
    driver.on_write = [&](const ScriptedFrame&) {
        driver.queue(list.back().cobid, {1});
        driver.queue(0x585, {0x43, 0x00, 0x10, 0x00, 1, 2, 3, 4});
    };
    int value = 0;
    EXPECT_EQ(master.sdo_read(5, 0x1000, 0, value), 0);
    EXPECT_EQ(take_receiver(), 0);
    list.front().cobid = free_cobid(0);
    clear_counters();
    EXPECT_EQ(master.sdo_read(5, 0x1000, 0, value), 0);
    EXPECT_EQ(take_receiver(), at(list.size() - 1));
}

// Among many, an earlier one may miss a COB-ID that it takes after it was looked at; not beyond the call.
TEST_P(TpdoPairs, WhatABatchMissesTheNextCallSees) {
    for (const auto& pair : pairs()) {
        const std::size_t earlier = pair.first;
        const std::size_t later = pair.second;
        const auto take = [&] { list[earlier].cobid = cobid_of(later); };
        receivers({{cobid_of(earlier)}, {free_cobid(0), take}});
        EXPECT_EQ(receivers({{cobid_of(later)}}), (std::vector<int>{at(earlier)}));
        start_over();
        cycle({{cobid_of(earlier)}, {free_cobid(0), take}});
        clear_counters();
        driver.queue(cobid_of(later), {1});
        master.read_all_until_duplicate_tpdo();
        EXPECT_EQ(list[earlier].PDO_updated, 1U);
        EXPECT_EQ(list[later].PDO_updated, 1U);
        start_over();
    }
}

INSTANTIATE_TEST_SUITE_P(Size, TpdoPairs, testing::Values(2, 4, 15, 16, 17, 18, 64, 512), size_of_list);

namespace {

// The rules of reception as they are told, by a plain walk for every frame.
class PlainWalk {
public:
    explicit PlainWalk(const std::vector<PDO>& list)
        : list_(list), updated(list.size(), 0), last(list.size(), 0) {}

    void receive(unsigned int cobid, unsigned int payload) {
        for (std::size_t i = 0; i < list_.size(); ++i) {
            if (list_[i].cobid == cobid) {
                take(i, payload);
                return;
            }
        }
    }

    // False for a frame that is held back.
    bool receive_in_cycle(unsigned int cobid, unsigned int payload) {
        for (std::size_t i = 0; i < list_.size(); ++i) {
            if (list_[i].cobid == cobid) {
                if (updated[i] != 0) {
                    return false;
                }
                take(i, payload);
            }
        }
        return true;
    }

private:
    void take(std::size_t i, unsigned int payload) {
        ++updated[i];
        last[i] = payload;
    }

    const std::vector<PDO>& list_;

public:
    std::vector<unsigned int> updated;
    std::vector<unsigned int> last;
};

// A program that writes COB-IDs at random and a bus that sends at random.
class TpdoChaos : public TpdoList {
protected:
    std::size_t any(std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
    }
    PDO& any_pdo() { return list[any(list.size())]; }
    unsigned int any_cobid() {
        return any(8) == 0 ? free_cobid(any(list.size())) : cobid_of(any(list.size()));
    }

    // A change that a program may make between two calls, COB-IDs that several have included.
    void change_anything() {
        switch (any(4)) {
            case 0:
                any_pdo().cobid = any_cobid();
                break;
            case 1:
                std::swap(any_pdo().cobid, any_pdo().cobid);
                break;
            case 2:
                any_pdo().cobid = any_pdo().cobid;
                break;
            default:
                for (std::size_t i = 0; i < list.size(); ++i) {
                    list[i].cobid = cobid_of(i);
                }
        }
    }

    // A change in the middle of a batch after which every COB-ID that was changed is in one place only.
    void change_without_repeats() {
        PDO& pdo = any_pdo();
        if (any(2) == 0) {
            next_unused += 0x800;
            pdo.cobid = cobid_of(any(list.size())) + next_unused;
            return;
        }
        PDO& other = any_pdo();
        if (is_unique(pdo.cobid) && is_unique(other.cobid)) {
            std::swap(pdo.cobid, other.cobid);
        }
    }

    bool is_unique(unsigned int cobid) const {
        return std::count_if(list.begin(), list.end(), [&](const PDO& pdo) { return pdo.cobid == cobid; }) ==
               1;
    }

    void change_within_a_batch() {
        if (list.size() <= 16) {
            change_anything();
        } else {
            change_without_repeats();
        }
    }

    void expect_as(const PlainWalk& walk) {
        for (std::size_t i = 0; i < list.size(); ++i) {
            ASSERT_EQ(list[i].PDO_updated, walk.updated[i]) << i;
            ASSERT_EQ(list[i].get_byte16(0), walk.last[i]) << i;
        }
    }

    // Queues a frame with a payload that no other has.
    ScriptedFrame next_frame() {
        const unsigned int cobid = any(4) == 0 ? any_cobid() : any_pdo().cobid;
        ++payload;
        return {cobid,
                {static_cast<unsigned char>(payload & 0xFF), static_cast<unsigned char>(payload >> 8)}};
    }

    std::mt19937 random{20240229};  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same run each time
    unsigned int payload = 0;
    unsigned int next_unused = 0x20000000;
};

}  // namespace

TEST_P(TpdoChaos, ReadAllMessagesIsAPlainWalk) {
    PlainWalk walk(list);
    for (int call = 0; call < 300; ++call) {
        for (std::size_t changes = any(4); changes > 0; --changes) {
            change_anything();
        }
        std::size_t frames = any(20);
        driver.on_read = [&](unsigned long) {
            if (frames == 0) {
                return;
            }
            --frames;
            if (any(6) == 0) {
                change_within_a_batch();
            }
            const ScriptedFrame frame = next_frame();
            driver.queue(frame);
            walk.receive(frame.cobid, payload);
        };
        ASSERT_EQ(master.read_all_messages(), 0);
        expect_as(walk);
        if (HasFatalFailure()) {
            FAIL() << "in call " << call;
        }
    }
}

TEST_P(TpdoChaos, ReadAllUntilDuplicateIsAPlainWalk) {
    PlainWalk walk(list);
    ScriptedFrame held;
    unsigned int held_payload = 0;
    for (int call = 0; call < 300; ++call) {
        for (std::size_t changes = any(4); changes > 0; --changes) {
            change_anything();
        }
        std::fill(walk.updated.begin(), walk.updated.end(), 0U);
        std::size_t frames = any(20);
        bool ended = false;
        if (held_payload != 0) {
            walk.receive_in_cycle(held.cobid, held_payload);
            held_payload = 0;
        }
        driver.on_read = [&](unsigned long) {
            if (frames == 0) {
                return;
            }
            --frames;
            if (any(6) == 0) {
                change_within_a_batch();
            }
            const ScriptedFrame frame = next_frame();
            driver.queue(frame);
            if (!walk.receive_in_cycle(frame.cobid, payload)) {
                ended = true;
                held = frame;
                held_payload = payload;
            }
        };
        const int result = master.read_all_until_duplicate_tpdo();
        ASSERT_EQ(result, ended ? 1 : 0) << "in call " << call;
        expect_as(walk);
        if (HasFatalFailure()) {
            FAIL() << "in call " << call;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Size, TpdoChaos, testing::Values(1, 4, 16, 17, 40, 64, 512), size_of_list);
