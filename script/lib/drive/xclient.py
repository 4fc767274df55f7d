"""What a window manager and a clipboard would do, in terms of Xlib."""

import ctypes
import time

_NO_PROPERTY = 0
_CURRENT_TIME = 0
_CLIENT_MESSAGE = 33
_SELECTION_NOTIFY = 31
_ANY_PROPERTY_TYPE = 0


class _ClientMessage(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("window", ctypes.c_ulong), ("message_type", ctypes.c_ulong),
                ("format", ctypes.c_int), ("data", ctypes.c_long * 5)]


class _Selection(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("requestor", ctypes.c_ulong), ("selection", ctypes.c_ulong),
                ("target", ctypes.c_ulong), ("property", ctypes.c_ulong), ("time", ctypes.c_ulong)]


class _Event(ctypes.Union):
    _fields_ = [("type", ctypes.c_int), ("client", _ClientMessage), ("selection", _Selection),
                ("room", ctypes.c_long * 24)]


def _xlib():
    lib = ctypes.CDLL("libX11.so.6")
    display, window, atom = ctypes.c_void_p, ctypes.c_ulong, ctypes.c_ulong
    lib.XOpenDisplay.restype = display
    lib.XOpenDisplay.argtypes = [ctypes.c_char_p]
    lib.XCloseDisplay.argtypes = [display]
    lib.XInternAtom.restype = atom
    lib.XInternAtom.argtypes = [display, ctypes.c_char_p, ctypes.c_int]
    lib.XSendEvent.argtypes = [display, window, ctypes.c_int, ctypes.c_long, ctypes.POINTER(_Event)]
    lib.XDefaultRootWindow.restype = window
    lib.XDefaultRootWindow.argtypes = [display]
    lib.XCreateSimpleWindow.restype = window
    lib.XCreateSimpleWindow.argtypes = [display, window] + [ctypes.c_int] * 2 + [ctypes.c_uint] * 3 + [
        ctypes.c_ulong] * 2
    lib.XConvertSelection.argtypes = [display, atom, atom, atom, window, ctypes.c_ulong]
    lib.XCheckTypedWindowEvent.argtypes = [display, window, ctypes.c_int, ctypes.POINTER(_Event)]
    lib.XGetWindowProperty.argtypes = [display, window, atom, ctypes.c_long, ctypes.c_long, ctypes.c_int, atom,
                                       ctypes.POINTER(atom), ctypes.POINTER(ctypes.c_int),
                                       ctypes.POINTER(ctypes.c_ulong), ctypes.POINTER(ctypes.c_ulong),
                                       ctypes.POINTER(ctypes.c_void_p)]
    lib.XSetSelectionOwner.argtypes = [display, atom, window, ctypes.c_ulong]
    lib.XDestroyWindow.argtypes = [display, window]
    lib.XFree.argtypes = [ctypes.c_void_p]
    lib.XSync.argtypes = [display, ctypes.c_int]
    return lib


class XClient:
    """A connection to an X server."""

    def __init__(self, display):
        self._lib = _xlib()
        self._display = self._lib.XOpenDisplay(display.encode())
        if not self._display:
            raise RuntimeError("no X server at " + display)

    def close(self):
        self._lib.XCloseDisplay(self._display)

    def _atom(self, name):
        return self._lib.XInternAtom(self._display, name.encode(), False)

    def close_window(self, window):
        """Asks a window to close, as a window manager does when its close button is pressed."""
        event = _Event()
        event.client.type = _CLIENT_MESSAGE
        event.client.window = window
        event.client.message_type = self._atom("WM_PROTOCOLS")
        event.client.format = 32
        event.client.data[0] = self._atom("WM_DELETE_WINDOW")
        event.client.data[1] = _CURRENT_TIME
        self._lib.XSendEvent(self._display, window, False, 0, ctypes.byref(event))
        self._lib.XSync(self._display, False)

    def forget_selection(self):
        """Makes that no text is selected anywhere, as far as others can tell."""
        self._lib.XSetSelectionOwner(self._display, self._atom("PRIMARY"), 0, _CURRENT_TIME)
        self._lib.XSync(self._display, False)

    def selected_text(self, limit_s=10):
        """The text that is selected with the mouse (the PRIMARY selection), empty if there is none."""
        root = self._lib.XDefaultRootWindow(self._display)
        window = self._lib.XCreateSimpleWindow(self._display, root, 0, 0, 1, 1, 0, 0, 0)
        answer = self._atom("PANEL_SELECTION")
        self._lib.XConvertSelection(self._display, self._atom("PRIMARY"), self._atom("UTF8_STRING"), answer, window,
                                    _CURRENT_TIME)
        event = _Event()
        end = time.monotonic() + limit_s
        while not self._lib.XCheckTypedWindowEvent(self._display, window, _SELECTION_NOTIFY, ctypes.byref(event)):
            if time.monotonic() > end:
                raise TimeoutError("the owner of the selection does not answer")
            time.sleep(0.005)
        text = self._text(window, answer) if event.selection.property != _NO_PROPERTY else ""
        self._lib.XDestroyWindow(self._display, window)
        return text

    def _text(self, window, answer):
        kind, form = ctypes.c_ulong(), ctypes.c_int()
        count, left, data = ctypes.c_ulong(), ctypes.c_ulong(), ctypes.c_void_p()
        self._lib.XGetWindowProperty(self._display, window, answer, 0, 1 << 20, True, _ANY_PROPERTY_TYPE,
                                     ctypes.byref(kind), ctypes.byref(form), ctypes.byref(count), ctypes.byref(left),
                                     ctypes.byref(data))
        text = ctypes.string_at(data, count.value).decode()
        self._lib.XFree(data)
        return text
