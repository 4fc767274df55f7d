#include "widgets/accessiblegauges.h"

#include <QAccessible>
#include <QApplication>
#include <QDockWidget>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMainWindow>
#include <QRegularExpression>
#include <QTranslator>
#include <QtTest>
#include <memory>
#include <vector>

#include "widgets/led.h"
#include "widgets/manometer.h"
#include "widgets/thermometer.h"

namespace {

/// A meter of a user's own: neither dial nor thermometer.
class BareMeter : public AbstractMeter {
    Q_OBJECT

public:
    using AbstractMeter::AbstractMeter;

protected:
    void paintBackground(QPainter& /*painter*/) override {}
};

/// What a client is told of a gauge.
struct Notice {
    QObject* object;
    QAccessible::Event kind;
    QVariant value;              // of a value change
    bool is_of_checked = false;  // of a state change
};

bool a_client_listens = false;
std::vector<Notice> notices;

/// The clients' interface to @p widget.
QAccessibleInterface* interfaceOf(QWidget& widget) {
    return QAccessible::queryAccessibleInterface(&widget);
}

QAccessibleValueInterface* valueOf(QWidget& widget) {
    return interfaceOf(widget)->valueInterface();
}

QString wordsOf(QWidget& widget) {
    return interfaceOf(widget)->text(QAccessible::Value);
}

/// Makes every text foreign.
class BracketTranslator : public QTranslator {
public:
    QString translate(const char* context, const char* source, const char* /*disambiguation*/,
                      int /*n*/) const override {
        return QLatin1StringView(context) + QStringLiteral("[") + QString::fromUtf8(source) +
               QStringLiteral("]");
    }
    bool isEmpty() const override { return false; }
};

}  // namespace

// The toolkit's way to the clients starts with these two. They stand in for it: the offscreen platform leads
// to none.

bool QAccessible::isActive() {
    return a_client_listens;
}

// Takes notice of what the gauges tell; what the toolkit itself tells of every widget is left out.
void QAccessible::updateAccessibility(QAccessibleEvent* event) {
    Notice notice{event->object(), event->type(), {}};
    switch (event->type()) {
        case QAccessible::ValueChanged:
            notice.value = static_cast<QAccessibleValueChangeEvent*>(event)->value();
            break;
        case QAccessible::StateChanged:
            notice.is_of_checked = static_cast<QAccessibleStateChangeEvent*>(event)->changedStates().checked;
            if (!notice.is_of_checked) {
                return;
            }
            break;
        case QAccessible::DescriptionChanged:
            break;
        default:
            return;
    }
    notices.push_back(notice);
}

class AccessibleGaugesTest : public QObject {
    Q_OBJECT

public:
    /// @param before  whether a gauge of an earlier application object had its interface
    explicit AccessibleGaugesTest(bool before) : was_accessible_before_(before) {}

private Q_SLOTS:
    void init();
    void cleanup();
    void gaugesOfASecondApplicationObjectAreAccessible();
    void everyMeterIsAReadOnlyProgressBar_data();
    void everyMeterIsAReadOnlyProgressBar();
    void meterTellsItsRangeAndValue();
    void valueOutsideTheScaleIsToldAsItIs();
    void meterCannotBeSet();
    void meterHasNoSteps();
    void valueInWordsHasPrefixAndUnit();
    void wordsAreTheDescriptionBeforeTheGivenOne();
    void nameIsTheGivenOneElseTheLabelsElseTheObjects();
    void nameMayComeFromTheGroupBox();
    void helpStaysTheToolkits();
    void lampIsAReadOnlyCheckBox();
    void lampIsOnWhileItIsLit_data();
    void lampIsOnWhileItIsLit();
    void lampHasNoFigure();
    void wordsOfTheLampAreTranslated();
    void disablingTheParentPutsTheLampOut();
    void nothingIsToldWithoutAClient();
    void newValueIsToldOnce();
    void sameValueIsNotTold();
    void valueIsToldBeforeTheSignals();
    void newUnitIsTold();
    void lampTellsWhenItIsSwitched();
    void lampSwitchedByItsParentTells();
    void lampTellsNothingWhileItStaysAsItIs();
    void gaugeMadeWhileAClientListensIsAccessible();
    void interfaceOutlivesTheWidget();
    void interfaceIsEmptyWhileTheWidgetIsDestroyed();
    void everyGaugeHasAnInterfaceOfItsOwn();
    void gaugesAreFoundInAMainWindow();
    void otherWidgetsKeepTheirInterface();

private:
    bool was_accessible_before_;
};

void AccessibleGaugesTest::init() {
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".")));
    notices.clear();
}

void AccessibleGaugesTest::cleanup() {
    a_client_listens = false;
}

void AccessibleGaugesTest::gaugesOfASecondApplicationObjectAreAccessible() {
    QVERIFY(was_accessible_before_);
    BareMeter meter;
    QVERIFY(valueOf(meter) != nullptr);
}

void AccessibleGaugesTest::everyMeterIsAReadOnlyProgressBar_data() {
    QTest::addColumn<QSharedPointer<QWidget>>("meter");
    QTest::newRow("dial") << QSharedPointer<QWidget>(new ManoMeter);
    QTest::newRow("thermometer") << QSharedPointer<QWidget>(new ThermoMeter);
    QTest::newRow("a meter of a user's own") << QSharedPointer<QWidget>(new BareMeter);
}

void AccessibleGaugesTest::everyMeterIsAReadOnlyProgressBar() {
    QFETCH(QSharedPointer<QWidget>, meter);
    QAccessibleInterface* interface = interfaceOf(*meter);
    QVERIFY(interface != nullptr);
    QCOMPARE(interface->role(), QAccessible::ProgressBar);
    QVERIFY(interface->valueInterface() != nullptr);
    QVERIFY(interface->state().readOnly);
    QVERIFY(!interface->state().checkable);
    QVERIFY(!interface->state().focusable);
    QVERIFY(!interface->state().disabled);
    meter->setEnabled(false);
    QVERIFY(interface->state().disabled);
}

void AccessibleGaugesTest::meterTellsItsRangeAndValue() {
    ManoMeter dial;
    QCOMPARE(valueOf(dial)->minimumValue(), QVariant(0.0));
    QCOMPARE(valueOf(dial)->maximumValue(), QVariant(300.0));
    QCOMPARE(valueOf(dial)->currentValue(), QVariant(0.0));
    dial.setMinimum(-50);
    dial.setMaximum(2500);
    dial.setValue(1234.5);
    // The range as it was asked for, not the rounded scale, which ends at 2560.
    QCOMPARE(valueOf(dial)->minimumValue(), QVariant(-50.0));
    QCOMPARE(valueOf(dial)->maximumValue(), QVariant(2500.0));
    QCOMPARE(valueOf(dial)->currentValue(), QVariant(1234.5));
}

void AccessibleGaugesTest::valueOutsideTheScaleIsToldAsItIs() {
    ThermoMeter thermometer;
    thermometer.setValue(-10738);
    QCOMPARE(valueOf(thermometer)->currentValue(), QVariant(-10738.0));
    QCOMPARE(valueOf(thermometer)->minimumValue(), QVariant(0.0));
    thermometer.setValue(10737);
    QCOMPARE(valueOf(thermometer)->currentValue(), QVariant(10737.0));
    QCOMPARE(valueOf(thermometer)->maximumValue(), QVariant(80.0));
}

void AccessibleGaugesTest::meterCannotBeSet() {
    ManoMeter dial;
    dial.setValue(17);
    const QSignalSpy changed(&dial, qOverload<double>(&ManoMeter::valueChanged));
    valueOf(dial)->setCurrentValue(99.0);
    QCOMPARE(dial.value(), 17.0);
    QCOMPARE(valueOf(dial)->currentValue(), QVariant(17.0));
    QCOMPARE(changed.size(), 0);
}

void AccessibleGaugesTest::meterHasNoSteps() {
    ManoMeter dial;
    QCOMPARE(valueOf(dial)->minimumStepSize(), QVariant(0.0));
}

void AccessibleGaugesTest::valueInWordsHasPrefixAndUnit() {
    ManoMeter dial;
    dial.setValue(2.75);
    QCOMPARE(wordsOf(dial), QStringLiteral("2.75 [bar]"));
    dial.setPrefix(QStringLiteral("p = "));
    dial.setSuffix(QStringLiteral(" kPa"));
    QCOMPARE(wordsOf(dial), QStringLiteral("p = 2.75 kPa"));
    dial.setValueOffset(0);  // not drawn, but told
    QCOMPARE(wordsOf(dial), QStringLiteral("p = 2.75 kPa"));
    BareMeter meter;
    meter.setValue(1234567);
    QCOMPARE(wordsOf(meter), QStringLiteral("1.23457e+06"));  // as the gauge shows it
}

void AccessibleGaugesTest::wordsAreTheDescriptionBeforeTheGivenOne() {
    ThermoMeter thermometer;
    thermometer.setToolTip(QStringLiteral("Shows the pressure"));
    QCOMPARE(interfaceOf(thermometer)->text(QAccessible::Description), QStringLiteral("0 [C]"));
    thermometer.setAccessibleDescription(QStringLiteral("oil in the gear"));
    QCOMPARE(interfaceOf(thermometer)->text(QAccessible::Description),
             QStringLiteral("0 [C], oil in the gear"));
    Led lamp;
    lamp.setAccessibleDescription(QStringLiteral("lit while the pump runs"));
    QCOMPARE(interfaceOf(lamp)->text(QAccessible::Description),
             QString::fromUtf8("päällä, lit while the pump runs"));
}

void AccessibleGaugesTest::nameIsTheGivenOneElseTheLabelsElseTheObjects() {
    QWidget parent;
    ManoMeter dial(&parent);
    QCOMPARE(interfaceOf(dial)->text(QAccessible::Name), QString());
    dial.setObjectName(QStringLiteral("speed_dial"));
    QCOMPARE(interfaceOf(dial)->text(QAccessible::Name), QStringLiteral("speed_dial"));
    QLabel caption(QStringLiteral("S&peed"), &parent);
    caption.setBuddy(&dial);
    QCOMPARE(interfaceOf(dial)->text(QAccessible::Name), QStringLiteral("Speed"));
    dial.setAccessibleName(QStringLiteral("Motor speed"));
    QCOMPARE(interfaceOf(dial)->text(QAccessible::Name), QStringLiteral("Motor speed"));
}

void AccessibleGaugesTest::nameMayComeFromTheGroupBox() {
    QGroupBox box(QStringLiteral("Fix"));
    Led lamp(&box);
    lamp.setObjectName(QStringLiteral("lamp"));
    QCOMPARE(interfaceOf(lamp)->text(QAccessible::Name), QStringLiteral("Fix"));
}

void AccessibleGaugesTest::helpStaysTheToolkits() {
    Led lamp;
    lamp.setWhatsThis(QStringLiteral("Led indicator"));
    QCOMPARE(interfaceOf(lamp)->text(QAccessible::Help), QStringLiteral("Led indicator"));
}

void AccessibleGaugesTest::lampIsAReadOnlyCheckBox() {
    Led lamp;
    QAccessibleInterface* interface = interfaceOf(lamp);
    QVERIFY(interface != nullptr);
    QCOMPARE(interface->role(), QAccessible::CheckBox);
    QVERIFY(interface->state().checkable);
    QVERIFY(interface->state().readOnly);
    QVERIFY(!interface->state().focusable);
    QVERIFY(interface->actionInterface()->actionNames().isEmpty());
}

void AccessibleGaugesTest::lampIsOnWhileItIsLit_data() {
    QTest::addColumn<bool>("checked");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<bool>("on");
    QTest::newRow("checked and enabled") << true << true << true;
    QTest::newRow("checked and disabled") << true << false << false;
    QTest::newRow("unchecked and enabled") << false << true << false;
    QTest::newRow("unchecked and disabled") << false << false << false;
}

void AccessibleGaugesTest::lampIsOnWhileItIsLit() {
    QFETCH(bool, checked);
    QFETCH(bool, enabled);
    QFETCH(bool, on);
    Led lamp;
    lamp.setChecked(checked);
    lamp.setEnabled(enabled);
    QCOMPARE(lamp.isLit(), on);
    QCOMPARE(bool(interfaceOf(lamp)->state().checked), on);
    QVERIFY(interfaceOf(lamp)->state().checkable);
    QCOMPARE(bool(interfaceOf(lamp)->state().disabled), !enabled);
    QCOMPARE(wordsOf(lamp), on ? QString::fromUtf8("päällä") : QStringLiteral("pois"));
    QCOMPARE(interfaceOf(lamp)->text(QAccessible::Description), wordsOf(lamp));
}

void AccessibleGaugesTest::lampHasNoFigure() {
    Led lamp;
    QVERIFY(valueOf(lamp) == nullptr);
}

void AccessibleGaugesTest::wordsOfTheLampAreTranslated() {
    Led lamp;
    BracketTranslator translator;
    QVERIFY(QCoreApplication::installTranslator(&translator));
    QCOMPARE(wordsOf(lamp), QString::fromUtf8("Led[päällä]"));
    lamp.setChecked(false);
    QCOMPARE(wordsOf(lamp), QStringLiteral("Led[pois]"));
    QCoreApplication::removeTranslator(&translator);
}

void AccessibleGaugesTest::disablingTheParentPutsTheLampOut() {
    QWidget parent;
    Led lamp(&parent);
    parent.setEnabled(false);
    QCOMPARE(wordsOf(lamp), QStringLiteral("pois"));
    QVERIFY(!interfaceOf(lamp)->state().checked);
}

void AccessibleGaugesTest::nothingIsToldWithoutAClient() {
    ManoMeter dial;
    Led lamp;
    QVERIFY(!QAccessible::isActive());
    dial.setValue(5);
    dial.setValue(5.5);
    dial.setSuffix(QStringLiteral(" m"));
    lamp.setChecked(false);
    lamp.setChecked(true);
    lamp.setEnabled(false);
    QCOMPARE(notices.size(), size_t{0});
}

void AccessibleGaugesTest::newValueIsToldOnce() {
    ManoMeter dial;
    a_client_listens = true;
    dial.setValue(900);
    QCOMPARE(notices.size(), size_t{2});
    QCOMPARE(notices[0].object, &dial);
    QCOMPARE(notices[0].kind, QAccessible::ValueChanged);
    QCOMPARE(notices[0].value, QVariant(900.0));
    QCOMPARE(notices[1].object, &dial);
    QCOMPARE(notices[1].kind, QAccessible::DescriptionChanged);
    dial.setValue(900.5);
    QCOMPARE(notices.size(), size_t{4});
    QCOMPARE(notices[2].kind, QAccessible::ValueChanged);
    QCOMPARE(notices[2].value, QVariant(900.5));
}

void AccessibleGaugesTest::sameValueIsNotTold() {
    ManoMeter dial;
    dial.setValue(900);
    a_client_listens = true;
    dial.setValue(900);
    dial.setValue(900.0);
    QCOMPARE(notices.size(), size_t{0});
}

void AccessibleGaugesTest::valueIsToldBeforeTheSignals() {
    ManoMeter dial;
    a_client_listens = true;
    // A receiver that goes on to another value: clients are to end with the last one.
    connect(&dial, qOverload<int>(&ManoMeter::valueChanged), &dial, [&dial] { dial.setValue(7); });
    dial.setValue(5);
    QCOMPARE(notices.size(), size_t{4});
    QCOMPARE(notices[0].value, QVariant(5.0));
    QCOMPARE(notices[2].value, QVariant(7.0));
}

void AccessibleGaugesTest::newUnitIsTold() {
    ManoMeter dial;
    a_client_listens = true;
    dial.setSuffix(QStringLiteral(" kPa"));
    QCOMPARE(notices.size(), size_t{1});
    QCOMPARE(notices[0].object, &dial);
    QCOMPARE(notices[0].kind, QAccessible::DescriptionChanged);
    dial.setPrefix(QStringLiteral("p = "));
    QCOMPARE(notices.size(), size_t{2});
    QCOMPARE(notices[1].kind, QAccessible::DescriptionChanged);
}

void AccessibleGaugesTest::lampTellsWhenItIsSwitched() {
    Led lamp;
    a_client_listens = true;
    const auto switched = [&lamp](size_t count) {
        return notices.size() == 2 * count && notices[2 * count - 2].object == &lamp &&
               notices[2 * count - 2].kind == QAccessible::StateChanged &&
               notices[2 * count - 2].is_of_checked &&
               notices[2 * count - 1].kind == QAccessible::DescriptionChanged;
    };
    lamp.setChecked(false);
    QVERIFY(switched(1));
    lamp.setChecked(true);
    QVERIFY(switched(2));
    lamp.setEnabled(false);
    QVERIFY(switched(3));
    lamp.setEnabled(true);
    QVERIFY(switched(4));
}

void AccessibleGaugesTest::lampSwitchedByItsParentTells() {
    QWidget parent;
    const Led lamp(&parent);
    a_client_listens = true;
    parent.setEnabled(false);
    QCOMPARE(notices.size(), size_t{2});
    QCOMPARE(notices[0].object, &lamp);
    QVERIFY(notices[0].is_of_checked);
}

void AccessibleGaugesTest::lampTellsNothingWhileItStaysAsItIs() {
    Led lamp;
    a_client_listens = true;
    lamp.setChecked(true);  // emits checkChanged, but the lamp was on
    QCOMPARE(notices.size(), size_t{0});
    lamp.setEnabled(false);
    notices.clear();
    lamp.setChecked(false);
    lamp.setEnabled(true);
    lamp.setEnabled(false);
    lamp.setChecked(true);
    lamp.setColor(Qt::green);
    QCOMPARE(notices.size(), size_t{0});
}

void AccessibleGaugesTest::gaugeMadeWhileAClientListensIsAccessible() {
    a_client_listens = true;
    QWidget parent;
    parent.show();
    ThermoMeter thermometer(&parent);
    Led lamp(&parent);
    QVERIFY(valueOf(thermometer) != nullptr);
    QCOMPARE(interfaceOf(lamp)->role(), QAccessible::CheckBox);
}

void AccessibleGaugesTest::interfaceOutlivesTheWidget() {
    a_client_listens = true;
    for (int round = 0; round < 100; ++round) {
        auto dial = std::make_unique<ManoMeter>();
        auto lamp = std::make_unique<Led>();
        const QAccessible::Id dial_id = QAccessible::uniqueId(interfaceOf(*dial));
        const QAccessible::Id lamp_id = QAccessible::uniqueId(interfaceOf(*lamp));
        QCOMPARE(QAccessible::accessibleInterface(dial_id), interfaceOf(*dial));
        dial->setValue(round + 1);
        dial.reset();
        lamp.reset();
        // By its number a client finds no interface any more, instead of one without a widget.
        QVERIFY(QAccessible::accessibleInterface(dial_id) == nullptr);
        QVERIFY(QAccessible::accessibleInterface(lamp_id) == nullptr);
    }
}

void AccessibleGaugesTest::interfaceIsEmptyWhileTheWidgetIsDestroyed() {
    auto dial = std::make_unique<ManoMeter>();
    auto lamp = std::make_unique<Led>();
    QAccessibleInterface* of_dial = nullptr;
    QAccessibleInterface* of_lamp = nullptr;
    int asked = 0;
    // Connected before the interface is made: called before it goes, when the gauge is no gauge any more.
    connect(dial.get(), &QObject::destroyed, this, [&] {
        ++asked;
        QVERIFY(!of_dial->valueInterface()->currentValue().isValid());
        QVERIFY(!of_dial->valueInterface()->minimumValue().isValid());
        QVERIFY(!of_dial->valueInterface()->maximumValue().isValid());
        QCOMPARE(of_dial->text(QAccessible::Value), QString());
        QCOMPARE(of_dial->text(QAccessible::Description), QString());
    });
    connect(lamp.get(), &QObject::destroyed, this, [&] {
        ++asked;
        QVERIFY(!of_lamp->state().checked);
        QCOMPARE(of_lamp->text(QAccessible::Value), QString());
        QCOMPARE(of_lamp->text(QAccessible::Description), QString());
    });
    of_dial = interfaceOf(*dial);
    of_lamp = interfaceOf(*lamp);
    dial.reset();
    lamp.reset();
    QCOMPARE(asked, 2);
}

void AccessibleGaugesTest::everyGaugeHasAnInterfaceOfItsOwn() {
    std::vector<std::unique_ptr<ThermoMeter>> meters;
    for (int i = 0; i < 50; ++i) {
        meters.push_back(std::make_unique<ThermoMeter>());
        meters.back()->setValue(i);
    }
    for (int i = 0; i < 50; ++i) {
        QCOMPARE(valueOf(*meters[static_cast<size_t>(i)])->currentValue(), QVariant(static_cast<double>(i)));
    }
}

void AccessibleGaugesTest::gaugesAreFoundInAMainWindow() {
    QMainWindow window;
    auto* middle = new QWidget(&window);
    auto* dial = new ManoMeter;
    auto* lamp = new Led;
    auto* layout = new QHBoxLayout(middle);
    layout->addWidget(dial);
    layout->addWidget(lamp);
    window.setCentralWidget(middle);
    auto* dock = new QDockWidget(&window);
    auto* thermometer = new ThermoMeter;
    dock->setWidget(thermometer);
    window.addDockWidget(Qt::LeftDockWidgetArea, dock);
    a_client_listens = true;

    QList<QAccessibleInterface*> found = {QAccessible::queryAccessibleInterface(&window)};
    for (int i = 0; i < found.size(); ++i) {
        QAccessibleInterface* const parent = found[i];
        for (int child = 0; child < parent->childCount(); ++child) {
            found.append(parent->child(child));
            QCOMPARE(found.last()->parent(), parent);
        }
    }
    for (QWidget* gauge :
         {static_cast<QWidget*>(dial), static_cast<QWidget*>(lamp), static_cast<QWidget*>(thermometer)}) {
        QCOMPARE(found.count(QAccessible::queryAccessibleInterface(gauge)), 1);
    }
    dial->setValue(3);
    QCOMPARE(notices.back().object, dial);
    delete dock;
    QVERIFY(found[0]->isValid());
}

void AccessibleGaugesTest::otherWidgetsKeepTheirInterface() {
    const Led lamp;
    QLabel label(QStringLiteral("text"));
    QCOMPARE(interfaceOf(label)->role(), QAccessible::StaticText);
    QWidget plain;
    plain.setObjectName(QStringLiteral("plain"));
    QCOMPARE(interfaceOf(plain)->role(), QAccessible::Client);
    QCOMPARE(interfaceOf(plain)->text(QAccessible::Name), QString());
}

int main(int argc, char** argv) {
    bool was_accessible = false;
    {
        const QApplication first(argc, argv);
        BareMeter meter;
        was_accessible = valueOf(meter) != nullptr;
    }
    const QApplication second(argc, argv);
    AccessibleGaugesTest test(was_accessible);
    return QTest::qExec(&test, argc, argv);
}

#include "accessiblegauges_test.moc"
