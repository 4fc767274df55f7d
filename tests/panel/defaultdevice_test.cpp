#include <QApplication>
#include <QComboBox>
#include <QTest>
#include <cstring>

#include "controlthread.h"
#include "dialog.h"
#include "mainwindow.h"
#include "tests/support/childprocess.h"
#include "tests/support/pseudoterminal.h"

// What is built without a device: the line stands under the default name for a child program alone.
class DefaultDeviceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void isOpenedByWhatIsBuiltWithoutOne_data();
    void isOpenedByWhatIsBuiltWithoutOne();
};

void DefaultDeviceTest::initTestCase() {
    const ChildResult way = run_program({WITH_LINE, "--which"});
    QVERIFY2(way.status == 0, way.err.c_str());
    qInfo("%s", way.out.c_str());
}

void DefaultDeviceTest::isOpenedByWhatIsBuiltWithoutOne_data() {
    QTest::addColumn<QByteArray>("scene");
    QTest::addColumn<unsigned int>("speed");
    QTest::addColumn<QByteArray>("way");
    // The way that is taken on this machine, and the one that is possible on any.
    for (const QByteArray way : {"", "preload"}) {
        const char* const name = way.isEmpty() ? "as here" : "preloaded";
        QTest::addRow("the link, %s", name) << QByteArray("link") << static_cast<unsigned int>(B38400) << way;
        QTest::addRow("the terminal window, %s", name)
            << QByteArray("window") << static_cast<unsigned int>(B57600) << way;
        QTest::addRow("the terminal window's panel, %s", name)
            << QByteArray("panel") << static_cast<unsigned int>(B115200) << way;
    }
}

void DefaultDeviceTest::isOpenedByWhatIsBuiltWithoutOne() {
    QFETCH(const QByteArray, scene);
    QFETCH(const unsigned int, speed);
    QFETCH(const QByteArray, way);
    const PseudoTerminal line;
    const std::string program = QCoreApplication::applicationFilePath().toStdString();
    const ChildResult result =
        run_program({WITH_LINE, "--way", way.toStdString(), line.path(), program, scene.toStdString()});
    QVERIFY2(result.status == 0, result.err.c_str());
    QCOMPARE(line.attributes().c_cflag, speed | CS8 | CLOCAL | CREAD);
}

namespace {

void choose_speed(const QWidget& window, const char* list, int index) {
    window.findChild<QComboBox*>(QLatin1String(list))->setCurrentIndex(index);
}

int play_scene(const char* scene) {
    if (std::strcmp(scene, "link") == 0) {
        ControlThread link;
        link.AvaaPortti(2, 200);
        return 0;
    }
    MainWindow window;
    if (std::strcmp(scene, "window") == 0) {
        choose_speed(window, "PortinNopeus", 3);
        window.OpenPort();
        return 0;
    }
    auto* const panel = window.findChild<Dialog*>();
    choose_speed(*panel, "comboBox_bauds", 4);
    panel->PortinAvaus();
    return 0;
}

}  // namespace

// The test is its own child program: with the name of a scene as argument it plays that scene.
int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    if (argc == 2 && (std::strcmp(argv[1], "link") == 0 || std::strcmp(argv[1], "window") == 0 ||
                      std::strcmp(argv[1], "panel") == 0)) {
        return play_scene(argv[1]);
    }
    DefaultDeviceTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "defaultdevice_test.moc"
