#include "controlthread.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QMetaMethod>
#include <QScopeGuard>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "descriptorzero.h"
#include "tests/support/allocationcount.h"
#include "tests/support/childprocess.h"
#include "tests/support/filesizelimit.h"
#include "tests/support/pseudoterminal.h"

#define EVENTUALLY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, 30000)

namespace {

constexpr int limit_ms = 30000;

const std::string resting_frame("\0gnP", 4);

struct Telemetry {
    std::array<int, 13> slots;
    int bytes;
};

// A link on a pseudo-terminal, of which the test plays the controller, and what the link told its owner.
class Link : public QObject {
public:
    Link() : thread(std::make_unique<ControlThread>(terminal.path())) {
        connect(thread.get(), &ControlThread::LahetaTeksti, this, [this](const QString& text) {
            texts.append(text);
            if (on_text) {
                on_text(text);
            }
        });
        connect(thread.get(), &ControlThread::VilkutaLed, this, [this] { pulses++; });
        connect(
            thread.get(), &ControlThread::VilkutaLed, this, [this] { sent++; }, Qt::DirectConnection);
        connect(thread.get(), &ControlThread::LahetaArvot, this,
                [this](uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint8_t e, uint8_t f, uint8_t g, uint8_t h,
                       uint8_t i, uint8_t j, uint8_t k, uint8_t l, uint8_t m, int bytes) {
                    arvot.push_back({{a, b, c, d, e, f, g, h, i, j, k, l, m}, bytes});
                });
    }

    // What the panel's open button does.
    void open(int index = 4, int rate = 1) {
        thread->AvaaPortti(index, rate);
        thread->start();
    }

    // Destroys the link object; returns what it had sent and the controller has not read yet.
    std::string destroy_and_collect(int read_before = 0) {
        thread.reset();
        const std::size_t frames = static_cast<std::size_t>(sent - read_before) + 1;
        return terminal.receive(4 * frames, 1000);
    }

    // Sends the controller's bytes into the opened line and waits until they can be read.
    void arrive(const std::string& bytes) const {
        const int near_end = ::open(terminal.path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        terminal.send(bytes);
        terminal.wait_readable(near_end, static_cast<int>(bytes.size()));
        ::close(near_end);
    }

    // Sends the controller's bytes while the line is open already and nobody reads yet.
    void arrive_at_opening(const std::string& bytes) {
        on_text = [this, bytes](const QString& text) {
            if (text == QStringLiteral("Portti auki")) {
                arrive(bytes);
            }
        };
    }

    PseudoTerminal terminal;
    std::atomic<int> sent = 0;  // frames sent, counted in the link thread
    QStringList texts;
    std::vector<Telemetry> arvot;
    int pulses = 0;
    std::function<void(const QString&)> on_text;
    std::unique_ptr<ControlThread> thread;
};

bool is_null_device(int descriptor) {
    struct stat opened = {};
    struct stat null_device = {};
    return fstat(descriptor, &opened) == 0 && stat("/dev/null", &null_device) == 0 &&
           opened.st_ino == null_device.st_ino && opened.st_dev == null_device.st_dev;
}

// Descriptors of this process that are open on `path`.
std::vector<int> descriptors_on(const std::string& path) {
    std::vector<int> found;
    for (int descriptor = 0; descriptor < 256; descriptor++) {
        std::array<char, 128> target = {};
        const std::string name = "/proc/self/fd/" + std::to_string(descriptor);
        if (readlink(name.c_str(), target.data(), target.size() - 1) > 0 && path == target.data()) {
            found.push_back(descriptor);
        }
    }
    return found;
}

// Opens the line; returns its descriptor.
int open_line(const Link& link, int rate) {
    const std::vector<int> others = descriptors_on(link.terminal.path());
    link.thread->AvaaPortti(4, rate);
    const std::vector<int> now = descriptors_on(link.terminal.path());
    const auto added = std::mismatch(others.begin(), others.end(), now.begin(), now.end()).second;
    return added == now.end() ? -1 : *added;
}

// A reply of `count` bytes: byte i is `first` + i.
std::string reply(std::size_t count, int first) {
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; i++) {
        bytes[i] = static_cast<char>(first + static_cast<int>(i));
    }
    return bytes;
}

bool starts_with_frames(const std::string& bytes, const std::string& frame) {
    for (std::size_t i = 0; i < bytes.size(); i++) {
        if (bytes[i] != frame[i % frame.size()]) {
            return false;
        }
    }
    return true;
}

ChildResult play(const char* scene) {
    return run_program({"/proc/self/exe", scene});
}

QByteArray output(const ChildResult& result) {
    return QByteArray::fromStdString(result.out);
}

}  // namespace

class ControlThreadTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void itsSignalsAndSlotsAreThoseThatThePanelConnects();
    void constructionTouchesNoLine();
    void itHasNoParent();

    void openingSetsTheSpeedOfTheIndex_data();
    void openingSetsTheSpeedOfTheIndex();
    void openingSaysSoThenWaits300Milliseconds();
    void openingAnIndexOutOfTheListOpensNothing_data();
    void openingAnIndexOutOfTheListOpensNothing();
    void openingTheSecondTimeMovesTheRunningCycleToTheNewDescriptor();
    void openingThatYieldsDescriptor0FailsAndTriesAgain();
    void openingAMissingDeviceEndsTheProcess();
    void openingADeviceThatWentMissingWhileDrivingEndsTheProcess();

    void theThreadWaitsForTheStartFlag();
    void theFirstTextIsStarted();
    void theFrameAtFirstIsTheRestingOne();
    void setPointsAreSentByTheirLow8Bits_data();
    void setPointsAreSentByTheirLow8Bits();
    void setPointsLeaveTheMotorByte();
    void theMotorSwitchSendsQAndP();
    void eachFrameSentGivesAPulse();
    void theCycleLasts10MillisecondsMoreThanTheRate();
    void the10MillisecondsPassBetweenReadingAndReporting();
    void aNegativeRateIsNoPause();
    void cyclesAllocateNothing();

    void telemetryIsTheFirstByteOfEachSlot();
    void telemetryWithoutAReplyIsZeroAtFirst();
    void telemetryWithoutAReplyRepeatsTheOldValuesAndTheFrameIsStillSent();
    void aReplyOf36BytesLeavesTheLastSlot();
    void aShortReplyLeavesAllSlotsBehindIt();
    void aLongReplyIsTakenIn100BytePieces();

    void closingRestoresTheLineThenSaysSo();
    void closingEndsTheThreadAndSendsNoMore();
    void closingBetweenReadAndSendSendsNothing();
    void closingAnIdleLinkLeavesDescriptor0OnTheNullDevice();
    void closingALinkThatIsNotOpenLeavesDescriptor0ToWhoeverHasIt();
    void closingRightAfterTheStartStillEndsTheThread();
    void closingAndOpeningAgainRestartsTheCycle();
    void closingAndOpeningWithinALongPauseRestartsTheCycle();
    void closingAndOpeningWhileTheThreadWaitsForItsStartStartsIt();
    void openingWaitsForTheEndOfTheCycleThatWasClosed();
    void closingAtAnyMomentNeverEndsTheProcess();

    void destructionWhileDrivingSendsTheRestingFrameLast();
    void destructionInALongPauseSendsTheRestingFrameLast();
    void destructionRightAfterTheStartSendsTheRestingFrameLast();
    void destructionAfterClosingSendsNothing();
    void destructionOfAnOpenLinkNeverStartedSendsNothingAndClosesTheLine();
    void destructionEndsTheWaitForTheStartFlag();

    void endingWhileDrivingSendsTheRestingFrameLastAndClosesTheLine();
    void endingLeavesTheDeviceItsSettings();
    void endingAnOpenLinkNeverStartedSendsNothing();
    void endingAClosedLinkSaysNothing();
    void anEndedLinkIsOpenedAgain();

    void aLineHungUpGivesSendFailuresAndTheLinkGoesOn();
    void aLineThatTakesNoMoreGivesSendFailuresUntilItDoes();
    void aLineThatTakesAPartOfTheFrameGivesASendFailure();
    void aFailedReadEndsTheWholeApplicationWithStatus0();
};

void ControlThreadTest::itsSignalsAndSlotsAreThoseThatThePanelConnects() {
    const QMetaObject& meta = ControlThread::staticMetaObject;
    QByteArrayList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); i++) {
        methods.append(meta.method(i).methodSignature());
    }
    const QByteArrayList expected = {
        "LahetaTeksti(QString)",
        "LahetaArvot(uint8_t,uint8_t,uint8_t,uint8_t,uint8_t,uint8_t,uint8_t,uint8_t,uint8_t,uint8_t,uint8_t,"
        "uint8_t,uint8_t,int)",
        "VilkutaLed()",
        "ReceiveData(int,int,int)",
        "AvaaPortti(int,int)",
        "SuljePortti()",
        "MoottoriOn(bool)",
    };
    QCOMPARE(methods, expected);
}

void ControlThreadTest::constructionTouchesNoLine() {
    const Link link;
    QVERIFY(!link.thread->isRunning());
    QVERIFY((link.terminal.attributes().c_lflag & ICANON) != 0);
    QCOMPARE(link.texts, QStringList());
}

void ControlThreadTest::itHasNoParent() {
    const Link link;
    QCOMPARE(link.thread->parent(), nullptr);
}

// --- opening ---

void ControlThreadTest::openingSetsTheSpeedOfTheIndex_data() {
    QTest::addColumn<int>("index");
    QTest::addColumn<unsigned int>("speed");
    QTest::newRow("9600") << 0 << static_cast<unsigned int>(B9600);
    QTest::newRow("19200") << 1 << static_cast<unsigned int>(B19200);
    QTest::newRow("38400") << 2 << static_cast<unsigned int>(B38400);
    QTest::newRow("57600") << 3 << static_cast<unsigned int>(B57600);
    QTest::newRow("115200") << 4 << static_cast<unsigned int>(B115200);
}

void ControlThreadTest::openingSetsTheSpeedOfTheIndex() {
    QFETCH(int, index);
    QFETCH(unsigned int, speed);
    Link link;
    link.thread->AvaaPortti(index, 200);
    QCOMPARE(link.terminal.attributes().c_cflag, speed | CS8 | CLOCAL | CREAD);
    QCOMPARE(link.texts, QStringList(QStringLiteral("Portti auki")));
}

void ControlThreadTest::openingSaysSoThenWaits300Milliseconds() {
    QElapsedTimer since_text;
    tcflag_t flags_at_text = 0;
    Link link;
    link.on_text = [&](const QString& text) {
        if (text == QStringLiteral("Portti auki")) {
            flags_at_text = link.terminal.attributes().c_cflag;
            since_text.start();
        }
    };
    link.thread->AvaaPortti(2, 200);
    QVERIFY(since_text.elapsed() >= 300);
    QCOMPARE(flags_at_text, static_cast<tcflag_t>(B38400 | CS8 | CLOCAL | CREAD));
    QVERIFY(!link.thread->isRunning());
}

void ControlThreadTest::openingAnIndexOutOfTheListOpensNothing_data() {
    QTest::addColumn<int>("index");
    QTest::newRow("-1") << -1;
    QTest::newRow("5") << 5;
    QTest::newRow("115200") << 115200;
}

void ControlThreadTest::openingAnIndexOutOfTheListOpensNothing() {
    QFETCH(int, index);
    Link link;
    link.thread->AvaaPortti(index, 200);
    QCOMPARE(link.texts, QStringList(QStringLiteral("fail")));
    QVERIFY((link.terminal.attributes().c_lflag & ICANON) != 0);
    link.thread->start();
    link.thread->AvaaPortti(index, 200);
    QVERIFY(link.thread->isRunning());  // and still waits for its start flag
    QCOMPARE(link.sent.load(), 0);
}

void ControlThreadTest::openingTheSecondTimeMovesTheRunningCycleToTheNewDescriptor() {
    Link link;
    link.open(0);
    EVENTUALLY(link.pulses >= 2);
    const auto before = descriptors_on(link.terminal.path()).size();
    link.open(4);
    EVENTUALLY(link.texts.count(QStringLiteral("Portti auki")) == 2);
    QCOMPARE(descriptors_on(link.terminal.path()).size(), before + 1);
    QCOMPARE(link.terminal.attributes().c_cflag, static_cast<tcflag_t>(B115200 | CS8 | CLOCAL | CREAD));
    const int pulses = link.pulses;
    EVENTUALLY(link.pulses >= pulses + 5);
    link.arrive(reply(39, 1));
    EVENTUALLY(link.arvot.back().slots[12] == 37);
    QCOMPARE(link.texts.count(QStringLiteral("Started")), 1);
}

void ControlThreadTest::openingThatYieldsDescriptor0FailsAndTriesAgain() {
    const ChildResult result = play("descriptor-0");
    QCOMPARE(output(result), QByteArray("fail,Portti auki,null,above 0"));
    QCOMPARE(result.status, 0);
}

void ControlThreadTest::openingAMissingDeviceEndsTheProcess() {
    const ChildResult result = play("missing-device");
    QCOMPARE(QByteArray::fromStdString(result.err),
             QByteArray("Unable to open serial port: - \n: No such file or directory\n"));
    QCOMPARE(result.status, 1);
}

void ControlThreadTest::openingADeviceThatWentMissingWhileDrivingEndsTheProcess() {
    const ChildResult result = play("device-gone");
    QVERIFY2(result.err.ends_with("Unable to open serial port: - \n: No such file or directory\n"),
             result.err.c_str());
    QCOMPARE(result.signal, 0);
    QCOMPARE(result.status, 1);
}

// --- the cycle ---

void ControlThreadTest::theThreadWaitsForTheStartFlag() {
    Link link;
    link.thread->start();
    EVENTUALLY(link.thread->isRunning());
    QCOMPARE(link.texts, QStringList());
    link.thread->AvaaPortti(4, 1);
    EVENTUALLY(link.pulses >= 1);
    QCOMPARE(link.texts, QStringList({QStringLiteral("Portti auki"), QStringLiteral("Started")}));
}

void ControlThreadTest::theFirstTextIsStarted() {
    Link link;
    link.open();
    EVENTUALLY(link.pulses >= 3);
    QCOMPARE(link.texts, QStringList({QStringLiteral("Portti auki"), QStringLiteral("Started")}));
}

void ControlThreadTest::theFrameAtFirstIsTheRestingOne() {
    Link link;
    link.open();
    QCOMPARE(QByteArray::fromStdString(link.terminal.receive(12)), QByteArray("\0gnP\0gnP\0gnP", 12));
}

void ControlThreadTest::setPointsAreSentByTheirLow8Bits_data() {
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("second");
    QTest::addColumn<int>("third");
    QTest::addColumn<QByteArray>("frame");
    QTest::newRow("ordinary") << 12 << 34 << 56 << QByteArray("\x0c\x22\x38P");
    QTest::newRow("highest") << 255 << 254 << 128 << QByteArray("\xff\xfe\x80P");
    QTest::newRow("beyond") << 300 << 256 << 511 << QByteArray("\x2c\x00\xffP", 4);
    QTest::newRow("negative") << -1 << -128 << -256 << QByteArray("\xff\x80\x00P", 4);
}

void ControlThreadTest::setPointsAreSentByTheirLow8Bits() {
    QFETCH(int, first);
    QFETCH(int, second);
    QFETCH(int, third);
    QFETCH(QByteArray, frame);
    Link link;
    link.thread->ReceiveData(first, second, third);
    link.open();
    QCOMPARE(QByteArray::fromStdString(link.terminal.receive(4)), frame);
}

void ControlThreadTest::setPointsLeaveTheMotorByte() {
    Link link;
    link.thread->MoottoriOn(true);
    link.thread->ReceiveData(1, 2, 3);
    link.open();
    QCOMPARE(QByteArray::fromStdString(link.terminal.receive(4)), QByteArray("\1\2\3Q"));
}

void ControlThreadTest::theMotorSwitchSendsQAndP() {
    Link link;
    link.open();
    EVENTUALLY(link.terminal.receive(4) == resting_frame);
    link.thread->MoottoriOn(true);
    EVENTUALLY(link.terminal.receive(4) == std::string("\0gnQ", 4));
    link.thread->MoottoriOn(false);
    EVENTUALLY(link.terminal.receive(4) == resting_frame);
}

void ControlThreadTest::eachFrameSentGivesAPulse() {
    Link link;
    link.open();
    EVENTUALLY(link.pulses >= 5);
    link.thread->SuljePortti();
    QVERIFY(link.thread->wait(limit_ms));
    const std::size_t bytes = 4 * static_cast<std::size_t>(link.sent);
    QCOMPARE(link.terminal.receive(bytes).size(), bytes);
    QCOMPARE(link.terminal.receive(1, 50).size(), std::size_t{0});
    EVENTUALLY(link.pulses == link.sent);
}

void ControlThreadTest::theCycleLasts10MillisecondsMoreThanTheRate() {
    std::mutex guard;
    std::vector<qint64> moments;
    QElapsedTimer clock;
    clock.start();
    Link link;
    connect(
        link.thread.get(), &ControlThread::LahetaArvot, &link,
        [&] {
            const std::lock_guard<std::mutex> lock(guard);
            moments.push_back(clock.nsecsElapsed());
        },
        Qt::DirectConnection);
    link.open(4, 25);
    EVENTUALLY(link.pulses >= 5);
    link.thread->SuljePortti();
    QVERIFY(link.thread->wait(limit_ms));
    const std::lock_guard<std::mutex> lock(guard);
    for (std::size_t i = 1; i < 5; i++) {
        QVERIFY(moments[i] - moments[i - 1] >= 35'000'000);
    }
}

// In the place of the line stands a socket, which a read waits for: the test tells when the read can end.
void ControlThreadTest::the10MillisecondsPassBetweenReadingAndReporting() {
    std::array<int, 2> ends = {-1, -1};
    QCOMPARE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const auto close_ends = qScopeGuard([&] { std::for_each(ends.begin(), ends.end(), ::close); });
    QElapsedTimer clock;
    clock.start();
    std::atomic<qint64> reported_ns = 0;
    std::atomic<bool> sent_before = true;
    Link link;
    const auto end_reading = qScopeGuard([&] { shutdown(ends[0], SHUT_WR); });
    connect(
        link.thread.get(), &ControlThread::LahetaArvot, &link,
        [&] {
            char byte = 0;
            if (reported_ns == 0) {
                sent_before = recv(ends[0], &byte, 1, MSG_DONTWAIT | MSG_PEEK) != -1;
                reported_ns = clock.nsecsElapsed();
            }
        },
        Qt::DirectConnection);
    const int line = open_line(link, 1);
    QVERIFY(line > 0);
    dup2(ends[1], line);
    link.thread->start();
    EVENTUALLY(link.texts.contains(QStringLiteral("Started")));
    const qint64 started_ns = clock.nsecsElapsed();
    EVENTUALLY(clock.nsecsElapsed() - started_ns > 50'000'000);  // a pause before the read is over by now
    const qint64 readable_ns = clock.nsecsElapsed();
    QCOMPARE(send(ends[0], "x", 1, 0), ssize_t{1});
    EVENTUALLY(reported_ns != 0);
    QVERIFY(reported_ns - readable_ns >= 10'000'000);
    QVERIFY(!sent_before);
    EVENTUALLY(link.arvot.size() == 1 && link.pulses == 1);
    QCOMPARE(link.arvot[0].bytes, 1);
    shutdown(ends[0], SHUT_WR);
    link.thread->SuljePortti();
    QVERIFY(link.thread->wait(limit_ms));
}

void ControlThreadTest::aNegativeRateIsNoPause() {
    Link link;
    link.open(4, -1);
    EVENTUALLY(link.pulses >= 3);
}

// Counted from one frame to a later one, with no queued signal and the test's own thread at rest.
void ControlThreadTest::cyclesAllocateNothing() {
    std::array<std::atomic<unsigned long>, 8> counts = {};
    std::size_t frames = 0;
    QSemaphore go_on;
    QSemaphore done;
    const PseudoTerminal terminal;
    ControlThread thread(terminal.path());
    connect(
        &thread, &ControlThread::VilkutaLed, &thread,
        [&] {
            if (frames == 0) {
                go_on.acquire();
            }
            if (frames < counts.size()) {
                counts[frames] = allocations();
            }
            frames++;
            if (frames == counts.size()) {
                done.release();
            }
        },
        Qt::DirectConnection);
    thread.AvaaPortti(4, 1);
    thread.start();
    terminal.send(reply(39, 1));
    go_on.release();
    const bool reached = done.tryAcquire(1, limit_ms);
    thread.SuljePortti();
    QVERIFY(thread.wait(limit_ms));
    QVERIFY(reached);
    QVERIFY(counts.front() > 0);
    QCOMPARE(counts.back().load(), counts.front().load());
}

// --- telemetry ---

void ControlThreadTest::telemetryIsTheFirstByteOfEachSlot() {
    Link link;
    link.arrive_at_opening(reply(39, 200));
    link.open();
    EVENTUALLY(!link.arvot.empty());
    const std::array<int, 13> slots = {200, 203, 206, 209, 212, 215, 218, 221, 224, 227, 230, 233, 236};
    QCOMPARE(link.arvot[0].slots, slots);
    QCOMPARE(link.arvot[0].bytes, 39);
}

void ControlThreadTest::telemetryWithoutAReplyIsZeroAtFirst() {
    Link link;
    link.open();
    EVENTUALLY(link.arvot.size() >= 2);
    for (const Telemetry& telemetry : link.arvot) {
        QCOMPARE(telemetry.slots, (std::array<int, 13>{}));
        QCOMPARE(telemetry.bytes, 0);
    }
}

void ControlThreadTest::telemetryWithoutAReplyRepeatsTheOldValuesAndTheFrameIsStillSent() {
    Link link;
    link.arrive_at_opening(reply(39, 1));
    link.open();
    EVENTUALLY(link.arvot.size() >= 4);
    for (std::size_t i = 1; i < link.arvot.size(); i++) {
        QCOMPARE(link.arvot[i].slots, link.arvot[0].slots);
        QCOMPARE(link.arvot[i].bytes, 0);
    }
    QCOMPARE(link.arvot[0].slots[12], 37);
    const int pulses = link.pulses;
    EVENTUALLY(link.pulses > pulses);
}

void ControlThreadTest::aReplyOf36BytesLeavesTheLastSlot() {
    Link link;
    link.arrive_at_opening(reply(39, 1));
    link.open();
    EVENTUALLY(!link.arvot.empty());
    link.thread->SuljePortti();
    QVERIFY(link.thread->wait(limit_ms));
    QCoreApplication::processEvents();
    link.arvot.clear();
    link.arrive_at_opening(reply(36, 101));
    link.open();
    EVENTUALLY(!link.arvot.empty());
    const std::array<int, 13> slots = {101, 104, 107, 110, 113, 116, 119, 122, 125, 128, 131, 134, 37};
    QCOMPARE(link.arvot[0].slots, slots);
    QCOMPARE(link.arvot[0].bytes, 36);
}

void ControlThreadTest::aShortReplyLeavesAllSlotsBehindIt() {
    Link link;
    link.arrive_at_opening(reply(4, 77));
    link.open();
    EVENTUALLY(!link.arvot.empty());
    const std::array<int, 13> slots = {77, 80};
    QCOMPARE(link.arvot[0].slots, slots);
    QCOMPARE(link.arvot[0].bytes, 4);
}

void ControlThreadTest::aLongReplyIsTakenIn100BytePieces() {
    Link link;
    link.arrive_at_opening(reply(130, 0));
    link.open();
    EVENTUALLY(link.arvot.size() >= 3);
    QCOMPARE(link.arvot[0].bytes, 100);
    QCOMPARE(link.arvot[0].slots[0], 0);
    QCOMPARE(link.arvot[0].slots[12], 36);
    QCOMPARE(link.arvot[1].bytes, 30);
    QCOMPARE(link.arvot[1].slots[0], 100);
    QCOMPARE(link.arvot[1].slots[9], 127);
    QCOMPARE(link.arvot[1].slots[10], 30);
    QCOMPARE(link.arvot[2].bytes, 0);
}

// --- closing ---

void ControlThreadTest::closingRestoresTheLineThenSaysSo() {
    bool restored = false;
    bool closed = false;
    Link link;
    const auto others = descriptors_on(link.terminal.path()).size();
    link.open();
    EVENTUALLY(link.pulses >= 1);
    link.on_text = [&](const QString& text) {
        if (text == QStringLiteral("Portti kiinni")) {
            restored = (link.terminal.attributes().c_lflag & ICANON) != 0;
            closed = descriptors_on(link.terminal.path()).size() == others;
        }
    };
    link.thread->SuljePortti();
    QCOMPARE(link.texts.back(), QStringLiteral("Portti kiinni"));
    QVERIFY(restored);
    QVERIFY(closed);
}

void ControlThreadTest::closingEndsTheThreadAndSendsNoMore() {
    Link link;
    link.thread->ReceiveData(1, 2, 3);
    link.thread->MoottoriOn(true);
    link.open();
    EVENTUALLY(link.pulses >= 3);
    link.thread->SuljePortti();
    QVERIFY(link.thread->wait(limit_ms));
    const std::string bytes = link.terminal.receive(4 * static_cast<std::size_t>(link.sent) + 1, 200);
    QCOMPARE(bytes.size(), 4 * static_cast<std::size_t>(link.sent));
    QVERIFY(starts_with_frames(bytes, "\1\2\3Q"));
}

void ControlThreadTest::closingBetweenReadAndSendSendsNothing() {
    QSemaphore between;
    QSemaphore go_on;
    Link link;
    connect(
        link.thread.get(), &ControlThread::LahetaArvot, &link,
        [&] {
            between.release();
            go_on.acquire();
        },
        Qt::DirectConnection);
    link.open();
    const bool reached = between.tryAcquire(1, limit_ms);
    link.thread->SuljePortti();
    go_on.release();
    QVERIFY(reached);
    QVERIFY(link.thread->wait(limit_ms));
    QCoreApplication::processEvents();
    QCOMPARE(link.arvot.size(), std::size_t{1});
    QCOMPARE(link.sent.load(), 0);
    QCOMPARE(link.terminal.receive(1, 50), std::string());
    QVERIFY(!link.texts.contains(QStringLiteral("Send failure")));
}

void ControlThreadTest::closingAnIdleLinkLeavesDescriptor0OnTheNullDevice() {
    Link link;
    link.thread->SuljePortti();
    QVERIFY(is_null_device(0));
    link.thread->SuljePortti();
    QVERIFY(is_null_device(0));
    QCOMPARE(link.texts, QStringList({QStringLiteral("Portti kiinni"), QStringLiteral("Portti kiinni")}));
    link.open();
    EVENTUALLY(link.pulses >= 1);
}

void ControlThreadTest::closingALinkThatIsNotOpenLeavesDescriptor0ToWhoeverHasIt() {
    Link link;
    const PseudoTerminal somebodys;
    const int opened = ::open(somebodys.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    QVERIFY(dup2(opened, 0) == 0);
    ::close(opened);
    const auto restored = qScopeGuard([] { put_null_on_descriptor_zero(); });
    const std::vector<int> theirs = descriptors_on(somebodys.path());
    QCOMPARE(theirs.front(), 0);
    link.thread->SuljePortti();
    QCOMPARE(descriptors_on(somebodys.path()), theirs);
    link.open();
    link.thread->SuljePortti();
    link.thread->SuljePortti();
    QCOMPARE(descriptors_on(somebodys.path()), theirs);
}

void ControlThreadTest::closingRightAfterTheStartStillEndsTheThread() {
    Link link;
    for (int i = 0; i < 8; i++) {
        link.open();
        link.thread->SuljePortti();  // before or after the thread has seen its start flag
        QVERIFY(link.thread->wait(limit_ms));
    }
    link.open();
    link.thread->SuljePortti();
    link.open();
    const int sent = link.sent;
    EVENTUALLY(link.sent >= sent + 3);
}

void ControlThreadTest::closingAndOpeningAgainRestartsTheCycle() {
    Link link;
    link.open(2, 1);
    EVENTUALLY(link.pulses >= 1);
    link.thread->SuljePortti();
    QVERIFY(link.thread->wait(limit_ms));
    EVENTUALLY(link.pulses == link.sent);
    const int pulses = link.pulses;
    link.open(0, 1);
    EVENTUALLY(link.pulses > pulses);
    const QStringList texts = {QStringLiteral("Portti auki"), QStringLiteral("Started"),
                               QStringLiteral("Portti kiinni"), QStringLiteral("Portti auki"),
                               QStringLiteral("Started")};
    QCOMPARE(link.texts, texts);
    QCOMPARE(link.terminal.attributes().c_cflag, static_cast<tcflag_t>(B9600 | CS8 | CLOCAL | CREAD));
}

void ControlThreadTest::closingAndOpeningWithinALongPauseRestartsTheCycle() {
    Link link;
    link.open(4, 1'000'000);
    EVENTUALLY(link.pulses == 1);
    link.thread->SuljePortti();
    link.open(4, 1);
    EVENTUALLY(link.pulses >= 4);
    QCOMPARE(link.texts.count(QStringLiteral("Started")), 2);
}

void ControlThreadTest::closingAndOpeningWhileTheThreadWaitsForItsStartStartsIt() {
    Link link;
    link.thread->start();
    link.thread->SuljePortti();
    link.thread->AvaaPortti(4, 1);
    EVENTUALLY(link.pulses >= 3);
    QCOMPARE(link.texts.count(QStringLiteral("Started")), 1);
}

// The link thread is held in its cycle for longer than opening lasts.
void ControlThreadTest::openingWaitsForTheEndOfTheCycleThatWasClosed() {
    QSemaphore between;
    std::atomic<bool> hold = true;
    Link link;
    connect(
        link.thread.get(), &ControlThread::LahetaArvot, &link,
        [&] {
            if (hold.exchange(false)) {
                between.release();
                QThread::msleep(600);
            }
        },
        Qt::DirectConnection);
    link.open();
    QVERIFY(between.tryAcquire(1, limit_ms));
    link.thread->SuljePortti();
    link.open();
    EVENTUALLY(link.pulses >= 3);
    QCOMPARE(link.texts.count(QStringLiteral("Started")), 2);
}

// A cycle under way that finds the line closed neither reads nor writes, so that this is never an error.
void ControlThreadTest::closingAtAnyMomentNeverEndsTheProcess() {
    Link link;
    for (int i = 0; i < 8; i++) {
        link.open(4, 0);
        const int pulses = link.pulses;
        EVENTUALLY(link.pulses > pulses);
        QThread::usleep(static_cast<unsigned long>(1300 * i));
        link.thread->SuljePortti();
    }
    QVERIFY(!link.texts.contains(QStringLiteral("Send failure")));
}

// --- destruction ---

void ControlThreadTest::destructionWhileDrivingSendsTheRestingFrameLast() {
    Link link;
    link.thread->ReceiveData(9, 8, 7);
    link.thread->MoottoriOn(true);
    link.open();
    EVENTUALLY(link.pulses >= 3);
    const std::string bytes = link.destroy_and_collect();
    QCOMPARE(bytes.size(), 4 * (static_cast<std::size_t>(link.sent) + 1));
    QVERIFY(starts_with_frames(bytes.substr(0, bytes.size() - 4), "\x09\x08\x07Q"));
    QCOMPARE(bytes.substr(bytes.size() - 4), resting_frame);
}

void ControlThreadTest::destructionInALongPauseSendsTheRestingFrameLast() {
    Link link;
    link.thread->ReceiveData(9, 8, 7);
    link.open(4, 1'000'000);
    EVENTUALLY(link.pulses == 1);
    QCOMPARE(link.destroy_and_collect(), std::string("\x09\x08\x07P") + resting_frame);
}

void ControlThreadTest::destructionRightAfterTheStartSendsTheRestingFrameLast() {
    Link link;
    link.thread->ReceiveData(9, 8, 7);
    link.open();
    const std::string bytes = link.destroy_and_collect();
    QVERIFY(bytes.size() >= 4);
    QCOMPARE(bytes.substr(bytes.size() - 4), resting_frame);
}

void ControlThreadTest::destructionAfterClosingSendsNothing() {
    Link link;
    link.thread->ReceiveData(9, 8, 7);
    link.open();
    EVENTUALLY(link.pulses >= 1);
    link.thread->SuljePortti();
    const std::string bytes = link.destroy_and_collect();
    QCOMPARE(bytes.size(), 4 * static_cast<std::size_t>(link.sent));
    QVERIFY(starts_with_frames(bytes, "\x09\x08\x07P"));
}

void ControlThreadTest::destructionOfAnOpenLinkNeverStartedSendsNothingAndClosesTheLine() {
    Link link;
    const auto others = descriptors_on(link.terminal.path()).size();
    link.thread->AvaaPortti(4, 1);
    link.thread.reset();
    QCOMPARE(link.terminal.receive(1, 50), std::string());
    QCOMPARE(descriptors_on(link.terminal.path()).size(), others);
}

void ControlThreadTest::destructionEndsTheWaitForTheStartFlag() {
    Link link;
    link.thread->start();
    link.thread.reset();
    QCOMPARE(link.texts, QStringList());
    QCOMPARE(link.terminal.receive(1, 50), std::string());
}

// --- lines that fail ---

void ControlThreadTest::endingWhileDrivingSendsTheRestingFrameLastAndClosesTheLine() {
    Link link;
    const std::size_t others = descriptors_on(link.terminal.path()).size();
    link.thread->ReceiveData(9, 8, 7);
    link.thread->MoottoriOn(true);
    link.open();
    EVENTUALLY(link.pulses >= 3);
    link.thread->LopetaYhteys();
    QVERIFY(link.thread->isFinished());
    QCOMPARE(descriptors_on(link.terminal.path()).size(), others);
    QVERIFY(is_null_device(0));
    const std::string bytes = link.terminal.receive(4096, 50);
    QCOMPARE(bytes.size(), 4 * (static_cast<std::size_t>(link.sent) + 1));
    QVERIFY(starts_with_frames(bytes.substr(0, bytes.size() - 4), "\x09\x08\x07Q"));
    QCOMPARE(bytes.substr(bytes.size() - 4), resting_frame);
    QCOMPARE(link.texts.back(), QStringLiteral("Portti kiinni"));
    link.thread.reset();
    QCOMPARE(link.terminal.receive(1, 50), std::string());
}

void ControlThreadTest::endingLeavesTheDeviceItsSettings() {
    Link link;
    link.open(2);
    EVENTUALLY(link.pulses >= 1);
    link.thread->LopetaYhteys();
    QCOMPARE(link.terminal.attributes().c_cflag, static_cast<tcflag_t>(B38400 | CS8 | CLOCAL | CREAD));
}

void ControlThreadTest::endingAnOpenLinkNeverStartedSendsNothing() {
    Link link;
    const std::size_t others = descriptors_on(link.terminal.path()).size();
    link.thread->AvaaPortti(4, 1);
    link.thread->LopetaYhteys();
    QCOMPARE(descriptors_on(link.terminal.path()).size(), others);
    QCOMPARE(link.terminal.receive(1, 50), std::string());
    QCOMPARE(link.texts, QStringList({QStringLiteral("Portti auki"), QStringLiteral("Portti kiinni")}));
}

void ControlThreadTest::endingAClosedLinkSaysNothing() {
    Link link;
    link.thread->LopetaYhteys();
    link.open();
    EVENTUALLY(link.pulses >= 1);
    link.thread->SuljePortti();
    link.thread->LopetaYhteys();
    EVENTUALLY(link.pulses == link.sent);
    QCOMPARE(link.texts, QStringList({QStringLiteral("Portti auki"), QStringLiteral("Started"),
                                      QStringLiteral("Portti kiinni")}));
    QCOMPARE(link.terminal.receive(4096, 50).size(), 4 * static_cast<std::size_t>(link.sent));
}

void ControlThreadTest::anEndedLinkIsOpenedAgain() {
    Link link;
    for (int i = 0; i < 3; i++) {
        link.open(4, i == 0 ? 1'000'000 : 1);
        const int sent = link.sent;
        EVENTUALLY(link.sent > sent);
        link.thread->LopetaYhteys();
    }
    EVENTUALLY(link.texts.count(QStringLiteral("Started")) == 3);
    QCOMPARE(link.texts.count(QStringLiteral("Portti kiinni")), 3);
}

void ControlThreadTest::aLineHungUpGivesSendFailuresAndTheLinkGoesOn() {
    const ChildResult result = play("hung-up");
    QVERIFY2(output(result).startsWith("write() of 4 bytes failed!\nwrite() of 4 bytes failed!\n"),
             result.out.c_str());
    QVERIFY2(output(result).endsWith("\nno pulse, still cycling, Portti kiinni"), result.out.c_str());
    QCOMPARE(result.status, 0);
}

void ControlThreadTest::aLineThatTakesNoMoreGivesSendFailuresUntilItDoes() {
    const ChildResult result = play("full");
    QVERIFY2(output(result).startsWith("write() of 4 bytes failed!\n"), result.out.c_str());
    QVERIFY2(output(result).endsWith("\nsent again"), result.out.c_str());
    QCOMPARE(result.status, 0);
}

void ControlThreadTest::aLineThatTakesAPartOfTheFrameGivesASendFailure() {
    const ChildResult result = play("partial");
    QCOMPARE(output(result), QByteArray("Portti auki,Started,Send failure,Portti kiinni; 0 pulses"));
    QCOMPARE(result.status, 0);
}

void ControlThreadTest::aFailedReadEndsTheWholeApplicationWithStatus0() {
    for (int i = 0; i < 5; i++) {
        const ChildResult result = play("unreadable");
        QCOMPARE(output(result), QByteArray("driving\nSerialPort Read failed!\n"));
        QCOMPARE(result.status, 0);
        QCOMPARE(result.signal, 0);
    }
}

namespace {

bool eventually(const std::function<bool()>& condition) {
    return QTest::qWaitFor(condition, limit_ms);
}

// Descriptor 0 is free when the line is opened.
int play_descriptor_0() {
    Link link;
    close(0);
    const auto others = descriptors_on(link.terminal.path()).size();
    link.thread->AvaaPortti(4, 1);
    std::printf("%s,%s", qPrintable(link.texts.join(QLatin1Char(','))), is_null_device(0) ? "null" : "other");
    std::printf(",%s", descriptors_on(link.terminal.path()).size() == others + 1 ? "above 0" : "none");
    return 0;
}

int play_missing_device() {
    ControlThread thread("/dev/does-not-exist");
    thread.AvaaPortti(0, 200);
    return 0;
}

// The controller's end of the line goes away while the link is cycling.
int play_hung_up() {
    Link link;
    link.open();
    eventually([&] { return link.pulses >= 1; });
    link.terminal.hang_up();
    const bool failing = eventually([&] { return link.texts.count(QStringLiteral("Send failure")) >= 3; });
    const int pulses = link.pulses;
    const bool cycling = eventually([&] { return link.texts.count(QStringLiteral("Send failure")) >= 6; });
    const bool silent = link.pulses == pulses;
    link.thread->SuljePortti();
    link.thread->wait();
    std::printf("%s, %s, %s", failing && silent ? "no pulse" : "pulses",
                cycling ? "still cycling" : "stopped", qPrintable(link.texts.back()));
    return 0;
}

// The controller does not read, and the system's buffer for the line is full; then it reads again.
int play_full() {
    Link link;
    link.open(4, 20);
    eventually([&] { return link.pulses >= 1; });
    const int near_end = open(link.terminal.path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    const bool failing = eventually([&] {
        while (write(near_end, "x", 1) > 0) {
        }
        return link.texts.contains(QStringLiteral("Send failure"));
    });
    const int pulses = link.pulses;
    const bool sent_again = eventually([&] {
        link.terminal.receive(1000, 1);
        return link.pulses > pulses;
    });
    link.thread->SuljePortti();
    link.thread->wait();
    std::printf("%s", failing && sent_again ? "sent again" : "not sent again");
    return 0;
}

// The system takes two bytes of the only frame.
int play_partial() {
    Link link;
    const int line = open_line(link, 1'000'000);
    {
        const FileSizeLimit limit(line, 2);
        link.thread->start();
        eventually([&] { return link.texts.contains(QStringLiteral("Send failure")) || link.pulses > 0; });
        link.thread->SuljePortti();
        link.thread->wait();
    }
    std::printf("%s; %d pulses", qPrintable(link.texts.join(QLatin1Char(','))), link.pulses);
    return 0;
}

// The application is busy drawing when a read fails in the link thread.
int play_unreadable(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    Link link;
    QLabel label;
    QTimer redraw;
    QObject::connect(&redraw, &QTimer::timeout, &label, [&] { label.setText(QString::number(link.pulses)); });
    label.show();
    redraw.start(0);
    const std::vector<int> others = descriptors_on(link.terminal.path());
    link.open(4, 0);
    eventually([&] { return link.pulses >= 3; });
    std::printf("driving\n");
    const int write_only = open("/dev/null", O_WRONLY);
    for (const int descriptor : descriptors_on(link.terminal.path())) {
        if (std::find(others.begin(), others.end(), descriptor) == others.end()) {
            dup2(write_only, descriptor);
        }
    }
    return QApplication::exec();
}

// The operator opens the line once more while the link is cycling, and the device has gone.
int play_device_gone(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    Link link;
    QTemporaryDir directory;
    const QString name = directory.filePath(QStringLiteral("line"));
    QFile::link(QString::fromStdString(link.terminal.path()), name);
    link.thread = std::make_unique<ControlThread>(name.toStdString());
    QLabel label;
    QObject::connect(link.thread.get(), &ControlThread::LahetaArvot, &label, [&] { link.pulses++; });
    label.show();
    link.open(4, 0);
    eventually([&] { return link.pulses >= 3; });
    directory.remove();
    link.open();
    return 77;
}

int play_scene(const std::string& scene, int argc, char** argv) {
    if (scene == "device-gone") {
        return play_device_gone(argc, argv);
    }
    if (scene == "unreadable") {
        return play_unreadable(argc, argv);
    }
    const QCoreApplication application(argc, argv);
    if (scene == "descriptor-0") {
        return play_descriptor_0();
    }
    if (scene == "missing-device") {
        return play_missing_device();
    }
    if (scene == "partial") {
        return play_partial();
    }
    return scene == "full" ? play_full() : play_hung_up();
}

bool is_scene(const std::string& name) {
    const std::array<const char*, 7> scenes = {"descriptor-0", "missing-device", "hung-up",    "full",
                                               "partial",      "unreadable",     "device-gone"};
    return std::find(scenes.begin(), scenes.end(), name) != scenes.end();
}

}  // namespace

// The test is its own child program: with the name of a scene as argument it plays that scene.
int main(int argc, char** argv) {
    put_null_on_descriptor_zero();
    if (argc == 2 && is_scene(argv[1])) {
        return play_scene(argv[1], argc, argv);
    }
    const QCoreApplication application(argc, argv);
    ControlThreadTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "controlthread_test.moc"
