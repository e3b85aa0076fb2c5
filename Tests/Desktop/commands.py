"""The program's command line, as scripts and key bindings use it."""

import json
import subprocess
import time
from dataclasses import dataclass
from typing import Any, Optional

from desktop_test import DesktopTest
from quenda_program import Quenda
from virtual_desktop import QUENDA_BINARY

SERVICE = INTERFACE = "org.quenda.Quenda"
OBJECT = "/org/quenda/Quenda"
DONE, REFUSED, USAGE, NOT_RUNNING, NO_ANSWER = range(5)


@dataclass(frozen=True)
class Outcome:
    """How a run of the command line ended."""

    code: int
    output: str
    error: str
    seconds: float


def run_command(environment: dict[str, str], *arguments: str) -> Outcome:
    began = time.monotonic()
    result = subprocess.run([str(QUENDA_BINARY), *arguments], env=environment, text=True,
                            stdin=subprocess.DEVNULL, capture_output=True, timeout=30,
                            check=False)
    return Outcome(result.returncode, result.stdout, result.stderr, time.monotonic() - began)


class CommandTest(DesktopTest):
    def environment(self, **variables: Optional[str]) -> dict[str, str]:
        """The desktop's; a variable that is none is left out."""
        changed = self.desktop.environment | variables
        return {name: value for name, value in changed.items() if value is not None}

    def command(self, *arguments: str, **variables: Optional[str]) -> Outcome:
        return run_command(self.environment(**variables), *arguments)

    def assert_outcome(self, outcome: Outcome, code: int, *said: str) -> None:
        """The exit code, and an error of one line with these words; none where it was done."""
        self.assertEqual(outcome.code, code, outcome)
        if code == DONE:
            self.assertEqual(outcome.error, "")
            return
        self.assertEqual(outcome.output, "")
        self.assertTrue(outcome.error.startswith("quenda: "), outcome)
        self.assertEqual(outcome.error.count("\n"), 1, outcome)
        for words in said:
            self.assertIn(words, outcome.error)

    def done(self, *arguments: str) -> str:
        """What a command printed that has to succeed."""
        outcome = self.command(*arguments)
        self.assert_outcome(outcome, DONE)
        return outcome.output

    def status(self) -> dict[str, Any]:
        return json.loads(self.done("status", "--json"))

    def dictate_by_command(self, quenda: Quenda, nth: int = 1) -> str:
        self.editor.focus()
        self.done("start")
        self.desktop.say("the quick brown fox jumps over the lazy dog")
        time.sleep(0.15)
        self.done("stop")
        return self.wait_for_transcript(quenda, nth)
