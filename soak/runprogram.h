/// @file
/// What the programs of long runs share: the numbers of their command lines, and the file in which they leave their
/// figures, one a line, name and number, and "problem TEXT" when something went wrong.

#ifndef SOAK_RUNPROGRAM_H
#define SOAK_RUNPROGRAM_H

#include <charconv>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <system_error>

#include "program/file.h"

namespace soak {

/// Status of a program that cannot begin its run.
inline constexpr int usage_status = 2;

/// Reads a whole number that fills all of a text. @return whether it is one
template <typename Number>
bool parse(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return !text.empty() && error == std::errc() && end == text.data() + text.size();
}

/// Reads a command line of options with a value each, beside --leak, which has none.
///
/// @param store  stores a value under the option's name, and tells whether it can
/// @return whether the line is whole; simulator and directory must be told
template <typename Options, typename Store>
bool parse_options(int argc, char** argv, Options& options, const Store& store) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view name = argv[i];
        if (name == "--leak") {
            options.leak = true;
        } else if (i + 1 == argc) {
            return false;
        } else if (const std::string_view value = argv[++i]; name == "--simulator") {
            options.simulator = value;
        } else if (name == "--directory") {
            options.directory = value;
        } else if (!store(name, value, options)) {
            return false;
        }
    }
    return !options.simulator.empty() && !options.directory.empty();
}

/// A figure of a run and its name in the file.
template <typename Figures, typename Number>
struct NamedFigure {
    const char* name;
    Number Figures::*value;
};

/// Writes a line of the file.
template <typename Number>
void write_figure(std::FILE* file, const char* name, Number number) {
    std::fprintf(file, "%s %s\n", name, std::to_string(number).c_str());
}

/// Makes a run, has it run, and leaves its figures in DIRECTORY/figures, whether it goes wrong or not.
///
/// @param program  its name, for what is said on standard error
/// @param options  of the run; `directory` is one of them
/// @param write    writes the figures of a run
/// @return the program's status: 0, 1 when something went wrong, or usage_status when the run cannot begin
template <typename Run, typename Options, typename Writer>
int run_program(const char* program, const Options& options, const Writer& write) {
    const program::File file(std::fopen((options.directory + "/figures").c_str(), "we"));
    if (!file) {
        std::perror(options.directory.c_str());
        return usage_status;
    }
    try {
        Run run(options);
        int status = 0;
        try {
            run.run();
        } catch (const std::exception& failure) {
            std::fprintf(file.get(), "problem %s\n", failure.what());
            status = 1;
        }
        write(file.get(), run);
        return status;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", program, failure.what());
        return usage_status;
    }
}

}  // namespace soak

#endif
