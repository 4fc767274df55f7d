/// @file
/// The round dial: a needle over 240 degrees of scale, and the value as text below the centre.
///
/// The drawing stands in a logical square of 335 × 335 units with its origin at the dial's centre, x to the
/// right and y downward, scaled to the smaller side of the widget. The needle of the minimum points to the
/// lower left, 60 degrees clockwise from straight down, and that of the maximum to the lower right, 300
/// degrees clockwise from straight down. Eight intervals of 30 degrees each carry a number, a triangle at
/// their ends and three lines between.

#ifndef WIDGETS_MANOMETER_H
#define WIDGETS_MANOMETER_H

#include <QTransform>

#include "widgets/abstractmeter.h"

/// A dial gauge.
///
/// The rim, the face, the bands, the ticks and the numbers are the cached background; a new value costs a
/// copy of what of it lies under the needle and the text, before and after, and these two. The value text is red from `critical` on.
class ManoMeter : public AbstractMeter {
    Q_OBJECT

public:
    /// Makes a dial of 311 × 311 from 0 to 300 (drawn 0 to 320), nominal 80, critical 220, suffix " [bar]".
    ///
    /// @param parent  owner, or nullptr for a window of its own
    explicit ManoMeter(QWidget* parent = nullptr);

protected:
    /// Draws the needle and the value text over the background.
    void paintEvent(QPaintEvent* event) override;

    /// Draws the dial. Ends the process with the assertion "m_max-m_min != 0" when the scale has no extent.
    void paintBackground(QPainter& painter) override;

    /// @return what the needle and the value text cover
    QRect valueArea() override;

    /// Turns antialiasing on and sets the logical coordinates up.
    ///
    /// @param painter  open, in the widget's coordinates
    void initCoordinateSystem(QPainter& painter);

private:
    QTransform coordinates() const;
    bool isOnTheDial(const QRect& area) const;
    double needleDegrees() const;
    QPointF valueTextOrigin(const Typesetter& text) const;
};

#endif
