"""The ends of the application while it drives, in its real window: each of them but one leaves the vehicle at rest.

A witness on the line keeps every byte. Run by ctest, one class at a time; by hand:
PANEL=... UNREADABLE_LINE_LIBRARY=... python3 guard_test.py [CLASS[.TEST]]
"""

import contextlib
import inspect
import os
import resource
import signal
import sys
import tempfile
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(ROOT, "script", "lib"))

from drive import panel as on_panel  # noqa: E402
from drive import process  # noqa: E402
from drive.guard import guard_of, state_of, wait_for_end  # noqa: E402
from drive.panel import Panel, pad_press  # noqa: E402
from drive.screen import Screen  # noqa: E402
from drive.vehicle import NEUTRAL, frame  # noqa: E402
from drive.witness import Witness, split  # noqa: E402

PANEL = os.environ["PANEL"]

POINT = (255, 70)
DRIVING = frame(*pad_press(*POINT), "Q")
LOST = "lineguard: does not answer any more, the panel goes on without it\n"


class GuardTest(unittest.TestCase):
    """A panel that drives on a witness's line. The screen is shared by the tests of a class."""

    maxDiff = None

    @classmethod
    def setUpClass(cls):
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))  # the guard gets to know of an end when its core is written
        cls.screens = contextlib.ExitStack()
        cls.addClassCleanup(cls.screens.close)
        cls.screen = cls.screens.enter_context(Screen())

    def start(self, screen=None, **options):
        stack = contextlib.ExitStack()
        self.addCleanup(stack.close)
        self.witness = stack.enter_context(Witness())
        self.panel = stack.enter_context(Panel(options.pop("program", PANEL), screen or self.screen, self.witness.line,
                                               **options))
        self.guard = guard_of(self.panel.child.pid)

    def drive_off(self):
        self.panel.click(on_panel.OPEN_BUTTON)
        self.witness.wait_for_frame(NEUTRAL)
        self.panel.click(on_panel.MOTOR_BUTTON)
        self.panel.press(*POINT)
        self.panel.release()
        self.witness.wait_for_frame(DRIVING)

    def start_and_drive_off(self, *arguments, **options):
        self.start(*arguments, **options)
        self.drive_off()

    def assert_left_at_rest(self):
        """The panel and its guard are gone, and the neutral frame came last, once."""
        self.panel.wait()
        wait_for_end(self.guard)
        data = self.witness.finish()
        self.assertEqual(len(data) % 4, 0)
        self.assertEqual(split(data)[-2:], [DRIVING, NEUTRAL])


class OwnEnds(GuardTest):
    """The panel ends itself: one neutral frame, and nothing more from the guard."""

    def test_window_button(self):
        self.start_and_drive_off()
        self.panel.close()
        self.assert_left_at_rest()
        self.assertEqual((self.panel.child.returncode, self.panel.output(), self.panel.errors()), (0, "", ""))

    def test_escape(self):
        self.start_and_drive_off()
        self.screen.xdotool("windowfocus", "--sync", self.panel.window, "key", "Escape")
        self.assert_left_at_rest()
        self.assertEqual(self.panel.child.returncode, 0)

    def test_termination_signals(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            self.start_and_drive_off()
            self.panel.signal(number)
            self.assert_left_at_rest()
            self.assertEqual((self.panel.child.returncode, self.panel.output(), self.panel.errors()), (0, "", ""))
            self.doCleanups()

    def test_close_button_of_the_port_sends_nothing(self):
        self.start_and_drive_off()
        self.panel.click(on_panel.CLOSE_BUTTON)
        process.wait_until(lambda: self.panel.lamp(on_panel.RED_LAMP) == "on", "the red lamp")
        self.panel.signal(signal.SIGKILL)
        self.panel.wait()
        wait_for_end(self.guard)
        self.assertEqual(split(self.witness.finish())[-1], DRIVING)


class ForeignEnds(GuardTest):
    """The panel is ended: the guard sends the neutral frame."""

    def test_signals(self):
        for number in (signal.SIGQUIT, signal.SIGKILL, signal.SIGABRT, signal.SIGSEGV, signal.SIGUSR1, signal.SIGUSR2,
                       signal.SIGALRM, signal.SIGBUS, signal.SIGFPE, signal.SIGILL):
            with self.subTest(number.name):
                self.start_and_drive_off()
                self.panel.signal(number)
                self.assert_left_at_rest()
                self.assertNotEqual(self.panel.child.returncode, 0)
            self.doCleanups()

    def test_killed_client(self):
        self.start_and_drive_off()
        self.screen.xdotool("windowkill", self.panel.window)
        self.assert_left_at_rest()
        self.assertEqual(self.panel.child.returncode, 1)

    def test_failed_read(self):
        with tempfile.TemporaryDirectory() as directory:
            sign = os.path.join(directory, "sign")
            self.start_and_drive_off(preload=os.environ["UNREADABLE_LINE_LIBRARY"],
                                     environment={"UNREADABLE_LINE": sign})
            open(sign, "w").close()
            self.assert_left_at_rest()
        self.assertEqual((self.panel.child.returncode, self.panel.output()), (0, "SerialPort Read failed!\n"))

    def test_line_that_cannot_be_opened_again(self):
        self.start_and_drive_off()
        resource.prlimit(self.panel.child.pid, resource.RLIMIT_NOFILE, (3, 3))
        self.panel.click(on_panel.OPEN_BUTTON)
        self.assert_left_at_rest()
        self.assertEqual(self.panel.child.returncode, 1)
        self.assertIn("Unable to open serial port: - \n", self.panel.errors())

    def test_end_before_the_port_was_opened_sends_nothing(self):
        self.start()
        self.panel.signal(signal.SIGKILL)
        self.panel.wait()
        wait_for_end(self.guard)
        self.assertEqual(self.witness.finish(), b"")


class LostScreen(GuardTest):
    """The window system goes away."""

    def start_on_its_own_screen(self):
        stack = contextlib.ExitStack()
        self.addCleanup(stack.close)
        own = stack.enter_context(Screen())
        self.start_and_drive_off(own)
        return own

    def test_terminated(self):
        self.start_on_its_own_screen().end(signal.SIGTERM)
        self.assert_left_at_rest()

    def test_killed(self):
        self.start_on_its_own_screen().end(signal.SIGKILL)
        self.assert_left_at_rest()

    def test_logout(self):
        """Everything of the session is asked to end at once, the guard too, and the screen goes."""
        own = self.start_on_its_own_screen()
        for number in (signal.SIGHUP, signal.SIGTERM):
            os.kill(self.guard, number)
            self.panel.signal(number)
        own.end(signal.SIGTERM)
        self.panel.wait()
        wait_for_end(self.guard)
        self.assertEqual(split(self.witness.finish())[-1], NEUTRAL)


class GoesOn(GuardTest):
    """What does not end the panel."""

    def assert_drives_on(self):
        elsewhere = frame(*pad_press(240, 200), "Q")
        self.panel.press(240, 200)
        self.panel.release()
        self.witness.wait_for_frame(elsewhere)
        self.panel.press(*POINT)
        self.panel.release()
        self.witness.wait_for_frame(DRIVING)

    def test_killed_guard_is_told_of_once_and_missed_no_more(self):
        self.start_and_drive_off()
        os.kill(self.guard, signal.SIGKILL)
        process.wait_until(lambda: self.panel.errors() == LOST, self.panel.errors)
        process.wait_until(lambda: state_of(self.guard) == "", "the guard's end to be taken")
        self.assert_drives_on()
        self.panel.click(on_panel.CLOSE_BUTTON)
        process.wait_until(lambda: self.panel.lamp(on_panel.RED_LAMP) == "on", "the red lamp")
        self.panel.click(on_panel.OPEN_BUTTON)
        self.witness.wait_for_frame(DRIVING)
        self.panel.close()
        self.assert_left_at_rest()
        self.assertEqual((self.panel.child.returncode, self.panel.errors()), (0, LOST))

    def test_signal_of_a_broken_pipe(self):
        self.start_and_drive_off()
        self.panel.signal(signal.SIGPIPE)
        self.assert_drives_on()
        self.panel.close()
        self.assert_left_at_rest()
        self.assertEqual(self.panel.child.returncode, 0)

    def test_output_that_nobody_reads(self):
        with tempfile.NamedTemporaryFile("w", suffix=".sh", delete=False) as script:
            self.addCleanup(os.unlink, script.name)
            script.write('#!/bin/bash\nexec "$PANEL" > >(exit)\n')
        os.chmod(script.name, 0o700)
        with tempfile.TemporaryDirectory() as directory:
            sign = os.path.join(directory, "sign")
            self.start_and_drive_off(program=script.name, preload=os.environ["UNREADABLE_LINE_LIBRARY"],
                                     environment={"UNREADABLE_LINE": sign})
            open(sign, "w").close()
            self.assert_left_at_rest()
        self.assertEqual(self.panel.child.returncode, 0)


class Cases(unittest.TestCase):
    def test_all_classes_are_run(self):
        classes = [name for name, value in inspect.getmembers(sys.modules[__name__], inspect.isclass)
                   if issubclass(value, unittest.TestCase) and name not in ("GuardTest", "Cases")]
        self.assertEqual(sorted(os.environ["CASES"].split(",")), sorted(classes))


if __name__ == "__main__":
    unittest.main(verbosity=2)
