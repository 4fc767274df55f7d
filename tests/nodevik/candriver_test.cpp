#include "nodevik/candriver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <type_traits>
#include <vector>

#include "tests/support/childprocess.h"
#include "tests/support/scriptedcandriver.h"

namespace {

// Shows the protected fields to the tests.
class OpenedUpDriver : public ScriptedCanDriver {
public:
    using CANdriver::candata;
    using CANdriver::driver_debug;
    using CANdriver::frame_type;
    using CANdriver::isopen;
    using CANdriver::OVerrors;
    using CANdriver::read_frame_type;
    using CANdriver::RXerrors;
    using CANdriver::timestamp;
    using CANdriver::TXerrors;
};

// Tells when it is destroyed.
class MortalDriver : public ScriptedCanDriver {
public:
    explicit MortalDriver(bool& destroyed) : destroyed_(destroyed) {}
    ~MortalDriver() override { destroyed_ = true; }
    MortalDriver(const MortalDriver&) = delete;
    MortalDriver& operator=(const MortalDriver&) = delete;

private:
    bool& destroyed_;
};

// A driver that can block on reception.
class BlockingDriver : public ScriptedCanDriver {
public:
    int read_wait(unsigned int& ID, unsigned int& length, unsigned char* data, long timeout) override {
        last_timeout = timeout;
        return read(ID, length, data);
    }

    long last_timeout = 0;
};

// Its blocking read has parameters of its own and is another function than the interface's.
class DriverWithOwnReadWait : public ScriptedCanDriver {
public:
    using CANdriver::read_wait;
    int read_wait(unsigned int& /*ID*/, unsigned int& /*length*/, unsigned char* /*data*/) { return 0; }
};

}  // namespace

TEST(CanDriver, IsFreshAfterConstruction) {
    const OpenedUpDriver driver;
    EXPECT_EQ(driver.get_debug(), 1U);
    EXPECT_EQ(driver.driver_debug, 1U);
    EXPECT_EQ(driver.isopen, 0);
    EXPECT_EQ(driver.frame_type, 0U);
    EXPECT_EQ(driver.read_frame_type, 0U);
    for (const unsigned char byte : driver.candata) {
        EXPECT_EQ(byte, 0);
    }
}

TEST(CanDriver, FieldsStandInTheirOrder) {
    const OpenedUpDriver driver;
    const std::vector<const void*> addresses = {
        &driver.candata,  &driver.timestamp, &driver.isopen,     &driver.driver_debug,   &driver.RXerrors,
        &driver.TXerrors, &driver.OVerrors,  &driver.frame_type, &driver.read_frame_type};
    EXPECT_TRUE(std::is_sorted(addresses.begin(), addresses.end()));
}

TEST(CanDriver, SetDebugReplacesTheWord) {
    OpenedUpDriver driver;
    driver.set_debug(0);
    EXPECT_EQ(driver.get_debug(), 0U);
    driver.set_debug(0xFFFFFFFF);
    EXPECT_EQ(driver.get_debug(), 0xFFFFFFFFU);
    EXPECT_EQ(driver.driver_debug, 0xFFFFFFFFU);
    driver.set_debug(4);
    EXPECT_EQ(driver.get_debug(), 4U);
}

TEST(CanDriver, IsAnAbstractDecoder) {
    EXPECT_TRUE((std::is_base_of_v<CDecoder, CANdriver>));
    EXPECT_TRUE((std::is_convertible_v<CANdriver*, CDecoder*>));
    EXPECT_TRUE(std::is_abstract_v<CANdriver>);
    EXPECT_TRUE(std::has_virtual_destructor_v<CANdriver>);
}

TEST(CanDriver, IsDestroyedThroughTheInterface) {
    bool destroyed = false;
    std::unique_ptr<CANdriver> driver = std::make_unique<MortalDriver>(destroyed);
    driver.reset();
    EXPECT_TRUE(destroyed);
}

TEST(CanDriver, DecodesAsItsBaseDoes) {
    const ScriptedCanDriver driver;
    const std::array<unsigned char, 8> data = {1, 2, 3, 4, 5, 6, 7, 8};
    const CANdriver& interface = driver;
    EXPECT_EQ(interface.decode_message(0x181, 8, data.data()), 0);
}

TEST(CanDriver, DefaultReadWaitFailsItsAssertion) {
    const ChildResult result = run_in_child([] {
        ScriptedCanDriver driver;
        driver.queue(0x181, {1});
        unsigned int id = 0;
        unsigned int length = 0;
        std::array<unsigned char, 8> data{};
        driver.read_wait(id, length, data.data(), 0);
        std::printf("carried on");
    });
    EXPECT_EQ(result.err, "nodevik/candriver: Assertion failed: 1 == 2\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.signal, SIGABRT);
}

TEST(CanDriver, ReadWaitOfOtherParametersDoesNotTakeTheInterfacesPlace) {
    const ChildResult result = run_in_child([] {
        DriverWithOwnReadWait driver;
        unsigned int id = 0;
        unsigned int length = 0;
        std::array<unsigned char, 8> data{};
        std::printf("own %d\n", driver.read_wait(id, length, data.data()));
        static_cast<CANdriver&>(driver).read_wait(id, length, data.data(), 1000);
    });
    EXPECT_EQ(result.out, "own 0\n");
    EXPECT_EQ(result.err, "nodevik/candriver: Assertion failed: 1 == 2\n");
    EXPECT_EQ(result.signal, SIGABRT);
}

TEST(CanDriver, ReadWaitCanBeOverridden) {
    BlockingDriver driver;
    driver.queue(0x181, {1, 2});
    unsigned int id = 0;
    unsigned int length = 0;
    std::array<unsigned char, 8> data{};
    EXPECT_EQ(static_cast<CANdriver&>(driver).read_wait(id, length, data.data(), 77), 0);
    EXPECT_EQ(id, 0x181U);
    EXPECT_EQ(length, 2U);
    EXPECT_EQ(driver.last_timeout, 77);
}

#if defined(__GNUC__) && defined(__x86_64__)

namespace {

// The position of a virtual function among those of its class, as the ABI keeps it in a pointer to member;
// the destructor takes the first two.
template <typename Function>
std::size_t slot_of(Function function) {
    std::array<std::size_t, sizeof(Function) / sizeof(std::size_t)> parts{};
    std::memcpy(parts.data(), &function, sizeof function);
    return (parts[0] - 1) / sizeof(void*);
}

}  // namespace

TEST(CanDriver, VirtualOperationsStandInTheirSlots) {
    constexpr std::size_t destructors = 2;
    EXPECT_EQ(slot_of(&CANdriver::set_typefilter), destructors);
    EXPECT_EQ(slot_of(&CANdriver::decode_message), destructors + 1);
    EXPECT_EQ(slot_of(&CANdriver::open), destructors + 2);
    EXPECT_EQ(slot_of(&CANdriver::close), destructors + 3);
    EXPECT_EQ(slot_of(&CANdriver::read), destructors + 4);
    EXPECT_EQ(slot_of(&CANdriver::write), destructors + 5);
    EXPECT_EQ(slot_of(&CANdriver::read_wait), destructors + 6);
    EXPECT_EQ(slot_of(&CANdriver::read_error_counters), destructors + 7);
    EXPECT_EQ(slot_of(&CANdriver::reset_rx_errors), destructors + 8);
    EXPECT_EQ(slot_of(&CANdriver::reset_tx_errors), destructors + 9);
}

#endif

TEST(ScriptedCanDriver, ReadsItsScriptAndThenNothing) {
    ScriptedCanDriver driver;
    driver.queue(0x181, {1, 2, 3});
    driver.queue_result(-1);
    driver.queue_result(1);
    driver.queue(ScriptedFrame(0x80, {}));
    EXPECT_EQ(driver.pending(), 4U);

    unsigned int id = 0;
    unsigned int length = 0;
    std::array<unsigned char, 8> data = {9, 9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(driver.read(id, length, data.data()), 0);
    EXPECT_EQ(id, 0x181U);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(data, (std::array<unsigned char, 8>{1, 2, 3, 9, 9, 9, 9, 9}));
    EXPECT_EQ(driver.read(id, length, data.data()), -1);
    EXPECT_EQ(driver.read(id, length, data.data()), 1);
    EXPECT_EQ(driver.read(id, length, data.data()), 0);
    EXPECT_EQ(id, 0x80U);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(driver.read(id, length, data.data()), 1);
    EXPECT_EQ(driver.pending(), 0U);
    EXPECT_EQ(driver.reads(), 5U);
}

TEST(ScriptedCanDriver, RecordsWhatIsWrittenAndLetsATestAnswer) {
    ScriptedCanDriver driver;
    driver.on_write = [&](const ScriptedFrame& frame) { driver.queue(frame.cobid + 1, {42}); };
    driver.write_result = -7;
    std::array<unsigned char, 8> data = {1, 2, 3, 4};
    EXPECT_EQ(driver.write(0x601, 2, data.data(), 0), -7);
    EXPECT_EQ(driver.write(0x701, 0, nullptr, 2), -7);
    EXPECT_EQ(driver.written, (std::vector{ScriptedFrame(0x601, {1, 2}), ScriptedFrame(0x701, {}, 2)}));

    unsigned int id = 0;
    unsigned int length = 0;
    EXPECT_EQ(driver.read(id, length, data.data()), 0);
    EXPECT_EQ(id, 0x602U);
    EXPECT_EQ(data[0], 42);
}

TEST(ScriptedCanDriver, LetsATestQueueFramesAtALaterRead) {
    ScriptedCanDriver driver;
    driver.on_read = [&](unsigned long earlier) {
        if (earlier == 2) {
            driver.queue(0x581, {1});
        }
    };
    unsigned int id = 0;
    unsigned int length = 0;
    std::array<unsigned char, 8> data{};
    EXPECT_EQ(driver.read(id, length, data.data()), 1);
    EXPECT_EQ(driver.read(id, length, data.data()), 1);
    EXPECT_EQ(driver.read(id, length, data.data()), 0);
    EXPECT_EQ(id, 0x581U);
}

TEST(ScriptedCanDriver, OpensClosesAndClearsItsErrorCounts) {
    OpenedUpDriver driver;
    EXPECT_EQ(driver.open(500000, 0, 0, false), 0);
    EXPECT_NE(driver.isopen, 0);
    driver.close();
    EXPECT_EQ(driver.isopen, 0);
    driver.TXerrors = 1;
    driver.RXerrors = 2;
    driver.OVerrors = 3;
    unsigned int tx = 0;
    unsigned int rx = 0;
    unsigned int overrun = 0;
    EXPECT_EQ(driver.read_error_counters(tx, rx, overrun), 0);
    EXPECT_EQ(tx, 1U);
    EXPECT_EQ(rx, 2U);
    EXPECT_EQ(overrun, 3U);
    driver.reset_rx_errors();
    driver.reset_tx_errors();
    driver.read_error_counters(tx, rx, overrun);
    EXPECT_EQ(tx, 0U);
    EXPECT_EQ(rx, 0U);
}
