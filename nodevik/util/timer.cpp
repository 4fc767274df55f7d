#include "nodevik/util/timer.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>

namespace {

constexpr std::uint32_t us_per_second = 1000000;
constexpr long ns_per_second = 1000000000;

timespec from_us(std::uint32_t us) {
    return {static_cast<time_t>(us / us_per_second), static_cast<long>(us % us_per_second) * 1000};
}

[[noreturn]] void end_process(const char* failure) {
    std::perror(failure);
    std::exit(1);
}

using Body = void (*)();

// The functions of thread mode. An entry is never removed, not even by exit(3): a notification may be on its way while
// its timer, or the process, goes.
Body* remembered(Body body) {
    static std::mutex mutex;
    static auto* const bodies = new std::set<Body>;
    const std::lock_guard lock(mutex);
    return const_cast<Body*>(&*bodies->insert(body).first);
}

void run_body(sigval value) {
    (*static_cast<Body*>(value.sival_ptr))();
}

}  // namespace

timer::timer() {
    if (clock_getres(CLOCK_MONOTONIC, &resolution) != 0) {
        end_process("clock_getres ");
    }
    std::printf("Clock resolution %li sec %li nsec\n", static_cast<long>(resolution.tv_sec),
                resolution.tv_nsec);
}

timer::~timer() {
    if (!created) {
        return;
    }
    stop();
    timer_delete(ctimer);
    if (sa.sa_flags == SA_SIGINFO) {
        sigaction(SIGRTMAX - signal_priority, &oldsa, nullptr);
    }
}

void timer::init_realtime_timer(int priority) {
    signal_priority = priority;
    const int signal = SIGRTMAX - signal_priority;
    sigemptyset(&sa.sa_mask);
    sigaddset(&sa.sa_mask, signal);
    if (sigprocmask(SIG_SETMASK, &sa.sa_mask, nullptr) != 0) {
        end_process("timer::init_realtime_timer: sigprocmask");
    }
    sa.sa_flags = SA_SIGINFO;
    sa.sa_sigaction = nullptr;
    if (sigaction(signal, &sa, &oldsa) != 0) {
        end_process("timer::init_realtime_timer: sigaction ");
    }
    se = {};
    se.sigev_notify = SIGEV_SIGNAL;
    se.sigev_signo = signal;
    se.sigev_value.sival_ptr = &ctimer;
    create_system_timer("timer::init_realtime_timer: timer_create");
}

void timer::set_sigfunction(void (*f)(int, siginfo_t*, void*)) {
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_SIGINFO;
    sa.sa_sigaction = f;
    if (sigaction(SIGRTMAX, &sa, &oldsa) != 0) {
        end_process("timer::setsigfuntion sigaction ");
    }
    se = {};
    se.sigev_notify = SIGEV_SIGNAL;
    se.sigev_signo = SIGRTMAX;
    se.sigev_value.sival_ptr = &ctimer;
    create_system_timer("timer::setsigfunction timer_create ");
}

void timer::set_function(void (*f)()) {
    se = {};
    se.sigev_notify = SIGEV_THREAD;
    se.sigev_value.sival_ptr = remembered(f);
    se.sigev_notify_function = run_body;
    create_system_timer("timer::setfunction timer_create ");
}

void timer::set_relative(unsigned int us) {
    itsp.it_interval = {};
    itsp.it_value = from_us(us);
    settime_flags = 0;
}

void timer::set_absolute(unsigned int us) {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const timespec delay = from_us(us);
    itsp.it_interval = {};
    itsp.it_value = {now.tv_sec + delay.tv_sec, now.tv_nsec + delay.tv_nsec};
    if (itsp.it_value.tv_nsec >= ns_per_second) {
        itsp.it_value.tv_nsec -= ns_per_second;
        itsp.it_value.tv_sec += 1;
    }
    settime_flags = TIMER_ABSTIME;
}

void timer::set_interval(unsigned int us) {
    itsp.it_value = from_us(us);
    itsp.it_interval = itsp.it_value;
    settime_flags = 0;
}

unsigned int timer::get_interval_time() {
    return static_cast<std::uint32_t>(itsp.it_value.tv_sec) * us_per_second +
           static_cast<std::uint32_t>(itsp.it_value.tv_nsec / 1000);
}

void timer::start() {
    set_times("timer::start timer_settime ", settime_flags);
}

void timer::stop() {
    itsp = {};
    set_times("timer::stop timer_settime ", 0);
}

int timer::get_overrun() {
    return timer_getoverrun(ctimer);
}

int timer::wait_signal() {
    if (waitover >= 1) {
        waitover = 0;
        return 0;
    }
    siginfo_t info;
    const int signal = sigwaitinfo(&sa.sa_mask, &info);
    if (signal < 0) {
        std::perror("Error ! timer::wait\n");
    }
    return signal;
}

int timer::wait_signal_time(unsigned int us) {
    timeout = from_us(us);
    siginfo_t info;
    const int signal = sigtimedwait(&sa.sa_mask, &info, &timeout);
    if (signal < 0) {
        std::perror("timer::sigtimedwait ");
    }
    return signal;
}

void timer::create_system_timer(const char* failure) {
    if (timer_create(CLOCK_MONOTONIC, &se, &ctimer) != 0) {
        end_process(failure);
    }
    created = true;
}

void timer::set_times(const char* failure, int flags) {
    if (!created) {  // number zero could be somebody else's timer
        errno = EINVAL;
        end_process(failure);
    }
    if (timer_settime(ctimer, flags, &itsp, nullptr) != 0) {
        end_process(failure);
    }
}

void func(int, siginfo_t*, void*) {}
