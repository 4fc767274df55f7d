"""The HTML pages of the guides: every link, anchor and picture is there, and what is not a page of theirs is no link."""

import html.parser
import os
import subprocess
import sys
import tempfile
import unittest

import markdown

MAKER = os.path.join(markdown.ROOT, "script", "lib", "guide_pages.py")


class Page(html.parser.HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.links, self.pictures, self.anchors, self.language, self.text = [], [], set(), "", ""
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        self.anchors.add(attributes.get("id"))
        self.links += [attributes["href"]] if tag == "a" else []
        self.pictures += [attributes["src"]] if tag == "img" else []
        self.language = attributes.get("lang", self.language)

    def handle_data(self, data):
        self.text += data


class GuidePages(unittest.TestCase):
    def make(self, *paths):
        """Makes the pages, and returns them by their place."""
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        out = os.path.join(directory.name, "out")
        subprocess.run([sys.executable, "-B", MAKER, out, *paths], cwd=markdown.ROOT, check=True)
        pages = {}
        for place, _, names in os.walk(out):
            for name in names:
                if name.endswith(".html"):
                    path = os.path.join(place, name)
                    with open(path, encoding="utf-8") as file:
                        pages[os.path.relpath(path, out)] = Page(file.read())
        self.assert_whole(out, pages)
        return pages

    def assert_whole(self, out, pages):
        for name, page in pages.items():
            for picture in page.pictures:
                self.assertTrue(os.path.exists(os.path.join(out, os.path.dirname(name), picture)), (name, picture))
            for link in page.links:
                if "://" not in link:
                    path, _, anchor = link.partition("#")
                    goal = os.path.normpath(os.path.join(os.path.dirname(name), path)) if path else name
                    self.assertIn(goal, pages, (name, link))
                    if anchor:
                        self.assertIn(anchor, pages[goal].anchors, (name, link))

    def test_all_guides(self):
        pages = self.make("docs", "docs/nodevik")
        self.assertEqual(pages["kayttoohje.html"].language, "fi")
        self.assertEqual(pages["operator.html"].language, "en")
        self.assertIn("kayttoohje.html", pages["operator.html"].links)
        self.assertIn("nodevik/index.html", pages["index.html"].links)
        self.assertIn("pictures/panel.svg", pages["operator.html"].pictures)
        self.assertNotIn("run with node-simulator", pages["nodevik/sdo.html"].text)
        self.assertIn("int main()", pages["nodevik/sdo.html"].text)

    def test_links_to_what_is_left_out_are_plain_text(self):
        pages = self.make("docs/operator.md")
        self.assertEqual(list(pages), ["operator.html"])
        self.assertEqual([link for link in pages["operator.html"].links if not link.startswith("#")], [])
        self.assertIn("käyttöohje", pages["operator.html"].text)


if __name__ == "__main__":
    unittest.main()
