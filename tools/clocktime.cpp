#include "tools/clocktime.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace nodevik_tool {

namespace {

constexpr std::uint64_t microseconds = 1'000'000;  // in a second

}  // namespace

std::string clock_text(std::uint64_t time_us) {
    const auto seconds = static_cast<time_t>(time_us / microseconds);
    tm day{};
    localtime_r(&seconds, &day);
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%06u", day.tm_hour, day.tm_min, day.tm_sec,
                  static_cast<unsigned int>(time_us % microseconds));
    return text.data();
}

double json_time(std::uint64_t time_us) {
    return static_cast<double>(time_us) / static_cast<double>(microseconds);
}

std::uint64_t clock_us() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

}  // namespace nodevik_tool
