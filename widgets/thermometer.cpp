#include "widgets/thermometer.h"

#include <QImage>
#include <QLinearGradient>
#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>
#include <QVarLengthArray>
#include <QtMath>
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

// The rectangle around the bulb's fluid, and that around all fluid with the column at its highest.
constexpr QRectF bulb_area(-10, 257.5, 20, 20);
constexpr QRectF fluid_area(-10, fluid_bottom - fluid_highest, 20, 277.5 - (fluid_bottom - fluid_highest));

/// All below @p y, where a line of text stands whose upper edge is there.
QRectF below(double y) {
    constexpr double far = 1e6;
    return {-far, y, 2 * far, far};
}

/// Tells whether something of @p area, in the painter's coordinates, is to be painted. Labels of the panel reach
/// over the empty space beside the glass, and change more often than the value.
bool isAskedFor(const QRectF& area, const QPainter& painter, const QPaintEvent& event) {
    constexpr int smooth_edge = 2;
    const QRect pixels = painter.transform().mapRect(area).toAlignedRect();
    return event.rect().intersects(pixels.adjusted(-smooth_edge, -smooth_edge, smooth_edge, smooth_edge));
}

/// Draws the column of @p height, and the bulb's fluid over its lower end.
void drawFluid(QPainter& painter, const QColor& color, int height) {
    QRadialGradient bulb(QPointF(0, 267), 10, QPointF(-5, 262));
    setFluidColors(bulb, color);
    painter.setPen(Qt::NoPen);
    painter.setBrush(columnBrush(painter, color));
    fillInStrips(painter, QRectF(-column_radius, fluid_bottom - height, 2 * column_radius, height));
    painter.setBrush(bulb);
    painter.drawEllipse(bulb_area);
}

/// What the fluid covers when the column is at its highest, in whole pixels of the device.
QRect fluidPixels(const QTransform& device) {
    return device.mapRect(fluid_area).toAlignedRect();
}

/// The fluid in @p color with the column at its highest.
QImage fluidImage(const QTransform& device, const QColor& color) {
    const QRect pixels = fluidPixels(device);
    QImage image(pixels.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setTransform(device * QTransform::fromTranslate(-pixels.x(), -pixels.y()));
    drawFluid(painter, color, fluid_highest);
    return image;
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

void ThermoMeter::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    const QTransform unscaled = painter.transform();
    initCoordinateSystem(painter);
    QColor color = Qt::blue;
    if (m_nominal <= m_value) {
        color = QColor(0, 200, 0);
    }
    if (m_critical <= m_value) {
        color = Qt::red;
        painter.setPen(color);
    }
    if (m_valueOffset != 0 && isAskedFor(below(m_valueOffset), painter, *event)) {
        const Typesetter& text = setValueText(painter.device());
        const int left = -(text.size().width() / 2);
        text.draw(painter, QPointF(left, m_valueOffset + text.size().height()));
    }
    if (isAskedFor(fluid_area, painter, *event)) {
        paintFluid(painter, color, columnHeight((m_value - m_min) / (m_max - m_min)));
    }
    painter.setTransform(unscaled);
    drawBackground(painter);
}

// A fluid of one colour is always the same but for the column's upper edge: it is drawn once, and its rows are
// copied from below the edge down. Only the row of pixels that the edge cuts is filled each time.
void ThermoMeter::paintFluid(QPainter& painter, const QColor& color, int height) {
    const QTransform device = painter.deviceTransform();
    const double top = (fluid_bottom - height) * device.m22() + device.dy();
    const double bulb_top = bulb_area.top() * device.m22() + device.dy();
    if (!keepsRows(device) || std::floor(top) >= std::floor(bulb_top)) {
        drawFluid(painter, color, height);
        return;
    }
    if (m_fluid.device != device || m_fluid.color != color) {
        m_fluid = {device, color, columnBrush(painter, color), fluidImage(device, color)};
    }
    const QRect pixels = fluidPixels(device);
    const int whole_rows = qCeil(top);
    painter.setPen(Qt::NoPen);
    painter.setBrush(m_fluid.column);
    painter.drawRect(
        QRectF(-column_radius, fluid_bottom - height, 2 * column_radius, (whole_rows - top) / device.m22()));
    painter.setTransform(QTransform::fromTranslate(pixels.x(), pixels.y()) * device.inverted(), true);
    const QRectF rows(0, whole_rows - pixels.y(), pixels.width(), pixels.bottom() + 1 - whole_rows);
    painter.drawImage(rows, m_fluid.image, rows);
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
        const Typesetter& text = setNumber(m_min + (m_max - m_min) * i / interval_count, painter);
        text.draw(painter,
                  QPointF(m_digitOffset, scale_bottom - interval_height * i + text.size().width() / 4.0));
    }
}

void ThermoMeter::initCoordinateSystem(QPainter& painter) {
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(width() / 2.0, 0);
    painter.scale(height() / logical_width, height() / logical_height);
}
