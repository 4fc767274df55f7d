"""A recorded run: what the panel asked of the system at its serial line, and what the vehicle saw, on one clock."""

import os
import re
import stat

LINE = "/dev/ttyS0"
_WRAPPER = """#!/bin/sh
exec strace -f --seccomp-bpf -ttt -y -e trace=openat,close,ioctl,read,write -o '{trace}' '{program}'
"""
_CALL = re.compile(r"^(\d+) +(\d+\.\d+) (\w+)\((.*)$")


class Moment:
    """One thing that happened: when (in seconds), what ("open", "settings", "read", "write", "close"), how much."""

    def __init__(self, time_s, what, count=0, data="", thread=0):
        self.time_s, self.what, self.count, self.data, self.thread = time_s, what, count, data, thread


def wrapped(program, directory):
    """A program that runs another one under strace(1); returns its path and that of the trace."""
    path, trace = os.path.join(directory, "traced"), os.path.join(directory, "trace")
    with open(path, "w", encoding="utf-8") as file:
        file.write(_WRAPPER.format(trace=trace, program=os.path.abspath(program)))
    os.chmod(path, os.stat(path).st_mode | stat.S_IXUSR)
    return path, trace


def read_trace(path, device=LINE):
    """The calls on the serial line, in order of time; a preloaded library lets the device be seen behind its name."""
    moments, unfinished = [], {}
    with open(path, encoding="utf-8", errors="replace") as file:
        for text in file:
            found = _CALL.match(text)
            if not found:
                resumed = re.match(r"^(\d+) +\d+\.\d+ <\.\.\. (\w+) resumed>(.*)$", text)
                if resumed and resumed.group(1) in unfinished:
                    thread, time_s, call, rest = unfinished.pop(resumed.group(1))
                    _add(moments, (LINE, device), thread, time_s, call, rest + resumed.group(3))
                continue
            thread, time_s, call, rest = found.groups()
            if "<unfinished ...>" in rest:
                unfinished[thread] = (thread, time_s, call, rest.replace("<unfinished ...>", ""))
            else:
                _add(moments, (LINE, device), thread, time_s, call, rest)
    return sorted(moments, key=lambda moment: moment.time_s)


def _add(moments, names, thread, time_s, call, rest):
    if not any(re.search(re.escape(name) + r"\b", rest) for name in names):
        return
    result = re.search(r"= (-?\d+)", rest)
    count = int(result.group(1)) if result else -1
    what = {"openat": "open", "ioctl": "settings" if "TCSETS" in rest else ""}.get(call, call)
    if what and count >= 0:
        data = re.search(r'"((?:[^"\\]|\\.)*)"', rest)
        moments.append(Moment(float(time_s), what, count, data.group(1) if data else "", int(thread)))


def vehicle_moments(events, panel_moments):
    """The vehicle's log on the panel's clock: its quickest frame is taken to have arrived when it was written."""
    received = [event for event in events if event.what == "received"]
    written = [moment for moment in panel_moments if moment.what == "write"]
    shift = max(moment.time_s - event.time_s for moment, event in zip(written, received))
    result = []
    for event in events:
        count = int(event.words[0]) if event.what == "replied" else 4 if event.what == "received" else 0
        data = " ".join(event.words[:4]) if event.what == "received" else ""
        result.append(Moment(event.time_s + shift, event.what, count, data))
    return result
