"""A connection to the X server by libX11, for clients of the tests' own that do what no toolkit
would."""

import ctypes
from ctypes import (POINTER, Structure, Union, byref, c_char_p, c_int, c_long, c_ubyte, c_ulong,
                    c_void_p)
from typing import Sequence, Union as Either

NONE = 0
CURRENT_TIME = 0
ATOM = 4
INTEGER = 19
PROPERTY_NOTIFY = 28
SELECTION_CLEAR = 29
SELECTION_REQUEST = 30
SELECTION_NOTIFY = 31
PROPERTY_DELETED = 1
PROPERTY_CHANGE_MASK = 1 << 22
GRAB_SUCCESS = 0


class _Any(Structure):
    _fields_ = [("type", c_int), ("serial", c_ulong), ("send_event", c_int), ("display", c_void_p)]


class SelectionRequest(Structure):
    _fields_ = _Any._fields_ + [(name, c_ulong) for name in (
        "owner", "requestor", "selection", "target", "property", "time")]


class SelectionNotify(Structure):
    _fields_ = _Any._fields_ + [(name, c_ulong) for name in (
        "requestor", "selection", "target", "property", "time")]


class PropertyNotify(Structure):
    _fields_ = _Any._fields_ + [(name, c_ulong) for name in ("window", "atom", "time")] + [
        ("state", c_int)]


class Event(Union):
    _fields_ = [("type", c_int), ("request", SelectionRequest), ("notify", SelectionNotify),
                ("property", PropertyNotify), ("pad", c_long * 24)]


_Handler = ctypes.CFUNCTYPE(c_int, c_void_p, c_void_p)


class XClient:
    """One connection with one window that is never shown."""

    def __init__(self) -> None:
        self._x = ctypes.CDLL("libX11.so.6")
        self._x.XOpenDisplay.restype = c_void_p
        self._x.XOpenDisplay.argtypes = [c_char_p]
        self._x.XDefaultRootWindow.restype = c_ulong
        self._x.XDefaultRootWindow.argtypes = [c_void_p]
        self._x.XInternAtom.restype = c_ulong
        self._x.XInternAtom.argtypes = [c_void_p, c_char_p, c_int]
        self._x.XCreateSimpleWindow.restype = c_ulong
        self._x.XCreateSimpleWindow.argtypes = [c_void_p, c_ulong, c_int, c_int, c_int, c_int,
                                                c_int, c_ulong, c_ulong]
        self._x.XSetSelectionOwner.argtypes = [c_void_p, c_ulong, c_ulong, c_ulong]
        self._x.XSelectInput.argtypes = [c_void_p, c_ulong, c_long]
        self._x.XChangeProperty.argtypes = [c_void_p, c_ulong, c_ulong, c_ulong, c_int, c_int,
                                            c_void_p, c_int]
        self._x.XSendEvent.argtypes = [c_void_p, c_ulong, c_int, c_long, POINTER(Event)]
        self._x.XNextEvent.argtypes = [c_void_p, POINTER(Event)]
        self._x.XFlush.argtypes = [c_void_p]
        self._x.XSync.argtypes = [c_void_p, c_int]
        self._x.XGrabKeyboard.argtypes = [c_void_p, c_ulong, c_int, c_int, c_int, c_ulong]
        self._x.XUngrabKeyboard.argtypes = [c_void_p, c_ulong]
        # A requestor that has gone is no reason to end.
        self._ignore = _Handler(lambda display, error: 0)
        self._x.XSetErrorHandler(self._ignore)
        self._display = self._x.XOpenDisplay(None)
        if not self._display:
            raise RuntimeError("no X server")
        self.root = self._x.XDefaultRootWindow(self._display)
        self.window = self._x.XCreateSimpleWindow(self._display, self.root, -1, -1, 1, 1, 0, 0, 0)

    def atom(self, name: str) -> int:
        return self._x.XInternAtom(self._display, name.encode(), 0)

    def own(self, selection: int) -> None:
        self._x.XSetSelectionOwner(self._display, selection, self.window, CURRENT_TIME)
        self.sync()

    def watch_properties(self, window: int) -> None:
        self._x.XSelectInput(self._display, window, PROPERTY_CHANGE_MASK)

    def put(self, window: int, name: int, kind: int, form: int,
            data: Either[bytes, Sequence[int]]) -> None:
        """Sets a property; items of format 32 are given as numbers."""
        if isinstance(data, bytes):
            items: ctypes.Array = (c_ubyte * len(data)).from_buffer_copy(data)
            count = len(data) * 8 // form
        else:
            items = (c_ulong * len(data))(*data)
            count = len(data)
        self._x.XChangeProperty(self._display, window, name, kind, form, 0, items, count)

    def answer(self, request: SelectionRequest, granted: bool = True) -> None:
        event = Event()
        event.notify.type = SELECTION_NOTIFY
        event.notify.requestor = request.requestor
        event.notify.selection = request.selection
        event.notify.target = request.target
        event.notify.property = request.property if granted else NONE
        event.notify.time = request.time
        self._x.XSendEvent(self._display, request.requestor, 0, 0, byref(event))
        self.flush()

    def next_event(self) -> Event:
        event = Event()
        self._x.XNextEvent(self._display, byref(event))
        return event

    def grab_keyboard(self) -> bool:
        """Whether every key comes to this client alone from now on."""
        return self._x.XGrabKeyboard(self._display, self.root, 1, 1, 1,
                                     CURRENT_TIME) == GRAB_SUCCESS

    def ungrab_keyboard(self) -> None:
        self._x.XUngrabKeyboard(self._display, CURRENT_TIME)
        self.sync()

    def flush(self) -> None:
        self._x.XFlush(self._display)

    def sync(self) -> None:
        self._x.XSync(self._display, 0)
