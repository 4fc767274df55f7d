"""A long run of SDO transfers with simulated nodes whose answers have every fault there is, over UDP."""

from . import child

ROWS = (("started", "transfers started", ""), ("ended", "transfers ended, each once", ""),
        ("done", "  of these done", ""), ("done_expedited", "  of these numbers", ""),
        ("done_segmented", "  of these by segments", ""), ("done_blocks", "  of these by blocks", ""),
        ("aborted_by_node", "  of these aborted by the node", ""),
        ("aborted_by_client", "  of these aborted by the client", ""), ("timed_out", "  of these timed out", ""),
        ("cancelled", "  of these cancelled", ""), ("driver_failed", "  of these given up by the driver", ""),
        ("bytes", "bytes in those done", ""), ("compared", "bytes read back, all as they were written", ""),
        ("dropped", "frames that were no answers", ""), ("worst_us", "longest transfer", "us"))

# With these faults more than a half of the transfers come to their end nonetheless.
LEAST_DONE = 0.5


def judge(figures, options):
    """What the figures alone tell that is wrong."""
    problems = child.judge_growth(figures, options)
    if figures["started"] != figures["ended"]:
        problems.append(f"{figures['started']} transfers were started, {figures['ended']} have ended")
    if figures["done"] < LEAST_DONE * figures["ended"]:
        problems.append(f"only {figures['done']} of {figures['ended']} transfers were done")
    if figures["driver_failed"] > 0:
        problems.append(f"the driver gave up {figures['driver_failed']} transfers")
    return problems


def run(options):
    """Runs with the chosen programs; returns the report."""
    command = [options.client, "--simulator", options.nodes]
    command += ["--transfers", str(options.transfers)] if options.transfers else []
    report, figures, told = child.run("nodes", command + options.client_option, options)
    for name, text, unit in ROWS:
        if figures:
            report.add(text, figures[name], unit)
    if figures and not told:
        report.add_footprints(*child.footprints(figures))
        report.problems += judge(figures, options)
    return report
