// What the Linux utilities cost, and how evenly the realtime timer wakes a loop.
//
//     utilities_bench SCENARIO COUNT
//
// runs the scenario's operation COUNT times and prints the nanoseconds of one; a batch scenario prints bytes
// per second too. Under `valgrind --tool=callgrind` the difference of two run lengths gives the instructions
// of one.
//
//     utilities_bench wakeups|wakeups-loaded SECONDS
//
// runs a loop of 1 ms on the timer and one on clock_nanosleep(TIMER_ABSTIME), in turns of a second each so
// that both meet the same machine, for SECONDS each, and prints how late their wake-ups came; wakeups-loaded
// keeps one core busy meanwhile.

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "nodevik/util/clientfunctions.h"
#include "nodevik/util/misc.h"
#include "nodevik/util/timer.h"

namespace {

constexpr long period_ns = 1'000'000;
constexpr long second_ns = 1'000'000'000;
constexpr long cycles_per_turn = second_ns / period_ns;
constexpr int full_batch = 89;

volatile unsigned sink;

long now_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * second_ns + now.tv_nsec;
}

// Keeps what the library reports on its way out of the figures.
class QuietOutput {
public:
    QuietOutput() {
        std::fflush(stdout);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
    }
    ~QuietOutput() {
        std::fflush(stdout);
        dup2(kept_, STDOUT_FILENO);
        close(kept_);
    }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;

private:
    int kept_ = dup(STDOUT_FILENO);
};

// A process that keeps one core busy as long as its owner lives.
class BusyCore {
public:
    BusyCore() : child_(fork()) {
        if (child_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (;;) {
                sink = sink + 1;
            }
        }
    }
    ~BusyCore() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    BusyCore(const BusyCore&) = delete;
    BusyCore& operator=(const BusyCore&) = delete;

private:
    pid_t child_;
};

using Lateness = std::vector<double>;  // microseconds

void timer_turn(Lateness& late) {
    timer tick;
    tick.init_realtime_timer(1);
    tick.set_interval(period_ns / 1000);
    long due = now_ns();
    tick.start();
    for (long cycle = 0; cycle < cycles_per_turn; ++cycle) {
        tick.wait_signal();
        const long now = now_ns();
        due += period_ns * (1 + tick.get_overrun());
        late.push_back(static_cast<double>(now - due) / 1000.0);
    }
}

void nanosleep_turn(Lateness& late) {
    long due = now_ns();
    for (long cycle = 0; cycle < cycles_per_turn; ++cycle) {
        due += period_ns;
        if (due < now_ns()) {  // skips what is over, as the timer does
            due += (now_ns() - due) / period_ns * period_ns;
        }
        const timespec wake{due / second_ns, due % second_ns};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wake, nullptr);
        late.push_back(static_cast<double>(now_ns() - due) / 1000.0);
    }
}

void print_spread(const char* name, Lateness& late) {
    std::sort(late.begin(), late.end());
    const auto percentile = [&late](double share) {
        return late[static_cast<std::size_t>(share * static_cast<double>(late.size() - 1))];
    };
    double sum = 0;
    for (const double value : late) {
        sum += value;
    }
    std::printf("%s mean %.2f p50 %.2f p90 %.2f p99 %.2f p99.9 %.2f max %.2f us\n", name,
                sum / static_cast<double>(late.size()), percentile(0.5), percentile(0.9), percentile(0.99),
                percentile(0.999), late.back());
}

void compare_wakeups(long seconds) {
    Lateness on_timer;
    Lateness on_nanosleep;
    {
        const QuietOutput quiet;
        set_realtime_schduling(10);
        for (long turn = 0; turn < seconds; ++turn) {
            timer_turn(on_timer);
            nanosleep_turn(on_nanosleep);
        }
    }
    print_spread("timer", on_timer);
    print_spread("clock_nanosleep", on_nanosleep);
}

void fill_batches(long records) {
    CClientFunctions batch;
    for (long done = 0; done < records;) {
        batch.resetmessage();
        for (int i = 0; i < full_batch && done < records; ++i, ++done) {
            batch.addmsg_data(i, static_cast<double>(done));
        }
        sink = batch.getmessage()[1];
    }
}

void fill_names(long records) {
    CClientFunctions batch;
    for (long done = 0; done < records;) {
        batch.resetmessage();
        for (int i = 0; i < full_batch / 2 && done < records; ++i, done += 2) {
            batch.addmsg_name(i, "a name of two parts");
        }
        sink = batch.getmessage()[1];
    }
}

template <typename Operation>
void repeat(long count, Operation operation) {
    for (long i = 0; i < count; ++i) {
        sink = static_cast<unsigned>(operation(i));
    }
}

struct Scenario {
    const char* name;
    bool builds_records;
    void (*run)(long count);
};

constexpr Scenario scenarios[] = {
    {"nothing", false, [](long count) { repeat(count, [](long i) { return i; }); }},
    {"timecount", false, [](long count) { repeat(count, [](long) { return timecount(3, 10); }); }},
    {"timedelay-one", false, [](long count) { repeat(count, [](long) { return timedelay(3, 100000); }); }},
    {"timedelay-pass-2", false,
     [](long count) {
         repeat(count, [](long i) { return timedelay(static_cast<unsigned>(i % 2), 100000); });
     }},
    {"timedelay-pass-32", false,
     [](long count) {
         repeat(count, [](long i) { return timedelay(static_cast<unsigned>(i % 32), 100000); });
     }},
    {"get_m_time", false, [](long count) { repeat(count, [](long) { return get_m_time(); }); }},
    {"get_u_time", false, [](long count) { repeat(count, [](long) { return get_u_time(); }); }},
    {"clock_gettime", false, [](long count) { repeat(count, [](long) { return now_ns(); }); }},
    {"batch-samples", true, fill_batches},
    {"batch-names", true, fill_names},
};

bool run_scenario(const char* name, long count) {
    for (const Scenario& scenario : scenarios) {
        if (std::strcmp(scenario.name, name) == 0) {
            const auto start = std::chrono::steady_clock::now();
            scenario.run(count);
            const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
            const double each = took.count() / static_cast<double>(count);
            std::printf("%-18s %8.2f ns", scenario.name, each);
            if (scenario.builds_records) {
                std::printf(" %10.0f MB/s", sizeof(ProtocolMessage) / each * 1000.0);
            }
            std::puts("");
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    const long count = argc == 3 ? std::strtol(argv[2], nullptr, 10) : 0;
    if (count > 0 && std::strcmp(argv[1], "wakeups") == 0) {
        compare_wakeups(count);
        return 0;
    }
    if (count > 0 && std::strcmp(argv[1], "wakeups-loaded") == 0) {
        const BusyCore busy;
        compare_wakeups(count);
        return 0;
    }
    if (count > 0 && run_scenario(argv[1], count)) {
        return 0;
    }
    std::fputs("usage: utilities_bench SCENARIO COUNT\nscenarios: wakeups wakeups-loaded", stderr);
    for (const Scenario& scenario : scenarios) {
        std::fprintf(stderr, " %s", scenario.name);
    }
    std::fputs("\n", stderr);
    return 2;
}
