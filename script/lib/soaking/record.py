"""A long run of the panel with its black box in the line: the report against what the simulated vehicle says."""

import os
import random
import subprocess
import time

from drive import panel as on_panel
from drive import process, recorder
from drive.panel import Panel, pad_drag, pad_press
from drive.screen import Screen
from drive.vehicle import NEUTRAL, Vehicle, frame

from .figures import Report
from .replies import Expected

RATE_MS = 200
FAULT_PERCENT = 20
LATE_MS = 250  # behind the next frame, by some 40 ms
LATE_EVERY = 11

# The figures of the report's text page, in English, and what they are here.
TOLD = {"frames": "Frames sent", "replies": "Replies", "lost": "Unanswered", "late": "Late", "short": "Short",
        "garbled": "Garbled", "top speed": "Top speed"}


class Operator:
    """Drives on and on."""

    def __init__(self, options, vehicle, panel):
        self._options = options
        self._vehicle = vehicle
        self._panel = panel
        self._random = random.Random(options.seed)
        self._motor = "P"
        self.openings = 0
        self.deeds = 0

    def open(self):
        frames = len(self._vehicle.frames())
        self._panel.click(on_panel.OPEN_BUTTON)
        process.wait_until(lambda: len(self._vehicle.frames()) > frames, "the first frame of an opening")
        self.openings += 1

    def close(self):
        self._panel.click(on_panel.CLOSE_BUTTON)
        self._vehicle.wait_for_event("closed")

    def _drag(self):
        point = (self._random.randint(150, 375), self._random.randint(10, 265))
        self._panel.press(*point)
        self._vehicle.wait_for_frame(frame(*pad_press(*point), self._motor))
        for _ in range(self._random.randint(0, 3)):
            to = (self._random.randint(150, 375), self._random.randint(10, 265))
            if to != point:
                point = to
                self._panel.drag(*point)
                self._vehicle.wait_for_frame(frame(*pad_drag(*point), self._motor))
        self._panel.release()

    def _switch_the_motor(self):
        self._panel.click(on_panel.MOTOR_BUTTON)
        self._motor = "Q" if self._motor == "P" else "P"
        process.wait_until(lambda: self._vehicle.frames()[-1][3:] == self._motor.encode(), "the motor switch")

    def _reopen(self):
        self.close()
        self.open()

    def _wait(self):
        self._vehicle.wait_for_more_frames(self._random.randint(5, 30))

    def drive(self):
        """Drives until the time, or the number of deeds, is over; then closes the window with the port open."""
        self._panel.type_number(on_panel.RATE_BOX, RATE_MS)
        self.open()
        self._switch_the_motor()
        end = time.monotonic() + self._options.seconds
        deeds = (self._drag, self._switch_the_motor, self._reopen, self._wait)
        while self._options.deeds > self.deeds if self._options.deeds else time.monotonic() < end:
            self._random.choices(deeds, (6, 2, 1, 5))[0]()
            self.deeds += 1
        self._panel.close()
        status = self._panel.wait()
        if status != 0:
            raise RuntimeError(f"the recorder ended with status {status}: {self._panel.errors()}")


def closings(path):
    """For each opening in a recording, how long behind its last frame the program closed the line.

    The recorder itself closes it later, which is what the vehicle sees.
    """
    found, last_frame_s = [], None
    with open(path, encoding="ascii") as file:
        for line in file:
            words = line.split()
            if words[1] == ">":
                last_frame_s = float(words[0])
            elif words[1] == "close":
                found.append(float(words[0]) - last_frame_s)
    return found


def compare(told, expected, report):
    """Adds a figure for each number, and a problem for each that is not what the vehicle says."""
    for name, value in told.items():
        low, high = expected.bounds(name)
        said = f"{low:,}" if low == high else f"{low:,} to {high:,}"
        report.add(f"{name} told by the report", "nothing" if value is None else value)
        report.add(f"{name} as the vehicle says", said)
        if value is None or not low <= value <= high:
            report.problems.append(f"the report tells {name} {value}, the vehicle says {said}")


def run(options):
    """Runs with the chosen programs; returns the report."""
    log = os.path.join(options.artefacts, "vehicle.log")
    path = os.path.join(options.artefacts, "drive.recording")
    begin = time.monotonic()
    vehicle_options = ["--seed", str(options.seed), "--random", str(FAULT_PERCENT), "--delay", str(LATE_MS), "--every",
                       str(LATE_EVERY)] + options.vehicle_option
    problems = []
    with Screen() as screen, Vehicle(options.vehicle, *vehicle_options, log=log) as vehicle:
        with Panel(options.panel, screen, vehicle.line, runner=recorder.runner(options.recorder, path)) as panel:
            operator = Operator(options, vehicle, panel)
            try:
                operator.drive()
            except (TimeoutError, RuntimeError, subprocess.TimeoutExpired) as failure:
                problems.append(str(failure))
        vehicle.wait_for_event("closed")
        frames = vehicle.frames()
    with open(log, encoding="ascii") as file:
        expected = Expected(file.read().splitlines(), LATE_MS, LATE_EVERY, closings(path))
    report = Report(f"soak record: seed {options.seed}, {(time.monotonic() - begin) / 60:.1f} minutes")
    report.problems = problems
    recording = recorder.Recording(options.recorder, path)
    with open(os.path.join(options.artefacts, "report.txt"), "w", encoding="utf-8") as file:
        file.write(recording.report())
    compare({name: recording.reported(words) for name, words in TOLD.items()}, expected, report)
    report.add("faults of the vehicle whose outcome a moment decides", expected.undecided)
    report.add("openings of the port", operator.openings)
    report.add("deeds of the operator", operator.deeds)
    if [cycle["frame"] for cycle in recording.cycles() if cycle["cycle"]] != [received.hex() for received in frames]:
        report.problems.append("the frames of the recording are not those that the vehicle received")
    if not frames or frames[-1] != NEUTRAL:
        report.problems.append("the vehicle was not left at rest")
    return report
