#include "nodevik/canlib.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "nodevik/kvaserdriver.h"
#include "tests/nodevik/canlibstandin.h"
#include "tests/support/childprocess.h"

// This executable finds no usable libcanlib.so.1. A child process that is to find one loads it beforehand:
// the dynamic linker then takes that one for the name.

namespace {

const char* const not_loaded = "libcanlib.so.1 could not be loaded";

void* preload(const std::string& directory) {
    const std::string path = std::string(CANLIB_DIRECTORY) + "/" + directory + "/libcanlib.so.1";
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::exit(99);
    }
    return library;
}

CanlibStandin& preload_standin() {
    return *reinterpret_cast<canlib_standin_function>(dlsym(preload("canlib_standin"), "canlib_standin"))();
}

void print_calls(CanlibStandin& standin) {
    for (const std::string& call : standin.calls) {
        std::printf("%s\n", call.c_str());
    }
    standin.calls.clear();
}

// Opens channel 0 and prints the result.
void print_open() {
    std::printf("%d\n", canOpenChannel(0, 0));
}

}  // namespace

TEST(CanlibConstants, AreThoseOfTheVendor) {
    EXPECT_EQ(canOK, 0);
    EXPECT_EQ(canERR_NOMSG, -2);
    EXPECT_EQ(canOPEN_EXCLUSIVE, 0x08);
    EXPECT_EQ(canOPEN_REQUIRE_EXTENDED, 0x10);
    EXPECT_EQ(canBITRATE_1M, -1);
    EXPECT_EQ(canBITRATE_500K, -2);
    EXPECT_EQ(canBITRATE_250K, -3);
    EXPECT_EQ(canBITRATE_125K, -4);
    EXPECT_EQ(canBITRATE_100K, -5);
    EXPECT_EQ(canBITRATE_62K, -6);
    EXPECT_EQ(canBITRATE_50K, -7);
    EXPECT_EQ(canDRIVER_SILENT, 1U);
    EXPECT_EQ(canDRIVER_NORMAL, 4U);
    EXPECT_EQ(canMSG_RTR, 1U);
    EXPECT_EQ(canMSG_STD, 2U);
    EXPECT_EQ(canMSG_EXT, 4U);
    EXPECT_EQ(canSTAT_TXERR, 0x80U);
    EXPECT_EQ(canSTAT_RXERR, 0x100U);
    EXPECT_EQ(canIOCTL_FLUSH_RX_BUFFER, 10U);
    EXPECT_EQ(canIOCTL_FLUSH_TX_BUFFER, 11U);
    EXPECT_LT(canERR_DYNALOAD, 0);
    EXPECT_NE(canERR_DYNALOAD, canERR_NOMSG);
}

TEST(CanlibWithoutLibrary, EveryCallFailsAndFillsInNothing) {
    canInitializeLibrary();
    long number = 5;
    unsigned long word = 6;
    unsigned int a = 1;
    unsigned int b = 2;
    unsigned int c = 3;
    unsigned int d = 4;
    unsigned int e = 5;
    unsigned char data[8] = {7};
    EXPECT_EQ(canOpenChannel(0, canOPEN_EXCLUSIVE), canERR_DYNALOAD);
    EXPECT_EQ(canSetBusParams(0, canBITRATE_1M, 0, 0, 0, 0, 0), canERR_DYNALOAD);
    EXPECT_EQ(canGetBusParams(0, &number, &a, &b, &c, &d, &e), canERR_DYNALOAD);
    EXPECT_EQ(canSetBusOutputControl(0, canDRIVER_NORMAL), canERR_DYNALOAD);
    EXPECT_EQ(canBusOn(0), canERR_DYNALOAD);
    EXPECT_EQ(canBusOff(0), canERR_DYNALOAD);
    EXPECT_EQ(canClose(0), canERR_DYNALOAD);
    EXPECT_EQ(canRead(0, &number, data, &a, &b, &word), canERR_DYNALOAD);
    EXPECT_EQ(canReadWait(0, &number, data, &a, &b, &word, 10), canERR_DYNALOAD);
    EXPECT_EQ(canWrite(0, 1, data, 1, canMSG_STD), canERR_DYNALOAD);
    EXPECT_EQ(canReadStatus(0, &word), canERR_DYNALOAD);
    EXPECT_EQ(canReadErrorCounters(0, &a, &b, &c), canERR_DYNALOAD);
    EXPECT_EQ(canIoCtl(0, canIOCTL_FLUSH_RX_BUFFER, nullptr, 0), canERR_DYNALOAD);
    EXPECT_EQ(number, 5);
    EXPECT_EQ(word, 6U);
    EXPECT_EQ(data[0], 7);
    EXPECT_EQ(a * 10000 + b * 1000 + c * 100 + d * 10 + e, 12345U);
}

TEST(CanlibWithoutLibrary, EveryCodesTextSaysThatTheLibraryCouldNotBeLoaded) {
    canInitializeLibrary();
    for (const canStatus status : {canOK, canERR_NOMSG, canERR_DYNALOAD}) {
        char text[100];
        std::memset(text, 'x', sizeof text);
        EXPECT_EQ(canGetErrorText(status, text, sizeof text), canERR_DYNALOAD);
        EXPECT_STREQ(text, not_loaded);
    }
}

TEST(CanlibWithoutLibrary, TextIsCutToTheBuffer) {
    char text[10] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
    canGetErrorText(canERR_DYNALOAD, text, 8);
    EXPECT_STREQ(text, "libcanl");
    EXPECT_EQ(text[8], 'x');
    canGetErrorText(canERR_DYNALOAD, text, 0);
    EXPECT_STREQ(text, "libcanl");
}

TEST(CanlibWithoutLibrary, NothingWorksBeforeInitialisation) {
    const ChildResult child = run_in_child([] {
        const CanlibStandin& standin = preload_standin();
        print_open();
        std::printf("%zu\n", standin.calls.size());
    });
    EXPECT_EQ(child.out, "-16\n0\n");
}

TEST(CanlibWithoutLibrary, IncompleteLibraryIsNone) {
    const ChildResult child = run_in_child([] {
        preload("canlib_incomplete");
        canInitializeLibrary();
        print_open();
        char text[100] = "";
        canGetErrorText(canERR_DYNALOAD, text, sizeof text);
        std::printf("%s\n", text);
    });
    EXPECT_EQ(child.out, std::string("-16\n") + not_loaded + "\n");
}

TEST(CanlibWithoutLibrary, LaterInitialisationTriesAnew) {
    const ChildResult child = run_in_child([] {
        canInitializeLibrary();
        print_open();
        preload_standin();
        canInitializeLibrary();
        print_open();
    });
    EXPECT_EQ(child.out, "-16\n0\n");
}

TEST(CanlibWithLibrary, EveryInitialisationIsForwarded) {
    const ChildResult child = run_in_child([] {
        CanlibStandin& standin = preload_standin();
        canInitializeLibrary();
        canInitializeLibrary();
        print_calls(standin);
    });
    EXPECT_EQ(child.out, "canInitializeLibrary()\ncanInitializeLibrary()\n");
}

TEST(CanlibWithLibrary, LoadingIsSafeBetweenThreads) {
    const ChildResult child = run_in_child([] {
        CanlibStandin& standin = preload_standin();
        standin.results["canBusOn"] = 5;
        std::array<canStatus, 4> results = {};
        std::array<std::thread, 4> threads;
        for (std::size_t i = 0; i < threads.size(); ++i) {
            threads[i] = std::thread([&result = results[i]] {
                canInitializeLibrary();
                result = canBusOn(0);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        std::printf("%d %d %d %d\n", results[0], results[1], results[2], results[3]);
    });
    EXPECT_EQ(child.out, "5 5 5 5\n") << child.err;
    EXPECT_EQ(child.status, 0);
}

TEST(CanlibWithLibrary, EveryCallIsForwardedWithItsArguments) {
    const ChildResult child = run_in_child([] {
        CanlibStandin& standin = preload_standin();
        canInitializeLibrary();
        standin.calls.clear();
        long number = 0;
        unsigned long word = 0;
        unsigned int a = 0;
        unsigned int b = 0;
        unsigned int c = 0;
        unsigned int d = 0;
        unsigned int e = 0;
        unsigned char data[8] = {1, 2, 3};
        char text[40] = "";
        canOpenChannel(3, 0x18);
        canSetBusParams(7, 83333, 1, 2, 3, 4, 5);
        canGetBusParams(7, &number, &a, &b, &c, &d, &e);
        canSetBusOutputControl(7, canDRIVER_SILENT);
        canBusOn(7);
        canBusOff(8);
        canClose(9);
        canRead(7, &number, data, &a, &b, &word);
        canReadWait(7, &number, data, &a, &b, &word, 4294967296UL);
        canWrite(7, 0x1FFFFFFF, data, 3, canMSG_EXT);
        canReadStatus(7, &word);
        canReadErrorCounters(7, &a, &b, &c);
        canIoCtl(7, canIOCTL_FLUSH_TX_BUFFER, nullptr, 0);
        canGetErrorText(-5, text, sizeof text);
        print_calls(standin);
    });
    EXPECT_EQ(child.out,
              "canOpenChannel(3, 24)\n"
              "canSetBusParams(7, 83333, 1, 2, 3, 4, 5)\n"
              "canGetBusParams(7)\n"
              "canSetBusOutputControl(7, 1)\n"
              "canBusOn(7)\n"
              "canBusOff(8)\n"
              "canClose(9)\n"
              "canRead(7)\n"
              "canReadWait(7, 4294967296)\n"
              "canWrite(7, 536870911, 3, 4)\n"
              "canReadStatus(7)\n"
              "canReadErrorCounters(7)\n"
              "canIoCtl(7, 11, 0, 0)\n"
              "canGetErrorText(-5, 40)\n");
}

TEST(CanlibWithLibrary, ResultsAndWhatIsFilledInComeBack) {
    const ChildResult child = run_in_child([] {
        CanlibStandin& standin = preload_standin();
        canInitializeLibrary();
        standin.results = {{"canOpenChannel", -3}, {"canBusOn", -4}, {"canGetErrorText", -1}};
        standin.freq = 500000;
        standin.tseg1 = 1;
        standin.tseg2 = 2;
        standin.sjw = 3;
        standin.samples = 4;
        standin.syncmode = 5;
        standin.id = 0x181;
        standin.data = {1, 2, 3, 4, 5, 6, 7, 8};
        standin.length = 8;
        standin.flags = canMSG_STD;
        standin.time = 123456789012UL;
        standin.status = canSTAT_RXERR;
        standin.tx_errors = 11;
        standin.rx_errors = 12;
        standin.overruns = 13;
        standin.texts[-3] = "no such channel";
        long number = 0;
        unsigned long word = 0;
        unsigned int a = 0;
        unsigned int b = 0;
        unsigned int c = 0;
        unsigned int d = 0;
        unsigned int e = 0;
        unsigned char data[8] = {};
        char text[40] = "";
        std::printf("%d %d\n", canOpenChannel(0, 0), canBusOn(0));
        const int params = canGetBusParams(0, &number, &a, &b, &c, &d, &e);
        std::printf("%d %ld %u %u %u %u %u\n", params, number, a, b, c, d, e);
        const int read = canRead(0, &number, data, &a, &b, &word);
        std::printf("%d %lx %d %d %u %u %lu\n", read, static_cast<unsigned long>(number), data[0], data[7], a,
                    b, word);
        const int status = canReadStatus(0, &word);
        std::printf("%d %lu\n", status, word);
        const int counters = canReadErrorCounters(0, &a, &b, &c);
        std::printf("%d %u %u %u\n", counters, a, b, c);
        const int error_text = canGetErrorText(-3, text, sizeof text);
        std::printf("%d %s\n", error_text, text);
    });
    EXPECT_EQ(child.out,
              "-3 -4\n"
              "0 500000 1 2 3 4 5\n"
              "0 181 1 8 8 2 123456789012\n"
              "0 256\n"
              "0 11 12 13\n"
              "-1 no such channel\n");
}

TEST(KvaserDriverWithoutCanlib, OpenFailsAndTellsWhy) {
    const ChildResult child = run_in_child([] {
        KvaserDriver driver;
        std::printf("= %d\n", driver.open(500000, 0, 0, false));
    });
    EXPECT_EQ(child.out,
              "kvaserDriver::open() - Trying to open CAN channel 0 with 11-bit mode\n"
              "Virhe: kvaserDriver::open() - canOpenChannel() : libcanlib.so.1 could not be loaded\n\n"
              "Virhe: Kvaser Error Status = -16 (libcanlib.so.1 could not be loaded)\n\n"
              "= -16\n");
}

TEST(KvaserDriverWithoutCanlib, ReadingAndWritingFail) {
    const ChildResult child = run_in_child([] {
        KvaserDriver driver;
        unsigned int id = 9;
        unsigned int length = 9;
        unsigned char data[8] = {9};
        const int read = driver.read(id, length, data);
        std::printf("= %d %u %u %d\n", read, id, length, data[0]);
        const int waited = driver.read_wait(id, length, data, 10);
        std::printf("= %d\n", waited);
        const int written = driver.write(1, 8, data, 0);
        std::printf("= %d\n", written);
    });
    const std::string status = "Virhe: Kvaser Error Status = -16 (libcanlib.so.1 could not be loaded)\n\n";
    EXPECT_EQ(child.out,
              "Virhe: \n\nRead: CAN connection is not Open !\n\n\n"
              "Virhe: Kvaser driver: Read Error !\n" +
                  status +
                  "= -1 0 0 0\n"
                  "Virhe: \n\nReadWait: CAN connection is not Open !\n\n\n"
                  "Virhe: Kvaser Driver: ReadWait Error !\n\n" +
                  status +
                  "= -1\n"
                  "Virhe: \n\nWrite: CAN connection is not Open !\n\n\n"
                  "Virhe: Kvaser driver: Write Error !\n\n" +
                  status + "= -1\n");
}

TEST(KvaserDriverWithoutCanlib, ErrorCountersStayAndClosingDoesNothing) {
    KvaserDriver driver;
    unsigned int tx = 1;
    unsigned int rx = 2;
    unsigned int overruns = 3;
    EXPECT_EQ(driver.read_error_counters(tx, rx, overruns), 0);
    EXPECT_EQ(tx * 100 + rx * 10 + overruns, 123U);
    driver.reset_rx_errors();
    driver.reset_tx_errors();
    driver.close();
}
