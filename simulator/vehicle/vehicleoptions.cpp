#include "simulator/vehicle/vehicleoptions.h"

#include <limits>
#include <string_view>

#include "simulator/optionreader.h"

namespace vehicle_simulator {

namespace {

constexpr int longest_ms = 60'000;
constexpr int most_frames = 1'000'000'000;
constexpr const char* program_help =
    "Plays the vehicle controller at the far end of a serial line: a pseudo-terminal, whose path is the\n"
    "first line of standard output. Each command frame of four bytes (throttle, direction, bucket, 'Q' for\n"
    "motor on) is followed by a reply of 39 bytes. Ends with SIGINT or SIGTERM.";

// The command line, which writes into `options`.
class VehicleOptionReader : public simulator::OptionReader {
public:
    explicit VehicleOptionReader(VehicleOptions& options)
        : OptionReader("usage: vehicle-simulator [OPTION ...]", program_help) {
        const auto store_log = [&options](std::string_view file) {
            options.log_file = file;
            return file.empty() ? std::string("--log needs the name of a file") : std::string();
        };
        add_text("--log", "FILE", store_log,
                 "write the log to FILE instead of standard output: one line for each frame\n"
                 "and each reply, beginning with the seconds since the start");
        add_number("--seed", "N", 0, std::numeric_limits<std::uint32_t>::max(), options.seed,
                   "a repeatable run: the same noise, garbage and random faults for the same N,\n"
                   "and the vehicle's time runs by frames, 100 ms each, instead of by the clock");
        add_number("--capacity", "AH", 0, 100, options.capacity_ah,
                   "charge of the battery at the start, 0 to 100 (default 100)");
        add_standard_flags(options.help, options.version);
        FaultPlan& faults = options.faults;
        begin_group("Faults of the line");
        add_flag("--mute", faults.mute, "no replies");
        add_number("--cut", "N", 0, reply_length, faults.cut, "only the first N bytes of the reply, 0 to 39");
        add_number("--delay", "MS", 0, longest_ms, faults.delay_ms, "the reply comes MS milliseconds late");
        add_number("--garbage", "N", 0, 1000, faults.garbage,
                   "N random bytes ahead of the reply, up to 1000");
        add_number("--split", "N", 1, reply_length, faults.split,
                   "the reply is spread over N writes, 1 to 39");
        add_number("--split-pause", "MS", 0, longest_ms, faults.split_pause_ms,
                   "time between two of these writes (default 5)");
        add_number("--every", "N", 1, most_frames, faults.every,
                   "the faults above hit only every N-th reply (default 1)");
        add_number("--hang-up", "N", 1, most_frames, faults.hang_up,
                   "hang the line up after N frames and end");
        add_number("--random", "PERCENT", 0, 100, faults.random_percent,
                   "of the replies PERCENT are hit by one fault of random kind and size: muted,\n"
                   "short, split, garbage or delayed; a line of the log tells which");
        add_number("--lose-frame", "N", 1, most_frames, faults.lose_frame,
                   "the N-th frame is lost on its way: neither logged nor answered");
        add_number("--lose-reply", "N", 1, most_frames, faults.lose_reply,
                   "the reply to the N-th frame is logged, but does not go out");
    }
};

}  // namespace

ParsedVehicleOptions parse_vehicle_options(std::span<const char* const> arguments) {
    ParsedVehicleOptions result;
    result.error = VehicleOptionReader(result.options).parse(arguments);
    return result;
}

std::string vehicle_help() {
    VehicleOptions options;
    return VehicleOptionReader(options).help();
}

}  // namespace vehicle_simulator
