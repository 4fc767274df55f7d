#include "nodevik/canopen.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/allocationcount.h"
#include "tests/support/childprocess.h"
#include "tests/support/scriptedcandriver.h"
#include "tests/support/scriptedclock.h"

namespace {

using Bytes = std::array<unsigned char, 8>;

// A master whose decoder writes a line that is easy to tell, and remembers what it was asked to decode.
class TracedMaster : public CCANopen {
public:
    int decode_result = 0;
    mutable std::vector<ScriptedFrame> decoded;

protected:
    int decode_message(uint32_t id, uint8_t len, const void* data) const override {
        ScriptedFrame frame(id, {});
        frame.length = len;
        std::copy_n(static_cast<const unsigned char*>(data), 8, frame.data.begin());
        decoded.push_back(frame);
        add_printf("<%x>", id);
        return decode_result;
    }
};

// A driver that is handed eight bytes by every write, as one that sends whole datagrams needs them.
class WholeFrameDriver : public ScriptedCanDriver {
public:
    Bytes last = {};
    int write(unsigned int cobid, unsigned int length, unsigned char* data, unsigned int flags) override {
        std::copy_n(data, last.size(), last.begin());
        return ScriptedCanDriver::write(cobid, length, data, flags);
    }
};

// A driver in memory that allocates nothing: it hands out its frames round and round, each time followed by
// an empty queue, and counts what is written.
class RingDriver : public ScriptedCanDriver {
public:
    std::array<ScriptedFrame, 16> frames = {};
    std::size_t count = 0;
    std::size_t next = 0;
    unsigned long sent = 0;

    int read(unsigned int& ID, unsigned int& length, unsigned char* data) override {
        if (next == count) {
            next = 0;
            return 1;
        }
        const ScriptedFrame& frame = frames[next];
        ++next;
        ID = frame.cobid;
        length = frame.length;
        std::copy_n(frame.data.begin(), frame.data.size(), data);
        return 0;
    }

    int write(unsigned int, unsigned int, unsigned char*, unsigned int) override {
        ++sent;
        return 0;
    }
};

// A master on a scripted driver whose usage errors do not end the process.
class Canopen : public testing::Test {
protected:
    Canopen() {
        master.load_driver(driver);
        master.set_debug(0);
    }

    ScriptedCanDriver driver;
    TracedMaster master;
};

using CanopenSetUp = Canopen;
using CanopenLists = Canopen;
using ReadAllMessages = Canopen;
using ReadCycle = Canopen;
using UpdateCount = Canopen;
using TpdoLookup = Canopen;
using SendRpdos = Canopen;
using SendFrame = Canopen;
using NetworkManagement = Canopen;
using NodeGuard = Canopen;

ChildResult child(const std::function<void()>& body) {
    return run_in_child([&] {
        body();
        std::printf("carried on");
    });
}

// What `body` prints when it is expected to carry on.
std::string printed(const std::function<void()>& body) {
    const ChildResult result = run_in_child(body);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    return result.out;
}

// What `body` prints when it is expected to end the process with status 1.
std::string last_words(const std::function<void()>& body) {
    const ChildResult result = child(body);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "");
    return result.out;
}

// A line as the decoder prints it in its first colour.
std::string line(const std::string& text) {
    return "\033[1;32m" + text + "\n\033[m";
}

// Hands a null reference over, which no compiler lets a program do by accident.
__attribute__((no_sanitize("undefined"))) void load_nothing(CCANopen& master) {
    CANdriver* volatile none = nullptr;
    master.load_driver(*none);  // NOLINT(clang-analyzer-core.NonNullParamChecker)
}

std::vector<std::unique_ptr<PDO>> pdos(unsigned int first, int count) {
    std::vector<std::unique_ptr<PDO>> made;
    made.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        made.push_back(std::make_unique<PDO>(first + static_cast<unsigned int>(i)));
    }
    return made;
}

}  // namespace

TEST_F(CanopenSetUp, LoadsADriverWithoutTouchingItsDebugWord) {
    EXPECT_EQ(driver.get_debug(), 1U);
}

TEST_F(CanopenSetUp, SetDebugWithBit4SetsItInTheDriver) {
    master.set_debug(4);
    EXPECT_EQ(driver.get_debug(), 5U);
}

TEST_F(CanopenSetUp, SetDebugNeverClearsTheDriversBit4) {
    master.set_debug(4);
    master.set_debug(0);
    EXPECT_EQ(driver.get_debug(), 5U);
}

TEST_F(CanopenSetUp, SetDebugPassesNoOtherBitOn) {
    master.set_debug(0xFB);
    EXPECT_EQ(driver.get_debug(), 1U);
}

TEST_F(CanopenSetUp, LoadDriverSetsBit4WhenTheMasterHasIt) {
    CCANopen other;
    other.set_debug(4 | 8);
    ScriptedCanDriver fresh;
    fresh.set_debug(2);
    other.load_driver(fresh);
    EXPECT_EQ(fresh.get_debug(), 6U);
}

TEST_F(CanopenSetUp, LoadDriverReplacesTheDriver) {
    ScriptedCanDriver other;
    master.load_driver(other);
    master.sync();
    EXPECT_TRUE(driver.written.empty());
    EXPECT_EQ(other.written.size(), 1U);
}

TEST_F(CanopenSetUp, ANullDriverFailsTheAssertion) {
    const ChildResult result = child([&] { load_nothing(master); });
    EXPECT_EQ(result.err, "nodevik/canopen: Assertion failed: &driver != __null\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.signal, SIGABRT);
}

TEST_F(CanopenSetUp, SetDebugPassesBit4AloneOn) {
    master.set_debug(0xFF);
    EXPECT_EQ(driver.get_debug(), 5U);
}

namespace {

// A master that tells its type filter.
class FilteredMaster : public CCANopen {
public:
    uint32_t filter() const { return m_TypeFilter; }
};

struct Switch {
    void (CCANopen::*show)(bool);
    uint32_t bit;
};

constexpr Switch switches[] = {
    {&CCANopen::show_nmt, 1},  {&CCANopen::show_tpdo, 4},  {&CCANopen::show_rpdo, 8},
    {&CCANopen::show_sdo, 16}, {&CCANopen::show_sync, 32}, {&CCANopen::show_nodeguard, 64},
};

}  // namespace

TEST(CanopenShowSwitches, EveryTypeIsShownAfterConstruction) {
    const FilteredMaster master;
    EXPECT_EQ(master.filter(), 125U);
}

TEST(CanopenShowSwitches, EachSwitchClearsAndSetsItsOwnBit) {
    for (const Switch& one : switches) {
        FilteredMaster master;
        (master.*one.show)(false);
        EXPECT_EQ(master.filter(), 125U & ~one.bit);
        (master.*one.show)(true);
        EXPECT_EQ(master.filter(), 125U);
        master.set_typefilter(0);
        (master.*one.show)(true);
        EXPECT_EQ(master.filter(), one.bit);
    }
}

TEST_F(CanopenLists, AddingReturnsZero) {
    PDO tpdo(0x181);
    PDO rpdo(0x201);
    EXPECT_EQ(master.add_tpdo(tpdo), 0);
    EXPECT_EQ(master.add_rpdo(rpdo), 0);
}

TEST_F(CanopenLists, OnePdoMayStandInBothLists) {
    PDO pdo(0x181);
    EXPECT_EQ(master.add_tpdo(pdo), 0);
    EXPECT_EQ(master.add_rpdo(pdo), 0);
}

TEST_F(CanopenLists, ARepeatedTpdoCobidIsRefusedWithAMessage) {
    PDO first(0x181);
    PDO second(0x181);
    master.add_tpdo(first);
    int result = 0;
    EXPECT_EQ(printed([&] {
                  result = master.add_tpdo(second);
                  std::printf("%d", result);
              }),
              "CCANopen::addTPDO COBID 0x181 has already been added to list\n-1");
}

TEST_F(CanopenLists, ARepeatedRpdoCobidIsRefusedWithAMessage) {
    PDO pdo(0x201);
    master.add_rpdo(pdo);
    EXPECT_EQ(printed([&] { std::printf("%d", master.add_rpdo(pdo)); }),
              "CCANopen::addRPDO COBID 0x201 has already been added to list\n-1");
}

TEST_F(CanopenLists, ARepeatWithoutACobidIsToldWithThreeDigits) {
    PDO pdo;
    master.add_tpdo(pdo);
    EXPECT_EQ(printed([&] { master.add_tpdo(pdo); }),
              "CCANopen::addTPDO COBID 0x000 has already been added to list\n");
}

TEST_F(CanopenLists, ARefusedPdoIsNotInTheList) {
    PDO first(0x201);
    PDO second(0x201);
    EXPECT_EQ(printed([&] {
                  master.add_rpdo(first);
                  master.add_rpdo(second);
                  master.send_all_rpdos();
                  std::printf("%zu", driver.written.size());
              }),
              "CCANopen::addRPDO COBID 0x201 has already been added to list\n1");
}

TEST(CanopenListErrors, EndTheProcessUnderTheDefaultDebugWord) {
    PDO pdo(0x181);
    EXPECT_EQ(last_words([&] {
                  CCANopen master;
                  master.add_tpdo(pdo);
                  master.add_tpdo(pdo);
              }),
              "CCANopen::addTPDO COBID 0x181 has already been added to list\n");
    EXPECT_EQ(last_words([&] {
                  CCANopen master;
                  master.add_rpdo(pdo);
                  master.add_rpdo(pdo);
              }),
              "CCANopen::addRPDO COBID 0x181 has already been added to list\n");
}

TEST_F(CanopenLists, ThePdoNumber513IsRefusedWithAMessage) {
    const auto many = pdos(0x181, 513);
    EXPECT_EQ(printed([&] {
                  for (int i = 0; i < 512; ++i) {
                      if (master.add_tpdo(*many[static_cast<std::size_t>(i)]) != 0 ||
                          master.add_rpdo(*many[static_cast<std::size_t>(i)]) != 0) {
                          std::printf("refused %d", i);
                      }
                  }
                  std::printf("%d\n", master.add_tpdo(*many[512]));
                  std::printf("%d\n", master.add_rpdo(*many[512]));
              }),
              "List full, Increase TPDO list size\n-1\nList full, Increase RPDO list size\n-1\n");
}

TEST_F(CanopenLists, AFullListEndsTheProcessUnderBit1) {
    const auto many = pdos(0x181, 513);
    for (int i = 0; i < 512; ++i) {
        master.add_tpdo(*many[static_cast<std::size_t>(i)]);
        master.add_rpdo(*many[static_cast<std::size_t>(i)]);
    }
    master.set_debug(1);
    EXPECT_EQ(last_words([&] { master.add_tpdo(*many[512]); }), "List full, Increase TPDO list size\n");
    EXPECT_EQ(last_words([&] { master.add_rpdo(*many[512]); }), "List full, Increase RPDO list size\n");
}

TEST_F(CanopenLists, ARepeatInAFullListIsCalledARepeat) {
    const auto many = pdos(0x181, 512);
    for (const auto& pdo : many) {
        master.add_tpdo(*pdo);
    }
    EXPECT_EQ(printed([&] { master.add_tpdo(*many[511]); }),
              "CCANopen::addTPDO COBID 0x380 has already been added to list\n");
}

TEST_F(ReadAllMessages, AnEmptyQueueReturnsZero) {
    EXPECT_EQ(master.read_all_messages(), 0);
    EXPECT_EQ(driver.reads(), 1U);
}

TEST_F(ReadAllMessages, ADriverErrorReturnsMinusOne) {
    driver.queue_result(-1);
    EXPECT_EQ(master.read_all_messages(), -1);
    driver.queue_result(2);
    EXPECT_EQ(master.read_all_messages(), -1);
}

TEST_F(ReadAllMessages, ADriverErrorEndsTheReading) {
    driver.queue_result(-1);
    driver.queue(0x181, {1});
    master.read_all_messages();
    EXPECT_EQ(driver.pending(), 1U);
}

TEST_F(ReadAllMessages, ATpdoReachesItsVariablesAndCounter) {
    unsigned short speed = 0;
    PDO tpdo(0x181);
    tpdo.mapcopy(2, speed);
    master.add_tpdo(tpdo);
    driver.queue(0x181, {0, 0, 0x34, 0x12});
    driver.queue(0x181, {0, 0, 0x78, 0x56});
    EXPECT_EQ(master.read_all_messages(), 0);
    EXPECT_EQ(speed, 0x5678);
    EXPECT_EQ(tpdo.PDO_updated, 2U);
}

TEST_F(ReadAllMessages, AShortFrameLeavesNoBytesOfTheOneBefore) {
    PDO tpdo(0x181);
    master.add_tpdo(tpdo);
    driver.queue(0x181, {1, 2, 3, 4, 5, 6, 7, 8});
    driver.queue(0x181, {9});
    master.read_all_messages();
    EXPECT_EQ(tpdo.get_value(), 9U);
}

TEST_F(ReadAllMessages, ExactlyTheFourDefaultFunctionCodesAreTpdos) {
    const auto all = pdos(0x181, 0x580 - 0x181);
    // The list holds 512, so the range is covered in two halves.
    for (std::size_t start : {std::size_t{0}, std::size_t{511}}) {
        TracedMaster one;
        one.load_driver(driver);
        for (std::size_t i = start; i < start + 512; ++i) {
            one.add_tpdo(*all[i]);
            driver.queue(all[i]->get_cobid(), {1});
        }
        one.read_all_messages();
    }
    for (const auto& pdo : all) {
        const unsigned int code = pdo->get_cobid() & 0x780;
        const bool tpdo = code == 0x180 || code == 0x280 || code == 0x380 || code == 0x480;
        const unsigned int times = pdo->get_cobid() == 0x181 + 511 ? 2 : 1;
        EXPECT_EQ(pdo->PDO_updated, tpdo ? times : 0U) << std::hex << pdo->get_cobid();
    }
}

TEST_F(ReadAllMessages, ATpdoThatNobodyAddedIsDroppedSilently) {
    driver.queue(0x181, {1});
    EXPECT_EQ(printed([&] { master.read_all_messages(); }), "");
    EXPECT_TRUE(master.decoded.empty());
}

TEST_F(ReadAllMessages, Bit4DecodesAndPrintsEveryFrame) {
    PDO tpdo(0x181);
    master.add_tpdo(tpdo);
    master.set_debug(4);
    driver.queue(0x181, {1, 2});
    driver.queue(0x182, {3});
    driver.queue(0x705, {5});
    EXPECT_EQ(printed([&] { master.read_all_messages(); }), line("<181>") + line("<182>") + line("<705>"));
}

TEST_F(ReadAllMessages, TheDecoderIsHandedTheWholeFrame) {
    master.set_debug(4);
    driver.queue(0x705, {5, 6});
    driver.queue(0x181, {7});
    testing::internal::CaptureStdout();
    master.read_all_messages();
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(master.decoded.size(), 2U);
    EXPECT_EQ(master.decoded[0], ScriptedFrame(0x705, {5, 6}));
    EXPECT_EQ(master.decoded[1], ScriptedFrame(0x181, {7}));
}

TEST_F(ReadAllMessages, AFrameThatTheDecoderDropsIsNotPrinted) {
    master.set_debug(4);
    master.decode_result = 1;
    driver.queue(0x705, {5});
    EXPECT_EQ(printed([&] { master.read_all_messages(); }), "");
}

TEST_F(ReadAllMessages, TheDecodedTextFollowsWhatTheDriverWroteAboutTheFrame) {
    master.set_debug(4);
    driver.queue(0x705, {5});
    driver.on_read = [&](unsigned long earlier) {
        if (earlier == 0) {
            driver.print_message(0x705, 1, "\5\0\0\0\0\0\0");
            driver.add_printf(" [R]");
        }
    };
    EXPECT_EQ(printed([&] { master.read_all_messages(); }),
              line("id 0x00000705  len 1  data 05 00 00 00 00 00 00 00 [R]<705>"));
}

TEST_F(ReadCycle, AnEmptyQueueReturnsZero) {
    EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 0);
}

TEST_F(ReadCycle, ClearsTheCountersFirst) {
    PDO tpdo(0x181);
    master.add_tpdo(tpdo);
    tpdo.PDO_updated = 7;
    master.read_all_until_duplicate_tpdo();
    EXPECT_EQ(tpdo.PDO_updated, 0U);
}

TEST_F(ReadCycle, ADriverErrorReturnsZero) {
    driver.queue_result(-1);
    EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 0);
    driver.queue(0x705, {5});
    driver.queue_result(-1);
    EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 0);
}

TEST_F(ReadCycle, TheQueueRunningDryReturnsZeroWithTheTpdosUpdatedOnce) {
    PDO a(0x181);
    PDO b(0x182);
    master.add_tpdo(a);
    master.add_tpdo(b);
    driver.queue(0x182, {2});
    EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 0);
    EXPECT_EQ(a.PDO_updated, 0U);
    EXPECT_EQ(b.PDO_updated, 1U);
    EXPECT_EQ(b.get_value(), 2U);
}

TEST_F(ReadCycle, ARepeatEndsTheCycleAndStartsTheNextOne) {
    PDO a(0x181);
    PDO b(0x281);
    PDO c(0x381);
    master.add_tpdo(a);
    master.add_tpdo(b);
    master.add_tpdo(c);
    driver.queue(0x181, {1});
    driver.queue(0x281, {2});
    driver.queue(0x181, {3, 4, 5, 6, 7, 8, 9, 10});
    driver.queue(0x381, {4});

    EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 1);
    EXPECT_EQ(a.get_value(), 1U);
    EXPECT_EQ(b.get_value(), 2U);
    EXPECT_EQ(a.PDO_updated, 1U);
    EXPECT_EQ(b.PDO_updated, 1U);
    EXPECT_EQ(c.PDO_updated, 0U);
    EXPECT_EQ(driver.pending(), 1U);

    EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 0);
    EXPECT_EQ(a.get_value(), 0x0A09080706050403U);
    EXPECT_EQ(a.PDO_updated, 1U);
    EXPECT_EQ(b.PDO_updated, 0U);
    EXPECT_EQ(c.PDO_updated, 1U);

    EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 0);
    EXPECT_EQ(a.PDO_updated, 0U);
}

TEST_F(ReadCycle, TheHeldFrameIsTakenWithoutReading) {
    PDO a(0x181);
    master.add_tpdo(a);
    driver.queue(0x181, {1});
    driver.queue(0x181, {2});
    master.read_all_until_duplicate_tpdo();
    unsigned int updates_before_read = 0;
    driver.on_read = [&](unsigned long) { updates_before_read = a.PDO_updated; };
    EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 0);
    EXPECT_EQ(updates_before_read, 1U);
    EXPECT_EQ(a.get_value(), 2U);
}

TEST_F(ReadCycle, ReadAllMessagesLeavesTheHeldFrameAlone) {
    PDO a(0x181);
    master.add_tpdo(a);
    driver.queue(0x181, {1});
    driver.queue(0x181, {2});
    master.read_all_until_duplicate_tpdo();
    master.read_all_messages();
    EXPECT_EQ(a.get_value(), 1U);
    master.read_all_until_duplicate_tpdo();
    EXPECT_EQ(a.get_value(), 2U);
}

TEST_F(ReadCycle, ATpdoThatNobodyAddedDoesNotEndTheCycle) {
    PDO a(0x181);
    master.add_tpdo(a);
    driver.queue(0x182, {1});
    driver.queue(0x182, {1});
    driver.queue(0x181, {3});
    EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 0);
    EXPECT_EQ(a.get_value(), 3U);
}

TEST_F(ReadCycle, EntriesThatCameToShareACobidAreAllUpdated) {
    PDO a(0x181);
    PDO b(0x182);
    PDO c(0x183);
    master.add_tpdo(a);
    master.add_tpdo(b);
    master.add_tpdo(c);
    c.cobid = 0x181;
    driver.queue(0x181, {1});
    driver.queue(0x181, {2});
    EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 1);
    EXPECT_EQ(a.get_value(), 1U);
    EXPECT_EQ(b.PDO_updated, 0U);
    EXPECT_EQ(c.get_value(), 1U);
    EXPECT_EQ(c.PDO_updated, 1U);
}

TEST_F(ReadCycle, AShortFrameLeavesNoBytesOfTheOneBefore) {
    PDO a(0x181);
    PDO b(0x182);
    master.add_tpdo(a);
    master.add_tpdo(b);
    driver.queue(0x181, {1, 2, 3});
    driver.queue(0x182, {9});
    master.read_all_until_duplicate_tpdo();
    EXPECT_EQ(b.get_value(), 9U);
}

TEST_F(ReadCycle, Bit4CallsEveryTpdoUnmappedAndDecodesOnlyOtherFrames) {
    PDO a(0x181);
    master.add_tpdo(a);
    master.set_debug(4);
    driver.queue(0x181, {1});
    driver.queue(0x4FF, {1});
    driver.queue(0x705, {5});
    driver.queue(0x181, {2});
    EXPECT_EQ(printed([&] { master.read_all_until_duplicate_tpdo(); }),
              "Received unmapped TPDO COBID=0x181 \nReceived unmapped TPDO COBID=0x4ff \n" + line("<705>"));
}

TEST_F(ReadCycle, WithoutBit4NothingIsPrinted) {
    driver.queue(0x181, {1});
    driver.queue(0x705, {5});
    EXPECT_EQ(printed([&] { master.read_all_until_duplicate_tpdo(); }), "");
}

TEST_F(ReadCycle, AHeldShortFrameHasNoBytesOfTheOneHeldBefore) {
    PDO a(0x181);
    master.add_tpdo(a);
    driver.queue(0x181, {1});
    driver.queue(0x181, {2, 2, 2, 2, 2, 2, 2, 2});
    driver.queue(0x181, {3});
    EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 1);
    EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 1);
    EXPECT_EQ(master.read_all_until_duplicate_tpdo(), 0);
    EXPECT_EQ(a.get_value(), 3U);
}

TEST_F(UpdateCount, CountsTheTpdosThatHaveNotCome) {
    PDO a(0x181);
    PDO b(0x182);
    PDO c(0x183);
    master.add_tpdo(a);
    master.add_tpdo(b);
    master.add_tpdo(c);
    EXPECT_EQ(master.all_tdpos_updated(0), 3);
    driver.queue(0x182, {});
    master.read_all_messages();
    EXPECT_EQ(master.all_tdpos_updated(0), 2);
    driver.queue(0x181, {});
    driver.queue(0x183, {});
    master.read_all_messages();
    EXPECT_EQ(master.all_tdpos_updated(0), 0);
    EXPECT_EQ(a.PDO_updated, 1U);
}

TEST_F(UpdateCount, Bit1ClearsTheCounters) {
    PDO a(0x181);
    master.add_tpdo(a);
    a.PDO_updated = 3;
    EXPECT_EQ(master.all_tdpos_updated(1), 0);
    EXPECT_EQ(a.PDO_updated, 0U);
    EXPECT_EQ(master.all_tdpos_updated(1), 1);
}

TEST_F(UpdateCount, Bit2PrintsEveryTpdo) {
    PDO a(0x181);
    PDO b(0x182);
    master.add_tpdo(a);
    master.add_tpdo(b);
    b.PDO_updated = 12;
    EXPECT_EQ(printed([&] {
                  const int missing = master.all_tdpos_updated(2);
                  std::printf("%d %u", missing, b.PDO_updated);
              }),
              "PDO 0x181 has been updated 0 times since last reset\n"
              "PDO 0x182 has been updated 12 times since last reset\n1 12");
    EXPECT_EQ(printed([&] {
                  const int missing = master.all_tdpos_updated(3);
                  std::printf("%d %u", missing, b.PDO_updated);
              }),
              "PDO 0x181 has been updated 0 times since last reset\n"
              "PDO 0x182 has been updated 12 times since last reset\n1 0");
}

namespace {

// Sends frame 0x181 through the master and returns which of the PDOs received it, "-" for none.
std::string receiver(CCANopen& master, ScriptedCanDriver& driver, const std::vector<PDO*>& list,
                     unsigned int cobid = 0x181) {
    for (PDO* pdo : list) {
        pdo->PDO_updated = 0;
    }
    driver.queue(cobid, {1});
    master.read_all_messages();
    std::string names;
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (list[i]->PDO_updated != 0) {
            names += static_cast<char>('a' + static_cast<char>(i));
        }
    }
    return names.empty() ? "-" : names;
}

}  // namespace

TEST_F(TpdoLookup, FollowsACobidThatChangesAfterAdding) {
    PDO a(0x182);
    PDO b(0x183);
    master.add_tpdo(a);
    master.add_tpdo(b);
    EXPECT_EQ(receiver(master, driver, {&a, &b}), "-");
    b.set_cobid(0x181);
    EXPECT_EQ(receiver(master, driver, {&a, &b}), "b");
    b.cobid = 0x184;
    EXPECT_EQ(receiver(master, driver, {&a, &b}), "-");
    EXPECT_EQ(receiver(master, driver, {&a, &b}, 0x184), "b");
}

TEST_F(TpdoLookup, TheFirstMatchInListOrderReceivesWhateverChangedLast) {
    PDO a(0x182);
    PDO b(0x181);
    PDO c(0x183);
    const std::vector<PDO*> list = {&a, &b, &c};
    for (PDO* pdo : list) {
        master.add_tpdo(*pdo);
    }
    EXPECT_EQ(receiver(master, driver, list), "b");
    c.cobid = 0x181;
    EXPECT_EQ(receiver(master, driver, list), "b");
    a.cobid = 0x181;
    EXPECT_EQ(receiver(master, driver, list), "a");
    a.cobid = 0x1FF;
    EXPECT_EQ(receiver(master, driver, list), "b");
    b.cobid += 1;
    EXPECT_EQ(receiver(master, driver, list), "c");
    EXPECT_EQ(receiver(master, driver, list, 0x182), "b");
}

TEST_F(TpdoLookup, SeesEveryWayToChangeACobid) {
    PDO a(0x182);
    PDO other(0x181);
    master.add_tpdo(a);
    const std::vector<std::function<void()>> ways = {
        [&] { a.cobid = 0x181; },
        [&] { a.set_cobid(0x181); },
        [&] { a.init(0x181); },
        [&] { a = other; },
        [&] { a.cobid = other.cobid; },
        [&] { a.cobid -= 1; },
        [&] { --a.cobid; },
        [&] { a.cobid ^= 3; },
        [&] { (a.cobid &= 0x180) |= 1; },
        [&] { a.cobid = 0x180, ++a.cobid; },
    };
    for (std::size_t i = 0; i < ways.size(); ++i) {
        a.cobid = 0x182;
        EXPECT_EQ(receiver(master, driver, {&a}), "-") << i;
        ways[i]();
        EXPECT_EQ(receiver(master, driver, {&a}), "a") << i;
    }
}

TEST_F(TpdoLookup, SeesACobidThatIsCalculatedWith) {
    PDO a;
    master.add_tpdo(a);
    struct Case {
        unsigned int before;
        std::function<unsigned int()> change;
        unsigned int result;
    };
    const std::vector<Case> cases = {
        {0x180, [&] { return a.cobid++; }, 0x180},        {0x182, [&] { return a.cobid--; }, 0x182},
        {0x182, [&] { return a.cobid += -1U; }, 0x181},   {0x0C1, [&] { return a.cobid |= 0x140; }, 0x1C1},
        {0x083, [&] { return a.cobid *= 3; }, 0x189},     {0x303, [&] { return a.cobid /= 2; }, 0x181},
        {0x581, [&] { return a.cobid %= 0x200; }, 0x181}, {0x0C0, [&] { return a.cobid <<= 1; }, 0x180},
        {0x302, [&] { return a.cobid >>= 1; }, 0x181},
    };
    for (const Case& each : cases) {
        a.cobid = each.before;
        EXPECT_EQ(receiver(master, driver, {&a}, 0x7FF), "-") << each.before;
        EXPECT_EQ(each.change(), each.result) << each.before;
        EXPECT_EQ(receiver(master, driver, {&a}, a.cobid), "a") << each.before;
    }
}

TEST_F(TpdoLookup, AChangeWithinTheQueueCountsFromTheNextFrameOn) {
    PDO a(0x182);
    PDO b(0x181);
    master.add_tpdo(a);
    master.add_tpdo(b);
    driver.queue(0x181, {1});
    driver.queue(0x181, {2});
    driver.on_read = [&](unsigned long earlier) {
        if (earlier == 1) {
            a.cobid = 0x181;
        }
    };
    master.read_all_messages();
    EXPECT_EQ(b.get_value(), 1U);
    EXPECT_EQ(a.get_value(), 2U);
}

TEST_F(TpdoLookup, AnExtendedIdentifierIsComparedWhole) {
    PDO a(0x181);
    PDO b(0x182);
    master.add_tpdo(a);
    master.add_tpdo(b);
    EXPECT_EQ(receiver(master, driver, {&a, &b}, 0x10000181), "-");
    b.cobid = 0x10000181;
    EXPECT_EQ(receiver(master, driver, {&a, &b}, 0x10000181), "b");
    EXPECT_EQ(receiver(master, driver, {&a, &b}), "a");
    a.cobid = 0x20000181;
    b.cobid = 0x181;
    EXPECT_EQ(receiver(master, driver, {&a, &b}), "b");
}

TEST_F(TpdoLookup, TwoMastersFollowTheirOwnPdos) {
    CCANopen other;
    ScriptedCanDriver other_driver;
    other.load_driver(other_driver);
    PDO a(0x181);
    PDO b(0x182);
    master.add_tpdo(a);
    other.add_tpdo(b);
    EXPECT_EQ(receiver(master, driver, {&a, &b}), "a");
    EXPECT_EQ(receiver(other, other_driver, {&a, &b}), "-");
    b.cobid = 0x181;
    EXPECT_EQ(receiver(other, other_driver, {&a, &b}), "b");
    EXPECT_EQ(receiver(master, driver, {&a, &b}), "a");
}

TEST_F(TpdoLookup, SeesAPdoThatIsAddedBetweenReceptions) {
    PDO a(0x181);
    PDO b(0x182);
    master.add_tpdo(a);
    EXPECT_EQ(receiver(master, driver, {&a, &b}), "a");
    master.add_tpdo(b);
    EXPECT_EQ(receiver(master, driver, {&a, &b}, 0x182), "b");
}

TEST_F(SendRpdos, AllAreSentWithTheirOwnLengthInListOrder) {
    unsigned short speed = 0x1234;
    unsigned char lamp = 0x56;
    PDO first(0x201);
    PDO second(0x185);
    first.mapcopy(0, speed);
    second.mapcopy(4, lamp);
    master.add_rpdo(first);
    master.add_rpdo(second);
    master.send_all_rpdos();
    master.send_all_rpdos();
    const ScriptedFrame first_frame(0x201, {0x34, 0x12});
    const ScriptedFrame second_frame(0x185, {0, 0, 0, 0, 0x56});
    EXPECT_EQ(driver.written,
              (std::vector<ScriptedFrame>{first_frame, second_frame, first_frame, second_frame}));
}

TEST_F(SendRpdos, ChangedOnesAreSentOncePerChange) {
    unsigned char left = 0;
    std::array<unsigned char, 1> right = {};
    PDO first(0x201);
    PDO second(0x202);
    first.mapcopy(0, left);
    second.mapcopy(0, right[0]);
    master.add_rpdo(first);
    master.add_rpdo(second);
    master.send_only_changed_rpdos();
    EXPECT_TRUE(driver.written.empty());
    right[0] = 5;
    master.send_only_changed_rpdos();
    master.send_only_changed_rpdos();
    EXPECT_EQ(driver.written, (std::vector<ScriptedFrame>{ScriptedFrame(0x202, {5})}));
}

TEST_F(SendRpdos, WriteResultsAreIgnored) {
    PDO pdo(0x201);
    PDO other(0x202);
    master.add_rpdo(pdo);
    master.add_rpdo(other);
    driver.write_result = -1;
    master.send_all_rpdos();
    EXPECT_EQ(driver.written.size(), 2U);
}

TEST_F(SendRpdos, ASinglePdoIsSentWithEightBytes) {
    unsigned short speed = 0x1234;
    PDO pdo(0x201);
    pdo.mapcopy(0, speed);
    EXPECT_EQ(pdo.get_len(), 2U);
    master.send_pdo(pdo);
    EXPECT_EQ(driver.written,
              (std::vector<ScriptedFrame>{ScriptedFrame(0x201, {0x34, 0x12, 0, 0, 0, 0, 0, 0})}));
    EXPECT_EQ(pdo.get_len(), 2U);
}

TEST_F(SendFrame, SendsTheLowBytesFirst) {
    master.send_frame(0x100, 8, 0x1122334455667788U);
    master.send_frame(0x101, 3, 0x1122334455667788U);
    master.send_frame(0x102, 0, 0x1122334455667788U);
    EXPECT_EQ(driver.written, (std::vector<ScriptedFrame>{
                                  ScriptedFrame(0x100, {0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11}),
                                  ScriptedFrame(0x101, {0x88, 0x77, 0x66}), ScriptedFrame(0x102, {})}));
}

TEST_F(SendFrame, MoreThanEightBytesAreRefused) {
    EXPECT_EQ(printed([&] {
                  master.send_frame(0x100, 9, 1ULL);
                  std::printf("%zu", driver.written.size());
              }),
              "CCANopen::send_frame Parameter value 'len' too big, max is eight, packet is not sent\n0");
}

TEST_F(SendFrame, AStringIsSentWithItsTerminatingZero) {
    char abc[] = "ABC";
    char nothing[] = "";
    char seven[] = "1234567";
    master.send_frame(0x100, abc);
    master.send_frame(0x101, nothing);
    master.send_frame(0x102, seven);
    EXPECT_EQ(driver.written, (std::vector<ScriptedFrame>{
                                  ScriptedFrame(0x100, {0x41, 0x42, 0x43, 0x00}), ScriptedFrame(0x101, {0}),
                                  ScriptedFrame(0x102, {'1', '2', '3', '4', '5', '6', '7', 0})}));
}

TEST_F(SendFrame, AStringOfEightCharactersIsRefused) {
    char eight[] = "12345678";
    EXPECT_EQ(printed([&] {
                  master.send_frame(0x100, eight);
                  std::printf("%zu", driver.written.size());
              }),
              "CCANopen::send_frame  Parameter value 'len' too big, max is eight, packet is not sent\n0");
}

TEST_F(SendFrame, ANullStringIsRefused) {
    EXPECT_EQ(printed([&] {
                  master.send_frame(0x100, nullptr);
                  std::printf("%zu", driver.written.size());
              }),
              "CCANopen::send_frame  Parameter data has a Null Pointer, packet is not sent\n0");
}

TEST_F(NetworkManagement, SyncHasNoData) {
    master.sync();
    EXPECT_EQ(driver.written, (std::vector<ScriptedFrame>{ScriptedFrame(0x080, {})}));
}

TEST_F(NetworkManagement, EachCommandSendsItsByteAndTheNode) {
    master.set_preoperational(1);
    master.start_node(2);
    master.stop_node(3);
    master.reset_node(0xFF);
    master.reset_communication(127);
    master.start_node(0);
    EXPECT_EQ(driver.written,
              (std::vector<ScriptedFrame>{ScriptedFrame(0, {0x80, 1}), ScriptedFrame(0, {0x01, 2}),
                                          ScriptedFrame(0, {0x02, 3}), ScriptedFrame(0, {0x81, 0xFF}),
                                          ScriptedFrame(0, {0x82, 127}), ScriptedFrame(0, {0x01, 0})}));
}

TEST_F(NetworkManagement, EveryWriteHandsOverEightBytesWithZerosAtTheEnd) {
    WholeFrameDriver whole;
    master.load_driver(whole);
    char text[] = "AB";
    whole.last.fill(0xFF);
    master.start_node(5);
    EXPECT_EQ(whole.last, (Bytes{1, 5}));
    whole.last.fill(0xFF);
    master.sync();
    EXPECT_EQ(whole.last, Bytes{});
    whole.last.fill(0xFF);
    master.nodeguard(5, 0);
    EXPECT_EQ(whole.last, Bytes{});
    whole.last.fill(0xFF);
    master.send_frame(0x100, text);
    EXPECT_EQ(whole.last, (Bytes{'A', 'B'}));
}

namespace {

// Lets the node answer the guarding request.
void answer_guarding(ScriptedCanDriver& driver, const std::vector<ScriptedFrame>& answers) {
    driver.on_write = [&driver, answers](const ScriptedFrame&) {
        for (const ScriptedFrame& answer : answers) {
            driver.queue(answer);
        }
    };
}

}  // namespace

TEST_F(NodeGuard, SendsARemoteRequestToTheLowSevenBits) {
    master.nodeguard(5, 0);
    master.nodeguard(0x85, 0);
    EXPECT_EQ(driver.written,
              (std::vector<ScriptedFrame>{ScriptedFrame(0x705, {}, 2), ScriptedFrame(0x705, {}, 2)}));
}

TEST_F(NodeGuard, ReturnsTheStateWithoutTheToggleBit) {
    struct Row {
        unsigned char byte;
        int result;
    };
    constexpr Row rows[] = {{4, 4},    {0x84, 4}, {5, 5}, {0x85, 5}, {0x7F, 127}, {0xFF, 127},
                            {0x00, 0}, {0x80, 0}, {6, 0}, {1, 0},    {126, 0}};
    for (const Row& row : rows) {
        answer_guarding(driver, {ScriptedFrame(0x705, {row.byte})});
        EXPECT_EQ(master.nodeguard(5, 100), row.result) << int{row.byte};
    }
}

TEST_F(NodeGuard, WithoutAnAnswerAndTimePollsOnceAndReturnsMinusOne) {
    const ScriptedClock clock;
    EXPECT_EQ(master.nodeguard(5, 0), -1);
    EXPECT_EQ(driver.reads(), 1U);
    EXPECT_EQ(clock.pauses_us, (std::vector<std::uint64_t>{100}));
}

TEST_F(NodeGuard, WaitsItsMillisecondsInPausesOfAHundredMicroseconds) {
    const ScriptedClock clock;
    EXPECT_EQ(master.nodeguard(5, 10), -1);
    // Each look at the clock takes 1 us: 99 rounds of 101 us and the one that ends the wait.
    EXPECT_EQ(clock.pauses_us, std::vector<std::uint64_t>(100, 100));
    EXPECT_EQ(driver.reads(), 100U);
    EXPECT_EQ(driver.written.size(), 1U);
}

TEST_F(NodeGuard, ADriverErrorCountsAsAnEmptyQueue) {
    const ScriptedClock clock;
    driver.queue_result(-1);
    driver.queue_result(1);
    driver.queue(0x705, {5});
    EXPECT_EQ(master.nodeguard(5, 100), 5);
    EXPECT_EQ(clock.pauses_us.size(), 3U);
}

TEST_F(NodeGuard, OtherFramesAreConsumedAndLost) {
    const ScriptedClock clock;
    PDO tpdo(0x181);
    master.add_tpdo(tpdo);
    master.set_debug(4);
    answer_guarding(driver, {ScriptedFrame(0x706, {4}), ScriptedFrame(0x181, {1}), ScriptedFrame(0x705, {5}),
                             ScriptedFrame(0x707, {4})});
    EXPECT_EQ(master.nodeguard(5, 100), 5);
    EXPECT_EQ(tpdo.PDO_updated, 0U);
    EXPECT_TRUE(master.decoded.empty());
    EXPECT_EQ(driver.pending(), 1U);
    EXPECT_EQ(clock.pauses_us.size(), 1U);
}

TEST_F(NodeGuard, Bit8TracesTheState) {
    struct Row {
        unsigned char byte;
        const char* text;
    };
    constexpr Row rows[] = {{0x84, "NodeGuard: node 5 state Stopped\n"},
                            {0x05, "NodeGuard: node 5 state Operational\n"},
                            {0x7F, "NodeGuard: node 5 state Pre-Operational\n"},
                            {0x00, "NodeGuard: node 5 Unknown Nodeguard response\n"}};
    for (const Row& row : rows) {
        answer_guarding(driver, {ScriptedFrame(0x705, {row.byte})});
        EXPECT_EQ(printed([&] {
                      master.set_debug(8);
                      master.nodeguard(0x85, 100);
                  }),
                  row.text);
        EXPECT_EQ(printed([&] {
                      master.set_debug(0xF7);
                      master.nodeguard(0x85, 100);
                  }),
                  "");
    }
}

TEST_F(NodeGuard, Bit8TracesASilentNodeByTheNumberAskedFor) {
    EXPECT_EQ(printed([&] {
                  master.set_debug(8);
                  master.nodeguard(0x85, 0);
              }),
              "NodeGuard: No Response from node 133!\n");
    EXPECT_EQ(printed([&] { master.nodeguard(5, 0); }), "");
}

TEST_F(NodeGuard, TheTimeOutClockIsNotCorrectedForItsWrap) {
    constexpr std::uint64_t wrap_us = 1ULL << 32;
    {
        // The end lies beyond the wrap: it looks past, and one poll is all.
        const ScriptedClock clock(wrap_us - 500);
        EXPECT_EQ(master.nodeguard(5, 1), -1);
        EXPECT_EQ(clock.pauses_us.size(), 1U);
    }
    {
        // The clock jumps over an end just before the wrap: the wait goes on until the answer comes.
        ScriptedClock clock(wrap_us - 1001);
        driver.on_read = [&](unsigned long) {
            if (clock.now_us == wrap_us - 900) {
                clock.now_us = wrap_us + 5000000;
            }
            if (clock.pauses_us.size() == 1000) {
                driver.queue(0x705, {5});
            }
        };
        EXPECT_EQ(master.nodeguard(5, 1), 5);
        EXPECT_EQ(clock.pauses_us.size(), 1000U);
    }
}

TEST_F(NodeGuard, TheTimeIsUpAtItsExactEnd) {
    const ScriptedClock clock;
    EXPECT_EQ(master.nodeguard(5, 101), -1);
    // 1000 rounds of 101 us end at the very microsecond.
    EXPECT_EQ(clock.pauses_us.size(), 1000U);
}

TEST_F(NodeGuard, TheTimeStartsAfterTheRequestIsSent) {
    ScriptedClock clock;
    driver.on_write = [&](const ScriptedFrame&) { clock.now_us += 5000; };
    EXPECT_EQ(master.nodeguard(5, 10), -1);
    EXPECT_EQ(clock.pauses_us.size(), 100U);
}

TEST(CanopenCycle, AllocatesNothingAfterConstruction) {
    RingDriver driver;
    CCANopen master;
    master.load_driver(driver);
    master.set_debug(0);
    std::array<unsigned short, 4> values = {};
    std::array<unsigned char, 1> output = {};
    PDO tpdo(0x181);
    PDO other(0x182);
    PDO rpdo(0x201);
    for (unsigned int i = 0; i < 4; ++i) {
        tpdo.mapcopy(2 * i, values[i]);
    }
    rpdo.mapcopy(0, output[0]);
    master.add_tpdo(tpdo);
    master.add_tpdo(other);
    master.add_rpdo(rpdo);
    driver.frames[0] = ScriptedFrame(0x181, {1, 0, 2, 0, 3, 0, 4, 0});
    driver.frames[1] = ScriptedFrame(0x182, {1});
    driver.frames[2] = ScriptedFrame(0x705, {5});
    driver.frames[3] = ScriptedFrame(0x181, {5, 0, 6, 0, 7, 0, 8, 0});
    driver.frames[4] = ScriptedFrame(0x585, {0x60, 0x00, 0x20, 0x00});
    driver.frames[5] = ScriptedFrame(0x585, {0x43, 0x01, 0x20, 0x00, 1, 2, 3, 4});
    driver.frames[6] = ScriptedFrame(0x585, {0x41, 0x02, 0x20, 0x00, 3, 0, 0, 0});
    driver.frames[7] = ScriptedFrame(0x585, {0x09, 'a', 'b', 'c'});
    driver.frames[8] = ScriptedFrame(0x585, {0x60, 0x03, 0x20, 0x00});
    driver.frames[9] = ScriptedFrame(0x585, {0x20});
    driver.count = 10;
    char text[] = "abc";
    char room[8] = {};
    int value = 0;
    unsigned int length = sizeof room;
    std::array<int, 6> results = {};

    const unsigned long before = allocations();
    for (int i = 0; i < 10; ++i) {
        output[0] = static_cast<unsigned char>(i);
        other.cobid = 0x190U + static_cast<unsigned int>(i);
        master.send_all_rpdos();
        master.send_only_changed_rpdos();
        master.send_pdo(rpdo);
        master.send_frame(0x100, 8, 1ULL);
        master.send_frame(0x100, text);
        master.sync();
        master.start_node(5);
        results[0] = master.read_all_messages();
        master.read_all_until_duplicate_tpdo();
        results[1] = master.nodeguard(5, 1000);
        results[2] = master.sdo_write(5, 0x2000, 0, 1, 1);
        results[3] = master.sdo_read(5, 0x2001, 0, value);
        length = sizeof room;
        results[4] = master.sdo_read_segment(5, 0x2002, 0, length, room);
        results[5] = master.sdo_write_segment(5, 0x2003, 0, 3, text);
        master.all_tdpos_updated(1);
    }
    const unsigned long after = allocations();

    EXPECT_EQ(after, before);
    EXPECT_EQ(results, (std::array<int, 6>{0, 5, 0, 0, 0, 0}));
    EXPECT_EQ(values[0], 5);
    EXPECT_EQ(std::string(room, length), "abc");
    EXPECT_GT(driver.sent, 0U);
    const auto counted = std::make_unique<char[]>(10);
    EXPECT_GT(allocations(), after);
}
