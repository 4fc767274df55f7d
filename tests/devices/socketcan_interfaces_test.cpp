// What becomes of an open driver when its interface changes, and which interfaces it opens.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "nodevik/socketcandriver.h"
#include "tests/devices/canwitness.h"
#include "tests/support/childprocess.h"

namespace {

constexpr long limit_ms = 60000;

const std::string read_error = "Virhe: SocketCAN driver: Read Error !\n\n";
const std::string read_wait_error = "Virhe: SocketCAN driver: ReadWait Error !\n\n";
const std::string write_error = "Virhe: SocketCAN driver: Write Error !\n\n";

std::string down(const std::string& name) {
    return "Virhe: interface " + name + " is down: bring it up as root with 'ip link set " + name +
           " up'\n\n";
}

std::string gone(const std::string& name) {
    return "Virhe: interface " + name +
           " is gone, its adapter unplugged or its driver unloaded: open it again when it is back\n\n";
}

using Data = std::array<unsigned char, 8>;

int read_once(SocketCanDriver& driver) {
    unsigned identifier = 0;
    unsigned length = 0;
    Data data;
    return driver.read(identifier, length, data.data());
}

int wait_once(SocketCanDriver& driver) {
    unsigned identifier = 0;
    unsigned length = 0;
    Data data;
    return driver.read_wait(identifier, length, data.data(), limit_ms);
}

int write_once(SocketCanDriver& driver) {
    Data data{1, 2, 3};
    return driver.write(0x181, 3, data.data(), 0);
}

void print(int result) {
    std::printf("= %d\n", result);
}

// What the driver prints while `use` does things with it, open on `interface`.
std::string with_driver(const char* interface, const std::function<void(SocketCanDriver&)>& use) {
    return run_in_child([interface, &use] {
               SocketCanDriver driver;
               driver.set_debug(0);
               print(driver.open(interface, 0, false));
               use(driver);
           })
        .out;
}

// What an attempt to open `interface` prints, with "= <result>" at the end.
std::string output_of_open(const char* interface, bool silent = false, unsigned debug = 0) {
    return run_in_child([=] {
               SocketCanDriver driver;
               driver.set_debug(debug);
               print(driver.open(interface, 0, silent));
           })
        .out;
}

std::string output_of_rate(unsigned speed, unsigned port) {
    return run_in_child([=] {
               SocketCanDriver driver;
               driver.set_debug(0);
               print(driver.open(speed, 0, port, false));
           })
        .out;
}

// The room that new sockets have for what waits to be sent, as sysctl(8) would set it
// (net.core.wmem_default).
class SendBufferSize {
public:
    explicit SendBufferSize(int bytes) {
        std::ifstream(path) >> before_;
        std::ofstream(path) << bytes << std::flush;
    }
    ~SendBufferSize() { std::ofstream(path) << before_ << std::flush; }
    SendBufferSize(const SendBufferSize&) = delete;
    SendBufferSize& operator=(const SendBufferSize&) = delete;

private:
    static constexpr const char* path = "/proc/sys/net/core/wmem_default";

    int before_ = 0;
};

class SocketCanInterfaces : public testing::Test {
protected:
    VirtualCan interface { "vcan0" };
};

// The two controllers, on one bus.
class SocketCanControllers : public testing::Test {
protected:
    SocketCanControllers() {
        for (const std::string name : {"can0", "can1"}) {
            EXPECT_TRUE(run_ip("link set " + name + " down"));
            EXPECT_TRUE(run_ip("link set " + name + " up type can bitrate 250000 listen-only off"));
        }
    }
    ~SocketCanControllers() override {
        run_ip("link set can0 down");
        run_ip("link set can1 down");
    }
};

TEST_F(SocketCanInterfaces, DownLastsUntilTheInterfaceIsUpAgain) {
    const std::string out = with_driver("vcan0", [](SocketCanDriver& driver) {
        run_ip("link set vcan0 down");
        print(read_once(driver));
        print(read_once(driver));
        print(wait_once(driver));
        print(write_once(driver));
        run_ip("link set vcan0 up");
        print(read_once(driver));
        print(write_once(driver));
        cansend("vcan0", "123#");
        print(wait_once(driver));
    });
    EXPECT_EQ(out, "= 0\n" + read_error + down("vcan0") + "= -1\n= -1\n= -1\n" + write_error + down("vcan0") +
                       "= -1\n= 1\n= 0\n= 0\n");
}

TEST_F(SocketCanInterfaces, GoneLastsUntilTheDriverIsOpenedAgain) {
    const std::string out = with_driver("vcan0", [](SocketCanDriver& driver) {
        run_ip("link del vcan0");
        print(read_once(driver));
        print(read_once(driver));
        print(write_once(driver));
        const VirtualCan again("vcan0");
        print(read_once(driver));
        print(driver.open("vcan0", 0, false));
        print(read_once(driver));
        print(write_once(driver));
    });
    EXPECT_EQ(out, "= 0\n" + read_error + gone("vcan0") + "= -1\n= -1\n" + write_error + gone("vcan0") +
                       "= -1\n= -1\n= 0\n= 1\n= 0\n");
}

TEST_F(SocketCanInterfaces, WhatAWriteHasLearnedReadingKnows) {
    const std::string out = with_driver("vcan0", [](SocketCanDriver& driver) {
        run_ip("link set vcan0 down");
        print(write_once(driver));
        print(wait_once(driver));
        run_ip("link set vcan0 up");
        print(read_once(driver));
        run_ip("link del vcan0");
        print(write_once(driver));
        print(wait_once(driver));
        print(read_once(driver));
    });
    EXPECT_EQ(out, "= 0\n" + write_error + down("vcan0") + "= -1\n= -1\n= 1\n" + write_error + gone("vcan0") +
                       "= -1\n= -1\n= -1\n");
}

TEST_F(SocketCanInterfaces, GoneEndsAWait) {
    const std::string out = with_driver("vcan0", [](SocketCanDriver& driver) {
        std::fflush(stdout);
        const pid_t remover = fork();
        if (remover == 0) {
            poll(nullptr, 0, 300);
            run_ip("link del vcan0");
            _exit(0);
        }
        print(wait_once(driver));
        waitpid(remover, nullptr, 0);
        print(wait_once(driver));
    });
    // An interface goes down before it goes away; the wait may end between the two.
    const std::string at_once = "= 0\n" + read_wait_error + gone("vcan0") + "= -1\n= -1\n";
    const std::string in_two_steps =
        "= 0\n" + read_wait_error + down("vcan0") + "= -1\n" + read_wait_error + gone("vcan0") + "= -1\n";
    EXPECT_TRUE(out == at_once || out == in_two_steps) << out;
}

TEST_F(SocketCanInterfaces, AFullQueueIsReported) {
    ASSERT_EQ(run_program({"modprobe", "sch_tbf"}).status, 0);
    // A frame every ten seconds, and room for one more.
    ASSERT_EQ(run_program({"tc", "qdisc", "add", "dev", "vcan0", "root", "tbf", "rate", "8bit", "burst", "16",
                           "limit", "16"})
                  .status,
              0);
    const std::string out = with_driver("vcan0", [](SocketCanDriver& driver) {
        while (write_once(driver) == 0) {
        }
    });
    EXPECT_EQ(out,
              "= 0\n" + write_error +
                  "Virhe: the transmit queue of vcan0 is full: check that another node is on the bus, at "
                  "the same bit rate, to acknowledge the frames; for longer bursts lengthen it as root "
                  "with 'ip link set vcan0 txqueuelen 1000'\n\n");
}

TEST_F(SocketCanInterfaces, TooManyWaitingFramesOfOneProgramAreReported) {
    ASSERT_EQ(run_program({"modprobe", "sch_tbf"}).status, 0);
    // A frame every ten seconds, and room for more than a program may have waiting.
    ASSERT_EQ(run_program({"tc", "qdisc", "add", "dev", "vcan0", "root", "tbf", "rate", "8bit", "burst", "16",
                           "limit", "1000000"})
                  .status,
              0);
    const std::string out = with_driver("vcan0", [](SocketCanDriver& driver) {
        int before = 0;
        while (write_once(driver) == 0) {
            ++before;
        }
        const SendBufferSize larger(1000000);
        print(driver.open("vcan0", 0, false));
        int after = 0;
        while (after <= before && write_once(driver) == 0) {
            ++after;
        }
        std::printf("%s\n", after > before ? "more" : "no more");
    });
    EXPECT_EQ(
        out,
        "= 0\n" + write_error +
            "Virhe: too many frames of this program wait in the transmit queue of vcan0: check that another "
            "node is on the bus, at the same bit rate, to acknowledge the frames; for longer bursts make "
            "more room as root with 'sysctl net.core.wmem_default=1000000', then open it again\n\n"
            "= 0\nmore\n");
}

TEST_F(SocketCanInterfaces, FlexibleRateFramesPassUnseen) {
    ASSERT_TRUE(run_ip("link set vcan0 down"));
    ASSERT_TRUE(run_ip("link set vcan0 mtu 72"));
    ASSERT_TRUE(run_ip("link set vcan0 up"));
    const std::string out = with_driver("vcan0", [](SocketCanDriver& driver) {
        Candump witness("vcan0");
        cansend("vcan0", "123##1112233445566778899");
        std::printf("%s\n", witness.frame().substr(0, 5).c_str());
        cansend("vcan0", "181#0102");
        unsigned identifier = 0;
        unsigned length = 0;
        Data data;
        print(driver.read_wait(identifier, length, data.data(), limit_ms));
        std::printf("%03X %u\n", identifier, length);
        print(write_once(driver));
    });
    EXPECT_EQ(out, "= 0\n123##\n= 0\n181 2\n= 0\n");
}

TEST_F(SocketCanInterfaces, BusOffIsReportedAndOver) {
    const std::string out = with_driver("vcan0", [](SocketCanDriver& driver) {
        cansend("vcan0", "20000040#0000000000000000");
        cansend("vcan0", "181#01");
        print(wait_once(driver));
        print(wait_once(driver));
        print(read_once(driver));
        print(write_once(driver));
    });
    EXPECT_EQ(out,
              "= 0\n" + read_wait_error +
                  "Virhe: interface vcan0 is bus-off, its controller has left the bus after too many "
                  "failed transmissions: check wiring, termination and bit rate, then restart it as root "
                  "with 'ip link set vcan0 type can restart'\n\n"
                  "= -1\n= 0\n= 1\n= 0\n");
}

TEST_F(SocketCanInterfaces, OnlyCanInterfacesThatAreUpAreOpened) {
    EXPECT_EQ(output_of_open("lo"),
              "Virhe: socketCanDriver::open() - bind() : interface lo is not a CAN interface: look for one "
              "with 'ip link show type can' or '... type vcan'\n\n= -1\n");
    EXPECT_EQ(output_of_open("vcan7"),
              "Virhe: socketCanDriver::open() - if_nametoindex() : there is no interface vcan7: plug its "
              "adapter in, load its driver, or look for its name with 'ip link'\n\n= -1\n");
    ASSERT_TRUE(run_ip("link set vcan0 down"));
    EXPECT_EQ(
        output_of_open("vcan0"),
        "Virhe: socketCanDriver::open() - interface vcan0 is down: bring it up as root with 'ip link set "
        "vcan0 up'\n\n= -1\n");
}

TEST_F(SocketCanInterfaces, AVirtualInterfaceHasEveryBitRate) {
    ASSERT_TRUE(run_ip("link add can77 type vcan"));
    ASSERT_TRUE(run_ip("link set can77 up"));
    EXPECT_EQ(output_of_rate(500000, 77), "= 0\n");
    ASSERT_TRUE(run_ip("link del can77"));
}

TEST_F(SocketCanControllers, TheirBitRateMustMatch) {
    EXPECT_EQ(output_of_rate(250000, 0), "= 0\n");
    EXPECT_EQ(output_of_rate(0, 0), "= 0\n");
    EXPECT_EQ(
        output_of_rate(500000, 0),
        "Virhe: socketCanDriver::open() - interface can0 has a bit rate of 250000, not of 500000: set it "
        "as root with 'ip link set can0 down; ip link set can0 up type can bitrate 500000'\n\n= -1\n");
}

TEST_F(SocketCanControllers, TheCommandsOfTheReportsHelp) {
    ASSERT_TRUE(run_ip("link set can0 down"));
    ASSERT_TRUE(run_ip("link set can0 up type can bitrate 500000"));
    EXPECT_EQ(output_of_rate(500000, 0), "= 0\n");
    ASSERT_TRUE(run_ip("link set can0 txqueuelen 1000"));
    ASSERT_TRUE(run_ip("link set can0 down"));
    ASSERT_TRUE(run_ip("link set can0 up type can listen-only on"));
    EXPECT_EQ(output_of_open("can0", true), "= 0\n");
}

TEST_F(SocketCanControllers, OpeningTellsTheRateAndWhetherSilentIsSilent) {
    const std::string start =
        "socketCanDriver::open() - Trying to open CAN interface can0 with 11-bit mode\n"
        "socketCanDriver::open() - Channel speed = 250000\n";
    EXPECT_EQ(output_of_open("can0", false, 1),
              start + "socketCanDriver::open() - Channel opened in non silent mode\n= 0\n");
    EXPECT_EQ(output_of_open("can0", true, 1),
              start +
                  "socketCanDriver::open() - Channel opened in silent mode\n"
                  "socketCanDriver::open() - The controller acknowledges frames nevertheless: make it listen "
                  "only as root with 'ip link set can0 down; ip link set can0 up type can listen-only on'\n"
                  "= 0\n");
    ASSERT_TRUE(run_ip("link set can0 down"));
    ASSERT_TRUE(run_ip("link set can0 up type can bitrate 250000 listen-only on"));
    EXPECT_EQ(output_of_open("can0", true, 1),
              start + "socketCanDriver::open() - Channel opened in silent mode\n= 0\n");
}

TEST_F(SocketCanControllers, CarryEachKindOfFrameOverTheBus) {
    SocketCanDriver sender;
    SocketCanDriver receiver;
    sender.set_debug(0);
    receiver.set_debug(0);
    receiver.receive_also(SocketCanDriver::remote_requests | SocketCanDriver::extended_frames);
    ASSERT_EQ(sender.open(250000, 0, 0, false), 0);
    ASSERT_EQ(receiver.open(250000, 0, 1, false), 0);
    struct Kind {
        unsigned identifier;
        unsigned flags;
    };
    for (const Kind& kind : {Kind{0x181, 0}, Kind{0x1ABCDEF1, 1}, Kind{0x701, 2}, Kind{0x1ABCDEF1, 3}}) {
        // The emulated controllers lose their place after remote requests that have a length.
        const unsigned longest = (kind.flags & 2) != 0 ? 0 : 8;
        for (unsigned length = 0; length <= longest; ++length) {
            Data sent{11, 22, 33, 44, 55, 66, 77, 88};
            ASSERT_EQ(sender.write(kind.identifier, length, sent.data(), kind.flags), 0);
            unsigned identifier = 0;
            unsigned got = 99;
            Data data;
            ASSERT_EQ(receiver.read_wait(identifier, got, data.data(), limit_ms), 0);
            EXPECT_EQ(identifier, kind.identifier);
            EXPECT_EQ(got, length);
            EXPECT_EQ(receiver.is_extended(), (kind.flags & 1) != 0);
            EXPECT_EQ(receiver.is_remote_request(), (kind.flags & 2) != 0);
            for (unsigned i = 0; i < 8; ++i) {
                EXPECT_EQ(data[i], i < length ? sent[i] : 0) << kind.flags << " " << length << " " << i;
            }
        }
    }
}

TEST_F(SocketCanControllers, DownIsReported) {
    const std::string out = with_driver("can0", [](SocketCanDriver& driver) {
        run_ip("link set can0 down");
        print(read_once(driver));
        print(write_once(driver));
        run_ip("link set can0 up");
        print(read_once(driver));
        print(write_once(driver));
    });
    EXPECT_EQ(out, "= 0\n" + read_error + down("can0") + "= -1\n" + write_error + down("can0") +
                       "= -1\n= 1\n= 0\n");
}

}  // namespace
