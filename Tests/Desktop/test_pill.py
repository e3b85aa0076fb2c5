#!/usr/bin/python3
"""The pill takes clicks and never the focus."""

import os
import time
from pathlib import Path
from typing import Optional

from desktop_test import DesktopTest, keys, run
from waiting import wait_until
from x_windows import Window, click, windows

# Where QUENDA_SHOTS names a folder, what a person sees is kept there.
SHOTS = os.environ.get("QUENDA_SHOTS")

SIZE = (320, 56)
CANCEL = (296, 28)  # the middle of the button


class Pill(DesktopTest):
    def pill(self) -> Optional[Window]:
        """The pill, if it shows."""
        return next((w for w in windows(self.desktop, "--name", "^Quenda$")
                     if (w.width, w.height) == SIZE), None)

    def focus(self) -> tuple[str, str]:
        """Who has the keyboard, by the X server and by the window manager."""
        return (self.desktop.output("xdotool", "getwindowfocus").strip(),
                self.desktop.output("xdotool", "getactivewindow").strip())

    def shoot(self, name: str) -> None:
        if SHOTS:
            time.sleep(0.15)  # for the pill's next picture
            self.desktop.screenshot(Path(SHOTS) / name)

    def test_click_on_cancel_cancels_and_leaves_the_focus(self) -> None:
        quenda = self.start_quenda()
        before = self.focus()
        self.assertEqual(before[1], self.editor.window)
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        try:
            pill = wait_until(self.pill, "the pill")
            self.assertEqual(self.focus(), before)
            self.desktop.say("hello world")
            click(self.desktop, pill, 160, 28)  # beside the button: nothing happens
            time.sleep(0.2)
            self.assertEqual(self.pill(), pill)
            self.assertTrue(self.desktop.sound.is_recorded())
            self.assertEqual(self.focus(), before)
            click(self.desktop, pill, *CANCEL)
            wait_until(lambda: not self.pill(), "the pill's end")
            self.assertEqual(self.focus(), before)
            self.wait_until_not_recording()
        finally:
            self.desktop.keyboard.up(keys.RIGHT_ALT)
        time.sleep(1.0)
        self.assertEqual(quenda.answers(), [])
        self.assert_nothing_inserted()
        self.assertEqual(self.focus(), before)
        self.dictate()
        self.wait_for_transcript(quenda)

    def test_click_on_cancel_while_transcribing_is_too_late(self) -> None:
        quenda = self.start_quenda(controls={"ANSWER_DELAY_MS": "3000"})
        before = self.focus()
        self.dictate("hello world")
        quenda.wait_for_engine_log("inference begins")
        pill = wait_until(self.pill, "the pill")
        self.assertEqual(self.focus(), before)
        click(self.desktop, pill, *CANCEL)
        time.sleep(0.2)
        self.assertEqual(self.focus(), before)
        self.wait_for_transcript(quenda)  # what was said is not lost any more

    def test_what_is_seen_during_a_dictation(self) -> None:
        quenda = self.start_quenda(controls={"ANSWER_DELAY_MS": "1500"})
        before = self.focus()
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        player = self.desktop.sound.playing(self.speech())
        wait_until(self.pill, "the pill")
        time.sleep(1.5)
        self.shoot("dictation-1.png")
        self.assertEqual(self.focus(), before)
        self.assertEqual(player.wait(), 0)
        time.sleep(0.15)
        self.desktop.keyboard.up(keys.RIGHT_ALT)
        quenda.wait_for_engine_log("inference begins")
        self.assertTrue(self.pill())
        self.shoot("dictation-2.png")
        self.assertEqual(self.focus(), before)
        wait_until(self.inserted, "the words in the document", 30)
        self.assertTrue(self.pill(), "the pill tells that the words are there")
        self.shoot("dictation-3.png")
        self.assertEqual(self.focus(), before)
        wait_until(lambda: not self.pill(), "the pill's end")
        self.wait_for_transcript(quenda)


if __name__ == "__main__":
    run()
