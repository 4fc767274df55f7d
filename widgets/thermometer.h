/// @file
/// The upright bar: a glass thermometer with a coloured fluid.
///
/// The drawing stands in logical coordinates with the origin at the middle of the widget's top edge, y
/// downward, about 300 × 307 units of which the glass takes the middle 25. Both axes are scaled by the
/// widget's height, so that a narrow widget shows the glass and its numbers and cuts the rest. The scale runs
/// from y 252 (its lower end) to y 28 (its upper end).

#ifndef WIDGETS_THERMOMETER_H
#define WIDGETS_THERMOMETER_H

#include <QBrush>
#include <QColor>
#include <QImage>
#include <QTransform>

#include "widgets/abstractmeter.h"

/// A bar gauge.
///
/// The fluid is blue, green from `nominal` on and red from `critical` on, then with a red value text. The
/// glass, the ticks and the numbers are the cached background, which is laid over the fluid: a new value
/// costs the fluid, the text and a copy of the glass.
class ThermoMeter : public AbstractMeter {
    Q_OBJECT

public:
    /// Makes a thermometer of 200 × 200 from 0 to 80, nominal 30, critical 60, suffix " [C]".
    ///
    /// @param parent  owner, or nullptr for a window of its own
    explicit ThermoMeter(QWidget* parent = nullptr);

protected:
    /// Draws the fluid and the value text, and the glass over them.
    void paintEvent(QPaintEvent* event) override;

    /// Draws the glass, the ticks and the numbers.
    void paintBackground(QPainter& painter) override;

    /// Turns antialiasing on and sets the logical coordinates up.
    ///
    /// @param painter  open, in the widget's coordinates
    void initCoordinateSystem(QPainter& painter);

private:
    void paintFluid(QPainter& painter, const QColor& color, int height);

    /// The fluid with its column at the highest, and all that it depends on.
    struct Fluid {
        QTransform device;  ///< from logical coordinates to pixels
        QColor color;
        QBrush column;
        QImage image;
    };
    Fluid m_fluid;
};

#endif
