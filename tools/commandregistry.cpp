#include "tools/commandregistry.h"

#include "program/numbers.h"

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

CLI::Option* add_node(CLI::App& command, unsigned int& node) {
    return command.add_option("NODE", node, "Number of the node, 1 to 127")
        ->required()
        ->check(CLI::Range(1U, program::highest_node));
}

CLI::Option* add_seconds(CLI::App& command, double& seconds) {
    return command.add_option("--seconds", seconds, "End after this time")
        ->type_name("S")
        ->check(CLI::Range(shortest_seconds, longest_seconds));
}

}  // namespace nodevik_tool
