/// @file
/// The lamp: a disc of one colour, bright when it is on and pale when it is off.
///
/// The lamp is on while it is both checked and enabled; a panel may switch it by either. An off lamp keeps
/// hue and brightness and has a fifth of the saturation: pale, not dark.

#ifndef WIDGETS_LED_H
#define WIDGETS_LED_H

#include <QColor>
#include <QPixmap>
#include <array>

#include "widgets/widgetwithbackground.h"

/// A round indicator lamp.
///
/// The disc has an edge one pixel wide in the widget's foreground colour; the cached "background" is the
/// highlight, which is laid over it. Both together are kept as two pictures, of the lamp on and of the lamp
/// off, since a lamp that blinks shows the same two in turn. The drawing stands in a logical square of 330 × 330
/// units with its origin at the centre, scaled to the smaller side of the widget.
class Led : public WidgetWithBackground {
    Q_OBJECT
    Q_PROPERTY(bool checked READ isChecked WRITE setChecked)
    Q_PROPERTY(QColor color READ color WRITE setColor)

public:
    /// Makes a lit red lamp of 330 × 330.
    ///
    /// @param parent  owner, or nullptr for a window of its own
    explicit Led(QWidget* parent = nullptr);

    /// @return whether the lamp is checked: it is lit if it is enabled, too
    bool isChecked() const { return m_checked; }
    /// @return whether the lamp is on: checked and enabled
    bool isLit() const { return m_checked && isEnabled(); }
    /// @return the lamp's colour when it is on
    QColor color() const { return m_color; }

    /// Sets the lamp's colour. @param color  the colour when it is on
    void setColor(const QColor& color);

public Q_SLOTS:
    /// Checks or unchecks the lamp and emits checkChanged() every time, also when nothing changed.
    void setChecked(bool checked);

Q_SIGNALS:
    /// setChecked() was called. @param val  what it was called with
    void checkChanged(bool val);

protected:
    /// Tells accessibility clients when enabling or disabling switched the lamp.
    void changeEvent(QEvent* event) override;

    /// Draws the disc, and the highlight over it, or copies them if they look as they did before.
    void paintEvent(QPaintEvent* event) override;

    /// Draws the highlight.
    void paintBackground(QPainter& painter) override;

    /// Turns antialiasing on and sets the logical coordinates up.
    ///
    /// @param painter  open, in the widget's coordinates
    void initCoordinateSystem(QPainter& painter);

private:
    /// All that a picture of the lamp depends on.
    struct Look {
        QColor fill;
        QColor edge;
        qint64 highlight =
            0;  ///< tells one painting of the highlight, of one size and pixel ratio, from another
        bool operator==(const Look&) const = default;
    };
    struct Picture {
        Look look;
        QPixmap pixmap;
    };

    QPixmap drawn(const Look& look, const QPixmap& highlight);

    std::array<Picture, 2> m_pictures;  ///< of the lamp off and on
    bool m_checked = true;
    QColor m_color = Qt::red;
};

#endif
