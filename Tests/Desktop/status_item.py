"""The program's item in a status area, and its menu, as a host of status items uses them."""

import subprocess
import time
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Callable, Iterator, Optional

import dbus
import dbus.bus

from waiting import Timeout, wait_until

Start = Callable[..., subprocess.Popen]

WATCHER = "org.kde.StatusNotifierWatcher"
ITEM = "org.kde.StatusNotifierItem"
MENU = "com.canonical.dbusmenu"
PROPERTIES = "org.freedesktop.DBus.Properties"

PANEL_SETTINGS = """[General]
panels=panel1

[panel1]
plugins=statusnotifier
position=Bottom
desktop=0
panelSize=32

[statusnotifier]
type=statusnotifier
"""


@dataclass(frozen=True)
class Entry:
    """One entry of a menu as its host has to show it."""

    id: int
    title: str
    enabled: bool
    visible: bool
    separator: bool
    shortcut: str
    entries: list["Entry"] = field(default_factory=list)


def start_panel(start: Start, home: Path) -> subprocess.Popen:
    """A panel of which nothing but the status area is shown."""
    settings = home / ".config" / "lxqt" / "panel.conf"
    settings.parent.mkdir(parents=True, exist_ok=True)
    settings.write_text(PANEL_SETTINGS, encoding="utf-8")
    return start(["lxqt-panel"], "lxqt-panel")


def has_host(bus_address: str) -> bool:
    """Whether somebody shows items."""
    bus = dbus.bus.BusConnection(bus_address)
    try:
        watcher = bus.get_object(WATCHER, "/StatusNotifierWatcher", introspect=False)
        return bool(watcher.Get(WATCHER, "IsStatusNotifierHostRegistered",
                                dbus_interface=PROPERTIES, timeout=5))
    except dbus.DBusException:
        return False
    finally:
        bus.close()


class StatusItem:
    """The item that one process has announced on the bus."""

    def __init__(self, address: str, process: int) -> None:
        self._bus = dbus.bus.BusConnection(address)
        self._process = process

    def close(self) -> None:
        self._bus.close()

    # The item

    def _announced(self) -> Iterator[tuple[str, str]]:
        """Names and paths of the items the present host knows."""
        if not self._bus.name_has_owner(WATCHER):
            return
        watcher = self._bus.get_object(WATCHER, "/StatusNotifierWatcher", introspect=False)
        for item in watcher.Get(WATCHER, "RegisteredStatusNotifierItems",
                                dbus_interface=PROPERTIES, timeout=5):
            name, slash, path = str(item).partition("/")
            yield name, slash + path if slash else "/StatusNotifierItem"

    def find(self) -> Optional[tuple[str, str]]:
        """Name and path of the process's item, if the present host knows it."""
        daemon = self._bus.get_object("org.freedesktop.DBus", "/", introspect=False)
        try:
            for name, path in self._announced():
                if int(daemon.GetConnectionUnixProcessID(name)) == self._process:
                    return name, path
        except dbus.DBusException:
            pass  # the host or an item is just going
        return None

    def wait_until_shown(self) -> None:
        wait_until(self.find, "the host to know the item", 15)

    def _item(self) -> tuple[str, str]:
        found = self.find()
        if not found:
            raise AssertionError("no host knows the item")
        return found

    def property(self, name: str) -> Any:
        service, path = self._item()
        item = self._bus.get_object(service, path, introspect=False)
        return item.Get(ITEM, name, dbus_interface=PROPERTIES, timeout=5)

    def icon_colours(self) -> list[tuple[int, int, int, int]]:
        """Alpha, red, green and blue of every pixel of the icon's largest picture."""
        pictures = self.property("IconPixmap")
        width, height, data = max(pictures, key=lambda picture: int(picture[0]))
        flat = bytes(data)
        assert len(flat) == width * height * 4
        return [(flat[i], flat[i + 1], flat[i + 2], flat[i + 3]) for i in range(0, len(flat), 4)]

    # Its menu

    def _menu(self) -> dbus.Interface:
        service, _ = self._item()
        return dbus.Interface(self._bus.get_object(service, str(self.property("Menu")),
                                                   introspect=False), MENU)

    def open(self, entry: int = 0) -> list[Entry]:
        """Opens the menu, or the submenu of an entry: what it then holds."""
        menu = self._menu()
        menu.Event(dbus.Int32(entry), "opened", dbus.String("", variant_level=1), dbus.UInt32(0))
        menu.AboutToShow(dbus.Int32(entry), timeout=5)
        _, layout = menu.GetLayout(dbus.Int32(entry), dbus.Int32(-1), dbus.Array([], "s"),
                                   timeout=5)
        return _entry(layout).entries

    def click(self, entry: Entry) -> None:
        self._menu().Event(dbus.Int32(entry.id), "clicked", dbus.String("", variant_level=1),
                           dbus.UInt32(int(time.time())), timeout=5)

    def entry(self, title: str) -> Entry:
        """The visible entry with that title, of the menu opened anew."""
        return named(self.open(), title)

    def wait_for_entry(self, title: str, seconds: float = 10) -> Entry:
        """Opens the menu until it holds a visible entry with that title."""
        def there() -> Optional[Entry]:
            return next((e for e in shown(self.open()) if e.title == title), None)
        try:
            return wait_until(there, f"“{title}” in the menu", seconds, 0.1)
        except Timeout as failure:
            raise Timeout(f"{failure}; it holds {titles(self.open())}") from None


def _entry(layout: Any) -> Entry:
    number, properties, children = layout
    shortcut = properties.get("shortcut", [])
    return Entry(
        id=int(number), title=_title(str(properties.get("label", ""))),
        enabled=bool(properties.get("enabled", True)),
        visible=bool(properties.get("visible", True)),
        separator=properties.get("type", "standard") == "separator",
        shortcut=" ".join("+".join(map(str, keys)) for keys in shortcut),
        entries=[_entry(child) for child in children])


def _title(label: str) -> str:
    """The label as it is read: a single underscore marks the key of access, two are one."""
    return "_".join(part.replace("_", "") for part in label.split("__"))


def shown(entries: list[Entry]) -> list[Entry]:
    return [entry for entry in entries if entry.visible]


def titles(entries: list[Entry]) -> list[str]:
    """What is read from top to bottom, a line for each separator."""
    return ["—" if entry.separator else entry.title for entry in shown(entries)]


def named(entries: list[Entry], title: str) -> Entry:
    for entry in shown(entries):
        if entry.title == title:
            return entry
    raise AssertionError(f"no entry “{title}” in {titles(entries)}")
