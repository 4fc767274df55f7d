#include "tools/plot_view/livefeed.h"

#include <limits>

namespace plot {

void LiveFeed::take(std::span<const std::uint8_t> batch) {
    while (batch.size() >= plot_record_size) {
        model_.take(batch.first<plot_record_size>());
        batch = batch.subspan(plot_record_size);
        if (!model_.drawing_stopped()) {
            frozen_.reset();
        } else if (!frozen_) {
            frozen_ = model_;
        }
    }
}

PlotData LiveFeed::data() const {
    PlotData data;
    data.axis = step_s_ > 0 ? TimeAxis::seconds : TimeAxis::positions;
    for (const auto& [table, curve] : seen().curves()) {
        Series series;
        series.id = table;
        series.name = curve.name.empty() ? "table " + std::to_string(table) : curve.name;
        series.width = curve.width;
        if (curve.has_color) {
            series.color = curve.color;
        }
        for (const CurvePoint& point : curve.points(0, std::numeric_limits<std::uint32_t>::max())) {
            series.append(time_of(point.position), point.value);
        }
        data.series.push_back(std::move(series));
    }
    return data;
}

Interval LiveFeed::window() const {
    return {time_of(seen().first_shown()), time_of(seen().last_shown())};
}

double LiveFeed::time_of(std::uint32_t position) const {
    return step_s_ > 0 ? position * step_s_ : position;
}

}  // namespace plot
