"""Figures of the whole application on a screen in memory: its start, and its work while it drives a simulated vehicle.

Prints one figure a line, its name and its value; script/bench makes the table.
"""

import argparse
import mmap
import os
import statistics
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "script", "lib"))

from drive import panel as on_panel  # noqa: E402
from drive import process  # noqa: E402
from drive.panel import Panel, pad_press  # noqa: E402
from drive.screen import Screen  # noqa: E402
from drive.vehicle import Vehicle, frame  # noqa: E402

START_ROUNDS = 41
DRIVING_FRAMES = {100: 100, 10: 500}  # by the pause in ms: how many frames are watched


def start_ms(screen, program, environment):
    """Milliseconds from the start of a process to the first change of the screen."""
    with open(screen.file(), "rb") as file, mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ) as picture:
        before = picture[:]
        part = slice(len(before) // 8, 3 * len(before) // 8)  # rows where windows appear, above the pointer
        expected = before[part]
        begin = time.perf_counter()
        child = process.start([program], env=environment)
        try:
            while picture[part] == expected:
                if child.poll() is not None or time.perf_counter() - begin > process.LIMIT_S:
                    raise RuntimeError(program + " shows nothing")
            return 1000 * (time.perf_counter() - begin)
        finally:
            process.stop(child)
            process.wait_until(lambda: picture[part] == expected, "an empty screen")


def measure_start(panel, plain):
    """The panel and the plain dialog in turn; the middle of the rounds of each."""
    with Screen() as screen, tempfile.TemporaryDirectory() as directory:
        environment = dict(os.environ, DISPLAY=screen.display, QT_QPA_PLATFORM="xcb", XDG_RUNTIME_DIR=directory)
        times = {panel: [], plain: []}
        for _ in range(START_ROUNDS + 1):
            for program, measured in times.items():
                measured.append(start_ms(screen, program, environment))
    # The first round brings the libraries into memory.
    return [statistics.median(times[program][1:]) for program in (panel, plain)]


def processor_ms(pid):
    """Processor time that a process with all its threads has used so far, in milliseconds."""
    with open(f"/proc/{pid}/stat") as stat:
        fields = stat.read().rpartition(")")[2].split()
    return 1000 * (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def drive(panel_program, simulator, pause_ms):
    """Drives with all panes shown; returns the processor time per second, and the periods between frames in ms."""
    with Screen() as screen, Vehicle(simulator) as vehicle, Panel(panel_program, screen, vehicle.line) as panel:
        panel.click(on_panel.EXTRA_CHECK)
        panel.wait_for_size(920, 508)
        panel.click(on_panel.NAVIGATION_CHECK)
        panel.wait_for_size(920, 761)
        panel.type_number(on_panel.RATE_BOX, pause_ms)
        panel.click(on_panel.OPEN_BUTTON)
        panel.click(on_panel.MOTOR_BUTTON)
        panel.press(250, 60)
        vehicle.wait_for_frame(frame(*pad_press(250, 60), "Q"))
        first = len(vehicle.frames())
        used_ms, begin = processor_ms(panel.child.pid), time.monotonic()
        time.sleep(DRIVING_FRAMES[pause_ms] * (pause_ms + 10) / 1000)
        share = (processor_ms(panel.child.pid) - used_ms) / (time.monotonic() - begin)
        times = [event.time_s for event in vehicle.events("received")][first:]
    return share, [1000 * (after - before) for before, after in zip(times, times[1:])]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--panel", required=True, help="the panel's program")
    parser.add_argument("--plain", required=True, help="the plain dialog that its start is held against")
    parser.add_argument("--simulator", required=True, help="vehicle-simulator")
    options = parser.parse_args()
    panel_ms, plain_ms = measure_start(options.panel, options.plain)
    print(f"start {panel_ms:.1f}")
    print(f"start-plain {plain_ms:.1f}")
    for pause_ms in DRIVING_FRAMES:
        share, periods = drive(options.panel, options.simulator, pause_ms)
        twentieths = statistics.quantiles(periods, n=20)
        print(f"processor-{pause_ms} {share:.1f}")
        print(f"period-{pause_ms} {statistics.median(periods):.2f}")
        print(f"spread-{pause_ms} {twentieths[-1] - twentieths[0]:.2f}")
        print(f"longest-{pause_ms} {max(periods):.2f}")
    return 0


if __name__ == "__main__":
    process.run_to_the_end(main)
