/// @file
/// Reads the numbers of a command line.
///
/// A number is a whole argument: decimal digits, or hexadecimal ones after "0x", ahead of them a minus sign
/// where a range has negative numbers. An empty argument, a blank, a letter behind the digits or a number out
/// of its range makes the command line wrong. A program reads all of its arguments before it does anything,
/// so that a wrong one changes nothing:
///
///     program::Numbers numbers;
///     const unsigned port = numbers.read(argv[1], 1, program::highest_port);
///     const unsigned node = numbers.read(argv[2], 1, program::highest_node);
///     if (!numbers.all_right()) {
///         return program::refuse_command_line(operands);
///     }

#ifndef PROGRAM_NUMBERS_H
#define PROGRAM_NUMBERS_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace program {

constexpr unsigned highest_port = 65535;  ///< of UDP; 0 is none
constexpr unsigned highest_node = 127;    ///< number of a CANopen node (CiA 301); the lowest is 1

/// Reads a whole number.
/// @param text     the argument
/// @param lowest   the lowest number that is right
/// @param highest  the highest one
/// @return         the number, or none if @p text is not one of them
std::optional<std::int64_t> whole_number(std::string_view text, std::int64_t lowest, std::int64_t highest);

/// Reads one number after the other, and remembers whether all of them were right.
class Numbers {
public:
    /// Reads a number without a sign.
    /// @param text     the argument
    /// @param lowest   the lowest number that is right
    /// @param highest  the highest one
    /// @return         the number; @p lowest if @p text is not one of them
    unsigned read(std::string_view text, unsigned lowest, unsigned highest);

    /// Tells whether every number so far was right.
    bool all_right() const { return all_right_; }

private:
    bool all_right_ = true;
};

}  // namespace program

#endif
