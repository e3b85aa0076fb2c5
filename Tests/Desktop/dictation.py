"""One dictation as a person does it, and what it took."""

import re
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Callable, Optional

import keyboard as keys
from editor import Editor
from quenda_program import Quenda
from virtual_desktop import VirtualDesktop
from waiting import now_ns, wait_until

FAILED = ("dictation: failed after ", " → empty in ", "audio: recording failed to start")
LAST_WORD_SECONDS = 0.15  # how long the key is still held after the last word


@dataclass(frozen=True)
class Dictation:
    """What was heard, where it stands and the times; see measure()."""

    transcript: str
    document: str
    key_to_first_sample_ms: Optional[float]
    release_to_text_ms: float
    engine_ms: float

    @property
    def overhead_ms(self) -> float:
        """What was not the engine's."""
        return round(self.release_to_text_ms - self.engine_ms, 3)

    @property
    def arrived(self) -> bool:
        """Whether the document holds what the engine answered."""
        return bool(self.transcript) and self.transcript in self.document


def cleaned(answer: str) -> str:
    """The words of an engine's answer: without annotations, white space in order."""
    for annotation in (r"\[[^\]]*\]", r"\([^)]*\)", r"\*[^*]*\*"):
        answer = re.sub(annotation, "", answer)
    return " ".join(answer.split())


def hold_and_speak(desktop: VirtualDesktop, wav: Path, key: int = keys.RIGHT_ALT,
                   while_speaking: Optional[Callable[[], None]] = None,
                   before_speaking: Optional[Callable[[], None]] = None) -> tuple[int, int]:
    """Holds the key, plays the file into the microphone, lets go: the times of press and release.

    `before_speaking` is called with the key held; `while_speaking` when speaking has gone on for a
    second.
    """
    pressed = desktop.keyboard.down(key)
    try:
        if before_speaking:
            before_speaking()
        player = desktop.sound.playing(wav)
        if while_speaking:
            time.sleep(max(0.0, 1.0 - (now_ns() - pressed) / 1e9))
            while_speaking()
        if player.wait() != 0:
            raise RuntimeError(f"could not play {wav}")
        time.sleep(LAST_WORD_SECONDS)
    finally:
        released = desktop.keyboard.up(key)
    return pressed, released


def measure(desktop: VirtualDesktop, quenda: Quenda, editor: Editor, wav: Path,
            while_speaking: Optional[Callable[[], None]] = None,
            when_pasted: Optional[Callable[[], None]] = None) -> Dictation:
    """Dictates into the editor. The program must have been started with relay and trace.

    Key press to first sample: from just before the key event is sent to the sample's arrival in the
    program, by its own note. Release to text: from just before the key event is sent to the text's
    insertion into the editor's document. Engine: from the last byte of the request to the answer,
    by the relay.
    """
    changes, answers, notes = len(editor.changes()), len(quenda.answers()), len(quenda.trace())
    failures = [quenda.count(message) for message in FAILED]
    pressed, released = hold_and_speak(desktop, wav, while_speaking=while_speaking)
    insertion = editor.wait_for_insertion(
        changes, seconds=150,
        hopeless=lambda: [quenda.count(message) for message in FAILED] != failures)
    if when_pasted:
        when_pasted()
    answer = wait_until(lambda: quenda.answers()[answers:], "the engine's answer at the relay")[0]
    first_sample = next((when for when, event in quenda.trace()[notes:] if event == "first-sample"),
                        None)
    return Dictation(
        transcript=cleaned(answer["text"] or ""), document=editor.saved_text(),
        key_to_first_sample_ms=_milliseconds(pressed, first_sample) if first_sample else None,
        release_to_text_ms=_milliseconds(released, insertion.time_ns),
        engine_ms=_milliseconds(answer["asked_ns"], answer["answered_ns"]))


def _milliseconds(begin: int, end: int) -> float:
    return round((end - begin) / 1e6, 3)
