#include "nodevik/socketcandriver.h"

#include <gtest/gtest.h>
#include <linux/can/error.h>
#include <linux/can/raw.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "nodevik/canopen.h"
#include "nodevik/observeddriver.h"
#include "nodevik/pdo.h"
#include "tests/support/childprocess.h"
#include "tests/support/scriptedcankernel.h"

namespace {

using Calls = std::vector<std::string>;
using Data = std::array<unsigned char, 8>;
using Clock = std::chrono::steady_clock;

constexpr Data no_data{};
constexpr Data stale_data{9, 9, 9, 9, 9, 9, 9, 9};

// The driver, with its inherited state to be looked at.
class InspectedDriver : public SocketCanDriver {
public:
    int is_open() const { return isopen; }
    unsigned int sends_frame_type() const { return frame_type; }
    unsigned int received_frame_type() const { return read_frame_type; }
    unsigned int rx() const { return RXerrors; }
    unsigned int tx() const { return TXerrors; }
    unsigned int overruns() const { return OVerrors; }
};

// Result and outputs of one fetching operation.
struct Fetched {
    int result;
    unsigned int id;
    unsigned int length;
    Data data;
};

Fetched fetch(SocketCanDriver& driver) {
    Fetched fetched{-99, 99, 99, stale_data};
    fetched.result = driver.read(fetched.id, fetched.length, fetched.data.data());
    return fetched;
}

Fetched fetch_wait(SocketCanDriver& driver, long timeout) {
    Fetched fetched{-99, 99, 99, stale_data};
    fetched.result = driver.read_wait(fetched.id, fetched.length, fetched.data.data(), timeout);
    return fetched;
}

int send_once(SocketCanDriver& driver, unsigned int cobid = 0x201, unsigned int flags = 0) {
    Data data{1, 2, 3, 4, 5, 6, 7, 8};
    return driver.write(cobid, 2, data.data(), flags);
}

void expect_nothing(const Fetched& fetched, int result) {
    EXPECT_EQ(fetched.result, result);
    EXPECT_EQ(fetched.id, 0U);
    EXPECT_EQ(fetched.length, 0U);
    EXPECT_EQ(fetched.data, no_data);
}

// A machine with one controller at 250 kbit/s, can0, and one virtual interface, vcan0.
class SocketCan : public testing::Test {
protected:
    SocketCan() {
        can_kernel() = CanKernel();
        can_kernel().links["can0"].bitrate = 250000;
        can_kernel().links["vcan0"].kind = "vcan";
        can_kernel().links["vcan0"].index = 8;
        CDecoder::clear_message();
        CDecoder::register_callback(CDecoder::print_message_callback);
    }

    ScriptedLink& can0() { return can_kernel().links["can0"]; }
};

void open_quietly(SocketCanDriver& driver, unsigned int mode = 0, bool silent = false) {
    driver.set_debug(0);
    if (driver.open("can0", mode, silent) != 0) {
        std::abort();
    }
}

// Runs `use` on an open driver in a child process and prints the result of the operation as "= <result>".
ChildResult with_open_driver(unsigned int debug, const std::function<int(InspectedDriver&)>& use) {
    return run_in_child([debug, &use] {
        InspectedDriver driver;
        open_quietly(driver);
        driver.set_debug(debug);
        std::printf("= %d\n", use(driver));
    });
}

// What open() of `interface` prints, with "= <result>" at the end.
std::string output_of_open(const char* interface, unsigned int mode, bool silent, unsigned int debug) {
    return run_in_child([=] {
               SocketCanDriver driver;
               driver.set_debug(debug);
               std::printf("= %d\n", driver.open(interface, mode, silent));
           })
        .out;
}

std::string output_of_open(unsigned int speed, unsigned int port, unsigned int debug) {
    return run_in_child([=] {
               SocketCanDriver driver;
               driver.set_debug(debug);
               std::printf("= %d\n", driver.open(speed, 0, port, false));
           })
        .out;
}

const std::string no_can_support =
    "Virhe: socketCanDriver::open() - socket() : this kernel has no CAN support: load it as root with "
    "'modprobe can-raw', or use a kernel that has CONFIG_CAN_RAW\n\n"
    "= -1\n";
const std::string no_permission =
    "permission is missing, a container, sandbox or security module keeps this program from it: allow it the "
    "socket families AF_CAN and AF_NETLINK\n\n";
const std::string no_can7 =
    "there is no interface can7: plug its adapter in, load its driver, or look for its name with 'ip "
    "link'\n\n";
const std::string down = "Virhe: interface can0 is down: bring it up as root with 'ip link set can0 up'\n\n";
const std::string gone =
    "Virhe: interface can0 is gone, its adapter unplugged or its driver unloaded: open it again when it is "
    "back\n\n";
const std::string bus_off =
    "Virhe: interface can0 is bus-off, its controller has left the bus after too many failed transmissions: "
    "check wiring, termination and bit rate, then restart it as root with 'ip link set can0 type can "
    "restart'\n\n";
const std::string queue_full =
    "Virhe: the transmit queue of can0 is full: check that another node is on the bus, at the same bit rate, "
    "to acknowledge the frames; for longer bursts lengthen it as root with 'ip link set can0 txqueuelen "
    "1000'\n\n";
const std::string send_buffer_full =
    "Virhe: too many frames of this program wait in the transmit queue of can0: check that another node is "
    "on "
    "the bus, at the same bit rate, to acknowledge the frames; for longer bursts make more room as root with "
    "'sysctl net.core.wmem_default=1000000', then open it again\n\n";
const std::string read_error = "Virhe: SocketCAN driver: Read Error !\n\n";
const std::string read_wait_error = "Virhe: SocketCAN driver: ReadWait Error !\n\n";
const std::string write_error = "Virhe: SocketCAN driver: Write Error !\n\n";

constexpr std::uint32_t error_frame = CAN_ERR_FLAG;

}  // namespace

using SocketCanOpen = SocketCan;
using SocketCanClose = SocketCan;
using SocketCanRead = SocketCan;
using SocketCanReadWait = SocketCan;
using SocketCanWrite = SocketCan;
using SocketCanErrors = SocketCan;
using SocketCanConditions = SocketCan;

TEST_F(SocketCan, IsACanDriver) {
    EXPECT_TRUE((std::is_base_of_v<CANdriver, SocketCanDriver>));
    EXPECT_TRUE((std::is_convertible_v<SocketCanDriver*, CDecoder*>));
}

TEST_F(SocketCan, OpensNothingWhenItIsBuilt) {
    const InspectedDriver driver;
    EXPECT_EQ(driver.is_open(), 0);
    EXPECT_EQ(driver.get_debug(), 1U);
    EXPECT_EQ(driver.get_socket(), -1);
    EXPECT_EQ(driver.descriptor(), -1);
    EXPECT_EQ(driver.receive_time_ns(), 0U);
    EXPECT_FALSE(driver.is_remote_request());
    EXPECT_FALSE(driver.is_extended());
    EXPECT_FALSE(driver.is_error_frame());
    EXPECT_EQ(driver.dropped_frames(), 0U);
    EXPECT_TRUE(can_kernel().descriptors.empty());
}

TEST_F(SocketCanOpen, BindsARawSocketToTheInterfaceAndAsksForKindsErrorsTimesAndOverruns) {
    InspectedDriver driver;
    open_quietly(driver);
    EXPECT_EQ(can_kernel().calls,
              (Calls{"socket(3, nonblock, cloexec, 1)", "setsockopt(CAN_RAW_FILTER, 00000000/c0000000)",
                     "setsockopt(CAN_RAW_ERR_FILTER, 536870911)", "setsockopt(SO_TIMESTAMPNS, 1)",
                     "setsockopt(SO_RXQ_OVFL, 1)", "bind(29, 7)"}));
    EXPECT_EQ(driver.is_open(), 1);
    EXPECT_EQ(driver.get_socket(), *can_kernel().descriptors.begin());
    EXPECT_EQ(driver.descriptor(), driver.get_socket());
}

TEST_F(SocketCanOpen, HasTheKernelKeepAwayWhatIsNotHandedOut) {
    struct Row {
        unsigned int mode;
        unsigned int kinds;
        const char* mask;
    };
    constexpr Row rows[] = {{0, 0, "c0000000"},
                            {0, SocketCanDriver::remote_requests, "80000000"},
                            {0, SocketCanDriver::extended_frames, "40000000"},
                            {0, SocketCanDriver::error_frames, "c0000000"},
                            {0, SocketCanDriver::every_kind, "00000000"},
                            {1, 0, "00000000"},
                            {2, 0, "00000000"},
                            {1, SocketCanDriver::error_frames, "00000000"}};
    for (const Row& row : rows) {
        SocketCanDriver driver;
        driver.receive_also(row.kinds);
        open_quietly(driver, row.mode);
        EXPECT_EQ(can_kernel().calls[1],
                  std::string("setsockopt(CAN_RAW_FILTER, 00000000/") + row.mask + ")");
        can_kernel().calls.clear();
    }
}

TEST_F(SocketCanOpen, PortIsTheNumberOfTheInterface) {
    can_kernel().links["can3"].index = 33;
    can_kernel().links["can4294967295"].index = 44;
    SocketCanDriver driver;
    driver.set_debug(0);
    EXPECT_EQ(driver.open(0, 0, 3, false), 0);
    EXPECT_EQ(can_kernel().calls.back(), "bind(29, 33)");
    EXPECT_EQ(driver.open(0, 0, 4294967295U, false), 0);
    EXPECT_EQ(can_kernel().calls.back(), "bind(29, 44)");
}

TEST_F(SocketCanOpen, TakesNamesOf1To15Characters) {
    for (const char* interface : {"v", "vcan0", "fifteen-letters"}) {
        can_kernel().links[interface].index = 5;
        SocketCanDriver driver;
        driver.set_debug(0);
        EXPECT_EQ(driver.open(interface, 0, false), 0) << interface;
        EXPECT_EQ(can_kernel().calls.back(), "bind(29, 5)");
    }
    EXPECT_EQ(output_of_open("", 0, false, 0),
              "Virhe: socketCanDriver::open() - '' is no interface's name: it has 1 to 15 characters\n\n"
              "= -1\n");
    EXPECT_EQ(output_of_open("sixteen--letters", 0, false, 0),
              "Virhe: socketCanDriver::open() - 'sixteen--letters' is no interface's name: it has 1 to 15 "
              "characters\n\n"
              "= -1\n");
}

TEST_F(SocketCanOpen, KeepsTheMode) {
    for (const unsigned int mode : {0U, 1U, 2U}) {
        InspectedDriver driver;
        open_quietly(driver, mode);
        EXPECT_EQ(driver.sends_frame_type(), mode);
    }
}

TEST_F(SocketCanOpen, PrintsItsProgress) {
    EXPECT_EQ(output_of_open("can0", 0, false, 1),
              "socketCanDriver::open() - Trying to open CAN interface can0 with 11-bit mode\n"
              "socketCanDriver::open() - Channel speed = 250000\n"
              "socketCanDriver::open() - Channel opened in non silent mode\n"
              "= 0\n");
    EXPECT_EQ(output_of_open("vcan0", 1, true, 1),
              "socketCanDriver::open() - Trying to open CAN interface vcan0 with 29-bit mode\n"
              "socketCanDriver::open() - Channel opened in silent mode\n"
              "= 0\n");
    const std::string other = output_of_open("can0", 2, false, 1);
    EXPECT_EQ(other.substr(0, other.find('\n')),
              "socketCanDriver::open() - Trying to open CAN interface can0 with ?-bit mode");
    EXPECT_EQ(output_of_open("can0", 0, true, 0xFFFFFFFE), "= 0\n");
}

TEST_F(SocketCanOpen, SilentOnAControllerThatIsNoListenerIsTold) {
    const std::string start =
        "socketCanDriver::open() - Trying to open CAN interface can0 with 11-bit mode\n"
        "socketCanDriver::open() - Channel speed = 250000\n"
        "socketCanDriver::open() - Channel opened in silent mode\n";
    EXPECT_EQ(output_of_open("can0", 0, true, 1),
              start +
                  "socketCanDriver::open() - The controller acknowledges frames nevertheless: make it listen "
                  "only as root with 'ip link set can0 down; ip link set can0 up type can listen-only on'\n"
                  "= 0\n");
    can0().listen_only = true;
    EXPECT_EQ(output_of_open("can0", 0, true, 1), start + "= 0\n");
}

TEST_F(SocketCanOpen, Speed0AndTheInterfacesOwnAreTaken) {
    for (const unsigned int speed : {0U, 250000U}) {
        InspectedDriver driver;
        driver.set_debug(0);
        EXPECT_EQ(driver.open(speed, 0, 0, false), 0);
        EXPECT_EQ(driver.is_open(), 1);
    }
}

TEST_F(SocketCanOpen, AnotherSpeedIsRefusedWithBothRatesAndTheCommand) {
    EXPECT_EQ(
        output_of_open(500000, 0, 0),
        "Virhe: socketCanDriver::open() - interface can0 has a bit rate of 250000, not of 500000: set it "
        "as root with 'ip link set can0 down; ip link set can0 up type can bitrate 500000'\n\n"
        "= -1\n");
    InspectedDriver driver;
    driver.set_debug(0);
    EXPECT_EQ(driver.open(500000, 0, 0, false), -1);
    EXPECT_EQ(driver.is_open(), 0);
    EXPECT_EQ(driver.get_socket(), -1);
    EXPECT_EQ(can_kernel().open_descriptors(), 0);
}

TEST_F(SocketCanOpen, AnInterfaceWithoutABitRateHasNothingToCompare) {
    can0().bitrate = 0;
    SocketCanDriver driver;
    driver.set_debug(0);
    EXPECT_EQ(driver.open(500000, 0, 0, false), 0);
    can0().kind = "vcan";
    EXPECT_EQ(driver.open(500000, 0, 0, false), 0);
    can0().kind = "";
    EXPECT_EQ(driver.open(500000, 0, 0, false), 0);
}

TEST_F(SocketCanOpen, TellsTheBitRateThatTheInterfaceHas) {
    SocketCanDriver driver;
    EXPECT_EQ(driver.bit_rate(), 0U) << "not open";
    open_quietly(driver);
    EXPECT_EQ(driver.bit_rate(), 250000U);
    can0().bitrate = 125000;
    EXPECT_EQ(driver.bit_rate(), 125000U);
    can_kernel().errors["send(AF_NETLINK)"] = ENOBUFS;
    EXPECT_EQ(driver.bit_rate(), 0U);
    can_kernel().errors.clear();
    can0().kind = "vcan";
    EXPECT_EQ(driver.bit_rate(), 0U);
}

TEST_F(SocketCanOpen, AnInterfaceThatIsDownIsReported) {
    can0().up = false;
    EXPECT_EQ(
        output_of_open("can0", 0, false, 0),
        "Virhe: socketCanDriver::open() - interface can0 is down: bring it up as root with 'ip link set "
        "can0 up'\n\n"
        "= -1\n");
    can0().bitrate = 0;
    EXPECT_EQ(output_of_open("can0", 0, false, 0),
              "Virhe: socketCanDriver::open() - interface can0 is down and has no bit rate: bring it up as "
              "root with 'ip link set can0 up type can bitrate 500000', where 500000 stands for the rate of "
              "the bus\n\n"
              "= -1\n");
}

TEST_F(SocketCanOpen, AVirtualInterfaceThatIsDownNeedsNoBitRate) {
    can_kernel().links["vcan0"].up = false;
    EXPECT_EQ(
        output_of_open("vcan0", 0, false, 0),
        "Virhe: socketCanDriver::open() - interface vcan0 is down: bring it up as root with 'ip link set "
        "vcan0 up'\n\n"
        "= -1\n");
}

TEST_F(SocketCanOpen, AControllerThatIsBusOffIsReported) {
    can0().bus_off = true;
    EXPECT_EQ(
        output_of_open("can0", 0, false, 0),
        "Virhe: socketCanDriver::open() - interface can0 is bus-off, its controller has left the bus after "
        "too many failed transmissions: check wiring, termination and bit rate, then restart it as root "
        "with 'ip link set can0 type can restart'\n\n"
        "= -1\n");
}

TEST_F(SocketCanOpen, AKernelWithoutCanIsReported) {
    for (const int error : {EAFNOSUPPORT, EPROTONOSUPPORT}) {
        can_kernel().errors["socket"] = error;
        EXPECT_EQ(output_of_open("can0", 0, false, 0), no_can_support);
    }
}

TEST_F(SocketCanOpen, AMissingPermissionIsReported) {
    const std::vector<std::pair<std::string, std::string>> steps = {
        {"socket", "socket()"}, {"setsockopt", "setsockopt()"},     {"if_nametoindex", "if_nametoindex()"},
        {"bind", "bind()"},     {"socket(AF_NETLINK)", "socket()"}, {"send(AF_NETLINK)", "rtnetlink"},
    };
    for (const int error : {EPERM, EACCES}) {
        for (const auto& [function, told] : steps) {
            can_kernel().errors = {{function, error}};
            EXPECT_EQ(output_of_open("can0", 0, false, 0),
                      "Virhe: socketCanDriver::open() - " + told + " : " + no_permission + "= -1\n");
        }
    }
}

TEST_F(SocketCanOpen, AnInterfaceThatDoesNotExistIsReported) {
    EXPECT_EQ(output_of_open(0, 7, 0),
              "Virhe: socketCanDriver::open() - if_nametoindex() : " + no_can7 + "= -1\n");
}

TEST_F(SocketCanOpen, AnInterfaceThatIsNotCanIsReported) {
    can_kernel().errors["bind"] = ENODEV;
    EXPECT_EQ(output_of_open("can0", 0, false, 0),
              "Virhe: socketCanDriver::open() - bind() : interface can0 is not a CAN interface: look for one "
              "with 'ip link show type can' or '... type vcan'\n\n"
              "= -1\n");
}

TEST_F(SocketCanOpen, EveryOtherFailureIsToldInTheSystemsWords) {
    const std::vector<std::pair<std::string, std::string>> steps = {
        {"socket", "socket()"},
        {"setsockopt", "setsockopt()"},
        {"if_nametoindex", "if_nametoindex()"},
        {"bind", "bind()"},
        {"socket(AF_NETLINK)", "socket()"},
        {"send(AF_NETLINK)", "rtnetlink"},
        {"recv(AF_NETLINK)", "rtnetlink"},
    };
    for (const auto& [function, told] : steps) {
        can_kernel().errors = {{function, ENOMEM}};
        EXPECT_EQ(output_of_open("can0", 0, false, 0),
                  "Virhe: socketCanDriver::open() - " + told + " : " + std::strerror(ENOMEM) + "\n\n= -1\n");
    }
}

TEST_F(SocketCanOpen, AnAnswerThatIsNoneIsNotTakenForOne) {
    can_kernel().answers_nothing = true;
    EXPECT_EQ(output_of_open("can0", 0, false, 0), "Virhe: socketCanDriver::open() - rtnetlink : " +
                                                       std::string(std::strerror(EPROTO)) + "\n\n= -1\n");
}

TEST_F(SocketCanOpen, FailuresLeaveNothingOpen) {
    for (const char* function : {"setsockopt", "if_nametoindex", "bind", "socket(AF_NETLINK)",
                                 "send(AF_NETLINK)", "recv(AF_NETLINK)"}) {
        can_kernel().errors = {{function, ENOMEM}};
        InspectedDriver driver;
        driver.set_debug(0);
        EXPECT_EQ(driver.open("can0", 0, false), -1) << function;
        EXPECT_EQ(driver.is_open(), 0);
        EXPECT_EQ(driver.get_socket(), -1);
        EXPECT_EQ(can_kernel().open_descriptors(), 0) << function;
    }
}

TEST_F(SocketCanOpen, ReportsEndTheProcessWithDebugBit2) {
    const std::vector<std::function<void()>> failures = {
        [] { can_kernel().errors["socket"] = EPERM; },
        [] { can_kernel().errors["bind"] = ENODEV; },
        [] { can_kernel().links["can0"].up = false; },
        [] { can_kernel().links["can0"].bitrate = 1; },
        [] { can_kernel().links.clear(); },
    };
    for (const auto& cause : failures) {
        const ChildResult child = run_in_child([&cause] {
            cause();
            SocketCanDriver driver;
            driver.set_debug(2);
            driver.open(250000, 0, 0, false);
            std::printf("went on\n");
        });
        EXPECT_EQ(child.status, 1);
        EXPECT_TRUE(child.out.starts_with("Virhe: socketCanDriver::open() - ")) << child.out;
        EXPECT_EQ(child.out.find("went on"), std::string::npos);
    }
}

TEST_F(SocketCanOpen, ClosesWhatWasOpen) {
    InspectedDriver driver;
    open_quietly(driver);
    ASSERT_EQ(driver.open("vcan0", 0, false), 0);
    EXPECT_EQ(can_kernel().open_descriptors(), 2);
    can_kernel().errors["bind"] = ENOMEM;
    EXPECT_EQ(driver.open("vcan0", 0, false), -1);
    EXPECT_EQ(driver.is_open(), 0);
    EXPECT_EQ(can_kernel().open_descriptors(), 0);
}

TEST_F(SocketCanOpen, ReportsNameTheInterfaceThatWasOpenedLast) {
    can_kernel().links["fifteen-letters"].index = 5;
    const ChildResult child = run_in_child([] {
        SocketCanDriver driver;
        driver.set_debug(0);
        driver.open("fifteen-letters", 0, false);
        driver.open("can0", 0, false);
        can_kernel().errors["send"] = ENETDOWN;
        send_once(driver);
    });
    EXPECT_EQ(child.out, write_error + down);
}

TEST_F(SocketCanOpen, StartsTheCountOfDroppedFramesFrom0) {
    InspectedDriver driver;
    for (const std::uint32_t dropped : {5U, 3U}) {
        open_quietly(driver);
        can_kernel().put(1, {});
        can_kernel().queue.back().dropped = dropped;
        fetch(driver);
        EXPECT_EQ(driver.overruns(), dropped);
    }
}

TEST_F(SocketCanOpen, StartsTheErrorCountersFrom0) {
    InspectedDriver driver;
    open_quietly(driver);
    can_kernel().put(error_frame | CAN_ERR_CNT | CAN_ERR_CRTL,
                     {0, CAN_ERR_CRTL_RX_OVERFLOW, 0, 0, 0, 0, 3, 4});
    fetch(driver);
    ASSERT_EQ(driver.overruns(), 1U);
    open_quietly(driver);
    EXPECT_EQ(driver.tx(), 0U);
    EXPECT_EQ(driver.rx(), 0U);
    EXPECT_EQ(driver.overruns(), 0U);
}

TEST_F(SocketCanClose, ClosesTheSocketsAndSendsNothing) {
    InspectedDriver driver;
    open_quietly(driver);
    driver.close();
    EXPECT_EQ(driver.is_open(), 0);
    EXPECT_EQ(driver.get_socket(), -1);
    EXPECT_EQ(can_kernel().open_descriptors(), 0);
    EXPECT_TRUE(can_kernel().sent.empty());
}

TEST_F(SocketCanClose, HappensAtTheDriversEnd) {
    {
        SocketCanDriver driver;
        open_quietly(driver);
        EXPECT_EQ(can_kernel().open_descriptors(), 2);
    }
    EXPECT_EQ(can_kernel().open_descriptors(), 0);
    EXPECT_TRUE(can_kernel().sent.empty());
}

TEST_F(SocketCanRead, DeliversAStandardFrame) {
    InspectedDriver driver;
    open_quietly(driver);
    can_kernel().put(0x181, {1, 2, 3});
    const Fetched fetched = fetch(driver);
    EXPECT_EQ(fetched.result, 0);
    EXPECT_EQ(fetched.id, 0x181U);
    EXPECT_EQ(fetched.length, 3U);
    EXPECT_EQ(fetched.data, (Data{1, 2, 3}));
    EXPECT_EQ(driver.received_frame_type(), 0U);
    EXPECT_FALSE(driver.is_extended());
    EXPECT_FALSE(driver.is_remote_request());
}

TEST_F(SocketCanRead, ADriverFor11BitsHandsOutNeitherRemoteRequestsNor29BitFrames) {
    SocketCanDriver driver;
    open_quietly(driver);
    can_kernel().put(0x181 | CAN_RTR_FLAG, {7, 7});
    can_kernel().put(0x181 | CAN_EFF_FLAG, {8, 8});
    can_kernel().put(0x181 | CAN_EFF_FLAG | CAN_RTR_FLAG, {});
    can_kernel().put(0x182, {1});
    can_kernel().put(0x1ABCDEF1 | CAN_EFF_FLAG, {9});
    EXPECT_EQ(fetch(driver).id, 0x182U);
    expect_nothing(fetch(driver), 1);
}

TEST_F(SocketCanRead, AMasterTakesForeignRequestsAnd29BitFramesForNoData) {
    SocketCanDriver driver;
    open_quietly(driver);
    CCANopen master;
    master.load_driver(driver);
    master.set_debug(0);
    unsigned int speed = 7;
    PDO tpdo(0x185);
    tpdo.mapcopy(0, speed);
    master.add_tpdo(tpdo);
    can_kernel().put(0x185 | CAN_RTR_FLAG, {0, 0, 0, 0, 0, 0, 0, 0});
    can_kernel().put(0x185 | CAN_EFF_FLAG, {0xAA, 0xAA, 0xAA, 0xAA});
    EXPECT_EQ(master.read_all_messages(), 0);
    EXPECT_EQ(speed, 7U);
    EXPECT_EQ(tpdo.PDO_updated, 0U);
    can_kernel().put(0x705 | CAN_RTR_FLAG, {});
    EXPECT_EQ(master.nodeguard(5, 0), -1);
}

TEST_F(SocketCanRead, ADriverFor29BitsHandsOutBothWidthsAndRemoteRequests) {
    SocketCanDriver driver;
    open_quietly(driver, 1);
    for (const std::uint32_t marks : {0U, CAN_RTR_FLAG, CAN_EFF_FLAG, CAN_EFF_FLAG | CAN_RTR_FLAG}) {
        can_kernel().put(0x181 | marks, {1, 2});
        const Fetched fetched = fetch(driver);
        EXPECT_EQ(fetched.result, 0);
        EXPECT_EQ(fetched.id, 0x181U);
        EXPECT_EQ(fetched.length, 2U);
        EXPECT_EQ(driver.is_extended(), (marks & CAN_EFF_FLAG) != 0);
        EXPECT_EQ(driver.is_remote_request(), (marks & CAN_RTR_FLAG) != 0);
    }
    can_kernel().put(error_frame | CAN_ERR_CRTL, {0, 0, 0, 0, 0, 0, 0, 0});
    expect_nothing(fetch(driver), 1);
}

TEST_F(SocketCanRead, WhatIsReceivedAlsoCountsFromTheNextOpenOn) {
    SocketCanDriver driver;
    open_quietly(driver);
    driver.receive_also(SocketCanDriver::every_kind);
    can_kernel().put(0x181 | CAN_RTR_FLAG, {});
    can_kernel().put(error_frame | CAN_ERR_CRTL, {0, 0, 0, 0, 0, 0, 0, 0});
    expect_nothing(fetch(driver), 1);
    open_quietly(driver);
    can_kernel().put(0x181 | CAN_RTR_FLAG, {});
    EXPECT_EQ(fetch(driver).result, 0);
    driver.receive_also(0);
    open_quietly(driver);
    can_kernel().put(0x181 | CAN_RTR_FLAG, {});
    expect_nothing(fetch(driver), 1);
}

TEST_F(SocketCanRead, AListenerGetsEverythingInItsOrderAndIsToldWhatItIs) {
    struct Row {
        std::uint32_t identifier;
        unsigned int id;
        bool extended;
        bool remote;
        bool error;
    };
    constexpr Row rows[] = {
        {0x181, 0x181, false, false, false},
        {0x181 | CAN_RTR_FLAG, 0x181, false, true, false},
        {error_frame | CAN_ERR_ACK | CAN_ERR_CNT, CAN_ERR_ACK | CAN_ERR_CNT, false, false, true},
        {0x1ABCDEF1 | CAN_EFF_FLAG, 0x1ABCDEF1, true, false, false},
        {error_frame | CAN_ERR_CRTL, CAN_ERR_CRTL, false, false, true},
        {error_frame | CAN_ERR_MASK, CAN_ERR_MASK, false, false, true},
        {0x1ABCDEF1 | CAN_EFF_FLAG | CAN_RTR_FLAG, 0x1ABCDEF1, true, true, false},
        {0x7FF, 0x7FF, false, false, false}};
    SocketCanDriver driver;
    driver.receive_also(SocketCanDriver::every_kind);
    open_quietly(driver, 0, true);
    for (const Row& row : rows) {
        can_kernel().put(row.identifier, {1, 2, 3, 4, 5, 6, 7, 8});
        can_kernel().queue.back().time_ns = 1000 + row.id;
    }
    for (const Row& row : rows) {
        const Fetched fetched = fetch(driver);
        EXPECT_EQ(fetched.result, 0);
        EXPECT_EQ(fetched.id, row.id);
        EXPECT_EQ(fetched.length, 8U);
        EXPECT_EQ(fetched.data, row.remote ? no_data : (Data{1, 2, 3, 4, 5, 6, 7, 8}));
        EXPECT_EQ(driver.is_extended(), row.extended);
        EXPECT_EQ(driver.is_remote_request(), row.remote);
        EXPECT_EQ(driver.is_error_frame(), row.error);
        EXPECT_EQ(driver.receive_time_ns(), 1000U + row.id);
    }
    expect_nothing(fetch(driver), 1);
}

TEST_F(SocketCanRead, DeliversAnExtendedFrame) {
    InspectedDriver driver;
    driver.receive_also(SocketCanDriver::extended_frames);
    open_quietly(driver);
    can_kernel().put(0x1ABCDEF1 | CAN_EFF_FLAG, {1, 2, 3, 4, 5, 6, 7, 8});
    const Fetched fetched = fetch(driver);
    EXPECT_EQ(fetched.result, 0);
    EXPECT_EQ(fetched.id, 0x1ABCDEF1U);
    EXPECT_EQ(fetched.length, 8U);
    EXPECT_EQ(fetched.data, (Data{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(driver.received_frame_type(), 1U);
    EXPECT_TRUE(driver.is_extended());
    can_kernel().put(0x181, {});
    fetch(driver);
    EXPECT_EQ(driver.received_frame_type(), 0U);
}

TEST_F(SocketCanRead, DeliversEachLength) {
    SocketCanDriver driver;
    open_quietly(driver);
    for (unsigned int length = 0; length <= 8; ++length) {
        can_kernel().put(0x181, std::vector<unsigned char>(length, 0x55));
        const Fetched fetched = fetch(driver);
        EXPECT_EQ(fetched.length, length);
        Data expected{};
        std::fill_n(expected.begin(), length, static_cast<unsigned char>(0x55));
        EXPECT_EQ(fetched.data, expected);
    }
}

TEST_F(SocketCanRead, DeliversNoByteBeyondTheLength) {
    SocketCanDriver driver;
    open_quietly(driver);
    can_kernel().put(0x181, {1, 2, 3, 4, 5, 6, 7, 8});
    can_kernel().queue.back().frame.can_dlc = 2;
    EXPECT_EQ(fetch(driver).data, (Data{1, 2}));
    can_kernel().put(0x181, {1, 2, 3, 4, 5, 6, 7, 8});
    can_kernel().queue.back().frame.can_dlc = 15;
    EXPECT_EQ(fetch(driver).length, 8U);
}

TEST_F(SocketCanRead, DeliversARemoteRequestWithItsLengthAndNoData) {
    SocketCanDriver driver;
    driver.receive_also(SocketCanDriver::remote_requests);
    open_quietly(driver);
    can_kernel().put(0x701 | CAN_RTR_FLAG, {7, 7});
    const Fetched fetched = fetch(driver);
    EXPECT_EQ(fetched.result, 0);
    EXPECT_EQ(fetched.id, 0x701U);
    EXPECT_EQ(fetched.length, 2U);
    EXPECT_EQ(fetched.data, no_data);
    EXPECT_TRUE(driver.is_remote_request());
}

TEST_F(SocketCanRead, AnObserverIsToldWhatTheKernelTells) {
    struct : FrameObserver {
        void frame_passed(const ObservedFrame& frame) override {
            is_remote = frame.remote;
            is_extended = frame.extended;
            is_error = frame.error;
            time_ns = frame.time_ns();
        }
        bool is_remote = false;
        bool is_extended = false;
        bool is_error = false;
        std::uint64_t time_ns = 0;
    } observer;
    SocketCanDriver driver;
    driver.receive_also(SocketCanDriver::every_kind);
    open_quietly(driver);
    ObservedDriver front(driver);
    front.add_observer(observer);
    EXPECT_EQ(front.descriptor(), driver.descriptor());
    can_kernel().put(0x701 | CAN_RTR_FLAG, {});
    can_kernel().queue.back().time_ns = 1700000000000000005;
    EXPECT_EQ(front.read_all(), 0);
    EXPECT_TRUE(observer.is_remote);
    EXPECT_FALSE(observer.is_extended);
    EXPECT_EQ(observer.time_ns, 1700000000000000005U);
    can_kernel().put(0x18FF0001 | CAN_EFF_FLAG, {});
    EXPECT_EQ(front.read_all(), 0);
    EXPECT_FALSE(observer.is_remote);
    EXPECT_TRUE(observer.is_extended);
    EXPECT_FALSE(observer.is_error);
    can_kernel().put(error_frame | CAN_ERR_CRTL, {0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(front.read_all(), 0);
    EXPECT_FALSE(observer.is_extended);
    EXPECT_TRUE(observer.is_error);
}

TEST_F(SocketCanRead, DeliversFramesInTheirOrder) {
    SocketCanDriver driver;
    open_quietly(driver);
    can_kernel().put(1, {1});
    can_kernel().put(2, {2});
    EXPECT_EQ(fetch(driver).id, 1U);
    EXPECT_EQ(fetch(driver).id, 2U);
    expect_nothing(fetch(driver), 1);
}

TEST_F(SocketCanRead, KnowsWhetherTheControllerIsBusOff) {
    SocketCanDriver driver;
    driver.receive_also(SocketCanDriver::error_frames);
    open_quietly(driver);
    EXPECT_FALSE(driver.is_bus_off());
    can0().bus_off = true;
    can_kernel().put(error_frame | CAN_ERR_BUSOFF, {0, 0, 0, 0, 0, 0, 0, 0});
    fetch(driver);
    EXPECT_TRUE(driver.is_bus_off());
    fetch(driver);
    EXPECT_TRUE(driver.is_bus_off());
    can0().bus_off = false;
    can_kernel().put(error_frame | CAN_ERR_RESTARTED, {0, 0, 0, 0, 0, 0, 0, 0});
    fetch(driver);
    EXPECT_FALSE(driver.is_bus_off());
}

TEST_F(SocketCanRead, NothingWaitingIs1WithEverythingCleared) {
    SocketCanDriver driver;
    open_quietly(driver);
    expect_nothing(fetch(driver), 1);
    EXPECT_EQ(can_kernel().asked, 1) << "asked about the interface although nothing was wrong";
}

TEST_F(SocketCanRead, TellsWhenTheKernelReceivedTheFrame) {
    SocketCanDriver driver;
    open_quietly(driver);
    can_kernel().put(1, {});
    can_kernel().queue.back().time_ns = 1'700'000'000'123'456'789;
    fetch(driver);
    EXPECT_EQ(driver.receive_time_ns(), 1'700'000'000'123'456'789U);
    can_kernel().put(error_frame | CAN_ERR_ACK, {0, 0, 0, 0, 0, 0, 0, 0});
    can_kernel().queue.back().time_ns = 5;
    fetch(driver);
    EXPECT_EQ(driver.receive_time_ns(), 1'700'000'000'123'456'789U);
}

TEST_F(SocketCanRead, TracesEachFrameWithDebugBit4) {
    const ChildResult child = with_open_driver(4, [](InspectedDriver& driver) {
        can_kernel().put(0x181, {1, 2});
        const int result = fetch(driver).result;
        CDecoder::print();
        return result;
    });
    EXPECT_NE(child.out.find("id 0x00000181  len 2  data 01 02 00 00 00 00 00 00 [R]"), std::string::npos);
}

TEST_F(SocketCanRead, TracesIdentifiersWithoutTheKernelsMarks) {
    SocketCanDriver driver;
    driver.receive_also(SocketCanDriver::every_kind);
    open_quietly(driver);
    driver.set_debug(4);
    can_kernel().put(0x1ABCDEF1 | CAN_EFF_FLAG | CAN_RTR_FLAG, {7, 7, 7});
    fetch(driver);
    EXPECT_STREQ(CDecoder::get_message(), "id 0x1abcdef1  len 3  data 00 00 00 00 00 00 00 00 [R]");
    CDecoder::clear_message();
}

TEST_F(SocketCanRead, TracesNoErrorFrame) {
    SocketCanDriver driver;
    driver.receive_also(SocketCanDriver::every_kind);
    open_quietly(driver);
    driver.set_debug(4);
    can_kernel().put(error_frame | CAN_ERR_CRTL, {0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(fetch(driver).result, 0);
    EXPECT_STREQ(CDecoder::get_message(), "");
}

TEST_F(SocketCanRead, TracesNothingWithoutDebugBit4) {
    SocketCanDriver driver;
    open_quietly(driver);
    driver.set_debug(~4U);
    can_kernel().put(0x181, {1, 2});
    fetch(driver);
    can_kernel().put(error_frame | CAN_ERR_ACK, {0, 0, 0, 0, 0, 0, 0, 0});
    driver.set_debug(4);
    fetch(driver);
    EXPECT_STREQ(CDecoder::get_message(), "");
}

TEST_F(SocketCanRead, AClosedDriverReportsAndDoesNotRead) {
    const ChildResult child = run_in_child([] {
        SocketCanDriver driver;
        const Fetched fetched = fetch(driver);
        std::printf("= %d %u %u %d\n", fetched.result, fetched.id, fetched.length, fetched.data == no_data);
    });
    EXPECT_EQ(child.out, "Virhe: \n\nRead: CAN connection is not Open !\n\n\n= -1 0 0 1\n");
    EXPECT_EQ(child.status, 0);
}

TEST_F(SocketCanRead, AClosedDriverEndsTheProcessWithDebugBit2) {
    const ChildResult child = run_in_child([] {
        SocketCanDriver driver;
        driver.set_debug(2);
        fetch(driver);
    });
    EXPECT_EQ(child.out, "Virhe: \n\nRead: CAN connection is not Open !\n\n\n");
    EXPECT_EQ(child.status, 1);
}

TEST_F(SocketCanReadWait, DeliversAFrameThatWaits) {
    InspectedDriver driver;
    driver.receive_also(SocketCanDriver::extended_frames);
    open_quietly(driver);
    can_kernel().put(0x1ABCDEF1 | CAN_EFF_FLAG, {1, 2, 3});
    can_kernel().waits.push_back([](int) -> int { std::abort(); });
    const Fetched fetched = fetch_wait(driver, 1000);
    EXPECT_EQ(fetched.result, 0);
    EXPECT_EQ(fetched.id, 0x1ABCDEF1U);
    EXPECT_EQ(fetched.length, 3U);
    EXPECT_EQ(fetched.data, (Data{1, 2, 3}));
    EXPECT_EQ(driver.received_frame_type(), 1U);
}

TEST_F(SocketCanReadWait, WaitsForAFrameForAsLongAsItIsTold) {
    SocketCanDriver driver;
    open_quietly(driver);
    can_kernel().waits.push_back([](int timeout) {
        EXPECT_GT(timeout, 90'000);
        EXPECT_LE(timeout, 100'000);
        can_kernel().put(0x181, {1});
        return 1;
    });
    EXPECT_EQ(fetch_wait(driver, 100'000).id, 0x181U);
    EXPECT_TRUE(can_kernel().waits.empty());
}

TEST_F(SocketCanReadWait, AnsweredWith1AfterItsTime) {
    SocketCanDriver driver;
    open_quietly(driver);
    const Clock::time_point start = Clock::now();
    expect_nothing(fetch_wait(driver, 30), 1);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30));
}

TEST_F(SocketCanReadWait, Timeout0DoesNotWait) {
    SocketCanDriver driver;
    open_quietly(driver);
    can_kernel().waits.push_back([](int) -> int { std::abort(); });
    expect_nothing(fetch_wait(driver, 0), 1);
}

TEST_F(SocketCanReadWait, NegativeAndHugeTimeoutsWaitWithoutLimit) {
    SocketCanDriver driver;
    open_quietly(driver);
    for (const long timeout : {-1L, LONG_MIN, INT_MAX + 1L, LONG_MAX}) {
        can_kernel().waits.push_back([](int told) {
            EXPECT_EQ(told, -1);
            can_kernel().put(0x181, {1});
            return 1;
        });
        EXPECT_EQ(fetch_wait(driver, timeout).id, 0x181U);
    }
}

TEST_F(SocketCanReadWait, TheLongestTimeoutHasItsEnd) {
    SocketCanDriver driver;
    open_quietly(driver);
    can_kernel().waits.push_back([](int told) {
        EXPECT_GT(told, 0);
        can_kernel().put(0x181, {1});
        return 1;
    });
    EXPECT_EQ(fetch_wait(driver, INT_MAX).id, 0x181U);
}

TEST_F(SocketCanReadWait, ASignalDoesNotEndTheWaitNorLengthenIt) {
    SocketCanDriver driver;
    open_quietly(driver);
    can_kernel().waits.push_back([](int) {
        const Clock::time_point until = Clock::now() + std::chrono::milliseconds(10);
        while (Clock::now() < until) {
        }
        return -EINTR;
    });
    can_kernel().waits.push_back([](int timeout) {
        EXPECT_LE(timeout, 100'000 - 10);
        can_kernel().put(0x181, {1});
        return 1;
    });
    EXPECT_EQ(fetch_wait(driver, 100'000).id, 0x181U);
}

TEST_F(SocketCanReadWait, AnErrorFrameThatOnlyChangesCountersDoesNotEndTheWait) {
    InspectedDriver driver;
    open_quietly(driver);
    can_kernel().waits.push_back([](int) {
        can_kernel().put(error_frame | CAN_ERR_CNT, {0, 0, 0, 0, 0, 0, 1, 2});
        return 1;
    });
    can_kernel().waits.push_back([](int) {
        can_kernel().put(0x181, {1});
        return 1;
    });
    EXPECT_EQ(fetch_wait(driver, 100'000).id, 0x181U);
    EXPECT_EQ(driver.rx(), 2U);
}

TEST_F(SocketCanReadWait, AnErrorWhileItWaitsIsReported) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        can_kernel().waits.push_back([](int) {
            can_kernel().put_error(ENETDOWN);
            return 1;
        });
        return fetch_wait(driver, 100'000).result;
    });
    EXPECT_EQ(child.out, read_wait_error + down + "= -1\n");
}

TEST_F(SocketCanReadWait, AWaitThatFailsIsReported) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        can_kernel().waits.push_back([](int) { return -ENOMEM; });
        return fetch_wait(driver, 100'000).result;
    });
    EXPECT_EQ(child.out, read_wait_error + "Virhe: " + std::strerror(ENOMEM) + "\n\n= -1\n");
}

TEST_F(SocketCanReadWait, AClosedDriverReportsAndDoesNotWait) {
    const ChildResult child = run_in_child([] {
        SocketCanDriver driver;
        const Fetched fetched = fetch_wait(driver, -1);
        std::printf("= %d %u %u %d\n", fetched.result, fetched.id, fetched.length, fetched.data == no_data);
        driver.set_debug(2);
        fetch_wait(driver, -1);
    });
    EXPECT_EQ(child.out,
              "Virhe: \n\nReadWait: CAN connection is not Open !\n\n\n= -1 0 0 1\n"
              "Virhe: \n\nReadWait: CAN connection is not Open !\n\n\n");
    EXPECT_EQ(child.status, 1);
}

TEST_F(SocketCanWrite, Flags0FollowsTheMode) {
    for (const unsigned int mode : {0U, 1U, 2U}) {
        SocketCanDriver driver;
        open_quietly(driver, mode);
        can_kernel().sent.clear();
        EXPECT_EQ(send_once(driver), 0);
        ASSERT_EQ(can_kernel().sent.size(), 1U);
        EXPECT_EQ(can_kernel().sent[0].can_id, mode == 0 ? 0x201U : 0x201U | CAN_EFF_FLAG);
    }
}

TEST_F(SocketCanWrite, OtherFlagsChooseWidthAndRemoteRequest) {
    struct Row {
        unsigned int flags;
        std::uint32_t identifier;
    };
    for (const unsigned int mode : {0U, 1U}) {
        SocketCanDriver driver;
        open_quietly(driver, mode);
        for (const Row& row :
             {Row{1, 0x201 | CAN_EFF_FLAG}, Row{2, 0x201 | CAN_RTR_FLAG},
              Row{3, 0x201 | CAN_EFF_FLAG | CAN_RTR_FLAG}, Row{4, 0x201}, Row{0xFFFFFFFC, 0x201},
              Row{0xFFFFFFFF, 0x201 | CAN_EFF_FLAG | CAN_RTR_FLAG}}) {
            EXPECT_EQ(send_once(driver, 0x201, row.flags), 0);
            EXPECT_EQ(can_kernel().sent.back().can_id, row.identifier) << row.flags;
        }
    }
}

TEST_F(SocketCanWrite, SendsTheBytesOfTheLengthAndNoOthers) {
    SocketCanDriver driver;
    open_quietly(driver);
    for (unsigned int length = 0; length <= 8; ++length) {
        std::vector<unsigned char> data(length);
        for (unsigned int i = 0; i < length; ++i) {
            data[i] = static_cast<unsigned char>(0x10 + i);
        }
        EXPECT_EQ(driver.write(0x201, length, data.data(), 0), 0);
        const can_frame& frame = can_kernel().sent.back();
        EXPECT_EQ(frame.can_dlc, length);
        for (unsigned int i = 0; i < 8; ++i) {
            EXPECT_EQ(frame.data[i], i < length ? 0x10 + i : 0U);
        }
    }
}

TEST_F(SocketCanWrite, ARemoteRequestHasALengthAndNoData) {
    SocketCanDriver driver;
    open_quietly(driver);
    EXPECT_EQ(driver.write(0x701, 4, nullptr, 2), 0);
    EXPECT_EQ(can_kernel().sent[0].can_dlc, 4);
    for (const unsigned char byte : can_kernel().sent[0].data) {
        EXPECT_EQ(byte, 0);
    }
}

TEST_F(SocketCanWrite, IdentifiersMustFit) {
    SocketCanDriver driver;
    open_quietly(driver);
    EXPECT_EQ(send_once(driver, 0x7FF), 0);
    EXPECT_EQ(send_once(driver, 0x1FFFFFFF, 1), 0);
    const ChildResult child = with_open_driver(0, [](InspectedDriver& other) {
        can_kernel().sent.clear();
        const int standard = send_once(other, 0x800);
        const int extended = send_once(other, 0x20000000, 1);
        return can_kernel().sent.empty() ? standard + extended : 99;
    });
    EXPECT_EQ(child.out, write_error +
                             "Virhe: the identifier does not fit into 11 bits: open with mode 1, or pass "
                             "flags with bit value 1, for 29 bits\n\n" +
                             write_error + "Virhe: the identifier does not fit into 29 bits\n\n= -2\n");
}

TEST_F(SocketCanWrite, AFrameHasAtMost8Bytes) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        std::array<unsigned char, 9> data{};
        const int result = driver.write(0x201, 9, data.data(), 0);
        return can_kernel().sent.empty() ? result : 99;
    });
    EXPECT_EQ(child.out, write_error + "Virhe: a frame has 0 to 8 data bytes\n\n= -1\n");
}

TEST_F(SocketCanWrite, ASilentDriverSendsNothing) {
    const ChildResult child = run_in_child([] {
        SocketCanDriver driver;
        open_quietly(driver, 0, true);
        const int result = send_once(driver);
        std::printf("= %d, %zu sent\n", result, can_kernel().sent.size());
        open_quietly(driver, 0, false);
        std::printf("= %d\n", send_once(driver));
    });
    EXPECT_EQ(child.out, write_error +
                             "Virhe: interface can0 was opened silent: to send, open it with silent false\n\n"
                             "= -1, 0 sent\n= 0\n");
}

TEST_F(SocketCanWrite, ASilentDriverReads) {
    SocketCanDriver driver;
    open_quietly(driver, 0, true);
    can_kernel().put(0x181, {1});
    EXPECT_EQ(fetch(driver).id, 0x181U);
}

TEST_F(SocketCanWrite, TracesEachFrameWithDebugBit8) {
    const ChildResult child = with_open_driver(8, [](InspectedDriver& driver) {
        unsigned char data[2] = {1, 2};
        const int result = driver.write(0x201, 2, data, 0);
        CDecoder::print();
        return result;
    });
    EXPECT_NE(child.out.find("id 0x00000201  len 2  data 01 02 00 00 00 00 00 00 [T]"), std::string::npos);
}

TEST_F(SocketCanWrite, TracesIdentifiersWithoutTheKernelsMarks) {
    SocketCanDriver driver;
    open_quietly(driver);
    driver.set_debug(8);
    unsigned char data[3] = {1, 2, 3};
    driver.write(0x1ABCDEF1, 3, data, 3);
    EXPECT_STREQ(CDecoder::get_message(), "id 0x1abcdef1  len 3  data 00 00 00 00 00 00 00 00 [T]");
    CDecoder::clear_message();
}

TEST_F(SocketCanWrite, AsksNothingAboutAnInterfaceThatIsWell) {
    SocketCanDriver driver;
    open_quietly(driver);
    const int asked = can_kernel().asked;
    send_once(driver);
    EXPECT_EQ(can_kernel().asked, asked);
}

TEST_F(SocketCanWrite, TracesNothingWithoutDebugBit8NorAFrameThatFailed) {
    SocketCanDriver driver;
    open_quietly(driver);
    driver.set_debug(~(8U | 2U));
    send_once(driver);
    EXPECT_STREQ(CDecoder::get_message(), "");
    const ChildResult child = with_open_driver(8, [](InspectedDriver& other) {
        can_kernel().errors["send"] = ENOBUFS;
        const int result = send_once(other);
        CDecoder::print();
        return result;
    });
    EXPECT_EQ(child.out, write_error + queue_full + "= -1\n");
}

TEST_F(SocketCanWrite, EachFailureIsReported) {
    const std::vector<std::pair<int, std::string>> failures = {
        {ENETDOWN, down},
        {ENODEV, gone},
        {ENXIO, gone},
        {ENOBUFS, queue_full},
        {EAGAIN, send_buffer_full},
        {EPERM, "Virhe: " + no_permission},
        {EACCES, "Virhe: " + no_permission},
        {ENOMEM, "Virhe: " + std::string(std::strerror(ENOMEM)) + "\n\n"},
    };
    for (const auto& [error, text] : failures) {
        can_kernel().errors["send"] = error;
        const ChildResult child = with_open_driver(
            0, [](InspectedDriver& driver) { return send_once(driver) + send_once(driver); });
        EXPECT_EQ(child.out, write_error + text + write_error + text + "= -2\n");
        EXPECT_EQ(child.status, 0);
    }
}

TEST_F(SocketCanWrite, AReportEndsTheProcessWithDebugBit2) {
    can_kernel().errors["send"] = ENOBUFS;
    const ChildResult child = with_open_driver(2, [](InspectedDriver& driver) { return send_once(driver); });
    EXPECT_EQ(child.out, write_error + queue_full);
    EXPECT_EQ(child.status, 1);
}

TEST_F(SocketCanWrite, AClosedDriverReportsAndDoesNotSend) {
    const ChildResult child = run_in_child([] {
        SocketCanDriver driver;
        std::printf("= %d\n", send_once(driver));
        driver.set_debug(2);
        send_once(driver);
    });
    EXPECT_EQ(child.out,
              "Virhe: \n\nWrite: CAN connection is not Open !\n\n\n= -1\n"
              "Virhe: \n\nWrite: CAN connection is not Open !\n\n\n");
    EXPECT_EQ(child.status, 1);
}

TEST_F(SocketCanErrors, ErrorFramesAreTakenOutAndFeedTheCounters) {
    InspectedDriver driver;
    open_quietly(driver);
    can_kernel().put(error_frame | CAN_ERR_CRTL | CAN_ERR_CNT,
                     {0, CAN_ERR_CRTL_TX_WARNING, 0, 0, 0, 0, 96, 7});
    can_kernel().put(0x181, {1});
    EXPECT_EQ(fetch(driver).id, 0x181U);
    unsigned int tx = 0;
    unsigned int rx = 0;
    unsigned int overruns = 9;
    EXPECT_EQ(driver.read_error_counters(tx, rx, overruns), 0);
    EXPECT_EQ(tx, 96U);
    EXPECT_EQ(rx, 7U);
    EXPECT_EQ(overruns, 0U);
    EXPECT_EQ(driver.tx(), 96U);
    EXPECT_EQ(driver.rx(), 7U);
    can_kernel().put(error_frame | CAN_ERR_CNT, {0, 0, 0, 0, 0, 0, 95, 0});
    expect_nothing(fetch(driver), 1);
    EXPECT_EQ(driver.tx(), 95U);
    EXPECT_EQ(driver.rx(), 0U);
}

TEST_F(SocketCanErrors, ErrorFramesThatAreHandedOutFeedTheCountersToo) {
    InspectedDriver driver;
    driver.receive_also(SocketCanDriver::error_frames);
    open_quietly(driver);
    can_kernel().put(error_frame | CAN_ERR_CNT | CAN_ERR_CRTL,
                     {0, CAN_ERR_CRTL_RX_OVERFLOW, 0, 0, 0, 0, 96, 7});
    EXPECT_EQ(fetch(driver).result, 0);
    EXPECT_EQ(driver.tx(), 96U);
    EXPECT_EQ(driver.rx(), 7U);
    EXPECT_EQ(driver.overruns(), 1U);
}

TEST_F(SocketCanErrors, ErrorFramesThatAreTakenOutLeaveTheTimeOfTheLastFrame) {
    SocketCanDriver driver;
    open_quietly(driver);
    can_kernel().put(0x181, {});
    can_kernel().queue.back().time_ns = 5;
    can_kernel().put(error_frame | CAN_ERR_CRTL, {0, 0, 0, 0, 0, 0, 0, 0});
    can_kernel().queue.back().time_ns = 6;
    EXPECT_EQ(fetch(driver).result, 0);
    expect_nothing(fetch(driver), 1);
    EXPECT_EQ(driver.receive_time_ns(), 5U);
    EXPECT_FALSE(driver.is_error_frame());
}

TEST_F(SocketCanErrors, DroppedFramesAreToldWithTheFrameBehindThem) {
    SocketCanDriver driver;
    open_quietly(driver);
    EXPECT_EQ(driver.dropped_frames(), 0U);
    for (const std::uint32_t dropped : {0U, 3U, 3U, 10U}) {
        can_kernel().put(0x181, {});
        can_kernel().queue.back().dropped = dropped;
        EXPECT_EQ(fetch(driver).result, 0);
        EXPECT_EQ(driver.dropped_frames(), dropped);
    }
    can_kernel().put(error_frame | CAN_ERR_CRTL, {0, CAN_ERR_CRTL_RX_OVERFLOW, 0, 0, 0, 0, 0, 0});
    expect_nothing(fetch(driver), 1);
    EXPECT_EQ(driver.dropped_frames(), 10U);
    open_quietly(driver);
    EXPECT_EQ(driver.dropped_frames(), 0U);
}

TEST_F(SocketCanErrors, CountersAreOnlyTakenFromErrorFramesThatHaveThem) {
    InspectedDriver driver;
    open_quietly(driver);
    can_kernel().put(error_frame | CAN_ERR_CNT, {0, 0, 0, 0, 0, 0, 1, 2});
    can_kernel().put(error_frame | CAN_ERR_PROT | CAN_ERR_BUSERROR, {0, 0, 0, 0, 0, 0, 3, 4});
    fetch(driver);
    EXPECT_EQ(driver.tx(), 1U);
    EXPECT_EQ(driver.rx(), 2U);
}

TEST_F(SocketCanErrors, OverflowsOfTheControllerAreOverruns) {
    InspectedDriver driver;
    open_quietly(driver);
    for (const unsigned char status : std::vector<unsigned char>{
             CAN_ERR_CRTL_RX_OVERFLOW, CAN_ERR_CRTL_TX_OVERFLOW, CAN_ERR_CRTL_RX_PASSIVE}) {
        can_kernel().put(error_frame | CAN_ERR_CRTL, {0, status, 0, 0, 0, 0, 0, 0});
    }
    can_kernel().put(error_frame | CAN_ERR_PROT, {0, CAN_ERR_CRTL_RX_OVERFLOW, 0, 0, 0, 0, 0, 0});
    fetch(driver);
    EXPECT_EQ(driver.overruns(), 2U);
}

TEST_F(SocketCanErrors, OverrunsAreAddedUp) {
    InspectedDriver driver;
    open_quietly(driver);
    can_kernel().put(error_frame | CAN_ERR_CRTL, {0, CAN_ERR_CRTL_RX_OVERFLOW, 0, 0, 0, 0, 0, 0});
    can_kernel().put(1, {});
    can_kernel().queue.back().dropped = 5;
    fetch(driver);
    EXPECT_EQ(driver.overruns(), 6U);
}

TEST_F(SocketCanErrors, FramesThatTheSocketDroppedAreOverruns) {
    InspectedDriver driver;
    open_quietly(driver);
    can_kernel().put(1, {});
    fetch(driver);
    EXPECT_EQ(driver.overruns(), 0U);
    for (const std::uint32_t dropped : {5U, 5U, 0xFFFFFFFFU, 2U}) {
        can_kernel().put(1, {});
        can_kernel().queue.back().dropped = dropped;
    }
    fetch(driver);
    EXPECT_EQ(driver.overruns(), 5U);
    fetch(driver);
    EXPECT_EQ(driver.overruns(), 5U);
    fetch(driver);
    EXPECT_EQ(driver.overruns(), 0xFFFFFFFFU);
    fetch(driver);
    EXPECT_EQ(driver.overruns(), 2U);
}

TEST_F(SocketCanErrors, ResetsForgetTheErrorsAndLeaveTheFrames) {
    InspectedDriver driver;
    open_quietly(driver);
    can_kernel().put(error_frame | CAN_ERR_CNT | CAN_ERR_CRTL,
                     {0, CAN_ERR_CRTL_RX_OVERFLOW, 0, 0, 0, 0, 11, 12});
    fetch(driver);
    can_kernel().put(0x181, {});
    driver.reset_tx_errors();
    EXPECT_EQ(driver.tx(), 0U);
    EXPECT_EQ(driver.rx(), 12U);
    driver.reset_rx_errors();
    EXPECT_EQ(driver.rx(), 0U);
    EXPECT_EQ(driver.overruns(), 1U);
    EXPECT_EQ(fetch(driver).id, 0x181U);
}

TEST_F(SocketCanErrors, AFailedReadTellsReceiveErrors) {
    for (const unsigned int debug : {0U, 16U}) {
        const ChildResult child = with_open_driver(debug, [](InspectedDriver& driver) {
            can_kernel().put(error_frame | CAN_ERR_CNT, {0, 0, 0, 0, 0, 0, 11, 12});
            can_kernel().put_error(ENETDOWN);
            const int result = fetch(driver).result;
            std::printf("tx %u rx %u\n", driver.tx(), driver.rx());
            return result;
        });
        EXPECT_EQ(child.out, read_error + down + "Virhe: Read Error ! RX-Errorcounter = 12 \n\n" +
                                 (debug == 0 ? "tx 11 rx 12\n" : "tx 11 rx 0\n") + "= -1\n");
    }
}

TEST_F(SocketCanErrors, AFailedWriteTellsTransmitErrors) {
    for (const unsigned int debug : {0U, 16U}) {
        const ChildResult child = with_open_driver(debug, [](InspectedDriver& driver) {
            can_kernel().put(error_frame | CAN_ERR_CNT, {0, 0, 0, 0, 0, 0, 11, 12});
            fetch(driver);
            can_kernel().errors["send"] = ENOBUFS;
            const int result = send_once(driver);
            std::printf("tx %u rx %u\n", driver.tx(), driver.rx());
            return result;
        });
        EXPECT_EQ(child.out, write_error + queue_full + "Virhe: Transmit Error ! TX-Errorcounter = 11 \n\n" +
                                 (debug == 0 ? "tx 11 rx 12\n" : "tx 0 rx 12\n") + "= -1\n");
    }
}

TEST_F(SocketCanConditions, DownIsReportedOnceAndLastsUntilTheInterfaceIsUp) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        can_kernel().links["can0"].up = false;
        can_kernel().put_error(ENETDOWN);
        const int first = fetch(driver).result;
        const int second = fetch(driver).result;
        const int waited = fetch_wait(driver, 100'000).result;
        can_kernel().links["can0"].up = true;
        const int third = fetch(driver).result;
        std::printf("%d %d %d %d\n", first, second, waited, third);
        can_kernel().put(0x181, {1});
        return fetch(driver).result;
    });
    EXPECT_EQ(child.out, read_error + down + "-1 -1 -1 1\n= 0\n");
}

TEST_F(SocketCanConditions, FramesFromBeforeAreStillDelivered) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        can_kernel().links["can0"].up = false;
        can_kernel().put_error(ENETDOWN);
        can_kernel().put(0x181, {1});
        const int first = fetch(driver).result;
        const int second = fetch(driver).result;
        std::printf("%d %d\n", first, second);
        return fetch(driver).result;
    });
    EXPECT_EQ(child.out, read_error + down + "-1 0\n= -1\n");
}

TEST_F(SocketCanConditions, GoneIsReportedOnceAndLastsUntilTheDriverIsOpenedAgain) {
    for (const int error : {ENODEV, ENXIO}) {
        const ChildResult child = with_open_driver(0, [error](InspectedDriver& driver) {
            can_kernel().put_error(error);
            const int first = fetch(driver).result;
            const int second = fetch(driver).result;
            open_quietly(driver);
            const int third = fetch(driver).result;
            std::printf("%d %d %d\n", first, second, third);
            return 0;
        });
        EXPECT_EQ(child.out, read_error + gone + "-1 -1 1\n= 0\n");
    }
}

TEST_F(SocketCanConditions, DownCanTurnIntoGone) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        can_kernel().put_error(ENETDOWN);
        const int first = fetch(driver).result;
        can_kernel().links.clear();
        return first + fetch(driver).result + fetch(driver).result;
    });
    EXPECT_EQ(child.out, read_error + down + read_error + gone + "= -3\n");
}

TEST_F(SocketCanConditions, BusOffIsReportedOnceAndLastsUntilTheControllerIsBack) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        can_kernel().links["can0"].bus_off = true;
        can_kernel().put(error_frame | CAN_ERR_BUSOFF, {0, 0, 0, 0, 0, 0, 0, 0});
        const int first = fetch(driver).result;
        const int second = fetch(driver).result;
        can_kernel().links["can0"].bus_off = false;
        std::printf("%d %d %d\n", first, second, fetch(driver).result);
        return 0;
    });
    EXPECT_EQ(child.out, read_error + bus_off + "-1 -1 1\n= 0\n");
}

TEST_F(SocketCanConditions, ABusOffThatIsHandedOutIsReportedAsWell) {
    const ChildResult child = run_in_child([] {
        SocketCanDriver driver;
        driver.receive_also(SocketCanDriver::error_frames);
        open_quietly(driver);
        can_kernel().links["can0"].bus_off = true;
        can_kernel().put(error_frame | CAN_ERR_BUSOFF, {0, 0, 0, 0, 0, 0, 0, 0});
        const Fetched first = fetch(driver);
        std::printf("= %d %u %d\n", first.result, first.id, driver.is_error_frame());
        std::printf("= %d\n", fetch(driver).result);
        can_kernel().links["can0"].bus_off = false;
        std::printf("= %d\n", fetch(driver).result);
    });
    EXPECT_EQ(child.out, read_error + bus_off + "= 0 64 1\n= -1\n= 1\n");
}

TEST_F(SocketCanConditions, ARestartEndsBusOff) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        can_kernel().links["can0"].bus_off = true;
        can_kernel().put(error_frame | CAN_ERR_BUSOFF, {0, 0, 0, 0, 0, 0, 0, 0});
        fetch(driver);
        can_kernel().put(error_frame | CAN_ERR_RESTARTED, {0, 0, 0, 0, 0, 0, 0, 0});
        return fetch(driver).result;
    });
    EXPECT_EQ(child.out, read_error + bus_off + "= 1\n");
}

TEST_F(SocketCanConditions, ARestartDoesNotBringAnInterfaceUp) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        can_kernel().links["can0"].up = false;
        can_kernel().put_error(ENETDOWN);
        fetch(driver);
        can_kernel().put(error_frame | CAN_ERR_RESTARTED, {0, 0, 0, 0, 0, 0, 0, 0});
        return fetch(driver).result;
    });
    EXPECT_EQ(child.out, read_error + down + "= -1\n");
}

// The kernel tells it once, to the call that comes first.
TEST_F(SocketCanConditions, WhatAWriteHasLearnedAReadKnows) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        can_kernel().links["can0"].up = false;
        can_kernel().errors["send"] = ENETDOWN;
        const int sent = send_once(driver);
        can_kernel().waits.push_back([](int) -> int { std::abort(); });
        const int waited = fetch_wait(driver, -1).result;
        const int first = fetch(driver).result;
        can_kernel().links["can0"].up = true;
        can_kernel().errors.clear();
        std::printf("%d %d %d %d\n", sent, waited, first, fetch(driver).result);
        return send_once(driver);
    });
    EXPECT_EQ(child.out, write_error + down + "-1 -1 -1 1\n= 0\n");
}

TEST_F(SocketCanConditions, GoneForAWriteIsGoneForARead) {
    for (const int error : {ENODEV, ENXIO}) {
        const ChildResult child = with_open_driver(0, [error](InspectedDriver& driver) {
            can_kernel().errors["send"] = error;
            const int sent = send_once(driver);
            can_kernel().waits.push_back([](int) -> int { std::abort(); });
            const int waited = fetch_wait(driver, -1).result;
            std::printf("%d %d\n", sent, waited);
            return fetch(driver).result;
        });
        EXPECT_EQ(child.out, write_error + gone + "-1 -1\n= -1\n");
    }
}

TEST_F(SocketCanConditions, AFullQueueIsNoConditionOfTheInterface) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        can_kernel().errors["send"] = ENOBUFS;
        send_once(driver);
        const int asked = can_kernel().asked;
        const int result = fetch(driver).result;
        std::printf("asked %d times\n", can_kernel().asked - asked);
        return result;
    });
    EXPECT_EQ(child.out, write_error + queue_full + "asked 0 times\n= 1\n");
}

TEST_F(SocketCanConditions, WhileBusOffEachFrameIsRefusedAndThenSentAgain) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        can_kernel().links["can0"].bus_off = true;
        can_kernel().put(error_frame | CAN_ERR_BUSOFF, {0, 0, 0, 0, 0, 0, 0, 0});
        fetch(driver);
        const int first = send_once(driver);
        const int second = send_once(driver);
        std::printf("%d %d, %zu sent\n", first, second, can_kernel().sent.size());
        can_kernel().links["can0"].bus_off = false;
        return send_once(driver);
    });
    EXPECT_EQ(child.out,
              read_error + bus_off + write_error + bus_off + write_error + bus_off + "-1 -1, 0 sent\n= 0\n");
}

TEST_F(SocketCanConditions, ALastingConditionIsNotTakenForOverWhenTheKernelDoesNotTell) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        can_kernel().put_error(ENETDOWN);
        fetch(driver);
        can_kernel().errors["recv(AF_NETLINK)"] = ENOMEM;
        return fetch(driver).result;
    });
    EXPECT_EQ(child.out, read_error + down + "= -1\n");
}

TEST_F(SocketCanConditions, OtherErrorsAreToldInTheSystemsWordsEachTime) {
    const ChildResult child = with_open_driver(0, [](InspectedDriver& driver) {
        can_kernel().put_error(ENOMEM);
        can_kernel().put_error(ENOMEM);
        return fetch(driver).result + fetch(driver).result + fetch(driver).result;
    });
    const std::string text = "Virhe: " + std::string(std::strerror(ENOMEM)) + "\n\n";
    EXPECT_EQ(child.out, read_error + text + read_error + text + "= -1\n");
}

TEST_F(SocketCanConditions, AReportEndsTheProcessWithDebugBit2) {
    const ChildResult child = with_open_driver(2, [](InspectedDriver& driver) {
        can_kernel().put_error(ENETDOWN);
        return fetch(driver).result;
    });
    EXPECT_EQ(child.out, read_error + down);
    EXPECT_EQ(child.status, 1);
}
