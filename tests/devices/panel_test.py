"""The application in its real window on /dev/ttyS1, a 16550A port; the simulated vehicle answers at the other end of
the cable, /dev/ttyS2.

Run by ctest in the machine that script/test-devices boots.
"""

import contextlib
import fcntl
import os
import select
import struct
import sys
import termios
import threading
import tty
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(ROOT, "script", "lib"))

from drive import panel as on_panel  # noqa: E402
from drive import process  # noqa: E402
from drive.panel import Panel, pad_drag, pad_press  # noqa: E402
from drive.screen import Screen  # noqa: E402
from drive.vehicle import NEUTRAL, Vehicle, frame  # noqa: E402

PANEL = os.environ["PANEL"]
SIMULATOR = os.environ["VEHICLE_SIMULATOR"]

NEAR_END = "/dev/ttyS1"
FAR_END = "/dev/ttyS2"
REPLY_SIZE = 39


def open_raw(path):
    descriptor = os.open(path, os.O_RDWR | os.O_NOCTTY)
    tty.setraw(descriptor)
    termios.tcflush(descriptor, termios.TCIOFLUSH)
    return descriptor


class Relay:
    """Carries bytes between two lines, both ways, until its end."""

    def __init__(self, *paths):
        self._paths = paths

    def __enter__(self):
        self._lines = [open_raw(path) for path in self._paths]
        self._ending, self._end = os.pipe()
        self._thread = threading.Thread(target=self._carry)
        self._thread.start()
        return self

    def __exit__(self, *_):
        os.close(self._end)
        self._thread.join()
        for descriptor in self._lines + [self._ending]:
            os.close(descriptor)

    def _carry(self):
        other = dict(zip(self._lines, reversed(self._lines)))
        while True:
            ready, _, _ = select.select(self._lines + [self._ending], [], [])
            if self._ending in ready:
                return
            for line in ready:
                os.write(other[line], os.read(line, 4096))


class Unplugged:
    """Takes a port from its driver, as when an adapter is unplugged, and gives it back at the end."""

    DRIVER = "/sys/bus/pnp/drivers/serial/"

    def __init__(self, path):
        self._device = os.path.basename(os.path.realpath(f"/sys/class/tty/{os.path.basename(path)}/device"))

    def __enter__(self):
        self._tell("unbind")

    def __exit__(self, *_):
        self._tell("bind")

    def _tell(self, what):
        with open(self.DRIVER + what, "w") as file:
            file.write(self._device)


def modem_lines(path):
    descriptor = os.open(path, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
    try:
        return struct.unpack("i", fcntl.ioctl(descriptor, termios.TIOCMGET, bytes(4)))[0]
    finally:
        os.close(descriptor)


def attributes(path):
    descriptor = os.open(path, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
    try:
        return termios.tcgetattr(descriptor)
    finally:
        os.close(descriptor)


class PanelOnASerialPort(unittest.TestCase):
    def setUp(self):
        stack = contextlib.ExitStack()
        self.addCleanup(stack.close)
        self.screen = stack.enter_context(Screen())
        self.vehicle = stack.enter_context(Vehicle(SIMULATOR))
        stack.enter_context(Relay(self.vehicle.line, FAR_END))
        self.panel = stack.enter_context(Panel(PANEL, self.screen, NEAR_END))
        self.panel.click(on_panel.OPEN_BUTTON)
        self.vehicle.wait_for_frame(NEUTRAL)
        self.wait_for_byte_count(REPLY_SIZE)

    def wait_for_byte_count(self, count):
        process.wait_until(lambda: self.panel.byte_count() == count,
                           lambda: f"{count} on the byte counter, not {self.panel.byte_count()}")

    def test_drives_the_vehicle_and_shows_what_it_reports(self):
        self.assertEqual(self.panel.lamp(on_panel.GREEN_LAMP), "on")
        input_flags, output_flags, control_flags, local_flags = attributes(NEAR_END)[:4]
        self.assertEqual((input_flags, output_flags, local_flags), (0, 0, 0))
        self.assertEqual(control_flags, termios.B9600 | termios.CS8 | termios.CREAD | termios.CLOCAL)
        self.assertEqual(modem_lines(NEAR_END) & (termios.TIOCM_DTR | termios.TIOCM_RTS),
                         termios.TIOCM_DTR | termios.TIOCM_RTS)
        self.panel.click(on_panel.MOTOR_BUTTON)
        self.panel.press(255, 70)
        self.vehicle.wait_for_frame(frame(*pad_press(255, 70), "Q"))
        self.panel.drag(250, 60)
        self.vehicle.wait_for_frame(frame(*pad_drag(250, 60), "Q"))
        process.wait_until(lambda: self.panel.dial_speed() > 100, "a dial that shows the motor's speed")
        self.panel.release()
        self.panel.close()
        self.assertEqual(self.panel.wait(), 0)

    def test_outlives_the_port_and_takes_it_up_again(self):
        with Unplugged(NEAR_END):
            self.wait_for_byte_count(0)
            self.assertTrue(self.panel.is_running())
            self.panel.click(on_panel.CLOSE_BUTTON)
            process.wait_until(lambda: self.panel.lamp(on_panel.RED_LAMP) == "on", "the lamp of a closed port")
        self.panel.click(on_panel.OPEN_BUTTON)
        self.wait_for_byte_count(REPLY_SIZE)
        self.panel.close()
        self.assertEqual(self.panel.wait(), 0)
        self.assertIn("write() of 4 bytes failed!", self.panel.output())


if __name__ == "__main__":
    unittest.main(verbosity=2)
