#include "widgets/thermometer.h"

#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>
#include <QVarLengthArray>
#include <QtMath>
#include <cmath>

#include "widgets/assertion.h"
#include "widgets/textline.h"

namespace {

constexpr const char* unit = "widgets/thermometer";
constexpr int default_side = 200;
constexpr double logical_width = 300.0;
constexpr double logical_height = 307.0;

constexpr int interval_count = 8;
constexpr int tick_count = 33;
constexpr int scale_top = 28;
constexpr int scale_bottom = 252;
constexpr int interval_height = (scale_bottom - scale_top) / interval_count;
constexpr int tick_height = (scale_bottom - scale_top) / (tick_count - 1);

constexpr double column_radius = 5;
constexpr int fluid_bottom = 262;
constexpr int fluid_below_scale = 10;  // what of the column stands below the scale's lower end
constexpr int fluid_lowest = 5;
constexpr int fluid_highest = 241;

QPainterPath tubeOutline() {
    QPainterPath path(QPointF(12.5, 267.5));
    path.quadTo(12.5, 263, 7.5, 257);
    path.lineTo(7.5, 25);
    path.quadTo(7.5, 12.5, 0, 12.5);
    path.quadTo(-7.5, 12.5, -7.5, 25);
    path.lineTo(-7.5, 257);
    path.quadTo(-12.5, 263, -12.5, 267.5);
    path.quadTo(-12.5, 278, 0, 280);
    path.quadTo(12.5, 278, 12.5, 267.5);
    return path;
}

void drawGlass(QPainter& painter) {
    QLinearGradient glass(QPointF(-2, 0), QPointF(12.5, 0));
    glass.setSpread(QGradient::ReflectSpread);
    glass.setColorAt(0, QColor(255, 255, 255, 0));
    glass.setColorAt(1, QColor(0, 150, 255, 170));
    painter.setBrush(glass);
    painter.setPen(Qt::black);
    painter.drawPath(tubeOutline());
}

void drawTicks(QPainter& painter) {
    for (int tick = 0; tick < tick_count; ++tick) {
        int length = 12;
        double width = 1.0;
        if (tick % 2 != 0) {
            length = 5;
            width = 0.5;
        } else if (tick % 4 != 0) {
            length = 8;
            width = 0.75;
        }
        const int y = scale_top + tick_height * tick;
        painter.setPen(QPen(Qt::black, width));
        painter.drawLine(QPointF(-7, y), QPointF(length - 7, y));
    }
}

/// @p color with its saturation lowered, as the light makes it.
QColor inTheLight(const QColor& color) {
    constexpr int highlight = 200;
    int hue = 0;
    int saturation = 0;
    int value = 0;
    color.getHsv(&hue, &saturation, &value);
    return QColor::fromHsv(hue, saturation - highlight, value);
}

/// Gives @p gradient the fluid's colours.
void setFluidColors(QGradient& gradient, const QColor& color) {
    gradient.setSpread(QGradient::ReflectSpread);
    gradient.setColorAt(0, inTheLight(color));
    gradient.setColorAt(1, color);
}

/// Height of the column at @p fraction of the scale, outside which it is bounded.
int columnHeight(double fraction) {
    constexpr double far = 1000;  // well outside the bounds: only keeps the conversion to int in range
    const double height = std::fmin(std::fmax(fraction * (scale_bottom - scale_top), -far), far);
    return qBound(fluid_lowest, static_cast<int>(height) + fluid_below_scale, fluid_highest);
}

// The raster engine blends a gradient pixel row by pixel row through its most general code, and hands a fill
// of many rows to helper threads; waking them takes several times what a few pixels in a row take to fill. So
// the column's gradient, which is the same in every row, is handed over as a texture of one row, and the
// column is filled in strips of a few rows each.

/// Tells whether @p device only shifts and enlarges, so that rows of the drawing are rows of pixels.
bool keepsRows(const QTransform& device) {
    return device.type() <= QTransform::TxScale && device.m11() > 0 && device.m22() > 0;
}

/// The column's colours: a gradient from its middle to both edges.
QBrush columnBrush(const QPainter& painter, const QColor& color) {
    const QTransform device = painter.deviceTransform();
    if (!keepsRows(device)) {
        QLinearGradient gradient(0, 0, column_radius, 0);
        setFluidColors(gradient, color);
        return gradient;
    }
    const QColor middle = inTheLight(color);
    const auto blend = [](int from, int to, double part) { return qRound(from + (to - from) * part); };
    const int first = qFloor(device.dx() - column_radius * device.m11());
    const int last = qCeil(device.dx() + column_radius * device.m11());
    QImage row(last - first, 1, QImage::Format_RGB32);
    auto* pixels = reinterpret_cast<QRgb*>(row.scanLine(0));
    for (int x = first; x < last; ++x) {
        const double distance = std::abs(x + 0.5 - device.dx()) / (column_radius * device.m11());
        const double edge = 1 - std::abs(1 - std::fmod(distance, 2));  // reflected
        pixels[x - first] =
            qRgb(blend(middle.red(), color.red(), edge), blend(middle.green(), color.green(), edge),
                 blend(middle.blue(), color.blue(), edge));
    }
    QBrush brush(row);
    brush.setTransform(QTransform::fromTranslate(first, 0) * device.inverted());
    return brush;
}

/// Fills @p area in strips that meet between two rows of pixels, so that no seam shows.
void fillInStrips(QPainter& painter, const QRectF& area) {
    constexpr double strip_rows = 30;
    const QTransform device = painter.deviceTransform();
    if (!keepsRows(device)) {
        painter.drawRect(area);
        return;
    }
    QVarLengthArray<QRectF, 16> strips;
    double top = area.top();
    while (top < area.bottom()) {
        const double row = std::floor(top * device.m22() + device.dy()) + strip_rows;
        const double bottom = qMin((row - device.dy()) / device.m22(), area.bottom());
        strips.append(QRectF(area.left(), top, area.width(), bottom - top));
        top = bottom;
    }
    painter.drawRects(strips.constData(), static_cast<int>(strips.size()));
}

void drawFluid(QPainter& painter, const QColor& color, double fraction) {
    QRadialGradient bulb(QPointF(0, 267), 10, QPointF(-5, 262));
    setFluidColors(bulb, color);

    const int height = columnHeight(fraction);
    painter.setPen(Qt::NoPen);
    painter.setBrush(columnBrush(painter, color));
    fillInStrips(painter, QRectF(-column_radius, fluid_bottom - height, 2 * column_radius, height));
    painter.setBrush(bulb);
    painter.drawEllipse(QRectF(-10, 257.5, 20, 20));
}

}  // namespace

ThermoMeter::ThermoMeter(QWidget* parent) : AbstractMeter(parent) {
    m_min = 0;
    m_max = 80;
    m_maximum = 80;
    setMinimum(0);
    setValue(0);
    setNominal(30);
    calcMaxMin();
    setCritical(60);
    setValueOffset(270);
    setDigitOffset(10);
    setSuffix(QStringLiteral(" [C]"));
    m_digitFont.setPointSize(15);
    m_valueFont.setPointSize(18);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    setWindowTitle(tr("Analog Thermometer"));
    resize(default_side, default_side);
    GAUGES_ASSERT_AS(unit, m_max - m_min != 0, "m_max-m_min != 0");
}

void ThermoMeter::paintEvent(QPaintEvent*) {
    {
        QPainter painter(this);
        initCoordinateSystem(painter);
        QColor color = Qt::blue;
        if (m_nominal <= m_value) {
            color = QColor(0, 200, 0);
        }
        if (m_critical <= m_value) {
            color = Qt::red;
            painter.setPen(color);
        }
        if (m_valueOffset != 0) {
            const TextLine text(valueText(), valueTextFont(), painter.device());
            const int left = -(text.size().width() / 2);
            text.draw(painter, QPointF(left, m_valueOffset + text.size().height()));
        }
        drawFluid(painter, color, (m_value - m_min) / (m_max - m_min));
    }
    drawBackground();
}

void ThermoMeter::paintBackground(QPainter& painter) {
    initCoordinateSystem(painter);
    drawGlass(painter);
    drawTicks(painter);
    if (m_digitOffset == 0) {
        return;
    }
    painter.setFont(m_digitFont);
    for (int i = 0; i <= interval_count; ++i) {
        const TextLine text(numberText(m_min + (m_max - m_min) * i / interval_count), painter.font(),
                            painter.device());
        text.draw(painter,
                  QPointF(m_digitOffset, scale_bottom - interval_height * i + text.size().width() / 4.0));
    }
}

void ThermoMeter::initCoordinateSystem(QPainter& painter) {
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(width() / 2.0, 0);
    painter.scale(height() / logical_width, height() / logical_height);
}
