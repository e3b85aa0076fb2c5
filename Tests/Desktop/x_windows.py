"""Windows by their place on the screen, the mouse on them, and what their pixels show."""

import re
import subprocess
from dataclasses import dataclass

from virtual_desktop import VirtualDesktop


@dataclass(frozen=True)
class Window:
    """A window and where it was when it was looked for, in pixels of the screen."""

    id: str
    left: int
    top: int
    width: int
    height: int


def windows(desktop: VirtualDesktop, kind: str, pattern: str) -> list[Window]:
    """The visible windows whose `kind`, as "--name" or "--class", matches."""
    found = desktop.output("xdotool", "search", "--onlyvisible", kind, pattern).split()
    return [window for window in (_look(desktop, one) for one in found) if window.width > 0]


def _look(desktop: VirtualDesktop, window: str) -> Window:
    told = {name: int(value) for name, value in re.findall(
        r"^(\w+)=(-?\d+)$",
        desktop.output("xdotool", "getwindowgeometry", "--shell", window), re.MULTILINE)}
    return Window(window, told.get("X", 0), told.get("Y", 0), told.get("WIDTH", 0),
                  told.get("HEIGHT", 0))


def click(desktop: VirtualDesktop, window: Window, x: int, y: int, button: int = 1) -> None:
    """Moves the mouse to that place in the window and clicks."""
    desktop.run("xdotool", "mousemove", str(window.left + x), str(window.top + y))
    desktop.run("xdotool", "click", str(button))


def pixels(desktop: VirtualDesktop, window: Window) -> list[tuple[int, int, int]]:
    """Red, green and blue of every pixel of the screen where the window is."""
    area = f"{window.width}x{window.height}+{window.left}+{window.top}"
    picture = subprocess.run(
        ["import", "-silent", "-window", "root", "-crop", area, "-depth", "8", "rgb:-"],
        env=desktop.environment, stdin=subprocess.DEVNULL, capture_output=True, check=True,
        timeout=30).stdout
    assert len(picture) == 3 * window.width * window.height
    return [(picture[i], picture[i + 1], picture[i + 2]) for i in range(0, len(picture), 3)]
