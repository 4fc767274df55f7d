#include "program/standardoptions.h"

#include <cerrno>
#include <cstdio>
#include <string_view>

namespace program {

void print_version() {
    std::printf("%s (ohjauspaneeli) %s\n", program_invocation_short_name, OHJAUSPANEELI_VERSION);
}

void print_usage(const char* operands) {
    std::printf("usage: %s %s\n", program_invocation_short_name, operands);
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
