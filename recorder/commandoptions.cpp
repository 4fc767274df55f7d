#include "recorder/commandoptions.h"

#include <CLI/CLI.hpp>
#include <map>

#include "recorder/programstart.h"
#include "recorder/recording.h"

namespace vehicle_recorder {

void add_time_option(CLI::App& command, const std::string& name, std::uint64_t& time_us,
                     const std::string& does) {
    const auto read = [&time_us, name](const std::string& text) {
        const std::optional<std::uint64_t> seconds = read_seconds(text);
        if (!seconds) {
            throw CLI::ValidationError(name, "'" + text + "' is no time; right are seconds such as 12.5");
        }
        time_us = *seconds;
    };
    command.add_option_function<std::string>(name, read, does)->type_name("T");
}

void add_program_options(CLI::App& command, std::vector<std::string>& program, LineWay& way) {
    const std::map<std::string, LineWay> ways = {{"namespace", LineWay::mount_namespace},
                                                 {"preload", LineWay::preload}};
    command.add_option("--way", way, "How the program gets the line's name: namespace or preload")
        ->type_name("WAY")
        ->transform(CLI::CheckedTransformer(ways));
    program = {default_program};
    command.add_option("program", program, "The program with its arguments; default: ohjauspaneeli")
        ->type_name("PROGRAM");
}

}  // namespace vehicle_recorder
