/// @file
/// The gauges in Qt Designer: a plugin that puts them into its widget box and draws them in the form while it
/// is edited.
///
/// Designer loads every library in the directory `designer` of its plugin paths. From this one it gets a
/// collection of descriptions, one for each gauge: how it is called, what a form has to include for it, what
/// it looks like in the widget box, and how one is made. The made gauge is the real one, so that all its
/// properties are in the property editor and show at once. A form that is made with the plugin is an ordinary
/// form with custom widgets: it needs the gauges and their headers to be compiled, and the plugin no more.
///
/// Form loaders (QUiLoader, QFormBuilder) use the plugin in the same way.

#ifndef DESIGNER_GAUGESPLUGIN_H
#define DESIGNER_GAUGESPLUGIN_H

#include <QObject>
#include <QRectF>
#include <QtUiPlugin/QDesignerCustomWidgetCollectionInterface>
#include <memory>
#include <vector>

/// What is the same for every gauge: the group in the widget box and the way the icon is drawn.
class GaugePlugin : public QDesignerCustomWidgetInterface {
public:
    /// @return the group in the widget box
    QString group() const override;

    /// @return the gauge itself, small
    QIcon icon() const override;

    /// @return false: nothing can be put into a gauge
    bool isContainer() const override;

    /// @return what a gauge that is dropped on a form starts with: its size, and texts that are edited in one
    /// line
    QString domXml() const override;

protected:
    /// @return the name in the widget box
    virtual QString displayName() const = 0;

    /// @return width and height of a gauge that is dropped on a form
    virtual QSize startSize() const = 0;

    /// @return a gauge that shows something, without a parent, of which the icon is drawn
    virtual std::unique_ptr<QWidget> makeSample() const = 0;

    /// @return the part of a square gauge that the icon shows, as shares of its side
    virtual QRectF iconPart() const;
};

/// The dial.
class ManoMeterPlugin : public GaugePlugin {
public:
    QString name() const override;
    QString toolTip() const override;
    QString whatsThis() const override;
    QString includeFile() const override;
    QWidget* createWidget(QWidget* parent) override;

protected:
    QString displayName() const override;
    QSize startSize() const override;
    std::unique_ptr<QWidget> makeSample() const override;
};

/// The thermometer. The icon shows its bulb: all of it would be a line.
class ThermoMeterPlugin : public GaugePlugin {
public:
    QString name() const override;
    QString toolTip() const override;
    QString whatsThis() const override;
    QString includeFile() const override;
    QWidget* createWidget(QWidget* parent) override;

protected:
    QString displayName() const override;
    QSize startSize() const override;
    std::unique_ptr<QWidget> makeSample() const override;
    QRectF iconPart() const override;
};

/// The lamp.
class LedPlugin : public GaugePlugin {
public:
    QString name() const override;
    QString toolTip() const override;
    QString whatsThis() const override;
    QString includeFile() const override;
    QWidget* createWidget(QWidget* parent) override;

protected:
    QString displayName() const override;
    QSize startSize() const override;
    std::unique_ptr<QWidget> makeSample() const override;
};

/// What the library hands to Designer.
class GaugesPlugin : public QObject, public QDesignerCustomWidgetCollectionInterface {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QDesignerCustomWidgetCollectionInterface")
    Q_INTERFACES(QDesignerCustomWidgetCollectionInterface)

public:
    /// Makes the collection: dial, thermometer, lamp. @param parent  owner
    explicit GaugesPlugin(QObject* parent = nullptr);

    /// @return the descriptions, which stay the collection's
    QList<QDesignerCustomWidgetInterface*> customWidgets() const override;

private:
    std::vector<std::unique_ptr<GaugePlugin>> m_gauges;
};

#endif
