"""Shows the panel on the display that is there, with the simulated vehicle as its serial line."""

import argparse

from drive import process, recorder
from drive.panel import WITH_LINE, way_of_the_line
from drive.vehicle import Vehicle


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--panel", required=True, help="the panel's program")
    parser.add_argument("--simulator", required=True, help="vehicle-simulator")
    parser.add_argument("--log", required=True, help="where the vehicle logs")
    parser.add_argument("--record", metavar="FILE", help="record the line into this new file")
    parser.add_argument("--recorder", help="vehicle-recorder, for --record")
    options = parser.parse_args()
    if options.record and not options.recorder:
        parser.error("--record needs --recorder")
    runner = recorder.runner(options.recorder, options.record) if options.record else []
    print(way_of_the_line())
    with Vehicle(options.simulator, log=options.log) as vehicle:
        print(f"The simulated vehicle is on {vehicle.line} and logs to {options.log}")
        panel = process.start([WITH_LINE, vehicle.line] + runner + [options.panel])
        try:
            return panel.wait()
        finally:
            process.stop(panel)


if __name__ == "__main__":
    process.run_to_the_end(main)
