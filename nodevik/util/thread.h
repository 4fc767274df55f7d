/// @file
/// A POSIX thread whose body is a virtual function or a plain one.

#ifndef NODEVIK_UTIL_THREAD_H
#define NODEVIK_UTIL_THREAD_H

#include <pthread.h>

#include "nodevik/util/export.h"

/// One POSIX thread.
///
/// Derive and override run(), or hand one of the other create() forms a function. The object must outlive the
/// thread: destroying it neither joins nor cancels a running thread. An object starts one thread at a time.
///
/// A thread has the signal mask of its creator. Block the signal of a timer (@see timer) in main() before the
/// first thread starts: a thread that does not block it, main() waiting in wait() included, ends the process
/// at the first tick.
///
/// @see pthreads(7)
class NODEVIK_EXPORT thread {
public:
    thread() = default;
    /// Leaves a running thread alone.
    virtual ~thread() = default;
    thread(const thread&) = delete;
    thread& operator=(const thread&) = delete;

    /// Starts a thread that executes run(). The result is in result().
    void create();

    /// Starts a thread that executes @p f, with the creator's scheduling policy and priority. The result is
    /// in result().
    ///
    /// @param f  body of the thread
    void create(void (*f)());

    /// The same for a body with an argument: it gets the address of this object.
    ///
    /// @param f  body of the thread
    void create(void (*f)(void*));

    /// Prints "Waiting for thread to complete" and joins the thread. Without a thread to join it fails with
    /// ESRCH.
    ///
    /// @return 0, or 1 after printing the failure on standard error, headed by "pthread_join"
    int wait();

    /// Asks the thread to end at its next cancellation point. Without a thread it fails with ESRCH.
    ///
    /// @return 0, or 1 after printing the failure on standard error, headed by "pthread_cancel"
    /// @see pthread_cancel(3)
    int cancel();

    /// Body of the thread. This one prints "Thread running" every 100 ms, for ever.
    virtual void run();

    /// Result of the last pthread call: 0, or an error number as in errno(3).
    int result() const;

protected:
    /// Start routine of create(): executes run() of the thread object at @p object.
    ///
    /// @param object  address of a thread
    /// @return null
    static void* tStartup(void* object);

    pthread_t th{};         ///< the system's thread; of no meaning before create()
    pthread_attr_t attr{};  ///< attributes that create() starts the thread with
    pthread_cond_t cond{};  ///< not used here
    int res = 0;            ///< result of the last pthread call; result() may be asked from the thread itself

private:
    NODEVIK_LOCAL static void* start_plain(void* object);
    NODEVIK_LOCAL static void* start_with_argument(void* object);
    NODEVIK_LOCAL void start(void* (*routine)(void*), bool inherit_scheduling);
    NODEVIK_LOCAL void set_result(int value);

    bool joinable = false;  // th names a thread that was started and not yet joined
    void (*plain_body)() = nullptr;
    void (*argument_body)(void*) = nullptr;
};

#endif
