#include "tests/devices/uinputdevice.h"

#include <fcntl.h>
#include <linux/uinput.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <numeric>

namespace {

void require(bool success, const char* what) {
    if (!success) {
        std::perror(what);
        std::abort();
    }
}

struct CodeRequest {
    int type;
    unsigned long request;
};

constexpr CodeRequest code_requests[] = {
    {EV_KEY, UI_SET_KEYBIT}, {EV_REL, UI_SET_RELBIT}, {EV_ABS, UI_SET_ABSBIT},
    {EV_MSC, UI_SET_MSCBIT}, {EV_LED, UI_SET_LEDBIT}, {EV_SW, UI_SET_SWBIT},
};

void enable(int descriptor, int type, const std::vector<int>& codes) {
    require(ioctl(descriptor, UI_SET_EVBIT, type) == 0, "UI_SET_EVBIT");
    for (const CodeRequest& row : code_requests) {
        for (std::size_t i = 0; row.type == type && i < codes.size(); ++i) {
            require(ioctl(descriptor, row.request, codes[i]) == 0, "UI_SET_...BIT");
        }
    }
}

// The directory of the device in sysfs holds one named event<N>.
std::string event_path(int descriptor) {
    char name[64] = "";
    require(ioctl(descriptor, UI_GET_SYSNAME(sizeof name), name) >= 0, "UI_GET_SYSNAME");
    const std::filesystem::path device = std::filesystem::path("/sys/devices/virtual/input") / name;
    for (const auto& entry : std::filesystem::directory_iterator(device)) {
        const std::string child = entry.path().filename();
        if (child.rfind("event", 0) == 0) {
            return "/dev/input/" + child;
        }
    }
    return "";
}

}  // namespace

UinputDevice::UinputDevice(const UinputAbilities& abilities)
    : descriptor_(open("/dev/uinput", O_RDWR | O_CLOEXEC)) {
    require(descriptor_ >= 0, "/dev/uinput");
    for (const auto& [type, codes] : abilities.events) {
        enable(descriptor_, type, codes);
    }
    uinput_setup setup = {};
    setup.id = abilities.identity;
    std::snprintf(setup.name, sizeof setup.name, "%s", abilities.name.c_str());
    require(ioctl(descriptor_, UI_DEV_SETUP, &setup) == 0, "UI_DEV_SETUP");
    require(ioctl(descriptor_, UI_DEV_CREATE) == 0, "UI_DEV_CREATE");
    path_ = event_path(descriptor_);
}

UinputDevice::~UinputDevice() {
    close(descriptor_);
}

void UinputDevice::put(int type, int code, int value) const {
    input_event event = {};
    event.type = static_cast<std::uint16_t>(type);
    event.code = static_cast<std::uint16_t>(code);
    event.value = value;
    require(write(descriptor_, &event, sizeof event) == sizeof event, "/dev/uinput");
}

void UinputDevice::report(int type, int code, int value) const {
    put(type, code, value);
    end_report();
}

void UinputDevice::end_report() const {
    put(EV_SYN, SYN_REPORT, 0);
}

std::optional<input_event> UinputDevice::next_command(int limit_ms) const {
    pollfd entry = {descriptor_, POLLIN, 0};
    input_event event = {};
    if (poll(&entry, 1, limit_ms) != 1 || read(descriptor_, &event, sizeof event) != sizeof event) {
        return std::nullopt;
    }
    return event;
}

void UinputDevice::unplug() const {
    require(ioctl(descriptor_, UI_DEV_DESTROY) == 0, "UI_DEV_DESTROY");
}

UinputAbilities keyboard_with_lamps() {
    std::vector<int> keys(254);
    std::iota(keys.begin(), keys.end(), 1);
    return {.name = "Test keyboard",
            .identity = {BUS_I8042, 0x0001, 0x0002, 0xab41},
            .events = {{EV_KEY, keys},
                       {EV_MSC, {MSC_SCAN}},
                       {EV_LED, {LED_NUML, LED_CAPSL, LED_SCROLLL, LED_COMPOSE}},
                       {EV_REP, {}}}};
}

UinputAbilities mouse() {
    return {.name = "Test mouse",
            .identity = {BUS_USB, 0x046d, 0xc077, 0x0111},
            .events = {{EV_KEY, {BTN_LEFT, BTN_RIGHT, BTN_MIDDLE}}, {EV_REL, {REL_X, REL_Y, REL_WHEEL}}}};
}
