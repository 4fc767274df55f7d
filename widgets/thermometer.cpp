#include "widgets/thermometer.h"

#include <QFontMetrics>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>
#include <cmath>

#include "widgets/assertion.h"

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

/// Gives @p gradient the fluid's colours: @p color at the edge, a pale version of it in the light.
void setFluidColors(QGradient& gradient, const QColor& color) {
    constexpr int highlight = 200;
    int hue = 0;
    int saturation = 0;
    int value = 0;
    color.getHsv(&hue, &saturation, &value);
    gradient.setSpread(QGradient::ReflectSpread);
    gradient.setColorAt(0, QColor::fromHsv(hue, saturation - highlight, value));
    gradient.setColorAt(1, color);
}

/// Height of the column at @p fraction of the scale, outside which it is bounded.
int columnHeight(double fraction) {
    constexpr double far = 1000;  // well outside the bounds: only keeps the conversion to int in range
    const double height = std::fmin(std::fmax(fraction * (scale_bottom - scale_top), -far), far);
    return qBound(fluid_lowest, static_cast<int>(height) + fluid_below_scale, fluid_highest);
}

void drawFluid(QPainter& painter, const QColor& color, double fraction) {
    QLinearGradient column(0, 0, 5, 0);
    setFluidColors(column, color);
    QRadialGradient bulb(QPointF(0, 267), 10, QPointF(-5, 262));
    setFluidColors(bulb, color);

    const int height = columnHeight(fraction);
    painter.setPen(Qt::NoPen);
    painter.setBrush(column);
    painter.drawRect(-5, fluid_bottom - height, 10, height);
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
            painter.setFont(m_valueFont);
            const QString text = valueText();
            const QSize size = painter.fontMetrics().size(Qt::TextSingleLine, text);
            painter.drawText(QPointF(-(size.width() / 2), m_valueOffset + size.height()), text);
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
        const QString text = numberText(m_min + (m_max - m_min) * i / interval_count);
        const int width = painter.fontMetrics().size(Qt::TextSingleLine, text).width();
        painter.drawText(QPointF(m_digitOffset, scale_bottom - interval_height * i + width / 4.0), text);
    }
}

void ThermoMeter::initCoordinateSystem(QPainter& painter) {
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(width() / 2.0, 0);
    painter.scale(height() / logical_width, height() / logical_height);
}
