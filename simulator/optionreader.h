/// @file
/// The command line of a simulator: its options, and the help that tells them.
///
///     Options options;
///     simulator::OptionReader line("usage: pump [OPTION ...]", "Plays a pump.");
///     line.add_number("--speed", "N", 1, 100, options.speed, "revolutions a second (default 1)");
///     line.add_flag("--mute", options.mute, "no answers");
///     const std::string reason = line.parse(arguments);  // empty, or "--speed takes a whole number from 1 to ..."
///
/// "--name VALUE" and "--name=VALUE" are the same. Of an option that is given more than once the last one counts, unless it
/// collects what it is given.

#ifndef SIMULATOR_OPTIONREADER_H
#define SIMULATOR_OPTIONREADER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace simulator {

/// The options of a program.
class OptionReader {
public:
    /// Takes the value of an option; the result is the reason why it cannot, or empty.
    using Store = std::function<std::string(std::string_view value)>;

    /// @param usage  first line of the help
    /// @param does   what the program does
    OptionReader(std::string usage, std::string does);
    ~OptionReader();
    OptionReader(const OptionReader&) = delete;
    OptionReader& operator=(const OptionReader&) = delete;

    /// Options that are added from now on stand under this title in the help.
    void begin_group(const std::string& title);

    /// What the help ends with.
    void set_footer(std::string text);

    /// Adds an option whose value is a whole number.
    ///
    /// @param name     with its dashes
    /// @param value    what the help calls the value
    /// @param lowest   the lowest number that is right
    /// @param highest  the highest one
    /// @param number   takes the number
    /// @param does     for the help; line ends in it are kept
    template <typename Number>
    void add_number(const std::string& name, const std::string& value, std::int64_t lowest,
                    std::int64_t highest, Number& number, const std::string& does) {
        add_whole_number(
            name, value, lowest, highest, [&number](std::int64_t n) { number = static_cast<Number>(n); },
            does);
    }

    /// Adds an option whose value is a text.
    void add_text(const std::string& name, const std::string& value, Store store, const std::string& does);

    /// Adds an option without a value.
    /// @param flag  becomes true
    void add_flag(const std::string& name, bool& flag, const std::string& does);

    /// Adds --help, -h and --version.
    void add_standard_flags(bool& help, bool& version);

    /// Adds an option behind which everything is a command.
    /// @param command  takes the words
    void add_command(const std::string& name, std::vector<std::string>& command, const std::string& does);

    /// Reads the words of a command line, the program's name not included.
    /// @return what is wrong; empty when nothing is
    std::string parse(std::span<const char* const> arguments);

    /// The help.
    std::string help() const;

private:
    void add_whole_number(const std::string& name, const std::string& value, std::int64_t lowest,
                          std::int64_t highest, std::function<void(std::int64_t)> store,
                          const std::string& does);
    bool takes_value(const std::string& name) const;

    std::unique_ptr<CLI::App> app_;
    std::string command_name_;
    std::vector<std::string>* command_ = nullptr;
};

}  // namespace simulator

#endif
