// The command line of "nodevik replay".

#include <cstdint>
#include <memory>

#include "program/numbers.h"
#include "tools/commandregistry.h"
#include "tools/replaycommand.h"

namespace nodevik_tool {

namespace {

// Numbers that are none compare with nothing, and are no speed.
std::string check_speed(const std::string& text) {
    constexpr double highest = 1e6;
    double speed = -1;
    const bool is_speed = CLI::detail::lexical_cast(text, speed) && speed >= 0 && speed <= highest;
    return is_speed ? std::string() : "'" + text + "' is no speed; right are 0 to 1000000, such as 0.5 or 2";
}

// Leaves a number that CLI11 does not take for octal.
std::string read_loops(std::string& text) {
    const auto number = program::whole_number(text, 0, INT64_MAX);
    if (!number) {
        return "'" + text + "' is no number of times; right are 0, 1 and more";
    }
    text = std::to_string(*number);
    return {};
}

}  // namespace

void add_replay_command(CommandRegistry& registry) {
    CLI::App* replay = registry.add(registry.root(), "replay", "Send the frames of a log, as they came",
                                    "nodevik --can vcan0 replay bus.log --speed 2");
    const auto arguments = std::make_shared<ReplayArguments>();
    replay->add_option("FILE", arguments->file, "A log, also one of candump -L")->required();
    replay->add_option("--speed", arguments->speed, "2 is twice as fast; 0 as fast as the bus takes it")
        ->type_name("X")
        ->check(check_speed);
    replay->add_option("--loop", arguments->loops, "Send it N times; 0 until Ctrl-C")
        ->type_name("N")
        ->transform(CLI::Validator(read_loops, ""));
    replay->add_option("--id", arguments->identifiers, "Only these identifiers: 0x185 or 0x180-0x1FF")
        ->type_name("RANGE");
    replay->add_flag("--nmt", arguments->nmt, "NMT commands too: they change the states of nodes");
    registry.on(*replay, [arguments](const Session& session) { return replay_log(session, *arguments); });
}

}  // namespace nodevik_tool
