#include "simulator/node/nodeconsole.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <sstream>
#include <vector>

namespace node_simulator {

namespace {

std::optional<unsigned> parse_number(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal) {
        text.remove_prefix(2);
    }
    unsigned number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, hexadecimal ? 16 : 10);
    return text.empty() || error != std::errc() || stop != end ? std::nullopt : std::optional(number);
}

using Numbers = std::vector<unsigned>;

struct Context {
    SimulatedBus& bus;
    const FaultSettings& faults;
    CanopenNode* node;  // the node that a command names first; none for a command about the bus
    const Numbers& numbers;
    Time now;
};

const char* switch_off(const Context& context) {
    context.bus.power_off(*context.node);
    return nullptr;
}

const char* switch_on(const Context& context) {
    context.bus.power_on(*context.node, context.now);
    return nullptr;
}

const char* send_emergency(const Context& context) {
    if (context.numbers[1] > 0xFFFF) {
        return "an error code has 16 bits";
    }
    context.bus.emergency(*context.node, static_cast<std::uint16_t>(context.numbers[1]), context.now);
    return nullptr;
}

const char* set_input(const Context& context) {
    const unsigned channel = context.numbers[1];
    const unsigned value = context.numbers[2];
    if (channel < 1 || channel > 4 || value > 255) {
        return "a channel is 1 to 4, its value 0 to 255";
    }
    if (context.node->dictionary().find(0x6000, static_cast<std::uint8_t>(channel)) == nullptr) {
        return "the node has no such input";
    }
    context.bus.set_input(*context.node, static_cast<std::uint8_t>(channel), static_cast<std::uint8_t>(value),
                          context.now);
    return nullptr;
}

const char* replace_faults(const Context& context) {
    const Numbers& numbers = context.numbers;
    if (std::any_of(numbers.begin(), numbers.begin() + 4, [](unsigned percent) { return percent > 100; })) {
        return "faults are percentages, 0 to 100";
    }
    FaultSettings faults = context.faults;
    faults.lost = numbers[0];
    faults.late = numbers[1];
    faults.duplicated = numbers[2];
    faults.foreign = numbers[3];
    faults.most = numbers.size() > 4 ? std::optional(numbers[4]) : std::nullopt;
    context.bus.set_faults(faults);
    return nullptr;
}

const char* replace_transfer_faults(const Context& context) {
    const Numbers& numbers = context.numbers;
    if (std::any_of(numbers.begin() + 1, numbers.begin() + 4,
                    [](unsigned percent) { return percent > 100; })) {
        return "faults are percentages, 0 to 100";
    }
    FaultSettings faults = context.faults;
    faults.toggled = numbers[1];
    faults.wrong_crc = numbers[2];
    faults.endless = numbers[3];
    faults.most = numbers.size() > 4 ? std::optional(numbers[4]) : std::nullopt;
    context.node->set_transfer_faults(faults);
    return nullptr;
}

// A command: how many numbers follow, whether the first is a node's, and what it does.
struct Command {
    std::string_view name;
    std::size_t fewest;
    std::size_t most;
    bool names_node;
    const char* (*run)(const Context&);
};
constexpr std::array commands{
    Command{"off", 1, 1, true, switch_off},
    Command{"on", 1, 1, true, switch_on},
    Command{"emergency", 2, 2, true, send_emergency},
    Command{"input", 3, 3, true, set_input},
    Command{"faults", 4, 5, false, replace_faults},
    Command{"transfer-faults", 4, 5, true, replace_transfer_faults},
};

// The numbers in the rest of `words`; none when one of them is none.
std::optional<Numbers> read_numbers(std::istringstream& words) {
    Numbers numbers;
    for (std::string word; words >> word;) {
        const std::optional<unsigned> number = parse_number(word);
        if (!number) {
            return std::nullopt;
        }
        numbers.push_back(*number);
    }
    return numbers;
}

}  // namespace

std::string run_console_command(SimulatedBus& bus, const FaultSettings& faults, std::string_view line,
                                Time now) {
    std::istringstream words{std::string(line)};
    std::string name;
    if (!(words >> name)) {
        return {};
    }
    const auto command = std::find_if(commands.begin(), commands.end(),
                                      [&name](const Command& row) { return row.name == name; });
    if (command == commands.end()) {
        return "error: unknown command '" + name + "'";
    }
    const std::optional<Numbers> numbers = read_numbers(words);
    if (!numbers || numbers->size() < command->fewest || numbers->size() > command->most) {
        return "error: wrong numbers after '" + name + "'";
    }
    CanopenNode* node = command->names_node ? bus.find(numbers->front()) : nullptr;
    if (command->names_node && node == nullptr) {
        return "error: no node " + std::to_string(numbers->front());
    }
    const char* reason = command->run({bus, faults, node, *numbers, now});
    return reason == nullptr ? "ok" : std::string("error: ") + reason;
}

}  // namespace node_simulator
