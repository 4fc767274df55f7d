"""Every session of the guides with the command nodevik prints what is shown, on simulated nodes.

A fenced block of the language "console" is a session: lines "$ COMMAND", each followed by what it prints, standard
error included. A comment on a line before the first block of a page starts the bus on which all of its commands run,
one after the other and in one directory, up to the next such comment:

    <!-- on a bus of node-simulator --nodes 5 --heartbeat 1000, with io.eds -->

The file io.eds is then the simulated node's own description. What a comment `<!-- before: COMMAND -->` says is run
before the block, as what others have done. The bus of a page is can0, or what a command begins with, as in "nodevik
--can vcan0 ..."; that of the test is UDP.

Blanks count as one, and a line "..." stands for any lines. Times of the day, fractions and what a comment
`<!-- varies: REGULAR EXPRESSION -->` before a block matches may be others than shown. Every command ends with status 0,
but for one that "$ echo $?" asks about.
"""

import contextlib
import difflib
import os
import re
import shlex
import shutil
import socket
import subprocess
import tempfile
import unittest

import markdown

NODEVIK = os.environ["NODEVIK"]
NODE_SIMULATOR = os.environ["NODE_SIMULATOR"]
DESCRIPTION = os.path.join(markdown.ROOT, "simulator", "node", "node-simulator.eds")
LIMIT_S = 120
ECHO_STATUS = "echo $?"

# A program nodevik that works on the bus of the test, also where the command line names another one.
WRAPPER = """#!/bin/sh
[ "$1" != --can ] || shift 2
exec {nodevik} --udp 127.0.0.1:{node},{local} "$@"
"""
VARIES = r"\d\d:\d\d:\d\d\.\d+|\d+\.\d+"


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as own:
        own.bind(("127.0.0.1", 0))
        return own.getsockname()[1]


@contextlib.contextmanager
def simulated_bus(options, directory):
    """A running bus; gives the environment in which the program nodevik is on it."""
    local = free_port()
    simulator = subprocess.Popen([NODE_SIMULATOR, "--listen", "0", "--peer", f"127.0.0.1:{local}", *options],
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    with simulator:
        try:
            port = simulator.stdout.readline().split()[1]
            programs = os.path.join(directory, "programs")
            os.mkdir(programs)
            wrapper = os.path.join(programs, "nodevik")
            with open(wrapper, "w", encoding="utf-8") as file:
                file.write(WRAPPER.format(nodevik=shlex.quote(NODEVIK), node=port, local=local))
            os.chmod(wrapper, 0o755)
            yield {**os.environ, "PATH": programs + os.pathsep + os.environ["PATH"], "TZ": "UTC"}
        finally:
            simulator.terminate()


class Session:
    """A block: its commands, and what each of them prints."""

    def __init__(self, page, block):
        self.page, self.block = page, block
        self.bus = next((comment for comment in block.comments if comment.startswith("on a bus of ")), None)
        self.varying = [comment.removeprefix("varies: ") for comment in block.comments
                        if comment.startswith("varies: ")]
        self.preparation = next((comment.removeprefix("before: ") for comment in block.comments
                                 if comment.startswith("before: ")), None)
        parts = re.split(r"^\$ (.*)\n", block.text, flags=re.MULTILINE)
        self.before = parts[0]
        self.commands = list(zip(parts[1::2], parts[2::2]))

    def plain(self, text):
        text = re.sub(r"\budp\b", "can0", text)
        text = re.sub("|".join([VARIES, *self.varying]), "#", text)
        return "".join(re.sub(r"[ \t]+", " ", line).strip() + "\n" for line in text.splitlines())

    def prints(self, shown, printed):
        parts = [re.escape(part) for part in re.split(r"^\.\.\.\n", self.plain(shown), flags=re.MULTILINE)]
        return re.fullmatch(r"(?:.*\n)*?".join(parts), self.plain(printed)) is not None

    @staticmethod
    def execute(command, room, environment):
        return subprocess.run(["/bin/sh", "-c", command], cwd=room, env=environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, timeout=LIMIT_S)

    def run(self, room, environment):
        """Runs the commands; gives each with what is shown, what it prints and whether its end is as it should be."""
        if self.preparation:
            self.execute(self.preparation, room, environment).check_returncode()
        status = 0
        for number, (command, shown) in enumerate(self.commands):
            asked = number + 1 < len(self.commands) and self.commands[number + 1][0] == ECHO_STATUS
            if command == ECHO_STATUS:
                yield command, shown, f"{status}\n", True
                continue
            done = self.execute(command, room, environment)
            status = done.returncode
            yield command, shown, done.stdout, asked or status == 0


def sessions(page, text):
    return [Session(page, block) for block in markdown.blocks(text) if block.language == "console"]


class Sessions(unittest.TestCase):
    maxDiff = None

    def test_every_session_prints_what_is_shown(self):
        count = 0
        for page in markdown.pages():
            found = sessions(page, markdown.read(page))
            while found:
                later = next((i for i, session in enumerate(found) if i > 0 and session.bus), len(found))
                self.check_bus(found[:later])
                count += later
                found = found[later:]
        self.assertGreater(count, 5)

    def check_bus(self, found):
        self.assertTrue(found[0].bus, f"{found[0].page}:{found[0].block.line}: no comment says on which bus")
        options, _, file = found[0].bus.removeprefix("on a bus of node-simulator").partition(", with ")
        with tempfile.TemporaryDirectory() as directory:
            room = os.path.join(directory, "room")
            os.mkdir(room)
            if file:
                shutil.copyfile(DESCRIPTION, os.path.join(room, file))
            with simulated_bus(shlex.split(options), directory) as environment:
                for session in found:
                    for command, shown, printed, ended_well in session.run(room, environment):
                        with self.subTest(f"{session.page}:{session.block.line}", command=command):
                            self.check_effect(session, shown, printed, ended_well)

    def check_effect(self, session, shown, printed, ended_well):
        self.assertTrue(ended_well, printed)
        self.assertEqual(session.before, "")
        if not session.prints(shown, printed):
            self.fail("\n".join(difflib.unified_diff(shown.split("\n"), printed.split("\n"), "shown", "printed",
                                                     lineterm="")))

    def test_a_difference_is_seen(self):
        text = "<!-- varies: \\d+ frames -->\n```console\n$ a\n12:00:00.5  x  7\n...\n7 frames\n```\n"
        session, = sessions("page", text)
        (_, shown), = session.commands
        self.assertTrue(session.prints(shown, "13:01:02.75 x 7\n8 frames\n"))
        self.assertTrue(session.prints(shown, "13:01:02.75 x 7\nmore\n8 frames\n"))
        self.assertFalse(session.prints(shown, "13:01:02.75 x 8\n8 frames\n"))
        self.assertFalse(session.prints(shown, "13:01:02.75 x 7\n8 frames\nmore\n"))


if __name__ == "__main__":
    unittest.main()
