"""Pictures of a window with numbers at its widgets."""

import math

from .form import Rectangle
from .svg import Svg

COLOUR = "#c2410c"
RADIUS = 7  # of a number's disc, in pixels of the window


class Callouts:
    """Places numbers beside widgets, where the window shows nothing."""

    def __init__(self, image, crop, margin, widgets=()):
        """`widgets` are the places of all that get a number: none stands on another's widget."""
        self._image = image
        self._crop = crop
        self._room = crop.grown(margin)
        self._widgets = widgets
        self._taken = []
        self.placed = []

    def add(self, label, widget, inside=False):
        """Places a label at a widget: at the emptiest place around it, or in one of its corners."""
        candidates = list(self._corners(widget) if inside else self._around(widget))
        x, y = min(candidates, key=lambda point: self._cost(point, widget) + candidates.index(point) * 0.02)
        self._taken.append((x, y))
        self.placed.append((label, widget, x, y))

    def _around(self, widget):
        middle_x, middle_y = widget.x + widget.width / 2, widget.y + widget.height / 2
        for away in (RADIUS + 1, RADIUS + 5, 0, 3 * RADIUS):
            for shift in (0, -0.5, 0.5, -0.25, 0.25):
                yield widget.x - away, middle_y + shift * widget.height
                yield widget.right + away, middle_y + shift * widget.height
                yield middle_x + shift * widget.width, widget.y - away
                yield middle_x + shift * widget.width, widget.bottom + away

    @staticmethod
    def _corners(widget):
        inset = RADIUS + 2
        for x in (widget.x + inset, widget.right - inset):
            for y in (widget.y + inset, widget.bottom - inset):
                yield x, y

    def _cost(self, point, widget):
        x, y = point
        if not (self._room.x + RADIUS <= x <= self._room.right - RADIUS and
                self._room.y + RADIUS <= y <= self._room.bottom - RADIUS):
            return 1000
        cost = 0.0
        for other_x, other_y in self._taken:
            if math.hypot(x - other_x, y - other_y) < 2 * RADIUS + 2:
                cost += 500
        for other in self._widgets:
            if (other is not widget and other.x - RADIUS < x < other.right + RADIUS and
                    other.y - RADIUS < y < other.bottom + RADIUS):
                cost += 200
        return cost + self._detail(x, y)

    def _detail(self, x, y):
        """How much of the picture a disc at a point would cover: changes of colour from pixel to pixel."""
        covered = 0
        for row in range(int(y) - RADIUS, int(y) + RADIUS + 1):
            for column in range(int(x) - RADIUS, int(x) + RADIUS + 1):
                here, right, below = (self._pixel(column, row), self._pixel(column + 1, row),
                                      self._pixel(column, row + 1))
                covered += here is not None and ((right is not None and _differ(here, right)) or
                                                 (below is not None and _differ(here, below)))
        return covered

    def _pixel(self, x, y):
        crop = self._crop
        if crop.x <= x < crop.right and crop.y <= y < crop.bottom:
            return self._image.getpixel((x, y))
        return None


def _differ(a, b):
    return sum(abs(x - y) for x, y in zip(a, b)) > 24


def write_close_up(path, title, image, png, crop, labels, scale, margin=12, inside=False):
    """Writes a part of a window's picture with labels.

    image   the whole window's pixels; png: the part's, encoded
    labels  (label, rectangle in the window) in the order of their importance
    inside  the labels stand in a corner of their rectangles instead of beside them
    """
    callouts = Callouts(image, crop, margin, [] if inside else [place for _, place in labels])
    for label, place in labels:
        callouts.add(label, place, inside)
    svg = Svg((crop.width + 2 * margin) * scale, (crop.height + 2 * margin) * scale, title)

    def at(x, y):
        return (x - crop.x + margin) * scale, (y - crop.y + margin) * scale

    svg.picture(*at(crop.x, crop.y), crop.width * scale, crop.height * scale, png)
    for _, place, _, _ in callouts.placed:
        left, top = at(place.x, place.y)
        svg.rectangle(left, top, place.width * scale, place.height * scale, rx=3, fill="none", stroke=COLOUR,
                      stroke_width=1.2, stroke_opacity=0.75)
    for label, place, x, y in callouts.placed:
        _write_disc(svg, label, *at(x, y), RADIUS * scale)
    svg.write(path)


def _write_disc(svg, label, x, y, radius):
    svg.circle(x, y, radius, fill=COLOUR, stroke="#ffffff", stroke_width=1.5)
    svg.text(x, y + radius * 0.36, label, font_size=f"{radius * (1.25 if len(label) < 2 else 1.05):.1f}",
             font_weight="bold", fill="#ffffff", text_anchor="middle")


def bounds(image):
    return Rectangle(0, 0, image.width, image.height)
