"""A long run of the CANopen master against simulated nodes that vanish and return, over UDP."""

from . import child
from .journal import JournalCheck

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


def judge(figures, options):
    """What the figures alone tell that is wrong."""
    problems = child.judge_growth(figures, options)
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
    command = [options.master, "--simulator", options.nodes, "--period-ms", str(options.period_ms)]
    command += ["--cycles", str(options.cycles)] if options.cycles else []
    report, figures, told = child.run("master", command + options.master_option, options)
    if not figures:
        return report
    check = JournalCheck(options.artefacts)
    report.problems += check.problems
    figures.update(heard=check.heard, unheard=check.unheard, told=check.told)
    for name, text, unit in ROWS:
        report.add(text, figures[name], unit)
    if not told:
        report.add_footprints(*child.footprints(figures))
        report.problems += judge(figures, options)
    return report
