#include "tools/plot_view/plotrecord.h"

#include <algorithm>
#include <bit>

namespace plot {

namespace {

using Bytes = std::span<const std::uint8_t, plot_record_size>;

template <typename Unsigned>
Unsigned load_little_endian(Bytes bytes, std::size_t offset) {
    Unsigned value = 0;
    for (std::size_t i = sizeof value; i-- > 0;) {
        value = static_cast<Unsigned>(value << 8U | bytes[offset + i]);
    }
    return value;
}

std::uint32_t load_le32(Bytes bytes, std::size_t offset) {
    return load_little_endian<std::uint32_t>(bytes, offset);
}

double load_double(Bytes bytes, std::size_t offset) {
    return std::bit_cast<double>(load_little_endian<std::uint64_t>(bytes, offset));
}

std::string load_text(Bytes bytes, std::size_t offset, std::size_t size) {
    const auto field = bytes.subspan(offset, size);
    return {field.begin(), field.end()};
}

std::string until_zero(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

struct Layout {
    std::uint8_t command;
    PlotRecord (*decode)(Bytes);
};

constexpr Layout layouts[] = {
    {1,
     [](Bytes b) -> PlotRecord {
         return PlotSample{b[1], load_double(b, 4)};
     }},
    {2,
     [](Bytes b) -> PlotRecord {
         return PlotName{b[1], until_zero(load_text(b, 2, 14))};
     }},
    {3, [](Bytes) -> PlotRecord { return PlotNextPosition{}; }},
    {4,
     [](Bytes b) -> PlotRecord {
         return PlotColor{b[1], load_le32(b, 4), b[8]};
     }},
    {5, [](Bytes b) -> PlotRecord { return PlotRange{load_le32(b, 4)}; }},
    {6, [](Bytes) -> PlotRecord { return PlotResetSamples{}; }},
    {7, [](Bytes b) -> PlotRecord { return PlotStop{b[1] != 0}; }},
    {8, [](Bytes b) -> PlotRecord { return PlotPosition{load_le32(b, 4)}; }},
    {9, [](Bytes b) -> PlotRecord { return PlotStopDraw{b[1] != 0}; }},
    {12,
     [](Bytes b) -> PlotRecord {
         return PlotScale{load_le32(b, 4), load_double(b, 8), static_cast<std::int32_t>(load_le32(b, 16))};
     }},
    {14,
     [](Bytes b) -> PlotRecord {
         return PlotNamePart{b[1], b[2], b[3], load_text(b, 4, PlotNamePart::size)};
     }},
};

}  // namespace

std::optional<PlotRecord> decode_plot_record(Bytes bytes) {
    const auto* const found =
        std::find_if(std::begin(layouts), std::end(layouts),
                     [command = bytes[0]](const Layout& layout) { return layout.command == command; });
    if (found == std::end(layouts)) {
        return std::nullopt;
    }
    return found->decode(bytes);
}

}  // namespace plot
