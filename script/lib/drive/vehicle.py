"""The simulated vehicle at the far end of the line, and what its log tells."""

import os
import shutil
import subprocess
import tempfile

from . import process


class Event:
    """A line of the vehicle's log: when, what ("opened", "received", ...), and the rest of the line's words."""

    def __init__(self, line):
        words = line.split()
        self.time_s = float(words[0])
        self.what = words[1]
        self.words = words[2:]

    def frame(self):
        """The four bytes of a received frame."""
        return bytes(int(word, 16) for word in self.words[:4])

    def value(self, name):
        """The number behind a name, such as "speed" or "capacity"."""
        return int(self.words[self.words.index(name) + 1])


def frame(throttle, direction, bucket, motor):
    """A command frame; `motor` is "P" (off) or "Q" (on)."""
    return bytes((throttle & 255, direction & 255, bucket & 255)) + motor.encode()


NEUTRAL = frame(0, 103, 110, "P")


def describe(command):
    """A command frame in words."""
    throttle, direction, bucket, motor = command
    return f"throttle {throttle:3} direction {direction:3} bucket {bucket:3} motor {'on' if motor == 0x51 else 'off'}"


class Vehicle:
    """A running vehicle-simulator."""

    def __init__(self, program, *options, log=None):
        self._program = program
        self._options = list(options)
        self._log = log

    def __enter__(self):
        self._directory = None if self._log else tempfile.mkdtemp(prefix="vehicle-")
        self.log_path = self._log or os.path.join(self._directory, "log")
        self._child = process.start([self._program, "--log", self.log_path] + self._options, stdout=subprocess.PIPE,
                                    text=True)
        self.line = self._child.stdout.readline().strip()
        if not self.line:
            self.__exit__()
            raise RuntimeError("the vehicle simulator does not start")
        return self

    def __exit__(self, *_):
        process.stop(self._child)
        self._child.stdout.close()
        if self._directory:
            shutil.rmtree(self._directory, ignore_errors=True)

    def wait(self):
        """Waits for the simulator to end by itself; returns its status."""
        return self._child.wait(process.LIMIT_S)

    def events(self, *kinds):
        """The log so far, all of it or only some kinds of lines."""
        with open(self.log_path) as log:
            lines = log.read().split("\n")[:-1]
        return [event for event in map(Event, lines) if not kinds or event.what in kinds]

    def frames(self):
        """All frames that arrived."""
        return [event.frame() for event in self.events("received")]

    def distinct_frames(self):
        """The frames that arrived, those that repeat the one before left out."""
        frames = self.frames()
        return [now for before, now in zip([None] + frames, frames) if now != before]

    def last(self, *kinds):
        """The last line of these kinds, or None."""
        events = self.events(*kinds)
        return events[-1] if events else None

    def wait_for_frame(self, expected):
        """Waits until the frame that arrives is the expected one."""

        def arrived():
            last = self.last("received")
            return last and last.frame() == expected

        def what():
            frames = self.frames()
            return f"the frame {expected.hex(' ')}; the last one was {frames[-1].hex(' ') if frames else 'none'}"

        process.wait_until(arrived, what)

    def wait_for_more_frames(self, count):
        """Waits until so many more frames have arrived."""
        goal = len(self.frames()) + count
        process.wait_until(lambda: len(self.frames()) >= goal, f"{count} more frames")

    def wait_for_steady_speed(self):
        """Waits until the motor keeps its speed: five replies tell the same one."""

        def steady():
            speeds = [reply.value("speed") for reply in self.events("replied")[-5:]]
            return len(speeds) == 5 and len(set(speeds)) == 1

        process.wait_until(steady, "a steady speed")

    def wait_for_event(self, kind):
        """Waits until the last line that is neither a frame nor a reply is of this kind."""

        def came():
            last = self.last("opened", "closed", "hung")
            return last and last.what == kind

        process.wait_until(came, f"the line to be {kind}")
