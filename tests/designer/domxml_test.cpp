#include <QPluginLoader>
#include <QRegularExpression>
#include <QtTest>
#include <QtUiPlugin/QDesignerCustomWidgetCollectionInterface>
#include <memory>

class DomXmlTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyTextOfAGaugeIsEditedInOneLineAndNoOther();
};

void DomXmlTest::everyTextOfAGaugeIsEditedInOneLineAndNoOther() {
    QPluginLoader loader(QStringLiteral(PLUGIN_FILE));
    auto* collection = qobject_cast<QDesignerCustomWidgetCollectionInterface*>(loader.instance());
    QVERIFY2(collection != nullptr, qPrintable(loader.errorString()));
    QCOMPARE(collection->customWidgets().size(), 3);
    for (QDesignerCustomWidgetInterface* plugin : collection->customWidgets()) {
        const std::unique_ptr<QWidget> gauge(plugin->createWidget(nullptr));
        QStringList texts;
        const QMetaObject* const type = gauge->metaObject();
        for (int i = QWidget::staticMetaObject.propertyCount(); i < type->propertyCount(); ++i) {
            if (type->property(i).metaType() == QMetaType::fromType<QString>()) {
                texts << QLatin1StringView(type->property(i).name());
            }
        }
        const QRegularExpression line_text(
            QStringLiteral("<stringpropertyspecification name=\"(\\w+)\" type=\"singleline\"/>"));
        QStringList told;
        for (const QRegularExpressionMatch& match : line_text.globalMatch(plugin->domXml())) {
            told << match.captured(1);
        }
        QCOMPARE(told, texts);
    }
}

QTEST_MAIN(DomXmlTest)
#include "domxml_test.moc"
