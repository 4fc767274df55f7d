#include "tools/command.h"

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "program/standardoptions.h"
#include "program/wholenumbers.h"
#include "tools/commandregistry.h"
#include "tools/completion.h"
#include "tools/failure.h"
#include "tools/interrupts.h"
#include "tools/output.h"
#include "tools/session.h"
#include "tools/tell.h"

namespace nodevik_tool {

namespace {

constexpr unsigned int longest_timeout_ms = 3'600'000;

// The command line: options are read into `common`, the chosen command gives the `action`.
class CommandLine {
public:
    CommandLine();
    void parse(std::vector<std::string> arguments);
    // How a line that is being typed may go on.
    std::string complete(const std::string& typed, const std::string& breaks) const {
        return completions(app_, typed, breaks);
    }

    const CommonOptions& common() const { return common_; }
    const Action& action() const { return registry_.action(); }
    // The help of the command that was chosen so far.
    std::string help() const { return app_.help(); }
    // What is wrong, and what to type for the help that fits.
    std::string explain(const CLI::ParseError& error) const;

private:
    void add_common_options();

    CLI::App app_{"Looks at a CANopen bus and changes what it is told to, and nothing else.", "nodevik"};
    CommandRegistry registry_{app_};
    CommonOptions common_;
};

CommandLine::CommandLine() {
    add_common_options();
    add_sdo_commands(registry_);
    add_frame_commands(registry_);
    add_node_commands(registry_);
    add_watch_commands(registry_);
    add_replay_command(registry_);
    add_lss_commands(registry_);
    add_eds_commands(registry_);
    add_setup_commands(registry_);
    app_.require_subcommand(1);
    app_.footer(
        "Without a bus: the only CAN interface that is up.\n"
        "Exit status: 0 done, 1 the node refused, 2 wrong usage, 3 no answer, 4 the bus cannot be used,\n"
        "5 a file is bad or cannot be written, 130 interrupted.\n"
        "Example:\n  nodevik --can can0 sdo read 5 0x1018");
}

void CommandLine::add_common_options() {
    app_.set_version_flag("--version", std::string(), "Print the version and end");
    // A script's variable that is empty must not become another bus.
    const auto is_named = [](const std::string& text) {
        return text.empty() ? std::string(
                                  "no bus is named; right are can0, 127.0.0.1:5001 with --udp, and 0 "
                                  "with --kvaser")
                            : std::string();
    };
    CLI::Option* can = app_.add_option("--can", common_.bus.can, "A CAN interface, such as can0")
                           ->type_name("IF")
                           ->check(is_named);
    CLI::Option* udp =
        app_.add_option("--udp", common_.bus.udp, "CAN over UDP: the peer, and the port to receive on")
            ->type_name("HOST:PORT[,LOCALPORT]")
            ->check(is_named);
    CLI::Option* kvaser =
        app_.add_option("--kvaser", common_.bus.kvaser, "A channel of CANlib's, 500000 bit/s unless said")
            ->type_name("CHANNEL[:BITRATE]")
            ->check(is_named);
    can->excludes(udp)->excludes(kvaser);
    udp->excludes(kvaser);
    app_.add_flag("--json", common_.json, "Results as JSON, one object a line");
    app_.add_flag("--quiet", common_.quiet, "No progress");
    app_.add_option("--timeout", common_.timeout_ms, "Longest wait for an answer; 500 unless said")
        ->type_name("MS")
        ->transform(program::whole_numbers(1, longest_timeout_ms));
    app_.add_option("--eds", common_.eds,
                    "EDS or DCF file with the names and types of all nodes' objects, or of one's")
        ->type_name("[NODE=]FILE")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
}

void CommandLine::parse(std::vector<std::string> arguments) {
    registry_.rewrite_words(arguments);
    std::reverse(arguments.begin(), arguments.end());
    app_.parse(std::move(arguments));
}

std::string CommandLine::explain(const CLI::ParseError& error) const {
    std::string command = "nodevik";
    const CLI::App* app = &app_;
    while (!app->get_subcommands().empty()) {
        app = app->get_subcommands().front();
        command += " " + app->get_name();
    }
    std::string what = error.what();
    std::vector<std::string> extra = app_.remaining(true);
    extra.erase(std::remove(extra.begin(), extra.end(), "--"), extra.end());
    if (!extra.empty()) {
        const bool is_option = extra.front().rfind('-', 0) == 0;
        what = "'" + extra.front() + "' is " + (is_option ? "none of its options" : "one argument too many");
    }
    if (const auto commands = app->get_subcommands({}); !commands.empty()) {
        what = extra.empty() ? "a command is missing" : "'" + extra.front() + "' is none of its commands";
        what += "; right are";
        for (const CLI::App* one : commands) {
            what += (one == commands.front() ? " " : ", ") + one->get_name();
        }
    }
    std::replace(what.begin(), what.end(), '\n', ' ');
    return what + "; '" + command + " --help' tells more";
}

int status_of(ExitStatus status) {
    return static_cast<int>(status);
}

// Prints what was asked for instead of a command.
int print(const std::string& text) {
    std::signal(SIGPIPE, SIG_IGN);
    std::fputs(text.c_str(), stdout);
    if (std::fflush(stdout) == 0 || errno == EPIPE) {
        return status_of(ExitStatus::done);
    }
    tell(std::string("standard output takes nothing more: ") + std::strerror(errno));
    return status_of(ExitStatus::bad_file);
}

// Has nothing that is opened later take the place of a standard stream that was closed: what is told would go there.
// What takes it now can be neither read nor written usefully.
void occupy_standard_streams() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            [[maybe_unused]] const int lowest_free = open("/dev/null", O_RDONLY);
        }
    }
}

int execute(const CommandLine& line) {
    const LibraryReports reports;
    const Interrupts interrupts;
    Output output(reports.results(), line.common().json, interrupts);
    const ExitStatus status = line.action()(Session{line.common(), reports, interrupts, output});
    output.flush();
    return status_of(status);
}

}  // namespace

int run_command(std::vector<std::string> arguments) {
    occupy_standard_streams();
    CommandLine line;
    if (arguments.size() == 3 && arguments[0] == completion_word) {
        return print(line.complete(arguments[1], arguments[2]));
    }
    try {
        line.parse(std::move(arguments));
        return execute(line);
    } catch (const CLI::CallForHelp&) {
        return print(line.help());
    } catch (const CLI::CallForVersion&) {
        program::print_version();
        return print("");
    } catch (const CLI::ParseError& error) {
        tell(line.explain(error));
        return status_of(ExitStatus::usage);
    } catch (const Failure& failure) {
        tell(failure.what());
        return status_of(failure.status());
    } catch (const Interrupted&) {
        return status_of(ExitStatus::interrupted);
    } catch (const ClosedPipe&) {
        return status_of(ExitStatus::done);
    }
}

}  // namespace nodevik_tool
