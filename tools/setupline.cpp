// The command lines of "nodevik configure", "nodevik pdo" and "nodevik dump".

#include <memory>

#include "tools/commandregistry.h"
#include "tools/configurecommand.h"

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

}  // namespace

void add_setup_commands(CommandRegistry& registry) {
    add_configure(registry);
}

}  // namespace nodevik_tool
