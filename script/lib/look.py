"""Starts the panel without a line on a screen in memory, looks at its window, closes it, and judges both."""

import argparse
import os
import subprocess
import sys

from drive import panel as on_panel
from drive import process
from drive.panel import Panel
from drive.screen import Screen

CLASS = "ohjauspaneeli"  # by which a desktop finds the window's entry
SIZE = (620, 508)
FEWEST_DARK_PIXELS = 50  # what the letters on a button leave at least
DARK = 100


def windows_of_class(screen):
    found = subprocess.run(["xdotool", "search", "--onlyvisible", "--class", f"^{CLASS}$"], text=True, check=False,
                           env=dict(os.environ, DISPLAY=screen.display), stdout=subprocess.PIPE)
    return [int(number) for number in found.stdout.split()]


def dark_pixels(image):
    return sum(max(image.getpixel((x, y))) < DARK for x in range(image.width) for y in range(image.height))


def look(panel, screen, picture):
    """The faults of the window."""
    faults = []
    image = panel.image()
    image.save(picture)
    if panel.window not in windows_of_class(screen):
        faults.append(f"the window's class is not {CLASS}")
    if (image.width, image.height) != SIZE:
        faults.append(f"the window is {image.width} x {image.height}")
    if (panel.lamp(on_panel.RED_LAMP), panel.lamp(on_panel.GREEN_LAMP)) != ("on", "off"):
        faults.append("the lamps do not show a closed line")
    for button in (on_panel.OPEN_BUTTON, on_panel.CLOSE_BUTTON):
        if dark_pixels(panel.part(button)) < FEWEST_DARK_PIXELS:
            faults.append("a button has no text: no font was found")
    panel.close()
    status = panel.wait()
    if status != 0:
        faults.append(f"it ended with status {status}")
    if panel.errors():
        faults.append("it said: " + panel.errors().strip())
    return faults


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--panel", required=True, help="the panel's program")
    parser.add_argument("--picture", required=True, help="where to leave a picture of the panel (PNG)")
    options = parser.parse_args()
    try:
        with Screen() as screen, Panel(options.panel, screen, "none") as panel:
            faults = look(panel, screen, options.picture)
    except (TimeoutError, RuntimeError, OSError) as failure:
        faults = [str(failure)]
    for fault in faults:
        print(f"look: {fault}", file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    process.run_to_the_end(main)
