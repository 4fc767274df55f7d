"""Every relative link and picture of the tree's Markdown pages leads somewhere, and every page can be reached."""

import os
import unittest

import markdown


def is_elsewhere(target):
    return "://" in target or target.startswith("mailto:")


class Links(unittest.TestCase):
    def test_every_link_and_picture_leads_to_a_file_of_the_tree(self):
        lost = []
        for page in markdown.pages():
            for target in markdown.links(markdown.read(page)):
                path = target.partition("#")[0]
                file = os.path.normpath(os.path.join(markdown.ROOT, os.path.dirname(page), path))
                if path and not is_elsewhere(target) and not os.path.exists(file):
                    lost.append(f"{page}: {target}")
        self.assertEqual(lost, [])

    def test_every_anchor_is_a_heading_of_its_page(self):
        lost = []
        for page in markdown.pages():
            for target in markdown.links(markdown.read(page)):
                path, _, anchor = target.partition("#")
                if not anchor or is_elsewhere(target):
                    continue
                goal = os.path.normpath(os.path.join(os.path.dirname(page), path)) if path else page
                if anchor not in markdown.anchors(markdown.read(goal)):
                    lost.append(f"{page}: {target}")
        self.assertEqual(lost, [])

    def test_every_guide_can_be_reached_from_the_readme(self):
        reached, waiting = set(), ["README.md"]
        while waiting:
            page = waiting.pop()
            if page in reached:
                continue
            reached.add(page)
            for target in markdown.links(markdown.read(page)):
                path = os.path.normpath(os.path.join(os.path.dirname(page), target.partition("#")[0]))
                if os.path.isdir(os.path.join(markdown.ROOT, path)):
                    path = os.path.join(path, "README.md")
                if path.endswith(".md") and os.path.exists(os.path.join(markdown.ROOT, path)):
                    waiting.append(path)
        guides = [page for page in markdown.pages() if page.startswith("docs" + os.sep)]
        self.assertEqual([page for page in guides if page not in reached], [])

    def test_every_picture_of_the_guides_is_shown_somewhere(self):
        shown = {os.path.normpath(os.path.join(os.path.dirname(page), target))
                 for page in markdown.pages() for target in markdown.links(markdown.read(page))}
        directory = os.path.join("docs", "pictures")
        made = [os.path.join(directory, name) for name in sorted(os.listdir(os.path.join(markdown.ROOT, directory)))
                if name.endswith((".png", ".svg"))]
        self.assertTrue(made)
        self.assertEqual([picture for picture in made if picture not in shown], [])

    def test_a_lost_link_and_a_lost_anchor_are_seen(self):
        text = "# Some title\n[a](b.md#c) `[no](code.md)` ![p](q.svg)\n```\n[no](fence.md)\n# no\n```\n"
        self.assertEqual(markdown.links(text), ["b.md#c", "q.svg"])
        self.assertEqual(markdown.anchors(text), ["some-title"])


if __name__ == "__main__":
    unittest.main()
