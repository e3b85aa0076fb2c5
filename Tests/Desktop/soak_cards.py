"""Everything that a person does with the program, at speed; what must have come of it is checked
each time. Each leaves the program without anything to do."""

import json
import subprocess
import time
from typing import Any, Optional

import keyboard as keys
from soak_desk import SPOKEN, SoakDesk, Wrong
from soak_engine import REFUSAL
from status_item import StatusItem
from waiting import now_ns, wait_until
from x_windows import click

PILL_CANCEL = (296, 28)  # the middle of the button
TAB, HOME, END, W_KEY = 23, 110, 115, 25
MOST_TABS = 60
BRIEF = 0.06             # seconds: a tap by accident
SETTINGS = "Quenda Settings"
ALERT = "Transcription failed"


class Person(SoakDesk):
    _item: Optional[StatusItem] = None

    def calm(self) -> None:
        """Dictates when something stands in the clipboard, which must be there afterwards."""
        self.rest()
        former = f"kept since {now_ns()}\nüber alles ✓".encode()
        file = self.folder / "former.txt"
        file.write_bytes(former)
        self.desktop.own_clipboard(file, "UTF8_STRING")
        self.words()
        self.rest()
        # On a busy machine the program's second may be longer than ours.
        self.wait(lambda: self.desktop.clipboard() == former, "the clipboard's former contents", 5)

    def escape(self) -> None:
        self.begin()
        time.sleep(0.1)
        self.desktop.keyboard.tap(keys.ESCAPE)
        self.wait(self._has_stopped, "Escape to end the recording")
        self._let_go()

    def pill(self) -> None:
        """Clicks the pill's button."""
        self.begin()
        found = self.wait(self.find_pill, "the pill")
        click(self.desktop, found, *PILL_CANCEL)
        self.wait(self._has_stopped, "the pill's button to end the recording")
        self._let_go()

    def _has_stopped(self) -> bool:
        return not self.desktop.sound.is_recorded()

    def _let_go(self) -> None:
        if not self.toggles:
            self.after("release", lambda: self.desktop.keyboard.up(keys.RIGHT_ALT))
        self.check()

    def brief(self) -> None:
        """Presses the key for too short a time to be meant."""
        keyboard = self.desktop.keyboard
        self.after("press", lambda: (keyboard.tap if self.toggles else keyboard.down)(
            keys.RIGHT_ALT))
        time.sleep(BRIEF)
        self.end()
        self.check()

    def fails(self, kind: str) -> None:
        """The service refuses, answers nonsense or breaks off: an alert, which is dismissed."""
        self.order(kind)
        self.speak()
        self.failures += 1
        self.dismiss_alert()
        told = [line for line in self.log_lines() if "dictation: failed after " in line]
        if len(told) != self.failures:
            raise Wrong(f"{len(told)} failures in the log in place of {self.failures}")
        if kind == "error" and self.service == "cloud" and REFUSAL not in told[-1]:
            raise Wrong(f"the service's words are not in the log: {told[-1]}")
        self.check()

    def dismiss_alert(self) -> None:
        window = self.wait(lambda: self.desktop.find_window(ALERT), "the alert", 30)
        self.desktop.run("xdotool", "windowactivate", "--sync", window)
        self.desktop.keyboard.tap(keys.RETURN)
        self.wait(lambda: not self.desktop.find_window(ALERT), "the end of the alert")
        self.editor.focus()

    def empty(self) -> None:
        """The service heard nothing."""
        before = self.count(" → empty in ")
        self.order("empty")
        self.speak()
        self.wait(lambda: self.count(" → empty in ") > before, "the log to tell of no words")
        self.check()

    def overlap(self) -> None:
        """Dictates while the one before is still being transcribed; both come, in order."""
        self.order("text", 0.8)
        self.speak()
        self.expect_text()
        self.speak()
        self.expect_text()
        self.wait_for_text()

    def menu(self) -> None:
        """Opens the menu and looks at the recent dictations."""
        item = self._status_item()
        entries = item.open(item.entry("Recent Dictations").id)
        latest = [e.title for e in entries if not e.separator][:-1]
        wanted = [text if len(text) <= 50 else text[:50] + "…"
                  for text in reversed(self.expected[-10:])]
        if wanted and latest != wanted:
            raise Wrong(f"the recent dictations are {latest} in place of {wanted}")

    # The same by commands

    @property
    def takes_commands(self) -> bool:
        """Whether this program does: its refusals name where to read about them."""
        return b"see quenda --help" in self.binary.read_bytes()

    def command(self, word: str) -> None:
        """Has the running program do something, as a key binding of the desktop does."""
        result = subprocess.run([str(self.binary), word], env=self.desktop.environment, text=True,
                                stdin=subprocess.DEVNULL, capture_output=True, timeout=30,
                                check=False)
        if result.returncode != 0 or result.stderr:
            raise Wrong(f"“quenda {word}” ended with {result.returncode}: {result.stderr}")

    def commanded(self) -> None:
        self.after("first-sample", lambda: self.command("toggle"))
        time.sleep(SPOKEN)
        self.command("toggle")
        self.asked[self.service] += 1
        self.expect_text()
        self.wait_for_text()

    def command_cancels(self) -> None:
        self.after("first-sample", lambda: self.command("toggle"))
        self.command("cancel")
        self.wait(self._has_stopped, "the command to end the recording")
        self.check()

    def command_retries(self) -> None:
        """What failed is sent again, and comes."""
        self.fails("error")
        self.command("retry")
        self.asked[self.service] += 1
        self.expect_text()
        self.wait_for_text()

    def _status_item(self) -> StatusItem:
        if self._item is None:
            self._item = StatusItem(self.desktop.environment["DBUS_SESSION_BUS_ADDRESS"], self.pid)
            self._item.wait_until_shown()
        return self._item

    # Settings

    def setting(self, name: str) -> Any:
        try:
            return json.loads((self.quenda.data / "config.json").read_text(encoding="utf-8"))[name]
        except (OSError, ValueError, KeyError):
            return None

    def change(self, mode: str, provider: str) -> None:
        """Opens the settings from the menu, chooses there, closes the window."""
        self.rest()
        item = self._status_item()
        item.click(item.entry("Settings…"))
        found = self.wait(lambda: self.desktop.find_window(SETTINGS), "the settings window", 20)
        self.desktop.run("xdotool", "windowactivate", "--sync", found)
        window = self.seen.window(SETTINGS)
        engines = self.count("engine: Ready")
        restarts = provider != self.settings["provider"]
        self._choose(window, "Activation", "activationMode", mode,
                     {"hold": HOME, "toggle": END}[mode])
        self._choose(window, "Service", "provider", provider,
                     {"local": HOME, "custom": END}[provider])
        self.desktop.keyboard.chord(keys.LEFT_CONTROL, W_KEY)
        self.wait(lambda: not self.desktop.find_window(SETTINGS), "the settings window to close")
        if restarts and provider == "local":
            self.wait(lambda: self.count("engine: Ready") > engines, "the engine", 30)
        elif restarts:
            self.wait(lambda: not self.quenda.children(), "the engine's end", 30)
        self.editor.focus()
        self.check()

    def _choose(self, window: Any, label: str, name: str, value: str, key: int) -> None:
        for _ in range(MOST_TABS):
            before = self.seen.focused(window)
            if before == ("combo box", label):
                break
            self.desktop.keyboard.tap(TAB)
            # Neighbours of the same name may follow each other: no change to wait for.
            until = time.monotonic() + 0.15
            while self.seen.focused(window) == before and time.monotonic() < until:
                time.sleep(0.01)
        else:
            raise Wrong(f"the tab key does not lead to “{label}”")
        self.desktop.keyboard.tap(key)
        self.wait(lambda: self.setting(name) == value, f"the setting {name} to be {value}")
        self.settings[name] = value

    def close(self) -> None:
        if self._item is not None:
            self._item.close()
