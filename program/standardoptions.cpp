#include "program/standardoptions.h"

#include <cerrno>
#include <cstdio>
#include <string_view>

namespace program {

namespace {

void write_usage(std::FILE* stream, const char* operands) {
    std::fprintf(stream, "usage: %s %s\n", program_invocation_short_name, operands);
}

}  // namespace

const char* version() {
    return OHJAUSPANEELI_VERSION;
}

void print_version() {
    std::printf("%s (ohjauspaneeli) %s\n", program_invocation_short_name, version());
}

void print_usage(const char* operands) {
    write_usage(stdout, operands);
}

int refuse_command_line(const char* operands) {
    write_usage(stderr, operands);
    return usage_status;
}

bool answered_standard_option(std::span<const char* const> arguments, const char* operands) {
    const std::string_view option = arguments.size() == 1 ? arguments[0] : "";
    if (option == "--version") {
        print_version();
    } else if (option == "--help") {
        print_usage(operands);
        std::printf("       %s --help | --version\n", program_invocation_short_name);
    } else {
        return false;
    }
    return true;
}

}  // namespace program
