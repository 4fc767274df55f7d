"""A long run of the CANopen master against simulated nodes that vanish and return, over UDP."""

import os
import subprocess
import time

from drive import process

from .figures import Footprint, Report, growth
from .journal import JournalCheck

# The library takes no memory after construction, and the run itself keeps what it has. What is left are pages of the
# program and of the C library that are touched for the first time only after the warming up.
MEMORY_ALLOWANCE_KIB = 256

ROWS = (("cycles", "cycles", ""), ("frames_asked", "frames asked for", ""), ("frames_sent", "frames sent", ""),
        ("heard", "  of these heard by the nodes", ""), ("unheard", "  of these sent while no nodes were there", ""),
        ("told", "frames sent by the nodes", ""), ("frames_received", "  of these received", ""),
        ("pdos_sent", "PDOs sent", ""), ("pdos_arrived", "PDOs received", ""),
        ("pdo_values", "values in them, all as they were set", ""),
        ("sdo_done", "SDO transfers done", ""), ("sdo_bytes", "bytes of objects in them", ""),
        ("sdo_failed_away", "SDO transfers failed with nodes away", ""),
        ("sdo_late", "SDO transfers answered after the time-out", ""),
        ("sdo_failed_present", "SDO transfers failed with nodes present", ""),
        ("guarded", "node states told", ""), ("missed", "node states missed, with nodes away", ""),
        ("kills", "kills of all nodes at once", ""), ("vanished", "nodes vanished", ""),
        ("returned", "nodes returned", ""),
        ("reappeared", "returns seen by the master", ""), ("worst_gap_us", "worst gap between cycles", "us"))


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


def judge(figures, options):
    """What the figures alone tell that is wrong."""
    start = Footprint(figures["memory_start_kib"], figures["descriptors_start"])
    end = Footprint(figures["memory_end_kib"], figures["descriptors_end"])
    allowance_kib = MEMORY_ALLOWANCE_KIB if options.memory_allowance is None else options.memory_allowance
    problems = growth(start, end, allowance_kib)
    if figures["frames_asked"] != figures["frames_sent"]:
        problems.append("the driver did not send all frames that it was asked to")
    if figures["frames_sent"] != figures["heard"] + figures["unheard"]:
        problems.append("the nodes did not hear all frames that were sent to them")
    if figures["frames_received"] != figures["told"]:
        problems.append("the master did not receive all frames that the nodes sent")
    if figures["sdo_failed_present"] > 0:
        problems.append(f"{figures['sdo_failed_present']} SDO transfers failed with nodes that were there")
    if figures["reappeared"] != figures["returned"]:
        problems.append(f"the master has seen {figures['reappeared']} of {figures['returned']} returns")
    if figures["worst_gap_us"] > 1e6 * options.longest_gap:
        problems.append(f"no cycle began for {figures['worst_gap_us'] / 1e6:.3f} s")
    return problems


def run(options):
    """Runs with the chosen programs; returns the report."""
    begin = time.monotonic()
    command = [options.master, "--simulator", options.nodes, "--directory", options.artefacts, "--seed",
               str(options.seed), "--seconds", str(round(options.seconds)), "--period-ms", str(options.period_ms)]
    command += ["--cycles", str(options.cycles)] if options.cycles else []
    problems = []
    with open(os.path.join(options.artefacts, "output"), "w") as output:
        child = process.start(command + options.master_option, stdout=output, stderr=subprocess.STDOUT)
        try:
            status = child.wait(options.seconds + options.patience)
        except subprocess.TimeoutExpired:
            status = None
            problems.append("the master hangs")
        finally:
            process.stop(child)
    report = Report(f"soak master: seed {options.seed}, {(time.monotonic() - begin) / 60:.1f} minutes")
    figures, told = read_figures(os.path.join(options.artefacts, "figures"))
    report.problems += problems + told
    if status not in (0, None) and not told:
        report.problems.append(f"the master ended with status {status}")
    if "cycles" not in figures:
        report.problems.append("there are no figures")
        return report
    check = JournalCheck(options.artefacts)
    report.problems += check.problems
    figures.update(heard=check.heard, unheard=check.unheard, told=check.told)
    for name, text, unit in ROWS:
        report.add(text, figures[name], unit)
    if not told:
        report.add_footprints(Footprint(figures["memory_start_kib"], figures["descriptors_start"]),
                              Footprint(figures["memory_end_kib"], figures["descriptors_end"]))
        report.problems += judge(figures, options)
    return report
