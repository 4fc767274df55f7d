// A log is played to a program: in its time, faster, or at once, and what the program writes is compared.

#include "nodevik/recording/replaydriver.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/util/monotonicclock.h"
#include "tests/support/scriptedclock.h"
#include "tests/support/temporaryfile.h"

namespace {

// One SYNC cycle of a master with node 5, and a heartbeat, as candump writes them.
const std::string bus =
    "(0000000100.000000) can0 080#\n"
    "(0000000100.001000) can0 185#1122\n"
    "(0000000100.002000) can0 205#3344\n"
    "(0000000100.102000) can0 705#05\n";

class Replay : public testing::Test {
protected:
    int open(const std::string& text) {
        file.write(text);
        return driver.open_log(file.path().c_str());
    }

    // The result of a read, and the frame's identifier.
    std::pair<int, unsigned int> read() {
        unsigned int id = 0;
        const int result = driver.read(id, length, data.data());
        return {result, id};
    }

    int write(unsigned int id, std::vector<unsigned char> bytes, unsigned int flags = 0) {
        return driver.write(id, static_cast<unsigned int>(bytes.size()), bytes.data(), flags);
    }

    ScriptedClock clock;
    TemporaryFile file;
    ReplayDriver driver;
    unsigned int length = 0;
    std::array<unsigned char, 8> data{};
};

using Read = std::pair<int, unsigned int>;

}  // namespace

TEST_F(Replay, BringsTheFramesOfOthersInTheirTime) {
    ASSERT_EQ(open(bus), 0);
    EXPECT_EQ(read(), Read(0, 0x185));
    EXPECT_EQ(length, 2U);
    EXPECT_EQ(data, (std::array<unsigned char, 8>{0x11, 0x22}));
    EXPECT_EQ(read(), Read(1, 0));
    const std::uint64_t due = driver.next_deadline();
    EXPECT_FALSE(driver.at_end());
    clock.now_us = due / 1000 - 10;
    EXPECT_EQ(read(), Read(1, 0));
    clock.now_us = due / 1000;
    EXPECT_EQ(read(), Read(0, 0x705));
    EXPECT_TRUE(driver.at_end());
    EXPECT_EQ(driver.next_deadline(), no_deadline);
    EXPECT_EQ(read(), Read(1, 0));
}

TEST_F(Replay, TheTimeBetweenFramesIsThatOfTheLog) {
    open(bus);
    driver.start();
    const std::uint64_t first = driver.next_deadline();
    read();
    EXPECT_EQ(driver.next_deadline() - first, 101'000'000U);
}

TEST_F(Replay, MayBeFasterOrSlower) {
    for (const auto& [factor, wait_ns] : {std::pair{10.0, 10'100'000U}, std::pair{0.5, 202'000'000U}}) {
        open(bus);
        driver.set_speed(factor);
        driver.start();
        const std::uint64_t first = driver.next_deadline();
        read();
        EXPECT_EQ(driver.next_deadline() - first, wait_ns) << factor;
    }
}

TEST_F(Replay, ANewSpeedHoldsFromNowOn) {
    open(bus);
    driver.start();
    read();
    const std::uint64_t due = driver.next_deadline();
    clock.now_us = due / 1000 - 50'000;
    driver.set_speed(2);
    const std::uint64_t left = driver.next_deadline() - std::uint64_t{clock.now_us} * 1000;
    EXPECT_NEAR(static_cast<double>(left), 25e6, 1e4);
}

TEST_F(Replay, MayBeAsFastAsItIsRead) {
    open(bus);
    driver.set_speed(0);
    EXPECT_EQ(read(), Read(0, 0x185));
    EXPECT_EQ(read(), Read(0, 0x705));
    EXPECT_EQ(read(), Read(1, 0));
}

TEST_F(Replay, ASpeedThatIsNoneIsAsFastAsItIsRead) {
    for (const double speed : {-1.0, std::nan(""), std::numeric_limits<double>::infinity()}) {
        open(bus);
        driver.set_speed(speed);
        EXPECT_EQ(read(), Read(0, 0x185));
        driver.set_speed(speed);
        EXPECT_LE(driver.next_deadline(), monotonic_ns()) << speed;
        EXPECT_EQ(read(), Read(0, 0x705)) << speed;
    }
}

TEST_F(Replay, ATimeThatGoesBackHoldsNothingUp) {
    open(
        "(0000000100.000000) can0 185#01\n"
        "(0000000050.000000) can0 185#02\n");
    EXPECT_EQ(read(), Read(0, 0x185));
    EXPECT_EQ(read(), Read(0, 0x185));
    EXPECT_EQ(data[0], 2);
}

TEST_F(Replay, ComparesWhatIsWrittenWithWhatWasWritten) {
    open(bus);
    driver.set_speed(0);
    EXPECT_EQ(write(0x080, {}), 0);
    EXPECT_EQ(write(0x205, {0x33, 0x44}), 0);
    EXPECT_EQ(driver.comparison().same, 2U);
    EXPECT_EQ(driver.comparison().different, 0U);
    EXPECT_EQ(driver.missing(), 0U);
}

TEST_F(Replay, TellsWhatDiffers) {
    std::vector<std::string> told;
    driver.set_difference([&told](const LogFrame& written, const LogFrame* then) {
        told.push_back(
            std::to_string(written.identifier) + " " + std::to_string(written.data[1]) + " " +
            (then == nullptr ? "-" : std::to_string(then->identifier) + " " + std::to_string(then->data[1])));
    });
    open(bus);
    write(0x081, {});
    write(0x205, {0x33, 0x45});
    write(0x205, {0x33, 0x44});
    EXPECT_EQ(told, (std::vector<std::string>{"129 0 128 0", "517 69 517 68", "517 68 -"}));
    EXPECT_EQ(driver.comparison().same, 0U);
    EXPECT_EQ(driver.comparison().different, 2U);
    EXPECT_EQ(driver.comparison().more, 1U);
}

TEST_F(Replay, CountsWhatTheProgramDidNotWriteAgain) {
    open(bus);
    write(0x080, {});
    EXPECT_EQ(driver.missing(), 1U);
}

TEST_F(Replay, ARemoteRequestIsNoDataFrame) {
    open("(0000000100.000000) can0 705#R\n(0000000100.000000) can0 705#R\n(0000000100.000000) can0 705#05\n");
    EXPECT_EQ(read(), Read(0, 0x705)) << "the answer; the requests were the program's";
    write(0x705, {}, 2);
    EXPECT_EQ(driver.comparison().same, 1U);
    write(0x705, {}, 0);
    EXPECT_EQ(driver.comparison().different, 1U);
}

TEST_F(Replay, AFrameWith29BitsIsNoneWith11) {
    driver.set_sent_by_program([](const LogFrame&) { return true; });
    open(
        "(0000000100.000000) can0 00000205#01\n(0000000100.000000) can0 205#01\n"
        "(0000000100.000000) can0 00000205#01\n(0000000100.000000) can0 00000205#R\n");
    write(0x205, {1}, 1);
    EXPECT_EQ(driver.comparison().same, 1U);
    write(0x205, {1}, 1);
    EXPECT_EQ(driver.comparison().different, 1U);
    write(0x205, {1}, 0);
    EXPECT_EQ(driver.comparison().same, 2U) << "without flags as the driver was opened";
    write(0x205, {}, 2);
    EXPECT_EQ(driver.comparison().different, 2U);
}

TEST_F(Replay, TheLettersOfALogDecideWhoSentAFrame) {
    open(
        "(0000000100.000000) can0 185#01 T\n"
        "(0000000100.000000) can0 205#02 R\n");
    EXPECT_EQ(read(), Read(0, 0x205));
    EXPECT_EQ(read(), Read(1, 0));
    write(0x185, {1});
    EXPECT_EQ(driver.comparison().same, 1U);
}

TEST_F(Replay, TheProgramMayDecideItself) {
    driver.set_sent_by_program([](const LogFrame& frame) { return frame.identifier == 0x185; });
    open(bus);
    driver.set_speed(0);
    EXPECT_EQ(read(), Read(0, 0x080));
    EXPECT_EQ(read(), Read(0, 0x205));
    write(0x185, {0x11, 0x22});
    EXPECT_EQ(driver.comparison().same, 1U);
}

TEST_F(Replay, KnowsWhatAMasterSends) {
    for (const unsigned int id :
         {0x000U, 0x080U, 0x100U, 0x201U, 0x27FU, 0x301U, 0x47FU, 0x501U, 0x601U, 0x67FU, 0x7E5U}) {
        LogFrame frame;
        frame.identifier = id;
        EXPECT_TRUE(ReplayDriver::master_sends(frame)) << id;
        frame.extended = true;
        EXPECT_FALSE(ReplayDriver::master_sends(frame)) << id;
    }
    for (const unsigned int id :
         {0x081U, 0x181U, 0x200U, 0x280U, 0x281U, 0x581U, 0x600U, 0x680U, 0x701U, 0x7E4U}) {
        LogFrame frame;
        frame.identifier = id;
        EXPECT_FALSE(ReplayDriver::master_sends(frame)) << id;
        frame.remote = true;
        EXPECT_TRUE(ReplayDriver::master_sends(frame)) << id;
    }
}

TEST_F(Replay, TellsObserversTheTimeAndTheKindOfEachFrame) {
    open("(0000000100.000007) can0 00000185#01\n");
    struct Witness : FrameObserver {
        void frame_passed(const ObservedFrame& frame) override {
            time_ns = frame.time_ns();
            extended = frame.extended;
        }
        std::uint64_t time_ns = 0;
        bool extended = false;
    } witness;
    ObservedDriver observed(driver, ReplayDriver::details);
    observed.add_observer(witness);
    EXPECT_EQ(observed.read_all(), 0);
    EXPECT_EQ(witness.time_ns, 100'000'007'000U);
    EXPECT_TRUE(witness.extended);
}

TEST_F(Replay, WaitsForAFrame) {
    open(bus);
    unsigned int id = 0;
    EXPECT_EQ(driver.read_wait(id, length, data.data(), 0), 0);
    EXPECT_EQ(driver.read_wait(id, length, data.data(), 50), 1);
    EXPECT_EQ(driver.read_wait(id, length, data.data(), 1000), 0);
    EXPECT_EQ(id, 0x705U);
    EXPECT_EQ(driver.read_wait(id, length, data.data(), 1000), 1);
}

TEST_F(Replay, DrivesAMasterAsTheBusDid) {
    CCANopen master;
    PDO inputs;
    PDO outputs;
    unsigned short value = 0;
    unsigned short command = 0x4433;
    open(bus);
    driver.set_speed(0);
    master.load_driver(driver);
    inputs.set_cobid(0x185);
    inputs.mapcopy(0, value);
    outputs.set_cobid(0x205);
    outputs.mapcopy(0, command);
    master.add_tpdo(inputs);
    master.add_rpdo(outputs);
    master.sync();
    master.read_all_messages();
    master.send_all_rpdos();
    EXPECT_EQ(value, 0x2211);
    EXPECT_EQ(driver.comparison().same, 2U);
    EXPECT_EQ(driver.missing(), 0U);
}

TEST_F(Replay, WithoutALogThereIsNothing) {
    EXPECT_EQ(driver.open_log("/nowhere/bus.log"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(driver.open(0, 0, 0, false), -1);
    EXPECT_EQ(read(), Read(-1, 0));
    EXPECT_TRUE(driver.at_end());
    ASSERT_EQ(open(bus), 0);
    EXPECT_EQ(driver.open(0, 0, 0, false), 0);
    driver.close();
    EXPECT_EQ(read(), Read(-1, 0));
    EXPECT_EQ(write(0x80, {}), 0);
    EXPECT_EQ(driver.comparison().more, 1U);
}
