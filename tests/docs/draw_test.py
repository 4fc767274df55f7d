"""What script/pictures draws with: the trace's reader, the places of the numbers, the pages of the reference."""

import os
import re
import sys
import tempfile
import unittest

import markdown
from PIL import Image

sys.path.insert(0, os.path.join(markdown.ROOT, "script", "lib"))

import reference_page  # noqa: E402
from draw import guide, recording  # noqa: E402
from draw.callouts import RADIUS, Callouts  # noqa: E402
from draw.form import Form, Rectangle  # noqa: E402
from draw.timediagram import TimeDiagram  # noqa: E402

BLANK = (0xEE, 0xEE, 0xEE)

TRACE = r"""7 100.000000 openat(AT_FDCWD</>, "/dev/ttyS0", O_RDWR|O_NOCTTY|O_NONBLOCK) = 9</dev/ttyS0>
7 100.000100 openat(AT_FDCWD</>, "/etc/passwd", O_RDONLY) = 10</etc/passwd>
7 100.000200 ioctl(9</dev/ttyS0>, TCGETS, {B9600 opost isig}) = 0
7 100.000300 ioctl(9</dev/ttyS0>, TCSETS, {B9600 -opost -isig}) = 0
8 100.300000 read(9</dev/ttyS0>, "", 100) = 0
8 100.310000 write(9</dev/ttyS0>, "\0gnP", 4 <unfinished ...>
7 100.310050 read(5</dev/null>, "", 100) = 0
8 100.310100 <... write resumed>)           = 4
8 100.520000 write(9</dev/ttyS0>, "\0gnP", 4) = -1 EIO (Input/output error)
7 100.600000 close(9</dev/ttyS0>)            = 0
"""


class Trace(unittest.TestCase):
    def setUp(self):
        self.moments = self.read(TRACE)

    def read(self, trace, *device):
        with tempfile.NamedTemporaryFile("w", suffix=".trace") as file:
            file.write(trace)
            file.flush()
            return recording.read_trace(file.name, *device)

    def test_only_calls_on_the_line_that_succeeded_count(self):
        self.assertEqual([moment.what for moment in self.moments], ["open", "settings", "read", "write", "close"])

    def test_the_device_behind_the_lines_name_counts_as_well(self):
        behind = TRACE.replace("/dev/ttyS0", "/dev/pts/1")
        self.assertEqual(len(self.read(behind, "/dev/pts/1")), len(self.moments))
        self.assertEqual(self.read(behind.replace("/dev/pts/1", "/dev/pts/12"), "/dev/pts/1"), [])

    def test_a_call_that_was_interrupted_in_the_trace_counts_from_its_beginning(self):
        write = self.moments[3]
        self.assertEqual((write.time_s, write.count, write.thread), (100.31, 4, 8))

    def test_the_vehicles_clock_is_moved_to_the_quickest_frame(self):
        class Event:
            def __init__(self, time_s, what, *words):
                self.time_s, self.what, self.words = time_s, what, words

        events = [Event(0.0, "opened"), Event(5.0, "received", "00", "67", "6e", "50"), Event(5.1, "replied", "39")]
        moments = recording.vehicle_moments(events, self.moments)
        self.assertAlmostEqual(moments[1].time_s, 100.31)
        self.assertAlmostEqual(moments[2].time_s, 100.41)
        self.assertEqual((moments[1].data, moments[2].count), ("00 67 6e 50", 39))


class Numbers(unittest.TestCase):
    def test_a_number_keeps_clear_of_what_is_drawn(self):
        """Left of the widget is a pattern, right of it nothing."""
        width, height = 100, 40
        image = Image.new("RGB", (width, height), BLANK)
        for x in range(0, 40, 2):
            image.paste((0, 0, 0), (x, 0, x + 1, height))
        callouts = Callouts(image, Rectangle(0, 0, width, height), 0)
        callouts.add("1", Rectangle(45, 15, 10, 10))
        _, _, x, _ = callouts.placed[0]
        self.assertGreaterEqual(x, 55)

    def test_numbers_keep_clear_of_each_other(self):
        blank = Image.new("RGB", (100, 60), BLANK)
        callouts = Callouts(blank, Rectangle(0, 0, 100, 60), 12)
        for index in range(4):
            callouts.add(str(index), Rectangle(40, 20, 20, 20))
        places = [(x, y) for _, _, x, y in callouts.placed]
        for index, (x, y) in enumerate(places):
            for other_x, other_y in places[index + 1:]:
                self.assertGreaterEqual((x - other_x) ** 2 + (y - other_y) ** 2, (2 * RADIUS) ** 2)

    def test_a_number_does_not_stand_on_another_widget(self):
        """Two widgets, one below the other, and room nowhere but below them."""
        blank = Image.new("RGB", (80, 60), BLANK)
        upper, lower = Rectangle(0, 10, 80, 20), Rectangle(0, 28, 80, 20)
        callouts = Callouts(blank, Rectangle(0, 0, 80, 60), 0, [upper, lower])
        callouts.add("1", upper)
        callouts.add("2", lower)
        for _, widget, x, y in callouts.placed:
            other = lower if widget == upper else upper
            self.assertFalse(other.x - RADIUS < x < other.right + RADIUS and
                             other.y - RADIUS < y < other.bottom + RADIUS, (x, y))

    def test_every_picture_of_a_group_carries_its_numbers(self):
        """script/pictures panel makes them anew."""
        form = Form(os.path.join(markdown.ROOT, "dialog.ui"))
        for _, picture, bounding, labels in guide.numbered():
            shown = re.findall(r">(\d+)</text>", markdown.read(f"docs/pictures/panel-{picture}.svg"))
            self.assertEqual(shown, [number for number, _ in labels])
            self.assertTrue(form.around(bounding))


class Kinds(unittest.TestCase):
    def test_each_kind_of_picture_can_be_made(self):
        program, script = markdown.read("script/lib/pictures.py"), markdown.read("script/pictures")
        made = set(re.findall(r"^    def ([a-z]\w*)\(self\):$", program, re.MULTILINE))
        told = re.search(r"^#   KIND +([a-z, ]+);", script, re.MULTILINE)[1].split(", ")
        self.assertEqual(told, re.findall(r'"(\w+)"', re.search(r"    kinds = \(([^)]*)\)", program)[1]))
        self.assertEqual(told, re.search(r"^    ([a-z |]+)\) ;;$", script, re.MULTILINE)[1].split(" | "))
        for kind in told:
            with self.subTest(kind):
                self.assertIn(kind, made)


class Times(unittest.TestCase):
    def places_of(self, text, above):
        """Where a text stands, and where an arrow from its lane downwards begins."""
        diagram = TimeDiagram("", ["upper", "lower"], 0, 100)
        diagram.moment(50, 0, text, above)
        diagram.arrow(51, 0, 51, 1)
        with tempfile.NamedTemporaryFile("w", suffix=".svg") as file:
            diagram.write(file.name)
            picture = markdown.read(file.name)
        arrow = re.search(r'<line x1="([\d.]+)" y1="([\d.]+)" x2="\1" y2="([\d.]+)" stroke="#6b7280"', picture)
        return float(re.search(rf'<text x="([\d.]+)"[^>]*>{text}</text>', picture).group(1)), float(arrow.group(1))

    def test_a_text_stands_beside_the_arrow(self):
        at, arrow = self.places_of("read 39", above=False)
        self.assertLess(at + 18, arrow)

    def test_a_text_that_no_arrow_crosses_stands_at_its_moment(self):
        at, arrow = self.places_of("read 39", above=True)
        self.assertLess(abs(at - arrow), 10)


class ReferencePage(unittest.TestCase):
    def convert(self, text, page="docs/operator.md"):
        return reference_page.converted(page, text)

    def test_headings_get_their_anchor(self):
        self.assertEqual(self.convert("## A: the `pad`"), "## A: the `pad` {#docs_operator-a-the-pad}")

    def test_links_lead_to_anchors_pages_and_headers(self):
        self.assertEqual(self.convert("[a](#b)"), "[a](#docs_operator-b)")
        self.assertEqual(self.convert("[a](nodevik/pdo.md#b)"), "[a](#docs_nodevik_pdo-b)")
        self.assertEqual(self.convert("[a](vehicle-link.md)"), '@ref md_docs_vehicle_link "a"')
        self.assertEqual(self.convert("[pdo.h](../nodevik/pdo.h)"), '@ref nodevik/pdo.h "pdo.h"')

    def test_links_out_of_the_reference_become_text(self):
        self.assertEqual(self.convert("[a](../CHANGELOG.md) ![b](pictures/c.svg)"), "a ![b](pictures/c.svg)")

    def test_code_is_left_alone_or_made_harmless(self):
        self.assertEqual(self.convert("`a`\n```\n## b `c'`\n```\n    `d'`"), "`a`\n```\n## b `c'`\n```\n    `d'`")
        self.assertEqual(self.convert("`it's <b>`"), "<code>it&apos;s &lt;b&gt;</code>")


if __name__ == "__main__":
    unittest.main()
