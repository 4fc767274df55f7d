#include "nodevik/util/thread.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <type_traits>

#include "tests/support/childprocess.h"

namespace {

const std::atomic<bool>* created_once = nullptr;  // pthread_create returns no sooner than this is true
int create_result = 0;                            // what pthread_create fails with
int join_result = 0;                              // what pthread_join fails with
const pthread_attr_t* created_with = nullptr;     // attributes of the last thread
const pthread_attr_t* inheriting = nullptr;       // attributes that last asked for the creator's scheduling
std::atomic<useconds_t> pause_us{0};              // the last usleep

std::atomic<int> plain_calls{0};
std::atomic<void*> argument_seen{nullptr};

void plain_body() {
    ++plain_calls;
}

void argument_body(void* argument) {
    argument_seen = argument;
}

class Counting : public thread {
public:
    void run() override { ++runs; }
    std::atomic<int> runs{0};
};

// Gives a test what a derived class reaches.
class OpenThread : public Counting {
public:
    using thread::attr;
    using thread::cond;
    using thread::res;
    using thread::th;
    using thread::tStartup;
};

class SelfCancelling : public thread {
public:
    void run() override {
        outcome = cancel();
        cancelled = true;
        pthread_testcancel();
    }
    std::atomic<int> outcome{-1};
    std::atomic<bool> cancelled{false};
};

class Endless : public thread {
public:
    void run() override {
        for (;;) {
            started = true;
            pause();
        }
    }
    std::atomic<bool> started{false};
};

}  // namespace

// Stand in front of the C library's functions for this executable.
extern "C" int pthread_create(pthread_t* id, const pthread_attr_t* attributes, void* (*routine)(void*),
                              void* argument) noexcept {
    if (create_result != 0) {
        return create_result;
    }
    created_with = attributes;
    using Function = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_create"));
    const int result = real(id, attributes, routine, argument);
    while (created_once != nullptr && !*created_once) {
    }
    return result;
}

extern "C" int pthread_join(pthread_t id, void** value) {
    if (join_result != 0) {
        return join_result;
    }
    using Function = int (*)(pthread_t, void**);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_join"));
    return real(id, value);
}

extern "C" int pthread_attr_setinheritsched(pthread_attr_t* attributes, int inherit) noexcept {
    if (inherit == PTHREAD_INHERIT_SCHED) {
        inheriting = attributes;
    }
    using Function = int (*)(pthread_attr_t*, int);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_attr_setinheritsched"));
    return real(attributes, inherit);
}

extern "C" int usleep(useconds_t us) {
    pause_us = us;
    using Function = int (*)(useconds_t);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "usleep"));
    return real(us);
}

TEST(Thread, ExecutesTheOverriddenBody) {
    Counting worker;
    worker.create();
    EXPECT_EQ(worker.result(), 0);
    EXPECT_EQ(worker.wait(), 0);
    EXPECT_EQ(worker.runs, 1);
}

TEST(Thread, ExecutesAPlainFunction) {
    plain_calls = 0;
    thread worker;
    worker.create(plain_body);
    EXPECT_EQ(worker.wait(), 0);
    EXPECT_EQ(plain_calls, 1);
}

TEST(Thread, HandsTheObjectToAFunctionWithAnArgument) {
    thread worker;
    worker.create(argument_body);
    EXPECT_EQ(worker.wait(), 0);
    EXPECT_EQ(argument_seen, static_cast<void*>(&worker));
}

TEST(Thread, ADerivedClassReachesItsFieldsAndItsStart) {
    OpenThread worker;
    static_assert(std::is_same_v<decltype(worker.res), int>);
    static_assert(std::is_same_v<decltype(worker.th), pthread_t>);
    static_assert(std::is_same_v<decltype(worker.attr), pthread_attr_t>);
    static_assert(std::is_same_v<decltype(worker.cond), pthread_cond_t>);
    EXPECT_EQ(OpenThread::tStartup(static_cast<thread*>(&worker)), nullptr);
    EXPECT_EQ(worker.runs, 1);
    worker.res = EAGAIN;
    worker.create();
    EXPECT_EQ(worker.res, 0);
    EXPECT_EQ(created_with, &worker.attr);
    EXPECT_EQ(pthread_equal(worker.th, pthread_self()), 0);
    EXPECT_EQ(worker.wait(), 0);
    EXPECT_EQ(worker.runs, 2);
    worker.res = ESRCH;
    EXPECT_EQ(worker.result(), ESRCH);
}

TEST(Thread, RunsAgainAfterItWasJoined) {
    Counting worker;
    worker.create();
    worker.wait();
    worker.create();
    worker.wait();
    EXPECT_EQ(worker.runs, 2);
}

TEST(Thread, WaitSaysWhatItWaitsFor) {
    const ChildResult result = run_in_child([] {
        Counting worker;
        worker.create();
        std::exit(worker.wait() == 0 ? 7 : 8);
    });
    EXPECT_EQ(result.out, "Waiting for thread to complete\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 7);
}

TEST(Thread, AFailedJoinIsReported) {
    const ChildResult result = run_in_child([] {
        Counting worker;
        worker.create();
        worker.wait();
        std::exit(worker.wait() == 1 && worker.result() == ESRCH ? 7 : 8);
    });
    EXPECT_EQ(result.err, "pthread_join: No such process\n");
    EXPECT_EQ(result.status, 7);
}

TEST(Thread, AThreadCanBeJoinedAfterAJoinThatFailed) {
    const ChildResult result = run_in_child([] {
        Counting worker;
        worker.create();
        join_result = EDEADLK;
        const bool refused = worker.wait() == 1 && worker.result() == EDEADLK;
        join_result = 0;
        std::exit(refused && worker.wait() == 0 && worker.result() == 0 ? 7 : 8);
    });
    EXPECT_EQ(result.err, "pthread_join: Resource deadlock avoided\n");
    EXPECT_EQ(result.status, 7);
}

TEST(Thread, AFailedStartIsSilentAndLeavesItsResult) {
    const ChildResult result = run_in_child([] {
        create_result = EAGAIN;
        plain_calls = 0;
        argument_seen = nullptr;
        Counting worker;
        worker.create();
        bool kept = worker.result() == EAGAIN;
        thread plain;
        plain.create(plain_body);
        kept = kept && plain.result() == EAGAIN;
        thread with_argument;
        with_argument.create(argument_body);
        kept = kept && with_argument.result() == EAGAIN;
        std::exit(kept && worker.runs == 0 && plain_calls == 0 && argument_seen == nullptr ? 7 : 8);
    });
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 7);
}

TEST(Thread, AFailedCancelIsReported) {
    const ChildResult result = run_in_child([] {
        Counting worker;
        std::exit(worker.cancel() == 1 && worker.result() == ESRCH ? 7 : 8);
    });
    EXPECT_EQ(result.err, "pthread_cancel: No such process\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 7);
}

TEST(Thread, CancelEndsARunningThread) {
    Endless worker;
    worker.create();
    while (!worker.started) {
    }
    EXPECT_EQ(worker.cancel(), 0);
    EXPECT_EQ(worker.wait(), 0);
}

TEST(Thread, ABodyMayCancelItselfAtOnce) {
    SelfCancelling worker;
    created_once = &worker.cancelled;
    worker.create();
    created_once = nullptr;
    EXPECT_EQ(worker.wait(), 0);
    EXPECT_EQ(worker.outcome, 0);
}

TEST(Thread, DestructionLeavesTheThreadAlone) {
    const ChildResult result = run_in_child([] {
        // The body does not touch the object, which is gone before it ends.
        static std::atomic<bool> entered{false};
        static std::atomic<bool> may_end{false};
        static std::atomic<bool> ended{false};
        {
            thread worker;
            worker.create(+[] {
                entered = true;
                while (!may_end) {
                }
                ended = true;
            });
            while (!entered) {
            }
        }
        const bool left_alone = !ended;
        may_end = true;
        while (!ended) {
        }
        _exit(left_alone ? 7 : 8);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(Thread, TheDefaultBodyPrintsForEver) {
    const ChildResult result = run_in_child([] {
        setvbuf(stdout, nullptr, _IONBF, 0);
        thread worker;
        worker.create();
        while (lseek(STDOUT_FILENO, 0, SEEK_CUR) < 2 * 15) {
        }
        _exit(7);
    });
    EXPECT_EQ(result.out.find("Thread running\nThread running\n"), 0U);
}

TEST(Thread, TheDefaultBodyPausesATenthOfASecond) {
    const ChildResult result = run_in_child([] {
        thread worker;
        worker.create();
        while (pause_us == 0) {
        }
        _exit(pause_us == 100000 ? 7 : 8);
    });
    EXPECT_EQ(result.status, 7);
}

TEST(Thread, TheFunctionFormsInheritTheCreatorsScheduling) {
    const ChildResult result = run_in_child([] {
        sched_param parameters = {};
        parameters.sched_priority = 3;
        if (sched_setscheduler(0, SCHED_FIFO, &parameters) != 0) {
            _exit(9);
        }
        static std::atomic<int> policy{-1};
        thread worker;
        worker.create(+[] { policy = sched_getscheduler(0); });
        worker.wait();
        _exit(policy == SCHED_FIFO ? 7 : 8);
    });
    EXPECT_TRUE(result.status == 7 || result.status == 9) << result.status;
}

TEST(Thread, TheFunctionFormsAskForTheCreatorsScheduling) {
    inheriting = nullptr;
    thread plain;
    plain.create(plain_body);
    EXPECT_EQ(plain.wait(), 0);
    EXPECT_NE(inheriting, nullptr);
    EXPECT_EQ(inheriting, created_with);

    inheriting = nullptr;
    thread with_argument;
    with_argument.create(argument_body);
    EXPECT_EQ(with_argument.wait(), 0);
    EXPECT_NE(inheriting, nullptr);
    EXPECT_EQ(inheriting, created_with);
}
