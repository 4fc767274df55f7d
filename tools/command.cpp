#include "tools/command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>

#include "program/numbers.h"
#include "program/standardoptions.h"
#include "tools/edscommands.h"
#include "tools/failure.h"
#include "tools/framecommands.h"
#include "tools/interrupts.h"
#include "tools/output.h"
#include "tools/sdocommand.h"
#include "tools/session.h"
#include "tools/watchcommands.h"

namespace nodevik_tool {

namespace {

constexpr unsigned int longest_timeout_ms = 3'600'000;
constexpr double shortest_seconds = 0.001;
constexpr double longest_seconds = 1e9;

// What a command does once its command line is read.
using Action = std::function<ExitStatus(const Session&)>;

// The command line: options are read into `common`, the chosen command into `action`.
class CommandLine {
public:
    CommandLine();
    void parse(std::vector<std::string> arguments);

    const CommonOptions& common() const { return common_; }
    const Action& action() const { return action_; }
    // The help of the command that was chosen so far.
    std::string help() const { return app_.help(); }
    // What is wrong, and what to type for the help that fits.
    std::string explain(const CLI::ParseError& error) const;

private:
    CLI::App* add(CLI::App& parent, const std::string& name, const std::string& does,
                  const std::string& example);
    void add_common_options();
    void add_sdo();
    void add_nmt();
    void add_send();
    void add_frame_options(CLI::App& command);
    void add_monitor();
    void add_record();
    void add_decode();
    void add_eds();
    void move_value_to_end(std::vector<std::string>& arguments) const;

    CLI::App app_{"Looks at a CANopen bus and changes what it is told to, and nothing else.", "nodevik"};
    CLI::App* write_ = nullptr;
    CommonOptions common_;
    SdoArguments sdo_;
    std::string nmt_node_;
    std::string frame_;
    FrameOptions frames_;
    ListenLimits limits_;
    std::string log_;
    std::string description_;
    std::string object_;
    Action action_;
};

CLI::App* CommandLine::add(CLI::App& parent, const std::string& name, const std::string& does,
                           const std::string& example) {
    CLI::App* command = parent.add_subcommand(name, does);
    command->fallthrough();
    command->footer("Example:\n  " + example);
    return command;
}

CommandLine::CommandLine() {
    add_common_options();
    add_sdo();
    add_nmt();
    add_send();
    add_monitor();
    add_record();
    add_decode();
    add_eds();
    app_.require_subcommand(1);
    app_.footer(
        "Without a bus: the only CAN interface that is up.\n"
        "Exit status: 0 done, 1 the node refused, 2 wrong usage, 3 no answer, 4 the bus cannot be used,\n"
        "5 a file is bad or cannot be written, 130 interrupted.\n"
        "Example:\n  nodevik --can can0 sdo read 5 0x1018");
}

void CommandLine::add_common_options() {
    app_.set_version_flag("--version", std::string(), "Print the version and end");
    CLI::Option* can =
        app_.add_option("--can", common_.bus.can, "A CAN interface, such as can0")->type_name("IF");
    CLI::Option* udp =
        app_.add_option("--udp", common_.bus.udp, "CAN over UDP: the peer, and the port to receive on")
            ->type_name("HOST:PORT[,LOCALPORT]");
    CLI::Option* kvaser =
        app_.add_option("--kvaser", common_.bus.kvaser, "A channel of CANlib's, 500000 bit/s unless said")
            ->type_name("CHANNEL[:BITRATE]");
    can->excludes(udp)->excludes(kvaser);
    udp->excludes(kvaser);
    app_.add_flag("--json", common_.json, "Results as JSON, one object a line");
    app_.add_flag("--quiet", common_.quiet, "No progress");
    app_.add_option("--timeout", common_.timeout_ms, "Longest wait for an answer; 500 unless said")
        ->type_name("MS")
        ->check(CLI::Range(1U, longest_timeout_ms));
    app_.add_option("--eds", common_.eds,
                    "EDS or DCF file with the names and types of all nodes' objects, or of one's")
        ->type_name("[NODE=]FILE")
        ->expected(1)
        ->take_all();
}

void CommandLine::add_sdo() {
    CLI::App* sdo = add(app_, "sdo", "Read or write an object of a node", "nodevik sdo read 5 0x1018:1");
    sdo->require_subcommand(1);
    CLI::App* read = add(*sdo, "read", "Read an object: one entry, or all of an array or record",
                         "nodevik --can can0 sdo read 5 0x1008 --type str");
    write_ = add(*sdo, "write", "Write an object", "nodevik --can can0 sdo write 5 0x1017 500 --type u16");
    for (CLI::App* command : {read, write_}) {
        command->add_option("NODE", sdo_.node, "Number of the node, 1 to 127")
            ->required()
            ->check(CLI::Range(1U, program::highest_node));
        command->add_option("OBJECT", sdo_.object, "0x1018:1, 0x1018, or a name with --eds")->required();
        command
            ->add_option("--type", sdo_.type, "bool, u8 to u64, i8 to i64, r32, r64, str, oct (bytes), hex")
            ->type_name("T");
        CLI::Option* block = command->add_flag_callback(
            "--block", [this] { sdo_.mode = SdoMode::block; }, "As a block transfer, whatever the length");
        command
            ->add_flag_callback(
                "--segments", [this] { sdo_.mode = SdoMode::segmented; }, "Never as a block transfer")
            ->excludes(block);
    }
    read->add_option("--out", sdo_.file, "Put the bytes into a file; with --type the text of that type")
        ->type_name("FILE");
    read->callback(
        [this] { action_ = [this](const Session& session) { return read_objects(session, sdo_); }; });

    CLI::Option* value = write_->add_option("VALUE", sdo_.value, "What is written; it may begin with '-'");
    CLI::Option* in =
        write_->add_option("--in", sdo_.file, "Write the bytes of a file; with --type the text of that type")
            ->type_name("FILE")
            ->excludes(value);
    write_->callback([this, value, in] {
        if (value->count() == 0 && in->count() == 0) {
            throw CLI::ValidationError("VALUE", "a value or --in FILE is needed");
        }
        action_ = [this](const Session& session) { return write_object(session, sdo_); };
    });
}

void CommandLine::add_nmt() {
    CLI::App* nmt =
        add(app_, "nmt", "Command the state of a node, or of all", "nodevik --can can0 nmt start 5");
    nmt->require_subcommand(1);
    const std::vector<std::pair<std::string, std::string>> commands{
        {"start", "To operational: process data run"},
        {"stop", "To stopped: the node answers nothing but NMT"},
        {"preop", "To pre-operational: no process data"},
        {"reset", "Reset the node: all as after power-on"},
        {"reset-comm", "Reset the node's communication"}};
    for (const auto& [name, does] : commands) {
        CLI::App* command = add(*nmt, name, does, "nodevik --can can0 nmt " + name + " 5");
        command->add_option("NODE", nmt_node_, "Number of the node, 1 to 127, or all")
            ->required()
            ->check([](const std::string& text) {
                const bool right = text == "all" || program::whole_number(text, 1, program::highest_node);
                return right ? std::string() : "'" + text + "' is no node; right are 1 to 127, and all";
            });
        command->callback([this, word = name] {
            action_ = [this, word](const Session& session) {
                const auto node = program::whole_number(nmt_node_, 1, program::highest_node).value_or(0);
                return send_nmt(session, word, static_cast<unsigned int>(node));
            };
        });
    }
}

void CommandLine::add_send() {
    CLI::App* send = add(app_, "send", "Send one frame", "nodevik --can can0 send 205#0102");
    send->add_option("ID#BYTES", frame_, "185#0102; 18DAF110#00 with 29 bits; 705#R a remote request")
        ->required();
    send->callback([this] {
        parse_frame(frame_);
        action_ = [this](const Session& session) { return send_frame(session, frame_); };
    });
}

void CommandLine::add_frame_options(CLI::App& command) {
    command.add_option("--filter", frames_.kinds, "Only frames of these kinds, such as emcy,heartbeat,tpdo1")
        ->type_name("KINDS");
    command.add_option("--id", frames_.identifiers, "Only these identifiers: 0x185 or 0x180-0x1FF")
        ->type_name("RANGE");
    command.add_option("--count", frames_.count, "End after N frames")
        ->type_name("N")
        ->check(CLI::Range(1UL, UINT64_MAX));
    CLI::Option* raw = command.add_flag("--raw", frames_.raw, "Lines as candump -L writes them");
    command.add_flag("--statistics", frames_.statistics, "No frames, but how many of each identifier")
        ->excludes(raw);
}

void CommandLine::add_monitor() {
    CLI::App* monitor = add(app_, "monitor", "Show the frames of the bus",
                            "nodevik --can can0 monitor --filter emcy,heartbeat");
    add_frame_options(*monitor);
    monitor->add_option("--seconds", limits_.seconds, "End after this time")
        ->type_name("S")
        ->check(CLI::Range(shortest_seconds, longest_seconds));
    monitor->callback([this] {
        action_ = [this](const Session& session) { return monitor_bus(session, frames_, limits_); };
    });
}

void CommandLine::add_record() {
    CLI::App* record = add(app_, "record", "Write the frames of the bus into a log, as candump -L does",
                           "nodevik --can can0 record bus.log --seconds 60");
    record->add_option("FILE", log_, "The log; what is in it is replaced")->required();
    record->add_option("--seconds", limits_.seconds, "End after this time")
        ->type_name("S")
        ->check(CLI::Range(shortest_seconds, longest_seconds));
    record->add_option("--max-size", limits_.max_bytes, "End before the log has more bytes")
        ->type_name("N")
        ->check(CLI::Range(1UL, UINT64_MAX));
    record->callback(
        [this] { action_ = [this](const Session& session) { return record_bus(session, log_, limits_); }; });
}

void CommandLine::add_decode() {
    CLI::App* decode = add(app_, "decode", "Show the frames of a log",
                           "nodevik decode bus.log --filter sdo-request,sdo-answer");
    decode->add_option("FILE", log_, "A log, also one of candump -L")->required();
    add_frame_options(*decode);
    decode->callback(
        [this] { action_ = [this](const Session& session) { return decode_log(session, log_, frames_); }; });
}

void CommandLine::add_eds() {
    CLI::App* eds = add(app_, "eds", "Look into an EDS or DCF file", "nodevik eds check pump.eds");
    eds->require_subcommand(1);
    CLI::App* check = add(*eds, "check", "Tell what is wrong or odd in a file", "nodevik eds check pump.eds");
    check->add_option("FILE", description_, "The EDS or DCF file")->required();
    check->callback([this] {
        action_ = [this](const Session& session) { return check_description(session.output, description_); };
    });
    CLI::App* show = add(*eds, "show", "Show the entries of a file", "nodevik eds show pump.eds 0x1018");
    show->add_option("FILE", description_, "The EDS or DCF file")->required();
    show->add_option("OBJECT", object_, "0x1018, 0x1018:1 or a name; all when it is left out");
    show->callback([this] {
        action_ = [this](const Session& session) {
            return show_description(session.output, description_, object_);
        };
    });
}

// What follows OBJECT in "sdo write" is the value, also when it begins with '-', unless it is an option of the
// command's. It is put behind all options, where nothing is taken for one.
void CommandLine::move_value_to_end(std::vector<std::string>& arguments) const {
    const auto option_of = [this](const std::string& word) {
        const std::string name = word.substr(0, word.find('='));
        const CLI::Option* option = write_->get_option_no_throw(name);
        return option != nullptr ? option : app_.get_option_no_throw(name);
    };
    int words = 0;  // "sdo", "write", NODE, OBJECT
    for (auto word = arguments.begin(); word != arguments.end(); ++word) {
        const CLI::Option* option = word->rfind("--", 0) == 0 ? option_of(*word) : nullptr;
        if (*word == "--" || *word == "--help") {
            return;
        }
        if (option != nullptr) {
            const bool has_value = option->get_type_size() > 0 && word->find('=') == std::string::npos;
            if (has_value && ++word == arguments.end()) {
                return;
            }
        } else if ((words == 0 && *word != "sdo") || (words == 1 && *word != "write")) {
            return;
        } else if (++words > 4) {
            const std::string value = *word;
            arguments.erase(word);
            arguments.insert(arguments.end(), {"--", value});
            return;
        }
    }
}

void CommandLine::parse(std::vector<std::string> arguments) {
    move_value_to_end(arguments);
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
    if (const auto commands = app->get_subcommands({}); !commands.empty()) {
        const std::vector<std::string> unknown = app_.remaining(true);
        what = unknown.empty() ? "a command is missing" : "'" + unknown.front() + "' is none of its commands";
        what += "; right are";
        for (const CLI::App* one : commands) {
            what += (one == commands.front() ? " " : ", ") + one->get_name();
        }
    }
    std::replace(what.begin(), what.end(), '\n', ' ');
    return what + "; '" + command + " --help' tells more";
}

void tell(const std::string& message) {
    std::fprintf(stderr, "nodevik: %s\n", message.c_str());
}

int status_of(ExitStatus status) {
    return static_cast<int>(status);
}

// Prints what was asked for instead of a command.
int print(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    return std::fflush(stdout) == 0 ? status_of(ExitStatus::done) : status_of(ExitStatus::bad_file);
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
    CommandLine line;
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
