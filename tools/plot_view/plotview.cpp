#include "tools/plot_view/plotview.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPalette>
#include <QStyleHints>
#include <QWheelEvent>
#include <algorithm>
#include <array>
#include <cmath>

#include "tools/plot_view/curvecolors.h"
#include "tools/plot_view/lineclip.h"

namespace plot {

namespace {

constexpr double margin = 10.0;
constexpr double tick_length = 5.0;
constexpr double label_gap = 4.0;
constexpr double ticks_apart = 36.0;     // pixels between marks of the value axis
constexpr double overhang = 32.0;        // pixels that lines are drawn beyond the field, which cuts them off
constexpr double edge = 3.0;             // pixels above and below the field for lines along its edges
constexpr double wheel_notch = 120.0;    // eighths of a degree
constexpr double zoom_of_a_notch = 0.8;  // what is left of the length of an axis
constexpr double pan_of_a_notch = 0.1;   // in parts of it
constexpr double zoom_of_a_key = 0.5;
constexpr double pan_of_a_key = 0.5;
constexpr double longest_view = 4.0;     // times as long as all there is
constexpr double shortest_view = 1e-13;  // in parts of the greatest time: what doubles still tell apart
constexpr double faint = 1.6;            // contrast below which a line gets a border
constexpr double usual_line = 2.0;       // pixels: on less a colour is hard to tell
constexpr double dense_line = 1.0;       // wider ones are not to be told apart, and drawn ten times as slowly
constexpr double restless = 32.0;  // widths of the field: a curve that is drawn longer goes up and down a lot
constexpr double dots_apart = 10.0;  // pixels between samples from which on each has a dot
constexpr double dot_size = 5.0;
constexpr double swatch_width = 18.0;

constexpr QRgb dark_field = 0xFF12161A;
constexpr QRgb light_field = 0xFFFFFFFF;

QColor mixed(const QColor& one, const QColor& other, double share) {
    return QColor::fromRgbF(static_cast<float>(one.redF() + (other.redF() - one.redF()) * share),
                            static_cast<float>(one.greenF() + (other.greenF() - one.greenF()) * share),
                            static_cast<float>(one.blueF() + (other.blueF() - one.blueF()) * share));
}

std::uint32_t rgb_of(const QColor& color) {
    return color.rgb() & 0xFFFFFFU;
}

// Where a number lies between the ends of an axis, 0 to 1. Halves, so that the greatest axis has a length, too.
double share_of(const Interval& axis, double number) {
    return (number / 2 - axis.low / 2) / (axis.high / 2 - axis.low / 2);
}

double number_at(const Interval& axis, double share) {
    return axis.low + (axis.high / 2 - axis.low / 2) * share * 2;
}

Interval zoomed(const Interval& axis, double factor, double about) {
    return {about - (about - axis.low) * factor, about + (axis.high - about) * factor};
}

// What assistive technology finds of the field: a chart, whose description tells what the cursor is on.
QAccessibleInterface* make_accessible(const QString& type, QObject* object) {
    auto* const view = type == QLatin1String("plot::PlotView") ? qobject_cast<QWidget*>(object) : nullptr;
    return view != nullptr ? new QAccessibleWidget(view, QAccessible::Chart) : nullptr;
}

double widest(const QFontMetricsF& metrics, const std::vector<Tick>& ticks) {
    double width = 0;
    for (const Tick& tick : ticks) {
        width = std::max(width, metrics.horizontalAdvance(QString::fromStdString(tick.label)));
    }
    return width;
}

// Draws a line part by part, with its dashes going on: what is drawn at once is filled as one outline, and that of a line
// that crosses itself often takes far longer than its length.
void draw_polyline(QPainter& painter, const QPolygonF& line) {
    constexpr qsizetype corners_at_once = 8;
    const QPen pen = painter.pen();
    QPen part_pen = pen;
    double drawn = 0;
    for (qsizetype begin = 0; begin + 1 < line.size(); begin += corners_at_once) {
        const qsizetype count = std::min(corners_at_once + 1, line.size() - begin);
        if (pen.style() != Qt::SolidLine) {
            part_pen.setDashOffset(drawn / pen.widthF());
            painter.setPen(part_pen);
        }
        painter.drawPolyline(line.constData() + begin, static_cast<int>(count));
        for (qsizetype corner = begin + 1; corner < begin + count; ++corner) {
            drawn += QLineF(line[corner - 1], line[corner]).length();
        }
    }
    painter.setPen(pen);
}

}  // namespace

PlotView::PlotView(QWidget* parent)
    : QWidget(parent),
      data_(std::make_shared<PlotData>()),
      dark_(palette().color(QPalette::Window).lightness() < 128) {
    // Before anything is told of this widget, for what it is found as then stays. A second time changes nothing.
    QAccessible::installFactory(make_accessible);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setAccessibleName(QStringLiteral("Curves"));
    arrange();
}

void PlotView::show_data(std::shared_ptr<const PlotData> data, const Interval& home) {
    data_ = std::move(data);
    home_ = home;
    if (!(home_.span() > 0)) {
        home_ = {home_.low - 0.5, home_.low + 0.5};
    }
    changed();
}

void PlotView::start_anew() {
    switched_.clear();
    chosen_time_.reset();
    chosen_values_.reset();
    chosen_.reset();
    drag_.reset();
    cursor_.reset();
    own_scales_ = false;
}

bool PlotView::is_curve_shown(const Series& series) const {
    return switched_.count({series.id, true}) != 0 ||
           (series.shown && switched_.count({series.id, false}) == 0);
}

void PlotView::set_curve_shown(unsigned id, bool shown) {
    switched_.erase({id, !shown});
    switched_.insert({id, shown});
    if (chosen_ == id && !shown) {
        chosen_.reset();
    }
    changed();
}

void PlotView::set_curves_shown(bool shown) {
    for (const Series& series : data_->series) {
        switched_.erase({series.id, !shown});
        switched_.insert({series.id, shown});
    }
    if (!shown) {
        chosen_.reset();
    }
    changed();
}

PlotData PlotView::shown_data() const {
    PlotData result = *data_;
    for (Series& series : result.series) {
        series.shown = is_curve_shown(series);
    }
    return result;
}

std::vector<const Series*> PlotView::shown_series() const {
    std::vector<const Series*> result;
    for (const Series& series : data_->series) {
        if (is_curve_shown(series)) {
            result.push_back(&series);
        }
    }
    return result;
}

// The curve whose values stand at the axis while each has a scale of its own.
const Series* PlotView::axis_series() const {
    const auto shown = shown_series();
    const auto found =
        std::find_if(shown.begin(), shown.end(), [this](const Series* one) { return one->id == chosen_; });
    return found != shown.end() ? *found : shown.empty() ? nullptr : shown.front();
}

// All times that there are.
Interval PlotView::everything() const {
    const auto duration = data_->duration();
    return duration ? home_.united(*duration) : home_;
}

void PlotView::show_time(const Interval& time) {
    const Interval all = everything();
    const double shortest =
        std::max({std::abs(all.low) * shortest_view, std::abs(all.high) * shortest_view, all.span() * 1e-9});
    const double span = std::clamp(time.span(), shortest, all.span() * longest_view);
    const double middle = std::clamp(time.low / 2 + time.high / 2, all.low, all.high);
    chosen_time_ = Interval{middle - span / 2, middle + span / 2};
    changed();
}

void PlotView::follow() {
    chosen_time_.reset();
    changed();
}

void PlotView::zoom_time(double factor, double about) {
    show_time(zoomed(time_, factor, about));
}

void PlotView::pan_time(double share) {
    const double way = time_.span() * share;
    show_time({time_.low + way, time_.high + way});
}

void PlotView::fit_values() {
    chosen_values_.reset();
    changed();
}

void PlotView::zoom_values(double factor, double about) {
    const Interval zoom = zoomed(values_, factor, about);
    const double greatest = std::max(std::abs(zoom.low), std::abs(zoom.high));
    if (own_scales_ || !(zoom.span() > greatest * shortest_view) || greatest > greatest_value) {
        return;
    }
    chosen_values_ = zoom;
    changed();
}

void PlotView::set_own_scales(bool own) {
    own_scales_ = own;
    chosen_values_.reset();
    changed();
}

void PlotView::set_dark(bool dark) {
    dark_ = dark;
    changed();
}

QColor PlotView::color_of(const Series& series) const {
    return QColor::fromRgb(series.color.value_or(curve_color(series.id, dark_)));
}

Qt::PenStyle PlotView::style_of(const Series& series) const {
    static constexpr std::array styles = {Qt::SolidLine, Qt::DashLine, Qt::DotLine, Qt::DashDotLine};
    return series.color ? Qt::SolidLine : styles[line_pattern(series.id)];
}

bool PlotView::is_faint(const Series& series) const {
    return contrast(rgb_of(color_of(series)), rgb_of(field_color())) < faint;
}

QColor PlotView::ink_color() const {
    return dark_ ? Qt::white : Qt::black;
}

QColor PlotView::field_color() const {
    return QColor::fromRgb(dark_ ? dark_field : light_field);
}

void PlotView::set_cursor(std::optional<double> time) {
    cursor_ = time;
    cursor_of_mouse_ = false;
    tell_words();
    update();
}

void PlotView::step_cursor(int direction) {
    const double pixel = time_.span() / std::max(field_.width(), 1.0);
    seek(cursor_ ? *cursor_ + direction * pixel : time_.low + time_.span() / 2, direction);
}

// Puts the cursor on the nearest sample from a time on, and the field around it if it is outside.
void PlotView::seek(double start, int direction) {
    std::optional<double> found;
    for (const Series* series : shown_series()) {
        if (chosen_ && series->id != *chosen_) {
            continue;
        }
        const std::size_t behind = direction > 0 ? series->first_from(start) : series->first_behind(start);
        if (direction > 0 ? behind == series->size() : behind == 0) {
            continue;
        }
        const double time = series->times()[direction > 0 ? behind : behind - 1];
        found = !found ? time : direction > 0 ? std::min(*found, time) : std::max(*found, time);
    }
    if (!found) {
        return;
    }
    set_cursor(found);
    if (!time_.contains(*found)) {
        const double low = *found - time_.span() / 2;
        show_time({low, low + time_.span()});
    }
}

void PlotView::choose_curve(int direction) {
    const auto shown = shown_series();
    const auto count = static_cast<int>(shown.size());
    int number = direction > 0 ? -1 : count;
    for (int i = 0; i < count; ++i) {
        number = shown[static_cast<std::size_t>(i)]->id == chosen_ ? i : number;
    }
    number += direction;
    chosen_.reset();
    if (number >= 0 && number < count) {
        chosen_ = shown[static_cast<std::size_t>(number)]->id;
    }
    changed();
}

QString PlotView::value_words(const Series& series) const {
    const auto nearest = cursor_ ? series.nearest(*cursor_) : std::nullopt;
    const double pixel = time_.span() / std::max(field_.width(), 1.0);
    if (!nearest || *cursor_ < series.times().front() - pixel || *cursor_ > series.times().back() + pixel) {
        return QStringLiteral("–");
    }
    return QString::fromStdString(number_text(series.values()[*nearest]));
}

QString PlotView::words() const {
    const auto shown = shown_series();
    const double pixel = time_.span() / std::max(field_.width(), 1.0);
    const auto time = [&](double at) { return QString::fromStdString(time_text(at, data_->axis, pixel)); };
    if (!cursor_) {
        return QStringLiteral("%1 of %2 curves, %3 to %4")
            .arg(shown.size())
            .arg(data_->series.size())
            .arg(time(time_.low), time(time_.high));
    }
    QStringList values;
    for (const Series* series : shown) {
        if (!chosen_ || series->id == *chosen_) {
            values += QString::fromStdString(series->name) + QLatin1Char(' ') + value_words(*series);
        }
    }
    return time(*cursor_) + QStringLiteral(": ") + values.join(QStringLiteral(", "));
}

QPointF PlotView::place(double time, double value) const {
    return place_on(values_, time, value);
}

QPointF PlotView::place_on(const Interval& axis, double time, double value) const {
    return {field_.left() + share_of(time_, time) * field_.width(),
            field_.bottom() - share_of(axis, value) * field_.height()};
}

double PlotView::time_at(double x) const {
    return number_at(time_, (x - field_.left()) / field_.width());
}

double PlotView::value_at(double y) const {
    return number_at(values_, (field_.bottom() - y) / field_.height());
}

void PlotView::redraw() {
    picture_ = QPixmap();
    update();
}

void PlotView::changed() {
    arrange();
    redraw();
    tell_words();
    Q_EMIT viewChanged();
}

// A screen reader reads the description of what has the focus when it changes.
void PlotView::tell_words() {
    const QString text = words();
    if (accessibleDescription() != text) {
        setAccessibleDescription(text);
        Q_EMIT wordsChanged();
    }
}

int PlotView::most_value_ticks() const {
    return std::max(static_cast<int>(field_.height() / ticks_apart), 2);
}

// The axis that a curve fills by itself.
Interval PlotView::axis_of(const Series& series) const {
    const auto extent = series.extent(time_);
    return extent ? fitting_axis(*extent, most_value_ticks()) : Interval{0, 1};
}

// Lays out the axes: their lengths, their marks, and the field that their labels leave.
void PlotView::arrange() {
    const QFontMetricsF metrics(font());
    time_ = chosen_time_.value_or(home_);
    // What is beside the field does not depend on the labels' widths but in the value axis, which is as high anyway.
    field_ = QRectF(rect()).adjusted(margin, margin + metrics.height(), -margin,
                                     -margin - tick_length - label_gap - 2 * metrics.height());
    std::optional<Interval> extent;
    for (const Series* series : shown_series()) {
        extent = united(extent, series->extent(time_));
    }
    values_ = chosen_values_ ? *chosen_values_
              : extent       ? fitting_axis(*extent, most_value_ticks())
                             : Interval{0, 1};
    if (const Series* series = axis_series(); own_scales_ && series != nullptr) {
        values_ = axis_of(*series);
    }
    value_ticks_ = number_ticks(values_, most_value_ticks());
    field_.setLeft(std::min(field_.left() + widest(metrics, value_ticks_) + tick_length + label_gap,
                            field_.right() - 1));
    field_.setHeight(std::max(field_.height(), 1.0));
    arrange_time_ticks();
}

// As many marks as leave their labels apart.
void PlotView::arrange_time_ticks() {
    const QFontMetricsF metrics(font());
    const double gap = 2 * metrics.averageCharWidth() + 4;
    int most = std::max(static_cast<int>(field_.width() / 50), 1);
    do {
        time_ticks_ = time_ticks(time_, most, data_->axis);
        const double needed = widest(metrics, time_ticks_) + gap;
        const double apart = time_ticks_.size() < 2
                                 ? needed
                                 : place(time_ticks_[1].value, 0).x() - place(time_ticks_[0].value, 0).x();
        if (apart >= needed) {
            return;
        }
    } while (--most > 0);
}

void PlotView::paintEvent(QPaintEvent*) {
    if (picture_.isNull() || picture_.devicePixelRatio() != devicePixelRatioF()) {
        draw_picture();
    }
    QPainter painter(this);
    painter.drawPixmap(0, 0, picture_);
    paint_cursor(painter);
    if (hasFocus()) {
        painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(QRectF(rect()).adjusted(1, 1, -1, -1));
    }
}

void PlotView::draw_picture() {
    const qreal ratio = devicePixelRatioF();
    picture_ = QPixmap(
        QSize(static_cast<int>(std::ceil(width() * ratio)), static_cast<int>(std::ceil(height() * ratio))));
    picture_.setDevicePixelRatio(ratio);
    picture_.fill(palette().color(QPalette::Window));
    QPainter painter(&picture_);
    painter.setFont(font());
    painter.fillRect(field_, field_color());
    paint_grid(painter);
    paint_labels(painter);
    paint_curves(painter);
    paint_hint(painter);
}

void PlotView::paint_grid(QPainter& painter) const {
    const QColor line = mixed(field_color(), ink_color(), 0.15);
    const QColor zero = mixed(field_color(), ink_color(), 0.45);
    for (const Tick& tick : time_ticks_) {
        const double x = std::round(place(tick.value, 0).x());
        painter.setPen(line);
        painter.drawLine(QPointF(x, field_.top()), QPointF(x, field_.bottom()));
    }
    for (const Tick& tick : value_ticks_) {
        const double y = std::round(place(0, tick.value).y());
        painter.setPen(tick.label == "0" ? zero : line);
        painter.drawLine(QPointF(field_.left(), y), QPointF(field_.right(), y));
    }
    painter.setPen(zero);
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(field_);
}

void PlotView::paint_labels(QPainter& painter) const {
    const double height = painter.fontMetrics().height();
    painter.setPen(palette().color(QPalette::WindowText));
    for (const Tick& tick : time_ticks_) {
        const double x = std::round(place(tick.value, 0).x());
        painter.drawLine(QPointF(x, field_.bottom()), QPointF(x, field_.bottom() + tick_length));
        const QString label = QString::fromStdString(tick.label);
        const double half = painter.fontMetrics().horizontalAdvance(label) / 2.0 + 1;
        const double middle = std::clamp(x, half, std::max(width() - half, half));
        painter.drawText(QRectF(middle - half, field_.bottom() + tick_length + label_gap, 2 * half, height),
                         Qt::AlignCenter, label);
    }
    QString unit =
        data_->axis == TimeAxis::positions ? QStringLiteral("position") : QStringLiteral("time, seconds");
    if (data_->axis == TimeAxis::clock) {
        unit = QString::fromStdString(date_text(time_.low));
        const QString last = QString::fromStdString(date_text(time_.high));
        unit += unit == last ? QString() : QStringLiteral(" to ") + last;
    }
    painter.drawText(
        QRectF(field_.left(), field_.bottom() + tick_length + label_gap + height, field_.width(), height),
        Qt::AlignCenter, unit);
    for (const Tick& tick : value_ticks_) {
        const double y = std::round(place(0, tick.value).y());
        painter.drawLine(QPointF(field_.left() - tick_length, y), QPointF(field_.left(), y));
        painter.drawText(QRectF(0, y - height / 2, field_.left() - tick_length - label_gap, height),
                         Qt::AlignRight | Qt::AlignVCenter, QString::fromStdString(tick.label));
    }
    if (const Series* series = axis_series(); own_scales_ && series != nullptr) {
        painter.drawText(
            QRectF(label_gap, 2, width() - label_gap, height), Qt::AlignLeft | Qt::AlignVCenter,
            QStringLiteral("%1 (each curve on its own scale)").arg(QString::fromStdString(series->name)));
    }
}

void PlotView::paint_curves(QPainter& painter) const {
    painter.save();
    painter.setClipRect(field_.adjusted(0, -edge, 0, edge));
    const auto shown = shown_series();
    for (const Series* series : shown) {
        if (series->id != chosen_) {
            paint_curve(painter, *series);
        }
    }
    for (const Series* series : shown) {  // above all others
        if (series->id == chosen_) {
            paint_curve(painter, *series);
        }
    }
    painter.restore();
}

void PlotView::paint_curve(QPainter& painter, const Series& series) const {
    const auto columns = static_cast<std::size_t>(std::ceil(field_.width() * devicePixelRatioF()));
    const std::vector<Point> points = series.line(time_, std::max<std::size_t>(columns, 1));
    const std::size_t samples = series.first_behind(time_.high) - series.first_from(time_.low);
    const bool is_dense = samples > 2 * columns || drawn_length(series, points) > restless * field_.width();
    const QColor color = color_of(series);
    const double usual_width = is_dense ? dense_line : usual_line;
    const double width =
        (series.width ? static_cast<double>(*series.width) : usual_width) + (series.id == chosen_ ? 2 : 0);
    const Qt::PenStyle pattern = is_dense ? Qt::SolidLine : style_of(series);
    // Upright lines a pixel apart are sharp without it, and drawn in a fraction of the time.
    painter.setRenderHint(QPainter::Antialiasing, !is_dense);
    if (is_faint(series)) {
        painter.setPen(QPen(ink_color(), width + 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        paint_line(painter, series, points);
    }
    painter.setPen(QPen(color, width, pattern, pattern == Qt::SolidLine ? Qt::RoundCap : Qt::FlatCap,
                        is_dense ? Qt::BevelJoin : Qt::RoundJoin));
    paint_line(painter, series, points);
}

// How long the curve is on the field, in pixels. A wide line that crosses itself takes more than its length to draw.
double PlotView::drawn_length(const Series& series, const std::vector<Point>& points) const {
    const Interval axis = own_scales_ ? axis_of(series) : values_;
    double length = 0;
    std::optional<double> earlier;
    for (const Point& point : points) {
        if (!std::isfinite(point.value)) {
            earlier.reset();
            continue;
        }
        const double value = std::clamp(point.value, -greatest_value, greatest_value);
        const double y = std::clamp(place_on(axis, point.time, value).y(), field_.top(), field_.bottom());
        length += earlier ? std::abs(y - *earlier) : 0;
        earlier = y;
    }
    return length;
}

// Draws a line from gap to gap, and dots where samples stand alone or far apart.
void PlotView::paint_line(QPainter& painter, const Series& series, const std::vector<Point>& points) const {
    const Interval axis = own_scales_ ? axis_of(series) : values_;
    const QRectF area = field_.adjusted(-overhang, -overhang, overhang, overhang);
    const bool has_dots = static_cast<double>(points.size()) * dots_apart < field_.width();
    const QPen pen = painter.pen();
    const QPen dot(pen.color(), std::max(pen.widthF() + 2, dot_size), Qt::SolidLine, Qt::RoundCap);
    QPolygonF line;
    const auto finish = [&] {
        for (const QPolygonF& piece : clipped(line, area)) {
            draw_polyline(painter, piece);
        }
        if (has_dots || line.size() == 1) {
            painter.setPen(dot);
            for (const QPointF& corner : line) {
                if (area.contains(corner)) {
                    painter.drawPoint(corner);
                }
            }
            painter.setPen(pen);
        }
        line.clear();
    };
    for (const Point& point : points) {
        if (std::isfinite(point.value)) {
            line += place_on(axis, point.time, std::clamp(point.value, -greatest_value, greatest_value));
        } else {
            finish();
        }
    }
    finish();
}

void PlotView::paint_hint(QPainter& painter) const {
    const QString hint = data_->series.empty()    ? QStringLiteral("no curves yet")
                         : shown_series().empty() ? QStringLiteral("all curves are switched off")
                                                  : QString();
    painter.setPen(mixed(field_color(), ink_color(), 0.6));
    painter.drawText(field_, Qt::AlignCenter, hint);
}

void PlotView::paint_cursor(QPainter& painter) const {
    if (!cursor_ || !time_.contains(*cursor_)) {
        return;
    }
    const double x = place(*cursor_, 0).x();
    painter.setPen(mixed(field_color(), ink_color(), 0.7));
    painter.drawLine(QPointF(std::round(x), field_.top()), QPointF(std::round(x), field_.bottom()));
    paint_values(painter, x);
}

// A box beside the cursor with the time and a row for each curve, as far as they fit.
void PlotView::paint_values(QPainter& painter, double x) const {
    const QFontMetricsF metrics(painter.font());
    const double row = metrics.height() + 2;
    const auto shown = shown_series();
    const QString time =
        QString::fromStdString(time_text(*cursor_, data_->axis, time_.span() / field_.width()));
    double names = 0;
    double values = 0;
    for (const Series* series : shown) {
        names = std::max(names, metrics.horizontalAdvance(QString::fromStdString(series->name)));
        values = std::max(values, metrics.horizontalAdvance(value_words(*series)));
    }
    names = std::min(names, field_.width() / 2);
    const double inner =
        std::max(swatch_width + names + 3 * label_gap + values, metrics.horizontalAdvance(time));
    const auto most = static_cast<std::size_t>(std::max(field_.height() / row - 2, 0.0));
    const std::size_t rows = std::min(shown.size(), most);
    QRectF box(0, 0, inner + 2 * label_gap, row * static_cast<double>(rows + 1) + 2 * label_gap);
    box.moveTo(x + margin, field_.top() + label_gap);
    if (box.right() > field_.right()) {
        box.moveRight(std::max(x - margin, box.width()));
    }
    QColor background = field_color();
    background.setAlphaF(0.9F);
    painter.fillRect(box, background);
    painter.drawRect(box);
    const QColor text = ink_color();
    painter.setPen(text);
    QRectF line(box.left() + label_gap, box.top() + label_gap, inner, row);
    painter.drawText(line, Qt::AlignLeft | Qt::AlignVCenter, time);
    for (std::size_t i = 0; i < rows; ++i) {
        const Series& series = *shown[i];
        line.translate(0, row);
        painter.fillRect(QRectF(line.left(), line.center().y() - 2, swatch_width - label_gap, 4),
                         color_of(series));
        painter.setPen(text);
        painter.drawText(line.adjusted(swatch_width, 0, 0, 0), Qt::AlignLeft | Qt::AlignVCenter,
                         metrics.elidedText(QString::fromStdString(series.name), Qt::ElideMiddle, names));
        painter.drawText(line, Qt::AlignRight | Qt::AlignVCenter, value_words(series));
    }
}

void PlotView::resizeEvent(QResizeEvent*) {
    arrange();
    redraw();
}

void PlotView::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange) {
        arrange();
        redraw();
    }
    QWidget::changeEvent(event);
}

void PlotView::focusInEvent(QFocusEvent*) {
    update();
}

void PlotView::focusOutEvent(QFocusEvent*) {
    update();
}

void PlotView::keyPressEvent(QKeyEvent* event) {
    const double middle = cursor_ && time_.contains(*cursor_) ? *cursor_ : time_.low + time_.span() / 2;
    switch (event->key()) {
        case Qt::Key_Left:
            return step_cursor(-1);
        case Qt::Key_Right:
            return step_cursor(1);
        case Qt::Key_Home:
            return seek(time_.low, 1);
        case Qt::Key_End:
            return seek(time_.high, -1);
        case Qt::Key_Up:
            return choose_curve(-1);
        case Qt::Key_Down:
            return choose_curve(1);
        case Qt::Key_PageUp:
            return pan_time(-pan_of_a_key);
        case Qt::Key_PageDown:
            return pan_time(pan_of_a_key);
        case Qt::Key_Plus:
            return zoom_time(zoom_of_a_key, middle);
        case Qt::Key_Minus:
            return zoom_time(1 / zoom_of_a_key, middle);
        case Qt::Key_Escape:
            return set_cursor(std::nullopt);
        default:
            QWidget::keyPressEvent(event);
    }
}

void PlotView::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        drag_ = Drag{event->position(), time_, values_};
        setCursor(Qt::ClosedHandCursor);
    }
}

void PlotView::mouseMoveEvent(QMouseEvent* event) {
    if (drag_) {
        const QPointF way = event->position() - drag_->from;
        if (!drag_->has_begun && way.manhattanLength() < QGuiApplication::styleHints()->startDragDistance()) {
            return;  // a click of a hand that is not quite still
        }
        drag_->has_begun = true;
        const double time = way.x() / field_.width() * drag_->time.span();
        const double value = way.y() / field_.height() * drag_->values.span();
        if (chosen_values_) {
            chosen_values_ = Interval{drag_->values.low + value, drag_->values.high + value};
        }
        show_time({drag_->time.low - time, drag_->time.high - time});
        return;
    }
    const double x = std::clamp(event->position().x(), field_.left(), field_.right());
    set_cursor(time_at(x));
    cursor_of_mouse_ = true;
}

void PlotView::mouseReleaseEvent(QMouseEvent*) {
    drag_.reset();
    unsetCursor();
}

void PlotView::mouseDoubleClickEvent(QMouseEvent*) {
    chosen_time_.reset();
    chosen_values_.reset();
    changed();
}

void PlotView::wheelEvent(QWheelEvent* event) {
    const QPoint turn = event->angleDelta();
    const double up = turn.y() / wheel_notch;
    const double across = turn.x() / wheel_notch;
    if (event->modifiers().testFlag(Qt::ShiftModifier) || turn.y() == 0) {
        pan_time(-(up + across) * pan_of_a_notch);
    } else if (event->modifiers().testFlag(Qt::ControlModifier)) {
        zoom_values(std::pow(zoom_of_a_notch, up), value_at(event->position().y()));
    } else {
        zoom_time(std::pow(zoom_of_a_notch, up), time_at(event->position().x()));
    }
    event->accept();
}

void PlotView::leaveEvent(QEvent*) {
    if (cursor_of_mouse_) {
        set_cursor(std::nullopt);
    }
}

}  // namespace plot
