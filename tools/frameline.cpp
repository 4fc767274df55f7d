// The command lines of "nodevik nmt", "nodevik send" and "nodevik sync".

#include <memory>

#include "program/numbers.h"
#include "program/wholenumbers.h"
#include "tools/commandregistry.h"
#include "tools/framecommands.h"
#include "tools/synccommand.h"

namespace nodevik_tool {

namespace {

constexpr double shortest_period_ms = 0.1;
constexpr double longest_period_ms = 3'600'000;

void add_nmt(CommandRegistry& registry) {
    CLI::App* nmt = registry.add(registry.root(), "nmt", "Command the state of a node, or of all",
                                 "nodevik --can can0 nmt start 5");
    nmt->require_subcommand(1);
    const auto node = std::make_shared<std::string>();
    const std::vector<std::pair<std::string, std::string>> commands{
        {"start", "To operational: process data run"},
        {"stop", "To stopped: the node answers nothing but NMT"},
        {"preop", "To pre-operational: no process data"},
        {"reset", "Reset the node: all as after power-on"},
        {"reset-comm", "Reset the node's communication"}};
    for (const auto& [name, does] : commands) {
        CLI::App* command = registry.add(*nmt, name, does, "nodevik --can can0 nmt " + name + " 5");
        command->add_option("NODE", *node, "Number of the node, 1 to 127, or all")
            ->type_name("1...127|all")
            ->required()
            ->check([](const std::string& text) {
                const bool right = text == "all" || program::whole_number(text, 1, program::highest_node);
                return right ? std::string() : "'" + text + "' is no node; right are 1 to 127, and all";
            });
        registry.on(*command, [node, word = name](const Session& session) {
            const auto number = program::whole_number(*node, 1, program::highest_node).value_or(0);
            return send_nmt(session, word, static_cast<unsigned int>(number));
        });
    }
}

void add_send(CommandRegistry& registry) {
    CLI::App* send =
        registry.add(registry.root(), "send", "Send one frame", "nodevik --can can0 send 205#0102");
    const auto frame = std::make_shared<std::string>();
    send->add_option("ID#BYTES", *frame, "185#0102; 18DAF110#00 with 29 bits; 705#R a remote request")
        ->required();
    registry.on(
        *send, [frame] { parse_frame(*frame); },
        [frame](const Session& session) { return send_frame(session, *frame); });
}

void add_sync(CommandRegistry& registry) {
    CLI::App* sync = registry.add(registry.root(), "sync", "Send SYNC in a period",
                                  "nodevik --can can0 sync --period 10 --count 100");
    const auto arguments = std::make_shared<SyncArguments>();
    sync->add_option("--period", arguments->period_ms, "Time from one to the next, such as 10 or 0.5")
        ->type_name("MS")
        ->required()
        ->check(real_numbers(shortest_period_ms, longest_period_ms));
    sync->add_option("--count", arguments->count, "End after N")
        ->type_name("N")
        ->transform(program::whole_numbers(1, INT64_MAX));
    registry.on(*sync, [arguments](const Session& session) { return produce_sync(session, *arguments); });
}

}  // namespace

void add_frame_commands(CommandRegistry& registry) {
    add_nmt(registry);
    add_send(registry);
    add_sync(registry);
}

}  // namespace nodevik_tool
