#include "nodevik/util/serial.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "tests/support/allocationcount.h"
#include "tests/support/childprocess.h"
#include "tests/support/filesizelimit.h"
#include "tests/support/pseudoterminal.h"

namespace {

// A line opened on a pseudo-terminal, whose far end the test plays.
class OpenLine {
public:
    explicit OpenLine(int bufsize = 100, int speed = 9600)
        : line(bufsize), descriptor(line.open(terminal.device(), speed)) {}

    // Makes `bytes` arrive: they are there when this returns.
    void arrive(const std::string& bytes) const {
        terminal.send(bytes);
        ASSERT_TRUE(terminal.wait_readable(descriptor, static_cast<int>(bytes.size())));
    }

    // Makes every read fail from now on: a directory cannot be read.
    void break_reading() const {
        const int directory = ::open("/", O_RDONLY | O_DIRECTORY);
        dup2(directory, descriptor);
        ::close(directory);
    }

    std::string buffered(int count) const { return {line.buffer, static_cast<std::size_t>(count)}; }

    PseudoTerminal terminal;
    serial line;
    int descriptor;
};

bool is_open(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

bool same(const termios& a, const termios& b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
           a.c_lflag == b.c_lflag && a.c_line == b.c_line &&
           std::equal(std::begin(a.c_cc), std::end(a.c_cc), std::begin(b.c_cc));
}

struct Speed {
    int baud;
    speed_t code;
};

class SerialOpenAtSpeed : public testing::TestWithParam<Speed> {};

}  // namespace

// --- open ---

TEST_P(SerialOpenAtSpeed, GivesTheLineExactlyTheRawAttributes) {
    const OpenLine open(100, GetParam().baud);
    const termios attributes = open.terminal.attributes();
    EXPECT_EQ(attributes.c_cflag, GetParam().code | CS8 | CLOCAL | CREAD);
    EXPECT_EQ(attributes.c_iflag, 0U);
    EXPECT_EQ(attributes.c_oflag, 0U);
    EXPECT_EQ(attributes.c_lflag, 0U);
    EXPECT_EQ(attributes.c_line, 0);
    for (const cc_t character : attributes.c_cc) {
        EXPECT_EQ(character, 0);
    }
}

TEST_P(SerialOpenAtSpeed, GovernsBothDirections) {
    const OpenLine open(100, GetParam().baud);
    const termios attributes = open.terminal.attributes();
    EXPECT_EQ(cfgetispeed(&attributes), GetParam().code);
    EXPECT_EQ(cfgetospeed(&attributes), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(Baud, SerialOpenAtSpeed,
                         testing::Values(Speed{9600, B9600}, Speed{19200, B19200}, Speed{38400, B38400},
                                         Speed{57600, B57600}, Speed{115200, B115200}),
                         [](const auto& tested) { return std::to_string(tested.param.baud); });

TEST(SerialOpen, ReturnsANonBlockingReadWriteDescriptor) {
    const OpenLine open;
    EXPECT_GT(open.descriptor, 0);
    const int flags = fcntl(open.descriptor, F_GETFL);
    EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
    EXPECT_NE(flags & O_NONBLOCK, 0);
}

TEST(SerialOpen, LeavesTheProcessWithoutAControllingTerminal) {
    PseudoTerminal terminal;
    const ChildResult result = run_in_child([&] {
        setsid();
        serial line;
        line.open(terminal.device(), 9600);
        std::printf("%d", ::open("/dev/tty", O_RDWR));
    });
    EXPECT_EQ(result.out, "-1");
}

TEST(SerialOpen, KeepsBytesThatHadArrived) {
    PseudoTerminal terminal;
    serial before;
    before.open(terminal.device(), 9600);
    terminal.send("AB");
    serial line;
    const int descriptor = line.open(terminal.device(), 19200);
    ASSERT_TRUE(terminal.wait_readable(descriptor, 2));
    EXPECT_EQ(line.read(), 2);
}

TEST(SerialOpen, OfAMissingDevicePrintsTheErrorAndEndsTheProcessWithStatus1) {
    const ChildResult result = run_in_child([] {
        std::string path = "/dev/does-not-exist";
        serial line;
        line.open(path.data(), 9600);
        std::printf("went on");
    });
    EXPECT_EQ(result.err, "Unable to open serial port: - \n: No such file or directory\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 1);
}

TEST(SerialOpen, ChecksTheDeviceBeforeTheSpeed) {
    const ChildResult result = run_in_child([] {
        std::string path = "/dev/does-not-exist";
        serial line;
        line.open(path.data(), 4800);
    });
    EXPECT_EQ(result.err, "Unable to open serial port: - \n: No such file or directory\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 1);
}

TEST(SerialOpen, OfAnUnsupportedSpeedEndsTheProcessWithStatus1) {
    for (const int speed : {4800, 0, -9600, 9601, 230400}) {
        const ChildResult result = run_in_child([speed] {
            const OpenLine open(100, speed);
            std::printf("went on");
        });
        EXPECT_EQ(result.out, "Unsupported SerialPort Speed!\n") << speed;
        EXPECT_EQ(result.err, "") << speed;
        EXPECT_EQ(result.status, 1) << speed;
    }
}

TEST(SerialOpen, OfAnUnsupportedSpeedLeavesTheAttributesAlone) {
    PseudoTerminal terminal;
    const termios before = terminal.attributes();
    const ChildResult result = run_in_child([&] {
        serial line;
        line.open(terminal.device(), 4800);
    });
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(same(terminal.attributes(), before));
}

TEST(SerialOpen, OfAnOpenLineOpensASecondDescriptorAndLosesTheFirst) {
    const ChildResult result = run_in_child([] {
        PseudoTerminal first;
        PseudoTerminal second;
        int first_descriptor = 0;
        int second_descriptor = 0;
        {
            serial line;
            first_descriptor = line.open(first.device(), 9600);
            second_descriptor = line.open(second.device(), 9600);
            std::string bytes = "ab";
            line.write(bytes.data(), 2);
        }
        std::printf("%d %s %d %d", first_descriptor != second_descriptor, second.receive(2).c_str(),
                    is_open(first_descriptor), is_open(second_descriptor));
        ::close(first_descriptor);
    });
    EXPECT_EQ(result.out, "1 ab 1 0");
}

// --- close and destruction ---

TEST(SerialClose, RestoresTheAttributesAndClosesTheDescriptor) {
    PseudoTerminal terminal;
    const termios before = terminal.attributes();
    serial line;
    const int descriptor = line.open(terminal.device(), 57600);
    ASSERT_FALSE(same(terminal.attributes(), before));
    line.close();
    EXPECT_TRUE(same(terminal.attributes(), before));
    EXPECT_FALSE(is_open(descriptor));
}

TEST(SerialClose, KeepsBytesThatHadArrived) {
    PseudoTerminal terminal;
    serial other;
    other.open(terminal.device(), 9600);
    serial line;
    const int descriptor = line.open(terminal.device(), 9600);
    terminal.send("AB");
    ASSERT_TRUE(terminal.wait_readable(descriptor, 2));
    line.close();
    EXPECT_EQ(other.read(), 2);
}

TEST(SerialClose, LeavesALineThatCanBeOpenedAgain) {
    OpenLine open;
    open.line.close();
    open.descriptor = open.line.open(open.terminal.device(), 19200);
    open.arrive("A");
    EXPECT_EQ(open.line.read(), 1);
    EXPECT_EQ(open.buffered(1), "A");
}

TEST(SerialClose, OfAClosedLineGivesDescriptor0ItsAttributesAndClosesIt) {
    PseudoTerminal terminal;
    const ChildResult result = run_in_child([&] {
        const int near_end = ::open(terminal.device(), O_RDWR | O_NOCTTY);
        dup2(near_end, 0);
        serial line;
        line.close();
        std::printf("%d", is_open(0));
    });
    EXPECT_EQ(result.out, "0");
    EXPECT_EQ(terminal.attributes().c_lflag, 0U);
    EXPECT_EQ(terminal.attributes().c_oflag, 0U);
}

TEST(SerialClose, OfALineClosedBeforeClosesDescriptor0) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        dup2(::open("/dev/null", O_RDWR), 0);
        open.line.close();
        std::printf("%d", is_open(0));
        open.line.close();
        std::printf("%d", is_open(0));
    });
    EXPECT_EQ(result.out, "10");
}

TEST(SerialDestructor, ClosesAnOpenLineAndLeavesItsAttributes) {
    PseudoTerminal terminal;
    int descriptor = 0;
    {
        serial line;
        descriptor = line.open(terminal.device(), 115200);
    }
    EXPECT_FALSE(is_open(descriptor));
    EXPECT_EQ(terminal.attributes().c_cflag, static_cast<tcflag_t>(B115200 | CS8 | CLOCAL | CREAD));
}

TEST(SerialDestructor, OfAClosedLineLeavesDescriptor0Alone) {
    const ChildResult result = run_in_child([] {
        dup2(::open("/dev/null", O_RDWR), 0);
        { const serial never_opened; }
        {
            OpenLine open;
            open.line.close();
        }
        std::printf("%d", is_open(0));
    });
    EXPECT_EQ(result.out, "1");
}

// --- read() ---

TEST(SerialRead, FindsABufferOfZerosAtFirst) {
    const serial line;
    EXPECT_EQ(line.len, 0);
    EXPECT_EQ(std::string(line.buffer, 100), std::string(100, '\0'));
}

TEST(SerialRead, OfASilentLineReturns0AndSetsLenTo0) {
    OpenLine open;
    open.line.len = 7;
    EXPECT_EQ(open.line.read(), 0);
    EXPECT_EQ(open.line.len, 0);
}

TEST(SerialRead, TakesWhatHasArrivedIntoTheBuffer) {
    OpenLine open;
    const std::string bytes("\0\x03\x11\x13\r\n\x7f\x80\xff", 9);  // none of them is special on a raw line
    open.arrive(bytes);
    EXPECT_EQ(open.line.read(), 9);
    EXPECT_EQ(open.line.len, 9);
    EXPECT_EQ(open.buffered(9), bytes);
}

TEST(SerialRead, LeavesTheBytesBehindTheCountAsTheyWere) {
    OpenLine open;
    open.arrive("ABCDE");
    open.line.read();
    open.arrive("xy");
    EXPECT_EQ(open.line.read(), 2);
    EXPECT_EQ(open.buffered(6), std::string("xyCDE\0", 6));
    EXPECT_EQ(open.line.read(), 0);
    EXPECT_EQ(open.buffered(6), std::string("xyCDE\0", 6));
}

TEST(SerialRead, Takes100BytesAtMostAndTheRestNextTime) {
    PseudoTerminal terminal;
    serial line;
    const int descriptor = line.open(terminal.device(), 9600);
    terminal.send(std::string(100, 'a') + std::string(30, 'b'));
    ASSERT_TRUE(terminal.wait_readable(descriptor, 130));
    EXPECT_EQ(line.read(), 100);
    EXPECT_EQ(std::string(line.buffer, 100), std::string(100, 'a'));
    EXPECT_EQ(line.read(), 30);
    EXPECT_EQ(std::string(line.buffer, 31), std::string(30, 'b') + "a");
}

TEST(SerialRead, TakesTheGivenBufferSizeAtMost) {
    OpenLine open(5);
    open.arrive("ABCDEFG");
    EXPECT_EQ(open.line.read(), 5);
    EXPECT_EQ(open.buffered(5), "ABCDE");
    EXPECT_EQ(open.line.read(), 2);
}

TEST(SerialRead, WithANegativeBufferSizeTakesNothing) {
    OpenLine open(-3);
    open.arrive("AB");
    EXPECT_EQ(open.line.read(), 0);
    EXPECT_EQ(open.line.readuntil('B', 1, 10), 0);
}

TEST(SerialRead, FailureEndsTheProcessWithStatus0) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.break_reading();
        open.line.read();
        std::printf("went on");
    });
    EXPECT_EQ(result.out, "SerialPort Read failed!\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST(SerialRead, OfALineHungUpReturns0) {
    OpenLine open;
    open.terminal.hang_up();
    EXPECT_EQ(open.line.read(), 0);
}

TEST(SerialRead, FailureInTheMainThreadRunsTheExitHandlers) {
    const ChildResult result = run_in_child([] {
        std::atexit([] { std::printf("handled"); });
        OpenLine open;
        open.break_reading();
        open.line.read();
    });
    EXPECT_EQ(result.out, "SerialPort Read failed!\nhandled");
}

TEST(SerialRead, FailureInAnotherThreadEndsTheProcessWithoutTheExitHandlers) {
    const ChildResult result = run_in_child([] {
        std::atexit([] { std::printf("handled"); });
        OpenLine open;
        open.break_reading();
        std::thread([&] { open.line.read(); }).join();
        std::printf("went on");
    });
    EXPECT_EQ(result.out, "SerialPort Read failed!\n");
    EXPECT_EQ(result.status, 0);
}

// --- read(char*, int) ---

TEST(SerialReadInto, CopiesWhatHasArrivedAndLeavesLen) {
    OpenLine open;
    open.line.len = 42;
    open.arrive("ABC");
    std::array<char, 8> data;
    data.fill('-');
    EXPECT_EQ(open.line.read(data.data(), 8), 3);
    EXPECT_EQ(std::string(data.data(), 8), "ABC-----");
    EXPECT_EQ(open.buffered(3), "ABC");
    EXPECT_EQ(open.line.len, 42);
}

TEST(SerialReadInto, TakesTheWantedCountAtMost) {
    OpenLine open;
    open.arrive("ABCDE");
    std::array<char, 8> data = {};
    EXPECT_EQ(open.line.read(data.data(), 2), 2);
    EXPECT_STREQ(data.data(), "AB");
    EXPECT_EQ(open.line.read(data.data(), 8), 3);
    EXPECT_STREQ(data.data(), "CDE");
}

TEST(SerialReadInto, OfASilentLineReturns0) {
    OpenLine open;
    std::array<char, 4> data;
    data.fill('-');
    EXPECT_EQ(open.line.read(data.data(), 4), 0);
    EXPECT_EQ(std::string(data.data(), 4), "----");
}

TEST(SerialReadInto, NeverAsksForMoreThanTheBufferHolds) {
    OpenLine open(4);
    open.arrive("ABCDEFG");
    std::array<char, 16> data = {};
    EXPECT_EQ(open.line.read(data.data(), 16), 4);
    EXPECT_STREQ(data.data(), "ABCD");
}

TEST(SerialReadInto, OfANegativeCountTakesNothing) {
    OpenLine open;
    open.arrive("A");
    char data = '-';
    EXPECT_EQ(open.line.read(&data, -1), 0);
    EXPECT_EQ(data, '-');
}

TEST(SerialReadInto, FailureEndsTheProcessWithStatus0) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.break_reading();
        char data = 0;
        open.line.read(&data, 1);
        std::printf("went on");
    });
    EXPECT_EQ(result.out, "read() failed!\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

// --- readuntil ---

TEST(SerialReadUntil, GathersARecordOverTwoReads) {
    OpenLine open;
    open.arrive("AB");
    EXPECT_EQ(open.line.readuntil('\n', 1, 100), 0);
    open.arrive("C\nDE");
    EXPECT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "ABC\n");
    EXPECT_EQ(open.line.len, 4);
}

TEST(SerialReadUntil, CarriesTheBytesBehindARecordToTheNextCall) {
    OpenLine open;
    open.arrive("ABC\nDE");
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 1);
    open.arrive("F\n");
    EXPECT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "DEF\n");
    EXPECT_EQ(open.line.len, 4);
}

TEST(SerialReadUntil, DropsCarriedBytesWhenNothingNewArrives) {
    OpenLine open;
    open.arrive("ABC\nDE");
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_EQ(open.line.readuntil('\n', 1, 100), 0);
    open.arrive("F\n");
    EXPECT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "F\n");
    EXPECT_EQ(open.line.len, 2);
}

TEST(SerialReadUntil, DropsARecordBegunWhenNothingNewArrives) {
    OpenLine open;
    open.arrive("AB");
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 0);
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 0);
    open.arrive("C\n");
    EXPECT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "C\n");
}

TEST(SerialReadUntil, ScansCarriedRecordsOnlyWithNewBytesOneRecordACall) {
    OpenLine open;
    open.arrive("A\nB\nC\n");
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "A\n");
    open.arrive("D");
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "B\n");
    open.arrive("E");
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "C\n");
    open.arrive("\n");
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "DE\n");
}

TEST(SerialReadUntil, KeepsAnEndByteBeforeTheLeastLengthAsAnOrdinaryOne) {
    OpenLine open;
    open.arrive("A\nBCD\n");
    EXPECT_EQ(open.line.readuntil('\n', 5, 100), 1);
    EXPECT_STREQ(open.line.buffer, "A\nBCD\n");
    EXPECT_EQ(open.line.len, 6);
}

TEST(SerialReadUntil, CompletesARecordOfExactlyTheLeastLength) {
    OpenLine open;
    open.arrive("ABCD\n\n");
    EXPECT_EQ(open.line.readuntil('\n', 5, 100), 1);
    EXPECT_EQ(open.line.len, 5);
}

TEST(SerialReadUntil, DropsATooLongRecordWithTheRestOfTheRead) {
    OpenLine open;
    open.arrive("ABCDEFG");
    EXPECT_EQ(open.line.readuntil('\n', 1, 4), 0);
    open.arrive("H\n");
    EXPECT_EQ(open.line.readuntil('\n', 1, 4), 1);
    EXPECT_STREQ(open.line.buffer, "H\n");
}

TEST(SerialReadUntil, DropsACompleteRecordBehindATooLongOne) {
    OpenLine open;
    open.arrive("ABCDE\nF\n");
    EXPECT_EQ(open.line.readuntil('\n', 1, 4), 0);
    EXPECT_EQ(open.line.readuntil('\n', 1, 4), 0);
}

TEST(SerialReadUntil, CompletesARecordWhoseEndByteArrivesExactlyAtTheLimit) {
    OpenLine open;
    open.arrive("ABC\n");
    EXPECT_EQ(open.line.readuntil('\n', 1, 4), 1);
    EXPECT_EQ(open.line.len, 4);
}

TEST(SerialReadUntil, CountsBytesOfEarlierCallsTowardsTheLimit) {
    OpenLine open;
    open.arrive("AB");
    ASSERT_EQ(open.line.readuntil('\n', 1, 4), 0);
    open.arrive("CD\n");
    EXPECT_EQ(open.line.readuntil('\n', 1, 4), 0);
    open.arrive("E\n");
    EXPECT_EQ(open.line.readuntil('\n', 1, 4), 1);
    EXPECT_STREQ(open.line.buffer, "E\n");
}

TEST(SerialReadUntil, LowersTheLimitByTheCarriedBytes) {
    OpenLine open(8);
    open.arrive("A\nBCD");
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 1);  // carries three bytes: the next limit is five
    open.arrive("EF\n");
    EXPECT_EQ(open.line.readuntil('\n', 1, 100), 0);
    open.arrive("G\n");
    EXPECT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "G\n");
}

TEST(SerialReadUntil, ReadsNoMoreThanTheRoomBehindTheCarriedBytes) {
    OpenLine open(8);
    open.arrive("A\nBCD");
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 1);
    open.arrive("\nEFGHIJ");
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "BCD\n");
    int waiting = 0;
    ASSERT_EQ(ioctl(open.descriptor, FIONREAD, &waiting), 0);
    EXPECT_EQ(waiting, 2);
}

TEST(SerialReadUntil, TerminatesARecordThatFillsTheBuffer) {
    OpenLine open(8);
    open.arrive("ABCDEFG\n");
    EXPECT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "ABCDEFG\n");
    EXPECT_EQ(open.line.len, 8);
}

TEST(SerialReadUntil, DropsARecordThatFillsTheBufferWithoutItsEnd) {
    OpenLine open(8);
    open.arrive("ABCDEFGH\n");
    EXPECT_EQ(open.line.readuntil('\n', 1, 100), 0);
    EXPECT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "\n");
}

TEST(SerialReadUntil, WithALimitOf0StillCompletesAtTheFirstByte) {
    OpenLine open;
    open.arrive("\nA");
    EXPECT_EQ(open.line.readuntil('\n', 0, 0), 1);
    open.arrive("\n");
    EXPECT_EQ(open.line.readuntil('\n', 0, 0), 0);
}

TEST(SerialReadUntil, LeavesLenUntilARecordIsComplete) {
    OpenLine open;
    open.line.len = 42;
    open.arrive("AB");
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 0);
    EXPECT_EQ(open.line.len, 42);
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 0);
    EXPECT_EQ(open.line.len, 42);
}

TEST(SerialReadUntil, TakesAnyByteAsTheEnd) {
    OpenLine open;
    open.arrive("AB\xff");
    EXPECT_EQ(open.line.readuntil('\xff', 1, 100), 1);
    EXPECT_EQ(open.line.len, 3);
    open.arrive(std::string("CD\0E", 4));
    EXPECT_EQ(open.line.readuntil('\0', 1, 100), 1);
    EXPECT_EQ(open.line.len, 3);
}

TEST(SerialReadUntil, DoesNotLetAPlainReadChangeTheRecordsState) {
    OpenLine open;
    open.arrive("ABC\nDE");
    ASSERT_EQ(open.line.readuntil('\n', 1, 100), 1);
    open.arrive("xx");
    ASSERT_EQ(open.line.read(), 2);
    open.arrive("F\n");
    EXPECT_EQ(open.line.readuntil('\n', 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "DEF\n");
}

TEST(SerialReadUntil, FailureEndsTheProcessWithStatus0) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.break_reading();
        open.line.readuntil('\n', 1, 100);
        std::printf("went on");
    });
    EXPECT_EQ(result.out, "Serialport read failed!\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

// --- readuntiltext ---

TEST(SerialReadUntilText, EndsARecordAtTheTextsLastCharacterAlone) {
    OpenLine open;
    std::string end = "OK\r";
    open.arrive("XY\r");
    EXPECT_EQ(open.line.readuntiltext(end.data(), 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "XY\r");
}

TEST(SerialReadUntilText, EndsARecordAtTheWholeText) {
    OpenLine open;
    std::string end = "OK\r";
    open.arrive("fine OK\rnext");
    EXPECT_EQ(open.line.readuntiltext(end.data(), 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "fine OK\r");
}

TEST(SerialReadUntilText, EndsARecordShorterThanTheText) {
    OpenLine open;
    std::string end = "a long text\r";
    open.arrive("\r");
    EXPECT_EQ(open.line.readuntiltext(end.data(), 1, 100), 1);
    EXPECT_STREQ(open.line.buffer, "\r");
}

TEST(SerialReadUntilText, LeavesLenAsItIs) {
    OpenLine open;
    std::string end = "\r";
    open.line.len = 42;
    open.arrive("XY\r");
    ASSERT_EQ(open.line.readuntiltext(end.data(), 1, 100), 1);
    EXPECT_EQ(open.line.len, 42);
}

TEST(SerialReadUntilText, CarriesDropsAndLimitsAsTheByteForm) {
    OpenLine open;
    std::string end = "OK\r";
    open.arrive("AB");
    EXPECT_EQ(open.line.readuntiltext(end.data(), 1, 4), 0);
    open.arrive("C\rDE");
    EXPECT_EQ(open.line.readuntiltext(end.data(), 1, 4), 1);
    EXPECT_STREQ(open.line.buffer, "ABC\r");
    open.arrive("\r");
    EXPECT_EQ(open.line.readuntiltext(end.data(), 1, 4), 1);
    EXPECT_STREQ(open.line.buffer, "DE\r");
    open.arrive("A\rBC\rD");
    EXPECT_EQ(open.line.readuntiltext(end.data(), 5, 100), 1);
    EXPECT_STREQ(open.line.buffer, "A\rBC\r");
    EXPECT_EQ(open.line.readuntiltext(end.data(), 1, 100), 0);
    open.arrive("EFGHI\r");
    EXPECT_EQ(open.line.readuntiltext(end.data(), 1, 4), 0);
    EXPECT_EQ(open.line.readuntiltext(end.data(), 1, 4), 0);
}

TEST(SerialReadUntilText, OfAnEmptyTextPrintsAndReadsNothing) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.arrive("AB");
        std::string end;
        const int found = open.line.readuntiltext(end.data(), 1, 100);
        std::printf("%d %d", found, open.line.read());
    });
    EXPECT_EQ(result.out, "serial::readuntiltext: tekstin pituus outo!\n0 2");
    EXPECT_EQ(result.status, 0);
}

TEST(SerialReadUntilText, FailureEndsTheProcessWithStatus0) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.break_reading();
        std::string end = "\r";
        open.line.readuntiltext(end.data(), 1, 100);
        std::printf("went on");
    });
    EXPECT_EQ(result.out, "Serialport read failed!\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

// --- write ---

TEST(SerialWrite, SendsTheBytesAsTheyAre) {
    OpenLine open;
    std::string bytes("\0gn\nP\x11\x13\xff", 8);
    EXPECT_EQ(open.line.write(bytes.data(), 8), 8);
    EXPECT_EQ(open.terminal.receive(8), bytes);
}

TEST(SerialWrite, FailureIsPrintedAndTheProcessGoesOn) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.terminal.hang_up();
        std::string bytes = "\1gnP";
        const bool negative = open.line.write(bytes.data(), 4) < 0;
        std::printf("%s", negative ? "negative" : "not negative");
    });
    EXPECT_EQ(result.out, "write() of 4 bytes failed!\nnegative");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST(SerialWrite, ReturnsHowManyBytesOfABlockTheLineTook) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        std::string bytes = "ABCD";
        int written = 0;
        {
            const FileSizeLimit limit(open.descriptor, 2);
            written = open.line.write(bytes.data(), 4);
        }
        std::printf("%d", written);
    });
    EXPECT_EQ(result.out, "2");
    EXPECT_EQ(result.status, 0);
}

TEST(SerialWrite, ReturnsAtOnceWhenTheLineTakesNoMore) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        std::string block(4096, 'x');
        int written = 0;
        do {
            written = open.line.write(block.data(), 4096);
        } while (written > 0);
        std::printf("%d", written);
    });
    EXPECT_EQ(result.out, "write() of 4096 bytes failed!\n-1");
}

// --- tracing and printing ---

TEST(SerialTrace, IsOffFromTheStart) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.arrive("AB\n");
        open.line.readuntil('\n', 1, 100);
        open.arrive("C");
        open.line.read();
        std::string bytes = "D";
        open.line.write(bytes.data(), 1);
    });
    EXPECT_EQ(result.out, "");
}

TEST(SerialTrace, Bit1PrintsTheBytesOfRead) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.line.debugmode(1);
        open.arrive("A\x05\xa5");
        open.line.read();
        open.line.read();
        std::string bytes = "D";
        open.line.write(bytes.data(), 1);
    });
    EXPECT_EQ(result.out, "41  5 ffffffa5 ");
}

TEST(SerialTrace, Bit1PrintsTheBytesOfReadInto) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.line.debugmode(1);
        open.arrive("A\x7f\x80");
        std::array<char, 8> data = {};
        open.line.read(data.data(), 2);
        std::printf("|");
        open.line.read(data.data(), 2);
    });
    EXPECT_EQ(result.out, "41 7f |ffffff80 ");
}

TEST(SerialTrace, Bit1PrintsTheBuffersEarlierByteAtTheScansIndexInRecordReads) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.arrive("1234");
        open.line.read();  // the buffer holds 31 32 33 34
        open.line.debugmode(1);
        open.arrive("AB");
        open.line.readuntil('\n', 1, 100);  // 31 before it becomes A, 32 before it becomes B
        std::printf("|");
        open.arrive("C\nD");
        open.line.readuntil('\n', 1, 100);  // index 0 and 1 again: A, B; nothing behind the record
        std::printf("|");
        std::string end = "\n";
        open.arrive("E\n");
        open.line.readuntiltext(end.data(), 1, 100);  // over A B C \n: D replaces A, and so on
    });
    EXPECT_EQ(result.out, "31 32 |41 42 |41 42 43 ");
}

TEST(SerialTrace, Bit2PrintsTheBytesWritten) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.line.debugmode(2);
        std::string bytes("\0gn\xd0", 4);
        open.line.write(bytes.data(), 4);
        open.arrive("A");
        open.line.read();
    });
    EXPECT_EQ(result.out, " 0 67 6e ffffffd0 ");
}

TEST(SerialTrace, Bit2PrintsOfABlockOnlyTheBytesThatTheLineTook) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.line.debugmode(2);
        std::string bytes = "ABCD";
        const FileSizeLimit limit(open.descriptor, 2);
        open.line.write(bytes.data(), 4);
    });
    EXPECT_EQ(result.out, "41 42 ");
    EXPECT_EQ(result.status, 0);
}

TEST(SerialTrace, Bit2PrintsNothingOfAFailedWrite) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.line.debugmode(2);
        open.terminal.hang_up();
        std::string bytes = "AB";
        open.line.write(bytes.data(), 2);
    });
    EXPECT_EQ(result.out, "write() of 2 bytes failed!\n");
}

TEST(SerialTrace, BothBitsTraceBothDirectionsAnd0Neither) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        std::string bytes = "B";
        open.line.debugmode(3);
        open.arrive("A");
        open.line.read();
        open.line.write(bytes.data(), 1);
        open.line.debugmode(0);
        open.arrive("A");
        open.line.read();
        open.line.write(bytes.data(), 1);
    });
    EXPECT_EQ(result.out, "41 42 ");
}

TEST(SerialPrint, ShowsTheReceivedBytesAsNumbersAndAsCharacters) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.arrive("AZ\x01\xa5");
        open.line.read();
        open.line.print();
        _exit(0);  // what was printed has been flushed
    });
    EXPECT_EQ(result.out, "Read lengh=4 41 5a  1 ffffffa5 \nAZ\x01\xa5\n");
}

TEST(SerialPrint, ShowsTheLastRecord) {
    const ChildResult result = run_in_child([] {
        OpenLine open;
        open.arrive("OK\rX");
        open.line.readuntil('\r', 1, 100);
        open.line.print();
    });
    EXPECT_EQ(result.out, "Read lengh=3 4f 4b  d \nOK\r\n");
}

TEST(SerialPrint, OfNothingShowsALengthOf0AndTwoEmptyLines) {
    const ChildResult result = run_in_child([] {
        serial line;
        line.print();
    });
    EXPECT_EQ(result.out, "Read lengh=0 \n\n");
}

// --- allocations ---

TEST(Serial, AllocatesInItsConstructorOnly) {
    PseudoTerminal terminal;
    serial line;
    std::string end = "OK\r";
    std::string block(60, 'x');
    std::array<char, 100> data = {};
    std::array<int, 6> results = {};
    const std::string plain(90, 'A');
    const std::string records = std::string(30, 'B') + '\n' + std::string(30, 'C');

    const unsigned long before = allocations();
    line.debugmode(0);
    const int descriptor = line.open(terminal.device(), 9600);
    terminal.send(plain);
    terminal.wait_readable(descriptor, 90);
    results[0] = line.read();
    terminal.send(plain);
    terminal.wait_readable(descriptor, 90);
    results[1] = line.read(data.data(), 100);
    terminal.send(records);
    terminal.wait_readable(descriptor, 61);
    results[2] = line.readuntil('\n', 1, 100);
    terminal.send(end);
    terminal.wait_readable(descriptor, 3);
    results[3] = line.readuntiltext(end.data(), 1, 100);
    results[4] = line.read();
    results[5] = line.write(block.data(), 60);
    line.close();
    const unsigned long after = allocations();

    EXPECT_EQ(after, before);
    EXPECT_EQ(results, (std::array<int, 6>{90, 90, 1, 1, 0, 60}));
    const std::string counted(100, 'x');
    EXPECT_GT(allocations(), after);
}
