"""Makes HTML pages of guides, for the packages: python3 script/lib/guide_pages.py OUT PAGE...

A PAGE is a Markdown file below docs/, or a directory there, of which it takes all. It stands at the same place below
OUT, README.md as index.html, with the pictures that the pages show. Links to a page that is not among them, or to
another file of the tree, become plain text.
"""

import os
import re
import shutil
import sys

import markdown

ROOT = os.path.realpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
DOCS = os.path.join(ROOT, "docs")
LANGUAGES = {"kayttoohje.md": "fi", "mustalaatikko.md": "fi"}  # the others are English

PAGE = """<!DOCTYPE html>
<html lang="{language}">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{title}</title>
<style>
body {{ max-width: 56em; margin: 2em auto; padding: 0 1em; font-family: sans-serif; line-height: 1.45; }}
table {{ border-collapse: collapse; }}
td, th {{ border: 1px solid #bbb; padding: 0.3em 0.6em; text-align: left; vertical-align: top; }}
pre {{ background: #f4f4f4; padding: 0.8em; overflow-x: auto; }}
img {{ max-width: 100%; }}
</style>
</head>
<body>
{body}
</body>
</html>
"""


def anchor(title, _):
    """The anchor of a heading, as the usual renderers of the tree's pages name it."""
    return re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-")


def below_docs(path):
    return os.path.relpath(os.path.realpath(path), DOCS)


def html_name(page):
    directory, name = os.path.split(page)
    return os.path.join(directory, "index.html" if name == "README.md" else name.removesuffix(".md") + ".html")


def find_pages(paths):
    """The pages that are named, or lie in a directory that is, by their place below docs/."""
    found = []
    for path in paths:
        if os.path.isdir(path):
            found += sorted(below_docs(os.path.join(path, name)) for name in os.listdir(path) if name.endswith(".md"))
        else:
            found.append(below_docs(path))
    return found


class Guides:
    """Pages that refer to each other, and the pictures that they show."""

    def __init__(self, out, pages):
        self.out, self.pages, self.pictures = out, pages, set()

    def make(self):
        shutil.rmtree(self.out, ignore_errors=True)
        for page in self.pages:
            self.write(page)
        for picture in sorted(self.pictures):
            goal = os.path.join(self.out, picture)
            os.makedirs(os.path.dirname(goal), exist_ok=True)
            shutil.copyfile(os.path.join(DOCS, picture), goal)

    def write(self, page):
        with open(os.path.join(DOCS, page), encoding="utf-8") as file:
            text = re.sub(r"^<!--.*-->\n", "", file.read(), flags=re.MULTILINE)
        body = markdown.markdown(text, extensions=["tables", "fenced_code", "toc", "sane_lists"],
                                 extension_configs={"toc": {"slugify": anchor}}, output_format="html")
        body = re.sub(r'<a href="(?P<target>[^"]*)">(?P<text>.*?)</a>', lambda found: self.link(page, found), body,
                      flags=re.DOTALL)
        for picture in re.findall(r'<img [^>]*src="([^"]*)"', body):
            self.pictures.add(os.path.normpath(os.path.join(os.path.dirname(page), picture)))
        title = re.sub(r"<[^>]*>", "", re.search(r"<h1[^>]*>(.*?)</h1>", body, re.DOTALL).group(1))
        goal = os.path.join(self.out, html_name(page))
        os.makedirs(os.path.dirname(goal), exist_ok=True)
        with open(goal, "w", encoding="utf-8") as file:
            file.write(PAGE.format(language=LANGUAGES.get(page, "en"), title=title, body=body))

    def link(self, page, found):
        target, text = found.group("target"), found.group("text")
        path, mark, name = target.partition("#")
        goal = os.path.normpath(os.path.join(os.path.dirname(page), path)) if path else page
        if "://" in target or not path:
            return found.group(0)
        if goal not in self.pages:
            return text
        return f'<a href="{os.path.relpath(html_name(goal), os.path.dirname(page) or ".")}{mark}{name}">{text}</a>'


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    Guides(sys.argv[1], find_pages(sys.argv[2:])).make()
