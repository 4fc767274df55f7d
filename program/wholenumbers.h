/// @file
/// The whole numbers of a command line that CLI11 reads.

#ifndef PROGRAM_WHOLENUMBERS_H
#define PROGRAM_WHOLENUMBERS_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

#include "program/numbers.h"

namespace program {

/// What an option or argument takes that is a whole number as whole_number() reads it. Zeros ahead of its digits change
/// nothing, so that 010 is ten for every program; CLI11 itself takes them for octal.
/// @param lowest   the lowest number that is right, not negative
/// @param highest  the highest one
/// @return what CLI::Option::transform() takes
inline CLI::Validator whole_numbers(std::int64_t lowest, std::int64_t highest) {
    const auto look = [lowest, highest](std::string& text) {
        const auto number = whole_number(text, lowest, highest);
        if (!number) {
            return "Value " + text + " not in range " + std::to_string(lowest) + " to " +
                   std::to_string(highest);
        }
        text = std::to_string(*number);
        return std::string();
    };
    return {look, "UINT in [" + std::to_string(lowest) + " - " + std::to_string(highest) + "]"};
}

}  // namespace program

#endif
