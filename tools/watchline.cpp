// The command lines of "nodevik monitor", "nodevik record" and "nodevik decode".

#include <cstdint>
#include <memory>

#include "program/wholenumbers.h"
#include "tools/commandregistry.h"
#include "tools/watchcommands.h"

namespace nodevik_tool {

namespace {

void add_frame_options(CLI::App& command, FrameOptions& frames) {
    command.add_option("--filter", frames.kinds, "Only frames of these kinds, such as emcy,heartbeat,tpdo1")
        ->type_name("KINDS");
    command.add_option("--id", frames.identifiers, "Only these identifiers: 0x185 or 0x180-0x1FF")
        ->type_name("RANGE");
    command.add_option("--count", frames.count, "End after N frames")
        ->type_name("N")
        ->transform(program::whole_numbers(1, INT64_MAX));
    CLI::Option* raw = command.add_flag("--raw", frames.raw, "Lines as candump -L writes them");
    command.add_flag("--statistics", frames.statistics, "No frames, but how many of each identifier")
        ->excludes(raw);
}

void add_monitor(CommandRegistry& registry) {
    CLI::App* monitor = registry.add(registry.root(), "monitor", "Show the frames of the bus",
                                     "nodevik --can can0 monitor --filter emcy,heartbeat");
    const auto frames = std::make_shared<FrameOptions>();
    const auto limits = std::make_shared<ListenLimits>();
    add_frame_options(*monitor, *frames);
    add_seconds(*monitor, limits->seconds);
    registry.on(*monitor,
                [frames, limits](const Session& session) { return monitor_bus(session, *frames, *limits); });
}

void add_record(CommandRegistry& registry) {
    CLI::App* record =
        registry.add(registry.root(), "record", "Write the frames of the bus into a log, as candump -L does",
                     "nodevik --can can0 record bus.log --seconds 60");
    const auto log = std::make_shared<std::string>();
    const auto limits = std::make_shared<ListenLimits>();
    record->add_option("FILE", *log, "The log; what is in it is replaced")->required();
    add_seconds(*record, limits->seconds);
    record->add_option("--max-size", limits->max_bytes, "End before the log has more bytes")
        ->type_name("N")
        ->transform(program::whole_numbers(1, INT64_MAX));
    registry.on(*record,
                [log, limits](const Session& session) { return record_bus(session, *log, *limits); });
}

void add_decode(CommandRegistry& registry) {
    CLI::App* decode = registry.add(registry.root(), "decode", "Show the frames of a log",
                                    "nodevik decode bus.log --filter sdo-request,sdo-answer");
    const auto log = std::make_shared<std::string>();
    const auto frames = std::make_shared<FrameOptions>();
    decode->add_option("FILE", *log, "A log, also one of candump -L")->required();
    add_frame_options(*decode, *frames);
    registry.on(*decode,
                [log, frames](const Session& session) { return decode_log(session, *log, *frames); });
}

}  // namespace

void add_watch_commands(CommandRegistry& registry) {
    add_monitor(registry);
    add_record(registry);
    add_decode(registry);
}

}  // namespace nodevik_tool
