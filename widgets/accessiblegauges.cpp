#include "widgets/accessiblegauges.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QCoreApplication>

#include "widgets/abstractmeter.h"
#include "widgets/led.h"

namespace {

/// What meters and lamps have in common: the name, and the description that starts with the value in words.
///
/// Clients may keep an interface beyond its widget's life: every question is asked anew of the object, which
/// is no meter or lamp any more while it is being destroyed.
class AccessibleGauge : public QAccessibleWidget {
public:
    using QAccessibleWidget::QAccessibleWidget;

    QString text(QAccessible::Text kind) const override {
        switch (kind) {
            case QAccessible::Name:
                return nameText();
            case QAccessible::Value:
                return valueText();
            case QAccessible::Description:
                return descriptionText();
            default:
                return QAccessibleWidget::text(kind);
        }
    }

    QAccessible::State state() const override {
        QAccessible::State state = QAccessibleWidget::state();
        state.readOnly = true;
        return state;
    }

protected:
    /// @return the value in words; empty while the object is being destroyed
    virtual QString valueText() const = 0;

private:
    QString nameText() const {
        const QString name = QAccessibleWidget::text(QAccessible::Name);
        return name.isEmpty() && object() != nullptr ? object()->objectName() : name;
    }

    QString descriptionText() const {
        const auto* gauge = qobject_cast<const QWidget*>(object());
        if (gauge == nullptr || gauge->accessibleDescription().isEmpty()) {
            return valueText();
        }
        return valueText() + QStringLiteral(", ") + gauge->accessibleDescription();
    }
};

/// A meter. Its value can be read and not be set: it shows what was measured, and only the program knows
/// that.
class AccessibleMeter : public AccessibleGauge, public QAccessibleValueInterface {
public:
    explicit AccessibleMeter(AbstractMeter* meter) : AccessibleGauge(meter, QAccessible::ProgressBar) {}

    void* interface_cast(QAccessible::InterfaceType type) override {
        if (type == QAccessible::ValueInterface) {
            return static_cast<QAccessibleValueInterface*>(this);
        }
        return AccessibleGauge::interface_cast(type);
    }

    QVariant currentValue() const override { return meter() != nullptr ? meter()->value() : QVariant(); }
    QVariant minimumValue() const override { return meter() != nullptr ? meter()->minimum() : QVariant(); }
    QVariant maximumValue() const override { return meter() != nullptr ? meter()->maximum() : QVariant(); }
    QVariant minimumStepSize() const override { return 0.0; }  // none: the needle moves without steps
    void setCurrentValue(const QVariant& /*value*/) override {}

protected:
    QString valueText() const override { return meter() != nullptr ? meter()->valueText() : QString(); }

private:
    const AbstractMeter* meter() const { return qobject_cast<const AbstractMeter*>(object()); }
};

/// A lamp: on while it is lit, whichever of its two switches put it out.
class AccessibleLamp : public AccessibleGauge {
public:
    explicit AccessibleLamp(Led* lamp) : AccessibleGauge(lamp, QAccessible::CheckBox) {}

    QAccessible::State state() const override {
        QAccessible::State state = AccessibleGauge::state();
        state.checkable = true;
        state.checked = lamp() != nullptr && lamp()->isLit();
        return state;
    }

protected:
    QString valueText() const override {
        if (lamp() == nullptr) {
            return {};
        }
        return lamp()->isLit() ? QCoreApplication::translate("Led", "päällä")
                               : QCoreApplication::translate("Led", "pois");
    }

private:
    const Led* lamp() const { return qobject_cast<const Led*>(object()); }
};

/// The interface to @p object under the name of its class or one that it inherits, which the toolkit goes
/// through one by one; nullptr for what is no gauge. The toolkit owns the result.
QAccessibleInterface* makeInterface(const QString& className, QObject* object) {
    if (className == QLatin1StringView(AbstractMeter::staticMetaObject.className())) {
        auto* meter = qobject_cast<AbstractMeter*>(object);
        return meter != nullptr ? new AccessibleMeter(meter) : nullptr;
    }
    if (className == QLatin1StringView(Led::staticMetaObject.className())) {
        auto* lamp = qobject_cast<Led*>(object);
        return lamp != nullptr ? new AccessibleLamp(lamp) : nullptr;
    }
    return nullptr;
}

/// Tells clients that the words of @p gauge's value changed.
void tellDescriptionChanged(QWidget& gauge) {
    QAccessibleEvent event(&gauge, QAccessible::DescriptionChanged);
    QAccessible::updateAccessibility(&event);
}

}  // namespace

void makeGaugesAccessible() {
    // Not once in the process's life: the toolkit forgets the factories with each application object.
    QAccessible::installFactory(makeInterface);
}

void tellValueChanged(AbstractMeter& meter) {
    if (!QAccessible::isActive()) {
        return;
    }
    QAccessibleValueChangeEvent event(&meter, meter.value());
    QAccessible::updateAccessibility(&event);
    tellDescriptionChanged(meter);
}

void tellValueTextChanged(AbstractMeter& meter) {
    if (QAccessible::isActive()) {
        tellDescriptionChanged(meter);
    }
}

void tellLampSwitched(Led& lamp) {
    if (!QAccessible::isActive()) {
        return;
    }
    QAccessible::State changed;
    changed.checked = true;
    QAccessibleStateChangeEvent event(&lamp, changed);
    QAccessible::updateAccessibility(&event);
    tellDescriptionChanged(lamp);
}
