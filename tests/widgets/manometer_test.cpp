#include "widgets/manometer.h"

#include <QApplication>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>
#include <QRegularExpression>
#include <QScreen>
#include <QTranslator>
#include <QtTest>
#include <cmath>
#include <csignal>
#include <limits>

#include "tests/support/childprocess.h"
#include "tests/widgets/rendered.h"

namespace {

constexpr int far_away = 100000;

/// A dial that counts its backgrounds and lets its scale be set.
class Dial : public ManoMeter {
public:
    using ManoMeter::doRepaintBackground;
    using ManoMeter::m_max;
    using ManoMeter::m_min;
    using ManoMeter::ManoMeter;
    using ManoMeter::paintBackground;

    int backgrounds = 0;

    /// What of the dial stands still.
    QImage background() {
        QImage picture = emptyPicture(size());
        QPainter painter(&picture);
        paintBackground(painter);
        return picture;
    }

    /// Leaves only the face: no bands, no numbers, no value text.
    void undress() {
        setNominal(m_max);
        setCritical(m_max);
        setDigitOffset(far_away);
        setValueOffset(0);
    }

protected:
    void paintEvent(QPaintEvent* event) override { ManoMeter::paintEvent(event); }
};

class CountingDial : public Dial {
public:
    using Dial::Dial;

protected:
    void paintBackground(QPainter& painter) override {
        ++backgrounds;
        Dial::paintBackground(painter);
    }
};

/// The dial's logical coordinates.
QTransform coordinates(const QWidget& dial) {
    const double scale = qMin(dial.width(), dial.height()) / 335.0;
    return QTransform::fromScale(scale, scale) *
           QTransform::fromTranslate(dial.width() / 2, dial.height() / 2);
}

/// The point at a distance from the centre, some degrees clockwise from straight below it.
QPointF at(double degrees, double radius) {
    const double angle = qDegreesToRadians(degrees);
    return {-radius * std::sin(angle), radius * std::cos(angle)};
}

/// Where a radial gradient with a focal point is at @p point, from 0 at the focal point to 1 at the circle.
double radialPosition(const QPointF& point, double radius, const QPointF& focal) {
    const QPointF step = point - focal;
    const double a = QPointF::dotProduct(step, step);
    const double b = QPointF::dotProduct(focal, step);
    const double c = QPointF::dotProduct(focal, focal) - radius * radius;
    return a / (-b + std::sqrt(b * b - a * c));
}

QColor grey(double value) {
    return QColor(qRound(value), qRound(value), qRound(value));
}

QColor faceColor(const QPointF& point) {
    const double position = radialPosition(point, 182, QPointF(-12, -15));
    return position < 0.5 ? grey(255 - 15 * position / 0.5) : grey(240 - 25 * (position - 0.5) / 0.5);
}

/// A picture of @p widget to draw on in its logical coordinates.
class Drawing {
public:
    Drawing(QImage picture, const QWidget& widget) : m_picture(std::move(picture)), painter(&m_picture) {
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setTransform(coordinates(widget), true);
    }
    QImage finished() {
        painter.end();
        return m_picture;
    }

private:
    QImage m_picture;

public:
    QPainter painter;
};

bool isGreen(const QColor& color) {
    return difference(color, QColor(0, 200, 0)) <= 2;
}

bool isRed(const QColor& color) {
    return difference(color, QColor(255, 0, 0)) <= 2;
}

bool isBlack(const QColor& color) {
    return difference(color, QColor(0, 0, 0)) <= 2;
}

/// Number of pixels of @p picture below the centre, clear of the needle's hub, that are rather @p red than
/// grey.
int redInkBelow(const QImage& picture, const QTransform& logical) {
    int count = 0;
    for (double y = 60; y < 110; y += 1) {
        for (double x = -90; x < 90; x += 1) {
            const QColor color = colorAt(picture, logical, QPointF(x, y));
            count += color.red() > 200 && color.green() < 60 && color.blue() < 60 ? 1 : 0;
        }
    }
    return count;
}

/// Translates the titles.
class FinnishTitles : public QTranslator {
public:
    bool isEmpty() const override { return false; }
    QString translate(const char* context, const char* text, const char*, int) const override {
        return QByteArray(context) == "ManoMeter" && QByteArray(text) == "Analog Barmeter"
                   ? QStringLiteral("Mittari")
                   : QString();
    }
};

}  // namespace

class ManoMeterTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void startsWithItsDefaults();
    void translatesItsTitle();
    void addsNothingToTheMetaObject();
    void drawsTheRimsAndTheFace_data();
    void drawsTheRimsAndTheFace();
    void theDialIsItsCirclesBandsAndTicks_data();
    void theDialIsItsCirclesBandsAndTicks();
    void isTransparentAroundTheDial();
    void drawsBandsFromTheirStartToTheEnd();
    void bandsStartAtSixteenthsOfADegreeTruncated();
    void drawsBandsOnlyOnTheScale_data();
    void drawsBandsOnlyOnTheScale();
    void redCoversGreen();
    void coversTheBandsInsideTheRing();
    void drawsThirtyThreeTicks();
    void drawsTheNumbersOfItsScale_data();
    void drawsTheNumbersOfItsScale();
    void placesTheNumbersByTheirSizeUnrounded_data();
    void placesTheNumbersByTheirSizeUnrounded();
    void zeroDigitOffsetDrawsTheNumbersAtTheCentre();
    void theNeedlePointsToTheValue_data();
    void theNeedlePointsToTheValue();
    void theNeedleIsTheOutlineAndTheHub_data();
    void theNeedleIsTheOutlineAndTheHub();
    void drawsTheValueBelowTheCentre_data();
    void drawsTheValueBelowTheCentre();
    void theValueIsRedFromCriticalOn();
    void theValueIsRedFromCriticalOnBelowNominalToo();
    void theValueIsInTheForegroundColor();
    void zeroOffsetHidesTheValue();
    void theValueFollowsTheWidgetsFont();
    void scalesToTheSmallerSide();
    void aChangeOfTheValueRepaintsWhatShowsIt_data();
    void aChangeOfTheValueRepaintsWhatShowsIt();
    void aChangeOfTheValueRepaintsGlyphsThatLeaveTheirLine_data();
    void aChangeOfTheValueRepaintsGlyphsThatLeaveTheirLine();
    void aChangeOfTheValueLeavesTheRest();
    void paintedInPiecesItIsTheSame();
    void theValueTextFollowsEachChange_data();
    void theValueTextFollowsEachChange();
    void aValueKeepsTheBackground();
    void textsAndFontsRepaintTheBackground();
    void isCachedAndSharpAtRatioTwo();
    void aScaleWithoutExtentEndsTheProcess();
    void anEmptyDialDrawsNothing();
};

void ManoMeterTest::init() {
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".")));
}

void ManoMeterTest::startsWithItsDefaults() {
    QWidget parent;
    const Dial dial(&parent);
    QCOMPARE(dial.parentWidget(), &parent);
    QCOMPARE(dial.minimum(), 0.0);
    QCOMPARE(dial.maximum(), 300.0);
    QCOMPARE(dial.m_min, 0.0);
    QCOMPARE(dial.m_max, 320.0);
    QCOMPARE(dial.value(), 0.0);
    QCOMPARE(dial.nominal(), 80.0);
    QCOMPARE(dial.critical(), 220.0);
    QCOMPARE(dial.valueOffset(), -100.0);
    QCOMPARE(dial.digitOffset(), 105.0);
    QCOMPARE(dial.prefix(), QString());
    QCOMPARE(dial.suffix(), QStringLiteral(" [bar]"));
    QFont digits;
    digits.setPointSize(20);
    QCOMPARE(dial.digitFont(), digits);
    QFont value;
    value.setPointSize(25);
    QCOMPARE(dial.valueFont(), value);
    QCOMPARE(dial.sizePolicy(), QSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding));
    QCOMPARE(dial.windowTitle(), QStringLiteral("Analog Barmeter"));
    QCOMPARE(dial.size(), QSize(311, 311));
}

void ManoMeterTest::translatesItsTitle() {
    FinnishTitles titles;
    QVERIFY(QCoreApplication::installTranslator(&titles));
    const ManoMeter dial;
    QCOMPARE(dial.windowTitle(), QStringLiteral("Mittari"));
}

void ManoMeterTest::addsNothingToTheMetaObject() {
    const QMetaObject& own = ManoMeter::staticMetaObject;
    QCOMPARE(own.className(), "ManoMeter");
    QCOMPARE(own.superClass()->className(), "AbstractMeter");
    QCOMPARE(own.propertyCount(), own.propertyOffset());
    QCOMPARE(own.methodCount(), own.methodOffset());
}

void ManoMeterTest::drawsTheRimsAndTheFace_data() {
    QTest::addColumn<QSize>("size");
    QTest::addColumn<double>("ratio");
    QTest::newRow("in logical units") << QSize(335, 335) << 1.0;
    QTest::newRow("large") << QSize(1340, 1340) << 1.0;
    QTest::newRow("off the square") << QSize(900, 670) << 1.0;
    QTest::newRow("ratio 2") << QSize(335, 400) << 2.0;
}

void ManoMeterTest::drawsTheRimsAndTheFace() {
    QFETCH(QSize, size);
    QFETCH(double, ratio);
    Dial dial;
    dial.resize(size);
    dial.undress();
    const QTransform logical = coordinates(dial);
    const QImage picture = rendered(dial, ratio);
    for (double degrees = 3.75; degrees < 360; degrees += 7.5) {
        const auto shown = [&](double radius) { return colorAt(picture, logical, at(degrees, radius)); };
        // Black circles of width 4 at the radii 162 and 142.
        QVERIFY(isBlack(shown(162)));
        QVERIFY(isBlack(shown(142.5)));
        const double outer = radialPosition(at(degrees, 156), 180, QPointF(-35, 145));
        QVERIFY(difference(shown(156), grey(250 - 230 * outer)) <= 6);
        const double inner = radialPosition(at(degrees, 148), 225, QPointF(76.5, 135));
        QVERIFY(difference(shown(148), grey(10 + 240 * inner)) <= 6);
    }
    // The face, clear of ticks and needle.
    for (double degrees = 120; degrees <= 300; degrees += 20) {
        for (const double radius : {20.0, 60.0, 110.0}) {
            if (radius > 55 || degrees < 200) {
                const QPointF point = at(degrees, radius);
                QVERIFY(difference(colorAt(picture, logical, point), faceColor(point)) <= 3);
            }
        }
    }
}

void ManoMeterTest::theDialIsItsCirclesBandsAndTicks_data() {
    QTest::addColumn<int>("side");
    QTest::newRow("the panel's") << 121;
    QTest::newRow("large") << 1340;
}

void ManoMeterTest::theDialIsItsCirclesBandsAndTicks() {
    QFETCH(int, side);
    Dial dial;
    dial.resize(side, side);
    dial.setDigitOffset(far_away);
    QImage shown = emptyPicture(dial.size());
    QPainter shown_painter(&shown);
    dial.paintBackground(shown_painter);
    shown_painter.end();

    QRadialGradient outer(QPointF(0, 0), 180, QPointF(-35, 145));
    outer.setColorAt(0, QColor(250, 250, 250));
    outer.setColorAt(1, QColor(20, 20, 20));
    QRadialGradient inner(QPointF(0, 0), 225, QPointF(76.5, 135));
    inner.setColorAt(0, QColor(10, 10, 10));
    inner.setColorAt(1, QColor(250, 250, 250));
    QRadialGradient face(QPointF(0, 0), 182, QPointF(-12, -15));
    face.setColorAt(0, Qt::white);
    face.setColorAt(0.5, QColor(240, 240, 240));
    face.setColorAt(1, QColor(215, 215, 215));
    Drawing expected(emptyPicture(dial.size()), dial);
    QPainter& painter = expected.painter;
    const auto fill = [&painter](const QBrush& brush, int left, int width) {
        painter.setBrush(brush);
        painter.drawEllipse(left, left, width, width);
    };
    painter.setPen(QPen(Qt::black, 4));
    fill(outer, -162, 324);
    painter.setPen(Qt::NoPen);
    fill(inner, -152, 304);
    painter.setPen(QPen(Qt::black, 4));
    fill(face, -142, 284);
    painter.setPen(Qt::NoPen);
    // 80 and 220 of 320.
    painter.setBrush(QColor(0, 200, 0));
    painter.drawPie(-141, -141, 282, 282, -480, 3840 - 960);
    painter.setBrush(QColor(255, 0, 0));
    painter.drawPie(-141, -141, 282, 282, -480, 3840 - 2640);
    fill(face, -129, 258);
    painter.rotate(60);
    painter.setBrush(Qt::black);
    for (int tick = 0; tick <= 32; ++tick) {
        if (tick % 4 == 0) {
            painter.setPen(Qt::NoPen);
            painter.drawPolygon(QPolygonF({QPointF(-6, 141), QPointF(6, 141), QPointF(0, 129)}));
        } else {
            painter.setPen(QPen(Qt::black, 3));
            painter.drawLine(QPointF(0, 140), QPointF(0, tick % 2 == 0 ? 130 : 135));
        }
        painter.rotate(7.5);
    }
    QVERIFY(difference(shown, expected.finished()) <= 2);
}

void ManoMeterTest::isTransparentAroundTheDial() {
    Dial dial;
    dial.resize(500, 335);
    const QImage picture = rendered(dial);
    QCOMPARE(picture.pixelColor(0, 0).alpha(), 0);
    QCOMPARE(picture.pixelColor(499, 334).alpha(), 0);
    QCOMPARE(picture.pixelColor(250 - 170, 167).alpha(), 0);
    QCOMPARE(colorAt(picture, coordinates(dial), at(45, 165.5)).alpha(), 0);
}

void ManoMeterTest::drawsBandsFromTheirStartToTheEnd() {
    Dial dial;
    dial.resize(670, 670);
    dial.setValue(-500);
    const QTransform logical = coordinates(dial);
    const QImage picture = rendered(dial);
    // 0 to 320 over 240 degrees from 60: nominal 80 stands at 120 degrees, critical 220 at 225.
    for (double degrees = 63.75; degrees < 300; degrees += 7.5) {
        const QColor shown = colorAt(picture, logical, at(degrees, 136));
        QCOMPARE(isGreen(shown), degrees > 120 && degrees < 225);
        QCOMPARE(isRed(shown), degrees > 225);
    }
    QVERIFY(!isGreen(colorAt(picture, logical, at(303.75, 136))));
    QVERIFY(!isRed(colorAt(picture, logical, at(303.75, 136))));
}

void ManoMeterTest::bandsStartAtSixteenthsOfADegreeTruncated() {
    Dial dial;
    dial.resize(1340, 1340);
    const auto drawn = [&dial](double nominal, double critical) {
        dial.setNominal(nominal);
        dial.setCritical(critical);
        return dial.background();
    };
    // 320 on the scale are 3840 sixteenths.
    constexpr double sixteenth = 320.0 / 3840;
    const QImage whole = drawn(80, 220);
    QCOMPARE(drawn(80 + 0.9 * sixteenth, 220), whole);
    QCOMPARE(drawn(80, 220 + 0.9 * sixteenth), whole);
    QVERIFY(drawn(80 + 1.1 * sixteenth, 220) != whole);
    QVERIFY(drawn(80, 220 + 1.1 * sixteenth) != whole);
}

void ManoMeterTest::drawsBandsOnlyOnTheScale_data() {
    QTest::addColumn<double>("nominal");
    QTest::addColumn<double>("critical");
    QTest::addColumn<bool>("green");
    QTest::addColumn<bool>("red");
    QTest::newRow("below the scale") << -0.1 << -1.0 << false << false;
    QTest::newRow("at its start") << 0.0 << 1000.0 << true << false;
    QTest::newRow("at its end") << 320.0 << 320.0 << false << false;
    QTest::newRow("above it") << 321.0 << 1e300 << false << false;
    QTest::newRow("just below its end, critical at its start") << 319.0 << 0.0 << false << true;
    QTest::newRow("not a number") << std::numeric_limits<double>::quiet_NaN()
                                  << std::numeric_limits<double>::quiet_NaN() << false << false;
}

void ManoMeterTest::drawsBandsOnlyOnTheScale() {
    QFETCH(double, nominal);
    QFETCH(double, critical);
    Dial dial;
    dial.resize(670, 670);
    dial.setNominal(nominal);
    dial.setCritical(critical);
    const QTransform logical = coordinates(dial);
    const QImage picture = rendered(dial);
    for (const double degrees : {63.75, 183.75, 296.25}) {
        QTEST(isGreen(colorAt(picture, logical, at(degrees, 136))), "green");
        QTEST(isRed(colorAt(picture, logical, at(degrees, 136))), "red");
    }
}

void ManoMeterTest::redCoversGreen() {
    Dial dial;
    dial.resize(670, 670);
    dial.setNominal(200);
    dial.setCritical(80);
    const QTransform logical = coordinates(dial);
    const QImage picture = rendered(dial);
    QVERIFY(!isRed(colorAt(picture, logical, at(116.25, 136))));
    for (double degrees = 123.75; degrees < 300; degrees += 7.5) {
        QVERIFY(isRed(colorAt(picture, logical, at(degrees, 136))));
    }
}

void ManoMeterTest::coversTheBandsInsideTheRing() {
    Dial dial;
    dial.resize(670, 670);
    dial.undress();
    dial.setNominal(0);
    dial.setCritical(160);
    const QTransform logical = coordinates(dial);
    const QImage picture = rendered(dial);
    for (double degrees = 93.75; degrees < 300; degrees += 7.5) {
        const QPointF inside = at(degrees, 127.5);
        QVERIFY(difference(colorAt(picture, logical, inside), faceColor(inside)) <= 3);
        const QColor ring = colorAt(picture, logical, at(degrees, 130.5));
        QVERIFY(isGreen(ring) || isRed(ring));
    }
}

void ManoMeterTest::drawsThirtyThreeTicks() {
    Dial dial;
    dial.resize(1340, 1340);
    dial.undress();
    dial.setValue(-80);
    const QTransform logical = coordinates(dial);
    const QImage picture = rendered(dial);
    // A point at a distance to the side of the line from the centre.
    const auto shown = [&](double degrees, double radius, double aside) {
        const QPointF side = at(degrees + 90, aside);
        return colorAt(picture, logical, at(degrees, radius) + side);
    };
    for (int tick = 0; tick <= 32; ++tick) {
        const double degrees = 60 + 7.5 * tick;
        const QByteArray name = QByteArray::number(tick);
        // The end of the shortest line and of a triangle's body.
        QVERIFY2(isBlack(shown(degrees, 138, 0)), name);
        const bool triangle = tick % 4 == 0;
        for (const double side : {-1.0, 1.0}) {
            QVERIFY2(isBlack(shown(degrees, 138.5, 1.2 * side)), name);
            QVERIFY2(isBlack(shown(degrees, 138.5, 4 * side)) == triangle, name);
            QVERIFY2(isBlack(shown(degrees, 131, 2.2 * side)) == false, name);
            QVERIFY2(isBlack(shown(degrees, 138, 2.2 * side)) == triangle, name);
        }
        QVERIFY2(isBlack(shown(degrees, 133, 0)) == (tick % 2 == 0), name);
        QVERIFY2(isBlack(shown(degrees, 130.6, 0)) == (tick % 2 == 0), name);
        QVERIFY2(!isBlack(shown(degrees, 128, 0)), name);
    }
    for (const double degrees : {52.5, 307.5, 0.0, 3.75, 180 + 3.75}) {
        QVERIFY(!isBlack(shown(degrees, 137, 0)));
    }
}

void ManoMeterTest::drawsTheNumbersOfItsScale_data() {
    QTest::addColumn<double>("minimum");
    QTest::addColumn<double>("maximum");
    QTest::addColumn<QStringList>("numbers");
    QTest::addColumn<double>("ratio");
    const QStringList panel =
        QStringLiteral("0 315 630 945 1260 1575 1890 2205 2520").split(QLatin1Char(' '));
    QTest::newRow("the panel's") << 0.0 << 2500.0 << panel << 1.0;
    QTest::newRow("the panel's at ratio 2") << 0.0 << 2500.0 << panel << 2.0;
    QTest::newRow("default") << 0.0 << 300.0
                             << QStringLiteral("0 40 80 120 160 200 240 280 320").split(QLatin1Char(' '))
                             << 1.0;
    QTest::newRow("through zero") << -20.0 << 40.0
                                  << QStringLiteral("-20 -10 0 10 20 30 40 50 60").split(QLatin1Char(' '))
                                  << 1.0;
    QTest::newRow("a zero that is not quite one")
        << 0.0 << 1.0 << QStringLiteral("-0.15 0 0.15 0.3 0.45 0.6 0.75 0.9 1.05").split(QLatin1Char(' '))
        << 1.0;
    QTest::newRow("six digits") << 0.0 << 10000000.0
                                << QStringLiteral(
                                       "0 1.25e+06 2.5e+06 3.75e+06 5e+06 6.25e+06 7.5e+06 8.75e+06 1e+07")
                                       .split(QLatin1Char(' '))
                                << 1.0;
}

void ManoMeterTest::drawsTheNumbersOfItsScale() {
    QFETCH(double, minimum);
    QFETCH(double, maximum);
    QFETCH(QStringList, numbers);
    QFETCH(double, ratio);
    Dial dial;
    dial.resize(670, 670);
    dial.setMinimum(minimum);
    dial.setMaximum(maximum);
    dial.setMinimum(minimum);
    dial.setDigitOffset(far_away);
    dial.setValueOffset(0);
    dial.setValue(-1e9);
    dial.setValue(dial.m_min);
    Drawing expected(rendered(dial, ratio), dial);
    expected.painter.setFont(dial.digitFont());
    for (int i = 0; i < numbers.size(); ++i) {
        const QSize size = expected.painter.fontMetrics().size(Qt::TextSingleLine, numbers[i]);
        const double angle = (i + 5) * M_PI / 6;
        expected.painter.drawText(
            QPointF(105 * std::cos(angle) - size.width() / 2.0, 105 * std::sin(angle) + size.height() / 4.0),
            numbers[i]);
    }
    dial.setDigitOffset(105);
    const QImage shown = rendered(dial, ratio);
    // The needle lies over the first number in the one picture and under it in the other.
    Drawing covered_shown(shown, dial);
    Drawing covered_expected(expected.finished(), dial);
    for (QPainter* painter : {&covered_shown.painter, &covered_expected.painter}) {
        painter->rotate(60);
        painter->fillRect(QRectF(-12, -55, 24, 190), Qt::white);
    }
    QVERIFY(difference(covered_shown.finished(), covered_expected.finished()) <= 24);
    QVERIFY(difference(shown, rendered(dial, ratio)) == 0);
}

void ManoMeterTest::placesTheNumbersByTheirSizeUnrounded_data() {
    QTest::addColumn<int>("points");
    for (int points = 17; points < 24; ++points) {
        QTest::addRow("%d points", points) << points;
    }
}

void ManoMeterTest::placesTheNumbersByTheirSizeUnrounded() {
    QFETCH(int, points);
    Dial dial;
    dial.resize(1340, 1340);
    QFont font = dial.digitFont();
    font.setPointSize(points);
    dial.setDigitFont(font);
    const auto background = [&dial] {
        QImage picture = emptyPicture(dial.size());
        QPainter painter(&picture);
        dial.paintBackground(painter);
        painter.end();
        return picture;
    };
    dial.setDigitOffset(far_away);
    Drawing expected(background(), dial);
    expected.painter.setFont(font);
    for (int i = 0; i <= 8; ++i) {
        const QString number = QString::number(40 * i);
        const QSize size = expected.painter.fontMetrics().size(Qt::TextSingleLine, number);
        const double angle = (i + 5) * M_PI / 6;
        expected.painter.drawText(
            QPointF(105 * std::cos(angle) - size.width() / 2.0, 105 * std::sin(angle) + size.height() / 4.0),
            number);
    }
    dial.setDigitOffset(105);
    QVERIFY(difference(background(), expected.finished()) <= 24);
}

void ManoMeterTest::zeroDigitOffsetDrawsTheNumbersAtTheCentre() {
    Dial dial;
    dial.setDigitOffset(far_away);
    const QImage bare = dial.background();
    dial.setDigitOffset(0);
    const QImage shown = dial.background();
    const QRect middle(125, 135, 60, 40);
    QVERIFY(difference(shown.copy(middle), bare.copy(middle)) > 200);
}

void ManoMeterTest::theNeedlePointsToTheValue_data() {
    QTest::addColumn<double>("value");
    QTest::addColumn<double>("degrees");
    QTest::newRow("minimum") << 0.0 << 60.0;
    QTest::newRow("quarter") << 80.0 << 120.0;
    QTest::newRow("middle") << 160.0 << 180.0;
    QTest::newRow("between ticks") << 165.0 << 183.75;
    QTest::newRow("maximum") << 320.0 << 300.0;
    QTest::newRow("below the scale") << -40.0 << 30.0;
    QTest::newRow("above the scale") << 360.0 << 330.0;
    QTest::newRow("far above the scale") << 520.0 << 450.0;
}

void ManoMeterTest::theNeedlePointsToTheValue() {
    QFETCH(double, value);
    QFETCH(double, degrees);
    Dial dial;
    dial.resize(670, 670);
    dial.undress();
    dial.setValue(value);
    const QTransform logical = coordinates(dial);
    const QImage picture = rendered(dial);
    for (const double radius : {2.0, 40.0, 80.0, 120.0}) {
        QVERIFY(isBlack(colorAt(picture, logical, at(degrees, radius))));
    }
    QVERIFY(isBlack(colorAt(picture, logical, at(degrees + 180, 47))));
    QVERIFY(!isBlack(colorAt(picture, logical, at(degrees + 180, 53))));
    for (double other = 0; other < 360; other += 5) {
        const double apart = std::abs(std::remainder(other - degrees, 360));
        const QColor at_80 = colorAt(picture, logical, at(other, 80));
        QVERIFY(apart < 5 || !isBlack(at_80));
        const QColor at_45 = colorAt(picture, logical, at(other, 45));
        QVERIFY(apart < 5 || apart > 165 || !isBlack(at_45));
    }
}

void ManoMeterTest::theNeedleIsTheOutlineAndTheHub_data() {
    QTest::addColumn<int>("side");
    QTest::addColumn<double>("ratio");
    QTest::newRow("the panel's") << 121 << 1.0;
    QTest::newRow("the panel's at ratio 2") << 121 << 2.0;
    QTest::newRow("small") << 40 << 1.0;
    QTest::newRow("large") << 1000 << 1.0;
}

void ManoMeterTest::theNeedleIsTheOutlineAndTheHub() {
    QFETCH(int, side);
    QFETCH(double, ratio);
    QPainterPath outline(QPointF(-4, 0));
    outline.lineTo(-1, 129);
    outline.lineTo(1, 129);
    outline.lineTo(4, 0);
    outline.lineTo(8, -50);
    outline.cubicTo(8.1, -51, 5, -48, 0, -48);
    outline.cubicTo(-5, -48, -8.1, -51, -8, -50);
    for (const double value : {0.0, 33.0, 111.0, 160.0, 250.0, 320.0}) {
        Dial dial;
        dial.resize(side, side);
        dial.undress();
        dial.setValue(value);
        Drawing expected(emptyPicture(dial.size(), ratio), dial);
        expected.painter.resetTransform();
        // The face as the background draws it, and the needle over it as one outline.
        QImage face = emptyPicture(dial.size(), ratio);
        QPainter face_painter(&face);
        dial.paintBackground(face_painter);
        face_painter.end();
        expected.painter.drawImage(QPointF(0, 0), face);
        expected.painter.setTransform(coordinates(dial), false);
        expected.painter.rotate(60 + value * 240 / 320);
        expected.painter.setPen(Qt::NoPen);
        expected.painter.setBrush(Qt::black);
        expected.painter.drawPath(outline);
        expected.painter.drawEllipse(QRectF(-10, -10, 20, 20));
        // Where both cut a pixel the outline blends it twice; nowhere else do the pictures differ.
        QVERIFY2(difference(expected.finished(), rendered(dial, ratio)) <= 32, QByteArray::number(value));
    }
}

void ManoMeterTest::drawsTheValueBelowTheCentre_data() {
    QTest::addColumn<double>("offset");
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("text");
    QTest::addColumn<double>("ratio");
    QTest::newRow("default offset") << -100.0 << 150.0 << QStringLiteral("n 150 [rpm]") << 1.0;
    QTest::newRow("ratio 2") << -100.0 << 150.0 << QStringLiteral("n 150 [rpm]") << 2.0;
    QTest::newRow("the offset is cut to a whole number")
        << -80.9 << 12.5 << QStringLiteral("n 12.5 [rpm]") << 1.0;
    // Among texts of so many widths some are odd: half of those is not a whole number.
    for (const QString& number :
         {QStringLiteral("7"), QStringLiteral("1.5"), QStringLiteral("12.25"), QStringLiteral("-123.456")}) {
        QTest::newRow(qPrintable(number))
            << -100.0 << number.toDouble() << QStringLiteral("n %1 [rpm]").arg(number) << 1.0;
    }
    QTest::newRow("above the centre") << 60.0 << 219.0 << QStringLiteral("n 219 [rpm]") << 1.0;
}

void ManoMeterTest::drawsTheValueBelowTheCentre() {
    QFETCH(double, offset);
    QFETCH(double, value);
    QFETCH(QString, text);
    QFETCH(double, ratio);
    Dial dial;
    dial.resize(400, 400);
    dial.undress();
    dial.setCritical(1000);
    dial.setPrefix(QStringLiteral("n "));
    dial.setSuffix(QStringLiteral(" [rpm]"));
    dial.setValue(value);
    Drawing expected(rendered(dial, ratio), dial);
    expected.painter.setFont(dial.valueFont());
    const int width = expected.painter.fontMetrics().size(Qt::TextSingleLine, text).width();
    expected.painter.drawText(QPointF(-width / 2.0, static_cast<int>(0 - offset)), text);
    dial.setValueOffset(offset);
    const QImage picture = expected.finished();
    const QImage shown = rendered(dial, ratio);
    dial.setValueOffset(0);
    QVERIFY(difference(shown, rendered(dial, ratio)) > 200);
    QVERIFY(difference(shown, picture) <= 2);
}

void ManoMeterTest::theValueIsRedFromCriticalOn() {
    Dial dial;
    dial.setMaximum(2500);
    dial.setNominal(900);
    dial.setCritical(1500);
    dial.setSuffix(QStringLiteral(" [rpm]"));
    const QTransform logical = coordinates(dial);
    dial.setValue(1499.99);
    QCOMPARE(redInkBelow(rendered(dial), logical), 0);
    dial.setValue(1500);
    QVERIFY(redInkBelow(rendered(dial), logical) > 20);
    dial.setValue(9999);
    QVERIFY(redInkBelow(rendered(dial), logical) > 20);
    dial.setValue(0);
    QCOMPARE(redInkBelow(rendered(dial), logical), 0);
}

void ManoMeterTest::theValueIsRedFromCriticalOnBelowNominalToo() {
    Dial dial;
    dial.setNominal(220);
    dial.setCritical(80);
    const QTransform logical = coordinates(dial);
    dial.setValue(79);
    QCOMPARE(redInkBelow(rendered(dial), logical), 0);
    dial.setValue(150);
    QVERIFY(redInkBelow(rendered(dial), logical) > 20);
}

void ManoMeterTest::theValueIsInTheForegroundColor() {
    Dial dial;
    dial.setValue(160);
    const QTransform logical = coordinates(dial);
    QCOMPARE(redInkBelow(rendered(dial), logical), 0);
    QPalette palette = dial.palette();
    palette.setColor(QPalette::WindowText, QColor(250, 0, 0));
    dial.setPalette(palette);
    QVERIFY(redInkBelow(rendered(dial), logical) > 20);
}

void ManoMeterTest::zeroOffsetHidesTheValue() {
    Dial dial;
    dial.setValueOffset(0);
    dial.setValue(1000);
    QCOMPARE(redInkBelow(rendered(dial), coordinates(dial)), 0);
}

void ManoMeterTest::theValueFollowsTheWidgetsFont() {
    Dial dial;
    dial.undress();
    dial.setValueOffset(-100);
    const QImage upright = rendered(dial);
    QFont italic = dial.font();
    italic.setItalic(true);
    dial.setFont(italic);
    QVERIFY(difference(rendered(dial), upright) > 100);
    italic.setItalic(false);
    dial.setFont(italic);
    QCOMPARE(rendered(dial), upright);
}

void ManoMeterTest::scalesToTheSmallerSide() {
    Dial wide;
    wide.resize(301, 101);
    Dial tall;
    tall.resize(101, 301);
    const QImage middle_of_wide = rendered(wide).copy(100, 0, 101, 101);
    const QImage middle_of_tall = rendered(tall).copy(0, 100, 101, 101);
    QCOMPARE(middle_of_wide, middle_of_tall);
    QVERIFY(isBlack(colorAt(rendered(wide), coordinates(wide), QPointF(0, 0))));
}

void ManoMeterTest::aChangeOfTheValueRepaintsWhatShowsIt_data() {
    QTest::addColumn<QSize>("size");
    QTest::addColumn<double>("offset");
    QTest::newRow("the panel's") << QSize(121, 121) << -100.0;
    QTest::newRow("large, off the square") << QSize(400, 300) << -100.0;
    QTest::newRow("text above") << QSize(121, 121) << 90.0;
    QTest::newRow("no text") << QSize(121, 121) << 0.0;
    QTest::newRow("text beside the dial") << QSize(200, 400) << -190.0;
}

void ManoMeterTest::aChangeOfTheValueRepaintsWhatShowsIt() {
    QFETCH(QSize, size);
    QFETCH(double, offset);
    Dial dial;
    dial.resize(size);
    dial.setValueOffset(offset);
    QFont italic = dial.valueFont();
    italic.setItalic(true);
    dial.setValueFont(italic);
    dial.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dial));
    constexpr double no_number = std::numeric_limits<double>::quiet_NaN();
    for (const double value : {0.0, 1.0, 40.0, 80.5, 160.0, 219.9, 220.0, 319.0, -1234567.0, 77777.7,
                               no_number, 12.0, std::numeric_limits<double>::infinity(), 200.0}) {
        dial.setValue(value);
        QCoreApplication::processEvents();
        const QImage shown = dial.screen()->grabWindow(dial.winId()).toImage();
        dial.repaint();
        QVERIFY2(shown == dial.screen()->grabWindow(dial.winId()).toImage(), QByteArray::number(value));
    }
}

void ManoMeterTest::aChangeOfTheValueRepaintsGlyphsThatLeaveTheirLine_data() {
    QTest::addColumn<QFont>("font");
    for (const QString& family : QFontDatabase::families()) {
        QFont font(family, 40);
        font.setBold(true);
        font.setItalic(true);
        QTest::newRow(qPrintable(family)) << font;
    }
}

// An accent above and a comma below move with the text, whose length changes with the value.
void ManoMeterTest::aChangeOfTheValueRepaintsGlyphsThatLeaveTheirLine() {
    QFETCH(QFont, font);
    Dial dial;
    dial.resize(500, 500);
    dial.setValueFont(font);
    dial.setPrefix(QString::fromUtf8("\u00c5\u00c7f "));
    dial.setValueOffset(90);  // above the needle
    dial.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dial));
    for (const double value : {0.0, 1.25, 2.0}) {
        dial.setValue(value);
        QCoreApplication::processEvents();
        const QImage shown = dial.screen()->grabWindow(dial.winId()).toImage();
        dial.repaint();
        QVERIFY2(shown == dial.screen()->grabWindow(dial.winId()).toImage(), QByteArray::number(value));
    }
}

void ManoMeterTest::aChangeOfTheValueLeavesTheRest() {
    class Watched : public Dial {
    public:
        QRegion painted;

    protected:
        void paintEvent(QPaintEvent* event) override {
            painted |= event->region();
            Dial::paintEvent(event);
        }
    };
    Watched dial;
    dial.resize(121, 121);
    dial.setValue(100);
    dial.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dial));
    QTRY_VERIFY(!dial.painted.isEmpty());
    for (const double value : {101.0, 160.0, 270.0}) {
        dial.painted = QRegion();
        dial.setValue(value);
        QTRY_VERIFY(!dial.painted.isEmpty());
        QVERIFY(!dial.painted.intersects(QRect(0, 0, 10, 121)));
        QVERIFY(!dial.painted.intersects(QRect(110, 110, 11, 11)));
    }
}

void ManoMeterTest::paintedInPiecesItIsTheSame() {
    Dial dial;
    dial.resize(121, 121);
    dial.setValue(111);
    QImage whole(dial.size(), QImage::Format_RGB32);
    whole.fill(Qt::yellow);
    QImage pieces = whole;
    dial.render(&whole, QPoint(), QRegion(), QWidget::RenderFlags());
    for (int y = 0; y < 121; y += 17) {
        for (int x = 0; x < 121; x += 13) {
            const QRect piece(x, y, 13, 17);
            dial.render(&pieces, piece.topLeft(), piece & dial.rect(), QWidget::RenderFlags());
        }
    }
    QCOMPARE(pieces, whole);
}

void ManoMeterTest::theValueTextFollowsEachChange_data() {
    QTest::addColumn<QByteArray>("change");
    for (const char* change :
         {"size", "palette", "font", "widget's font", "prefix", "suffix", "ratio", "enabled", "offset"}) {
        QTest::newRow(change) << QByteArray(change);
    }
}

void ManoMeterTest::theValueTextFollowsEachChange() {
    QFETCH(QByteArray, change);
    const auto apply = [&change](Dial& dial) {
        QFont font(QStringLiteral("Bitstream Charter"), 22);
        QPalette palette;
        palette.setColor(QPalette::WindowText, Qt::darkMagenta);
        palette.setColor(QPalette::Disabled, QPalette::WindowText, Qt::darkCyan);
        change == "size"            ? dial.resize(222, 200)
        : change == "palette"       ? dial.setPalette(palette)
        : change == "font"          ? dial.setValueFont(font)
        : change == "widget's font" ? dial.setFont(font)
        : change == "prefix"        ? dial.setPrefix(QStringLiteral("n "))
        : change == "suffix"        ? dial.setSuffix(QStringLiteral(" [V]"))
        : change == "enabled"       ? dial.setEnabled(false)
        : change == "offset"        ? dial.setValueOffset(-80)
                                    : void();
    };
    const double ratio = change == "ratio" ? 2 : 1;
    Dial dial;
    for (int value = 0; value < 200; value += 3) {
        dial.setValue(value);
        rendered(dial);
    }
    const QImage before = rendered(dial);
    apply(dial);
    Dial fresh;
    fresh.setValue(198);
    apply(fresh);
    const QImage after = rendered(dial, ratio);
    QCOMPARE(after, rendered(fresh, ratio));
    QVERIFY(after != before);
}

void ManoMeterTest::aValueKeepsTheBackground() {
    CountingDial dial;
    rendered(dial);
    QCOMPARE(dial.backgrounds, 1);
    for (int value = 1; value < 10; ++value) {
        dial.setValue(value);
        rendered(dial);
        dial.setValue(value + 0.5);
        rendered(dial);
    }
    QCOMPARE(dial.backgrounds, 1);
    dial.setMaximum(310);
    rendered(dial);
    QCOMPARE(dial.backgrounds, 1);
    dial.setMaximum(2500);
    rendered(dial);
    QCOMPARE(dial.backgrounds, 2);
}

void ManoMeterTest::textsAndFontsRepaintTheBackground() {
    CountingDial dial;
    rendered(dial);
    const QImage before = rendered(dial);
    QFont digits = dial.digitFont();
    digits.setPointSize(10);
    dial.setDigitFont(digits);
    QVERIFY(difference(rendered(dial), before) > 100);
    QCOMPARE(dial.backgrounds, 2);
    dial.setSuffix(QStringLiteral(" [rpm]"));
    rendered(dial);
    QCOMPARE(dial.backgrounds, 3);
}

void ManoMeterTest::isCachedAndSharpAtRatioTwo() {
    CountingDial dial;
    dial.resize(121, 121);
    const QImage first = rendered(dial, 2);
    dial.setValue(100);
    rendered(dial, 2);
    dial.setValue(0);
    const QImage second = rendered(dial, 2);
    QCOMPARE(dial.backgrounds, 1);
    QCOMPARE(second, first);
    // The pixels of a dial of twice the size; its centre, halved in integers, lies a pixel further down and
    // right.
    Dial twice;
    twice.resize(240, 240);
    dial.resize(120, 120);
    QVERIFY(difference(rendered(dial, 2), [&twice] {
                QImage picture = rendered(twice);
                picture.setDevicePixelRatio(2);
                return picture;
            }()) <= 2);
}

void ManoMeterTest::aScaleWithoutExtentEndsTheProcess() {
    const ChildResult result = run_in_child([] {
        std::signal(SIGABRT, SIG_DFL);
        Dial dial;
        // So small that the raster engine fills it without its helper threads, which a child process does not
        // have.
        dial.resize(20, 20);
        dial.m_max = dial.m_min;
        QImage picture(dial.size(), QImage::Format_RGB32);
        QPainter painter(&picture);
        dial.paintBackground(painter);
    });
    QCOMPARE(result.signal, SIGABRT);
    QCOMPARE(result.err, std::string("widgets/manometer: Assertion failed: m_max-m_min != 0\n"));
}

void ManoMeterTest::anEmptyDialDrawsNothing() {
    CountingDial dial;
    dial.resize(0, 0);
    QImage picture = emptyPicture(QSize(4, 4));
    dial.render(&picture, QPoint(), QRegion(), QWidget::RenderFlags());
    QCOMPARE(dial.backgrounds, 0);
    QCOMPARE(picture, emptyPicture(QSize(4, 4)));
}

QTEST_MAIN(ManoMeterTest)
#include "manometer_test.moc"
