"""Reads the tree's Markdown pages: their links, headings, pictures and fenced blocks."""

import os
import re

ROOT = os.path.realpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))

_FENCE = re.compile(r"^(?P<fence>```+|~~~+)(?P<language>\w*)[^\n]*\n(?P<text>.*?)^(?P=fence)[ \t]*$",
                    re.MULTILINE | re.DOTALL)
_LINK = re.compile(r"(?P<picture>!?)\[(?:[^\[\]]|\[[^\]]*\]|!\[[^\]]*\]\([^)]*\))*\]\((?P<target>[^)\s]+)[^)]*\)")


def pages():
    """All Markdown pages of the tree, relative to its root; what a build or another tool left is not part of it."""
    found = []
    for directory, below, names in os.walk(ROOT):
        below[:] = sorted(name for name in below if name != "build" and not name.startswith("."))
        found += [os.path.relpath(os.path.join(directory, name), ROOT) for name in sorted(names)
                  if name.endswith(".md")]
    return found


def read(page):
    with open(os.path.join(ROOT, page), encoding="utf-8") as file:
        return file.read()


class Block:
    """A fenced block: its language, its text, the line it begins at, and the comments on the lines before it."""

    def __init__(self, language, text, line, comments):
        self.language, self.text, self.line, self.comments = language, text, line, comments


def blocks(text):
    """The fenced blocks of a page, in order."""
    result = []
    for found in _FENCE.finditer(text):
        comments = []
        for line in reversed(text[:found.start()].rstrip("\n").split("\n")):
            comment = re.fullmatch(r"<!-- (.*) -->", line.strip())
            if comment is None:
                break
            comments.insert(0, comment.group(1))
        result.append(Block(found["language"], found["text"], text.count("\n", 0, found.start()) + 1, comments))
    return result


def prose(text):
    """A page without its fenced blocks and code spans."""
    return re.sub(r"`[^`\n]*`", "", _FENCE.sub("", text))


def links(text):
    """The targets of a page's links and pictures."""
    return [found["target"] for found in _LINK.finditer(prose(text))]


def anchors(text):
    """The anchors that a page's headings make, as the usual renderers name them."""
    result = []
    for line in _FENCE.sub("", text).split("\n"):
        found = re.match(r"#{1,6} +(.*?)(?: *\{#([\w-]+)\})?$", line)
        if found:
            title = re.sub(r"[`*]|\[|\]\([^)]*\)", "", found.group(1))
            name = re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-")
            result.append(name if name not in result else f"{name}-{result.count(name)}")
            if found.group(2):
                result.append(found.group(2))
    return result
