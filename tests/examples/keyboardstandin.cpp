// A keyboard for a program that is started with this library preloaded: /dev/input/event0 opens as the
// descriptor that KEYBOARD_DESCRIPTOR names and answers what the kernel would; its events come and go through
// that descriptor. No other input device opens.

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/input.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr const char* name = "Stand-in keyboard";
constexpr input_id identity = {BUS_USB, 0x1234, 0x5678, 0x0001};
constexpr unsigned event_types[] = {EV_SYN, EV_KEY, EV_REL, EV_LED};

int keyboard = -1;

template <typename Function>
Function* real(const char* symbol) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
}

bool is_event_path(const std::string& path) {
    return path.rfind("/dev/event", 0) == 0 || path.rfind("/dev/input/event", 0) == 0;
}

int answer(void* target, const void* source, std::size_t size, unsigned long request) {
    const std::size_t room = _IOC_SIZE(request);
    const std::size_t given = size < room ? size : room;
    std::memcpy(target, source, given);
    return static_cast<int>(given);
}

int answer_ioctl(unsigned long request, void* target) {
    switch (_IOC_NR(request)) {
        case _IOC_NR(EVIOCGBIT(0, 0)): {
            std::array<unsigned char, 32> bits{};
            for (const unsigned type : event_types) {
                bits[type / 8] = static_cast<unsigned char>(bits[type / 8] | 1U << type % 8);
            }
            return answer(target, bits.data(), bits.size(), request);
        }
        case _IOC_NR(EVIOCGID):
            return answer(target, &identity, sizeof identity, request);
        case _IOC_NR(EVIOCGNAME(0)):
            return answer(target, name, std::strlen(name) + 1, request);
        case _IOC_NR(EVIOCGLED(0)):
            return answer(target, "", 1, request);
        default:
            errno = ENOTTY;
            return -1;
    }
}

}  // namespace

extern "C" {
int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (!is_event_path(path)) {
        return real<int(const char*, int, ...)>("open")(path, flags, mode);
    }
    const char* descriptor = std::getenv("KEYBOARD_DESCRIPTOR");
    if (descriptor == nullptr || std::strcmp(path, "/dev/input/event0") != 0) {
        errno = ENOENT;
        return -1;
    }
    keyboard = dup(std::atoi(descriptor));
    return keyboard;
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* target = va_arg(arguments, void*);
    va_end(arguments);
    if (descriptor == keyboard && descriptor >= 0) {
        return answer_ioctl(request, target);
    }
    return real<int(int, unsigned long, ...)>("ioctl")(descriptor, request, target);
}
}
