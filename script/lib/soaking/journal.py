"""The master's journal of frames, held against the logs of the nodes, frame by frame.

The journal tells where each life of the nodes' process begins and ends. What the master sent during a life is what
that life's log heard, in that order; what it sent between two lives reached nobody. What all logs say was sent by the
nodes is what the master took, in that order.
"""

import itertools
import os


def _lines(path):
    with open(path) as file:
        for line in file:
            if line.endswith("\n"):
                yield line.rstrip("\n")


def _logged(directory, life):
    """The frames of a life's log, as the journal would tell them."""
    path = os.path.join(directory, f"nodes.{life}.log")
    return (line.split(None, 1)[1] for line in _lines(path)) if os.path.exists(path) else iter(())


class JournalCheck:
    """Compares a directory's journal and logs at once; the counts and problems are left here."""

    def __init__(self, directory):
        self.heard = 0  # frames of the master that nodes have heard
        self.unheard = 0  # frames that the master sent while there was no process of nodes
        self.told = 0  # frames that nodes have sent
        self.taken = 0  # frames that the master has taken
        self.problems = []
        life, lives, hearing = 0, 0, iter(())
        taken = []
        for line in _lines(os.path.join(directory, "master.log")):
            if line.startswith("life"):
                _, number, what = line.split()
                if what == "begins":
                    life = lives = int(number)
                    hearing = self._heard(directory, life)
                else:
                    self._expect(next(hearing, None), None, life)
                    life = 0
            elif line.startswith("in"):
                if life:
                    self._expect(next(hearing, None), line, life)
                else:
                    self.unheard += 1
            else:
                taken.append(line)
                self.taken += 1
        self._compare_taken(directory, lives, taken)

    def _heard(self, directory, life):
        for line in _logged(directory, life):
            if line.startswith("in"):
                self.heard += 1
                yield line

    def _expect(self, heard, sent, life):
        if heard != sent and not self.problems:
            self.problems.append(f"in their life {life} the nodes heard '{heard}' where the master sent '{sent}'")

    def _compare_taken(self, directory, lives, taken):
        told = (line for life in range(1, lives + 1) for line in _logged(directory, life) if line.startswith("out"))
        for sent, received in itertools.zip_longest(told, taken):
            self.told += sent is not None
            if sent != received:
                self.problems.append(f"the nodes sent '{sent}' where the master took '{received}'")
                return
