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
constexpr QRectF whole_gauge(0, 0, 1, 1);
constexpr QRectF thermometer_bulb(0.4, 0.72, 0.2, 0.2);  // all of a thermometer would be a line

std::unique_ptr<QWidget> makeDialSample() {
    auto dial = std::make_unique<ManoMeter>();
    dial->setValue(200);
    dial->setValueOffset(0);
    return dial;
}

std::unique_ptr<QWidget> makeThermometerSample() {
    auto thermometer = std::make_unique<ThermoMeter>();
    thermometer->setValue(70);
    thermometer->setValueOffset(0);
    thermometer->setDigitOffset(0);
    return thermometer;
}

constexpr std::array gauges = {
    GaugeDescription{
        .class_name = "ManoMeter",
        .display_name = "Dial Gauge",
        .tool_tip = "A dial with a needle",
        .whats_this = "Shows a value by a needle on a round scale, green from its nominal and red from its "
                      "critical value on, and as text below the centre.",
        .header = "widgets/manometer.h",
        .start_size = {121, 121},
        .has_prefix_and_suffix = true,
        .icon_part = whole_gauge,
        .make = [](QWidget* parent) -> QWidget* { return new ManoMeter(parent); },
        .make_sample = makeDialSample,
    },
    GaugeDescription{
        .class_name = "ThermoMeter",
        .display_name = "Thermometer",
        .tool_tip = "A thermometer",
        .whats_this = "Shows a value by the fluid in an upright glass, which turns green at the nominal and "
                      "red at the critical value, and as text below the bulb.",
        .header = "widgets/thermometer.h",
        .start_size = {60, 131},
        .has_prefix_and_suffix = true,
        .icon_part = thermometer_bulb,
        .make = [](QWidget* parent) -> QWidget* { return new ThermoMeter(parent); },
        .make_sample = makeThermometerSample,
    },
    GaugeDescription{
        .class_name = "Led",
        .display_name = "Lamp",
        .tool_tip = "A lamp",
        .whats_this = "Shows whether something is on: bright in its colour while it is checked and enabled, "
                      "pale otherwise.",
        .header = "widgets/led.h",
        .start_size = {21, 21},
        .has_prefix_and_suffix = false,
        .icon_part = whole_gauge,
        .make = [](QWidget* parent) -> QWidget* { return new Led(parent); },
        .make_sample = []() -> std::unique_ptr<QWidget> { return std::make_unique<Led>(); },
    },
};

/// Part of the description of a form's class: the texts around the value are edited in one line.
constexpr QLatin1StringView prefix_and_suffix(R"(
   <propertyspecifications>
    <stringpropertyspecification name="prefix" type="singleline"/>
    <stringpropertyspecification name="suffix" type="singleline"/>
   </propertyspecifications>)");

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

QString GaugePlugin::name() const {
    return QString::fromLatin1(m_description.class_name);
}

QString GaugePlugin::group() const {
    return QStringLiteral("Gauges");
}

QString GaugePlugin::toolTip() const {
    return QString::fromLatin1(m_description.tool_tip);
}

QString GaugePlugin::whatsThis() const {
    return QString::fromLatin1(m_description.whats_this);
}

QString GaugePlugin::includeFile() const {
    return QString::fromLatin1(m_description.header);
}

QIcon GaugePlugin::icon() const {
    const std::unique_ptr<QWidget> sample = m_description.make_sample();
    QIcon icon;
    for (const int side : icon_sides) {
        icon.addPixmap(drawnIcon(*sample, m_description.icon_part, side));
    }
    return icon;
}

bool GaugePlugin::isContainer() const {
    return false;
}

QString GaugePlugin::domXml() const {
    const QString object_name = name().left(1).toLower() % QStringView(name()).mid(1);
    const QLatin1StringView line_texts =
        m_description.has_prefix_and_suffix ? prefix_and_suffix : QLatin1StringView();
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
   <header>%6</header>%7
  </customwidget>
 </customwidgets>
</ui>
)")
        .arg(QString::fromLatin1(m_description.display_name), name(), object_name)
        .arg(m_description.start_size.width())
        .arg(m_description.start_size.height())
        .arg(includeFile(), line_texts);
}

QWidget* GaugePlugin::createWidget(QWidget* parent) {
    return m_description.make(parent);
}

GaugesPlugin::GaugesPlugin(QObject* parent) : QObject(parent) {
    for (const GaugeDescription& gauge : gauges) {
        m_gauges.push_back(std::make_unique<GaugePlugin>(gauge));
    }
}

QList<QDesignerCustomWidgetInterface*> GaugesPlugin::customWidgets() const {
    QList<QDesignerCustomWidgetInterface*> plugins;
    for (const std::unique_ptr<GaugePlugin>& gauge : m_gauges) {
        plugins.append(gauge.get());
    }
    return plugins;
}
