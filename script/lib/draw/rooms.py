"""The rooms of the tree and who includes whom, from the includes as they stand in the sources."""

import collections
import os
import re

ROOMS = (
    ("the application", "", "main, panel, link to the vehicle, terminal window"),
    ("designer/", "designer", "the gauges in Qt Designer"),
    ("widgets/", "widgets", "the drawn gauges"),
    ("nodevik/", "nodevik", "the fieldbus library"),
    ("nodevik/util/", "nodevik/util", "the Linux utilities"),
    ("nodevik/recording/", "nodevik/recording", "what passed on a bus, kept and played again"),
    ("nodevik/nodes/", "nodevik/nodes", "the nodes of a bus: described, set up, asked, watched"),
    ("program/", "program", "what the programs beside the panel share"),
    ("vehicle/", "vehicle", "what byte is what on the vehicle's line"),
    ("recorder/", "recorder", "the vehicle's black box"),
    ("simulator/", "simulator", "what the simulators share"),
    ("simulator/vehicle/", "simulator/vehicle", "the vehicle's end of the serial line"),
    ("simulator/node/", "simulator/node", "CANopen nodes behind UDP or on a CAN interface"),
    ("tools/", "tools", "one command for a bus"),
    ("tools/plot_view/", "tools/plot_view", "the plotting window"),
    ("examples/", "examples", "short programs that use the library"),
    ("docs/gallery/", "docs/gallery", "what the guides' pictures need"),
)
_INCLUDE = re.compile(r'^#include ([<"])([^">]+)[">]', re.MULTILINE)
_PROMOTED = re.compile(r"<header>([^<]+)</header>")
_QT = re.compile(r"^Q[A-Za-z]")
_LINUX = re.compile(r"\.h$")


def room_of(path):
    """The room that a file belongs to, by the longest matching directory; None for what is no room."""
    directory = os.path.dirname(path)
    names = [room[1] for room in ROOMS]
    if directory == "" or directory in names:
        return directory
    return next((name for name in names if name and directory.startswith(name + "/")), None)


def files_of(root):
    """The sources of all rooms, relative to the root."""
    found = []
    for _, room, _ in ROOMS:
        for directory, below, names in os.walk(os.path.join(root, room)):
            if room in ("", "nodevik", "tools"):
                below.clear()
            for name in names:
                if name.endswith((".h", ".cpp", ".ui")):
                    found.append(os.path.relpath(os.path.join(directory, name), root))
    return sorted(found)


def edges_of(root):
    """(room, room, "Qt" or "Linux") -> number of includes from the one into the other, those of forms too."""
    edges = collections.Counter()
    for path in files_of(root):
        with open(os.path.join(root, path), encoding="utf-8") as file:
            text = file.read()
        here = room_of(path)
        headers = _INCLUDE.findall(text)
        if path.endswith(".ui"):
            headers += [('"', header) for header in _PROMOTED.findall(text)]
        for there in (_where(kind, header) for kind, header in headers):
            if there is not None and there != here:
                edges[here, there] += 1
    return edges


def _where(kind, header):
    """What an include leads to; None for the standard library and the code that the build makes of a form."""
    if kind == "<":
        return "Qt" if _QT.match(header) else "Linux" if _LINUX.search(header) else None
    return None if header.startswith("ui_") else room_of(header)


def dot(root):
    """The picture in the language of graphviz: an arrow from each room to those that it includes."""
    lines = ["digraph rooms {",
             '    graph [rankdir=TB, nodesep=0.4, ranksep=0.55, fontname="DejaVu Sans", tooltip="Rooms"];',
             '    node [shape=box, style="rounded,filled", fillcolor="#fff7ed", color="#c2410c", '
             'fontname="DejaVu Sans", fontsize=11, margin="0.2,0.1"];',
             '    edge [color="#6b7280"];']
    for title, room, words in ROOMS:
        lines.append(f'    "{room}" [label="{title}\\n{words}"];')
    for name, words in (("Qt", "Qt 6 Widgets"), ("Linux", "Linux and C: termios, sockets, timers, threads, ...")):
        lines.append(f'    "{name}" [label="{words}", fillcolor="#f3f4f6", color="#6b7280"];')
    lines.append('    {rank=sink; "Qt"; "Linux";}')
    for here, there in sorted(edges_of(root)):
        upwards = there != "" and here.startswith(there + "/")
        lines.append(f'    "{here}" -> "{there}"{" [constraint=false, style=dashed]" if upwards else ""};')
    return "\n".join(lines + ["}", ""])
