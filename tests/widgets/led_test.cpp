#include "widgets/led.h"

#include <QApplication>
#include <QPainter>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QtTest>
#include <cmath>

#include "tests/widgets/rendered.h"

namespace {

/// A lamp that counts its highlights.
class CountingLed : public Led {
public:
    using Led::doRepaintBackground;
    using Led::Led;
    int backgrounds = 0;

protected:
    void paintBackground(QPainter& painter) override {
        ++backgrounds;
        Led::paintBackground(painter);
    }
};

/// The lamp's logical coordinates.
QTransform coordinates(const QWidget& led) {
    const double scale = qMin(led.width(), led.height()) / 330.0;
    return QTransform::fromScale(scale, scale) * QTransform::fromTranslate(led.width() / 2, led.height() / 2);
}

/// The disc's colour, away from the highlight.
QColor discColor(Led& led, qreal ratio = 1) {
    return colorAt(rendered(led, ratio), coordinates(led), QPointF(90, 90));
}

/// @p color at a fifth of its saturation.
QColor pale(const QColor& color) {
    return QColor::fromHsv(color.hsvHue(), static_cast<int>(color.hsvSaturation() * 0.2), color.value(),
                           color.alpha());
}

}  // namespace

class LedTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void isNewRedAndLit();
    void declaresItsSignalSlotAndProperties();
    void setCheckedEmitsEveryTime();
    void isCheckedAndToBeRepaintedBeforeTheSignal();
    void setColorEmitsNothing();
    void settersRepaintTheHighlight();
    void switchingByEnablingKeepsTheHighlight();
    void looksAsIfNewAfterEachChange_data();
    void looksAsIfNewAfterEachChange();
    void isPaleUnlessCheckedAndEnabled_data();
    void isPaleUnlessCheckedAndEnabled();
    void aDisabledGreenLampIsPaleGreen();
    void uncheckedLooksTheSameEnabledOrNot();
    void aGreyLampStaysGrey();
    void aTranslucentColorStaysTranslucent();
    void theDiscIsACircleInTheSmallerSide_data();
    void theDiscIsACircleInTheSmallerSide();
    void theOutlineIsAThinLineInTheForegroundColor();
    void aSmallLampHasADarkEdge();
    void theHighlightLiesOverTheUpperLeft();
    void theHighlightFadesEvenlyFromItsSpot();
    void isSharpAndCachedAtRatioTwo();
    void anEmptyLampDrawsNothing();
};

void LedTest::init() {
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".")));
}

void LedTest::isNewRedAndLit() {
    QWidget parent;
    Led led(&parent);
    QCOMPARE(led.parentWidget(), &parent);
    QVERIFY(led.isChecked());
    QVERIFY(led.isEnabled());
    QCOMPARE(led.color(), QColor(Qt::red));
    QCOMPARE(led.size(), QSize(330, 330));
    QCOMPARE(discColor(led), QColor(Qt::red));
}

void LedTest::declaresItsSignalSlotAndProperties() {
    const QMetaObject& meta = Led::staticMetaObject;
    QCOMPARE(meta.superClass()->className(), "WidgetWithBackground");
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 2);
    const QMetaMethod signal = meta.method(meta.methodOffset());
    QCOMPARE(signal.methodSignature(), QByteArray("checkChanged(bool)"));
    QCOMPARE(signal.methodType(), QMetaMethod::Signal);
    QCOMPARE(signal.parameterNames(), QList<QByteArray>{"val"});
    const QMetaMethod slot = meta.method(meta.methodOffset() + 1);
    QCOMPARE(slot.methodSignature(), QByteArray("setChecked(bool)"));
    QCOMPARE(slot.methodType(), QMetaMethod::Slot);
    QCOMPARE(slot.access(), QMetaMethod::Public);

    QCOMPARE(meta.propertyCount() - meta.propertyOffset(), 2);
    const QList<QPair<QByteArray, QByteArray>> expected = {{"checked", "bool"}, {"color", "QColor"}};
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
    }
    Led led;
    QVERIFY(led.setProperty("checked", false));
    QVERIFY(!led.isChecked());
    QCOMPARE(led.property("checked").toBool(), false);
    QVERIFY(led.setProperty("color", QColor(1, 2, 3)));
    QCOMPARE(led.color(), QColor(1, 2, 3));
    QCOMPARE(led.property("color").value<QColor>(), QColor(1, 2, 3));
}

void LedTest::setCheckedEmitsEveryTime() {
    Led led;
    const QSignalSpy changed(&led, &Led::checkChanged);
    led.setChecked(true);
    led.setChecked(false);
    led.setChecked(false);
    QCOMPARE(changed.size(), 3);
    QCOMPARE(changed.at(0).at(0).toBool(), true);
    QCOMPARE(changed.at(1).at(0).toBool(), false);
    QCOMPARE(changed.at(2).at(0).toBool(), false);
    QVERIFY(!led.isChecked());
}

void LedTest::isCheckedAndToBeRepaintedBeforeTheSignal() {
    CountingLed led;
    rendered(led);
    bool checked = true;
    bool modified = false;
    connect(&led, &Led::checkChanged, &led, [&] {
        checked = led.isChecked();
        modified = led.doRepaintBackground();
    });
    led.setChecked(false);
    QVERIFY(!checked);
    QVERIFY(modified);
}

void LedTest::setColorEmitsNothing() {
    Led led;
    const QSignalSpy changed(&led, &Led::checkChanged);
    led.setColor(Qt::green);
    QCOMPARE(changed.size(), 0);
    QCOMPARE(discColor(led), QColor(0, 255, 0));
}

void LedTest::settersRepaintTheHighlight() {
    CountingLed led;
    rendered(led);
    QCOMPARE(led.backgrounds, 1);
    led.setChecked(true);
    rendered(led);
    QCOMPARE(led.backgrounds, 2);
    led.setColor(led.color());
    rendered(led);
    QCOMPARE(led.backgrounds, 3);
}

void LedTest::switchingByEnablingKeepsTheHighlight() {
    CountingLed led;
    rendered(led);
    led.setEnabled(false);
    rendered(led);
    led.setEnabled(true);
    rendered(led);
    QCOMPARE(led.backgrounds, 1);
}

void LedTest::looksAsIfNewAfterEachChange_data() {
    QTest::addColumn<QByteArray>("change");
    for (const char* change : {"size", "palette", "color", "translucent", "unchecked", "disabled", "ratio"}) {
        QTest::newRow(change) << QByteArray(change);
    }
}

void LedTest::looksAsIfNewAfterEachChange() {
    QFETCH(QByteArray, change);
    const auto apply = [&change](Led& led) {
        QPalette palette;
        palette.setColor(QPalette::WindowText, Qt::darkMagenta);
        change == "size"          ? led.resize(31, 44)
        : change == "palette"     ? led.setPalette(palette)
        : change == "color"       ? led.setColor(Qt::blue)
        : change == "translucent" ? led.setColor(QColor(255, 0, 0, 99))
        : change == "unchecked"   ? led.setChecked(false)
        : change == "disabled"    ? led.setEnabled(false)
                                  : void();
    };
    const double ratio = change == "ratio" ? 2 : 1;
    Led led;
    led.resize(21, 21);
    for (const bool lit : {true, false, true}) {  // both of its pictures are there
        led.setEnabled(lit);
        rendered(led);
    }
    const QImage before = rendered(led);
    apply(led);
    Led fresh;
    fresh.resize(21, 21);
    apply(fresh);
    const QImage after = rendered(led, ratio);
    QCOMPARE(after, rendered(fresh, ratio));
    QVERIFY(after != before);
}

void LedTest::isPaleUnlessCheckedAndEnabled_data() {
    QTest::addColumn<QColor>("color");
    QTest::newRow("red") << QColor(255, 0, 0);
    QTest::newRow("green") << QColor(0, 255, 0);
    QTest::newRow("a shade off green") << QColor(5, 255, 0);
    QTest::newRow("dull blue") << QColor(40, 80, 120);
}

void LedTest::isPaleUnlessCheckedAndEnabled() {
    QFETCH(QColor, color);
    Led led;
    led.setColor(color);
    QCOMPARE(discColor(led), color.toRgb());
    led.setEnabled(false);
    QCOMPARE(discColor(led).rgba(), pale(color).rgba());
    led.setChecked(false);
    QCOMPARE(discColor(led).rgba(), pale(color).rgba());
    led.setEnabled(true);
    QCOMPARE(discColor(led).rgba(), pale(color).rgba());
    led.setChecked(true);
    QCOMPARE(discColor(led), color.toRgb());
}

void LedTest::aDisabledGreenLampIsPaleGreen() {
    Led led;
    led.setColor(QColor(0, 255, 0));
    led.setEnabled(false);
    const QColor shown = discColor(led);
    QCOMPARE(shown, QColor(204, 255, 204));
    QCOMPARE(shown.hsvSaturation(), 51);
    QCOMPARE(shown.value(), 255);
    QCOMPARE(shown.hsvHue(), 120);
}

void LedTest::uncheckedLooksTheSameEnabledOrNot() {
    Led led;
    led.setChecked(false);
    const QImage enabled = rendered(led);
    led.setEnabled(false);
    // The outline is the foreground colour's, which a palette may give disabled widgets otherwise.
    QPalette palette = led.palette();
    palette.setColor(QPalette::Disabled, QPalette::WindowText,
                     palette.color(QPalette::Active, QPalette::WindowText));
    led.setPalette(palette);
    QCOMPARE(rendered(led), enabled);
}

void LedTest::aGreyLampStaysGrey() {
    Led led;
    led.setColor(QColor(100, 100, 100));
    led.setChecked(false);
    QCOMPARE(discColor(led), QColor(100, 100, 100));
}

void LedTest::aTranslucentColorStaysTranslucent() {
    Led led;
    led.setColor(QColor(0, 0, 255, 128));
    led.setChecked(false);
    QCOMPARE(discColor(led).alpha(), 128);
}

void LedTest::theDiscIsACircleInTheSmallerSide_data() {
    QTest::addColumn<QSize>("size");
    QTest::newRow("the panel's") << QSize(21, 21);
    QTest::newRow("default") << QSize(330, 330);
    QTest::newRow("wide") << QSize(300, 100);
    QTest::newRow("tall") << QSize(101, 331);
}

void LedTest::theDiscIsACircleInTheSmallerSide() {
    QFETCH(QSize, size);
    Led led;
    led.resize(size);
    const QTransform logical = coordinates(led);
    const QImage picture = rendered(led, 4);
    for (int degrees = 0; degrees < 360; degrees += 15) {
        const QPointF direction(qCos(qDegreesToRadians(degrees)), qSin(qDegreesToRadians(degrees)));
        // The square from (-149, -149) with side 299 has its centre at (0.5, 0.5).
        const QPointF centre(0.5, 0.5);
        const double pixel = 330.0 / (4 * qMin(size.width(), size.height()));
        QVERIFY2(colorAt(picture, logical, centre + (149.5 - 1.5 * pixel - 1) * direction).red() == 255,
                 qPrintable(QString::number(degrees)));
        QCOMPARE(colorAt(picture, logical, centre + (149.5 + 1.5 * pixel + 1) * direction).alpha(), 0);
    }
}

void LedTest::theOutlineIsAThinLineInTheForegroundColor() {
    Led led;
    led.resize(660, 660);
    const QTransform logical = coordinates(led);
    const QPointF edge(0.5, 150);
    const auto darkest = [&](const QImage& picture) {
        int lowest = 255;
        for (double y = 147; y < 152; y += 0.5) {
            const QColor color = colorAt(picture, logical, QPointF(0.5, y));
            if (color.alpha() == 255) {
                lowest = qMin(lowest, color.lightness());
            }
        }
        return lowest;
    };
    // One pixel that two rows may share.
    QVERIFY(darkest(rendered(led)) < 80);
    // At most two pixels wide: the fill colour is back two units inside.
    QCOMPARE(colorAt(rendered(led), logical, QPointF(0.5, 147.5)), QColor(Qt::red));

    QPalette palette = led.palette();
    palette.setColor(QPalette::WindowText, QColor(0, 0, 200));
    led.setPalette(palette);
    bool blue = false;
    const QImage picture = rendered(led);
    for (double y = 147; y < 152; y += 0.5) {
        const QColor color = colorAt(picture, logical, QPointF(0.5, y));
        blue = blue || (color.blue() > 100 && color.red() < 130);
    }
    QVERIFY(blue);
}

void LedTest::aSmallLampHasADarkEdge() {
    Led led;
    led.resize(21, 21);
    for (const QColor& color : {QColor(255, 0, 0), QColor(0, 255, 0), QColor(255, 255, 255)}) {
        led.setColor(color);
        QImage picture(led.size(), QImage::Format_RGB32);
        picture.fill(Qt::white);
        led.render(&picture, QPoint(), QRegion(), QWidget::RenderFlags());
        const QTransform logical = coordinates(led);
        for (const double degrees : {0.0, 90.0, 45.0}) {
            const QPointF direction(qCos(qDegreesToRadians(degrees)), qSin(qDegreesToRadians(degrees)));
            int darkest = 255;
            for (double radius = 120; radius < 165; radius += 4) {
                const QColor shown = colorAt(picture, logical, radius * direction);
                darkest = qMin(darkest, qMax(shown.red(), qMax(shown.green(), shown.blue())));
            }
            QVERIFY2(darkest < 170, QByteArray::number(darkest));
        }
    }
}

void LedTest::theHighlightLiesOverTheUpperLeft() {
    Led led;
    led.setColor(Qt::black);
    const QTransform logical = coordinates(led);
    const QImage picture = rendered(led);
    QVERIFY(difference(colorAt(picture, logical, QPointF(-40, -40)), QColor(199, 199, 199)) <= 3);
    // Half-way to the rim of the highlight: half of the alpha of 200.
    QVERIFY(difference(colorAt(picture, logical, QPointF(20, -40)), QColor(100, 100, 100)) <= 3);
    QVERIFY(difference(colorAt(picture, logical, QPointF(-40, 20)), QColor(100, 100, 100)) <= 3);
    QCOMPARE(colorAt(picture, logical, QPointF(82, -40)), QColor(Qt::black));
    QCOMPARE(colorAt(picture, logical, QPointF(60, 60)), QColor(Qt::black));
}

void LedTest::theHighlightFadesEvenlyFromItsSpot() {
    Led led;
    led.resize(1320, 1320);
    led.setColor(Qt::transparent);
    const QTransform logical = coordinates(led);
    const QImage picture = rendered(led);
    double largest_error = 0;
    // The disc, clear of its edge, at the middles of pixels.
    for (double y = -144.875; y < 145; ++y) {
        for (double x = -144.875; x < 145; ++x) {
            if (std::hypot(x, y) < 145) {
                const double alpha = 200 * qMax(0.0, 1 - std::hypot(x + 40, y + 40) / 120);
                const int shown = colorAt(picture, logical, QPointF(x, y)).alpha();
                largest_error = qMax(largest_error, std::abs(shown - alpha));
            }
        }
    }
    QVERIFY2(largest_error <= 1, QByteArray::number(largest_error));
}

void LedTest::isSharpAndCachedAtRatioTwo() {
    CountingLed small;
    small.resize(21, 21);
    small.setColor(QColor(0, 255, 0));
    const QImage at_two = rendered(small, 2);
    QCOMPARE(rendered(small, 2), at_two);
    QCOMPARE(small.backgrounds, 1);

    // The same picture as that of the lamp drawn without a cache on four times the pixels.
    QImage drawn = emptyPicture(QSize(21, 21), 2);
    QPainter painter(&drawn);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setTransform(coordinates(small), true);
    painter.setPen(QPen(Qt::black, 0));
    painter.setBrush(QColor(0, 255, 0));
    painter.drawEllipse(-149, -149, 299, 299);
    painter.setPen(Qt::NoPen);
    QRadialGradient highlight(QPointF(-40, -40), 120);
    highlight.setColorAt(0, QColor(255, 255, 255, 200));
    highlight.setColorAt(1, QColor(255, 255, 255, 0));
    painter.setBrush(highlight);
    painter.drawEllipse(-147, -147, 297, 297);
    painter.end();
    QVERIFY(difference(at_two, drawn) <= 3);
}

void LedTest::anEmptyLampDrawsNothing() {
    CountingLed led;
    led.resize(0, 0);
    QImage picture = emptyPicture(QSize(4, 4));
    led.render(&picture, QPoint(), QRegion(), QWidget::RenderFlags());
    QCOMPARE(led.backgrounds, 0);
    QCOMPARE(picture, emptyPicture(QSize(4, 4)));
}

QTEST_MAIN(LedTest)
#include "led_test.moc"
