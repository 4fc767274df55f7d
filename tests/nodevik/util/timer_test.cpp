#include "nodevik/util/timer.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include "nodevik/util/misc.h"
#include "nodevik/util/thread.h"
#include "tests/support/childprocess.h"

namespace {

// What the C library's functions do in this executable: the real thing, or what a test plays.
struct PlayedSystem {
    bool plays_clock = false;
    timespec now = {};
    bool fails_getres = false;
    bool fails_create = false;
    bool fails_settime = false;
    bool fails_sigaction = false;
    bool fails_sigprocmask = false;
    int created = 0;
    clockid_t created_on = -1;
    int deleted = 0;
    itimerspec last_set = {};
    int last_flags = -1;
    bool plays_overrun = false;
    int overrun = 0;
    timer_t overrun_of = {};
};

PlayedSystem played;
std::mutex recording;  // of what timers ask for, by which two threads may come at once

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Gives a test the times that the timer holds.
class OpenTimer : public timer {
public:
    using timer::ctimer;
    using timer::itsp;
    using timer::oldsa;
    using timer::resolution;
    using timer::sa;
    using timer::se;
    using timer::settime_flags;
    using timer::signal_priority;
};

ChildResult in_child(const std::function<void()>& body) {
    return run_in_child([&] {
        body();
        std::exit(7);
    });
}

std::string resolution_line() {
    timespec resolution = {};
    clock_getres(CLOCK_MONOTONIC, &resolution);
    return "Clock resolution " + std::to_string(resolution.tv_sec) + " sec " +
           std::to_string(resolution.tv_nsec) + " nsec\n";
}

void require(bool condition) {
    if (!condition) {
        std::exit(8);
    }
}

void set_action(int signal, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    sigaction(signal, &action, nullptr);
}

struct sigaction action_of(int signal) {
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    return action;
}

bool holds_only(const sigset_t& set, int member) {
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        if ((sigismember(&set, signal) == 1) != (signal == member)) {
            return false;
        }
    }
    return true;
}

std::atomic<int> handler_calls{0};
std::atomic<int> handler_signal{0};
std::atomic<void*> handler_value{nullptr};

void counting_handler(int signal, siginfo_t* info, void*) {
    handler_signal = signal;
    handler_value = info->si_value.sival_ptr;
    ++handler_calls;
}

std::atomic<int> thread_calls{0};
std::atomic<int> calls_in_main_thread{0};
pthread_t main_thread;

void counting_function() {
    if (pthread_equal(pthread_self(), main_thread) != 0) {
        ++calls_in_main_thread;
    }
    ++thread_calls;
}

}  // namespace

// Stand in front of the C library's functions for this executable.
extern "C" {
int clock_gettime(clockid_t clock, timespec* time) noexcept {
    if (played.plays_clock && clock == CLOCK_MONOTONIC) {
        *time = played.now;
        return 0;
    }
    return real<int(clockid_t, timespec*)>("clock_gettime")(clock, time);
}

int clock_getres(clockid_t clock, timespec* time) noexcept {
    if (played.fails_getres) {
        errno = EINVAL;
        return -1;
    }
    return real<int(clockid_t, timespec*)>("clock_getres")(clock, time);
}

int timer_create(clockid_t clock, sigevent* event, timer_t* id) noexcept {
    if (played.fails_create) {
        errno = EAGAIN;
        return -1;
    }
    {
        const std::lock_guard lock(recording);
        ++played.created;
        played.created_on = clock;
    }
    return real<int(clockid_t, sigevent*, timer_t*)>("timer_create")(clock, event, id);
}

int timer_delete(timer_t id) noexcept {
    {
        const std::lock_guard lock(recording);
        ++played.deleted;
    }
    return real<int(timer_t)>("timer_delete")(id);
}

int timer_settime(timer_t id, int flags, const itimerspec* time, itimerspec* old) noexcept {
    if (played.fails_settime) {
        errno = EINVAL;
        return -1;
    }
    {
        const std::lock_guard lock(recording);
        played.last_set = *time;
        played.last_flags = flags;
    }
    return real<int(timer_t, int, const itimerspec*, itimerspec*)>("timer_settime")(id, flags, time, old);
}

int timer_getoverrun(timer_t id) noexcept {
    if (played.plays_overrun) {
        played.overrun_of = id;
        return played.overrun;
    }
    return real<int(timer_t)>("timer_getoverrun")(id);
}

int sigaction(int signal, const struct sigaction* action, struct sigaction* old) noexcept {
    if (played.fails_sigaction) {
        errno = EINVAL;
        return -1;
    }
    return real<int(int, const struct sigaction*, struct sigaction*)>("sigaction")(signal, action, old);
}

int sigprocmask(int how, const sigset_t* set, sigset_t* old) noexcept {
    if (played.fails_sigprocmask) {
        errno = EINVAL;
        return -1;
    }
    return real<int(int, const sigset_t*, sigset_t*)>("sigprocmask")(how, set, old);
}
}

TEST(Timer, PrintsTheClocksResolution) {
    const ChildResult result = in_child([] {
        const OpenTimer tick;
        require(tick.resolution.tv_nsec > 0);
        require(tick.settime_flags == 0 && tick.waitover == 0 && tick.signal_priority == 0 &&
                tick.sa.sa_flags == 0);
    });
    EXPECT_EQ(result.out, resolution_line());
    EXPECT_EQ(result.status, 7);
}

TEST(Timer, EndsTheProcessWithoutAResolution) {
    const ChildResult result = in_child([] {
        played.fails_getres = true;
        const timer tick;
    });
    EXPECT_EQ(result.err, "clock_getres : Invalid argument\n");
    EXPECT_EQ(result.status, 1);
}

TEST(Timer, WithoutASystemTimerDestructionTouchesNothing) {
    const ChildResult result = in_child([] {
        { const timer tick; }
        require(played.deleted == 0 && played.last_flags == -1);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerSetters, RelativeIsOneShot) {
    OpenTimer tick;
    tick.set_relative(2500001);
    EXPECT_EQ(tick.itsp.it_value.tv_sec, 2);
    EXPECT_EQ(tick.itsp.it_value.tv_nsec, 500001000);
    EXPECT_EQ(tick.itsp.it_interval.tv_sec, 0);
    EXPECT_EQ(tick.itsp.it_interval.tv_nsec, 0);
    EXPECT_EQ(tick.settime_flags, 0);
    EXPECT_EQ(tick.get_interval_time(), 2500001U);
}

TEST(TimerSetters, ARelativeTimeAfterAnIntervalIsOneShot) {
    OpenTimer tick;
    tick.set_interval(2500001);
    tick.set_relative(3);
    EXPECT_EQ(tick.itsp.it_interval.tv_sec, 0);
    EXPECT_EQ(tick.itsp.it_interval.tv_nsec, 0);
    EXPECT_EQ(tick.get_interval_time(), 3U);
}

TEST(TimerSetters, TheTimeToldWraps) {
    OpenTimer tick;
    played.plays_clock = true;
    played.now = {4294, 967296000};
    tick.set_absolute(5);
    played.plays_clock = false;
    EXPECT_EQ(tick.get_interval_time(), 5U);
}

TEST(TimerSetters, IntervalRepeats) {
    OpenTimer tick;
    tick.set_interval(4294967295U);
    EXPECT_EQ(tick.itsp.it_value.tv_sec, 4294);
    EXPECT_EQ(tick.itsp.it_value.tv_nsec, 967295000);
    EXPECT_EQ(tick.itsp.it_interval.tv_sec, 4294);
    EXPECT_EQ(tick.itsp.it_interval.tv_nsec, 967295000);
    EXPECT_EQ(tick.settime_flags, 0);
    EXPECT_EQ(tick.get_interval_time(), 4294967295U);
}

TEST(TimerSetters, AbsoluteCarriesIntoTheSeconds) {
    OpenTimer tick;
    tick.set_interval(7);
    played.plays_clock = true;
    played.now = {10, 600000000};
    tick.set_absolute(1500000);
    played.plays_clock = false;
    EXPECT_EQ(tick.itsp.it_value.tv_sec, 12);
    EXPECT_EQ(tick.itsp.it_value.tv_nsec, 100000000);
    EXPECT_EQ(tick.itsp.it_interval.tv_sec, 0);
    EXPECT_EQ(tick.itsp.it_interval.tv_nsec, 0);
    EXPECT_EQ(tick.settime_flags, TIMER_ABSTIME);
}

TEST(TimerSetters, AbsoluteCarriesAtExactlyOneSecond) {
    OpenTimer tick;
    played.plays_clock = true;
    played.now = {10, 999999000};
    tick.set_absolute(1);
    EXPECT_EQ(tick.itsp.it_value.tv_sec, 11);
    EXPECT_EQ(tick.itsp.it_value.tv_nsec, 0);
    played.now = {10, 999998999};
    tick.set_absolute(1);
    played.plays_clock = false;
    EXPECT_EQ(tick.itsp.it_value.tv_sec, 10);
    EXPECT_EQ(tick.itsp.it_value.tv_nsec, 999999999);
}

TEST(TimerSetters, ARelativeTimeAfterAnAbsoluteOneIsRelative) {
    OpenTimer tick;
    tick.set_absolute(1);
    tick.set_relative(1);
    EXPECT_EQ(tick.settime_flags, 0);
    tick.set_absolute(1);
    tick.set_interval(1);
    EXPECT_EQ(tick.settime_flags, 0);
}

TEST(TimerWaiting, TakesEachTick) {
    const ChildResult result = in_child([] {
        OpenTimer tick;
        tick.init_realtime_timer(3);
        require(tick.se.sigev_value.sival_ptr == &tick.ctimer);
        tick.set_interval(1000);
        tick.start();
        for (int i = 0; i < 5; ++i) {
            require(tick.wait_signal() == SIGRTMAX - 3);
        }
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.err, "");
}

namespace {

// Blocks the signals of timers with these priorities in the calling thread.
void block_ticks(const std::vector<int>& priorities) {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int priority : priorities) {
        sigaddset(&signals, SIGRTMAX - priority);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

// A thread that takes twenty ticks of its timer.
class TickingLoop : public thread {
public:
    timer tick;
    int ticks = 0;
    void run() override {
        tick.set_interval(1000);
        tick.start();
        while (ticks < 20) {
            ticks += tick.wait_signal() > 0 ? 1 : 0;
        }
        tick.stop();
    }
};

}  // namespace

TEST(TimerThreads, ALoopInAThreadTicksWhileMainWaits) {
    const ChildResult result = in_child([] {
        TickingLoop loop;
        loop.tick.init_realtime_timer(3);
        loop.create();
        require(loop.wait() == 0);
        require(loop.ticks == 20);
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.err, "");
}

TEST(TimerThreads, ALoopThatSetsItsTimerUpTicksWhileMainBlocksTheSignal) {
    const ChildResult result = in_child([] {
        class SettingUp : public TickingLoop {
        public:
            void run() override {
                tick.init_realtime_timer(3);
                TickingLoop::run();
            }
        };
        block_ticks({3});
        SettingUp loop;
        loop.create();
        require(loop.wait() == 0);
        require(loop.ticks == 20);
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.err, "");
}

TEST(TimerThreads, TwoTimersTickWhenBothSignalsAreBlockedAfterTheSetUp) {
    const ChildResult result = in_child([] {
        TickingLoop first;
        TickingLoop second;
        first.tick.init_realtime_timer(3);
        second.tick.init_realtime_timer(4);
        block_ticks({3, 4});
        first.create();
        second.create();
        require(first.wait() == 0);
        require(second.wait() == 0);
        require(first.ticks == 20 && second.ticks == 20);
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.err, "");
}

TEST(TimerThreads, TwoTimersTickInOneThread) {
    const ChildResult result = in_child([] {
        timer first;
        timer second;
        first.init_realtime_timer(3);
        second.init_realtime_timer(4);
        block_ticks({3, 4});
        first.set_interval(1000);
        second.set_interval(1500);
        first.start();
        second.start();
        for (int i = 0; i < 20; ++i) {
            require(first.wait_signal() == SIGRTMAX - 3);
            require(second.wait_signal() == SIGRTMAX - 4);
        }
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.err, "");
}

TEST(TimerWaiting, ReplacesTheWholeSignalMask) {
    const ChildResult result = in_child([] {
        sigset_t mask;
        sigemptyset(&mask);
        sigaddset(&mask, SIGUSR1);
        sigprocmask(SIG_SETMASK, &mask, nullptr);
        timer tick;
        tick.init_realtime_timer(2);
        sigprocmask(SIG_BLOCK, nullptr, &mask);
        require(sigismember(&mask, SIGUSR1) == 0);
        for (int signal = 1; signal <= SIGRTMAX; ++signal) {
            require((sigismember(&mask, signal) == 1) == (signal == SIGRTMAX - 2));
        }
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerWaiting, ANewSignalReplacesTheOneWaitedForBefore) {
    const ChildResult result = in_child([] {
        OpenTimer tick;
        tick.init_realtime_timer(1);
        tick.init_realtime_timer(2);
        sigset_t blocked;
        sigprocmask(SIG_BLOCK, nullptr, &blocked);
        require(holds_only(tick.sa.sa_mask, SIGRTMAX - 2) && holds_only(blocked, SIGRTMAX - 2));
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerWaiting, AOneShotAbsoluteTimeComes) {
    const ChildResult result = in_child([] {
        timer tick;
        tick.init_realtime_timer(0);
        tick.set_absolute(2000);
        tick.start();
        require(played.last_flags == TIMER_ABSTIME);
        require(tick.wait_signal() == SIGRTMAX);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerWaiting, CountsTheExpiriesThatWereMissed) {
    const ChildResult result = in_child([] {
        timer tick;
        tick.init_realtime_timer(1);
        tick.set_interval(1000);
        tick.start();
        const unsigned int start_ms = get_m_time();
        while (get_m_time() - start_ms < 30) {
        }
        require(tick.wait_signal() == SIGRTMAX - 1);
        require(tick.get_overrun() >= 10);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerWaiting, TellsTheSystemsCountOfMissedExpiries) {
    const ChildResult result = in_child([] {
        OpenTimer tick;
        tick.init_realtime_timer(1);
        played.plays_overrun = true;
        for (const int overrun : {0, 41, -1}) {
            played.overrun = overrun;
            require(tick.get_overrun() == overrun && played.overrun_of == tick.ctimer);
        }
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerWaiting, OnlyAPositiveNumberLetsAWaitPass) {
    const ChildResult result = in_child([] {
        timer tick;
        tick.init_realtime_timer(1);
        tick.waitover = -1;
        tick.set_relative(1000);
        tick.start();
        require(tick.wait_signal() == SIGRTMAX - 1);
        require(tick.waitover == -1);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerWaiting, AWaitWithATimeOutIsNeverLetPass) {
    const ChildResult result = in_child([] {
        timer tick;
        tick.init_realtime_timer(1);
        tick.waitover = 1;
        require(tick.wait_signal_time(1000) == -1);
        require(tick.waitover == 1);
    });
    EXPECT_EQ(result.err, "timer::sigtimedwait : Resource temporarily unavailable\n");
    EXPECT_EQ(result.status, 7);
}

TEST(TimerWaiting, AnOwnerCanLetOneWaitPass) {
    const ChildResult result = in_child([] {
        timer tick;
        tick.init_realtime_timer(1);
        tick.waitover = 1;
        require(tick.wait_signal() == 0);
        require(tick.waitover == 0);
        tick.waitover = 2;
        require(tick.wait_signal() == 0);
        require(tick.waitover == 0);
        tick.set_relative(1000);
        tick.start();
        require(tick.wait_signal() == SIGRTMAX - 1);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerWaiting, AnInterruptedWaitIsReported) {
    const ChildResult result = in_child([] {
        struct sigaction quiet = {};
        quiet.sa_handler = [](int) {};
        sigaction(SIGALRM, &quiet, nullptr);
        timer tick;
        tick.init_realtime_timer(1);
        itimerval soon = {};
        soon.it_value.tv_usec = 20000;
        soon.it_interval.tv_usec = 20000;
        setitimer(ITIMER_REAL, &soon, nullptr);
        require(tick.wait_signal() == -1);
    });
    EXPECT_EQ(result.err.find("Error ! timer::wait\n: Interrupted system call\n"), 0U);
    EXPECT_EQ(result.status, 7);
}

TEST(TimerWaiting, ATimeOutIsReported) {
    const ChildResult result = in_child([] {
        timer tick;
        tick.init_realtime_timer(1);
        require(tick.wait_signal_time(1000) == -1);
    });
    EXPECT_EQ(result.err, "timer::sigtimedwait : Resource temporarily unavailable\n");
    EXPECT_EQ(result.status, 7);
}

TEST(TimerWaiting, ATickWithinTheTimeIsTaken) {
    const ChildResult result = in_child([] {
        timer tick;
        tick.init_realtime_timer(1);
        tick.set_relative(1000);
        tick.start();
        require(tick.wait_signal_time(60000000) == SIGRTMAX - 1);
    });
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 7);
}

TEST(TimerStop, ForgetsTheTimes) {
    const ChildResult result = in_child([] {
        OpenTimer tick;
        tick.init_realtime_timer(1);
        tick.set_interval(1000);
        tick.start();
        tick.stop();
        require(tick.get_interval_time() == 0 && tick.itsp.it_interval.tv_nsec == 0);
        while (tick.wait_signal_time(0) > 0) {
        }
        tick.start();
        require(played.last_set.it_value.tv_sec == 0 && played.last_set.it_value.tv_nsec == 0);
        require(tick.wait_signal_time(20000) == -1);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerStop, DisarmsWithARelativeTime) {
    const ChildResult result = in_child([] {
        OpenTimer tick;
        tick.init_realtime_timer(1);
        tick.set_absolute(60000000);
        tick.start();
        require(played.last_flags == TIMER_ABSTIME);
        tick.stop();
        require(played.last_flags == 0);
        require(tick.itsp.it_value.tv_sec == 0 && tick.itsp.it_value.tv_nsec == 0);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(Timer, EveryModeRunsOnTheMonotonicClock) {
    const ChildResult result = in_child([] {
        {
            timer tick;
            tick.init_realtime_timer(1);
            require(played.created_on == CLOCK_MONOTONIC);
        }
        played.created_on = -1;
        {
            timer tick;
            tick.set_sigfunction(func);
            require(played.created_on == CLOCK_MONOTONIC);
        }
        played.created_on = -1;
        timer tick;
        tick.set_function(counting_function);
        require(played.created_on == CLOCK_MONOTONIC);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(Timer, ASecondModeMakesANewSystemTimerAndKeepsTheOldOne) {
    const ChildResult result = in_child([] {
        {
            timer tick;
            tick.init_realtime_timer(1);
            tick.init_realtime_timer(2);
            require(played.created == 2 && played.deleted == 0);
        }
        require(played.deleted == 1);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerHandler, TakesTheHighestSignalWhateverThePriorityWas) {
    const ChildResult result = in_child([] {
        OpenTimer tick;
        tick.init_realtime_timer(3);
        tick.set_sigfunction(counting_handler);
        require(tick.se.sigev_notify == SIGEV_SIGNAL && tick.se.sigev_signo == SIGRTMAX);
        require(tick.sa.sa_flags == SA_SIGINFO);
        for (int signal = 1; signal <= SIGRTMAX; ++signal) {
            require(sigismember(&tick.sa.sa_mask, signal) != 1);
        }
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerHandler, IsCalledOnTheHighestSignal) {
    const ChildResult result = in_child([] {
        OpenTimer tick;
        tick.set_sigfunction(counting_handler);
        tick.set_interval(1000);
        tick.start();
        while (handler_calls < 3) {
            usleep(1000);
        }
        require(handler_signal == SIGRTMAX);
        require(handler_value == &tick.ctimer);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerHandler, TheDoNothingHandlerDoesNothing) {
    const ChildResult result = in_child([] {
        timer tick;
        tick.set_sigfunction(func);
        tick.set_relative(1000);
        tick.start();
        pause();
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.err, "");
}

TEST(TimerHandler, DestructionRestoresTheSavedAction) {
    const ChildResult result = in_child([] {
        struct sigaction before = {};
        before.sa_handler = SIG_IGN;
        sigaction(SIGRTMAX, &before, nullptr);
        {
            timer tick;
            tick.set_sigfunction(counting_handler);
        }
        struct sigaction after = {};
        sigaction(SIGRTMAX, nullptr, &after);
        require(after.sa_handler == SIG_IGN);
        require(played.deleted == 1);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerWaiting, DestructionRestoresTheSavedAction) {
    const ChildResult result = in_child([] {
        struct sigaction before = {};
        before.sa_handler = SIG_IGN;
        sigaction(SIGRTMAX - 4, &before, nullptr);
        {
            timer tick;
            tick.init_realtime_timer(4);
            struct sigaction during = {};
            sigaction(SIGRTMAX - 4, nullptr, &during);
            require(during.sa_handler == SIG_DFL);
        }
        struct sigaction after = {};
        sigaction(SIGRTMAX - 4, nullptr, &after);
        require(after.sa_handler == SIG_IGN);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerHandler, AfterWaitingModeDestructionRestoresTheSignalOfThePriority) {
    const ChildResult result = in_child([] {
        set_action(SIGRTMAX, SIG_IGN);
        {
            timer tick;
            tick.init_realtime_timer(3);
            tick.set_sigfunction(counting_handler);
        }
        require(action_of(SIGRTMAX - 3).sa_handler == SIG_IGN);
        require(action_of(SIGRTMAX).sa_sigaction == counting_handler);
    });
    EXPECT_EQ(result.status, 7);
}

#ifndef __SANITIZE_THREAD__  // it ends a process in which the C library starts threads by itself
TEST(TimerThread, StartsTheFunctionInAnotherThread) {
    const ChildResult result = in_child([] {
        main_thread = pthread_self();
        OpenTimer tick;
        tick.set_function(counting_function);
        require(tick.se.sigev_notify == SIGEV_THREAD && tick.se.sigev_notify_attributes == nullptr);
        tick.set_interval(1000);
        tick.start();
        while (thread_calls < 3) {
            usleep(1000);
        }
        require(calls_in_main_thread == 0);
    });
    EXPECT_EQ(result.status, 7) << result.err;
}

// Also while exit(3) calls what was registered before the timer was used.
TEST(TimerThread, FunctionIsStartedTillTheProcessIsGone) {
    const ChildResult result = in_child([] {
        std::atexit([] {
            const int before = thread_calls;
            while (thread_calls < before + 3) {
                usleep(1000);
            }
        });
        static timer* const tick = new timer;
        tick->set_function(counting_function);
        tick->set_interval(1000);
        tick->start();
    });
    EXPECT_EQ(result.status, 7) << result.err;
}
#endif

TEST(TimerThread, DestructionLeavesSignalActionsAlone) {
    const ChildResult result = in_child([] {
        struct sigaction before = {};
        before.sa_handler = SIG_IGN;
        sigaction(SIGRTMAX, &before, nullptr);
        {
            timer tick;
            tick.set_function(counting_function);
        }
        struct sigaction after = {};
        sigaction(SIGRTMAX, nullptr, &after);
        require(after.sa_handler == SIG_IGN);
        require(played.deleted == 1);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(TimerThread, AfterWaitingModeDestructionRestoresTheSavedAction) {
    const ChildResult result = in_child([] {
        set_action(SIGRTMAX - 3, SIG_IGN);
        {
            timer tick;
            tick.init_realtime_timer(3);
            tick.set_function(counting_function);
        }
        require(action_of(SIGRTMAX - 3).sa_handler == SIG_IGN);
    });
    EXPECT_EQ(result.status, 7);
}

struct EndingRow {
    const char* name;
    void (*body)();
    const char* message;
};

void PrintTo(const EndingRow& row, std::ostream* out) {
    *out << row.name;
}

class TimerEnding : public ::testing::TestWithParam<EndingRow> {};

TEST_P(TimerEnding, ReportsAndEndsTheProcess) {
    const ChildResult result = in_child(GetParam().body);
    EXPECT_EQ(result.err, GetParam().message);
    EXPECT_EQ(result.status, 1);
}

constexpr EndingRow endings[] = {
    {"InitMask",
     [] {
         timer tick;
         played.fails_sigprocmask = true;
         tick.init_realtime_timer(1);
     },
     "timer::init_realtime_timer: sigprocmask: Invalid argument\n"},
    {"InitAction",
     [] {
         timer tick;
         played.fails_sigaction = true;
         tick.init_realtime_timer(1);
     },
     "timer::init_realtime_timer: sigaction : Invalid argument\n"},
    {"InitCreate",
     [] {
         timer tick;
         played.fails_create = true;
         tick.init_realtime_timer(1);
     },
     "timer::init_realtime_timer: timer_create: Resource temporarily unavailable\n"},
    {"HandlerAction",
     [] {
         timer tick;
         played.fails_sigaction = true;
         tick.set_sigfunction(func);
     },
     "timer::setsigfuntion sigaction : Invalid argument\n"},
    {"HandlerCreate",
     [] {
         timer tick;
         played.fails_create = true;
         tick.set_sigfunction(func);
     },
     "timer::setsigfunction timer_create : Resource temporarily unavailable\n"},
    {"ThreadCreate",
     [] {
         timer tick;
         played.fails_create = true;
         tick.set_function(counting_function);
     },
     "timer::setfunction timer_create : Resource temporarily unavailable\n"},
    {"Start",
     [] {
         timer tick;
         tick.init_realtime_timer(1);
         played.fails_settime = true;
         tick.start();
     },
     "timer::start timer_settime : Invalid argument\n"},
    {"StartWithoutASystemTimer",
     [] {
         timer tick;
         tick.set_relative(1);
         tick.start();
     },
     "timer::start timer_settime : Invalid argument\n"},
    {"Stop",
     [] {
         timer tick;
         tick.init_realtime_timer(1);
         played.fails_settime = true;
         tick.stop();
     },
     "timer::stop timer_settime : Invalid argument\n"},
    {"Destruction",
     [] {
         timer tick;
         tick.init_realtime_timer(1);
         played.fails_settime = true;
     },
     "timer::stop timer_settime : Invalid argument\n"},
};

INSTANTIATE_TEST_SUITE_P(Failures, TimerEnding, ::testing::ValuesIn(endings),
                         [](const auto& row) { return std::string(row.param.name); });
