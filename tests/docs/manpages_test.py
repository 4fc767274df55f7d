"""The manual pages of the command nodevik against its help: each command stands in one page, with the arguments and
options that its help tells and no others, and each key of its JSON results is told."""

import glob
import os
import re
import shlex
import subprocess
import unittest

import markdown

NODEVIK = os.environ["NODEVIK"]
DIRECTORY = os.path.join(markdown.ROOT, "packaging", "man")
OVERVIEW = "nodevik_command.1.in"
GROUPS = sorted(os.path.basename(path) for path in glob.glob(os.path.join(DIRECTORY, "nodevik-*.1.in"))
                if not path.endswith("nodevik-plot.1.in"))
OPTION = re.compile(r"--[a-z][a-z-]*")

# What stands for a character, and what changes the font.
ESCAPES = {r"\(lq": '"', r"\(rq": '"', r"\-": "-", r"\e": "\\", r"\c": "", r"\&": ""}


def plain(text):
    text = re.sub(r"\\f[BIRP]", "", text)
    for escape, character in ESCAPES.items():
        text = text.replace(escape, character)
    return text


def words_of(macro, arguments):
    """What a font macro of man(7) makes of its arguments."""
    parts = [part.replace("\0", "\\") for part in shlex.split(arguments.replace("\\", "\0"))]
    return plain((" " if macro in ("B", "I") else "").join(parts))


class Page:
    """A manual page: its sections as paragraphs of plain text. A tagged paragraph begins with its tag on a line."""

    def __init__(self, name):
        self.name, self.sections, self.tags = name, {}, {}
        section = ""
        for line in markdown.read(os.path.join("packaging", "man", name)).split("\n"):
            macro, _, rest = line[1:].partition(" ") if line.startswith(".") else ("", "", line)
            if macro == "SH":
                section = rest
                self.sections[section], self.tags[section] = [""], []
            elif macro in ("PP", "TP", "IP"):
                self.sections[section].append("")
                if macro == "TP":
                    self.tags[section].append("")
            elif section and macro not in ("TH", "EX", "EE", "SS"):
                text = words_of(macro, rest) if macro else plain(line)
                if self.tags[section] and self.tags[section][-1] == "":
                    self.tags[section][-1] = text
                self.sections[section][-1] += text + ("" if line.endswith(r"\c") else " ")

    def synopses(self):
        """What stands behind "nodevik [OPTIONS]" in each paragraph of the synopsis."""
        return [re.sub(r"\s+", " ", text).removeprefix("nodevik [OPTIONS] ").strip()
                for text in self.sections["SYNOPSIS"]]

    def options(self):
        return {option for tag in self.tags.get("OPTIONS", []) for option in OPTION.findall(tag)}

    def keys(self):
        return {key for tag in self.tags.get("JSON", []) for key in re.findall(r"\w+", tag)}


def help_of(command):
    return subprocess.run([NODEVIK, *command, "--help"], stdout=subprocess.PIPE, text=True, check=True).stdout


def listed(text, heading):
    """The lines of a help below a heading."""
    found = re.search(rf"^{heading}:\n((?:  .*\n)+)", text, re.MULTILINE)
    return re.findall(r"^  (\S.*)", found.group(1), re.MULTILINE) if found else []


def leaves(command=()):
    """Every command that does something: ("sdo", "read")."""
    below = [line.split()[0] for line in listed(help_of(command), "Subcommands")]
    return [leaf for name in below for leaf in leaves((*command, name))] if below else [command]


def told_options(command):
    return {OPTION.search(line).group() for line in listed(help_of(command), "Options")}


def told_arguments(command):
    return [line.split()[0] for line in listed(help_of(command), "Positionals")]


def is_of(synopsis, command):
    """Whether a synopsis, such as "nmt start|stop NODE", is that of a command."""
    words = synopsis.split()
    return len(words) >= len(command) and all(name in word.split("|") for name, word in zip(command, words))


class ManPages(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.pages = [Page(name) for name in GROUPS]
        cls.commands = leaves()

    def page_of(self, command):
        found = [(page, synopsis) for page in self.pages for synopsis in page.synopses() if is_of(synopsis, command)]
        self.assertEqual(len(found), 1, f"{' '.join(command)} stands in the synopsis of one page")
        return found[0]

    def test_every_command_has_its_synopsis(self):
        self.assertGreater(len(self.commands), 10)
        for command in self.commands:
            with self.subTest(command):
                _, synopsis = self.page_of(command)
                for argument in told_arguments(command):
                    self.assertRegex(synopsis, rf"(^|[ \[|]){re.escape(argument)}($|[ \].|=])")
                self.assertEqual(set(OPTION.findall(synopsis)), told_options(command) - {"--help"})

    def test_every_help_ends_with_an_example(self):
        for command in self.commands:
            self.assertRegex(help_of(command), rf"\nExample:\n  nodevik (--\w+ \S+ )*{' '.join(command)}\b.*\n$")

    def test_every_synopsis_is_that_of_a_command(self):
        for page in self.pages:
            for synopsis in page.synopses():
                self.assertTrue(any(is_of(synopsis, command) for command in self.commands), synopsis)

    def test_every_option_is_explained_in_the_page_of_its_command_and_no_other_one_is(self):
        told = {page.name: set() for page in self.pages}
        for command in self.commands:
            told[self.page_of(command)[0].name] |= told_options(command) - {"--help"}
        self.assertEqual({page.name: page.options() for page in self.pages}, told)
        self.assertEqual(Page(OVERVIEW).options(), told_options(()))

    def test_the_overview_names_every_page_and_every_command(self):
        overview = Page(OVERVIEW)
        text = " ".join(overview.sections["DESCRIPTION"])
        for name in GROUPS:
            self.assertIn(name.removesuffix(".1.in") + "(1)", text)
            self.assertIn(name.removesuffix(".1.in") + "(1)", overview.sections["SEE ALSO"][0])
        for command in self.commands:
            self.assertRegex(text, rf"\b{' '.join(command)}\b" if command[0] != "nmt" else r"\bnmt\b")

    def test_every_key_is_told_and_every_told_key_is_printed(self):
        sources = " ".join(markdown.read(os.path.relpath(path, markdown.ROOT))
                           for path in glob.glob(os.path.join(markdown.ROOT, "tools", "*.cpp")))
        told = set().union(*(page.keys() for page in self.pages))
        self.assertEqual({key for key in told if f'"{key}"' not in sources}, set())
        printed = set(re.findall(r'\w\["(\w+)"\] = ', sources))
        for statement in re.findall(r"(?:ordered_json|\bJson\b|\bobject\()[^;]*;", sources):
            printed |= set(re.findall(r'\{\s*"(\w+)", ', statement))
        self.assertGreater(len(printed), 15)
        self.assertEqual(printed - told, set())

    def test_every_page_has_its_sections_in_order(self):
        order = ["NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "OBJECTS", "JSON", "EXIT STATUS", "ENVIRONMENT",
                 "EXAMPLES", "SEE ALSO"]
        for page in [Page(OVERVIEW), *self.pages]:
            self.assertEqual(list(page.sections), [name for name in order if name in page.sections], page.name)
            for name in ("OPTIONS", "EXIT STATUS", "EXAMPLES"):
                self.assertIn(name, page.sections, page.name)

    def test_font_macros_are_made_plain(self):
        self.assertEqual(words_of("BR", r'"sdo read" ", " \-\-type'), "sdo read, --type")
        self.assertEqual(words_of("BI", r'\-\-can " IF"'), "--can IF")
        self.assertEqual(words_of("I", r"NODE\fR|\fPall"), "NODE|all")


if __name__ == "__main__":
    unittest.main()
