"""A screen in memory (Xvfb) whose pixels can be looked at."""

import os
import shutil
import subprocess
import tempfile

from . import process
from .xclient import XClient


class Screen:
    """An X server of its own on a free display number."""

    WIDTH = 1280
    HEIGHT = 960

    def __enter__(self):
        self._client = None
        self._directory = tempfile.mkdtemp(prefix="panel-screen-")
        reading, writing = os.pipe()
        try:
            with open(self._log(), "wb") as log:
                self._server = process.start(
                    ["Xvfb", "-displayfd", str(writing), "-screen", "0", f"{self.WIDTH}x{self.HEIGHT}x24",
                     "-fbdir", self._directory, "-nolisten", "tcp", "-noreset"],
                    pass_fds=[writing], stdout=subprocess.DEVNULL, stderr=log)
            os.close(writing)
            with os.fdopen(reading) as number:
                display = number.readline().strip()
        except BaseException:
            shutil.rmtree(self._directory, ignore_errors=True)
            raise
        if not display:
            with open(self._log()) as log:
                reason = log.read()
            self.__exit__()
            raise RuntimeError("Xvfb does not start: " + reason)
        self.display = ":" + display
        try:
            self._client = XClient(self.display)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        if self._client:
            self._client.close()
        process.stop(self._server)
        shutil.rmtree(self._directory, ignore_errors=True)

    def end(self, number):
        """Ends the server by a signal."""
        self._server.send_signal(number)
        self._server.wait()

    def _log(self):
        return os.path.join(self._directory, "log")

    def xdotool(self, *arguments):
        """Runs xdotool(1) on this screen; returns what it prints, nothing if it fails."""
        done = subprocess.run(["xdotool"] + [str(argument) for argument in arguments],
                              env=dict(os.environ, DISPLAY=self.display), stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, check=False)
        return done.stdout

    def geometry(self, window):
        """The rectangle of a window (x, y, width, height), or None if it is gone."""
        values = dict(line.split("=") for line in
                      self.xdotool("getwindowgeometry", "--shell", window).split() if "=" in line)
        return tuple(int(values[name]) for name in ("X", "Y", "WIDTH", "HEIGHT")) if "X" in values else None

    def file(self):
        """The file that holds the picture as it is painted (XWD format, see xwd(1)), for who measures that."""
        return os.path.join(self._directory, "Xvfb_screen0")

    def image(self, x, y, width, height):
        """What the screen shows in a rectangle."""
        return self._client.image(x, y, width, height)
