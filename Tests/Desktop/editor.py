"""Mousepad, a text editor that the program under test knows nothing of, with one document open."""

import json
import os
import subprocess
import sys
import threading
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Callable

import keyboard as keys
from waiting import Timeout, wait_until

Start = Callable[..., subprocess.Popen]


@dataclass(frozen=True)
class TextChange:
    """A text that the document took in or lost, and when."""

    time_ns: int
    kind: str
    text: str


class Editor:
    """The editor's window, its document and what happens to it."""

    CLASS = "mousepad"

    def __init__(self, start: Start, environment: dict[str, str], keyboard: keys.Keyboard,
                 document: Path, content: str = "") -> None:
        self._environment = environment
        self._keyboard = keyboard
        self.document = document
        self._changes: list[TextChange] = []
        self._changed = threading.Condition()
        document.write_text(content, encoding="utf-8")
        watcher = start([sys.executable, os.fspath(Path(__file__).with_name("text_watch.py")),
                         self.CLASS], "text-watch", stdout=subprocess.PIPE, text=True)
        assert watcher.stdout is not None
        if watcher.stdout.readline() != "ready\n":
            raise RuntimeError("the editor's document cannot be watched")
        threading.Thread(target=self._follow, args=(watcher.stdout,), daemon=True).start()
        self.process = start(["mousepad", "--disable-server", str(document)], "mousepad")
        self.window = wait_until(self._find_window, "the editor's window", 20)
        self.focus()

    def _xdotool(self, *arguments: str) -> str:
        result = subprocess.run(["xdotool", *arguments], env=self._environment, text=True,
                                stdin=subprocess.DEVNULL, capture_output=True, check=False)
        return result.stdout.strip()

    def _find_window(self) -> str:
        found = self._xdotool("search", "--onlyvisible", "--name", self.document.name)
        return found.split("\n")[0]

    def focus(self) -> None:
        """Makes the editor the window that is typed into."""
        self._xdotool("windowactivate", self.window)
        wait_until(self.has_focus, "the editor's focus")

    def has_focus(self) -> bool:
        """Whether the editor is the window that is typed into."""
        return self._xdotool("getactivewindow") == self.window

    def _follow(self, lines: "subprocess.IO[str]") -> None:
        for line in lines:
            time_ns, kind, text = line.split(" ", 2)
            with self._changed:
                self._changes.append(TextChange(int(time_ns), kind, json.loads(text)))
                self._changed.notify_all()

    def changes(self) -> list[TextChange]:
        """What happened to the document up to now."""
        with self._changed:
            return list(self._changes)

    def wait_for_insertion(self, after: int = 0, seconds: float = 30.0,
                           hopeless: Callable[[], bool] = lambda: False) -> TextChange:
        """The first text taken in after the given number of changes; raises Timeout when the time
        is up or there is no hope any more."""
        def first() -> list[TextChange]:
            return [c for c in self._changes[after:] if c.kind == "insert"]
        deadline = time.monotonic() + seconds
        with self._changed:
            while not self._changed.wait_for(first, 0.25):
                if hopeless() or time.monotonic() > deadline:
                    raise Timeout(f"no text came into the editor's document in {seconds:g} s")
            return first()[0]

    def title(self) -> str:
        return self._xdotool("getwindowname", self.window)

    def is_modified(self) -> bool:
        """Whether the document differs from its file: the title then begins with a star."""
        return self.title().startswith("*")

    def saved_text(self) -> str:
        """Saves the document as a person would and reads the file."""
        if self.is_modified():
            self.focus()
            self._keyboard.chord(keys.LEFT_CONTROL, keys.S_KEY)
            wait_until(lambda: not self.is_modified(), "the editor to save its document")
        return self.document.read_text(encoding="utf-8")
