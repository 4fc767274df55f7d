#include "widgets/leanpainting.h"

#include <QApplication>
#include <QFontDatabase>
#include <QFrame>
#include <QLabel>
#include <QLinearGradient>
#include <QPaintEvent>
#include <QPainter>
#include <QPixmap>
#include <QProxyStyle>
#include <QRegularExpression>
#include <QtTest>
#include <functional>

#include "tests/widgets/rendered.h"

namespace {

/// Counts the paint events that reach a widget.
template <typename Widget>
class Counting : public Widget {
public:
    using Widget::Widget;
    int paints = 0;

protected:
    void paintEvent(QPaintEvent* event) override {
        ++paints;
        Widget::paintEvent(event);
    }
};

using Label = Counting<QLabel>;
using Frame = Counting<QFrame>;

/// What of @p widget is shown when only @p area is asked for, on white.
QImage part(QWidget& widget, const QRect& area, double ratio = 1) {
    QImage picture(widget.size() * ratio, QImage::Format_RGB32);
    picture.setDevicePixelRatio(ratio);
    picture.fill(Qt::white);
    widget.render(&picture, area.topLeft(), area, QWidget::RenderFlags());
    return picture;
}

}  // namespace

Q_DECLARE_METATYPE(std::function<void(QLabel&)>)

class LeanPaintingTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void aLabelLooksAsTheToolkitPaintsIt_data();
    void aLabelLooksAsTheToolkitPaintsIt();
    void aGlyphThatHangsOverTheEndIsAlignedByItsAdvance_data();
    void aGlyphThatHangsOverTheEndIsAlignedByItsAdvance();
    void whatIsNoPlainLabelIsLeftToIt_data();
    void whatIsNoPlainLabelIsLeftToIt();
    void aChangeShowsAtTheNextPaint_data();
    void aChangeShowsAtTheNextPaint();
    void emptySpaceOfALabelPaintsNothing();
    void aLabelPaintedInPiecesIsTheSame_data();
    void aLabelPaintedInPiecesIsTheSame();
    void theInsideOfAFramePaintsNothing_data();
    void theInsideOfAFramePaintsNothing();
    void theEdgeOfAFrameIsPainted_data();
    void theEdgeOfAFrameIsPainted();
    void anotherStyleIsLeftToItself();
    void aStyleSheetIsLeftToItself();
    void widgetsMayGoFirst();
};

void LeanPaintingTest::init() {
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".")));
    QCOMPARE(QApplication::style()->metaObject()->className(), "QFusionStyle");
}

void LeanPaintingTest::aLabelLooksAsTheToolkitPaintsIt_data() {
    QTest::addColumn<QFont>("font");
    QTest::addColumn<Qt::Alignment>("alignment");
    QTest::addColumn<double>("ratio");
    const QFont plain;
    QFont serif(QStringLiteral("Bitstream Charter"), 14);
    serif.setBold(true);
    QFont italic(QStringLiteral("DejaVu Sans"), 11);
    italic.setItalic(true);
    int font_number = 0;
    for (const QFont& font : {plain, serif, italic}) {
        for (const double ratio : {1.0, 1.25, 2.0}) {
            for (const Qt::Alignment alignment :
                 {Qt::AlignLeft | Qt::AlignVCenter, Qt::Alignment(Qt::AlignCenter),
                  Qt::AlignRight | Qt::AlignBottom, Qt::AlignLeft | Qt::AlignTop}) {
                QTest::addRow("font %d, alignment %x, ratio %g", font_number, alignment.toInt(), ratio)
                    << font << alignment << ratio;
            }
        }
        ++font_number;
    }
}

void LeanPaintingTest::aLabelLooksAsTheToolkitPaintsIt() {
    QFETCH(QFont, font);
    QFETCH(Qt::Alignment, alignment);
    QFETCH(double, ratio);
    QLabel expected;
    Label shown;
    LeanPainting painting;
    painting.takeOver(&shown);
    for (QLabel* label : {&expected, static_cast<QLabel*>(&shown)}) {
        label->setFont(font);
        label->setAlignment(alignment);
        label->resize(121, 33);
    }
    for (int number = -300; number < 300; number += 7) {
        expected.setNum(number * 11);
        shown.setNum(number * 11);
        QVERIFY2(part(shown, shown.rect(), ratio) == part(expected, expected.rect(), ratio),
                 QByteArray::number(number * 11));
    }
    // A slanted digit may hang over the label's right edge, by the font: what is cut there is the toolkit's.
    if (!(font.italic() && alignment.testFlag(Qt::AlignRight))) {
        QCOMPARE(shown.paints, 0);
    }
}

void LeanPaintingTest::aGlyphThatHangsOverTheEndIsAlignedByItsAdvance_data() {
    QTest::addColumn<QFont>("font");
    QTest::addColumn<Qt::Alignment>("alignment");
    for (const QString& family : QFontDatabase::families()) {
        for (const Qt::Alignment alignment : {Qt::AlignHCenter, Qt::AlignRight}) {
            QFont font(family, 13);
            font.setItalic(true);
            QTest::addRow("%s, alignment %x", qPrintable(family), alignment.toInt()) << font << alignment;
        }
    }
}

void LeanPaintingTest::aGlyphThatHangsOverTheEndIsAlignedByItsAdvance() {
    QFETCH(QFont, font);
    QFETCH(Qt::Alignment, alignment);
    QLabel expected;
    Label shown;
    LeanPainting painting;
    painting.takeOver(&shown);
    for (const char* text : {"717f", "7f", "77", "7 ", "17", "f1"}) {
        for (QLabel* label : {&expected, static_cast<QLabel*>(&shown)}) {
            label->setFont(font);
            label->setAlignment(alignment);
            label->resize(121, 41);
            label->setText(QLatin1StringView(text));
        }
        QVERIFY2(part(shown, shown.rect()) == part(expected, expected.rect()), text);
    }
}

void LeanPaintingTest::whatIsNoPlainLabelIsLeftToIt_data() {
    QTest::addColumn<std::function<void(QLabel&)>>("change");
    const auto row = [](const char* name, std::function<void(QLabel&)> change) {
        QTest::newRow(name) << std::move(change);
    };
    row("disabled", [](QLabel& label) { label.setEnabled(false); });
    row("rich text", [](QLabel& label) { label.setText(QStringLiteral("<b>12</b>")); });
    row("named rich text", [](QLabel& label) { label.setTextFormat(Qt::RichText); });
    row("mnemonic", [](QLabel& label) { label.setText(QStringLiteral("1&2")); });
    row("two lines", [](QLabel& label) { label.setText(QStringLiteral("1\n2")); });
    row("wrapped", [](QLabel& label) { label.setWordWrap(true); });
    row("framed", [](QLabel& label) { label.setFrameStyle(QFrame::Box | QFrame::Plain); });
    row("indented", [](QLabel& label) { label.setIndent(5); });
    row("margin", [](QLabel& label) { label.setMargin(5); });
    row("right to left", [](QLabel& label) { label.setLayoutDirection(Qt::RightToLeft); });
    row("text from right to left", [](QLabel& label) { label.setText(QString::fromUtf8("\u05d0\u05d1")); });
    row("line separator", [](QLabel& label) { label.setText(QString::fromUtf8("1\u20282")); });
    row("paragraph separator", [](QLabel& label) { label.setText(QString::fromUtf8("1\u20292")); });
    row("selectable", [](QLabel& label) { label.setTextInteractionFlags(Qt::TextSelectableByMouse); });
    row("pixmap", [](QLabel& label) {
        QPixmap pixmap(9, 9);
        pixmap.fill(Qt::red);
        label.setPixmap(pixmap);
    });
    row("too long", [](QLabel& label) { label.setNum(1234567890); });
    row("too high", [](QLabel& label) { label.resize(60, 9); });
}

void LeanPaintingTest::whatIsNoPlainLabelIsLeftToIt() {
    QFETCH(std::function<void(QLabel&)>, change);
    QLabel expected(QStringLiteral("12"));
    Label shown(QStringLiteral("12"));
    LeanPainting painting;
    painting.takeOver(&shown);
    for (QLabel* label : {&expected, static_cast<QLabel*>(&shown)}) {
        label->resize(60, 33);
        change(*label);
    }
    QVERIFY(part(shown, shown.rect()) == part(expected, expected.rect()));
    QCOMPARE(shown.paints, 1);
}

void LeanPaintingTest::aChangeShowsAtTheNextPaint_data() {
    QTest::addColumn<std::function<void(QLabel&)>>("change");
    const auto row = [](const char* name, std::function<void(QLabel&)> change) {
        QTest::newRow(name) << std::move(change);
    };
    row("text", [](QLabel& label) { label.setText(QStringLiteral("98")); });
    row("font", [](QLabel& label) { label.setFont(QFont(QStringLiteral("Bitstream Charter"), 13)); });
    row("weight", [](QLabel& label) {
        QFont font = label.font();
        font.setBold(true);
        label.setFont(font);
    });
    row("palette", [](QLabel& label) {
        QPalette palette;
        palette.setColor(QPalette::WindowText, Qt::magenta);
        label.setPalette(palette);
    });
    row("gradient", [](QLabel& label) {
        QLinearGradient gradient(0, 0, 12, 0);
        gradient.setColorAt(0, Qt::red);
        gradient.setColorAt(1, Qt::blue);
        QPalette palette;
        palette.setBrush(QPalette::WindowText, gradient);
        label.setPalette(palette);
    });
    row("role", [](QLabel& label) { label.setForegroundRole(QPalette::Highlight); });
    row("size", [](QLabel& label) { label.resize(80, 45); });
    row("margins", [](QLabel& label) { label.setContentsMargins(9, 5, 0, 0); });
    row("alignment", [](QLabel& label) { label.setAlignment(Qt::AlignRight | Qt::AlignTop); });
}

void LeanPaintingTest::aChangeShowsAtTheNextPaint() {
    QFETCH(std::function<void(QLabel&)>, change);
    QLabel expected(QStringLiteral("12"));
    Label shown(QStringLiteral("12"));
    LeanPainting painting;
    painting.takeOver(&shown);
    expected.resize(60, 33);
    shown.resize(60, 33);
    const QImage before = part(shown, shown.rect());
    change(expected);
    change(shown);
    const QImage after = part(shown, shown.rect());
    QVERIFY(after == part(expected, expected.rect()));
    QVERIFY(after != before);
    QCOMPARE(shown.paints, 0);
}

void LeanPaintingTest::emptySpaceOfALabelPaintsNothing() {
    Label shown(QStringLiteral("12"));
    shown.resize(200, 33);
    LeanPainting painting;
    painting.takeOver(&shown);
    const QRect empty(150, 0, 50, 33);
    QLabel expected(QStringLiteral("12"));
    expected.resize(200, 33);
    QVERIFY(part(shown, empty) == part(expected, empty));
    QCOMPARE(shown.paints, 0);
    const QRect some(8, 0, 4, 33);
    QVERIFY(part(shown, some) == part(expected, some));
    QVERIFY(part(shown, shown.rect()) == part(expected, expected.rect()));
}

void LeanPaintingTest::aLabelPaintedInPiecesIsTheSame_data() {
    QTest::addColumn<QFont>("font");
    for (const QString& family : QFontDatabase::families()) {
        QFont font(family, 12);
        QTest::newRow(qPrintable(family)) << font;
        font.setItalic(true);
        font.setBold(true);
        QTest::newRow(qPrintable(family + QStringLiteral(" bold italic"))) << font;
    }
}

void LeanPaintingTest::aLabelPaintedInPiecesIsTheSame() {
    QFETCH(QFont, font);
    QLabel expected;
    Label shown;
    LeanPainting painting;
    painting.takeOver(&shown);
    for (QLabel* label : {&expected, static_cast<QLabel*>(&shown)}) {
        label->setFont(font);
        label->setText(QString::fromUtf8("ÅÄjÖf|{"));
        label->resize(121, 41);
    }
    const QImage whole = part(expected, expected.rect());
    QImage pieces(shown.size(), QImage::Format_RGB32);
    pieces.fill(Qt::white);
    for (int y = 0; y < shown.height(); ++y) {
        const QRect row(0, y, shown.width(), 1);
        shown.render(&pieces, row.topLeft(), row, QWidget::RenderFlags());
    }
    QVERIFY(pieces == whole);
    QCOMPARE(shown.paints, 0);
}

void LeanPaintingTest::theInsideOfAFramePaintsNothing_data() {
    QTest::addColumn<int>("style");
    QTest::newRow("styled") << (QFrame::StyledPanel | QFrame::Raised);
    QTest::newRow("panel") << (QFrame::Panel | QFrame::Sunken);
    QTest::newRow("box") << (QFrame::Box | QFrame::Plain);
}

void LeanPaintingTest::theInsideOfAFramePaintsNothing() {
    QFETCH(int, style);
    QFrame expected;
    Frame shown;
    LeanPainting painting;
    painting.takeOver(&shown);
    for (QFrame* frame : {&expected, static_cast<QFrame*>(&shown)}) {
        frame->setFrameStyle(style);
        frame->setLineWidth(3);
        frame->resize(50, 40);
    }
    const QRect inside = shown.contentsRect();
    QVERIFY(part(shown, inside) == part(expected, inside));
    QCOMPARE(shown.paints, 0);
}

void LeanPaintingTest::theEdgeOfAFrameIsPainted_data() {
    QTest::addColumn<int>("style");
    theInsideOfAFramePaintsNothing_data();
    QTest::newRow("rule") << (QFrame::HLine | QFrame::Sunken);
    QTest::newRow("upright rule") << (QFrame::VLine | QFrame::Raised);
}

void LeanPaintingTest::theEdgeOfAFrameIsPainted() {
    QFETCH(int, style);
    QFrame expected;
    Frame shown;
    LeanPainting painting;
    painting.takeOver(&shown);
    for (QFrame* frame : {&expected, static_cast<QFrame*>(&shown)}) {
        frame->setFrameStyle(style);
        frame->resize(50, 40);
    }
    for (const QRect& area : {shown.rect(), QRect(0, 10, 3, 3), QRect(48, 38, 2, 2), QRect(10, 19, 20, 3)}) {
        QVERIFY(part(shown, area) == part(expected, area));
    }
    QVERIFY(shown.paints > 0);
}

void LeanPaintingTest::anotherStyleIsLeftToItself() {
    class Striped : public QProxyStyle {
    public:
        void drawItemText(QPainter* painter, const QRect& area, int, const QPalette&, bool, const QString&,
                          QPalette::ColorRole) const override {
            painter->fillRect(area, Qt::DiagCrossPattern);
        }
    };
    Striped striped;
    Label label(QStringLiteral("12"));
    Frame frame;
    frame.setFrameStyle(QFrame::StyledPanel | QFrame::Raised);
    LeanPainting painting;
    painting.takeOver(&label);
    painting.takeOver(&frame);
    label.setStyle(&striped);
    frame.setStyle(&striped);
    part(label, label.rect());
    part(frame, frame.contentsRect());
    QCOMPARE(label.paints, 1);
    QCOMPARE(frame.paints, 1);
}

void LeanPaintingTest::aStyleSheetIsLeftToItself() {
    Label label(QStringLiteral("12"));
    LeanPainting painting;
    painting.takeOver(&label);
    label.setStyleSheet(QStringLiteral("color: red; border: 2px solid blue"));
    part(label, label.rect());
    QCOMPARE(label.paints, 1);
}

void LeanPaintingTest::widgetsMayGoFirst() {
    LeanPainting painting;
    for (int i = 0; i < 3; ++i) {
        Label label(QStringLiteral("12"));
        painting.takeOver(&label);
        part(label, label.rect());
        QCOMPARE(label.paints, 0);
    }
    Frame frame;  // where a label may have been
    frame.setFrameStyle(QFrame::StyledPanel | QFrame::Raised);
    painting.takeOver(&frame);
    part(frame, frame.rect());
    QCOMPARE(frame.paints, 1);
}

QTEST_MAIN(LeanPaintingTest)
#include "leanpainting_test.moc"
