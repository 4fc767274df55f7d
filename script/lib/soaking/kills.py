"""Panels that are killed at random moments: what comes last over the line leaves the vehicle at rest."""

import random
import signal
import subprocess
import time

from drive import panel as on_panel
from drive.guard import guard_of, wait_for_end
from drive.panel import Panel, pad_press
from drive.vehicle import NEUTRAL, frame
from drive.witness import Witness, split

LONGEST_WAIT_S = 0.4  # an opening takes 0.3 s of it
PAD_X, PAD_Y = (150, 375), (10, 265)


class Kills:
    """Starts a panel for each kill, on one screen, and counts how many of them drove and were left at rest."""

    def __init__(self, program, screen, seed):
        self._program = program
        self._screen = screen
        self._random = random.Random(seed)
        self.count = self.drove = self.at_rest = 0
        self.problems = []

    # What the operator is at when the panel is killed.

    def _open(self, panel, _witness):
        panel.click(on_panel.OPEN_BUTTON)

    def _drive_off(self, panel, witness):
        self._open(panel, witness)
        witness.wait_for_frame(NEUTRAL)
        panel.click(on_panel.MOTOR_BUTTON)
        point = self._random.randint(*PAD_X), self._random.randint(*PAD_Y)
        panel.press(*point)
        panel.release()
        witness.wait_for_frame(frame(*pad_press(*point), "Q"))

    def _open_again(self, panel, witness):
        self._drive_off(panel, witness)
        panel.click(on_panel.OPEN_BUTTON)

    def _close(self, panel, witness):
        self._drive_off(panel, witness)
        panel.close()

    def run(self, count):
        """Kills so many panels, or fewer if one of them does not do as it should."""
        try:
            self._run(count)
        except (TimeoutError, RuntimeError, subprocess.TimeoutExpired) as failure:
            self.problems.append(str(failure))

    def _run(self, count):
        for _ in range(count):
            with Witness() as witness, Panel(self._program, self._screen, witness.line) as panel:
                guard = guard_of(panel.child.pid)
                stage = self._random.choice((self._open, self._drive_off, self._drive_off, self._open_again,
                                             self._close))
                stage(panel, witness)
                time.sleep(self._random.uniform(0, LONGEST_WAIT_S))
                panel.signal(signal.SIGKILL)
                panel.wait()
                wait_for_end(guard)
                self._judge(stage.__name__, witness)

    def _judge(self, stage, witness):
        """Whole frames, the neutral one last; or no frame at all, if the port was not open yet."""
        data = witness.finish()
        self.count += 1
        self.drove += any(sent != NEUTRAL for sent in split(data))
        if len(data) % 4 == 0 and (not data or data[-4:] == NEUTRAL):
            self.at_rest += 1
        else:
            self.problems.append(f"a panel that was killed ({stage.strip('_')}) left the vehicle with "
                                 + data[-8:].hex(" "))
