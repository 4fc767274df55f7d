#include "widgets/widgetwithbackground.h"

#include <QApplication>
#include <QPainter>
#include <QRegularExpression>
#include <QtTest>

#include "tests/support/childprocess.h"
#include "tests/widgets/rendered.h"

namespace {

constexpr const char* expected_ratio = "EXPECTED_RATIO";

/// A widget whose background is a red square of half a unit in the upper left corner and a blue one below.
class Probe : public WidgetWithBackground {
public:
    using WidgetWithBackground::doRepaintBackground;
    using WidgetWithBackground::drawBackground;
    using WidgetWithBackground::updateWithBackground;
    using WidgetWithBackground::WidgetWithBackground;

    int backgrounds = 0;
    int paints = 0;
    bool modified_inside = false;
    QColor corner = Qt::red;

protected:
    void paintBackground(QPainter& painter) override {
        ++backgrounds;
        modified_inside = doRepaintBackground();
        painter.fillRect(QRectF(0, 0, 0.5, 0.5), corner);
        painter.fillRect(QRectF(0, 4, 4, 4), Qt::blue);
    }

    void paintEvent(QPaintEvent*) override {
        ++paints;
        drawBackground();
    }
};

}  // namespace

class WidgetWithBackgroundTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void startsCleanAndPaintsItsBackgroundAtTheFirstPaint();
    void paintedTwiceWithoutChangesPaintsTheBackgroundOnce();
    void aResizedWidgetPaintsItsBackgroundAgain();
    void aResizeWithinTheSamePixelsPaintsTheBackgroundAgain();
    void updateWithBackgroundPaintsTheBackgroundAgainOnce();
    void updateWithBackgroundAsksForAPaint();
    void anOrdinaryUpdateKeepsTheBackground();
    void tellsDuringTheRegenerationThatTheBackgroundIsModified();
    void theBackgroundIsTransparentWhereNothingIsDrawn();
    void nothingIsLeftOfTheBackgroundBefore();
    void theBackgroundIsAsFineAsTheDevice_data();
    void theBackgroundIsAsFineAsTheDevice();
    void anotherPixelRatioPaintsTheBackgroundAgain();
    void aTurnedPainterGetsTheBackgroundOfTheWidgetsOwnRatio();
    void aMirroringPainterGetsTheBackgroundMirrored();
    void cachesOnItsScreen();
    void cachesOnAScreenOfAnotherRatio_data();
    void cachesOnAScreenOfAnotherRatio();
    void anEmptyWidgetHasNoBackground_data();
    void anEmptyWidgetHasNoBackground();
    void aWidgetThatWasEmptyHasItsBackgroundAgain();
    void addsNothingToTheMetaObject();
    void hasTheDefaultWindowFlags();
};

void WidgetWithBackgroundTest::init() {
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".")));
}

void WidgetWithBackgroundTest::startsCleanAndPaintsItsBackgroundAtTheFirstPaint() {
    Probe probe;
    QVERIFY(!probe.doRepaintBackground());
    QCOMPARE(probe.backgrounds, 0);
    const QImage picture = rendered(probe);
    QCOMPARE(probe.backgrounds, 1);
    QCOMPARE(picture.pixelColor(2, 6), QColor(Qt::blue));
}

void WidgetWithBackgroundTest::paintedTwiceWithoutChangesPaintsTheBackgroundOnce() {
    Probe probe;
    probe.resize(20, 30);
    const QImage first = rendered(probe);
    const QImage second = rendered(probe);
    QCOMPARE(probe.paints, 2);
    QCOMPARE(probe.backgrounds, 1);
    QCOMPARE(second, first);
}

void WidgetWithBackgroundTest::aResizedWidgetPaintsItsBackgroundAgain() {
    Probe probe;
    probe.resize(20, 30);
    rendered(probe);
    probe.resize(21, 30);
    rendered(probe);
    QCOMPARE(probe.backgrounds, 2);
    probe.resize(21, 31);
    rendered(probe);
    QCOMPARE(probe.backgrounds, 3);
    rendered(probe);
    QCOMPARE(probe.backgrounds, 3);
}

void WidgetWithBackgroundTest::aResizeWithinTheSamePixelsPaintsTheBackgroundAgain() {
    Probe probe;
    QImage picture = emptyPicture(QSize(11, 16));
    QPainter painter(&picture);
    painter.scale(0.5, 0.5);
    for (const QSize& size : {QSize(21, 31), QSize(22, 32), QSize(22, 32)}) {
        probe.resize(size);
        probe.render(&painter, QPoint(), QRegion(), QWidget::RenderFlags());
    }
    QCOMPARE(probe.paints, 3);
    QCOMPARE(probe.backgrounds, 2);
}

void WidgetWithBackgroundTest::updateWithBackgroundPaintsTheBackgroundAgainOnce() {
    Probe probe;
    probe.resize(20, 30);
    rendered(probe);
    probe.updateWithBackground();
    QVERIFY(probe.doRepaintBackground());
    QCOMPARE(probe.backgrounds, 1);
    rendered(probe);
    QVERIFY(!probe.doRepaintBackground());
    QCOMPARE(probe.backgrounds, 2);
    rendered(probe);
    QCOMPARE(probe.backgrounds, 2);
}

void WidgetWithBackgroundTest::updateWithBackgroundAsksForAPaint() {
    Probe probe;
    probe.resize(20, 30);
    probe.show();
    QVERIFY(QTest::qWaitForWindowExposed(&probe));
    QTRY_VERIFY(probe.paints > 0);
    const int paints = probe.paints;
    probe.updateWithBackground();
    QTRY_VERIFY(probe.paints > paints);
}

void WidgetWithBackgroundTest::anOrdinaryUpdateKeepsTheBackground() {
    Probe probe;
    probe.resize(20, 30);
    probe.show();
    QVERIFY(QTest::qWaitForWindowExposed(&probe));
    QTRY_VERIFY(probe.paints > 0);
    const int backgrounds = probe.backgrounds;
    const int paints = probe.paints;
    probe.update();
    QTRY_VERIFY(probe.paints > paints);
    QCOMPARE(probe.backgrounds, backgrounds);
}

void WidgetWithBackgroundTest::tellsDuringTheRegenerationThatTheBackgroundIsModified() {
    Probe probe;
    probe.resize(20, 30);
    rendered(probe);
    QVERIFY(probe.modified_inside);
    QVERIFY(!probe.doRepaintBackground());
    probe.modified_inside = false;
    probe.updateWithBackground();
    rendered(probe);
    QVERIFY(probe.modified_inside);
}

void WidgetWithBackgroundTest::theBackgroundIsTransparentWhereNothingIsDrawn() {
    Probe probe;
    probe.resize(20, 30);
    QImage picture(probe.size(), QImage::Format_RGB32);
    picture.fill(Qt::yellow);
    probe.render(&picture, QPoint(), QRegion(), QWidget::RenderFlags());
    QCOMPARE(picture.pixelColor(10, 10), QColor(Qt::yellow));
    QCOMPARE(picture.pixelColor(2, 6), QColor(Qt::blue));
    QCOMPARE(rendered(probe).pixelColor(19, 29), QColor(0, 0, 0, 0));
}

void WidgetWithBackgroundTest::nothingIsLeftOfTheBackgroundBefore() {
    Probe probe;
    probe.resize(20, 30);
    rendered(probe, 2);
    probe.corner = Qt::transparent;
    probe.updateWithBackground();
    QCOMPARE(rendered(probe, 2).pixelColor(0, 0), QColor(0, 0, 0, 0));
}

void WidgetWithBackgroundTest::theBackgroundIsAsFineAsTheDevice_data() {
    QTest::addColumn<double>("ratio");
    QTest::newRow("2") << 2.0;
    QTest::newRow("4") << 4.0;
    QTest::newRow("1.25") << 1.25;
    QTest::newRow("1.5") << 1.5;
}

void WidgetWithBackgroundTest::theBackgroundIsAsFineAsTheDevice() {
    QFETCH(double, ratio);
    Probe probe;
    probe.resize(21, 31);
    const QImage first = rendered(probe, ratio);
    const QImage second = rendered(probe, ratio);
    QCOMPARE(probe.backgrounds, 1);
    QCOMPARE(second, first);
    if (ratio >= 2) {
        const int half = qRound(ratio / 2);
        QCOMPARE(first.pixelColor(half - 1, half - 1), QColor(Qt::red));
        QCOMPARE(first.pixelColor(half, half - 1), QColor(0, 0, 0, 0));
        QCOMPARE(first.pixelColor(half - 1, half), QColor(0, 0, 0, 0));
    }
    const int low = qRound(4 * ratio);
    const int high = qRound(8 * ratio);
    QCOMPARE(first.pixelColor(0, low), QColor(Qt::blue));
    QCOMPARE(first.pixelColor(0, low - 1), QColor(0, 0, 0, 0));
    QCOMPARE(first.pixelColor(0, high - 1), QColor(Qt::blue));
    QCOMPARE(first.pixelColor(0, high), QColor(0, 0, 0, 0));
}

void WidgetWithBackgroundTest::anotherPixelRatioPaintsTheBackgroundAgain() {
    Probe probe;
    probe.resize(20, 30);
    rendered(probe);
    rendered(probe, 2);
    QCOMPARE(probe.backgrounds, 2);
    rendered(probe, 2);
    QCOMPARE(probe.backgrounds, 2);
}

void WidgetWithBackgroundTest::aTurnedPainterGetsTheBackgroundOfTheWidgetsOwnRatio() {
    Probe probe;
    probe.resize(20, 30);
    QImage picture = emptyPicture(QSize(40, 40));
    QPainter painter(&picture);
    painter.translate(40, 0);
    painter.rotate(90);
    probe.render(&painter, QPoint(), QRegion(), QWidget::RenderFlags());
    painter.end();
    QCOMPARE(probe.backgrounds, 1);
    QCOMPARE(picture.pixelColor(33, 2), QColor(Qt::blue));
}

void WidgetWithBackgroundTest::aMirroringPainterGetsTheBackgroundMirrored() {
    Probe probe;
    probe.resize(20, 30);
    const QImage upright = rendered(probe);
    for (const QPoint& scale : {QPoint(-1, 1), QPoint(1, -1)}) {
        QImage mirrored = emptyPicture(probe.size());
        QPainter painter(&mirrored);
        painter.translate(scale.x() < 0 ? 20 : 0, scale.y() < 0 ? 30 : 0);
        painter.scale(scale.x(), scale.y());
        probe.render(&painter, QPoint(), QRegion(), QWidget::RenderFlags());
        painter.end();
        QCOMPARE(mirrored.mirrored(scale.x() < 0, scale.y() < 0), upright);
    }
}

void WidgetWithBackgroundTest::cachesOnItsScreen() {
    Probe probe;
    probe.resize(21, 31);
    probe.show();
    QVERIFY(QTest::qWaitForWindowExposed(&probe));
    if (qEnvironmentVariableIsSet(expected_ratio)) {
        QCOMPARE(probe.devicePixelRatioF(), qEnvironmentVariable(expected_ratio).toDouble());
    }
    QTRY_VERIFY(probe.paints > 0);
    for (int i = 0; i < 5; ++i) {
        probe.repaint();
    }
    const QPixmap picture = probe.grab();
    QVERIFY(probe.paints > 5);
    QCOMPARE(probe.backgrounds, 1);
    QCOMPARE(picture.devicePixelRatio(), probe.devicePixelRatioF());
}

void WidgetWithBackgroundTest::cachesOnAScreenOfAnotherRatio_data() {
    QTest::addColumn<QByteArray>("ratio");
    QTest::newRow("2") << QByteArray("2");
    QTest::newRow("1.25") << QByteArray("1.25");
}

void WidgetWithBackgroundTest::cachesOnAScreenOfAnotherRatio() {
    QFETCH(QByteArray, ratio);
    const std::string value = ratio.toStdString();
    const ChildResult result =
        run_program({"env", "QT_SCALE_FACTOR=" + value, expected_ratio + ("=" + value),
                     QCoreApplication::applicationFilePath().toStdString(), "cachesOnItsScreen"});
    QVERIFY2(result.status == 0, (result.out + result.err).c_str());
}

void WidgetWithBackgroundTest::anEmptyWidgetHasNoBackground_data() {
    QTest::addColumn<QSize>("size");
    QTest::newRow("0 x 0") << QSize(0, 0);
    QTest::newRow("0 x 5") << QSize(0, 5);
    QTest::newRow("5 x 0") << QSize(5, 0);
}

void WidgetWithBackgroundTest::anEmptyWidgetHasNoBackground() {
    QFETCH(QSize, size);
    Probe probe;
    probe.resize(size);
    probe.updateWithBackground();
    for (int i = 0; i < 3; ++i) {
        probe.drawBackground();
    }
    QImage picture = emptyPicture(QSize(8, 8));
    probe.render(&picture, QPoint(), QRegion(), QWidget::RenderFlags());
    QCOMPARE(probe.backgrounds, 0);
    probe.resize(8, 8);
    QCOMPARE(rendered(probe).pixelColor(2, 6), QColor(Qt::blue));
    QCOMPARE(probe.backgrounds, 1);
}

void WidgetWithBackgroundTest::aWidgetThatWasEmptyHasItsBackgroundAgain() {
    Probe probe;
    QImage picture = emptyPicture(QSize(8, 8));
    QPainter painter(&picture);
    for (const QSize& size : {QSize(8, 8), QSize(0, 8), QSize(8, 8)}) {
        picture.fill(Qt::transparent);
        probe.resize(size);
        probe.drawBackground(painter);
    }
    QCOMPARE(picture.pixelColor(2, 6), QColor(Qt::blue));
}

void WidgetWithBackgroundTest::addsNothingToTheMetaObject() {
    const QMetaObject& own = WidgetWithBackground::staticMetaObject;
    QCOMPARE(own.className(), "WidgetWithBackground");
    QCOMPARE(own.superClass(), &QWidget::staticMetaObject);
    QCOMPARE(own.propertyCount(), own.propertyOffset());
    QCOMPARE(own.methodCount(), own.methodOffset());
}

void WidgetWithBackgroundTest::hasTheDefaultWindowFlags() {
    QWidget parent;
    const Probe child(&parent);
    QCOMPARE(child.parentWidget(), &parent);
    QCOMPARE(child.windowFlags(), QWidget(&parent).windowFlags());
}

QTEST_MAIN(WidgetWithBackgroundTest)
#include "widgetwithbackground_test.moc"
