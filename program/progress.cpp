#include "program/progress.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>

namespace program {

namespace {

constexpr std::uint64_t width = 30;         // characters of the bar
constexpr std::uint64_t interval_ms = 100;  // between two drawings

std::uint64_t now_ms() {
    using std::chrono::milliseconds;
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<milliseconds>(now).count());
}

}  // namespace

Progress::Progress(bool wanted) : wanted_(wanted && isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
    clear();
}

void Progress::update(std::uint64_t done, std::uint64_t total) {
    const std::uint64_t now = now_ms();
    if (!wanted_ || now < next_ms_) {
        return;
    }
    next_ms_ = now + interval_ms;
    drawn_ = true;
    if (total == 0) {
        std::fprintf(stderr, "\r%llu bytes", static_cast<unsigned long long>(done));
        return;
    }
    const std::uint64_t part = done < total ? done : total;
    const std::uint64_t filled = part * width / total;
    const std::string bar = std::string(filled, '#') + std::string(width - filled, '.');
    std::fprintf(stderr, "\r[%s] %3llu %%", bar.c_str(), static_cast<unsigned long long>(part * 100 / total));
}

void Progress::clear() {
    if (drawn_) {
        std::fputs("\r\033[K", stderr);
        drawn_ = false;
    }
}

}  // namespace program
