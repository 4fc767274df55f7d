"""A long run of the panel in its real window, on a simulated vehicle with faults at random."""

import os
import random
import subprocess
import time

from drive import panel as on_panel
from drive import process
from drive.panel import Panel, pad_drag, pad_press, way_of_the_line
from drive.screen import Screen
from drive.vehicle import NEUTRAL, Vehicle, frame

from .figures import Footprint, Report, Tail, growth
from .kills import Kills
from .ledger import Ledger, stray_frames

RATE_MS = 10
FAULT_PERCENT = 25

# Resident memory may grow by this much, and by so much more for each line of the status view, which is the one thing in
# the panel that grows by design: it keeps its last 1,000 messages, at about 0.7 KiB. The first covers pages of libraries
# and of the heap that are touched late, some 100 KiB; in a run of any length it is used once. A leak of a hundred bytes
# with each frame is beyond both after two minutes.
MEMORY_ALLOWANCE_KIB = 384
STATUS_LINE_KIB = 1
STATUS_LINES_PER_OPENING = 3

SECONDS_FOR_EACH_KILL = 6

BAR_TOLERANCE = 3
DRIVE_MODES = ((20, 170, 121, 22), (20, 190, 109, 22))

# A slider: rectangle, range, whether it grows along the screen's coordinate, its place among the set-points.
SLIDERS = ((on_panel.THROTTLE_SLIDER, on_panel.THROTTLE_RANGE, False, 0),
           (on_panel.DIRECTION_SLIDER, on_panel.DIRECTION_RANGE, False, 1),
           (on_panel.BUCKET_SLIDER, on_panel.BUCKET_RANGE, True, 2))
SLIDER_END = 26  # from a slider's end to the middle of its handle there

PAD_X, PAD_Y = (150, 375), (10, 265)  # further right, a box with the coordinate X lies over the pad


class PanelRun:
    """A run under way: an operator who never rests, and the account of the line."""

    def __init__(self, options, screen, vehicle, panel, witness):
        self._options = options
        self._screen = screen
        self._vehicle = vehicle
        self._panel = panel
        self._random = random.Random(options.seed)
        self._vehicle_log = Tail(vehicle.log_path)
        self._witness_log = Tail(witness)
        self.ledger = Ledger()
        self.problems = []
        self.changes = 0  # of the frame that is wanted, all of which have arrived
        self.slowest_change_s = 0.0
        self.looks = 0
        self.start = self.end = None
        self.status_lines = 0
        self._footprint = None
        self._open = False
        self._extra_shown = self._navigation_shown = False
        self._motor = "P"
        self._set_points = (0, 103, 110)
        self._position = None  # of the last left press or drag
        self._wishes = [NEUTRAL]  # frames that may be on their way; the last is the one that is wanted
        self._arrived = NEUTRAL  # the last of them that has been waited for

    def close(self):
        self._vehicle_log.close()
        self._witness_log.close()

    # Looking and waiting.

    def _poll(self):
        for line in self._vehicle_log.lines():
            self.ledger.vehicle(line)
        for line in self._witness_log.lines():
            self.ledger.witness(line)
        return True

    def _wait(self, condition, what):
        def holds():
            self._poll()
            if self.ledger.problems:
                raise RuntimeError(self.ledger.problems[0])
            if not self._panel.is_running():
                raise RuntimeError(f"the panel ended with status {self._panel.child.returncode}: " +
                                   self._panel.errors())
            return condition()

        return process.wait_until(holds, what)

    def _wish(self):
        return frame(*self._set_points, self._motor)

    def _check_arrived(self, sweep=False):
        strays = stray_frames(self.ledger.take_new_frames(), self._wishes, sweep)
        if strays:
            raise RuntimeError(f"the vehicle received {strays[0].hex(' ')}, which nobody asked for; asked for were " +
                               ", ".join(wish.hex(" ") for wish in self._wishes))

    def _asked(self, sweep=False):
        """A deed may have changed what is wanted: with the line open, waits until that has reached the vehicle."""
        wish = self._wish()
        self._wishes.append(wish)
        if not self._open:
            return
        begin = time.monotonic()

        def what():
            last = self.ledger.last_frame
            return f"the frame {wish.hex(' ')} at the vehicle; the last one was {last.hex(' ') if last else 'none'}"

        self._wait(lambda: self.ledger.last_frame == wish and self._open, what)
        self.slowest_change_s = max(self.slowest_change_s, time.monotonic() - begin)
        self._check_arrived(sweep)
        self._wishes = [wish]
        self.changes += wish != self._arrived
        self._arrived = wish

    # What the operator does.

    def _point_on_pad(self):
        return self._random.randint(*PAD_X), self._random.randint(*PAD_Y)

    def press_and_drag(self):
        self._position = self._point_on_pad()
        self._panel.press(*self._position)
        self._set_points = pad_press(*self._position)
        self._asked()
        for _ in range(self._random.randint(0, 3)):
            point = self._point_on_pad()
            if point == self._position:
                continue  # the mouse does not move
            self._position = point
            self._panel.drag(*point)
            self._set_points = pad_drag(*point)
            self._asked()
        self._panel.release()

    def press_with_the_right_button(self):
        if self._position is None:
            return
        self._panel.press(*self._point_on_pad(), button=3)
        self._set_points = pad_press(*self._position)
        self._asked()
        self._panel.release(button=3)

    def pull_a_slider(self):
        self._show(extra=True)
        rectangle, limits, grows, number = self._random.choice(SLIDERS)
        self._panel.press(*_handle(rectangle, limits, grows, self._set_points[number]))
        self._panel.drag(*_handle(rectangle, limits, grows, self._random.randint(*limits)))
        self._panel.release()
        shown = self._panel.set_points()
        others = [i for i in range(3) if i != number]
        if any(shown[i] != self._set_points[i] for i in others):
            raise RuntimeError(f"a slider that was pulled changed others: {self._set_points} became {shown}")
        self._set_points = shown
        self._asked(sweep=True)

    def switch_the_motor(self):
        self._panel.click(on_panel.MOTOR_BUTTON)
        self._motor = "Q" if self._motor == "P" else "P"
        self._asked()

    def change_the_drive_mode(self):
        self._panel.click(self._random.choice(DRIVE_MODES))
        self._asked()

    def change_the_panes(self):
        self._show(extra=self._random.random() < 0.5, navigation=self._random.random() < 0.5)
        self._asked()

    def look_at_the_set_points(self):
        self._look("the set-points", self._panel.set_points, lambda shown: shown == self._set_points)
        self._asked()

    def close_and_reopen(self):
        self.close_the_port()
        for deed in self._random.sample((self.press_and_drag, self.press_with_the_right_button, self.switch_the_motor,
                                         self.pull_a_slider), self._random.randint(0, 2)):
            deed()
        self.open_the_port()

    def _show(self, extra=None, navigation=None):
        if extra is not None and extra != self._extra_shown:
            self._panel.click(on_panel.EXTRA_CHECK)
            self._extra_shown = extra
        if navigation is not None and navigation != self._navigation_shown:
            self._panel.click(on_panel.NAVIGATION_CHECK)
            self._navigation_shown = navigation
        self._panel.wait_for_size(920 if self._extra_shown else 620, 761 if self._navigation_shown else 508)

    # The port.

    def open_the_port(self):
        self._panel.choose(on_panel.SPEED_BOX, self._random.randint(0, 4))
        openings = self.ledger.openings
        self._panel.click(on_panel.OPEN_BUTTON)
        self._wait(lambda: self.ledger.openings > openings, "the line to be opened")
        received = self.ledger.received
        self._wait(lambda: self.ledger.received > received, "the first frame of an opening")
        self._open = True
        self._asked()

    def close_the_port(self):
        """Closes the port once the panel has taken what it was given, and looks at what stands on it then."""
        self._show(extra=True, navigation=False)
        opening = self.ledger.opening()
        self._poll()
        position = opening.position()
        self._wait(lambda: opening.has_taken(position), "the panel to take the replies that it was given")
        self._panel.click(on_panel.CLOSE_BUTTON)
        self._wait(lambda: opening.given_closed and opening.taken_closed and self.ledger.frames_agree(),
                   lambda: f"the line to be closed, with all of the {self.ledger.sent} frames received that were sent; "
                           f"{self.ledger.received} were")
        self._open = False
        self._check_arrived()
        self._look_at_a_closed_port()
        self._note_footprint()

    def _look_at_a_closed_port(self):
        """What the closed panel shows is what the last read brought; its send lamp has blinked with every frame."""
        lamp = "on" if self.ledger.sent % 2 == 1 else "off"
        # A cycle that found the line closed has read nothing.
        counts = (self.ledger.last_count, 0)
        panel = self._panel
        self._look("the send lamp", lambda: panel.lamp(on_panel.SEND_LAMP), lambda shown: shown == lamp)
        self._look("the byte counter", panel.byte_count, lambda shown: shown in counts)
        self._look("the battery bar", panel.capacity,
                   lambda shown: abs(shown - self.ledger.capacity) <= BAR_TOLERANCE)
        self._look("the red lamp", lambda: panel.lamp(on_panel.RED_LAMP), lambda shown: shown == "on")
        self._look("the green lamp", lambda: panel.lamp(on_panel.GREEN_LAMP), lambda shown: shown == "off")

    def _look(self, what, look, is_right):
        self._wait(lambda: is_right(look()), lambda: f"{what} to show what came over the line; it shows {look()}")
        self.looks += 1

    # The run.

    def _note_footprint(self):
        """Notes what the panel holds. Called with the port closed and the window in one and the same size."""
        self._footprint = Footprint.of(self._panel.child.pid)
        with open(os.path.join(self._options.artefacts, "footprints"), "a") as file:
            file.write(f"{time.monotonic():.1f} s, {self.ledger.openings} openings, {self._footprint.memory_kib} KiB, "
                       f"{self._footprint.descriptors} descriptors\n")

    def _take_footprint(self):
        self.close_the_port()
        self.open_the_port()
        return self._footprint

    def drive(self):
        """Drives until the time, or the number of deeds, is over."""
        deeds = {self.press_and_drag: 30, self.pull_a_slider: 12, self.press_with_the_right_button: 8,
                 self.switch_the_motor: 10, self.change_the_drive_mode: 6, self.change_the_panes: 6,
                 self.look_at_the_set_points: 4, self.close_and_reopen: 3}
        self._panel.type_number(on_panel.RATE_BOX, RATE_MS)
        self.open_the_port()
        for deed in list(deeds) * 2:
            deed()
        self.start = self._take_footprint()
        openings = self.ledger.openings
        end = time.monotonic() + self._options.seconds
        count = 0
        while self._options.deeds > count if self._options.deeds else time.monotonic() < end:
            self._random.choices(list(deeds), list(deeds.values()))[0]()
            count += 1
        self.end = self._take_footprint()
        self.status_lines = (self.ledger.openings - openings) * STATUS_LINES_PER_OPENING
        self.picture()
        self._end_while_driving()

    def _end_while_driving(self):
        """Closes the window with the port open: the last frame brings the vehicle to rest."""
        self._panel.close()
        status = self._panel.wait()
        opening = self.ledger.opening()
        process.wait_until(lambda: self._poll() and opening.given_closed and self.ledger.frames_agree(),
                           "the last frame at the vehicle")
        if status != 0:
            self.problems.append(f"the panel ended with status {status}")
        if self.ledger.last_frame != NEUTRAL:
            self.problems.append(f"the panel left the vehicle with the frame {self.ledger.last_frame.hex(' ')}")
        for name, text in (("output", self._panel.output()), ("error output", self._panel.errors())):
            if text:
                self.problems.append(f"the panel wrote to its {name}: {text.strip()}")

    def picture(self):
        """Leaves a picture of the whole screen."""
        self._screen.image(0, 0, self._screen.WIDTH, self._screen.HEIGHT).save(
            os.path.join(self._options.artefacts, "screen.png"))


def _handle(rectangle, limits, grows, value):
    """The middle of a slider's handle when the slider stands at a value."""
    x, y, width, height = rectangle
    share = (value - limits[0]) / (limits[1] - limits[0])
    way = max(width, height) - 2 * SLIDER_END
    along = SLIDER_END + round(way * (share if grows else 1 - share))
    return (x + along, y + height // 2) if width > height else (x + width // 2, y + along)


def _report(run, kills, options, seconds):
    ledger, report = run.ledger, Report(f"soak panel: seed {options.seed}, {seconds / 60:.1f} minutes")
    report.problems = list(dict.fromkeys(ledger.problems + run.problems + kills.problems))
    report.add("frames asked for", ledger.asked)
    report.add("frames sent", ledger.sent)
    report.add("frames received by the vehicle", ledger.received)
    report.add("worst gap between frames", f"{1000 * ledger.worst_gap_s:.1f}", "ms")
    report.add("set-point changes, all of which arrived", run.changes)
    report.add("slowest of them", f"{1000 * run.slowest_change_s:.0f}", "ms")
    report.add("openings of the port", ledger.openings)
    report.add("replies", ledger.replies)
    for kind in ("muted", "short", "split", "garbage", "delayed"):
        report.add(f"  of these {kind}", ledger.faults[kind])
    report.add("reply bytes given to the line", ledger.given)
    report.add("reply bytes taken by the panel", ledger.taken)
    report.add("reply bytes still on their way at a closing", ledger.given - ledger.taken)
    report.add("looks at the panel's widgets", run.looks)
    report.add("panels killed at random", kills.count)
    report.add("  of these drove", kills.drove)
    report.add("  of these left the vehicle at rest", kills.at_rest)
    if run.start and run.end:
        report.add_footprints(run.start, run.end)
        allowance_kib = MEMORY_ALLOWANCE_KIB if options.memory_allowance is None else options.memory_allowance
        report.problems += growth(run.start, run.end, allowance_kib + run.status_lines * STATUS_LINE_KIB)
    if ledger.asked != ledger.sent or ledger.sent != ledger.received:
        report.problems.append("frames asked for, sent and received are not the same number")
    if ledger.worst_gap_s > options.longest_gap:
        report.problems.append(f"no frame came for {ledger.worst_gap_s:.3f} s")
    return report


def _number_of_kills(options):
    """As asked, or such that they take about a fifth of the run."""
    if options.kills is not None:
        return options.kills
    return max(2, round(options.seconds / SECONDS_FOR_EACH_KILL)) if not options.deeds else 2


def run(options):
    """Runs with the chosen programs; returns the report."""
    witness = os.path.join(options.artefacts, "line.log")
    log = os.path.join(options.artefacts, "vehicle.log")
    begin = time.monotonic()
    vehicle_options = ["--seed", str(options.seed), "--random", str(FAULT_PERCENT)] + options.vehicle_option
    environment = {"LINE_WITNESS": witness}
    print(way_of_the_line(), flush=True)
    with Screen() as screen, Vehicle(options.vehicle, *vehicle_options, log=log) as vehicle:
        with Panel(options.panel, screen, vehicle.line, environment, options.witness) as panel:
            panel_run = PanelRun(options, screen, vehicle, panel, witness)
            try:
                panel_run.drive()
            except (TimeoutError, RuntimeError, subprocess.TimeoutExpired) as failure:
                panel_run.problems.append(str(failure))
                panel_run.picture()
            finally:
                panel_run.close()
        kills = Kills(options.panel, screen, options.seed)
        if panel_run.end:
            kills.run(_number_of_kills(options))
    return _report(panel_run, kills, options, time.monotonic() - begin)
