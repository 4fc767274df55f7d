#include "tools/plot_view/lineclip.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace plot {

namespace {

// The share of a segment, from 0 to 1, that is on the inner side of an edge, after Liang and Barsky.
bool cut(double distance, double change, double& begin, double& end) {
    if (change == 0) {
        return distance >= 0;
    }
    const double crossing = -distance / change;
    if (change > 0) {
        begin = std::max(begin, crossing);
    } else {
        end = std::min(end, crossing);
    }
    return begin <= end;
}

std::optional<std::pair<QPointF, QPointF>> inside(const QPointF& from, const QPointF& to,
                                                  const QRectF& area) {
    const QPointF change = to - from;
    double begin = 0;
    double end = 1;
    if (!cut(from.x() - area.left(), change.x(), begin, end) ||
        !cut(area.right() - from.x(), -change.x(), begin, end) ||
        !cut(from.y() - area.top(), change.y(), begin, end) ||
        !cut(area.bottom() - from.y(), -change.y(), begin, end)) {
        return std::nullopt;
    }
    return std::pair(begin == 0 ? from : from + change * begin, end == 1 ? to : from + change * end);
}

}  // namespace

QList<QPolygonF> clipped(const QPolygonF& line, const QRectF& area) {
    QList<QPolygonF> pieces;
    if (line.size() == 1 && area.contains(line.first())) {
        pieces.append(line);
    }
    for (qsizetype i = 1; i < line.size(); ++i) {
        const auto segment = inside(line[i - 1], line[i], area);
        if (!segment) {
            continue;
        }
        if (pieces.isEmpty() || pieces.last().last() != segment->first || segment->first != line[i - 1]) {
            pieces.append(QPolygonF{segment->first});
        }
        pieces.last().append(segment->second);
    }
    return pieces;
}

}  // namespace plot
