"""The vehicle's black box: a panel that is recorded, and the recording held against the vehicle's own log."""

import json
import os
import re
import subprocess

MOTOR = {0x50: "off", 0x51: "on"}


def runner(program, recording, *options):
    """The beginning of a command line that runs a panel, recorded."""
    return [program, "run", "--out", recording, *options, "--"]


class Recording:
    """A recording, as the recorder's own commands tell of it."""

    def __init__(self, program, path):
        self._program = program
        self.path = path

    def _tell(self, *arguments):
        done = subprocess.run([self._program, *arguments, self.path], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True, check=False, env=dict(os.environ, LC_ALL="C.UTF-8"))
        if done.returncode != 0:
            raise RuntimeError(f"vehicle-recorder {arguments[0]}: {done.stderr.strip()}")
        return done.stdout

    def cycles(self):
        """A row for each frame."""
        return json.loads(self._tell("export", "--json"))

    def report(self):
        """The page that a person reads first."""
        return self._tell("report")

    def reported(self, name):
        """A number of the report's table at its beginning."""
        found = re.search(rf"^  {name} +([0-9,]+)", self.report(), re.MULTILINE)
        return int(found[1].replace(",", "")) if found else None


def _command(event):
    command = event.frame()
    return {"frame": command.hex(), "throttle": command[0], "direction": command[1], "bucket": command[2],
            "motor": MOTOR.get(command[3])}


def _reply(event):
    count = int(event.words[0])
    return {"data": "".join(event.words[2:2 + count]), "bytes": count, "speed_rpm": event.value("speed"),
            "voltage": event.value("voltage"), "current": event.value("current"),
            "capacity_ah": event.value("capacity"), "latitude": event.value("latitude")}


def _differences(what, recorded, logged):
    """Where two lists of rows differ, told in few words."""
    faults = []
    if len(recorded) != len(logged):
        faults.append(f"the recording has {len(recorded)} {what}, the vehicle's log {len(logged)}")
    for number, (here, there) in enumerate(zip(recorded, logged), 1):
        faults += [f"{what} {number}: {name} {here[name]} in the recording, {value} in the vehicle's log"
                   for name, value in there.items() if here[name] != value]
    return faults[:5]


def faults(recording, vehicle):
    """What of a recording is not what the vehicle's log has: frames, replies, set-points, measured values, to the last
    digit. An empty list is none. It holds for a vehicle that answered each frame with a whole reply."""
    cycles = recording.cycles()
    frames = [_command(event) for event in vehicle.events("received")]
    replies = [_reply(event) for event in vehicle.events("replied")]
    answered = [cycle for cycle in cycles if cycle["reply"] != "missing"]
    result = _differences("frames", cycles, frames) + _differences("replies", answered, replies)
    told = {"Frames sent": len(frames), "Replies": len(replies), "Top speed": max(reply["speed_rpm"] for reply in replies)}
    for name, number in told.items():
        if recording.reported(name) != number:
            result.append(f"the report tells {recording.reported(name)} for {name!r}, the vehicle's log {number}")
    return result
