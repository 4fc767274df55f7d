#include "widgets/textline.h"

#include <QFontDatabase>
#include <QFontMetrics>
#include <QPainter>
#include <QtTest>

#include "tests/widgets/rendered.h"

class TextLineTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void measuresAsTheFontsMetricsDo_data();
    void measuresAsTheFontsMetricsDo();
    void drawsAsThePainterDoes_data();
    void drawsAsThePainterDoes();
};

namespace {

QFont fontNamed(const QString& family, int points) {
    QFont font(family);
    font.setPointSize(points);
    return font;
}

}  // namespace

void TextLineTest::measuresAsTheFontsMetricsDo_data() {
    QTest::addColumn<QFont>("font");
    const QStringList families = QFontDatabase::families().mid(0, 12) << QStringLiteral("Bitstream Charter");
    for (const QString& family : families) {
        for (const int points : {7, 15, 18, 25}) {
            QTest::addRow("%s %d", qPrintable(family), points) << fontNamed(family, points);
        }
    }
}

void TextLineTest::measuresAsTheFontsMetricsDo() {
    QFETCH(QFont, font);
    const QImage device = emptyPicture(QSize(8, 8));
    for (const char* text : {"0", "1234 [rpm]", "-0.15", "1e+06", "12.5 [V]", " x ", "Ångström µ"}) {
        const QString line = QString::fromUtf8(text);
        QCOMPARE(TextLine(line, font, &device).size(),
                 QFontMetrics(font, &device).size(Qt::TextSingleLine, line));
    }
}

void TextLineTest::drawsAsThePainterDoes_data() {
    QTest::addColumn<double>("scale");
    QTest::newRow("in logical units") << 1.0;
    QTest::newRow("a small dial") << 121 / 335.0;
    QTest::newRow("a large dial") << 3.3;
}

void TextLineTest::drawsAsThePainterDoes() {
    QFETCH(double, scale);
    const QFont font = fontNamed(QString(), 25);
    const QString text = QStringLiteral("1234.5 [rpm]");
    QImage drawn = emptyPicture(QSize(700, 200));
    QImage shown = drawn;
    QPainter painter(&drawn);
    painter.setPen(Qt::red);
    painter.scale(scale, scale);
    painter.setFont(font);
    painter.drawText(QPointF(7.5, 40), text);
    painter.end();
    painter.begin(&shown);
    painter.setPen(Qt::red);
    painter.scale(scale, scale);
    TextLine(text, font, &shown).draw(painter, QPointF(7.5, 40));
    painter.end();
    QVERIFY(difference(drawn, emptyPicture(QSize(700, 200))) > 200);
    QVERIFY(difference(drawn, shown) <= 2);
}

QTEST_MAIN(TextLineTest)
#include "textline_test.moc"
