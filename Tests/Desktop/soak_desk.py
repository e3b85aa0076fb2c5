"""A virtual desktop for many dictations: a tone for a voice, services that answer at once, the
program, and the account of what was said to it and must have come of it."""

import json
import subprocess
import sys
import time
from pathlib import Path
from typing import Any, Callable, Optional, TypeVar

import keyboard as keys
from accessible import AccessibleProgram
from editor import TextChange
from soak_engine import text_of
from status_item import has_host, start_panel
from virtual_desktop import VirtualDesktop
from waiting import now_ns, wait_until
from x_windows import Window, windows

T = TypeVar("T")

ENGINE = Path(__file__).with_name("soak_engine.py")
CLOUD_PORT = 8711
KEY = "sk-soak-0123456789"
PILL_SIZE = (320, 56)

# Seconds recorded after the first sample. 0.3 of them must have come when the key is let go, and on
# a busy machine the sound server is late; what is shorter is dropped without a word.
SPOKEN = 0.55
RESTORED = 1.1  # the clipboard has its former contents back a second after a paste
NOTICE = 1.5     # the pill's last words have faded that long after a paste and a rest


class Wrong(AssertionError):
    """Something came that should not have, or the other way round."""


class Growing:
    """The lines of a file that others append to, each read once."""

    def __init__(self, file: Path) -> None:
        self._file = file
        self._at = 0
        self.lines: list[str] = []

    def look(self) -> list[str]:
        try:
            with open(self._file, "rb") as file:
                file.seek(self._at)
                whole, newline, _ = file.read().rpartition(b"\n")
        except FileNotFoundError:
            return self.lines
        self._at += len(whole) + len(newline)
        if newline:
            self.lines += whole.decode("utf-8", "replace").split("\n")
        return self.lines


class SoakDesk:
    """The desktop, the program and the account of what was said to it."""

    def __init__(self, desktop: VirtualDesktop, binary: Path, settings: dict[str, Any],
                 variables: Optional[dict[str, str]] = None, panel: bool = True) -> None:
        self.desktop = desktop
        self.folder = desktop.folder / "soak"
        self.folder.mkdir()
        if panel:
            start_panel(desktop.start, desktop.home)
            wait_until(lambda: has_host(desktop.environment["DBUS_SESSION_BUS_ADDRESS"]),
                       "the panel to show items", 20)
        # A tone that does not end is what the microphone hears.
        desktop.run("pactl", "load-module", "module-sine", f"sink={desktop.sound.SINK}",
                    "frequency=440", stdout=subprocess.DEVNULL)
        desktop.start([sys.executable, "-S", "-E", str(ENGINE), "cloud", str(self.folder),
                       "--port", str(CLOUD_PORT)], "soak-cloud",
                      env=desktop.environment | {"SOAK_API_KEY": KEY})
        self.editor = desktop.open_editor()
        self.settings = {
            "activationMode": "hold", "provider": "local", "minHoldSeconds": 0.2,
            "customBaseURL": f"http://127.0.0.1:{CLOUD_PORT}/v1", "apiKeys": {"custom": KEY},
        } | settings
        self.binary = binary
        self.quenda = desktop.start_quenda(
            binary=binary, engine=self._wrapped_engine(), trace=True, settings=self.settings,
            variables={"QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"} | (variables or {}))
        self.pid = self.quenda.process.pid
        self._log = Growing(self.quenda.log_file)
        self._trace = Growing(self.quenda.trace_file)
        self._notes = {name: Growing(self.folder / f"{name}.jsonl") for name in ("local", "cloud")}
        self.asked = {"local": 0, "cloud": 0}    # requests that must have reached each service
        self._answered = {"local": 0, "cloud": 0}  # texts that each must have answered
        self.expected: list[str] = []             # in the editor, in this order
        self.failures = 0
        self._last_paste = 0.0
        self.seen = AccessibleProgram(desktop.environment, self.pid)
        self.quenda.wait_until_ready()

    def _wrapped_engine(self) -> Path:
        wrapper = self.folder / "whisper-server"
        wrapper.write_text(f"#!/bin/sh\nexec '{sys.executable}' -S -E '{ENGINE}' local "
                           f"'{self.folder}' \"$@\"\n", encoding="utf-8")
        wrapper.chmod(0o755)
        return wrapper

    @property
    def service(self) -> str:
        return "local" if self.settings["provider"] == "local" else "cloud"

    @property
    def toggles(self) -> bool:
        return bool(self.settings["activationMode"] == "toggle")

    # Noticing

    def wait(self, condition: Callable[[], Any], what: str, seconds: float = 15.0) -> Any:
        def looked() -> Any:
            if self.quenda.process.poll() is not None:
                raise Wrong(f"the program ended with {self.quenda.process.returncode}")
            return condition()
        return wait_until(looked, what, seconds, 0.003)

    def _milestones(self, event: str) -> int:
        """How often the program has noted it. What was counted once is not read again."""
        return sum(line.endswith(f" {event}") for line in self._trace.look())

    def after(self, event: str, action: Callable[[], Any]) -> None:
        """Does something and waits until the program notes what it leads to."""
        self._trace.look()
        self._trace.lines.clear()
        action()
        self.wait(lambda: self._milestones(event), f"the program's “{event}”")

    def insertions(self) -> list[TextChange]:
        return [change for change in self.editor.changes() if change.kind == "insert"]

    def log_lines(self) -> list[str]:
        return self._log.look()

    def count(self, message: str) -> int:
        """How many lines of the log hold the message."""
        return sum(message in line for line in self.log_lines())

    def note(self, service: str, nth: int) -> dict[str, Any]:
        """What the service noted of its nth request, waited for."""
        notes = self._notes[service]
        self.wait(lambda: len(notes.look()) >= nth, f"request {nth} at the {service} service", 60)
        found: dict[str, Any] = json.loads(notes.lines[nth - 1])
        return found

    # Speaking. A dictation has reached its service or is over when these return.

    def begin(self) -> None:
        """The key is pressed (and, where it toggles, let go) and the first sample has come."""
        press = self.desktop.keyboard.tap if self.toggles else self.desktop.keyboard.down
        self.after("first-sample", lambda: press(keys.RIGHT_ALT))

    def end(self) -> None:
        press = self.desktop.keyboard.tap if self.toggles else self.desktop.keyboard.up
        self.after("press" if self.toggles else "release", lambda: press(keys.RIGHT_ALT))

    def speak(self, seconds: float = SPOKEN) -> None:
        self.begin()
        time.sleep(seconds)
        self.end()
        self.asked[self.service] += 1

    def order(self, kind: str, seconds: float = 0.0) -> None:
        """What the service does with its next request."""
        fresh = self.folder / "order"
        fresh.write_text(f"{kind} {seconds}")
        fresh.replace(self.folder / f"{self.service}.next")

    def expect_text(self) -> str:
        """The next text of the service is to come into the document as its last."""
        self._answered[self.service] += 1
        self.expected.append(text_of(self.service, self._answered[self.service]))
        return self.expected[-1]

    def wait_for_text(self) -> None:
        """Waits until the document holds all that is expected, and nothing else."""
        self.wait(lambda: len(self.insertions()) >= len(self.expected),
                   f"insertion {len(self.expected)} in the document", 30)
        self._last_paste = time.monotonic()
        self.check()

    def check(self) -> None:
        """Everything that was said has come once and in order, and nothing else has."""
        came = [change.text for change in self.insertions()]
        if came != self.expected:
            at = next((i for i, (a, b) in enumerate(zip(came, self.expected)) if a != b),
                      min(len(came), len(self.expected)))
            raise Wrong(f"insertion {at + 1}: {came[at:at + 2]} instead of "
                        f"{self.expected[at:at + 2]}")
        for service, asked in self.asked.items():
            notes = self._notes[service]
            if len(notes.look()) > asked:
                raise Wrong(f"a request too many at the {service} service: {notes.lines[-1]}")
            faults = [line for line in notes.lines[-2:] if '"fault"' in line or "unauth" in line]
            if faults:
                raise Wrong(f"the {service} service got {faults}")

    def words(self) -> None:
        self.speak()
        self.expect_text()
        self.wait_for_text()

    def rest(self) -> None:
        """Until no restoring of the clipboard is pending."""
        time.sleep(max(0.0, self._last_paste + RESTORED - time.monotonic()))

    def when_idle(self, look: Callable[[], T]) -> T:
        """Looks when the last notice has gone, too."""
        self.rest()
        time.sleep(NOTICE)
        return look()

    def find_pill(self) -> Optional[Window]:
        return next((w for w in windows(self.desktop, "--name", "^Quenda$")
                     if (w.width, w.height) == PILL_SIZE), None)

    # The end

    def finish(self) -> None:
        """The document, the log and the services tell the same."""
        self.rest()
        self.check()
        if self.editor.saved_text() != "".join(self.expected):
            raise Wrong("the document is not what was inserted")
        told = self.count(" chars in ")
        if told != len(self.expected):
            raise Wrong(f"{told} transcripts in the log in place of {len(self.expected)}")
        for service, asked in self.asked.items():
            if len(self._notes[service].look()) != asked:
                raise Wrong(f"{len(self._notes[service].lines)} requests at the {service} service "
                            f"in place of {asked}")
        if self.desktop.sound.is_recorded():
            raise Wrong("the program still records")

    def end_program(self, seconds: float = 20.0) -> int:
        status = self.quenda.terminate(seconds)
        self.quenda.wait_until_engine_gone()
        return status
