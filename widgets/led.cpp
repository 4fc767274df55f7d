#include "widgets/led.h"

#include <QEvent>
#include <QPainter>
#include <QPen>
#include <QRadialGradient>

#include "widgets/accessiblegauges.h"

namespace {

constexpr int default_side = 330;
constexpr double logical_side = 330.0;
constexpr double off_saturation = 0.2;
constexpr double outline_saturation = 0.5;

/// @p color with its saturation multiplied by @p factor and truncated; hue, value and alpha stay.
QColor withSaturation(const QColor& color, double factor) {
    int hue = 0;
    int saturation = 0;
    int value = 0;
    int alpha = 0;
    color.getHsv(&hue, &saturation, &value, &alpha);
    return QColor::fromHsv(hue, static_cast<int>(saturation * factor), value, alpha);
}

}  // namespace

Led::Led(QWidget* parent) : WidgetWithBackground(parent) {
    resize(default_side, default_side);
    makeGaugesAccessible();
}

void Led::setColor(const QColor& color) {
    m_color = color;
    updateWithBackground();
}

void Led::setChecked(bool checked) {
    const bool was_lit = isLit();
    m_checked = checked;
    updateWithBackground();
    if (isLit() != was_lit) {
        tellLampSwitched(*this);
    }
    Q_EMIT checkChanged(m_checked);
}

void Led::changeEvent(QEvent* event) {
    WidgetWithBackground::changeEvent(event);
    if (event->type() == QEvent::EnabledChange && m_checked) {
        tellLampSwitched(*this);
    }
}

void Led::paintEvent(QPaintEvent*) {
    if (size().isEmpty()) {
        return;
    }
    QPainter painter(this);
    const QPixmap& highlight = background(painter);
    const Look look = {isLit() ? m_color : withSaturation(m_color, off_saturation), painter.pen().color(),
                       highlight.cacheKey()};
    Picture& picture = m_pictures[isLit() ? 1 : 0];
    if (picture.look != look) {
        picture = {look, drawn(look, highlight)};
    }
    drawPixels(painter, picture.pixmap);
}

/// The disc in the colours of @p look under @p highlight.
QPixmap Led::drawn(const Look& look, const QPixmap& highlight) {
    QPixmap pixmap(highlight.size());
    pixmap.setDevicePixelRatio(highlight.devicePixelRatio());
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    initCoordinateSystem(painter);
    painter.setBrush(look.fill);
    // The outline stays the foreground colour's thin line: panels are drawn for lamps with a dark edge.
    [[maybe_unused]] const QPen outline(withSaturation(m_color, outline_saturation), 3.0);
    // One pixel at any size: in logical units a small lamp's edge would be too thin to see.
    painter.setPen(QPen(look.edge, 0));
    painter.drawEllipse(-149, -149, 299, 299);
    painter.resetTransform();
    drawPixels(painter, highlight);
    return pixmap;
}

void Led::paintBackground(QPainter& painter) {
    initCoordinateSystem(painter);
    painter.setPen(Qt::NoPen);
    const QPointF spot(-40.0, -40.0);
    QRadialGradient highlight(spot, 120.0, spot);
    highlight.setColorAt(0.0, QColor(255, 255, 255, 200));
    highlight.setColorAt(1.0, QColor(255, 255, 255, 0));
    painter.setBrush(highlight);
    painter.drawEllipse(-147, -147, 297, 297);
}

void Led::initCoordinateSystem(QPainter& painter) {
    const double scale = qMin(width(), height()) / logical_side;
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(QPoint(width() / 2, height() / 2));
    painter.scale(scale, scale);
}
