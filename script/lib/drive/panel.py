"""The panel in its window: where its widgets are, how an operator handles them, and what they show."""

import math
import os
import shutil
import subprocess
import tempfile

from . import process
from .xclient import XClient

WITH_LINE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "with-line")

# Rectangles (x, y, width, height) on the panel.
OPEN_BUTTON = (510, 80, 93, 27)
CLOSE_BUTTON = (510, 120, 93, 27)
SPEED_BOX = (510, 180, 89, 31)
RATE_BOX = (510, 240, 61, 31)
MOTOR_BUTTON = (20, 113, 109, 17)
EXTRA_CHECK = (520, 290, 101, 22)
NAVIGATION_CHECK = (520, 320, 101, 22)
THROTTLE_TEXT = (120, 300, 91, 31)
DIRECTION_TEXT = (240, 300, 91, 31)
BUCKET_TEXT = (360, 300, 91, 31)
STATUS_TEXT = (710, 90, 131, 71)
THROTTLE_SLIDER = (640, 70, 16, 160)
DIRECTION_SLIDER = (670, 200, 201, 20)
BUCKET_SLIDER = (880, 70, 16, 160)
BYTE_COUNTER = (520, 40, 64, 23)
BATTERY_BAR = (20, 390, 161, 23)
DIAL = (260, 370, 121, 121)

# Lamps: rectangle and colour.
RED_LAMP = ((470, 120, 21, 21), (255, 0, 0))
GREEN_LAMP = ((470, 90, 21, 21), (0, 255, 0))
SEND_LAMP = ((740, 320, 21, 21), (0, 255, 0))
RECEIVE_LAMP = ((740, 290, 21, 21), (5, 255, 0))

# The pad: its corners in panel coordinates, and what it makes of a point.
PAD_LEFT, PAD_BOTTOM = 150, 265
PAD_FORWARD_BUCKET, PAD_BACKWARD_BUCKET = 35, 220

THROTTLE_RANGE = (0, 255)
DIRECTION_RANGE = (35, 175)
BUCKET_RANGE = (47, 172)

DIAL_SCALE_END = 2520
DIAL_SPAN_DEG = 240


def _clamped(value, limits):
    return min(max(value, limits[0]), limits[1])


def _pad_set_points(direction, y):
    distance = PAD_BOTTOM - y - 127
    bucket = PAD_BACKWARD_BUCKET if distance < 0 else PAD_FORWARD_BUCKET
    return (_clamped(abs(2 * distance), THROTTLE_RANGE), _clamped(direction, DIRECTION_RANGE),
            _clamped(bucket, BUCKET_RANGE))


def pad_press(x, y):
    """Throttle, direction and bucket that a press on the pad asks for."""
    return _pad_set_points(x - PAD_LEFT, y)


def pad_drag(x, y):
    """Throttle, direction and bucket that a drag over the pad asks for: the other way round than a press."""
    return _pad_set_points(206 - (x - PAD_LEFT), y)


def way_of_the_line():
    """How the device gets its name, /dev/ttyS0, for the panel: a line for who reads along."""
    done = subprocess.run([WITH_LINE, "--which"], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          check=False)
    if done.returncode != 0:
        raise RuntimeError(done.stderr.strip())
    return done.stdout.strip()


class Panel:
    """A running panel on a screen, with a device (or "none") as its serial line, and perhaps more environment.

    `preload` is a library that is preloaded into the panel, and into nothing that is run on the way to it. `runner` is
    the beginning of a command line that runs the panel.
    """

    def __init__(self, program, screen, line, environment=None, preload=None, runner=()):
        self._program = program
        self._preload = preload
        self._runner = list(runner)
        self._screen = screen
        self._line = line
        self._environment = environment or {}

    def __enter__(self):
        self._directory = tempfile.mkdtemp(prefix="panel-")
        environment = {name: value for name, value in os.environ.items()
                       if not name.startswith("QT_") and name not in ("WAYLAND_DISPLAY", "SESSION_MANAGER")}
        environment.update(DISPLAY=self._screen.display, QT_QPA_PLATFORM="xcb", XDG_RUNTIME_DIR=self._directory,
                           HOME=self._directory, LC_ALL="C.UTF-8", **self._environment)
        self._client = None
        try:
            self._out = open(os.path.join(self._directory, "out"), "w+")
            self._err = open(os.path.join(self._directory, "err"), "w+")
            self.child = process.start([WITH_LINE, self._line] + self._runner + self._command(), env=environment, stdout=self._out,
                                       stderr=self._err)
            self._client = XClient(self._screen.display)
            self.window = process.wait_until(self._find_window, lambda: "the panel's window: " + self.errors())
            self.move_to(0, 0)
            process.wait_until(self.is_painted, "the panel's first picture")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        process.stop(self.child)
        if self._client:
            self._client.close()
        self._out.close()
        self._err.close()
        shutil.rmtree(self._directory, ignore_errors=True)

    # The process.

    def _command(self):
        if not self._preload:
            return [self._program]
        link = os.path.join(self._directory, "preloaded.so")  # the loader takes a blank in a path for the path's end
        os.symlink(os.path.abspath(self._preload), link)
        # Ahead of what gives the line its name, so that it sees the name.
        return ["sh", "-c", 'export LD_PRELOAD="$1${LD_PRELOAD:+:$LD_PRELOAD}"; exec "$2"', "sh", link, self._program]

    def output(self):
        """What the panel wrote to standard output so far."""
        self._out.seek(0)
        return self._out.read()

    def errors(self):
        """What the panel wrote to standard error so far."""
        self._err.seek(0)
        return self._err.read()

    def is_running(self):
        return self.child.poll() is None

    def wait(self):
        """Waits for the panel's end; returns its status."""
        return self.child.wait(process.LIMIT_S)

    def signal(self, number):
        self.child.send_signal(number)

    def close(self):
        """Closes the window as its close button does."""
        self._client.close_window(self.window)

    # The window.

    def _find_window(self):
        if not self.is_running():
            raise RuntimeError(f"the panel ended with status {self.child.returncode}: {self.errors()}")
        windows = self.windows()
        return windows[-1] if windows else None

    def windows(self):
        """All windows of the screen that are shown and have a title."""
        return [int(number) for number in self._screen.xdotool("search", "--onlyvisible", "--name", ".").split()]

    def geometry(self):
        """The window's rectangle on the screen."""
        geometry = self._screen.geometry(self.window)
        if geometry is None:
            raise RuntimeError(f"the panel's window is gone; {self.errors() or 'the panel runs on'}")
        return geometry

    def move_to(self, x, y):
        self._screen.xdotool("windowmove", self.window, x, y)
        process.wait_until(lambda: self.geometry()[:2] == (x, y), "the window at its place")

    def wait_for_size(self, width, height):
        process.wait_until(lambda: self.geometry()[2:] == (width, height), f"a window of {width} x {height}")

    def image(self):
        """What the whole window shows."""
        return self._screen.image(*self.geometry())

    def part(self, rectangle):
        """What a rectangle of the panel shows."""
        left, top = self.geometry()[:2]
        x, y, width, height = rectangle
        return self._screen.image(left + x, top + y, width, height)

    def is_painted(self):
        """Whether the panel's picture stands: of its lamps, exactly one or the other port lamp is lit."""
        return self.lamp(RED_LAMP) == "on" or self.lamp(GREEN_LAMP) == "on"

    # The mouse.

    def _point(self, x, y):
        left, top = self.geometry()[:2]
        return left + x, top + y

    def click(self, rectangle, times=1):
        """Clicks into the left third of a rectangle, where check boxes, buttons and texts all listen."""
        x, y, width, height = rectangle
        self._screen.xdotool("mousemove", *self._point(x + min(width // 2, 8), y + height // 2), "click", "--repeat", times,
                      "--delay", 20, 1)

    def press(self, x, y, button=1):
        self._screen.xdotool("mousemove", *self._point(x, y), "mousedown", button)

    def drag(self, x, y):
        self._screen.xdotool("mousemove", *self._point(x, y))

    def release(self, button=1):
        self._screen.xdotool("mouseup", button)

    def type_number(self, rectangle, number):
        """Replaces the number in a box. No Return: in a dialog that presses a button."""
        self.click(rectangle, times=2)
        self._screen.xdotool("windowfocus", "--sync", self.window, "key", "ctrl+a", *str(number))

    def choose(self, rectangle, index):
        """Chooses an entry of a closed list with the mouse wheel."""
        self.click_wheel(rectangle, 4, 9)
        if index > 0:
            self.click_wheel(rectangle, 5, index)

    def click_wheel(self, rectangle, button, times):
        """Turns the wheel over a rectangle; button 4 is up, 5 is down."""
        x, y, width, height = rectangle
        self._screen.xdotool("mousemove", *self._point(x + width // 2, y + height // 2), "click", "--repeat", times,
                      "--delay", 20, button)

    # What is shown.

    def lamp(self, lamp):
        """ "on", "off", or the colour if it is neither. """
        rectangle, colour = lamp
        image = self.part(rectangle)
        shown = image.getpixel((14, 14))  # away from the highlight on the lamp's upper left
        pale = tuple(204 + round(51 * part / 255) for part in colour)
        for name, expected in (("on", colour), ("off", pale)):
            if all(abs(a - b) <= 3 for a, b in zip(shown, expected)):
                return name
        return str(shown)

    def read_text(self, rectangle):
        """The text of a box that is not empty, as the mouse selects it."""
        x, y, width, height = rectangle
        self._client.forget_selection()
        self.press(x + 3, y + 4)
        self.drag(x + width // 2, y + height // 2)
        self.drag(x + width - 3, y + height - 3)
        self.release()
        return process.wait_until(self._client.selected_text, "a selected text").replace("\u2029", "\n")

    def wait_for_text(self, rectangle, text):
        process.wait_until(lambda: self.read_text(rectangle) == text,
                           lambda: f"the text '{text}', not '{self.read_text(rectangle)}'")

    def set_points(self):
        """Throttle, direction and bucket as their boxes show them."""
        return tuple(int(self.read_text(box)) for box in (THROTTLE_TEXT, DIRECTION_TEXT, BUCKET_TEXT))

    def byte_count(self):
        """The number on the byte counter, or None if it shows no number."""
        return read_segments(self.part(BYTE_COUNTER))

    def capacity(self):
        """The battery bar's length as a share of its range, 0 to 100."""
        image = self.part(BATTERY_BAR)
        y = image.height // 5
        filled = [x for x in range(image.width) if _is_bar(image.getpixel((x, y)))]
        return round(100 * (filled[-1] + 1) / image.width) if filled else 0

    def dial_speed(self):
        """The speed that the dial's needle points to, to about 20 rpm."""
        return read_needle(self.part(DIAL))


def _is_bar(colour):
    red, green, blue = colour
    return blue - red > 40 and blue > green


# The lit segments of each digit: top, upper left, upper right, middle, lower left, lower right, bottom.
_DIGITS = {"1110111": "0", "0010010": "1", "1011101": "2", "1011011": "3", "0111010": "4", "1101011": "5",
           "1101111": "6", "1010010": "7", "1111111": "8", "1111011": "9", "0000000": " "}


def read_segments(image):
    """The number that a five-digit seven-segment display of 64 x 23 shows, or None."""
    length = 9  # of a segment; the digits follow each other at 10 pixels
    text = ""
    for digit in range(5):
        left, top = 7 + 10 * digit + 1, 3
        right, middle, bottom = left + length - 3, top + length - 1, top + 2 * length - 2
        upper, lower = top + length // 2, middle + length // 2
        centres = ((left + 3, top), (left, upper), (right, upper), (left + 3, middle), (left, lower), (right, lower),
                   (left + 3, bottom))
        text += _DIGITS.get("".join("1" if _is_drawn_near(image, *centre) else "0" for centre in centres), "?")
    return int(text) if text.strip().isdigit() else None


def _is_drawn_near(image, x, y):
    """Whether anything but the background is within one pixel of (x, y)."""
    background = sum(image.getpixel((image.width - 4, 3)))
    return any(abs(sum(image.getpixel((x + dx, y + dy))) - background) > 20 for dx in (-1, 0, 1) for dy in (-1, 0, 1))


def read_needle(image):
    """The value that the needle of the speed dial points to."""
    unit = image.width / 335
    centre = image.width // 2
    radius = 62 * unit  # beyond the needle's tail, short of the numbers and the value text
    sum_x = sum_y = 0.0
    for step in range(1440):
        angle = math.radians(step / 4)
        x, y = centre + radius * math.cos(angle), centre + radius * math.sin(angle)
        darkness = max(0, 500 - sum(image.getpixel((round(x - 0.5), round(y - 0.5)))))
        sum_x += darkness * math.cos(angle)
        sum_y += darkness * math.sin(angle)
    if sum_x == 0 and sum_y == 0:
        return None
    turned = (math.degrees(math.atan2(sum_y, sum_x)) - 90 - 60) % 360  # clockwise from the scale's beginning
    if turned > 300:
        turned -= 360
    return round(turned * DIAL_SCALE_END / DIAL_SPAN_DEG)
