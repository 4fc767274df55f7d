"""The long runs of script/soak: that they run, and that each of their checks can fail.

Run by ctest, one class at a time; by hand with the environment that tests/soak/CMakeLists.txt sets.
"""

import argparse
import inspect
import os
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(ROOT, "script", "lib"))

from drive.vehicle import frame  # noqa: E402
from soaking import master as master_run  # noqa: E402
from soaking import nodes as nodes_run  # noqa: E402
from soaking.figures import Footprint, Report, Tail, growth  # noqa: E402
from soaking.journal import JournalCheck  # noqa: E402
from soaking.ledger import Ledger, stray_frames  # noqa: E402
from soaking.record import closings, compare  # noqa: E402
from soaking.replies import Expected  # noqa: E402

# A sanitizer holds freed memory back, and a busy machine leaves nobody a turn for a while: the short runs here are
# about everything else.
NO_LIMITS = ["--memory-allowance", "1000000", "--longest-gap", "600"]


def write_script(directory, text):
    """Writes a shell script that stands in for a program."""
    path = os.path.join(directory, "program.sh")
    with open(path, "w") as file:
        file.write("#!/bin/sh\n" + text)
    os.chmod(path, 0o700)
    return path


def run_soak(kind, *arguments):
    """Runs script/lib/soak.py; returns what became of it, a directory with its artefacts, and the figures printed."""
    directory = tempfile.TemporaryDirectory(prefix="soak-")
    done, figures = run_soak_in(directory.name, kind, *arguments)
    return done, directory, figures


def run_soak_in(directory, kind, *arguments, **variables):
    """Runs script/lib/soak.py with its artefacts in a directory, and perhaps more environment."""
    artefacts = os.path.join(directory, "artefacts")
    programs = [f"--{name}=" + os.environ.get("SOAK_" + name.upper(), "")
                for name in ("panel", "witness", "vehicle", "recorder", "master", "nodes", "client")]
    done = subprocess.run([sys.executable, "-B", os.path.join(ROOT, "script", "lib", "soak.py"), kind, "--artefacts",
                           artefacts] + NO_LIMITS + programs + list(arguments),
                          env=dict(os.environ, **variables), stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True, check=False)
    figures = {name.strip(): float(value.replace(",", ""))
               for name, value in re.findall(r"^  (\S.*?|  of these .*?)  +([0-9,.]+)", done.stdout, re.M)}
    return done, figures


class Panel(unittest.TestCase):
    def test_short_run_loses_nothing(self):
        done, directory, figures = run_soak("panel", "--seed", "5", "--deeds", "30")
        with directory:
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            self.assertIn("nothing lost, nothing grown, nothing hung", done.stdout)
            self.assertIn("seed 5", done.stdout)
            self.assertGreater(figures["frames asked for"], 100)
            self.assertEqual(figures["frames asked for"], figures["frames sent"])
            self.assertEqual(figures["frames sent"], figures["frames received by the vehicle"])
            self.assertGreater(figures["set-point changes, all of which arrived"], 20)
            self.assertGreater(figures["openings of the port"], 3)
            for kind in ("muted", "short", "split", "garbage", "delayed"):
                self.assertGreater(figures["of these " + kind], 0, kind)
            self.assertEqual(figures["panels killed at random"], 2)
            self.assertEqual(figures["of these left the vehicle at rest"], 2)
            self.assertEqual(figures["reply bytes given to the line"] - figures["reply bytes taken by the panel"],
                             figures["reply bytes still on their way at a closing"])
            self.assertEqual(sorted(os.listdir(os.path.join(directory.name, "artefacts"))),
                             ["footprints", "line.log", "screen.png", "vehicle.log"])

    def test_a_frame_that_is_lost_is_found(self):
        done, directory, _ = run_soak("panel", "--seed", "5", "--deeds", "3", "--vehicle-option=--lose-frame",
                                      "--vehicle-option=20")
        with directory:
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertRegex(done.stdout, "FAIL: ")
            self.assertIn("logs and pictures are in", done.stderr)
            self.assertTrue(os.path.exists(os.path.join(directory.name, "artefacts", "screen.png")))

    def test_a_reply_that_is_lost_is_found(self):
        done, directory, _ = run_soak("panel", "--seed", "5", "--deeds", "3", "--vehicle-option=--lose-reply",
                                      "--vehicle-option=20")
        with directory:
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertIn("FAIL: the panel took other bytes from the line than the vehicle gave", done.stdout)

    def test_all_that_is_wrong_at_the_end_is_found(self):
        with tempfile.TemporaryDirectory(prefix="soak-") as directory:
            panel = write_script(directory, f"echo complaint >&2\n{shlex.quote(os.environ['SOAK_PANEL'])}\nexit 3\n")
            done, _ = run_soak_in(directory, "panel", "--seed", "5", "--deeds", "3", "--kills", "0",
                                  "--longest-gap", "0.001", "--memory-allowance=-1000000", "--panel", panel)
        self.assertEqual(done.returncode, 1, done.stdout)
        self.assertRegex(done.stdout, r"FAIL: no frame came for \d+\.\d+ s")
        self.assertIn("FAIL: resident memory grew by ", done.stdout)
        self.assertIn("FAIL: the panel ended with status 3", done.stdout)
        self.assertIn("FAIL: the panel wrote to its error output: complaint", done.stdout)

    def test_a_panel_that_hangs_is_found(self):
        with tempfile.TemporaryDirectory(prefix="soak-") as directory:
            log, picture = (os.path.join(directory, "artefacts", name) for name in ("vehicle.log", "screen.png"))
            # It goes on once it has been found, so that it can be ended in good order.
            stop = (f"until [ $(grep -c received {log}) -ge 60 ]; do sleep 0.1; done; kill -STOP $$; "
                    f"until [ -e {picture} ]; do kill -0 $$ || exit; sleep 0.1; done; kill -CONT $$")
            panel = write_script(directory, f"({stop}) &\nexec {shlex.quote(os.environ['SOAK_PANEL'])}\n")
            done, _ = run_soak_in(directory, "panel", "--seed", "5", "--deeds", "1000", "--panel", panel,
                                  DRIVE_LIMIT_S="10")
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertRegex(done.stdout, "FAIL: .*(waited in vain for|does not answer)")
            self.assertNotIn("Traceback", done.stderr)

    def test_a_panel_without_its_guard_is_found(self):
        with tempfile.TemporaryDirectory(prefix="soak-") as directory:
            kill = ("while kill -0 $$; do for child in $(cat /proc/$$/task/$$/children); do "
                    "if grep -q lineguard /proc/$child/comm; then kill -KILL $child; exit; fi; done; sleep 0.01; done")
            panel = write_script(directory, f"({kill}) 2>/dev/null &\nexec {shlex.quote(os.environ['SOAK_PANEL'])}\n")
            done, _ = run_soak_in(directory, "panel", "--seed", "5", "--deeds", "1", "--kills", "1", "--panel", panel)
        self.assertEqual(done.returncode, 1, done.stdout)
        self.assertRegex(done.stdout, r"FAIL: waited in vain for the guard of process \d+")

    def test_a_panel_that_does_not_come_up_is_told(self):
        done, directory, _ = run_soak("panel", "--deeds", "3", "--panel", "/bin/false")
        with directory:
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertRegex(done.stderr, "^soak: the panel ended with status 1")

    def test_a_vehicle_that_goes_is_found(self):
        done, directory, _ = run_soak("panel", "--seed", "5", "--deeds", "3", "--vehicle-option=--hang-up",
                                      "--vehicle-option=30")
        with directory:
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertIn("FAIL: ", done.stdout)
            self.assertNotIn("Traceback", done.stderr)


class Master(unittest.TestCase):
    def test_short_run_loses_nothing(self):
        done, directory, figures = run_soak("master", "--seed", "5", "--cycles", "200", "--period-ms", "0")
        with directory:
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            self.assertIn("nothing lost, nothing grown, nothing hung", done.stdout)
            self.assertEqual(figures["frames asked for"], figures["frames sent"])
            self.assertEqual(figures["frames sent"], figures["of these heard by the nodes"] +
                             figures["of these sent while no nodes were there"])
            self.assertEqual(figures["frames sent by the nodes"], figures["of these received"])
            self.assertEqual(figures["values in them, all as they were set"], 4 * figures["PDOs received"])
            self.assertEqual(figures["SDO transfers failed with nodes present"], 0)
            self.assertEqual(figures["nodes returned"], figures["returns seen by the master"])
            self.assertGreaterEqual(figures["nodes returned"], 20)
            self.assertGreaterEqual(figures["kills of all nodes at once"], 2)
            self.assertGreater(figures["SDO transfers done"], 20)
            self.assertGreater(figures["SDO transfers failed with nodes away"], 1)

    def test_a_frame_that_is_lost_is_found(self):
        # After three for each of the five nodes comes the first PDO.
        done, directory, _ = run_soak("master", "--cycles", "50", "--period-ms", "0", "--master-option=--lose-frame",
                                      "--master-option=16")
        with directory:
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertIn("FAIL: the inputs of node 1 are not what its outputs were set to", done.stdout)
            self.assertIn("FAIL: in their life 1 the nodes heard", done.stdout)

    def test_descriptors_that_leak_are_found(self):
        done, directory, _ = run_soak("master", "--cycles", "300", "--period-ms", "0", "--master-option=--leak")
        with directory:
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertIn("FAIL: open descriptors grew from", done.stdout)

    def test_a_master_that_hangs_is_found(self):
        with tempfile.TemporaryDirectory(prefix="soak-") as directory:
            master = write_script(directory, "exec sleep 600\n")
            done, _ = run_soak_in(directory, "master", "--seconds", "0", "--patience", "0.2", "--master", master)
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertIn("FAIL: the master hangs", done.stdout)

    def test_a_gap_between_cycles_is_found(self):
        done, directory, _ = run_soak("master", "--cycles", "10", "--longest-gap", "0.001")
        with directory:
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertRegex(done.stdout, r"FAIL: no cycle began for \d+\.\d+ s")

    def test_nodes_that_do_not_start_are_told(self):
        done, directory, _ = run_soak("master", "--cycles", "10", "--nodes", "/bin/false")
        with directory:
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertIn("FAIL: the nodes do not start", done.stdout)


class Nodes(unittest.TestCase):
    def test_short_run_loses_nothing(self):
        done, directory, figures = run_soak("nodes", "--seed", "5", "--transfers", "200", "--client-option=--pause-ms",
                                            "--client-option=0")
        with directory:
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            self.assertIn("nothing lost, nothing grown, nothing hung", done.stdout)
            self.assertGreaterEqual(figures["transfers started"], 300)
            self.assertEqual(figures["transfers started"], figures["transfers ended, each once"])
            for kind in ("done", "numbers", "by segments", "by blocks", "aborted by the node", "aborted by the client",
                         "timed out"):
                self.assertGreater(figures["of these " + kind], 0, kind)
            self.assertEqual(figures["of these given up by the driver"], 0)
            self.assertGreater(figures["bytes read back, all as they were written"], 1000)
            self.assertGreater(figures["frames that were no answers"], 0)

    def fails(self, words, *options):
        done, directory, _ = run_soak("nodes", "--seed", "5", "--transfers", "100", "--client-option=--pause-ms",
                                      "--client-option=0", *(f"--client-option={option}" for option in options))
        with directory:
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertRegex(done.stdout, "FAIL: " + words)

    def test_a_wrong_byte_is_found(self):
        self.fails(r"transfer \d+ with node \d has read what was never written", "--spoil", "10")

    def test_an_end_that_is_not_told_is_found(self):
        self.fails(r"transfer 9 with node \d has not ended", "--forget", "9", "--patience-ms", "5000")

    def test_an_end_that_is_told_twice_is_found(self):
        self.fails(r"transfer \d+ with node \d had another before it, which ended twice", "--repeat", "9")

    def test_descriptors_that_leak_are_found(self):
        done, directory, _ = run_soak("nodes", "--transfers", "200", "--client-option=--pause-ms", "--client-option=0",
                                      "--client-option=--leak")
        with directory:
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertIn("FAIL: open descriptors grew from", done.stdout)

    def test_nodes_that_do_not_start_are_told(self):
        done, directory, _ = run_soak("nodes", "--transfers", "1", "--nodes", "/bin/false")
        with directory:
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertIn("FAIL: the nodes do not start", done.stdout)

    def test_what_the_figures_alone_tell(self):
        options = argparse.Namespace(memory_allowance=None)
        right = dict(started=10, ended=10, done=6, driver_failed=0, memory_start_kib=100, memory_end_kib=100,
                     descriptors_start=5, descriptors_end=5)
        self.assertEqual(nodes_run.judge(right, options), [])
        for change in ({"ended": 9}, {"done": 4}, {"driver_failed": 1}, {"memory_end_kib": 400},
                       {"descriptors_end": 6}):
            self.assertEqual(len(nodes_run.judge(dict(right, **change), options)), 1, change)


class Record(unittest.TestCase):
    """The panel with its black box in the line."""

    def test_short_run_loses_nothing(self):
        done, directory, figures = run_soak("record", "--seed", "5", "--deeds", "5")
        with directory:
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            self.assertGreater(figures["frames told by the report"], 20)
            faults = [figures[name + " told by the report"] for name in ("lost", "late", "short", "garbled")]
            self.assertGreater(sum(faults), 2)
            self.assertEqual(sorted(os.listdir(os.path.join(directory.name, "artefacts"))),
                             ["drive.recording", "report.txt", "vehicle.log"])

    def test_a_report_that_tells_another_number_is_found_out(self):
        with tempfile.TemporaryDirectory(prefix="soak-") as directory:
            liar = write_script(directory, '[ "$1" != report ] || exec sh -c '
                                           "'\"$0\" \"$@\" | sed \"s/^  Frames sent .*/  Frames sent  1/\"' " +
                                           shlex.quote(os.environ["SOAK_RECORDER"]) + ' "$@"\n' +
                                           "exec " + shlex.quote(os.environ["SOAK_RECORDER"]) + ' "$@"\n')
            done, _ = run_soak_in(directory, "record", "--seed", "5", "--deeds", "2", f"--recorder={liar}")
        self.assertEqual(done.returncode, 1)
        self.assertIn("FAIL: the report tells frames 1, the vehicle says", done.stdout + done.stderr)


class Replies(unittest.TestCase):
    """What the vehicle's log says of losses and late replies."""

    REPLY = "39 bytes 7f speed 7 voltage 1 current 1 capacity 1 latitude 1"

    @staticmethod
    def bounds(*log):
        expected = Expected(log, 250, 4)
        return {name: expected.bounds(name) for name in ("frames", "replies", "lost", "late", "short", "garbled")}

    def check(self, log, **numbers):
        """The numbers that are not named are 0, all of them certain."""
        found = self.bounds(*log)
        for name, bounds in found.items():
            number = numbers.get(name, 0)
            self.assertEqual(bounds, number if isinstance(number, tuple) else (number, number), name)

    def exchange(self, time_s, fault=None, muted=False):
        lines = [f"{time_s:.6f} received 00 67 6e 50 throttle 0"]
        lines += [f"{time_s:.6f} fault {fault}"] if fault else []
        reply = "muted" + self.REPLY[self.REPLY.index(" speed"):] if muted else "replied " + self.REPLY
        return lines + [f"{time_s:.6f} {reply}"]

    def log(self, *exchanges, closed_s=100.0):
        return ["0.000000 opened", *sum(exchanges, []), f"{closed_s:.6f} closed"]

    def test_good_replies(self):
        self.check(self.log(self.exchange(1), self.exchange(2)), frames=2, replies=2)

    def test_faults_are_counted_by_their_kinds(self):
        self.check(self.log(self.exchange(1, "short 20"), self.exchange(2, "garbage 7"), self.exchange(3)),
                   frames=3, replies=3, short=1, garbled=1)

    def test_a_muted_reply_is_lost(self):
        self.check(self.log(self.exchange(1), self.exchange(2, "muted", muted=True), self.exchange(3)),
                   frames=3, replies=2, lost=1)

    def test_nobody_misses_the_reply_to_the_last_frame(self):
        self.check(self.log(self.exchange(1), self.exchange(2, "muted", muted=True), closed_s=2.5), frames=2, replies=1)
        self.check(self.log(self.exchange(1), self.exchange(2, "muted", muted=True), closed_s=4), frames=2, replies=1,
                   lost=1)

    def test_a_reply_that_is_not_out_at_the_closing_does_not_come(self):
        self.check(self.log(self.exchange(1), self.exchange(2, "delayed 150"), closed_s=2.1), frames=2, replies=1)

    def test_the_program_closes_the_line_before_its_recorder_does(self):
        log = self.log(self.exchange(1), self.exchange(2, "delayed 50"), closed_s=2.1)
        self.assertEqual(Expected(log, 250, 4).bounds("replies"), (2, 2))
        self.assertEqual(Expected(log, 250, 4, [0.02]).bounds("replies"), (1, 1))
        self.assertEqual(Expected(log, 250, 4, [0.08]).bounds("replies"), (2, 2))

    def test_the_closings_are_taken_from_the_recording(self):
        with tempfile.NamedTemporaryFile("w", suffix=".recording") as file:
            file.write("# vehicle-recorder recording 1\n0.000000 open\n0.300000 > 00676e50\n+500 < 7fa0\n"
                       "0.340000 close\n1.000000 open\n1.300000 > 00676e50\n1.500000 > 00676e50\n1.500250 close\n")
            file.flush()
            found = closings(file.name)
        self.assertEqual([round(time_s, 6) for time_s in found], [0.04, 0.00025])

    def test_a_moment_may_decide(self):
        self.check(self.log(self.exchange(1), self.exchange(2, "delayed 100"), closed_s=2.101), frames=2,
                   replies=(1, 2), short=(0, 1))
        self.check(self.log(self.exchange(1, "delayed 100"), self.exchange(1.101)), frames=2, replies=2, late=(0, 1))

    def test_a_reply_behind_the_next_frame_is_late(self):
        self.check(self.log(self.exchange(1, "delayed 150"), self.exchange(1.1)), frames=2, replies=2, late=1)
        self.check(self.log(self.exchange(1, "split 13 pause 15"), self.exchange(1.1)), frames=2, replies=2, late=1)

    def test_each_fourth_reply_is_late_unless_another_fault_hits_it(self):
        exchanges = [self.exchange(1 + 0.2 * number) for number in range(9)]
        self.check(self.log(*exchanges), frames=9, replies=9, late=2)
        exchanges[3] = self.exchange(1.6, "short 3")
        self.check(self.log(*exchanges), frames=9, replies=9, late=1, short=1)

    def test_a_late_reply_is_taken_for_that_of_a_muted_successor(self):
        exchanges = [self.exchange(1 + 0.2 * number) for number in range(6)]
        exchanges[4] = self.exchange(1.8, "muted", muted=True)
        self.check(self.log(*exchanges), frames=6, replies=5, lost=1)

    def test_replies_wait_for_each_other(self):
        """What a fault holds up holds up what is behind it."""
        log = self.log(self.exchange(1, "delayed 150"), self.exchange(1.05), self.exchange(1.1), self.exchange(1.2))
        self.check(log, frames=4, replies=4, late=2)

    def test_the_comparison_can_fail(self):
        expected = Expected(self.log(self.exchange(1), self.exchange(2)), 250, 4)
        for name, value, right in (("frames", 2, True), ("frames", 3, False), ("lost", 0, True), ("lost", 1, False),
                                   ("top speed", 7, True), ("top speed", 8, False), ("late", None, False)):
            report = Report("title")
            compare({name: value}, expected, report)
            self.assertEqual(report.problems == [], right, (name, value))


class Account(unittest.TestCase):
    """The account of the vehicle's line."""

    def setUp(self):
        self.ledger = Ledger()

    def feed(self, *lines):
        """Lines of the vehicle's log begin with "v ", those of the witness with "w "."""
        for line in lines:
            (self.ledger.vehicle if line.startswith("v ") else self.ledger.witness)("1.0 " + line[2:])

    def test_frames_that_agree(self):
        self.feed("w opened 9", "v opened", "w wrote 4 4 00 67 6e 50", "v received 00 67 6e 50 throttle 0")
        self.assertTrue(self.ledger.frames_agree())
        self.assertEqual((self.ledger.asked, self.ledger.sent, self.ledger.received), (1, 1, 1))
        self.assertEqual(self.ledger.problems, [])

    def test_a_missing_frame(self):
        self.feed("w opened 9", "v opened", "w wrote 4 4 00 67 6e 50", "w wrote 4 4 01 67 6e 50",
                  "v received 01 67 6e 50 throttle 1")
        self.assertFalse(self.ledger.frames_agree())
        self.assertEqual(self.ledger.problems, ["the panel sent 00 67 6e 50, the vehicle received 01 67 6e 50"])

    def test_a_missing_frame_that_is_like_the_others(self):
        self.feed("w opened 9", "v opened", "w wrote 4 4 00 67 6e 50", "w wrote 4 4 00 67 6e 50",
                  "v received 00 67 6e 50 throttle 0", "w closed 9")
        self.assertEqual(self.ledger.problems, [])
        self.feed("v closed")
        self.assertEqual(self.ledger.problems, ["in one opening the panel sent 2 frames, the vehicle received 1"])

    def test_a_frame_still_on_its_way(self):
        self.feed("w opened 9", "v opened", "w wrote 4 4 00 67 6e 50")
        self.assertFalse(self.ledger.frames_agree())
        self.assertEqual(self.ledger.problems, [])

    def test_a_frame_that_the_line_did_not_take(self):
        self.feed("w opened 9", "w wrote 4 2 00 67 6e 50")
        self.assertEqual((self.ledger.asked, self.ledger.sent), (1, 0))
        self.assertEqual(self.ledger.problems, ["the line took 2 of the 4 bytes of a frame"])

    def test_replies_in_whatever_parts(self):
        self.feed("w opened 9", "v opened", "v replied 3 bytes 01 02 03 speed 0", "w read 1 01", "w read 0",
                  "w read 4 02 03 04 05", "v replied 2 bytes 04 05 speed 0", "v muted speed 0")
        self.assertEqual(self.ledger.problems, [])
        self.assertEqual((self.ledger.given, self.ledger.taken, self.ledger.replies), (5, 5, 3))

    def test_a_wrong_byte_of_a_reply(self):
        self.feed("w opened 9", "v opened", "v replied 3 bytes 01 02 03 speed 0", "w read 2 01 03")
        self.assertEqual(self.ledger.problems, ["the panel took other bytes from the line than the vehicle gave"])

    def test_more_bytes_than_were_given(self):
        self.feed("w opened 9", "v opened", "v replied 1 bytes 01 speed 0", "w read 2 01 02", "w closed 9", "v closed")
        self.assertEqual(self.ledger.problems, ["the panel took more bytes from the line than the vehicle gave"])

    def test_a_closing_may_leave_bytes_behind_and_the_next_opening_find_some_of_them(self):
        for found, good in (("", True), ("02", True), ("02 03", True), ("03", False), ("02 04", False)):
            self.ledger = Ledger()
            self.feed("w opened 9", "v opened", "v replied 3 bytes 01 02 03 speed 0", "w read 1 01", "w closed 9",
                      "v closed", "w opened 9", "v opened", "v replied 2 bytes 11 12 speed 0",
                      f"w read {len(found.split()) + 2} {found} 11 12")
            self.assertEqual(not self.ledger.problems, good, found)

    def test_ends_that_are_told_of_at_different_times(self):
        self.feed("w opened 9", "w read 1 01", "w closed 9", "w opened 9", "w read 1 11", "v opened",
                  "v replied 1 bytes 01 speed 0", "v closed", "v opened", "v replied 1 bytes 11 speed 0")
        self.assertEqual(self.ledger.problems, [])
        self.assertEqual(self.ledger.openings, 2)

    def test_what_was_given_until_now_has_been_taken(self):
        self.feed("w opened 9", "v opened", "v replied 2 bytes 01 02 speed 0", "w read 1 01")
        opening = self.ledger.opening()
        position = opening.position()
        self.assertFalse(opening.has_taken(position))
        self.feed("v replied 1 bytes 03 speed 0", "w read 1 02")
        self.assertTrue(opening.has_taken(position))
        self.assertFalse(opening.has_taken(opening.position()))

    def test_what_the_panel_shows(self):
        reply = ["00"] * 39
        reply[21] = "3f"
        self.feed("w opened 9", "v opened", "v replied 39 bytes " + " ".join(reply) + " speed 0",
                  "w read 39 " + " ".join(reply))
        self.assertEqual((self.ledger.capacity, self.ledger.last_count), (63, 39))
        self.feed("v replied 19 bytes " + " ".join(["07"] * 19), "w read 19 " + " ".join(["07"] * 19))
        self.assertEqual((self.ledger.capacity, self.ledger.last_count), (63, 19))

    def test_faults_are_counted_by_kind(self):
        self.feed("v opened", "v fault short 7", "v fault short 9", "v fault split 3 pause 2")
        self.assertEqual(dict(self.ledger.faults), {"short": 2, "split": 1})

    def test_the_worst_gap_lies_within_an_opening(self):
        for line in ("1.0 opened", "1.5 received 00 67 6e 50", "2.0 received 00 67 6e 50", "2.1 closed", "9.0 opened",
                     "9.1 received 00 67 6e 50", "9.9 received 00 67 6e 50"):
            self.ledger.vehicle(line)
        self.assertAlmostEqual(self.ledger.worst_gap_s, 0.8)

    def test_frames_that_nobody_asked_for(self):
        old, new = frame(10, 100, 50, "P"), frame(20, 120, 60, "Q")
        mixed = frame(20, 100, 50, "P")
        between = frame(15, 100, 60, "P")
        self.assertEqual(stray_frames([old, new, mixed], [old, new]), [])
        self.assertEqual(stray_frames([between], [old, new]), [between])
        self.assertEqual(stray_frames([between], [old, new], sweep=True), [])
        beyond = frame(21, 100, 60, "P")
        self.assertEqual(stray_frames([beyond], [old, new], sweep=True), [beyond])


class Journal(unittest.TestCase):
    """The master's journal against the nodes' logs."""

    GOOD = {"master.log": ["life 1 begins", "in  000 2 01 00", "out 701 1 00", "in  080 0", "life 1 ends", "in  080 0",
                           "out 181 1 05", "life 2 begins", "in  081 0", "life 2 ends"],
            "nodes.1.log": ["     0.000001 out 701 1 00", "     0.000002 in  000 2 01 00", "     0.000003 in  080 0",
                            "     0.000004 out 181 1 05"],
            "nodes.2.log": ["     0.000001 in  081 0"]}

    def check(self, changes=None):
        with tempfile.TemporaryDirectory() as directory:
            for name, lines in dict(self.GOOD, **(changes or {})).items():
                with open(os.path.join(directory, name), "w") as file:
                    file.write("".join(line + "\n" for line in lines))
            return JournalCheck(directory)

    def test_agree(self):
        check = self.check()
        self.assertEqual(check.problems, [])
        self.assertEqual((check.heard, check.unheard, check.told, check.taken), (3, 1, 2, 2))

    def test_each_missing_changed_or_additional_line_is_found(self):
        for name, lines in self.GOOD.items():
            for i, line in enumerate(lines):
                if line.startswith("life"):
                    continue
                silent = name == "master.log" and i == 5  # sent while nobody was there: nothing to hold it against
                for changed in (lines[:i] + lines[i + 1 :], lines[: i + 1] + lines[i:],
                                lines[:i] + [line[:-1] + "7"] + lines[i + 1 :]):
                    self.assertEqual(bool(self.check({name: changed}).problems), not silent, f"{name} {i}: {changed}")

    def test_an_exchanged_pair_is_found(self):
        lines = list(self.GOOD["nodes.1.log"])
        lines[1], lines[2] = lines[2], lines[1]
        self.assertTrue(self.check({"nodes.1.log": lines}).problems)


class Judgement(unittest.TestCase):
    """What the figures are judged by."""

    FIGURES = {"frames_asked": 10, "frames_sent": 10, "heard": 9, "unheard": 1, "frames_received": 4, "told": 4,
               "sdo_failed_present": 0, "returned": 3, "reappeared": 3, "worst_gap_us": 20000, "memory_start_kib": 4000,
               "memory_end_kib": 4100, "descriptors_start": 9, "descriptors_end": 9}

    def judge(self, **changes):
        return master_run.judge(dict(self.FIGURES, **changes), argparse.Namespace(memory_allowance=None, longest_gap=2))

    def test_a_good_run(self):
        self.assertEqual(self.judge(), [])

    def test_each_fault_is_found(self):
        for changes in ({"frames_asked": 11}, {"heard": 8}, {"unheard": 0}, {"told": 5}, {"sdo_failed_present": 1},
                        {"reappeared": 2}, {"worst_gap_us": 2000001}, {"memory_end_kib": 4257},
                        {"descriptors_end": 10}):
            self.assertEqual(len(self.judge(**changes)), 1, changes)

    def test_an_allowance_of_nothing_is_one(self):
        figures = dict(self.FIGURES, memory_end_kib=4001)
        self.assertEqual(len(master_run.judge(figures, argparse.Namespace(memory_allowance=0, longest_gap=2))), 1)

    def test_growth_is_told(self):
        self.assertEqual(growth(Footprint(100, 5), Footprint(150, 5), 50), [])
        self.assertEqual(growth(Footprint(100, 5), Footprint(90, 4), 0), [])
        self.assertEqual(growth(Footprint(100, 5), Footprint(151, 6), 50),
                         ["resident memory grew by 51 KiB, from 100 to 151; 50 KiB are allowed",
                          "open descriptors grew from 5 to 6"])

    def test_a_process_that_grows_is_seen_to_grow(self):
        program = ("import sys\nheld = []\n"
                   "for line in sys.stdin:\n"
                   "    held += [open('/dev/null'), bytearray(b'x') * 4000000]\n"
                   "    print(flush=True)\n")
        with subprocess.Popen([sys.executable, "-c", program], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              text=True) as child:
            footprints = []
            for _ in range(3):
                child.stdin.write("\n")
                child.stdin.flush()
                child.stdout.readline()
                footprints.append(Footprint.of(child.pid))
            child.stdin.close()
        problems = growth(footprints[0], footprints[2], 4000)
        self.assertEqual(len(problems), 2, problems)

    def test_a_report_names_what_is_wrong(self):
        report = Report("a run")
        report.add("frames", 1234567)
        report.add("gap", "3.5", "ms")
        self.assertEqual(report.text(), "a run\n  frames  1,234,567\n  gap           3.5 ms\n"
                                        "  nothing lost, nothing grown, nothing hung")
        report.problems.append("a frame is missing")
        self.assertTrue(report.text().endswith("\n  FAIL: a frame is missing"))

    def test_a_tail_brings_each_line_once_it_is_complete(self):
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "log")
            tail = Tail(path)
            self.assertEqual(tail.lines(), [])
            with open(path, "w") as file:
                for text, lines in (("one\ntw", ["one"]), ("o\n", ["two"]), ("", []),
                                    ("three\nfour\n", ["three", "four"])):
                    file.write(text)
                    file.flush()
                    self.assertEqual(tail.lines(), lines)
            tail.close()


class Script(unittest.TestCase):
    def run_script(self, *arguments):
        return subprocess.run([os.path.join(ROOT, "script", "soak")] + list(arguments), stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, check=False)

    def test_tells_its_use(self):
        done = self.run_script("--help")
        self.assertEqual(done.returncode, 0)
        for word in ("panel", "record", "master", "nodes", "MINUTES", "--seed N"):
            self.assertIn(word, done.stdout)

    def test_refuses_what_it_does_not_know(self):
        for arguments in (["fast"], ["1.2.3"], ["."], ["1", "2"], ["panel", "master"], ["--seed"],
                          ["--seed", "x"], ["--seed", "4294967296"], ["--seed", "99999999999"], [""]):
            done = self.run_script(*arguments)
            self.assertEqual(done.returncode, 2, arguments)
            self.assertTrue(done.stderr.startswith("soak: "), done.stderr)


class Cases(unittest.TestCase):
    def test_all_classes_are_run(self):
        classes = [name for name, value in inspect.getmembers(sys.modules[__name__], inspect.isclass)
                   if issubclass(value, unittest.TestCase) and name != "Cases"]
        self.assertEqual(sorted(os.environ["CASES"].split(",")), sorted(classes))


if __name__ == "__main__":
    unittest.main(verbosity=2)
