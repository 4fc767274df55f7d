#include "lineguard.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "controlthread.h"
#include "tests/support/childprocess.h"
#include "tests/support/pseudoterminal.h"

namespace {

using namespace std::chrono_literals;

const std::string neutral_frame("\0gnP", 4);
const std::string driving_frame("\x9c\x50\x2fQ", 4);

// A near end of a line, as `serial` opens it.
int open_near_end(const PseudoTerminal& terminal) {
    const int line = ::open(terminal.path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    termios attributes = {};
    tcgetattr(line, &attributes);
    cfmakeraw(&attributes);
    tcsetattr(line, TCSANOW, &attributes);
    return line;
}

// What the far end has received by now.
std::string received(const PseudoTerminal& terminal) {
    std::string all;
    for (std::string more = terminal.receive(4096, 0); !more.empty(); more = terminal.receive(4096, 0)) {
        all += more;
    }
    return all;
}

// Writes until the line takes no more; returns how much it took. What was written moves on to the far end's
// own buffer first, in the kernel's time.
std::size_t fill(int line, const PseudoTerminal& terminal) {
    constexpr int far_buffer = 4095;
    std::size_t queued = 0;
    for (int arrived = 0, before = 0; before < far_buffer;) {
        before = arrived;
        for (ssize_t written = 1; written > 0; written = ::write(line, "x", 1)) {
            queued++;
        }
        ioctl(terminal.far_end(), FIONREAD, &arrived);
    }
    return queued;
}

// The far end keeps what has come so far, so that a part of the filling arrives before the neutral frame.
bool is_filling_then_rest(const std::string& bytes) {
    const std::size_t rest = bytes.find_first_not_of('x');
    return rest != std::string::npos && bytes.substr(rest) == neutral_frame;
}

// The guard's work in a thread of the test, and the other end of its socket.
class GuardAtWork {
public:
    GuardAtWork() {
        socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends_.data());
        thread_ = std::thread([this] { guard_line(ends_[1]); });
    }
    ~GuardAtWork() {
        if (thread_.joinable()) {
            end();
        }
        ::close(ends_[1]);
    }
    GuardAtWork(const GuardAtWork&) = delete;
    GuardAtWork& operator=(const GuardAtWork&) = delete;

    void tell_opened(int line) const {
        char what = 'O';
        iovec data = {&what, 1};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> room = {};
        msghdr header = {};
        header.msg_iov = &data;
        header.msg_iovlen = 1;
        header.msg_control = room.data();
        header.msg_controllen = room.size();
        cmsghdr* const passed = CMSG_FIRSTHDR(&header);
        passed->cmsg_level = SOL_SOCKET;
        passed->cmsg_type = SCM_RIGHTS;
        passed->cmsg_len = CMSG_LEN(sizeof line);
        std::memcpy(CMSG_DATA(passed), &line, sizeof line);
        sendmsg(ends_[0], &header, 0);
    }

    void tell_closed() const { send(ends_[0], "C", 1, 0); }

    void wait_for_answer() const {
        char answer = 0;
        recv(ends_[0], &answer, 1, 0);
    }

    // The other end goes away, and the guard ends.
    void end() {
        let_go();
        wait();
    }

    void let_go() { ::close(ends_[0]); }

    void wait() { thread_.join(); }

private:
    std::array<int, 2> ends_ = {};
    std::thread thread_;
};

// --- processes ---

QByteArray contents(pid_t process, const char* name) {
    QFile file(QStringLiteral("/proc/%1/%2").arg(process).arg(QLatin1StringView(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The only child of this process, or -1.
pid_t only_child() {
    const QByteArrayList children =
        contents(getpid(), ("task/" + std::to_string(getpid()) + "/children").c_str())
            .simplified()
            .split(' ');
    return children.size() == 1 && !children[0].isEmpty() ? children[0].toInt() : -1;
}

bool has_no_child() {
    return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

bool eventually(const std::function<bool()>& condition) {
    return QTest::qWaitFor(condition, 30000);
}

// Number `at` of the words of /proc/PID/stat behind the name: 1 is the state, 4 the session.
QByteArray stat_word(pid_t process, int at) {
    const QByteArray stat = contents(process, "stat");
    return stat.mid(stat.lastIndexOf(')') + 1).split(' ').value(at);
}

// Whether the guard's own life has begun: it has given up the standard descriptors.
bool has_settled_down(pid_t guard) {
    return stat_word(guard, 4).toInt() == guard &&
           QFileInfo(QStringLiteral("/proc/%1/fd/2").arg(guard)).symLinkTarget() ==
               QStringLiteral("/dev/null") &&
           QDir(QStringLiteral("/proc/%1/fd").arg(guard))
                   .entryList(QDir::NoDotAndDotDot | QDir::AllEntries)
                   .size() == 4;
}

ChildResult play(const char* scene) {
    return run_program({"/proc/self/exe", scene});
}

QByteArray output(const ChildResult& result) {
    return QByteArray::fromStdString(result.out);
}

constexpr const char* lost_report = "lineguard: does not answer any more, the panel goes on without it\n";

}  // namespace

class LineGuardTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void endWithoutALineSendsNothing();
    void endWithALineSendsTheNeutralFrame();
    void lineThatWasClosedGetsNothing();
    void lineThatWasOpenedAgainGetsTheFrame();
    void ofSeveralLinesTheNewestIsHeldOnly();
    void unreadAnswerHidesNothingThatWasTold();
    void fullQueueIsDiscardedForTheFrame();
    void stoppedFlowIsGivenUp();
    void flowThatGoesOnGetsTheFrame();
    void lineThatIsHungUpEndsItSilently();

    void itIsAProcessOfItsOwn();
    void noSignalThatCanBeIgnoredEndsIt();
    void itEndsWithItsOwnerAndLeavesNoZombie();
    void ownerThatIsKilledLeavesTheNeutralFrame();
    void ownerThatWasNeverGivenALineLeavesNothing();
    void releaseEndsTheHoldingBeforeItReturns();
    void killedGuardIsReportedOnceAndMissedNoMore();
    void stoppedGuardHoldsNobodyUp();
    void guardThatCannotBeStartedIsDoneWithout();
    void standardDescriptorsThatAreClosedStayFree();

    void linkIsHeldFromItsOpeningOn();
    void closedLinkIsNotHeld();
    void destroyedLinkIsNotHeld();
    void restThatTheLineDidNotTakeIsLeftToTheGuard();
    void killedAtAnyMomentItLeavesTheVehicleAtRest();
};

// --- its work ---

void LineGuardTest::endWithoutALineSendsNothing() {
    const PseudoTerminal terminal;
    GuardAtWork guard;
    guard.end();
    QCOMPARE(received(terminal), std::string());
}

void LineGuardTest::endWithALineSendsTheNeutralFrame() {
    const PseudoTerminal terminal;
    const int line = open_near_end(terminal);
    GuardAtWork guard;
    guard.tell_opened(line);
    ::close(line);
    guard.end();
    QCOMPARE(received(terminal), neutral_frame);
}

void LineGuardTest::lineThatWasClosedGetsNothing() {
    const PseudoTerminal terminal;
    const int line = open_near_end(terminal);
    GuardAtWork guard;
    guard.tell_opened(line);
    guard.tell_closed();
    guard.wait_for_answer();
    ::close(line);
    guard.end();
    QCOMPARE(received(terminal), std::string());
}

void LineGuardTest::lineThatWasOpenedAgainGetsTheFrame() {
    const PseudoTerminal terminal;
    const int line = open_near_end(terminal);
    GuardAtWork guard;
    guard.tell_opened(line);
    guard.tell_closed();
    guard.wait_for_answer();
    guard.tell_opened(line);
    ::close(line);
    guard.end();
    QCOMPARE(received(terminal), neutral_frame);
}

void LineGuardTest::ofSeveralLinesTheNewestIsHeldOnly() {
    const PseudoTerminal terminal;
    const int line = open_near_end(terminal);
    std::array<int, 2> earlier = {};
    QCOMPARE(pipe2(earlier.data(), O_CLOEXEC), 0);
    GuardAtWork guard;
    guard.tell_opened(earlier[1]);
    ::close(earlier[1]);
    guard.tell_opened(line);
    ::close(line);
    char byte = 0;
    QCOMPARE(::read(earlier[0], &byte, 1), 0);  // as soon as nobody holds the other end
    ::close(earlier[0]);
    guard.end();
    QCOMPARE(received(terminal), neutral_frame);
}

void LineGuardTest::unreadAnswerHidesNothingThatWasTold() {
    for (int i = 0; i < 50; i++) {
        const PseudoTerminal terminal;
        const int line = open_near_end(terminal);
        GuardAtWork guard;
        guard.tell_opened(line);
        guard.tell_closed();
        guard.tell_opened(line);
        ::close(line);
        guard.end();
        QCOMPARE(received(terminal), neutral_frame);
    }
}

void LineGuardTest::fullQueueIsDiscardedForTheFrame() {
    const PseudoTerminal terminal;
    const int line = open_near_end(terminal);
    const std::size_t queued = fill(line, terminal);
    GuardAtWork guard;
    guard.tell_opened(line);
    ::close(line);
    guard.end();
    const std::string bytes = received(terminal);
    QVERIFY(is_filling_then_rest(bytes));
    QVERIFY(bytes.size() < queued);
}

// A descriptor that waits would wait for ever here.
void LineGuardTest::stoppedFlowIsGivenUp() {
    const PseudoTerminal terminal;
    const int line = open_near_end(terminal);
    fcntl(line, F_SETFL, fcntl(line, F_GETFL) & ~O_NONBLOCK);
    tcflow(line, TCOOFF);
    GuardAtWork guard;
    guard.tell_opened(line);
    const auto begin = std::chrono::steady_clock::now();
    guard.end();
    QVERIFY(std::chrono::steady_clock::now() - begin >= 2s);
    tcflow(line, TCOON);
    QCOMPARE(received(terminal), std::string());
    ::close(line);
}

void LineGuardTest::flowThatGoesOnGetsTheFrame() {
    for (int i = 0; i < 20; i++) {
        const PseudoTerminal terminal;
        const int line = open_near_end(terminal);
        tcflow(line, TCOOFF);
        GuardAtWork guard;
        guard.tell_opened(line);
        guard.let_go();
        std::this_thread::sleep_for(std::chrono::milliseconds(i));
        tcflow(line, TCOON);
        guard.wait();
        QCOMPARE(received(terminal), neutral_frame);
        ::close(line);
    }
}

void LineGuardTest::lineThatIsHungUpEndsItSilently() {
    PseudoTerminal terminal;
    const int line = open_near_end(terminal);
    terminal.hang_up();
    GuardAtWork guard;
    guard.tell_opened(line);
    ::close(line);
    guard.end();
}

// --- its process ---

void LineGuardTest::itIsAProcessOfItsOwn() {
    const ChildResult result = play("process");
    QCOMPARE(QByteArray::fromStdString(result.err), QByteArray());
    QCOMPARE(output(result), QByteArray("settled\n"
                                        "name lineguard\n"
                                        "arguments lineguard\n"
                                        "session its own\n"
                                        "group its own\n"
                                        "terminal 0\n"
                                        "threads 1\n"
                                        "directory /\n"
                                        "memory at most 1 MiB\n"));
    QCOMPARE(result.status, 0);
}

void LineGuardTest::noSignalThatCanBeIgnoredEndsIt() {
    const ChildResult result = play("signals");
    QCOMPARE(output(result), QByteArray("still there"));
    QCOMPARE(result.status, 0);
}

void LineGuardTest::itEndsWithItsOwnerAndLeavesNoZombie() {
    const ChildResult result = play("normal-end");
    QCOMPARE(output(result), QByteArray("no child"));
    QCOMPARE(QByteArray::fromStdString(result.err), QByteArray());
}

void LineGuardTest::ownerThatIsKilledLeavesTheNeutralFrame() {
    const ChildResult result = play("killed-owner");
    QCOMPARE(output(result), QByteArray("00676e50"));
}

void LineGuardTest::ownerThatWasNeverGivenALineLeavesNothing() {
    const ChildResult result = play("killed-idle-owner");
    QCOMPARE(output(result), QByteArray("nothing left"));
}

void LineGuardTest::releaseEndsTheHoldingBeforeItReturns() {
    const ChildResult result = play("release");
    QCOMPARE(output(result), QByteArray("held, 100 of 100 released"));
}

void LineGuardTest::killedGuardIsReportedOnceAndMissedNoMore() {
    const ChildResult result = play("killed-guard");
    QCOMPARE(output(result), QByteArray("readable, lost, no child"));
    QCOMPARE(QByteArray::fromStdString(result.err), QByteArray(lost_report));
    QCOMPARE(result.status, 0);
}

void LineGuardTest::stoppedGuardHoldsNobodyUp() {
    const ChildResult result = play("stopped-guard");
    QCOMPARE(output(result), QByteArray("went on"));
    QCOMPARE(QByteArray::fromStdString(result.err), QByteArray(lost_report));
    QCOMPARE(result.status, 0);
}

void LineGuardTest::guardThatCannotBeStartedIsDoneWithout() {
    const ChildResult result = play("no-descriptors");
    QCOMPARE(output(result), QByteArray("-1, lost"));
    QCOMPARE(QByteArray::fromStdString(result.err),
             QByteArray("lineguard: cannot be started, the panel goes on without it: Too many open files\n"));
    QCOMPARE(result.status, 0);
}

void LineGuardTest::standardDescriptorsThatAreClosedStayFree() {
    const ChildResult result = play("closed-outputs");
    QCOMPARE(result.status, 0);
}

// --- the link's guard ---

void LineGuardTest::linkIsHeldFromItsOpeningOn() {
    QCOMPARE(output(play("killed-at-opening")), QByteArray("00676e50"));
}

void LineGuardTest::closedLinkIsNotHeld() {
    QCOMPARE(output(play("killed-after-closing")), QByteArray("9c502f51"));
}

void LineGuardTest::destroyedLinkIsNotHeld() {
    QCOMPARE(output(play("killed-after-destruction")), QByteArray("00676e50"));
}

void LineGuardTest::restThatTheLineDidNotTakeIsLeftToTheGuard() {
    const ChildResult result = play("full-line");
    QCOMPARE(output(result), QByteArray("write() of 4 bytes failed!\nat rest"));
}

void LineGuardTest::killedAtAnyMomentItLeavesTheVehicleAtRest() {
    const ChildResult result = play("kills");
    QCOMPARE(output(result), QByteArray("200 of 200 at rest"));
    QCOMPARE(QByteArray::fromStdString(result.err), QByteArray());
    QCOMPARE(result.status, 0);
}

namespace {

char** program_arguments = nullptr;

std::string hexadecimal(const std::string& bytes) {
    return QByteArray::fromStdString(bytes).toHex().toStdString();
}

int play_process() {
    const LineGuard guard(program_arguments);
    const pid_t process = only_child();
    std::printf("%s\n", eventually([&] { return has_settled_down(process); }) ? "settled" : "not settled");
    std::printf("name %s", contents(process, "comm").constData());
    std::printf("arguments %s\n", contents(process, "cmdline").constData());
    std::printf("session %s\n", getsid(process) == process ? "its own" : "shared");
    std::printf("group %s\n", getpgid(process) == process ? "its own" : "shared");
    std::printf("terminal %s\n", stat_word(process, 5).constData());
#ifdef LINEGUARD_TEST_IS_SANITIZED
    std::printf("threads 1\n");  // beside the sanitizer's own
#else
    std::printf("threads %s\n", stat_word(process, 18).constData());
#endif
    std::printf("directory %s\n",
                qPrintable(QFileInfo(QStringLiteral("/proc/%1/cwd").arg(process)).symLinkTarget()));
    int private_kib = 0;
    for (const QByteArray& line : contents(process, "smaps_rollup").split('\n')) {
        private_kib += line.startsWith("Private_") ? line.simplified().split(' ').value(1).toInt() : 0;
    }
#ifdef LINEGUARD_TEST_IS_SANITIZED
    private_kib = 0;
#endif
    std::printf("memory %s\n", private_kib <= 1024 ? "at most 1 MiB" : std::to_string(private_kib).c_str());
    return 0;
}

int play_signals() {
    LineGuard guard;
    const pid_t process = only_child();
    for (int number = 1; number < NSIG; number++) {
        const bool is_the_thread_librarys = number > SIGSYS && number < SIGRTMIN;
        if (number != SIGKILL && number != SIGSTOP && !is_the_thread_librarys) {
            kill(process, number);
        }
    }
    // It goes on working: what is released is released.
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return 1;
    }
    guard.hold(ends[1]);
    guard.release();
    std::printf("%s", guard.look() && kill(process, 0) == 0 ? "still there" : "gone");
    return 0;
}

int play_normal_end() {
    { const LineGuard guard; }
    std::printf("%s", has_no_child() ? "no child" : "a child is left");
    return 0;
}

// Forks; the child lives until it is killed, and calls `ready` once it is to be.
class Owner {
public:
    explicit Owner(const std::function<void(const std::function<void()>& ready)>& live) {
        std::array<int, 2> ends = {};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            std::abort();
        }
        process_ = fork();
        if (process_ == 0) {
            live([&] { [[maybe_unused]] const ssize_t written = ::write(ends[1], "r", 1); });
            _exit(EXIT_FAILURE);
        }
        ::close(ends[1]);
        ready_ = ends[0];
    }
    ~Owner() { ::close(ready_); }
    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;

    // Waits for `ready`, kills, and waits until the child and all that it has started are gone.
    void end() const {
        wait_until_ready();
        end_now();
        wait_for_all();
    }

    void wait_until_ready() const {
        char byte = 0;
        [[maybe_unused]] const ssize_t count = ::read(ready_, &byte, 1);
    }

    void end_now() const { kill(process_, SIGKILL); }

    static void wait_for_all() {
        while (waitpid(-1, nullptr, 0) > 0) {
        }
    }

private:
    pid_t process_ = -1;
    int ready_ = -1;
};

[[noreturn]] void live_on() {
    for (;;) {
        pause();
    }
}

// A link whose first frames drive.
void drive(ControlThread& link, int rate_ms = 1) {
    link.ReceiveData(156, 80, 47);
    link.MoottoriOn(true);
    link.AvaaPortti(4, rate_ms);
    link.start();
}

// Waits until one frame has arrived.
void wait_for_frame(const PseudoTerminal& terminal) {
    for (int arrived = 0; arrived < 4; ioctl(terminal.far_end(), FIONREAD, &arrived)) {
        std::this_thread::sleep_for(1ms);
    }
}

// The neutral frames at the end of what arrived.
std::string neutral_tail(const std::string& bytes) {
    std::string tail;
    while (bytes.size() > tail.size() && bytes.substr(bytes.size() - tail.size() - 4, 4) == neutral_frame) {
        tail += neutral_frame;
    }
    return tail;
}

// The different frames that arrived, in their order.
std::string distinct_frames(const std::string& bytes) {
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 4) {
        const std::string frame = bytes.substr(at, 4);
        if (at < 4 || frame != bytes.substr(at - 4, 4)) {
            text += (text.empty() ? "" : " ") + hexadecimal(frame);
        }
    }
    return text;
}

int play_killed_owner() {
    const PseudoTerminal terminal;
    const int line = open_near_end(terminal);
    Owner([&](const auto& ready) {
        LineGuard guard;
        guard.hold(line);
        ready();
        live_on();
    }).end();
    std::printf("%s", hexadecimal(received(terminal)).c_str());
    return 0;
}

int play_killed_idle_owner() {
    Owner([&](const auto& ready) {
        const LineGuard guard;
        ready();
        live_on();
    }).end();
    std::printf("nothing left");
    return 0;
}

int play_release() {
    LineGuard guard;
    bool held = true;
    int released = 0;
    for (int i = 0; i < 100; i++) {
        std::array<int, 2> ends = {};
        if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
            return 1;
        }
        char byte = 0;
        guard.hold(ends[1]);
        const int copy = fcntl(ends[1], F_DUPFD_CLOEXEC, 0);
        ::close(ends[1]);
        held = held && ::read(ends[0], &byte, 1) == -1 && errno == EAGAIN;
        guard.release();
        ::close(copy);
        released += ::read(ends[0], &byte, 1) == 0 ? 1 : 0;
        ::close(ends[0]);
    }
    std::printf("%s, %d of 100 released", held ? "held" : "not held", released);
    return 0;
}

int play_killed_guard() {
    const PseudoTerminal terminal;
    const int line = open_near_end(terminal);
    LineGuard guard;
    guard.hold(line);
    kill(only_child(), SIGKILL);
    pollfd news = {guard.descriptor(), POLLIN, 0};
    std::printf("%s, ", poll(&news, 1, 30000) == 1 ? "readable" : "silent");
    std::printf("%s, ", guard.look() || guard.look() ? "there" : "lost");
    guard.release();
    guard.hold(line);
    guard.release();
    std::printf("%s", has_no_child() ? "no child" : "a child is left");
    return 0;
}

// Its queue fills up, and neither telling it something nor letting it go waits for it.
int play_stopped_guard() {
    const pid_t owner = fork();
    if (owner == 0) {
        const PseudoTerminal terminal;
        const int line = open_near_end(terminal);
        {
            LineGuard guard;
            kill(only_child(), SIGSTOP);
            guard.hold(line);
            guard.release();
            for (int i = 0; i < 5000; i++) {
                guard.hold(line);
            }
        }
        _exit(EXIT_SUCCESS);
    }
    int state = 0;
    waitpid(owner, &state, 0);
    std::printf("%s", WIFEXITED(state) && WEXITSTATUS(state) == 0 ? "went on" : "did not go on");
    kill(only_child(), SIGKILL);
    return 0;
}

int play_no_descriptors() {
    rlimit usual = {};
    getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit none = {0, usual.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    LineGuard guard;
    guard.hold(1);
    guard.release();
    setrlimit(RLIMIT_NOFILE, &usual);
    std::printf("%d, %s", guard.descriptor(), guard.look() ? "there" : "lost");
    return 0;
}

int play_closed_outputs() {
    ::close(STDOUT_FILENO);
    ::close(STDERR_FILENO);
    const LineGuard guard;
    return guard.descriptor() > STDERR_FILENO && fcntl(STDOUT_FILENO, F_GETFD) == -1 &&
                   fcntl(STDERR_FILENO, F_GETFD) == -1
               ? 0
               : 1;
}

// Kills a process with a guarded link when `live` is through; returns all that came over the line.
std::string sent_until_killed(
    const std::function<void(std::unique_ptr<ControlThread>& link, const PseudoTerminal& terminal)>& live) {
    const PseudoTerminal terminal;
    Owner([&](const auto& ready) {
        LineGuard guard;
        auto link = std::make_unique<ControlThread>(terminal.path(), &guard);
        live(link, terminal);
        ready();
        live_on();
    }).end();
    return received(terminal);
}

// The 300 ms after the opening are still to come when it is killed.
int play_killed_at_opening() {
    const PseudoTerminal terminal;
    Owner([&](const auto& ready) {
        LineGuard guard;
        ControlThread link(terminal.path(), &guard);
        QObject::connect(&link, &ControlThread::LahetaTeksti, &link, [&] { ready(); });
        drive(link);
    }).end();
    std::printf("%s", hexadecimal(received(terminal)).c_str());
    return 0;
}

int play_killed_after_closing() {
    const std::string bytes = sent_until_killed([](auto& link, const auto& terminal) {
        drive(*link);
        wait_for_frame(terminal);
        link->SuljePortti();
    });
    std::printf("%s", distinct_frames(bytes).c_str());
    return 0;
}

int play_killed_after_destruction() {
    const std::string bytes = sent_until_killed([](auto& link, const auto& terminal) {
        drive(*link);
        wait_for_frame(terminal);
        link.reset();
    });
    std::printf("%s", hexadecimal(neutral_tail(bytes)).c_str());
    return 0;
}

// The line takes nothing when the link is ended.
int play_full_line() {
    const std::string bytes = sent_until_killed([](auto& link, const auto& terminal) {
        drive(*link, 1'000'000);
        wait_for_frame(terminal);
        fill(open_near_end(terminal), terminal);
        link->LopetaYhteys();
        std::fflush(stdout);
    });
    const bool drove = bytes.compare(0, 4, driving_frame) == 0;
    std::printf("%s",
                drove && is_filling_then_rest(bytes.substr(4)) ? "at rest" : hexadecimal(bytes).c_str());
    return 0;
}

// An operator who opens the port, drives, ends the link, and opens it again, until the process is killed.
[[noreturn]] void open_and_end_over_and_over(const PseudoTerminal& terminal, unsigned int seed) {
    std::mt19937 random(seed);
    LineGuard guard;
    ControlThread link(terminal.path(), &guard);
    for (;;) {
        drive(link, static_cast<int>(random() % 5));
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 60));
        link.LopetaYhteys();
    }
}

// Whole frames, of which the last one is the neutral one; or none at all.
bool is_at_rest(const std::string& bytes) {
    return bytes.size() % 4 == 0 && (bytes.empty() || bytes.substr(bytes.size() - 4) == neutral_frame);
}

int play_kills() {
    constexpr int rounds = 5;
    constexpr int at_once = 40;
    constexpr int longest_life_ms = 420;  // the opening takes 300 of them
    std::mt19937 random(20);
    int at_rest = 0;
    int that_drove = 0;
    for (int round = 0; round < rounds; round++) {
        std::deque<PseudoTerminal> terminals;
        std::deque<Owner> owners;
        std::multimap<int, const Owner*> ends;
        for (int i = 0; i < at_once; i++) {
            const PseudoTerminal& terminal = terminals.emplace_back();
            const auto seed = static_cast<unsigned int>(random());
            const Owner& owner = owners.emplace_back(
                [&](const auto& /*ready*/) { open_and_end_over_and_over(terminal, seed); });
            ends.emplace(random() % longest_life_ms, &owner);
        }
        const auto begin = std::chrono::steady_clock::now();
        for (const auto& [life_ms, owner] : ends) {
            std::this_thread::sleep_until(begin + std::chrono::milliseconds(life_ms));
            owner->end_now();
        }
        Owner::wait_for_all();
        for (const PseudoTerminal& terminal : terminals) {
            const std::string bytes = received(terminal);
            at_rest += is_at_rest(bytes) ? 1 : 0;
            that_drove += bytes.find(driving_frame) != std::string::npos ? 1 : 0;
            if (!is_at_rest(bytes)) {
                std::fprintf(stderr, "%s\n", hexadecimal(bytes).c_str());
            }
        }
    }
    if (that_drove == 0) {
        std::fprintf(stderr, "none of them drove\n");
    }
    std::printf("%d of %d at rest", at_rest, rounds * at_once);
    return 0;
}

const std::map<std::string, int (*)()> scenes = {
    {"process", play_process},
    {"signals", play_signals},
    {"normal-end", play_normal_end},
    {"killed-owner", play_killed_owner},
    {"killed-idle-owner", play_killed_idle_owner},
    {"release", play_release},
    {"killed-guard", play_killed_guard},
    {"stopped-guard", play_stopped_guard},
    {"no-descriptors", play_no_descriptors},
    {"closed-outputs", play_closed_outputs},
    {"killed-at-opening", play_killed_at_opening},
    {"killed-after-closing", play_killed_after_closing},
    {"killed-after-destruction", play_killed_after_destruction},
    {"full-line", play_full_line},
    {"kills", play_kills},
};

}  // namespace

// The test is its own child program: with the name of a scene as argument it plays that scene, with one
// thread. It takes in the guards whose owners are gone, and gives up when one of them does not end.
int main(int argc, char** argv) {
    const auto scene = argc == 2 ? scenes.find(argv[1]) : scenes.end();
    if (scene != scenes.end()) {
        program_arguments = argv;
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        alarm(120);
        return scene->second();
    }
    LineGuardTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "lineguard_test.moc"
