/// @file
/// Decodes the records that a plotting client receives.
///
/// A batch is a row of records of 20 bytes each. The first byte of a record is its command number and selects
/// the layout of the rest; bytes that a layout does not name may hold anything. Integers are little-endian,
/// doubles IEEE 754 binary64 in the same order. The sender's side, with the table of layouts, is
/// nodevik/util/clientfunctions.h.

#ifndef TOOLS_PLOT_VIEW_PLOTRECORD_H
#define TOOLS_PLOT_VIEW_PLOTRECORD_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>

namespace plot {

/// Length of a record in bytes.
constexpr std::size_t plot_record_size = 20;

/// @name What a record tells the client
/// @{

/// Record 1: a sample of a curve at the current position.
struct PlotSample {
    std::uint8_t table;
    double sample;
};

/// Record 2: a curve's whole name, up to 14 bytes.
struct PlotName {
    std::uint8_t table;
    std::string name;
};

/// Record 3: on to the next sample position.
struct PlotNextPosition {};

/// Record 4: a curve's colour, 0xRRGGBB, and line width in pixels.
struct PlotColor {
    std::uint8_t table;
    std::uint32_t color;
    std::uint8_t width;
};

/// Record 5: how many sample positions are shown.
struct PlotRange {
    std::uint32_t range;
};

/// Record 6: forget all samples.
struct PlotResetSamples {};

/// Record 7: stop (true) or go on (false).
struct PlotStop {
    bool stopped;
};

/// Record 8: the current sample position.
struct PlotPosition {
    std::uint32_t position;
};

/// Record 9: stop drawing (true) or go on (false).
struct PlotStopDraw {
    bool stopped;
};

/// Record 12: a curve's factor and the level of its zero.
struct PlotScale {
    std::uint32_t table;
    double scale;
    std::int32_t level;
};

/// Record 14: twelve bytes of a longer name.
struct PlotNamePart {
    static constexpr std::size_t size = 12;

    std::uint8_t table;
    std::uint8_t part;    ///< number of the part, from 0
    std::uint8_t length;  ///< length of the whole name, low 8 bits
    std::string text;     ///< always of #size bytes, zero-padded
};

/// @}

/// One decoded record.
using PlotRecord =
    std::variant<PlotSample, PlotName, PlotNextPosition, PlotColor, PlotRange, PlotResetSamples, PlotStop,
                 PlotPosition, PlotStopDraw, PlotScale, PlotNamePart>;

/// Decodes one record.
///
/// @param bytes  the record
/// @return the record, or none for a command number that has no layout (0, 10, 11, 13 and from 15 on)
std::optional<PlotRecord> decode_plot_record(std::span<const std::uint8_t, plot_record_size> bytes);

}  // namespace plot

#endif
