#include "widgets/typesetter.h"

#include <QFontDatabase>
#include <QFontMetrics>
#include <QPainter>
#include <QtTest>

#include "tests/widgets/rendered.h"

class TypesetterTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void composesWhatItsCharactersWereSeenIn();
    void setsEveryLineAsIfShaped_data();
    void setsEveryLineAsIfShaped();
    void measuresAsTheFontsMetricsDo();
    void anotherFontIsSetAnew_data();
    void anotherFontIsSetAnew();
    void anotherResolutionIsSetAnew();
    void shapesWhatIsMoreThanItsCharacters_data();
    void shapesWhatIsMoreThanItsCharacters();
    void anEmptyLineHasTheFontsHeight();
    void aLineIsAsHighAsItsOwnCharacters();
};

namespace {

constexpr QSize picture_size(420, 90);

QFont fontNamed(const QString& family, int points) {
    QFont font(family);
    font.setPointSize(points);
    return font;
}

/// What @p draw draws in red, @p scale times as large, on a screen of @p ratio pixels per unit.
template <typename Draw>
QImage picture(double scale, double ratio, Draw draw) {
    QImage image(picture_size * ratio, QImage::Format_RGB32);
    image.setDevicePixelRatio(ratio);
    image.fill(Qt::white);
    QPainter painter(&image);
    painter.setPen(Qt::red);
    painter.scale(scale, scale);
    draw(painter);
    return image;
}

/// Has @p setter see each pair of digits, with a minus before and a unit behind.
void showNumbers(Typesetter& setter, const QFont& font) {
    const QImage device = emptyPicture(QSize(8, 8));
    for (int number = 0; number < 100; ++number) {
        setter.set(QStringLiteral("-%1 [rpm]").arg(number, 2, 10, QLatin1Char('0')), font, &device);
    }
}

}  // namespace

void TypesetterTest::composesWhatItsCharactersWereSeenIn() {
    const QFont font = fontNamed(QString(), 12);
    const QImage device = emptyPicture(QSize(8, 8));
    Typesetter setter;
    setter.set(QStringLiteral("1221"), font, &device);
    QVERIFY(setter.wasShaped());
    setter.set(QStringLiteral("122221"), font, &device);
    QVERIFY(!setter.wasShaped());
    setter.set(QStringLiteral("1211"), font, &device);
    QVERIFY(setter.wasShaped());  // 1 after 1
    setter.set(QStringLiteral("1111"), font, &device);
    QVERIFY(!setter.wasShaped());
    setter.set(QStringLiteral("211"), font, &device);
    QVERIFY(setter.wasShaped());  // 2 at the start
    setter.set(QStringLiteral("2112"), font, &device);
    QVERIFY(setter.wasShaped());  // 2 at the end
}

void TypesetterTest::setsEveryLineAsIfShaped_data() {
    QTest::addColumn<QFont>("font");
    QTest::addColumn<double>("scale");
    QTest::addColumn<double>("ratio");
    const QStringList families = QFontDatabase::families().mid(0, 4)
                                 << QStringLiteral("Bitstream Charter") << QString();
    for (const QString& family : families) {
        for (const double scale : {1.0, 121 / 335.0, 1.7}) {
            for (const double ratio : {1.0, 1.25, 2.0}) {
                QTest::addRow("%s %g %g", qPrintable(family), scale, ratio)
                    << fontNamed(family, 14) << scale << ratio;
            }
        }
    }
}

void TypesetterTest::setsEveryLineAsIfShaped() {
    QFETCH(QFont, font);
    QFETCH(double, scale);
    QFETCH(double, ratio);
    Typesetter setter;
    showNumbers(setter, font);
    int composed = 0;
    for (int i = 0; i < 24; ++i) {
        const QString text = QStringLiteral("%1 [rpm]").arg(-1111 - 997 * i % 10000);
        const QPointF origin(5 + i / 2.0, 40 + i);  // as gauges and labels place them
        const QImage drawn = picture(scale, ratio, [&](QPainter& painter) {
            TextLine(text, font, painter.device()).draw(painter, origin);
        });
        const QImage shown = picture(scale, ratio, [&](QPainter& painter) {
            setter.set(text, font, painter.device());
            composed += setter.wasShaped() ? 0 : 1;
            setter.draw(painter, origin);
        });
        QVERIFY2(drawn == shown, qPrintable(text));
    }
    QVERIFY2(composed > 12, QByteArray::number(composed));
}

void TypesetterTest::measuresAsTheFontsMetricsDo() {
    const QFont font = fontNamed(QStringLiteral("Bitstream Charter"), 18);
    const QImage device = emptyPicture(QSize(8, 8));
    Typesetter setter;
    showNumbers(setter, font);
    for (const int number : {0, 7, 10, 711, 1234, 65535}) {
        const QString text = QStringLiteral("-%1 [rpm]").arg(number, 2, 10, QLatin1Char('0'));
        setter.set(text, font, &device);
        QVERIFY(!setter.wasShaped());
        QCOMPARE(setter.size(), QFontMetrics(font, &device).size(Qt::TextSingleLine, text));
    }
}

void TypesetterTest::anotherFontIsSetAnew_data() {
    QTest::addColumn<QFont>("other");
    QFont font = fontNamed(QStringLiteral("Bitstream Charter"), 12);
    font.setPointSize(13);
    QTest::newRow("size") << font;
    font.setPointSize(12);
    font.setBold(true);
    QTest::newRow("weight") << font;
    font.setBold(false);
    font.setItalic(true);
    QTest::newRow("slant") << font;
    QTest::newRow("family") << fontNamed(QStringLiteral("DejaVu Sans"), 12);
}

void TypesetterTest::anotherFontIsSetAnew() {
    QFETCH(QFont, other);
    const QImage device = emptyPicture(QSize(8, 8));
    const QString text = QStringLiteral("-10 [rpm]");
    Typesetter setter;
    showNumbers(setter, fontNamed(QStringLiteral("Bitstream Charter"), 12));
    setter.set(text, other, &device);
    QVERIFY(setter.wasShaped());
    QCOMPARE(setter.size(), QFontMetrics(other, &device).size(Qt::TextSingleLine, text));
    setter.set(QStringLiteral("-1010 [rpm]"), other, &device);
    QVERIFY(setter.wasShaped());  // 01 was not seen in this font
}

void TypesetterTest::anotherResolutionIsSetAnew() {
    const QFont font = fontNamed(QString(), 12);
    QImage device = emptyPicture(QSize(8, 8));
    const QString text = QStringLiteral("-10 [rpm]");
    Typesetter setter;
    setter.set(text, font, &device);
    const QSize coarse = setter.size();
    device.setDotsPerMeterX(2 * device.dotsPerMeterX());
    device.setDotsPerMeterY(2 * device.dotsPerMeterY());
    setter.set(text, font, &device);
    QVERIFY(setter.wasShaped());
    QVERIFY(setter.size().width() > coarse.width() * 3 / 2);
}

void TypesetterTest::shapesWhatIsMoreThanItsCharacters_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("underlined");
    QTest::newRow("right to left") << QString::fromUtf8("אבא") << false;
    QTest::newRow("joined") << QString::fromUtf8("سلام") << false;
    QTest::newRow("stacked") << QString::fromUtf8("a\u0308a") << false;
    QTest::newRow("outside the basic plane") << QString::fromUtf8("😀") << false;
    QTest::newRow("underlined") << QStringLiteral("11") << true;
}

void TypesetterTest::shapesWhatIsMoreThanItsCharacters() {
    QFETCH(QString, text);
    QFETCH(bool, underlined);
    QFont font = fontNamed(QString(), 12);
    font.setUnderline(underlined);
    const QPointF origin(5, 40);
    Typesetter setter;
    const QImage device = emptyPicture(QSize(8, 8));
    for (int i = 0; i < 3; ++i) {
        setter.set(text.repeated(2 + i), font, &device);
        QVERIFY(setter.wasShaped());
    }
    const QImage drawn = picture(1, 1, [&](QPainter& painter) {
        painter.setFont(font);
        painter.drawText(origin, text);
    });
    const QImage shown = picture(1, 1, [&](QPainter& painter) {
        setter.set(text, font, painter.device());
        setter.draw(painter, origin);
    });
    QVERIFY(difference(drawn, shown) == 0);
}

void TypesetterTest::anEmptyLineHasTheFontsHeight() {
    const QFont font = fontNamed(QString(), 12);
    const QImage device = emptyPicture(QSize(8, 8));
    Typesetter setter;
    setter.set(QStringLiteral("1"), font, &device);
    const int height = setter.size().height();
    setter.set(QString(), font, &device);
    QCOMPARE(setter.size(), QSize(0, height));
}

// A character that the font lacks comes from another font, of another height.
void TypesetterTest::aLineIsAsHighAsItsOwnCharacters() {
    const QFont font = fontNamed(QStringLiteral("Courier 10 Pitch"), 18);
    const QImage device = emptyPicture(QSize(8, 8));
    const TextLine expected(QStringLiteral("11"), font, &device);
    const QString foreign = QString::fromUtf8("\u2190");
    QVERIFY(TextLine(foreign, font, &device).extent().height() > expected.extent().height());
    Typesetter setter;
    setter.set(QStringLiteral("111"), font, &device);
    setter.set(foreign, font, &device);
    setter.set(QStringLiteral("11"), font, &device);
    QVERIFY(!setter.wasShaped());
    QCOMPARE(setter.extent(), expected.extent());
    QCOMPARE(setter.ascent(), expected.ascent());
}

QTEST_MAIN(TypesetterTest)
#include "typesetter_test.moc"
