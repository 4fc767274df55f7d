"""A recording in the plotting window itself, on a screen: `vehicle-recorder plot` and nodevik-plot together.

Run by ctest; by hand: VEHICLE_RECORDER=... PLOT=... python3 plotwindow_test.py
"""

import os
import sys
import tempfile
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(ROOT, "script", "lib"))

from drive import process, sampledrive  # noqa: E402
from drive.plotwindow import PlotWindow  # noqa: E402
from drive.screen import Screen  # noqa: E402

RECORDER = os.environ["VEHICLE_RECORDER"]
PLOT = os.environ["PLOT"]
THROTTLE = (0x00, 0x72, 0xB2)  # the colour of the first curve
NAMES_END = 130  # pixels: above are the menus and the names of the curves


def widest_gap(image):
    """Where the throttle's curve is interrupted: begin and end as shares of its width."""
    columns = [x for x in range(image.width)
               if any(image.getpixel((x, y)) == THROTTLE for y in range(NAMES_END, image.height))]
    gap = max(zip(columns, columns[1:]), key=lambda pair: pair[1] - pair[0])
    return [(x - columns[0]) / (columns[-1] - columns[0]) for x in gap]


class Window(unittest.TestCase):
    def setUp(self):
        self.directory = self.enterContext(tempfile.TemporaryDirectory())
        self.recording = os.path.join(self.directory, "drive.recording")
        self.tables = os.path.join(self.directory, "tables")
        os.mkdir(self.tables)
        sampledrive.write(self.recording, 120)
        self.screen = self.enterContext(Screen())

    def window(self):
        path = os.path.dirname(PLOT) + ":" + os.environ["PATH"]
        return PlotWindow(RECORDER, self.screen, "plot", self.recording,
                          environment={"PATH": path, "TMPDIR": self.tables})

    def test_it_shows_the_drive_and_leaves_nothing(self):
        with self.window() as window:
            name = "drive.csv \u2013 nodevik-plot"
            process.wait_until(lambda: name in self.screen.xdotool("search", "--name", "nodevik-plot", "getwindowname",
                                                                   "%@"), "the window's title")
            image = window.settled_image()
            begin, end = widest_gap(image)  # the port is closed meanwhile
            self.assertAlmostEqual(begin, 0.58, delta=0.02)
            self.assertAlmostEqual(end, 0.62, delta=0.02)
            self.assertEqual(len(os.listdir(self.tables)), 1)
            window.keys("ctrl+q")
            process.wait_until(lambda: window.child.poll() is not None, "the end of the command")
            self.assertEqual(window.child.returncode, 0)
            self.assertEqual(window.errors(), "")
        self.assertEqual(os.listdir(self.tables), [])

    def test_it_takes_the_window_with_it(self):
        with self.window() as window:
            window.settled_image()
            window.child.terminate()
            process.wait_until(lambda: window.child.poll() is not None, "the end of the command")
            self.assertEqual(window.child.returncode, 130)
            process.wait_until(lambda: not self.screen.xdotool("search", "--onlyvisible", "--name", "nodevik-plot"),
                               "the end of the window")
        self.assertEqual(os.listdir(self.tables), [])


if __name__ == "__main__":
    unittest.main()
