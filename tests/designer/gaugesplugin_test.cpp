#include <QBuffer>
#include <QDialog>
#include <QFile>
#include <QFont>
#include <QIcon>
#include <QMetaProperty>
#include <QPluginLoader>
#include <QRegularExpression>
#include <QUiLoader>
#include <QtTest>
#include <QtUiPlugin/QDesignerCustomWidgetCollectionInterface>
#include <memory>

#include "tests/widgets/rendered.h"
#include "ui_dialog.h"
#include "widgets/led.h"
#include "widgets/manometer.h"
#include "widgets/thermometer.h"

namespace {

/// A gauge as Designer is to know it.
struct GaugeRow {
    const char* class_name;
    const char* header;
    QWidget* (*make)();  // the gauge itself, linked into this program
    const char* object_name;
    QSize dropped_size;
    double least_red;  // of the icon, in per cent: the red band, the red fluid of the bulb, the lit red lamp
};

const GaugeRow gauge_rows[] = {
    {"ManoMeter",
     "widgets/manometer.h",
     []() -> QWidget* { return new ManoMeter; },
     "manoMeter",
     {121, 121},
     0.5},
    {"ThermoMeter",
     "widgets/thermometer.h",
     []() -> QWidget* { return new ThermoMeter; },
     "thermoMeter",
     {60, 131},
     4},
    {"Led", "widgets/led.h", []() -> QWidget* { return new Led; }, "led", {21, 21}, 30},
};

/// A property that the property editor is to show, and a value with which the gauge looks different.
struct PropertyRow {
    const char* class_name;
    const char* property;
    QVariant value;
};

QFont smallFont() {
    QFont font;
    font.setPointSize(6);
    return font;
}

QList<PropertyRow> propertyRows() {
    QList<PropertyRow> rows;
    for (const char* meter : {"ManoMeter", "ThermoMeter"}) {
        rows << PropertyRow{meter, "minimum", -100.0} << PropertyRow{meter, "maximum", 2500.0}
             << PropertyRow{meter, "value", 33.5} << PropertyRow{meter, "nominal", 0.0}
             << PropertyRow{meter, "critical", 0.0} << PropertyRow{meter, "prefix", QStringLiteral("p = ")}
             << PropertyRow{meter, "suffix", QStringLiteral(" kPa")}
             << PropertyRow{meter, "valueFont", smallFont()} << PropertyRow{meter, "valueOffset", 0.0}
             << PropertyRow{meter, "digitFont", smallFont()} << PropertyRow{meter, "digitOffset", 50.0};
    }
    rows << PropertyRow{"Led", "checked", false} << PropertyRow{"Led", "color", QColor(Qt::green)};
    return rows;
}

/// What a form loader makes of @p form, with the plugin or without any.
std::unique_ptr<QWidget> loaded(QIODevice& form, bool with_plugin) {
    QUiLoader loader;
    loader.clearPluginPaths();
    if (with_plugin) {
        loader.addPluginPath(QStringLiteral(PLUGIN_DIRECTORY));
    }
    return std::unique_ptr<QWidget>(loader.load(&form));
}

std::unique_ptr<QWidget> loadedPanel(bool with_plugin) {
    QFile form(QStringLiteral(FORM_FILE));
    return form.open(QIODevice::ReadOnly) ? loaded(form, with_plugin) : nullptr;
}

/// The share of @p picture that is plain red, in per cent.
double redShare(const QImage& picture) {
    int red = 0;
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            const QColor color = picture.pixelColor(x, y);
            red += color.alpha() > 150 && color.red() > 120 && color.red() - color.green() > 80 ? 1 : 0;
        }
    }
    return 100.0 * red / (picture.width() * picture.height());
}

}  // namespace

class GaugesPluginTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void isACollectionOfAllGauges();
    void everyGaugeIsInTheSameGroupWithATip();
    void everyGaugeIsIncludedAsTheFormsDo();
    void everyGaugeIsMadeForItsParentAndDrawnLive();
    void everyPropertyCanBeEditedAndShows_data();
    void everyPropertyCanBeEditedAndShows();
    void noPropertyIsLeftOut();
    void iconsAreDrawnFromTheGauges();
    void droppedGaugeHasASizeAndANameOfItsOwn();
    void formShowsTheGauges();
    void formWithoutThePluginShowsNone();

private:
    QDesignerCustomWidgetInterface* plugin(const char* class_name) const;

    QList<QDesignerCustomWidgetInterface*> plugins_;
};

void GaugesPluginTest::initTestCase() {
    QPluginLoader loader(QStringLiteral(PLUGIN_FILE));
    auto* collection = qobject_cast<QDesignerCustomWidgetCollectionInterface*>(loader.instance());
    QVERIFY2(collection != nullptr, qPrintable(loader.errorString()));
    plugins_ = collection->customWidgets();
}

void GaugesPluginTest::init() {
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".")));
}

QDesignerCustomWidgetInterface* GaugesPluginTest::plugin(const char* class_name) const {
    for (QDesignerCustomWidgetInterface* each : plugins_) {
        if (each->name() == QLatin1StringView(class_name)) {
            return each;
        }
    }
    return nullptr;
}

void GaugesPluginTest::isACollectionOfAllGauges() {
    QCOMPARE(plugins_.size(), static_cast<qsizetype>(std::size(gauge_rows)));
    for (const GaugeRow& row : gauge_rows) {
        QVERIFY(plugin(row.class_name) != nullptr);
    }
}

void GaugesPluginTest::everyGaugeIsInTheSameGroupWithATip() {
    QStringList tips;
    for (QDesignerCustomWidgetInterface* each : plugins_) {
        QCOMPARE(each->group(), QStringLiteral("Gauges"));
        QVERIFY(!each->isContainer());
        QVERIFY(!each->whatsThis().isEmpty());
        tips << each->toolTip();
    }
    QVERIFY(!tips.contains(QString()));
    QCOMPARE(tips.removeDuplicates(), 0);
}

void GaugesPluginTest::everyGaugeIsIncludedAsTheFormsDo() {
    QFile form(QStringLiteral(FORM_FILE));
    QVERIFY(form.open(QIODevice::ReadOnly));
    const QByteArray text = form.readAll();
    for (const GaugeRow& row : gauge_rows) {
        QCOMPARE(plugin(row.class_name)->includeFile(), QLatin1StringView(row.header));
        QVERIFY(text.contains(QByteArray("<header>") + row.header + "</header>"));
    }
}

void GaugesPluginTest::everyGaugeIsMadeForItsParentAndDrawnLive() {
    for (const GaugeRow& row : gauge_rows) {
        QWidget parent;
        QWidget* made = plugin(row.class_name)->createWidget(&parent);
        QCOMPARE(made->metaObject()->className(), row.class_name);
        QCOMPARE(made->parentWidget(), &parent);
        const std::unique_ptr<QWidget> itself(row.make());
        QCOMPARE(made->size(), itself->size());
        QCOMPARE(rendered(*made), rendered(*itself));
    }
}

void GaugesPluginTest::everyPropertyCanBeEditedAndShows_data() {
    QTest::addColumn<PropertyRow>("row");
    for (const PropertyRow& row : propertyRows()) {
        QTest::addRow("%s %s", row.class_name, row.property) << row;
    }
}

void GaugesPluginTest::everyPropertyCanBeEditedAndShows() {
    QFETCH(PropertyRow, row);
    const std::unique_ptr<QWidget> gauge(plugin(row.class_name)->createWidget(nullptr));
    const int index = gauge->metaObject()->indexOfProperty(row.property);
    QVERIFY(index >= 0);
    const QMetaProperty property = gauge->metaObject()->property(index);
    QVERIFY(property.isDesignable());
    QVERIFY(property.isWritable());
    QVERIFY(property.isStored());
    const QImage before = rendered(*gauge);
    QVERIFY(property.read(gauge.get()) != row.value);
    QVERIFY(property.write(gauge.get(), row.value));
    QCOMPARE(property.read(gauge.get()), row.value);
    QVERIFY(rendered(*gauge) != before);
}

void GaugesPluginTest::noPropertyIsLeftOut() {
    for (const GaugeRow& row : gauge_rows) {
        const std::unique_ptr<QWidget> gauge(plugin(row.class_name)->createWidget(nullptr));
        QStringList own;
        for (int i = QWidget::staticMetaObject.propertyCount(); i < gauge->metaObject()->propertyCount();
             ++i) {
            own << QLatin1StringView(gauge->metaObject()->property(i).name());
        }
        QStringList edited;
        for (const PropertyRow& each : propertyRows()) {
            if (QLatin1StringView(each.class_name) == QLatin1StringView(row.class_name)) {
                edited << QLatin1StringView(each.property);
            }
        }
        QCOMPARE(own, edited);
    }
}

void GaugesPluginTest::iconsAreDrawnFromTheGauges() {
    for (const int side : {16, 24, 48}) {
        for (const GaugeRow& row : gauge_rows) {
            const QPixmap icon = plugin(row.class_name)->icon().pixmap(side, side);
            QCOMPARE(icon.size(), QSize(side, side));
            QCOMPARE(icon.toImage().pixelColor(0, 0).alpha(), 0);  // round things leave their corners free
            const double red = redShare(icon.toImage());
            QVERIFY2(red > row.least_red && red < 90, qPrintable(QString::number(red)));
        }
    }
}

void GaugesPluginTest::droppedGaugeHasASizeAndANameOfItsOwn() {
    for (const GaugeRow& row : gauge_rows) {
        QByteArray text = plugin(row.class_name)->domXml().toUtf8();
        // In the widget box the text is a part of a form; a form by itself has a version.
        text.replace("<ui ", "<ui version=\"4.0\" ");
        QBuffer form(&text);
        QVERIFY(form.open(QIODevice::ReadOnly));
        const std::unique_ptr<QWidget> dropped = loaded(form, true);
        QVERIFY(dropped != nullptr);
        QCOMPARE(dropped->metaObject()->className(), row.class_name);
        QCOMPARE(dropped->objectName(), QLatin1StringView(row.object_name));
        QCOMPARE(dropped->size(), row.dropped_size);
    }
}

void GaugesPluginTest::formShowsTheGauges() {
    const std::unique_ptr<QWidget> form = loadedPanel(true);
    QVERIFY(form != nullptr);
    QDialog compiled;
    Ui_Dialog ui;
    ui.setupUi(&compiled);
    QCOMPARE(form->size(), compiled.size());
    for (QWidget* gauge :
         std::initializer_list<QWidget*>{ui.thermometer, ui.Nopeus_manometer, ui.RedLed, ui.GreenLed,
                                         ui.SendLed, ui.ReceiveLed, ui.FixLed}) {
        auto* shown = form->findChild<QWidget*>(gauge->objectName());
        QVERIFY(shown != nullptr);
        QCOMPARE(shown->metaObject()->className(), gauge->metaObject()->className());
        QCOMPARE(shown->geometry(), gauge->geometry());
        QCOMPARE(rendered(*shown), rendered(*gauge));
    }
}

void GaugesPluginTest::formWithoutThePluginShowsNone() {
    constexpr int gauges_on_the_form = 7;
    for (int i = 0; i < gauges_on_the_form; ++i) {
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QStringLiteral("unable to create a custom widget")));
    }
    const std::unique_ptr<QWidget> form = loadedPanel(false);
    QVERIFY(form != nullptr);
    auto* shown = form->findChild<QWidget*>(QStringLiteral("Nopeus_manometer"));
    QVERIFY(shown != nullptr);
    QCOMPARE(shown->metaObject()->className(), "QWidget");
    QCOMPARE(rendered(*shown), emptyPicture(shown->size()));
}

QTEST_MAIN(GaugesPluginTest)
#include "gaugesplugin_test.moc"
