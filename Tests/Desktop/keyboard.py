"""Key events through the X server's XTEST extension, by key code, and the moment they were sent."""

import ctypes

from waiting import now_ns

RIGHT_ALT = 108
RIGHT_CONTROL = 105
RIGHT_SUPER = 134
ESCAPE = 9
LEFT_CONTROL = 37
RETURN = 36
S_KEY = 39
V_KEY = 55


class Keyboard:
    """One connection to the display, kept open so that sending costs microseconds."""

    def __init__(self, display: str) -> None:
        self._x11 = ctypes.CDLL("libX11.so.6")
        self._xtst = ctypes.CDLL("libXtst.so.6")
        self._x11.XOpenDisplay.restype = ctypes.c_void_p
        self._x11.XOpenDisplay.argtypes = [ctypes.c_char_p]
        self._x11.XSync.argtypes = [ctypes.c_void_p, ctypes.c_int]
        self._x11.XFlush.argtypes = [ctypes.c_void_p]
        self._x11.XCloseDisplay.argtypes = [ctypes.c_void_p]
        self._xtst.XTestFakeKeyEvent.argtypes = [ctypes.c_void_p, ctypes.c_uint, ctypes.c_int,
                                                 ctypes.c_ulong]
        self._display = self._x11.XOpenDisplay(display.encode())
        if not self._display:
            raise RuntimeError(f"no X server at {display}")

    def _send(self, code: int, down: bool) -> int:
        sent = now_ns()
        self._xtst.XTestFakeKeyEvent(self._display, code, down, 0)
        self._x11.XFlush(self._display)
        return sent

    def down(self, code: int) -> int:
        """Presses the key; the time just before."""
        return self._send(code, True)

    def up(self, code: int) -> int:
        """Lets the key go; the time just before."""
        return self._send(code, False)

    def tap(self, code: int) -> int:
        """Presses the key and lets it go; the time just before."""
        sent = self.down(code)
        self.up(code)
        return sent

    def chord(self, modifier: int, code: int) -> int:
        """Taps the key with the modifier held; the time just before."""
        sent = self.down(modifier)
        self.tap(code)
        self.up(modifier)
        self._x11.XSync(self._display, 0)
        return sent

    def close(self) -> None:
        if self._display:
            self._x11.XCloseDisplay(self._display)
            self._display = None
