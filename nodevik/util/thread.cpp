#include "nodevik/util/thread.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

namespace {

// The pthread calls return their error number; perror prints the one in errno.
int reported(int result, const char* call) {
    if (result == 0) {
        return 0;
    }
    errno = result;
    std::perror(call);
    return 1;
}

}  // namespace

void thread::create() {
    start(tStartup, false);
}

void thread::create(void (*f)()) {
    plain_body = f;
    start(start_plain, true);
}

void thread::create(void (*f)(void*)) {
    argument_body = f;
    start(start_with_argument, true);
}

int thread::wait() {
    std::puts("Waiting for thread to complete");
    const int outcome = joinable ? pthread_join(th, nullptr) : ESRCH;
    joinable = joinable && outcome != 0;
    set_result(outcome);
    return reported(outcome, "pthread_join");
}

int thread::cancel() {
    const int outcome = joinable ? pthread_cancel(th) : ESRCH;
    set_result(outcome);
    return reported(outcome, "pthread_cancel");
}

void thread::run() {
    for (;;) {
        std::puts("Thread running");
        usleep(100000);
    }
}

int thread::result() const {
    return std::atomic_ref(const_cast<int&>(res)).load();
}

// The thread may cancel itself while its creator still stores the outcome of the start.
void thread::set_result(int value) {
    std::atomic_ref(res).store(value);
}

void* thread::tStartup(void* object) {
    static_cast<thread*>(object)->run();
    return nullptr;
}

void* thread::start_plain(void* object) {
    static_cast<thread*>(object)->plain_body();
    return nullptr;
}

void* thread::start_with_argument(void* object) {
    static_cast<thread*>(object)->argument_body(object);
    return nullptr;
}

void thread::start(void* (*routine)(void*), bool inherit_scheduling) {
    pthread_attr_init(&attr);
    if (inherit_scheduling) {
        pthread_attr_setinheritsched(&attr, PTHREAD_INHERIT_SCHED);
    }
    joinable = true;  // before the thread runs: its body may cancel itself
    const int outcome = pthread_create(&th, &attr, routine, this);
    if (outcome != 0) {
        joinable = false;
    }
    set_result(outcome);
    pthread_attr_destroy(&attr);
}
