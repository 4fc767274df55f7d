#include "nodevik/observeddriver.h"

#include <gtest/gtest.h>
#include <time.h>

#include <array>
#include <cstdio>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/udpdriver.h"
#include "nodevik/util/monotonicclock.h"
#include "tests/support/allocationcount.h"
#include "tests/support/childprocess.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/scriptedcandriver.h"

namespace {

using Direction = ObservedFrame::Direction;
using Lines = std::vector<std::string>;

// "R 181 [2] 01 02": direction, identifier, length, data; "remote" and "extended" if so.
std::string line_of(const ObservedFrame& frame) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%c %x [%u]", frame.direction == Direction::received ? 'R' : 'T',
                  frame.identifier, frame.length);
    std::string line = text.data();
    for (unsigned int i = 0; i < frame.size(); ++i) {
        std::snprintf(text.data(), text.size(), " %02x", static_cast<unsigned int>(frame.data[i]));
        line += text.data();
    }
    return line + (frame.remote ? " remote" : "") + (frame.extended ? " extended" : "");
}

// Keeps what it is shown, and acts when it is told to.
class Witness : public FrameObserver {
public:
    void frame_passed(const ObservedFrame& frame) override {
        seen.push_back(line_of(frame));
        if (act) {
            act(frame);
        }
    }

    Lines seen;
    std::function<void(const ObservedFrame&)> act;
};

// A driver whose every call tells itself, and with results of its own.
class TellingDriver : public ScriptedCanDriver {
public:
    int open(unsigned int speed, unsigned int mode, unsigned int port, bool silent) override {
        calls.push_back("open " + std::to_string(speed) + " " + std::to_string(mode) + " " +
                        std::to_string(port) + (silent ? " silent" : ""));
        frame_type = mode;
        return 11;
    }
    void close() override { calls.emplace_back("close"); }
    int read_wait(unsigned int& ID, unsigned int& length, unsigned char* data, long timeout) override {
        calls.push_back("read_wait " + std::to_string(timeout));
        return ScriptedCanDriver::read(ID, length, data);
    }
    int read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) override {
        txErr = 1;
        rxErr = 2;
        ovErr = 3;
        return 12;
    }
    void reset_rx_errors() override { calls.emplace_back("reset_rx_errors"); }
    void reset_tx_errors() override { calls.emplace_back("reset_tx_errors"); }
    void set_typefilter(uint32_t filter) override {
        calls.push_back("set_typefilter " + std::to_string(filter));
    }
    int decode_message(uint32_t id, uint8_t len, const void*) const override {
        return static_cast<int>(id) + len;
    }

    Lines calls;
};

class Observed : public testing::Test {
protected:
    Observed() { driver.add_observer(witness); }

    int read() { return driver.read(identifier, length, data.data()); }
    int write(unsigned int id, std::array<unsigned char, 8> bytes, unsigned int size,
              unsigned int flags = 0) {
        return driver.write(id, size, bytes.data(), flags);
    }

    TellingDriver bus;
    ObservedDriver driver{bus};
    Witness witness;
    unsigned int identifier = 77;
    unsigned int length = 77;
    std::array<unsigned char, 8> data{9, 9, 9, 9, 9, 9, 9, 9};
};

}  // namespace

TEST_F(Observed, PassesEveryCallOnAndItsResultBack) {
    CANdriver& front = driver;
    unsigned int tx = 0;
    unsigned int rx = 0;
    unsigned int overruns = 0;
    EXPECT_EQ(front.open(1, 2, 3, true), 11);
    front.close();
    EXPECT_EQ(front.read_wait(identifier, length, data.data(), 70000), 1);
    EXPECT_EQ(front.read_error_counters(tx, rx, overruns), 12);
    EXPECT_EQ(tx * 100 + rx * 10 + overruns, 123U);
    front.reset_rx_errors();
    front.reset_tx_errors();
    front.set_typefilter(5);
    EXPECT_EQ(front.decode_message(100, 8, data.data()), 108);
    EXPECT_EQ(bus.calls, (Lines{"open 1 2 3 silent", "close", "read_wait 70000", "reset_rx_errors",
                                "reset_tx_errors", "set_typefilter 5"}));
    EXPECT_TRUE(witness.seen.empty());
}

TEST_F(Observed, ReadPassesFramesOnUnchangedAndShowsThem) {
    bus.queue(0x181, {1, 2});
    bus.queue(0x701, {5});
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(identifier, 0x181U);
    EXPECT_EQ(length, 2U);
    EXPECT_EQ(data, (std::array<unsigned char, 8>{1, 2, 9, 9, 9, 9, 9, 9}));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(witness.seen, (Lines{"R 181 [2] 01 02", "R 701 [1] 05"}));
}

TEST_F(Observed, ReadsWithoutAFrameShowNothing) {
    for (const int result : {1, -1, 2, -17}) {
        bus.queue_result(result);
        EXPECT_EQ(read(), result);
    }
    EXPECT_TRUE(witness.seen.empty());
}

TEST_F(Observed, ReadWaitShowsItsFrame) {
    bus.queue(0x581, {0x60});
    EXPECT_EQ(driver.read_wait(identifier, length, data.data(), 5), 0);
    EXPECT_EQ(bus.calls, Lines{"read_wait 5"});
    EXPECT_EQ(witness.seen, Lines{"R 581 [1] 60"});
}

TEST_F(Observed, ReadWaitOfADriverThatCannotWaitEndsTheProcessAsItDoes) {
    const ChildResult result = run_in_child([] {
        ScriptedCanDriver plain;
        ObservedDriver front(plain);
        unsigned int id = 0;
        unsigned int size = 0;
        std::array<unsigned char, 8> bytes{};
        front.read_wait(id, size, bytes.data(), 1);
    });
    EXPECT_EQ(result.err, "nodevik/candriver: Assertion failed: 1 == 2\n");
}

TEST_F(Observed, WritePassesItsArgumentsOnAndShowsTheFrame) {
    EXPECT_EQ(write(0x605, {0x40, 0, 0x10, 0, 1, 2, 3, 4}, 8), 0);
    EXPECT_EQ(write(0x705, {}, 0, 2), 0);
    ASSERT_EQ(bus.written.size(), 2U);
    EXPECT_EQ(bus.written[0], ScriptedFrame(0x605, {0x40, 0, 0x10, 0, 1, 2, 3, 4}));
    EXPECT_EQ(bus.written[1], ScriptedFrame(0x705, {}, 2));
    EXPECT_EQ(witness.seen, (Lines{"T 605 [8] 40 00 10 00 01 02 03 04", "T 705 [0] remote"}));
}

TEST_F(Observed, ARemoteRequestHasNoDataWhateverItsLength) {
    EXPECT_EQ(driver.write(0x705, 1, nullptr, 2), 0);
    EXPECT_EQ(witness.seen, Lines{"T 705 [1] remote"});
}

TEST_F(Observed, AFrameThatTheDriverDidNotTakeIsNotShown) {
    bus.write_result = -1;
    EXPECT_EQ(write(0x605, {1}, 1), -1);
    EXPECT_TRUE(witness.seen.empty());
    bus.write_result = 16;
    EXPECT_EQ(write(0x605, {1}, 1), 16);
    EXPECT_EQ(witness.seen.size(), 1U);
}

TEST_F(Observed, TheWidthOfASentIdentifierIsThatOfFlagsOrMode) {
    write(0x605, {}, 0, 1);
    write(0x605, {}, 0, 3);
    driver.open(0, 1, 0, false);
    write(0x605, {}, 0, 0);
    write(0x605, {}, 0, 2);
    EXPECT_EQ(witness.seen, (Lines{"T 605 [0] extended", "T 605 [0] remote extended", "T 605 [0] extended",
                                   "T 605 [0] remote"}));
}

TEST_F(Observed, TheModeIsKnownAlsoBehindAnotherObservedDriverAndWhenOpenedWithoutIt) {
    ObservedDriver outer(driver, nullptr);
    Witness other;
    outer.add_observer(other);
    bus.open(0, 1, 0, false);
    outer.write(0x605, 0, data.data(), 0);
    EXPECT_EQ(other.seen, Lines{"T 605 [0] extended"});
    EXPECT_EQ(witness.seen, other.seen);
}

TEST_F(Observed, AnOverlongLengthIsShownAsToldWithEightBytes) {
    ScriptedFrame frame(0x701, {1, 2, 3, 4, 5, 6, 7, 8});
    frame.length = 31;
    bus.queue(frame);
    read();
    EXPECT_EQ(witness.seen, Lines{"R 701 [31] 01 02 03 04 05 06 07 08"});
}

TEST_F(Observed, ADetailsReaderTellsWhatADriverOfOnesOwnKnows) {
    ObservedDriver front(bus, [](const CANdriver&) { return ObservedDriver::Details{1234, true, true}; });
    ObservedDriver outer(front, nullptr);
    std::uint64_t time = 0;
    witness.act = [&time](const ObservedFrame& frame) { time = frame.time_ns(); };
    outer.add_observer(witness);
    bus.queue(0x705, {});
    outer.read(identifier, length, data.data());
    EXPECT_EQ(witness.seen, Lines{"R 705 [0] remote extended"});
    EXPECT_EQ(time, 1234U);
    EXPECT_EQ(outer.last_details().time_ns, 1234U);
}

TEST_F(Observed, TimesAreReadWhenAskedForAndTheSameForEveryObserver) {
    std::vector<std::uint64_t> times;
    Witness second;
    witness.act = second.act = [&times](const ObservedFrame& frame) {
        times.push_back(frame.time_ns());
        times.push_back(frame.monotonic_time_ns());
    };
    driver.add_observer(second);
    const std::uint64_t before = monotonic_ns();
    const auto day = static_cast<std::uint64_t>(time(nullptr)) * 1'000'000'000;
    bus.queue(0x701, {5});
    read();
    const std::uint64_t after = monotonic_ns();
    ASSERT_EQ(times.size(), 4U);
    EXPECT_EQ(times[0], times[2]);
    EXPECT_EQ(times[1], times[3]);
    EXPECT_GE(times[1], before);
    EXPECT_LE(times[1], after);
    EXPECT_GE(times[0], day);
    EXPECT_LE(times[0], day + 3600'000'000'000);
}

TEST(ObservedFrameTimes, CanBeGiven) {
    ObservedFrame frame(Direction::received, 0x701, 0, nullptr);
    frame.set_times(5, 7);
    EXPECT_EQ(frame.time_ns(), 5U);
    EXPECT_EQ(frame.monotonic_time_ns(), 7U);
}

TEST_F(Observed, ShowsFramesToUpToEightObserversInTheirOrder) {
    std::array<Witness, 8> others;
    std::string order;
    witness.act = [&order](const ObservedFrame&) { order += 'w'; };
    for (int i = 0; i < 7; ++i) {
        others[i].act = [&order, i](const ObservedFrame&) { order += static_cast<char>('a' + i); };
        EXPECT_EQ(driver.add_observer(others[i]), 0);
    }
    EXPECT_EQ(driver.observer_count(), 8U);
    EXPECT_EQ(driver.add_observer(others[7]), -1);
    EXPECT_EQ(driver.observer_count(), 8U);
    write(0x80, {}, 0);
    EXPECT_EQ(order, "wabcdefg");
    EXPECT_TRUE(others[7].seen.empty());
}

TEST_F(Observed, AnObserverIsAddedOnceAndRemovedOnce) {
    EXPECT_EQ(driver.add_observer(witness), -1);
    EXPECT_EQ(driver.observer_count(), 1U);
    EXPECT_EQ(driver.remove_observer(witness), 0);
    EXPECT_EQ(driver.remove_observer(witness), -1);
    EXPECT_EQ(driver.observer_count(), 0U);
    write(0x80, {}, 0);
    EXPECT_TRUE(witness.seen.empty());
    EXPECT_EQ(bus.written.size(), 1U);
    EXPECT_EQ(driver.add_observer(witness), 0);
}

TEST_F(Observed, AnObserverAddedFromWithinSeesTheNextFrameFirst) {
    Witness late;
    witness.act = [&](const ObservedFrame&) { driver.add_observer(late); };
    write(0x80, {}, 0);
    EXPECT_TRUE(late.seen.empty());
    write(0x81, {}, 0);
    EXPECT_EQ(late.seen, Lines{"T 81 [0]"});
}

TEST_F(Observed, AnObserverMayRemoveItself) {
    Witness second;
    driver.add_observer(second);
    witness.act = [&](const ObservedFrame&) { driver.remove_observer(witness); };
    write(0x80, {}, 0);
    write(0x81, {}, 0);
    EXPECT_EQ(witness.seen, Lines{"T 80 [0]"});
    EXPECT_EQ(second.seen, (Lines{"T 80 [0]", "T 81 [0]"}));
}

TEST_F(Observed, AnObserverRemovedFromWithinIsNotShownTheFrameAtHand) {
    Witness second;
    Witness third;
    driver.add_observer(second);
    driver.add_observer(third);
    witness.act = [&](const ObservedFrame&) { driver.remove_observer(second); };
    write(0x80, {}, 0);
    EXPECT_TRUE(second.seen.empty());
    EXPECT_EQ(third.seen, Lines{"T 80 [0]"});
}

TEST_F(Observed, RemovingAnEarlierOneFromWithinShowsNobodyTheFrameTwice) {
    Witness second;
    Witness third;
    driver.add_observer(second);
    driver.add_observer(third);
    second.act = [&](const ObservedFrame&) { driver.remove_observer(witness); };
    write(0x80, {}, 0);
    EXPECT_EQ(second.seen.size(), 1U);
    EXPECT_EQ(third.seen.size(), 1U);
}

TEST_F(Observed, AFrameSentFromWithinIsShownAtOnceToAll) {
    Witness second;
    driver.add_observer(second);
    witness.act = [&](const ObservedFrame& frame) {
        if (frame.identifier == 0x80) {
            write(0x605, {0x40}, 1);
        }
    };
    write(0x80, {}, 0);
    EXPECT_EQ(witness.seen, (Lines{"T 80 [0]", "T 605 [1] 40"}));
    EXPECT_EQ(second.seen, (Lines{"T 605 [1] 40", "T 80 [0]"}));
}

TEST_F(Observed, ObserversComeAndGoWhileFramesAreShownWithinFrames) {
    Witness second;
    Witness third;
    driver.add_observer(second);
    driver.add_observer(third);
    witness.act = [&](const ObservedFrame& frame) {
        if (frame.identifier == 0x80) {
            write(0x81, {}, 0);
        } else {
            driver.remove_observer(witness);
            driver.remove_observer(second);
            driver.add_observer(second);
        }
    };
    write(0x80, {}, 0);
    EXPECT_EQ(witness.seen, (Lines{"T 80 [0]", "T 81 [0]"}));
    EXPECT_EQ(third.seen, (Lines{"T 81 [0]", "T 80 [0]"}));
    EXPECT_TRUE(second.seen.empty());
    write(0x82, {}, 0);
    EXPECT_EQ(second.seen, Lines{"T 82 [0]"});
}

TEST_F(Observed, ReadAllEmptiesTheQueueForTheObservers) {
    bus.queue(0x181, {1});
    bus.queue(0x182, {2});
    EXPECT_EQ(driver.read_all(), 0);
    EXPECT_EQ(witness.seen, (Lines{"R 181 [1] 01", "R 182 [1] 02"}));
    bus.queue(0x183, {});
    bus.queue_result(-3);
    bus.queue(0x184, {});
    EXPECT_EQ(driver.read_all(), -1);
    EXPECT_EQ(witness.seen.back(), "R 183 [0]");
    EXPECT_EQ(bus.pending(), 1U);
}

TEST_F(Observed, TheDebugWordIsTheDriversAndPassedOn) {
    bus.set_debug(8);
    ObservedDriver front(bus);
    EXPECT_EQ(front.get_debug(), 8U);
    bus.set_debug(16);
    front.read(identifier, length, data.data());
    EXPECT_EQ(bus.get_debug(), 16U);
    CCANopen master;
    master.set_debug(4);
    master.load_driver(front);
    master.sync();
    EXPECT_EQ(bus.get_debug(), 8U | 4U);
}

TEST_F(Observed, ATypeFilterSetByPartsIsPassedOnToo) {
    driver.switch_type(D_SDO, true);
    read();
    read();
    EXPECT_EQ(bus.calls, Lines{"set_typefilter 16"});
}

TEST_F(Observed, TheMasterWorksOnItAsOnTheDriver) {
    CCANopen master;
    master.load_driver(driver);
    PDO inputs(0x181);
    unsigned short value = 0;
    inputs.mapcopy(0, value);
    master.add_tpdo(inputs);
    bus.queue(0x181, {0x34, 0x12, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(master.read_all_messages(), 0);
    EXPECT_EQ(value, 0x1234);
    master.sync();
    EXPECT_EQ(witness.seen, (Lines{"R 181 [8] 34 12 00 00 00 00 00 00", "T 80 [0]"}));
}

TEST_F(Observed, NothingIsAllocated) {
    struct : FrameObserver {
        void frame_passed(const ObservedFrame& frame) override {
            sum += frame.time_ns() + frame.monotonic_time_ns();
        }
        std::uint64_t sum = 0;
    } observer;
    struct : TellingDriver {
        int read(unsigned int& ID, unsigned int& size, unsigned char*) override {
            ID = 0x701;
            size = 0;
            return 0;
        }
        int write(unsigned int, unsigned int, unsigned char*, unsigned int) override { return 0; }
    } quiet;
    ObservedDriver front(quiet);
    const unsigned long before = allocations();
    front.add_observer(observer);
    front.read(identifier, length, data.data());
    front.write(0x80, 0, data.data(), 0);
    front.remove_observer(observer);
    EXPECT_EQ(allocations(), before);
    EXPECT_GT(observer.sum, 0U);
}

TEST_F(Observed, ADriverThatCannotBeWaitedForHasNoDescriptor) {
    EXPECT_EQ(driver.descriptor(), -1);
}

TEST_F(Observed, DestroyingItLeavesTheDriverBehindAsItIs) {
    { const ObservedDriver front(bus); }
    EXPECT_TRUE(bus.calls.empty());
    EXPECT_TRUE(bus.written.empty());
}

TEST(ObservedType, IsADriverAndNotCopied) {
    EXPECT_TRUE((std::is_convertible_v<ObservedDriver*, CANdriver*>));
    EXPECT_FALSE(std::is_copy_constructible_v<ObservedDriver>);
}

TEST(ObservedUdp, ShowsWhatComesAndGoesOverUdp) {
    LoopbackSocket peer;
    udpDriver udp;
    EXPECT_EQ(udp.descriptor(), -1);
    udp.open(0, 0, 0);
    EXPECT_EQ(udp.descriptor(), udp.endpoint().server_socket());
    udp.endpoint().set_client_destination_address(127, 0, 0, 1, peer.port());
    ObservedDriver driver(udp);
    EXPECT_EQ(driver.descriptor(), udp.descriptor());
    EXPECT_EQ(ObservedDriver(driver, nullptr).descriptor(), udp.descriptor());
    Witness witness;
    driver.add_observer(witness);
    peer.send(local_port(udp.descriptor()), std::string("\x81\1\0\0\2\0\0\0ab\0\0\0\0\0\0", 16));
    ASSERT_TRUE(wait_readable(udp.descriptor()));
    EXPECT_EQ(driver.read_all(), 0);
    std::array<unsigned char, 8> data{1};
    driver.write(0x601, 1, data.data(), 0);
    EXPECT_EQ(witness.seen, (Lines{"R 181 [2] 61 62", "T 601 [1] 01"}));
}
