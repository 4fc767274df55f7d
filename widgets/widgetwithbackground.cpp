#include "widgets/widgetwithbackground.h"

#include <QPainter>
#include <QtMath>

namespace {

/// Pixels that cover @p size on a device of @p ratio pixels per unit.
QSize pixelSize(const QSize& size, qreal ratio) {
    return {qCeil(size.width() * ratio), qCeil(size.height() * ratio)};
}

/// Pixels per unit of what @p painter, newly opened, really paints on: rendering into an image need not have
/// the screen's.
qreal pixelRatio(const QPainter& painter) {
    const QTransform device = painter.deviceTransform();
    const bool scales = device.type() <= QTransform::TxScale && device.m11() > 0;
    return scales ? device.m11() : painter.device()->devicePixelRatioF();
}

/// A pixmap for a widget of @p size on a device of @p ratio pixels per unit; null when the size is empty.
std::unique_ptr<QPixmap> makePixmap(const QSize& size, qreal ratio) {
    auto pixmap = std::make_unique<QPixmap>(pixelSize(size, ratio));
    pixmap->setDevicePixelRatio(ratio);
    return pixmap;
}

}  // namespace

WidgetWithBackground::WidgetWithBackground(QWidget* parent)
    : QWidget(parent), m_pixmap(makePixmap(size(), devicePixelRatioF())) {}

WidgetWithBackground::~WidgetWithBackground() = default;

void WidgetWithBackground::drawBackground() {
    if (size().isEmpty()) {
        return;
    }
    QPainter painter(this);
    drawBackground(painter);
}

void WidgetWithBackground::drawBackground(QPainter& painter) {
    drawPixels(painter, background(painter));
}

const QPixmap& WidgetWithBackground::background(const QPainter& painter) {
    const qreal ratio = pixelRatio(painter);
    if (size().isEmpty()) {
        m_pixmap = std::make_unique<QPixmap>();
        m_painted_size = QSize();
    } else if (m_modified || !isBackgroundCurrent(ratio)) {
        m_pixmap = makePixmap(size(), ratio);
        m_modified = true;
        repaintBackground();
        m_painted_size = size();
        m_modified = false;
    }
    return *m_pixmap;
}

void WidgetWithBackground::drawPixels(QPainter& painter, const QPixmap& pixmap) {
    // In logical coordinates the painter would scale the pixmap by the ratio and back, at many times the cost.
    const qreal ratio = pixmap.devicePixelRatio();
    const QRectF pixels = pixmap.rect();
    if (ratio == 1) {
        painter.drawPixmap(pixels, pixmap, pixels);
        return;
    }
    painter.scale(1 / ratio, 1 / ratio);
    painter.drawPixmap(pixels, pixmap, pixels);
    painter.scale(ratio, ratio);
}

void WidgetWithBackground::repaintBackground() {
    m_pixmap->fill(QColor(0, 0, 0, 0));
    QPainter painter(m_pixmap.get());
    paintBackground(painter);
}

void WidgetWithBackground::updateWithBackground() {
    m_modified = true;
    update();
}

bool WidgetWithBackground::doRepaintBackground() const {
    return m_modified;
}

bool WidgetWithBackground::isBackgroundCurrent(qreal ratio) const {
    // Not the sizes in pixels: below one pixel per unit, two sizes of the widget may have the same.
    return m_painted_size == size() && qFuzzyCompare(m_pixmap->devicePixelRatio(), ratio);
}
