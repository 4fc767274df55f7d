"""A shared library shows what its installed headers declare for its users, all of it and nothing else.

LIBRARY names the shared library, HEADERS its installed headers, separated by colons, and BASE_HEADERS those of the
libraries that it builds on: what is inline there may be exported once more.
"""

import os
import re
import subprocess
import unittest

FOR_A_CLASS = re.compile(r"(?:vtable|typeinfo|typeinfo name|guard variable) for |(?:non-virtual|virtual) thunk to ")
CLASS_HEAD = re.compile(r"(?:class|struct|union)\s+(?:NODEVIK_EXPORT\s+)?(\w+)")
NOT_LINKED_AGAINST = re.compile(r"(?:using|typedef|friend|template|static_assert|enum|inline|constexpr)\b")


class Header:
    """The qualified names of a header's classes, and of its functions and variables: those that a program links
    against, those of them that are private to a class, and inline variables, which may be exported."""

    def __init__(self, text):
        text = re.sub(r'"(?:\\.|[^"\\])*"', '""', text)
        text = re.sub(r"//[^\n]*|/\*.*?\*/", " ", text, flags=re.DOTALL)
        self.rest = re.sub(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", " ", text, flags=re.MULTILINE)
        self.classes, self.shown, self.private, self.inline = set(), set(), set(), set()
        self.read_scope("", shown=True)

    def read_scope(self, scope, shown):
        """Reads declarations up to the end of the scope."""
        while found := re.search(r"[;{}]|\b(?:public|protected|private)\s*:(?!:)", self.rest):
            head, end = " ".join(self.rest[: found.start()].split()), found.group()
            self.rest = self.rest[found.end() :]
            if end == "}":
                return
            if end[0] == "p":
                shown = not end.startswith("private")
            elif end == ";":
                self.note(scope, head, shown)
            elif head.count("(") > head.count(")"):  # a default argument
                self.skip_braces()
                self.rest = head + self.rest
            elif (opened := CLASS_HEAD.match(head)) and "(" not in head:
                inner = scope + opened.group(1)
                self.classes.add(inner)
                self.read_scope(inner + "::", shown=shown and not head.startswith("class"))
                self.rest = self.rest.partition(";")[2]
            elif opened := re.match(r"namespace(?: (\w+))?$", head):
                self.read_scope(f"{scope}{opened.group(1)}::", shown=True)
            else:
                self.skip_braces()
                if not self.is_function(head):  # the braces have begun a variable's value, or held an enumeration
                    initialized, _, self.rest = self.rest.partition(";")
                    self.note(scope, head, shown)

    def skip_braces(self):
        depth = 1
        while depth:
            brace = re.search(r"[{}]", self.rest)
            depth += 1 if brace.group() == "{" else -1
            self.rest = self.rest[brace.end() :]

    @staticmethod
    def is_function(head):
        before = re.sub(r"\[\[.*?\]\]", "", head).partition("(")
        return bool(before[1]) and ("=" not in before[0] or "operator" in before[0])

    def note(self, scope, head, shown):
        """Takes the name that a declaration introduces, unless nobody has to link against it."""
        head = re.sub(r"\[\[.*?\]\]|\b(?:NODEVIK_EXPORT|NODEVIK_LOCAL|virtual|explicit)\b", "", head).strip()
        while head != (head := re.sub(r"<[^<>]*>", "", head)):  # arguments of templates
            pass
        is_data = not self.is_function(head)
        if (NOT_LINKED_AGAINST.match(head) and not is_data) or re.search(r"= ?(?:0|delete|default)$", head):
            return
        if not is_data:
            name = re.search(r"(operator ?[^\w\s(]+|operator [\w ]+|~?\w+)\s*\(", head)
            if name is None or head[name.end() :].lstrip().startswith("*"):
                return  # a pointer to a function
            name = name.group(1)
        else:
            words = head.partition("=")[0].strip()
            if not re.match(r"(?:static|extern|inline static) ", words):
                return
            name = re.search(r"(\w+)\s*(?:\[.*\])?$", words).group(1)
            if "inline " in words or "constexpr " in words:
                self.inline.add(scope + name)
                return
        (self.shown if shown else self.private).add(scope + name.replace(" ", ""))


def exported():
    """The names that the library exports, without parameters."""
    lines = subprocess.run(["nm", "--dynamic", "--defined-only", "--demangle", os.environ["LIBRARY"]],
                           check=True, capture_output=True, text=True).stdout.splitlines()
    return [line.split(maxsplit=2)[2] for line in lines]


def headers(variable):
    return [path for path in os.environ[variable].split(":") if path]


def plain(symbol):
    return re.sub(r"\[abi:\w+\]", "", FOR_A_CLASS.sub("", symbol).partition("(")[0])


class Exports(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.classes, cls.shown, cls.private, cls.inline = set(), set(), set(), set()
        for path in headers("HEADERS") + headers("BASE_HEADERS"):
            with open(path, encoding="utf-8") as file:
                header = Header(file.read())
            cls.classes |= header.classes
            cls.inline |= header.inline
            if path in headers("HEADERS"):
                cls.shown |= header.shown
                cls.private |= header.private
        cls.symbols = exported()

    def test_the_headers_are_understood(self):
        self.assertTrue(self.shown)

    def test_what_the_headers_declare_can_be_linked_against(self):
        self.assertEqual(sorted(self.shown - {plain(symbol) for symbol in self.symbols}), [])

    def test_nothing_else_is_exported(self):
        made = {name + "::" + tilde + name.rpartition("::")[2] for name in self.classes for tilde in ("", "~")}
        declared = self.shown | self.private | self.inline | made
        others = [symbol for symbol in self.symbols if plain(symbol) not in declared
                  and not (FOR_A_CLASS.match(symbol) and plain(symbol) in self.classes)]
        self.assertEqual(others, [])

    def test_what_is_private_is_not_exported(self):
        self.assertEqual([symbol for symbol in self.symbols if plain(symbol) in self.private - self.shown], [])


class Reading(unittest.TestCase):
    """What the test takes out of a header."""

    TEXT = """
        #define A(x) \\
            f(x);
        extern NODEVIK_EXPORT int counter;  // not; this(
        [[noreturn]] void ends(const char* text);
        struct Plain { int value = f(1); };
        inline int doubled(int x) { return 2 * x; }
        template <typename T> void any(T t);
        namespace room { void inside(); }
        class NODEVIK_EXPORT Thing : public Base {
        public:
            enum kind { one, two };
            Thing();
            ~Thing() override;
            Thing(const Thing&) = delete;
            Thing& operator=(const Thing& other);
            int get() const { return a ? b : c; }
            virtual void pure() = 0;
            void (*callback)(int) = nullptr;
            static int shared[2];
            inline static std::vector<int> common;
            int values[2]{};
        protected:
            void inherited(int a = sizeof(int));
            void listed(std::vector<int> values = {}, int more = 1);
            std::function<void()> hook{};
            std::function<void(int)> other;
        private:
            void hidden();
            static constexpr int limit = f(2);
        };
    """

    def test_names(self):
        header = Header(self.TEXT)
        self.assertEqual(header.classes, {"Plain", "Thing"})
        self.assertEqual(header.shown, {"counter", "ends", "room::inside", "Thing::Thing", "Thing::~Thing",
                                        "Thing::operator=", "Thing::shared", "Thing::inherited", "Thing::listed"})
        self.assertEqual(header.private, {"Thing::hidden"})
        self.assertEqual(header.inline, {"Thing::common", "Thing::limit"})


if __name__ == "__main__":
    unittest.main()
