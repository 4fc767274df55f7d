// The command lines of "nodevik lss".

#include <array>
#include <memory>

#include "program/numbers.h"
#include "program/wholenumbers.h"
#include "tools/commandregistry.h"
#include "tools/lsscommands.h"

namespace nodevik_tool {

namespace {

constexpr unsigned int longest_step_ms = 60'000;
constexpr unsigned int highest_bit_rate = 1000;  // kbit/s

// The parts of an identity.
struct Part {
    const char* option;
    const char* argument;
};
constexpr std::array<Part, 4> parts{
    {{"--vendor", "VENDOR"}, {"--product", "PRODUCT"}, {"--revision", "REVISION"}, {"--serial", "SERIAL"}}};

using Search = ExitStatus (*)(const Session&, const LssScanArguments&);

void add_search(CommandRegistry& registry, CLI::App& lss, const std::string& name, const std::string& does,
                const std::string& example, Search search) {
    CLI::App* command = registry.add(lss, name, does, example);
    const auto arguments = std::make_shared<LssScanArguments>();
    for (std::size_t i = 0; i < parts.size(); ++i) {
        command
            ->add_option_function<std::string>(
                parts[i].option,
                [arguments, i](const std::string& text) {
                    arguments->known.known[i] = true;
                    arguments->known.value[i] =
                        static_cast<std::uint32_t>(program::whole_number(text, 0, UINT32_MAX).value_or(0));
                },
                "Only slaves with this number, which saves 32 questions")
            ->type_name("N")
            ->check([](const std::string& text) {
                const bool right = program::whole_number(text, 0, UINT32_MAX).has_value();
                return right ? std::string() : "'" + text + "' is no number from 0 to 4294967295";
            });
    }
    command
        ->add_option("--step", arguments->step_ms,
                     "Wait for answers to each of the 133 questions; 100 unless said")
        ->type_name("MS")
        ->transform(program::whole_numbers(1, longest_step_ms));
    registry.on(*command,
                [arguments, search](const Session& session) { return search(session, *arguments); });
}

using Setting = ExitStatus (*)(const Session&, const LssTarget&);

// A command whose arguments are a slave and what it is given. Which word is what depends on how many there are.
void add_setting(CommandRegistry& registry, CLI::App& lss, const std::string& name, const std::string& does,
                 const std::string& example, const std::string& value_word, const LssValue& value,
                 Setting set) {
    CLI::App* command = registry.add(lss, name, does, example);
    const auto words = std::make_shared<std::array<std::string, 5>>();
    const auto target = std::make_shared<LssTarget>();
    const bool has_value = !value.name.empty();
    std::vector<CLI::Option*> options;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        options.push_back(
            command->add_option(parts[i].argument, (*words)[i],
                                "Identity of the slave; all four are left out when it is the only one"));
    }
    if (has_value) {
        options.push_back(
            command->add_option(value_word, words->back(), "The " + value.name + ", always there"));
        command->add_flag("--store", target->store, "Have it store that, so that it lasts");
    }
    const auto check = [words, target, value, options] {
        std::vector<std::string> given;
        for (std::size_t i = 0; i < options.size() && options[i]->count() > 0; ++i) {
            given.push_back((*words)[i]);
        }
        const bool store = target->store;
        *target = parse_lss_target(given, value);
        target->store = store;
    };
    registry.on(*command, check, [target, set](const Session& session) { return set(session, *target); });
}

}  // namespace

void add_lss_commands(CommandRegistry& registry) {
    CLI::App* lss =
        registry.add(registry.root(), "lss", "Find slaves by their identity, and give them numbers",
                     "nodevik --can can0 lss scan");
    lss->require_subcommand(1);
    add_search(registry, *lss, "scan", "Find every slave without a node number",
               "nodevik --can can0 lss scan --vendor 0x2B", scan_lss);
    add_search(registry, *lss, "fastscan", "Find one slave without a node number",
               "nodevik --can can0 lss fastscan", fastscan_lss);
    add_setting(registry, *lss, "node", "Give a slave a node number",
                "nodevik --can can0 lss node 0x2B 0x401 0x10000 7 12 --store", "ID",
                {"node number", 1, program::highest_node}, set_lss_node);
    add_setting(registry, *lss, "bitrate", "Give a slave a bit rate for its next start",
                "nodevik --can can0 lss bitrate 250 --store", "KBIT",
                {"bit rate", 1, highest_bit_rate, check_lss_bit_rate}, set_lss_bit_rate);
    add_setting(registry, *lss, "store", "Have a slave store its node number and bit rate",
                "nodevik --can can0 lss store", "", {}, store_lss);
}

}  // namespace nodevik_tool
