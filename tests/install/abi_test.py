"""What script/abi lets a version do: compares small libraries, each with the first one."""

import os
import subprocess
import tempfile
import unittest

LIB = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "script", "lib")
COMPILER = os.environ["COMPILER"]

HEADER = """
#define SHOWN [[gnu::visibility("default")]]
struct Pair { int a; int b; };
class SHOWN Meter {
public:
    Meter();
    virtual ~Meter();
    virtual int read(Pair& pair);
    int count() const;
private:
    [[gnu::visibility("hidden")]] void helper();
    int value = 0;
};
SHOWN int measure(int channel);
"""
SOURCE = """
#include "header.h"
Meter::Meter() { helper(); }
Meter::~Meter() = default;
int Meter::read(Pair& pair) { return pair.a; }
int Meter::count() const { return value; }
void Meter::helper() {}
int measure(int channel) { return channel; }
"""


class Abi(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name
        self.released = self.dump("released", HEADER, SOURCE)

    def dump(self, name, header, source):
        """Builds a library from the texts and returns the file that holds its interface."""
        room = os.path.join(self.directory, name)
        os.mkdir(room)
        for file, text in (("header.h", header), ("source.cpp", source)):
            with open(os.path.join(room, file), "w", encoding="utf-8") as out:
                out.write(text)
        subprocess.run([COMPILER, "-g", "-std=c++17", "-shared", "-fPIC", "-fvisibility=hidden", "-o", "library.so",
                        "source.cpp"], cwd=room, check=True)
        subprocess.run([os.path.join(LIB, "abi-dump"), "library.so", ".", "dump"], cwd=room, check=True)
        return os.path.join(room, "dump")

    def compare(self, new, dump):
        """The verdict on a version that follows 1.2.3: the last line that is printed, and whether it passes."""
        done = subprocess.run([os.path.join(LIB, "abi-compare"), "1.2.3", self.released, new, dump],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        return done.stdout.splitlines()[-1], done.returncode

    def assert_needs_a_major_version(self, header, source):
        dump = self.dump("changed", header, source)
        for version in ("1.2.3", "1.2.4", "1.3.0"):
            self.assertEqual(self.compare(version, dump),
                             ("abi-compare: what programs of version 1.2.3 use has gone or changed: "
                              "version 2.0.0 is due", 1))
        self.assertEqual(self.compare("2.0.0", dump), ("version 2.0.0 is not bound to the interface of 1.2.3", 0))

    def test_the_same_may_be_any_version(self):
        dump = self.dump("same", HEADER, SOURCE)
        for version in ("1.2.3", "1.2.4", "1.3.0"):
            self.assertEqual(self.compare(version, dump), (f"version {version} keeps the interface of 1.2.3", 0))

    def test_hidden_functions_may_come_and_change(self):
        dump = self.dump("hidden", HEADER.replace("void helper();", "void helper(int more = 0);"),
                         SOURCE.replace("helper() {}", "helper(int) {}") + "int other() { return 1; }\n")
        self.assertEqual(self.compare("1.2.4", dump), ("version 1.2.4 keeps the interface of 1.2.3", 0))

    def test_an_addition_needs_a_minor_version(self):
        dump = self.dump("added", HEADER + "SHOWN int weigh();\n", SOURCE + "int weigh() { return 1; }\n")
        self.assertEqual(self.compare("1.2.4", dump),
                         ("abi-compare: there is more than in version 1.2.3: version 1.3.0 is due", 1))
        self.assertEqual(self.compare("1.3.0", dump), ("version 1.3.0 keeps the interface of 1.2.3", 0))

    def test_a_function_that_goes_needs_a_major_version(self):
        self.assert_needs_a_major_version(HEADER.replace("SHOWN int measure(int channel);", ""),
                                          SOURCE.replace("int measure(int channel) { return channel; }", ""))

    def test_another_parameter_needs_a_major_version(self):
        self.assert_needs_a_major_version(HEADER.replace("int channel", "long channel"),
                                          SOURCE.replace("int channel", "long channel"))

    def test_a_class_that_grows_needs_a_major_version(self):
        self.assert_needs_a_major_version(HEADER.replace("int value = 0;", "int value = 0; double more = 0;"), SOURCE)

    def test_a_structure_that_a_caller_fills_needs_a_major_version_to_grow(self):
        self.assert_needs_a_major_version(HEADER.replace("int b;", "int b; int c;"), SOURCE)

    def test_a_new_virtual_function_needs_a_major_version(self):
        self.assert_needs_a_major_version(HEADER.replace("virtual int read", "virtual void first() {} virtual int read"),
                                          SOURCE)

    def test_a_dump_that_cannot_be_read_is_no_verdict(self):
        self.assertEqual(self.compare("2.0.0", "/nowhere")[1], 0)
        self.assertEqual(self.compare("1.3.0", "/nowhere")[1], 2)


if __name__ == "__main__":
    unittest.main()
