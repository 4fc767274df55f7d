#include "nodevik/inputevent.h"

#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <pthread.h>
#include <stdio_ext.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

#include "nodevik/util/vt100.h"

std::atomic<int> evmlbutton{0};
std::atomic<int> evmrbutton{0};
std::atomic<int> evmmbutton{0};

namespace {

constexpr std::memory_order relaxed = std::memory_order_relaxed;

constexpr std::size_t device_limit = 20;
constexpr std::size_t events_per_read = 16;
static_assert(sizeof(input_event) == 24);

constexpr std::array<const char*, 12> device_paths = {
    "/dev/event0",       "/dev/event1",       "/dev/event2",       "/dev/event3",
    "/dev/event4",       "/dev/event5",       "/dev/input/event0", "/dev/input/event1",
    "/dev/input/event2", "/dev/input/event3", "/dev/input/event4", "/dev/input/event5",
};

struct Capability {
    unsigned int event_type;
    std::uint32_t flag;
    const char* text;
};

// In the order of the printout.
constexpr std::array<Capability, 12> capabilities = {{
    {EV_SYN, 0x010, "SYN events available %s\n"},
    {EV_SND, 0x020, "SOUND events available %s\n"},
    {EV_MSC, 0x040, "MISC events available %s\n"},
    {EV_SW, 0x080, "SW events available %s\n"},
    {EV_REP, 0x100, "Repeat events available %s\n"},
    {EV_FF, 0x200, "ForceFeedback events available %s\n"},
    {EV_PWR, 0x400, "PWR events available %s\n"},
    {EV_FF_STATUS, 0x800, "ForceFeedback status events available %s\n"},
    {EV_LED, 0x004, "LED events available %s\n"},
    {EV_KEY, 0x001, "Keyboard/Button events available %s\n"},
    {EV_REL, 0x002, "Mouse events available %s\n"},
    {EV_ABS, 0x008, "Joystick events available %s\n"},
}};
constexpr std::uint32_t has_lamps = 0x004;

struct Bus {
    std::uint16_t type;
    const char* text;
};

constexpr std::array<Bus, 13> buses = {{
    {1, " is on a PCI bus"},
    {2, " is on a ISAPNP Bus"},
    {3, " is on a Universal Serial Bus"},
    {4, " is on a HIL Bus"},
    {5, " is on a BLUETOOTH Bus"},
    {16, " is on a ISA Bus"},
    {17, " is on a I8042 Bus"},
    {18, " is on a XTKBD Bus"},
    {19, " is on a RS232 Serial Bus"},
    {20, " is on a Gameport Bus"},
    {24, " is on a I2C Bus"},
    {25, " is on a HOST Bus"},
    {26, " is on a GSC Bus"},
}};

// Bits of a key's state.
constexpr std::uint8_t is_down = 1;
constexpr std::uint8_t was_pressed = 2;   // and keydown() has not told yet
constexpr std::uint8_t was_released = 4;  // and keyup() has not told yet

constexpr int released = 0;
constexpr int pressed = 1;
constexpr int repeated = 2;

constexpr unsigned int lamp_count = 4;
constexpr unsigned int trace_events = 1;

struct Device {
    int descriptor = 0;  // 0: none, or closed again
    std::uint32_t capabilities = 0;
};

std::array<pollfd, device_limit> poll_table{};
std::array<Device, device_limit> devices{};
std::size_t device_count = 0;
int lamp_descriptor = 0;  // 0: no device has lamps

std::array<std::atomic<std::uint8_t>, KEY_CNT> keystate{};
std::atomic<int> evmousex{0};
std::atomic<int> evmousey{0};
std::atomic<int> evmwheel{0};
std::atomic<unsigned int> ledstates{0};
std::atomic<unsigned int> eventdebug{0};
std::atomic<int> eventsdisabled{0};

termios terminal{};
bool terminal_saved = false;

constexpr std::array<int, 3> exit_signals = {SIGINT, SIGHUP, SIGTERM};
std::array<struct sigaction, exit_signals.size()> saved_actions{};
std::atomic<void (*)()> signal_exit{nullptr};

pthread_t reader{};
bool reader_started = false;  // and not yet cancelled
volatile std::sig_atomic_t in_exit_handler = 0;

// A device is closed only while the reader does not read it: whoever closes sets the one flag and waits for
// the other, the reader sets its own and looks at the first.
std::atomic<bool> closing{false};
std::atomic<bool> reader_serves{false};

constexpr bool bit_set(std::span<const std::uint8_t> bits, unsigned int number) {
    return (bits[number / 8] >> (number % 8) & 1) != 0;
}

// Prints the kinds of events that a device delivers and returns their flags.
std::uint32_t print_capabilities(std::span<const std::uint8_t> event_types, const char* path) {
    std::uint32_t flags = 0;
    for (const Capability& capability : capabilities) {
        if (bit_set(event_types, capability.event_type)) {
            std::printf(capability.text, path);
            flags |= capability.flag;
        }
    }
    return flags;
}

const char* bus_text(std::uint16_t type) {
    for (const Bus& bus : buses) {
        if (bus.type == type) {
            return bus.text;
        }
    }
    return " is on a Unknown Bus";
}

void print_identity(int descriptor) {
    input_id identity = {};
    if (ioctl(descriptor, EVIOCGID, &identity) < 0) {
        std::perror("evdev ioctl");
    } else {
        std::printf("vendor %04hx product %04hx version %04hx", identity.vendor, identity.product,
                    identity.version);
        std::puts(bus_text(identity.bustype));
        char name[256] = "Unknown";
        if (ioctl(descriptor, EVIOCGNAME(sizeof name), name) < 0) {
            std::perror("evdev ioctl");
        } else {
            std::printf("The device says its name is %.255s", name);
        }
    }
    std::puts("");
}

void open_device(const char* path) {
    const int descriptor = open(path, O_RDWR | O_NOCTTY);
    if (descriptor < 0) {
        return;
    }
    std::array<std::uint8_t, 31> event_types{};
    if (ioctl(descriptor, EVIOCGBIT(0, event_types.size()), event_types.data()) < 0) {
        std::perror("evdev ioctl");
        std::printf("dev %s \n", path);
        close(descriptor);
        return;
    }
    std::puts("");
    const std::uint32_t flags = print_capabilities(event_types, path);
    if ((flags & has_lamps) != 0) {
        lamp_descriptor = descriptor;
    }
    poll_table[device_count].fd = descriptor;
    devices[device_count] = {descriptor, flags};
    ++device_count;
    print_identity(descriptor);
}

void open_devices() {
    poll_table.fill({0, POLLIN, 0});
    devices.fill({});
    closing = false;
    device_count = 0;
    lamp_descriptor = 0;
    for (const char* path : device_paths) {
        open_device(path);
    }
}

void read_lamps() {
    if (lamp_descriptor == 0) {
        return;
    }
    std::array<std::uint8_t, 4> lamps{};
    if (ioctl(lamp_descriptor, EVIOCGLED(lamps.size()), lamps.data()) >= 0) {
        ledstates.store(lamps[0], relaxed);
    }
}

void drop_typed_input() {
    tcflush(STDIN_FILENO, TCIFLUSH);
}

void set_button(unsigned int code, int value) {
    switch (code) {
        case BTN_LEFT:
            evmlbutton.store(value, relaxed);
            break;
        case BTN_RIGHT:
            evmrbutton.store(value, relaxed);
            break;
        case BTN_MIDDLE:
            evmmbutton.store(value, relaxed);
            break;
        default:
            break;
    }
}

void take_key(const input_event& event) {
    if (event.code >= keystate.size()) {
        return;
    }
    std::atomic<std::uint8_t>& state = keystate[event.code];
    const bool disabled = eventsdisabled.load(relaxed) != 0;
    switch (event.value) {
        case pressed:
            set_button(event.code, event.value);
            if (!disabled) {
                state.fetch_or(is_down | was_pressed, relaxed);
                drop_typed_input();
            }
            break;
        case released:
            state.fetch_and(static_cast<std::uint8_t>(~is_down), relaxed);
            state.fetch_or(was_released, relaxed);
            break;
        case repeated:
            if (!disabled) {
                drop_typed_input();
            }
            break;
        default:
            break;
    }
}

// Sums up without overflow: the sum wraps.
void add(std::atomic<int>& sum, int value) {
    sum.fetch_add(value, relaxed);
}

void take_motion(const input_event& event) {
    switch (event.code) {
        case REL_X:
            add(evmousex, event.value);
            break;
        case REL_Y:
            add(evmousey, event.value);
            break;
        case REL_WHEEL:
            add(evmwheel, event.value);
            break;
        default:
            break;
    }
}

void take_lamp(const input_event& event) {
    if (event.code >= lamp_count) {
        return;
    }
    const unsigned int bit = 1U << event.code;
    if (event.value != 0) {
        ledstates.fetch_or(bit, relaxed);
    } else {
        ledstates.fetch_and(~bit, relaxed);
    }
}

void take_event(const input_event& event) {
    if ((eventdebug.load(relaxed) & trace_events) != 0) {
        VT100::set_fg_color(5);
        std::printf("code=%3i ", event.code);
        std::printf("value=%3i ", event.value);
        std::printf("type=%3i \n", event.type);
        std::fflush(stdout);
    }
    switch (event.type) {
        case EV_SYN:
        case EV_MSC:
            break;
        case EV_KEY:
            take_key(event);
            break;
        case EV_REL:
            take_motion(event);
            break;
        case EV_LED:
            take_lamp(event);
            break;
        default:
            std::printf("inputevent: Unknown Event Type %i\n", event.type);
            break;
    }
}

void read_device(int descriptor) {
    std::array<input_event, events_per_read> events{};
    const ssize_t size = read(descriptor, events.data(), sizeof events);
    if (size < 0) {
        return;
    }
    const std::size_t whole_events = static_cast<std::size_t>(size) / sizeof(input_event);
    for (const input_event& event : std::span(events).first(whole_events)) {
        take_event(event);
    }
}

// Stays a function of its own, so that the frame in which the reader is cancelled holds no variables:
// AddressSanitizer does not see that frame end.
[[gnu::noinline]] void serve_ready_devices() {
    for (pollfd& entry : std::span(poll_table).first(device_count)) {
        if (entry.revents == POLLIN) {
            entry.revents = 0;
            read_device(entry.fd);
        } else if ((entry.revents & (POLLHUP | POLLNVAL)) != 0) {
            entry.fd = -1;  // the device is gone; poll would return for it at once, for ever
        }
    }
}

// The reader is cancelled in poll alone: never between the events of one read, nor while it prints.
void* read_events(void*) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    std::puts("inputevent: Thread started");
    for (;;) {
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        const int ready = poll(poll_table.data(), device_count, -1);
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        if (ready > 0) {
            reader_serves = true;
            if (!closing) {
                serve_ready_devices();
            }
            reader_serves = false;
        }
    }
    return nullptr;
}

sigset_t exit_signal_set() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : exit_signals) {
        sigaddset(&set, signal);
    }
    return set;
}

// The reader runs with the exit signals blocked: their handler cancels it, which it could not survive to the
// end itself.
void start_reader() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (pthread_attr_setschedpolicy(&attributes, SCHED_FIFO) != 0) {
        std::puts("inputevent:pthread_attr_setschedpolicy failed");
    }
    sched_param parameters = {};
    parameters.sched_priority = sched_get_priority_max(SCHED_FIFO);
    if (pthread_attr_setschedparam(&attributes, &parameters) != 0) {
        std::puts("inputevent:pthread_attr_setschedparam failed");
    }
    // Every signal: a timer's, delivered to the reader, would end the process.
    sigset_t blocked;
    sigfillset(&blocked);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    reader_started = pthread_create(&reader, &attributes, read_events, nullptr) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
}

void call_saved_handler(int signal) {
    for (std::size_t i = 0; i < exit_signals.size(); ++i) {
        const struct sigaction& saved = saved_actions[i];
        if (exit_signals[i] != signal || saved.sa_handler == SIG_DFL || saved.sa_handler == SIG_IGN) {
            continue;
        }
        if ((saved.sa_flags & SA_SIGINFO) != 0) {
            saved.sa_sigaction(signal, nullptr, nullptr);
        } else {
            saved.sa_handler(signal);
        }
    }
}

// A console program that is told to go leaves the terminal in order and says so. Beyond what signal-safety(7)
// allows in a handler, this prints through stdio (puts, printf, fpurge), cancels the reader, calls the
// functions of others and ends with exit(3) instead of _exit(2), so that the functions of atexit(3) run.
void evsighandler(int signal) {
    in_exit_handler = 1;
    std::puts("\n\n********************************************");
    switch (signal) {
        case SIGTERM:
            std::printf("got SIGTERM");
            break;
        case SIGHUP:
            std::printf("got SIGHUP");
            break;
        case SIGINT:
            std::printf("got SIGINT");
            break;
        default:
            break;
    }
    std::printf(", we will leave the program now  ");
    std::puts("\n********************************************");
    eventclose();
    if (void (*const function)() = signal_exit.load(relaxed)) {
        function();
    }
    call_saved_handler(signal);
    std::exit(0);
}

// Another start finds this handler installed: what stood before the first one stays saved, for the handler
// would call itself for ever.
void take_over_signals() {
    struct sigaction action = {};
    action.sa_handler = evsighandler;
    action.sa_mask = exit_signal_set();
    action.sa_flags = 0;
    for (std::size_t i = 0; i < exit_signals.size(); ++i) {
        struct sigaction previous = {};
        sigaction(exit_signals[i], &action, &previous);
        if (previous.sa_handler != evsighandler) {
            saved_actions[i] = previous;
        }
    }
}

// Serving takes microseconds. The limit is for a handler that interrupted a thread which the reader waits
// for.
void keep_reader_off() {
    closing = true;
    for (int i = 0; i < 100 && reader_serves; ++i) {
        usleep(1000);
    }
}

// Waits for the reader's end, but not in the exit handler: it may have interrupted what the reader waits for.
void end_reader() {
    if (!reader_started) {
        return;
    }
    reader_started = false;
    const int result = pthread_cancel(reader);
    if (result != 0) {
        errno = result;
        std::perror("pthread_cancel");
        pthread_detach(reader);
    } else if (in_exit_handler != 0) {
        pthread_detach(reader);
    } else {
        pthread_join(reader, nullptr);
    }
}

int state_of(unsigned int code, std::uint8_t bit) {
    return code < keystate.size() && (keystate[code].load(relaxed) & bit) != 0 ? 1 : 0;
}

// Reports a bit once.
int take_state(unsigned int code, std::uint8_t bit) {
    return code < keystate.size() &&
                   (keystate[code].fetch_and(static_cast<std::uint8_t>(~bit), relaxed) & bit) != 0
               ? 1
               : 0;
}

void write_lamp(unsigned int number, bool on) {
    input_event event = {};
    event.type = EV_LED;
    event.code = static_cast<std::uint16_t>(number);
    event.value = on ? 1 : 0;
    if (write(lamp_descriptor, &event, sizeof event) < 0) {
        return;  // the lamp stays as it is, and the device reports nothing
    }
}

}  // namespace

void eventinit() {
    open_devices();
    read_lamps();
    eventenable();
    if (std::atexit(eventclose) != 0) {
        std::fputs("inputevent atexit: cannot set exit function\n", stderr);
        std::exit(1);
    }
    start_reader();
    take_over_signals();
}

void eventclose() {
    setled(0);
    keep_reader_off();
    for (Device& device : std::span(devices).first(device_count)) {
        if (device.descriptor != 0) {
            close(device.descriptor);
            device.descriptor = 0;
        }
    }
    lamp_descriptor = 0;
    usleep(10000);
    eventdisable();
    end_reader();
}

void eventenable() {
    terminal_saved = tcgetattr(STDIN_FILENO, &terminal) == 0;
    terminal.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    if (terminal_saved) {
        tcsetattr(STDIN_FILENO, TCSANOW, &terminal);
    }
    drop_typed_input();
    __fpurge(stdin);
    VT100::hidecursor();
    eventsdisabled.store(0, relaxed);
}

void eventdisable() {
    eventsdisabled.store(1, relaxed);
    // Enabling cleared the echo alone; line editing comes back as well, for the shell that takes over the
    // terminal.
    terminal.c_lflag |= ICANON | ECHO;
    if (terminal_saved) {
        tcsetattr(STDIN_FILENO, TCSANOW, &terminal);
    }
    drop_typed_input();
    __fpurge(stdin);
    VT100::showcursor();
}

int key(keymap k) {
    return state_of(k, is_down);
}

int key(unsigned char c) {
    return state_of(c, is_down);
}

int keydown(keymap k) {
    return take_state(k, was_pressed);
}

int keydown(unsigned char c) {
    return take_state(c, was_pressed);
}

int keyup(keymap k) {
    return take_state(k, was_released);
}

int keyup(unsigned char c) {
    return take_state(c, was_released);
}

int getmousex() {
    return evmousex.load(relaxed);
}

int getmousey() {
    return evmousey.load(relaxed);
}

int getmousewheel() {
    return evmwheel.load(relaxed);
}

void resetmousepos(int x, int y) {
    evmousex.store(x, relaxed);
    evmousey.store(y, relaxed);
}

void setled(unsigned int mask) {
    if (lamp_descriptor == 0) {
        return;
    }
    const unsigned int changes = mask ^ ledstates.load(relaxed);
    for (unsigned int number = 0; number < lamp_count; ++number) {
        const unsigned int bit = 1U << number;
        if ((changes & bit) != 0) {
            write_lamp(number, (mask & bit) != 0);
        }
    }
}

void getled(unsigned int& mask) {
    mask = ledstates.load(relaxed);
}

void negled(unsigned int mask) {
    setled(mask ^ ledstates.load(relaxed));
}

void eventdebugmode(unsigned int mode) {
    eventdebug.store(mode, relaxed);
}

void register_signal_exit(void (*f)()) {
    signal_exit.store(f, relaxed);
}
