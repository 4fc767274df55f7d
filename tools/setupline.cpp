// The command lines of "nodevik configure", "nodevik pdo" and "nodevik dump".

#include <memory>

#include "program/wholenumbers.h"
#include "tools/commandregistry.h"
#include "tools/configurecommand.h"
#include "tools/dumpcommand.h"
#include "tools/pdocommands.h"

namespace nodevik_tool {

namespace {

void add_configure(CommandRegistry& registry) {
    CLI::App* configure = registry.add(registry.root(), "configure", "Set a node up as a DCF says",
                                       "nodevik --can can0 configure 5 pump5.dcf --dry-run");
    const auto arguments = std::make_shared<ConfigureArguments>();
    add_node(*configure, arguments->node);
    configure->add_option("FILE", arguments->file, "The DCF; 'nodevik eds dcf' makes one")->required();
    configure->add_flag("--dry-run", arguments->dry_run, "Only compare: nothing is written, stored or reset");
    configure->add_flag("--store", arguments->store,
                        "Have the node store its values when all is well (0x1010)");
    configure->add_flag("--restore", arguments->restore,
                        "Have the node restore its maker's values first (0x1011), and reset it (NMT)");
    registry.on(*configure,
                [arguments](const Session& session) { return configure_node(session, *arguments); });
}

void add_pdo(CommandRegistry& registry) {
    CLI::App* pdo = registry.add(registry.root(), "pdo", "Show or set up the process data objects of a node",
                                 "nodevik --can can0 pdo list 5");
    pdo->require_subcommand(1);
    CLI::App* list = registry.add(*pdo, "list", "Show the PDOs that a node has",
                                  "nodevik --can can0 --eds pump.eds pdo list 5");
    const auto node = std::make_shared<unsigned int>(0);
    add_node(*list, *node);
    registry.on(*list, [node](const Session& session) { return list_pdos(session, *node); });

    CLI::App* set = registry.add(*pdo, "set", "Set a PDO up; it stays as it was when the node refuses",
                                 "nodevik --can can0 pdo set 5 tpdo 1 0x185 255 0x6000:1/8 0x6401:1/16");
    const auto arguments = std::make_shared<PdoArguments>();
    const auto direction = std::make_shared<std::string>();
    add_node(*set, arguments->node);
    set->add_option("DIRECTION", *direction, "tpdo, which the node sends, or rpdo, which it receives")
        ->required()
        ->check(CLI::IsMember({"tpdo", "rpdo"}));
    set->add_option("N", arguments->number, "Number of the PDO, 1 to 512")
        ->required()
        ->transform(program::whole_numbers(1, 512));
    set->add_option("COBID", arguments->cob_id, "Its identifier, 0x185; with 0x80000000 added it is off")
        ->required();
    set->add_option("TYPE", arguments->type,
                    "When it is sent or used: 0 to 240 with SYNC, 254 and 255 by events")
        ->required();
    set->add_option("OBJECT", arguments->objects,
                    "What is in it: 0x6000:1 or a name with --eds, 0x6000:1/8 with its bits")
        ->required();
    registry.on(*set, [arguments, direction](const Session& session) {
        arguments->transmit = *direction == "tpdo";
        return set_pdo(session, *arguments);
    });
}

void add_dump(CommandRegistry& registry) {
    CLI::App* dump = registry.add(registry.root(), "dump", "Read what a node has and make a DCF of it",
                                  "nodevik --can can0 --eds pump.eds dump 5 pump5.dcf");
    const auto node = std::make_shared<unsigned int>(0);
    const auto file = std::make_shared<std::string>();
    add_node(*dump, *node);
    dump->add_option("FILE", *file, "Where the DCF goes; to standard output when it is left out");
    registry.on(*dump, [node, file](const Session& session) { return dump_node(session, *node, *file); });
}

}  // namespace

void add_setup_commands(CommandRegistry& registry) {
    add_configure(registry);
    add_pdo(registry);
    add_dump(registry);
}

}  // namespace nodevik_tool
