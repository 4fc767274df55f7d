#include "widgets/abstractmeter.h"

#include <QEvent>
#include <QPainter>
#include <QStringBuilder>
#include <algorithm>
#include <cmath>
#include <limits>

#include "widgets/accessiblegauges.h"
#include "widgets/functions.h"

namespace {

constexpr unsigned scale_steps = 8;
constexpr double scale_increment = 5.0;
constexpr double least_span = 0.00001;

/// Tells whether a scale can be drawn from @p minimum to @p maximum.
bool isProperRange(double minimum, double maximum) {
    const double span = maximum - minimum;
    return span > least_span && std::isfinite(span);
}

/// @p value truncated toward zero, the nearest int where it has no such int, 0 for not-a-number.
int truncated(double value) {
    constexpr double lowest = std::numeric_limits<int>::min();
    constexpr double highest = std::numeric_limits<int>::max();
    return std::isnan(value) ? 0 : static_cast<int>(std::clamp(value, lowest, highest));
}

/// Tells whether two fonts have the same attributes, and the same of them set.
bool isSame(const QFont& one, const QFont& other) {
    return one.resolveMask() == other.resolveMask() && one == other;
}

}  // namespace

AbstractMeter::AbstractMeter(QWidget* parent) : WidgetWithBackground(parent) {
    makeGaugesAccessible();
}

void AbstractMeter::setMinimum(double minimum) {
    if (!isProperRange(minimum, m_maximum)) {
        return;
    }
    m_minimum = minimum;
    if (calcMaxMin()) {
        updateWithBackground();
    }
}

void AbstractMeter::setMaximum(double maximum) {
    if (!isProperRange(m_minimum, maximum)) {
        return;
    }
    m_maximum = maximum;
    if (calcMaxMin()) {
        updateWithBackground();
    }
}

void AbstractMeter::setNominal(double nominal) {
    m_nominal = nominal;
    updateWithBackground();
}

void AbstractMeter::setCritical(double critical) {
    m_critical = critical;
    updateWithBackground();
}

void AbstractMeter::setValueOffset(double offset) {
    m_valueOffset = offset;
    updateWithBackground();
}

void AbstractMeter::setDigitOffset(double offset) {
    m_digitOffset = offset;
    updateWithBackground();
}

void AbstractMeter::setValueFont(const QFont& font) {
    m_valueFont = font;
    updateWithBackground();
}

void AbstractMeter::setDigitFont(const QFont& font) {
    m_digitFont = font;
    updateWithBackground();
}

void AbstractMeter::setPrefix(const QString& prefix) {
    m_prefix = prefix;
    updateWithBackground();
    tellValueTextChanged(*this);
}

void AbstractMeter::setSuffix(const QString& suffix) {
    m_suffix = suffix;
    updateWithBackground();
    tellValueTextChanged(*this);
}

void AbstractMeter::setValue(int value) {
    if (value == m_value) {
        return;
    }
    storeValue(value);
    tellValueChanged(*this);
    // Each overload emits its own type first.
    Q_EMIT valueChanged(value);
    Q_EMIT valueChanged(static_cast<double>(value));
}

void AbstractMeter::setValue(double value) {
    if (value == m_value) {
        return;
    }
    storeValue(value);
    tellValueChanged(*this);
    Q_EMIT valueChanged(value);
    Q_EMIT valueChanged(truncated(value));
}

void AbstractMeter::storeValue(double value) {
    const QRect before = isVisible() ? valueArea() : QRect();
    m_value = value;
    if (isVisible()) {
        update(before | valueArea());
    }
}

QRect AbstractMeter::valueArea() {
    return rect();
}

bool AbstractMeter::calcMaxMin() {
    return range(m_minimum, m_maximum, m_min, m_max, scale_steps, true, scale_increment);
}

QString AbstractMeter::valueText() const {
    return m_prefix % numberText(m_value) % m_suffix;
}

const QFont& AbstractMeter::valueTextFont() {
    if (!isSame(m_valueTextFont.font, m_valueFont) || !isSame(m_valueTextFont.base, font())) {
        m_valueTextFont = {m_valueFont, font(), m_valueFont.resolve(font())};
    }
    return m_valueTextFont.completed;
}

const Typesetter& AbstractMeter::setValueText(const QPaintDevice* device) {
    m_valueSetter.set(valueText(), valueTextFont(), device);
    return m_valueSetter;
}

const Typesetter& AbstractMeter::setNumber(double number, const QPainter& painter) {
    m_numberSetter.set(numberText(number), painter.font(), painter.device());
    return m_numberSetter;
}

QString AbstractMeter::numberText(double number) {
    return QString::number(number);
}

bool AbstractMeter::event(QEvent* event) {
    if (event->type() == QEvent::ApplicationFontChange) {
        updateWithBackground();
    }
    return WidgetWithBackground::event(event);
}
