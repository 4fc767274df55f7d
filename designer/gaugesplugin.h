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
#include <QSize>
#include <QtUiPlugin/QDesignerCustomWidgetCollectionInterface>
#include <memory>
#include <vector>

/// What Designer is to know of a gauge. The texts are Latin-1.
struct GaugeDescription {
    const char* class_name;
    const char* display_name;  ///< name in the widget box
    const char* tool_tip;
    const char* whats_this;
    const char* header;          ///< what a form has to include
    QSize start_size;            ///< of a gauge that is dropped on a form
    bool has_prefix_and_suffix;  ///< texts around the value, which are edited in one line
    QRectF icon_part;            ///< what the icon shows of a square gauge, in shares of its side
    QWidget* (*make)(QWidget* parent);
    std::unique_ptr<QWidget> (*make_sample)();  ///< a gauge that shows something, for the icon
};

/// Tells Designer about one gauge.
class GaugePlugin : public QDesignerCustomWidgetInterface {
public:
    /// @param description  has to live as long as the plugin
    explicit GaugePlugin(const GaugeDescription& description) : m_description(description) {}

    /// @return the class
    QString name() const override;

    /// @return the group in the widget box
    QString group() const override;

    /// @return what the gauge is, in a few words
    QString toolTip() const override;

    /// @return what the gauge shows
    QString whatsThis() const override;

    /// @return the header of the class
    QString includeFile() const override;

    /// @return the gauge itself, small
    QIcon icon() const override;

    /// @return false: nothing can be put into a gauge
    bool isContainer() const override;

    /// @return what a gauge that is dropped on a form starts with: its size, and texts that are edited in one
    /// line
    QString domXml() const override;

    /// @return a gauge that belongs to @p parent
    QWidget* createWidget(QWidget* parent) override;

private:
    const GaugeDescription& m_description;
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
