"""Runs for a long time what must not lose, grow or hang, and judges it; see script/soak."""

import argparse
import os
import random
import shutil
import sys

from drive import process
from soaking import master, nodes, panel, record

KINDS = {"panel": panel.run, "record": record.run, "master": master.run, "nodes": nodes.run}


def parse_arguments(arguments):
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("kind", choices=sorted(KINDS))
    parser.add_argument("--artefacts", required=True, help="directory for logs and pictures; emptied first")
    parser.add_argument("--seed", type=int, help="repeats a run (default: one at random)")
    parser.add_argument("--seconds", type=float, default=120, help="how long (default 120)")
    parser.add_argument("--deeds", type=int, help="how many deeds of the operator, instead of how long")
    parser.add_argument("--kills", type=int, help="how many panels are killed (default: one for every six seconds)")
    parser.add_argument("--memory-allowance", type=int, metavar="KIB", help="allowed growth, instead of the usual one")
    parser.add_argument("--longest-gap", type=float, default=2, metavar="S",
                        help="time without a frame or a cycle that counts as a hang (default 2)")
    parser.add_argument("--panel", help="the panel's program")
    parser.add_argument("--recorder", help="vehicle-recorder")
    parser.add_argument("--witness", help="line-witness.so")
    parser.add_argument("--vehicle", help="vehicle-simulator")
    parser.add_argument("--vehicle-option", action="append", default=[], help="a further option of vehicle-simulator")
    parser.add_argument("--master", help="master-soak")
    parser.add_argument("--nodes", help="node-simulator")
    parser.add_argument("--cycles", type=int, help="how many cycles of the master, instead of how long")
    parser.add_argument("--period-ms", type=int, default=10,
                        help="from one cycle of the master to the next (default 10)")
    parser.add_argument("--patience", type=float, default=300, metavar="S",
                        help="how long the master may take beyond its time, for its warming up and for nodes that "
                             "hang, until it is given up (default 300)")
    parser.add_argument("--master-option", action="append", default=[], help="a further option of master-soak")
    parser.add_argument("--client", help="node-soak")
    parser.add_argument("--transfers", type=int, help="how many transfers with the nodes, instead of how long")
    parser.add_argument("--client-option", action="append", default=[], help="a further option of node-soak")
    options = parser.parse_args(arguments)
    if options.seed is None:
        options.seed = random.SystemRandom().randrange(1 << 31)
    return options


def main():
    options = parse_arguments(None)
    shutil.rmtree(options.artefacts, ignore_errors=True)
    os.makedirs(options.artefacts)
    print(f"soak {options.kind}: seed {options.seed}", flush=True)
    try:
        report = KINDS[options.kind](options)
    except (TimeoutError, RuntimeError, OSError) as failure:
        print(f"soak: {failure}", file=sys.stderr)
        return 1
    print(report.text(), flush=True)
    if report.problems:
        print(f"soak: failed; logs and pictures are in {options.artefacts}", file=sys.stderr)
    return 1 if report.problems else 0


if __name__ == "__main__":
    process.run_to_the_end(main)
