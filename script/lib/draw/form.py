"""Where the widgets of a Qt Designer form stand, and what they say."""

import functools
import xml.etree.ElementTree as ElementTree


class Rectangle:
    """A rectangle in the form's coordinates."""

    def __init__(self, x, y, width, height):
        self.x, self.y, self.width, self.height = x, y, width, height

    @property
    def right(self):
        return self.x + self.width

    @property
    def bottom(self):
        return self.y + self.height

    def united(self, other):
        x, y = min(self.x, other.x), min(self.y, other.y)
        return Rectangle(x, y, max(self.right, other.right) - x, max(self.bottom, other.bottom) - y)

    def grown(self, by):
        return Rectangle(self.x - by, self.y - by, self.width + 2 * by, self.height + 2 * by)

    def within(self, outer):
        """The part of it that lies in another one."""
        x, y = max(self.x, outer.x), max(self.y, outer.y)
        return Rectangle(x, y, min(self.right, outer.right) - x, min(self.bottom, outer.bottom) - y)

    def tuple(self):
        return self.x, self.y, self.width, self.height


def around(places, names):
    """The rectangle that holds all the widgets of these names; `places` are rectangles by name."""
    return functools.reduce(Rectangle.united, (places[name] for name in names))


class Form:
    """A form: the rectangle of every widget, in coordinates of the top one."""

    def __init__(self, path):
        self.places = {}
        self.texts = []
        top = ElementTree.parse(path).getroot().find("widget")
        self._walk(top, 0, 0, is_top=True)

    def _walk(self, widget, left, top, is_top=False):
        rect = widget.find("property[@name='geometry']/rect")
        if rect is not None:
            x, y, width, height = (int(rect.find(name).text) for name in ("x", "y", "width", "height"))
            if is_top:
                x = y = 0
            left, top = left + x, top + y
            self.places[widget.get("name")] = Rectangle(left, top, width, height)
        for prop in widget.findall("property"):
            text = prop.find("string")
            if prop.get("name") in ("text", "title", "format", "suffix", "toolTip") and text is not None and text.text:
                self.texts.append((widget.get("name"), prop.get("name"), text.text))
        for child in widget.findall("widget"):
            self._walk(child, left, top)

    def around(self, names):
        """The rectangle that holds all these widgets."""
        return around(self.places, names)
