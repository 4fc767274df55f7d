"""Every program of the README and the guides compiles as it stands there, runs, and does what is said.

A fenced block of C++ is a program. A comment on a line before it says how it is run:

    <!-- run -->                                      alone, in an empty directory
    <!-- run with node-simulator [OPTION ...] -->     against simulated nodes, ports 5000 (its own) and 5001 (theirs)
    <!-- run with a keyboard: WORD ... -->            with a keyboard on which each key named is pressed and let go; at
                                                      the word "lamp" the next key waits until a lamp has changed
    <!-- run with CANlib -->                          with a stand-in for the vendor's library
    <!-- run with vcan0 [OPTION ...] -->              with nodes on vcan0, in the machine of script/test-devices

Its effect is checked in one or both of two ways. A block of text that follows is what it prints on standard output,
without colours and without blanks at the end of lines; a line "..." stands for any lines. And a second comment tells
frames that pass among others, in this order, as the nodes see them:

    <!-- passes: in 201 4 63 00 00 00, out 181 4 63 00 00 00 -->

A node that sends an emergency has been told something it does not understand: no program makes one do so, but for those
whose comment says that one passes (out 081 ...). Every program ends with status 0.
"""

import concurrent.futures
import difflib
import os
import re
import shlex
import socket
import struct
import subprocess
import tempfile
import unittest

import markdown

COMPILER = os.environ["COMPILER"]
FLAGS = shlex.split(os.environ.get("FLAGS", ""))
LIBRARIES = os.environ["LIBRARIES"].split(":")  # in the order of linking
NODE_SIMULATOR = os.environ["NODE_SIMULATOR"]
KEYBOARD = os.environ["KEYBOARD"]  # tests/examples/keyboardstandin.cpp
CANLIB = os.environ["CANLIB"]      # the directory of tests/nodevik/canlibstandin.cpp
IS_DEVICE_TEST = "DEVICE_TEST" in os.environ
LIMIT_S = 300

# The ports of the pages become those that are free.
PRELUDE = """#include <cstdlib>
inline unsigned port_of(const char* name) { return static_cast<unsigned>(std::atoi(std::getenv(name))); }
"""
WITH_PORTS = """MASTER_PORT=$1 NODE_PORT=$2; export MASTER_PORT NODE_PORT; shift 2
"$@"; status=$?; echo "ports $MASTER_PORT $NODE_PORT"; exit $status
"""

KEYS = {"ESC": 1, "F1": 59, "F2": 60, "F3": 61, "UP": 103, "DOWN": 108}  # linux/input-event-codes.h
INPUT_EVENT = struct.Struct("llHHi")
EV_KEY, EV_LED = 1, 17


def type_in(keyboard, words):
    """Presses the keys on the keyboard, and waits for the lamp where the words say so."""
    for word in words:
        if word == "lamp":
            while INPUT_EVENT.unpack(keyboard.recv(INPUT_EVENT.size, socket.MSG_WAITALL))[2] != EV_LED:
                pass
        else:
            for value in (1, 0):
                keyboard.sendall(INPUT_EVENT.pack(0, 0, EV_KEY, KEYS[word], value))


class Program:
    """A program of a page, how it is run, and what shows its effect."""

    def __init__(self, page, block, following):
        self.page, self.block = page, block
        self.name = f"{page}:{block.line}"
        self.way = next((comment for comment in block.comments if comment.startswith("run")), "")
        frames = [comment for comment in block.comments if comment.startswith("passes: ")]
        self.frames = [frame.strip() for line in frames for frame in line.removeprefix("passes: ").split(",")]
        self.shown = following.text if following and following.language == "text" else None

    def is_run_here(self):
        return IS_DEVICE_TEST == self.way.startswith("run with vcan0")

    def compile(self, directory):
        source, program = os.path.join(directory, "program.cpp"), os.path.join(directory, "program")
        text = self.block.text
        if self.way.startswith("run with node-simulator"):
            text = re.sub(r"\b5000\b", 'port_of("MASTER_PORT")', text)
            text = re.sub(r"\b5001\b", 'port_of("NODE_PORT")', text)
        with open(source, "w", encoding="utf-8") as file:
            file.write(PRELUDE + f'#line {self.block.line + 1} "{self.page}"\n' + text)
        # The old kind of run path holds for the dlopen(3) of every library of the process.
        run_paths = [f"-Wl,--disable-new-dtags,-rpath,{path}"
                     for path in [CANLIB, *(os.path.dirname(library) for library in LIBRARIES)]]
        return subprocess.run([COMPILER, "-std=c++17", "-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Werror", *FLAGS,
                               "-I", markdown.ROOT, source, *LIBRARIES, *run_paths, "-pthread", "-ldl", "-o", program],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)

    def run(self, directory):
        """Runs the program as its page says; returns its status, its plain output with the ports of the page, and
        the frames that passed."""
        room, program, log = (os.path.join(directory, name) for name in ("empty", "program", "log"))
        os.mkdir(room)
        run = next(run for way, run in self.WAYS.items() if self.way.startswith(way))
        done = run(self, program, room, log)
        return done.returncode, self._plain(done.stdout), self._passed(log)

    @staticmethod
    def _finish(command, room, **more):
        return subprocess.run(command, cwd=room, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True,
                              timeout=LIMIT_S, check=False, **more)

    def _alone(self, program, room, _):
        return self._finish([program], room)

    def _with_nodes(self, program, room, log):
        return self._finish([NODE_SIMULATOR, "--listen", "0", "--log", log, *shlex.split(self.way)[3:], "--run",
                             "/bin/sh", "-c", WITH_PORTS, "sh", "{master}", "{node}", program], room)

    def _with_vcan0(self, program, room, log):
        return self._finish([NODE_SIMULATOR, "--can", "vcan0", "--log", log, *shlex.split(self.way)[3:], "--run",
                             program], room)

    def _with_keyboard(self, program, room, _):
        ours, theirs = socket.socketpair()
        with ours, theirs, concurrent.futures.ThreadPoolExecutor() as pool:
            ours.settimeout(LIMIT_S)
            environment = dict(os.environ, LD_PRELOAD=KEYBOARD, KEYBOARD_DESCRIPTOR=str(theirs.fileno()))
            typing = pool.submit(type_in, ours, self.way.partition(":")[2].split())
            done = self._finish([program], room, env=environment, pass_fds=[theirs.fileno()])
            typing.result()
        return done

    WAYS = {"run with node-simulator": _with_nodes, "run with vcan0": _with_vcan0,
            "run with a keyboard:": _with_keyboard, "run with CANlib": _alone, "run": _alone}

    @staticmethod
    def _passed(log):
        """The frames of a log, "in 201 4 63 00 00 00", without their times."""
        if not os.path.exists(log):
            return []
        with open(log, encoding="utf-8") as file:
            return [" ".join(line.split()[1:]) for line in file]

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
        found = markdown.blocks(markdown.read(page))
        for block, following in zip(found, found[1:] + [None]):
            if block.language == "cpp":
                result.append(Program(page, block, following))
    return result


def matches(shown, output):
    """Whether an output is what is shown, where a line "..." stands for any lines."""
    parts = [re.escape(part) for part in re.split(r"^\.\.\.\n", shown, flags=re.MULTILINE)]
    return re.fullmatch(r"(?:.*\n)*?".join(parts), output) is not None


def in_order(wanted, frames):
    """Whether the wanted frames are among the others, in this order."""
    rest = iter(frames)
    return all(frame in rest for frame in wanted)


class Programs(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.programs = programs()
        if IS_DEVICE_TEST:
            subprocess.run(["ip", "link", "add", "vcan0", "type", "vcan"], check=True)
            subprocess.run(["ip", "link", "set", "vcan0", "up"], check=True)
            cls.addClassCleanup(subprocess.run, ["ip", "link", "del", "vcan0"], check=True)
            cls.programs = [program for program in cls.programs if program.is_run_here()]

    def test_every_program_does_what_is_shown(self):
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool, tempfile.TemporaryDirectory() as directory:
            rooms = [os.path.join(directory, str(number)) for number in range(len(self.programs))]
            for room in rooms:
                os.mkdir(room)
            compiled = list(pool.map(Program.compile, self.programs, rooms))
            for program, room, compilation in zip(self.programs, rooms, compiled):
                with self.subTest(program.name):
                    self.assertEqual(compilation.returncode, 0, compilation.stdout)
                    if program.is_run_here():
                        self.check_effect(program, *program.run(room))

    def check_effect(self, program, status, output, frames):
        self.assertEqual(status, 0, output)
        if program.shown is not None and not matches(program.shown, output):
            difference = difflib.unified_diff(program.shown.split("\n"), output.split("\n"), "shown", "printed",
                                              lineterm="")
            self.fail("\n".join(difference))
        self.assertTrue(in_order(program.frames, frames), f"{program.frames} are not among {frames[-50:]}")
        emergencies = [frame for frame in frames if re.match(r"out 0(?!80 )[89a-f][0-9a-f] ", frame)
                       and frame not in program.frames]
        self.assertEqual(emergencies, [])

    def test_every_program_is_run_and_its_effect_is_told(self):
        self.assertGreater(len(self.programs), 0 if IS_DEVICE_TEST else 20)
        for program in self.programs:
            with self.subTest(program.name):
                self.assertTrue(program.way, "no comment says how it is run")
                self.assertTrue(program.shown or program.frames or " lamp" in program.way, "nothing shows its effect")

    def test_frames_are_looked_for_in_order(self):
        self.assertTrue(in_order(["a", "c"], ["a", "b", "c"]))
        self.assertFalse(in_order(["c", "a"], ["a", "b", "c"]))
        self.assertFalse(in_order(["a", "a"], ["a", "b", "c"]))

    def test_a_line_of_dots_stands_for_any_lines(self):
        self.assertTrue(matches("a\n...\nb\n", "a\nx\ny\nb\n"))
        self.assertTrue(matches("a\n...\nb\n", "a\nb\n"))
        self.assertFalse(matches("a\n...\nb\n", "a\nx\nc\n"))
        self.assertFalse(matches("a\n", "a\nb\n"))


if __name__ == "__main__":
    unittest.main()
