/// @file
/// The curves of a plotting feed as they are to be seen.

#ifndef TOOLS_PLOT_VIEW_LIVEFEED_H
#define TOOLS_PLOT_VIEW_LIVEFEED_H

#include <cstdint>
#include <optional>
#include <span>

#include "tools/plot_view/curvemodel.h"
#include "tools/plot_view/plotseries.h"

namespace plot {

/// A feed's model, and what of it is shown while the feed has drawing stopped.
class LiveFeed {
public:
    /// @param step_s  seconds from one sample position to the next; 0 when nobody knows
    explicit LiveFeed(double step_s = 0) : step_s_(step_s) {}

    /// Carries out a batch. From a record that stops drawing to the one that lets it go on, data() stays what it was at
    /// the first of them.
    /// @param batch  the bytes of a datagram
    void take(std::span<const std::uint8_t> batch);

    /// The curves with the numbers of their tables, over sample positions, or over seconds if their step is known.
    PlotData data() const;

    /// What the feed wants to be seen: the range up to the newest sample.
    Interval window() const;

    /// Whether the feed has stopped the client.
    bool stopped() const { return model_.stopped(); }

private:
    const CurveModel& seen() const { return frozen_ ? *frozen_ : model_; }
    double time_of(std::uint32_t position) const;

    double step_s_;
    CurveModel model_;
    std::optional<CurveModel> frozen_;  // what stood when drawing was stopped, while it is
};

}  // namespace plot

#endif
