"""The process beside the panel that brings the vehicle to rest when the panel is gone."""

from . import process

NAME = "lineguard"

# It gives itself its name as soon as it runs, long before the panel has a window.
NAMED_WITHIN_S = 5


def _name_of(pid):
    with open(f"/proc/{pid}/comm") as file:
        return file.read().strip()


def guard_of(pid):
    """The guard of a panel that runs; waits until it has its name."""

    def named():
        with open(f"/proc/{pid}/task/{pid}/children") as file:
            children = [int(word) for word in file.read().split()]
        return next((child for child in children if _name_of(child) == NAME), None)

    return process.wait_until(named, f"the guard of process {pid}", NAMED_WITHIN_S)


def state_of(pid):
    """The state of a process as one letter (proc(5)), "" when there is none any more."""
    try:
        with open(f"/proc/{pid}/stat") as file:
            return file.read().rsplit(")", 1)[1].split()[0]
    except (FileNotFoundError, ProcessLookupError):
        return ""


def wait_for_end(pid):
    """Waits until a guard whose panel is gone has ended. What a zombie leaves is for whoever has inherited it."""
    process.wait_until(lambda: state_of(pid) in ("", "Z"), "the guard's end")
