"""The gauges of the application in its real window, as an AT-SPI client finds them, on the simulated vehicle.

Run by ctest, one class at a time; by hand: PANEL=... VEHICLE_SIMULATOR=... /usr/bin/python3 assistive_test.py [CLASS[.TEST]]
"""

import contextlib
import os
import sys
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(ROOT, "script", "lib"))

from drive import assistive, process  # noqa: E402
from drive import panel as on_panel  # noqa: E402
from drive.panel import Panel  # noqa: E402
from drive.screen import Screen  # noqa: E402
from drive.vehicle import NEUTRAL, Vehicle  # noqa: E402

PANEL = os.environ["PANEL"]
SIMULATOR = os.environ["VEHICLE_SIMULATOR"]

METER = "progress bar"
LAMP = "check box"
SPEED = "Moottorin kierrosnopeus"
VOLTAGE = "Akun jännite"
OPENED = "Portti auki"
CLOSED = "Portti kiinni"
SENDING = "Lähettää"
RECEIVING = "Vastaanottaa"
FIX = "Yhteys"
ON = "päällä"
OFF = "pois"

everything = contextlib.ExitStack()
screen = None
client = None


def setUpModule():
    global screen, client
    screen = everything.enter_context(Screen())
    client = everything.enter_context(assistive.Client(screen))


def tearDownModule():
    everything.close()


class AssistiveTest(unittest.TestCase):
    """A panel with a vehicle of its own, and the client."""

    def setUp(self):
        stack = contextlib.ExitStack()
        self.addCleanup(stack.close)
        self.vehicle = stack.enter_context(Vehicle(SIMULATOR))
        self.panel = stack.enter_context(
            Panel(PANEL, screen, self.vehicle.line, {"QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"}))
        process.wait_until(lambda: client.programs() == [os.path.basename(PANEL)], "the panel among the programs")
        client.events.clear()

    def open_port(self):
        self.panel.click(on_panel.OPEN_BUTTON)
        self.vehicle.wait_for_frame(NEUTRAL)

    def wait_for_words(self, gauge, words):
        process.wait_until(lambda: gauge.words() == words, lambda: f"'{words}', not '{gauge.words()}'")


class Meters(AssistiveTest):
    def test_are_read_only_progress_bars_with_a_range(self):
        for name, limits, words in ((SPEED, (0, 2500), "0 [rpm]"), (VOLTAGE, (0, 80), "0 [C]")):
            meter = client.find(METER, name)
            self.assertEqual(meter.range(), limits)
            self.assertEqual(meter.value(), 0)
            self.assertEqual(meter.words(), words)
            self.assertLessEqual({"read-only", "enabled", "visible"}, meter.states())
            self.assertNotIn("focusable", meter.states())

    def test_each_is_found_once(self):
        client.find(METER, VOLTAGE)
        names = [meter.name() for meter in client.find_all(METER) if meter.name()]
        self.assertEqual(sorted(names), sorted([SPEED, VOLTAGE]))

    def test_dial_follows_what_the_vehicle_replies(self):
        dial = client.find(METER, SPEED)
        self.open_port()
        self.panel.click(on_panel.MOTOR_BUTTON)
        self.panel.press(250, 70)

        def steady_speed():
            speeds = [reply.value("speed") for reply in self.vehicle.events("replied")[-5:]]
            return len(speeds) == 5 and len(set(speeds)) == 1 and speeds[0]

        speed = process.wait_until(steady_speed, "a steady speed")
        self.assertGreater(speed, 1000)
        client.wait_for_event(assistive.VALUE, SPEED)
        client.wait_for_event(assistive.WORDS, SPEED)
        process.wait_until(lambda: dial.value() == speed, lambda: f"the speed {speed}, not {dial.value()}")
        self.wait_for_words(dial, f"{speed} [rpm]")
        self.panel.release()

    def test_dial_cannot_be_turned_by_a_client(self):
        dial = client.find(METER, SPEED)
        dial.try_to_set(1000)
        dial.try_every_action()  # the toolkit offers Increase and Decrease wherever there is a value
        self.assertEqual(dial.value(), 0)
        self.assertEqual(dial.words(), "0 [rpm]")


class Lamps(AssistiveTest):
    def assert_lit(self, lamp, lit):
        self.assertEqual(lamp.words(), ON if lit else OFF)
        self.assertEqual("checked" in lamp.states(), lit)

    def test_start_with_the_port_closed(self):
        for name, lit in ((CLOSED, True), (OPENED, False), (SENDING, False), (RECEIVING, False), (FIX, False)):
            lamp = client.find(LAMP, name)
            self.assert_lit(lamp, lit)
            self.assertIn("read-only", lamp.states())
            self.assertNotIn("Value", lamp.interfaces())

    def test_cannot_be_pressed_by_a_client(self):
        lamp = client.find(LAMP, OPENED)
        lamp.try_every_action()
        self.assert_lit(lamp, False)
        self.assertNotIn("focusable", lamp.states())

    def test_tell_when_the_port_is_opened_and_closed(self):
        opened, closed = client.find(LAMP, OPENED), client.find(LAMP, CLOSED)
        self.open_port()
        client.wait_for_event(assistive.CHECKED, OPENED, 1)
        client.wait_for_event(assistive.CHECKED, CLOSED, 0)
        self.assert_lit(opened, True)
        self.assert_lit(closed, False)
        client.events.clear()
        self.panel.click(on_panel.CLOSE_BUTTON)
        client.wait_for_event(assistive.CHECKED, CLOSED, 1)
        client.wait_for_event(assistive.CHECKED, OPENED, 0)
        self.wait_for_words(closed, ON)
        self.wait_for_words(opened, OFF)

    def test_blink_with_each_exchange(self):
        sending, receiving = client.find(LAMP, SENDING), client.find(LAMP, RECEIVING)
        self.open_port()
        for lamp in (sending, receiving):
            for state, words in ((1, ON), (0, OFF)):
                client.wait_for_event(assistive.CHECKED, lamp.name(), state)
                self.wait_for_words(lamp, words)

    def test_go_with_the_window(self):
        client.find(LAMP, CLOSED)
        self.panel.close()
        self.assertEqual(self.panel.wait(), 0, self.panel.errors())
        process.wait_until(lambda: client.programs() == [], "no program any more")
        self.assertEqual(client.find_all(LAMP), [])


if __name__ == "__main__":
    # On the bus everybody is known by the user that the kernel names. The panel gets its line in a namespace where a
    # normal user is another one: so the whole test goes into one.
    if os.geteuid() != 0:
        os.execvp("unshare", ["unshare", "-Ur", sys.executable, "-B"] + sys.argv)
    unittest.main(verbosity=2)
