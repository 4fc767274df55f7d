#include "tools/plot_view/curvemodel.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace plot {

namespace {

constexpr std::uint32_t color_bits = 0xFFFFFF;
constexpr std::size_t longest_name = 256;

// The length field holds the low 8 bits; a name that goes out in parts is never empty.
std::size_t whole_length(const PlotNamePart& part) {
    return part.length == 0 ? longest_name : part.length;
}

std::size_t parts_of(std::size_t length) {
    return (length + PlotNamePart::size - 1) / PlotNamePart::size;
}

// The first sample that is not before a position; mostly the one behind the last.
template <typename Samples>
auto from(Samples& samples, std::uint32_t position) {
    if (samples.empty() || samples.back().position < position) {
        return samples.end();
    }
    return std::lower_bound(
        samples.begin(), samples.end(), position,
        [](const CurvePoint& sample, std::uint32_t wanted) { return sample.position < wanted; });
}

}  // namespace

void Curve::set_sample(std::uint32_t position, double sample) {
    const auto at = from(samples_, position);
    if (at != samples_.end() && at->position == position) {
        at->value = sample;
        return;
    }
    const bool newest_is_last = at == samples_.end();
    samples_.insert(at, {position, sample});
    if (samples_.size() > CurveModel::longest_range) {
        // The one that is furthest away in time: after a jump back to low positions that is a high one.
        if (newest_is_last) {
            samples_.pop_front();
        } else {
            samples_.pop_back();
        }
    }
}

std::vector<CurvePoint> Curve::points(std::uint32_t first, std::uint32_t last) const {
    std::vector<CurvePoint> result;
    for (auto entry = from(samples_, first); entry != samples_.end() && entry->position <= last; ++entry) {
        const double value = entry->value * scale + level;
        if (std::isfinite(value)) {
            result.push_back({entry->position, value});
        }
    }
    return result;
}

void Curve::add_name_part(const PlotNamePart& part) {
    const std::size_t length = whole_length(part);
    const std::size_t offset = part.part * PlotNamePart::size;
    if (offset >= length) {
        return;
    }
    if (partial_name_.size() != length) {
        partial_name_.assign(length, '\0');
        parts_received_.reset();
    }
    partial_name_.replace(offset, std::min(PlotNamePart::size, length - offset), part.text, 0,
                          std::min(PlotNamePart::size, length - offset));
    parts_received_.set(part.part);
    if (parts_received_.count() == parts_of(length)) {
        name = partial_name_.substr(0, partial_name_.find('\0'));  // a part may be padded
        parts_received_.reset();
    }
}

void CurveModel::take(std::span<const std::uint8_t> batch) {
    for (; batch.size() >= plot_record_size; batch = batch.subspan(plot_record_size)) {
        if (const auto record = decode_plot_record(batch.first<plot_record_size>())) {
            std::visit([this](const auto& command) { apply(command); }, *record);
        }
    }
}

void CurveModel::apply(const PlotSample& record) {
    if (!stopped_) {
        curves_[record.table].set_sample(position_, record.sample);
        newest_ = position_;
    }
}

void CurveModel::apply(const PlotName& record) {
    curves_[record.table].name = record.name;
}

void CurveModel::apply(const PlotNextPosition&) {
    if (!stopped_) {
        ++position_;
    }
}

void CurveModel::apply(const PlotColor& record) {
    Curve& curve = curves_[record.table];
    curve.color = record.color & color_bits;
    curve.has_color = true;
    curve.width = std::max<std::uint8_t>(record.width, 1);
}

void CurveModel::apply(const PlotRange& record) {
    range_ = std::clamp<std::uint32_t>(record.range, 2, longest_range);
}

void CurveModel::apply(const PlotResetSamples&) {
    for (auto& [table, curve] : curves_) {
        curve.clear_samples();
    }
    position_ = 0;
    newest_ = 0;
}

void CurveModel::apply(const PlotStop& record) {
    stopped_ = record.stopped;
}

void CurveModel::apply(const PlotPosition& record) {
    if (!stopped_) {
        position_ = record.position;
    }
}

void CurveModel::apply(const PlotStopDraw& record) {
    drawing_stopped_ = record.stopped;
}

void CurveModel::apply(const PlotScale& record) {
    // The table number is wider here than in any record that could bring samples for it.
    if (record.table <= std::numeric_limits<std::uint8_t>::max()) {
        Curve& curve = curves_[static_cast<std::uint8_t>(record.table)];
        curve.scale = record.scale;
        curve.level = record.level;
    }
}

void CurveModel::apply(const PlotNamePart& record) {
    curves_[record.table].add_name_part(record);
}

}  // namespace plot
