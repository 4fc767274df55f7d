// The input event reader on keyboards, mice and lamps of the kernel's own input layer.

#include "nodevik/inputevent.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <linux/kd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/devices/uinputdevice.h"
#include "tests/support/childprocess.h"
#include "tests/support/pseudoterminal.h"

namespace {

constexpr const char* hide_cursor = "\033[?25l";
constexpr const char* show_cursor = "\033[?25h";
constexpr const char* started = "inputevent: Thread started\n";

constexpr int passed = 7;

// In the child: ends it with the line's number on standard error.
void require_at(bool condition, int line) {
    if (!condition) {
        std::fprintf(stderr, "line %d\n", line);
        _exit(8);
    }
}
#define REQUIRE(condition) require_at((condition), __LINE__)

void wait_until(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        REQUIRE(std::chrono::steady_clock::now() < limit);
        usleep(1000);
    }
}

// Returns when the reader has taken what a mouse reported before.
void settle(const UinputDevice& mouse_device) {
    const int wheel = getmousewheel();
    mouse_device.report(EV_REL, REL_WHEEL, 1);
    wait_until([&] { return getmousewheel() == wheel + 1; });
}

// Returns when the reader has taken what a keyboard reported before. Space is the mark.
void settle_keys(const UinputDevice& keyboard) {
    keyup(K_SPACE);
    keyboard.report(EV_KEY, KEY_SPACE, 1);
    keyboard.report(EV_KEY, KEY_SPACE, 0);
    wait_until([] { return keyup(K_SPACE) == 1; });
}

unsigned int lamps() {
    unsigned int mask = 0;
    getled(mask);
    return mask;
}

// The next lamp that the kernel switches on a device, as code and value.
std::pair<int, int> next_lamp(const UinputDevice& device) {
    const std::optional<input_event> command = device.next_command();
    REQUIRE(command.has_value());
    REQUIRE(command->type == EV_LED);
    return {command->code, command->value};
}

// A program's view of a device beside the reader's.
class Observer {
public:
    explicit Observer(const std::string& path) : descriptor_(open(path.c_str(), O_RDWR)) {}
    ~Observer() { close(descriptor_); }
    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;

    // Waits until the device has told an event.
    void wait_for(int type, int code, int value) const {
        input_event event = {};
        do {
            REQUIRE(read(descriptor_, &event, sizeof event) == sizeof event);
        } while (event.type != type || event.code != code || event.value != value);
    }

    void write_event(int type, int code, int value) const {
        input_event event = {};
        event.type = static_cast<std::uint16_t>(type);
        event.code = static_cast<std::uint16_t>(code);
        event.value = value;
        REQUIRE(write(descriptor_, &event, sizeof event) == sizeof event);
    }

    unsigned int lit_lamps() const {
        unsigned char bits[4] = {};
        REQUIRE(ioctl(descriptor_, EVIOCGLED(sizeof bits), bits) >= 0);
        return bits[0];
    }

private:
    int descriptor_;
};

// True while every other thread of this process waits.
bool reader_sleeps() {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == std::to_string(getpid())) {
            continue;
        }
        std::ifstream file(task.path() / "stat");
        std::string text;
        std::getline(file, text);
        if (text.substr(text.rfind(')') + 2, 1) != "S") {
            return false;
        }
    }
    return true;
}

// The kernel's own text console, which takes every keyboard, too, and switches its lamps.
class Console {
public:
    Console() : descriptor_(open("/dev/tty0", O_RDWR | O_NOCTTY)) {}
    ~Console() {
        ioctl(descriptor_, KDSETLED, show_locks);
        close(descriptor_);
    }
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    // No lock is on: Num Lock would be, from the start.
    void release_locks() const { REQUIRE(ioctl(descriptor_, KDSKBLED, 0) == 0); }

    void light(int lamps) const { REQUIRE(ioctl(descriptor_, KDSETLED, lamps) == 0); }

private:
    static constexpr int show_locks = 0xff;

    int descriptor_;
};

// Runs a body with a pseudo-terminal as standard input; it passes when it ends with status 7.
class InputDevices : public testing::Test {
protected:
    InputDevices() { Console().release_locks(); }

    ChildResult in_child(const std::function<void()>& body) {
        return run_in_child([&] {
            const int near_end = open(terminal.path().c_str(), O_RDWR | O_NOCTTY);
            dup2(near_end, STDIN_FILENO);
            body();
            std::exit(passed);
        });
    }

    void expect_pass(const std::function<void()>& body) {
        const ChildResult result = in_child(body);
        EXPECT_EQ(result.status, passed) << result.out;
        EXPECT_EQ(result.err, "");
    }

    PseudoTerminal terminal;
};

std::string printed(const UinputDevice& device, const std::vector<std::string>& kinds,
                    const std::string& identity, const std::string& name) {
    std::string text = "\n";
    for (const std::string& kind : kinds) {
        text += kind + " events available " + device.path() + "\n";
    }
    return text + identity + "\nThe device says its name is " + name + "\n";
}

}  // namespace

// --- enumeration ---

TEST_F(InputDevices, ArePrintedInTheirOrderWithWhatTheyCanDo) {
    const UinputDevice keys(keyboard_with_lamps());
    const UinputDevice pointer(mouse());
    const UinputDevice stick(
        {.name = "Test joystick",
         .identity = {BUS_GAMEPORT, 1, 2, 3},
         .events = {{EV_KEY, {BTN_TRIGGER}}, {EV_ABS, {ABS_X, ABS_Y}}, {EV_SW, {SW_LID}}}});
    const ChildResult result = in_child([&] {
        eventinit();
        settle(pointer);
    });
    EXPECT_EQ(
        result.out,
        printed(keys, {"SYN", "MISC", "Repeat", "LED", "Keyboard/Button"},
                "vendor 0001 product 0002 version ab41 is on a I8042 Bus", "Test keyboard") +
            printed(pointer, {"SYN", "Keyboard/Button", "Mouse"},
                    "vendor 046d product c077 version 0111 is on a Universal Serial Bus", "Test mouse") +
            printed(stick, {"SYN", "SW", "Keyboard/Button", "Joystick"},
                    "vendor 0001 product 0002 version 0003 is on a Gameport Bus", "Test joystick") +
            hide_cursor + started + show_cursor);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, passed);
}

TEST_F(InputDevices, FromTheSeventhOnAreLeftAlone) {
    std::vector<std::unique_ptr<UinputDevice>> mice;
    for (int i = 0; i < 7; ++i) {
        mice.push_back(std::make_unique<UinputDevice>(mouse()));
    }
    ASSERT_EQ(mice[5]->path(), "/dev/input/event5");
    expect_pass([&] {
        eventinit();
        mice[6]->report(EV_REL, REL_X, 1000);
        for (int i = 0; i < 6; ++i) {
            mice[static_cast<std::size_t>(i)]->report(EV_REL, REL_X, 1);
        }
        wait_until([] { return getmousex() == 6; });
        settle(*mice[0]);
        REQUIRE(getmousex() == 6);
    });
}

TEST_F(InputDevices, NoneAtAllLeavesTheReaderWaiting) {
    expect_pass([] {
        eventinit();
        wait_until(reader_sleeps);
    });
}

// --- keys ---

TEST_F(InputDevices, AKeyIsDownFromItsPressToItsRelease) {
    const UinputDevice keys(keyboard_with_lamps());
    expect_pass([&] {
        eventinit();
        REQUIRE(key(K_A) == 0);
        keys.report(EV_KEY, KEY_A, 1);
        wait_until([] { return key(K_A) == 1; });
        REQUIRE(keydown(K_A) == 1);
        REQUIRE(keydown(K_A) == 0);
        REQUIRE(keyup(K_A) == 0);
        keys.report(EV_KEY, KEY_A, 0);
        wait_until([] { return key(K_A) == 0; });
        wait_until([] { return keyup(K_A) == 1; });
        REQUIRE(keyup(K_A) == 0);
        REQUIRE(keydown(K_A) == 0);
    });
}

TEST_F(InputDevices, EveryKeyOfTheTableIsKnownByItsCode) {
    const UinputDevice keys(keyboard_with_lamps());
    expect_pass([&] {
        eventinit();
        for (int code = 1; code < 255; ++code) {
            keys.report(EV_KEY, code, 1);
            keys.report(EV_KEY, code, 0);
            wait_until([&] { return keyup(static_cast<unsigned char>(code)) == 1; });
            REQUIRE(keydown(static_cast<unsigned char>(code)) == 1);
            REQUIRE(key(static_cast<unsigned char>(code)) == 0);
        }
    });
}

TEST_F(InputDevices, SeveralKeysAreDownAtOnce) {
    const UinputDevice keys(keyboard_with_lamps());
    expect_pass([&] {
        eventinit();
        keys.put(EV_KEY, KEY_LEFTCTRL, 1);
        keys.put(EV_KEY, KEY_UP, 1);
        keys.report(EV_KEY, KEY_KP5, 1);
        wait_until([] { return key(K_KP5) == 1; });
        REQUIRE(key(K_LEFTCTRL) == 1 && key(K_UP) == 1);
        keys.report(EV_KEY, KEY_UP, 0);
        wait_until([] { return keyup(K_UP) == 1; });
        REQUIRE(key(K_LEFTCTRL) == 1 && key(K_UP) == 0 && key(K_KP5) == 1);
    });
}

// The kernel repeats a key that is held; the repeats are no presses.
TEST_F(InputDevices, AHeldKeyIsReportedAsOnePress) {
    const UinputDevice keys(keyboard_with_lamps());
    expect_pass([&] {
        const Observer observer(keys.path());
        eventinit();
        keys.report(EV_KEY, KEY_A, 1);
        wait_until([] { return keydown(K_A) == 1; });
        observer.wait_for(EV_KEY, KEY_A, 2);
        observer.wait_for(EV_KEY, KEY_A, 2);
        REQUIRE(key(K_A) == 1);
        keys.report(EV_KEY, KEY_A, 0);
        wait_until([] { return keyup(K_A) == 1; });
        REQUIRE(keydown(K_A) == 0);
    });
}

TEST_F(InputDevices, WhileDisabledOnlyReleasesAreRecorded) {
    const UinputDevice keys(keyboard_with_lamps());
    expect_pass([&] {
        eventinit();
        settle_keys(keys);
        eventdisable();
        settle_keys(keys);
        keys.report(EV_KEY, KEY_A, 1);
        keys.report(EV_KEY, KEY_A, 0);
        wait_until([] { return keyup(K_A) == 1; });
        REQUIRE(keydown(K_A) == 0);
        eventenable();
        keys.report(EV_KEY, KEY_A, 1);
        wait_until([] { return keydown(K_A) == 1; });
    });
}

TEST_F(InputDevices, ScanCodesAndReportEndsChangeNothing) {
    const UinputDevice keys(keyboard_with_lamps());
    const ChildResult result = in_child([&] {
        eventinit();
        keys.put(EV_MSC, MSC_SCAN, 0x1e);
        keys.report(EV_KEY, KEY_A, 1);
        wait_until([] { return keydown(K_A) == 1; });
    });
    EXPECT_EQ(result.status, passed) << result.err;
    EXPECT_EQ(result.out.find("Unknown Event Type"), std::string::npos);
}

TEST_F(InputDevices, AnEventOfAnotherKindIsPrinted) {
    const UinputDevice stick({.name = "Test switch", .events = {{EV_KEY, {KEY_SPACE}}, {EV_SW, {SW_LID}}}});
    const ChildResult result = in_child([&] {
        eventinit();
        stick.report(EV_SW, SW_LID, 1);
        settle_keys(stick);
    });
    EXPECT_EQ(result.status, passed) << result.err;
    EXPECT_NE(result.out.find("inputevent: Unknown Event Type 5\n"), std::string::npos);
}

// --- mouse ---

TEST_F(InputDevices, MotionIsSummedOverReports) {
    const UinputDevice pointer(mouse());
    expect_pass([&] {
        eventinit();
        for (int i = 0; i < 100; ++i) {
            pointer.put(EV_REL, REL_X, 3);
            pointer.report(EV_REL, REL_Y, -2);
            settle(pointer);  // the kernel keeps some tens of events for the reader, and drops the others
        }
        REQUIRE(getmousex() == 300);
        REQUIRE(getmousey() == -200);
        pointer.report(EV_REL, REL_WHEEL, -101);
        wait_until([] { return getmousewheel() == -1; });
        resetmousepos(10, 20);
        pointer.put(EV_REL, REL_X, 1);
        pointer.report(EV_REL, REL_Y, 1);
        wait_until([] { return getmousey() == 21; });
        REQUIRE(getmousex() == 11);
        REQUIRE(getmousewheel() == -1);
    });
}

TEST_F(InputDevices, TwoMiceMoveOnePosition) {
    const UinputDevice left(mouse());
    const UinputDevice right(mouse());
    expect_pass([&] {
        eventinit();
        left.report(EV_REL, REL_X, 5);
        right.report(EV_REL, REL_X, 7);
        wait_until([] { return getmousex() == 12; });
    });
}

TEST_F(InputDevices, AButtonOncePressedStaysSet) {
    const UinputDevice pointer(mouse());
    expect_pass([&] {
        eventinit();
        pointer.report(EV_KEY, BTN_LEFT, 1);
        settle(pointer);
        REQUIRE(evmlbutton == 1 && evmrbutton == 0 && evmmbutton == 0);
        pointer.report(EV_KEY, BTN_LEFT, 0);
        pointer.report(EV_KEY, BTN_RIGHT, 1);
        settle(pointer);
        REQUIRE(evmlbutton == 1 && evmrbutton == 1 && evmmbutton == 0);
        pointer.report(EV_KEY, BTN_MIDDLE, 1);
        settle(pointer);
        REQUIRE(evmmbutton == 1);
    });
}

// --- lamps ---

TEST_F(InputDevices, SetledSwitchesTheKeyboardsLamps) {
    const UinputDevice keys(keyboard_with_lamps());
    expect_pass([&] {
        const Observer observer(keys.path());
        eventinit();
        setled(1U << LED_NUML | 1U << LED_SCROLLL);
        REQUIRE(next_lamp(keys) == std::pair(LED_NUML, 1));
        REQUIRE(next_lamp(keys) == std::pair(LED_SCROLLL, 1));
        REQUIRE(observer.lit_lamps() == 5);
    });
}

// The write of a lamp ends no report, so the device's next one brings the state along.
TEST_F(InputDevices, GetledFollowsTheDevicesReport) {
    const UinputDevice keys(keyboard_with_lamps());
    expect_pass([&] {
        eventinit();
        setled(1U << LED_CAPSL | 1U << LED_COMPOSE);
        REQUIRE(next_lamp(keys) == std::pair(LED_CAPSL, 1));
        REQUIRE(next_lamp(keys) == std::pair(LED_COMPOSE, 1));
        REQUIRE(lamps() == 0);
        keys.end_report();
        wait_until([] { return lamps() == 10; });
        negled(1U << LED_CAPSL | 1U << LED_NUML);
        REQUIRE(next_lamp(keys) == std::pair(LED_NUML, 1));
        REQUIRE(next_lamp(keys) == std::pair(LED_CAPSL, 0));
        keys.end_report();
        wait_until([] { return lamps() == 9; });
    });
}

TEST_F(InputDevices, GetledFollowsALampThatTheConsoleSwitches) {
    const UinputDevice keys(keyboard_with_lamps());
    expect_pass([&] {
        const Console console;
        eventinit();
        console.light(LED_CAP);
        REQUIRE(next_lamp(keys) == std::pair(LED_CAPSL, 1));
        keys.end_report();
        wait_until([] { return lamps() == 2; });
    });
}

TEST_F(InputDevices, LampsThatAreLitAtTheStartAreKnown) {
    const UinputDevice keys(keyboard_with_lamps());
    expect_pass([&] {
        const Observer other(keys.path());
        other.write_event(EV_LED, LED_CAPSL, 1);
        REQUIRE(next_lamp(keys) == std::pair(LED_CAPSL, 1));
        eventinit();
        REQUIRE(lamps() == 2);
    });
}

TEST_F(InputDevices, LampsOfTheLastDeviceAreTheOnesSwitched) {
    const UinputDevice first(keyboard_with_lamps());
    const UinputDevice last(keyboard_with_lamps());
    expect_pass([&] {
        eventinit();
        setled(1);
        REQUIRE(next_lamp(last) == std::pair(LED_NUML, 1));
        REQUIRE(!first.next_command(0).has_value());
    });
}

TEST_F(InputDevices, EventcloseSwitchesTheLampsOff) {
    const UinputDevice keys(keyboard_with_lamps());
    expect_pass([&] {
        eventinit();
        setled(8);
        REQUIRE(next_lamp(keys) == std::pair(LED_COMPOSE, 1));
        keys.end_report();
        wait_until([] { return lamps() == 8; });
        eventclose();
        REQUIRE(next_lamp(keys) == std::pair(LED_COMPOSE, 0));
    });
}

TEST_F(InputDevices, ATerminatedProgramSwitchesTheLampsOff) {
    const UinputDevice keys(keyboard_with_lamps());
    const ChildResult result = in_child([&] {
        eventinit();
        setled(2);
        REQUIRE(next_lamp(keys) == std::pair(LED_CAPSL, 1));
        keys.end_report();
        wait_until([] { return lamps() == 2; });
        raise(SIGTERM);
    });
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(next_lamp(keys), std::pair(LED_CAPSL, 0));
}

// --- removal ---

TEST_F(InputDevices, AfterTheRemovalOfOneTheOthersAreRead) {
    const UinputDevice keys(keyboard_with_lamps());
    const UinputDevice pointer(mouse());
    expect_pass([&] {
        eventinit();
        keys.report(EV_KEY, KEY_A, 1);
        keys.report(EV_KEY, KEY_A, 0);
        wait_until([] { return keyup(K_A) == 1; });
        keys.unplug();
        for (int i = 0; i < 20; ++i) {
            settle(pointer);
        }
        REQUIRE(keydown(K_A) == 1);
        eventclose();
    });
}

TEST_F(InputDevices, AfterTheRemovalOfAllTheReaderWaits) {
    const UinputDevice pointer(mouse());
    expect_pass([&] {
        eventinit();
        settle(pointer);
        pointer.unplug();
        wait_until(reader_sleeps);
        eventclose();
    });
}

TEST_F(InputDevices, RemovalInTheMiddleOfMotionEndsNothing) {
    const UinputDevice steady(mouse());
    for (int i = 0; i < 10; ++i) {
        const UinputDevice pulled(mouse());
        expect_pass([&] {
            eventinit();
            for (int report = 0; report < 200; ++report) {
                pulled.report(EV_REL, REL_X, 1);
            }
            pulled.unplug();
            settle(steady);
            REQUIRE(getmousex() >= 0 && getmousex() <= 200);
            eventclose();
        });
    }
}

TEST_F(InputDevices, SwitchingTheLampsOfARemovedDeviceDoesNothing) {
    const UinputDevice keys(keyboard_with_lamps());
    expect_pass([&] {
        eventinit();
        keys.unplug();
        setled(7);
        REQUIRE(lamps() == 0);
        eventclose();
    });
}

TEST_F(InputDevices, ADeviceThatComesLaterIsFoundByTheNextStart) {
    const UinputDevice pointer(mouse());
    expect_pass([&] {
        eventinit();
        settle(pointer);
        eventclose();
        const UinputDevice keys(keyboard_with_lamps());
        eventinit();
        keys.report(EV_KEY, KEY_B, 1);
        wait_until([] { return keydown(K_B) == 1; });
        settle(pointer);
        eventclose();
    });
}
