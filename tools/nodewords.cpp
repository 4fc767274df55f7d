#include "tools/nodewords.h"

#include <array>
#include <cstdio>

#include "tools/clocktime.h"
#include "tools/objects.h"

namespace nodevik_tool {

namespace {

constexpr std::uint64_t nanoseconds_per_microsecond = 1000;
constexpr std::uint64_t nanoseconds_per_second = 1'000'000'000;
constexpr std::uint64_t minute = 60;  // seconds
constexpr std::uint64_t hour = 3600;

std::string number_text(const char* pattern, unsigned int number) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), pattern, number);
    return text.data();
}

}  // namespace

std::string_view state_word(NodeState state) {
    switch (state) {
        case NodeState::boot_up:
            return "boot-up";
        case NodeState::stopped:
            return "stopped";
        case NodeState::operational:
            return "operational";
        case NodeState::pre_operational:
            return "pre-operational";
        case NodeState::unknown:
            break;
    }
    return "unknown";
}

std::string_view state_word(const NodeStatus& status) {
    return status.is_lost ? "lost" : state_word(status.state);
}

Colour state_colour(std::string_view word) {
    if (word == "lost") {
        return Colour::bad;
    }
    if (word == "unknown") {
        return Colour::faint;
    }
    return word == "operational" ? Colour::good : Colour::notable;
}

std::string emergency_words(const NodeEmergency& emergency) {
    return number_text("0x%04X", emergency.code) + " " + emergency.text() + ", register " +
           number_text("0x%02X", emergency.error_register);
}

nlohmann::ordered_json emergency_json(const NodeEmergency& emergency) {
    return {{"time", json_time(emergency.time_ns / nanoseconds_per_microsecond)},
            {"code", number_text("0x%04X", emergency.code)},
            {"register", emergency.error_register},
            {"data", plain_hex({emergency.manufacturer.begin(), emergency.manufacturer.end()})},
            {"text", emergency.text()}};
}

std::string duration_text(std::uint64_t duration_ns) {
    const std::uint64_t seconds = duration_ns / nanoseconds_per_second;
    if (seconds < 10) {
        std::array<char, 16> text{};
        std::snprintf(text.data(), text.size(), "%.1f s",
                      static_cast<double>(duration_ns) / static_cast<double>(nanoseconds_per_second));
        return text.data();
    }
    if (seconds < minute) {
        return std::to_string(seconds) + " s";
    }
    return seconds < hour ? std::to_string(seconds / minute) + " min" : std::to_string(seconds / hour) + " h";
}

std::string hex_text(std::uint32_t number) {
    return number_text("0x%08X", number);
}

}  // namespace nodevik_tool
