"""The threads of the running panel, who owns which data, and what crosses between them."""

import os


def names(pid):
    """Names of the threads of a process as the kernel knows them, that of the process's own first."""
    others = sorted(int(task) for task in os.listdir(f"/proc/{pid}/task") if int(task) != pid)
    result = []
    for task in [pid] + others:
        with open(f"/proc/{pid}/task/{task}/comm", encoding="utf-8") as file:
            result.append(file.read().strip())
    return result


_PICTURE = """digraph threads {{
    graph [rankdir=TB, nodesep=0.35, ranksep=0.7, fontname="DejaVu Sans", fontsize=12];
    node [shape=box, style="rounded,filled", fillcolor="#ffffff", color="#6b7280", fontname="DejaVu Sans", fontsize=10,
          margin="0.15,0.08"];
    edge [color="#6b7280", fontname="DejaVu Sans", fontsize=9, fontcolor="#374151"];
    subgraph cluster_gui {{
        label="GUI thread (\\"{gui}\\")"; labeljust=l; style="rounded,filled"; fillcolor="#f5f3ff"; color="#7c3aed";
        timer [label="timer of 100 ms"];
        widgets [label="the window: widgets,\\nset-points, lamps"];
        slots [label="slots of the link: AvaaPortti, SuljePortti, ReceiveData, MoottoriOn"];
        timer -> slots [label=" set-points"];
        widgets -> slots [label=" direct calls: open, close, motor"];
    }}
    subgraph cluster_shared {{
        style="rounded,filled"; fillcolor="#f3f4f6"; color="#6b7280";
        shared [label="shared by both,\\neach part atomic", shape=plaintext, style="", fontsize=12, margin=0];
        frame [label="command frame,\\nfour bytes"];
        flags [label="period and flags:\\nstart, stop, at the line"];
        fd [label="descriptor\\nof the line"];
    }}
    subgraph cluster_link {{
        style="rounded,filled"; fillcolor="#fff7ed"; color="#c2410c";
        link [label="link thread\\n(\\"{link}\\")", shape=plaintext, style="", fontsize=12, margin=0];
        cycle [label="cycle: read into the receive buffer, wait 10 ms, report, send, pause"];
    }}
    shared -> link [style=invis];
    slots -> frame [label=" stores"];
    slots -> flags [label=" sets, looks at"];
    slots -> fd [label=" opens, closes"];
    frame -> cycle [label=" copied once per frame"];
    flags -> cycle [dir=both, label=" looks at, sets"];
    fd -> cycle [label=" reads, writes"];
    cycle -> widgets [label=" queued signals:\\n telemetry and count,\\n \\"frame sent\\", texts", color="#c2410c",
                      constraint=false];
    {others}
}}
"""
_OTHERS = """others [label="not ours, made by the window system's library: {names}", shape=plaintext, style="",
            fontcolor="#6b7280"];
    cycle -> others [style=invis];"""


def dot(thread_names):
    """The picture, with the threads' names as they were found; Qt names a thread after its class."""
    link = next(name for name in thread_names if name.startswith("ControlThread"))
    rest = sorted({name for name in thread_names[1:] if name != link})
    others = _OTHERS.format(names=", ".join(rest)) if rest else ""
    return _PICTURE.format(gui=thread_names[0], link=link, others=others)
