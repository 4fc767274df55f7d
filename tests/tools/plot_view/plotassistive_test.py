"""The plotting window in its real window, with the keyboard and the mouse, as an AT-SPI client finds it.

Run by ctest, one class at a time; by hand: PLOT=... /usr/bin/python3 plotassistive_test.py [CLASS[.TEST]]
"""

import contextlib
import os
import re
import sys
import tempfile
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..")
sys.path.insert(0, os.path.join(ROOT, "script", "lib"))

from drive import assistive, process  # noqa: E402
from drive.plotwindow import WHEEL_DOWN, WHEEL_UP, PlotWindow  # noqa: E402
from drive.screen import Screen  # noqa: E402

PLOT = os.environ["PLOT"]

NAME = "check box"
FIELD = "chart"
TABLE = "time,throttle,speed\n" + "".join(f"{time},{time * 2},{100 - time}\n" for time in range(11))
EVERYTHING = "2 of 2 curves, 0.00 s to 10.00 s"

everything = contextlib.ExitStack()
screen = None
client = None


def setUpModule():
    global screen, client
    screen = everything.enter_context(Screen())
    client = everything.enter_context(assistive.Client(screen))


def tearDownModule():
    everything.close()


class PlotTest(unittest.TestCase):
    """A window with a table of two curves, and the client."""

    def setUp(self):
        stack = contextlib.ExitStack()
        self.addCleanup(stack.close)
        directory = stack.enter_context(tempfile.TemporaryDirectory())
        path = os.path.join(directory, "drive.csv")
        with open(path, "w", encoding="utf-8") as file:
            file.write(TABLE)
        self.window = stack.enter_context(
            PlotWindow(PLOT, screen, path, environment={"QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"}))
        process.wait_until(lambda: client.programs() == [os.path.basename(PLOT)], "the window among the programs")
        self.field = client.find(FIELD, "Curves")
        self.wait_for_words(EVERYTHING)
        client.events.clear()

    def wait_for_words(self, words):
        process.wait_until(lambda: self.field.words() == words, lambda: f"'{words}', not '{self.field.words()}'")

    def wait_for_start(self, words):
        process.wait_until(lambda: self.field.words().startswith(words),
                           lambda: f"'{words}...', not '{self.field.words()}'")

    def middle(self):
        x, y, width, height = self.field.place()
        return x + width // 2, y + height // 2


class Names(PlotTest):
    def test_are_check_boxes_that_a_client_can_switch(self):
        name = client.find(NAME, "speed")
        self.assertLessEqual({"checked", "focusable", "enabled", "visible"}, name.states())
        name.try_every_action()
        client.wait_for_event(assistive.CHECKED, "speed", 0)
        self.wait_for_start("1 of 2 curves")
        self.assertNotIn("checked", name.states())

    def test_are_switched_by_a_click(self):
        x, y, width, height = client.find(NAME, "throttle").place()
        self.window.click(x + width - 8, y + height // 2)
        client.wait_for_event(assistive.CHECKED, "throttle", 0)
        self.wait_for_start("1 of 2 curves")

    def test_are_switched_by_keys(self):
        self.window.keys("ctrl+shift+a")
        self.wait_for_start("0 of 2 curves")
        self.window.keys("ctrl+a")
        self.wait_for_start("2 of 2 curves")


class Field(PlotTest):
    def test_can_have_the_focus_and_tells_what_the_keys_put_the_cursor_on(self):
        self.assertLessEqual({"focusable", "focused", "enabled", "visible"}, self.field.states())
        self.window.keys("End")
        client.wait_for_event(assistive.WORDS, "Curves")
        self.wait_for_words("10.00 s: throttle 20, speed 90")
        self.window.keys("Left")
        self.wait_for_words("9.00 s: throttle 18, speed 91")
        self.window.keys("Down", "Down")
        self.wait_for_words("9.00 s: speed 91")
        self.window.keys("Escape")
        self.wait_for_words(EVERYTHING)

    def times(self):
        """The first and the last time that the field shows; nothing while there is a cursor."""
        found = re.fullmatch(r"2 of 2 curves, (\S+) s to (\S+) s", self.field.words())
        return found and tuple(map(float, found.groups()))

    def wait_for_times(self, are_right, what):
        process.wait_until(lambda: self.times() and are_right(*self.times()),
                           lambda: f"{what}, not '{self.field.words()}'")

    def test_is_zoomed_by_the_wheel_and_moved_by_dragging(self):
        x, y = self.middle()
        self.window.wheel(x, y, WHEEL_UP, 4)
        self.window.keys("Escape")  # the pointer's cursor
        self.wait_for_times(lambda first, last: 1 < first and last < 9 and last - first < 4.2, "a shorter time")
        self.window.wheel(x, y, WHEEL_DOWN)
        self.window.keys("Escape")
        self.wait_for_times(lambda first, last: 4.9 < last - first < 5.3, "a longer one")
        before = self.times()
        self.window.drag((x, y), (x + 200, y))
        self.window.keys("Escape")
        self.wait_for_times(lambda first, last: first < before[0] - 0.5 and last < before[1] - 0.5, "an earlier one")
        self.window.keys("f")
        self.wait_for_words(EVERYTHING)

    def test_tells_what_the_pointer_is_on(self):
        x, y = self.middle()
        self.window.point(x, y)
        process.wait_until(lambda: self.field.words().endswith(" s: throttle 10, speed 95"),
                           lambda: f"the values in the middle, not '{self.field.words()}'")


if __name__ == "__main__":
    unittest.main(verbosity=2)
