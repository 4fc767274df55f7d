#include "recorder/carrier.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/recorder/carriedline.h"
#include "tests/support/allocationcount.h"
#include "tests/support/loopbacksocket.h"

using namespace vehicle_recorder;

namespace {

const std::string neutral_frame("\0gnP", 4);
const std::string driving_frame("\x9c\x50\x2fQ", 4);
const std::string neutral_note = "neutral frame sent by the recorder";

std::string random_bytes(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    return bytes;
}

// What has come to the vehicle by now.
std::string received(const PseudoTerminal& vehicle) {
    std::string all;
    for (std::string more = vehicle.receive(4096, 0); !more.empty(); more = vehicle.receive(4096, 0)) {
        all += more;
    }
    return all;
}

bool has(const std::vector<std::string>& story, const std::string& what) {
    return std::find(story.begin(), story.end(), what) != story.end();
}

// Tells of long texts only where they differ.
void expect_same(const std::string& got, const std::string& expected) {
    const auto [here, there] = std::mismatch(got.begin(), got.end(), expected.begin(), expected.end());
    EXPECT_TRUE(here == got.end() && there == expected.end())
        << "byte " << (here - got.begin()) << " is another one, of " << got.size() << " and "
        << expected.size();
}

void in_random_pieces(const std::string& bytes, const std::function<void(const std::string&)>& pass) {
    constexpr std::size_t longest = 300;
    std::mt19937 random(static_cast<unsigned>(bytes.front()));
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t count = std::min(1 + random() % longest, bytes.size() - at);
        pass(bytes.substr(at, count));
        at += count;
    }
}

// Writes blocks to a line that the vehicle does not read until nothing more is taken: the far end's buffer and the line's
// own are full then, and what the carrier keeps. Returns what was taken.
std::string write_until_refused(const CarriedLine& carried, const std::string& block) {
    std::string taken;
    int refused = 0;
    EXPECT_TRUE(eventually([&] {
        const ssize_t count = ::write(carried.line, block.data(), block.size());
        taken.append(block, 0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        refused = count < 0 && errno == EAGAIN ? refused + 1 : 0;
        return refused > 100;
    }));
    return taken;
}

// In so many cycles of a frame and a reply.
unsigned long allocations_in(int cycles) {
    const std::string reply = random_bytes(39, 7);
    CarriedLine carried(allocations);
    carried.open_line();
    for (int i = 0; i < cycles; i++) {
        carried.write_all(driving_frame);
        EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
        carried.vehicle.send(reply);
        EXPECT_EQ(carried.read_all(reply.size()), reply);
    }
    carried.close_line();
    carried.end_program();
    carried.wait_for_carrier();
    EXPECT_EQ(bytes_of(carried.recording(), EntryKind::received).size(), cycles * reply.size());
    return carried.measured();
}

class CarrierAtSpeed : public testing::TestWithParam<speed_t> {};

}  // namespace

// --- bytes ---

TEST_P(CarrierAtSpeed, RandomPiecesPassBothWaysByteForByteAndAreRecordedSo) {
    constexpr std::size_t size = 30'000;
    constexpr std::size_t most_under_way = 4000;  // no line holds more for a program that does not read
    CarriedLine carried;
    carried.open_line(GetParam());
    const std::string to_vehicle = random_bytes(size, GetParam());
    const std::string to_program = random_bytes(size, GetParam() + 1);
    std::thread program(
        [&] { in_random_pieces(to_vehicle, [&](const auto& piece) { carried.write_all(piece); }); });
    std::atomic<std::size_t> arrived = 0;
    std::string at_program;
    std::thread reader([&] {
        while (arrived < size && eventually([&] { return wait_readable(carried.line); })) {
            at_program += carried.read_some();
            arrived = at_program.size();
        }
    });
    std::thread vehicle([&] {
        std::size_t sent = 0;
        in_random_pieces(to_program, [&](const auto& piece) {
            eventually([&] { return sent - arrived <= most_under_way; });
            carried.vehicle.send(piece);
            sent += piece.size();
        });
    });
    const std::string at_vehicle = carried.vehicle.receive(size, 60'000);
    for (std::thread* const one : {&program, &vehicle, &reader}) {
        one->join();
    }
    expect_same(at_vehicle, to_vehicle);
    expect_same(at_program, to_program);
    const termios now = carried.vehicle.attributes();
    EXPECT_EQ(cfgetospeed(&now), GetParam());
    carried.close_line();
    carried.end_program();
    const std::vector<Entry> recording = carried.recording();
    expect_same(bytes_of(recording, EntryKind::received), to_program);
    expect_same(bytes_of(recording, EntryKind::sent), to_vehicle + neutral_frame);
    EXPECT_EQ(carried.lost, 0U);
}

INSTANTIATE_TEST_SUITE_P(Speeds, CarrierAtSpeed, testing::Values(B9600, B19200, B38400, B57600, B115200));

TEST(Carrier, BytesCostNoAllocation) {
    constexpr int many = 500;
    EXPECT_LT(allocations_in(many), allocations_in(1) + many / 10);
}

TEST(Carrier, TimesOfARecordingNeverRunBackwards) {
    CarriedLine carried;
    carried.open_line();
    for (int i = 0; i < 100; i++) {
        carried.write_all(driving_frame);
        carried.vehicle.send("reply");
    }
    EXPECT_EQ(carried.vehicle.receive(400), std::string([&] {
                  std::string all;
                  for (int i = 0; i < 100; i++) {
                      all += driving_frame;
                  }
                  return all;
              }()));
    carried.close_line();
    carried.end_program();
    std::uint64_t before_us = 0;
    for (const Entry& entry : carried.recording()) {
        EXPECT_GE(entry.time_us, before_us);
        before_us = entry.time_us;
    }
}

TEST(Carrier, NothingIsSentBackBeforeTheProgramHasSetItsLine) {
    CarriedLine carried;
    carried.open_line(B0);
    carried.vehicle.send("a reply\n\r\x04");
    EXPECT_EQ(carried.read_all(10), "a reply\n\r\x04");
    carried.write_all("x\n");
    EXPECT_EQ(carried.vehicle.receive(2), "x\n");
    carried.close_line();
    carried.end_program();
    carried.wait_for_carrier();
    EXPECT_EQ(received(carried.vehicle), neutral_frame);
}

TEST(Carrier, LineThatTakesNothingMakesTheProgramsWritesFailAndLosesNothingThatWasTaken) {
    CarriedLine carried;
    carried.open_line();
    const std::string taken = write_until_refused(carried, random_bytes(1000, 1));
    EXPECT_LT(taken.size(), 60'000U);
    expect_same(carried.vehicle.receive(taken.size()), taken);
    EXPECT_TRUE(eventually([&] { return ::write(carried.line, driving_frame.data(), 4) == 4; }));
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
}

TEST(Carrier, ProgramThatThrowsAwayWhatIsNotSentIsHeardAtOnce) {
    CarriedLine carried;
    carried.open_line();
    const std::size_t taken = write_until_refused(carried, std::string(1000, 'x')).size();
    tcflush(carried.line, TCOFLUSH);
    EXPECT_TRUE(eventually([&] { return ::write(carried.line, neutral_frame.data(), 4) == 4; }));
    std::string all;
    EXPECT_TRUE(eventually([&] {
        all += received(carried.vehicle);
        return all.size() >= 4 && all.substr(all.size() - 4) == neutral_frame;
    }));
    EXPECT_LT(all.size(), taken);
    carried.close_line();
    carried.end_program();
    EXPECT_TRUE(has(story_of(carried.recording()), "the program discarded what was not sent"));
}

TEST(Carrier, WhatAProgramDoesNotReadIsKeptALittleAndThenDroppedAndCounted) {
    CarriedLine carried;
    carried.open_line();
    const std::string bytes = random_bytes(80'000, 3);
    carried.vehicle.send(bytes);
    carried.vehicle.send("end");
    // All has passed when a frame has come after it.
    EXPECT_TRUE(eventually([&] {
        int waiting = 0;
        ioctl(carried.vehicle.far_end(), TIOCOUTQ, &waiting);
        return waiting == 0;
    }));
    carried.write_all(driving_frame);
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
    std::string got;
    std::array<char, 4096> block;
    int nothing = 0;
    EXPECT_TRUE(eventually([&] {
        const ssize_t count = ::read(carried.line, block.data(), block.size());
        got.append(block.data(), static_cast<std::size_t>(count > 0 ? count : 0));
        nothing = count > 0 ? 0 : nothing + 1;
        return nothing > 100;
    }));
    EXPECT_LT(got.size(), bytes.size());
    // The program may begin to read before all has come: then some more follows what was dropped.
    const std::size_t kept = 16'000;
    ASSERT_GE(got.size(), kept);
    expect_same(got.substr(0, kept), bytes.substr(0, kept));
    carried.close_line();
    carried.end_program();
    const std::vector<Entry> recording = carried.recording();
    expect_same(bytes_of(recording, EntryKind::received), bytes + "end");
    EXPECT_TRUE(has(story_of(recording),
                    "bytes not taken by the program " + std::to_string(bytes.size() + 3 - got.size())));
}

// --- opening, settings, closing ---

TEST(Carrier, RealLineIsOpenWhileTheProgramHasItsOwnOpen) {
    CarriedLine carried;
    EXPECT_FALSE(carried.is_held());
    carried.open_line();
    EXPECT_TRUE(carried.is_held());
    carried.close_line();
    EXPECT_TRUE(eventually([&] { return !carried.is_held(); }));
    carried.open_line();
    EXPECT_TRUE(carried.is_held());
    carried.write_all(driving_frame);
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
}

TEST(Carrier, ProgramThatNeverOpensItsLineLeavesTheRealOneAlone) {
    CarriedLine carried;
    carried.end_program();
    EXPECT_EQ(story_of(carried.recording()), std::vector<std::string>{"end"});
    EXPECT_EQ(received(carried.vehicle), "");
}

TEST(Carrier, ProgramThatIsQuickerThanTheCarrierLosesNothing) {
    for (int i = 0; i < 5; i++) {
        CarriedLine carried;
        kill(carried.carrier(), SIGSTOP);
        carried.line = ::open(carried.path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        carried.set_speed(B57600);
        carried.write_all(driving_frame);
        carried.close_line();
        carried.end_program();
        kill(carried.carrier(), SIGCONT);
        EXPECT_EQ(carried.vehicle.receive(8), driving_frame + neutral_frame);
        EXPECT_EQ(story_of(carried.recording()),
                  (std::vector<std::string>{"open", "57600 8N1 none", "close", neutral_note, "end"}));
    }
}

TEST(Carrier, LineThatIsOpenedTwiceStaysOpenUntilBothAreClosed) {
    CarriedLine carried;
    carried.open_line();
    const int second = ::open(carried.path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    carried.close_line();
    carried.line = second;
    carried.write_all(driving_frame);
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
    carried.close_line();
    carried.end_program();
    EXPECT_EQ(story_of(carried.recording()),
              (std::vector<std::string>{"open", "9600 8N1 none", "close", neutral_note, "end"}));
}

TEST(Carrier, SettingsAreTheRealLinesBeforeTheBytesThatFollowThem) {
    CarriedLine carried;
    carried.open_line(B19200);
    carried.write_all("a");
    EXPECT_EQ(carried.vehicle.receive(1), "a");
    termios now = carried.vehicle.attributes();
    EXPECT_EQ(cfgetospeed(&now), B19200);
    EXPECT_EQ(now.c_iflag, 0U);
    EXPECT_EQ(now.c_oflag, 0U);
    EXPECT_EQ(now.c_lflag, 0U);
    EXPECT_EQ(now.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS), tcflag_t{CS8});
    for (const speed_t speed : {B115200, B57600, B38400}) {
        carried.set_speed(speed);
        carried.write_all("b");
        EXPECT_EQ(carried.vehicle.receive(1), "b");
        now = carried.vehicle.attributes();
        EXPECT_EQ(cfgetospeed(&now), speed);
    }
}

TEST(Carrier, SettingsAreFollowedWithoutAByte) {
    CarriedLine carried;
    carried.open_line(B38400);
    EXPECT_TRUE(eventually([&] {
        const termios now = carried.vehicle.attributes();
        return cfgetospeed(&now) == B38400;
    }));
    termios two_stops = {};
    tcgetattr(carried.line, &two_stops);
    two_stops.c_cflag |= CSTOPB | CRTSCTS;
    tcsetattr(carried.line, TCSANOW, &two_stops);
    EXPECT_TRUE(eventually(
        [&] { return (carried.vehicle.attributes().c_cflag & (CSTOPB | CRTSCTS)) == (CSTOPB | CRTSCTS); }));
    carried.close_line();
    carried.end_program();
    EXPECT_EQ(story_of(carried.recording()),
              (std::vector<std::string>{"open", "38400 8N1 none", "38400 8N2 rtscts", "close", "end"}));
}

TEST(Carrier, SettingsThatAreTakenBackBeforeTheyCouldBeFollowedAreNot) {
    CarriedLine carried;
    carried.open_line(B57600);
    carried.write_all("a");
    EXPECT_EQ(carried.vehicle.receive(1), "a");
    const std::size_t taken = write_until_refused(carried, std::string(1000, 'x')).size();
    for (const speed_t speed : {B115200, B57600}) {
        carried.set_speed(speed);
        for (int i = 0; i < 2; i++) {  // by the second one they have been looked at
            carried.vehicle.send("reply");
            EXPECT_EQ(carried.read_all(5), "reply");
        }
    }
    std::atomic<bool> is_over = false;
    bool was_followed = false;
    std::thread observer([&] {
        while (!is_over) {
            const termios now = carried.vehicle.attributes();
            was_followed = was_followed || cfgetospeed(&now) != B57600;
        }
    });
    expect_same(carried.vehicle.receive(taken), std::string(taken, 'x'));
    carried.write_all("b");
    EXPECT_EQ(carried.vehicle.receive(1), "b");
    carried.close_line();
    carried.wait_for(EntryKind::close);
    is_over = true;
    observer.join();
    EXPECT_FALSE(was_followed);
}

// As the panel's close button does: what was sent before goes out at the speed that it was sent with.
TEST(Carrier, LastFrameBeforeTheSettingsAreRestoredIsSentWithThoseThatItWasWrittenWith) {
    for (int i = 0; i < 5; i++) {
        CarriedLine carried;
        carried.open_line(B57600);
        carried.write_all("a");
        EXPECT_EQ(carried.vehicle.receive(1), "a");
        carried.write_all(driving_frame);
        tcsetattr(carried.line, TCSANOW, &carried.found);
        carried.close_line();
        EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
        EXPECT_TRUE(eventually([&] { return !carried.is_held(); }));
        carried.end_program();
        EXPECT_EQ(story_of(carried.recording()),
                  (std::vector<std::string>{"open", "57600 8N1 none", "close", "end"}));
    }
}

TEST(Carrier, ProgramThatRestoresItsLineRestoresTheRealOne) {
    CarriedLine carried;
    termios own = carried.vehicle.attributes();
    own.c_lflag |= ECHO | ICANON;
    cfsetspeed(&own, B2400);
    const int setting = ::open(carried.vehicle.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    tcsetattr(setting, TCSANOW, &own);
    close(setting);
    carried.open_line(B115200);
    EXPECT_TRUE(eventually([&] {
        const termios now = carried.vehicle.attributes();
        return cfgetospeed(&now) == B115200;
    }));
    EXPECT_EQ(carried.vehicle.attributes().c_lflag, 0U);
    tcsetattr(carried.line, TCSANOW, &carried.found);
    carried.close_line();
    EXPECT_TRUE(eventually([&] { return !carried.is_held(); }));
    const termios now = carried.vehicle.attributes();
    EXPECT_EQ(cfgetospeed(&now), B2400);
    EXPECT_EQ(now.c_lflag, own.c_lflag);
}

TEST(Carrier, LineIsOpenedAgainAtAnotherSpeed) {
    CarriedLine carried;
    carried.open_line(B9600);
    carried.write_all(driving_frame);
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
    carried.close_line();
    EXPECT_TRUE(eventually([&] { return !carried.is_held(); }));
    carried.open_line(B115200);
    carried.write_all(neutral_frame);
    EXPECT_EQ(carried.vehicle.receive(4), neutral_frame);
    const termios now = carried.vehicle.attributes();
    EXPECT_EQ(cfgetospeed(&now), B115200);
    carried.close_line();
    carried.end_program();
    EXPECT_EQ(story_of(carried.recording()),
              (std::vector<std::string>{"open", "9600 8N1 none", "close", "open", "115200 8N1 none", "close",
                                        "end"}));
}

TEST(Carrier, WhatCameBeforeAnOpeningIsNotThere) {
    CarriedLine carried;
    carried.open_line();
    carried.vehicle.send("unread");
    int waiting = 0;
    EXPECT_TRUE(eventually([&] { return ioctl(carried.line, FIONREAD, &waiting) == 0 && waiting == 6; }));
    carried.close_line();
    EXPECT_TRUE(eventually([&] { return !carried.is_held(); }));
    carried.open_line();
    carried.vehicle.send("new");
    EXPECT_EQ(carried.read_all(3), "new");
}

TEST(Carrier, WhatComesAfterTheClosingIsNeitherPassedOnNorRecorded) {
    CarriedLine carried;
    carried.open_line();
    carried.vehicle.send("reply");
    EXPECT_EQ(carried.read_all(5), "reply");
    carried.close_line();
    carried.wait_for(EntryKind::close);
    carried.vehicle.send("late");
    EXPECT_TRUE(eventually([&] { return !carried.is_held(); }));
    carried.end_program();
    EXPECT_EQ(bytes_of(carried.recording(), EntryKind::received), "reply");
}

// --- the real line is lost ---

TEST(Carrier, LostLineMakesWritesFailAndIsToldOnce) {
    CarriedLine carried;
    carried.open_line();
    carried.write_all(driving_frame);
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
    carried.vehicle.hang_up();
    EXPECT_TRUE(eventually([&] { return ::write(carried.line, driving_frame.data(), 4) < 0; }));
    for (int i = 0; i < 10; i++) {
        EXPECT_EQ(::write(carried.line, driving_frame.data(), 4), -1);
        char byte = 0;
        EXPECT_EQ(::read(carried.line, &byte, 1), 0);
    }
    const std::string told = "the line " + carried.vehicle.path() + " is lost: Input/output error";
    EXPECT_TRUE(eventually([&] {
        return carried.messages() ==
               "vehicle-recorder: " + told + "; the program has to close it and open it again\n";
    }));
    carried.close_line();
    carried.end_program();
    EXPECT_EQ(story_of(carried.recording()),
              (std::vector<std::string>{"open", "9600 8N1 none", told, "close", "end"}));
}

TEST(Carrier, LineThatCannotBeOpenedIsTriedAgainAtTheNextOpening) {
    CarriedLine carried;
    const int other = ::open(carried.vehicle.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX), 0);  // as another recorder has it
    carried.line = ::open(carried.path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    carried.set_speed(B9600);
    EXPECT_TRUE(eventually([&] { return ::write(carried.line, driving_frame.data(), 4) < 0; }));
    EXPECT_TRUE(eventually([&] {
        return carried.messages() ==
               "vehicle-recorder: " + carried.vehicle.path() +
                   " cannot be opened: Device or resource busy; the program has to close it and "
                   "open it again\n";
    }));
    close(other);
    carried.close_line();
    carried.open_line();
    EXPECT_TRUE(eventually([&] { return ::write(carried.line, driving_frame.data(), 4) == 4; }));
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
}

// Its writes were made to fail: those of the next opening are not.
TEST(Carrier, FirstWriteAfterALostLineIsOpenedAgainIsTaken) {
    CarriedLine carried;
    const int other = ::open(carried.vehicle.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    carried.line = ::open(carried.path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    carried.set_speed(B9600);
    EXPECT_TRUE(eventually([&] { return ::write(carried.line, driving_frame.data(), 4) < 0; }));
    close(other);
    carried.close_line();
    carried.wait_for(EntryKind::close);
    kill(carried.carrier(), SIGSTOP);
    carried.line = ::open(carried.path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(::write(carried.line, driving_frame.data(), 4), 4);
    kill(carried.carrier(), SIGCONT);
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
}

// --- the end ---

TEST(Carrier, ProgramThatIsGoneWithoutTheNeutralFrameLeavesItToTheRecorder) {
    CarriedLine carried;
    carried.open_line();
    carried.write_all(driving_frame);
    carried.end_program();
    carried.close_line();
    EXPECT_EQ(WEXITSTATUS(carried.wait_for_carrier()), 0);
    EXPECT_EQ(received(carried.vehicle), driving_frame + neutral_frame);
    const std::vector<Entry> recording = carried.recording();
    EXPECT_EQ(bytes_of(recording, EntryKind::sent), driving_frame + neutral_frame);
    EXPECT_TRUE(has(story_of(recording), neutral_note));
}

TEST(Carrier, ProgramThatHasSentTheNeutralFrameGetsNoSecondOne) {
    CarriedLine carried;
    carried.open_line();
    carried.write_all(driving_frame + neutral_frame);
    carried.close_line();
    carried.end_program();
    carried.wait_for_carrier();
    EXPECT_EQ(received(carried.vehicle), driving_frame + neutral_frame);
    EXPECT_FALSE(has(story_of(carried.recording()), neutral_note));
}

TEST(Carrier, ProgramThatHadSentNothingGetsNoNeutralFrame) {
    CarriedLine carried;
    carried.open_line();
    carried.close_line();
    carried.end_program();
    carried.wait_for_carrier();
    EXPECT_EQ(received(carried.vehicle), "");
}

// Closing the line sends nothing, and ending later does not either.
TEST(Carrier, LineThatWasClosedLongBeforeTheEndGetsNothing) {
    CarriedLine carried;
    carried.open_line();
    carried.write_all(driving_frame);
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
    carried.close_line();
    EXPECT_TRUE(eventually([&] { return !carried.is_held(); }));
    carried.end_program();
    carried.wait_for_carrier();
    EXPECT_EQ(received(carried.vehicle), "");
}

// As the panel's own guard is one.
TEST(Carrier, WhoHoldsTheLineAfterTheProgramIsStillHeard) {
    CarriedLine carried;
    carried.open_line();
    carried.write_all(driving_frame);
    carried.end_program();
    EXPECT_TRUE(eventually(
        [&] { return carried.messages().find("another process holds the line") != std::string::npos; }));
    carried.write_all(neutral_frame);
    carried.close_line();
    carried.wait_for_carrier();
    EXPECT_EQ(received(carried.vehicle), driving_frame + neutral_frame);
}

TEST(Carrier, OrderToFinishEndsItThoughTheLineIsHeld) {
    CarriedLine carried;
    carried.open_line();
    carried.write_all(driving_frame);
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
    carried.order(std::string(1, orders::finish));
    carried.order(orders::program_ended + std::string("the program ended with status 3"));
    EXPECT_EQ(WEXITSTATUS(carried.wait_for_carrier()), 0);
    EXPECT_EQ(received(carried.vehicle), neutral_frame);
    EXPECT_EQ(story_of(carried.recording()),
              (std::vector<std::string>{"open", "9600 8N1 none", "close", neutral_note,
                                        "the program ended with status 3", "end"}));
    char byte = 0;
    EXPECT_LT(::write(carried.line, &byte, 1), 0);  // hung up
}

// --- those beside it ---

TEST(Carrier, KilledCarrierLeavesTheNeutralFrameToItsGuard) {
    CarriedLine carried;
    carried.open_line();
    carried.write_all(driving_frame);
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
    carried.kill_carrier();
    EXPECT_EQ(carried.vehicle.receive(4), neutral_frame);
    EXPECT_TRUE(eventually([&] { return !carried.is_held(); }));
    EXPECT_EQ(received(carried.vehicle), "");
}

TEST(Carrier, KilledCarrierWithAClosedLineLeavesNothing) {
    CarriedLine carried;
    carried.open_line();
    carried.write_all(driving_frame);
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
    carried.close_line();
    EXPECT_TRUE(eventually([&] { return !carried.is_held(); }));
    carried.kill_carrier();
    EXPECT_EQ(carried.vehicle.receive(1, 200), "");
}

TEST(Carrier, KilledGuardIsReplacedAndTheNextOneDoesItsWork) {
    CarriedLine carried;
    carried.open_line();
    carried.write_all(driving_frame);
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
    kill(carried.guard(), SIGKILL);
    EXPECT_TRUE(eventually([&] {
        return carried.messages() ==
               "lineguard: does not answer any more, the recorder goes on without it\n"
               "vehicle-recorder: another lineguard has been started\n";
    }));
    carried.write_all(driving_frame);
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
    carried.kill_carrier();
    EXPECT_EQ(carried.vehicle.receive(4), neutral_frame);
}

TEST(Carrier, GuardThatIsStoppedDoesNotKeepTheLineFromBeingOpenedAgain) {
    CarriedLine carried;
    carried.open_line();
    const pid_t guard = carried.guard();
    kill(guard, SIGSTOP);
    carried.close_line();
    EXPECT_TRUE(eventually([&] { return !carried.is_held(); }));
    carried.open_line();
    carried.write_all(driving_frame);
    EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
    EXPECT_EQ(carried.messages(), "");
    kill(guard, SIGCONT);
}

TEST(Carrier, ReaderOfTheRecordingThatIsGoneIsToldOnceAndTheLineIsCarriedOn) {
    CarriedLine carried;
    carried.open_line();
    carried.stop_reading_recording();
    for (int i = 0; i < 50; i++) {
        carried.write_all(driving_frame);
        EXPECT_EQ(carried.vehicle.receive(4), driving_frame);
        carried.vehicle.send("reply");
        EXPECT_EQ(carried.read_all(5), "reply");
    }
    EXPECT_EQ(carried.messages(), "vehicle-recorder: the recording is gone\n");
}

TEST(Carrier, ReaderOfTheRecordingThatHangsIsToldOnceAndTheLineIsCarriedOn) {
    CarriedLine carried;
    carried.open_line(B115200);
    const std::string block = random_bytes(2000, 5);
    std::size_t passed = 0;
    while (carried.messages().empty() && passed < 10'000'000) {
        carried.write_all(block);
        expect_same(carried.vehicle.receive(block.size()), block);
        passed += block.size();
    }
    for (int i = 0; i < 50; i++) {
        carried.write_all(block);
        expect_same(carried.vehicle.receive(block.size()), block);
        passed += block.size();
    }
    EXPECT_EQ(carried.messages(), "vehicle-recorder: the recording is too slow\n");
    carried.close_line();
    carried.end_program();
    const std::vector<Entry> recording = carried.recording();
    EXPECT_GT(carried.lost, 0U);
    EXPECT_EQ(bytes_of(recording, EntryKind::sent).size() + carried.lost, passed + neutral_frame.size());
    EXPECT_EQ(story_of(recording).back(), "end");
}
