"""What a window manager, a clipboard and a camera would do, in terms of the X protocol.

Needs Debian's python3, with python3-xlib and python3-pil.
"""

import contextlib
import select
import time

from PIL import Image
from Xlib import X, display, error
from Xlib.protocol import event, request

_WHOLE_PIXELS = 0xFFFFFFFF


class XClient:
    """A connection to an X server."""

    def __init__(self, name):
        try:
            self._display = display.Display(name)
        except error.DisplayError as failure:
            raise RuntimeError("no X server at " + name) from failure

    def close(self):
        with contextlib.suppress(error.ConnectionClosedError):  # the server went first
            self._display.close()

    def _atom(self, name):
        return self._display.intern_atom(name)

    def _root(self):
        return self._display.screen().root

    def image(self, x, y, width, height):
        """What the screen shows in a rectangle."""
        pixels = self._root().get_image(x, y, width, height, X.ZPixmap, _WHOLE_PIXELS)
        return Image.frombytes("RGB", (width, height), pixels.data, "raw", "BGRX")

    def close_window(self, window):
        """Asks a window to close, as a window manager does when its close button is pressed."""
        message = event.ClientMessage(window=window, client_type=self._atom("WM_PROTOCOLS"),
                                      data=(32, [self._atom("WM_DELETE_WINDOW"), X.CurrentTime, 0, 0, 0]))
        self._display.create_resource_object("window", window).send_event(message)
        self._display.sync()

    def forget_selection(self):
        """Makes that no text is selected anywhere, as far as others can tell."""
        request.SetSelectionOwner(display=self._display.display, window=X.NONE, selection=self._atom("PRIMARY"),
                                  time=X.CurrentTime)
        self._display.sync()

    def selected_text(self, limit_s=10):
        """The text that is selected with the mouse (the PRIMARY selection), empty if there is none."""
        window = self._root().create_window(0, 0, 1, 1, 0, X.CopyFromParent)
        answer = self._atom("PANEL_SELECTION")
        window.convert_selection(self._atom("PRIMARY"), self._atom("UTF8_STRING"), answer, X.CurrentTime)
        notified = self._wait_for_selection(window, limit_s)
        text = "" if notified.property == X.NONE else window.get_full_property(answer, X.AnyPropertyType).value.decode()
        window.destroy()
        return text

    def _wait_for_selection(self, window, limit_s):
        """Waits for the answer to a request for the selection by a window."""
        end = time.monotonic() + limit_s
        while True:
            while self._display.pending_events():
                told = self._display.next_event()
                if told.type == X.SelectionNotify and told.requestor == window:
                    return told
            if time.monotonic() > end:
                raise TimeoutError("the owner of the selection does not answer")
            select.select([self._display], [], [], limit_s)
