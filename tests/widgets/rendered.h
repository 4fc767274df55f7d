/// @file
/// Pictures of widgets, as a window shows them, and probes into them.

#ifndef TESTS_WIDGETS_RENDERED_H
#define TESTS_WIDGETS_RENDERED_H

#include <QColor>
#include <QImage>
#include <QPainter>
#include <QPointF>
#include <QTransform>
#include <QWidget>
#include <QtMath>
#include <algorithm>
#include <cstdlib>

/// An empty, transparent picture of @p size on a screen of @p ratio pixels per unit.
inline QImage emptyPicture(const QSize& size, qreal ratio = 1) {
    QImage picture(qCeil(size.width() * ratio), qCeil(size.height() * ratio),
                   QImage::Format_ARGB32_Premultiplied);
    picture.setDevicePixelRatio(ratio);
    picture.fill(Qt::transparent);
    return picture;
}

/// What @p widget, and only it, draws on a screen of @p ratio pixels per unit.
inline QImage rendered(QWidget& widget, qreal ratio = 1) {
    QImage picture = emptyPicture(widget.size(), ratio);
    widget.render(&picture, QPoint(), QRegion(), QWidget::RenderFlags());
    return picture;
}

/// The colour of @p picture at a point of the coordinates that @p logical leads from to the widget's.
inline QColor colorAt(const QImage& picture, const QTransform& logical, const QPointF& point) {
    const QPointF pixel = logical.map(point) * picture.devicePixelRatio();
    return picture.pixelColor(qFloor(pixel.x()), qFloor(pixel.y()));
}

/// The largest difference of two colours in one of red, green, blue and alpha.
inline int difference(const QColor& one, const QColor& other) {
    return std::max({std::abs(one.red() - other.red()), std::abs(one.green() - other.green()),
                     std::abs(one.blue() - other.blue()), std::abs(one.alpha() - other.alpha())});
}

/// The largest difference() of two pictures' pixels; 256 when the sizes differ.
inline int difference(const QImage& one, const QImage& other) {
    if (one.size() != other.size()) {
        return 256;
    }
    int largest = 0;
    for (int y = 0; y < one.height(); ++y) {
        for (int x = 0; x < one.width(); ++x) {
            largest = std::max(largest, difference(one.pixelColor(x, y), other.pixelColor(x, y)));
        }
    }
    return largest;
}

#endif
