#include "tools/tell.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "nodevik/util/monotonicclock.h"
#include "tools/colour.h"
#include "tools/interrupts.h"

namespace nodevik_tool {

namespace {

constexpr int look_around_ms = 10;                 // at the signals
constexpr std::uint64_t patience_ns = 20'000'000;  // after one, with a reader that does not read

// Waits until something can be written to standard error, after a signal no longer than a moment, all calls together.
bool wait_for_room() {
    static std::uint64_t deadline_ns = no_deadline;
    pollfd entry{STDERR_FILENO, POLLOUT, 0};
    for (;;) {
        const std::uint64_t now = monotonic_ns();
        if (deadline_ns == no_deadline && signal_has_come()) {
            deadline_ns = now + patience_ns;
        }
        const int wait_ms = deadline_ns == no_deadline ? look_around_ms : now < deadline_ns ? 1 : 0;
        if (poll(&entry, 1, wait_ms) != 0) {
            return true;
        }
        if (wait_ms == 0) {
            return false;
        }
    }
}

// Whether the second of two bytes, with the first, is a control character of UTF-8 (U+0080 to U+009F).
bool is_wide_control(unsigned char first, unsigned char second) {
    return first == 0xC2 && second >= 0x80 && second < 0xA0;
}

}  // namespace

std::string printable(const std::string& text) {
    std::string result;
    const auto escape = [&result](unsigned char byte) {
        std::array<char, 8> words{};
        std::snprintf(words.data(), words.size(), "\\x%02X", static_cast<unsigned int>(byte));
        result += words.data();
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : '\0');
        if (is_wide_control(byte, next)) {
            escape(byte);
            escape(next);
            ++i;
        } else if (byte < 0x20 || byte == 0x7F) {
            escape(byte);
        } else {
            result += text[i];
        }
    }
    return result;
}

void tell(const std::string& message) {
    const std::string line =
        std::string(takes_escapes(STDERR_FILENO) ? begin_line : "") + "nodevik: " + printable(message) + "\n";
    std::string_view rest = line;
    while (!rest.empty() && wait_for_room()) {
        // So many bytes never block where there is room (pipe(7)).
        const ssize_t count =
            write(STDERR_FILENO, rest.data(), std::min(rest.size(), static_cast<std::size_t>(PIPE_BUF)));
        if (count < 0 && errno != EINTR && errno != EAGAIN) {
            return;  // nobody to tell it to
        }
        rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
}

}  // namespace nodevik_tool
