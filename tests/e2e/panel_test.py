"""The application in its real window under Xvfb, driven with the mouse, with the simulated vehicle as its serial line.

Run by ctest, one class at a time; by hand: PANEL=... VEHICLE_SIMULATOR=... python3 panel_test.py [CLASS[.TEST]]
"""

import contextlib
import inspect
import os
import signal
import struct
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(ROOT, "script", "lib"))

import lap  # noqa: E402
from drive import panel as on_panel  # noqa: E402
from drive import process  # noqa: E402
from drive.panel import WITH_LINE, Panel, pad_drag, pad_press, way_of_the_line  # noqa: E402
from drive.screen import Screen  # noqa: E402
from drive.vehicle import NEUTRAL, Vehicle, frame  # noqa: E402

PANEL = os.environ["PANEL"]
SIMULATOR = os.environ["VEHICLE_SIMULATOR"]


def setUpModule():
    print(way_of_the_line(), file=sys.stderr)


class PanelTest(unittest.TestCase):
    """A panel on a screen of its own, with a vehicle of its own."""

    maxDiff = None

    def start(self, *vehicle_options, line=None, program=PANEL):
        stack = contextlib.ExitStack()
        self.addCleanup(stack.close)
        self.screen = stack.enter_context(Screen())
        self.vehicle = stack.enter_context(Vehicle(SIMULATOR, *vehicle_options))
        self.panel = stack.enter_context(Panel(program, self.screen, line or self.vehicle.line))

    def open_port(self, *vehicle_options):
        self.start(*vehicle_options)
        self.panel.click(on_panel.OPEN_BUTTON)
        self.vehicle.wait_for_frame(NEUTRAL)

    def show_extra_pane(self):
        self.panel.click(on_panel.EXTRA_CHECK)
        self.panel.wait_for_size(920, 508)

    def motor_on(self):
        self.panel.click(on_panel.MOTOR_BUTTON)
        self.vehicle.wait_for_frame(NEUTRAL[:3] + b"Q")

    def wait_for_lamp(self, lamp, state):
        process.wait_until(lambda: self.panel.lamp(lamp) == state,
                           lambda: f"a lamp that is {state}, not {self.panel.lamp(lamp)}")

    def wait_for_byte_count(self, count):
        process.wait_until(lambda: self.panel.byte_count() == count,
                           lambda: f"{count} on the byte counter, not {self.panel.byte_count()}")

    def wait_for_states(self, lamp, states):
        """Waits until a lamp has been seen in each of the states."""
        seen = set()

        def all_seen():
            seen.add(self.panel.lamp(lamp))
            return states <= seen

        process.wait_until(all_seen, lambda: f"a lamp to be {states}; it was {seen}")

    def assert_goes_on(self):
        """The panel still takes the operator's wishes to the vehicle, and only these."""
        before = self.vehicle.distinct_frames()
        self.assertEqual(before, [NEUTRAL])
        self.panel.press(255, 70)
        self.vehicle.wait_for_frame(frame(*pad_press(255, 70), "P"))
        self.panel.release()
        self.vehicle.wait_for_more_frames(3)
        self.assertEqual(self.vehicle.distinct_frames(), [NEUTRAL, frame(*pad_press(255, 70), "P")])

    def assert_ends(self, status):
        self.assertEqual(self.panel.wait(), status, self.panel.errors())


class Start(PanelTest):
    def test_shows_the_panel_alone_in_its_small_size(self):
        self.start()
        self.assertEqual(self.panel.geometry()[2:], (620, 508))
        self.assertEqual(len(self.panel.windows()), 1)

    def test_shows_the_port_closed_and_everything_at_rest(self):
        self.start()
        self.assertEqual(self.panel.lamp(on_panel.RED_LAMP), "on")
        self.assertEqual(self.panel.lamp(on_panel.GREEN_LAMP), "off")
        self.assertEqual(self.panel.byte_count(), 0)
        self.assertAlmostEqual(self.panel.dial_speed(), 0, delta=lap.DIAL_TOLERANCE_RPM)
        self.assertEqual(self.panel.capacity(), 0)
        self.assertEqual(self.panel.set_points(), (0, 103, 110))

    def test_does_not_touch_the_line_before_the_open_button(self):
        self.start()
        self.panel.click(on_panel.MOTOR_BUTTON)
        self.panel.press(250, 60)
        self.panel.drag(255, 70)
        self.panel.release()
        self.assertEqual(self.panel.set_points(), pad_drag(255, 70))
        self.panel.close()
        self.assert_ends(0)
        self.assertEqual([event.what for event in self.vehicle.events()], [])

    def test_writes_nothing_to_its_outputs(self):
        self.start()
        self.panel.close()
        self.assert_ends(0)
        self.assertEqual(self.panel.output(), "")
        self.assertEqual(self.panel.errors(), "")


class Telemetry(PanelTest):
    def test_open_port_is_on_the_lamps_and_in_the_status_view(self):
        self.open_port()
        self.assertEqual(self.panel.lamp(on_panel.GREEN_LAMP), "on")
        self.assertEqual(self.panel.lamp(on_panel.RED_LAMP), "off")
        self.show_extra_pane()
        self.panel.wait_for_text(on_panel.STATUS_TEXT, "Portti auki\nStarted")

    def test_each_exchange_blinks_the_lamps_of_the_link(self):
        self.open_port()
        self.show_extra_pane()
        self.wait_for_states(on_panel.SEND_LAMP, {"on", "off"})
        self.wait_for_states(on_panel.RECEIVE_LAMP, {"on", "off"})

    def test_byte_counter_shows_the_length_of_a_reply(self):
        self.open_port()
        self.wait_for_byte_count(39)

    def test_battery_bar_shows_the_capacity(self):
        for capacity in (12, 63, 100):
            self.open_port("--capacity", str(capacity))
            process.wait_until(lambda expected=capacity: abs(self.panel.capacity() - expected) <= lap.BAR_TOLERANCE,
                               lambda: f"{capacity} on the battery bar, not {self.panel.capacity()}")
            self.doCleanups()

    def test_dial_follows_the_motor(self):
        self.open_port()
        self.motor_on()
        for y, speed in ((70, 1280), (28, 2071)):
            self.panel.press(250, y)
            process.wait_until(lambda expected=speed: self.vehicle.last("replied").value("speed") == expected,
                               f"a speed of {speed}")
            process.wait_until(lambda expected=speed: abs(self.panel.dial_speed() - expected) <= lap.DIAL_TOLERANCE_RPM,
                               lambda: f"{speed} on the dial, not {self.panel.dial_speed()}")
            self.panel.release()

    def test_lost_replies_show_at_once_on_the_counter(self):
        self.open_port("--mute", "--every", "2")
        self.wait_for_byte_count(39)
        self.wait_for_byte_count(0)


class Pad(PanelTest):
    def setUp(self):
        self.open_port()

    def wait_for_set_points(self, throttle, direction, bucket):
        self.vehicle.wait_for_frame(frame(throttle, direction, bucket, "P"))

    def test_press_and_drag_steer_in_opposite_senses(self):
        self.panel.press(230, 60)
        self.wait_for_set_points(156, 80, 47)
        self.panel.drag(231, 60)
        self.wait_for_set_points(156, 125, 47)
        self.panel.release()

    def test_lower_half_drives_backwards(self):
        self.panel.press(250, 200)
        self.wait_for_set_points(124, 100, 172)
        self.panel.release()

    def test_corners_stay_within_the_sliders_ranges(self):
        self.panel.press(150, 265)
        self.wait_for_set_points(254, 35, 172)
        self.panel.drag(150, 264)
        self.panel.drag(150, 265)
        self.wait_for_set_points(254, 175, 172)
        self.panel.drag(405, 10)
        self.wait_for_set_points(255, 35, 47)
        self.panel.release()

    def test_middle_stops(self):
        self.panel.press(277, 100)
        self.wait_for_set_points(76, 127, 47)
        self.panel.drag(277, 138)
        self.wait_for_set_points(0, 79, 47)
        self.panel.release()

    def test_points_beside_the_pad_change_nothing(self):
        for x, y in ((149, 100), (406, 100), (250, 266), (250, 9)):
            self.panel.press(x, y)
            self.panel.release()
        self.vehicle.wait_for_more_frames(4)
        self.assertEqual(self.vehicle.distinct_frames(), [NEUTRAL])

    def test_right_button_applies_the_last_position_again(self):
        self.panel.press(230, 60)
        self.wait_for_set_points(156, 80, 47)
        self.panel.drag(240, 100)
        self.wait_for_set_points(76, 116, 47)
        self.panel.release()
        self.panel.press(300, 200, button=3)
        self.wait_for_set_points(76, 90, 47)
        self.panel.release(button=3)

    def test_moving_without_a_button_changes_nothing(self):
        self.panel.drag(230, 60)
        self.panel.drag(240, 100)
        self.vehicle.wait_for_more_frames(4)
        self.assertEqual(self.vehicle.distinct_frames(), [NEUTRAL])


class Sliders(PanelTest):
    def setUp(self):
        self.open_port()
        self.show_extra_pane()

    def pull(self, start, *ways):
        """Pulls a slider's handle along points, each with the frame that it asks for."""
        self.panel.press(*start)
        for point, expected in ways:
            self.panel.drag(*point)
            self.vehicle.wait_for_frame(expected)
        self.panel.release()

    def test_throttle_grows_upwards(self):
        self.pull((648, 205), ((648, 60), frame(255, 103, 110, "P")), ((648, 240), NEUTRAL))

    def test_direction_grows_to_the_left(self):
        self.pull((772, 210), ((665, 210), frame(0, 175, 110, "P")), ((880, 210), frame(0, 35, 110, "P")))

    def test_bucket_grows_downwards(self):
        self.pull((888, 150), ((888, 60), frame(0, 103, 47, "P")), ((888, 240), frame(0, 103, 172, "P")))

    def test_boxes_show_what_is_sent(self):
        self.panel.press(648, 205)
        self.panel.drag(648, 150)
        self.panel.release()
        self.assertGreater(self.panel.set_points()[0], 0)
        self.vehicle.wait_for_frame(bytes(self.panel.set_points()) + b"P")


class Commands(PanelTest):
    def test_motor_button_switches_the_motor(self):
        self.open_port()
        self.panel.click(on_panel.MOTOR_BUTTON)
        self.vehicle.wait_for_frame(frame(0, 103, 110, "Q"))
        self.panel.click(on_panel.MOTOR_BUTTON)
        self.vehicle.wait_for_frame(frame(0, 103, 110, "P"))

    def test_first_frame_is_the_neutral_one(self):
        self.open_port()
        self.assertEqual(self.vehicle.frames()[0], b"\0gnP")

    def test_every_speed_reaches_the_line(self):
        self.start()
        for index, speed in enumerate(("9600", "19200", "38400", "57600", "115200")):
            self.panel.choose(on_panel.SPEED_BOX, index)
            self.panel.click(on_panel.OPEN_BUTTON)
            process.wait_until(lambda count=index + 1: len(self.vehicle.events("settings")) == count,
                               "the line's settings")
            self.assertEqual(self.vehicle.last("settings").words, [speed, "baud", "8N1"])
            self.panel.click(on_panel.CLOSE_BUTTON)
            self.vehicle.wait_for_event("closed")

    def spacing_s(self):
        """The middle time between two frames, over ten of them."""
        self.vehicle.wait_for_more_frames(12)
        times = [event.time_s for event in self.vehicle.events("received")][-11:]
        return sorted(after - before for before, after in zip(times, times[1:]))[5]

    def test_rate_box_sets_the_pause_between_two_frames(self):
        self.start()
        self.panel.click(on_panel.OPEN_BUTTON)
        self.assertGreaterEqual(self.spacing_s(), 0.21 - 0.005)
        for rate_ms in (500, 10):
            self.panel.click(on_panel.CLOSE_BUTTON)
            self.vehicle.wait_for_event("closed")
            self.panel.type_number(on_panel.RATE_BOX, rate_ms)
            self.panel.click(on_panel.OPEN_BUTTON)
            self.vehicle.wait_for_event("opened")
            spacing_s = self.spacing_s()
            self.assertGreaterEqual(spacing_s, (rate_ms + 10) / 1000 - 0.005)
            self.assertLess(spacing_s, rate_ms / 1000 + 0.4)
        self.assertLess(spacing_s, 0.2)


class Faults(PanelTest):
    def test_muted_replies_leave_it_running(self):
        self.open_port("--mute")
        self.show_extra_pane()
        self.vehicle.wait_for_more_frames(3)
        self.assertEqual(self.panel.byte_count(), 0)
        self.wait_for_states(on_panel.SEND_LAMP, {"on", "off"})
        self.assertEqual(self.panel.lamp(on_panel.RECEIVE_LAMP), "off")
        self.assert_goes_on()

    def test_short_replies_leave_it_running(self):
        self.open_port("--cut", "7")
        self.wait_for_byte_count(7)
        self.assertAlmostEqual(self.panel.dial_speed(), 0, delta=lap.DIAL_TOLERANCE_RPM)
        self.assert_goes_on()

    def test_short_replies_leave_the_later_values_as_they_were(self):
        self.open_port("--cut", "7", "--every", "2", "--capacity", "63")
        self.wait_for_byte_count(39)
        self.wait_for_byte_count(7)
        self.assertAlmostEqual(self.panel.capacity(), 63, delta=lap.BAR_TOLERANCE)
        self.assert_goes_on()

    def test_garbage_leaves_it_running(self):
        self.open_port("--garbage", "10", "--seed", "3")
        self.wait_for_byte_count(49)
        self.assert_goes_on()

    def test_more_bytes_than_a_read_takes_leave_it_running(self):
        self.open_port("--garbage", "400", "--seed", "3")
        self.wait_for_byte_count(100)
        self.assert_goes_on()

    def test_late_replies_in_parts_leave_it_running(self):
        self.open_port("--delay", "50", "--split", "10", "--split-pause", "30")
        self.vehicle.wait_for_more_frames(10)
        self.assert_goes_on()

    def test_line_that_is_hung_up_shows_as_send_failure_and_leaves_it_running(self):
        self.open_port("--hang-up", "4")
        self.assertEqual(self.vehicle.wait(), 0)
        self.show_extra_pane()
        process.wait_until(lambda: "Send failure" in self.panel.read_text(on_panel.STATUS_TEXT), "Send failure")
        self.panel.click(on_panel.CLOSE_BUTTON)
        self.wait_for_lamp(on_panel.RED_LAMP, "on")
        self.panel.close()
        self.assert_ends(0)
        self.assertTrue(self.panel.output().startswith("write() of 4 bytes failed!\n"), self.panel.output())


class Lifecycle(PanelTest):
    def test_closing_the_port_stops_the_frames(self):
        self.open_port()
        self.panel.click(on_panel.CLOSE_BUTTON)
        self.vehicle.wait_for_event("closed")
        self.wait_for_lamp(on_panel.RED_LAMP, "on")
        self.assertEqual(self.panel.lamp(on_panel.GREEN_LAMP), "off")
        self.assertEqual(self.vehicle.events()[-1].what, "closed")

    def test_set_points_of_a_closed_port_are_sent_when_it_is_opened_again(self):
        self.open_port()
        self.panel.click(on_panel.CLOSE_BUTTON)
        self.vehicle.wait_for_event("closed")
        self.panel.press(230, 60)
        self.panel.release()
        self.assertEqual(self.panel.set_points(), pad_press(230, 60))
        self.panel.click(on_panel.OPEN_BUTTON)
        self.vehicle.wait_for_event("opened")
        self.vehicle.wait_for_frame(frame(*pad_press(230, 60), "P"))
        self.wait_for_lamp(on_panel.GREEN_LAMP, "on")

    def test_opens_and_closes_over_and_over(self):
        self.start()
        for count in range(1, 6):
            self.panel.click(on_panel.OPEN_BUTTON)
            self.vehicle.wait_for_event("opened")
            self.vehicle.wait_for_more_frames(1)
            self.panel.click(on_panel.CLOSE_BUTTON)
            self.vehicle.wait_for_event("closed")
            self.assertEqual(len(self.vehicle.events("opened")), count)
        self.panel.close()
        self.assert_ends(0)

    def test_status_view_tells_each_step(self):
        self.open_port()
        self.show_extra_pane()
        self.panel.wait_for_text(on_panel.STATUS_TEXT, "Portti auki\nStarted")
        self.panel.click(on_panel.CLOSE_BUTTON)
        self.panel.wait_for_text(on_panel.STATUS_TEXT, "Portti auki\nStarted\nPortti kiinni")

    def test_close_button_without_an_open_port_is_harmless(self):
        self.start()
        self.panel.click(on_panel.CLOSE_BUTTON)
        self.panel.click(on_panel.CLOSE_BUTTON)
        self.panel.click(on_panel.OPEN_BUTTON)
        self.vehicle.wait_for_frame(NEUTRAL)
        self.panel.click(on_panel.CLOSE_BUTTON)
        self.vehicle.wait_for_event("closed")
        self.panel.click(on_panel.CLOSE_BUTTON)
        self.panel.close()
        self.assert_ends(0)

    def test_panes_show_and_hide(self):
        self.start()
        for rectangle, size in ((on_panel.EXTRA_CHECK, (920, 508)), (on_panel.NAVIGATION_CHECK, (920, 761)),
                                (on_panel.EXTRA_CHECK, (620, 761)), (on_panel.NAVIGATION_CHECK, (620, 508))):
            self.panel.click(rectangle)
            self.panel.wait_for_size(*size)


class Ending(PanelTest):
    def drive_off(self):
        self.open_port()
        self.motor_on()
        self.panel.press(255, 70)
        self.vehicle.wait_for_frame(frame(*pad_press(255, 70), "Q"))

    def assert_left_at_rest(self):
        self.assert_ends(0)
        self.vehicle.wait_for_event("closed")
        self.assertEqual(self.vehicle.events("received", "closed")[-1].what, "closed")
        self.assertEqual(self.vehicle.frames()[-1], b"\0gnP")
        self.assertEqual(self.panel.errors(), "")

    def test_closing_the_window_while_driving_leaves_the_vehicle_at_rest(self):
        self.drive_off()
        self.panel.close()
        self.assert_left_at_rest()

    def test_termination_signals_close_the_panel_as_its_window_button_does(self):
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            self.drive_off()
            self.panel.signal(number)
            self.assert_left_at_rest()
            self.doCleanups()

    def test_further_signals_do_not_keep_the_vehicle_from_rest(self):
        for _ in range(3):
            self.drive_off()
            while self.panel.is_running():
                self.panel.signal(signal.SIGTERM)
            self.vehicle.wait_for_event("closed")
            self.assertEqual(self.vehicle.frames()[-1], b"\0gnP")
            self.doCleanups()

    def test_closing_the_window_after_the_port_sends_nothing_more(self):
        self.drive_off()
        self.panel.release()
        self.panel.click(on_panel.CLOSE_BUTTON)
        self.vehicle.wait_for_event("closed")
        self.panel.close()
        self.assert_ends(0)
        self.assertEqual(self.vehicle.frames()[-1], frame(*pad_press(255, 70), "Q"))
        self.assertEqual(len(self.vehicle.events("opened")), 1)

    def test_missing_line_ends_it_with_the_systems_reason(self):
        self.start(line="none")
        self.panel.click(on_panel.OPEN_BUTTON)
        self.assert_ends(1)
        self.assertEqual(self.panel.errors(), "Unable to open serial port: - \n: No such file or directory\n")

    def test_line_that_cannot_be_read_ends_it(self):
        # Nothing can be read at the beginning of a process's memory, least of all from the process itself.
        with tempfile.NamedTemporaryFile("w", suffix=".sh", delete=False) as script:
            self.addCleanup(os.unlink, script.name)
            script.write(f'#!/bin/sh\nexec "{WITH_LINE}" "/proc/$$/mem" "$PANEL"\n')
        os.chmod(script.name, 0o700)
        self.start(program=script.name)
        self.panel.click(on_panel.OPEN_BUTTON)
        self.assert_ends(0)
        self.assertEqual(self.panel.output(), "SerialPort Read failed!\n")


class Lap(unittest.TestCase):
    """The lap that script/run drives."""

    class FakeVehicle:
        def __init__(self, *frames):
            self._frames = frames

        def distinct_frames(self):
            return list(self._frames)

        def last(self, _kind):
            return type("Settings", (), {"words": ["9600", "baud", "8N1"]})

    def faults(self, asked, arrived):
        driven = lap.Lap(None, None)
        driven.expected = asked
        lap.check_frames(driven, self.FakeVehicle(*arrived))
        return driven.faults

    def drive(self, panel, picture, **environment):
        return subprocess.run([sys.executable, "-B", os.path.join(ROOT, "script", "lib", "lap.py"), "--panel", panel,
                               "--simulator", SIMULATOR, "--picture", picture], env=dict(os.environ, **environment),
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)

    def test_finds_a_missing_a_wrong_and_an_additional_frame(self):
        one, two, three = frame(1, 103, 110, "P"), frame(2, 103, 110, "P"), frame(3, 103, 110, "P")
        self.assertEqual(self.faults([one, two], [one, two]), [])
        self.assertEqual(len(self.faults([one, two], [one])), 1)
        self.assertEqual(len(self.faults([one, two], [one, three])), 1)
        self.assertEqual(len(self.faults([one, two], [one, three, two])), 1)
        self.assertEqual(len(self.faults([one, two], [one, two, three])), 1)

    def test_is_driven_to_its_end_and_leaves_a_picture(self):
        with tempfile.TemporaryDirectory() as directory:
            picture = os.path.join(directory, "panel.png")
            done = self.drive(PANEL, picture)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            self.assertIn("The frames that arrived are those that the mouse asked for.", done.stdout)
            with open(picture, "rb") as file:
                self.assertEqual(struct.unpack(">4xII", file.read(24)[12:]), (920, 761))

    def test_is_driven_without_a_namespace(self):
        with tempfile.TemporaryDirectory() as directory:
            done = self.drive(PANEL, os.path.join(directory, "panel.png"), LINE_WAY="preload")
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            self.assertEqual(done.stdout.split("\n")[0], "/dev/ttyS0 is another device by a preloaded library")

    def test_fails_when_the_panel_does_not_come_up(self):
        with tempfile.TemporaryDirectory() as directory:
            done = self.drive("/bin/false", os.path.join(directory, "panel.png"))
            self.assertEqual(done.returncode, 1)
            self.assertNotIn("Traceback", done.stderr)


class Script(unittest.TestCase):
    """The scripts around the panel."""

    def run_script(self, *arguments):
        return subprocess.run(arguments, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              check=False)

    def test_run_tells_its_options(self):
        done = self.run_script("script/run", "--help")
        self.assertEqual(done.returncode, 0)
        for option in ("--device", "--lap", "--picture FILE"):
            self.assertIn(option, done.stdout)

    def test_run_refuses_what_it_does_not_know(self):
        done = self.run_script("script/run", "--fast")
        self.assertEqual(done.returncode, 2)
        self.assertIn("unknown option '--fast'", done.stderr)
        self.assertEqual(self.run_script("script/run", "--picture").returncode, 2)
        self.assertEqual(self.run_script("script/run", "--device", "--lap").returncode, 2)


class WithLine(unittest.TestCase):
    """The script that gives a device the line's name, in each of its ways."""

    maxDiff = None

    def run_command(self, *command, **environment):
        return subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False,
                              env=dict({name: value for name, value in os.environ.items() if name != "LINE_WAY"},
                                       **environment))

    def ways(self):
        """The script's beginning of a command line for each way that this machine has."""
        for way in ("namespace", "preload"):
            start = [WITH_LINE, "--way", way]
            done = self.run_command(*start, "none", "true")
            if way == "namespace" and done.returncode == 125:
                self.assertEqual(done.stderr, "with-line: no private mount namespace can be made here: "
                                              "it needs root or user namespaces\n")
                continue
            with self.subTest(way=way):
                yield start

    def test_puts_a_device_in_the_place_of_the_line(self):
        for start in self.ways():
            done = self.run_command(*start, "/dev/zero", "stat", "-c", "%t %T", "/dev/ttyS0")
            self.assertEqual((done.stdout, done.stderr), ("1 5\n", ""))

    def test_takes_a_device_from_where_it_is_called(self):
        for start in self.ways():
            done = self.run_command("env", "-C", "/dev", os.path.abspath(start[0]), *start[1:], "zero", "stat", "-c",
                                    "%t %T", "/dev/ttyS0")
            self.assertEqual((done.stdout, done.stderr), ("1 5\n", ""))

    def test_can_do_without_any_line(self):
        for start in self.ways():
            done = self.run_command(*start, "none", "sh", "-c",
                                    "[ ! -e /dev/ttyS0 ] && echo x >/dev/null && echo gone")
            self.assertEqual((done.stdout, done.stderr), ("gone\n", ""))

    def test_makes_the_line_where_there_is_none(self):
        for outer in self.ways():
            for inner in self.ways():
                done = self.run_command(*outer, "none", *inner, "/dev/zero", "stat", "-c", "%t %T", "/dev/ttyS0")
                self.assertEqual((done.stdout, done.stderr), ("1 5\n", ""), (outer, inner))

    def test_takes_the_line_away_again(self):
        for start in self.ways():
            done = self.run_command(*start, "/dev/zero", *start, "none", "test", "-e", "/dev/ttyS0")
            self.assertEqual((done.returncode, done.stderr), (1, ""))

    def test_changes_nothing_outside(self):
        def outside():
            with open("/proc/self/mountinfo") as mounts:
                return mounts.read(), os.path.exists("/dev/ttyS0"), sorted(os.listdir("/dev"))

        for start in self.ways():
            before = outside()
            self.assertEqual(self.run_command(*start, "none", *start, "/dev/zero", "true").returncode, 0)
            self.assertEqual(outside(), before)

    def test_passes_the_status_on(self):
        for start in self.ways():
            self.assertEqual(self.run_command(*start, "/dev/zero", "sh", "-c", "exit 7").returncode, 7)

    def test_refuses_what_is_no_device(self):
        for start in self.ways():
            done = self.run_command(*start, "/dev/nothing", "true")
            self.assertEqual((done.returncode, done.stderr), (125, "with-line: no device '/dev/nothing'\n"))

    def test_takes_the_library_where_no_namespace_can_be_made(self):
        with tempfile.TemporaryDirectory() as directory:
            os.symlink("/bin/false", os.path.join(directory, "unshare"))
            path = directory + ":" + os.environ["PATH"]
            done = self.run_command(WITH_LINE, "/dev/zero", "sh", "-c",
                                    'echo "$LINE_PRELOAD_DEVICE" && stat -c "%t %T" /dev/ttyS0', PATH=path)
            self.assertEqual((done.stdout, done.stderr), ("/dev/zero\n1 5\n", ""))
            done = self.run_command(WITH_LINE, "--which", PATH=path)
            self.assertEqual(done.stdout, "/dev/ttyS0 is another device by a preloaded library: "
                                          "no mount namespace can be made here\n")
            done = self.run_command(WITH_LINE, "--way", "namespace", "none", "true", PATH=path)
            self.assertEqual((done.returncode, done.stderr),
                             (125, "with-line: no private mount namespace can be made here: "
                                   "it needs root or user namespaces\n"))

    def test_takes_the_way_that_the_environment_tells(self):
        for start in self.ways():
            done = self.run_command(WITH_LINE, "/dev/zero", "sh", "-c", 'echo "${LINE_PRELOAD_DEVICE:-}"',
                                    LINE_WAY=start[-1])
            self.assertEqual(done.stdout, "/dev/zero\n" if start[-1] == "preload" else "\n")
            done = self.run_command(WITH_LINE, "--which", LINE_WAY=start[-1])
            self.assertIn("preloaded library" if start[-1] == "preload" else "mount namespace", done.stdout)
        done = self.run_command(WITH_LINE, "none", "true", LINE_WAY="magic")
        self.assertEqual((done.returncode, done.stderr),
                         (125, "with-line: no way 'magic': it is namespace or preload\n"))

    def test_finds_the_library_behind_a_path_with_a_blank(self):
        with tempfile.TemporaryDirectory(prefix="with a blank ") as directory:
            library = os.path.join(directory, "line_preload.so")
            os.symlink(os.path.abspath(os.environ["LINE_PRELOAD_LIBRARY"]), library)
            done = self.run_command(WITH_LINE, "--way", "preload", "/dev/zero", "sh", "-c",
                                    'stat -c "%t %T" /dev/ttyS0', LINE_PRELOAD_LIBRARY=library)
            self.assertEqual((done.stdout, done.stderr), ("1 5\n", ""))

    def test_keeps_what_is_preloaded_already_ahead(self):
        library = os.path.abspath(os.environ["LINE_PRELOAD_LIBRARY"])
        with tempfile.TemporaryDirectory(prefix="preload-") as directory:
            first = os.path.join(directory, "first.so")
            os.symlink(library, first)
            done = self.run_command(WITH_LINE, "--way", "preload", "none", "sh", "-c", 'echo "$LD_PRELOAD"',
                                    LD_PRELOAD=first)
            self.assertEqual(done.stdout.strip().split(":")[0], first)
            self.assertEqual(len(done.stdout.strip().split(":")), 2)


class Cases(unittest.TestCase):
    def test_all_classes_are_run(self):
        classes = [name for name, value in inspect.getmembers(sys.modules[__name__], inspect.isclass)
                   if issubclass(value, unittest.TestCase) and name not in ("PanelTest", "Cases")]
        self.assertEqual(sorted(os.environ["CASES"].split(",")), sorted(classes))


if __name__ == "__main__":
    unittest.main(verbosity=2)
