"""The commands in script/: each tells its use, refuses what it does not understand, and stands in the README."""

import os
import re
import subprocess
import unittest

import markdown

DIRECTORY = os.path.join(markdown.ROOT, "script")
NAMES = sorted(name for name in os.listdir(DIRECTORY) if os.path.isfile(os.path.join(DIRECTORY, name)))

# What each of them does not understand.
WRONG = {"abi": (["nonsense"], ["--nonsense"], ["--store", "--store"]),
         "bench": (["nonsense"], ["canopen", "nonsense"]), "bootstrap": (["nonsense"], ["all", "test"], ["--all"]),
         "build": (["nonsense"], ["--nonsense"]), "coverage": (["nonsense"], ["--nonsense"]),
         "docs": (["nonsense"], ["--nonsense"]),
         "format": (["nonsense"], ["--nonsense"], ["--check", "--nonsense"], ["--check", "--check"]),
         "fuzz": (["nonsense"], ["1.5"], ["1", "nonsense"], [""]), "lint": (["nonsense.cpp"], ["--nonsense"]),
         "package": (["nonsense"], ["--nonsense"], ["--test", "--test"], ["--test", "nonsense"]),
         "pictures": (["nonsense"], ["--nonsense"], ["--into"], ["--into", "build", "rooms", "nonsense"]),
         "run": (["nonsense"], ["--nonsense"], ["--picture"], ["--device", "--lap"]),
         "soak": (["nonsense"], ["--nonsense"], ["1", "2"], ["panel", "master"], ["--seed"], ["--seed", "-1"]),
         "test": (["nonsense"], ["release"]), "test-devices": (["nonsense"], ["--kvm", "nonsense"], ["coverage"]),
         "test-fresh": (["nonsense"], ["--nonsense"]), "test-package": (["nonsense"], ["--nonsense"])}


def run(name, *arguments):
    return subprocess.run([os.path.join(DIRECTORY, name), *arguments], cwd="/", stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False, timeout=30)


class Scripts(unittest.TestCase):
    maxDiff = None

    def test_each_tells_its_use(self):
        for name in NAMES:
            uses = [run(name, option) for option in ("--help", "-h")]
            for done in uses:
                self.assertEqual((done.returncode, done.stderr), (0, ""), name)
                self.assertEqual(done.stdout, uses[0].stdout)
            self.assertRegex(uses[0].stdout, rf"\A[A-Z].*(?:\n.*)?\bscript/{name}\b", name)
            self.assertNotIn("shellcheck disable", uses[0].stdout)

    def test_each_refuses_what_it_does_not_understand(self):
        self.assertEqual(sorted(WRONG), NAMES)
        for name, lines in WRONG.items():
            use = run(name, "--help").stdout.split("\n")[0]
            for arguments in lines:
                done = run(name, *arguments)
                self.assertEqual((done.returncode, done.stdout), (2, ""), (name, arguments))
                self.assertTrue(done.stderr.startswith(f"{name}: "), done.stderr)
                self.assertEqual(done.stderr.split("\n")[1], use)

    def test_each_stands_in_the_readme(self):
        readme = markdown.read("README.md")
        self.assertEqual([name for name in NAMES if not re.search(rf"`?script/{name}\b(?!-)", readme)], [])


if __name__ == "__main__":
    unittest.main()
