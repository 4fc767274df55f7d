"""The application in its real window on a recording that is played to it: it shows what it showed.

Run by ctest; by hand: PANEL=... VEHICLE_RECORDER=... python3 replay_test.py [CLASS[.TEST]]
"""

import contextlib
import os
import sys
import tempfile
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(ROOT, "script", "lib"))

from drive import panel as on_panel  # noqa: E402
from drive import process  # noqa: E402
from drive.panel import Panel  # noqa: E402
from drive.screen import Screen  # noqa: E402

PANEL = os.environ["PANEL"]
RECORDER = os.environ["VEHICLE_RECORDER"]

STAGE_S = 60
DIAL_PRECISION_RPM = 25
HEADER = """# vehicle-recorder recording 1
# program vehicle-recorder 2.1.0
# device /dev/ttyUSB0
# start 2026-11-22T03:25:03.123456+02:00 monotonic 1234.567890
0.000000 open
"""


def reply(speed_number, capacity):
    """A reply of 39 bytes; the speed as the controller counts it, 32767 at rest."""
    values = [speed_number >> 8, speed_number & 255, 2, 8, 0, 6, 0, capacity, 0, 0, 0, 0, 0]
    return b"".join(bytes((value, 0xA0 + slot, 0xB0 + slot)) for slot, value in enumerate(values))


FAST, RESTING, SHORT, MISSING = range(4)
STAGES = (reply(28861, 75), reply(32767, 25), reply(32767, 50)[:13], b"")


def recording():
    lines = []
    for stage, data in enumerate(STAGES):
        for tenth in range(STAGE_S * 10):
            lines.append(f"{1 + stage * STAGE_S + tenth // 10}.{tenth % 10}00000 > 00676e50\n")
            lines += [f"+1000 < {data.hex()}\n"] if data else []
    end_s = 1 + len(STAGES) * STAGE_S
    return HEADER + "".join(lines) + f"{end_s}.000000 close\n{end_s}.000000 end\n"


class Replay(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.screens = contextlib.ExitStack()
        cls.addClassCleanup(cls.screens.close)
        cls.screen = cls.screens.enter_context(Screen())

    def play(self, stage, ahead_s=0, speed=0.0625):
        """Plays from a stage on, or some time ahead of it; so slowly that a stage lasts for a quarter of an hour."""
        stack = contextlib.ExitStack()
        self.addCleanup(stack.close)
        path = os.path.join(stack.enter_context(tempfile.TemporaryDirectory()), "drive.recording")
        with open(path, "w") as file:
            file.write(recording())
        runner = [RECORDER, "replay", path, "--speed", str(speed), "--from", str(1 + stage * STAGE_S - ahead_s), "--"]
        self.panel = stack.enter_context(Panel(PANEL, self.screen, "none", runner=runner))
        self.panel.click(on_panel.OPEN_BUTTON)

    def wait_for_bytes(self, count):
        process.wait_until(lambda: self.panel.byte_count() == count, lambda: f"{count} on the byte counter")

    def test_panel_shows_the_values_of_the_recording(self):
        self.play(FAST)
        self.wait_for_bytes(39)
        process.wait_until(lambda: self.panel.capacity() == 75, "a capacity of 75 Ah")
        process.wait_until(lambda: abs(self.panel.dial_speed() - 1280) < DIAL_PRECISION_RPM, "a speed of 1280 rpm")

    def test_panel_shows_another_place_of_it(self):
        self.play(RESTING)
        self.wait_for_bytes(39)
        process.wait_until(lambda: self.panel.capacity() == 25, "a capacity of 25 Ah")
        process.wait_until(lambda: abs(self.panel.dial_speed()) < DIAL_PRECISION_RPM, "a speed of 0 rpm")

    def test_short_replies_show_on_the_byte_counter(self):
        self.play(SHORT)
        self.wait_for_bytes(13)

    def test_missing_replies_show_on_the_byte_counter(self):
        self.play(MISSING, ahead_s=4, speed=1)
        self.wait_for_bytes(13)
        self.wait_for_bytes(0)

    def test_status_is_that_of_the_panel(self):
        self.play(FAST)
        self.wait_for_bytes(39)
        self.panel.close()
        self.assertEqual(self.panel.wait(), 0)
        self.assertEqual(self.panel.errors(), "")


if __name__ == "__main__":
    unittest.main(verbosity=2)
