// The serial line on two 16550A ports, /dev/ttyS1 and /dev/ttyS2, that a cable joins.

#include "nodevik/util/serial.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/serial.h>
#include <sys/io.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "tests/support/childprocess.h"

namespace {

bool wait_until(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        usleep(1000);
    }
    return true;
}

bool wait_readable(int descriptor, std::size_t count) {
    return wait_until([&] {
        int waiting = 0;
        return ioctl(descriptor, FIONREAD, &waiting) == 0 && static_cast<std::size_t>(waiting) >= count;
    });
}

// A port's registers, read from the chip itself.
class Registers {
public:
    explicit Registers(const std::string& port) {
        std::ifstream file("/sys/class/tty/" + port + "/port");
        unsigned long address = 0;
        file >> std::hex >> address;
        base_ = static_cast<std::uint16_t>(address);
        if (!file || ioperm(base_, 8, 1) != 0) {
            std::perror("ioperm");
            std::abort();
        }
    }

    // Word length, stop bits and parity enable; the parity's kind beside them means nothing without parity.
    int frame_format() const { return inb(at(3)) & 0x0f; }

    std::uint8_t modem_control() const { return inb(at(4)); }

    // 115200 divided by the speed.
    int divisor() const {
        const std::uint8_t control = inb(at(3));
        outb(control | divisor_access, at(3));
        const int value = inb(at(0)) | inb(at(1)) << 8;
        outb(control, at(3));
        return value;
    }

private:
    static constexpr std::uint8_t divisor_access = 0x80;

    std::uint16_t at(unsigned int offset) const { return static_cast<std::uint16_t>(base_ + offset); }

    std::uint16_t base_ = 0;
};

constexpr int eight_bits_no_parity_one_stop = 0x03;
constexpr int seven_bits_with_parity_two_stops = 0x0e;
constexpr std::uint8_t dtr_and_rts = 0x03;
constexpr int modem_loop = 0x8000;  // TIOCM_LOOP, in a kernel header that excludes <termios.h>

// A second descriptor on a port, beside the line that is tested: what it sees and does is the device's.
class Port {
public:
    explicit Port(const std::string& path)
        : descriptor_(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK)) {}
    ~Port() { ::close(descriptor_); }
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    int descriptor() const { return descriptor_; }

    termios attributes() const {
        termios attributes = {};
        tcgetattr(descriptor_, &attributes);
        return attributes;
    }

    void set_attributes(const termios& attributes) const { tcsetattr(descriptor_, TCSANOW, &attributes); }

    int modem_lines() const {
        int lines = 0;
        ioctl(descriptor_, TIOCMGET, &lines);
        return lines;
    }

    void set_modem_lines(int lines) const { ioctl(descriptor_, TIOCMSET, &lines); }

    serial_icounter_struct counts() const {
        serial_icounter_struct counts = {};
        ioctl(descriptor_, TIOCGICOUNT, &counts);
        return counts;
    }

private:
    int descriptor_;
};

termios console_like() {
    termios attributes = {};
    attributes.c_iflag = ICRNL | IXON | BRKINT;
    attributes.c_oflag = OPOST | ONLCR;
    attributes.c_cflag = CS7 | PARENB | CSTOPB | CREAD | HUPCL | CLOCAL;
    attributes.c_lflag = ICANON | ECHO | ECHOE | ISIG;
    attributes.c_cc[VINTR] = 3;
    attributes.c_cc[VEOF] = 4;
    attributes.c_cc[VMIN] = 1;
    cfsetispeed(&attributes, B2400);
    cfsetospeed(&attributes, B2400);
    return attributes;
}

bool same(const termios& a, const termios& b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
           a.c_lflag == b.c_lflag && a.c_line == b.c_line &&
           std::equal(std::begin(a.c_cc), std::end(a.c_cc), std::begin(b.c_cc));
}

// The chip's loop joins its RTS with its CTS, and its transmitter with its receiver. Here RTS is down.
class Loop {
public:
    explicit Loop(const Port& port) : port_(port) { port_.set_modem_lines(modem_loop | TIOCM_DTR); }
    ~Loop() { port_.set_modem_lines(TIOCM_DTR | TIOCM_RTS); }
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

private:
    const Port& port_;
};

// Both ends of the cable, with attributes like those that a login leaves and nothing on the way.
class Cable : public testing::Test {
protected:
    Cable() {
        for (const std::string& path : {near_path, far_path}) {
            const Port port(path);
            port.set_attributes(console_like());
            tcflush(port.descriptor(), TCIOFLUSH);
        }
    }

    // Opens both ends; returns the descriptor of the near one.
    int open_both(int speed = 115200) {
        far_descriptor = far_line.open(far_path.data(), speed);
        near_descriptor = near_line.open(near_path.data(), speed);
        return near_descriptor;
    }

    void send(serial& line, std::string bytes) {
        ASSERT_EQ(line.write(bytes.data(), static_cast<int>(bytes.size())), static_cast<int>(bytes.size()));
    }

    // Sends from the far end; the bytes are there when this returns.
    void arrive(const std::string& bytes) {
        send(far_line, bytes);
        ASSERT_TRUE(wait_readable(near_descriptor, bytes.size()));
    }

    // What has arrived at a line, taken with as many reads as it needs.
    std::string receive(serial& line, std::size_t count) {
        std::string bytes;
        wait_until([&] {
            const int got = line.read();
            bytes.append(line.buffer, static_cast<std::size_t>(got));
            return bytes.size() >= count;
        });
        return bytes;
    }

    std::string record(const serial& line) const { return {line.buffer}; }

    std::string near_path = "/dev/ttyS1";
    std::string far_path = "/dev/ttyS2";
    serial near_line;
    serial far_line;
    int near_descriptor = -1;
    int far_descriptor = -1;
};

std::string every_byte() {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes.push_back(static_cast<char>(byte));
    }
    return bytes;
}

struct Speed {
    int baud;
    speed_t code;
};

class CableAtSpeed : public Cable, public testing::WithParamInterface<Speed> {};

}  // namespace

// --- open ---

TEST_P(CableAtSpeed, TheDeviceHasExactlyTheRawAttributes) {
    near_line.open(near_path.data(), GetParam().baud);
    const termios attributes = Port(near_path).attributes();
    EXPECT_EQ(attributes.c_cflag, GetParam().code | CS8 | CLOCAL | CREAD);
    EXPECT_EQ(attributes.c_iflag, 0U);
    EXPECT_EQ(attributes.c_oflag, 0U);
    EXPECT_EQ(attributes.c_lflag, 0U);
    EXPECT_EQ(attributes.c_line, 0);
    for (const cc_t character : attributes.c_cc) {
        EXPECT_EQ(character, 0);
    }
    EXPECT_EQ(cfgetispeed(&attributes), GetParam().code);
    EXPECT_EQ(cfgetospeed(&attributes), GetParam().code);
}

TEST_P(CableAtSpeed, TheChipIsSetToTheSpeedAndEightBitsWithoutParityAndOneStopBit) {
    const Registers chip("ttyS1");
    near_line.open(near_path.data(), GetParam().baud);
    EXPECT_EQ(chip.frame_format(), eight_bits_no_parity_one_stop);
    EXPECT_EQ(chip.divisor(), 115200 / GetParam().baud);
}

TEST_P(CableAtSpeed, EveryByteGoesUnchangedInBothDirections) {
    open_both(GetParam().baud);
    send(near_line, every_byte());
    EXPECT_EQ(receive(far_line, 256), every_byte());
    send(far_line, every_byte());
    EXPECT_EQ(receive(near_line, 256), every_byte());
}

INSTANTIATE_TEST_SUITE_P(Baud, CableAtSpeed,
                         testing::Values(Speed{9600, B9600}, Speed{19200, B19200}, Speed{38400, B38400},
                                         Speed{57600, B57600}, Speed{115200, B115200}),
                         [](const auto& tested) { return std::to_string(tested.param.baud); });

TEST_F(Cable, OpenRaisesDtrAndRts) {
    const Registers chip("ttyS1");
    ASSERT_EQ(chip.modem_control() & dtr_and_rts, 0);
    near_line.open(near_path.data(), 9600);
    EXPECT_EQ(chip.modem_control() & dtr_and_rts, dtr_and_rts);
}

TEST_F(Cable, OpenOfAPortWithoutAChipEndsTheProcessWithStatus1) {
    std::string path = std::filesystem::temp_directory_path() / "port-without-chip";
    ASSERT_EQ(mknod(path.c_str(), S_IFCHR | 0600, makedev(4, 64 + 31)), 0);
    const ChildResult result = run_in_child([&] {
        serial line;
        line.open(path.data(), 9600);
        std::printf("went on");
    });
    std::filesystem::remove(path);
    EXPECT_EQ(result.err, "Unable to open serial port: - \n: No such device or address\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 1);
}

TEST_F(Cable, OpenAtAnUnknownSpeedLeavesThePortAsItWas) {
    const Port port(near_path);
    const ChildResult result = run_in_child([&] {
        serial line;
        line.open(near_path.data(), 4800);
        std::printf("went on");
    });
    EXPECT_EQ(result.out, "Unsupported SerialPort Speed!\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(same(port.attributes(), console_like()));
}

// --- reading and writing ---

TEST_F(Cable, AnIdleLineReadsNothingAndDoesNotWait) {
    open_both();
    EXPECT_EQ(near_line.read(), 0);
    EXPECT_EQ(near_line.len, 0);
    char byte = 'x';
    EXPECT_EQ(near_line.read(&byte, 1), 0);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(near_line.readuntil('\n', 1, 100), 0);
}

TEST_F(Cable, ReadTakesAtMostABufferAndLeavesTheRest) {
    open_both();
    arrive(std::string(100, 'a') + "bcd");
    EXPECT_EQ(near_line.read(), 100);
    EXPECT_EQ(std::string(near_line.buffer, 100), std::string(100, 'a'));
    EXPECT_EQ(near_line.read(), 3);
    EXPECT_EQ(near_line.len, 3);
    EXPECT_EQ(std::string(near_line.buffer, 3), "bcd");
}

TEST_F(Cable, ReadWithACountTakesNoMoreThanThat) {
    open_both();
    arrive("abcdef");
    std::string data(4, '.');
    EXPECT_EQ(near_line.read(data.data(), 4), 4);
    EXPECT_EQ(data, "abcd");
    EXPECT_EQ(near_line.read(data.data(), 4), 2);
    EXPECT_EQ(data, "efcd");
}

TEST_F(Cable, ReaduntilGathersARecordOverSeveralArrivals) {
    open_both();
    arrive("AB");
    EXPECT_EQ(near_line.readuntil('\n', 1, 100), 0);
    arrive("C\nDE");
    EXPECT_EQ(near_line.readuntil('\n', 1, 100), 1);
    EXPECT_EQ(near_line.len, 4);
    EXPECT_EQ(record(near_line), "ABC\n");
    arrive("F\n");
    EXPECT_EQ(near_line.readuntil('\n', 1, 100), 1);
    EXPECT_EQ(record(near_line), "DEF\n");
}

TEST_F(Cable, ReaduntilDropsARecordBegunWhenNothingFollows) {
    open_both();
    arrive("AB");
    EXPECT_EQ(near_line.readuntil('\n', 1, 100), 0);
    EXPECT_EQ(near_line.readuntil('\n', 1, 100), 0);
    arrive("C\n");
    EXPECT_EQ(near_line.readuntil('\n', 1, 100), 1);
    EXPECT_EQ(record(near_line), "C\n");
}

TEST_F(Cable, ReaduntiltextEndsARecordAtTheLastCharacter) {
    open_both();
    std::string end = "OK\r";
    arrive("XY\rZ");
    EXPECT_EQ(near_line.readuntiltext(end.data(), 1, 100), 1);
    EXPECT_EQ(record(near_line), "XY\r");
}

// More than the driver's transmit buffer: what a write does not take, the caller writes again.
TEST_F(Cable, ABlockLargerThanTheTransmitBufferGoesInSeveralWrites) {
    open_both();
    std::string block;
    for (int i = 0; i < 80; ++i) {
        block += every_byte();
    }
    std::size_t sent = 0;
    std::string received;
    EXPECT_TRUE(wait_until([&] {
        int room = 0;
        ioctl(near_descriptor, TIOCOUTQ, &room);
        if (sent < block.size() && room == 0) {
            sent += static_cast<std::size_t>(
                near_line.write(block.data() + sent, static_cast<int>(block.size() - sent)));
        }
        received.append(far_line.buffer, static_cast<std::size_t>(far_line.read()));
        return received.size() >= block.size();
    }));
    EXPECT_TRUE(received == block);
}

TEST_F(Cable, AFullTransmitterFailsTheWriteAndTheProcessGoesOn) {
    open_both();
    tcflow(near_descriptor, TCOOFF);
    const ChildResult result = run_in_child([&] {
        std::string block(8000, 'x');
        const int taken = near_line.write(block.data(), 8000);
        const int refused = near_line.write(block.data(), 4);
        std::printf("%d %d", static_cast<int>(taken > 0 && taken < 8000), static_cast<int>(refused < 0));
    });
    tcflush(near_descriptor, TCOFLUSH);
    tcflow(near_descriptor, TCOON);
    EXPECT_EQ(result.out, "write() of 4 bytes failed!\n1 1");
    EXPECT_EQ(result.status, 0);
}

TEST_F(Cable, WritesWithoutWaitingForClearToSend) {
    open_both();
    const Port port(near_path);
    const Loop loop(port);
    ASSERT_EQ(port.modem_lines() & TIOCM_CTS, 0);
    termios attributes = port.attributes();
    cfsetispeed(&attributes, B9600);
    cfsetospeed(&attributes, B9600);
    port.set_attributes(attributes);  // the driver looks at CTS when an attribute changes
    send(near_line, "loop");
    EXPECT_EQ(receive(near_line, 4), "loop");
}

TEST_F(Cable, FlowControlCharactersStopNothing) {
    open_both();
    arrive("\x13");
    send(near_line, "on");
    EXPECT_EQ(receive(far_line, 2), "on");
}

// The emulator's monitor, on the third line, plays the one who holds the line down.
TEST_F(Cable, ABreakReadsAsOneNulByte) {
    open_both();
    const Port port(near_path);
    const int breaks = port.counts().brk;
    arrive("A");
    serial monitor;
    std::string path = "/dev/ttyS3";
    monitor.open(path.data(), 115200);
    send(monitor, "\nchardev-send-break line1\n");
    ASSERT_TRUE(wait_until([&] {
        monitor.read();
        return port.counts().brk > breaks;
    }));
    ASSERT_TRUE(wait_readable(near_descriptor, 2));
    arrive("B");
    EXPECT_EQ(receive(near_line, 3), std::string("A\0B", 3));
}

// --- close ---

TEST_F(Cable, CloseGivesThePortItsAttributesBack) {
    const Port port(near_path);
    const Registers chip("ttyS1");
    near_line.open(near_path.data(), 57600);
    ASSERT_FALSE(same(port.attributes(), console_like()));
    near_line.close();
    EXPECT_TRUE(same(port.attributes(), console_like()));
    EXPECT_EQ(chip.frame_format(), seven_bits_with_parity_two_stops);
    EXPECT_EQ(chip.divisor(), 115200 / 2400);
}

TEST_F(Cable, CloseHangsUpAsTheAttributesBeforeHad) {
    const Registers chip("ttyS1");
    near_line.open(near_path.data(), 9600);
    near_line.close();
    EXPECT_EQ(chip.modem_control() & dtr_and_rts, 0);
}

TEST_F(Cable, TheDestructorLeavesThePortOpensAttributes) {
    const Registers chip("ttyS1");
    {
        serial line;
        line.open(near_path.data(), 38400);
    }
    EXPECT_EQ(chip.frame_format(), eight_bits_no_parity_one_stop);
    EXPECT_EQ(chip.divisor(), 3);
    const termios attributes = Port(near_path).attributes();
    EXPECT_EQ(attributes.c_cflag, static_cast<tcflag_t>(B38400 | CS8 | CLOCAL | CREAD));
}

TEST_F(Cable, AClosedLineOpensAgain) {
    open_both();
    near_line.close();
    near_descriptor = near_line.open(near_path.data(), 115200);
    arrive("again");
    EXPECT_EQ(receive(near_line, 5), "again");
}

// --- the port goes away ---

namespace {

// Takes a port from its driver, as when an adapter is unplugged, and gives it back at the end.
class Unplugged {
public:
    explicit Unplugged(const std::string& port)
        : device_(std::filesystem::canonical("/sys/class/tty/" + port + "/device").filename()) {
        std::ofstream("/sys/bus/pnp/drivers/serial/unbind") << device_ << std::flush;
    }
    ~Unplugged() { std::ofstream("/sys/bus/pnp/drivers/serial/bind") << device_ << std::flush; }
    Unplugged(const Unplugged&) = delete;
    Unplugged& operator=(const Unplugged&) = delete;

private:
    std::string device_;
};

}  // namespace

TEST_F(Cable, AWriteToAnUnpluggedPortFailsAndTheProcessGoesOn) {
    open_both();
    const Unplugged unplugged("ttyS1");
    const ChildResult result = run_in_child([&] {
        std::string frame = "\x01\x02\x03Q";
        const int written = near_line.write(frame.data(), 4);
        std::printf("%d", static_cast<int>(written < 0));
    });
    EXPECT_EQ(result.out, "write() of 4 bytes failed!\n1");
    EXPECT_EQ(result.status, 0);
}

TEST_F(Cable, AnUnpluggedPortReadsNothing) {
    open_both();
    const Unplugged unplugged("ttyS1");
    EXPECT_EQ(near_line.read(), 0);
    EXPECT_EQ(near_line.readuntil('\n', 1, 100), 0);
}

TEST_F(Cable, AfterThePortIsBackTheLineOpensAgain) {
    open_both();
    {
        const Unplugged unplugged("ttyS1");
        near_line.close();
    }
    near_descriptor = near_line.open(near_path.data(), 115200);
    arrive("back");
    EXPECT_EQ(receive(near_line, 4), "back");
}
