"""What a process holds in the X server, by the X-Resource extension."""

import ctypes

_PID_MASK = 2  # XRES_CLIENT_ID_PID_MASK


class _Type(ctypes.Structure):
    _fields_ = [("atom", ctypes.c_ulong), ("count", ctypes.c_uint)]


class _Spec(ctypes.Structure):
    _fields_ = [("client", ctypes.c_ulong), ("mask", ctypes.c_uint)]


class _Value(ctypes.Structure):
    _fields_ = [("chosen", _Spec), ("length", ctypes.c_long), ("value", ctypes.c_void_p)]


class XResources:
    """A connection to the display that looks at the others."""

    def __init__(self, display: str) -> None:
        self._x11 = x11 = ctypes.CDLL("libX11.so.6")
        self._res = res = ctypes.CDLL("libXRes.so.1")
        pointer, long, number = ctypes.c_void_p, ctypes.c_ulong, ctypes.POINTER(ctypes.c_int)
        x11.XOpenDisplay.restype = pointer
        x11.XOpenDisplay.argtypes = [ctypes.c_char_p]
        x11.XGetAtomName.restype = ctypes.c_void_p
        x11.XGetAtomName.argtypes = [pointer, long]
        x11.XFree.argtypes = x11.XCloseDisplay.argtypes = [pointer]
        res.XResQueryClientIds.argtypes = [
            pointer, ctypes.c_long, ctypes.POINTER(_Spec), ctypes.POINTER(ctypes.c_long),
            ctypes.POINTER(ctypes.POINTER(_Value))]
        res.XResGetClientPid.argtypes = [ctypes.POINTER(_Value)]
        res.XResClientIdsDestroy.argtypes = [ctypes.c_long, ctypes.POINTER(_Value)]
        res.XResQueryClientResources.argtypes = [pointer, long, number,
                                                 ctypes.POINTER(ctypes.POINTER(_Type))]
        res.XResQueryClientPixmapBytes.argtypes = [pointer, long, ctypes.POINTER(long)]
        self._display = x11.XOpenDisplay(display.encode())
        if not self._display:
            raise RuntimeError(f"no X server at {display}")
        self._names: dict[int, str] = {}

    def close(self) -> None:
        self._x11.XCloseDisplay(self._display)

    def _clients(self, process: int) -> list[int]:
        chosen, count = _Spec(0, _PID_MASK), ctypes.c_long()
        values = ctypes.POINTER(_Value)()
        if self._res.XResQueryClientIds(self._display, 1, ctypes.byref(chosen), ctypes.byref(count),
                                        ctypes.byref(values)) != 0:
            raise RuntimeError("the X server does not tell whose its clients are")
        found = [values[i].chosen.client for i in range(count.value)
                 if self._res.XResGetClientPid(ctypes.byref(values[i])) == process]
        self._res.XResClientIdsDestroy(count, values)
        return found

    def _name(self, atom: int) -> str:
        if atom not in self._names:
            name = self._x11.XGetAtomName(self._display, atom)
            self._names[atom] = ctypes.string_at(name).decode() if name else str(atom)
            if name:
                self._x11.XFree(name)
        return self._names[atom]

    def held_by(self, process: int) -> dict[str, int]:
        """How many of each kind ("WINDOW", "PIXMAP", ...) all connections of the process hold, with
        "connections" and "pixmap bytes"."""
        held = {"connections": 0, "pixmap bytes": 0}
        for client in self._clients(process):
            held["connections"] += 1
            count, types = ctypes.c_int(), ctypes.POINTER(_Type)()
            if self._res.XResQueryClientResources(self._display, client, ctypes.byref(count),
                                                  ctypes.byref(types)):
                for index in range(count.value):
                    name = self._name(types[index].atom)
                    held[name] = held.get(name, 0) + types[index].count
                self._x11.XFree(types)
            size = ctypes.c_ulong()
            if self._res.XResQueryClientPixmapBytes(self._display, client, ctypes.byref(size)):
                held["pixmap bytes"] += size.value
        return held
