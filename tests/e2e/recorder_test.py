"""The application in its real window on a line that is recorded: the vehicle sees what it would see without the recorder.

Run by ctest, one class at a time; by hand: PANEL=... VEHICLE_RECORDER=... VEHICLE_SIMULATOR=... python3 recorder_test.py
[CLASS[.TEST]]
"""

import contextlib
import inspect
import os
import resource
import signal
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(ROOT, "script", "lib"))

from drive import panel as on_panel  # noqa: E402
from drive import process, recorder  # noqa: E402
from drive.guard import guard_of, wait_for_end  # noqa: E402
from drive.panel import Panel, pad_press  # noqa: E402
from drive.screen import Screen  # noqa: E402
from drive.vehicle import NEUTRAL, Vehicle, frame  # noqa: E402
from drive.witness import Witness, split  # noqa: E402

PANEL = os.environ["PANEL"]
RECORDER = os.environ["VEHICLE_RECORDER"]
SIMULATOR = os.environ["VEHICLE_SIMULATOR"]

POINT = (255, 70)
DRIVING = frame(*pad_press(*POINT), "Q")


def children(pid):
    """The processes that a process has started, by their names."""
    with open(f"/proc/{pid}/task/{pid}/children") as file:
        found = {}
        for child in file.read().split():
            with open(f"/proc/{child}/comm") as name:
                found[name.read().strip()] = int(child)
        return found


# The panel's output comes in blocks: a pause this short fills one soon.
SHORT_PAUSE_MS = 10


class RecordedPanel(unittest.TestCase):
    """A panel that drives, recorded, on a witness's line. The screen is shared by the tests of a class."""

    @classmethod
    def setUpClass(cls):
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        cls.screens = contextlib.ExitStack()
        cls.addClassCleanup(cls.screens.close)
        cls.screen = cls.screens.enter_context(Screen())

    def start(self, *options):
        stack = contextlib.ExitStack()
        self.addCleanup(stack.close)
        self.recording = os.path.join(stack.enter_context(tempfile.TemporaryDirectory()), "drive.recording")
        self.witness = stack.enter_context(Witness())
        self.panel = stack.enter_context(Panel(PANEL, self.screen, self.witness.line,
                                               runner=recorder.runner(RECORDER, self.recording, *options)))
        found = children(self.panel.child.pid)
        self.carrier, self.writer = found["linecarrier"], found["linewriter"]
        self.application = next(pid for name, pid in found.items() if name not in ("linecarrier", "linewriter"))
        self.guard = guard_of(self.application)

    def start_and_drive_off(self, rate_ms=None):
        self.start()
        if rate_ms is not None:
            self.panel.type_number(on_panel.RATE_BOX, rate_ms)
        self.panel.click(on_panel.OPEN_BUTTON)
        self.witness.wait_for_frame(NEUTRAL)
        self.panel.click(on_panel.MOTOR_BUTTON)
        self.panel.press(*POINT)
        self.panel.release()
        self.witness.wait_for_frame(DRIVING)

    def notes(self):
        with open(self.recording) as file:
            return [line.split(" ", 2)[2] for line in file.read().splitlines() if " note " in line]

    def assert_left_at_rest(self, status):
        self.assertEqual(self.panel.wait(), status)
        data = self.witness.finish()
        self.assertEqual(len(data) % 4, 0)
        self.assertEqual(split(data)[-2:], [DRIVING, NEUTRAL])


class Ends(RecordedPanel):
    """However the panel ends, one neutral frame comes last."""

    def test_window_button(self):
        self.start_and_drive_off()
        self.panel.close()
        self.assert_left_at_rest(0)
        self.assertEqual(self.notes(), ["the program ended with status 0"])
        self.assertEqual(self.panel.errors(), "")

    def test_killed_panel_is_followed_by_the_frame_of_its_own_guard(self):
        self.start_and_drive_off()
        os.kill(self.application, signal.SIGKILL)
        self.assert_left_at_rest(128 + signal.SIGKILL)
        self.assertEqual(self.notes(), ["the program was ended by signal 9"])

    def test_killed_panel_whose_guard_was_killed_is_followed_by_the_frame_of_the_recorder(self):
        self.start_and_drive_off()
        os.kill(self.guard, signal.SIGKILL)
        os.kill(self.application, signal.SIGKILL)
        self.assert_left_at_rest(128 + signal.SIGKILL)
        self.assertEqual(self.notes(), ["neutral frame sent by the recorder", "the program was ended by signal 9"])

    def test_terminated_recorder_ends_the_panel_in_good_order(self):
        self.start_and_drive_off()
        self.panel.signal(signal.SIGTERM)
        self.assert_left_at_rest(0)
        self.assertEqual(self.notes(), ["the program ended with status 0"])


class Kills(RecordedPanel):
    """The recorder's processes are killed."""

    def test_killed_carrier_leaves_the_vehicle_at_rest_and_the_panel_tells(self):
        self.start_and_drive_off(SHORT_PAUSE_MS)
        guard = guard_of(self.carrier)
        os.kill(self.carrier, signal.SIGKILL)
        wait_for_end(guard)
        process.wait_until(lambda: "write() of 4 bytes failed!" in self.panel.output(), "the panel's word of it")
        self.assertTrue(self.panel.is_running())
        frames = split(self.witness.finish())
        self.assertEqual(frames[-1], NEUTRAL)
        self.assertIn(frames[frames.index(DRIVING):].count(NEUTRAL), (1, 2))  # the guard's, and one to be sure

    def test_killed_writing_half_leaves_the_panel_driving(self):
        self.start_and_drive_off()
        os.kill(self.writer, signal.SIGKILL)
        elsewhere = frame(*pad_press(240, 200), "Q")
        self.panel.press(240, 200)
        self.panel.release()
        self.witness.wait_for_frame(elsewhere)
        self.panel.press(*POINT)
        self.panel.release()
        self.witness.wait_for_frame(DRIVING)
        self.panel.close()
        self.assert_left_at_rest(0)
        self.assertEqual(self.panel.errors(), "vehicle-recorder: the process that writes the recording is gone: the line is "
                                              "carried on without being recorded\n")

    def test_killed_session_leaves_the_panel_driving(self):
        self.start_and_drive_off()
        os.kill(self.panel.child.pid, signal.SIGKILL)
        self.panel.wait()
        os.kill(self.application, signal.SIGTERM)
        wait_for_end(self.carrier)
        wait_for_end(self.writer)
        self.assertEqual(split(self.witness.finish())[-2:], [DRIVING, NEUTRAL])


class OnTheSimulatedVehicle(RecordedPanel):
    """The simulated vehicle answers, and is itself a witness of what is recorded."""

    def start_on(self, *options):
        stack = contextlib.ExitStack()
        self.addCleanup(stack.close)
        self.recording = os.path.join(stack.enter_context(tempfile.TemporaryDirectory()), "drive.recording")
        self.vehicle = stack.enter_context(Vehicle(SIMULATOR, *options))
        self.panel = stack.enter_context(Panel(PANEL, self.screen, self.vehicle.line,
                                               runner=recorder.runner(RECORDER, self.recording)))

    def test_every_speed_reaches_the_line_and_the_recording(self):
        self.start_on()
        speeds = ("9600", "19200", "38400", "57600", "115200")
        for index, speed in enumerate(speeds):
            self.panel.choose(on_panel.SPEED_BOX, index)
            self.panel.click(on_panel.OPEN_BUTTON)
            process.wait_until(lambda count=index + 1: len(self.vehicle.events("settings")) == count,
                               "the line's settings")
            self.assertEqual(self.vehicle.last("settings").words, [speed, "baud", "8N1"])
            self.vehicle.wait_for_more_frames(2)
            self.panel.click(on_panel.CLOSE_BUTTON)
            self.vehicle.wait_for_event("closed")
        self.panel.close()
        self.assertEqual(self.panel.wait(), 0)
        with open(self.recording) as file:
            settings = [line.split()[2:] for line in file if " line " in line]
        self.assertEqual(settings, [[speed, "8N1", "none"] for speed in speeds])
        self.assertEqual(recorder.faults(recorder.Recording(RECORDER, self.recording), self.vehicle), [])

    def test_line_that_is_hung_up_shows_as_send_failure_and_leaves_it_running(self):
        self.start_on("--hang-up", "4")
        self.panel.type_number(on_panel.RATE_BOX, SHORT_PAUSE_MS)
        self.panel.click(on_panel.OPEN_BUTTON)
        self.assertEqual(self.vehicle.wait(), 0)
        process.wait_until(lambda: "write() of 4 bytes failed!" in self.panel.output(), "the panel's word of it")
        self.assertTrue(self.panel.is_running())
        self.assertEqual(self.panel.errors().count("is lost"), 1)
        self.panel.close()
        self.assertEqual(self.panel.wait(), 0)


class Lap(unittest.TestCase):
    """The recorded lap that script/run drives."""

    def drive(self, stack, way):
        directory = stack.enter_context(tempfile.TemporaryDirectory())
        return stack.enter_context(subprocess.Popen(
            [sys.executable, "-B", os.path.join(ROOT, "script", "lib", "lap.py"), "--panel", PANEL, "--simulator", SIMULATOR,
             "--picture", os.path.join(directory, "panel.png"), "--record", os.path.join(directory, "lap.recording"),
             "--recorder", RECORDER], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            env=dict(os.environ, LINE_WAY=way)))

    def test_is_recorded_to_the_last_digit(self):
        with contextlib.ExitStack() as stack:
            for lap in [self.drive(stack, way) for way in ("namespace", "preload")]:
                output, errors = lap.communicate()
                if "no private mount namespace can be made" not in errors:
                    self.assertEqual(lap.returncode, 0, errors)
                    self.assertIn("The recording tells the same to the last digit", output)


class Cases(unittest.TestCase):
    def test_all_classes_are_run(self):
        classes = [name for name, value in inspect.getmembers(sys.modules[__name__], inspect.isclass)
                   if issubclass(value, unittest.TestCase) and name not in ("RecordedPanel", "Cases")]
        self.assertEqual(sorted(os.environ["CASES"].split(",")), sorted(classes))


if __name__ == "__main__":
    unittest.main(verbosity=2)
