"""Drives a short lap on a screen in memory, and tells whether the vehicle got what the mouse asked for."""

import argparse
import sys

from drive import panel as on_panel
from drive import process
from drive import recorder
from drive.panel import Panel, pad_drag, pad_press, way_of_the_line
from drive.screen import Screen
from drive.vehicle import NEUTRAL, Vehicle, describe, frame

# Where the mouse goes on the pad: forwards and to both sides, then backwards, then back to the middle.
PRESS = (230, 100)
FORWARDS = ((238, 92), (248, 82), (255, 70))
BACKWARDS = ((280, 170), (300, 190))
MIDDLE = (257, 138)

DIAL_TOLERANCE_RPM = 40
BAR_TOLERANCE = 3


class Lap:
    """A lap under way: what was asked for, what arrived, what was shown."""

    def __init__(self, panel, vehicle):
        self._panel = panel
        self._vehicle = vehicle
        self.expected = []
        self.rows = []
        self.faults = []

    def ask(self, deed, expected, do):
        """Does something with the mouse that asks for the frame `expected`, and waits until that frame arrives."""
        do()
        self.expected.append(expected)
        self._vehicle.wait_for_frame(expected)
        self.rows.append([deed, describe(expected), ""])

    def look(self, what, shown, right):
        """Notes what the panel shows beside the last deed, and a fault if that is not right."""
        self.rows[-1][2] += (", " if self.rows[-1][2] else "") + f"{what} {shown}"
        if not right:
            self.faults.append(f"{self.rows[-1][0]}: the panel shows {what} {shown}")

    def look_at_port_lamps(self, opened):
        red = self._panel.lamp(on_panel.RED_LAMP)
        green = self._panel.lamp(on_panel.GREEN_LAMP)
        self.look("green lamp", green, green == ("on" if opened else "off"))
        self.look("red lamp", red, red == ("off" if opened else "on"))

    def look_at_set_points(self):
        shown = self._panel.set_points()
        self.look("boxes", "/".join(map(str, shown)), bytes(shown) == self.expected[-1][:3])

    def look_at_vehicle(self):
        """Waits until the motor keeps its speed, then holds the dial, the bar and the counter against the log."""
        self._vehicle.wait_for_steady_speed()
        self._vehicle.wait_for_more_frames(2)
        reply = self._vehicle.last("replied")
        speed, capacity = self._panel.dial_speed(), self._panel.capacity()
        self.look("dial", speed, abs(speed - reply.value("speed")) <= DIAL_TOLERANCE_RPM)
        self.look("battery bar", capacity, abs(capacity - reply.value("capacity")) <= BAR_TOLERANCE)
        count = self._panel.byte_count()
        self.look("byte counter", count, count == int(reply.words[0]))

    def look_at_link_lamps(self):
        """Both lamps of the link blink: within some cycles each is seen on and off."""
        seen = {"send": set(), "receive": set()}

        def blinked():
            seen["send"].add(self._panel.lamp(on_panel.SEND_LAMP))
            seen["receive"].add(self._panel.lamp(on_panel.RECEIVE_LAMP))
            return all({"on", "off"} <= states for states in seen.values())

        process.wait_until(blinked, "both lamps of the link to blink")
        self.look("send and receive lamps", "blinking", True)


def drive(panel, vehicle, picture):
    """Drives the lap; returns it when the panel has ended."""
    lap = Lap(panel, vehicle)
    start(lap, panel, vehicle)
    drive_forwards(lap, panel)
    panel.image().save(picture)
    panel.release()
    lap.look_at_set_points()
    drive_backwards(lap, panel)
    panel.release()
    lap.look_at_set_points()
    come_to_rest(lap, panel, vehicle)
    end(lap, panel)
    return lap


def start(lap, panel, vehicle):
    """Opens the port, switches the motor on and shows all of the panel."""
    lap.rows.append(["start", "nothing: the line is closed", ""])
    lap.look_at_port_lamps(opened=False)
    if vehicle.events():
        lap.faults.append("the panel touched the line before the port was opened")
    lap.ask("open the port", NEUTRAL, lambda: panel.click(on_panel.OPEN_BUTTON))
    lap.look_at_port_lamps(opened=True)
    lap.ask("motor on", frame(0, 103, 110, "Q"), lambda: panel.click(on_panel.MOTOR_BUTTON))
    panel.click(on_panel.EXTRA_CHECK)
    panel.wait_for_size(920, 508)
    panel.click(on_panel.NAVIGATION_CHECK)
    panel.wait_for_size(920, 761)
    lap.rows.append(["show both extra panes", "the same", f"window {920} x {761}"])
    lap.look_at_link_lamps()


def drive_forwards(lap, panel):
    """Presses on the pad and drags forwards; the button stays pressed."""
    lap.ask("press on the pad", frame(*pad_press(*PRESS), "Q"), lambda: panel.press(*PRESS))
    for x, y in FORWARDS:
        lap.ask("drag forwards", frame(*pad_drag(x, y), "Q"), lambda point=(x, y): panel.drag(*point))
    lap.look_at_vehicle()


def drive_backwards(lap, panel):
    """Drags backwards and to the middle; the button stays pressed."""
    # A second press at the place of the last drag steers the other way round.
    x, y = FORWARDS[-1]
    lap.ask("press again", frame(*pad_press(x, y), "Q"), lambda: panel.press(x, y))
    for x, y in BACKWARDS:
        lap.ask("drag backwards", frame(*pad_drag(x, y), "Q"), lambda point=(x, y): panel.drag(*point))
    lap.ask("drag to the middle", frame(*pad_drag(*MIDDLE), "Q"), lambda: panel.drag(*MIDDLE))
    lap.look_at_vehicle()


def come_to_rest(lap, panel, vehicle):
    """Switches the motor off and closes the port."""
    lap.ask("motor off", lap.expected[-1][:3] + b"P", lambda: panel.click(on_panel.MOTOR_BUTTON))
    panel.click(on_panel.CLOSE_BUTTON)
    vehicle.wait_for_event("closed")
    lap.rows.append(["close the port", "no more", ""])
    process.wait_until(lambda: panel.lamp(on_panel.RED_LAMP) == "on", "the red lamp")
    lap.look_at_port_lamps(opened=False)


def end(lap, panel):
    """Closes the window, which ends the panel."""
    panel.close()
    status = panel.wait()
    lap.rows.append(["close the window", "no more", f"ended with status {status}"])
    if status != 0:
        lap.faults.append(f"the panel ended with status {status}: {panel.errors()}")


def check_frames(lap, vehicle):
    """The frames that arrived are those that were asked for, in that order, each repeated until the next."""
    arrived = vehicle.distinct_frames()
    if arrived != lap.expected:
        lap.faults.append("the vehicle received " + "; ".join(command.hex(" ") for command in arrived) +
                          " where the mouse asked for " + "; ".join(command.hex(" ") for command in lap.expected))
    settings = vehicle.last("settings")
    if settings is None or settings.words != ["9600", "baud", "8N1"]:
        lap.faults.append("the line was not set to 9600 baud 8N1")


def check_recording(lap, vehicle, recording):
    """What was recorded is what the vehicle received and answered, to the last digit."""
    faults = recorder.faults(recording, vehicle)
    lap.faults += faults
    if not faults:
        print(f"The recording tells the same to the last digit: {recording.reported('Frames sent')} frames, "
              f"{recording.reported('Replies')} replies, top speed {recording.reported('Top speed')} rpm. "
              f"{recording.path}")


def print_table(lap, vehicle):
    heads = ["the mouse", "the vehicle received", "the panel showed"]
    rows = [heads] + lap.rows
    widths = [max(len(row[column]) for row in rows) for column in range(2)]
    for row in rows:
        print(f"{row[0]:{widths[0]}}  {row[1]:{widths[1]}}  {row[2]}".rstrip())
    replies = [reply for reply in vehicle.events("replied") if reply.words[0] == "39"]
    print(f"{len(vehicle.frames())} frames, {len(replies)} replies of 39 bytes, "
          f"top speed {max(reply.value('speed') for reply in replies)} rpm")


def run(options):
    """Drives the lap with the chosen programs and judges it; returns the status to end with."""
    print(way_of_the_line(), flush=True)
    runner = recorder.runner(options.recorder, options.record) if options.record else ()
    with Screen() as screen, Vehicle(options.simulator, "--capacity", "63") as vehicle:
        with Panel(options.panel, screen, vehicle.line, runner=runner) as panel:
            lap = drive(panel, vehicle, options.picture)
        check_frames(lap, vehicle)
        print_table(lap, vehicle)
        if options.record:
            check_recording(lap, vehicle, recorder.Recording(options.recorder, options.record))
    for fault in lap.faults:
        print("lap: " + fault, file=sys.stderr)
    if lap.faults:
        return 1
    print(f"The frames that arrived are those that the mouse asked for. Picture: {options.picture}")
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--panel", required=True, help="the panel's program")
    parser.add_argument("--simulator", required=True, help="vehicle-simulator")
    parser.add_argument("--picture", required=True, help="where to leave a picture of the driving panel (PNG)")
    parser.add_argument("--record", metavar="FILE", help="record the line into this new file and compare it")
    parser.add_argument("--recorder", help="vehicle-recorder, for --record")
    options = parser.parse_args()
    if options.record and not options.recorder:
        parser.error("--record needs --recorder")
    try:
        return run(options)
    except (TimeoutError, RuntimeError, OSError) as failure:
        print(f"lap: {failure}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    process.run_to_the_end(main)
