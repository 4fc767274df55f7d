/// @file
/// Where the commands of the program are registered: each group adds its own, from a unit of its own.

#ifndef TOOLS_COMMANDREGISTRY_H
#define TOOLS_COMMANDREGISTRY_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tools/failure.h"
#include "tools/session.h"

namespace nodevik_tool {

/// What a command does once its command line is read.
using Action = std::function<ExitStatus(const Session&)>;

/// Changes the words of a command line before they are read.
using Rewriter = std::function<void(std::vector<std::string>&)>;

/// The commands of the program.
///
/// A group reads its options into what it allocates itself and shares with the callbacks that it gives to CLI11, which
/// hold it as long as the command line lives:
///
///     const auto file = std::make_shared<std::string>();
///     CLI::App* check = registry.add(*eds, "check", "Tell what is odd in a file", "nodevik eds check pump.eds");
///     check->add_option("FILE", *file, "The EDS or DCF file")->required();
///     registry.on(*check, [file](const Session& session) { return check_description(session.output, *file); });
class CommandRegistry {
public:
    /// @param root  the program's own command line, which outlives the registry
    explicit CommandRegistry(CLI::App& root) : root_(&root) {}
    CommandRegistry(const CommandRegistry&) = delete;
    CommandRegistry& operator=(const CommandRegistry&) = delete;

    /// The program's own command line.
    CLI::App& root() { return *root_; }

    /// Adds a command, whose help ends with an example. Options of the program are also taken behind it.
    ///
    /// @param parent   what it is a command of
    /// @param name     its word
    /// @param does     what it does, in one line
    /// @param example  a command line
    CLI::App* add(CLI::App& parent, const std::string& name, const std::string& does,
                  const std::string& example);

    /// Says what a command does, once its own command line is read and right.
    void on(CLI::App& command, Action action);

    /// As on(), with a last look at the command line.
    /// @param check  throws CLI::ValidationError or Failure when it is not right
    void on(CLI::App& command, std::function<void()> check, Action action);

    /// Has the words of the command line changed before they are read, by this after those that were given earlier.
    void rewrite(Rewriter rewriter) { rewriters_.push_back(std::move(rewriter)); }

    /// Changes the words of a command line by all that rewrite() was given.
    void rewrite_words(std::vector<std::string>& words) const;

    /// What the chosen command does; empty as long as none is chosen.
    const Action& action() const { return action_; }

private:
    CLI::App* root_;
    std::vector<Rewriter> rewriters_;
    Action action_;
};

/// Numbers of a command line that may have a fraction; "nan" is none of them.
/// @param lowest   the lowest number that is right
/// @param highest  the highest one
/// @return what CLI::Option::check() takes
CLI::Validator real_numbers(double lowest, double highest);

/// Adds the argument NODE, 1 to 127.
/// @param node  takes it
CLI::Option* add_node(CLI::App& command, unsigned int& node);

/// Adds the option --seconds, a time greater than 0.
/// @param seconds  takes it
CLI::Option* add_seconds(CLI::App& command, double& seconds);

/// `nodevik sdo`.
void add_sdo_commands(CommandRegistry& registry);

/// `nodevik nmt`, `nodevik send` and `nodevik sync`.
void add_frame_commands(CommandRegistry& registry);

/// `nodevik nodes` and `nodevik scan`.
void add_node_commands(CommandRegistry& registry);

/// `nodevik monitor`, `nodevik record` and `nodevik decode`.
void add_watch_commands(CommandRegistry& registry);

/// `nodevik lss`.
void add_lss_commands(CommandRegistry& registry);

/// `nodevik replay`.
void add_replay_command(CommandRegistry& registry);

/// `nodevik eds`.
void add_eds_commands(CommandRegistry& registry);

/// `nodevik configure`, `nodevik pdo` and `nodevik dump`.
void add_setup_commands(CommandRegistry& registry);

}  // namespace nodevik_tool

#endif
