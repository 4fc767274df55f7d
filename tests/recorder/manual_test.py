"""The manual page of vehicle-recorder and its completion against the program's own help: commands and options.

Run by ctest; by hand: VEHICLE_RECORDER=... python3 manual_test.py
"""

import os
import re
import subprocess
import tempfile
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
RECORDER = os.environ["VEHICLE_RECORDER"]
PAGE = os.path.join(ROOT, "packaging", "man", "vehicle-recorder.1.in")
COMPLETION = os.path.join(ROOT, "recorder", "vehicle-recorder.bash")

# Prints what bash offers for the last of the words.
OFFERED = """
. "$1"
shift
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
compopt() { :; }
_vehicle_recorder "$1"
printf '%s\\n' "${COMPREPLY[@]}"
"""


def told(*arguments):
    return subprocess.run([RECORDER, *arguments, "--help"], check=True, capture_output=True, text=True).stdout


def commands():
    return re.findall(r"^  ([a-z]+) ", told().partition("Subcommands:")[2], re.MULTILINE)


def options(*arguments):
    return re.findall(r"^ +(?:-[a-z],)?(--[a-z-]+)", told(*arguments), re.MULTILINE)


def offered(*words):
    return subprocess.run(["bash", "-c", OFFERED, "bash", COMPLETION, RECORDER, *words], check=True,
                          capture_output=True, text=True).stdout.split()


class Manual(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with open(PAGE, encoding="utf-8") as file:
            cls.page = file.read().replace("\\-", "-")

    def test_there_are_commands(self):
        self.assertIn("report", commands())

    def test_the_page_tells_every_command(self):
        for command in commands():
            with self.subTest(command):
                self.assertIn(f"\n.TP\n.B {command}\n", self.page)
                self.assertIn(f"\n.B @NAME@ {command}\n", self.page)

    def test_the_page_tells_every_option(self):
        described = set(re.findall(r"\.TP\n\.[BIR]+ .*?(--[a-z-]+)", self.page))
        for command in commands():
            for option in options(command):
                with self.subTest(command=command, option=option):
                    self.assertIn(option, described)


class Completion(unittest.TestCase):
    def test_it_offers_the_commands(self):
        self.assertEqual(sorted(offered("")), sorted(["--help", "--version", *commands()]))
        self.assertEqual(offered("repo"), ["report"])
        self.assertEqual(offered("--ver"), ["--version"])

    def test_it_offers_the_options_of_each_command(self):
        for command in commands():
            with self.subTest(command):
                self.assertEqual(sorted(offered(command, "--")), sorted(options(command)))
        self.assertEqual(offered("report", "--ht"), ["--html"])

    def test_it_offers_files(self):
        with tempfile.TemporaryDirectory() as directory:
            with open(os.path.join(directory, "drive.recording"), "w", encoding="utf-8"):
                pass
            self.assertEqual(offered("report", directory + "/dr"), [directory + "/drive.recording"])

    def test_it_offers_programs_behind_a_lone_dash(self):
        self.assertIn("env", offered("run", "--", "env"))
        with tempfile.TemporaryDirectory() as directory:
            os.mkdir(os.path.join(directory, "sub"))
            self.assertEqual(offered("run", "--", "env", directory + "/s"), [directory + "/sub"])


if __name__ == "__main__":
    unittest.main()
