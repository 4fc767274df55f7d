"""What somebody gets who does not see the panel: an AT-SPI client, which is what a screen reader is, on buses of its own.

Needs Debian's python3: the bindings (python3-gi, gir1.2-atspi-2.0) come with no other.
"""

import contextlib
import os
import shutil
import subprocess
import tempfile

from . import process

# The kinds of events that are kept.
VALUE = "object:property-change:accessible-value"
WORDS = "object:property-change:accessible-description"
CHECKED = "object:state-changed:checked"

# How long a program may take to answer a question. The library gives up after 0.8 s, which a busy machine exceeds.
_REPLY_LIMIT_MS = int(process.LIMIT_S * 1000)


class Gauge:
    """A meter or a lamp as the client knows it."""

    def __init__(self, client, accessible):
        self._client = client
        self._accessible = accessible

    def role(self):
        return self._accessible.get_role_name()

    def name(self):
        return self._accessible.get_name()

    def words(self):
        """The value in words; what the client keeps of them is renewed when it is told that they changed."""
        self._client.listen()
        return self._accessible.get_description()

    def states(self):
        self._client.listen()
        return {state.value_nick for state in self._accessible.get_state_set().get_states()}

    def interfaces(self):
        return set(self._accessible.get_interfaces())

    def range(self):
        return self._accessible.get_minimum_value(), self._accessible.get_maximum_value()

    def place(self):
        """Where it is on the screen: x, y, width, height."""
        extents = self._accessible.get_extents(self._client.screen_coordinates())
        return extents.x, extents.y, extents.width, extents.height

    def value(self):
        return self._accessible.get_current_value()

    def try_to_set(self, value):
        self._accessible.set_current_value(value)

    def try_every_action(self):
        for number in range(self._accessible.get_n_actions()):
            self._accessible.do_action(number)


class Client:
    """The client with a session bus and the registry of accessible programs, on a screen. One in a process's life."""

    def __init__(self, screen):
        self._screen = screen

    def __enter__(self):
        self._directory = tempfile.mkdtemp(prefix="assistive-")
        environment = dict(os.environ, DISPLAY=self._screen.display, XDG_RUNTIME_DIR=self._directory,
                           HOME=self._directory, GSETTINGS_BACKEND="memory", LC_ALL="C.UTF-8")
        try:
            with open(os.path.join(self._directory, "log"), "wb") as log:
                self._bus = process.start(["dbus-daemon", "--session", "--nofork", "--print-address"],
                                          env=environment, stdout=subprocess.PIPE, stderr=log, text=True)
            address = self._bus.stdout.readline().strip()
            if not address:
                raise RuntimeError("the session bus does not start")
            # For the library below, and for the programs that are started from here on.
            os.environ["DBUS_SESSION_BUS_ADDRESS"] = address
            self._begin()
        except BaseException:
            self.__exit__()
            raise
        return self

    def _begin(self):
        import gi

        gi.require_version("Atspi", "2.0")
        from gi.repository import Atspi, GLib

        self._atspi = Atspi
        self._failure = GLib.Error
        self._loop = GLib.MainContext.default()
        self.events = []
        Atspi.init()
        Atspi.set_timeout(_REPLY_LIMIT_MS, _REPLY_LIMIT_MS)
        self._listener = Atspi.EventListener.new(self._keep)
        for kind in (VALUE, WORDS, CHECKED):
            self._listener.register(kind)

    def __exit__(self, *_):
        process.stop(self._bus)
        self._bus.stdout.close()
        shutil.rmtree(self._directory, ignore_errors=True)

    def _keep(self, event):
        self.events.append((event.type, event.source.get_name(), event.detail1))

    def screen_coordinates(self):
        """The kind of coordinates that are those of the screen."""
        return self._atspi.CoordType.SCREEN

    def listen(self):
        """Takes what has been told until now."""
        while self._loop.iteration(False):
            pass

    def wait_for_event(self, kind, name, detail=0):
        """Waits until the program tells that a gauge's value, words or state changed; `detail` is the new state."""

        def told():
            self.listen()
            return (kind, name, detail) in self.events

        process.wait_until(told, lambda: f"the event {kind} of {name}; there were {self.events}")

    def programs(self):
        """The accessible programs' names."""
        self.listen()
        names = []
        for program in self._children(self._atspi.get_desktop(0)):
            with contextlib.suppress(self._failure):  # gone between two questions
                names.append(program.get_name())
        return names

    def _children(self, accessible):
        """Those that are there: one that goes between two questions is none any more."""
        children = []
        with contextlib.suppress(self._failure):
            for number in range(accessible.get_child_count()):
                children.append(accessible.get_child_at_index(number))
        return [child for child in children if child is not None]

    def find_all(self, role):
        """Everything with a role that the programs have, parents before children."""
        self.listen()
        found = []
        rest = [self._atspi.get_desktop(0)]
        while rest:
            accessible = rest.pop(0)
            rest = self._children(accessible) + rest
            with contextlib.suppress(self._failure):
                if accessible.get_role_name() == role:
                    found.append(Gauge(self, accessible))
        return found

    def find(self, role, name):
        """Waits for something with this role and name."""

        def first():
            return next((gauge for gauge in self.find_all(role) if gauge.name() == name), None)

        return process.wait_until(first, f"a {role} named {name}")
