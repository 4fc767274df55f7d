"""The report's page for a browser, in a browser: light and dark, on a telephone, on paper, and in words.

Run by ctest; by hand: VEHICLE_RECORDER=... python3 reportpage_test.py
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(ROOT, "script", "lib"))

from drive import sampledrive  # noqa: E402
from drive.browser import Browser  # noqa: E402

RECORDER = os.environ["VEHICLE_RECORDER"]
LANGUAGES = {"en": "C.UTF-8", "fi": "fi_FI.UTF-8"}
TELEPHONE = 360
A4 = round(210 / 25.4 * 96)
INSIDE_A4 = round((210 - 2 * 13) / 25.4 * 96)  # its margins are the page's own
HEADER = "".join(line + "\n" for line in list(sampledrive.lines(1, False))[:4])

# Contrast of two colours as WCAG 2 has it (1.4.3), of every text that is seen and of every curve.
CONTRASTS = """
const luminance = c => {
  const part = v => { v /= 255; return v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4; };
  return 0.2126 * part(c[0]) + 0.7152 * part(c[1]) + 0.0722 * part(c[2]);
};
const colour = text => (text.match(/[0-9.]+/g) || [0, 0, 0, 0]).map(Number);
const background = element => {
  for (let one = element; one; one = one.parentElement) {
    const found = colour(getComputedStyle(one).backgroundColor);
    if (found.length < 4 || found[3] > 0) return found;
  }
  return [255, 255, 255];
};
const contrast = (a, b) => {
  const [low, high] = [luminance(a), luminance(b)].sort((x, y) => x - y);
  return (high + 0.05) / (low + 0.05);
};
const found = [];
for (const element of document.querySelectorAll('body *')) {
  const own = [...element.childNodes].some(node => node.nodeType === 3 && node.data.trim());
  if (own && element.getClientRects().length > 0 && !element.closest('svg'))
    found.push(['text', element.textContent.trim().slice(0, 40),
                contrast(colour(getComputedStyle(element).color), background(element))]);
}
for (const curve of document.querySelectorAll('path.curve'))
  found.push(['curve', curve.getAttribute('class'),
              contrast(colour(getComputedStyle(curve).stroke), background(curve.closest('figure')))]);
return found;
"""

# What reaches beyond the page's right edge, unless it can be scrolled by itself.
TOO_WIDE = """
return [...document.querySelectorAll('body *')]
  .filter(one => one.getBoundingClientRect().right > innerWidth + 0.5 && !one.closest('.wide, .list'))
  .map(one => one.tagName + '.' + one.className + ': ' + one.textContent.slice(0, 40));
"""


def report(recording, page, language):
    subprocess.run([RECORDER, "report", recording, "--html", page], check=True,
                   env=dict(os.environ, LC_ALL=LANGUAGES[language]))


class ReportPage(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.directory = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.browser = cls.enterClassContext(Browser())
        recording = cls.path("drive.recording")
        sampledrive.write(recording, 120)
        for language in LANGUAGES:
            report(recording, cls.path(f"{language}.html"), language)

    @classmethod
    def path(cls, name):
        return os.path.join(cls.directory, name)

    def page_of(self, name, entries):
        """The page, in English, of a recording with these entries."""
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(HEADER + entries)
        report(self.path(name), self.path(name + ".html"), "en")
        return self.path(name + ".html")

    def test_it_needs_nothing_but_itself(self):
        for language in LANGUAGES:
            with self.subTest(language):
                self.browser.show(self.path(f"{language}.html"))
                self.assertEqual(self.browser.run("return performance.getEntriesByType('resource').length"), 0)
                self.assertEqual(self.browser.run("return document.scripts.length"), 0)
                self.assertEqual(self.browser.run(
                    "return document.querySelectorAll('[src], [href], link, iframe, object').length"), 0)
                self.assertEqual(self.browser.complaints(), [])

    def test_it_fits_a_telephone(self):
        for language in LANGUAGES:
            for width in (TELEPHONE, 600, 760, 1100):
                with self.subTest(language=language, width=width):
                    self.browser.show(self.path(f"{language}.html"), width)
                    self.assertEqual(self.browser.run("return document.documentElement.scrollWidth"), width)
                    self.assertEqual(self.browser.run(TOO_WIDE), [])

    def test_it_can_be_read_in_light_and_dark(self):
        backgrounds = set()
        for dark in (False, True):
            for width in (TELEPHONE, 1100):
                self.browser.show(self.path("fi.html"), width, dark)
                backgrounds.add(self.browser.run("return getComputedStyle(document.body).backgroundColor"))
                found = self.browser.run(CONTRASTS)
                self.assertGreater(len(found), 60)
                for kind, what, contrast in found:
                    with self.subTest(dark=dark, width=width, what=what):
                        self.assertGreaterEqual(contrast, 4.5 if kind == "text" else 3)
        self.assertEqual(len(backgrounds), 2)

    def test_it_is_printed_on_a4_in_light_colours(self):
        self.browser.show(self.path("en.html"), dark=True)
        pdf = self.browser.print()
        boxes = re.findall(rb"/MediaBox ?\[ ?([0-9. ]+)\]", pdf)
        self.assertTrue(1 < len(boxes) <= 8, len(boxes))
        for box in boxes:
            left, bottom, right, top = map(float, box.split())
            self.assertAlmostEqual(right - left, 595.3, delta=1)
            self.assertAlmostEqual(top - bottom, 841.9, delta=1)
        self.browser.print_media()
        self.assertEqual(self.browser.run("return getComputedStyle(document.body).backgroundColor"),
                         "rgb(255, 255, 255)")
        self.assertEqual(self.browser.run("return getComputedStyle(document.body).color"), "rgb(0, 0, 0)")

    def test_on_paper_nothing_leaves_its_card(self):
        self.page_of("left", "0.000000 open\n0.000100 line 115200 8N1 rtscts+xonxoff\n0.100000 > 80676e51\n"
                     "1.000000 close\n1.000500 end\n")
        for page in ("left.html", "fi.html", "en.html"):
            with self.subTest(page):
                self.browser.show(self.path(page), A4)
                self.browser.print_media()
                self.browser.run("document.querySelector('main').style.width = arguments[0] + 'px'", INSIDE_A4)
                self.assertEqual(self.browser.run(
                    "return [...document.querySelectorAll('.card, figure')].filter(one => [...one.querySelectorAll('*')]"
                    ".some(part => part.getBoundingClientRect().right > one.getBoundingClientRect().right + 0.5))"
                    ".map(one => one.textContent.slice(0, 60))"), [])

    def test_it_has_words_for_what_is_drawn(self):
        for language in LANGUAGES:
            self.browser.show(self.path(f"{language}.html"))
            self.assertEqual(self.browser.run("return document.documentElement.lang"), language)
            levels = self.browser.run(
                "return [...document.querySelectorAll('h1, h2, h3, h4')].map(one => Number(one.tagName[1]))")
            self.assertEqual(levels.count(1), 1)
            self.assertEqual(levels[0], 1)
            for before, after in zip(levels, levels[1:]):
                self.assertLessEqual(after, before + 1)
            drawings = self.browser.run(
                "return [...document.querySelectorAll('svg:not([aria-hidden])')]"
                ".map(one => [one.getAttribute('role'), one.getAttribute('aria-label')])")
            self.assertGreater(len(drawings), 8)
            for role, label in drawings:
                self.assertEqual(role, "img")
                self.assertTrue(label)
            self.assertEqual(self.browser.run(
                "return [...document.querySelectorAll('figure')].filter(one => "
                "!one.querySelector('details table th[scope=col]') || "
                "!one.querySelector('tbody th[scope=row]')).length"), 0)

    def test_curves_stand_where_their_values_are(self):
        page = self.page_of("steps", "0.000000 open\n"
                            "0.000000 > 00676e50\n0.400000 > ff676e51\n0.800000 > 80676e51\n1.000000 > 00676e50\n"
                            "1.000500 close\n1.000600 end\n")
        self.browser.show(page)
        script = ("const svg = [...document.querySelectorAll('svg')]"
                  ".find(one => (one.getAttribute('aria-label') || '').startsWith(arguments[0]));"
                  "const box = svg.querySelector('.curve').getBBox();"
                  "const inside = x => { const path = svg.querySelector('.curve'), all = path.getTotalLength();"
                  "  for (let at = 0; at <= all; at += 0.25) { const p = path.getPointAtLength(at);"
                  "    if (p.x >= x) return p.y; } return null; };"
                  "return [box.y, box.height, inside(200), inside(600), inside(900)];")
        top, height, at_rest, full, half = self.browser.run(script, "Throttle")
        self.assertAlmostEqual(top, 0, delta=0.1)
        self.assertAlmostEqual(height, 100, delta=0.1)
        self.assertAlmostEqual(at_rest, 100, delta=0.1)
        self.assertAlmostEqual(full, 0, delta=0.1)
        self.assertAlmostEqual(half, 100 * (255 - 128) / 255, delta=0.1)
        strip = self.browser.run("const box = document.querySelector('.strip').getBBox(); return [box.x, box.width]")
        self.assertAlmostEqual(strip[0], 400, delta=4)
        self.assertAlmostEqual(strip[1], 600, delta=4)

    def test_bars_stand_where_the_faults_were(self):
        entries = "0.000000 open\n"
        reply = "70a0b0bda1b101a2b2e2a3b300a4b4c1a5b500a6b63fa7b7a0a8b842a9b9ddaaba23abbb00acbc"
        for number in range(40):
            entries += f"{0.1 + 0.2 * number:.6f} > 00676e50\n"
            entries += "" if number in (20, 21) else f"+30000 < {reply}\n"
        self.browser.show(self.page_of("bars", entries + "8.000000 close\n8.000000 end\n"))
        bars = self.browser.run("return [...document.querySelectorAll('rect.f1')].map(one => one.getBBox().x)")
        self.assertEqual(len(bars), 2)
        self.assertAlmostEqual(bars[0], 1000 * 4.1 / 8, delta=10)
        self.assertAlmostEqual(bars[1], 1000 * 4.3 / 8, delta=10)
        self.assertIn("2", self.browser.run("return document.querySelector('.legend').textContent"))

    def test_a_recording_of_nothing_is_a_page_too(self):
        self.browser.show(self.page_of("nothing", "0.000000 end\n"), TELEPHONE)
        self.assertEqual(self.browser.run("return document.querySelectorAll('h1').length"), 1)
        self.assertEqual(self.browser.run("return document.querySelectorAll('figure').length"), 0)
        self.assertEqual(self.browser.run("return document.documentElement.scrollWidth"), TELEPHONE)
        self.assertEqual(self.browser.complaints(), [])

    def test_where_nothing_was_told_there_are_no_numbers(self):
        self.browser.show(self.page_of("mute", "0.000000 open\n0.100000 > 00676e50\n0.200000 close\n0.300000 end\n"))
        rows = dict(self.browser.run(
            "return [...document.querySelectorAll('.row:not(.axis):not(.low)')].map(one => [one.querySelector('b')"
            ".textContent, [one.querySelector('.name span').textContent, one.querySelectorAll('.scale span').length]])"))
        for name in ("Speed", "Voltage", "Current", "Capacity"):
            self.assertEqual(rows[name], ["Nothing to show", 0])
        self.assertEqual(rows["Direction"][0], "103")
        self.assertNotIn("The line", self.browser.run("return [...document.querySelectorAll('h2')]"
                                                      ".map(one => one.textContent)"))

    def test_numbers_of_neighbours_do_not_touch(self):
        reply = "70a0b0bda1b101a2b2e2a3b300a4b4c1a5b500a6b63fa7b7a0a8b842a9b9ddaaba23abbb00acbc"
        entries = "".join(f"{0.1 + 0.2 * number:.6f} > 00676e50\n+30000 < {reply}\n" for number in range(5))
        page = self.page_of("constant", "0.000000 open\n" + entries + "2.000000 close\n2.000000 end\n")
        for width in (TELEPHONE, 1100):
            self.browser.show(page, width)
            numbers = self.browser.run(
                "return [...document.querySelectorAll('.scale span')].map(one => {"
                "const box = one.getBoundingClientRect(); return [one.textContent, box.top, box.bottom]; })")
            numbers.sort(key=lambda one: one[1])
            self.assertGreater(len(numbers), 15)
            for above, below in zip(numbers, numbers[1:]):
                with self.subTest(width=width, above=above, below=below):
                    self.assertLess(above[2], below[1])

    def test_a_short_recording_has_its_times(self):
        self.browser.show(self.page_of("short", "0.000000 open\n0.000200 > 00676e50\n0.000400 end\n"))
        self.assertEqual(self.browser.complaints(), [])
        self.assertNotIn("NaN", self.browser.run("return document.body.innerHTML"))
        self.assertNotIn("inf", self.browser.run(
            "return [...document.querySelectorAll('svg')].map(one => one.innerHTML).join()"))


if __name__ == "__main__":
    unittest.main()
