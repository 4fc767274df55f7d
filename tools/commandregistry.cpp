#include "tools/commandregistry.h"

#include "program/numbers.h"
#include "program/wholenumbers.h"

namespace nodevik_tool {

namespace {

constexpr double shortest_seconds = 0.001;
constexpr double longest_seconds = 1e9;

}  // namespace

CLI::App* CommandRegistry::add(CLI::App& parent, const std::string& name, const std::string& does,
                               const std::string& example) {
    CLI::App* command = parent.add_subcommand(name, does);
    command->fallthrough();
    command->footer("Example:\n  " + example);
    return command;
}

void CommandRegistry::on(CLI::App& command, Action action) {
    on(command, nullptr, std::move(action));
}

void CommandRegistry::on(CLI::App& command, std::function<void()> check, Action action) {
    command.callback([this, check = std::move(check), action = std::move(action)] {
        if (check) {
            check();
        }
        action_ = action;
    });
}

void CommandRegistry::rewrite_words(std::vector<std::string>& words) const {
    for (const Rewriter& rewriter : rewriters_) {
        rewriter(words);
    }
}

CLI::Validator real_numbers(double lowest, double highest) {
    const CLI::Range range(lowest, highest);
    const auto look = [lowest, highest](std::string& text) {
        double number = 0;
        const bool is_right =
            CLI::detail::lexical_cast(text, number) && number >= lowest && number <= highest;
        return is_right ? std::string()
                        : "Value " + text + " not in range " + std::to_string(lowest) + " to " +
                              std::to_string(highest);
    };
    return {look, range.get_description()};
}

CLI::Option* add_node(CLI::App& command, unsigned int& node) {
    return command.add_option("NODE", node, "Number of the node, 1 to 127")
        ->required()
        ->transform(program::whole_numbers(1, program::highest_node));
}

CLI::Option* add_seconds(CLI::App& command, double& seconds) {
    return command.add_option("--seconds", seconds, "End after this time")
        ->type_name("S")
        ->check(real_numbers(shortest_seconds, longest_seconds));
}

}  // namespace nodevik_tool
