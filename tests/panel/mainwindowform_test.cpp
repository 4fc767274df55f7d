#include <QMainWindow>
#include <QStringList>
#include <QTest>
#include <QTranslator>
#include <memory>

#include "ui_mainwindow.h"

namespace {

struct WidgetRow {
    const char* name;
    const char* class_name;
    const char* parent;
    int x, y, width, height;
    const char* text;
};

// The widgets with a place of their own, in creation order.
constexpr WidgetRow widget_rows[] = {
    {"horizontalSlider", "QSlider", "centralWidget", 10, 30, 281, 18, ""},
    {"label", "QLabel", "centralWidget", 10, 0, 411, 17, "Write serial port"},
    {"label_2", "QLabel", "centralWidget", 10, 60, 411, 17, "Read serial port:"},
    {"textEdit", "QTextEdit", "centralWidget", 20, 90, 271, 201, ""},
    {"OhjausNappi", "QPushButton", "centralWidget", 340, 20, 93, 27, "Ohjaus"},
    {"AvaaporttiNappi", "QPushButton", "centralWidget", 330, 190, 91, 27, "Avaa portti"},
    {"PortinNopeus", "QComboBox", "centralWidget", 318, 140, 111, 31, ""},
    {"label_3", "QLabel", "centralWidget", 340, 120, 71, 17, "Baud rate"},
    {"SuljeporttiNappi", "QPushButton", "centralWidget", 330, 230, 91, 27, "Sulje portti"},
    {"lcdNumber", "QLCDNumber", "centralWidget", 210, 50, 51, 23, ""},
    {"lcdNumber_bytes", "QLCDNumber", "centralWidget", 350, 90, 64, 23, ""},
    {"label_4", "QLabel", "centralWidget", 350, 70, 71, 17, "bytes read"},
    {"menuBar", "QMenuBar", "MainWindow", 0, 0, 447, 23, ""},
};

QString text_of(const QWidget* widget) {
    const auto* label = qobject_cast<const QLabel*>(widget);
    const auto* button = qobject_cast<const QPushButton*>(widget);
    if (label != nullptr) {
        return label->text();
    }
    return button != nullptr ? button->text() : QString();
}

QStringList child_names(const QWidget* parent) {
    QStringList names;
    for (const QObject* child : parent->children()) {
        if (child->isWidgetType() && !child->objectName().startsWith(QLatin1String("qt_"))) {
            names << child->objectName();
        }
    }
    return names;
}

// Puts brackets around every text and keeps the contexts it was asked for.
class BracketTranslator : public QTranslator {
public:
    QString translate(const char* context, const char* source, const char* /*disambiguation*/,
                      int /*n*/) const override {
        asked << QString::fromUtf8(context) + QLatin1Char('|') + QString::fromUtf8(source);
        return bracketed(QString::fromUtf8(source));
    }
    bool isEmpty() const override { return false; }

    static QString bracketed(const QString& text) { return QLatin1Char('[') + text + QLatin1Char(']'); }

    mutable QStringList asked;
};

}  // namespace

class MainWindowFormTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void windowHasItsNameSizeAndTitle();
    void widgetHasItsClassParentGeometryAndText_data();
    void widgetHasItsClassParentGeometryAndText();
    void widgetsAreCreatedInTheOrderOfTheTable();
    void windowHasItsBars();
    void sliderRunsFrom30To220();
    void sliderShowsItsValueOnTheNumber();
    void numberHasNoSmallDecimalPoint();
    void speedListIsLeftEmpty();
    void everyTextIsTranslatedInTheContextMainWindowInCreationOrder();

private:
    std::unique_ptr<QMainWindow> host_;
    std::unique_ptr<Ui_MainWindow> form_;
};

void MainWindowFormTest::init() {
    host_ = std::make_unique<QMainWindow>();
    form_ = std::make_unique<Ui_MainWindow>();
    form_->setupUi(host_.get());
}

void MainWindowFormTest::cleanup() {
    host_.reset();
    form_.reset();
}

void MainWindowFormTest::windowHasItsNameSizeAndTitle() {
    QCOMPARE(host_->objectName(), QStringLiteral("MainWindow"));
    QCOMPARE(host_->size(), QSize(447, 362));
    QCOMPARE(host_->windowTitle(), QStringLiteral("MainWindow"));
}

void MainWindowFormTest::widgetHasItsClassParentGeometryAndText_data() {
    QTest::addColumn<int>("index");
    for (std::size_t i = 0; i < std::size(widget_rows); ++i) {
        QTest::newRow(widget_rows[i].name) << static_cast<int>(i);
    }
}

void MainWindowFormTest::widgetHasItsClassParentGeometryAndText() {
    QFETCH(const int, index);
    const WidgetRow& row = widget_rows[index];
    const QList<QWidget*> found = host_->findChildren<QWidget*>(QString::fromLatin1(row.name));
    QCOMPARE(found.size(), 1);
    const QWidget* const widget = found.first();
    QCOMPARE(widget->metaObject()->className(), row.class_name);
    QCOMPARE(widget->parentWidget()->objectName(), QString::fromLatin1(row.parent));
    QCOMPARE(widget->geometry(), QRect(row.x, row.y, row.width, row.height));
    QCOMPARE(text_of(widget), QString::fromUtf8(row.text));
    QVERIFY(widget->toolTip().isEmpty());
    QVERIFY(widget->isEnabled());
    QVERIFY(!widget->testAttribute(Qt::WA_SetFont));
    QVERIFY(!widget->testAttribute(Qt::WA_SetPalette));
}

void MainWindowFormTest::widgetsAreCreatedInTheOrderOfTheTable() {
    QStringList expected;
    for (const WidgetRow& row : widget_rows) {
        if (QLatin1StringView(row.parent) == QLatin1StringView("centralWidget")) {
            expected << QString::fromLatin1(row.name);
        }
    }
    QCOMPARE(child_names(form_->centralWidget), expected);
    QCOMPARE(child_names(host_.get()),
             QStringList({QStringLiteral("centralWidget"), QStringLiteral("menuBar"),
                          QStringLiteral("mainToolBar"), QStringLiteral("statusBar")}));
}

void MainWindowFormTest::windowHasItsBars() {
    QCOMPARE(form_->centralWidget->metaObject()->className(), "QWidget");
    QCOMPARE(host_->centralWidget(), form_->centralWidget);
    QCOMPARE(host_->menuBar(), form_->menuBar);
    QCOMPARE(host_->statusBar(), form_->statusBar);
    QCOMPARE(host_->toolBarArea(form_->mainToolBar), Qt::TopToolBarArea);
    QVERIFY(!host_->toolBarBreak(form_->mainToolBar));
}

void MainWindowFormTest::sliderRunsFrom30To220() {
    QCOMPARE(form_->horizontalSlider->minimum(), 30);
    QCOMPARE(form_->horizontalSlider->maximum(), 220);
    QCOMPARE(form_->horizontalSlider->value(), 30);
    QCOMPARE(form_->horizontalSlider->orientation(), Qt::Horizontal);
}

void MainWindowFormTest::sliderShowsItsValueOnTheNumber() {
    form_->horizontalSlider->setValue(187);
    QCOMPARE(form_->lcdNumber->intValue(), 187);
    QCOMPARE(form_->lcdNumber_bytes->intValue(), 0);
}

void MainWindowFormTest::numberHasNoSmallDecimalPoint() {
    QVERIFY(!form_->lcdNumber->smallDecimalPoint());
}

void MainWindowFormTest::speedListIsLeftEmpty() {
    QCOMPARE(form_->PortinNopeus->count(), 0);
}

void MainWindowFormTest::everyTextIsTranslatedInTheContextMainWindowInCreationOrder() {
    QStringList expected = {QStringLiteral("MainWindow|MainWindow")};
    for (const WidgetRow& row : widget_rows) {
        if (*row.text != '\0') {
            expected << QStringLiteral("MainWindow|") + QString::fromUtf8(row.text);
        }
    }

    BracketTranslator translator;
    QVERIFY(QCoreApplication::installTranslator(&translator));
    translator.asked.clear();
    form_->retranslateUi(host_.get());
    const QStringList asked = translator.asked;
    QCoreApplication::removeTranslator(&translator);

    QCOMPARE(asked, expected);
    QCOMPARE(host_->windowTitle(), QStringLiteral("[MainWindow]"));
    for (const WidgetRow& row : widget_rows) {
        const QString text = QString::fromUtf8(row.text);
        const auto* const widget = host_->findChild<QWidget*>(QString::fromLatin1(row.name));
        QCOMPARE(text_of(widget), text.isEmpty() ? text : BracketTranslator::bracketed(text));
    }
}

QTEST_MAIN(MainWindowFormTest)
#include "mainwindowform_test.moc"
