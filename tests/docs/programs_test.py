"""Every program of the guides compiles as it stands there, and what is said to run does and prints what is shown.

A fenced block of C++ that holds main is a program. A comment on the line before it says how it is run:

    <!-- run -->                                      alone
    <!-- run with node-simulator [OPTION ...] -->     against simulated nodes, ports 5000 (its own) and 5001 (theirs)

The next fenced block of text is then what it prints on standard output, without colours and without blanks at the end
of lines; a line "..." stands for any lines. Programs that run alone run in an empty directory.
"""

import difflib
import os
import re
import shlex
import subprocess
import tempfile
import unittest

import markdown

COMPILER = os.environ["COMPILER"]
FLAGS = shlex.split(os.environ.get("FLAGS", ""))
LIBRARY = os.environ["LIBRARY"]
NODE_SIMULATOR = os.environ["NODE_SIMULATOR"]
LIMIT_S = 300

# The ports of the pages become those that are free.
PRELUDE = """#include <cstdlib>
inline unsigned port_of(const char* name) { return static_cast<unsigned>(std::atoi(std::getenv(name))); }
"""
WITH_PORTS = """MASTER_PORT=$1 NODE_PORT=$2; export MASTER_PORT NODE_PORT; shift 2
"$@"; echo "ports $MASTER_PORT $NODE_PORT"
"""


class Program:
    """A program of a page, and the block that shows what it prints."""

    def __init__(self, page, block, shown):
        self.page, self.block, self.shown = page, block, shown
        self.name = f"{page}:{block.line}"

    def compile(self, directory):
        source, program = os.path.join(directory, "program.cpp"), os.path.join(directory, "program")
        text = re.sub(r"\b5000\b", 'port_of("MASTER_PORT")', self.block.text)
        text = re.sub(r"\b5001\b", 'port_of("NODE_PORT")', text)
        with open(source, "w", encoding="utf-8") as file:
            file.write(PRELUDE + f'#line {self.block.line + 1} "{self.page}"\n' + text)
        done = subprocess.run([COMPILER, "-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Werror", *FLAGS,
                               "-I", markdown.ROOT, source, LIBRARY, f"-Wl,-rpath,{os.path.dirname(LIBRARY)}",
                               "-pthread", "-ldl", "-o", program], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, check=False)
        return program, done

    def run(self, program, directory):
        """Runs the program as its page says; returns its plain output, with the ports of the page."""
        room = os.path.join(directory, "empty")
        os.mkdir(room)
        how = re.fullmatch(r"run(?: with node-simulator ?(.*))?", self.block.comment)
        command = [program]
        if "with" in self.block.comment:
            command = [NODE_SIMULATOR, "--listen", "0", *shlex.split(how.group(1)), "--run", "/bin/sh", "-c",
                       WITH_PORTS, "sh", "{master}", "{node}", program]
        done = subprocess.run(command, cwd=room, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True,
                              timeout=LIMIT_S, check=False)
        return self._plain(done.stdout)

    @staticmethod
    def _plain(output):
        output = re.sub(r"\033\[[0-9;?]*[A-Za-z]", "", output)
        ports = re.search(r"^ports (\d+) (\d+)\n", output, re.MULTILINE)
        if ports:
            output = output.replace(ports.group(0), "")
            output = re.sub(r"^port \d+\n", "", output, flags=re.MULTILINE)
            for port, shown in zip(ports.groups(), ("5000", "5001")):
                output = re.sub(rf"\b{port}\b", shown, output)
        return re.sub(r" +$", "", output, flags=re.MULTILINE)


def programs():
    result = []
    for page in markdown.pages():
        if not page.startswith("docs" + os.sep):
            continue
        found = markdown.blocks(markdown.read(page))
        for block, following in zip(found, found[1:] + [None]):
            if block.language == "cpp" and re.search(r"\bint main\(", block.text):
                result.append(Program(page, block, following))
    return result


def matches(shown, output):
    """Whether an output is what is shown, where a line "..." stands for any lines."""
    parts = [re.escape(part) for part in re.split(r"^\.\.\.\n", shown, flags=re.MULTILINE)]
    return re.fullmatch(r"(?:.*\n)*?".join(parts), output) is not None


class Programs(unittest.TestCase):
    maxDiff = None

    def test_every_program_compiles_and_prints_what_is_shown(self):
        found = programs()
        self.assertGreater(len(found), 10)
        for program in found:
            with self.subTest(program.name), tempfile.TemporaryDirectory() as directory:
                path, done = program.compile(directory)
                self.assertEqual(done.returncode, 0, done.stdout)
                if program.block.comment.startswith("run"):
                    self.check_output(program, program.run(path, directory))

    def check_output(self, program, output):
        self.assertEqual(program.shown.language, "text", "a block of text must follow the program")
        if not matches(program.shown.text, output):
            difference = difflib.unified_diff(program.shown.text.split("\n"), output.split("\n"), "shown", "printed",
                                              lineterm="")
            self.fail("\n".join(difference))

    def test_every_block_of_c_plus_plus_is_a_program(self):
        parts = [f"{page}:{block.line}" for page in markdown.pages() if page.startswith("docs" + os.sep)
                 for block in markdown.blocks(markdown.read(page))
                 if block.language == "cpp" and "int main(" not in block.text]
        self.assertEqual(parts, [])

    def test_a_line_of_dots_stands_for_any_lines(self):
        self.assertTrue(matches("a\n...\nb\n", "a\nx\ny\nb\n"))
        self.assertTrue(matches("a\n...\nb\n", "a\nb\n"))
        self.assertFalse(matches("a\n...\nb\n", "a\nx\nc\n"))
        self.assertFalse(matches("a\n", "a\nb\n"))


if __name__ == "__main__":
    unittest.main()
