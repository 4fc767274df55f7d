#include "tools/plot_view/curveview.h"

#include <QPainter>
#include <QPolygonF>
#include <algorithm>
#include <cmath>

#include "nodevik/util/clientfunctions.h"

namespace {

constexpr double margin = 8.0;
constexpr double names_height = 24.0;
constexpr double labels_width = 48.0;
constexpr double swatch_length = 20.0;
constexpr int grid_lines = 10;
constexpr double farthest_pixel = 1e5;  // painters lose their precision beyond

// Colours of curves that got none, by table number.
constexpr std::uint32_t default_colors[] = {BRIGHT_GREEN, BRIGHT_BROWN,  BRIGHT_YELLOW,
                                            BRIGHT_RED,   BRIGHT_PURPLE, WHITE};

QColor color_of(std::uint8_t table, const Curve& curve) {
    return QColor::fromRgb(curve.has_color ? curve.color : default_colors[table % std::size(default_colors)]);
}

QString name_of(std::uint8_t table, const Curve& curve) {
    return curve.name.empty() ? QStringLiteral("table %1").arg(table) : QString::fromStdString(curve.name);
}

// The smallest of 100, 200, 500, 1000, ... that is not below `value`.
double round_limit(double value) {
    double limit = 100.0;
    for (int step = 0; limit < value; ++step) {
        limit *= step % 3 == 1 ? 2.5 : 2.0;
    }
    return limit;
}

}  // namespace

CurveView::CurveView(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void CurveView::take(std::span<const std::uint8_t> batch) {
    while (batch.size() >= plot_record_size) {
        model_.take(batch.first<plot_record_size>());
        batch = batch.subspan(plot_record_size);
        if (!model_.drawing_stopped()) {
            frozen_.reset();
        } else if (!frozen_) {
            frozen_ = model_;
        }
    }
    limit_ = needed_limit();
    update();
}

QRectF CurveView::field() const {
    return QRectF(rect()).adjusted(labels_width, names_height + margin, -margin, -margin);
}

QPointF CurveView::place(std::uint32_t position, double value) const {
    const QRectF area = field();
    const double across = (static_cast<double>(position) - shown().first_shown()) / (shown().range() - 1);
    const double up = std::clamp(value / limit_ * area.height() / 2.0, -farthest_pixel, farthest_pixel);
    return {area.left() + across * area.width(), area.center().y() - up};
}

void CurveView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), Qt::black);
    paint_grid(painter);
    paint_names(painter);
    paint_curves(painter);
}

void CurveView::paint_grid(QPainter& painter) const {
    const QRectF area = field();
    for (int line = 0; line <= grid_lines; ++line) {
        const double y = area.top() + area.height() * line / grid_lines;
        const double x = area.left() + area.width() * line / grid_lines;
        painter.setPen(line == grid_lines / 2 ? QColor(96, 96, 96) : QColor(48, 48, 48));
        painter.drawLine(QPointF(area.left(), y), QPointF(area.right(), y));
        painter.setPen(QColor(48, 48, 48));
        painter.drawLine(QPointF(x, area.top()), QPointF(x, area.bottom()));
    }
    painter.setPen(QColor(160, 160, 160));
    for (const double share : {-1.0, -0.5, 0.0, 0.5, 1.0}) {
        const QPointF right = {area.left() - 6.0, area.center().y() - share * area.height() / 2.0};
        painter.drawText(QRectF(0.0, right.y() - 10.0, right.x(), 20.0), Qt::AlignRight | Qt::AlignVCenter,
                         QString::number(share * limit_, 'g', 6));
    }
}

void CurveView::paint_names(QPainter& painter) const {
    double x = labels_width;
    const double y = margin + names_height / 2.0;
    for (const auto& [table, curve] : shown().curves()) {
        const QString name = name_of(table, curve);
        painter.setPen(QPen(color_of(table, curve), curve.width, Qt::SolidLine, Qt::FlatCap));
        painter.drawLine(QPointF(x, y), QPointF(x + swatch_length, y));
        x += swatch_length + 6.0;
        const double width = painter.fontMetrics().horizontalAdvance(name) + 2.0;
        painter.drawText(QRectF(x, margin, width, names_height), Qt::AlignLeft | Qt::AlignVCenter, name);
        x += width + 18.0;
    }
}

void CurveView::paint_curves(QPainter& painter) const {
    painter.setClipRect(field());
    painter.setRenderHint(QPainter::Antialiasing);
    for (const auto& [table, curve] : shown().curves()) {
        QPolygonF line;
        for (const CurvePoint& point : curve.points(shown().first_shown(), shown().last_shown())) {
            line << place(point.position, point.value);
        }
        painter.setPen(QPen(color_of(table, curve), curve.width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        if (line.size() == 1) {
            painter.drawPoint(line.first());
        } else {
            painter.drawPolyline(line);
        }
    }
}

double CurveView::needed_limit() const {
    double highest = 0.0;
    for (const auto& [table, curve] : shown().curves()) {
        for (const CurvePoint& point : curve.points(shown().first_shown(), shown().last_shown())) {
            highest = std::max(highest, std::abs(point.value));
        }
    }
    return round_limit(highest);
}
