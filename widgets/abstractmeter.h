/// @file
/// The base of the scale gauges: the value, its range, its thresholds, its texts and fonts.
///
/// A gauge keeps two ranges apart. The requested range is what setMinimum() and setMaximum() were given; the
/// drawn scale is that range rounded to eight labelled intervals (range() in widgets/functions.h), and
/// everything that is drawn stands on it. The value is never clamped: a value outside the scale is kept and
/// drawn where it falls.
///
/// Below `nominal` the value is ordinary, from `nominal` on it is in the green, from `critical` on in the
/// red.

#ifndef WIDGETS_ABSTRACTMETER_H
#define WIDGETS_ABSTRACTMETER_H

#include <QFont>
#include <QString>

#include "widgets/typesetter.h"
#include "widgets/widgetwithbackground.h"

/// A gauge without a face: all but the painting.
class AbstractMeter : public WidgetWithBackground {
    Q_OBJECT
    Q_PROPERTY(double minimum READ minimum WRITE setMinimum)
    Q_PROPERTY(double maximum READ maximum WRITE setMaximum)
    Q_PROPERTY(double value READ value WRITE setValue)
    Q_PROPERTY(double nominal READ nominal WRITE setNominal)
    Q_PROPERTY(double critical READ critical WRITE setCritical)
    Q_PROPERTY(QString prefix READ prefix WRITE setPrefix)
    Q_PROPERTY(QString suffix READ suffix WRITE setSuffix)
    Q_PROPERTY(QFont valueFont READ valueFont WRITE setValueFont)
    Q_PROPERTY(double valueOffset READ valueOffset WRITE setValueOffset)
    Q_PROPERTY(QFont digitFont READ digitFont WRITE setDigitFont)
    Q_PROPERTY(double digitOffset READ digitOffset WRITE setDigitOffset)

public:
    /// Makes a gauge with the scale 0 to 1, unrounded, nominal 0.25, critical 0.75, digit offset 1, no prefix
    /// or suffix, and the application's default fonts.
    ///
    /// @param parent  owner, or nullptr for a window of its own
    explicit AbstractMeter(QWidget* parent = nullptr);

    /// @return the requested lower end, which is not always that of the drawn scale
    double minimum() const { return m_minimum; }
    /// @return the requested upper end, which is not always that of the drawn scale
    double maximum() const { return m_maximum; }
    /// @return the value as it was set, not clamped to the scale
    double value() const { return m_value; }
    /// @return where the green band starts
    double nominal() const { return m_nominal; }
    /// @return where the red band starts
    double critical() const { return m_critical; }
    /// @return distance of the value text from the gauge's origin, in logical units; 0 hides the text
    double valueOffset() const { return m_valueOffset; }
    /// @return distance of the scale numbers from the gauge's origin or scale, in logical units
    double digitOffset() const { return m_digitOffset; }
    /// @return font of the value text, its size in logical units of the drawing
    QFont valueFont() const { return m_valueFont; }
    /// @return font of the scale numbers, its size in logical units of the drawing
    QFont digitFont() const { return m_digitFont; }
    /// @return text before the value
    QString prefix() const { return m_prefix; }
    /// @return text after the value
    QString suffix() const { return m_suffix; }
    /// @return prefix, value and suffix as the gauge shows them
    QString valueText() const;

    /// Requests the lower end and rounds the drawn scale anew. The background is painted again only if the
    /// drawn scale changed.
    ///
    /// @param minimum  ignored silently unless it is more than 0.00001 (and a finite distance) below
    ///                 maximum()
    void setMinimum(double minimum);

    /// Requests the upper end and rounds the drawn scale anew. The background is painted again only if the
    /// drawn scale changed.
    ///
    /// @param maximum  ignored silently unless it is more than 0.00001 (and a finite distance) above
    ///                 minimum()
    void setMaximum(double maximum);

    /// Sets where the green band starts. @param nominal  on the scale or outside it
    void setNominal(double nominal);
    /// Sets where the red band starts. @param critical  on the scale or outside it
    void setCritical(double critical);
    /// Sets the place of the value text. @param offset  logical units, 0 hides the text
    void setValueOffset(double offset);
    /// Sets the place of the scale numbers. @param offset  logical units
    void setDigitOffset(double offset);
    /// Sets the font of the value text. @param font  its size is in logical units of the drawing
    void setValueFont(const QFont& font);
    /// Sets the font of the scale numbers. @param font  its size is in logical units of the drawing
    void setDigitFont(const QFont& font);
    /// Sets the text before the value. @param prefix  used as it stands
    void setPrefix(const QString& prefix);
    /// Sets the text after the value. @param suffix  used as it stands, e.g. " [rpm]"
    void setSuffix(const QString& suffix);

public Q_SLOTS:
    /// Shows @p value. Emits valueChanged(int), then valueChanged(double); does nothing when the value is the
    /// same.
    ///
    /// @param value  in the scale's unit, not clamped
    void setValue(int value);

    /// Shows @p value. Emits valueChanged(double), then valueChanged(int) with the value truncated toward
    /// zero; does nothing when the value is the same.
    ///
    /// @param value  in the scale's unit, not clamped
    void setValue(double value);

Q_SIGNALS:
    /// The value changed.
    ///
    /// @param value  the new value, truncated toward zero, or the nearest int beyond that type's range
    void valueChanged(int value);

    /// The value changed.
    ///
    /// @param value  the new value
    void valueChanged(double value);

protected:
    /// Rounds the requested range to the drawn scale: eight intervals, aligned to the left, from an increment
    /// of 5.
    ///
    /// @return true when the drawn scale changed
    bool calcMaxMin();

    /// Tells what of the widget shows the value: a change of the value repaints this, as it was before and as it
    /// is then. The whole widget here; a subclass that paints the value on a part of it may name that part.
    ///
    /// @return in the widget's coordinates
    virtual QRect valueArea();

    /// @return the font of the value text, its unset attributes those of the widget's font
    const QFont& valueTextFont();

    /// @return the value text, set in its font; holds until the next call
    /// @param device  what the text is drawn on
    const Typesetter& setValueText(const QPaintDevice* device);

    /// @return @p number as the scales show it, set in the painter's font; holds until the next call
    const Typesetter& setNumber(double number, const QPainter& painter);

    /// @return @p number as the scales show it: six significant digits, shortest form, decimal point
    static QString numberText(double number);

    /// Has the background painted anew when the application's font changes, of which unset attributes of
    /// the numbers' font are taken.
    bool event(QEvent* event) override;

    double m_min = 0.0;          ///< lower end of the drawn scale
    double m_max = 1.0;          ///< upper end of the drawn scale
    double m_minimum = 0.0;      ///< requested lower end
    double m_maximum = 1.0;      ///< requested upper end
    double m_value = 0.0;        ///< the value, not clamped
    double m_nominal = 0.25;     ///< start of the green band
    double m_critical = 0.75;    ///< start of the red band
    double m_valueOffset = 0.0;  ///< distance of the value text, 0 hides it
    double m_digitOffset = 1.0;  ///< distance of the scale numbers
    QFont m_valueFont;           ///< font of the value text
    QFont m_digitFont;           ///< font of the scale numbers
    QString m_prefix;            ///< text before the value
    QString m_suffix;            ///< text after the value

private:
    void storeValue(double value);

    /// A font completed by another, kept because looking a new font up costs as much as drawing the text.
    struct CompletedFont {
        QFont font;
        QFont base;
        QFont completed;
    };
    CompletedFont m_valueTextFont;
    Typesetter m_valueSetter;
    Typesetter m_numberSetter;
};

#endif
