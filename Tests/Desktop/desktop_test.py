"""What the scenarios share: one desktop for each test class, the program started for each test."""

import sys
import unittest
from pathlib import Path
from typing import Any

import keyboard as keys
from dictation import LAST_WORD_SECONDS, cleaned, hold_and_speak
from editor import Editor, TextChange
from isolation import isolate
from quenda_program import Quenda
from stalls import describe_longest
from virtual_desktop import VirtualDesktop
from waiting import now_ns, wait_until

SENTENCE = "the quick brown fox jumps over the lazy dog"

__all__ = ["LAST_WORD_SECONDS", "SENTENCE", "DesktopTest", "cleaned", "keys", "run"]


class DesktopTest(unittest.TestCase):
    """A test with a desktop and a text editor; start_quenda() gives it the program."""

    desktop: VirtualDesktop
    editor: Editor

    @classmethod
    def setUpClass(cls) -> None:
        cls.desktop = VirtualDesktop().__enter__()
        cls.addClassCleanup(cls.desktop.stop)
        cls.editor = cls.desktop.open_editor()

    def setUp(self) -> None:
        self._changes = len(self.editor.changes())
        self.editor.focus()

    def start_quenda(self, **options: Any) -> Quenda:
        """The program, ready to dictate; it has to end well when the test is over."""
        quenda = self.desktop.start_quenda(**{"relay": True, "trace": True} | options)
        self.addCleanup(self._end, quenda)
        quenda.wait_until_ready()
        return quenda

    def _end(self, quenda: Quenda) -> None:
        if quenda.process.poll() is None:
            self.assertEqual(quenda.terminate(), 0)
            quenda.wait_until_engine_gone()

    def run(self, result: Any = None) -> Any:
        """As usual, with the longest stall of the program and the logs of a test that failed."""
        before = len(result.failures) + len(result.errors) if result else 0
        began = now_ns()
        outcome = super().run(result)
        found = [stall for quenda in self.desktop.programs for stall in quenda.stalls(began) or []]
        print(f"  main thread: {describe_longest(found)}", file=sys.stderr)
        if result and len(result.failures) + len(result.errors) > before:
            self.desktop.print_logs()
        return outcome

    # What a person does

    def speech(self, text: str = SENTENCE) -> Path:
        return self.desktop.speech(text)

    def dictate(self, text: str = SENTENCE) -> None:
        """Holds the key, speaks, lets go."""
        hold_and_speak(self.desktop, self.speech(text))

    def wait_until_recording(self) -> None:
        wait_until(self.desktop.sound.is_recorded, "the program to record")

    def wait_until_not_recording(self) -> None:
        wait_until(lambda: not self.desktop.sound.is_recorded(), "the end of the recording")

    # What is expected

    def inserted(self) -> list[TextChange]:
        """What the document took in since the test began."""
        return [c for c in self.editor.changes()[self._changes:] if c.kind == "insert"]

    def wait_for_transcript(self, quenda: Quenda, nth: int = 1) -> str:
        """Waits until the nth answer of the engine stands in the document; the words."""
        wait_until(lambda: len(self.inserted()) >= nth, "the words in the document", 30)
        wait_until(lambda: len(quenda.answers()) >= nth, "the answer at the relay")
        words = cleaned(quenda.answers()[-1]["text"] or "")
        self.assertTrue(words, "the engine heard nothing")
        self.assertEqual(self.inserted()[nth - 1].text, words)
        self.assertIn(words, self.editor.saved_text())
        return words

    def assert_nothing_inserted(self) -> None:
        self.assertEqual(self.inserted(), [])
        self.assertFalse(self.editor.is_modified())


def run() -> None:
    """The entry of every scenario."""
    isolate()
    unittest.main(verbosity=2)
