#include "tools/commandregistry.h"

#include <charconv>
#include <optional>
#include <string_view>

#include "program/numbers.h"

namespace nodevik_tool {

namespace {

constexpr double shortest_seconds = 0.001;
constexpr double longest_seconds = 1e9;

std::optional<std::uint64_t> natural_number(std::string_view text) {
    const bool is_hexadecimal = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
    text.remove_prefix(is_hexadecimal ? 2 : 0);
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, is_hexadecimal ? 16 : 10);
    return error == std::errc() && stop == end ? std::optional<std::uint64_t>(number) : std::nullopt;
}

template <typename Number>
std::string out_of_range(const std::string& text, Number lowest, Number highest) {
    return "Value " + text + " not in range " + std::to_string(lowest) + " to " + std::to_string(highest);
}

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

CLI::Validator whole_numbers(std::uint64_t lowest, std::uint64_t highest) {
    const auto look = [lowest, highest](std::string& text) {
        const auto number = natural_number(text);
        if (!number || *number < lowest || *number > highest) {
            return out_of_range(text, lowest, highest);
        }
        text = std::to_string(*number);  // CLI11 takes a leading 0 for octal
        return std::string();
    };
    return {look, "UINT in [" + std::to_string(lowest) + " - " + std::to_string(highest) + "]"};
}

CLI::Validator real_numbers(double lowest, double highest) {
    const CLI::Range range(lowest, highest);
    const auto look = [lowest, highest](std::string& text) {
        double number = 0;
        const bool is_right =
            CLI::detail::lexical_cast(text, number) && number >= lowest && number <= highest;
        return is_right ? std::string() : out_of_range(text, lowest, highest);
    };
    return {look, range.get_description()};
}

CLI::Option* add_node(CLI::App& command, unsigned int& node) {
    return command.add_option("NODE", node, "Number of the node, 1 to 127")
        ->required()
        ->transform(whole_numbers(1, program::highest_node));
}

CLI::Option* add_seconds(CLI::App& command, double& seconds) {
    return command.add_option("--seconds", seconds, "End after this time")
        ->type_name("S")
        ->check(real_numbers(shortest_seconds, longest_seconds));
}

}  // namespace nodevik_tool
