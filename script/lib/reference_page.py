"""Turns a Markdown page of the guides into what Doxygen understands: python3 script/lib/reference_page.py PAGE

Headings get the anchors that other renderers give them, links to anchors and headers become references, links out of
the reference become plain text, and code spans that Doxygen would misread become HTML.
"""

import os
import re
import sys

ROOT = os.path.realpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))


def anchor(page, name):
    """An anchor's name in the reference, where all pages share one room."""
    return re.sub(r"\W", "_", page.removesuffix(".md")) + "-" + name


def heading(page, line):
    found = re.match(r"(#{2,6} +)(.*)$", line)
    if not found or "{#" in line:
        return line
    title = re.sub(r"[`*]|\[|\]\([^)]*\)", "", found.group(2))
    name = re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-")
    return f"{line} {{#{anchor(page, name)}}}"


def link(page, found):
    text, target = found.group("text"), found.group("target")
    if "://" in target:
        return found.group(0)
    path, _, name = target.partition("#")
    goal = os.path.normpath(os.path.join(os.path.dirname(page), path)) if path else page
    if not goal.startswith("docs" + os.sep):
        return f'@ref {goal} "{text}"' if goal.startswith("nodevik" + os.sep) and goal.endswith(".h") else text
    if name:
        return f"[{text}](#{anchor(goal, name)})"
    return f'@ref md_{re.sub(r"[^a-zA-Z0-9]", "_", goal.removesuffix(".md"))} "{text}"'


def code(found):
    text = found.group(1)
    if not re.search(r"['<]", text) or "\\" in text:
        return found.group(0)
    for character, entity in (("&", "&amp;"), ("<", "&lt;"), (">", "&gt;"), ("'", "&apos;"), ("#", "\\#")):
        text = text.replace(character, entity)
    return f"<code>{text}</code>"


def converted(page, text):
    lines, fenced = [], False
    for line in text.split("\n"):
        fenced ^= line.startswith("```")
        if not fenced and not line.startswith(("```", "    ")):
            line = re.sub(r"`([^`]+)`", code, line)
            line = re.sub(r"(?<!!)\[(?P<text>[^\[\]]*)\]\((?P<target>[^)\s]+)\)", lambda found: link(page, found), line)
            line = heading(page, line)
        lines.append(line)
    return "\n".join(lines)


def main():
    if len(sys.argv) != 2 or sys.argv[1] in ("-h", "--help"):
        print(__doc__.strip())
        return 0 if len(sys.argv) == 2 else 2
    page = os.path.relpath(os.path.realpath(sys.argv[1]), ROOT)
    with open(sys.argv[1], encoding="utf-8") as file:
        sys.stdout.write(converted(page, file.read()))
    return 0


if __name__ == "__main__":
    sys.exit(main())
