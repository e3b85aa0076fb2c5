"""The clipboard's owner misbehaves, the session's bus goes away, the machine sleeps."""

import os
import signal
import subprocess
import sys
import time
from contextlib import contextmanager
from pathlib import Path
from typing import Any, Iterator

import dbus.bus
import dbus.lowlevel

import keyboard as keys
import sanitizer
from fault_suite import SENTENCE, Scene, fault
from processes import kill
from status_item import StatusItem, has_host, start_panel
from waiting import wait_until

OWNER = Path(__file__).with_name("clipboard_owner.py")
WOKE = "app: system woke from sleep"
MOST_GROWTH_MB = 200  # twice what is kept of foreign contents, and some
RESTORE_SECONDS = 1.3


# The clipboard

def dictate_over(scene: Scene, mode: str) -> str:
    """Dictates while the clipboard is owned by a program that misbehaves."""
    owner = scene.desktop.start([sys.executable, str(OWNER), mode], "clipboard-owner",
                                stdout=subprocess.PIPE, text=True)
    assert owner.stdout is not None
    scene.check(owner.stdout.readline() == "owns\n", "the clipboard could not be had")
    before = scene.memory_mb()
    scene.dictate()
    words = scene.expect_words()
    time.sleep(RESTORE_SECONDS)
    grown = scene.memory_mb() - before
    scene.check(grown < MOST_GROWTH_MB + sanitizer.held_back_mb(), f"{grown:.0f} MB more in memory")
    if owner.poll() is None:
        owner.kill()
    scene.check(owner.wait() in (0, -signal.SIGKILL), "the owner of the clipboard failed")
    return f"“{words}” came, {grown:.0f} MB more in memory"


@fault("the words come; what cannot be read is not waited for")
def clipboard_owner_hung(scene: Scene) -> str:
    copied = scene.desktop.folder / "copied.txt"
    copied.write_text("out of reach", encoding="utf-8")
    owner = scene.desktop.own_clipboard(copied, "UTF8_STRING")
    os.kill(owner.pid, signal.SIGSTOP)
    scene.dictate()
    words = scene.expect_words()
    time.sleep(RESTORE_SECONDS)
    owner.kill()
    owner.wait()
    return f"“{words}” came"


@fault("the words come")
def clipboard_owner_dies_in_the_middle(scene: Scene) -> str:
    return dictate_over(scene, "die")


@fault("the words come")
def clipboard_owner_lies_about_its_formats(scene: Scene) -> str:
    return dictate_over(scene, "lie")


@fault("the words come; no more is read than can be kept")
def clipboard_owner_offers_500_MB(scene: Scene) -> str:
    return dictate_over(scene, "flood")


# The machine sleeps

class Logind:
    """Stands for logind on the bus that is the system's here."""

    PATH = "/org/freedesktop/login1"
    NAME = "org.freedesktop.login1"

    def __init__(self, scene: Scene) -> None:
        self._scene = scene
        self._bus = dbus.bus.BusConnection(scene.desktop.environment["DBUS_SYSTEM_BUS_ADDRESS"])
        self._bus.request_name(self.NAME)

    def _tell(self, sleeping: bool) -> None:
        signal_ = dbus.lowlevel.SignalMessage(self.PATH, f"{self.NAME}.Manager", "PrepareForSleep")
        signal_.append(sleeping, signature="b")
        self._bus.send_message(signal_)
        self._bus.flush()

    def sleep(self) -> None:
        """The machine goes to sleep and wakes up."""
        self._tell(True)
        time.sleep(0.3)
        self._scene.check(not self._scene.logged(WOKE), "took going to sleep for waking up")
        self._tell(False)
        self._scene.expect_log(WOKE)

    def close(self) -> None:
        self._bus.close()


@contextmanager
def logind(scene: Scene) -> Iterator[Logind]:
    one = Logind(scene)
    try:
        yield one
    finally:
        one.close()


@fault("a line in the log, nothing else", slow=True)
def sleep_while_idle(scene: Scene) -> str:
    with logind(scene) as system:
        system.sleep()
    time.sleep(0.3)
    scene.check(not scene.desktop.sound.is_recorded(), "it records")
    return "logged"


@fault("the dictation is cancelled")
def sleep_while_recording(scene: Scene) -> str:
    scene.editor.focus()
    scene.desktop.keyboard.down(keys.RIGHT_ALT)
    wait_until(scene.desktop.sound.is_recorded, "the program to record")
    scene.desktop.say(SENTENCE)
    with logind(scene) as system:
        system.sleep()
    wait_until(lambda: not scene.desktop.sound.is_recorded(), "the end of the recording")
    scene.desktop.keyboard.up(keys.RIGHT_ALT)
    time.sleep(0.8)
    scene.expect_nothing_inserted()
    scene.check(not scene.logged("dictation: "), "there was a dictation")
    return "cancelled"


@fault("the words come")
def sleep_while_transcribing(scene: Scene) -> str:
    scene.quenda.control(ANSWER_DELAY_MS="1500")
    scene.dictate()
    with logind(scene) as system:
        system.sleep()
    scene.expect_nothing_inserted()
    words = scene.expect_words()
    scene.quenda.control()
    return f"“{words}” came"


# The session's bus. The program has one of its own: without one there would be no desktop left to
# look at.

class Bus:
    """A session bus with a panel on it."""

    def __init__(self, scene: Scene) -> None:
        self._socket = scene.desktop.folder / f"bus{time.monotonic_ns()}"
        self.address = f"unix:path={self._socket}"
        self.process = scene.desktop.start(
            ["dbus-daemon", "--session", "--nofork", "--nopidfile", f"--address={self.address}"],
            "dbus-of-its-own")
        wait_until(self._socket.exists, "the bus")
        environment = scene.desktop.environment | {"DBUS_SESSION_BUS_ADDRESS": self.address}

        def start(command: list[str], name: str) -> subprocess.Popen:
            return scene.desktop.start(command, name, env=environment)
        self._panel = start_panel(start, scene.desktop.home)
        wait_until(lambda: has_host(self.address), "the panel to show items")

    def stop(self) -> None:
        os.kill(self.process.pid, signal.SIGSTOP)

    def close(self) -> None:
        """Ends what is left of it."""
        for process in (self._panel, self.process):
            if process.poll() is None:
                process.send_signal(signal.SIGCONT)
                process.kill()
                process.wait()


_bus: list[Bus] = []  # of the fault that runs


def with_bus(scene: Scene) -> dict[str, Any]:
    bus = Bus(scene)
    _bus[:] = [bus]
    scene.on_end(bus.close)
    return {"variables": {"DBUS_SESSION_BUS_ADDRESS": bus.address}}


def with_hung_bus(scene: Scene) -> dict[str, Any]:
    options = with_bus(scene)
    _bus[0].stop()
    return options


def wait_for_item(scene: Scene) -> None:
    """Until the program is really in use of its bus."""
    item = StatusItem(_bus[0].address, scene.quenda.process.pid)
    try:
        item.wait_until_shown()
    finally:
        item.close()


@fault("goes on without it", options=with_bus)
def session_bus_killed(scene: Scene) -> str:
    wait_for_item(scene)
    kill(_bus[0].process.pid)
    time.sleep(0.5)
    scene.check(scene.quenda.process.poll() is None, "the program ended")
    return "goes on"


@fault("the dictation under way goes on without it", options=with_bus, slow=True)
def session_bus_killed_while_recording(scene: Scene) -> str:
    wait_for_item(scene)
    scene.editor.focus()
    scene.desktop.keyboard.down(keys.RIGHT_ALT)
    wait_until(scene.desktop.sound.is_recorded, "the program to record")
    kill(_bus[0].process.pid)
    scene.desktop.say(SENTENCE)
    scene.desktop.keyboard.up(keys.RIGHT_ALT)
    return f"“{scene.expect_words()}” came"


@fault("goes on without it", options=with_bus)
def session_bus_hung(scene: Scene) -> str:
    wait_for_item(scene)
    _bus[0].stop()
    scene.dictate()
    return f"“{scene.expect_words()}” came"


@fault("works without it",
       variables={"DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent/bus"}, slow=True)
def session_bus_never_there(scene: Scene) -> str:
    return "started"


@fault("starts without it", options=with_hung_bus)
def session_bus_hung_at_the_start(scene: Scene) -> str:
    return "started"
