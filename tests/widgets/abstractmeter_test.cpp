#include "widgets/abstractmeter.h"

#include <QApplication>
#include <QFontInfo>
#include <QPainter>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QtTest>
#include <limits>

#include "tests/widgets/rendered.h"

namespace {

/// A gauge that shows nothing and counts what it is asked to paint.
class Meter : public AbstractMeter {
public:
    using AbstractMeter::AbstractMeter;
    using AbstractMeter::calcMaxMin;
    using AbstractMeter::doRepaintBackground;
    using AbstractMeter::m_max;
    using AbstractMeter::m_min;
    using AbstractMeter::m_minimum;
    using AbstractMeter::numberText;
    using AbstractMeter::valueText;
    using AbstractMeter::valueTextFont;

    int backgrounds = 0;
    int paints = 0;

protected:
    void paintBackground(QPainter&) override { ++backgrounds; }
    void paintEvent(QPaintEvent*) override {
        ++paints;
        drawBackground();
    }
};

/// The signals of a gauge in their order, as "int 3" and "double 3".
class Record : public QObject {
public:
    explicit Record(AbstractMeter& meter) {
        connect(&meter, qOverload<int>(&AbstractMeter::valueChanged), this,
                [this](int value) { signals_seen += QStringLiteral("int %1").arg(value); });
        connect(&meter, qOverload<double>(&AbstractMeter::valueChanged), this,
                [this](double value) { signals_seen += QStringLiteral("double %1").arg(value); });
    }
    QStringList signals_seen;
};

}  // namespace

class AbstractMeterTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void startsWithItsDefaults();
    void declaresItsPropertiesInOrder();
    void declaresItsSignalsAndSlotsInOrder();
    void reachesEveryPropertyThroughTheMetaObject();
    void setMaximumRoundsTheScale();
    void setMinimumRoundsTheScale();
    void ignoresAMinimumNotBelowTheMaximum_data();
    void ignoresAMinimumNotBelowTheMaximum();
    void ignoresAMaximumNotAboveTheMinimum_data();
    void ignoresAMaximumNotAboveTheMinimum();
    void takesARangeJustWideEnough();
    void repaintsTheBackgroundOnlyWhenTheDrawnScaleChanges();
    void calcMaxMinTellsWhetherTheScaleChanged();
    void setValueOfAnIntEmitsTheIntFirst();
    void setValueOfADoubleEmitsTheDoubleFirst();
    void hasItsValueBeforeTheSignals();
    void bothSignalsCarryTheValueThatASlotReplaces();
    void truncatesTheValueTowardZero_data();
    void truncatesTheValueTowardZero();
    void theSameValueEmitsNothing();
    void emitsOnceForAValueSetTwice();
    void doesNotClampTheValue();
    void aValueAsksForAPaintOfTheForegroundOnly();
    void everyOtherSetterRepaintsTheBackground();
    void anotherApplicationFontRepaintsTheBackground();
    void showsNumbersWithSixDigits_data();
    void showsNumbersWithSixDigits();
    void joinsPrefixValueAndSuffix();
    void completesTheValueFontByTheWidgetsFont();
};

void AbstractMeterTest::startsWithItsDefaults() {
    const Meter meter;
    QCOMPARE(meter.m_min, 0.0);
    QCOMPARE(meter.m_max, 1.0);
    QCOMPARE(meter.minimum(), 0.0);
    QCOMPARE(meter.maximum(), 1.0);
    QCOMPARE(meter.nominal(), 0.25);
    QCOMPARE(meter.critical(), 0.75);
    QCOMPARE(meter.digitOffset(), 1.0);
    QCOMPARE(meter.valueFont(), QFont());
    QCOMPARE(meter.digitFont(), QFont());
    QCOMPARE(meter.prefix(), QString());
    QCOMPARE(meter.suffix(), QString());
    QVERIFY(!meter.doRepaintBackground());
}

void AbstractMeterTest::declaresItsPropertiesInOrder() {
    const QMetaObject& meta = AbstractMeter::staticMetaObject;
    const QList<QPair<QByteArray, QByteArray>> expected = {
        {"minimum", "double"},     {"maximum", "double"},  {"value", "double"},      {"nominal", "double"},
        {"critical", "double"},    {"prefix", "QString"},  {"suffix", "QString"},    {"valueFont", "QFont"},
        {"valueOffset", "double"}, {"digitFont", "QFont"}, {"digitOffset", "double"}};
    QCOMPARE(meta.propertyCount() - meta.propertyOffset(), static_cast<int>(expected.size()));
    for (int i = 0; i < expected.size(); ++i) {
        const QMetaProperty property = meta.property(meta.propertyOffset() + i);
        QCOMPARE(QByteArray(property.name()), expected[i].first);
        QCOMPARE(QByteArray(property.typeName()), expected[i].second);
        QVERIFY(property.isReadable());
        QVERIFY(property.isWritable());
        QVERIFY(property.isDesignable());
        QVERIFY(property.isScriptable());
        QVERIFY(property.isStored());
        QVERIFY(!property.hasNotifySignal());
        QVERIFY(!property.isResettable());
    }
}

void AbstractMeterTest::declaresItsSignalsAndSlotsInOrder() {
    const QMetaObject& meta = AbstractMeter::staticMetaObject;
    const QList<QPair<QByteArray, QMetaMethod::MethodType>> expected = {
        {"valueChanged(int)", QMetaMethod::Signal},
        {"valueChanged(double)", QMetaMethod::Signal},
        {"setValue(int)", QMetaMethod::Slot},
        {"setValue(double)", QMetaMethod::Slot}};
    QCOMPARE(meta.methodCount() - meta.methodOffset(), static_cast<int>(expected.size()));
    for (int i = 0; i < expected.size(); ++i) {
        const QMetaMethod method = meta.method(meta.methodOffset() + i);
        QCOMPARE(method.methodSignature(), expected[i].first);
        QCOMPARE(method.methodType(), expected[i].second);
        QCOMPARE(method.access(), QMetaMethod::Public);
    }
    QCOMPARE(meta.superClass()->className(), "WidgetWithBackground");
}

void AbstractMeterTest::reachesEveryPropertyThroughTheMetaObject() {
    Meter meter;
    QFont font;
    font.setPointSize(33);
    const QList<QPair<const char*, QVariant>> values = {{"maximum", 100.0},
                                                        {"minimum", 10.0},
                                                        {"value", 12.5},
                                                        {"nominal", 40.0},
                                                        {"critical", 70.0},
                                                        {"prefix", QStringLiteral("p")},
                                                        {"suffix", QStringLiteral("s")},
                                                        {"valueFont", font},
                                                        {"valueOffset", -7.5},
                                                        {"digitFont", font},
                                                        {"digitOffset", 8.5}};
    for (const auto& [name, value] : values) {
        QVERIFY2(meter.setProperty(name, value), name);
        QCOMPARE(meter.property(name), value);
    }
    QCOMPARE(meter.minimum(), 10.0);
    QCOMPARE(meter.maximum(), 100.0);
    QCOMPARE(meter.value(), 12.5);
    QCOMPARE(meter.nominal(), 40.0);
    QCOMPARE(meter.critical(), 70.0);
    QCOMPARE(meter.prefix(), QStringLiteral("p"));
    QCOMPARE(meter.suffix(), QStringLiteral("s"));
    QCOMPARE(meter.valueFont(), font);
    QCOMPARE(meter.valueOffset(), -7.5);
    QCOMPARE(meter.digitFont(), font);
    QCOMPARE(meter.digitOffset(), 8.5);
}

void AbstractMeterTest::setMaximumRoundsTheScale() {
    Meter meter;
    meter.setMaximum(2500);
    QCOMPARE(meter.maximum(), 2500.0);
    QCOMPARE(meter.m_min, 0.0);
    QCOMPARE(meter.m_max, 2520.0);
}

void AbstractMeterTest::setMinimumRoundsTheScale() {
    Meter meter;
    meter.setMaximum(40);
    meter.setMinimum(-20);
    QCOMPARE(meter.minimum(), -20.0);
    QCOMPARE(meter.m_min, -20.0);
    QCOMPARE(meter.m_max, 60.0);
}

void AbstractMeterTest::ignoresAMinimumNotBelowTheMaximum_data() {
    QTest::addColumn<double>("minimum");
    QTest::newRow("the maximum") << 5.0;
    QTest::newRow("above it") << 6.0;
    QTest::newRow("below it by 0.00001 at most") << 5.0 - 0.000009;
    QTest::newRow("not a number") << std::numeric_limits<double>::quiet_NaN();
    QTest::newRow("without end") << -std::numeric_limits<double>::infinity();
}

void AbstractMeterTest::ignoresAMinimumNotBelowTheMaximum() {
    QFETCH(double, minimum);
    Meter meter;
    meter.setMaximum(5);
    rendered(meter);
    const double low = meter.m_min;
    const double high = meter.m_max;
    meter.setMinimum(minimum);
    QCOMPARE(meter.minimum(), 0.0);
    QCOMPARE(meter.maximum(), 5.0);
    QCOMPARE(meter.m_min, low);
    QCOMPARE(meter.m_max, high);
    QVERIFY(!meter.doRepaintBackground());
}

void AbstractMeterTest::ignoresAMaximumNotAboveTheMinimum_data() {
    QTest::addColumn<double>("maximum");
    QTest::newRow("the minimum") << 0.0;
    QTest::newRow("below it") << -1.0;
    QTest::newRow("above it by 0.00001 at most") << 0.000009;
    QTest::newRow("above it by 0.00001") << 0.00001;
    QTest::newRow("not a number") << std::numeric_limits<double>::quiet_NaN();
    QTest::newRow("without end") << std::numeric_limits<double>::infinity();
}

void AbstractMeterTest::ignoresAMaximumNotAboveTheMinimum() {
    QFETCH(double, maximum);
    Meter meter;
    meter.setMaximum(maximum);
    QCOMPARE(meter.minimum(), 0.0);
    QCOMPARE(meter.maximum(), 1.0);
    QCOMPARE(meter.m_min, 0.0);
    QCOMPARE(meter.m_max, 1.0);
    QVERIFY(!meter.doRepaintBackground());
}

void AbstractMeterTest::takesARangeJustWideEnough() {
    Meter meter;
    meter.setMaximum(0.000011);
    QCOMPARE(meter.maximum(), 0.000011);
    QVERIFY(meter.m_max >= 0.000011);
    QVERIFY(meter.m_min <= 0.0);
}

void AbstractMeterTest::repaintsTheBackgroundOnlyWhenTheDrawnScaleChanges() {
    Meter meter;
    meter.setMaximum(2500);
    QVERIFY(meter.doRepaintBackground());
    rendered(meter);
    meter.setMaximum(2510);
    QCOMPARE(meter.maximum(), 2510.0);
    QCOMPARE(meter.m_max, 2520.0);
    QVERIFY(!meter.doRepaintBackground());
    meter.setMinimum(0);
    QVERIFY(!meter.doRepaintBackground());
    meter.setMinimum(-1000);
    QVERIFY(meter.doRepaintBackground());
}

void AbstractMeterTest::calcMaxMinTellsWhetherTheScaleChanged() {
    Meter meter;
    QVERIFY(meter.calcMaxMin());
    QVERIFY(meter.m_min == -0x1.333333333333p-3);
    QVERIFY(meter.m_max == 0x1.0cccccccccccep+0);
    QVERIFY(!meter.calcMaxMin());
}

void AbstractMeterTest::setValueOfAnIntEmitsTheIntFirst() {
    Meter meter;
    const Record record(meter);
    meter.setValue(3);
    QCOMPARE(record.signals_seen, QStringList({QStringLiteral("int 3"), QStringLiteral("double 3")}));
    QCOMPARE(meter.value(), 3.0);
}

void AbstractMeterTest::setValueOfADoubleEmitsTheDoubleFirst() {
    Meter meter;
    const Record record(meter);
    meter.setValue(2.7);
    QCOMPARE(record.signals_seen, QStringList({QStringLiteral("double 2.7"), QStringLiteral("int 2")}));
    QCOMPARE(meter.value(), 2.7);
}

void AbstractMeterTest::hasItsValueBeforeTheSignals() {
    Meter meter;
    QList<double> seen;
    const auto look = [&meter, &seen] { seen += meter.value(); };
    connect(&meter, qOverload<int>(&AbstractMeter::valueChanged), &meter, look);
    connect(&meter, qOverload<double>(&AbstractMeter::valueChanged), &meter, look);
    meter.setValue(3);
    meter.setValue(2.7);
    QCOMPARE(seen, QList<double>({3, 3, 2.7, 2.7}));
}

void AbstractMeterTest::bothSignalsCarryTheValueThatASlotReplaces() {
    Meter meter;
    const Record record(meter);
    connect(&meter, qOverload<int>(&AbstractMeter::valueChanged), &meter, [&meter](int value) {
        if (value == 3) {
            meter.setValue(5);
        }
    });
    connect(&meter, qOverload<double>(&AbstractMeter::valueChanged), &meter, [&meter](double value) {
        if (value == 6.7) {
            meter.setValue(8.7);
        }
    });
    meter.setValue(3);
    QCOMPARE(record.signals_seen.join(QLatin1Char(' ')), QStringLiteral("int 3 int 5 double 5 double 3"));
    meter.setValue(6.7);
    QCOMPARE(record.signals_seen.mid(4).join(QLatin1Char(' ')),
             QStringLiteral("double 6.7 double 8.7 int 8 int 6"));
}

void AbstractMeterTest::truncatesTheValueTowardZero_data() {
    QTest::addColumn<double>("value");
    QTest::addColumn<int>("truncated");
    QTest::newRow("below one") << 0.999 << 0;
    QTest::newRow("negative") << -2.7 << -2;
    QTest::newRow("above every int") << 1e300 << std::numeric_limits<int>::max();
    QTest::newRow("below every int") << -1e300 << std::numeric_limits<int>::min();
    QTest::newRow("not a number") << std::numeric_limits<double>::quiet_NaN() << 0;
}

void AbstractMeterTest::truncatesTheValueTowardZero() {
    QFETCH(double, value);
    Meter meter;
    const QSignalSpy changed(&meter, qOverload<int>(&AbstractMeter::valueChanged));
    meter.setValue(value);
    QCOMPARE(changed.size(), 1);
    QTEST(changed.at(0).at(0).toInt(), "truncated");
}

void AbstractMeterTest::theSameValueEmitsNothing() {
    Meter meter;
    meter.setValue(3);
    const Record record(meter);
    meter.setValue(3.0);
    meter.setValue(3);
    QVERIFY(record.signals_seen.isEmpty());
}

void AbstractMeterTest::emitsOnceForAValueSetTwice() {
    Meter meter;
    const Record record(meter);
    meter.setValue(4.5);
    meter.setValue(4.5);
    QCOMPARE(record.signals_seen.size(), 2);
}

void AbstractMeterTest::doesNotClampTheValue() {
    Meter meter;
    meter.setMaximum(100);
    meter.setValue(1000000);
    QCOMPARE(meter.value(), 1000000.0);
    meter.setValue(-5.5);
    QCOMPARE(meter.value(), -5.5);
}

void AbstractMeterTest::aValueAsksForAPaintOfTheForegroundOnly() {
    Meter meter;
    meter.show();
    QVERIFY(QTest::qWaitForWindowExposed(&meter));
    QTRY_VERIFY(meter.paints > 0);
    const int backgrounds = meter.backgrounds;
    int paints = meter.paints;
    meter.setValue(0.5);
    QTRY_VERIFY(meter.paints > paints);
    paints = meter.paints;
    meter.setValue(1);
    QTRY_VERIFY(meter.paints > paints);
    QCOMPARE(meter.backgrounds, backgrounds);
}

void AbstractMeterTest::everyOtherSetterRepaintsTheBackground() {
    Meter meter;
    rendered(meter);
    int backgrounds = meter.backgrounds;
    const auto repaints = [&meter, &backgrounds] {
        rendered(meter);
        return meter.backgrounds == ++backgrounds;
    };
    meter.setNominal(meter.nominal());
    QVERIFY(repaints());
    meter.setCritical(meter.critical());
    QVERIFY(repaints());
    meter.setValueOffset(meter.valueOffset());
    QVERIFY(repaints());
    meter.setDigitOffset(meter.digitOffset());
    QVERIFY(repaints());
    meter.setValueFont(meter.valueFont());
    QVERIFY(repaints());
    meter.setDigitFont(meter.digitFont());
    QVERIFY(repaints());
    meter.setPrefix(meter.prefix());
    QVERIFY(repaints());
    meter.setSuffix(meter.suffix());
    QVERIFY(repaints());
}

void AbstractMeterTest::anotherApplicationFontRepaintsTheBackground() {
    const QFont before = QApplication::font();
    Meter meter;
    rendered(meter);
    QFont other = before;
    other.setPointSize(before.pointSize() + 7);
    QApplication::setFont(other);
    QCoreApplication::processEvents();
    const bool modified = meter.doRepaintBackground();
    QApplication::setFont(before);
    QVERIFY(modified);
}

void AbstractMeterTest::showsNumbersWithSixDigits_data() {
    QTest::addColumn<double>("number");
    QTest::addColumn<QString>("text");
    QTest::newRow("whole") << 2520.0 << QStringLiteral("2520");
    QTest::newRow("fraction") << 0.15 << QStringLiteral("0.15");
    QTest::newRow("six digits") << 1234.5678 << QStringLiteral("1234.57");
    QTest::newRow("large") << 1000000.0 << QStringLiteral("1e+06");
    QTest::newRow("small") << 0.00001 << QStringLiteral("1e-05");
    QTest::newRow("negative") << -20.0 << QStringLiteral("-20");
    QTest::newRow("zero from below") << -0.0 << QStringLiteral("0");
    QTest::newRow("not a number") << std::numeric_limits<double>::quiet_NaN() << QStringLiteral("nan");
}

void AbstractMeterTest::showsNumbersWithSixDigits() {
    QFETCH(double, number);
    QTEST(Meter::numberText(number), "text");
    QCOMPARE(Meter::numberText(number), QStringLiteral("%1").arg(number));
}

void AbstractMeterTest::joinsPrefixValueAndSuffix() {
    Meter meter;
    meter.setPrefix(QStringLiteral("%1 n = "));
    meter.setSuffix(QStringLiteral(" [rpm]"));
    meter.setValue(1234);
    QCOMPARE(meter.valueText(), QStringLiteral("%1 n = 1234 [rpm]"));
}

void AbstractMeterTest::completesTheValueFontByTheWidgetsFont() {
    Meter meter;
    QFont value_font;
    value_font.setPointSize(25);
    meter.setValueFont(value_font);
    QCOMPARE(meter.valueTextFont().pointSize(), 25);
    QCOMPARE(meter.valueTextFont().italic(), false);

    QFont italic;
    italic.setItalic(true);
    italic.setPointSize(9);
    meter.setFont(italic);
    QCOMPARE(meter.valueTextFont().pointSize(), 25);
    QCOMPARE(meter.valueTextFont().italic(), true);

    value_font.setItalic(false);
    meter.setValueFont(value_font);
    QCOMPARE(meter.valueTextFont().italic(), false);

    value_font.setPointSize(26);
    meter.setValueFont(value_font);
    QCOMPARE(meter.valueTextFont().pointSize(), 26);
}

QTEST_MAIN(AbstractMeterTest)
#include "abstractmeter_test.moc"
