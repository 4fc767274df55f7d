"""Writing SVG as text."""

import base64
from xml.sax.saxutils import escape

FONT = "DejaVu Sans, Verdana, Arial, sans-serif"


class Svg:
    """A drawing: elements in painting order."""

    def __init__(self, width, height, title):
        self._head = (f'<svg xmlns="http://www.w3.org/2000/svg" width="{number(width)}" height="{number(height)}" '
                      f'viewBox="0 0 {number(width)} {number(height)}" font-family="{FONT}">')
        self._parts = [f"<title>{escape(title)}</title>",
                       f'<rect width="{number(width)}" height="{number(height)}" fill="#ffffff"/>']

    def rectangle(self, x, y, width, height, **style):
        self._parts.append(f'<rect x="{number(x)}" y="{number(y)}" width="{number(width)}" '
                           f'height="{number(height)}"{attributes(style)}/>')

    def line(self, x1, y1, x2, y2, **style):
        self._parts.append(f'<line x1="{number(x1)}" y1="{number(y1)}" x2="{number(x2)}" '
                           f'y2="{number(y2)}"{attributes(style)}/>')

    def path(self, data, **style):
        self._parts.append(f'<path d="{data}"{attributes(style)}/>')

    def circle(self, x, y, radius, **style):
        self._parts.append(f'<circle cx="{number(x)}" cy="{number(y)}" r="{number(radius)}"{attributes(style)}/>')

    def text(self, x, y, text, **style):
        self._parts.append(f'<text x="{number(x)}" y="{number(y)}"{attributes(style)}>{escape(text)}</text>')

    def picture(self, x, y, width, height, png):
        data = base64.b64encode(png).decode()
        self._parts.append(f'<image x="{number(x)}" y="{number(y)}" width="{number(width)}" '
                           f'height="{number(height)}" href="data:image/png;base64,{data}"/>')

    def write(self, path):
        with open(path, "w", encoding="utf-8") as file:
            file.write("\n".join([self._head] + self._parts + ["</svg>", ""]))


def number(value):
    """A coordinate with at most one decimal."""
    return f"{value:.1f}".removesuffix(".0")


def attributes(style):
    return "".join(f' {name.rstrip("_").replace("_", "-")}="{value}"' for name, value in style.items())


def text_width(text, size):
    """About the width of a text in the drawings' font."""
    return sum(0.36 if character in "iljtfI.,:;'|!()[] " else 0.95 if character in "mwMW" else 0.64
               for character in text) * size
