// The command lines of "nodevik eds".

#include <memory>

#include "tools/commandregistry.h"
#include "tools/edscommands.h"

namespace nodevik_tool {

namespace {

void add_check(CommandRegistry& registry, CLI::App& eds) {
    CLI::App* check =
        registry.add(eds, "check", "Tell what is wrong or odd in a file", "nodevik eds check pump.eds");
    const auto file = std::make_shared<std::string>();
    check->add_option("FILE", *file, "The EDS or DCF file")->required();
    registry.on(*check, [file](const Session& session) { return check_description(session.output, *file); });
}

void add_show(CommandRegistry& registry, CLI::App& eds) {
    CLI::App* show =
        registry.add(eds, "show", "Show the entries of a file", "nodevik eds show pump.eds 0x1018");
    const auto file = std::make_shared<std::string>();
    const auto object = std::make_shared<std::string>();
    show->add_option("FILE", *file, "The EDS or DCF file")->required();
    show->add_option("OBJECT", *object, "0x1018, 0x1018:1 or a name; all when it is left out");
    registry.on(*show, [file, object](const Session& session) {
        return show_description(session.output, *file, *object);
    });
}

}  // namespace

void add_eds_commands(CommandRegistry& registry) {
    CLI::App* eds =
        registry.add(registry.root(), "eds", "Look into an EDS or DCF file", "nodevik eds check pump.eds");
    eds->require_subcommand(1);
    add_check(registry, *eds);
    add_show(registry, *eds);
}

}  // namespace nodevik_tool
