"""Makes the pictures of the guides from the running program, the running gauges and the sources."""

import argparse
import contextlib
import io
import math
import os
import pty
import subprocess
import sys
import tempfile
import termios
import time

import lap
from draw import guide, recording, rooms, threads
from draw.callouts import bounds, write_close_up
from draw.form import Form, Rectangle, around
from draw.timediagram import TimeDiagram
from drive import panel as on_panel
from drive import process, sampledrive
from drive.browser import Browser
from drive.panel import Panel, pad_drag, pad_press
from drive.plotwindow import PlotWindow
from drive.screen import Screen
from drive.vehicle import NEUTRAL, Vehicle, frame

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")

REPLY_LATE_MS = 2  # at the scale of a cycle, the reply's arrow would lie on that of the frame
CLOSE_UP_SCALE = 1.6
CLOSE_UP_PADDING = 8
PLOT_FEED = ("1000", "2000")  # samples, and how many a second
PLOT_PORT = "5010"  # it stands in the picture
PLOT_SIZE = (860, 480)
# Of each picture of a report: language, locale, name, width and height, whether it is dark.
REPORTS = (("en", "C.UTF-8", "report.png", 1000, 1440, False), ("fi", "fi_FI.UTF-8", "report-fi.png", 1000, 1440, False),
           ("en", "C.UTF-8", "report-phone.png", 360, 1000, True))
LANES = ("window\nGUI thread", "link\nlink thread", "vehicle")


class Pictures:
    """All pictures, each a file in one directory."""

    def __init__(self, options):
        self._options = options
        self._form = Form(os.path.join(ROOT, "dialog.ui"))

    def path(self, name):
        return os.path.join(self._options.out, name)

    # The panel.

    def panel(self):
        """The whole panel, bare and with its groups' letters, and a close-up of each group, while the vehicle drives."""
        with Screen() as screen, Vehicle(self._options.simulator, "--capacity", "63", "--seed", "1") as vehicle:
            with Panel(self._options.panel, screen, vehicle.line) as panel:
                drive_off(panel, vehicle)
                found = threads.names(panel_process(panel))
                image = panel.image()
                panel.release()
                panel.close()
                panel.wait()
        image.save(self.path("panel.png"))
        self._write_whole(image)
        for letter, name, bounding, labels in guide.numbered():
            crop = self._crop(image, bounding, labels)
            self._write_close_up(f"panel-{name}.svg", f"{letter}: {name}", image, crop,
                                 [(number, self._form.around(names)) for number, names in labels], CLOSE_UP_SCALE)
        self.graph("threads", threads.dot(found))

    def _crop(self, image, bounding, labels):
        names = tuple(bounding) + tuple(name for _, widgets in labels for name in widgets)
        return self._form.around(names).grown(CLOSE_UP_PADDING).within(bounds(image))

    def _write_whole(self, image):
        labels = [(letter, self._crop(image, bounding, items).grown(2 - CLOSE_UP_PADDING).within(bounds(image)))
                  for letter, _, bounding, items in guide.numbered()]
        self._write_close_up("panel.svg", "The panel and its groups", image, bounds(image), labels, 1, inside=True)

    def _write_close_up(self, name, title, image, crop, labels, scale, inside=False):
        part = image.crop((crop.x, crop.y, crop.right, crop.bottom))
        png = io.BytesIO()
        part.save(png, "PNG")
        write_close_up(self.path(name), title, image, png.getvalue(), crop, labels, scale, inside=inside)

    # The terminal window.

    def terminal(self):
        """The serial terminal window after some bytes have come."""
        vehicle_end, panel_end = pty.openpty()
        with Screen() as screen, contextlib.ExitStack() as stack:
            window = stack.enter_context(TerminalWindow(self._options.gallery, screen, os.ttyname(panel_end)))
            window.click("AvaaporttiNappi")
            process.wait_until(lambda: is_raw(panel_end), "the line to be open")
            os.write(vehicle_end, bytes((127, 160, 176) * 13))
            window.wait_for_lines()
            image = window.image()
            labels = [(str(index), window.around(names)) for index, names in enumerate(guide.TERMINAL, 1)]
        os.close(vehicle_end)
        os.close(panel_end)
        self._write_close_up("terminal.svg", "The serial terminal window", image, bounds(image), labels,
                             CLOSE_UP_SCALE)

    # The gauges.

    def gauges(self):
        subprocess.run([self._options.gallery, "gauges", self._options.out], check=True,
                       env=dict(os.environ, QT_QPA_PLATFORM="offscreen"), stderr=subprocess.DEVNULL)

    # The plotting window.

    def plot(self):
        with Screen() as screen, tempfile.TemporaryDirectory() as directory:
            self._plot_feed(screen)
            table = os.path.join(directory, "drive.csv")
            with open(table, "w", encoding="utf-8") as file:
                file.write(plot_table())
            with PlotWindow(self._options.plot_view, screen, table) as window:
                window.resize(*PLOT_SIZE)
                window.keys("Right", *["Right"] * 40)
                window.settled_image().save(self.path("plot-cursor.png"))
                window.keys("ctrl+plus", "ctrl+plus", "Escape", "s", "period", "period", "d")
                window.settled_image().save(self.path("plot-scales.png"))

    def _plot_feed(self, screen):
        """The window of nodevik-plot when a feed has come to its end."""
        with PlotWindow(self._options.plot_view, screen, "--port", PLOT_PORT, "--step", "0.005") as window:
            window.resize(*PLOT_SIZE)
            window.port()  # it listens
            subprocess.run([self._options.plot_feed, PLOT_PORT, *PLOT_FEED], check=True,
                           stdout=subprocess.DEVNULL)
            window.settled_image().save(self.path("plot-feed.png"))

    # The report of a recording.

    def report(self):
        """The report's page in a browser: its upper part in both languages, and in the dark on a telephone."""
        with tempfile.TemporaryDirectory() as directory, Browser() as browser:
            recording_file = os.path.join(directory, "vehicle-20261122-132503.recording")
            sampledrive.write(recording_file)
            for language, locale, name, width, height, dark in REPORTS:
                page = os.path.join(directory, "report.html")
                subprocess.run([self._options.recorder, "report", recording_file, "--html", page], check=True,
                               env=dict(os.environ, LC_ALL=locale))
                browser.show(page, width, dark)
                if browser.run("return document.documentElement.lang") != language:
                    raise RuntimeError(f"the report is not in the language '{language}'")
                with open(self.path(name), "wb") as file:
                    file.write(browser.picture(height))

    # The link in time.

    def link(self):
        panel, vehicle = self._record(("--seed", "1"), open_and_drive)
        self._draw_opening(panel, vehicle)
        self._draw_cycle(panel, vehicle)
        panel, vehicle = self._record(("--seed", "1"), open_and_close_window)
        self._draw_closing(panel, vehicle)
        panel, vehicle = self._record(("--seed", "1", "--mute", "--every", "3"), open_and_drive)
        self._draw_silence(panel, vehicle)

    def _record(self, vehicle_options, deed):
        with tempfile.TemporaryDirectory() as directory:
            program, trace = recording.wrapped(self._options.panel, directory)
            with Screen() as screen, Vehicle(self._options.simulator, *vehicle_options) as vehicle:
                with Panel(program, screen, vehicle.line) as panel:
                    deed(panel, vehicle)
                    panel.close()
                    panel.wait()
                moments = recording.read_trace(trace, vehicle.line)
                if not any(moment.what == "write" for moment in moments):
                    raise RuntimeError("strace has recorded nothing: a container may forbid ptrace")
                return moments, recording.vehicle_moments(vehicle.events(), moments)

    def _draw_opening(self, panel, vehicle):
        zero = first(panel, "open").time_s
        diagram = TimeDiagram("Opening the port, and the first cycles", LANES, -60, 900)
        opened, first_read = 0, ms(first(panel, "read"), zero)
        diagram.moment(opened, 0, "Avaa portti: opens, 9600 8N1,\n\"Portti auki\", green lamp")
        diagram.bar(opened, first_read, 0, "the window waits 300 ms")
        diagram.moment(first_read, 0, "starts the link thread", above=False)
        self._draw_cycles(diagram, panel, vehicle, zero, 900)
        diagram.write(self.path("link-opening.svg"))

    def _draw_cycle(self, panel, vehicle):
        writes = [moment for moment in panel if moment.what == "write"]
        reads = [moment for moment in panel if moment.what == "read"]
        begin, end = writes[3], writes[4]
        zero = begin.time_s
        read = next(moment for moment in reads if moment.time_s > zero)
        received = next(moment for moment in vehicle if moment.what == "received" and moment.time_s >= zero - 0.0005)
        replied = next(moment for moment in vehicle if moment.what == "replied" and
                       moment.time_s >= received.time_s)
        diagram = TimeDiagram("One cycle with the period of 200 ms", LANES, -20, 235)
        diagram.moment(0, 1, "write: 4 bytes")
        diagram.arrow(0, 1, ms(received, zero), 2)
        diagram.moment(ms(received, zero), 2, f"receives {received.data}, replies at once: {replied.count} bytes",
                       above=False, level=0)
        answered = ms(replied, zero) + REPLY_LATE_MS
        diagram.arrow(answered, 2, answered, 1)
        diagram.bar(0, ms(read, zero), 1, "pauses for the period, 200 ms; the reply waits in the line's buffer")
        diagram.moment(ms(read, zero), 1, f"read: {read.count} bytes", above=False)
        diagram.bar(ms(read, zero), ms(end, zero), 1, "")
        diagram.moment(ms(end, zero), 1, "10 ms later: reports,\nwrites the next frame", above=False, level=1)
        diagram.arrow(ms(end, zero), 1, ms(end, zero), 0)
        diagram.moment(ms(end, zero), 0, f"shows the values, counter {read.count},\nblinks both lamps")
        diagram.span(0, ms(end, zero), f"{ms(end, zero):.1f} ms from frame to frame")
        diagram.write(self.path("link-cycle.svg"))

    def _draw_silence(self, panel, vehicle):
        zero = first(panel, "open").time_s
        diagram = TimeDiagram("A vehicle that leaves every third frame unanswered", LANES, 200, 2050)
        self._draw_cycles(diagram, panel, vehicle, zero, 2050, counter=True)
        diagram.write(self.path("link-silence.svg"))

    def _draw_closing(self, panel, vehicle):
        writes = [moment for moment in panel if moment.what == "write"]
        last = writes[-1]
        zero = last.time_s
        diagram = TimeDiagram("Closing the window while the vehicle drives", LANES, -520, 60)
        self._draw_cycles(diagram, panel, vehicle, zero, -0.3, begin=-520, frames=True)
        received = [moment for moment in vehicle if moment.what == "received"][-1]
        diagram.moment(0, 1, "the last frame")
        diagram.arrow(0, 1, ms(received, zero), 2)
        diagram.moment(ms(received, zero), 2, f"{received.data}: at rest", above=False, level=1)
        closed = ms(next(moment for moment in panel if moment.what == "close" and moment.time_s > zero), zero)
        diagram.moment(closed, 0, "the window is closed: ends the link thread,\njoins it, closes the line")
        diagram.write(self.path("link-closing.svg"))

    def _draw_cycles(self, diagram, panel, vehicle, zero, end_ms, begin=-1000.0, counter=False, frames=False):
        """Every read and write of the link thread, and what the vehicle made of it."""
        for moment in panel:
            at = ms(moment, zero)
            if not begin <= at <= end_ms:
                continue
            if moment.what == "read":
                diagram.moment(at, 1, f"read {moment.count}", above=False, level=0)
                if counter:
                    reported = ms(write_after(panel, moment), zero)
                    diagram.moment(reported, 0, f"counter {moment.count}" +
                                   (",\nlamp off" if moment.count == 0 else ""))
                    diagram.arrow(reported, 1, reported, 0)
            elif moment.what == "write":
                diagram.moment(at, 1, "" if frames else "frame", above=True)
        for moment in vehicle:
            at = ms(moment, zero)
            if not begin <= at <= end_ms:
                continue
            if moment.what == "received":
                text = moment.data if frames else ""
                diagram.arrow(at, 1, at, 2)
                diagram.moment(at, 2, text, above=False)
            elif moment.what == "replied" and not frames:
                diagram.moment(at, 2, f"replies {moment.count}", above=False)
            elif moment.what == "muted":
                diagram.moment(at, 2, "is silent", above=False)

    # The graphs.

    def rooms(self):
        self.graph("rooms", rooms.dot(ROOT))

    def graph(self, name, text):
        with open(self.path(name + ".dot"), "w", encoding="utf-8") as file:
            file.write(text)
        subprocess.run(["dot", "-Tsvg", "-o", self.path(name + ".svg"), self.path(name + ".dot")], check=True)


def plot_table():
    """A drive of a minute as a table: what was asked for, and what the vehicle told."""
    rows = ["time,throttle,direction,speed,battery voltage,current"]
    speed = 0
    for tenth in range(601):
        time_s = tenth / 10
        throttle = max(0, min(255, round(170 * math.sin(time_s / 9) + 60)))
        direction = round(105 + 60 * math.sin(time_s / 4))
        speed += (throttle * 8 - speed) / 25
        current = 2 + speed / 90 + 1.5 * math.sin(time_s * 5)
        rows.append(f"{time_s},{throttle},{direction},{speed:.0f},{52 - current / 4:.2f},{current:.2f}")
    return "\n".join(rows) + "\n"


class TerminalWindow:
    """The serial terminal window on a screen, on a device."""

    def __init__(self, gallery, screen, device):
        self._gallery, self._screen, self._device = gallery, screen, device

    def __enter__(self):
        environment = {name: value for name, value in os.environ.items() if not name.startswith("QT_")}
        environment.update(DISPLAY=self._screen.display, QT_QPA_PLATFORM="xcb", LC_ALL="C.UTF-8")
        self._child = process.start([self._gallery, "terminal", self._device], env=environment,
                                    stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self._places = {}
        for line in iter(self._child.stdout.readline, "end\n"):
            if not line:
                raise RuntimeError("the terminal window does not start")
            name, *numbers = line.split()
            self._places[name] = Rectangle(*map(int, numbers))
        self._window = process.wait_until(
            lambda: self._screen.xdotool("search", "--onlyvisible", "--name", "MainWindow"),
            "the terminal window").split()[-1]
        self._screen.xdotool("windowmove", self._window, 0, 0)
        process.wait_until(lambda: self._screen.geometry(self._window)[:2] == (0, 0),
                           "the terminal window at its place")
        return self

    def __exit__(self, *_):
        process.stop(self._child)
        self._child.stdout.close()

    def around(self, names):
        return around(self._places, names)

    def click(self, name):
        place = self._places[name]
        self._screen.xdotool("mousemove", place.x + place.width // 2, place.y + place.height // 2, "click", 1)

    def image(self):
        return self._screen.image(*self._screen.geometry(self._window))

    def wait_for_lines(self):
        """Waits until the log has text almost down to its end, which says that reads have come and been shown."""
        text = self._places["textEdit"]

        def written():
            part = self._screen.image(text.x + 4, text.y + text.height // 2, 40, text.height // 3)
            return any(sum(part.getpixel((x, y))) < 300 for y in range(part.height) for x in range(part.width))

        process.wait_until(written, "text in the log")


def drive_off(panel, vehicle):
    """Opens the port and drives forwards until the speed keeps, both panes shown and the mouse held on the pad."""
    panel.click(on_panel.OPEN_BUTTON)
    vehicle.wait_for_frame(NEUTRAL)
    panel.click(on_panel.MOTOR_BUTTON)
    panel.click(on_panel.EXTRA_CHECK)
    panel.wait_for_size(920, 508)
    panel.click(on_panel.NAVIGATION_CHECK)
    panel.wait_for_size(920, 761)
    panel.press(*lap.PRESS)
    vehicle.wait_for_frame(frame(*pad_press(*lap.PRESS), "Q"))
    for point in lap.FORWARDS:
        panel.drag(*point)
    vehicle.wait_for_frame(frame(*pad_drag(*lap.FORWARDS[-1]), "Q"))
    vehicle.wait_for_steady_speed()
    vehicle.wait_for_more_frames(2)
    process.wait_until(lambda: panel.lamp(on_panel.SEND_LAMP) == panel.lamp(on_panel.RECEIVE_LAMP) == "on",
                       "both lamps of the link")


def open_and_drive(panel, vehicle):
    panel.click(on_panel.OPEN_BUTTON)
    vehicle.wait_for_more_frames(10)


def open_and_close_window(panel, vehicle):
    panel.click(on_panel.OPEN_BUTTON)
    vehicle.wait_for_frame(NEUTRAL)
    panel.click(on_panel.MOTOR_BUTTON)
    panel.press(*lap.PRESS)
    vehicle.wait_for_frame(frame(*pad_press(*lap.PRESS), "Q"))
    vehicle.wait_for_more_frames(3)
    panel.release()


def panel_process(panel):
    """The process of the panel, which takes the place of the script that starts it."""
    return panel.child.pid


def is_raw(descriptor):
    """Whether a program has set the line up for itself."""
    return termios.tcgetattr(descriptor)[3] & termios.ICANON == 0


def first(moments, what):
    return next(moment for moment in moments if moment.what == what)


def write_after(moments, read):
    """The write that ends the cycle of a read: the report to the window comes just before it."""
    return next((moment for moment in moments if moment.what == "write" and moment.time_s > read.time_s), read)


def ms(moment, zero_s):
    return (moment.time_s - zero_s) * 1000


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--panel", required=True, help="the panel's program")
    parser.add_argument("--simulator", required=True, help="vehicle-simulator")
    parser.add_argument("--gallery", required=True, help="the program that shows gauges and the terminal window")
    parser.add_argument("--plot-view", required=True, help="the program that draws curves")
    parser.add_argument("--plot-feed", required=True, help="the program that feeds it")
    parser.add_argument("--recorder", required=True, help="vehicle-recorder")
    parser.add_argument("--out", required=True, help="where the pictures go")
    parser.add_argument("kinds", nargs="*", help="panel, terminal, gauges, link, rooms, plot, report; all if none")
    options = parser.parse_args()
    options.out = os.path.abspath(options.out)
    os.makedirs(options.out, exist_ok=True)
    pictures = Pictures(options)
    kinds = ("panel", "terminal", "gauges", "link", "rooms", "plot", "report")
    for kind in options.kinds or kinds:
        if kind not in kinds:
            parser.error(f"there is no kind of picture '{kind}'")
        begin = time.monotonic()
        try:
            getattr(pictures, kind)()
        except (TimeoutError, RuntimeError, OSError, subprocess.CalledProcessError) as failure:
            print(f"pictures: {kind}: {failure}", file=sys.stderr)
            return 1
        print(f"pictures: {kind} ({time.monotonic() - begin:.1f} s)")
    return 0


if __name__ == "__main__":
    process.run_to_the_end(main)
