#include "recorder/command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>

#include "program/failure.h"
#include "program/standardoptions.h"
#include "recorder/commands.h"

namespace vehicle_recorder {

using program::ExitStatus;

namespace {

// In the order of the help.
constexpr std::array<AddCommand*, 7> commands = {add_run_command,   add_watch_command,  add_report_command,
                                                 add_show_command,  add_export_command, add_plot_command,
                                                 add_replay_command};

int status_of(ExitStatus status) {
    return static_cast<int>(status);
}

void tell(const std::string& message) {
    std::fprintf(stderr, "vehicle-recorder: %s\n", message.c_str());
}

// Prints what was asked for instead of a command.
int print(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    return std::fflush(stdout) == 0 ? status_of(ExitStatus::done) : status_of(ExitStatus::bad_file);
}

// What is wrong with a command line, and what to type for the help that fits.
std::string explain(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    std::string what = error.what();
    if (chosen.empty()) {
        const std::vector<std::string> unknown = app.remaining();
        what = unknown.empty() ? "a command is missing" : "'" + unknown.front() + "' is none of its commands";
        std::string separator = "; right are ";
        for (const CLI::App* one : app.get_subcommands({})) {
            what += separator + one->get_name();
            separator = ", ";
        }
    }
    std::replace(what.begin(), what.end(), '\n', ' ');
    return what + "; 'vehicle-recorder" + (chosen.empty() ? "" : " " + chosen.front()->get_name()) +
           " --help' tells more";
}

}  // namespace

CLI::App& add_command(CLI::App& app, const std::string& name, const std::string& does,
                      const std::string& example) {
    CLI::App* command = app.add_subcommand(name, does);
    command->footer("Example:\n  " + example);
    return *command;
}

int run_command(std::vector<std::string> arguments) {
    CLI::App app(
        "The black box of the vehicle's line: records what passes on it, and tells what was recorded.",
        "vehicle-recorder");
    app.set_version_flag("--version", std::string(), "Print the version and end");
    app.footer(
        "Exit status: 0 done, 2 wrong usage, 4 the line cannot be used, 5 a file is bad or cannot be "
        "written,\n"
        "130 interrupted; after a program was run, that of the program.");
    app.require_subcommand(1);
    Action action;
    for (AddCommand* const add : commands) {
        add(app, action);
    }
    try {
        std::reverse(arguments.begin(), arguments.end());
        app.parse(std::move(arguments));
        return action();
    } catch (const CLI::CallForHelp&) {
        return print(app.help());
    } catch (const CLI::CallForVersion&) {
        program::print_version();
        return print("");
    } catch (const CLI::ParseError& error) {
        tell(explain(app, error));
        return status_of(ExitStatus::usage);
    } catch (const program::Failure& failure) {
        tell(failure.what());
        return status_of(failure.status());
    } catch (const program::Interrupted&) {
        return status_of(ExitStatus::interrupted);
    } catch (const program::ClosedPipe&) {
        return status_of(ExitStatus::done);
    }
}

}  // namespace vehicle_recorder
