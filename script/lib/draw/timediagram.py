"""Time diagrams: lanes one above the other, moments on them, arrows from lane to lane."""

from .svg import Svg, text_width

INK, PALE, GRID = "#1f2937", "#6b7280", "#e5e7eb"
LANE_COLOURS = ("#7c3aed", "#c2410c", "#0f766e")
LEFT, RIGHT, TOP, LANE_GAP, BOTTOM = 130, 30, 54, 104, 50
SIZE = 11


class TimeDiagram:
    """Collects what happened and draws it to scale, times in milliseconds."""

    def __init__(self, title, lanes, begin_ms, end_ms, width=960):
        self._title, self._lanes = title, lanes
        self._begin, self._end, self._width = begin_ms, end_ms, width
        self._moments, self._arrows, self._bars, self._spans = [], [], [], []

    def moment(self, time_ms, lane, text="", above=True, level=0):
        """A mark on a lane with a text above or below it; a higher level stands farther from the lane."""
        if self._begin <= time_ms <= self._end:
            self._moments.append((time_ms, lane, text, above, level))

    def arrow(self, from_ms, from_lane, to_ms, to_lane):
        if self._begin <= from_ms <= self._end and self._begin <= to_ms <= self._end:
            self._arrows.append((from_ms, from_lane, to_ms, to_lane))

    def bar(self, from_ms, to_ms, lane, text):
        """A time in which a lane is busy or waits."""
        self._bars.append((max(from_ms, self._begin), min(to_ms, self._end), lane, text))

    def span(self, from_ms, to_ms, text):
        """A measure between two moments, above all lanes."""
        self._spans.append((from_ms, to_ms, text))

    def _x(self, time_ms):
        room = self._width - LEFT - RIGHT
        return LEFT + room * (time_ms - self._begin) / (self._end - self._begin)

    def _y(self, lane):
        return TOP + 56 + LANE_GAP * lane

    def write(self, path):
        height = self._y(len(self._lanes) - 1) + 60 + BOTTOM
        svg = Svg(self._width, height, self._title)
        svg.text(LEFT, 24, self._title, font_size=14, font_weight="bold", fill=INK)
        self._draw_axis(svg, height - BOTTOM)
        for index, name in enumerate(self._lanes):
            self._draw_lane(svg, index, name)
        for bar in self._bars:
            self._draw_bar(svg, *bar)
        for arrow in self._arrows:
            self._draw_arrow(svg, *arrow)
        for moment in self._moments:
            self._draw_moment(svg, *moment)
        for span in self._spans:
            self._draw_span(svg, *span)
        svg.write(path)

    def _draw_axis(self, svg, y):
        length = self._end - self._begin
        step = next(step for step in (1, 2, 5, 10, 20, 50, 100, 200, 500, 1000) if length / step <= 14)
        tick = -(-self._begin // step) * step
        while tick <= self._end:
            x = self._x(tick)
            svg.line(x, TOP, x, y, stroke=GRID, stroke_width=1)
            svg.text(x, y + 16, f"{tick:g}", font_size=SIZE, fill=PALE, text_anchor="middle")
            tick += step
        svg.text(self._width - RIGHT, y + 34, "milliseconds", font_size=SIZE, fill=PALE, text_anchor="end")

    def _draw_lane(self, svg, index, name):
        y, colour = self._y(index), LANE_COLOURS[index % len(LANE_COLOURS)]
        svg.line(LEFT, y, self._width - RIGHT, y, stroke=colour, stroke_width=2)
        for row, part in enumerate(name.split("\n")):
            svg.text(LEFT - 12, y + 4 + 15 * row, part, font_size=12 if row == 0 else 10, fill=colour,
                     font_weight="bold" if row == 0 else "normal", text_anchor="end")

    def _draw_bar(self, svg, begin, end, lane, text):
        x, y = self._x(begin), self._y(lane)
        width = max(self._x(end) - x, 1.5)
        colour = LANE_COLOURS[lane % len(LANE_COLOURS)]
        svg.rectangle(x, y - 8, width, 16, fill="#ffffff")
        svg.rectangle(x, y - 8, width, 16, fill=colour, fill_opacity=0.2, stroke=colour, stroke_width=0.8)
        if text and text_width(text, 10) < width:
            svg.text(x + width / 2, y + 3.5, text, font_size=10, fill=INK, text_anchor="middle")

    def _draw_arrow(self, svg, from_ms, from_lane, to_ms, to_lane):
        x1, y1, x2, y2 = self._x(from_ms), self._y(from_lane), self._x(to_ms), self._y(to_lane)
        down = 1 if y2 > y1 else -1
        svg.line(x1, y1, x2, y2 - 8 * down, stroke=PALE, stroke_width=1.2)
        svg.path(f"M{x2 - 4:.1f} {y2 - 9 * down:.1f} L{x2 + 4:.1f} {y2 - 9 * down:.1f} L{x2:.1f} {y2 - down:.1f} Z",
                 fill=PALE)

    def _draw_moment(self, svg, time_ms, lane, text, above, level):
        x, y = self._x(time_ms), self._y(lane)
        colour = LANE_COLOURS[lane % len(LANE_COLOURS)]
        svg.circle(x, y, 4, fill=colour, stroke="#ffffff", stroke_width=1)
        if not text:
            return
        rows = text.split("\n")
        reach = 14 + 15 * level
        first = y - reach - 13 * (len(rows) - 1) if above else y + reach + 9
        if level:
            svg.line(x, y, x, y - reach + 2 if above else y + reach - 2, stroke=colour, stroke_width=0.8,
                     stroke_dasharray="2 2")
        widest = max(text_width(row, SIZE) for row in rows)
        at = self._beside_arrows(x, widest, lane, above)
        at = min(max(at, LEFT + widest / 2), self._width - widest / 2 - 4)
        for row, part in enumerate(rows):
            svg.text(at, first + 13 * row, part, font_size=SIZE, fill=INK, text_anchor="middle", stroke="#ffffff",
                     stroke_width=3, paint_order="stroke")

    def _beside_arrows(self, x, width, lane, above):
        """The middle of a text at a moment: there, or left of the arrow that would run through it."""
        room = width / 2 + 4
        for from_ms, from_lane, to_ms, to_lane in self._arrows:
            if lane in (from_lane, to_lane) and (min(from_lane, to_lane) < lane) == above:
                arrow = self._x(from_ms if lane == from_lane else to_ms)
                if abs(arrow - x) < room:
                    x = arrow - room
        return x

    def _draw_span(self, svg, begin, end, text):
        x1, x2, y = self._x(begin), self._x(end), TOP - 8
        for x, inwards in ((x1, 1), (x2, -1)):
            svg.line(x, y - 5, x, y + 5, stroke=INK, stroke_width=1)
            svg.path(f"M{x:.1f} {y} L{x + 6 * inwards:.1f} {y - 3} L{x + 6 * inwards:.1f} {y + 3} Z", fill=INK)
        svg.line(x1, y, x2, y, stroke=INK, stroke_width=1)
        svg.text((x1 + x2) / 2, y - 4, text, font_size=SIZE, fill=INK, text_anchor="middle")
