"""The troubleshooting page against the sources: what it lists is printed somewhere, and what is printed is listed."""

import glob
import os
import re
import unittest

import markdown

PAGE = "docs/troubleshooting.md"
DOTS = "…"

# Where messages come from. Left out are the texts of decoded frames and of the terminal sequences.
SOURCES = ("*.cpp", "nodevik/*.cpp", "nodevik/*.h", "nodevik/util/*.cpp", "widgets/*.cpp", "simulator/*/*.cpp",
           "tools/*.cpp", "tools/plot_view/*.cpp", "recorder/*.cpp")
NO_MESSAGES = ("nodevik/canopendecode.cpp", "nodevik/codetexts.cpp", "nodevik/util/vt100.cpp", "nodevik/util/vt100.h")
# The simulators', the command's and the recorder's help texts, logs, and what the nodes contain, stand beside their
# messages.
# The panel's own texts are names of its gauges for assistive technology, which the operator's guide has.
ONLY_ONE_WAY = ("simulator/", "tools/", "recorder/", "dialog.cpp")
# What a test in a system of its own finds wrong stands in that test.
VERDICTS = ("script/test-package", "script/lib/clean-root", "script/lib/fresh-root", "script/lib/minimal-root.sh")
SCRIPTS = tuple(sorted(os.path.relpath(path, markdown.ROOT)
                       for pattern in ("script/*", "script/lib/*")
                       for path in glob.glob(os.path.join(markdown.ROOT, pattern))
                       if os.path.isfile(path) and not path.endswith(VERDICTS)))

# Texts with a blank in them that no operator reads as a message.
NO_TROUBLE = re.compile(r"^(symbolic link|regular file|block device|character device|Analog Barmeter"
                        r"|Analog Thermometer|m_max-m_min != 0|1 == 2|&driver != __null|id < 512|messagesize < 89"
                        r"|Generic I/O Module.*|, (Digital|Analog) (In|Out)put|.*%s.*PDO mapping.*"
                        r"|state (Stopped|Operational|Pre-Operational)|libcanlib.*)$")


def literals(text):
    """The string literals of a C++ source, neighbours joined."""
    text = re.sub(r"//[^\n]*|#(include|define)[^\n]*", "", text)
    one = r'"(?:[^"\\\n]|\\.)*"'
    return ["".join(re.findall(r'"((?:[^"\\]|\\.)*)"', found)) for found in re.findall(rf"{one}(?:\s*{one})*", text)]


def plain(literal):
    """A literal as it reads on the screen: without line ends, with dots for what changes."""
    literal = literal.replace(r"\n", " ").replace(r"\"", '"').replace("@", DOTS)
    return re.sub(r"(?:0x)?%[-#0-9.]*(?:hh|h|l|z)?[a-zA-Z]", DOTS, literal).strip()


def printed():
    """(file, text) of every literal of the sources that may be a message."""
    result = []
    for pattern in SOURCES:
        for path in sorted(glob.glob(os.path.join(markdown.ROOT, pattern))):
            name = os.path.relpath(path, markdown.ROOT)
            if name not in NO_MESSAGES:
                text = markdown.read(name)
                result += [(name, plain(literal)) for literal in literals(text)]
                result += [(name, condition) for condition in re.findall(r"_ASSERT\(\w+, ([^;]+)\);", text)]
    return result


def script_messages(name):
    """What a shell script of this name tells on standard error, its own name ahead."""
    text = markdown.read(name)
    told = re.findall(r'echo "([\w-]+: [^"$][^"]*)".*>&2', text)
    told += [f"{os.path.basename(name)}: {words}"
             for words in re.findall(r'^(?! *#).*\b(?:fail|refuse) "([^"]+)"', text, re.MULTILINE)]
    return [re.sub(r"\$\{?\w+\}?", DOTS, message) for message in told]


def must_be_listed(name, text):
    """Whether a literal reads like a message: it has words, or it heads a report of perror(3)."""
    if name.startswith(ONLY_ONE_WAY) or NO_TROUBLE.match(text):
        return False
    words = re.sub(DOTS, "", text).strip()
    return " " in words and re.search(r"[A-Za-z]{3}", words) is not None or words.endswith("()")


def listed(text):
    """The messages of the page: the code spans in the first column of its tables of messages."""
    result, in_messages = [], False
    for line in text.split("\n"):
        cells = [cell.strip() for cell in line.strip().strip("|").split(" | ")]
        if line.startswith("| Message |"):
            in_messages = True
        elif not line.startswith("|"):
            in_messages = False
        elif in_messages:
            result += re.findall(r"`([^`]+)`", cells[0])
    return result


def pieces(message):
    """The unchanging parts of a message that are long enough to be looked for."""
    return [part.strip() for part in message.split(DOTS) if len(part.strip()) >= 4]


class Listed:
    """Tells whether a page has a message: as one of those that it lists, or by all its unchanging parts."""

    def __init__(self, page):
        self._spans = " ".join(re.findall(r"`([^`\n]+)`", page))
        self._patterns = [re.compile(re.escape(message).replace(DOTS, ".*")) for message in listed(page)
                          if len(re.findall(r"\w", message)) >= 4]

    def __call__(self, text):
        return (any(pattern.fullmatch(text) for pattern in self._patterns) or
                all(piece in self._spans for piece in pieces(text)))


def is_made_of(piece, texts, most=3):
    """Whether a piece stands in one of the texts, or is made of few parts that do, printed one after the other."""
    for _ in range(most):
        length = len(piece)
        while length > 0 and not any(piece[:length].strip() in text for text in texts):
            length -= 1
        if length < 4 and any(character.isalnum() for character in piece[:length]):
            return False
        piece = piece[length:].lstrip()
        if not piece:
            return True
    return False


class Messages(unittest.TestCase):
    maxDiff = None

    def test_every_message_of_the_page_is_printed_somewhere(self):
        texts = [text for _, text in printed()]
        texts += [literal for name in NO_MESSAGES for literal in map(plain, literals(markdown.read(name)))]
        texts += [message for name in SCRIPTS for message in script_messages(name)]
        texts += [plain(literal) for name in SCRIPTS if name.endswith(".py")
                  for literal in literals(markdown.read(name))]
        messages = listed(markdown.read(PAGE))
        self.assertGreater(len(messages), 100)
        self.assertEqual([message for message in messages for piece in pieces(message) if not is_made_of(piece, texts)],
                         [])

    def test_every_message_of_the_sources_is_on_the_page(self):
        is_listed = Listed(markdown.read(PAGE))
        missing = sorted({f"{name}: {text}" for name, text in printed()
                          if must_be_listed(name, text) and not is_listed(text)})
        self.assertEqual(missing, [], f"list them in {PAGE}")

    def test_every_message_of_the_scripts_is_on_the_page(self):
        is_listed = Listed(markdown.read(PAGE))
        messages = [message for name in SCRIPTS for message in script_messages(name)]
        self.assertGreater(len(messages), 10)
        self.assertEqual([message for message in messages if not is_listed(message)], [], f"list them in {PAGE}")

    def test_literals_are_joined_and_made_plain(self):
        source = 'show_error("it is %u of "\n           "%s\\n", a, b);  // "no"\n'
        self.assertEqual([plain(literal) for literal in literals(source)], ["it is … of …"])
        self.assertTrue(must_be_listed("nodevik/x.cpp", "the bus is …"))
        self.assertFalse(must_be_listed("nodevik/x.cpp", "bus"))

    def test_an_invented_message_is_seen(self):
        texts = ["nodevik/x", "…: Assertion failed: …", "a == b", "no room left"]
        self.assertTrue(is_made_of("nodevik/x: Assertion failed: a == b", texts))
        self.assertFalse(is_made_of("nodevik/x: Assertion failed: a == c", texts))
        self.assertFalse(is_made_of("no room here", texts))

    def test_a_table_is_read_by_its_first_column(self):
        text = "| Message | Meaning |\n|---|---|\n| `a b`, `c` | `not this` |\n\n| Other |\n| `nor this` |\n"
        self.assertEqual(listed(text), ["a b", "c"])


if __name__ == "__main__":
    unittest.main()
