"""The connections that a program keeps to the X server, and cutting them from outside."""

import ctypes
from dataclasses import dataclass

_LOCAL_CLIENT_PID = 1 << 1


class _Client(ctypes.Structure):
    _fields_ = [("base", ctypes.c_ulong), ("mask", ctypes.c_ulong)]


class _IdSpec(ctypes.Structure):
    _fields_ = [("client", ctypes.c_ulong), ("mask", ctypes.c_uint)]


class _IdValue(ctypes.Structure):
    _fields_ = [("spec", _IdSpec), ("length", ctypes.c_long), ("value", ctypes.c_void_p)]


class _ResourceType(ctypes.Structure):
    _fields_ = [("type", ctypes.c_ulong), ("count", ctypes.c_uint)]


@dataclass(frozen=True)
class Connection:
    """One connection; a toolkit's holds hundreds of resources, a listener's a handful."""

    id: int
    resources: int


class XClients:
    """Asks the X server's resource extension."""

    def __init__(self, display: str) -> None:
        self._x11 = ctypes.CDLL("libX11.so.6")
        self._xres = ctypes.CDLL("libXRes.so.1")
        self._x11.XOpenDisplay.restype = ctypes.c_void_p
        self._x11.XOpenDisplay.argtypes = [ctypes.c_char_p]
        self._x11.XKillClient.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
        self._x11.XSync.argtypes = [ctypes.c_void_p, ctypes.c_int]
        self._x11.XFree.argtypes = [ctypes.c_void_p]
        self._x11.XCloseDisplay.argtypes = [ctypes.c_void_p]
        self._xres.XResGetClientPid.argtypes = [ctypes.POINTER(_IdValue)]
        self._display = ctypes.c_void_p(self._x11.XOpenDisplay(display.encode()))
        if not self._display:
            raise RuntimeError(f"no X server at {display}")

    def close(self) -> None:
        self._x11.XCloseDisplay(self._display)

    def of_process(self, process: int) -> list[Connection]:
        """The connections of a process, the one with the fewest resources first."""
        count = ctypes.c_int()
        clients = ctypes.POINTER(_Client)()
        if not self._xres.XResQueryClients(self._display, ctypes.byref(count),
                                           ctypes.byref(clients)):
            raise RuntimeError("the X server does not tell its clients")
        bases = [clients[i].base for i in range(count.value)]
        self._x11.XFree(clients)
        ours = [base for base in bases if base and self._process_of(base) == process]
        return sorted((Connection(base, self._resources_of(base)) for base in ours),
                      key=lambda connection: connection.resources)

    def cut(self, connection: Connection) -> None:
        """Has the server close the connection."""
        self._x11.XKillClient(self._display, connection.id)
        self._x11.XSync(self._display, 0)

    def _process_of(self, base: int) -> int:
        spec = _IdSpec(base, _LOCAL_CLIENT_PID)
        count = ctypes.c_long()
        values = ctypes.POINTER(_IdValue)()
        if self._xres.XResQueryClientIds(self._display, ctypes.c_long(1), ctypes.byref(spec),
                                         ctypes.byref(count), ctypes.byref(values)) != 0:
            return -1
        process = -1
        for i in range(count.value):
            process = max(process, self._xres.XResGetClientPid(ctypes.byref(values[i])))
        self._xres.XResClientIdsDestroy(count, values)
        return process

    def _resources_of(self, base: int) -> int:
        count = ctypes.c_int()
        types = ctypes.POINTER(_ResourceType)()
        if not self._xres.XResQueryClientResources(self._display, ctypes.c_ulong(base),
                                                   ctypes.byref(count), ctypes.byref(types)):
            return 0
        total = sum(types[i].count for i in range(count.value))
        self._x11.XFree(types)
        return total
