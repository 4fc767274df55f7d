#include "dialog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QGroupBox>
#include <QImage>
#include <QLCDNumber>
#include <QLabel>
#include <QMetaMethod>
#include <QMouseEvent>
#include <QPalette>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
#include <QScreen>
#include <QScrollBar>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTimer>
#include <QWindow>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>

#include "tests/panel/brackettranslator.h"
#include "tests/panel/paintcounter.h"
#include "tests/support/childprocess.h"
#include "tests/support/pseudoterminal.h"
#include "ui_dialog.h"

namespace {

constexpr int limit_ms = 10000;

const std::string neutral_frame = {'\0', 'g', 'n', 'P'};

// All texts that the operator can read on or about a widget.
QStringList texts_of(const QWidget* widget) {
    QStringList texts = {widget->objectName(), widget->toolTip(), widget->whatsThis()};
    for (const char* property : {"text", "title", "format", "suffix"}) {
        texts << widget->property(property).toString();
    }
    return texts;
}

// A reply of the controller with `slots` as the first bytes of its 3-byte slots; the other bytes are filler.
std::string reply(std::initializer_list<int> slot_values) {
    std::string bytes;
    for (const int value : slot_values) {
        bytes += static_cast<char>(value);
        bytes += "\xEE\xEE";
    }
    return bytes;
}

std::string frame(int throttle, int direction, int bucket, char motor) {
    return {static_cast<char>(throttle), static_cast<char>(direction), static_cast<char>(bucket), motor};
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

using Way = void (*)(Dialog&);

// White on black for the whole application, as long as it lives.
class DarkDesktop {
public:
    DarkDesktop() : usual_(QApplication::palette()) {
        QPalette dark;
        for (int role = 0; role < QPalette::NColorRoles; role++) {
            dark.setColor(static_cast<QPalette::ColorRole>(role), Qt::black);
        }
        for (const auto text : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
            dark.setColor(text, Qt::white);
        }
        QApplication::setPalette(dark);
        QApplication::setPalette(dark, "QTextBrowser");
    }
    ~DarkDesktop() {
        QApplication::setPalette(usual_);
        QApplication::setPalette(usual_, "QTextBrowser");
    }
    DarkDesktop(const DarkDesktop&) = delete;
    DarkDesktop& operator=(const DarkDesktop&) = delete;

private:
    QPalette usual_;
};

}  // namespace

Q_DECLARE_METATYPE(Way)

class DialogTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    // The start
    void startsNarrowAndLowWithAFixedSize();
    void startsIdleWithoutTouchingTheLine();
    void offersTheFiveSpeedsAndChoosesTheFirst();
    void showsTheFirstSetPoints();
    void startsWithTheRedLampAlone();
    void declaresItsSignalsInOrder();
    void declaresItsSlotsInOrder();
    void telemetryBytesAreARegisteredStreamableType();
    void noSlotIsConnectedByItsName();

    // Set-points
    void throttleSliderSetsTheThrottle();
    void directionSliderSetsTheDirection_data();
    void directionSliderSetsTheDirection();
    void bucketSliderSetsTheBucket_data();
    void bucketSliderSetsTheBucket();
    void controlVoltagesStartAtZero();
    void setPointsLeaveThroughTheTimerOnly();

    // Steering pad
    void pressOnThePadSteers_data() { add_pad_points(); }
    void pressOnThePadSteers();
    void dragOnThePadSteersTheOtherWay_data() { add_pad_points(); }
    void dragOnThePadSteersTheOtherWay();
    void slidersHoldThePadWithinTheirRanges();
    void positionBesideThePadMovesTheCrossOnly_data();
    void positionBesideThePadMovesTheCrossOnly();
    void positionBesideThePadIsDraggedTo_data() { positionBesideThePadMovesTheCrossOnly_data(); }
    void positionBesideThePadIsDraggedTo();
    void rightPressAppliesTheLastLeftPressAgain();
    void rightPressAppliesTheLastDragAgain();
    void rightPressBesideThePadAppliesTheLastPositionToo();
    void rightPressBeforeAnyLeftOneDoesNothing();
    void rightDragSteers();
    void middlePressDoesNotMoveTheCross();
    void moveWithoutAPressDoesNothing();
    void releaseEndsTheDrag();
    void releaseOfOneOfTwoButtonsEndsTheDrag();
    void dragGoesOnOverTheBrowserBesideThePad();
    void pressOnTheBrowserOverThePadDoesNotSteer();
    void padIsRepaintedAtOnce();
    void positionBesideThePadDoesNotRepaintThePad();
    void crossIsDrawnInBlueAroundThePosition();
    void crossShowsThroughThePad();
    void crossFollowsThePositionOnTheScreen();

    // Telemetry
    void motorSpeedIsShownInRpm_data();
    void motorSpeedIsShownInRpm();
    void valuesAreShownAsSixteenBitNumbers();
    void capacityBeyondTheBarLeavesTheBar();
    void latitudeIsASigned32BitNumber_data();
    void latitudeIsASigned32BitNumber();
    void rawBytesStandCrosswise();
    void byteCountIsShown();
    void receiveLampAlternatesWhileBytesArrive();
    void emptyReadPutsTheReceiveLampOut();
    void otherDisplaysAreLeftAlone();
    void sendLampChangesWithEachFrame();
    void eachReportShowsAllThatARepaintShows();
    void unchangedNumbersAreNotPaintedAgain();

    // Port state
    void statusTextsAreAppended();
    void openTextLightsTheGreenLamp();
    void closedTextLightsTheRedLamp();
    void otherTextsLeaveTheLamps_data();
    void otherTextsLeaveTheLamps();
    void textsLikeTheOpenOneLeaveTheLamps_data();
    void textsLikeTheOpenOneLeaveTheLamps();

    // Switches
    void extraPaneWidensThePanel();
    void navigationPaneMakesThePanelHigher();
    void navigationFrameStandsThereUntilItIsSwitchedOff();
    void driveModeIsStored();
    void languageChangeAppliesEveryTextAgain();
    void otherChangesLeaveTheTexts();
    void changesReachTheToolkit();

    // The link
    void openButtonOpensTheLineAtTheChosenSpeed_data();
    void openButtonOpensTheLineAtTheChosenSpeed();
    void openButtonStartsTimerThenPortThenThread();
    void openButtonHandsTheRateOver();
    void slidersReachTheWire();
    void padReachesTheWire();
    void motorButtonSwitchesOnAndOffByMouse();
    void telemetryReachesThePanel();
    void silentLineShowsZeroBytesAndStaleValues();
    void rubbishNeverChangesTheSetPoints();
    void closeButtonClosesTheLineAndLeavesTheTimer();
    void closeAndOpenAgainStartsTheCycleAgain();
    void closeWithoutAnOpenPortIsHarmless();
    void setPointsBeforeTheFirstOpenArriveWithTheTimer();
    void statusViewKeepsItsLastThousandLines();
    void statusViewStaysAtItsNewestLine();
    void textsFitIntoTheirPlaces();
    void panelIsLightOnADarkDesktop();
    void panelStaysLightWhenTheDesktopTurnsDark();
    void destructionWhileDrivingBringsTheVehicleToRest();
    void destructionWithReportsUnderWayIsSafe();
    void closingWhileDrivingBringsTheVehicleToRest_data();
    void closingWhileDrivingBringsTheVehicleToRest();
    void closedPanelShowsThePortClosedAndOpensItAgain();
    void closingThePanelAfterThePortSendsAndSaysNothing();
    void missingDeviceEndsTheProcess();

private:
    template <typename Widget>
    Widget* get(const char* name) const {
        auto* const widget = dialog_->findChild<Widget*>(QString::fromLatin1(name));
        return widget != nullptr ? widget : (qFatal("no widget %s", name), nullptr);
    }
    QString text(const char* name) const { return get<QLabel>(name)->text(); }
    QString set_value(const char* name) const { return get<QTextBrowser>(name)->toPlainText(); }
    QString status() const { return get<QTextBrowser>("Browser_Status")->toPlainText(); }
    int slider(const char* name) const { return get<QScrollBar>(name)->value(); }
    bool lit(const char* name) const { return get<QWidget>(name)->isEnabled(); }
    static QStringList own_methods(QMetaMethod::MethodType type);

    void show();
    void press(QPoint at, Qt::MouseButton button = Qt::LeftButton) const;
    void move(QPoint to) const;
    void release(QPoint at, Qt::MouseButton button = Qt::LeftButton) const;
    void click_on(const char* name) const;
    void widen_sliders() const;
    void rest_sliders() const;
    static void add_pad_points();
    bool cross_stands_at(QPoint centre) const;
    void report(std::initializer_list<int> slot_values, int bytes) const;
    void open(int rate_ms = 10) const;
    bool wire_carries(const std::string& expected) const;
    void send_mouse(QEvent::Type type, QPoint at, Qt::MouseButton button, Qt::MouseButtons held) const;
    QList<int> set_points() const;

    std::unique_ptr<PseudoTerminal> line_;
    std::unique_ptr<Dialog> dialog_;
};

void DialogTest::init() {
    line_ = std::make_unique<PseudoTerminal>();
    dialog_ = std::make_unique<Dialog>(nullptr, line_->path());
}

void DialogTest::cleanup() {
    dialog_.reset();
    line_.reset();
}

QStringList DialogTest::own_methods(QMetaMethod::MethodType type) {
    QStringList names;
    const QMetaObject& meta = Dialog::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        if (meta.method(i).methodType() == type) {
            names << QString::fromLatin1(meta.method(i).methodSignature());
        }
    }
    return names;
}

void DialogTest::show() {
    dialog_->show();
    QVERIFY(QTest::qWaitForWindowExposed(dialog_.get()));
}

// The mouse goes through the window, so that the widgets under it get their say first.
void DialogTest::press(QPoint at, Qt::MouseButton button) const {
    QTest::mousePress(dialog_->windowHandle(), button, {}, at);
}

void DialogTest::move(QPoint to) const {
    QTest::mouseMove(dialog_->windowHandle(), to);
}

void DialogTest::release(QPoint at, Qt::MouseButton button) const {
    QTest::mouseRelease(dialog_->windowHandle(), button, {}, at);
}

void DialogTest::click_on(const char* name) const {
    const auto* const widget = get<QWidget>(name);
    const QPoint at = widget->mapTo(dialog_.get(), QPoint(10, widget->height() / 2));
    QTest::mouseClick(dialog_->windowHandle(), Qt::LeftButton, {}, at);
}

// Lets the sliders take whatever the pad asks for.
void DialogTest::widen_sliders() const {
    for (const char* name : {"KaasuSlider", "SuuntaSlider", "KauhaSlider"}) {
        get<QScrollBar>(name)->setRange(-1000, 1000);
    }
}

// Moves the sliders to values that no press on the pad gives.
void DialogTest::rest_sliders() const {
    get<QScrollBar>("KaasuSlider")->setValue(1);
    get<QScrollBar>("SuuntaSlider")->setValue(103);
    get<QScrollBar>("KauhaSlider")->setValue(110);
}

// Whether both lines of the cross stand around `centre` in full.
bool DialogTest::cross_stands_at(QPoint centre) const {
    const QImage picture = dialog_->grab().toImage();
    for (int i = -10; i <= 10; ++i) {
        for (const QPoint& point : {centre + QPoint(i, i), centre + QPoint(i, -i)}) {
            if (picture.pixelColor(point) != QColor(Qt::blue)) {
                return false;
            }
        }
    }
    return true;
}

void DialogTest::report(std::initializer_list<int> slot_values, int bytes) const {
    std::array<uint8_t, 13> s = {};
    std::transform(slot_values.begin(), slot_values.end(), s.begin(),
                   [](int value) { return static_cast<uint8_t>(value); });
    dialog_->VastaanotaArvot(s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7], s[8], s[9], s[10], s[11], s[12],
                             bytes);
}

void DialogTest::open(int rate_ms) const {
    get<QSpinBox>("RateSpinBox")->setValue(rate_ms);
    click_on("pushButton_open");
}

// Whether a frame `expected` arrives at the vehicle, with the panel's event loop running meanwhile.
bool DialogTest::wire_carries(const std::string& expected) const {
    const QDeadlineTimer end(limit_ms);
    std::string received;
    while (!end.hasExpired()) {
        QCoreApplication::processEvents();
        received += line_->receive(4, 20);
        const std::size_t whole_frames = received.size() - received.size() % 4;
        for (std::size_t i = 0; i < whole_frames; i += 4) {
            if (received.compare(i, 4, expected) == 0) {
                return true;
            }
        }
        received.erase(0, whole_frames);
    }
    return false;
}

// A mouse event on the panel itself, wherever the toolkit would have sent it, and without the event loop.
void DialogTest::send_mouse(QEvent::Type type, QPoint at, Qt::MouseButton button,
                            Qt::MouseButtons held) const {
    QMouseEvent event(type, QPointF(at), QPointF(at), button, held, Qt::NoModifier);
    QCoreApplication::sendEvent(dialog_.get(), &event);
}

// What the timer would hand to the link now.
QList<int> DialogTest::set_points() const {
    QSignalSpy spy(dialog_.get(), &Dialog::PaivitaData);
    dialog_->paivitys();
    QList<int> values;
    for (const QVariant& value : spy.value(0)) {
        values << value.toInt();
    }
    return values;
}

// ------------------------------------------------------------------------------------------- The start

void DialogTest::startsNarrowAndLowWithAFixedSize() {
    QCOMPARE(dialog_->minimumSize(), QSize(620, 508));
    QCOMPARE(dialog_->maximumSize(), QSize(620, 508));
    QCOMPARE(dialog_->size(), QSize(620, 508));
    QVERIFY(dialog_->isWindow());
    QVERIFY(!dialog_->isVisible());
    QCOMPARE(dialog_->objectName(), QStringLiteral("Dialog"));
}

void DialogTest::startsIdleWithoutTouchingTheLine() {
    const termios before = line_->attributes();
    show();
    QVERIFY(!dialog_->updatetimer->isActive());
    QVERIFY(!dialog_->cthread.isRunning());
    QCOMPARE(dialog_->updatetimer->parent(), dialog_.get());
    QCOMPARE(line_->attributes().c_lflag, before.c_lflag);
    QCOMPARE(line_->receive(1, 0), std::string());
    QCOMPARE(status(), QString());
}

void DialogTest::offersTheFiveSpeedsAndChoosesTheFirst() {
    const auto* const speeds = get<QComboBox>("comboBox_bauds");
    QStringList texts;
    for (int i = 0; i < speeds->count(); ++i) {
        texts << speeds->itemText(i);
    }
    QCOMPARE(texts, QStringList({QStringLiteral("9600"), QStringLiteral("19200"), QStringLiteral("38400"),
                                 QStringLiteral("57600"), QStringLiteral("115200")}));
    QCOMPARE(speeds->currentIndex(), 0);
}

void DialogTest::showsTheFirstSetPoints() {
    QCOMPARE(set_value("Browser_Kaasu"), QStringLiteral("0"));
    QCOMPARE(set_value("Browser_Suunta"), QStringLiteral("103"));
    QCOMPARE(set_value("Browser_Kauha"), QStringLiteral("110"));
    QCOMPARE(set_value("Browser_X"), QString());
    QCOMPARE(set_value("Browser_Y"), QString());
    QCOMPARE(set_points(), QList<int>({0, 103, 110}));
}

void DialogTest::startsWithTheRedLampAlone() {
    QVERIFY(lit("RedLed"));
    for (const char* lamp : {"GreenLed", "SendLed", "ReceiveLed", "FixLed"}) {
        QVERIFY(!lit(lamp));
    }
}

void DialogTest::declaresItsSignalsInOrder() {
    QCOMPARE(own_methods(QMetaMethod::Signal),
             QStringList({QStringLiteral("PaivitaData(int,int,int)"), QStringLiteral("AvaaPortti(int,int)"),
                          QStringLiteral("SuljePortti()")}));
}

void DialogTest::declaresItsSlotsInOrder() {
    QCOMPARE(own_methods(QMetaMethod::Slot),
             QStringList({QStringLiteral("LueKaasu(int)"), QStringLiteral("LueSuunta(int)"),
                          QStringLiteral("LueKauha(int)"), QStringLiteral("KirjoitaIkkunaan(QString)"),
                          QStringLiteral("PortinAvaus()"), QStringLiteral("paivitys()"),
                          QStringLiteral("VastaanotaArvot(uint8_t,uint8_t,uint8_t,uint8_t,uint8_t,uint8_t,"
                                         "uint8_t,uint8_t,uint8_t,uint8_t,uint8_t,uint8_t,uint8_t,int)"),
                          QStringLiteral("LisaIkkuna(bool)"), QStringLiteral("NaviIkkuna(bool)"),
                          QStringLiteral("VilkutaLed()"), QStringLiteral("VaihdaAjotila(bool)"),
                          QStringLiteral("SuljeThread()")}));
}

void DialogTest::telemetryBytesAreARegisteredStreamableType() {
    const QMetaType type = QMetaType::fromName("uint8_t");
    QCOMPARE(type, QMetaType::fromType<uint8_t>());
    QVERIFY(type.hasRegisteredDataStreamOperators());
}

void DialogTest::noSlotIsConnectedByItsName() {
    for (const QString& slot : own_methods(QMetaMethod::Slot)) {
        QVERIFY(!slot.startsWith(QLatin1String("on_")));
    }
}

// ------------------------------------------------------------------------------------------ Set-points

void DialogTest::throttleSliderSetsTheThrottle() {
    get<QScrollBar>("KaasuSlider")->setValue(201);
    QCOMPARE(set_value("Browser_Kaasu"), QStringLiteral("201"));
    QCOMPARE(set_points(), QList<int>({201, 103, 110}));
    QCOMPARE(dialog_->Kaasu, QStringLiteral("201"));
}

void DialogTest::directionSliderSetsTheDirection_data() {
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("millivolts");
    QTest::newRow("right end") << 35 << 682;
    QTest::newRow("even") << 104 << 2028;
    QTest::newRow("odd: truncated") << 105 << 2047;
    QTest::newRow("left end") << 175 << 3412;
}

void DialogTest::directionSliderSetsTheDirection() {
    QFETCH(const int, value);
    QFETCH(const int, millivolts);
    get<QScrollBar>("SuuntaSlider")->setValue(value);
    QCOMPARE(set_value("Browser_Suunta"), QString::number(value));
    QCOMPARE(get<QProgressBar>("SuuntaJannite")->value(), millivolts);
    QCOMPARE(get<QProgressBar>("KauhaJannite")->value(), 0);
    QCOMPARE(set_points(), QList<int>({0, value, 110}));
    QCOMPARE(dialog_->Suunta, QString::number(value));
    QCOMPARE(text("Suunta"), QStringLiteral("-"));
}

void DialogTest::bucketSliderSetsTheBucket_data() {
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("millivolts");
    QTest::newRow("top") << 47 << 916;
    QTest::newRow("even") << 112 << 2184;
    QTest::newRow("odd: truncated") << 111 << 2164;
    QTest::newRow("bottom") << 172 << 3354;
}

void DialogTest::bucketSliderSetsTheBucket() {
    QFETCH(const int, value);
    QFETCH(const int, millivolts);
    get<QScrollBar>("KauhaSlider")->setValue(value);
    QCOMPARE(set_value("Browser_Kauha"), QString::number(value));
    QCOMPARE(get<QProgressBar>("KauhaJannite")->value(), millivolts);
    QCOMPARE(get<QProgressBar>("SuuntaJannite")->value(), 0);
    QCOMPARE(set_points(), QList<int>({0, 103, value}));
    QCOMPARE(dialog_->Kauha, QString::number(value));
}

void DialogTest::controlVoltagesStartAtZero() {
    QCOMPARE(get<QProgressBar>("SuuntaJannite")->value(), 0);
    QCOMPARE(get<QProgressBar>("KauhaJannite")->value(), 0);
}

void DialogTest::setPointsLeaveThroughTheTimerOnly() {
    QSignalSpy spy(dialog_.get(), &Dialog::PaivitaData);
    get<QScrollBar>("KaasuSlider")->setValue(9);
    get<QScrollBar>("SuuntaSlider")->setValue(99);
    get<QScrollBar>("KauhaSlider")->setValue(99);
    QCOMPARE(spy.count(), 0);
    Q_EMIT dialog_->updatetimer->timeout({});
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.first(), QVariantList({9, 99, 99}));
}

// ---------------------------------------------------------------------------------------- Steering pad

void DialogTest::add_pad_points() {
    QTest::addColumn<QPoint>("at");
    QTest::addColumn<int>("x");
    QTest::addColumn<int>("y");
    QTest::addColumn<int>("bucket");
    QTest::addColumn<int>("throttle");
    QTest::newRow("bottom left") << QPoint(150, 265) << 0 << 0 << 220 << 254;
    QTest::newRow("bottom right") << QPoint(405, 265) << 255 << 0 << 220 << 254;
    QTest::newRow("top left") << QPoint(150, 10) << 0 << 255 << 35 << 256;
    QTest::newRow("top right") << QPoint(405, 10) << 255 << 255 << 35 << 256;
    QTest::newRow("centre") << QPoint(277, 138) << 127 << 127 << 35 << 0;
    QTest::newRow("just below the centre") << QPoint(277, 139) << 127 << 126 << 220 << 2;
    QTest::newRow("just above the centre") << QPoint(277, 137) << 127 << 128 << 35 << 2;
    QTest::newRow("on the pad's cross line") << QPoint(256, 60) << 106 << 205 << 35 << 156;
    QTest::newRow("right of the frame") << QPoint(390, 200) << 240 << 65 << 220 << 124;
}

void DialogTest::pressOnThePadSteers() {
    QFETCH(const QPoint, at);
    QFETCH(const int, x);
    QFETCH(const int, y);
    QFETCH(const int, bucket);
    QFETCH(const int, throttle);
    show();
    widen_sliders();
    press(at);
    QCOMPARE(set_value("Browser_X"), QString::number(x));
    QCOMPARE(set_value("Browser_Y"), QString::number(y));
    QCOMPARE(dialog_->XakseliTeksti, QString::number(x));
    QCOMPARE(dialog_->YakseliTeksti, QString::number(y));
    QCOMPARE(slider("KauhaSlider"), bucket);
    QCOMPARE(slider("KaasuSlider"), throttle);
    QCOMPARE(slider("SuuntaSlider"), x);
    QCOMPARE(set_points(), QList<int>({throttle, x, bucket}));
    release(at);
}

void DialogTest::dragOnThePadSteersTheOtherWay() {
    QFETCH(const QPoint, at);
    QFETCH(const int, x);
    QFETCH(const int, y);
    QFETCH(const int, bucket);
    QFETCH(const int, throttle);
    show();
    widen_sliders();
    press(QPoint(200, 50));
    move(at);
    QCOMPARE(set_value("Browser_X"), QString::number(x));
    QCOMPARE(set_value("Browser_Y"), QString::number(y));
    QCOMPARE(slider("KauhaSlider"), bucket);
    QCOMPARE(slider("KaasuSlider"), throttle);
    QCOMPARE(slider("SuuntaSlider"), 206 - x);
    release(at);
}

void DialogTest::slidersHoldThePadWithinTheirRanges() {
    show();
    press(QPoint(150, 265));
    QCOMPARE(set_points(), QList<int>({254, 35, 172}));
    move(QPoint(405, 10));
    QCOMPARE(set_points(), QList<int>({255, 35, 47}));
    move(QPoint(150, 265));
    QCOMPARE(set_points(), QList<int>({254, 175, 172}));
    QCOMPARE(set_value("Browser_Suunta"), QStringLiteral("175"));
    release(QPoint(150, 265));
}

void DialogTest::positionBesideThePadMovesTheCrossOnly_data() {
    QTest::addColumn<QPoint>("at");
    QTest::newRow("left") << QPoint(149, 138);
    QTest::newRow("right") << QPoint(406, 138);
    QTest::newRow("above") << QPoint(390, 9);
    QTest::newRow("below") << QPoint(340, 266);
}

void DialogTest::positionBesideThePadMovesTheCrossOnly() {
    QFETCH(const QPoint, at);
    show();
    rest_sliders();
    press(at);
    QCOMPARE(set_points(), QList<int>({1, 103, 110}));
    QCOMPARE(set_value("Browser_X"), QString());
    QCOMPARE(set_value("Browser_Y"), QString());
    QCOMPARE(QPoint(dialog_->Xaxis, dialog_->Yaxis), at);
    QCOMPARE(dialog_->grab().toImage().pixelColor(at), QColor(Qt::blue));
    release(at);
}

void DialogTest::positionBesideThePadIsDraggedTo() {
    QFETCH(const QPoint, at);
    show();
    press(QPoint(200, 50));
    rest_sliders();
    move(at);
    QCOMPARE(set_points(), QList<int>({1, 103, 110}));
    QCOMPARE(set_value("Browser_X"), QStringLiteral("50"));
    QCOMPARE(QPoint(dialog_->Xaxis, dialog_->Yaxis), at);
    release(at);
}

void DialogTest::rightPressAppliesTheLastLeftPressAgain() {
    show();
    press(QPoint(250, 60));
    release(QPoint(250, 60));
    rest_sliders();
    press(QPoint(350, 250), Qt::RightButton);
    QCOMPARE(set_points(), QList<int>({156, 100, 47}));
    QCOMPARE(QPoint(dialog_->Xaxis, dialog_->Yaxis), QPoint(250, 60));
    release(QPoint(350, 250), Qt::RightButton);
}

void DialogTest::rightPressAppliesTheLastDragAgain() {
    show();
    press(QPoint(200, 50));
    move(QPoint(250, 60));
    QCOMPARE(set_points(), QList<int>({156, 106, 47}));
    release(QPoint(250, 60));
    rest_sliders();
    press(QPoint(350, 250), Qt::RightButton);
    QCOMPARE(set_points(), QList<int>({156, 100, 47}));
    release(QPoint(350, 250), Qt::RightButton);
}

void DialogTest::rightPressBesideThePadAppliesTheLastPositionToo() {
    show();
    press(QPoint(250, 60));
    release(QPoint(250, 60));
    rest_sliders();
    press(QPoint(450, 20), Qt::RightButton);
    QCOMPARE(set_points(), QList<int>({156, 100, 47}));
    release(QPoint(450, 20), Qt::RightButton);
}

void DialogTest::rightPressBeforeAnyLeftOneDoesNothing() {
    show();
    press(QPoint(250, 60), Qt::RightButton);
    QCOMPARE(set_points(), QList<int>({0, 103, 110}));
    QCOMPARE(QPoint(dialog_->Xaxis, dialog_->Yaxis), QPoint(0, 0));
    release(QPoint(250, 60), Qt::RightButton);
}

void DialogTest::rightDragSteers() {
    show();
    press(QPoint(350, 250), Qt::RightButton);
    move(QPoint(250, 60));
    QCOMPARE(set_points(), QList<int>({156, 106, 47}));
    release(QPoint(250, 60), Qt::RightButton);
}

void DialogTest::middlePressDoesNotMoveTheCross() {
    show();
    press(QPoint(250, 60), Qt::MiddleButton);
    QCOMPARE(QPoint(dialog_->Xaxis, dialog_->Yaxis), QPoint(0, 0));
    release(QPoint(250, 60), Qt::MiddleButton);
}

void DialogTest::moveWithoutAPressDoesNothing() {
    show();
    send_mouse(QEvent::MouseMove, QPoint(250, 60), Qt::NoButton, Qt::NoButton);
    QCOMPARE(set_points(), QList<int>({0, 103, 110}));
    QCOMPARE(QPoint(dialog_->Xaxis, dialog_->Yaxis), QPoint(0, 0));
}

void DialogTest::releaseEndsTheDrag() {
    show();
    press(QPoint(200, 50));
    release(QPoint(200, 50));
    rest_sliders();
    send_mouse(QEvent::MouseMove, QPoint(250, 60), Qt::NoButton, Qt::NoButton);
    QCOMPARE(set_points(), QList<int>({1, 103, 110}));
    QCOMPARE(QPoint(dialog_->Xaxis, dialog_->Yaxis), QPoint(200, 50));
}

void DialogTest::releaseOfOneOfTwoButtonsEndsTheDrag() {
    show();
    press(QPoint(200, 50));
    send_mouse(QEvent::MouseButtonRelease, QPoint(200, 50), Qt::RightButton, Qt::LeftButton);
    rest_sliders();
    send_mouse(QEvent::MouseMove, QPoint(250, 60), Qt::NoButton, Qt::LeftButton);
    QCOMPARE(set_points(), QList<int>({1, 103, 110}));
    QCOMPARE(QPoint(dialog_->Xaxis, dialog_->Yaxis), QPoint(200, 50));
    release(QPoint(200, 50));
}

void DialogTest::dragGoesOnOverTheBrowserBesideThePad() {
    show();
    press(QPoint(200, 50));
    move(QPoint(400, 245));
    QCOMPARE(set_value("Browser_X"), QStringLiteral("250"));
    QCOMPARE(set_value("Browser_Y"), QStringLiteral("20"));
    release(QPoint(400, 245));
}

void DialogTest::pressOnTheBrowserOverThePadDoesNotSteer() {
    show();
    press(QPoint(400, 245));
    QCOMPARE(set_points(), QList<int>({0, 103, 110}));
    QVERIFY(!dialog_->mousePressed);
    release(QPoint(400, 245));
}

// At a place where neither another press nor a drag moves a slider: their displays repaint at once as well.
void DialogTest::padIsRepaintedAtOnce() {
    const QPoint at(253, 50);
    show();
    send_mouse(QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton);
    QCoreApplication::processEvents();
    PaintCounter pad(get<QFrame>("frame_5"));
    send_mouse(QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton);
    QVERIFY(pad.count > 0);
    pad.count = 0;
    send_mouse(QEvent::MouseMove, at, Qt::NoButton, Qt::LeftButton);
    QVERIFY(pad.count > 0);
}

void DialogTest::positionBesideThePadDoesNotRepaintThePad() {
    show();
    QCoreApplication::processEvents();
    PaintCounter pad(get<QFrame>("frame_5"));
    send_mouse(QEvent::MouseButtonPress, QPoint(149, 50), Qt::LeftButton, Qt::LeftButton);
    QCOMPARE(pad.count, 0);
}

void DialogTest::crossIsDrawnInBlueAroundThePosition() {
    show();
    press(QPoint(450, 40));
    release(QPoint(450, 40));
    QVERIFY(cross_stands_at(QPoint(450, 40)));
    const QImage picture = dialog_->grab().toImage();
    const QColor background = picture.pixelColor(450, 60);
    for (const QPoint& beyond :
         {QPoint(11, 11), QPoint(-11, -11), QPoint(11, -11), QPoint(-11, 11), QPoint(0, 5), QPoint(5, 0)}) {
        QCOMPARE(picture.pixelColor(QPoint(450, 40) + beyond), background);
    }
}

void DialogTest::crossShowsThroughThePad() {
    show();
    press(QPoint(200, 60));
    release(QPoint(200, 60));
    QVERIFY(cross_stands_at(QPoint(200, 60)));
    press(QPoint(220, 80));
    release(QPoint(220, 80));
    QVERIFY(cross_stands_at(QPoint(220, 80)));
    QVERIFY(!cross_stands_at(QPoint(200, 60)));
}

// With all panes shown, and the cross over a label and a lamp: what lies under them is painted with them.
void DialogTest::eachReportShowsAllThatARepaintShows() {
    show();
    get<QCheckBox>("Ohj2Check")->setChecked(true);
    get<QCheckBox>("Navigointi_Check")->setChecked(true);
    QCoreApplication::processEvents();
    const auto screen = [this] { return dialog_->screen()->grabWindow(dialog_->winId()).toImage(); };
    const auto* const lamp = get<QWidget>("ReceiveLed");
    for (const QPoint& at : {lamp->mapTo(dialog_.get(), QPoint(3, 3)),
                             get<QWidget>("Nopeus_MSB")->mapTo(dialog_.get(), QPoint(5, 8))}) {
        press(at);
        release(at);
        for (int i = 0; i < 40; ++i) {
            const auto byte = [i](int step) { return (i / 2) * step % 256; };
            report({byte(31), byte(97), byte(3), byte(41), byte(0), byte(53), 0, byte(7), byte(11), byte(13),
                    byte(17), byte(19)},
                   i % 5);
            dialog_->VilkutaLed();
            QCoreApplication::processEvents();
            const QImage shown = screen();
            dialog_->repaint();
            QVERIFY2(shown == screen(), QByteArray::number(i));
        }
    }
}

void DialogTest::unchangedNumbersAreNotPaintedAgain() {
    show();
    get<QCheckBox>("Ohj2Check")->setChecked(true);
    QCoreApplication::processEvents();
    report({0x7F, 1, 2, 3, 4, 5, 0, 6}, 13);
    QCoreApplication::processEvents();
    PaintCounter same(get<QLabel>("Jannite_MSB"));
    PaintCounter dial(get<QWidget>("Nopeus_manometer"));
    PaintCounter changed(get<QLabel>("Virta_MSB"));
    report({0x7F, 1, 2, 3, 4, 77, 0, 6}, 13);
    QTRY_COMPARE(changed.count, 1);
    QCOMPARE(same.count, 0);
    QCOMPARE(dial.count, 0);
}

void DialogTest::crossFollowsThePositionOnTheScreen() {
    const QPoint first(450, 40);
    const QPoint second(475, 320);
    show();
    const auto colour_at = [this](QPoint at) {
        return dialog_->screen()->grabWindow(dialog_->winId()).toImage().pixelColor(at);
    };
    const QColor background = colour_at(first);
    press(first);
    QTRY_COMPARE(colour_at(first), QColor(Qt::blue));
    move(second);
    QTRY_COMPARE(colour_at(second), QColor(Qt::blue));
    QCOMPARE(colour_at(first), background);
    release(second);
}

// ------------------------------------------------------------------------------------------- Telemetry

void DialogTest::motorSpeedIsShownInRpm_data() {
    QTest::addColumn<int>("high");
    QTest::addColumn<int>("low");
    QTest::addColumn<int>("rpm");
    QTest::newRow("standstill") << 0x7F << 0xFF << 0;
    QTest::newRow("all zero") << 0x00 << 0x00 << 10737;
    QTest::newRow("all ones") << 0xFF << 0xFF << -10738;
    QTest::newRow("less than one rpm backwards") << 0x80 << 0x02 << 0;
    QTest::newRow("less than one rpm forwards") << 0x7F << 0xFC << 0;
    QTest::newRow("one rpm forwards") << 0x7F << 0xFB << 1;
    QTest::newRow("one rpm backwards") << 0x80 << 0x03 << -1;
    QTest::newRow("critical") << 0x6E << 0x1D << 1500;
    QTest::newRow("with all decimals of the factor") << 0x00 << 0x2A << 10724;
    QTest::newRow("in double precision") << 0x03 << 0x9F << 10433;
}

void DialogTest::motorSpeedIsShownInRpm() {
    QFETCH(const int, high);
    QFETCH(const int, low);
    QFETCH(const int, rpm);
    const auto* const dial = get<ManoMeter>("Nopeus_manometer");
    report({0x60, 0x00}, 39);
    QSignalSpy spy(dial, qOverload<int>(&AbstractMeter::valueChanged));
    report({high, low}, 39);
    QCOMPARE(dial->value(), static_cast<double>(rpm));
    QCOMPARE(spy.value(0), QVariantList({rpm}));
}

void DialogTest::valuesAreShownAsSixteenBitNumbers() {
    report({0, 0, 0x01, 0x02, 0x03, 0x04, 0x00, 0x42}, 39);
    QCOMPARE(text("JanniteArvo"), QStringLiteral("258"));
    QCOMPARE(text("VirtaArvo"), QStringLiteral("772"));
    QCOMPARE(text("KapasiteettiArvo"), QStringLiteral("66"));
    QCOMPARE(get<QProgressBar>("BatteryCapacity")->value(), 66);
    QCOMPARE(get<QProgressBar>("BatteryCapacity")->text(), QStringLiteral("66 Ah"));
    report({0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 39);
    QCOMPARE(text("JanniteArvo"), QStringLiteral("65535"));
    QCOMPARE(text("VirtaArvo"), QStringLiteral("65535"));
    QCOMPARE(text("KapasiteettiArvo"), QStringLiteral("65535"));
}

// A progress bar ignores what is beyond its range.
void DialogTest::capacityBeyondTheBarLeavesTheBar() {
    report({0, 0, 0, 0, 0, 0, 0, 100}, 39);
    QCOMPARE(get<QProgressBar>("BatteryCapacity")->value(), 100);
    report({0, 0, 0, 0, 0, 0, 0, 101}, 39);
    QCOMPARE(get<QProgressBar>("BatteryCapacity")->value(), 100);
    QCOMPARE(text("KapasiteettiArvo"), QStringLiteral("101"));
}

void DialogTest::latitudeIsASigned32BitNumber_data() {
    QTest::addColumn<QList<int>>("bytes");
    QTest::addColumn<QString>("shown");
    QTest::newRow("zero") << QList<int>({0, 0, 0, 0}) << QStringLiteral("0");
    QTest::newRow("lowest first") << QList<int>({1, 2, 3, 4}) << QStringLiteral("67305985");
    QTest::newRow("byte 0") << QList<int>({255, 0, 0, 0}) << QStringLiteral("255");
    QTest::newRow("byte 1") << QList<int>({0, 255, 0, 0}) << QStringLiteral("65280");
    QTest::newRow("byte 2") << QList<int>({0, 0, 255, 0}) << QStringLiteral("16711680");
    QTest::newRow("byte 3") << QList<int>({0, 0, 0, 255}) << QStringLiteral("-16777216");
    QTest::newRow("greatest") << QList<int>({255, 255, 255, 127}) << QStringLiteral("2147483647");
    QTest::newRow("least") << QList<int>({0, 0, 0, 128}) << QStringLiteral("-2147483648");
    QTest::newRow("minus one") << QList<int>({255, 255, 255, 255}) << QStringLiteral("-1");
}

void DialogTest::latitudeIsASigned32BitNumber() {
    QFETCH(const QList<int>, bytes);
    QFETCH(const QString, shown);
    report({0, 0, 0, 0, 0, 0, 0, 0, bytes[0], bytes[1], bytes[2], bytes[3]}, 39);
    QCOMPARE(text("Latitude"), shown);
}

void DialogTest::rawBytesStandCrosswise() {
    report({11, 12, 13, 14, 15, 16, 17, 255}, 39);
    QCOMPARE(text("Nopeus_LSB"), QStringLiteral("11"));
    QCOMPARE(text("Nopeus_MSB"), QStringLiteral("12"));
    QCOMPARE(text("Jannite_LSB"), QStringLiteral("13"));
    QCOMPARE(text("Jannite_MSB"), QStringLiteral("14"));
    QCOMPARE(text("Virta_LSB"), QStringLiteral("15"));
    QCOMPARE(text("Virta_MSB"), QStringLiteral("16"));
    QCOMPARE(text("Kapasiteetti_LSB"), QStringLiteral("17"));
    QCOMPARE(text("Kapasiteetti_MSB"), QStringLiteral("255"));
}

void DialogTest::byteCountIsShown() {
    report({}, 39);
    QCOMPARE(get<QLCDNumber>("BytesRead")->intValue(), 39);
    report({}, 100);
    QCOMPARE(get<QLCDNumber>("BytesRead")->intValue(), 100);
    report({}, 0);
    QCOMPARE(get<QLCDNumber>("BytesRead")->intValue(), 0);
}

void DialogTest::receiveLampAlternatesWhileBytesArrive() {
    for (const bool expected : {false, true, false, true, false}) {
        report({}, 39);
        QCOMPARE(lit("ReceiveLed"), expected);
    }
}

void DialogTest::emptyReadPutsTheReceiveLampOut() {
    report({}, 39);
    report({}, 39);
    QVERIFY(lit("ReceiveLed"));
    report({}, 0);
    QVERIFY(!lit("ReceiveLed"));
    report({}, 0);
    QVERIFY(!lit("ReceiveLed"));
    report({}, 1);
    QVERIFY(lit("ReceiveLed"));
}

void DialogTest::otherDisplaysAreLeftAlone() {
    report({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}, 39);
    for (const char* name : {"Longitude", "Suunta", "Nopeus_kmh"}) {
        QCOMPARE(text(name), QStringLiteral("-"));
    }
    QCOMPARE(text("MotorC"), QStringLiteral("0"));
    QCOMPARE(get<ThermoMeter>("thermometer")->value(), 0.0);
    QVERIFY(!lit("FixLed"));
    QVERIFY(!lit("SendLed"));
    QCOMPARE(set_points(), QList<int>({0, 103, 110}));
}

void DialogTest::sendLampChangesWithEachFrame() {
    for (const bool expected : {true, false, true, false}) {
        dialog_->VilkutaLed();
        QCOMPARE(lit("SendLed"), expected);
    }
}

// ------------------------------------------------------------------------------------------ Port state

void DialogTest::statusTextsAreAppended() {
    dialog_->KirjoitaIkkunaan(QStringLiteral("Started"));
    dialog_->KirjoitaIkkunaan(QStringLiteral("Send failure"));
    QCOMPARE(status(), QStringLiteral("Started\nSend failure"));
}

void DialogTest::openTextLightsTheGreenLamp() {
    dialog_->KirjoitaIkkunaan(QStringLiteral("Portti auki"));
    QVERIFY(lit("GreenLed"));
    QVERIFY(!lit("RedLed"));
    QCOMPARE(status(), QStringLiteral("Portti auki"));
}

void DialogTest::closedTextLightsTheRedLamp() {
    dialog_->KirjoitaIkkunaan(QStringLiteral("Portti auki"));
    dialog_->KirjoitaIkkunaan(QStringLiteral("Portti kiinni"));
    QVERIFY(lit("RedLed"));
    QVERIFY(!lit("GreenLed"));
    QCOMPARE(status(), QStringLiteral("Portti auki\nPortti kiinni"));
}

void DialogTest::otherTextsLeaveTheLamps_data() {
    QTest::addColumn<QString>("other");
    QTest::newRow("Started") << QStringLiteral("Started");
    QTest::newRow("Send failure") << QStringLiteral("Send failure");
    QTest::newRow("fail") << QStringLiteral("fail");
    QTest::newRow("other case") << QStringLiteral("portti kiinni");
    QTest::newRow("longer") << QStringLiteral("Portti kiinni ");
}

void DialogTest::otherTextsLeaveTheLamps() {
    QFETCH(const QString, other);
    dialog_->KirjoitaIkkunaan(QStringLiteral("Portti auki"));
    dialog_->KirjoitaIkkunaan(other);
    QVERIFY(lit("GreenLed"));
    QVERIFY(!lit("RedLed"));
}

void DialogTest::textsLikeTheOpenOneLeaveTheLamps_data() {
    QTest::addColumn<QString>("other");
    QTest::newRow("other case") << QStringLiteral("portti auki");
    QTest::newRow("longer") << QStringLiteral("Portti auki ");
    QTest::newRow("shorter") << QStringLiteral("Portti auk");
    QTest::newRow("within another") << QStringLiteral("Nyt Portti auki");
}

void DialogTest::textsLikeTheOpenOneLeaveTheLamps() {
    QFETCH(const QString, other);
    dialog_->KirjoitaIkkunaan(other);
    QVERIFY(lit("RedLed"));
    QVERIFY(!lit("GreenLed"));
    QCOMPARE(status(), other);
}

// -------------------------------------------------------------------------------------------- Switches

void DialogTest::extraPaneWidensThePanel() {
    show();
    click_on("Ohj2Check");
    QTRY_COMPARE(dialog_->size(), QSize(920, 508));
    QCOMPARE(dialog_->minimumWidth(), 920);
    QCOMPARE(dialog_->maximumWidth(), 920);
    click_on("Ohj2Check");
    QTRY_COMPARE(dialog_->size(), QSize(620, 508));
}

void DialogTest::navigationPaneMakesThePanelHigher() {
    show();
    click_on("Navigointi_Check");
    QTRY_COMPARE(dialog_->size(), QSize(620, 761));
    QCOMPARE(dialog_->minimumHeight(), 761);
    QCOMPARE(dialog_->maximumHeight(), 761);
    QVERIFY(get<QFrame>("frame_Navi")->isVisible());
    click_on("Navigointi_Check");
    QTRY_COMPARE(dialog_->size(), QSize(620, 508));
    QVERIFY(get<QFrame>("frame_Navi")->isHidden());
    click_on("Navigointi_Check");
    QVERIFY(get<QFrame>("frame_Navi")->isVisible());
}

void DialogTest::navigationFrameStandsThereUntilItIsSwitchedOff() {
    show();
    QVERIFY(get<QFrame>("frame_Navi")->isVisible());
}

void DialogTest::driveModeIsStored() {
    show();
    QCOMPARE(dialog_->Ajotila, uint16_t{1});
    click_on("Ajotila2");
    QCOMPARE(dialog_->Ajotila, uint16_t{2});
    click_on("Ajotila1");
    QCOMPARE(dialog_->Ajotila, uint16_t{1});
}

void DialogTest::languageChangeAppliesEveryTextAgain() {
    report({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}, 39);
    BracketTranslator translator;
    QVERIFY(QCoreApplication::installTranslator(&translator));
    QTRY_COMPARE(dialog_->windowTitle(), QStringLiteral("[Dialog]"));
    QDialog translated_host;
    Ui_Dialog translated;
    translated.setupUi(&translated_host);
    const QList<QWidget*> expected =
        translated_host.findChildren<QWidget*>(QRegularExpression(QStringLiteral("^(?!qt_).+")));
    int compared = 0;
    for (const QWidget* widget : expected) {
        const QByteArray name = widget->objectName().toLatin1();
        if (qobject_cast<const QProgressBar*>(widget) == nullptr) {
            QCOMPARE(texts_of(get<QWidget>(name.constData())), texts_of(widget));
        } else {
            QCOMPARE(get<QProgressBar>(name.constData())->format(), widget->property("format").toString());
        }
        ++compared;
    }
    QVERIFY(compared >= 96);
    QCOMPARE(get<ManoMeter>("Nopeus_manometer")->suffix(), QStringLiteral("[ [rpm]]"));
    QCoreApplication::removeTranslator(&translator);
    QTRY_COMPARE(dialog_->windowTitle(), QStringLiteral("Dialog"));
    QCOMPARE(text("label_6"), QString::fromUtf8("Lähetysnopeus"));
}

void DialogTest::otherChangesLeaveTheTexts() {
    report({0, 0, 1, 0}, 39);
    dialog_->setWindowTitle(QStringLiteral("other"));
    dialog_->setEnabled(false);
    QCOMPARE(text("JanniteArvo"), QStringLiteral("256"));
    QCOMPARE(dialog_->windowTitle(), QStringLiteral("other"));
}

void DialogTest::changesReachTheToolkit() {
    show();
    QCoreApplication::processEvents();
    PaintCounter panel(dialog_.get());
    QEvent change(QEvent::EnabledChange);
    QCoreApplication::sendEvent(dialog_.get(), &change);
    QTRY_VERIFY(panel.count > 0);
}

// -------------------------------------------------------------------------------------------- The link

void DialogTest::openButtonOpensTheLineAtTheChosenSpeed_data() {
    QTest::addColumn<int>("index");
    QTest::addColumn<unsigned int>("speed");
    QTest::newRow("9600") << 0 << static_cast<unsigned int>(B9600);
    QTest::newRow("19200") << 1 << static_cast<unsigned int>(B19200);
    QTest::newRow("38400") << 2 << static_cast<unsigned int>(B38400);
    QTest::newRow("57600") << 3 << static_cast<unsigned int>(B57600);
    QTest::newRow("115200") << 4 << static_cast<unsigned int>(B115200);
}

void DialogTest::openButtonOpensTheLineAtTheChosenSpeed() {
    QFETCH(const int, index);
    QFETCH(const unsigned int, speed);
    show();
    get<QComboBox>("comboBox_bauds")->setCurrentIndex(index);
    open();
    const termios attributes = line_->attributes();
    QCOMPARE(cfgetospeed(&attributes), speed);
    QVERIFY(status().startsWith(QLatin1String("Portti auki")));
    QVERIFY(lit("GreenLed"));
    QVERIFY(!lit("RedLed"));
    QVERIFY(wire_carries(neutral_frame));
    QTRY_COMPARE(status(), QStringLiteral("Portti auki\nStarted"));
}

void DialogTest::openButtonStartsTimerThenPortThenThread() {
    bool timer_ran = false;
    bool thread_ran = true;
    connect(dialog_.get(), &Dialog::AvaaPortti, this, [&] {
        timer_ran = dialog_->updatetimer->isActive();
        thread_ran = dialog_->cthread.isRunning();
    });
    show();
    open();
    QVERIFY(timer_ran);
    QVERIFY(!thread_ran);
    QCOMPARE(dialog_->updatetimer->interval(), 100);
    QVERIFY(dialog_->updatetimer->isActive());
    QVERIFY(dialog_->cthread.isRunning());
    QCOMPARE(dialog_->cthread.priority(), QThread::InheritPriority);
}

void DialogTest::openButtonHandsTheRateOver() {
    QSignalSpy spy(dialog_.get(), &Dialog::AvaaPortti);
    show();
    get<QComboBox>("comboBox_bauds")->setCurrentIndex(3);
    open(77);
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.first(), QVariantList({3, 77}));
}

void DialogTest::slidersReachTheWire() {
    show();
    open();
    get<QScrollBar>("KaasuSlider")->setValue(200);
    get<QScrollBar>("SuuntaSlider")->setValue(60);
    get<QScrollBar>("KauhaSlider")->setValue(150);
    QVERIFY(wire_carries(frame(200, 60, 150, 'P')));
    QTRY_VERIFY(lit("SendLed"));
    QTRY_VERIFY(!lit("SendLed"));
}

void DialogTest::padReachesTheWire() {
    show();
    open();
    press(QPoint(250, 60));
    QVERIFY(wire_carries(frame(156, 100, 47, 'P')));
    move(QPoint(260, 200));
    QVERIFY(wire_carries(frame(124, 96, 172, 'P')));
    release(QPoint(260, 200));
}

void DialogTest::motorButtonSwitchesOnAndOffByMouse() {
    show();
    open();
    QVERIFY(wire_carries(frame(0, 103, 110, 'P')));
    click_on("radioButton");
    QVERIFY(get<QRadioButton>("radioButton")->isChecked());
    QVERIFY(wire_carries(frame(0, 103, 110, 'Q')));
    click_on("radioButton");
    QVERIFY(!get<QRadioButton>("radioButton")->isChecked());
    QVERIFY(wire_carries(frame(0, 103, 110, 'P')));
}

void DialogTest::telemetryReachesThePanel() {
    show();
    open();
    line_->send(reply({0x7F, 0xFB, 1, 2, 3, 4, 0, 42, 1, 2, 3, 4, 99}));
    QTRY_COMPARE(text("JanniteArvo"), QStringLiteral("258"));
    QTRY_COMPARE(text("KapasiteettiArvo"), QStringLiteral("42"));
    QCOMPARE(get<ManoMeter>("Nopeus_manometer")->value(), 1.0);
    QCOMPARE(text("VirtaArvo"), QStringLiteral("772"));
    QCOMPARE(text("Latitude"), QStringLiteral("67305985"));
    QCOMPARE(text("Nopeus_LSB"), QStringLiteral("127"));
}

void DialogTest::silentLineShowsZeroBytesAndStaleValues() {
    show();
    open();
    line_->send(reply({0, 0, 9, 9}));
    QTRY_COMPARE(text("JanniteArvo"), QStringLiteral("2313"));
    QTRY_COMPARE(get<QLCDNumber>("BytesRead")->intValue(), 0);
    QVERIFY(!lit("ReceiveLed"));
    QCOMPARE(text("JanniteArvo"), QStringLiteral("2313"));
    QTRY_VERIFY(lit("SendLed"));
}

void DialogTest::rubbishNeverChangesTheSetPoints() {
    show();
    open();
    click_on("radioButton");
    get<QScrollBar>("KaasuSlider")->setValue(20);
    QVERIFY(wire_carries(frame(20, 103, 110, 'Q')));
    line_->send(std::string(500, '\xFF'));
    QTRY_COMPARE(text("JanniteArvo"), QStringLiteral("65535"));
    QTRY_COMPARE(get<QLCDNumber>("BytesRead")->intValue(), 0);
    QVERIFY(wire_carries(frame(20, 103, 110, 'Q')));
    QCOMPARE(set_points(), QList<int>({20, 103, 110}));
    QVERIFY(get<QRadioButton>("radioButton")->isChecked());
}

void DialogTest::closeButtonClosesTheLineAndLeavesTheTimer() {
    QSignalSpy closed(dialog_.get(), &Dialog::SuljePortti);
    show();
    open();
    QTRY_COMPARE(status(), QStringLiteral("Portti auki\nStarted"));
    click_on("pushButton_close");
    QCOMPARE(closed.count(), 1);
    QTRY_VERIFY(dialog_->cthread.isFinished());
    QCoreApplication::processEvents();
    QCOMPARE(status(), QStringLiteral("Portti auki\nStarted\nPortti kiinni"));
    QVERIFY(lit("RedLed"));
    QVERIFY(!lit("GreenLed"));
    QVERIFY(dialog_->updatetimer->isActive());
}

void DialogTest::closeAndOpenAgainStartsTheCycleAgain() {
    show();
    open();
    QVERIFY(wire_carries(neutral_frame));
    click_on("pushButton_close");
    QTRY_VERIFY(dialog_->cthread.isFinished());
    line_->receive(4096, 0);
    open();
    get<QScrollBar>("KaasuSlider")->setValue(5);
    QVERIFY(wire_carries(frame(5, 103, 110, 'P')));
    QTRY_COMPARE(status().count(QStringLiteral("Started")), 2);
    QVERIFY(lit("GreenLed"));
}

void DialogTest::closeWithoutAnOpenPortIsHarmless() {
    show();
    click_on("pushButton_close");
    click_on("pushButton_close");
    QCOMPARE(status(), QStringLiteral("Portti kiinni\nPortti kiinni"));
    QVERIFY(is_null_device(STDIN_FILENO));
    QVERIFY(!dialog_->cthread.isRunning());
}

void DialogTest::setPointsBeforeTheFirstOpenArriveWithTheTimer() {
    show();
    get<QScrollBar>("KaasuSlider")->setValue(33);
    open();
    QVERIFY(wire_carries(frame(33, 103, 110, 'P')));
}

void DialogTest::statusViewKeepsItsLastThousandLines() {
    constexpr int written = 3456;
    for (int line = 1; line <= written; line++) {
        dialog_->KirjoitaIkkunaan(QString::number(line));
        const int kept = get<QTextBrowser>("Browser_Status")->document()->blockCount();
        QVERIFY(kept >= std::min(line, 1000));
        QVERIFY(kept < 1100);
    }
    const QStringList lines = status().split(QLatin1Char('\n'));
    for (int i = 0; i < lines.size(); i++) {
        QCOMPARE(lines[i].toInt(), written - static_cast<int>(lines.size()) + 1 + i);
    }
}

void DialogTest::statusViewStaysAtItsNewestLine() {
    show();
    get<QCheckBox>("Ohj2Check")->setChecked(true);
    const auto* const view = get<QTextBrowser>("Browser_Status");
    for (int line = 1; line <= 1500; line++) {
        dialog_->KirjoitaIkkunaan(QString::number(line));
        QCOMPARE(view->verticalScrollBar()->value(), view->verticalScrollBar()->maximum());
    }
    QCoreApplication::processEvents();
    QCOMPARE(view->cursorForPosition(view->viewport()->rect().bottomLeft()).block().text(),
             QStringLiteral("1500"));
}

// Run once more by itself at other scales of the screen. The headings are higher than their labels, of which the
// rest is empty: two pixels of a descender are all that they may lack.
void DialogTest::textsFitIntoTheirPlaces() {
    show();
    for (int i = 0; i < 2; i++) {
        dialog_->VastaanotaArvot(255, 255, 255, 255, 255, 255, 255, 255, 0, 0, 0, 128, 0, 100);
    }
    constexpr int missing = 2;
    for (const QLabel* const label : dialog_->findChildren<QLabel*>()) {
        const QFontMetrics metrics(label->font(), label);
        const QRect ink = metrics.tightBoundingRect(label->text());
        const int baseline = (label->height() - metrics.height()) / 2 + metrics.ascent();
        const bool fits = metrics.horizontalAdvance(label->text()) <= label->width() &&
                          baseline + ink.top() >= -missing &&
                          baseline + ink.bottom() < label->height() + missing;
        QVERIFY2(fits, qPrintable(label->objectName() + QLatin1Char(' ') + label->text()));
    }
    for (const QAbstractButton* const button : dialog_->findChildren<QAbstractButton*>()) {
        const QSize hint = button->sizeHint();
        QVERIFY2(hint.width() <= button->width(), qPrintable(button->text()));
    }
}

void DialogTest::panelIsLightOnADarkDesktop() {
    const auto picture = [this] {
        dialog_->VastaanotaArvot(0x70, 1, 1, 2, 3, 4, 0, 50, 1, 2, 3, 4, 5, 39);
        get<QCheckBox>("Ohj2Check")->setChecked(true);
        get<QCheckBox>("Navigointi_Check")->setChecked(true);
        return dialog_->grab().toImage();
    };
    const QImage usual = picture();
    const DarkDesktop desktop;
    dialog_ = std::make_unique<Dialog>(nullptr, line_->path());
    QVERIFY(picture() == usual);
}

void DialogTest::panelStaysLightWhenTheDesktopTurnsDark() {
    const QImage usual = dialog_->grab().toImage();
    const DarkDesktop desktop;
    QCoreApplication::processEvents();
    QVERIFY(dialog_->grab().toImage() == usual);
    QCOMPARE(QWidget().palette().color(QPalette::Window), QColor(Qt::black));
}

void DialogTest::destructionWhileDrivingBringsTheVehicleToRest() {
    show();
    open();
    click_on("radioButton");
    get<QScrollBar>("KaasuSlider")->setValue(255);
    QVERIFY(wire_carries(frame(255, 103, 110, 'Q')));
    dialog_.reset();
    const std::string rest = line_->receive(4096, 100);
    QVERIFY(rest.size() >= 4);
    QCOMPARE(rest.size() % 4, std::size_t{0});
    QCOMPARE(rest.substr(rest.size() - 4), neutral_frame);
}

// The link's last reports are still queued when the panel goes.
void DialogTest::destructionWithReportsUnderWayIsSafe() {
    show();
    open(0);
    QCOMPARE(line_->receive(40).size(), std::size_t{40});
    dialog_.reset();
    QCoreApplication::processEvents();
    QVERIFY(line_->receive(4, 0).size() == 4);
}

void DialogTest::closingWhileDrivingBringsTheVehicleToRest_data() {
    QTest::addColumn<Way>("close_panel");
    QTest::newRow("window button") << Way([](Dialog& dialog) {
        QCloseEvent event;
        QCoreApplication::sendEvent(dialog.windowHandle(), &event);
    });
    QTest::newRow("Escape") << Way([](Dialog& dialog) { QTest::keyClick(&dialog, Qt::Key_Escape); });
    QTest::newRow("close") << Way([](Dialog& dialog) { QVERIFY(dialog.close()); });
    QTest::newRow("reject") << Way([](Dialog& dialog) { dialog.reject(); });
    QTest::newRow("accept") << Way([](Dialog& dialog) { dialog.accept(); });
    QTest::newRow("done") << Way([](Dialog& dialog) { dialog.done(7); });
    QTest::newRow("close of a hidden panel") << Way([](Dialog& dialog) {
        dialog.hide();
        QVERIFY(dialog.close());
    });
}

void DialogTest::closingWhileDrivingBringsTheVehicleToRest() {
    QFETCH(const Way, close_panel);
    show();
    open();
    click_on("radioButton");
    get<QScrollBar>("KaasuSlider")->setValue(255);
    QVERIFY(wire_carries(frame(255, 103, 110, 'Q')));
    close_panel(*dialog_);
    QTRY_VERIFY(!dialog_->isVisible());
    QVERIFY(dialog_->cthread.isFinished());
    const std::string rest = line_->receive(4096, 100);
    QCOMPARE(rest.size() % 4, std::size_t{0});
    QCOMPARE(rest.find(neutral_frame), rest.size() - 4);
}

void DialogTest::closedPanelShowsThePortClosedAndOpensItAgain() {
    show();
    open();
    QTRY_COMPARE(status(), QStringLiteral("Portti auki\nStarted"));
    dialog_->close();
    line_->receive(4096, 0);
    show();
    QVERIFY(lit("RedLed"));
    QVERIFY(!lit("GreenLed"));
    QVERIFY(status().contains(QStringLiteral("\nPortti kiinni")));
    get<QScrollBar>("KaasuSlider")->setValue(5);
    open();
    QVERIFY(wire_carries(frame(5, 103, 110, 'P')));
    QVERIFY(lit("GreenLed"));
    QVERIFY(!lit("RedLed"));
}

void DialogTest::closingThePanelAfterThePortSendsAndSaysNothing() {
    show();
    open();
    QVERIFY(wire_carries(neutral_frame));
    get<QScrollBar>("KaasuSlider")->setValue(255);
    QVERIFY(wire_carries(frame(255, 103, 110, 'P')));
    click_on("pushButton_close");
    const std::string driven = line_->receive(4096, 100);
    QVERIFY(driven.find(neutral_frame) == std::string::npos);
    const QString said = status();
    dialog_->close();
    QCOMPARE(line_->receive(1, 100), std::string());
    QCOMPARE(status(), said);
}

void DialogTest::missingDeviceEndsTheProcess() {
    const ChildResult result = run_in_child([] {
        on_exit(leave_at_once, nullptr);
        Dialog dialog(nullptr, "/dev/no-such-line");
        dialog.PortinAvaus();
    });
    QCOMPARE(result.status, 1);
    QCOMPARE(result.err, std::string("Unable to open serial port: - \n: No such file or directory\n"));
}

QTEST_MAIN(DialogTest)
#include "dialog_test.moc"
