"""The plotting window on a screen: how its user handles it, and what it shows."""

import os
import shutil
import tempfile

from . import process

WHEEL_UP, WHEEL_DOWN = 4, 5  # as buttons of the mouse


class PlotWindow:
    """A running nodevik-plot at the upper left corner of a screen, with arguments and perhaps more environment."""

    def __init__(self, program, screen, *arguments, environment=None):
        self._command = [program, *arguments]
        self._screen = screen
        self._environment = environment or {}

    def __enter__(self):
        self._directory = tempfile.mkdtemp(prefix="plot-")
        environment = {name: value for name, value in os.environ.items()
                       if not name.startswith("QT_") and name not in ("WAYLAND_DISPLAY", "SESSION_MANAGER")}
        environment.update(DISPLAY=self._screen.display, QT_QPA_PLATFORM="xcb", XDG_RUNTIME_DIR=self._directory,
                           HOME=self._directory, LC_ALL="C.UTF-8", TZ="UTC", **self._environment)
        try:
            self._out = open(os.path.join(self._directory, "out"), "w+", encoding="utf-8")
            self._err = open(os.path.join(self._directory, "err"), "w+", encoding="utf-8")
            self.child = process.start(self._command, env=environment, stdout=self._out, stderr=self._err)
            self._window = process.wait_until(self._find_window, lambda: "the plotting window: " + self.errors())
            self._screen.xdotool("windowmove", self._window, 0, 0)
            process.wait_until(lambda: self._screen.geometry(self._window)[:2] == (0, 0), "the window at its place")
            self._screen.xdotool("windowfocus", self._window)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        process.stop(self.child)
        self._out.close()
        self._err.close()
        shutil.rmtree(self._directory, ignore_errors=True)

    def _find_window(self):
        if self.child.poll() is not None:
            raise RuntimeError(f"nodevik-plot ended with status {self.child.returncode}: {self.errors()}")
        windows = self._screen.xdotool("search", "--onlyvisible", "--name", "nodevik-plot").split()
        return int(windows[-1]) if windows else None

    def errors(self):
        """What it wrote to standard error so far."""
        self._err.seek(0)
        return self._err.read()

    def port(self):
        """The port that it has told."""

        def told():
            self._out.seek(0)
            return [line.split()[1] for line in self._out.read().splitlines() if line.startswith("port ")]

        return process.wait_until(told, "a port")[0]

    # The keyboard and the mouse, in pixels of the window.

    def keys(self, *names):
        """Presses one key after the other, named as xdotool(1) has them, such as "ctrl+a"."""
        self._screen.xdotool("key", "--clearmodifiers", *names)

    def point(self, x, y):
        """Moves the pointer, in two steps, for a window takes notice of movements."""
        self._screen.xdotool("mousemove", x - 3, y, "mousemove", x, y)

    def click(self, x, y):
        self._screen.xdotool("mousemove", x, y, "click", 1)

    def wheel(self, x, y, button, count=1):
        """Turns the wheel (WHEEL_UP, WHEEL_DOWN) over a point."""
        self._screen.xdotool("mousemove", x, y, "click", "--repeat", count, button)

    def drag(self, begin, end):
        self._screen.xdotool("mousemove", *begin, "mousedown", 1)
        for share in (0.25, 0.5, 0.75, 1):
            self._screen.xdotool("mousemove", *(round(a + (b - a) * share) for a, b in zip(begin, end)))
        self._screen.xdotool("mouseup", 1)

    # What it shows.

    def size(self):
        return self._screen.geometry(self._window)[2:]

    def resize(self, width, height):
        self._screen.xdotool("windowsize", self._window, width, height)
        process.wait_until(lambda: self.size() == (width, height), "the window's size")

    def image(self):
        return self._screen.image(0, 0, *self.size())

    def settled_image(self):
        """The picture when it has not changed for some looks at it."""
        looks = []

        def is_settled():
            looks.append(self.image().tobytes())
            return len(looks) > 20 and len(set(looks[-20:])) == 1

        process.wait_until(is_settled, "a picture that stands")
        return self.image()
