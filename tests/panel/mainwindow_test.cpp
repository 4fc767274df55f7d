#include "mainwindow.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QComboBox>
#include <QCoreApplication>
#include <QDir>
#include <QLCDNumber>
#include <QLabel>
#include <QMetaMethod>
#include <QPushButton>
#include <QSlider>
#include <QTest>
#include <QTextEdit>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "tests/panel/brackettranslator.h"
#include "tests/panel/paintcounter.h"
#include "tests/support/childprocess.h"
#include "tests/support/pseudoterminal.h"
#include "ui_mainwindow.h"

namespace {

// Number of threads of this process.
qsizetype threads() {
    return QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
}

bool is_null_device(int descriptor) {
    struct stat have = {};
    struct stat null_device = {};
    return fstat(descriptor, &have) == 0 && stat("/dev/null", &null_device) == 0 &&
           have.st_rdev == null_device.st_rdev;
}

// An exit handler for a child process: the toolkit's global objects count on threads that the child does not
// have.
void leave_at_once(int status, void* /*unused*/) {
    std::fflush(nullptr);
    _exit(status);
}

}  // namespace

class MainWindowTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void startsWithTheLineClosed();
    void isAWindowWithAndWithoutAParent();
    void offersTheFiveSpeedsAndChoosesTheFirst();
    void declaresItsSlotsInOrder();
    void openButtonOpensTheLineAtTheChosenSpeed_data();
    void openButtonOpensTheLineAtTheChosenSpeed();
    void openingTriesAgainWhenTheLineComesAsDescriptorZero();
    void readingLogsThreeBytesAndABlankLine();
    void middleByteIsSigned_data();
    void middleByteIsSigned();
    void readingNothingLogsTheOldBytesAgain();
    void timerReads();
    void readingStartsNoThread();
    void closeButtonClosesTheLineAndEndsTheReading();
    void closingAClosedLineIsHarmless();
    void lineCanBeOpenedAgain();
    void dialogButtonOpensAPanelModalToTheWindow();
    void panelOfTheWindowUsesTheSameLine();
    void itsOwnWidgetsAreFoundBeforeThoseOfThePanel();
    void sliderIsShownAndNeverSent();
    void languageChangeAppliesEveryTextAgain();
    void otherChangesLeaveTheTexts();
    void changesReachTheToolkit();
    void missingDeviceEndsTheProcess();
    void lineThatCannotBeReadEndsTheProcess();

private:
    template <typename Widget>
    Widget* get(const char* name) const {
        // The window's own: its panel has labels of the same names.
        return window_->centralWidget()->findChild<Widget*>(QString::fromLatin1(name));
    }
    QString log() const { return get<QTextEdit>("textEdit")->toPlainText(); }
    const QTimer* timer() const { return window_->findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly); }
    void click_on(const char* name) const { QTest::mouseClick(get<QPushButton>(name), Qt::LeftButton); }
    void open() const;
    void arrive(const std::string& bytes) const;

    std::unique_ptr<PseudoTerminal> line_;
    std::unique_ptr<MainWindow> window_;
};

void MainWindowTest::init() {
    line_ = std::make_unique<PseudoTerminal>();
    window_ = std::make_unique<MainWindow>(nullptr, line_->path());
}

void MainWindowTest::cleanup() {
    window_.reset();
    line_.reset();
}

// Opens the line and empties the log; the timer's own reads are kept away from the test's.
void MainWindowTest::open() const {
    click_on("AvaaporttiNappi");
    window_->findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly)->stop();
    get<QTextEdit>("textEdit")->clear();
}

// Sends `bytes` and waits until the window could read all of them.
void MainWindowTest::arrive(const std::string& bytes) const {
    const int near_end = ::open(line_->path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    line_->send(bytes);
    const bool arrived = line_->wait_readable(near_end, static_cast<int>(bytes.size()));
    ::close(near_end);
    QVERIFY(arrived);
}

void MainWindowTest::startsWithTheLineClosed() {
    QCOMPARE(window_->windowTitle(), QStringLiteral("MainWindow"));
    QCOMPARE(window_->size(), QSize(447, 362));
    QVERIFY(timer() != nullptr);
    QVERIFY(!timer()->isActive());
    QCOMPARE(log(), QString());
    QVERIFY(window_->findChild<Dialog*>()->isHidden());
}

void MainWindowTest::isAWindowWithAndWithoutAParent() {
    QCOMPARE(window_->parent(), nullptr);
    QVERIFY(window_->isWindow());
    QCOMPARE(MainWindow().parent(), nullptr);
    QWidget owner;
    const MainWindow owned(&owner, line_->path());
    QCOMPARE(owned.parentWidget(), &owner);
    QVERIFY(owned.isWindow());
}

void MainWindowTest::offersTheFiveSpeedsAndChoosesTheFirst() {
    const auto* const speeds = get<QComboBox>("PortinNopeus");
    QStringList texts;
    for (int i = 0; i < speeds->count(); ++i) {
        texts << speeds->itemText(i);
    }
    QCOMPARE(texts, QStringList({QStringLiteral("9600"), QStringLiteral("19200"), QStringLiteral("38400"),
                                 QStringLiteral("57600"), QStringLiteral("115200")}));
    QCOMPARE(speeds->currentIndex(), 0);
}

void MainWindowTest::declaresItsSlotsInOrder() {
    QStringList names;
    const QMetaObject& meta = MainWindow::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        names << QString::fromLatin1(meta.method(i).methodSignature());
    }
    QCOMPARE(names, QStringList({QStringLiteral("readLoop()"), QStringLiteral("writeLoop()"),
                                 QStringLiteral("OpenDialog()"), QStringLiteral("OpenPort()"),
                                 QStringLiteral("ClosePort()")}));
}

void MainWindowTest::openButtonOpensTheLineAtTheChosenSpeed_data() {
    QTest::addColumn<int>("index");
    QTest::addColumn<unsigned int>("speed");
    QTest::newRow("9600") << 0 << static_cast<unsigned int>(B9600);
    QTest::newRow("19200") << 1 << static_cast<unsigned int>(B19200);
    QTest::newRow("38400") << 2 << static_cast<unsigned int>(B38400);
    QTest::newRow("57600") << 3 << static_cast<unsigned int>(B57600);
    QTest::newRow("115200") << 4 << static_cast<unsigned int>(B115200);
}

void MainWindowTest::openButtonOpensTheLineAtTheChosenSpeed() {
    QFETCH(const int, index);
    QFETCH(const unsigned int, speed);
    get<QComboBox>("PortinNopeus")->setCurrentIndex(index);
    click_on("AvaaporttiNappi");
    const termios attributes = line_->attributes();
    QCOMPARE(cfgetospeed(&attributes), speed);
    QCOMPARE(log(), QStringLiteral("Serial port opened"));
    QVERIFY(timer()->isActive());
    QCOMPARE(timer()->interval(), 300);
}

void MainWindowTest::openingTriesAgainWhenTheLineComesAsDescriptorZero() {
    ::close(STDIN_FILENO);
    click_on("AvaaporttiNappi");
    QCOMPARE(log(), QStringLiteral("Serial port opened"));
    QVERIFY(is_null_device(STDIN_FILENO));
    arrive("\x05\x06\x07");
    window_->readLoop();
    QCOMPARE(log(), QStringLiteral("Serial port opened\n5\n6\n7\n "));
}

void MainWindowTest::readingLogsThreeBytesAndABlankLine() {
    open();
    arrive("\x01\x02\x03\x04");
    window_->readLoop();
    QCOMPARE(log(), QStringLiteral("1\n2\n3\n "));
    QCOMPARE(get<QLCDNumber>("lcdNumber_bytes")->intValue(), 4);
    QCOMPARE(get<QLCDNumber>("lcdNumber")->intValue(), 0);
}

void MainWindowTest::middleByteIsSigned_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("logged");
    QTest::newRow("0xFF") << QByteArray("\xFF\xFF\xFF") << QStringLiteral("255\n-1\n255\n ");
    QTest::newRow("0x80") << QByteArray("\x80\x80\x80") << QStringLiteral("128\n-128\n128\n ");
    QTest::newRow("0x7F") << QByteArray("\x7F\x7F\x7F") << QStringLiteral("127\n127\n127\n ");
}

void MainWindowTest::middleByteIsSigned() {
    QFETCH(const QByteArray, bytes);
    QFETCH(const QString, logged);
    open();
    arrive(bytes.toStdString());
    window_->readLoop();
    QCOMPARE(log(), logged);
}

void MainWindowTest::readingNothingLogsTheOldBytesAgain() {
    open();
    window_->readLoop();
    QCOMPARE(log(), QStringLiteral("0\n0\n0\n "));
    arrive("\x09\x08\x07");
    window_->readLoop();
    QCOMPARE(get<QLCDNumber>("lcdNumber_bytes")->intValue(), 3);
    arrive("\x01");
    window_->readLoop();
    window_->readLoop();
    QCOMPARE(get<QLCDNumber>("lcdNumber_bytes")->intValue(), 0);
    QCOMPARE(log(), QStringLiteral("0\n0\n0\n \n9\n8\n7\n \n1\n8\n7\n \n1\n8\n7\n "));
}

void MainWindowTest::timerReads() {
    click_on("AvaaporttiNappi");
    line_->send("\x2A\x2B\x2C");
    QTRY_VERIFY_WITH_TIMEOUT(log().contains(QLatin1String("\n42\n43\n44\n \n42\n43\n44\n ")), 10000);
}

void MainWindowTest::readingStartsNoThread() {
    window_->show();
    QVERIFY(QTest::qWaitForWindowExposed(window_.get()));
    const qsizetype before = threads();
    QVERIFY(before >= 1);
    click_on("AvaaporttiNappi");
    QCOMPARE(threads(), before);
    line_->send("\x2A\x2B\x2C");
    QTRY_VERIFY_WITH_TIMEOUT(log().contains(QLatin1String("\n42\n43\n44\n ")), 10000);
    QCOMPARE(threads(), before);
    click_on("SuljeporttiNappi");
    QCOMPARE(threads(), before);
}

void MainWindowTest::closeButtonClosesTheLineAndEndsTheReading() {
    const termios before = line_->attributes();
    open();
    QVERIFY(line_->attributes().c_lflag != before.c_lflag);
    click_on("SuljeporttiNappi");
    QCOMPARE(log(), QStringLiteral("Serial port closed"));
    QVERIFY(!timer()->isActive());
    QCOMPARE(line_->attributes().c_lflag, before.c_lflag);
    QVERIFY(fcntl(STDIN_FILENO, F_GETFD) != -1);
}

void MainWindowTest::closingAClosedLineIsHarmless() {
    click_on("SuljeporttiNappi");
    click_on("SuljeporttiNappi");
    QCOMPARE(log(), QStringLiteral("Serial port closed\nSerial port closed"));
    QVERIFY(is_null_device(STDIN_FILENO));
}

void MainWindowTest::lineCanBeOpenedAgain() {
    open();
    click_on("SuljeporttiNappi");
    click_on("AvaaporttiNappi");
    QCOMPARE(log(), QStringLiteral("Serial port closed\nSerial port opened"));
    QVERIFY(timer()->isActive());
}

void MainWindowTest::dialogButtonOpensAPanelModalToTheWindow() {
    window_->show();
    click_on("OhjausNappi");
    const auto* const panel = window_->findChild<Dialog*>();
    QVERIFY(panel->isVisible());
    QVERIFY(panel->isWindow());
    QCOMPARE(panel->windowModality(), Qt::WindowModal);
    QCOMPARE(panel->size(), QSize(620, 508));
}

void MainWindowTest::panelOfTheWindowUsesTheSameLine() {
    click_on("OhjausNappi");
    window_->findChild<Dialog*>()->PortinAvaus();
    QCOMPARE(line_->receive(4), std::string("\0gnP", 4));
}

// The panel has widgets of the same kinds, and some of the same names.
void MainWindowTest::itsOwnWidgetsAreFoundBeforeThoseOfThePanel() {
    for (const char* name : {"label", "label_2", "label_3", "label_4"}) {
        const auto* const label = window_->findChild<QLabel*>(QLatin1StringView(name));
        QVERIFY(label != nullptr);
        QCOMPARE(label->window(), window_.get());
    }
    QCOMPARE(window_->findChild<QComboBox*>()->objectName(), QStringLiteral("PortinNopeus"));
    QCOMPARE(window_->findChild<QPushButton*>()->objectName(), QStringLiteral("OhjausNappi"));
    QCOMPARE(window_->children().constLast(), window_->findChild<QDialog*>());
}

void MainWindowTest::sliderIsShownAndNeverSent() {
    open();
    get<QSlider>("horizontalSlider")->setValue(120);
    window_->writeLoop();
    QCOMPARE(get<QLCDNumber>("lcdNumber")->intValue(), 120);
    QCOMPARE(line_->receive(1, 0), std::string());
}

void MainWindowTest::languageChangeAppliesEveryTextAgain() {
    BracketTranslator translator;
    QVERIFY(QCoreApplication::installTranslator(&translator));
    QTRY_COMPARE(window_->windowTitle(), QStringLiteral("[MainWindow]"));
    QCOMPARE(get<QLabel>("label")->text(), QStringLiteral("[Write serial port]"));
    QCOMPARE(get<QLabel>("label_2")->text(), QStringLiteral("[Read serial port:]"));
    QCOMPARE(get<QLabel>("label_3")->text(), QStringLiteral("[Baud rate]"));
    QCOMPARE(get<QLabel>("label_4")->text(), QStringLiteral("[bytes read]"));
    QCOMPARE(get<QPushButton>("OhjausNappi")->text(), QStringLiteral("[Ohjaus]"));
    QCOMPARE(get<QPushButton>("AvaaporttiNappi")->text(), QStringLiteral("[Avaa portti]"));
    QCOMPARE(get<QPushButton>("SuljeporttiNappi")->text(), QStringLiteral("[Sulje portti]"));
    QCoreApplication::removeTranslator(&translator);
    QTRY_COMPARE(window_->windowTitle(), QStringLiteral("MainWindow"));
}

void MainWindowTest::otherChangesLeaveTheTexts() {
    window_->setWindowTitle(QStringLiteral("other"));
    get<QLabel>("label_4")->setText(QStringLiteral("other"));
    window_->setEnabled(false);
    QCOMPARE(window_->windowTitle(), QStringLiteral("other"));
    QCOMPARE(get<QLabel>("label_4")->text(), QStringLiteral("other"));
}

void MainWindowTest::changesReachTheToolkit() {
    window_->show();
    QVERIFY(QTest::qWaitForWindowExposed(window_.get()));
    QCoreApplication::processEvents();
    PaintCounter window(window_.get());
    QEvent change(QEvent::EnabledChange);
    QCoreApplication::sendEvent(window_.get(), &change);
    QTRY_VERIFY(window.count > 0);
}

void MainWindowTest::missingDeviceEndsTheProcess() {
    const ChildResult result = run_in_child([] {
        on_exit(leave_at_once, nullptr);
        MainWindow window(nullptr, "/dev/no-such-line");
        window.OpenPort();
    });
    QCOMPARE(result.status, 1);
    QCOMPARE(result.err, std::string("Unable to open serial port: - \n: No such file or directory\n"));
}

void MainWindowTest::lineThatCannotBeReadEndsTheProcess() {
    const ChildResult result = run_in_child([] {
        on_exit(leave_at_once, nullptr);
        PseudoTerminal line;
        MainWindow window(nullptr, line.path());
        const int next_descriptor = dup(STDOUT_FILENO);
        ::close(next_descriptor);
        window.OpenPort();
        ::close(next_descriptor);
        window.readLoop();
        std::_Exit(77);
    });
    QCOMPARE(result.status, 0);
    QCOMPARE(result.out, std::string("SerialPort Read failed!\n"));
}

QTEST_MAIN(MainWindowTest)
#include "mainwindow_test.moc"
