#include "recorder/commandoptions.h"

#include <CLI/CLI.hpp>

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

void add_recording_option(CLI::App& command, std::string& file) {
    command.add_option("FILE", file, "The recording")->required()->type_name("");
}

void add_result_option(CLI::App& command, const std::string& name, std::string& file,
                       const std::string& does) {
    const CLI::Validator has_name(
        [](const std::string& text) { return text.empty() ? "needs the name of a file" : std::string(); },
        "");
    command.add_option(name, file, does)->type_name("OUT")->check(has_name);
}

void add_program_options(CLI::App& command, std::vector<std::string>& program, LineWay& way) {
    const auto read = [&way](const std::string& name) {
        if (name != "namespace" && name != "preload") {
            throw CLI::ValidationError("--way", "'" + name + "' is no way; right are namespace, preload");
        }
        way = name == "namespace" ? LineWay::mount_namespace : LineWay::preload;
    };
    command
        .add_option_function<std::string>("--way", read,
                                          "How the program gets the line's name: namespace or preload")
        ->type_name("WAY");
    program = {default_program};
    command.add_option("PROGRAM", program, "The program with its arguments; default: ohjauspaneeli")
        ->type_name("");
}

}  // namespace vehicle_recorder
