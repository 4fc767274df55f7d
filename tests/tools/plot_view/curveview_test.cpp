// The plotting client's window: pixels of the widget, and the program fed by plot_feed.

#include "tools/plot_view/curveview.h"

#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <limits>

#include "nodevik/util/clientfunctions.h"
#include "tests/support/loopbacksocket.h"

namespace {

constexpr int limit_ms = 30000;

// How many pixels of `image` inside `area` are exactly of a colour 0xRRGGBB.
int count_pixels(const QImage& image, const QRectF& area, std::uint32_t color) {
    int count = 0;
    const QRect inside = area.toAlignedRect().intersected(image.rect());
    for (int y = inside.top(); y <= inside.bottom(); ++y) {
        for (int x = inside.left(); x <= inside.right(); ++x) {
            count += (image.pixel(x, y) & 0xFFFFFFU) == color ? 1 : 0;
        }
    }
    return count;
}

// A curve at a height, wide enough that a pixel of it has the plain colour.
void add_level(CClientFunctions& batch, int table, int color, double value, int samples) {
    batch.addmsg_color(table, color, 3);
    batch.addmsg_samplepos(0);
    for (int i = 0; i < samples; ++i) {
        batch.addmsg_data(table, value);
        batch.addmsg_nextsamplepos();
    }
}

}  // namespace

class CurveViewTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        view_ = std::make_unique<CurveView>();
        view_->resize(400, 300);
        batch_.resetmessage();
        batch_.addmsg_range(20);
    }
    void cleanup() { view_.reset(); }

    void anEmptyFieldIsBlackWithAGrid() {
        const QImage image = grab();
        QCOMPARE(image.pixelColor(image.width() - 1, image.height() - 1), QColor(Qt::black));
        QCOMPARE(image.pixelColor(view_->field().center().toPoint() + QPoint(3, 0)), QColor(96, 96, 96));
    }

    void aCurveStandsAtItsHeightInItsColour() {
        add_level(batch_, 0, BRIGHT_RED, 50.0, 20);
        deliver();
        const QImage image = grab();
        QCOMPARE(color_at(image, 10, 50.0), QColor(Qt::red));
        QCOMPARE(color_at(image, 1, 50.0), QColor(Qt::red));
        QCOMPARE(color_at(image, 18, 50.0), QColor(Qt::red));
        QVERIFY(color_at(image, 10, -50.0) != QColor(Qt::red));
    }

    void heightsGrowUpwardsFromTheMiddle() {
        const QRectF field = view_->field();
        QCOMPARE(view_->place(0, 0.0), QPointF(field.left(), field.center().y()));
        QCOMPARE(view_->place(0, 100.0).y(), field.top());
        QCOMPARE(view_->place(0, -100.0).y(), field.bottom());
        deliver();
        QCOMPARE(view_->place(19, 0.0).x(), field.right());
    }

    void theLineIsAsWideAsItWasSaid() {
        add_level(batch_, 0, BRIGHT_RED, 50.0, 20);
        batch_.addmsg_color(0, BRIGHT_RED, 9);
        deliver();
        const QImage image = grab();
        const QPoint middle = view_->place(10, 50.0).toPoint();
        QCOMPARE(image.pixelColor(middle + QPoint(0, 3)), QColor(Qt::red));
        QCOMPARE(image.pixelColor(middle - QPoint(0, 3)), QColor(Qt::red));
        QVERIFY(image.pixelColor(middle + QPoint(0, 7)) != QColor(Qt::red));
    }

    void scaleAndLevelMoveACurve() {
        add_level(batch_, 0, BRIGHT_RED, 2.0, 20);
        batch_.addmsg_scale(0, 10.0, -50);
        deliver();
        QCOMPARE(color_at(grab(), 10, -30.0), QColor(Qt::red));
    }

    void theFieldGrowsToTheValuesInRoundSteps() {
        const std::pair<double, double> limits[] = {
            {100.0, 100.0}, {-101.0, 200.0}, {201.0, 500.0}, {501.0, 1000.0}, {1500.0, 2000.0}};
        for (const auto& [value, limit] : limits) {
            add_level(batch_, 0, BRIGHT_RED, value, 2);
            deliver();
            QCOMPARE(view_->place(0, limit).y(), view_->field().top());
        }
    }

    void hugeValuesAreDrawnWithoutHarm() {
        add_level(batch_, 0, BRIGHT_RED, std::numeric_limits<double>::max(), 2);
        add_level(batch_, 1, BRIGHT_BLUE, std::numeric_limits<double>::denorm_min(), 20);
        deliver();
        QCOMPARE(color_at(grab(), 10, 0.0), QColor(Qt::blue));
    }

    void aSingleSampleIsADot() {
        batch_.addmsg_color(0, BRIGHT_RED, 5);
        batch_.addmsg_samplepos(10);
        batch_.addmsg_data(0, 50.0);
        deliver();
        const QImage image = grab();
        QCOMPARE(color_at(image, 10, 50.0), QColor(Qt::red));
        QVERIFY(color_at(image, 9, 50.0) != QColor(Qt::red));
    }

    void onlyTheRangeIsShown() {
        add_level(batch_, 0, BRIGHT_RED, -50.0, 20);
        deliver();
        batch_.addmsg_samplepos(20);
        for (int i = 0; i < 20; ++i) {
            batch_.addmsg_data(0, 50.0);
            batch_.addmsg_nextsamplepos();
        }
        deliver();
        const QImage image = grab();
        QCOMPARE(color_at(image, 30, 50.0), QColor(Qt::red));
        const QRectF field = view_->field();
        QCOMPARE(
            count_pixels(image, QRectF(field.left(), field.center().y() + 2, field.width(), 200), 0xFF0000),
            0);
    }

    void namesStandAboveTheFieldInTheirColours() {
        batch_.addmsg_color(0, BRIGHT_RED, 3);
        batch_.addmsg_name(0, "x");
        deliver();
        const int of_short_name = names_pixels(0xFF0000);
        batch_.addmsg_name(0, "a name of many parts and characters");
        deliver();
        QVERIFY(of_short_name > 0);
        QVERIFY(names_pixels(0xFF0000) > of_short_name);
    }

    void curvesWithoutAColourDifferFromEachOther() {
        batch_.addmsg_name(0, "first");
        batch_.addmsg_name(1, "second");
        deliver();
        QVERIFY(names_pixels(BRIGHT_GREEN) > 0);
        QVERIFY(names_pixels(BRIGHT_BROWN) > 0);
    }

    void whileDrawingIsStoppedThePictureStays() {
        add_level(batch_, 0, BRIGHT_RED, 50.0, 20);
        batch_.addmsg_stopdraw(true);
        add_level(batch_, 0, BRIGHT_BLUE, 70.0, 20);
        deliver();
        const QImage stopped = grab();
        QCOMPARE(color_at(stopped, 10, 50.0), QColor(Qt::red));
        QCOMPARE(count_pixels(stopped, stopped.rect(), 0x0000FF), 0);
        batch_.addmsg_name(0, "later");
        deliver();
        QCOMPARE(grab(), stopped);
        batch_.addmsg_stopdraw(false);
        deliver();
        QCOMPARE(color_at(grab(), 10, 70.0), QColor(Qt::blue));
    }

    void resettingClearsTheField() {
        add_level(batch_, 0, BRIGHT_RED, 50.0, 20);
        batch_.addmsg_resetsamples();
        deliver();
        QCOMPARE(count_pixels(grab(), view_->field(), 0xFF0000), 0);
    }

    void theProgramShowsWhatTheFeedSends() {
        const QTemporaryDir directory;
        const QString picture = directory.filePath(QStringLiteral("plot.png"));
        QProcess program;
        program.start(QStringLiteral(PLOT), {QStringLiteral("--picture"), picture, QStringLiteral("0")});
        const QString port = port_of(program);
        QVERIFY2(!port.isEmpty(), program.readAllStandardError().constData());
        QCOMPARE(QProcess::execute(QStringLiteral(PLOT_FEED),
                                   {port, QStringLiteral("400"), QStringLiteral("4000")}),
                 0);
        QVERIFY(program.waitForFinished(limit_ms));
        QCOMPARE(program.exitCode(), 0);
        const QImage image(picture);
        QCOMPARE(image.size(), QSize(640, 400));
        const QRectF upper(48, 32, 584, 170);
        const QRectF lower(48, 220, 584, 172);
        QVERIFY(count_pixels(image, upper, 0x00FF00) > 100);
        QCOMPARE(count_pixels(image, lower, 0x00FF00), 0);
        QVERIFY(count_pixels(image, lower, 0xFFFF00) > 0);
        QCOMPARE(count_pixels(image, upper, 0xFFFF00), 0);
    }

    void theProgramTellsAWrongPort() {
        QProcess program;
        program.start(QStringLiteral(PLOT), {QStringLiteral("65536")});
        QVERIFY(program.waitForFinished(limit_ms));
        QCOMPARE(program.exitCode(), 2);
        QVERIFY(program.readAllStandardError().contains("nodevik-plot: give one UDP port, 0 to 65535\n"));
    }

    void theProgramEndsWhenThePortIsTaken() {
        const LoopbackSocket holder;
        QProcess program;
        program.start(QStringLiteral(PLOT), {QString::number(holder.port())});
        QVERIFY(program.waitForFinished(limit_ms));
        QCOMPARE(program.exitCode(), 1);
        QVERIFY(program.readAllStandardError().contains("startserver - bind()"));
    }

    void theProgramTellsAPictureThatItCannotSave() {
        QProcess program;
        program.start(QStringLiteral(PLOT), {QStringLiteral("--picture"), QStringLiteral("/nowhere/plot.png"),
                                             QStringLiteral("0")});
        const QString port = port_of(program);
        QCOMPARE(QProcess::execute(QStringLiteral(PLOT_FEED),
                                   {port, QStringLiteral("20"), QStringLiteral("4000")}),
                 0);
        QVERIFY(program.waitForFinished(limit_ms));
        QCOMPARE(program.exitCode(), 1);
        QVERIFY(program.readAllStandardError().contains("nodevik-plot: cannot save the picture\n"));
    }

private:
    void deliver() {
        view_->take({batch_.getmessage(), static_cast<std::size_t>(batch_.getmessagesize())});
        batch_.resetmessage();
    }

    QImage grab() { return view_->grab().toImage().convertToFormat(QImage::Format_RGB32); }

    QColor color_at(const QImage& image, std::uint32_t position, double value) const {
        return image.pixelColor(view_->place(position, value).toPoint());
    }

    int names_pixels(std::uint32_t color) {
        return count_pixels(grab(), QRectF(0, 0, 400, view_->field().top() - 1), color);
    }

    // The port that a starting program tells; empty when it tells none.
    static QString port_of(QProcess& program) {
        QByteArray output;
        while (!output.contains("\nport ") || !output.endsWith('\n')) {
            if (!program.waitForReadyRead(limit_ms)) {
                return {};
            }
            output += program.readAllStandardOutput();
        }
        return QString::fromLatin1(output.mid(output.indexOf("\nport ") + 6).trimmed());
    }

    std::unique_ptr<CurveView> view_;
    CClientFunctions batch_;
};

QTEST_MAIN(CurveViewTest)
#include "curveview_test.moc"
