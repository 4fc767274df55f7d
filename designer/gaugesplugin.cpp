#include "designer/gaugesplugin.h"

#include <QIcon>
#include <QPainter>
#include <QPixmap>
#include <QStringBuilder>
#include <array>

#include "widgets/led.h"
#include "widgets/manometer.h"
#include "widgets/thermometer.h"

namespace {

constexpr std::array icon_sides = {16, 22, 24, 32, 48, 64};

/// What @p gauge draws in @p part of its square, on a pixmap of @p side pixels.
QPixmap drawnIcon(QWidget& gauge, const QRectF& part, int side) {
    const double whole = side / part.width();
    gauge.resize(qRound(whole), qRound(whole));
    QPixmap pixmap(side, side);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.translate(-whole * part.left(), -whole * part.top());
    gauge.render(&painter, QPoint(), QRegion(), QWidget::RenderFlags());
    return pixmap;
}

}  // namespace

QString GaugePlugin::group() const {
    return QStringLiteral("Gauges");
}

QIcon GaugePlugin::icon() const {
    const std::unique_ptr<QWidget> sample = makeSample();
    QIcon icon;
    for (const int side : icon_sides) {
        icon.addPixmap(drawnIcon(*sample, iconPart(), side));
    }
    return icon;
}

bool GaugePlugin::isContainer() const {
    return false;
}

QString GaugePlugin::domXml() const {
    const QString object_name = name().left(1).toLower() % QStringView(name()).mid(1);
    return QStringLiteral(R"(<ui language="c++" displayname="%1">
 <widget class="%2" name="%3">
  <property name="geometry">
   <rect>
    <x>0</x>
    <y>0</y>
    <width>%4</width>
    <height>%5</height>
   </rect>
  </property>
 </widget>
 <customwidgets>
  <customwidget>
   <class>%2</class>
   <extends>QWidget</extends>
   <header>%6</header>
   <propertyspecifications>
    <stringpropertyspecification name="prefix" type="singleline"/>
    <stringpropertyspecification name="suffix" type="singleline"/>
   </propertyspecifications>
  </customwidget>
 </customwidgets>
</ui>
)")
        .arg(displayName(), name(), object_name)
        .arg(startSize().width())
        .arg(startSize().height())
        .arg(includeFile());
}

QRectF GaugePlugin::iconPart() const {
    return {0, 0, 1, 1};
}

QString ManoMeterPlugin::name() const {
    return QStringLiteral("ManoMeter");
}

QString ManoMeterPlugin::toolTip() const {
    return QStringLiteral("A dial with a needle");
}

QString ManoMeterPlugin::whatsThis() const {
    return QStringLiteral(
        "Shows a value by a needle on a round scale, green from its nominal and red from its "
        "critical value on, and as text below the centre.");
}

QString ManoMeterPlugin::includeFile() const {
    return QStringLiteral("widgets/manometer.h");
}

QWidget* ManoMeterPlugin::createWidget(QWidget* parent) {
    return new ManoMeter(parent);
}

QString ManoMeterPlugin::displayName() const {
    return QStringLiteral("Dial Gauge");
}

QSize ManoMeterPlugin::startSize() const {
    return {121, 121};
}

std::unique_ptr<QWidget> ManoMeterPlugin::makeSample() const {
    auto dial = std::make_unique<ManoMeter>();
    dial->setValue(200);
    dial->setValueOffset(0);
    return dial;
}

QString ThermoMeterPlugin::name() const {
    return QStringLiteral("ThermoMeter");
}

QString ThermoMeterPlugin::toolTip() const {
    return QStringLiteral("A thermometer");
}

QString ThermoMeterPlugin::whatsThis() const {
    return QStringLiteral(
        "Shows a value by the fluid in an upright glass, which turns green at the nominal and red at "
        "the critical value, and as text below the bulb.");
}

QString ThermoMeterPlugin::includeFile() const {
    return QStringLiteral("widgets/thermometer.h");
}

QWidget* ThermoMeterPlugin::createWidget(QWidget* parent) {
    return new ThermoMeter(parent);
}

QString ThermoMeterPlugin::displayName() const {
    return QStringLiteral("Thermometer");
}

QSize ThermoMeterPlugin::startSize() const {
    return {60, 131};
}

std::unique_ptr<QWidget> ThermoMeterPlugin::makeSample() const {
    auto thermometer = std::make_unique<ThermoMeter>();
    thermometer->setValue(70);
    thermometer->setValueOffset(0);
    thermometer->setDigitOffset(0);
    return thermometer;
}

QRectF ThermoMeterPlugin::iconPart() const {
    return {0.4, 0.72, 0.2, 0.2};
}

QString LedPlugin::name() const {
    return QStringLiteral("Led");
}

QString LedPlugin::toolTip() const {
    return QStringLiteral("A lamp");
}

QString LedPlugin::whatsThis() const {
    return QStringLiteral(
        "Shows whether something is on: bright in its colour while it is checked and enabled, pale "
        "otherwise.");
}

QString LedPlugin::includeFile() const {
    return QStringLiteral("widgets/led.h");
}

QWidget* LedPlugin::createWidget(QWidget* parent) {
    return new Led(parent);
}

QString LedPlugin::displayName() const {
    return QStringLiteral("Lamp");
}

QSize LedPlugin::startSize() const {
    return {21, 21};
}

std::unique_ptr<QWidget> LedPlugin::makeSample() const {
    return std::make_unique<Led>();
}

GaugesPlugin::GaugesPlugin(QObject* parent) : QObject(parent) {
    m_gauges.push_back(std::make_unique<ManoMeterPlugin>());
    m_gauges.push_back(std::make_unique<ThermoMeterPlugin>());
    m_gauges.push_back(std::make_unique<LedPlugin>());
}

QList<QDesignerCustomWidgetInterface*> GaugesPlugin::customWidgets() const {
    QList<QDesignerCustomWidgetInterface*> gauges;
    for (const std::unique_ptr<GaugePlugin>& gauge : m_gauges) {
        gauges.append(gauge.get());
    }
    return gauges;
}
