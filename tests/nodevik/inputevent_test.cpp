#include "nodevik/inputevent.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <stdio_ext.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "nodevik/util/timer.h"
#include "tests/support/childprocess.h"
#include "tests/support/pseudoterminal.h"

namespace {

// An emulated input-event device: what it answers, and a socket pair that its events travel through.
struct EmulatedDevice {
    std::vector<unsigned int> types = {EV_SYN, EV_KEY};
    input_id identity = {BUS_USB, 0x046d, 0xc31c, 0x0110};
    std::string name = "Keyboard";
    std::uint8_t lamps = 0;
    bool answers_types = true;
    bool answers_identity = true;
    bool answers_name = true;
    std::array<int, 2> sockets = {-1, -1};
};

std::map<std::string, EmulatedDevice> devices;
std::vector<std::string> opened_paths;
std::vector<int> open_flags;
std::vector<unsigned long> device_requests;
// What runs before pthread_create, pthread_cancel and usleep.
std::function<void()> before_create;
std::function<void()> before_cancel;
std::function<void(useconds_t)> before_pause;
int cancel_result = 0;
bool atexit_fails = false;
int input_flushes = 0;
bool policy_fails = false;
bool priority_fails = false;
int asked_policy = -1;
int asked_priority = -1;
std::atomic<int> failing_polls = 0;  // how many of the next calls of the reader fail
std::atomic<int> failing_reads = 0;
std::atomic<short> played_revents =
    0;  // what the next call of the reader finds on the first device, beside POLLIN

EmulatedDevice* device_of(int descriptor) {
    for (auto& [path, device] : devices) {
        if (descriptor >= 0 && device.sockets[0] == descriptor) {
            return &device;
        }
    }
    return nullptr;
}

bool is_event_path(const std::string& path) {
    return path.rfind("/dev/event", 0) == 0 || path.rfind("/dev/input/event", 0) == 0;
}

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int answer(bool willing, void* target, const void* source, std::size_t size, unsigned long request) {
    if (!willing) {
        errno = ENOTTY;
        return -1;
    }
    const std::size_t room = _IOC_SIZE(request);
    std::memcpy(target, source, size < room ? size : room);
    return static_cast<int>(size < room ? size : room);
}

int answer_ioctl(const EmulatedDevice& device, unsigned long request, void* target) {
    if (_IOC_NR(request) == _IOC_NR(EVIOCGBIT(0, 0))) {
        std::array<std::uint8_t, 32> bits{};
        for (const unsigned int type : device.types) {
            bits[type / 8] |= static_cast<std::uint8_t>(1U << type % 8);
        }
        return answer(device.answers_types, target, bits.data(), bits.size(), request);
    }
    if (_IOC_NR(request) == _IOC_NR(EVIOCGID)) {
        return answer(device.answers_identity, target, &device.identity, sizeof device.identity, request);
    }
    if (_IOC_NR(request) == _IOC_NR(EVIOCGNAME(0))) {
        return answer(device.answers_name, target, device.name.c_str(), device.name.size() + 1, request);
    }
    if (_IOC_NR(request) == _IOC_NR(EVIOCGLED(0))) {
        return answer(true, target, &device.lamps, 1, request);
    }
    errno = ENOTTY;
    return -1;
}

}  // namespace

// Stand in front of the C library's functions for this executable.
extern "C" {
int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (!is_event_path(path)) {
        return real<int(const char*, int, ...)>("open")(path, flags, mode);
    }
    opened_paths.emplace_back(path);
    open_flags.push_back(flags);
    const auto found = devices.find(path);
    if (found == devices.end() || socketpair(AF_UNIX, SOCK_STREAM, 0, found->second.sockets.data()) != 0) {
        errno = ENOENT;
        return -1;
    }
    return found->second.sockets[0];
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* target = va_arg(arguments, void*);
    va_end(arguments);
    if (const EmulatedDevice* device = device_of(descriptor)) {
        device_requests.push_back(request);
        return answer_ioctl(*device, request, target);
    }
    return real<int(int, unsigned long, ...)>("ioctl")(descriptor, request, target);
}

int pthread_create(pthread_t* id, const pthread_attr_t* attributes, void* (*routine)(void*),
                   void* argument) noexcept {
    if (before_create) {
        before_create();
    }
    return real<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create")(
        id, attributes, routine, argument);
}

int usleep(useconds_t us) {
    if (before_pause) {
        before_pause(us);
    }
    return real<int(useconds_t)>("usleep")(us);
}

int pthread_cancel(pthread_t thread) {
    if (before_cancel) {
        before_cancel();
    }
    if (cancel_result != 0) {
        return cancel_result;
    }
    return real<int(pthread_t)>("pthread_cancel")(thread);
}

int pthread_attr_setschedpolicy(pthread_attr_t* attributes, int policy) noexcept {
    asked_policy = policy;
    return policy_fails ? EINVAL
                        : real<int(pthread_attr_t*, int)>("pthread_attr_setschedpolicy")(attributes, policy);
}

int pthread_attr_setschedparam(pthread_attr_t* attributes, const sched_param* parameters) noexcept {
    asked_priority = parameters->sched_priority;
    return priority_fails ? EINVAL
                          : real<int(pthread_attr_t*, const sched_param*)>("pthread_attr_setschedparam")(
                                attributes, parameters);
}

int poll(pollfd* entries, nfds_t count, int limit_ms) {
    if (failing_polls > 0 && limit_ms < 0) {
        --failing_polls;
        errno = EINTR;
        return -1;
    }
    const int ready = real<int(pollfd*, nfds_t, int)>("poll")(entries, count, limit_ms);
    if (limit_ms < 0 && ready > 0 && entries[0].revents == POLLIN) {
        entries[0].revents = static_cast<short>(POLLIN | played_revents.exchange(0));
    }
    return ready;
}

ssize_t read(int descriptor, void* target, size_t size) {
    if (size == 384 && failing_reads > 0) {
        --failing_reads;
        errno = EIO;
        return -1;
    }
    return real<ssize_t(int, void*, size_t)>("read")(descriptor, target, size);
}

int tcflush(int descriptor, int queue) noexcept {
    if (descriptor == STDIN_FILENO && queue == TCIFLUSH) {
        __atomic_add_fetch(&input_flushes, 1, __ATOMIC_SEQ_CST);
    }
    return real<int(int, int)>("tcflush")(descriptor, queue);
}

extern int __cxa_atexit(void (*function)(void*), void* argument, void* handle) noexcept;

int atexit(void (*function)()) noexcept {
    static void (*registered)() = nullptr;
    if (atexit_fails) {
        return 1;
    }
    registered = function;
    return __cxa_atexit([](void*) { registered(); }, nullptr, nullptr);
}
}

namespace {

constexpr const char* hide_cursor = "\033[?25l";
constexpr const char* show_cursor = "\033[?25h";
constexpr const char* started = "inputevent: Thread started\n";

void require(bool condition) {
    if (!condition) {
        _exit(8);
    }
}

void wait_until(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        require(std::chrono::steady_clock::now() < limit);
        usleep(500);
    }
}

void send_bytes(const std::string& path, const void* bytes, std::size_t size) {
    require(write(devices.at(path).sockets[1], bytes, size) == static_cast<ssize_t>(size));
}

input_event make_event(unsigned int type, unsigned int code, int value) {
    input_event event = {};
    event.type = static_cast<std::uint16_t>(type);
    event.code = static_cast<std::uint16_t>(code);
    event.value = value;
    return event;
}

const std::string keyboard = "/dev/input/event0";

void send(unsigned int type, unsigned int code, int value, const std::string& path = keyboard) {
    const input_event event = make_event(type, code, value);
    send_bytes(path, &event, sizeof event);
}

// Returns when the reader has taken everything sent to a device before. The mark is a wheel step.
void settle(const std::string& path = keyboard) {
    const int wheel = getmousewheel();
    send(EV_REL, REL_WHEEL, 1, path);
    wait_until([&] { return getmousewheel() == wheel + 1; });
}

// A lamp event that setled wrote to a device, as code and value; the rest of the event must be zero.
std::vector<std::pair<int, int>> written_lamps(const std::string& path = keyboard) {
    std::vector<std::pair<int, int>> lamps;
    input_event event = {};
    while (recv(devices.at(path).sockets[1], &event, sizeof event, MSG_DONTWAIT) == sizeof event) {
        require(event.type == EV_LED && event.input_event_sec == 0 && event.input_event_usec == 0);
        lamps.emplace_back(event.code, event.value);
    }
    return lamps;
}

using Lamps = std::vector<std::pair<int, int>>;

// Runs a body with a pseudo-terminal as standard input; it passes when it ends with status 7.
class InputEvent : public ::testing::Test {
protected:
    InputEvent() { devices[keyboard] = {}; }
    ~InputEvent() override {
        devices.clear();
        opened_paths.clear();
        open_flags.clear();
    }
    InputEvent(const InputEvent&) = delete;
    InputEvent& operator=(const InputEvent&) = delete;

    ChildResult in_child(const std::function<void()>& body) {
        return run_in_child([&] {
            const int near_end = ::open(terminal.path().c_str(), O_RDWR | O_NOCTTY);
            dup2(near_end, STDIN_FILENO);
            body();
            std::exit(7);
        });
    }

    PseudoTerminal terminal;
};

}  // namespace

TEST_F(InputEvent, TriesTheDevicesInOrder) {
    const ChildResult result = in_child([] {
        devices.clear();
        eventinit();
        require(opened_paths == std::vector<std::string>{"/dev/event0", "/dev/event1", "/dev/event2",
                                                         "/dev/event3", "/dev/event4", "/dev/event5",
                                                         "/dev/input/event0", "/dev/input/event1",
                                                         "/dev/input/event2", "/dev/input/event3",
                                                         "/dev/input/event4", "/dev/input/event5"});
        for (const int flags : open_flags) {
            require(flags == (O_RDWR | O_NOCTTY));
        }
    });
    EXPECT_EQ(result.status, 7) << result.err;
    EXPECT_EQ(result.err, "");
}

TEST_F(InputEvent, WithoutADeviceTheReaderStartsAllTheSame) {
    const ChildResult result = in_child([] {
        devices.clear();
        eventinit();
        wait_until([] {
            std::fflush(stdout);
            return lseek(STDOUT_FILENO, 0, SEEK_CUR) >= static_cast<off_t>(6 + strlen(started));
        });
    });
    EXPECT_EQ(result.out, std::string(hide_cursor) + started + show_cursor);
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, PrintsEveryKindOfEventInOrder) {
    devices[keyboard].types = {EV_SYN, EV_KEY, EV_REL, EV_ABS, EV_MSC, EV_SW,
                               EV_LED, EV_SND, EV_REP, EV_FF,  EV_PWR, EV_FF_STATUS};
    const ChildResult result = in_child([] {
        eventinit();
        settle();
    });
    EXPECT_EQ(result.out, std::string("\n"
                                      "SYN events available /dev/input/event0\n"
                                      "SOUND events available /dev/input/event0\n"
                                      "MISC events available /dev/input/event0\n"
                                      "SW events available /dev/input/event0\n"
                                      "Repeat events available /dev/input/event0\n"
                                      "ForceFeedback events available /dev/input/event0\n"
                                      "PWR events available /dev/input/event0\n"
                                      "ForceFeedback status events available /dev/input/event0\n"
                                      "LED events available /dev/input/event0\n"
                                      "Keyboard/Button events available /dev/input/event0\n"
                                      "Mouse events available /dev/input/event0\n"
                                      "Joystick events available /dev/input/event0\n"
                                      "vendor 046d product c31c version 0110 is on a Universal Serial Bus\n"
                                      "The device says its name is Keyboard\n") +
                              hide_cursor + started + show_cursor);
}

TEST_F(InputEvent, ADeviceOfNoKnownKindIsKept) {
    devices[keyboard].types = {};
    const ChildResult result = in_child([] {
        eventinit();
        settle();
    });
    EXPECT_EQ(result.out, std::string("\n"
                                      "vendor 046d product c31c version 0110 is on a Universal Serial Bus\n"
                                      "The device says its name is Keyboard\n") +
                              hide_cursor + started + show_cursor);
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, ADeviceThatDoesNotAnswerIsLeftOut) {
    devices[keyboard].types = {EV_KEY};
    devices["/dev/input/event5"].answers_types = false;
    const ChildResult result = in_child([] {
        eventinit();
        require(fcntl(devices["/dev/input/event5"].sockets[0], F_GETFD) == -1);
        settle();
    });
    EXPECT_EQ(result.status, 7) << result.err;
    EXPECT_EQ(result.err, "evdev ioctl: Inappropriate ioctl for device\n");
    EXPECT_EQ(result.out, std::string("\nKeyboard/Button events available /dev/input/event0\n"
                                      "vendor 046d product c31c version 0110 is on a Universal Serial Bus\n"
                                      "The device says its name is Keyboard\n"
                                      "dev /dev/input/event5 \n") +
                              hide_cursor + started + show_cursor);
}

TEST_F(InputEvent, ADeviceWithoutIdentityIsKept) {
    devices[keyboard].answers_identity = false;
    const ChildResult result = in_child([] {
        eventinit();
        settle();
    });
    EXPECT_EQ(result.err, "evdev ioctl: Inappropriate ioctl for device\n");
    EXPECT_EQ(result.out, std::string("\nSYN events available /dev/input/event0\n"
                                      "Keyboard/Button events available /dev/input/event0\n\n") +
                              hide_cursor + started + show_cursor);
}

TEST_F(InputEvent, ADeviceWithoutNameIsKept) {
    devices[keyboard].answers_name = false;
    const ChildResult result = in_child([] {
        eventinit();
        settle();
    });
    EXPECT_EQ(result.err, "evdev ioctl: Inappropriate ioctl for device\n");
    EXPECT_EQ(result.out,
              std::string("\nSYN events available /dev/input/event0\n"
                          "Keyboard/Button events available /dev/input/event0\n"
                          "vendor 046d product c31c version 0110 is on a Universal Serial Bus\n\n") +
                  hide_cursor + started + show_cursor);
}

TEST_F(InputEvent, AsksADeviceForItsTypesIdentityNameAndLamps) {
    devices[keyboard].types = {EV_LED};
    const ChildResult result = in_child([] {
        eventinit();
        require(device_requests ==
                std::vector<unsigned long>{EVIOCGBIT(0, 31), EVIOCGID, EVIOCGNAME(256), EVIOCGLED(4)});
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, PrintsALongNameWithPercentSignsAsItIs) {
    devices[keyboard].name = "100%% %d" + std::string(247, 'x');
    const ChildResult result = in_child([] { eventinit(); });
    EXPECT_NE(result.out.find("The device says its name is " + devices[keyboard].name + "\n"),
              std::string::npos);
    EXPECT_EQ(result.status, 7) << result.err;
}

struct BusRow {
    int type;
    const char* text;
};

class InputEventBus : public InputEvent, public ::testing::WithParamInterface<BusRow> {};

TEST_P(InputEventBus, IsNamed) {
    devices[keyboard].types = {};
    devices[keyboard].identity = {static_cast<std::uint16_t>(GetParam().type), 1, 2, 3};
    const ChildResult result = in_child([] {
        eventinit();
        settle();
    });
    EXPECT_EQ(result.out.find(std::string("\nvendor 0001 product 0002 version 0003") + GetParam().text +
                              "\nThe device says its name is Keyboard\n"),
              0U);
}

INSTANTIATE_TEST_SUITE_P(
    Buses, InputEventBus,
    ::testing::Values(BusRow{1, " is on a PCI bus"}, BusRow{2, " is on a ISAPNP Bus"},
                      BusRow{3, " is on a Universal Serial Bus"}, BusRow{4, " is on a HIL Bus"},
                      BusRow{5, " is on a BLUETOOTH Bus"}, BusRow{16, " is on a ISA Bus"},
                      BusRow{17, " is on a I8042 Bus"}, BusRow{18, " is on a XTKBD Bus"},
                      BusRow{19, " is on a RS232 Serial Bus"}, BusRow{20, " is on a Gameport Bus"},
                      BusRow{24, " is on a I2C Bus"}, BusRow{25, " is on a HOST Bus"},
                      BusRow{26, " is on a GSC Bus"}, BusRow{0, " is on a Unknown Bus"},
                      BusRow{6, " is on a Unknown Bus"}, BusRow{27, " is on a Unknown Bus"}),
    [](const auto& row) { return "Type" + std::to_string(row.param.type); });

TEST_F(InputEvent, EnablingSwitchesEchoAndCursorOff) {
    const ChildResult result = in_child([this] {
        const termios before = terminal.attributes();
        require((before.c_lflag & ECHO) != 0 && (before.c_lflag & ICANON) != 0);
        terminal.send("typed\n");
        eventenable();
        const termios now = terminal.attributes();
        require((now.c_lflag & ECHO) == 0 && (now.c_lflag & ICANON) != 0);
        int waiting = -1;
        ioctl(STDIN_FILENO, FIONREAD, &waiting);
        require(waiting == 0);
    });
    EXPECT_EQ(result.out, hide_cursor);
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, DisablingSwitchesEchoLineEditingAndCursorOn) {
    const ChildResult result = in_child([this] {
        termios raw = terminal.attributes();
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON);
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
        eventenable();
        require((terminal.attributes().c_lflag & ICANON) == 0);
        terminal.send("typed");
        eventdisable();
        const termios now = terminal.attributes();
        require((now.c_lflag & ECHO) != 0 && (now.c_lflag & ICANON) != 0);
        int waiting = -1;
        ioctl(STDIN_FILENO, FIONREAD, &waiting);
        require(waiting == 0);
    });
    EXPECT_EQ(result.out, std::string(hide_cursor) + show_cursor);
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, DisablingWithoutEnablingLeavesTheTerminalAlone) {
    const ChildResult result = in_child([this] {
        const termios before = terminal.attributes();
        eventdisable();
        const termios now = terminal.attributes();
        require(now.c_lflag == before.c_lflag && now.c_cflag == before.c_cflag);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, TellsAPressOnceHoweverLongTheKeyIsHeld) {
    const ChildResult result = in_child([] {
        eventinit();
        send(EV_KEY, KEY_A, 1);
        send(EV_KEY, KEY_A, 2);
        send(EV_KEY, KEY_A, 2);
        settle();
        require(key(K_A) == 1 && key(static_cast<unsigned char>(30)) == 1);
        require(keydown(K_A) == 1);
        require(keydown(K_A) == 0);
        require(keyup(K_A) == 0);
        require(key(K_A) == 1);
        send(EV_KEY, KEY_A, 0);
        settle();
        require(key(K_A) == 0);
        require(keyup(K_A) == 1);
        require(keyup(K_A) == 0);
        require(keydown(K_A) == 0);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, KeysAreToldByCodeAsWell) {
    const ChildResult result = in_child([] {
        eventinit();
        send(EV_KEY, 254, 1);
        send(EV_KEY, 254, 0);
        send(EV_KEY, 255, 1);
        settle();
        require(keydown(static_cast<unsigned char>(254)) == 1 && keyup(static_cast<unsigned char>(254)) == 1);
        require(key(static_cast<unsigned char>(255)) == 1);
        require(key(K_B) == 0 && keydown(K_B) == 0 && keyup(K_B) == 0);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, CodesBeyondTheTableAreDropped) {
    const ChildResult result = in_child([] {
        eventinit();
        send(EV_KEY, KEY_MAX, 1);
        send(EV_KEY, KEY_CNT, 1);
        send(EV_KEY, 0xFFFF, 1);
        send(EV_KEY, 0xFFFF, 0);
        settle();
        require(key(static_cast<keymap>(255)) == 0);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, AnUnknownKeyValueIsIgnored) {
    const ChildResult result = in_child([] {
        eventinit();
        send(EV_KEY, KEY_A, 3);
        settle();
        require(key(K_A) == 0 && keydown(K_A) == 0 && keyup(K_A) == 0);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, WhileDisabledAPressIsNotRecordedButItsReleaseIs) {
    const ChildResult result = in_child([] {
        eventinit();
        eventdisable();
        send(EV_KEY, KEY_A, 1);
        settle();
        require(key(K_A) == 0 && keydown(K_A) == 0);
        send(EV_KEY, KEY_A, 0);
        settle();
        require(keyup(K_A) == 1);
        eventenable();
        send(EV_KEY, KEY_A, 1);
        settle();
        require(keydown(K_A) == 1);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, AKeyReleasedWhileDisabledIsUp) {
    const ChildResult result = in_child([] {
        eventinit();
        send(EV_KEY, KEY_A, 1);
        settle();
        require(key(K_A) == 1);
        eventdisable();
        send(EV_KEY, KEY_A, 0);
        settle();
        require(key(K_A) == 0);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, PressesAndRepeatsDropTypedInputAndReleasesDoNot) {
    const ChildResult result = in_child([] {
        eventinit();
        const auto flushes = [] { return __atomic_load_n(&input_flushes, __ATOMIC_SEQ_CST); };
        const int before = flushes();
        send(EV_KEY, KEY_A, 1);
        settle();
        require(flushes() == before + 1);
        send(EV_KEY, KEY_A, 2);
        settle();
        require(flushes() == before + 2);
        send(EV_KEY, KEY_A, 0);
        settle();
        require(flushes() == before + 2);
        eventdisable();
        const int disabled = flushes();
        send(EV_KEY, KEY_A, 1);
        send(EV_KEY, KEY_A, 2);
        settle();
        require(flushes() == disabled);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, MouseButtonsStayOneAfterTheirFirstPress) {
    const ChildResult result = in_child([] {
        eventinit();
        require(evmlbutton == 0 && evmrbutton == 0 && evmmbutton == 0);
        send(EV_KEY, 272, 1);
        settle();
        require(evmlbutton == 1 && evmrbutton == 0 && evmmbutton == 0);
        send(EV_KEY, 273, 1);
        settle();
        require(evmrbutton == 1 && evmmbutton == 0);
        eventdisable();
        send(EV_KEY, 274, 1);
        send(EV_KEY, 272, 0);
        settle();
        require(evmlbutton == 1 && evmrbutton == 1 && evmmbutton == 1);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, SumsUpTheMotion) {
    const ChildResult result = in_child([] {
        eventinit();
        send(EV_REL, REL_X, 5);
        send(EV_REL, REL_X, -2);
        send(EV_REL, REL_Y, 7);
        send(EV_REL, REL_Z, 100);
        send(EV_REL, REL_WHEEL, -3);
        wait_until([] { return getmousewheel() == -3; });
        settle();
        require(getmousex() == 3 && getmousey() == 7 && getmousewheel() == -2);
        resetmousepos(100, -100);
        require(getmousex() == 100 && getmousey() == -100 && getmousewheel() == -2);
        send(EV_REL, REL_X, 1);
        settle();
        require(getmousex() == 101);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, LampStateFollowsTheDevice) {
    devices[keyboard].types = {EV_KEY, EV_LED};
    devices[keyboard].lamps = 0x82;
    const ChildResult result = in_child([] {
        eventinit();
        unsigned int lamps = 0;
        getled(lamps);
        require(lamps == 0x82);
        for (unsigned int code = 0; code < 5; ++code) {
            send(EV_LED, code, 1);
        }
        settle();
        getled(lamps);
        require(lamps == 0x8F);
        send(EV_LED, 1, 0);
        settle();
        getled(lamps);
        require(lamps == 0x8D);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, AnyValueButZeroLightsALamp) {
    devices[keyboard].types = {EV_LED};
    const ChildResult result = in_child([] {
        eventinit();
        send(EV_LED, 0, 2);
        send(EV_LED, 1, -1);
        settle();
        unsigned int lamps = 0;
        getled(lamps);
        require(lamps == 0x3);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, AnotherStartReplacesTheLampState) {
    devices[keyboard].types = {EV_LED};
    devices[keyboard].lamps = 0x5;
    const ChildResult result = in_child([] {
        eventinit();
        eventclose();
        devices[keyboard].lamps = 0x2;
        eventinit();
        unsigned int lamps = 0;
        getled(lamps);
        require(lamps == 0x2);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, SetLedWritesOneEventForEachLampThatChanges) {
    devices[keyboard].types = {EV_LED};
    devices[keyboard].lamps = 0x2;
    const ChildResult result = in_child([] {
        eventinit();
        setled(0xFFFFFFFD);
        require(written_lamps() == Lamps{{0, 1}, {1, 0}, {2, 1}, {3, 1}});
        setled(0x2);
        require(written_lamps() == Lamps{});
        unsigned int lamps = 0;
        getled(lamps);
        require(lamps == 0x2);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, NegLedTogglesTheGivenLamps) {
    devices[keyboard].types = {EV_LED};
    const ChildResult result = in_child([] {
        eventinit();
        negled(2);
        require(written_lamps() == Lamps{{1, 1}});
        send(EV_LED, 1, 1);
        settle();
        negled(3);
        require(written_lamps() == Lamps{{0, 1}, {1, 0}});
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, TheLastDeviceWithLampsIsTheLampDevice) {
    devices[keyboard].types = {EV_LED};
    devices["/dev/input/event3"].types = {EV_LED};
    devices["/dev/input/event4"].types = {EV_KEY};
    const ChildResult result = in_child([] {
        eventinit();
        setled(4);
        require(written_lamps("/dev/input/event3") == Lamps{{2, 1}});
        require(written_lamps().empty());
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, WithoutLampsNothingIsWritten) {
    const ChildResult result = in_child([this] {
        eventinit();
        setled(15);
        require(written_lamps().empty());
        require(terminal.receive(1, 0).empty());
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, SeveralDevicesAreRead) {
    devices["/dev/event5"].types = {EV_KEY};
    devices["/dev/input/event5"].types = {EV_REL};
    const ChildResult result = in_child([] {
        eventinit();
        send(EV_KEY, KEY_Q, 1, "/dev/event5");
        settle("/dev/event5");
        send(EV_REL, REL_X, 9, "/dev/input/event5");
        settle("/dev/input/event5");
        require(key(K_Q) == 1 && getmousex() == 9);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, TakesMoreEventsThanOneReadBrings) {
    const ChildResult result = in_child([] {
        eventinit();
        std::vector<input_event> many(100, make_event(EV_REL, REL_X, 1));
        send_bytes(keyboard, many.data(), many.size() * sizeof many[0]);
        settle();
        require(getmousex() == 100);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, AFailedPollOrReadIsTriedAgain) {
    const ChildResult result = in_child([] {
        failing_polls = 3;
        failing_reads = 3;
        eventinit();
        send(EV_KEY, KEY_A, 1);
        settle();
        require(key(K_A) == 1 && failing_polls == 0 && failing_reads == 0);
    });
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, TheReaderAsksForTheHighestRealtimePriority) {
    const ChildResult result = in_child([] {
        eventinit();
        settle();
        require(asked_policy == SCHED_FIFO);
        require(asked_priority == sched_get_priority_max(SCHED_FIFO));
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, ReportsASchedulingThatCannotBeAskedFor) {
    const ChildResult result = in_child([] {
        policy_fails = true;
        priority_fails = true;
        devices[keyboard].types = {};
        eventinit();
        settle();
    });
    EXPECT_EQ(result.out, std::string("\n"
                                      "vendor 046d product c31c version 0110 is on a Universal Serial Bus\n"
                                      "The device says its name is Keyboard\n") +
                              hide_cursor +
                              "inputevent:pthread_attr_setschedpolicy failed\n"
                              "inputevent:pthread_attr_setschedparam failed\n" +
                              started + show_cursor);
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, EnablingAndDisablingDropWhatStandardInputHadBuffered) {
    const ChildResult result = in_child([this] {
        for (void (*const change)() : {eventenable, eventdisable}) {
            terminal.send("old\n");
            require(std::getchar() == 'o');
            change();
            terminal.send("new\n");
            require(std::getchar() == 'n');
            __fpurge(stdin);
        }
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, ADeviceThatVanishesLeavesTheOthersRunning) {
    devices["/dev/input/event1"].types = {EV_KEY};
    const ChildResult result = in_child([] {
        eventinit();
        settle();
        close(devices[keyboard].sockets[1]);
        send(EV_KEY, KEY_Q, 1, "/dev/input/event1");
        settle("/dev/input/event1");
        require(key(K_Q) == 1);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, ADeviceInTroubleForOnceIsPassedOverForThatTurnOnly) {
    for (const short trouble : std::initializer_list<short>{POLLERR, POLLPRI}) {
        const ChildResult result = in_child([trouble] {
            played_revents = trouble;
            eventinit();
            send(EV_KEY, KEY_A, 1);
            settle();
            require(played_revents == 0 && key(K_A) == 1);
        });
        EXPECT_EQ(result.status, 7) << result.err;
    }
}

TEST_F(InputEvent, ADeviceThatHungUpIsLeftOutForGood) {
    for (const short trouble : std::initializer_list<short>{POLLHUP, POLLNVAL}) {
        devices["/dev/input/event1"].types = {EV_KEY};
        const ChildResult result = in_child([trouble] {
            played_revents = trouble;
            eventinit();
            send(EV_KEY, KEY_A, 1);
            wait_until([] { return played_revents == 0; });
            settle("/dev/input/event1");
            require(keydown(K_A) == 0);
        });
        EXPECT_EQ(result.status, 7) << result.err;
    }
}

TEST_F(InputEvent, TheLastEventsOfADeviceThatIsGoneAreNotTaken) {
    devices["/dev/input/event1"].types = {EV_KEY};
    const ChildResult result = in_child([] {
        failing_polls = 1000000000;  // the reader sees nothing before the device is gone
        eventinit();
        send(EV_KEY, KEY_A, 1);
        close(devices[keyboard].sockets[1]);
        failing_polls = 0;
        settle("/dev/input/event1");
        require(key(K_A) == 0 && keydown(K_A) == 0);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, SynAndMiscEventsAreIgnoredAndOthersReported) {
    const ChildResult result = in_child([] {
        eventinit();
        settle();
        std::fflush(stdout);
        require(ftruncate(STDOUT_FILENO, 0) == 0 && lseek(STDOUT_FILENO, 0, SEEK_SET) == 0);
        send(EV_SYN, 0, 0);
        send(EV_MSC, 4, 30);
        send(EV_ABS, 0, 1);
        send(EV_SW, 0, 1);
        settle();
    });
    EXPECT_EQ(
        result.out,
        std::string("inputevent: Unknown Event Type 3\ninputevent: Unknown Event Type 5\n") + show_cursor);
}

TEST_F(InputEvent, TracesEveryEvent) {
    const ChildResult result = in_child([] {
        eventinit();
        settle();
        std::fflush(stdout);
        require(ftruncate(STDOUT_FILENO, 0) == 0 && lseek(STDOUT_FILENO, 0, SEEK_SET) == 0);
        eventdebugmode(1);
        send(EV_KEY, KEY_A, 1);
        send(EV_MSC, 4, -1000);
        wait_until([] { return lseek(STDOUT_FILENO, 0, SEEK_CUR) >= 70; });
        eventdebugmode(0xFFFFFFFE);
        settle();
    });
    EXPECT_EQ(result.out, std::string("\033[1;35mcode= 30 value=  1 type=  1 \n"
                                      "\033[1;35mcode=  4 value=-1000 type=  4 \n") +
                              show_cursor);
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, ClosingSwitchesLampsOffClosesDevicesAndRestoresTheTerminal) {
    devices[keyboard].types = {EV_LED};
    devices[keyboard].lamps = 0x5;
    const ChildResult result = in_child([this] {
        eventinit();
        settle();
        eventclose();
        require(written_lamps() == Lamps{{0, 0}, {2, 0}});
        require(fcntl(devices[keyboard].sockets[0], F_GETFD) == -1);
        require((terminal.attributes().c_lflag & ECHO) != 0);
        // A second close leaves a descriptor alone that has the same number since.
        require(dup2(STDIN_FILENO, devices[keyboard].sockets[0]) >= 0);
        devices[keyboard].sockets[0] = -1;
        eventclose();
    });
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, ClosesEveryDeviceThenPausesThenRestoresTheTerminalThenEndsTheReader) {
    devices["/dev/input/event3"].types = {EV_KEY};
    const ChildResult result = in_child([this] {
        std::vector<std::string> steps;
        const auto note = [&](const std::string& step) {
            const bool closed = fcntl(devices[keyboard].sockets[0], F_GETFD) == -1 &&
                                fcntl(devices["/dev/input/event3"].sockets[0], F_GETFD) == -1;
            const bool echoes = (terminal.attributes().c_lflag & ECHO) != 0;
            steps.push_back(step + (closed ? ", closed" : "") + (echoes ? ", echo" : ""));
        };
        eventinit();
        settle();
        before_pause = [&](useconds_t us) {
            if (us == 10000) {  // and not the short ones for a reader that is busy
                note("pause");
            }
        };
        before_cancel = [&] { note("cancel"); };
        eventclose();
        before_pause = nullptr;
        before_cancel = nullptr;
        require(steps == std::vector<std::string>{"pause, closed", "cancel, closed, echo"});
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, ATimerMayBeSetUpAfterTheReaderHasStarted) {
    const ChildResult result = in_child([] {
        eventinit();
        timer tick;
        tick.init_realtime_timer(5);
        tick.set_interval(1000);
        tick.start();
        for (int ticks = 0; ticks < 20;) {
            // Nobody waits for this tick: a thread that does not block it would get it.
            sigset_t pending;
            sigemptyset(&pending);
            while (sigismember(&pending, SIGRTMAX - 5) == 0) {
                sigpending(&pending);
            }
            ticks += tick.wait_signal() > 0 ? 1 : 0;
        }
    });
    EXPECT_EQ(result.status, 7);
}

TEST_F(InputEvent, StartsTheReaderBeforeItTakesTheSignals) {
    const ChildResult result = in_child([] {
        int without_handler = 0;
        before_create = [&] {
            for (const int number : {SIGINT, SIGHUP, SIGTERM}) {
                struct sigaction action = {};
                sigaction(number, nullptr, &action);
                without_handler += action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN ? 1 : 0;
            }
        };
        eventinit();
        require(without_handler == 3);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, ClosingEndsTheReader) {
    const ChildResult result = in_child([] {
        eventinit();
        settle();
        const int kept = dup(devices[keyboard].sockets[0]);
        eventclose();
        const input_event event = make_event(EV_KEY, KEY_A, 1);
        send_bytes(keyboard, &event, sizeof event);
        pollfd waiting = {kept, POLLIN, 0};
        require(poll(&waiting, 1, 10000) == 1);
        require(key(K_A) == 0);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, AReaderThatCannotBeCancelledIsReported) {
    const ChildResult result = in_child([] {
        eventinit();
        settle();
        cancel_result = ESRCH;
        eventclose();
        cancel_result = 0;
    });
    EXPECT_EQ(result.err, "pthread_cancel: No such process\n");
}

TEST_F(InputEvent, CanBeStartedAgainAfterClosing) {
    const ChildResult result = in_child([] {
        eventinit();
        settle();
        eventclose();
        eventinit();
        settle();
        send(EV_KEY, KEY_A, 1);
        settle();
        require(keydown(K_A) == 1);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

TEST_F(InputEvent, EndsTheProcessWhenNothingCanRunAtExit) {
    const ChildResult result = in_child([] {
        atexit_fails = true;
        eventinit();
    });
    EXPECT_EQ(result.err, "inputevent atexit: cannot set exit function\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(InputEvent, ExitPutsTheTerminalInOrder) {
    const ChildResult result = in_child([] {
        eventinit();
        settle();
    });
    EXPECT_EQ(result.out.substr(result.out.size() - 6), show_cursor);
    EXPECT_NE(terminal.attributes().c_lflag & ECHO, 0U);
}

struct SignalRow {
    int number;
    const char* text;
};

class InputEventSignal : public InputEvent, public ::testing::WithParamInterface<SignalRow> {};

TEST_P(InputEventSignal, LeavesTheProgramInOrder) {
    const ChildResult result = in_child([] {
        eventinit();
        settle();
        register_signal_exit([] { std::puts("own exit function"); });
        std::fflush(stdout);
        require(ftruncate(STDOUT_FILENO, 0) == 0 && lseek(STDOUT_FILENO, 0, SEEK_SET) == 0);
        std::raise(GetParam().number);
    });
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, std::string("\n\n********************************************\n") +
                              GetParam().text +
                              ", we will leave the program now  "
                              "\n********************************************\n" +
                              show_cursor + "own exit function\n" + show_cursor);
    EXPECT_NE(terminal.attributes().c_lflag & ECHO, 0U);
}

TEST_P(InputEventSignal, CallsTheHandlerThatStoodBefore) {
    const ChildResult result = in_child([] {
        std::signal(GetParam().number, [](int number) { std::printf("previous handler %d\n", number); });
        eventinit();
        settle();
        std::raise(GetParam().number);
    });
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("previous handler " + std::to_string(GetParam().number) + "\n"),
              std::string::npos);
}

TEST_P(InputEventSignal, CallsTheExitFunctionBeforeTheHandlerThatStoodBefore) {
    const ChildResult result = in_child([] {
        std::signal(GetParam().number, [](int) { std::puts("previous handler"); });
        eventinit();
        settle();
        register_signal_exit([] { std::puts("own exit function"); });
        std::raise(GetParam().number);
    });
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("own exit function\nprevious handler\n"), std::string::npos);
}

TEST_P(InputEventSignal, CallsAHandlerWithThreeArgumentsThatStoodBefore) {
    const ChildResult result = in_child([] {
        struct sigaction action = {};
        action.sa_flags = SA_SIGINFO;
        action.sa_sigaction = [](int number, siginfo_t*, void*) {
            std::printf("previous handler %d\n", number);
        };
        sigaction(GetParam().number, &action, nullptr);
        eventinit();
        settle();
        std::raise(GetParam().number);
    });
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("previous handler " + std::to_string(GetParam().number) + "\n"),
              std::string::npos);
}

TEST_P(InputEventSignal, AnIgnoredSignalEndsTheProgramAsWell) {
    const ChildResult result = in_child([] {
        std::signal(GetParam().number, SIG_IGN);
        eventinit();
        settle();
        std::raise(GetParam().number);
    });
    EXPECT_EQ(result.status, 0) << result.err;
}

TEST_P(InputEventSignal, AfterAnotherStartCallsTheHandlerThatStoodBeforeOnce) {
    const ChildResult result = in_child([] {
        std::signal(GetParam().number, [](int number) { std::printf("previous handler %d\n", number); });
        eventinit();
        settle();
        eventclose();
        eventinit();
        settle();
        std::fflush(stdout);
        require(ftruncate(STDOUT_FILENO, 0) == 0 && lseek(STDOUT_FILENO, 0, SEEK_SET) == 0);
        std::raise(GetParam().number);
    });
    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, std::string("\n\n********************************************\n") +
                              GetParam().text +
                              ", we will leave the program now  "
                              "\n********************************************\n" +
                              show_cursor + "previous handler " + std::to_string(GetParam().number) + "\n" +
                              show_cursor + show_cursor);
}

TEST_P(InputEventSignal, IsHandledOutsideTheReader) {
    const ChildResult result = in_child([] {
        eventinit();
        settle();
        struct sigaction action = {};
        sigaction(GetParam().number, nullptr, &action);
        require(action.sa_flags == 0 || action.sa_flags == 0x04000000);  // SA_RESTORER of the C library
        for (const int number : {SIGINT, SIGHUP, SIGTERM}) {
            require(sigismember(&action.sa_mask, number) == 1);
        }
        // The main thread is busy with the signal blocked for a while; the reader must not take it.
        sigset_t blocked;
        sigemptyset(&blocked);
        sigaddset(&blocked, GetParam().number);
        pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
        kill(getpid(), GetParam().number);
        send(EV_KEY, KEY_A, 1);
        settle();
        require(key(K_A) == 1);
        pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
        pause();
    });
    EXPECT_EQ(result.status, 0) << result.err;
}

INSTANTIATE_TEST_SUITE_P(ExitSignals, InputEventSignal,
                         ::testing::Values(SignalRow{SIGINT, "got SIGINT"}, SignalRow{SIGHUP, "got SIGHUP"},
                                           SignalRow{SIGTERM, "got SIGTERM"}),
                         [](const auto& row) { return std::string(row.param.text).substr(4); });

TEST(KeyMap, HasTheKernelsCodes) {
    struct Row {
        keymap member;
        unsigned int code;
        const char* name;
    };
    constexpr Row rows[] = {
        {K_RESERVED, KEY_RESERVED, "K_RESERVED"},
        {K_ESC, KEY_ESC, "K_ESC"},
        {K_1, KEY_1, "K_1"},
        {K_2, KEY_2, "K_2"},
        {K_3, KEY_3, "K_3"},
        {K_4, KEY_4, "K_4"},
        {K_5, KEY_5, "K_5"},
        {K_6, KEY_6, "K_6"},
        {K_7, KEY_7, "K_7"},
        {K_8, KEY_8, "K_8"},
        {K_9, KEY_9, "K_9"},
        {K_0, KEY_0, "K_0"},
        {K_MINUS, KEY_MINUS, "K_MINUS"},
        {K_EQUAL, KEY_EQUAL, "K_EQUAL"},
        {K_BACKSPACE, KEY_BACKSPACE, "K_BACKSPACE"},
        {K_TAB, KEY_TAB, "K_TAB"},
        {K_Q, KEY_Q, "K_Q"},
        {K_W, KEY_W, "K_W"},
        {K_E, KEY_E, "K_E"},
        {K_R, KEY_R, "K_R"},
        {K_T, KEY_T, "K_T"},
        {K_Y, KEY_Y, "K_Y"},
        {K_U, KEY_U, "K_U"},
        {K_I, KEY_I, "K_I"},
        {K_O, KEY_O, "K_O"},
        {K_P, KEY_P, "K_P"},
        {K_LEFTBRACE, KEY_LEFTBRACE, "K_LEFTBRACE"},
        {K_RIGHTBRACE, KEY_RIGHTBRACE, "K_RIGHTBRACE"},
        {K_ENTER, KEY_ENTER, "K_ENTER"},
        {K_LEFTCTRL, KEY_LEFTCTRL, "K_LEFTCTRL"},
        {K_A, KEY_A, "K_A"},
        {K_S, KEY_S, "K_S"},
        {K_D, KEY_D, "K_D"},
        {K_F, KEY_F, "K_F"},
        {K_G, KEY_G, "K_G"},
        {K_H, KEY_H, "K_H"},
        {K_J, KEY_J, "K_J"},
        {K_K, KEY_K, "K_K"},
        {K_L, KEY_L, "K_L"},
        {K_SEMICOLON, KEY_SEMICOLON, "K_SEMICOLON"},
        {K_APOSTROPHE, KEY_APOSTROPHE, "K_APOSTROPHE"},
        {K_GRAVE, KEY_GRAVE, "K_GRAVE"},
        {K_LEFTSHIFT, KEY_LEFTSHIFT, "K_LEFTSHIFT"},
        {K_BACKSLASH, KEY_BACKSLASH, "K_BACKSLASH"},
        {K_Z, KEY_Z, "K_Z"},
        {K_X, KEY_X, "K_X"},
        {K_C, KEY_C, "K_C"},
        {K_V, KEY_V, "K_V"},
        {K_B, KEY_B, "K_B"},
        {K_N, KEY_N, "K_N"},
        {K_M, KEY_M, "K_M"},
        {K_COMMA, KEY_COMMA, "K_COMMA"},
        {K_DOT, KEY_DOT, "K_DOT"},
        {K_SLASH, KEY_SLASH, "K_SLASH"},
        {K_RIGHTSHIFT, KEY_RIGHTSHIFT, "K_RIGHTSHIFT"},
        {K_KPASTERISK, KEY_KPASTERISK, "K_KPASTERISK"},
        {K_LEFTALT, KEY_LEFTALT, "K_LEFTALT"},
        {K_SPACE, KEY_SPACE, "K_SPACE"},
        {K_CAPSLOCK, KEY_CAPSLOCK, "K_CAPSLOCK"},
        {K_F1, KEY_F1, "K_F1"},
        {K_F2, KEY_F2, "K_F2"},
        {K_F3, KEY_F3, "K_F3"},
        {K_F4, KEY_F4, "K_F4"},
        {K_F5, KEY_F5, "K_F5"},
        {K_F6, KEY_F6, "K_F6"},
        {K_F7, KEY_F7, "K_F7"},
        {K_F8, KEY_F8, "K_F8"},
        {K_F9, KEY_F9, "K_F9"},
        {K_F10, KEY_F10, "K_F10"},
        {K_NUMLOCK, KEY_NUMLOCK, "K_NUMLOCK"},
        {K_SCROLLLOCK, KEY_SCROLLLOCK, "K_SCROLLLOCK"},
        {K_KP7, KEY_KP7, "K_KP7"},
        {K_KP8, KEY_KP8, "K_KP8"},
        {K_KP9, KEY_KP9, "K_KP9"},
        {K_KPMINUS, KEY_KPMINUS, "K_KPMINUS"},
        {K_KP4, KEY_KP4, "K_KP4"},
        {K_KP5, KEY_KP5, "K_KP5"},
        {K_KP6, KEY_KP6, "K_KP6"},
        {K_KPPLUS, KEY_KPPLUS, "K_KPPLUS"},
        {K_KP1, KEY_KP1, "K_KP1"},
        {K_KP2, KEY_KP2, "K_KP2"},
        {K_KP3, KEY_KP3, "K_KP3"},
        {K_KP0, KEY_KP0, "K_KP0"},
        {K_KPDOT, KEY_KPDOT, "K_KPDOT"},
        {K_ZENKAKUHANKAKU, KEY_ZENKAKUHANKAKU, "K_ZENKAKUHANKAKU"},
        {K_ND, KEY_102ND, "K_ND"},
        {K_F11, KEY_F11, "K_F11"},
        {K_F12, KEY_F12, "K_F12"},
        {K_RO, KEY_RO, "K_RO"},
        {K_KATAKANA, KEY_KATAKANA, "K_KATAKANA"},
        {K_HIRAGANA, KEY_HIRAGANA, "K_HIRAGANA"},
        {K_HENKAN, KEY_HENKAN, "K_HENKAN"},
        {K_KATAKANAHIRAGANA, KEY_KATAKANAHIRAGANA, "K_KATAKANAHIRAGANA"},
        {K_MUHENKAN, KEY_MUHENKAN, "K_MUHENKAN"},
        {K_KPJPCOMMA, KEY_KPJPCOMMA, "K_KPJPCOMMA"},
        {K_KPENTER, KEY_KPENTER, "K_KPENTER"},
        {K_RIGHTCTRL, KEY_RIGHTCTRL, "K_RIGHTCTRL"},
        {K_KPSLASH, KEY_KPSLASH, "K_KPSLASH"},
        {K_SYSRQ, KEY_SYSRQ, "K_SYSRQ"},
        {K_RIGHTALT, KEY_RIGHTALT, "K_RIGHTALT"},
        {K_LINEFEED, KEY_LINEFEED, "K_LINEFEED"},
        {K_HOME, KEY_HOME, "K_HOME"},
        {K_UP, KEY_UP, "K_UP"},
        {K_PAGEUP, KEY_PAGEUP, "K_PAGEUP"},
        {K_LEFT, KEY_LEFT, "K_LEFT"},
        {K_RIGHT, KEY_RIGHT, "K_RIGHT"},
        {K_END, KEY_END, "K_END"},
        {K_DOWN, KEY_DOWN, "K_DOWN"},
        {K_PAGEDOWN, KEY_PAGEDOWN, "K_PAGEDOWN"},
        {K_INSERT, KEY_INSERT, "K_INSERT"},
        {K_DELETE, KEY_DELETE, "K_DELETE"},
        {K_MACRO, KEY_MACRO, "K_MACRO"},
        {K_MUTE, KEY_MUTE, "K_MUTE"},
        {K_VOLUMEDOWN, KEY_VOLUMEDOWN, "K_VOLUMEDOWN"},
        {K_VOLUMEUP, KEY_VOLUMEUP, "K_VOLUMEUP"},
        {K_POWER, KEY_POWER, "K_POWER"},
        {K_KPEQUAL, KEY_KPEQUAL, "K_KPEQUAL"},
        {K_KPPLUSMINUS, KEY_KPPLUSMINUS, "K_KPPLUSMINUS"},
        {K_PAUSE, KEY_PAUSE, "K_PAUSE"},
        {K_KPCOMMA, KEY_KPCOMMA, "K_KPCOMMA"},
        {K_HANGEUL, KEY_HANGEUL, "K_HANGEUL"},
        {K_HANJA, KEY_HANJA, "K_HANJA"},
        {K_YEN, KEY_YEN, "K_YEN"},
        {K_LEFTMETA, KEY_LEFTMETA, "K_LEFTMETA"},
        {K_RIGHTMETA, KEY_RIGHTMETA, "K_RIGHTMETA"},
        {K_COMPOSE, KEY_COMPOSE, "K_COMPOSE"},
        {K_STOP, KEY_STOP, "K_STOP"},
        {K_AGAIN, KEY_AGAIN, "K_AGAIN"},
        {K_PROPS, KEY_PROPS, "K_PROPS"},
        {K_UNDO, KEY_UNDO, "K_UNDO"},
        {K_FRONT, KEY_FRONT, "K_FRONT"},
        {K_COPY, KEY_COPY, "K_COPY"},
        {K_OPEN, KEY_OPEN, "K_OPEN"},
        {K_PASTE, KEY_PASTE, "K_PASTE"},
        {K_FIND, KEY_FIND, "K_FIND"},
        {K_CUT, KEY_CUT, "K_CUT"},
        {K_HELP, KEY_HELP, "K_HELP"},
        {K_MENU, KEY_MENU, "K_MENU"},
        {K_CALC, KEY_CALC, "K_CALC"},
        {K_SETUP, KEY_SETUP, "K_SETUP"},
        {K_SLEEP, KEY_SLEEP, "K_SLEEP"},
        {K_WAKEUP, KEY_WAKEUP, "K_WAKEUP"},
        {K_KFILE, KEY_FILE, "K_KFILE"},
        {K_SENDFILE, KEY_SENDFILE, "K_SENDFILE"},
        {K_DELETEFILE, KEY_DELETEFILE, "K_DELETEFILE"},
        {K_XFER, KEY_XFER, "K_XFER"},
        {K_PROG1, KEY_PROG1, "K_PROG1"},
        {K_PROG2, KEY_PROG2, "K_PROG2"},
        {K_WWW, KEY_WWW, "K_WWW"},
        {K_MSDOS, KEY_MSDOS, "K_MSDOS"},
        {K_COFFEE, KEY_COFFEE, "K_COFFEE"},
        {K_DIRECTION, KEY_DIRECTION, "K_DIRECTION"},
        {K_CYCLEWINDOWS, KEY_CYCLEWINDOWS, "K_CYCLEWINDOWS"},
        {K_MAIL, KEY_MAIL, "K_MAIL"},
        {K_BOOKMARKS, KEY_BOOKMARKS, "K_BOOKMARKS"},
        {K_COMPUTER, KEY_COMPUTER, "K_COMPUTER"},
        {K_BACK, KEY_BACK, "K_BACK"},
        {K_FORWARD, KEY_FORWARD, "K_FORWARD"},
        {K_CLOSECD, KEY_CLOSECD, "K_CLOSECD"},
        {K_EJECTCD, KEY_EJECTCD, "K_EJECTCD"},
        {K_EJECTCLOSECD, KEY_EJECTCLOSECD, "K_EJECTCLOSECD"},
        {K_NEXTSONG, KEY_NEXTSONG, "K_NEXTSONG"},
        {K_PLAYPAUSE, KEY_PLAYPAUSE, "K_PLAYPAUSE"},
        {K_PREVIOUSSONG, KEY_PREVIOUSSONG, "K_PREVIOUSSONG"},
        {K_STOPCD, KEY_STOPCD, "K_STOPCD"},
        {K_RECORD, KEY_RECORD, "K_RECORD"},
        {K_REWIND, KEY_REWIND, "K_REWIND"},
        {K_PHONE, KEY_PHONE, "K_PHONE"},
        {K_ISO, KEY_ISO, "K_ISO"},
        {K_CONFIG, KEY_CONFIG, "K_CONFIG"},
        {K_HOMEPAGE, KEY_HOMEPAGE, "K_HOMEPAGE"},
        {K_REFRESH, KEY_REFRESH, "K_REFRESH"},
        {K_EXIT, KEY_EXIT, "K_EXIT"},
        {K_MOVE, KEY_MOVE, "K_MOVE"},
        {K_EDIT, KEY_EDIT, "K_EDIT"},
        {K_SCROLLUP, KEY_SCROLLUP, "K_SCROLLUP"},
        {K_SCROLLDOWN, KEY_SCROLLDOWN, "K_SCROLLDOWN"},
        {K_KPLEFTPAREN, KEY_KPLEFTPAREN, "K_KPLEFTPAREN"},
        {K_KPRIGHTPAREN, KEY_KPRIGHTPAREN, "K_KPRIGHTPAREN"},
        {K_NEW, KEY_NEW, "K_NEW"},
        {K_REDO, KEY_REDO, "K_REDO"},
        {K_F13, KEY_F13, "K_F13"},
        {K_F14, KEY_F14, "K_F14"},
        {K_F15, KEY_F15, "K_F15"},
        {K_F16, KEY_F16, "K_F16"},
        {K_F17, KEY_F17, "K_F17"},
        {K_F18, KEY_F18, "K_F18"},
        {K_F19, KEY_F19, "K_F19"},
        {K_F20, KEY_F20, "K_F20"},
        {K_F21, KEY_F21, "K_F21"},
        {K_F22, KEY_F22, "K_F22"},
        {K_F23, KEY_F23, "K_F23"},
        {K_F24, KEY_F24, "K_F24"},
        {K_PLAYCD, KEY_PLAYCD, "K_PLAYCD"},
        {K_PAUSECD, KEY_PAUSECD, "K_PAUSECD"},
        {K_PROG3, KEY_PROG3, "K_PROG3"},
        {K_PROG4, KEY_PROG4, "K_PROG4"},
        {K_SUSPEND, KEY_SUSPEND, "K_SUSPEND"},
        {K_CLOSE, KEY_CLOSE, "K_CLOSE"},
        {K_PLAY, KEY_PLAY, "K_PLAY"},
        {K_FASTFORWARD, KEY_FASTFORWARD, "K_FASTFORWARD"},
        {K_BASSBOOST, KEY_BASSBOOST, "K_BASSBOOST"},
        {K_PRINT, KEY_PRINT, "K_PRINT"},
        {K_HP, KEY_HP, "K_HP"},
        {K_CAMERA, KEY_CAMERA, "K_CAMERA"},
        {K_SOUND, KEY_SOUND, "K_SOUND"},
        {K_QUESTION, KEY_QUESTION, "K_QUESTION"},
        {K_EMAIL, KEY_EMAIL, "K_EMAIL"},
        {K_CHAT, KEY_CHAT, "K_CHAT"},
        {K_SEARCH, KEY_SEARCH, "K_SEARCH"},
        {K_CONNECT, KEY_CONNECT, "K_CONNECT"},
        {K_FINANCE, KEY_FINANCE, "K_FINANCE"},
        {K_SPORT, KEY_SPORT, "K_SPORT"},
        {K_SHOP, KEY_SHOP, "K_SHOP"},
        {K_ALTERASE, KEY_ALTERASE, "K_ALTERASE"},
        {K_CANCEL, KEY_CANCEL, "K_CANCEL"},
        {K_BRIGHTNESSDOWN, KEY_BRIGHTNESSDOWN, "K_BRIGHTNESSDOWN"},
        {K_BRIGHTNESSUP, KEY_BRIGHTNESSUP, "K_BRIGHTNESSUP"},
        {K_MEDIA, KEY_MEDIA, "K_MEDIA"},
        {K_SWITCHVIDEOMODE, KEY_SWITCHVIDEOMODE, "K_SWITCHVIDEOMODE"},
        {K_KBDILLUMTOGGLE, KEY_KBDILLUMTOGGLE, "K_KBDILLUMTOGGLE"},
        {K_KBDILLUMDOWN, KEY_KBDILLUMDOWN, "K_KBDILLUMDOWN"},
        {K_KBDILLUMUP, KEY_KBDILLUMUP, "K_KBDILLUMUP"},
        {K_SEND, KEY_SEND, "K_SEND"},
        {K_REPLY, KEY_REPLY, "K_REPLY"},
        {K_FORWARDMAIL, KEY_FORWARDMAIL, "K_FORWARDMAIL"},
        {K_SAVE, KEY_SAVE, "K_SAVE"},
        {K_DOCUMENTS, KEY_DOCUMENTS, "K_DOCUMENTS"},
        {K_BATTERY, KEY_BATTERY, "K_BATTERY"},
        {K_BLUETOOTH, KEY_BLUETOOTH, "K_BLUETOOTH"},
        {K_WLAN, KEY_WLAN, "K_WLAN"},
        {K_UNKNOWN, KEY_UNKNOWN, "K_UNKNOWN"},
    };
    EXPECT_EQ(std::size(rows), 232U);
    for (const Row& row : rows) {
        EXPECT_EQ(static_cast<unsigned int>(row.member), row.code) << row.name;
    }
}
