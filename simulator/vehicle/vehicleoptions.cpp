#include "simulator/vehicle/vehicleoptions.h"

#include <charconv>
#include <cstring>
#include <limits>
#include <string_view>

namespace vehicle_simulator {

namespace {

constexpr int longest_ms = 60'000;
constexpr int most_frames = 1'000'000'000;

// An option with a number: its range and where the number goes.
struct NumberOption {
    std::string_view name;
    std::int64_t lowest;
    std::int64_t highest;
    void (*store)(VehicleOptions&, std::int64_t);
};

constexpr NumberOption number_options[] = {
    {"--seed", 0, std::numeric_limits<std::uint32_t>::max(),
     [](VehicleOptions& options, std::int64_t n) { options.seed = static_cast<std::uint32_t>(n); }},
    {"--capacity", 0, 100,
     [](VehicleOptions& options, std::int64_t n) { options.capacity_ah = static_cast<double>(n); }},
    {"--cut", 0, reply_length,
     [](VehicleOptions& options, std::int64_t n) { options.faults.cut = static_cast<int>(n); }},
    {"--delay", 0, longest_ms,
     [](VehicleOptions& options, std::int64_t n) { options.faults.delay_ms = static_cast<int>(n); }},
    {"--garbage", 0, 1000,
     [](VehicleOptions& options, std::int64_t n) { options.faults.garbage = static_cast<int>(n); }},
    {"--split", 1, reply_length,
     [](VehicleOptions& options, std::int64_t n) { options.faults.split = static_cast<int>(n); }},
    {"--split-pause", 0, longest_ms,
     [](VehicleOptions& options, std::int64_t n) { options.faults.split_pause_ms = static_cast<int>(n); }},
    {"--every", 1, most_frames,
     [](VehicleOptions& options, std::int64_t n) { options.faults.every = static_cast<int>(n); }},
    {"--hang-up", 1, most_frames,
     [](VehicleOptions& options, std::int64_t n) { options.faults.hang_up = static_cast<int>(n); }},
    {"--random", 0, 100,
     [](VehicleOptions& options, std::int64_t n) { options.faults.random_percent = static_cast<int>(n); }},
    {"--lose-frame", 1, most_frames,
     [](VehicleOptions& options, std::int64_t n) { options.faults.lose_frame = static_cast<int>(n); }},
    {"--lose-reply", 1, most_frames,
     [](VehicleOptions& options, std::int64_t n) { options.faults.lose_reply = static_cast<int>(n); }},
};

const NumberOption* find_number_option(std::string_view name) {
    for (const NumberOption& option : number_options) {
        if (option.name == name) {
            return &option;
        }
    }
    return nullptr;
}

// The flag that the option without a value sets; nullptr when there is no such option.
bool* find_switch(std::string_view argument, VehicleOptions& options) {
    if (argument == "--help" || argument == "-h") {
        return &options.help;
    }
    if (argument == "--version") {
        return &options.version;
    }
    return argument == "--mute" ? &options.faults.mute : nullptr;
}

// Stores `value` for `option`; returns the reason why it cannot, or nothing.
std::string store_number(const NumberOption& option, std::string_view value, VehicleOptions& options) {
    std::int64_t number = 0;
    const char* end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, number);
    if (value.empty() || error != std::errc() || stop != end || number < option.lowest ||
        number > option.highest) {
        return std::string(option.name) + " takes a whole number from " + std::to_string(option.lowest) +
               " to " + std::to_string(option.highest) + ", not '" + std::string(value) + "'";
    }
    option.store(options, number);
    return {};
}

}  // namespace

ParsedVehicleOptions parse_vehicle_options(std::span<const char* const> arguments) {
    ParsedVehicleOptions result;
    for (std::size_t index = 0; index < arguments.size() && result.error.empty(); ++index) {
        const std::string_view argument = arguments[index];
        const std::size_t equals = argument.find('=');
        const std::string_view name = argument.substr(0, equals);
        const NumberOption* number_option = find_number_option(name);
        if (bool* const flag = find_switch(argument, result.options); flag != nullptr) {
            *flag = true;
            continue;
        }
        if (number_option == nullptr && name != "--log") {
            result.error = "unknown option '" + std::string(argument) + "'";
            continue;
        }
        if (equals == std::string_view::npos && index + 1 == arguments.size()) {
            result.error = std::string(name) + " needs a value";
            continue;
        }
        const std::string_view value =
            equals == std::string_view::npos ? arguments[++index] : argument.substr(equals + 1);
        if (number_option != nullptr) {
            result.error = store_number(*number_option, value, result.options);
        } else if (value.empty()) {
            result.error = "--log needs the name of a file";
        } else {
            result.options.log_file = value;
        }
    }
    return result;
}

const char* vehicle_help() {
    return R"(usage: vehicle-simulator [OPTION ...]

Plays the vehicle controller at the far end of a serial line: a pseudo-terminal, whose path is the
first line of standard output. Each command frame of four bytes (throttle, direction, bucket, 'Q' for
motor on) is followed by a reply of 39 bytes. Ends with SIGINT or SIGTERM.

  --log FILE          write the log to FILE instead of standard output: one line for each frame and
                      each reply, beginning with the seconds since the start
  --seed N            a repeatable run: the same noise, garbage and random faults for the same N, and the
                      vehicle's time runs by frames, 100 ms each, instead of by the clock
  --capacity AH       charge of the battery at the start, 0 to 100 (default 100)
  --help              this text
  --version           the program's version

Faults of the line:
  --mute              no replies
  --cut N             only the first N bytes of the reply, 0 to 39
  --delay MS          the reply comes MS milliseconds late
  --garbage N         N random bytes ahead of the reply, up to 1000
  --split N           the reply is spread over N writes, 1 to 39
  --split-pause MS    time between two of these writes (default 5)
  --every N           the faults above hit only every N-th reply (default 1)
  --hang-up N         hang the line up after N frames and end
  --random PERCENT    of the replies PERCENT are hit by one fault of random kind and size: muted,
                      short, split, garbage or delayed; a line of the log tells which
  --lose-frame N      the N-th frame is lost on its way: neither logged nor answered
  --lose-reply N      the reply to the N-th frame is logged, but does not go out
)";
}

}  // namespace vehicle_simulator
