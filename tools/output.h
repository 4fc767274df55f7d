/// @file
/// The results of a command: lines of text, or one JSON object a line.

#ifndef TOOLS_OUTPUT_H
#define TOOLS_OUTPUT_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "nodevik/util/monotonicclock.h"
#include "tools/colour.h"
#include "tools/interrupts.h"

namespace nodevik_tool {

/// Results on their way to a descriptor. Nobody else writes to it.
class Output {
public:
    /// Most bytes that are collected before they are written.
    static constexpr std::size_t collected_bytes = 65536;

    /// @param descriptor  takes the results; belongs to the caller
    /// @param json        whether results are asked for as JSON
    /// @param interrupts  end the wait for a reader that does not read
    Output(int descriptor, bool json, const Interrupts& interrupts)
        : descriptor_(descriptor),
          json_(json),
          coloured_(!json && takes_colour(descriptor)),
          interrupts_(&interrupts) {}

    /// Whether results are asked for as JSON.
    bool json() const { return json_; }

    /// A text in a colour where results may have colours, else the text alone. Columns are filled up before it is
    /// painted.
    std::string paint(std::string_view text, Colour colour) const {
        return coloured_ ? painted(text, colour) : std::string(text);
    }

    /// Adds a line.
    void line(std::string_view text);

    /// Adds bytes as they are.
    void bytes(std::string_view bytes);

    /// Adds an object as a line. Text in it that is no UTF-8 is replaced by U+FFFD.
    void object(const nlohmann::ordered_json& object);

    /// Writes what is collected.
    /// @throws ClosedPipe   when nobody reads any more
    /// @throws Interrupted  when a signal came while nobody read
    /// @throws Failure      when it cannot be written: the disk is full
    void flush();

    /// From now on waits no longer than a moment for a reader that does not read, all calls together, and lets go what
    /// cannot be written then: for the end after a signal. Further signals change nothing.
    void hurry();

    /// Takes the results.
    int descriptor() const { return descriptor_; }

private:
    bool wait_for_room() const;

    int descriptor_;
    bool json_;
    bool coloured_;
    const Interrupts* interrupts_;
    std::uint64_t deadline_ns_ = no_deadline;  // of a reader that does not read
    std::string collected_;
};

}  // namespace nodevik_tool

#endif
