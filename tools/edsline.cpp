// The command lines of "nodevik eds".

#include <memory>

#include "tools/commandregistry.h"
#include "tools/edscommands.h"
#include "tools/edsdiff.h"

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

void add_diff(CommandRegistry& registry, CLI::App& eds) {
    CLI::App* diff =
        registry.add(eds, "diff", "Tell how two files differ: status 0 when they do not, 1 when they do",
                     "nodevik eds diff old.eds new.eds");
    const auto left = std::make_shared<std::string>();
    const auto right = std::make_shared<std::string>();
    diff->add_option("A", *left, "An EDS or DCF file")->type_name("FILE")->required();
    diff->add_option("B", *right, "The other one")->type_name("FILE")->required();
    registry.on(*diff, [left, right](const Session& session) {
        return diff_descriptions(session.output, *left, *right);
    });
}

void add_dcf(CommandRegistry& registry, CLI::App& eds) {
    CLI::App* dcf = registry.add(eds, "dcf", "Make a DCF for a node: what 'nodevik configure' sets it up by",
                                 "nodevik eds dcf pump.eds 5 0x1017=500 --out pump5.dcf");
    const auto arguments = std::make_shared<DcfArguments>();
    dcf->add_option("FILE", arguments->file, "The EDS or DCF file that it is made from")->required();
    add_node(*dcf, arguments->node);
    dcf->add_option("OBJECT=VALUE", arguments->values, "What the node is to have; without VALUE, nothing");
    dcf->add_option("--out", arguments->out, "Put the DCF into a file")->type_name("FILE");
    registry.on(*dcf, [arguments](const Session& session) { return make_dcf(session.output, *arguments); });
}

}  // namespace

void add_eds_commands(CommandRegistry& registry) {
    CLI::App* eds =
        registry.add(registry.root(), "eds", "Look into an EDS or DCF file", "nodevik eds check pump.eds");
    eds->require_subcommand(1);
    add_check(registry, *eds);
    add_show(registry, *eds);
    add_diff(registry, *eds);
    add_dcf(registry, *eds);
}

}  // namespace nodevik_tool
