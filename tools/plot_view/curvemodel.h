/// @file
/// What a plotting client knows: its curves, where the next sample goes and what it shows.

#ifndef TOOLS_PLOT_VIEW_CURVEMODEL_H
#define TOOLS_PLOT_VIEW_CURVEMODEL_H

#include <bitset>
#include <cstdint>
#include <deque>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "tools/plot_view/plotrecord.h"

namespace plot {

/// A sample at its position.
struct CurvePoint {
    std::uint32_t position;
    double value;

    bool operator==(const CurvePoint&) const = default;
};

/// One curve, the client's view of a "table".
class Curve {
public:
    std::string name;         ///< as sent, empty when none came
    std::uint32_t color = 0;  ///< 0xRRGGBB; meaningful when #has_color
    bool has_color = false;   ///< whether a colour came
    std::uint8_t width = 1;   ///< line width in pixels, 1 to 255
    double scale = 1.0;       ///< factor of the samples
    std::int32_t level = 0;   ///< what is added after that

    /// Stores a sample; one that stood at the same position is replaced.
    void set_sample(std::uint32_t position, double sample);

    /// Forgets all samples.
    void clear_samples() { samples_.clear(); }

    /// Tells whether any sample is stored.
    bool has_samples() const { return !samples_.empty(); }

    /// The samples from position @p first to @p last, each times the scale plus the level, in the order of
    /// their positions. What is not a finite number is left out.
    std::vector<CurvePoint> points(std::uint32_t first, std::uint32_t last) const;

    /// Takes a part of a longer name. The name changes when its last missing part has come.
    void add_name_part(const PlotNamePart& part);

private:
    std::deque<CurvePoint> samples_;  // in the order of their positions, values as they came
    std::string partial_name_;        // as long as the whole name will be
    std::bitset<256> parts_received_;
};

/// Carries out the records of batches.
///
/// Positions count on without end; the last range() of them up to the newest sample's are shown. A sender can
/// also return to position 0 after each sweep and write over the samples of the sweep before, as an
/// oscilloscope does.
class CurveModel {
public:
    /// The largest range, in sample positions; a curve keeps no more samples than that.
    static constexpr std::uint32_t longest_range = 16384;

    /// Carries out a batch in the order of its records. A record of an unknown command counts for nothing,
    /// and so does a rest of less than one record.
    ///
    /// @param batch  the bytes of a datagram
    void take(std::span<const std::uint8_t> batch);

    /// The curves by table number.
    const std::map<std::uint8_t, Curve>& curves() const { return curves_; }

    /// Number of sample positions shown, 2 to #longest_range.
    std::uint32_t range() const { return range_; }

    /// The position that the next sample goes to.
    std::uint32_t position() const { return position_; }

    /// The first position shown.
    std::uint32_t first_shown() const { return newest_ < range_ ? 0 : newest_ - range_ + 1; }

    /// The last position shown.
    std::uint32_t last_shown() const { return first_shown() + range_ - 1; }

    /// True while the client is stopped: samples and positions that come are dropped.
    bool stopped() const { return stopped_; }

    /// True while drawing is stopped: samples are taken and the picture stays.
    bool drawing_stopped() const { return drawing_stopped_; }

private:
    void apply(const PlotSample& record);
    void apply(const PlotName& record);
    void apply(const PlotNextPosition& record);
    void apply(const PlotColor& record);
    void apply(const PlotRange& record);
    void apply(const PlotResetSamples& record);
    void apply(const PlotStop& record);
    void apply(const PlotPosition& record);
    void apply(const PlotStopDraw& record);
    void apply(const PlotScale& record);
    void apply(const PlotNamePart& record);

    std::map<std::uint8_t, Curve> curves_;
    std::uint32_t range_ = 500;
    std::uint32_t position_ = 0;
    std::uint32_t newest_ = 0;  // position of the sample that came last
    bool stopped_ = false;
    bool drawing_stopped_ = false;
};

}  // namespace plot

#endif
