"""The application in its real window, recorded, on /dev/ttyS1, a 16550A port; the simulated vehicle answers at the other
end of the cable, /dev/ttyS2.

Run by ctest in the machine that script/test-devices boots.
"""

import contextlib
import os
import sys
import tempfile
import termios
import unittest

from panel_test import FAR_END, NEAR_END, PANEL, REPLY_SIZE, SIMULATOR, Relay, Unplugged, attributes, modem_lines

from drive import panel as on_panel
from drive import process, recorder
from drive.panel import Panel, pad_press
from drive.screen import Screen
from drive.vehicle import NEUTRAL, Vehicle, frame

RECORDER = os.environ["VEHICLE_RECORDER"]

DRIVING = frame(*pad_press(255, 70), "Q")


class RecordedPanelOnASerialPort(unittest.TestCase):
    def setUp(self):
        stack = contextlib.ExitStack()
        self.addCleanup(stack.close)
        self.recording = os.path.join(stack.enter_context(tempfile.TemporaryDirectory()), "drive.recording")
        self.screen = stack.enter_context(Screen())
        self.vehicle = stack.enter_context(Vehicle(SIMULATOR))
        stack.enter_context(Relay(self.vehicle.line, FAR_END))
        self.panel = stack.enter_context(Panel(PANEL, self.screen, NEAR_END,
                                               runner=recorder.runner(RECORDER, self.recording)))
        self.panel.click(on_panel.OPEN_BUTTON)
        self.vehicle.wait_for_frame(NEUTRAL)
        self.wait_for_byte_count(REPLY_SIZE)

    def wait_for_byte_count(self, count):
        process.wait_until(lambda: self.panel.byte_count() == count,
                           lambda: f"{count} on the byte counter, not {self.panel.byte_count()}")

    def close_port(self):
        self.panel.click(on_panel.CLOSE_BUTTON)
        process.wait_until(lambda: self.panel.lamp(on_panel.RED_LAMP) == "on", "the lamp of a closed port")

    def test_what_is_recorded_is_what_the_vehicle_has_logged(self):
        input_flags, output_flags, control_flags, local_flags = attributes(NEAR_END)[:4]
        self.assertEqual((input_flags, output_flags, local_flags), (0, 0, 0))
        self.assertEqual(control_flags, termios.B9600 | termios.CS8 | termios.CREAD | termios.CLOCAL)
        self.assertEqual(modem_lines(NEAR_END) & (termios.TIOCM_DTR | termios.TIOCM_RTS),
                         termios.TIOCM_DTR | termios.TIOCM_RTS)
        self.panel.click(on_panel.MOTOR_BUTTON)
        self.panel.press(255, 70)
        self.panel.release()
        self.vehicle.wait_for_frame(DRIVING)
        self.vehicle.wait_for_more_frames(5)
        self.panel.close()
        self.assertEqual(self.panel.wait(), 0)
        self.vehicle.wait_for_frame(NEUTRAL)
        frames = [event.frame().hex() for event in self.vehicle.events("received")]
        self.assertEqual([cycle["frame"] for cycle in recorder.Recording(RECORDER, self.recording).cycles() if cycle["frame"]], frames)

    def test_outlives_the_port_and_takes_it_up_again(self):
        with Unplugged(NEAR_END):
            self.wait_for_byte_count(0)
            process.wait_until(lambda: "is lost" in self.panel.errors(), "the recorder's word of it")
            self.assertTrue(self.panel.is_running())
            self.close_port()
        self.panel.click(on_panel.OPEN_BUTTON)
        self.wait_for_byte_count(REPLY_SIZE)
        self.panel.close()
        self.assertEqual(self.panel.wait(), 0)
        self.assertIn("write() of 4 bytes failed!", self.panel.output())


if __name__ == "__main__":
    unittest.main(verbosity=2)
