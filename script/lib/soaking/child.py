"""A long run in a program of its own, which leaves its figures in a file."""

import os
import subprocess
import time

from drive import process

from .figures import Footprint, Report, growth

# The library takes no memory after construction, and the run itself keeps what it has. What is left are pages of the
# program and of the C library that are touched for the first time only after the warming up.
MEMORY_ALLOWANCE_KIB = 256


def read_figures(path):
    """The figures that the run left, by name, and its problems."""
    figures, problems = {}, []
    if not os.path.exists(path):
        return figures, problems
    with open(path) as file:
        for line in file:
            name, value = line.rstrip("\n").split(" ", 1)
            if name == "problem":
                problems.append(value)
            else:
                figures[name] = int(value)
    return figures, problems


def footprints(figures):
    """What the program held after warming up and at the end."""
    return (Footprint(figures["memory_start_kib"], figures["descriptors_start"]),
            Footprint(figures["memory_end_kib"], figures["descriptors_end"]))


def judge_growth(figures, options):
    """What has grown, in words."""
    allowance_kib = MEMORY_ALLOWANCE_KIB if options.memory_allowance is None else options.memory_allowance
    return growth(*footprints(figures), allowance_kib)


def run(kind, command, options):
    """Runs the program; returns the report begun, the figures, and the problems that the program itself has told. There
    are no figures when the program left none."""
    begin = time.monotonic()
    command = command + ["--directory", options.artefacts, "--seed", str(options.seed), "--seconds",
                         str(round(options.seconds))]
    problems = []
    with open(os.path.join(options.artefacts, "output"), "w") as output:
        child = process.start(command, stdout=output, stderr=subprocess.STDOUT)
        try:
            status = child.wait(options.seconds + options.patience)
        except subprocess.TimeoutExpired:
            status = None
            problems.append(f"the {kind} hangs" if kind == "master" else f"the run of the {kind} hangs")
        finally:
            process.stop(child)
    report = Report(f"soak {kind}: seed {options.seed}, {(time.monotonic() - begin) / 60:.1f} minutes")
    figures, told = read_figures(os.path.join(options.artefacts, "figures"))
    report.problems += problems + told
    if status not in (0, None) and not told:
        report.problems.append(f"the {kind} ended with status {status}")
    if not figures:
        report.problems.append("there are no figures")
    return report, figures, told
