#include "terminationsignals.h"

#include <sys/resource.h>

#include <QSignalSpy>
#include <QTest>
#include <QWidget>
#include <cerrno>
#include <csignal>
#include <string>

#include "tests/support/childprocess.h"

namespace {

using Handler = void (*)(int);

Handler handler_of(int number) {
    struct sigaction action = {};
    sigaction(number, nullptr, &action);
    return action.sa_handler;
}

}  // namespace

class TerminationSignalsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void signalIsBroughtIntoTheEventLoop_data() { add_signals(); }
    void signalIsBroughtIntoTheEventLoop();
    void destructorRestoresTheEarlierAction_data() { add_signals(); }
    void destructorRestoresTheEarlierAction();
    void ignoredSignalStaysIgnored_data() { add_signals(); }
    void ignoredSignalStaysIgnored();
    void manySignalsAtOnceNeitherBlockNorGetLost();
    void errnoSurvivesASignal();
    void windowConnectedToItIsClosed();
    void afterwardsASignalEndsTheProcessAgain();
    void withoutAPipeTheProcessEnds();

private:
    static void add_signals();
};

void TerminationSignalsTest::add_signals() {
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void TerminationSignalsTest::signalIsBroughtIntoTheEventLoop() {
    QFETCH(const int, number);
    const TerminationSignals taken;
    QSignalSpy spy(&taken, &TerminationSignals::received);
    std::raise(number);
    QCOMPARE(spy.count(), 0);
    QTRY_COMPARE(spy.count(), 1);
    std::raise(number);
    QTRY_COMPARE(spy.count(), 2);
}

void TerminationSignalsTest::destructorRestoresTheEarlierAction() {
    QFETCH(const int, number);
    const Handler earlier = handler_of(number);
    {
        const TerminationSignals taken;
        QVERIFY(handler_of(number) != earlier);
    }
    QVERIFY(handler_of(number) == earlier);
}

void TerminationSignalsTest::ignoredSignalStaysIgnored() {
    QFETCH(const int, number);
    const Handler earlier = std::signal(number, SIG_IGN);
    {
        const TerminationSignals taken;
        QVERIFY(handler_of(number) == SIG_IGN);
    }
    QVERIFY(handler_of(number) == SIG_IGN);
    std::signal(number, earlier);
}

void TerminationSignalsTest::manySignalsAtOnceNeitherBlockNorGetLost() {
    const TerminationSignals taken;
    QSignalSpy spy(&taken, &TerminationSignals::received);
    for (int i = 0; i < 100000; ++i) {
        std::raise(SIGTERM);
    }
    QTRY_COMPARE(spy.count(), 1);
    std::raise(SIGTERM);
    QTRY_COMPARE(spy.count(), 2);
}

void TerminationSignalsTest::errnoSurvivesASignal() {
    const TerminationSignals taken;
    for (int i = 0; i < 100000; ++i) {
        errno = ENOENT;
        std::raise(SIGTERM);  // at last into a full pipe, which fails
        QCOMPARE(errno, ENOENT);
    }
}

void TerminationSignalsTest::windowConnectedToItIsClosed() {
    QWidget window;
    const TerminationSignals taken;
    connect(&taken, &TerminationSignals::received, &window, &QWidget::close);
    window.show();
    std::raise(SIGTERM);
    QTRY_VERIFY(!window.isVisible());
}

void TerminationSignalsTest::afterwardsASignalEndsTheProcessAgain() {
    const ChildResult result = run_in_child([] {
        std::signal(SIGTERM, SIG_DFL);
        { const TerminationSignals taken; }
        std::raise(SIGTERM);
    });
    QCOMPARE(result.signal, SIGTERM);
}

void TerminationSignalsTest::withoutAPipeTheProcessEnds() {
    const ChildResult result = run_in_child([] {
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        const TerminationSignals taken;
    });
    QCOMPARE(result.status, 1);
    QCOMPARE(result.err, std::string("pipe2: Too many open files\n"));
}

QTEST_MAIN(TerminationSignalsTest)
#include "terminationsignals_test.moc"
