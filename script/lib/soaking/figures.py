"""The figures of a long run: where they come from, how they are judged, how they are printed."""

import os


class Tail:
    """A text file that grows: each call brings the lines that have been completed since the call before."""

    def __init__(self, path):
        self._path = path
        self._file = None
        self._rest = ""

    def lines(self):
        if self._file is None:
            if not os.path.exists(self._path):
                return []
            self._file = open(self._path)
        lines = (self._rest + self._file.read()).split("\n")
        self._rest = lines.pop()
        return lines

    def close(self):
        if self._file is not None:
            self._file.close()


class Footprint:
    """What a process holds: resident memory in KiB, and the number of its open descriptors.

    The memory is that of the process itself and of its files (RssAnon and RssFile of proc(5)). What it shares with the
    screen is left out: that is the picture of its window, and as large as the window was when last drawn.
    """

    def __init__(self, memory_kib, descriptors):
        self.memory_kib = memory_kib
        self.descriptors = descriptors

    @classmethod
    def of(cls, pid):
        with open(f"/proc/{pid}/status") as status:
            memory_kib = sum(int(line.split()[1]) for line in status if line.startswith(("RssAnon:", "RssFile:")))
        return cls(memory_kib, len(os.listdir(f"/proc/{pid}/fd")))


def growth(start, end, allowance_kib):
    """What has grown between two footprints beyond what is allowed, in words; descriptors must not grow at all."""
    problems = []
    if end.memory_kib - start.memory_kib > allowance_kib:
        problems.append(f"resident memory grew by {end.memory_kib - start.memory_kib} KiB, from {start.memory_kib} to "
                        f"{end.memory_kib}; {allowance_kib} KiB are allowed")
    if end.descriptors > start.descriptors:
        problems.append(f"open descriptors grew from {start.descriptors} to {end.descriptors}")
    return problems


class Report:
    """Named figures in the order in which they are to be read, and what is wrong."""

    def __init__(self, title):
        self._title = title
        self._rows = []
        self.problems = []

    def add(self, name, value, unit=""):
        self._rows.append((name, value if isinstance(value, str) else f"{value:,}", unit))

    def add_footprints(self, start, end):
        self.add("resident memory after warming up", start.memory_kib, "KiB")
        self.add("resident memory at the end", end.memory_kib, "KiB")
        self.add("open descriptors after warming up", start.descriptors)
        self.add("open descriptors at the end", end.descriptors)

    def text(self):
        width = max((len(name) for name, _, _ in self._rows), default=0)
        figures = max((len(value) for _, value, _ in self._rows), default=0)
        lines = [self._title]
        lines += [f"  {name:{width}}  {value:>{figures}} {unit}".rstrip() for name, value, unit in self._rows]
        lines += ["  FAIL: " + problem for problem in self.problems] or ["  nothing lost, nothing grown, nothing hung"]
        return "\n".join(lines)
