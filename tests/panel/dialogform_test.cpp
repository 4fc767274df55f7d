#include <QApplication>
#include <QDialog>
#include <QKeyEvent>
#include <QStringList>
#include <QStyleOptionSlider>
#include <QTest>
#include <QTranslator>
#include <QWheelEvent>
#include <algorithm>
#include <iterator>
#include <memory>

#include "ui_dialog.h"

namespace {

struct WidgetRow {
    const char* name;
    const char* class_name;
    const char* parent;
    int x, y, width, height;
    const char* text;  // label, button and group-box text, progress-bar format
};

// Every widget in creation order, children right after the frame that holds them.
constexpr WidgetRow widget_rows[] = {
    {"Browser_Kaasu", "QTextBrowser", "Dialog", 120, 300, 91, 31, ""},
    {"Browser_Kauha", "QTextBrowser", "Dialog", 360, 300, 91, 31, ""},
    {"Browser_Suunta", "QTextBrowser", "Dialog", 240, 300, 91, 31, ""},
    {"label_4", "QLabel", "Dialog", 50, 280, 71, 20, "Ohjearvot:"},
    {"pushButton_open", "QPushButton", "Dialog", 510, 80, 93, 27, "Avaa portti"},
    {"pushButton_close", "QPushButton", "Dialog", 510, 120, 93, 27, "Sulje portti"},
    {"comboBox_bauds", "QComboBox", "Dialog", 510, 180, 89, 31, ""},
    {"label_5", "QLabel", "Dialog", 520, 160, 62, 17, "Baudrate"},
    {"RateSpinBox", "QSpinBox", "Dialog", 510, 240, 61, 31, ""},
    {"label_6", "QLabel", "Dialog", 510, 220, 101, 20, "Lähetysnopeus"},
    {"frame", "QFrame", "Dialog", 10, 350, 221, 151, ""},
    {"label_8", "QLabel", "frame", 80, 0, 91, 17, "Akku"},
    {"BatteryCapacity", "QProgressBar", "frame", 10, 40, 161, 23, "%v Ah"},
    {"label_9", "QLabel", "frame", 20, 20, 91, 17, "Kapasiteetti"},
    {"label_10", "QLabel", "frame", 20, 70, 62, 17, "Jännite"},
    {"thermometer", "ThermoMeter", "frame", 180, 0, 40, 131, ""},
    {"JanniteArvo", "QLabel", "frame", 20, 100, 62, 17, "N/A"},
    {"label_24", "QLabel", "frame", 100, 70, 62, 17, "Virta"},
    {"VirtaArvo", "QLabel", "frame", 100, 100, 62, 17, "N/A"},
    {"KapasiteettiArvo", "QLabel", "frame", 120, 20, 62, 17, "N/A"},
    {"frame_2", "QFrame", "Dialog", 420, 350, 201, 151, ""},
    {"label_11", "QLabel", "frame_2", 80, 0, 61, 21, "Ohjaus"},
    {"SuuntaJannite", "QProgressBar", "frame_2", 10, 40, 181, 21, "%v mV"},
    {"label_13", "QLabel", "frame_2", 20, 20, 62, 17, "Suunta"},
    {"KauhaJannite", "QProgressBar", "frame_2", 10, 90, 181, 21, "%v mV"},
    {"label_14", "QLabel", "frame_2", 20, 70, 62, 17, "Kauha"},
    {"BytesRead", "QLCDNumber", "Dialog", 520, 40, 64, 23, ""},
    {"label_12", "QLabel", "Dialog", 510, 20, 91, 17, "Tavuja luettu"},
    {"frame_3", "QFrame", "Dialog", 230, 350, 191, 151, ""},
    {"label_7", "QLabel", "frame_3", 60, 0, 81, 20, "Nopeus"},
    {"Nopeus_manometer", "ManoMeter", "frame_3", 30, 20, 121, 121, ""},
    {"MotorC", "QLabel", "frame_3", 140, 130, 41, 17, "0"},
    {"frame_4", "QFrame", "Dialog", 460, 80, 41, 71, ""},
    {"RedLed", "Led", "frame_4", 10, 40, 21, 21, ""},
    {"GreenLed", "Led", "frame_4", 10, 10, 21, 21, ""},
    {"Browser_X", "QTextBrowser", "Dialog", 380, 230, 51, 31, ""},
    {"Browser_Y", "QTextBrowser", "Dialog", 90, 10, 51, 31, ""},
    {"frame_5", "QFrame", "Dialog", 150, 10, 215, 255, ""},
    {"line_2", "QFrame", "frame_5", 0, 124, 255, 6, ""},
    {"line_3", "QFrame", "frame_5", 104, 0, 6, 255, ""},
    {"label_15", "QLabel", "Dialog", 140, 280, 41, 21, "Kaasu"},
    {"label_16", "QLabel", "Dialog", 260, 280, 62, 17, "Suunta"},
    {"label_17", "QLabel", "Dialog", 380, 280, 51, 17, "Kauha"},
    {"label_18", "QLabel", "Dialog", 400, 210, 21, 21, "X"},
    {"label_19", "QLabel", "Dialog", 110, 40, 21, 21, "Y"},
    {"label_20", "QLabel", "Dialog", 580, 250, 31, 20, "ms"},
    {"Ohj2Check", "QCheckBox", "Dialog", 520, 290, 101, 22, "Lisäikkunat"},
    {"frame_6", "QFrame", "Dialog", 620, 20, 291, 231, ""},
    {"label_3", "QLabel", "frame_6", 240, 20, 51, 17, "Kauha"},
    {"label", "QLabel", "frame_6", 10, 10, 41, 31, "Kaasu"},
    {"Browser_Status", "QTextBrowser", "frame_6", 90, 70, 131, 71, ""},
    {"line", "QFrame", "frame_6", 140, 200, 20, 16, ""},
    {"SuuntaSlider", "QScrollBar", "frame_6", 50, 180, 201, 20, ""},
    {"KaasuSlider", "QScrollBar", "frame_6", 20, 50, 16, 160, ""},
    {"label_2", "QLabel", "frame_6", 130, 150, 62, 17, "Suunta"},
    {"KauhaSlider", "QScrollBar", "frame_6", 260, 50, 16, 160, ""},
    {"radioButton", "QRadioButton", "Dialog", 20, 110, 109, 22, "Moottori on"},
    {"frame_7", "QFrame", "Dialog", 620, 260, 291, 241, ""},
    {"SendLed", "Led", "frame_7", 120, 60, 21, 21, ""},
    {"label_22", "QLabel", "frame_7", 20, 60, 101, 21, "Lähettää"},
    {"ReceiveLed", "Led", "frame_7", 120, 30, 21, 21, ""},
    {"label_21", "QLabel", "frame_7", 20, 30, 91, 21, "Vastaanottaa"},
    {"label_25", "QLabel", "frame_7", 40, 0, 111, 21, "Diagnostiikka"},
    {"label_23", "QLabel", "frame_7", 110, 100, 31, 17, "MSB"},
    {"label_26", "QLabel", "frame_7", 200, 100, 31, 17, "LSB"},
    {"label_27", "QLabel", "frame_7", 20, 120, 62, 17, "Nopeus"},
    {"label_28", "QLabel", "frame_7", 20, 150, 62, 17, "Jännite"},
    {"label_29", "QLabel", "frame_7", 20, 180, 62, 17, "Virta"},
    {"label_30", "QLabel", "frame_7", 20, 210, 81, 17, "Kapasiteetti"},
    {"Nopeus_MSB", "QLabel", "frame_7", 110, 130, 62, 17, "N/A"},
    {"Jannite_MSB", "QLabel", "frame_7", 110, 160, 62, 17, "N/A"},
    {"Virta_MSB", "QLabel", "frame_7", 110, 190, 62, 17, "N/A"},
    {"Kapasiteetti_MSB", "QLabel", "frame_7", 110, 220, 62, 17, "N/A"},
    {"Nopeus_LSB", "QLabel", "frame_7", 200, 130, 62, 17, "N/A"},
    {"Jannite_LSB", "QLabel", "frame_7", 200, 160, 62, 17, "N/A"},
    {"Virta_LSB", "QLabel", "frame_7", 200, 190, 62, 17, "N/A"},
    {"Kapasiteetti_LSB", "QLabel", "frame_7", 200, 220, 62, 17, "N/A"},
    {"line_4", "QFrame", "Dialog", 20, 130, 118, 3, ""},
    {"line_5", "QFrame", "Dialog", 20, 110, 118, 3, ""},
    {"groupBox", "QGroupBox", "Dialog", 20, 150, 121, 71, "Ajotila"},
    {"Ajotila1", "QRadioButton", "groupBox", 0, 20, 121, 22, "1. Ekonominen"},
    {"Ajotila2", "QRadioButton", "groupBox", 0, 40, 109, 22, "2. Ketterä"},
    {"line_6", "QFrame", "groupBox", 0, 20, 118, 3, ""},
    {"line_7", "QFrame", "groupBox", 0, 60, 118, 3, ""},
    {"frame_Navi", "QFrame", "Dialog", 10, 500, 611, 251, ""},
    {"label_31", "QLabel", "frame_Navi", 20, 10, 81, 17, "Pituusasteet"},
    {"label_32", "QLabel", "frame_Navi", 20, 70, 91, 17, "Leveysasteet"},
    {"Latitude", "QLabel", "frame_Navi", 20, 40, 121, 20, "-"},
    {"Longitude", "QLabel", "frame_Navi", 30, 100, 62, 17, "-"},
    {"label_33", "QLabel", "frame_Navi", 170, 10, 62, 17, "Suunta"},
    {"label_34", "QLabel", "frame_Navi", 170, 70, 62, 17, "Nopeus"},
    {"Suunta", "QLabel", "frame_Navi", 160, 40, 62, 17, "-"},
    {"Nopeus_kmh", "QLabel", "frame_Navi", 160, 100, 62, 17, "-"},
    {"FixLed", "Led", "frame_Navi", 80, 140, 21, 21, ""},
    {"label_35", "QLabel", "frame_Navi", 20, 140, 91, 17, "Yhteys"},
    {"Navigointi_Check", "QCheckBox", "Dialog", 520, 320, 101, 22, "Navigointi"},
};

struct HelpRow {
    const char* name;
    const char* tool_tip;
    const char* whats_this;
};

constexpr char gauge_help[] = "The bar meter widget displays the pressure attached to it";

// Every widget that explains itself; all others have neither text.
constexpr HelpRow help_rows[] = {
    {"thermometer", "Shows the pressure", gauge_help},
    {"Nopeus_manometer", "Moottorin kierrosnopeus", gauge_help},
    {"RedLed", "Color Led component", "Led indicator"},
    {"GreenLed", "Color Led component", "Led indicator"},
    {"SendLed", "Color Led component", "Led indicator"},
    {"ReceiveLed", "Color Led component", "Led indicator"},
    {"Ajotila1", "Moottori ei pyöri, kun Y asetetaan nollaan (joystick keskellä)", ""},
    {"Ajotila2",
     "Moottoria pyöritetään joystickin ollessa keskellä. Tämä mahdollistaa veneen kääntymisen paikallaan "
     "oltaessa.",
     ""},
    {"FixLed", "Color Led component", "Led indicator"},
};

struct FontRow {
    const char* name;
    int point_size;
    QFont::Weight weight;
};

// Every widget with a font of its own, all of the family "Bitstream Charter".
constexpr FontRow font_rows[] = {
    {"label_8", 14, QFont::Normal},  {"label_11", 14, QFont::Normal}, {"label_7", 14, QFont::Normal},
    {"label_15", 12, QFont::Normal}, {"label_16", 12, QFont::Normal}, {"label_17", 12, QFont::Normal},
    {"label_18", 12, QFont::Normal}, {"label_19", 12, QFont::Normal}, {"label_20", 12, QFont::Normal},
    {"label_3", 12, QFont::Normal},  {"label", 12, QFont::Normal},    {"label_2", 12, QFont::Normal},
    {"label_22", 12, QFont::Normal}, {"label_21", 12, QFont::Normal}, {"label_25", 12, QFont::Bold},
    {"Latitude", 14, QFont::Bold},   {"Longitude", 14, QFont::Bold},  {"Suunta", 14, QFont::Bold},
    {"Nopeus_kmh", 14, QFont::Bold},
};

// The labels that stand centred in both directions.
constexpr const char* centred_labels[] = {"Latitude", "Longitude", "Suunta", "Nopeus_kmh"};

struct FrameRow {
    const char* name;
    QFrame::Shape shape;
    QFrame::Shadow shadow;
    int line_width;
};

constexpr FrameRow frame_rows[] = {
    {"frame", QFrame::StyledPanel, QFrame::Raised, 1},
    {"frame_2", QFrame::StyledPanel, QFrame::Raised, 1},
    {"frame_3", QFrame::StyledPanel, QFrame::Raised, 1},
    {"frame_4", QFrame::StyledPanel, QFrame::Raised, 1},
    {"frame_5", QFrame::Panel, QFrame::Sunken, 3},
    {"line_2", QFrame::HLine, QFrame::Sunken, 1},
    {"line_3", QFrame::VLine, QFrame::Sunken, 1},
    {"frame_6", QFrame::StyledPanel, QFrame::Raised, 1},
    {"line", QFrame::VLine, QFrame::Raised, 1},
    {"frame_7", QFrame::StyledPanel, QFrame::Raised, 1},
    {"line_4", QFrame::HLine, QFrame::Sunken, 1},
    {"line_5", QFrame::HLine, QFrame::Sunken, 1},
    {"line_6", QFrame::HLine, QFrame::Sunken, 1},
    {"line_7", QFrame::HLine, QFrame::Sunken, 1},
    {"frame_Navi", QFrame::StyledPanel, QFrame::Raised, 1},
};

struct RangeRow {
    const char* name;
    int minimum, maximum, value;
};

constexpr RangeRow range_rows[] = {
    {"RateSpinBox", 0, 1000, 200}, {"BatteryCapacity", 0, 100, 0}, {"SuuntaJannite", 0, 5000, 0},
    {"KauhaJannite", 0, 5000, 0},  {"SuuntaSlider", 35, 175, 103}, {"KaasuSlider", 0, 255, 0},
    {"KauhaSlider", 47, 172, 110},
};

struct SliderRow {
    const char* name;
    Qt::Orientation orientation;
    bool inverted_appearance;
};

constexpr SliderRow slider_rows[] = {
    {"SuuntaSlider", Qt::Horizontal, true},
    {"KaasuSlider", Qt::Vertical, true},
    {"KauhaSlider", Qt::Vertical, false},
};

struct LampRow {
    const char* name;
    bool enabled;
    int red, green, blue;
};

constexpr LampRow lamp_rows[] = {
    {"RedLed", true, 255, 0, 0},      {"GreenLed", false, 0, 255, 0}, {"SendLed", false, 0, 255, 0},
    {"ReceiveLed", false, 5, 255, 0}, {"FixLed", false, 5, 255, 0},
};

struct PaletteRow {
    const char* name;
    QPalette::ColorRole role;
    int active_red, active_green, active_blue;  // the inactive group has the same
    int disabled_red, disabled_green, disabled_blue;
};

// The steering pad's colours.
constexpr PaletteRow palette_rows[] = {
    {"WindowText", QPalette::WindowText, 0, 0, 0, 114, 114, 114},
    {"Text", QPalette::Text, 0, 0, 0, 114, 114, 114},
    {"ButtonText", QPalette::ButtonText, 0, 0, 0, 114, 114, 114},
    {"Shadow", QPalette::Shadow, 0, 0, 0, 0, 0, 0},
    {"ToolTipText", QPalette::ToolTipText, 0, 0, 0, 0, 0, 0},
    {"Button", QPalette::Button, 229, 229, 229, 229, 229, 229},
    {"Window", QPalette::Window, 229, 229, 229, 229, 229, 229},
    {"Light", QPalette::Light, 255, 255, 255, 255, 255, 255},
    {"BrightText", QPalette::BrightText, 255, 255, 255, 255, 255, 255},
    {"Base", QPalette::Base, 255, 255, 255, 229, 229, 229},
    {"Midlight", QPalette::Midlight, 242, 242, 242, 242, 242, 242},
    {"AlternateBase", QPalette::AlternateBase, 242, 242, 242, 229, 229, 229},
    {"Dark", QPalette::Dark, 114, 114, 114, 114, 114, 114},
    {"Mid", QPalette::Mid, 153, 153, 153, 153, 153, 153},
    {"ToolTipBase", QPalette::ToolTipBase, 255, 255, 220, 255, 255, 220},
};

// One test row for each entry of a table, named after its widget.
template <typename Row, std::size_t count>
void add_rows(const Row (&rows)[count]) {
    QTest::addColumn<int>("index");
    for (std::size_t i = 0; i < count; ++i) {
        QTest::newRow(rows[i].name) << static_cast<int>(i);
    }
}

// The entry of the table that the running test row stands for.
template <typename Row, std::size_t count>
const Row& current_row(const Row (&rows)[count]) {
    QFETCH(const int, index);
    return rows[index];
}

template <typename Row, std::size_t count>
const Row* row_named(const Row (&rows)[count], const QString& name) {
    const auto* const found = std::find_if(std::begin(rows), std::end(rows), [&name](const Row& row) {
        return name == QLatin1StringView(row.name);
    });
    return found == std::end(rows) ? nullptr : found;
}

// What the operator reads on the widget, or a bar's format.
QString text_of(const QWidget* widget) {
    if (const auto* bar = qobject_cast<const QProgressBar*>(widget)) {
        return bar->format();
    }
    if (const auto* box = qobject_cast<const QGroupBox*>(widget)) {
        return box->title();
    }
    if (const auto* button = qobject_cast<const QAbstractButton*>(widget)) {
        return button->text();
    }
    const auto* label = qobject_cast<const QLabel*>(widget);
    return label != nullptr ? label->text() : QString();
}

// The widgets below `parent` in creation order, each frame's right after it; a toolkit widget's own parts are
// left out.
void collect(const QWidget* parent, QStringList& names) {
    for (const QObject* child : parent->children()) {
        if (child->isWidgetType()) {
            const auto* widget = static_cast<const QWidget*>(child);
            names << widget->objectName();
            const QByteArray class_name(widget->metaObject()->className());
            if (class_name == "QFrame" || class_name == "QGroupBox") {
                collect(widget, names);
            }
        }
    }
}

QStringList table_names() {
    QStringList names;
    for (const WidgetRow& row : widget_rows) {
        names << QString::fromLatin1(row.name);
    }
    return names;
}

// Where the scroll bar draws its handle.
QRect handle_of(QScrollBar* bar) {
    QStyleOptionSlider option;
    option.initFrom(bar);
    option.subControls = QStyle::SC_All;
    option.orientation = bar->orientation();
    option.minimum = bar->minimum();
    option.maximum = bar->maximum();
    option.sliderPosition = bar->sliderPosition();
    option.sliderValue = bar->value();
    option.singleStep = bar->singleStep();
    option.pageStep = bar->pageStep();
    option.upsideDown = bar->invertedAppearance();
    if (bar->orientation() == Qt::Horizontal) {
        option.state |= QStyle::State_Horizontal;
    }
    return bar->style()->subControlRect(QStyle::CC_ScrollBar, &option, QStyle::SC_ScrollBarSlider, bar);
}

// Turns the wheel over a widget; 120 is one click of it, away from the hand.
void turn_wheel(QWidget* widget, int angle) {
    const QPointF at = widget->rect().center();
    QWheelEvent event(at, widget->mapToGlobal(at), QPoint(), QPoint(0, angle), Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(widget, &event);
}

// Puts brackets around every text and keeps a list of what it was asked for.
class BracketTranslator : public QTranslator {
public:
    QString translate(const char* context, const char* source, const char* /*disambiguation*/,
                      int /*n*/) const override {
        contexts << QString::fromUtf8(context);
        sources << QString::fromUtf8(source);
        return bracketed(sources.last());
    }
    bool isEmpty() const override { return false; }

    static QString bracketed(const QString& text) { return QLatin1Char('[') + text + QLatin1Char(']'); }

    mutable QStringList contexts;
    mutable QStringList sources;
};

}  // namespace

class DialogFormTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void dialogHasItsNameSizeTitleAndModality();
    void dialogKeepsANameThatItAlreadyHas();
    void widgetsAreCreatedInTheOrderOfTheTable();
    void tabOrderFollowsTheCreationOrder();
    void widgetHasItsClassParentGeometryAndText_data() { add_rows(widget_rows); }
    void widgetHasItsClassParentGeometryAndText();
    void memberPointsToTheWidgetOfItsName();
    void widgetHasItsHelpTextsOrNone_data() { add_rows(widget_rows); }
    void widgetHasItsHelpTextsOrNone();
    void widgetHasItsFontOrTheDefault_data() { add_rows(widget_rows); }
    void widgetHasItsFontOrTheDefault();
    void onlyTheNavigationValuesAreCentred();
    void frameHasItsShape_data() { add_rows(frame_rows); }
    void frameHasItsShape();
    void plainLabelsHaveNoFrame();
    void padHasNoMidLineAndNoFill();
    void centreMarkDoesNotFillItsBackground();
    void rangeIsSet_data() { add_rows(range_rows); }
    void rangeIsSet();
    void barShowsZeroInItsFormat();
    void scrollBarRunsItsWay_data() { add_rows(slider_rows); }
    void scrollBarRunsItsWay();
    void throttleHasItsMinimumAtTheBottom();
    void bucketHasItsMinimumAtTheTop();
    void directionHasItsMinimumAtTheRight();
    void directionKeysRunTheOtherWay();
    void directionWheelRunsTheOtherWay();
    void lampIsSet_data() { add_rows(lamp_rows); }
    void lampIsSet();
    void onlyFourLampsAreDisabled();
    void speedDialIsSet();
    void thermometerIsLeftAtItsDefaults();
    void padPaletteHasItsColours_data() { add_rows(palette_rows); }
    void padPaletteHasItsColours();
    void onlyThePadHasAPaletteOfItsOwn();
    void buttonsStartUncheckedButTheEconomicalMode();
    void driveModesExcludeEachOther();
    void speedListIsLeftEmpty();
    void everyTextIsTranslatedInTheContextDialogInCreationOrder();

private:
    QWidget* named(const char* name) const { return host_->findChild<QWidget*>(QString::fromLatin1(name)); }

    std::unique_ptr<QDialog> host_;
    std::unique_ptr<Ui_Dialog> form_;
};

void DialogFormTest::init() {
    host_ = std::make_unique<QDialog>();
    form_ = std::make_unique<Ui_Dialog>();
    form_->setupUi(host_.get());
}

void DialogFormTest::cleanup() {
    host_.reset();
    form_.reset();
}

void DialogFormTest::dialogHasItsNameSizeTitleAndModality() {
    QCOMPARE(host_->objectName(), QStringLiteral("Dialog"));
    QCOMPARE(host_->size(), QSize(918, 761));
    QCOMPARE(host_->windowTitle(), QStringLiteral("Dialog"));
    QVERIFY(!host_->isModal());
    QCOMPARE(host_->layout(), nullptr);
}

void DialogFormTest::dialogKeepsANameThatItAlreadyHas() {
    QDialog other;
    other.setObjectName(QStringLiteral("other"));
    other.setModal(true);
    Ui_Dialog form;
    form.setupUi(&other);
    QCOMPARE(other.objectName(), QStringLiteral("other"));
    QVERIFY(!other.isModal());
}

void DialogFormTest::widgetsAreCreatedInTheOrderOfTheTable() {
    QStringList names;
    collect(host_.get(), names);
    QCOMPARE(names, table_names());
}

void DialogFormTest::tabOrderFollowsTheCreationOrder() {
    QStringList names;
    for (const QWidget* widget = host_->nextInFocusChain(); widget != host_.get();
         widget = widget->nextInFocusChain()) {
        if (row_named(widget_rows, widget->objectName()) != nullptr) {
            names << widget->objectName();
        }
    }
    QCOMPARE(names, table_names());
}

void DialogFormTest::widgetHasItsClassParentGeometryAndText() {
    const WidgetRow& row = current_row(widget_rows);
    QCOMPARE(host_->findChildren<QWidget*>(QString::fromLatin1(row.name)).size(), 1);
    const QWidget* const widget = named(row.name);
    QCOMPARE(widget->metaObject()->className(), row.class_name);
    QCOMPARE(widget->parentWidget()->objectName(), QString::fromLatin1(row.parent));
    QCOMPARE(widget->geometry(), QRect(row.x, row.y, row.width, row.height));
    QCOMPARE(text_of(widget), QString::fromUtf8(row.text));
    QVERIFY(!widget->isHidden());
}

void DialogFormTest::memberPointsToTheWidgetOfItsName() {
    const QWidget* const members[] = {
        form_->Browser_Kaasu,
        form_->Browser_Kauha,
        form_->Browser_Suunta,
        form_->label_4,
        form_->pushButton_open,
        form_->pushButton_close,
        form_->comboBox_bauds,
        form_->label_5,
        form_->RateSpinBox,
        form_->label_6,
        form_->frame,
        form_->label_8,
        form_->BatteryCapacity,
        form_->label_9,
        form_->label_10,
        form_->thermometer,
        form_->JanniteArvo,
        form_->label_24,
        form_->VirtaArvo,
        form_->KapasiteettiArvo,
        form_->frame_2,
        form_->label_11,
        form_->SuuntaJannite,
        form_->label_13,
        form_->KauhaJannite,
        form_->label_14,
        form_->BytesRead,
        form_->label_12,
        form_->frame_3,
        form_->label_7,
        form_->Nopeus_manometer,
        form_->MotorC,
        form_->frame_4,
        form_->RedLed,
        form_->GreenLed,
        form_->Browser_X,
        form_->Browser_Y,
        form_->frame_5,
        form_->line_2,
        form_->line_3,
        form_->label_15,
        form_->label_16,
        form_->label_17,
        form_->label_18,
        form_->label_19,
        form_->label_20,
        form_->Ohj2Check,
        form_->frame_6,
        form_->label_3,
        form_->label,
        form_->Browser_Status,
        form_->line,
        form_->SuuntaSlider,
        form_->KaasuSlider,
        form_->label_2,
        form_->KauhaSlider,
        form_->radioButton,
        form_->frame_7,
        form_->SendLed,
        form_->label_22,
        form_->ReceiveLed,
        form_->label_21,
        form_->label_25,
        form_->label_23,
        form_->label_26,
        form_->label_27,
        form_->label_28,
        form_->label_29,
        form_->label_30,
        form_->Nopeus_MSB,
        form_->Jannite_MSB,
        form_->Virta_MSB,
        form_->Kapasiteetti_MSB,
        form_->Nopeus_LSB,
        form_->Jannite_LSB,
        form_->Virta_LSB,
        form_->Kapasiteetti_LSB,
        form_->line_4,
        form_->line_5,
        form_->groupBox,
        form_->Ajotila1,
        form_->Ajotila2,
        form_->line_6,
        form_->line_7,
        form_->frame_Navi,
        form_->label_31,
        form_->label_32,
        form_->Latitude,
        form_->Longitude,
        form_->label_33,
        form_->label_34,
        form_->Suunta,
        form_->Nopeus_kmh,
        form_->FixLed,
        form_->label_35,
        form_->Navigointi_Check,
    };
    QStringList names;
    for (const QWidget* member : members) {
        names << member->objectName();
    }
    QCOMPARE(names, table_names());
}

void DialogFormTest::widgetHasItsHelpTextsOrNone() {
    const WidgetRow& row = current_row(widget_rows);
    const HelpRow* const help = row_named(help_rows, QString::fromLatin1(row.name));
    const QWidget* const widget = named(row.name);
    QCOMPARE(widget->toolTip(), help != nullptr ? QString::fromUtf8(help->tool_tip) : QString());
    QCOMPARE(widget->whatsThis(), help != nullptr ? QString::fromUtf8(help->whats_this) : QString());
}

void DialogFormTest::widgetHasItsFontOrTheDefault() {
    const WidgetRow& row = current_row(widget_rows);
    const FontRow* const font = row_named(font_rows, QString::fromLatin1(row.name));
    const QWidget* const widget = named(row.name);
    if (font == nullptr) {
        QVERIFY(!widget->testAttribute(Qt::WA_SetFont));
        return;
    }
    QCOMPARE(widget->font().family(), QStringLiteral("Bitstream Charter"));
    QCOMPARE(widget->font().pointSize(), font->point_size);
    QCOMPARE(widget->font().weight(), font->weight);
    QVERIFY(!widget->font().italic());
}

void DialogFormTest::onlyTheNavigationValuesAreCentred() {
    const QLabel fresh;
    for (const QLabel* label : host_->findChildren<QLabel*>()) {
        const bool centred =
            std::any_of(std::begin(centred_labels), std::end(centred_labels),
                        [label](const char* name) { return label->objectName() == QLatin1StringView(name); });
        QCOMPARE(label->alignment(), centred ? Qt::Alignment(Qt::AlignCenter) : fresh.alignment());
    }
}

void DialogFormTest::frameHasItsShape() {
    const FrameRow& row = current_row(frame_rows);
    const auto* const frame = qobject_cast<QFrame*>(named(row.name));
    QVERIFY(frame != nullptr);
    QCOMPARE(frame->frameShape(), row.shape);
    QCOMPARE(frame->frameShadow(), row.shadow);
    QCOMPARE(frame->lineWidth(), row.line_width);
}

void DialogFormTest::plainLabelsHaveNoFrame() {
    for (const QLabel* label : host_->findChildren<QLabel*>()) {
        QCOMPARE(label->frameShape(), QFrame::NoFrame);
    }
}

void DialogFormTest::padHasNoMidLineAndNoFill() {
    QCOMPARE(form_->frame_5->midLineWidth(), 0);
    // The dialog's own drawing shows through the pad.
    QVERIFY(!form_->frame_5->autoFillBackground());
}

void DialogFormTest::centreMarkDoesNotFillItsBackground() {
    QVERIFY(!form_->line->autoFillBackground());
}

void DialogFormTest::rangeIsSet() {
    const RangeRow& row = current_row(range_rows);
    const QWidget* const widget = named(row.name);
    QCOMPARE(widget->property("minimum").toInt(), row.minimum);
    QCOMPARE(widget->property("maximum").toInt(), row.maximum);
    QCOMPARE(widget->property("value").toInt(), row.value);
}

void DialogFormTest::barShowsZeroInItsFormat() {
    QCOMPARE(form_->BatteryCapacity->text(), QStringLiteral("0 Ah"));
    QCOMPARE(form_->SuuntaJannite->text(), QStringLiteral("0 mV"));
    QCOMPARE(form_->KauhaJannite->text(), QStringLiteral("0 mV"));
}

void DialogFormTest::scrollBarRunsItsWay() {
    const SliderRow& row = current_row(slider_rows);
    const auto* const bar = qobject_cast<QScrollBar*>(named(row.name));
    QVERIFY(bar != nullptr);
    QCOMPARE(bar->orientation(), row.orientation);
    QCOMPARE(bar->invertedAppearance(), row.inverted_appearance);
    QVERIFY(bar->invertedControls());  // for the two upright ones the toolkit's default
    QCOMPARE(bar->singleStep(), 1);
    QCOMPARE(bar->pageStep(), QScrollBar().pageStep());
}

void DialogFormTest::throttleHasItsMinimumAtTheBottom() {
    const QRect at_minimum = handle_of(form_->KaasuSlider);
    form_->KaasuSlider->setValue(255);
    QVERIFY(handle_of(form_->KaasuSlider).bottom() < at_minimum.top());
}

void DialogFormTest::bucketHasItsMinimumAtTheTop() {
    form_->KauhaSlider->setValue(47);
    const QRect at_minimum = handle_of(form_->KauhaSlider);
    form_->KauhaSlider->setValue(172);
    QVERIFY(handle_of(form_->KauhaSlider).top() > at_minimum.bottom());
}

void DialogFormTest::directionHasItsMinimumAtTheRight() {
    form_->SuuntaSlider->setValue(35);
    const QRect at_minimum = handle_of(form_->SuuntaSlider);
    form_->SuuntaSlider->setValue(175);
    QVERIFY(handle_of(form_->SuuntaSlider).right() < at_minimum.left());
}

// The arrow keys follow the handle, whose scale runs from right to left; page keys and wheel run inverted as
// well.
void DialogFormTest::directionKeysRunTheOtherWay() {
    QTest::keyClick(form_->SuuntaSlider, Qt::Key_Right);
    QCOMPARE(form_->SuuntaSlider->value(), 102);
    QTest::keyClick(form_->SuuntaSlider, Qt::Key_Left);
    QCOMPARE(form_->SuuntaSlider->value(), 103);
    QTest::keyClick(form_->SuuntaSlider, Qt::Key_Up);
    QCOMPARE(form_->SuuntaSlider->value(), 102);
    QTest::keyClick(form_->SuuntaSlider, Qt::Key_PageUp);
    QCOMPARE(form_->SuuntaSlider->value(), 92);
    QTest::keyClick(form_->SuuntaSlider, Qt::Key_PageDown);
    QCOMPARE(form_->SuuntaSlider->value(), 102);
}

void DialogFormTest::directionWheelRunsTheOtherWay() {
    const int steps = QApplication::wheelScrollLines();
    turn_wheel(form_->SuuntaSlider, 120);
    QCOMPARE(form_->SuuntaSlider->value(), 103 - steps);
    turn_wheel(form_->SuuntaSlider, -120);
    QCOMPARE(form_->SuuntaSlider->value(), 103);
}

void DialogFormTest::lampIsSet() {
    const LampRow& row = current_row(lamp_rows);
    const auto* const lamp = qobject_cast<Led*>(named(row.name));
    QVERIFY(lamp != nullptr);
    QCOMPARE(lamp->isEnabled(), row.enabled);
    QVERIFY(lamp->isChecked());
    QCOMPARE(lamp->color(), QColor(row.red, row.green, row.blue));
}

void DialogFormTest::onlyFourLampsAreDisabled() {
    QStringList disabled;
    for (const WidgetRow& row : widget_rows) {
        if (!named(row.name)->isEnabled()) {
            disabled << QString::fromLatin1(row.name);
        }
    }
    QCOMPARE(disabled, QStringList({QStringLiteral("GreenLed"), QStringLiteral("SendLed"),
                                    QStringLiteral("ReceiveLed"), QStringLiteral("FixLed")}));
}

void DialogFormTest::speedDialIsSet() {
    const ManoMeter fresh;
    QCOMPARE(form_->Nopeus_manometer->minimum(), fresh.minimum());
    QCOMPARE(form_->Nopeus_manometer->maximum(), 2500.0);
    QCOMPARE(form_->Nopeus_manometer->nominal(), 900.0);
    QCOMPARE(form_->Nopeus_manometer->critical(), 1500.0);
    QCOMPARE(form_->Nopeus_manometer->value(), 0.0);
    QCOMPARE(form_->Nopeus_manometer->prefix(), QString());
    QCOMPARE(form_->Nopeus_manometer->suffix(), QStringLiteral(" [rpm]"));
    QCOMPARE(form_->Nopeus_manometer->valueOffset(), fresh.valueOffset());
    QCOMPARE(form_->Nopeus_manometer->digitOffset(), fresh.digitOffset());
    QCOMPARE(form_->Nopeus_manometer->valueFont(), fresh.valueFont());
    QCOMPARE(form_->Nopeus_manometer->digitFont(), fresh.digitFont());
}

void DialogFormTest::thermometerIsLeftAtItsDefaults() {
    const ThermoMeter fresh;
    const QMetaObject* const meta = form_->thermometer->metaObject();
    const int own = QWidget::staticMetaObject.propertyCount();
    QCOMPARE(meta->propertyCount() - own, 11);
    for (int i = own; i < meta->propertyCount(); ++i) {
        const QMetaProperty property = meta->property(i);
        QCOMPARE(property.read(form_->thermometer), property.read(&fresh));
    }
    QVERIFY(form_->thermometer->dynamicPropertyNames().isEmpty());
}

void DialogFormTest::padPaletteHasItsColours() {
    const PaletteRow& row = current_row(palette_rows);
    const QPalette& palette = form_->frame_5->palette();
    const QBrush active(QColor(row.active_red, row.active_green, row.active_blue), Qt::SolidPattern);
    const QBrush disabled(QColor(row.disabled_red, row.disabled_green, row.disabled_blue), Qt::SolidPattern);
    QCOMPARE(palette.brush(QPalette::Active, row.role), active);
    QCOMPARE(palette.brush(QPalette::Inactive, row.role), active);
    QCOMPARE(palette.brush(QPalette::Disabled, row.role), disabled);
}

void DialogFormTest::onlyThePadHasAPaletteOfItsOwn() {
    for (const WidgetRow& row : widget_rows) {
        QCOMPARE(named(row.name)->testAttribute(Qt::WA_SetPalette),
                 QLatin1StringView(row.name) == QLatin1StringView("frame_5"));
    }
}

void DialogFormTest::buttonsStartUncheckedButTheEconomicalMode() {
    QVERIFY(!form_->Ohj2Check->isChecked());
    QVERIFY(!form_->Navigointi_Check->isChecked());
    QVERIFY(!form_->radioButton->isChecked());
    QVERIFY(form_->Ajotila1->isChecked());
    QVERIFY(!form_->Ajotila2->isChecked());
}

void DialogFormTest::driveModesExcludeEachOther() {
    form_->radioButton->setChecked(true);
    form_->Ajotila2->setChecked(true);
    QVERIFY(!form_->Ajotila1->isChecked());
    QVERIFY(form_->radioButton->isChecked());
}

void DialogFormTest::speedListIsLeftEmpty() {
    QCOMPARE(form_->comboBox_bauds->count(), 0);
}

void DialogFormTest::everyTextIsTranslatedInTheContextDialogInCreationOrder() {
    QStringList expected = {QStringLiteral("Dialog")};
    for (const WidgetRow& row : widget_rows) {
        QStringList texts;
        if (const HelpRow* help = row_named(help_rows, QString::fromLatin1(row.name))) {
            texts << QString::fromUtf8(help->tool_tip) << QString::fromUtf8(help->whats_this);
        }
        texts << QString::fromUtf8(row.text);
        if (QLatin1StringView(row.name) == QLatin1StringView("Nopeus_manometer")) {
            texts << QStringLiteral(" [rpm]");
        }
        texts.removeAll(QString());
        expected << texts;
    }

    BracketTranslator translator;
    QVERIFY(QCoreApplication::installTranslator(&translator));
    translator.contexts.clear();
    translator.sources.clear();
    form_->retranslateUi(host_.get());
    const QStringList sources = translator.sources;
    QCoreApplication::removeTranslator(&translator);

    QCOMPARE(sources, expected);
    QCOMPARE(translator.contexts.count(QStringLiteral("Dialog")), translator.contexts.size());
    for (const WidgetRow& row : widget_rows) {
        const QString text = QString::fromUtf8(row.text);
        QCOMPARE(text_of(named(row.name)), text.isEmpty() ? text : BracketTranslator::bracketed(text));
    }
    for (const HelpRow& row : help_rows) {
        QCOMPARE(named(row.name)->toolTip(), BracketTranslator::bracketed(QString::fromUtf8(row.tool_tip)));
    }
    QCOMPARE(form_->Nopeus_manometer->suffix(), QStringLiteral("[ [rpm]]"));
    QCOMPARE(host_->windowTitle(), QStringLiteral("[Dialog]"));
}

QTEST_MAIN(DialogFormTest)
#include "dialogform_test.moc"
