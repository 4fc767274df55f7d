#include "widgets/thermometer.h"

#include <QApplication>
#include <QFontMetrics>
#include <QPainter>
#include <QPainterPath>
#include <QRegularExpression>
#include <QTranslator>
#include <QtTest>
#include <cmath>
#include <limits>

#include "tests/widgets/rendered.h"

namespace {

/// A thermometer that lets its scale be set and its glass be drawn apart.
class Thermometer : public ThermoMeter {
public:
    using ThermoMeter::m_max;
    using ThermoMeter::m_min;
    using ThermoMeter::paintBackground;
    using ThermoMeter::ThermoMeter;
};

/// A thermometer that counts its backgrounds.
class CountingThermometer : public Thermometer {
public:
    using Thermometer::Thermometer;
    int backgrounds = 0;

protected:
    void paintBackground(QPainter& painter) override {
        ++backgrounds;
        Thermometer::paintBackground(painter);
    }
};

/// A thermometer whose glass is not drawn.
class Fluid : public Thermometer {
public:
    using Thermometer::Thermometer;

protected:
    void paintBackground(QPainter&) override {}
};

/// The thermometer's logical coordinates.
QTransform coordinates(const QWidget& meter) {
    return QTransform::fromScale(meter.height() / 300.0, meter.height() / 307.0) *
           QTransform::fromTranslate(meter.width() / 2.0, 0);
}

/// Starts drawing on @p picture in the logical coordinates of @p widget.
void begin(QPainter& painter, QImage& picture, const QWidget& widget) {
    painter.begin(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setTransform(coordinates(widget), true);
    painter.setPen(Qt::black);
}

/// The glass, the ticks and the numbers, drawn without a cache.
QImage glass(Thermometer& meter, qreal ratio = 1) {
    QImage picture = emptyPicture(meter.size(), ratio);
    QPainter painter(&picture);
    meter.paintBackground(painter);
    return picture;
}

QColor lightened(const QColor& color) {
    return QColor::fromHsv(color.hsvHue(), color.hsvSaturation() - 200, color.value());
}

/// The fluid as its gradients, drawn in @p color with a column of @p height.
QImage fluid(const QWidget& meter, const QColor& color, int height, qreal ratio) {
    QImage picture = emptyPicture(meter.size(), ratio);
    QPainter painter;
    begin(painter, picture, meter);
    painter.setPen(Qt::NoPen);
    QLinearGradient column(0, 0, 5, 0);
    QRadialGradient bulb(QPointF(0, 267), 10, QPointF(-5, 262));
    for (QGradient* gradient : {static_cast<QGradient*>(&column), static_cast<QGradient*>(&bulb)}) {
        gradient->setSpread(QGradient::ReflectSpread);
        gradient->setColorAt(0, lightened(color));
        gradient->setColorAt(1, color);
    }
    painter.setBrush(column);
    painter.drawRect(QRectF(-5, 262 - height, 10, height));
    painter.setBrush(bulb);
    painter.drawEllipse(QRectF(-10, 257.5, 20, 20));
    return picture;
}

/// The area of all texts is right of the column and below the bulb: whether the value text has a red pixel.
bool hasRedText(const QImage& picture, const QTransform& logical) {
    for (double y = 281; y < 305; y += 0.5) {
        for (double x = -60; x < 60; x += 0.5) {
            const QColor color = colorAt(picture, logical, QPointF(x, y));
            if (color.alpha() > 200 && color.red() > 200 && color.green() < 60 && color.blue() < 60) {
                return true;
            }
        }
    }
    return false;
}

/// Translates the titles.
class FinnishTitles : public QTranslator {
public:
    bool isEmpty() const override { return false; }
    QString translate(const char* context, const char* text, const char*, int) const override {
        return QByteArray(context) == "ThermoMeter" && QByteArray(text) == "Analog Thermometer"
                   ? QStringLiteral("Lämpömittari")
                   : QString();
    }
};

}  // namespace

class ThermoMeterTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void startsWithItsDefaults();
    void translatesItsTitle();
    void addsNothingToTheMetaObject();
    void theColumnRisesWithTheValue_data();
    void theColumnRisesWithTheValue();
    void theFluidsColorFollowsTheThresholds_data();
    void theFluidsColorFollowsTheThresholds();
    void isRedFromCriticalOnBelowNominalToo();
    void theFluidIsShadedToBothSides_data();
    void theFluidIsShadedToBothSides();
    void looksAsIfNewAfterEachChange_data();
    void looksAsIfNewAfterEachChange();
    void paintedInPiecesItIsTheSame();
    void drawsTheGlass();
    void theGlassIsOneOutlineUnderTheTicks_data();
    void theGlassIsOneOutlineUnderTheTicks();
    void theGlassLiesOverTheFluid();
    void drawsThirtyThreeTicks();
    void drawsTheNumbersFromBottomToTop_data();
    void drawsTheNumbersFromBottomToTop();
    void zeroDigitOffsetHidesTheNumbers();
    void drawsTheValueBelowTheBulb_data();
    void drawsTheValueBelowTheBulb();
    void theValueIsRedFromCriticalOn();
    void theValueIsInTheForegroundColor();
    void zeroValueOffsetHidesTheValue();
    void scalesToItsHeightAndCentresInItsWidth();
    void aValueKeepsTheBackground();
    void isCachedAndSharpAtRatioTwo();
    void aTurnedPainterGetsTheSameFluid();
    void aMirroringPainterGetsTheSamePicture();
    void anEmptyThermometerDrawsNothing();
};

void ThermoMeterTest::init() {
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".")));
}

void ThermoMeterTest::startsWithItsDefaults() {
    QWidget parent;
    const Thermometer meter(&parent);
    QCOMPARE(meter.parentWidget(), &parent);
    QCOMPARE(meter.minimum(), 0.0);
    QCOMPARE(meter.maximum(), 80.0);
    QCOMPARE(meter.m_min, 0.0);
    QCOMPARE(meter.m_max, 80.0);
    QCOMPARE(meter.value(), 0.0);
    QCOMPARE(meter.nominal(), 30.0);
    QCOMPARE(meter.critical(), 60.0);
    QCOMPARE(meter.valueOffset(), 270.0);
    QCOMPARE(meter.digitOffset(), 10.0);
    QCOMPARE(meter.prefix(), QString());
    QCOMPARE(meter.suffix(), QStringLiteral(" [C]"));
    QFont digits;
    digits.setPointSize(15);
    QCOMPARE(meter.digitFont(), digits);
    QFont value;
    value.setPointSize(18);
    QCOMPARE(meter.valueFont(), value);
    QCOMPARE(meter.sizePolicy(), QSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding));
    QCOMPARE(meter.windowTitle(), QStringLiteral("Analog Thermometer"));
    QCOMPARE(meter.size(), QSize(200, 200));
}

void ThermoMeterTest::translatesItsTitle() {
    FinnishTitles titles;
    QVERIFY(QCoreApplication::installTranslator(&titles));
    const ThermoMeter meter;
    QCOMPARE(meter.windowTitle(), QStringLiteral("Lämpömittari"));
}

void ThermoMeterTest::addsNothingToTheMetaObject() {
    const QMetaObject& own = ThermoMeter::staticMetaObject;
    QCOMPARE(own.className(), "ThermoMeter");
    QCOMPARE(own.superClass()->className(), "AbstractMeter");
    QCOMPARE(own.propertyCount(), own.propertyOffset());
    QCOMPARE(own.methodCount(), own.methodOffset());
}

void ThermoMeterTest::theColumnRisesWithTheValue_data() {
    QTest::addColumn<double>("value");
    QTest::addColumn<int>("height");
    QTest::newRow("minimum") << 0.0 << 10;
    QTest::newRow("an eighth") << 10.0 << 38;
    QTest::newRow("middle") << 40.0 << 122;
    QTest::newRow("truncated") << 40.35 << 122;
    QTest::newRow("maximum") << 80.0 << 234;
    QTest::newRow("above the scale") << 82.0 << 239;
    QTest::newRow("231 units are the most in proportion") << 82.5 << 241;
    QTest::newRow("far above the scale") << 1e300 << 241;
    QTest::newRow("below the scale") << -1.0 << 8;
    QTest::newRow("truncated toward zero") << -0.3 << 10;
    QTest::newRow("far below the scale") << -1e300 << 5;
    QTest::newRow("not a number") << std::numeric_limits<double>::quiet_NaN() << 5;
}

void ThermoMeterTest::theColumnRisesWithTheValue() {
    QFETCH(double, value);
    QFETCH(int, height);
    Fluid meter;
    meter.resize(200, 614);
    meter.setValueOffset(0);
    meter.setValue(value);
    const QTransform logical = coordinates(meter);
    const QImage picture = rendered(meter);
    const double top = 262 - height;
    for (const double x : {-4.6, 0.0, 4.6}) {
        QCOMPARE(colorAt(picture, logical, QPointF(x, top + 0.6)).alpha(), 255);
        QCOMPARE(colorAt(picture, logical, QPointF(x, top - 0.6)).alpha(), 0);
    }
    QCOMPARE(colorAt(picture, logical, QPointF(-5.8, 255)).alpha(), 0);
    QCOMPARE(colorAt(picture, logical, QPointF(5.8, 255)).alpha(), 0);
    // The bulb's fluid stands at any value.
    for (const QPointF& point : {QPointF(0, 276.5), QPointF(-9, 267.5), QPointF(9, 267.5)}) {
        QCOMPARE(colorAt(picture, logical, point).alpha(), 255);
    }
    for (const QPointF& point : {QPointF(0, 278.5), QPointF(-10.8, 267.5), QPointF(10.8, 267.5)}) {
        QCOMPARE(colorAt(picture, logical, point).alpha(), 0);
    }
}

void ThermoMeterTest::theFluidsColorFollowsTheThresholds_data() {
    QTest::addColumn<double>("value");
    QTest::addColumn<QColor>("color");
    QTest::newRow("below nominal") << 29.999 << QColor(0, 0, 255);
    QTest::newRow("nominal") << 30.0 << QColor(0, 200, 0);
    QTest::newRow("below critical") << 59.999 << QColor(0, 200, 0);
    QTest::newRow("critical") << 60.0 << QColor(255, 0, 0);
    QTest::newRow("above the scale") << 1000.0 << QColor(255, 0, 0);
    QTest::newRow("below the scale") << -1000.0 << QColor(0, 0, 255);
}

void ThermoMeterTest::theFluidsColorFollowsTheThresholds() {
    QFETCH(double, value);
    QFETCH(QColor, color);
    Fluid meter;
    meter.resize(400, 1842);
    meter.setValue(value);
    const QTransform logical = coordinates(meter);
    const QImage picture = rendered(meter);
    // The full colour at the edges of the fluid, its pale version in the light.
    QVERIFY(difference(colorAt(picture, logical, QPointF(4.85, 257.2)), color) <= 8);
    QVERIFY(difference(colorAt(picture, logical, QPointF(-4.85, 257.2)), color) <= 8);
    QVERIFY(difference(colorAt(picture, logical, QPointF(0.05, 257.2)), lightened(color)) <= 8);
    QVERIFY(difference(colorAt(picture, logical, QPointF(-5, 262)), lightened(color)) <= 8);
    QCOMPARE(lightened(color).hsvSaturation(), 55);
    QCOMPARE(lightened(color).hsvHue(), color.hsvHue());
    QCOMPARE(lightened(color).value(), color.value());
}

void ThermoMeterTest::isRedFromCriticalOnBelowNominalToo() {
    Fluid meter;
    meter.resize(300, 614);
    meter.setNominal(70);
    meter.setCritical(60);
    meter.setValue(65);
    QVERIFY(hasRedText(rendered(meter), coordinates(meter)));
    meter.setValueOffset(0);
    QVERIFY(difference(rendered(meter), fluid(meter, QColor(255, 0, 0), 192, 1)) <= 3);
}

void ThermoMeterTest::theFluidIsShadedToBothSides_data() {
    QTest::addColumn<QSize>("size");
    QTest::addColumn<double>("ratio");
    QTest::newRow("the panel's") << QSize(40, 131) << 1.0;
    QTest::newRow("the panel's at ratio 2") << QSize(40, 131) << 2.0;
    QTest::newRow("the panel's at ratio 1.25") << QSize(40, 131) << 1.25;
    QTest::newRow("default") << QSize(200, 200) << 1.0;
    QTest::newRow("odd width, large") << QSize(301, 900) << 1.0;
    QTest::newRow("tiny") << QSize(9, 20) << 1.0;
}

void ThermoMeterTest::theFluidIsShadedToBothSides() {
    QFETCH(QSize, size);
    QFETCH(double, ratio);
    Fluid meter;
    meter.resize(size);
    meter.setValueOffset(0);
    meter.setValue(20);
    QVERIFY(difference(rendered(meter, ratio), fluid(meter, QColor(0, 0, 255), 66, ratio)) <= 3);
    meter.setValue(40);
    QVERIFY(difference(rendered(meter, ratio), fluid(meter, QColor(0, 200, 0), 122, ratio)) <= 3);
    meter.setValue(80);
    QVERIFY(difference(rendered(meter, ratio), fluid(meter, QColor(255, 0, 0), 234, ratio)) <= 3);
}

void ThermoMeterTest::looksAsIfNewAfterEachChange_data() {
    QTest::addColumn<QByteArray>("change");
    for (const char* change :
         {"size", "width", "palette", "font", "nominal", "critical", "ratio", "fine ratio"}) {
        QTest::newRow(change) << QByteArray(change);
    }
}

void ThermoMeterTest::looksAsIfNewAfterEachChange() {
    QFETCH(QByteArray, change);
    const auto apply = [&change](ThermoMeter& meter) {
        QPalette palette;
        palette.setColor(QPalette::WindowText, Qt::darkMagenta);
        change == "size"       ? meter.resize(50, 177)
        : change == "width"    ? meter.resize(47, 131)
        : change == "palette"  ? meter.setPalette(palette)
        : change == "font"     ? meter.setValueFont(QFont(QStringLiteral("Bitstream Charter"), 22))
        : change == "nominal"  ? meter.setNominal(3)
        : change == "critical" ? meter.setCritical(4)
                               : void();
    };
    const double ratio = change == "ratio" ? 2 : change == "fine ratio" ? 1.25 : 1;
    ThermoMeter meter;
    meter.resize(40, 131);
    meter.setValue(12.5);
    const QImage before = rendered(meter);
    QCOMPARE(rendered(meter), before);
    apply(meter);
    ThermoMeter fresh;
    fresh.resize(40, 131);
    fresh.setValue(12.5);
    apply(fresh);
    const QImage after = rendered(meter, ratio);
    QCOMPARE(after, rendered(fresh, ratio));
    QVERIFY(after != before);
}

void ThermoMeterTest::paintedInPiecesItIsTheSame() {
    for (const double offset : {270.0, 100.0, -5.0}) {
        ThermoMeter meter;
        meter.resize(40, 131);
        meter.setValueOffset(offset);
        meter.setValue(33);
        QImage whole(meter.size(), QImage::Format_RGB32);
        whole.fill(Qt::yellow);
        QImage pieces = whole;
        meter.render(&whole, QPoint(), QRegion(), QWidget::RenderFlags());
        for (int y = 0; y < 131; y += 11) {
            for (int x = 0; x < 40; x += 3) {
                const QRect piece(x, y, 3, 11);
                meter.render(&pieces, piece.topLeft(), piece & meter.rect(), QWidget::RenderFlags());
            }
        }
        QCOMPARE(pieces, whole);
    }
}

void ThermoMeterTest::drawsTheGlass() {
    Thermometer meter;
    meter.resize(300, 1228);
    meter.setDigitOffset(0);
    const QTransform logical = coordinates(meter);
    const QImage picture = glass(meter);
    // Blue that shows more and more from x -2 to 12.5, reflected to the left; looked at between the ticks.
    for (const double x : {-1.0, 1.0, 3.0, 6.0}) {
        const double position = (x + 2) / 14.5;
        const QColor color = colorAt(picture, logical, QPointF(x, 45.5));
        QVERIFY(std::abs(color.alpha() - 170 * position) <= 6);
    }
    const QColor mirrored = colorAt(picture, logical, QPointF(-6, 31.5));
    QVERIFY(std::abs(mirrored.alpha() - 170 * 4 / 14.5) <= 6);
    const QColor bulb = colorAt(picture, logical, QPointF(11, 267.5));
    QVERIFY(std::abs(bulb.alpha() - 170 * 13 / 14.5) <= 6);
    QVERIFY(difference(QColor(bulb.red(), bulb.green(), bulb.blue()), QColor(0, 150, 255)) <= 8);
    // The black outline of the tube and the bulb.
    for (const QPointF& point : {QPointF(7.5, 60.25), QPointF(-7.5, 60.25), QPointF(7.5, 250),
                                 QPointF(-7.5, 250.5), QPointF(0, 12.5), QPointF(0, 280)}) {
        QVERIFY(colorAt(picture, logical, point).alpha() > 150);
        QVERIFY(colorAt(picture, logical, point).lightness() < 80);
    }
    // 15 units wide, rounded above; a bulb of 25 units.
    for (const QPointF& point :
         {QPointF(8.4, 60), QPointF(-8.4, 60), QPointF(7, 14), QPointF(-7, 14), QPointF(0, 11.5),
          QPointF(0, 281), QPointF(13.4, 267.5), QPointF(-13.4, 267.5), QPointF(12, 258)}) {
        QCOMPARE(colorAt(picture, logical, point).alpha(), 0);
    }
    QVERIFY(colorAt(picture, logical, QPointF(10.5, 265)).alpha() > 100);
    QVERIFY(colorAt(picture, logical, QPointF(-10.5, 265)).alpha() > 0);
}

void ThermoMeterTest::theGlassIsOneOutlineUnderTheTicks_data() {
    QTest::addColumn<QSize>("size");
    QTest::newRow("the panel's") << QSize(40, 131);
    QTest::newRow("large") << QSize(300, 1228);
}

void ThermoMeterTest::theGlassIsOneOutlineUnderTheTicks() {
    QFETCH(QSize, size);
    Thermometer meter;
    meter.resize(size);
    meter.setDigitOffset(0);
    QPainterPath outline(QPointF(12.5, 267.5));
    outline.quadTo(12.5, 263, 7.5, 257);
    outline.lineTo(7.5, 25);
    outline.quadTo(7.5, 12.5, 0, 12.5);
    outline.quadTo(-7.5, 12.5, -7.5, 25);
    outline.lineTo(-7.5, 257);
    outline.quadTo(-12.5, 263, -12.5, 267.5);
    outline.quadTo(-12.5, 278, 0, 280);
    outline.quadTo(12.5, 278, 12.5, 267.5);
    QLinearGradient blue(-2, 0, 12.5, 0);
    blue.setSpread(QGradient::ReflectSpread);
    blue.setColorAt(0, QColor(255, 255, 255, 0));
    blue.setColorAt(1, QColor(0, 150, 255, 170));
    QImage expected = emptyPicture(size);
    QPainter painter;
    begin(painter, expected, meter);
    painter.setBrush(blue);
    painter.drawPath(outline);
    for (int tick = 0; tick <= 32; ++tick) {
        const int length = tick % 2 != 0 ? 5 : tick % 4 != 0 ? 8 : 12;
        const double width = tick % 2 != 0 ? 0.5 : tick % 4 != 0 ? 0.75 : 1.0;
        painter.setPen(QPen(Qt::black, width));
        painter.drawLine(QPointF(-7, 28 + 7 * tick), QPointF(length - 7, 28 + 7 * tick));
    }
    painter.end();
    QVERIFY(difference(glass(meter), expected) <= 2);
}

void ThermoMeterTest::theGlassLiesOverTheFluid() {
    Thermometer meter;
    meter.resize(200, 614);
    meter.setValueOffset(0);
    meter.setValue(50);
    QImage expected = fluid(meter, QColor(0, 200, 0), 150, 1);
    QPainter painter(&expected);
    painter.drawImage(0, 0, glass(meter));
    painter.end();
    QVERIFY(difference(rendered(meter), expected) <= 3);
    const QTransform logical = coordinates(meter);
    const QColor through_glass = colorAt(expected, logical, QPointF(4.2, 203.5));
    QVERIFY(through_glass.blue() > 40);
}

void ThermoMeterTest::drawsThirtyThreeTicks() {
    Thermometer meter;
    meter.resize(600, 3070);
    meter.setDigitOffset(0);
    const QTransform logical = coordinates(meter);
    const QImage picture = glass(meter);
    const auto black = [&](double x, double y) {
        const QColor color = colorAt(picture, logical, QPointF(x, y));
        return color.alpha() == 255 && color.lightness() < 10;
    };
    for (int tick = 0; tick <= 32; ++tick) {
        const double y = 28 + 7 * tick;
        const int length = tick % 2 != 0 ? 5 : tick % 4 != 0 ? 8 : 12;
        const double width = tick % 2 != 0 ? 0.5 : tick % 4 != 0 ? 0.75 : 1.0;
        const QByteArray name = QByteArray::number(tick);
        QVERIFY2(black(-6.6, y), name);
        QVERIFY2(black(length - 7 - 0.3, y), name);
        QVERIFY2(!black(length - 7 + 0.7, y), name);
        QVERIFY2(black(-5, y + width / 2 - 0.11), name);
        QVERIFY2(black(-5, y - width / 2 + 0.11), name);
        QVERIFY2(!black(-5, y + width / 2 + 0.11), name);
        QVERIFY2(!black(-5, y - width / 2 - 0.11), name);
    }
    QVERIFY(!black(-5, 21));
    QVERIFY(!black(-5, 259));
}

void ThermoMeterTest::drawsTheNumbersFromBottomToTop_data() {
    QTest::addColumn<double>("minimum");
    QTest::addColumn<double>("maximum");
    QTest::addColumn<double>("offset");
    QTest::addColumn<QStringList>("numbers");
    QTest::addColumn<double>("ratio");
    const QStringList defaults = QStringLiteral("0 10 20 30 40 50 60 70 80").split(QLatin1Char(' '));
    QTest::newRow("default") << 0.0 << 80.0 << 10.0 << defaults << 1.0;
    QTest::newRow("ratio 2") << 0.0 << 80.0 << 10.0 << defaults << 2.0;
    QTest::newRow("left of the tube") << 0.0 << 80.0 << -60.5 << defaults << 1.0;
    QTest::newRow("through zero") << -20.0 << 40.0 << 10.0
                                  << QStringLiteral("-20 -10 0 10 20 30 40 50 60").split(QLatin1Char(' '))
                                  << 1.0;
    QTest::newRow("a zero that is not quite one")
        << 0.0 << 1.0 << 10.0
        << QStringLiteral("-0.15 1.11022e-16 0.15 0.3 0.45 0.6 0.75 0.9 1.05").split(QLatin1Char(' ')) << 1.0;
}

void ThermoMeterTest::drawsTheNumbersFromBottomToTop() {
    QFETCH(double, minimum);
    QFETCH(double, maximum);
    QFETCH(double, offset);
    QFETCH(QStringList, numbers);
    QFETCH(double, ratio);
    Thermometer meter;
    meter.resize(500, 614);
    meter.setMinimum(minimum);
    meter.setMaximum(maximum);
    meter.setDigitOffset(0);
    QImage expected = glass(meter, ratio);
    QPainter painter;
    begin(painter, expected, meter);
    painter.setFont(meter.digitFont());
    for (int i = 0; i < numbers.size(); ++i) {
        const int width = painter.fontMetrics().size(Qt::TextSingleLine, numbers[i]).width();
        painter.drawText(QPointF(offset, 252 - 28 * i + width / 4.0), numbers[i]);
    }
    painter.end();
    meter.setDigitOffset(offset);
    QVERIFY(difference(glass(meter, ratio), expected) <= 2);
}

void ThermoMeterTest::zeroDigitOffsetHidesTheNumbers() {
    Thermometer meter;
    meter.resize(300, 307);
    meter.setDigitOffset(0);
    const QTransform logical = coordinates(meter);
    const QImage picture = glass(meter);
    for (double y = 15; y < 280; ++y) {
        for (double x = 14; x < 60; ++x) {
            QCOMPARE(colorAt(picture, logical, QPointF(x, y)).alpha(), 0);
        }
    }
}

void ThermoMeterTest::drawsTheValueBelowTheBulb_data() {
    QTest::addColumn<QSize>("size");
    QTest::addColumn<double>("value");
    QTest::addColumn<double>("offset");
    QTest::addColumn<QString>("text");
    QTest::addColumn<double>("ratio");
    QTest::newRow("default") << QSize(400, 614) << 20.0 << 270.0 << QStringLiteral("U 20 [V]") << 1.0;
    QTest::newRow("odd width of the text")
        << QSize(400, 614) << 12.34 << 270.0 << QStringLiteral("U 12.34 [V]") << 1.0;
    QTest::newRow("the panel's") << QSize(40, 131) << 20.5 << 270.0 << QStringLiteral("U 20.5 [V]") << 1.0;
    QTest::newRow("ratio 2") << QSize(40, 131) << 20.5 << 270.0 << QStringLiteral("U 20.5 [V]") << 2.0;
    QTest::newRow("elsewhere") << QSize(400, 614) << -3.0 << 100.5 << QStringLiteral("U -3 [V]") << 1.0;
}

void ThermoMeterTest::drawsTheValueBelowTheBulb() {
    QFETCH(QSize, size);
    QFETCH(double, value);
    QFETCH(double, offset);
    QFETCH(QString, text);
    QFETCH(double, ratio);
    Thermometer meter;
    meter.resize(size);
    meter.setPrefix(QStringLiteral("U "));
    meter.setSuffix(QStringLiteral(" [V]"));
    meter.setValue(value);
    meter.setValueOffset(offset);
    QImage expected = emptyPicture(size, ratio);
    QPainter painter;
    begin(painter, expected, meter);
    painter.setFont(meter.valueFont());
    const QSize text_size = painter.fontMetrics().size(Qt::TextSingleLine, text);
    painter.drawText(QPointF(-(text_size.width() / 2), offset + text_size.height()), text);
    painter.end();
    painter.begin(&expected);
    // Fluid and glass lie over the text.
    meter.setValueOffset(0);
    painter.drawImage(QPointF(0, 0), rendered(meter, ratio));
    painter.end();
    meter.setValueOffset(offset);
    QVERIFY(difference(rendered(meter, ratio), expected) <= 3);
}

void ThermoMeterTest::theValueIsRedFromCriticalOn() {
    Thermometer meter;
    meter.resize(300, 614);
    const QTransform logical = coordinates(meter);
    meter.setValue(59.9);
    QVERIFY(!hasRedText(rendered(meter), logical));
    meter.setValue(60);
    QVERIFY(hasRedText(rendered(meter), logical));
    meter.setValue(30);
    QVERIFY(!hasRedText(rendered(meter), logical));
}

void ThermoMeterTest::theValueIsInTheForegroundColor() {
    Thermometer meter;
    meter.resize(300, 614);
    const QTransform logical = coordinates(meter);
    QPalette palette = meter.palette();
    palette.setColor(QPalette::WindowText, QColor(250, 0, 0));
    meter.setPalette(palette);
    QVERIFY(hasRedText(rendered(meter), logical));
}

void ThermoMeterTest::zeroValueOffsetHidesTheValue() {
    Thermometer meter;
    meter.resize(300, 614);
    meter.setValue(70);
    meter.setValueOffset(0);
    QVERIFY(!hasRedText(rendered(meter), coordinates(meter)));
    QCOMPARE(rendered(meter).copy(0, 564, 300, 50), emptyPicture(QSize(300, 50)));
}

void ThermoMeterTest::scalesToItsHeightAndCentresInItsWidth() {
    Thermometer narrow;
    narrow.resize(40, 131);
    Thermometer wide;
    wide.resize(140, 131);
    QCOMPARE(rendered(wide).copy(50, 0, 40, 131), rendered(narrow));
    // Half a pixel further in an odd width: halved without rounding.
    Fluid odd;
    odd.resize(41, 307);
    odd.setValueOffset(0);
    odd.setValue(40);
    QVERIFY(difference(rendered(odd), fluid(odd, QColor(0, 200, 0), 122, 1)) <= 3);
    const QImage picture = rendered(odd);
    for (int x = 0; x < 41; ++x) {
        QVERIFY(difference(picture.pixelColor(x, 200), picture.pixelColor(40 - x, 200)) <= 4);
    }
}

void ThermoMeterTest::aValueKeepsTheBackground() {
    CountingThermometer meter;
    meter.resize(40, 131);
    rendered(meter);
    for (int value = 1; value < 80; value += 7) {
        meter.setValue(value);
        rendered(meter);
        meter.setValue(value + 0.5);
        rendered(meter);
    }
    QCOMPARE(meter.backgrounds, 1);
    meter.setMaximum(79);
    rendered(meter);
    QCOMPARE(meter.backgrounds, 1);
    meter.setMaximum(100);
    rendered(meter);
    QCOMPARE(meter.backgrounds, 2);
}

void ThermoMeterTest::isCachedAndSharpAtRatioTwo() {
    CountingThermometer meter;
    meter.resize(40, 131);
    const QImage first = rendered(meter, 2);
    meter.setValue(50);
    rendered(meter, 2);
    meter.setValue(0);
    QCOMPARE(rendered(meter, 2), first);
    QCOMPARE(meter.backgrounds, 1);
    Thermometer twice;
    twice.resize(80, 262);
    QImage large = rendered(twice);
    large.setDevicePixelRatio(2);
    QVERIFY(difference(first, large) <= 2);
}

void ThermoMeterTest::aTurnedPainterGetsTheSameFluid() {
    Fluid meter;
    meter.resize(40, 131);
    meter.setValueOffset(0);
    meter.setValue(40);
    QImage turned = emptyPicture(QSize(131, 40));
    QPainter painter(&turned);
    painter.translate(131, 0);
    painter.rotate(90);
    meter.render(&painter, QPoint(), QRegion(), QWidget::RenderFlags());
    painter.end();
    const QImage back = turned.transformed(QTransform().rotate(-90));
    QVERIFY(difference(back, rendered(meter)) <= 40);
    const QTransform logical = coordinates(meter);
    QVERIFY(difference(colorAt(back, logical, QPointF(0, 240)),
                       colorAt(rendered(meter), logical, QPointF(0, 240))) <= 12);
}

void ThermoMeterTest::aMirroringPainterGetsTheSamePicture() {
    Fluid meter;
    meter.resize(40, 131);
    meter.setValueOffset(0);
    meter.setValue(40);
    const QImage upright = rendered(meter);
    for (const QPointF& scale : {QPointF(-1, 1), QPointF(1, -1), QPointF(-1, -1)}) {
        QImage mirrored = emptyPicture(meter.size());
        QPainter painter(&mirrored);
        painter.translate(scale.x() < 0 ? 40 : 0, scale.y() < 0 ? 131 : 0);
        painter.scale(scale.x(), scale.y());
        meter.render(&painter, QPoint(), QRegion(), QWidget::RenderFlags());
        painter.end();
        QVERIFY(difference(mirrored.mirrored(scale.x() < 0, scale.y() < 0), upright) <= 40);
    }
}

void ThermoMeterTest::anEmptyThermometerDrawsNothing() {
    CountingThermometer meter;
    meter.resize(0, 0);
    QImage picture = emptyPicture(QSize(4, 4));
    meter.render(&picture, QPoint(), QRegion(), QWidget::RenderFlags());
    QCOMPARE(meter.backgrounds, 0);
    QCOMPARE(picture, emptyPicture(QSize(4, 4)));
}

QTEST_MAIN(ThermoMeterTest)
#include "thermometer_test.moc"
