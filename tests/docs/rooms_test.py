"""The picture of the rooms against the includes as they stand, and the includes against the rooms' order."""

import os
import sys
import unittest

import markdown

sys.path.insert(0, os.path.join(markdown.ROOT, "script", "lib"))

from draw import rooms  # noqa: E402

APPLICATION, WIDGETS, LIBRARY, UTILITIES, NODES = "", "widgets", "nodevik", "nodevik/util", "nodevik/nodes"
VEHICLE, NODE = "simulator/vehicle", "simulator/node"
PROTOCOL, RECORDER = "vehicle", "recorder"


class Rooms(unittest.TestCase):
    maxDiff = None

    def test_the_picture_shows_the_includes_of_today(self):
        self.assertEqual(markdown.read("docs/pictures/rooms.dot"), rooms.dot(markdown.ROOT),
                         "make it anew: script/pictures rooms")

    def test_dependencies_run_downwards(self):
        edges = rooms.edges_of(markdown.ROOT)
        self.assertGreater(edges[APPLICATION, WIDGETS], 0)
        self.assertGreater(edges[APPLICATION, UTILITIES], 0)
        for here, there in ((LIBRARY, "Qt"), (UTILITIES, "Qt"), (UTILITIES, LIBRARY), (LIBRARY, WIDGETS),
                            (LIBRARY, APPLICATION), (UTILITIES, APPLICATION), (WIDGETS, APPLICATION),
                            (WIDGETS, LIBRARY), (WIDGETS, UTILITIES), (LIBRARY, NODES), (UTILITIES, NODES), (NODES, "Qt"),
                            (NODES, APPLICATION), (NODES, WIDGETS), (VEHICLE, "Qt"), (NODE, "Qt"),
                            (VEHICLE, APPLICATION), (NODE, APPLICATION), (VEHICLE, NODE), (NODE, VEHICLE),
                            (VEHICLE, PROTOCOL), (PROTOCOL, APPLICATION), (PROTOCOL, "Qt"), (RECORDER, "Qt"),
                            (RECORDER, VEHICLE), (RECORDER, WIDGETS)):
            self.assertEqual(edges[here, there], 0, f"{here} includes {there}")


if __name__ == "__main__":
    unittest.main()
