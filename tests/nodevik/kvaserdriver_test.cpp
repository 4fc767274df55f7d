#include "nodevik/kvaserdriver.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "nodevik/observeddriver.h"
#include "tests/nodevik/canlibstandin.h"
#include "tests/support/childprocess.h"

namespace {

using Calls = std::vector<std::string>;

// The state of the stand-in library that the driver loads.
CanlibStandin& standin() {
    static CanlibStandin* const state = [] {
        void* library = dlopen("libcanlib.so.1", RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            std::abort();
        }
        return reinterpret_cast<canlib_standin_function>(dlsym(library, "canlib_standin"))();
    }();
    return *state;
}

// The driver, with its inherited state to be looked at.
class InspectedDriver : public KvaserDriver {
public:
    int is_open() const { return isopen; }
    unsigned int sends_frame_type() const { return frame_type; }
    unsigned int received_frame_type() const { return read_frame_type; }
    unsigned long received_at() const { return timestamp; }
    unsigned int rx() const { return RXerrors; }
    unsigned int tx() const { return TXerrors; }
    unsigned int overruns() const { return OVerrors; }
};

// A driver that tells which virtual operations it uses.
class WatchedDriver : public KvaserDriver {
public:
    int read_error_counters(unsigned int& txErr, unsigned int& rxErr, unsigned int& ovErr) override {
        std::printf("read_error_counters\n");
        return KvaserDriver::read_error_counters(txErr, rxErr, ovErr);
    }
    void reset_rx_errors() override { std::printf("reset_rx_errors\n"); }
    void reset_tx_errors() override { std::printf("reset_tx_errors\n"); }
};

// Opens a driver on channel 0 of the stand-in, quietly, and forgets the calls that this took.
template <typename Driver>
void open_quietly(Driver& driver, unsigned int mode = 0) {
    driver.set_debug(0);
    if (driver.open(500000, mode, 0, false) != 0) {
        std::abort();
    }
    standin().calls.clear();
}

class Kvaser : public testing::Test {
protected:
    Kvaser() {
        standin() = CanlibStandin();
        standin().results["canOpenChannel"] = 7;
        CDecoder::clear_message();
        CDecoder::register_callback(CDecoder::print_message_callback);
    }
};

// Runs @p use on an open driver in a child process and prints the result of the operation as "= <result>".
ChildResult with_open_driver(unsigned int debug, const std::function<int(WatchedDriver&)>& use) {
    return run_in_child([debug, &use] {
        WatchedDriver driver;
        open_quietly(driver);
        driver.set_debug(debug);
        std::printf("= %d\n", use(driver));
    });
}

int read_once(CANdriver& driver) {
    unsigned int id = 0;
    unsigned int length = 0;
    unsigned char data[8];
    return driver.read(id, length, data);
}

int read_wait_once(KvaserDriver& driver) {
    unsigned int id = 0;
    unsigned int length = 0;
    unsigned char data[8];
    return driver.read_wait(id, length, data, 20);
}

int write_once(KvaserDriver& driver) {
    unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    return driver.write(0x201, 2, data, 0);
}

}  // namespace

using KvaserOpen = Kvaser;
using KvaserClose = Kvaser;
using KvaserRead = Kvaser;
using KvaserReadWait = Kvaser;
using KvaserWrite = Kvaser;
using KvaserErrors = Kvaser;

TEST_F(Kvaser, IsACanDriver) {
    EXPECT_TRUE((std::is_base_of_v<CANdriver, KvaserDriver>));
    EXPECT_TRUE((std::is_convertible_v<KvaserDriver*, CDecoder*>));
}

TEST_F(Kvaser, OpensNothingWhenItIsBuilt) {
    const InspectedDriver driver;
    EXPECT_EQ(driver.is_open(), 0);
    EXPECT_EQ(driver.get_debug(), 1U);
    EXPECT_LT(*driver.get_handle(), 0);
    EXPECT_TRUE(standin().calls.empty());
}

TEST_F(Kvaser, GetHandlePointsToTheChannelsHandle) {
    KvaserDriver driver;
    const canHandle* handle = driver.get_handle();
    open_quietly(driver);
    EXPECT_EQ(*handle, 7);
    EXPECT_EQ(driver.get_handle(), handle);
}

TEST_F(KvaserOpen, CallsCanlibInItsOrder) {
    InspectedDriver driver;
    driver.set_debug(0);
    EXPECT_EQ(driver.open(500000, 0, 3, false), 0);
    EXPECT_EQ(standin().calls, (Calls{"canInitializeLibrary()", "canOpenChannel(3, 8)",
                                      "canSetBusParams(7, -2, 0, 0, 0, 0, 0)", "canSetBusOutputControl(7, 4)",
                                      "canBusOn(7)", "canGetBusParams(7)"}));
    EXPECT_EQ(driver.is_open(), 1);
    EXPECT_EQ(driver.sends_frame_type(), 0U);
}

TEST_F(KvaserOpen, InitialisesCanlibEachTime) {
    KvaserDriver driver;
    open_quietly(driver);
    open_quietly(driver);
    driver.open(500000, 0, 0, false);
    EXPECT_EQ(standin().calls.front(), "canInitializeLibrary()");
}

TEST_F(KvaserOpen, ExtendedModeRequiresExtendedIdentifiers) {
    for (const unsigned int mode : {1U, 2U, 0xFFFFFFFFU}) {
        InspectedDriver driver;
        driver.set_debug(0);
        standin().calls.clear();
        EXPECT_EQ(driver.open(500000, mode, 0, false), 0);
        EXPECT_EQ(standin().calls[1], "canOpenChannel(0, 24)");
        EXPECT_EQ(driver.sends_frame_type(), mode);
    }
}

TEST_F(KvaserOpen, SilentDriverOnlyListens) {
    KvaserDriver driver;
    driver.set_debug(0);
    EXPECT_EQ(driver.open(500000, 0, 0, true), 0);
    EXPECT_EQ(standin().calls[3], "canSetBusOutputControl(7, 1)");
}

TEST_F(KvaserOpen, SpeedsChooseCanlibsConstantsOrAreFrequencies) {
    const std::vector<std::pair<unsigned int, std::string>> rates = {
        {1000000, "-1"},
        {500000, "-2"},
        {250000, "-3"},
        {125000, "-4"},
        {100000, "-5"},
        {62000, "-6"},
        {50000, "-7"},
        {62500, "62500"},
        {10000, "10000"},
        {0, "0"},
        {4000000000U, "4000000000"},
    };
    for (const auto& [speed, rate] : rates) {
        KvaserDriver driver;
        driver.set_debug(0);
        standin().calls.clear();
        EXPECT_EQ(driver.open(speed, 0, 0, false), 0);
        EXPECT_EQ(standin().calls[2], "canSetBusParams(7, " + rate + ", 0, 0, 0, 0, 0)");
    }
}

TEST_F(KvaserOpen, PrintsItsProgressAndTheBusParameters) {
    standin().freq = 250000;
    standin().tseg1 = 5;
    standin().tseg2 = 2;
    standin().sjw = 1;
    standin().samples = 3;
    const ChildResult child = run_in_child([] {
        KvaserDriver driver;
        driver.open(250000, 0, 1, false);
    });
    EXPECT_EQ(child.out,
              "kvaserDriver::open() - Trying to open CAN channel 1 with 11-bit mode\n"
              "kvaserDriver::open() - Channel speed = 250000\n"
              "kvaserDriver::open() - Channel opened in non silent mode\n"
              "kvaserDriver::open() - Time segment 1, the number of quanta from (but not including) the Sync "
              "Segment "
              "to the sampling point = 5\n"
              "kvaserDriver::open() - Time segment 2, the number of quanta from the sampling point to the "
              "end of the "
              "bit = 2\n"
              "kvaserDriver::open() - Syncronization Jump Width (1,2,3,4) = 1\n"
              "kvaserDriver::open() - The number of sampling points = 3\n");
}

TEST_F(KvaserOpen, PrintsExtendedSilentMode) {
    const ChildResult child = run_in_child([] {
        KvaserDriver driver;
        driver.open(250000, 1, 2, true);
    });
    const std::string start =
        "kvaserDriver::open() - Trying to open CAN channel 2 with 29-bit mode\n"
        "kvaserDriver::open() - Channel speed = 0\n"
        "kvaserDriver::open() - Channel opened in silent mode\n";
    EXPECT_EQ(child.out.substr(0, start.size()), start);
}

TEST_F(KvaserOpen, PrintsAQuestionMarkForAnyOtherMode) {
    const ChildResult child = run_in_child([] {
        KvaserDriver driver;
        driver.open(250000, 2, 0, false);
    });
    EXPECT_EQ(child.out.substr(0, child.out.find('\n')),
              "kvaserDriver::open() - Trying to open CAN channel 0 with ?-bit mode");
}

TEST_F(KvaserOpen, PrintsNothingWithoutDebugBit1) {
    const ChildResult child = run_in_child([] {
        KvaserDriver driver;
        driver.set_debug(0xFFFFFFFE);
        driver.open(250000, 0, 0, false);
    });
    EXPECT_EQ(child.out, "");
}

TEST_F(KvaserOpen, FailedChannelTellsTheEarlierStatusFirstAndReturnsTheHandle) {
    const ChildResult child = run_in_child([] {
        InspectedDriver driver;
        driver.set_debug(0);
        standin().results["canOpenChannel"] = -3;
        std::printf("= %d\n", driver.open(500000, 0, 0, false));
        std::printf("open %d handle %d\n", driver.is_open(), *driver.get_handle());
        for (const std::string& call : standin().calls) {
            std::printf("%s\n", call.c_str());
        }
    });
    EXPECT_EQ(child.out,
              "Virhe: kvaserDriver::open() - canOpenChannel() : text of 0\n\n"
              "Virhe: Kvaser Error Status = -3 (text of -3)\n\n"
              "= -3\n"
              "open 0 handle -3\n"
              "canInitializeLibrary()\n"
              "canOpenChannel(0, 8)\n"
              "canGetErrorText(0, 500)\n"
              "canGetErrorText(-3, 100)\n");
}

TEST_F(KvaserOpen, FailedChannelTellsTheStatusStoredByAnEarlierOperation) {
    const ChildResult child = run_in_child([] {
        KvaserDriver driver;
        open_quietly(driver);
        standin().results["canRead"] = -2;
        read_once(driver);
        standin().results["canOpenChannel"] = -4;
        std::printf("= %d\n", driver.open(500000, 0, 0, false));
    });
    EXPECT_EQ(child.out,
              "Virhe: kvaserDriver::open() - canOpenChannel() : text of -2\n\n"
              "Virhe: Kvaser Error Status = -4 (text of -4)\n\n"
              "= -4\n");
}

TEST_F(KvaserOpen, FailedBusParamsAreReportedWithoutTheStatusLine) {
    for (const int result : {-1, 1}) {
        standin().results["canSetBusParams"] = result;
        const ChildResult child = run_in_child([] {
            InspectedDriver driver;
            driver.set_debug(0);
            std::printf("= %d", driver.open(500000, 0, 0, false));
            std::printf(" open %d %s\n", driver.is_open(), standin().calls.back().c_str());
        });
        const std::string code = std::to_string(result);
        EXPECT_EQ(child.out, "Virhe: kvaserDriver::open() - canSetBusParams() : text of " + code +
                                 "\n\n= " + code + " open 0 canGetErrorText(" + code + ", 500)\n");
    }
}

TEST_F(KvaserOpen, FailedOutputControlIsReportedWithTheStatusLine) {
    for (const int result : {-9, 1}) {
        standin().results["canSetBusOutputControl"] = result;
        const ChildResult child = run_in_child([] {
            InspectedDriver driver;
            driver.set_debug(0);
            std::printf("= %d", driver.open(500000, 0, 0, false));
            std::printf(" open %d\n", driver.is_open());
        });
        const std::string code = std::to_string(result);
        EXPECT_EQ(child.out, "Virhe: kvaserDriver::open() - canSetBusOutputControl() : text of " + code +
                                 "\n\nVirhe: Kvaser Error Status = " + code + " (text of " + code +
                                 ")\n\n= " + code + " open 0\n");
    }
}

TEST_F(KvaserOpen, FailedBusOnIsReportedWithTheStatusLine) {
    standin().results["canBusOn"] = -10;
    const ChildResult child = run_in_child([] {
        InspectedDriver driver;
        driver.set_debug(0);
        std::printf("= %d", driver.open(500000, 0, 0, false));
        std::printf(" open %d\n", driver.is_open());
    });
    EXPECT_EQ(child.out,
              "Virhe: kvaserDriver::open() - canBusOn() : text of -10\n\n"
              "Virhe: Kvaser Error Status = -10 (text of -10)\n\n"
              "= -10 open 0\n");
}

TEST_F(KvaserOpen, PositiveResultOfBusOnIsNoFailure) {
    standin().results["canBusOn"] = 1;
    InspectedDriver driver;
    driver.set_debug(0);
    EXPECT_EQ(driver.open(500000, 0, 0, false), 0);
    EXPECT_EQ(driver.is_open(), 1);
}

TEST_F(KvaserOpen, UnreadableBusParamsFailSilentlyAndLeaveTheBusOn) {
    for (const int result : {-1, 1}) {
        standin().results["canGetBusParams"] = result;
        const ChildResult child = run_in_child([] {
            InspectedDriver driver;
            driver.set_debug(2);
            std::printf("= %d", driver.open(500000, 0, 0, false));
            std::printf(" open %d %s\n", driver.is_open(), standin().calls.back().c_str());
        });
        EXPECT_EQ(child.out, "= " + std::to_string(result) + " open 0 canGetBusParams(7)\n");
        EXPECT_EQ(child.status, 0);
    }
}

TEST_F(KvaserOpen, EveryReportedFailureEndsTheProcessUnderDebugBit2) {
    for (const char* function : {"canOpenChannel", "canSetBusParams", "canSetBusOutputControl", "canBusOn"}) {
        const ChildResult child = run_in_child([function] {
            standin().results[function] = -3;
            KvaserDriver driver;
            driver.set_debug(2);
            driver.open(500000, 0, 0, false);
            std::printf("went on");
        });
        EXPECT_EQ(child.status, 1) << function;
        EXPECT_EQ(child.out.find("Virhe: kvaserDriver::open() - " + std::string(function) + "() : "), 0U);
        EXPECT_EQ(child.out.find("went on"), std::string::npos) << function;
    }
}

TEST_F(KvaserOpen, FailedStepsDoNotCloseTheChannel) {
    for (const char* function :
         {"canSetBusParams", "canSetBusOutputControl", "canBusOn", "canGetBusParams"}) {
        standin() = CanlibStandin();
        standin().results[function] = -3;
        testing::internal::CaptureStdout();
        {
            KvaserDriver driver;
            driver.set_debug(0);
            driver.open(500000, 0, 0, false);
        }
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(std::count(standin().calls.begin(), standin().calls.end(), "canClose(0)"), 0) << function;
    }
}

TEST_F(KvaserOpen, AFailedChannelIsNotStoredAsTheStatus) {
    const ChildResult child = run_in_child([] {
        KvaserDriver driver;
        driver.set_debug(0);
        standin().results["canOpenChannel"] = -3;
        driver.open(500000, 0, 0, false);
        driver.open(500000, 0, 0, false);
    });
    const std::string report =
        "Virhe: kvaserDriver::open() - canOpenChannel() : text of 0\n\n"
        "Virhe: Kvaser Error Status = -3 (text of -3)\n\n";
    EXPECT_EQ(child.out, report + report);
}

TEST_F(KvaserClose, GoesOffTheBusAndClosesTheChannel) {
    InspectedDriver driver;
    open_quietly(driver);
    standin().results["canBusOff"] = -1;
    standin().results["canClose"] = -1;
    driver.close();
    EXPECT_EQ(standin().calls, (Calls{"canBusOff(7)", "canClose(7)"}));
    EXPECT_EQ(driver.is_open(), 0);
}

TEST_F(KvaserClose, DestructionClosesAnOpenChannel) {
    std::unique_ptr<CANdriver> driver = std::make_unique<KvaserDriver>();
    open_quietly(*driver);
    driver.reset();
    EXPECT_EQ(standin().calls, (Calls{"canBusOff(7)", "canClose(7)"}));
}

TEST_F(KvaserClose, DestructionOfAClosedDriverCallsNothing) {
    {
        KvaserDriver driver;
        open_quietly(driver);
        driver.close();
        standin().calls.clear();
    }
    { const KvaserDriver driver; }
    EXPECT_TRUE(standin().calls.empty());
}

TEST_F(KvaserRead, DeliversAFrame) {
    InspectedDriver driver;
    open_quietly(driver);
    standin().id = 0x181;
    standin().length = 3;
    standin().data = {1, 2, 3};
    standin().flags = canMSG_STD;
    standin().time = 5000000000UL;
    unsigned int id = 9;
    unsigned int length = 9;
    unsigned char data[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(driver.read(id, length, data), 0);
    EXPECT_EQ(id, 0x181U);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ((std::vector<int>(data, data + 8)), (std::vector<int>{1, 2, 3, 0, 0, 0, 0, 0}));
    EXPECT_EQ(driver.received_at(), 5000000000UL);
    EXPECT_EQ(standin().calls, (Calls{"canRead(7)"}));
}

TEST_F(KvaserRead, IdentifierIsCutTo32Bits) {
    KvaserDriver driver;
    open_quietly(driver);
    for (const auto& [delivered, handed_over] :
         {std::pair(0x51FFFFFFFL, 0x1FFFFFFFU), std::pair(0x180000181L, 0x80000181U)}) {
        standin().id = delivered;
        unsigned int id = 0;
        unsigned int length = 0;
        unsigned char data[8];
        EXPECT_EQ(driver.read(id, length, data), 0);
        EXPECT_EQ(id, handed_over);
    }
}

TEST_F(KvaserRead, FlagsTellTheIdentifierWidth) {
    InspectedDriver driver;
    open_quietly(driver);
    EXPECT_EQ(driver.received_frame_type(), 0U);
    standin().flags = canMSG_EXT;
    read_once(driver);
    EXPECT_EQ(driver.received_frame_type(), 1U);
    standin().flags = canMSG_RTR;
    read_once(driver);
    EXPECT_EQ(driver.received_frame_type(), 1U);
    standin().flags = canMSG_STD;
    read_once(driver);
    EXPECT_EQ(driver.received_frame_type(), 0U);
    standin().flags = canMSG_STD | canMSG_EXT;
    read_once(driver);
    EXPECT_EQ(driver.received_frame_type(), 1U);
}

TEST_F(KvaserRead, FlagsTellARemoteRequestAndAnObserverToo) {
    struct : FrameObserver {
        void frame_passed(const ObservedFrame& frame) override {
            is_remote = frame.remote;
            is_extended = frame.extended;
        }
        bool is_remote = false;
        bool is_extended = false;
    } observer;
    KvaserDriver driver;
    open_quietly(driver);
    EXPECT_FALSE(driver.is_remote_request());
    EXPECT_FALSE(driver.is_extended());
    ObservedDriver front(driver);
    front.add_observer(observer);
    standin().flags = canMSG_STD | canMSG_RTR;
    read_once(front);
    EXPECT_TRUE(driver.is_remote_request());
    EXPECT_TRUE(observer.is_remote);
    EXPECT_FALSE(observer.is_extended);
    standin().flags = canMSG_EXT;
    read_once(front);
    EXPECT_FALSE(observer.is_remote);
    EXPECT_TRUE(driver.is_extended());
    EXPECT_TRUE(observer.is_extended);
}

TEST_F(KvaserRead, FlagsTellTheWidthAlsoWithoutAFrame) {
    InspectedDriver driver;
    open_quietly(driver);
    standin().results["canRead"] = canERR_NOMSG;
    standin().flags = canMSG_EXT;
    EXPECT_EQ(read_once(driver), 1);
    EXPECT_EQ(driver.received_frame_type(), 1U);
}

TEST_F(KvaserRead, WithoutAFrameReturnsOneAndClearsEverything) {
    InspectedDriver driver;
    open_quietly(driver);
    standin().results["canRead"] = canERR_NOMSG;
    standin().id = 0x181;
    standin().length = 8;
    standin().data.fill(5);
    standin().tx_errors = 1;
    standin().rx_errors = 2;
    standin().overruns = 3;
    unsigned int id = 9;
    unsigned int length = 9;
    unsigned char data[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    testing::internal::CaptureStdout();
    EXPECT_EQ(driver.read(id, length, data), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(id, 0U);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ((std::vector<int>(data, data + 8)), std::vector<int>(8, 0));
    EXPECT_EQ(standin().calls, (Calls{"canRead(7)", "canReadErrorCounters(7)"}));
    EXPECT_EQ(driver.tx() + driver.rx() + driver.overruns(), 0U);
}

TEST_F(KvaserRead, WithoutAFrameReportsUnreadableCounters) {
    const ChildResult child = with_open_driver(0, [](WatchedDriver& driver) {
        standin().results["canRead"] = canERR_NOMSG;
        standin().results["canReadErrorCounters"] = -10;
        return read_once(driver);
    });
    EXPECT_EQ(child.out,
              "Virhe: canReadStatus() error.\n\n"
              "Virhe: Kvaser Error Status = -2 (text of -2)\n\n"
              "= 1\n");
}

TEST_F(KvaserRead, PositiveStatusReturnsZeroAndLeavesTheIdentifier) {
    KvaserDriver driver;
    open_quietly(driver);
    driver.set_debug(4);
    standin().results["canRead"] = 1;
    standin().id = 0x181;
    standin().length = 8;
    unsigned int id = 77;
    unsigned int length = 0;
    unsigned char data[8];
    EXPECT_EQ(driver.read(id, length, data), 0);
    EXPECT_EQ(id, 77U);
    EXPECT_STREQ(CDecoder::get_message(), "");
}

TEST_F(KvaserRead, FrameIsTracedUnderDebugBit4) {
    const ChildResult child = with_open_driver(4, [](WatchedDriver& driver) {
        standin().id = 0x181;
        standin().length = 2;
        standin().data = {0xAB, 0xCD};
        const int result = read_once(driver);
        std::printf("pending [%s]\n", CDecoder::get_message());
        CDecoder::print();
        return result;
    });
    EXPECT_EQ(child.out,
              "pending [id 0x00000181  len 2  data ab cd 00 00 00 00 00 00 [R]]\n"
              "\033[1;32mid 0x00000181  len 2  data ab cd 00 00 00 00 00 00 [R]\n\033[m"
              "= 0\n");
}

TEST_F(KvaserRead, FrameIsNotTracedByOtherDebugBits) {
    KvaserDriver driver;
    open_quietly(driver);
    driver.set_debug(0xFFFFFFFF & ~4U);
    EXPECT_EQ(read_once(driver), 0);
    EXPECT_STREQ(CDecoder::get_message(), "");
}

TEST_F(KvaserRead, ErrorIsReportedAndReturnsMinusOne) {
    const ChildResult child = with_open_driver(0, [](WatchedDriver& driver) {
        standin().results["canRead"] = -10;
        standin().id = 0x181;
        standin().length = 8;
        unsigned int id = 9;
        unsigned int length = 9;
        unsigned char data[8] = {9};
        const int result = driver.read(id, length, data);
        std::printf("%u %u %d\n", id, length, data[0]);
        for (const std::string& call : standin().calls) {
            std::printf("%s\n", call.c_str());
        }
        return result;
    });
    EXPECT_EQ(child.out,
              "Virhe: Kvaser driver: Read Error !\n"
              "Virhe: Kvaser Error Status = -10 (text of -10)\n\n"
              "0 0 0\n"
              "canRead(7)\n"
              "canGetErrorText(-10, 100)\n"
              "canReadStatus(7)\n"
              "= -1\n");
}

TEST_F(KvaserRead, ReceiveErrorStatusReportsTheCounter) {
    const ChildResult child = with_open_driver(0, [](WatchedDriver& driver) {
        standin().results["canRead"] = -10;
        standin().status = canSTAT_RXERR;
        standin().rx_errors = 96;
        return read_once(driver);
    });
    EXPECT_EQ(child.out,
              "Virhe: Kvaser driver: Read Error !\n"
              "Virhe: Kvaser Error Status = -10 (text of -10)\n\n"
              "read_error_counters\n"
              "Virhe: Read Error ! RX-Errorcounter = 96 \n\n"
              "= -1\n");
}

TEST_F(KvaserRead, ReportedCounterIsClearedUnderDebugBit16) {
    const ChildResult child = with_open_driver(16, [](WatchedDriver& driver) {
        standin().results["canRead"] = -10;
        standin().status = canSTAT_RXERR;
        standin().rx_errors = 1;
        return read_once(driver);
    });
    EXPECT_EQ(child.out,
              "Virhe: Kvaser driver: Read Error !\n"
              "Virhe: Kvaser Error Status = -10 (text of -10)\n\n"
              "read_error_counters\n"
              "Virhe: Read Error ! RX-Errorcounter = 1 \n\n"
              "reset_rx_errors\n"
              "= -1\n");
}

TEST_F(KvaserRead, ZeroCounterIsNeitherReportedNorCleared) {
    const ChildResult child = with_open_driver(16, [](WatchedDriver& driver) {
        standin().results["canRead"] = -10;
        standin().status = canSTAT_RXERR;
        standin().tx_errors = 5;
        return read_once(driver);
    });
    EXPECT_EQ(child.out,
              "Virhe: Kvaser driver: Read Error !\n"
              "Virhe: Kvaser Error Status = -10 (text of -10)\n\n"
              "read_error_counters\n"
              "= -1\n");
}

TEST_F(KvaserRead, OtherStatusBitsBesideTheReceiveErrorLeaveTheCounters) {
    for (const unsigned long status : {0x101UL, 0x180UL, 0x80UL, 0x0UL}) {
        const ChildResult child = with_open_driver(16, [status](WatchedDriver& driver) {
            standin().results["canRead"] = -10;
            standin().status = status;
            standin().rx_errors = 5;
            return read_once(driver);
        });
        EXPECT_EQ(child.out,
                  "Virhe: Kvaser driver: Read Error !\n"
                  "Virhe: Kvaser Error Status = -10 (text of -10)\n\n"
                  "= -1\n");
    }
}

TEST_F(KvaserRead, ErrorRefreshesTheCountersOfTheDriver) {
    InspectedDriver driver;
    open_quietly(driver);
    standin().results["canRead"] = -10;
    standin().status = canSTAT_RXERR;
    standin().tx_errors = 1;
    standin().rx_errors = 2;
    standin().overruns = 3;
    testing::internal::CaptureStdout();
    read_once(driver);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(driver.tx(), 1U);
    EXPECT_EQ(driver.rx(), 2U);
    EXPECT_EQ(driver.overruns(), 3U);
}

TEST_F(KvaserRead, ClosedDriverReportsThatAndCallsCanlibNevertheless) {
    const ChildResult child = run_in_child([] {
        KvaserDriver driver;
        open_quietly(driver);
        driver.close();
        standin().calls.clear();
        const int result = read_once(driver);
        std::printf("= %d %s\n", result, standin().calls.front().c_str());
    });
    EXPECT_EQ(child.out, "Virhe: \n\nRead: CAN connection is not Open !\n\n\n= 0 canRead(7)\n");
}

TEST_F(KvaserRead, AWarningAboutTheCountersIsNotReported) {
    const ChildResult child = with_open_driver(2, [](WatchedDriver& driver) {
        standin().results["canRead"] = canERR_NOMSG;
        standin().results["canReadErrorCounters"] = 1;
        return read_once(driver);
    });
    EXPECT_EQ(child.out, "= 1\n");
}

TEST_F(KvaserReadWait, DeliversAFrame) {
    InspectedDriver driver;
    open_quietly(driver);
    standin().id = 0x1FFFFFFF;
    standin().length = 8;
    standin().data = {1, 2, 3, 4, 5, 6, 7, 8};
    standin().flags = canMSG_EXT;
    standin().time = 77;
    unsigned int id = 0;
    unsigned int length = 0;
    unsigned char data[8];
    EXPECT_EQ(driver.read_wait(id, length, data, 250), 0);
    EXPECT_EQ(id, 0x1FFFFFFFU);
    EXPECT_EQ(length, 8U);
    EXPECT_EQ(data[7], 8);
    EXPECT_EQ(driver.received_frame_type(), 1U);
    EXPECT_EQ(driver.received_at(), 77U);
    EXPECT_EQ(standin().calls, (Calls{"canReadWait(7, 250)"}));
}

TEST_F(KvaserReadWait, IsReachedThroughTheInterface) {
    KvaserDriver driver;
    open_quietly(driver);
    CANdriver& interface = driver;
    unsigned int id = 0;
    unsigned int length = 0;
    unsigned char data[8];
    EXPECT_EQ(interface.read_wait(id, length, data, 1), 0);
    EXPECT_EQ(standin().calls, (Calls{"canReadWait(7, 1)"}));
}

TEST_F(KvaserReadWait, TimeoutIsPassedOnInFullWidth) {
    KvaserDriver driver;
    open_quietly(driver);
    unsigned int id = 0;
    unsigned int length = 0;
    unsigned char data[8];
    driver.read_wait(id, length, data, -1);
    EXPECT_EQ(standin().calls, (Calls{"canReadWait(7, 18446744073709551615)"}));
}

TEST_F(KvaserReadWait, TimeoutWithoutAFrameReadsNoCounters) {
    KvaserDriver driver;
    open_quietly(driver);
    standin().results["canReadWait"] = canERR_NOMSG;
    standin().id = 5;
    standin().length = 8;
    unsigned int id = 9;
    unsigned int length = 9;
    unsigned char data[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(driver.read_wait(id, length, data, 20), 1);
    EXPECT_EQ(id, 0U);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ((std::vector<int>(data, data + 8)), std::vector<int>(8, 0));
    EXPECT_EQ(standin().calls, (Calls{"canReadWait(7, 20)"}));
}

TEST_F(KvaserReadWait, PositiveStatusReturnsZeroAndLeavesTheIdentifier) {
    KvaserDriver driver;
    open_quietly(driver);
    standin().results["canReadWait"] = 1;
    unsigned int id = 77;
    unsigned int length = 0;
    unsigned char data[8];
    EXPECT_EQ(driver.read_wait(id, length, data, 20), 0);
    EXPECT_EQ(id, 77U);
}

TEST_F(KvaserReadWait, FrameIsTracedUnderDebugBit4) {
    KvaserDriver driver;
    open_quietly(driver);
    driver.set_debug(4);
    standin().id = 0x80;
    EXPECT_EQ(read_wait_once(driver), 0);
    EXPECT_STREQ(CDecoder::get_message(), "id 0x00000080  len 0  data 00 00 00 00 00 00 00 00 [R]");
    CDecoder::clear_message();
}

TEST_F(KvaserReadWait, ErrorIsReportedAndReturnsMinusOne) {
    const ChildResult child = with_open_driver(0, [](WatchedDriver& driver) {
        standin().results["canReadWait"] = -10;
        standin().id = 5;
        standin().length = 8;
        unsigned int id = 9;
        unsigned int length = 9;
        unsigned char data[8];
        const int result = driver.read_wait(id, length, data, 20);
        std::printf("%u %u\n", id, length);
        return result;
    });
    EXPECT_EQ(child.out,
              "Virhe: Kvaser Driver: ReadWait Error !\n\n"
              "Virhe: Kvaser Error Status = -10 (text of -10)\n\n"
              "0 0\n"
              "= -1\n");
}

TEST_F(KvaserReadWait, ReceiveErrorStatusReportsAndClearsTheCounter) {
    const ChildResult child = with_open_driver(16, [](WatchedDriver& driver) {
        standin().results["canReadWait"] = -10;
        standin().status = canSTAT_RXERR;
        standin().rx_errors = 128;
        return read_wait_once(driver);
    });
    EXPECT_EQ(child.out,
              "Virhe: Kvaser Driver: ReadWait Error !\n\n"
              "Virhe: Kvaser Error Status = -10 (text of -10)\n\n"
              "read_error_counters\n"
              "Virhe: Read Error ! RX-Errorcounter = 128 \n\n"
              "reset_rx_errors\n"
              "= -1\n");
}

TEST_F(KvaserReadWait, ClosedDriverReportsThatAndCallsCanlibNevertheless) {
    const ChildResult child = run_in_child([] {
        KvaserDriver driver;
        driver.set_debug(0);
        canInitializeLibrary();
        standin().calls.clear();
        const int result = read_wait_once(driver);
        std::printf("= %d %s\n", result, standin().calls.front().c_str());
    });
    EXPECT_EQ(child.out, "Virhe: \n\nReadWait: CAN connection is not Open !\n\n\n= 0 canReadWait(-1, 20)\n");
}

TEST_F(KvaserWrite, SendsAFrame) {
    KvaserDriver driver;
    open_quietly(driver);
    unsigned char data[3] = {1, 2, 3};
    EXPECT_EQ(driver.write(0x201, 3, data, 0), 0);
    EXPECT_EQ(standin().calls, (Calls{"canWrite(7, 513, 3, 2)"}));
    EXPECT_EQ(standin().written, (std::vector<unsigned char>{1, 2, 3}));
}

TEST_F(KvaserWrite, IdentifierIsPassedOnUnsigned) {
    KvaserDriver driver;
    open_quietly(driver);
    unsigned char data[8] = {};
    EXPECT_EQ(driver.write(0x80000001, 0, data, 0), 0);
    EXPECT_EQ(standin().calls, (Calls{"canWrite(7, 2147483649, 0, 2)"}));
}

TEST_F(KvaserWrite, FlagsChooseWidthAndRemoteRequest) {
    struct Case {
        unsigned int mode;
        unsigned int flags;
        const char* call;
    };
    const std::vector<Case> cases = {
        {0, 0, "canWrite(7, 1, 0, 2)"},          {1, 0, "canWrite(7, 1, 0, 4)"},
        {2, 0, "canWrite(7, 1, 0, 4)"},          {0, 1, "canWrite(7, 1, 0, 4)"},
        {1, 1, "canWrite(7, 1, 0, 4)"},          {0, 2, "canWrite(7, 1, 0, 3)"},
        {1, 2, "canWrite(7, 1, 0, 3)"},          {0, 3, "canWrite(7, 1, 0, 5)"},
        {1, 3, "canWrite(7, 1, 0, 5)"},          {1, 4, "canWrite(7, 1, 0, 2)"},
        {0, 0xFFFFFFFC, "canWrite(7, 1, 0, 2)"}, {0, 0xFFFFFFFF, "canWrite(7, 1, 0, 5)"},
    };
    for (const Case& each : cases) {
        KvaserDriver driver;
        open_quietly(driver, each.mode);
        unsigned char data[8] = {};
        EXPECT_EQ(driver.write(1, 0, data, each.flags), 0);
        EXPECT_EQ(standin().calls, (Calls{each.call})) << each.mode << ' ' << each.flags;
    }
}

TEST_F(KvaserWrite, FrameIsTracedUnderDebugBit8) {
    KvaserDriver driver;
    open_quietly(driver);
    driver.set_debug(8);
    EXPECT_EQ(write_once(driver), 0);
    EXPECT_STREQ(CDecoder::get_message(), "id 0x00000201  len 2  data 01 02 03 04 05 06 07 08 [T]");
    CDecoder::clear_message();
}

TEST_F(KvaserWrite, TracedLengthIsCutToEightBits) {
    KvaserDriver driver;
    open_quietly(driver);
    driver.set_debug(8);
    std::array<unsigned char, 0x108> data = {};
    EXPECT_EQ(driver.write(0x201, 0x108, data.data(), 0), 0);
    EXPECT_STREQ(CDecoder::get_message(), "id 0x00000201  len 8  data 00 00 00 00 00 00 00 00 [T]");
    CDecoder::clear_message();
}

TEST_F(KvaserWrite, FrameIsNotTracedByOtherDebugBits) {
    KvaserDriver driver;
    open_quietly(driver);
    driver.set_debug(0xFFFFFFFF & ~8U);
    EXPECT_EQ(write_once(driver), 0);
    EXPECT_STREQ(CDecoder::get_message(), "");
}

TEST_F(KvaserWrite, PositiveStatusReturnsZeroAndIsNotTraced) {
    KvaserDriver driver;
    open_quietly(driver);
    driver.set_debug(8);
    standin().results["canWrite"] = 1;
    EXPECT_EQ(write_once(driver), 0);
    EXPECT_STREQ(CDecoder::get_message(), "");
}

TEST_F(KvaserWrite, ErrorIsReportedAndReturnsMinusOne) {
    const ChildResult child = with_open_driver(8, [](WatchedDriver& driver) {
        standin().results["canWrite"] = -13;
        const int result = write_once(driver);
        for (const std::string& call : standin().calls) {
            std::printf("%s\n", call.c_str());
        }
        std::printf("[%s]\n", CDecoder::get_message());
        return result;
    });
    EXPECT_EQ(child.out,
              "Virhe: Kvaser driver: Write Error !\n\n"
              "Virhe: Kvaser Error Status = -13 (text of -13)\n\n"
              "canWrite(7, 513, 2, 2)\n"
              "canGetErrorText(-13, 100)\n"
              "canReadStatus(7)\n"
              "[]\n"
              "= -1\n");
}

TEST_F(KvaserWrite, TransmitErrorStatusReportsTheCounter) {
    const ChildResult child = with_open_driver(0, [](WatchedDriver& driver) {
        standin().results["canWrite"] = -13;
        standin().status = canSTAT_TXERR;
        standin().tx_errors = 255;
        return write_once(driver);
    });
    EXPECT_EQ(child.out,
              "Virhe: Kvaser driver: Write Error !\n\n"
              "Virhe: Kvaser Error Status = -13 (text of -13)\n\n"
              "read_error_counters\n"
              "Virhe: Transmit Error ! TX-Errorcounter = 255 \n\n"
              "= -1\n");
}

TEST_F(KvaserWrite, ReportedCounterIsClearedUnderDebugBit16) {
    const ChildResult child = with_open_driver(16, [](WatchedDriver& driver) {
        standin().results["canWrite"] = -13;
        standin().status = canSTAT_TXERR;
        standin().tx_errors = 1;
        return write_once(driver);
    });
    EXPECT_EQ(child.out,
              "Virhe: Kvaser driver: Write Error !\n\n"
              "Virhe: Kvaser Error Status = -13 (text of -13)\n\n"
              "read_error_counters\n"
              "Virhe: Transmit Error ! TX-Errorcounter = 1 \n\n"
              "reset_tx_errors\n"
              "= -1\n");
}

TEST_F(KvaserWrite, ZeroCounterOrOtherStatusIsNotReported) {
    struct Case {
        unsigned long status;
        unsigned int tx_errors;
        const char* counters;
    };
    for (const Case& each :
         {Case{0x80, 0, "read_error_counters\n"}, Case{0x180, 5, ""}, Case{0x100, 5, ""}}) {
        const ChildResult child = with_open_driver(16, [&each](WatchedDriver& driver) {
            standin().results["canWrite"] = -13;
            standin().status = each.status;
            standin().tx_errors = each.tx_errors;
            standin().rx_errors = 5;
            return write_once(driver);
        });
        EXPECT_EQ(child.out, std::string("Virhe: Kvaser driver: Write Error !\n\n"
                                         "Virhe: Kvaser Error Status = -13 (text of -13)\n\n") +
                                 each.counters + "= -1\n");
    }
}

TEST_F(KvaserWrite, ClosedDriverReportsThatAndCallsCanlibNevertheless) {
    const ChildResult child = run_in_child([] {
        KvaserDriver driver;
        open_quietly(driver);
        driver.close();
        standin().calls.clear();
        const int result = write_once(driver);
        std::printf("= %d %s\n", result, standin().calls.front().c_str());
    });
    EXPECT_EQ(child.out, "Virhe: \n\nWrite: CAN connection is not Open !\n\n\n= 0 canWrite(7, 513, 2, 2)\n");
}

TEST_F(KvaserErrors, EveryReportEndsTheProcessUnderDebugBit2) {
    struct Case {
        std::function<int(KvaserDriver&)> use;
        const char* failing;
        const char* out;
    };
    const std::vector<Case> cases = {
        {read_once, "canRead",
         "Virhe: Kvaser driver: Read Error !\nVirhe: Kvaser Error Status = -10 (text of -10)\n\n"},
        {read_wait_once, "canReadWait",
         "Virhe: Kvaser Driver: ReadWait Error !\n\nVirhe: Kvaser Error Status = -10 (text of -10)\n\n"},
        {write_once, "canWrite",
         "Virhe: Kvaser driver: Write Error !\n\nVirhe: Kvaser Error Status = -10 (text of -10)\n\n"},
    };
    for (const Case& each : cases) {
        const ChildResult child = with_open_driver(2, [&each](WatchedDriver& driver) {
            standin().results[each.failing] = -10;
            return each.use(driver);
        });
        EXPECT_EQ(child.status, 1) << each.failing;
        EXPECT_EQ(child.out, each.out);
    }
}

TEST_F(KvaserErrors, UnreadableCountersEndTheProcessUnderDebugBit2) {
    const ChildResult child = with_open_driver(2, [](WatchedDriver& driver) {
        standin().results["canRead"] = canERR_NOMSG;
        standin().results["canReadErrorCounters"] = -10;
        return read_once(driver);
    });
    EXPECT_EQ(child.status, 1);
    EXPECT_EQ(child.out,
              "Virhe: canReadStatus() error.\n\n"
              "Virhe: Kvaser Error Status = -2 (text of -2)\n\n");
}

TEST_F(KvaserErrors, NoFrameWaitingIsNoErrorUnderDebugBit2) {
    const ChildResult child = with_open_driver(2, [](WatchedDriver& driver) {
        standin().results["canRead"] = canERR_NOMSG;
        standin().results["canReadWait"] = canERR_NOMSG;
        return read_once(driver) + read_wait_once(driver);
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.out, "= 2\n");
}

TEST_F(KvaserErrors, ClosedDriverEndsTheProcessUnderDebugBit2) {
    const std::vector<std::pair<std::function<int(KvaserDriver&)>, std::string>> cases = {
        {read_once, "Read"}, {read_wait_once, "ReadWait"}, {write_once, "Write"}};
    for (const auto& [use, name] : cases) {
        const ChildResult child = run_in_child([&use = use] {
            KvaserDriver driver;
            driver.set_debug(2);
            use(driver);
            std::printf("went on");
        });
        EXPECT_EQ(child.status, 1) << name;
        EXPECT_EQ(child.out, "Virhe: \n\n" + name + ": CAN connection is not Open !\n\n\n");
    }
}

TEST_F(KvaserErrors, CountersComeTransmitFirst) {
    KvaserDriver driver;
    open_quietly(driver);
    standin().tx_errors = 1;
    standin().rx_errors = 2;
    standin().overruns = 3;
    unsigned int tx = 0;
    unsigned int rx = 0;
    unsigned int overruns = 0;
    EXPECT_EQ(driver.read_error_counters(tx, rx, overruns), 0);
    EXPECT_EQ(tx, 1U);
    EXPECT_EQ(rx, 2U);
    EXPECT_EQ(overruns, 3U);
    EXPECT_EQ(standin().calls, (Calls{"canReadErrorCounters(7)"}));
}

TEST_F(KvaserErrors, CountersReturnZeroAlsoWhenCanlibFails) {
    KvaserDriver driver;
    open_quietly(driver);
    standin().results["canReadErrorCounters"] = -10;
    unsigned int tx = 7;
    unsigned int rx = 8;
    unsigned int overruns = 9;
    EXPECT_EQ(driver.read_error_counters(tx, rx, overruns), 0);
    EXPECT_EQ(tx * 100 + rx * 10 + overruns, 789U);
}

TEST_F(KvaserErrors, ResetOfReceiveErrorsFlushesTheReceiveBuffer) {
    KvaserDriver driver;
    open_quietly(driver);
    driver.reset_rx_errors();
    EXPECT_EQ(standin().calls, (Calls{"canReadStatus(7)", "canIoCtl(7, 10, 0, 0)"}));
}

TEST_F(KvaserErrors, ResetOfTransmitErrorsFlushesTheTransmitBuffer) {
    KvaserDriver driver;
    open_quietly(driver);
    driver.reset_tx_errors();
    EXPECT_EQ(standin().calls, (Calls{"canReadStatus(7)", "canIoCtl(7, 11, 0, 0)"}));
}

TEST_F(KvaserErrors, ErrorTextIsPrintedWithItsCode) {
    standin().texts[-5] = "no free channels";
    const ChildResult child = run_in_child([] {
        KvaserDriver driver;
        open_quietly(driver);
        driver.print_kvaser_error_text(-5);
        std::printf("%s\n", standin().calls.back().c_str());
    });
    EXPECT_EQ(child.out, "Virhe: Kvaser Error Status = -5 (no free channels)\n\ncanGetErrorText(-5, 100)\n");
}

TEST_F(KvaserErrors, ErrorTextIsNotThatOfTheCodeBefore) {
    const ChildResult child = run_in_child([] {
        KvaserDriver driver;
        open_quietly(driver);
        driver.print_kvaser_error_text(-5);
        standin().lacks_texts = true;
        driver.print_kvaser_error_text(-6);
    });
    EXPECT_EQ(child.out,
              "Virhe: Kvaser Error Status = -5 (text of -5)\n\nVirhe: Kvaser Error Status = -6 ()\n\n");
}

TEST_F(KvaserErrors, ErrorTextIsFetchedIntoTheCallersBuffer) {
    KvaserDriver driver;
    open_quietly(driver);
    standin().results["canGetErrorText"] = -1;
    char text[20] = "";
    EXPECT_EQ(driver.get_kvaser_error_text(-7, text, sizeof text), -1);
    EXPECT_STREQ(text, "text of -7");
    EXPECT_EQ(standin().calls, (Calls{"canGetErrorText(-7, 20)"}));
}
