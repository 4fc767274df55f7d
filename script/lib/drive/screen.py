"""A screen in memory (Xvfb) whose pixels can be looked at."""

import os
import shutil
import struct
import subprocess
import tempfile
import zlib

from . import process


class Image:
    """A piece of the screen: rows of RGB bytes."""

    def __init__(self, width, height, rgb):
        self.width = width
        self.height = height
        self.rgb = rgb

    def pixel(self, x, y):
        """The colour at (x, y) as (red, green, blue)."""
        at = 3 * (y * self.width + x)
        return tuple(self.rgb[at : at + 3])

    def write_png(self, path):
        """Writes the image to a PNG file."""

        def chunk(kind, data):
            return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

        stride = 3 * self.width
        rows = b"".join(b"\0" + self.rgb[y * stride : (y + 1) * stride] for y in range(self.height))
        with open(path, "wb") as file:
            file.write(b"\x89PNG\r\n\x1a\n")
            file.write(chunk(b"IHDR", struct.pack(">IIBBBBB", self.width, self.height, 8, 2, 0, 0, 0)))
            file.write(chunk(b"IDAT", zlib.compress(rows, 9)))
            file.write(chunk(b"IEND", b""))


class Screen:
    """An X server of its own on a free display number, with its picture in a file (XWD format, see xwd(1))."""

    WIDTH = 1280
    HEIGHT = 960

    def __enter__(self):
        self._directory = tempfile.mkdtemp(prefix="panel-screen-")
        reading, writing = os.pipe()
        try:
            with open(self._log(), "wb") as log:
                self._server = process.start(
                    ["Xvfb", "-displayfd", str(writing), "-screen", "0", f"{self.WIDTH}x{self.HEIGHT}x24",
                     "-fbdir", self._directory, "-nolisten", "tcp", "-noreset"],
                    pass_fds=[writing], stdout=subprocess.DEVNULL, stderr=log)
            os.close(writing)
            with os.fdopen(reading) as number:
                display = number.readline().strip()
        except BaseException:
            shutil.rmtree(self._directory, ignore_errors=True)
            raise
        if not display:
            with open(self._log()) as log:
                reason = log.read()
            self.__exit__()
            raise RuntimeError("Xvfb does not start: " + reason)
        self.display = ":" + display
        return self

    def __exit__(self, *_):
        process.stop(self._server)
        shutil.rmtree(self._directory, ignore_errors=True)

    def _log(self):
        return os.path.join(self._directory, "log")

    def xdotool(self, *arguments):
        """Runs xdotool(1) on this screen; returns what it prints, nothing if it fails."""
        done = subprocess.run(["xdotool"] + [str(argument) for argument in arguments],
                              env=dict(os.environ, DISPLAY=self.display), stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, check=False)
        return done.stdout

    def geometry(self, window):
        """The rectangle of a window (x, y, width, height), or None if it is gone."""
        values = dict(line.split("=") for line in
                      self.xdotool("getwindowgeometry", "--shell", window).split() if "=" in line)
        return tuple(int(values[name]) for name in ("X", "Y", "WIDTH", "HEIGHT")) if "X" in values else None

    def file(self):
        """The file that holds the picture."""
        return os.path.join(self._directory, "Xvfb_screen0")

    def image(self, x, y, width, height):
        """What the screen shows in a rectangle."""
        with open(self.file(), "rb") as file:
            data = file.read()
        header = struct.unpack(">25I", data[:100])
        header_size, bits_per_pixel, stride, colours = header[0], header[11], header[12], header[19]
        if bits_per_pixel != 32:
            raise RuntimeError(f"a pixel has {bits_per_pixel} bits instead of 32")
        pixels = header_size + 12 * colours
        rgb = bytearray(3 * width * height)
        for row in range(height):
            begin = pixels + (y + row) * stride + 4 * x
            line = data[begin : begin + 4 * width]
            at = 3 * width * row
            for channel in range(3):  # the bytes of a pixel are blue, green, red, nothing
                rgb[at + channel : at + 3 * width : 3] = line[2 - channel :: 4]
        return Image(width, height, bytes(rgb))
