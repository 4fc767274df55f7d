#include <QAccessible>
#include <QApplication>
#include <QSet>
#include <QTranslator>
#include <QtTest>

#include "dialog.h"
#include "widgets/abstractmeter.h"
#include "widgets/led.h"

namespace {

/// What clients are told of the panel's gauges, by object name.
struct GaugeRow {
    const char* object_name;
    const char* name;
    const char* words_at_the_start;
};

constexpr GaugeRow gauge_rows[] = {
    {"thermometer", "Akun jännite", "0 [C]"},
    {"Nopeus_manometer", "Moottorin kierrosnopeus", "0 [rpm]"},
    {"RedLed", "Portti kiinni", "päällä"},
    {"GreenLed", "Portti auki", "pois"},
    {"SendLed", "Lähettää", "pois"},
    {"ReceiveLed", "Vastaanottaa", "pois"},
    {"FixLed", "Yhteys", "pois"},
};

class BracketTranslator : public QTranslator {
public:
    QString translate(const char* context, const char* source, const char* /*disambiguation*/,
                      int /*n*/) const override {
        const bool is_the_panels = QLatin1StringView(context) == QLatin1StringView("Dialog");
        return is_the_panels ? QStringLiteral("[") + QString::fromUtf8(source) + QStringLiteral("]")
                             : QString();
    }
    bool isEmpty() const override { return false; }
};

QString told(QWidget* gauge, QAccessible::Text kind) {
    return QAccessible::queryAccessibleInterface(gauge)->text(kind);
}

}  // namespace

class GaugeNamesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyGaugeTellsItsNameAndReading();
    void noGaugeIsForgottenOrMistakenForAnother();
    void meterTellsThePanelsRange();
    void wordsFollowThePanel();
    void namesFollowTheLanguage();
};

void GaugeNamesTest::everyGaugeTellsItsNameAndReading() {
    const Dialog dialog;
    for (const GaugeRow& row : gauge_rows) {
        auto* gauge = dialog.findChild<QWidget*>(QLatin1StringView(row.object_name));
        QVERIFY(gauge != nullptr);
        QCOMPARE(told(gauge, QAccessible::Name), QString::fromUtf8(row.name));
        QCOMPARE(told(gauge, QAccessible::Value), QString::fromUtf8(row.words_at_the_start));
        QCOMPARE(told(gauge, QAccessible::Description), QString::fromUtf8(row.words_at_the_start));
    }
}

void GaugeNamesTest::noGaugeIsForgottenOrMistakenForAnother() {
    const Dialog dialog;
    QSet<QString> names;
    qsizetype gauges = 0;
    for (auto* gauge : dialog.findChildren<WidgetWithBackground*>()) {
        ++gauges;
        names.insert(told(gauge, QAccessible::Name));
        QVERIFY(told(gauge, QAccessible::Name) != gauge->objectName());
    }
    QCOMPARE(gauges, static_cast<qsizetype>(std::size(gauge_rows)));
    QCOMPARE(names.size(), gauges);
}

void GaugeNamesTest::meterTellsThePanelsRange() {
    const Dialog dialog;
    auto* dial = dialog.findChild<AbstractMeter*>(QStringLiteral("Nopeus_manometer"));
    QAccessibleValueInterface* value = QAccessible::queryAccessibleInterface(dial)->valueInterface();
    QCOMPARE(value->minimumValue(), QVariant(0.0));
    QCOMPARE(value->maximumValue(), QVariant(2500.0));
}

void GaugeNamesTest::wordsFollowThePanel() {
    Dialog dialog;
    dialog.KirjoitaIkkunaan(QStringLiteral("Portti auki"));
    QCOMPARE(told(dialog.findChild<Led*>(QStringLiteral("GreenLed")), QAccessible::Value),
             QString::fromUtf8("päällä"));
    QCOMPARE(told(dialog.findChild<Led*>(QStringLiteral("RedLed")), QAccessible::Value),
             QStringLiteral("pois"));
    dialog.VastaanotaArvot(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 39);
    QCOMPARE(told(dialog.findChild<QWidget*>(QStringLiteral("Nopeus_manometer")), QAccessible::Value),
             QStringLiteral("10737 [rpm]"));
}

void GaugeNamesTest::namesFollowTheLanguage() {
    const Dialog dialog;
    auto* dial = dialog.findChild<QWidget*>(QStringLiteral("Nopeus_manometer"));
    BracketTranslator translator;
    QVERIFY(QCoreApplication::installTranslator(&translator));
    QTRY_COMPARE(told(dial, QAccessible::Name), QStringLiteral("[Moottorin kierrosnopeus]"));
    QCoreApplication::removeTranslator(&translator);
    QTRY_COMPARE(told(dial, QAccessible::Name), QStringLiteral("Moottorin kierrosnopeus"));
}

QTEST_MAIN(GaugeNamesTest)
#include "gaugenames_test.moc"
