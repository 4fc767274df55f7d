// The command lines of "nodevik nodes" and "nodevik scan".

#include <memory>

#include "tools/commandregistry.h"
#include "tools/nodescommand.h"
#include "tools/scancommand.h"

namespace nodevik_tool {

namespace {

constexpr double shortest_listening = 0.001;  // seconds
constexpr double longest_listening = 4e6;

void add_nodes(CommandRegistry& registry) {
    CLI::App* nodes = registry.add(registry.root(), "nodes", "Show who is on the bus, by what is heard",
                                   "nodevik --can can0 nodes --watch");
    const auto arguments = std::make_shared<NodesArguments>();
    nodes->add_flag("--watch", arguments->watch, "Show what happens until Ctrl-C: on a terminal as a table");
    add_seconds(*nodes, arguments->seconds)
        ->description("End after this time; 2 unless said, with --watch none");
    registry.on(*nodes, [arguments](const Session& session) { return show_nodes(session, *arguments); });
}

void add_scan(CommandRegistry& registry) {
    CLI::App* scan =
        registry.add(registry.root(), "scan", "Ask the nodes who they are", "nodevik --can can0 scan 1-20");
    const auto arguments = std::make_shared<ScanArguments>();
    scan->add_option("RANGE", arguments->range, "Node numbers, such as 5 or 1-20; all when it is left out");
    CLI::Option* passive = scan->add_flag("--passive", arguments->passive, "Send nothing: only listen");
    scan->add_option("--seconds", arguments->seconds, "How long to listen; 2 unless said")
        ->type_name("S")
        ->check(real_numbers(shortest_listening, longest_listening))
        ->needs(passive);
    registry.on(
        *scan, [arguments] { parse_node_range(arguments->range); },
        [arguments](const Session& session) { return scan_bus(session, *arguments); });
}

}  // namespace

void add_node_commands(CommandRegistry& registry) {
    add_nodes(registry);
    add_scan(registry);
}

}  // namespace nodevik_tool
