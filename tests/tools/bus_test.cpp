// The choice of a bus on the command line.

#include "tools/bus.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "nodevik/util/monotonicclock.h"
#include "tests/support/candatagram.h"
#include "tests/support/loopbacksocket.h"
#include "tests/support/temporaryfile.h"
#include "tools/failure.h"

using nodevik_tool::CanInterface;
using nodevik_tool::ExitStatus;
using nodevik_tool::Failure;

namespace {

// The status and the message of what fails; status done when nothing does.
template <typename Call>
std::pair<ExitStatus, std::string> failure_of(const Call& call) {
    try {
        call();
    } catch (const Failure& failure) {
        return {failure.status(), failure.what()};
    }
    return {ExitStatus::done, ""};
}

// A directory as the kernel shows its interfaces in.
class FakeInterfaces {
public:
    FakeInterfaces() { std::filesystem::create_directory(directory()); }
    ~FakeInterfaces() { std::filesystem::remove_all(directory()); }
    std::string directory() const { return file_.path() + ".d"; }
    void add(const std::string& name, const std::string& type, const std::string& flags) const {
        std::filesystem::create_directory(directory() + "/" + name);
        std::ofstream(directory() + "/" + name + "/type") << type << "\n";
        std::ofstream(directory() + "/" + name + "/flags") << flags << "\n";
    }

private:
    TemporaryFile file_;
};

int refused_datagrams = 0;  // so many are refused before one is taken

}  // namespace

// The kernel's, but for the datagrams that it is to refuse as a full queue does.
extern "C" ssize_t sendto(int descriptor, const void* bytes, size_t size, int flags, const sockaddr* peer,
                          socklen_t peer_size) {
    if (refused_datagrams > 0) {
        --refused_datagrams;
        errno = ENOBUFS;
        return -1;
    }
    return syscall(SYS_sendto, descriptor, bytes, size, flags, peer, peer_size);
}

TEST(Sending, WaitsForRoomAndSendsTheFrameOnce) {
    LoopbackSocket peer;
    const nodevik_tool::LibraryReports reports;
    const nodevik_tool::Interrupts interrupts;
    nodevik_tool::BusOptions options;
    options.udp = "127.0.0.1:" + std::to_string(peer.port());
    nodevik_tool::Bus bus(options, reports, interrupts);
    refused_datagrams = 5;
    bus.send(0x000, 2, {0x02, 0x05}, 0, 60'000);
    EXPECT_EQ(refused_datagrams, 0);
    EXPECT_EQ(peer.receive(), can_datagram(0x000, "\x02\x05"));
    EXPECT_EQ(peer.receive(0), std::nullopt);
}

TEST(Sending, EndsWithTheReasonWhenNoRoomComes) {
    const LoopbackSocket peer;
    const nodevik_tool::LibraryReports reports;
    const nodevik_tool::Interrupts interrupts;
    nodevik_tool::BusOptions options;
    options.udp = "127.0.0.1:" + std::to_string(peer.port());
    nodevik_tool::Bus bus(options, reports, interrupts);
    refused_datagrams = 1'000'000;
    const std::uint64_t begin = monotonic_ns();
    const auto [status, message] = failure_of([&bus] { bus.send(0x080, 0, {}, 0, 20); });
    EXPECT_GE(monotonic_ns() - begin, 20'000'000U);
    EXPECT_LT(refused_datagrams, 1'000'000 - 1);
    refused_datagrams = 0;
    EXPECT_EQ(status, ExitStatus::no_bus);
    EXPECT_EQ(message,
              "the UDP peer cannot be reached: No buffer space available; look at its address, and whether "
              "the network is up");
}

TEST(UdpOption, HasAHostAPortAndMaybeALocalPort) {
    const auto ends = nodevik_tool::parse_udp("127.0.0.1:5001");
    EXPECT_EQ(ends.host, "127.0.0.1");
    EXPECT_EQ(ends.port, 5001U);
    EXPECT_EQ(ends.local_port, 0U);
    EXPECT_EQ(nodevik_tool::parse_udp("gate:65535,1").local_port, 1U);
}

TEST(UdpOption, IsRefusedOtherwise) {
    for (const char* text : {"", "5001", "host", "host:", ":5001", "host:0", "host:65536", "host:5001,",
                             "host:5001,0", "host:5001,65536", "host:50x", "host:5001,5002,5003"}) {
        const auto [status, message] = failure_of([text] { nodevik_tool::parse_udp(text); });
        EXPECT_EQ(status, ExitStatus::usage) << text;
        EXPECT_EQ(message, "--udp takes HOST:PORT or HOST:PORT,LOCALPORT, such as 127.0.0.1:5001, not '" +
                               std::string(text) + "'");
    }
}

TEST(KvaserOption, HasAChannelAndMaybeABitRate) {
    EXPECT_EQ(nodevik_tool::parse_kvaser("3").number, 3U);
    EXPECT_EQ(nodevik_tool::parse_kvaser("3").bitrate, 500000U);
    EXPECT_EQ(nodevik_tool::parse_kvaser("0:125000").bitrate, 125000U);
    for (const char* text : {"", "x", "-1", "0:", "0:1", "0:2000000"}) {
        EXPECT_EQ(failure_of([text] { nodevik_tool::parse_kvaser(text); }).first, ExitStatus::usage) << text;
    }
}

TEST(CanInterfaces, AreThoseOfTheTypeCanWithTheirState) {
    const FakeInterfaces fake;
    fake.add("vcan0", "280", "0x40080");
    fake.add("can0", "280", "0x40081");
    fake.add("eth0", "1", "0x1003");
    const auto interfaces = nodevik_tool::can_interfaces(fake.directory());
    ASSERT_EQ(interfaces.size(), 2U);
    EXPECT_EQ(interfaces[0].name, "can0");
    EXPECT_TRUE(interfaces[0].up);
    EXPECT_EQ(interfaces[1].name, "vcan0");
    EXPECT_FALSE(interfaces[1].up);
    EXPECT_TRUE(nodevik_tool::can_interfaces(fake.directory() + "/none").empty());
}

TEST(CanInterfaces, TheOnlyOneThatIsUpIsTaken) {
    EXPECT_EQ(nodevik_tool::only_interface({{"can0", false}, {"can1", true}}), "can1");
}

TEST(CanInterfaces, WithoutOneThatIsUpTheBusCannotBeUsed) {
    auto [status, message] = failure_of([] { nodevik_tool::only_interface({}); });
    EXPECT_EQ(status, ExitStatus::no_bus);
    EXPECT_EQ(message, "this machine has no CAN interface; name a bus with --can, --udp or --kvaser");
    std::tie(status, message) = failure_of([] {
        nodevik_tool::only_interface({{"can0", false}, {"can1", false}});
    });
    EXPECT_EQ(status, ExitStatus::no_bus);
    EXPECT_EQ(message,
              "no CAN interface is up (can0 is down, can1 is down); bring one up with 'ip link set can0 up "
              "type can "
              "bitrate 500000', or name a bus with --udp or --kvaser");
}

TEST(CanInterfaces, OfSeveralOneMustBeNamed) {
    const auto [status, message] = failure_of([] {
        nodevik_tool::only_interface({{"can0", true}, {"can1", false}, {"can2", true}});
    });
    EXPECT_EQ(status, ExitStatus::usage);
    EXPECT_EQ(message,
              "several CAN interfaces are up (can0 is up, can1 is down, can2 is up); name one with --can");
}

TEST(LibraryReports, TellTheLastReasonWithoutErrorCounters) {
    std::string reason;
    std::string nothing;
    {
        const nodevik_tool::LibraryReports reports;
        std::printf(
            "Virhe: SocketCAN driver: Read Error !\n\nVirhe: interface can0 is bus-off: restart it \n\n"
            "Virhe: Read Error ! RX-Errorcounter = 135 \n\n");
        reason = reports.take_last();
        nothing = reports.take_last();
    }
    EXPECT_EQ(reason, "interface can0 is bus-off: restart it");
    EXPECT_EQ(nothing, "");
}
