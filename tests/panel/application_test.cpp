#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>
#include <csignal>

namespace {

// Whether the process has a handler of its own for the signal (proc(5), SigCgt).
bool catches(qint64 process, int number) {
    QFile status(QStringLiteral("/proc/%1/status").arg(process));
    if (!status.open(QIODevice::ReadOnly)) {
        return false;
    }
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("SigCgt:")) {
            const quint64 caught = line.mid(7).trimmed().toULongLong(nullptr, 16);
            return (caught >> static_cast<unsigned int>(number - 1) & 1U) != 0;
        }
    }
    return false;
}

}  // namespace

// The program itself, on the platform plug-in of the test's environment.
class ApplicationTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void terminationSignalEndsItWithStatusZero_data();
    void terminationSignalEndsItWithStatusZero();
    void standardInputIsTheNullDevice();

private:
    static void start(QProcess& program);
};

void ApplicationTest::start(QProcess& program) {
    program.start(QStringLiteral(OHJAUSPANEELI_PROGRAM), QStringList());
    QVERIFY(program.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(catches(program.processId(), SIGHUP), 30000);
}

void ApplicationTest::terminationSignalEndsItWithStatusZero_data() {
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void ApplicationTest::terminationSignalEndsItWithStatusZero() {
    QFETCH(const int, number);
    QProcess program;
    start(program);
    QCOMPARE(::kill(static_cast<pid_t>(program.processId()), number), 0);
    QVERIFY(program.waitForFinished());
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(program.exitCode(), 0);
    QCOMPARE(program.readAllStandardOutput(), QByteArray());
}

void ApplicationTest::standardInputIsTheNullDevice() {
    QProcess program;
    start(program);
    QCOMPARE(QFileInfo(QStringLiteral("/proc/%1/fd/0").arg(program.processId())).symLinkTarget(),
             QStringLiteral("/dev/null"));
    program.terminate();
    QVERIFY(program.waitForFinished());
}

QTEST_MAIN(ApplicationTest)
#include "application_test.moc"
