// Every kind of frame, between the driver and the programs of can-utils.

#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/pdo.h"
#include "nodevik/socketcandriver.h"
#include "tests/devices/canwitness.h"
#include "tests/support/allocationcount.h"
#include "tests/support/childprocess.h"

namespace {

constexpr long limit_ms = 60000;
constexpr unsigned extended_flag = 1;
constexpr unsigned remote_flag = 2;

using Data = std::array<unsigned char, 8>;

// A frame, in the driver's terms and as can-utils write it.
struct Sample {
    unsigned identifier = 0;
    unsigned flags = 0;
    unsigned length = 0;
    Data data{};
    std::string text;
};

// 11 and 29 bits, data frames and remote requests, 0 to 8 bytes.
std::vector<Sample> samples() {
    std::vector<Sample> all;
    struct Identifier {
        unsigned number;
        bool extended;
    };
    for (const auto& [identifier, extended] : {Identifier{0x181, false}, Identifier{0x7FF, false},
                                               Identifier{0x181, true}, Identifier{0x1ABCDEF1, true}}) {
        for (unsigned length = 0; length <= 8; ++length) {
            for (const bool remote : {false, true}) {
                Sample sample;
                sample.identifier = identifier;
                sample.flags = (extended ? extended_flag : 0) | (remote ? remote_flag : 0);
                sample.length = length;
                char text[32];
                std::snprintf(text, sizeof text, extended ? "%08X#" : "%03X#", identifier);
                sample.text = text;
                if (remote) {
                    sample.text += length == 0 ? "R" : "R" + std::to_string(length);
                }
                for (unsigned i = 0; i < length && !remote; ++i) {
                    sample.data[i] = static_cast<unsigned char>(0xA0 + 17 * i);
                    std::snprintf(text, sizeof text, "%02X", static_cast<unsigned>(sample.data[i]));
                    sample.text += text;
                }
                all.push_back(sample);
            }
        }
    }
    return all;
}

class SocketCanFrames : public testing::Test {
protected:
    SocketCanFrames() {
        driver.set_debug(0);
        EXPECT_EQ(driver.open("vcan0", 0, false), 0);
    }

    void listen_to_everything() {
        driver.receive_also(SocketCanDriver::every_kind);
        ASSERT_EQ(driver.open("vcan0", 0, false), 0);
    }

    static unsigned long long now_ns() {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        return static_cast<unsigned long long>(now.tv_sec) * 1'000'000'000 +
               static_cast<unsigned long long>(now.tv_nsec);
    }

    VirtualCan interface { "vcan0" };
    SocketCanDriver driver;
};

TEST_F(SocketCanFrames, WhatTheDriverSendsIsWhatCandumpSees) {
    Candump witness("vcan0");
    for (Sample& sample : samples()) {
        ASSERT_EQ(driver.write(sample.identifier, sample.length, sample.data.data(), sample.flags), 0);
        ASSERT_EQ(witness.frame(), sample.text);
    }
}

TEST_F(SocketCanFrames, TheModeChoosesTheWidth) {
    Candump witness("vcan0");
    Data data{1, 2};
    EXPECT_EQ(driver.write(0x181, 2, data.data(), 0), 0);
    EXPECT_EQ(witness.frame(), "181#0102");
    ASSERT_EQ(driver.open("vcan0", 1, false), 0);
    EXPECT_EQ(driver.write(0x181, 2, data.data(), 0), 0);
    EXPECT_EQ(witness.frame(), "00000181#0102");
}

TEST_F(SocketCanFrames, WhatCansendSendsIsWhatTheDriverReads) {
    listen_to_everything();
    for (const Sample& sample : samples()) {
        ASSERT_TRUE(cansend("vcan0", sample.text));
        unsigned identifier = 0;
        unsigned length = 99;
        Data data;
        data.fill(0xEE);
        ASSERT_EQ(driver.read_wait(identifier, length, data.data(), limit_ms), 0) << sample.text;
        EXPECT_EQ(identifier, sample.identifier);
        EXPECT_EQ(length, sample.length) << sample.text;
        EXPECT_EQ(data, sample.data);
        EXPECT_EQ(driver.is_extended(), (sample.flags & extended_flag) != 0);
        EXPECT_EQ(driver.is_remote_request(), (sample.flags & remote_flag) != 0);
        EXPECT_EQ(driver.read(identifier, length, data.data()), 1);
    }
}

TEST_F(SocketCanFrames, ADriverFor11BitsHandsOutNeitherRemoteRequestsNor29BitFrames) {
    for (const char* frame : {"185#R8", "00000185#AABBCCDDEEFF0011", "00000185#R", "181#01"}) {
        ASSERT_TRUE(cansend("vcan0", frame));
    }
    unsigned identifier = 0;
    unsigned length = 0;
    Data data;
    ASSERT_EQ(driver.read_wait(identifier, length, data.data(), limit_ms), 0);
    EXPECT_EQ(identifier, 0x181U);
    EXPECT_EQ(length, 1U);
    EXPECT_EQ(driver.read(identifier, length, data.data()), 1);
    EXPECT_EQ(driver.dropped_frames(), 0U);
}

TEST_F(SocketCanFrames, AMasterTakesForeignRequestsAnd29BitFramesForNoData) {
    SocketCanDriver witness;
    witness.set_debug(0);
    witness.receive_also(SocketCanDriver::every_kind);
    ASSERT_EQ(witness.open("vcan0", 0, true), 0);
    const auto has_passed = [&witness](unsigned wanted) {
        unsigned identifier = 0;
        unsigned length = 0;
        Data data;
        while (identifier != wanted && witness.read_wait(identifier, length, data.data(), limit_ms) == 0) {
        }
        return identifier == wanted;
    };
    CCANopen master;
    master.load_driver(driver);
    master.set_debug(0);
    unsigned speed = 0;
    PDO tpdo(0x185);
    tpdo.mapcopy(0, speed);
    master.add_tpdo(tpdo);
    for (const char* frame : {"185#07000000", "185#R8", "00000185#AAAAAAAAAAAAAAAA", "123#"}) {
        ASSERT_TRUE(cansend("vcan0", frame));
    }
    ASSERT_TRUE(has_passed(0x123));
    EXPECT_EQ(master.read_all_messages(), 0);
    EXPECT_EQ(speed, 7U);
    EXPECT_EQ(tpdo.PDO_updated, 1U);
    ASSERT_TRUE(cansend("vcan0", "705#R"));
    ASSERT_TRUE(has_passed(0x705));
    EXPECT_TRUE(witness.is_remote_request());
    EXPECT_EQ(master.nodeguard(5, 0), -1);
    ASSERT_TRUE(cansend("vcan0", "705#85"));
    EXPECT_EQ(master.nodeguard(5, limit_ms), 5);
}

TEST_F(SocketCanFrames, AListenerGetsErrorFramesWithTheirTimes) {
    listen_to_everything();
    const unsigned long long before = now_ns();
    ASSERT_TRUE(cansend("vcan0", "20000204#0010000000006007"));
    unsigned identifier = 0;
    unsigned length = 0;
    Data data;
    ASSERT_EQ(driver.read_wait(identifier, length, data.data(), limit_ms), 0);
    EXPECT_TRUE(driver.is_error_frame());
    EXPECT_EQ(identifier, 0x204U);
    EXPECT_EQ(length, 8U);
    EXPECT_EQ(data, (Data{0, 0x10, 0, 0, 0, 0, 0x60, 7}));
    EXPECT_GE(driver.receive_time_ns(), before);
    EXPECT_LE(driver.receive_time_ns(), now_ns());
    unsigned transmit = 0;
    unsigned receive = 0;
    unsigned overruns = 0;
    EXPECT_EQ(driver.read_error_counters(transmit, receive, overruns), 0);
    EXPECT_EQ(transmit, 0x60U);
    EXPECT_EQ(receive, 7U);
}

TEST_F(SocketCanFrames, TheTimeIsTheKernels) {
    Candump witness("vcan0");
    const unsigned long long before = now_ns();
    ASSERT_TRUE(cansend("vcan0", "181#01"));
    unsigned identifier = 0;
    unsigned length = 0;
    Data data;
    ASSERT_EQ(driver.read_wait(identifier, length, data.data(), limit_ms), 0);
    EXPECT_GE(driver.receive_time_ns(), before);
    EXPECT_LE(driver.receive_time_ns(), now_ns());
    ASSERT_EQ(witness.frame(), "181#01");
    EXPECT_EQ(driver.receive_time_ns() / 1000, witness.time_us());
}

TEST_F(SocketCanFrames, OthersHearWhatADriverSendsAndItselfDoesNot) {
    SocketCanDriver other;
    other.set_debug(0);
    ASSERT_EQ(other.open("vcan0", 0, false), 0);
    Data data{1};
    ASSERT_EQ(driver.write(0x201, 1, data.data(), 0), 0);
    unsigned identifier = 0;
    unsigned length = 0;
    EXPECT_EQ(other.read_wait(identifier, length, data.data(), limit_ms), 0);
    EXPECT_EQ(identifier, 0x201U);
    EXPECT_EQ(driver.read(identifier, length, data.data()), 1);
}

TEST_F(SocketCanFrames, ASilentDriverSendsNothing) {
    Candump witness("vcan0");
    const ChildResult child = run_in_child([] {
        SocketCanDriver silent;
        silent.set_debug(0);
        silent.open("vcan0", 0, true);
        Data data{};
        std::printf("= %d\n", silent.write(0x201, 1, data.data(), 0));
    });
    EXPECT_EQ(child.out,
              "Virhe: SocketCAN driver: Write Error !\n\n"
              "Virhe: interface vcan0 was opened silent: to send, open it with silent false\n\n"
              "= -1\n");
    ASSERT_TRUE(cansend("vcan0", "123#"));
    EXPECT_EQ(witness.frame(), "123#");
}

TEST_F(SocketCanFrames, ErrorFramesFeedTheCountersOnTheirWay) {
    ASSERT_TRUE(cansend("vcan0", "20000204#0010000000006007"));
    ASSERT_TRUE(cansend("vcan0", "20000004#0001000000000000"));
    ASSERT_TRUE(cansend("vcan0", "181#01"));
    unsigned identifier = 0;
    unsigned length = 0;
    Data data;
    ASSERT_EQ(driver.read_wait(identifier, length, data.data(), limit_ms), 0);
    EXPECT_EQ(identifier, 0x181U);
    unsigned transmit = 0;
    unsigned receive = 0;
    unsigned overruns = 0;
    EXPECT_EQ(driver.read_error_counters(transmit, receive, overruns), 0);
    EXPECT_EQ(transmit, 0x60U);
    EXPECT_EQ(receive, 7U);
    EXPECT_EQ(overruns, 1U);
}

TEST_F(SocketCanFrames, FramesThatFoundNoRoomAreCounted) {
    SocketCanDriver other;
    other.set_debug(0);
    ASSERT_EQ(other.open("vcan0", 0, false), 0);
    unsigned sent = 0;
    unsigned received = 0;
    Data data{};
    for (; sent < 600; ++sent) {
        ASSERT_EQ(other.write(0x181, 8, data.data(), 0), 0);
    }
    // How many were dropped is told with the next frame that finds room.
    for (unsigned identifier = 0; identifier != 0x182; ++sent) {
        ASSERT_EQ(other.write(0x182, 8, data.data(), 0), 0);
        unsigned length = 0;
        for (unsigned id = 0; driver.read_wait(id, length, data.data(), 200) == 0; ++received) {
            identifier = id;
        }
    }
    unsigned transmit = 0;
    unsigned receive = 0;
    unsigned overruns = 0;
    driver.read_error_counters(transmit, receive, overruns);
    EXPECT_GT(overruns, 0U);
    EXPECT_EQ(received + overruns, sent);
    EXPECT_EQ(driver.dropped_frames(), overruns);
}

TEST_F(SocketCanFrames, AFrameTakesNothingFromTheHeap) {
    SocketCanDriver other;
    other.set_debug(0);
    ASSERT_EQ(other.open("vcan0", 0, false), 0);
    Data data{};
    unsigned identifier = 0;
    unsigned length = 0;
    const unsigned long before = allocation_count::count;
    int failures = 0;
    for (int i = 0; i < 100; ++i) {
        failures += other.write(0x181, 8, data.data(), 0);
        failures += driver.read_wait(identifier, length, data.data(), limit_ms);
        failures += driver.read(identifier, length, data.data()) - 1;
    }
    EXPECT_EQ(allocation_count::count, before);
    EXPECT_EQ(failures, 0);
}

TEST_F(SocketCanFrames, OpeningNeedsNoPrivilege) {
    const ChildResult child = run_in_child([] {
        if (setuid(65534) != 0) {
            std::perror("setuid");
        }
        SocketCanDriver unprivileged;
        unprivileged.set_debug(0);
        std::printf("= %d\n", unprivileged.open("vcan0", 0, false));
    });
    EXPECT_EQ(child.out, "= 0\n");
    EXPECT_EQ(child.err, "");
}

}  // namespace
