#include "widgets/manometer.h"

#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>
#include <QtMath>
#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "widgets/assertion.h"

namespace {

constexpr const char* unit = "widgets/manometer";
constexpr int default_side = 311;
constexpr double logical_side = 335.0;

constexpr int interval_count = 8;
constexpr int tick_count = 33;
constexpr double scale_degrees = 240.0;
constexpr double minimum_degrees = 60.0;  // clockwise from straight down
constexpr double tick_degrees = scale_degrees / (tick_count - 1);

// Pies are measured in sixteenths of a degree, counter-clockwise from 3 o'clock.
constexpr int pie_full_turn = 5760;
constexpr int pie_scale = 3840;
constexpr int pie_maximum = -480;

constexpr QColor nominal_color(0, 200, 0);

/// The circle around the dial's centre with this radius.
QRectF circle(double radius) {
    return {-radius, -radius, 2 * radius, 2 * radius};
}

QBrush outerRimBrush() {
    QRadialGradient gradient(QPointF(0, 0), 180, QPointF(-35, 145));
    gradient.setColorAt(0, QColor(250, 250, 250));
    gradient.setColorAt(1, QColor(20, 20, 20));
    return gradient;
}

QBrush innerRimBrush() {
    QRadialGradient gradient(QPointF(0, 0), 225, QPointF(76.5, 135));
    gradient.setColorAt(0, QColor(10, 10, 10));
    gradient.setColorAt(1, QColor(250, 250, 250));
    return gradient;
}

QBrush faceBrush() {
    QRadialGradient gradient(QPointF(0, 0), 182, QPointF(-12, -15));
    gradient.setColorAt(0, Qt::white);
    gradient.setColorAt(0.5, QColor(240, 240, 240));
    gradient.setColorAt(1, QColor(215, 215, 215));
    return gradient;
}

void drawRims(QPainter& painter) {
    painter.setPen(QPen(Qt::black, 4));
    painter.setBrush(outerRimBrush());
    painter.drawEllipse(circle(162));
    painter.setPen(Qt::NoPen);
    painter.setBrush(innerRimBrush());
    painter.drawEllipse(circle(152));
}

void drawFace(QPainter& painter) {
    painter.setPen(QPen(Qt::black, 4));
    painter.setBrush(faceBrush());
    painter.drawEllipse(circle(142));
}

/// Colours the scale from @p start to its end, if it starts on the scale.
void drawBand(QPainter& painter, const QColor& color, double start, double minimum, double maximum) {
    const bool on_scale = minimum <= start && start < maximum;
    if (!on_scale) {
        return;
    }
    const int angle = static_cast<int>((start - minimum) * pie_scale / (maximum - minimum));
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawPie(circle(141), pie_maximum, pie_scale - angle % pie_full_turn);
}

/// Leaves only the outer ring of the bands.
void drawFaceCentre(QPainter& painter) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(faceBrush());
    painter.drawEllipse(circle(129));
}

void drawTicks(QPainter& painter) {
    constexpr std::array triangle = {QPointF(-6, 141), QPointF(6, 141), QPointF(0, 129)};
    painter.save();
    painter.rotate(minimum_degrees);
    painter.setBrush(Qt::black);
    for (int tick = 0; tick < tick_count; ++tick) {
        if (tick % 4 == 0) {
            painter.setPen(Qt::NoPen);
            painter.drawPolygon(triangle.data(), static_cast<int>(triangle.size()));
        } else {
            const int length = tick % 2 == 0 ? 10 : 5;
            painter.setPen(QPen(Qt::black, 3));
            painter.drawLine(QPointF(0, 140), QPointF(0, 140 - length));
        }
        painter.rotate(tick_degrees);
    }
    painter.restore();
}

// The needle, pointing straight down: from its tip over the axis to its rounded tail, and the hub around the
// axis. It is filled in two parts, each without what the hub hides: as one, so long a shape overflows the
// rasterizer's cells and is rasterized up to three times. The seam lies under the hub.
constexpr double hub_radius = 10;

/// Corners that the needle lies between.
const QList<QPointF> needle_corners = {{-1, 129}, {1, 129}, {-8.1, -51}, {8.1, -51}};

/// The needle from the axis to the tip.
const QPainterPath& needleFront() {
    static const QPainterPath outline = [] {
        QPainterPath path(QPointF(-4, 0));
        path.lineTo(-1, 129);
        path.lineTo(1, 129);
        path.lineTo(4, 0);
        return path;
    }();
    return outline;
}

/// The tail, whose edges run from (±4, 0) to (±8, -50) and come out of the hub at (±80/17, -150/17), and the
/// hub.
const QPainterPath& needleBack() {
    static const QPainterPath outline = [] {
        const double meeting_degrees = qRadiansToDegrees(std::atan2(150.0, 80.0));
        QPainterPath path(QPointF(-8, -50));
        path.cubicTo(-8.1, -51, -5, -48, 0, -48);
        path.cubicTo(5, -48, 8.1, -51, 8, -50);
        path.arcTo(circle(hub_radius), meeting_degrees, -180 - 2 * meeting_degrees);
        path.closeSubpath();
        return path;
    }();
    return outline;
}

}  // namespace

ManoMeter::ManoMeter(QWidget* parent) : AbstractMeter(parent) {
    m_min = 0;
    m_max = 300;
    m_maximum = 300;
    setMinimum(0);
    calcMaxMin();
    setValue(0);
    setNominal(80);
    setCritical(220);
    setValueOffset(-100);
    setDigitOffset(105);
    setSuffix(QStringLiteral(" [bar]"));
    m_digitFont.setPointSize(20);
    m_valueFont.setPointSize(25);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    setWindowTitle(tr("Analog Barmeter"));
    resize(default_side, default_side);
    GAUGES_ASSERT_AS(unit, m_max - m_min != 0, "m_max-m_min != 0");
}

void ManoMeter::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    // Where nothing shows through, copying takes a tenth of what blending takes.
    painter.setCompositionMode(isOnTheDial(event->rect()) ? QPainter::CompositionMode_Source
                                                          : QPainter::CompositionMode_SourceOver);
    drawBackground(painter);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    initCoordinateSystem(painter);

    const QPen pen = painter.pen();
    const QTransform upright = painter.transform();
    painter.rotate(needleDegrees());
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::black);
    painter.drawPath(needleFront());
    painter.drawPath(needleBack());
    painter.setTransform(upright);

    if (m_valueOffset != 0) {
        painter.setPen(m_value >= m_critical ? QPen(Qt::red) : pen);
        const Typesetter& text = setValueText(painter.device());
        text.draw(painter, valueTextOrigin(text));
    }
}

QRect ManoMeter::valueArea() {
    const double degrees = needleDegrees();
    if (!std::isfinite(degrees)) {
        return rect();
    }
    QRectF shown = QTransform().rotate(degrees).map(QPolygonF(needle_corners)).boundingRect();
    shown |= circle(hub_radius);
    if (m_valueOffset != 0) {
        const Typesetter& text = setValueText(this);
        const QRectF line(valueTextOrigin(text) - QPointF(0, text.ascent()), text.extent());
        // Slanted glyphs hang over their line's ends, by less than its height; accented ones stand out by less.
        const double end = line.height();
        const double edge = line.height() / 3;
        shown |= line.adjusted(-end, -edge, end, edge);
    }
    constexpr int smooth_edge = 2;
    return coordinates().mapRect(shown).toAlignedRect().adjusted(-smooth_edge, -smooth_edge, smooth_edge,
                                                                 smooth_edge);
}

/// Tells whether all of @p area lies within the rim, which nothing shows through.
bool ManoMeter::isOnTheDial(const QRect& area) const {
    constexpr double rim_radius = 164;
    constexpr double smooth_edge = 2;  // pixels
    const QTransform logical = coordinates();
    const double radius = rim_radius * logical.m11() - smooth_edge;
    const double x =
        std::max(std::abs(area.left() - logical.dx()), std::abs(area.right() + 1 - logical.dx()));
    const double y =
        std::max(std::abs(area.top() - logical.dy()), std::abs(area.bottom() + 1 - logical.dy()));
    return std::hypot(x, y) <= radius;
}

double ManoMeter::needleDegrees() const {
    return minimum_degrees + (m_value - m_min) * scale_degrees / (m_max - m_min);
}

QPointF ManoMeter::valueTextOrigin(const Typesetter& text) const {
    return {-text.size().width() / 2.0, std::trunc(0 - m_valueOffset)};
}

void ManoMeter::paintBackground(QPainter& painter) {
    initCoordinateSystem(painter);
    drawRims(painter);
    drawFace(painter);
    GAUGES_ASSERT_AS(unit, m_max - m_min != 0, "m_max-m_min != 0");
    drawBand(painter, nominal_color, m_nominal, m_min, m_max);
    drawBand(painter, Qt::red, m_critical, m_min, m_max);
    drawFaceCentre(painter);
    drawTicks(painter);

    painter.setPen(Qt::black);
    painter.setFont(m_digitFont);
    for (int i = 0; i <= interval_count; ++i) {
        double number = (m_max - m_min) * i / interval_count + m_min;
        if (std::abs(number) < 0.000001) {
            number = 0;
        }
        const Typesetter& text = setNumber(number, painter);
        const QSize size = text.size();
        const double angle = (i + 5) * std::numbers::pi / 6;
        const QPointF centre(m_digitOffset * std::cos(angle), m_digitOffset * std::sin(angle));
        text.draw(painter, centre + QPointF(-size.width() / 2.0, size.height() / 4.0));
    }
}

void ManoMeter::initCoordinateSystem(QPainter& painter) {
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setTransform(coordinates(), true);
}

QTransform ManoMeter::coordinates() const {
    const double scale = qMin(width(), height()) / logical_side;
    return QTransform::fromTranslate(width() / 2, height() / 2).scale(scale, scale);
}
