"""The operator's guide against the panel's form: every text and every numbered widget has its place in it."""

import os
import re
import sys
import unittest

import markdown

sys.path.insert(0, os.path.join(markdown.ROOT, "script", "lib"))

from draw import guide  # noqa: E402
from draw.form import Form  # noqa: E402

# What stands in many places, or is told in other words.
TOLD_OTHERWISE = {"N/A", "-", "0", "X", "Y", "Color Led component"}


class OperatorsGuide(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.text = re.sub(r"\s+", " ", markdown.read("docs/operator.md"))
        self.form = Form(os.path.join(markdown.ROOT, "dialog.ui"))

    def test_every_text_of_the_panel_stands_in_the_guide(self):
        lost = [text for _, _, text in self.form.texts
                if text not in TOLD_OTHERWISE and re.sub(r"\s+", " ", text).strip() not in self.text]
        self.assertEqual(lost, [])

    def test_every_text_of_the_terminal_window_stands_in_the_guide(self):
        form = Form(os.path.join(markdown.ROOT, "mainwindow.ui"))
        self.assertTrue(form.texts)
        self.assertEqual([text for _, _, text in form.texts if text not in self.text], [])

    def test_every_number_of_the_pictures_is_explained(self):
        explained = re.findall(r"\*\*(\d+)\b", self.text)
        for _, _, _, labels in guide.numbered():
            self.assertEqual([number for number, _ in labels if number not in explained], [])

    def test_every_group_of_the_panel_has_its_section_and_picture(self):
        for letter, picture, _, _ in guide.numbered():
            self.assertIn(f"## {letter}: ", self.text)
            self.assertIn(f"(pictures/panel-{picture}.svg)", self.text)

    def test_every_widget_that_is_handled_or_read_has_a_number(self):
        numbered = {name for _, _, _, labels in guide.numbered() for _, names in labels for name in names}
        captions = re.compile(r"label(_\d+)?$|line_\d$|frame(_\w+)?$|groupBox$|Dialog$")
        self.assertEqual([name for name in self.form.places if name not in numbered and not captions.match(name)], [])


if __name__ == "__main__":
    unittest.main()
