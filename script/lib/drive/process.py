"""Child processes that never outlive their owner, and waiting for conditions."""

import ctypes
import os
import signal
import subprocess
import sys
import time

# Everything here waits for a condition; this only bounds how long a failure takes, also on a busy machine.
LIMIT_S = float(os.environ.get("DRIVE_LIMIT_S", "60"))

_PR_SET_PDEATHSIG = 1
_libc = ctypes.CDLL(None)


def _end_with_parent():
    _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGTERM)


def start(arguments, **options):
    """Starts a program that gets SIGTERM when this process ends, however that happens.

    It has a session of its own: an interrupt from the keyboard reaches only its owner, who ends it in good order.
    """
    return subprocess.Popen(arguments, preexec_fn=_end_with_parent, start_new_session=True, stdin=subprocess.DEVNULL,
                            **options)


def stop(child):
    """Ends a child process that may still run, in earnest if it does not listen."""
    if child.poll() is None:
        child.terminate()
        try:
            child.wait(LIMIT_S)
        except subprocess.TimeoutExpired:
            child.kill()
            child.wait()


def wait_until(condition, what, limit_s=LIMIT_S):
    """Waits until condition() gives something true, and returns that. TimeoutError names `what` did not come.

    `what` is a text, or a function that gives one when it is too late.
    """
    end = time.monotonic() + limit_s
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise TimeoutError("waited in vain for " + (what() if callable(what) else what))
        time.sleep(0.01)


def run_to_the_end(function):
    """Runs a program's main function and ends with its status; SIGTERM, SIGHUP and SIGINT unwind it cleanly.

    The first of them counts: a key and the script above may both send one, and the second must not stop the unwinding.
    """
    signals = (signal.SIGTERM, signal.SIGHUP, signal.SIGINT)

    def unwind(number, _frame):
        for each in signals:
            signal.signal(each, signal.SIG_IGN)
        raise SystemExit(128 + number)

    for number in signals:
        signal.signal(number, unwind)
    sys.exit(function())
