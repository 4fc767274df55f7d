#include "nodevik/udpdriver.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tests/support/childprocess.h"
#include "tests/support/loopbacksocket.h"

namespace {

using Frame = std::array<unsigned char, 8>;

// A datagram from its bytes as numbers.
std::string datagram(std::initializer_list<int> bytes) {
    std::string text;
    for (const int byte : bytes) {
        text.push_back(static_cast<char>(byte));
    }
    return text;
}

// The port on which `driver` receives.
unsigned port_of(udpDriver& driver) {
    return local_port(driver.endpoint().server_socket());
}

void open_towards(udpDriver& driver, unsigned port) {
    driver.open(0, 2, 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, port);
}

// A driver that tells what it inherited.
struct OpenBook : udpDriver {
    using udpDriver::candata;
    using udpDriver::frame_type;
    using udpDriver::isopen;
};

class UdpDriver : public testing::Test {
protected:
    void open() { open_towards(driver, peer.port()); }
    void send_to_driver(const std::string& bytes) {
        peer.send(port_of(driver), bytes);
        ASSERT_TRUE(wait_readable(driver.endpoint().server_socket()));
    }

    LoopbackSocket peer;
    OpenBook driver;
    unsigned identifier = 77;
    unsigned length = 77;
    Frame data{9, 9, 9, 9, 9, 9, 9, 9};
};

// What tells every node to stop.
const std::string stop_datagram = datagram({0, 0, 0, 0, 2, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0});

}  // namespace

TEST_F(UdpDriver, IsClosedAndOpensNothingAtFirst) {
    EXPECT_EQ(driver.isopen, 0);
    EXPECT_EQ(driver.get_debug(), 1U);
    EXPECT_EQ(driver.endpoint().client_socket(), 0);
    EXPECT_EQ(driver.endpoint().server_socket(), 0);
}

TEST_F(UdpDriver, OpenWithMode0SpeaksOf11Bits) {
    const ChildResult result = run_in_child([this] {
        udpDriver fresh;
        std::printf("result %d\n", fresh.open(0, 0, 7));
        fresh.endpoint().set_client_destination_address(127, 0, 0, 1, peer.port());
    });
    EXPECT_EQ(result.out,
              "Trying to open CAN channel with 11-bit mode\n"
              "UDPServer::startserver - Opening socket for IP 0.0.0.0:0\n"
              "UDPServer::open - Opening socket\n"
              "result 0\n"
              "Client Destination Address: 127.0.0.1:" +
                  std::to_string(peer.port()) + "\n");
}

TEST_F(UdpDriver, OpenWithMode1SpeaksOf28Bits) {
    const ChildResult result = run_in_child([] {
        udpDriver fresh;
        fresh.open(0, 1, 0);
        std::fflush(stdout);
        _exit(0);
    });
    EXPECT_EQ(result.out,
              "Trying to open CAN channel with 28-bit mode\n"
              "UDPServer::startserver - Opening socket for IP 0.0.0.0:0\n"
              "UDPServer::open - Opening socket\n");
}

TEST_F(UdpDriver, OpenWithAnotherModeSaysNothingOfIt) {
    const ChildResult result = run_in_child([] {
        udpDriver fresh;
        fresh.open(0, 2, 0);
        std::fflush(stdout);
        _exit(0);
    });
    EXPECT_EQ(result.out,
              "UDPServer::startserver - Opening socket for IP 0.0.0.0:0\n"
              "UDPServer::open - Opening socket\n");
}

TEST_F(UdpDriver, OpenKeepsTheModeAsFrameType) {
    open();
    EXPECT_EQ(driver.frame_type, 2U);
    EXPECT_EQ(driver.isopen, 1);
}

TEST_F(UdpDriver, OpenBindsTheFirstArgumentAsPortAndIgnoresTheThird) {
    unsigned port = 0;
    {
        const LoopbackSocket free_port;
        port = free_port.port();
    }
    EXPECT_EQ(driver.open(port, 0, 7), 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, peer.port());
    EXPECT_EQ(port_of(driver), port);
}

TEST_F(UdpDriver, OpenSucceedsEvenWhenThePortIsTaken) {
    const ChildResult result = run_in_child([this] {
        OpenBook fresh;
        const int opened = fresh.open(peer.port(), 2, 0);
        std::printf("result %d open %d\n", opened, fresh.isopen);
        std::fflush(stdout);
        _exit(0);
    });
    EXPECT_NE(result.out.find("\nresult 0 open 1\n"), std::string::npos) << result.out;
    EXPECT_EQ(result.err, "startserver - bind(): Address already in use\n");
}

TEST_F(UdpDriver, TheInterfacesOpenForwardsToTheThreeArgumentOne) {
    CANdriver& interface = driver;
    EXPECT_EQ(interface.open(0, 1, 0, true), 0);
    driver.endpoint().set_client_destination_address(127, 0, 0, 1, peer.port());
    EXPECT_EQ(driver.isopen, 1);
    EXPECT_EQ(driver.frame_type, 1U);
    EXPECT_NE(port_of(driver), 0U);
}

TEST_F(UdpDriver, ASecondOpenLeavesTheFirstSocketsOpen) {
    open();
    const int first_client = driver.endpoint().client_socket();
    const int first_server = driver.endpoint().server_socket();
    open();
    EXPECT_NE(driver.endpoint().client_socket(), first_client);
    EXPECT_NE(driver.endpoint().server_socket(), first_server);
    EXPECT_EQ(::close(first_client), 0);
    EXPECT_EQ(::close(first_server), 0);
}

TEST_F(UdpDriver, ReadTakesIdentifierLengthAndAllEightBytes) {
    open();
    send_to_driver(datagram({0x85, 1, 0, 0, 2, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(driver.read(identifier, length, data.data()), 0);
    EXPECT_EQ(identifier, 0x185U);
    EXPECT_EQ(length, 2U);
    EXPECT_EQ(data, (Frame{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(UdpDriver, ReadKeepsElevenBitsOfTheIdentifierAndFiveOfTheLength) {
    open();
    send_to_driver(datagram({0x34, 0x12, 0x56, 0x78, 40, 1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(driver.read(identifier, length, data.data()), 0);
    EXPECT_EQ(identifier, 0x234U);
    EXPECT_EQ(length, 8U);
    send_to_driver(datagram({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(driver.read(identifier, length, data.data()), 0);
    EXPECT_EQ(identifier, 0x7FFU);
    EXPECT_EQ(length, 31U);
}

TEST_F(UdpDriver, ReadWithNothingWaitingReturnsOne) {
    open();
    EXPECT_EQ(driver.read(identifier, length, data.data()), 1);
    EXPECT_EQ(identifier, 0U);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(data, Frame{});
}

TEST_F(UdpDriver, ReadAfterWriteYieldsTheFrameJustWritten) {
    open();
    Frame sent{1, 2, 3, 4, 5, 6, 7, 8};
    ASSERT_EQ(driver.write(0x605, 8, sent.data(), 0), 0);
    EXPECT_EQ(driver.read(identifier, length, data.data()), 1);
    EXPECT_EQ(identifier, 0x605U);
    EXPECT_EQ(length, 8U);
    EXPECT_EQ(data, sent);
}

TEST_F(UdpDriver, ReadWithNothingWaitingYieldsTheLastFrameReceived) {
    open();
    send_to_driver(datagram({0x81, 1, 0, 0, 8, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
    ASSERT_EQ(driver.read(identifier, length, data.data()), 0);
    data.fill(9);
    EXPECT_EQ(driver.read(identifier, length, data.data()), 1);
    EXPECT_EQ(identifier, 0x181U);
    EXPECT_EQ(data, (Frame{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(UdpDriver, ASecondOpenKeepsTheLastFrame) {
    open();
    send_to_driver(datagram({0x85, 1, 0, 0, 2, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(driver.read(identifier, length, data.data()), 0);
    open();
    identifier = 0;
    data.fill(9);
    EXPECT_NE(driver.read(identifier, length, data.data()), 0);
    EXPECT_EQ(identifier, 0x185U);
    EXPECT_EQ(data, (Frame{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(UdpDriver, ReadTakesOneFramePerCallInTheOrderOfArrival) {
    open();
    send_to_driver(datagram({1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    send_to_driver(datagram({2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(driver.read(identifier, length, data.data()), 0);
    EXPECT_EQ(identifier, 1U);
    ASSERT_TRUE(wait_readable(driver.endpoint().server_socket()));
    EXPECT_EQ(driver.read(identifier, length, data.data()), 0);
    EXPECT_EQ(identifier, 2U);
    EXPECT_EQ(driver.read(identifier, length, data.data()), 1);
}

TEST_F(UdpDriver, ALongDatagramCountsByItsFirstSixteenBytes) {
    open();
    std::string bytes = datagram({0x81, 1, 0, 0, 8, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8});
    bytes.resize(5000, 'x');
    send_to_driver(bytes);
    EXPECT_EQ(driver.read(identifier, length, data.data()), 0);
    EXPECT_EQ(identifier, 0x181U);
    EXPECT_EQ(length, 8U);
    EXPECT_EQ(data, (Frame{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(driver.read(identifier, length, data.data()), 1);
}

TEST_F(UdpDriver, AShortDatagramLeavesTheRestOfTheFrameBefore) {
    open();
    send_to_driver(datagram({0x81, 1, 0, 0, 8, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
    ASSERT_EQ(driver.read(identifier, length, data.data()), 0);
    send_to_driver(datagram({0x82, 2, 0, 0, 3, 0, 0, 0, 0xAA}));
    EXPECT_EQ(driver.read(identifier, length, data.data()), 0);
    EXPECT_EQ(identifier, 0x282U);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(data, (Frame{0xAA, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(UdpDriver, ReadReturnsMinusOneAfterASocketErrorAndYieldsTheFrameBefore) {
    const ChildResult result = run_in_child([this] {
        OpenBook fresh;
        open_towards(fresh, peer.port());
        Frame room{1, 2, 3, 4, 5, 6, 7, 8};
        fresh.write(0x605, 3, room.data(), 0);
        room.fill(9);
        ::close(fresh.endpoint().server_socket());
        unsigned number = 0;
        unsigned size = 0;
        const int read = fresh.read(number, size, room.data());
        std::printf("result %d, frame %x %u %d %d\n", read, number, size, room[0], room[7]);
        std::fflush(stdout);
        _exit(0);
    });
    EXPECT_NE(result.out.find("\nresult -1, frame 605 3 1 8\n"), std::string::npos) << result.out;
    EXPECT_EQ(result.err, "servrecv - recvfrom(): Bad file descriptor\n");
}

TEST_F(UdpDriver, WriteSendsAllEightBytesWhateverTheLength) {
    open();
    Frame sent{1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(driver.write(0x12345678, 2, sent.data(), 0), 0);
    EXPECT_EQ(peer.receive(), datagram({0x78, 0x56, 0x34, 0x12, 2, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(peer.last_sender(), local_port(driver.endpoint().client_socket()));
}

TEST_F(UdpDriver, WriteSendsTheLengthUnchanged) {
    open();
    Frame sent{};
    EXPECT_EQ(driver.write(0x705, 0x01020304, sent.data(), 0), 0);
    EXPECT_EQ(peer.receive(), datagram({5, 7, 0, 0, 4, 3, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(UdpDriver, WriteIgnoresTheFlags) {
    open();
    Frame sent{};
    EXPECT_EQ(driver.write(0x705, 0, sent.data(), 2), 0);
    EXPECT_EQ(peer.receive(), datagram({5, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(UdpDriver, AFailedWriteIsReportedAndReturnsMinusOne) {
    const ChildResult result = run_in_child([] {
        OpenBook fresh;
        fresh.open(0, 2, 0);
        Frame sent{};
        ::close(fresh.endpoint().client_socket());
        const int written = fresh.write(0x181, 8, sent.data(), 0);
        std::printf("result %d\n", written);
        fresh.isopen = 0;  // nothing more to send
    });
    EXPECT_NE(result.out.find("\nudpDriver: Write Error !\nresult -1\n"), std::string::npos) << result.out;
    EXPECT_EQ(result.err, "clientsend - sendto(): Bad file descriptor\n");
}

TEST_F(UdpDriver, ReadWaitClearsTheDataAndTouchesNothingElse) {
    open();
    send_to_driver(datagram({0x81, 1, 0, 0, 8, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(driver.read_wait(identifier, length, data.data()), 0);
    EXPECT_EQ(data, Frame{});
    EXPECT_EQ(identifier, 77U);
    EXPECT_EQ(length, 77U);
    EXPECT_EQ(driver.read(identifier, length, data.data()), 0);
}

TEST_F(UdpDriver, TheTimedReadWaitEndsTheProcess) {
    const ChildResult result = run_in_child([] {
        udpDriver fresh;
        Frame room{};
        unsigned number = 0;
        fresh.read_wait(number, number, room.data(), 100);
    });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.err, "nodevik/candriver: Assertion failed: 1 == 2\n");
}

TEST_F(UdpDriver, ReadingWhileClosedEndsTheProcess) {
    const ChildResult result = run_in_child([] {
        udpDriver closed;
        closed.set_debug(0);
        Frame room{};
        unsigned number = 0;
        closed.read(number, number, room.data());
    });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "\n\nRead: CAN connection is not Open !\n\n");
}

TEST_F(UdpDriver, WritingWhileClosedEndsTheProcess) {
    const ChildResult result = run_in_child([] {
        udpDriver closed;
        Frame sent{};
        closed.write(0, 0, sent.data(), 0);
    });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "\n\nWrite: CAN connection is not Open !\n\n");
}

TEST_F(UdpDriver, ReadWaitWhileClosedEndsTheProcess) {
    const ChildResult result = run_in_child([] {
        udpDriver closed;
        Frame room{};
        unsigned number = 0;
        closed.read_wait(number, number, room.data());
    });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "\n\nReadWait: CAN connection is not Open !\n\n");
}

TEST_F(UdpDriver, CloseSendsTheStopCommandToAllNodesAndKeepsTheSockets) {
    open();
    driver.close();
    EXPECT_EQ(driver.isopen, 0);
    EXPECT_EQ(peer.receive(), stop_datagram);
    EXPECT_EQ(driver.candata[0], 2);
    EXPECT_NE(port_of(driver), 0U);
}

TEST_F(UdpDriver, CloseSendsThroughTheVirtualWrite) {
    struct Counting : udpDriver {
        int write(unsigned cobid, unsigned frame_length, unsigned char* bytes, unsigned flags) override {
            writes +=
                cobid == 0 && frame_length == 2 && bytes[0] == 2 && bytes[1] == 0 && flags == 0 ? 1 : 100;
            return 0;
        }
        int writes = 0;
    } counting;
    open_towards(counting, peer.port());
    counting.close();
    EXPECT_EQ(counting.writes, 1);
}

TEST_F(UdpDriver, DestroyingAnOpenDriverSendsTheStopCommandOnce) {
    std::unique_ptr<CANdriver> owned;
    {
        auto fresh = std::make_unique<udpDriver>();
        open_towards(*fresh, peer.port());
        owned = std::move(fresh);
    }
    owned.reset();
    EXPECT_EQ(peer.receive(), stop_datagram);
    EXPECT_EQ(peer.receive(0), std::nullopt);
}

TEST_F(UdpDriver, DestroyingAClosedDriverSendsNothingMore) {
    {
        udpDriver fresh;
        open_towards(fresh, peer.port());
        fresh.close();
    }
    EXPECT_EQ(peer.receive(), stop_datagram);
    EXPECT_EQ(peer.receive(0), std::nullopt);
}

TEST_F(UdpDriver, ErrorCountersAreLeftAlone) {
    open();
    unsigned transmit = 1;
    unsigned receive = 2;
    unsigned overrun = 3;
    EXPECT_EQ(driver.read_error_counters(transmit, receive, overrun), 0);
    EXPECT_EQ(transmit, 1U);
    EXPECT_EQ(receive, 2U);
    EXPECT_EQ(overrun, 3U);
    driver.reset_rx_errors();
    driver.reset_tx_errors();
    EXPECT_EQ(driver.read_error_counters(transmit, receive, overrun), 0);
}

TEST_F(UdpDriver, PrintsNoFrameEvenUnderTheDecodingBit) {
    const ChildResult result = run_in_child([this] {
        udpDriver fresh;
        open_towards(fresh, peer.port());
        fresh.set_debug(5);
        Frame sent{};
        fresh.write(0x80, 0, sent.data(), 0);
        fresh.print();
        std::printf("end\n");
        std::fflush(stdout);
        _exit(0);
    });
    EXPECT_NE(result.out.find(std::to_string(peer.port()) + "\nend\n"), std::string::npos) << result.out;
}

TEST_F(UdpDriver, TheStopCommandHasZerosAfterItsTwoBytes) {
    open();
    std::fill(std::begin(driver.candata), std::end(driver.candata), static_cast<unsigned char>(0xFF));
    driver.close();
    EXPECT_EQ(peer.receive(), stop_datagram);
}
