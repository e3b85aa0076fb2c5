#!/usr/bin/python3
"""Dictates in both modes, changes its mind, and types into a terminal."""

import time

from desktop_test import LAST_WORD_SECONDS, SENTENCE, DesktopTest, cleaned, keys, run
from waiting import wait_until


class Dictating(DesktopTest):
    def test_words_arrive_while_the_key_was_held(self) -> None:
        quenda = self.start_quenda()
        self.dictate()
        words = self.wait_for_transcript(quenda)
        self.assertIn("brown fox", words)
        quenda.wait_for_log(f"→ {len(words)} chars in ")
        self.dictate("hello world")
        self.wait_for_transcript(quenda, 2)

    def test_key_that_was_chosen_and_no_other(self) -> None:
        quenda = self.start_quenda(settings={"hotkey": "rightControl"})
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        time.sleep(0.3)
        self.assertFalse(self.desktop.sound.is_recorded())
        self.desktop.keyboard.up(keys.RIGHT_ALT)
        self.desktop.keyboard.down(keys.RIGHT_CONTROL)
        self.desktop.say(SENTENCE)
        time.sleep(LAST_WORD_SECONDS)
        self.desktop.keyboard.up(keys.RIGHT_CONTROL)
        self.wait_for_transcript(quenda)

    def test_toggle_mode_starts_and_stops_by_a_tap(self) -> None:
        quenda = self.start_quenda(settings={"activationMode": "toggle"})
        self.desktop.keyboard.tap(keys.RIGHT_ALT)
        self.wait_until_recording()
        self.desktop.say(SENTENCE)
        time.sleep(LAST_WORD_SECONDS)
        self.assertTrue(self.desktop.sound.is_recorded())
        self.desktop.keyboard.tap(keys.RIGHT_ALT)
        self.wait_for_transcript(quenda)
        self.wait_until_not_recording()

    def test_toggle_mode_stops_by_itself_at_the_cap(self) -> None:
        quenda = self.start_quenda(
            settings={"activationMode": "toggle", "maxDictationSeconds": 3.5})
        self.desktop.keyboard.tap(keys.RIGHT_ALT)
        self.desktop.say(SENTENCE)
        quenda.wait_for_log("dictation: auto-stopped at 3s cap")
        self.wait_for_transcript(quenda)

    def test_escape_cancels(self) -> None:
        quenda = self.start_quenda()
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        self.wait_until_recording()
        self.desktop.say("hello world")
        self.desktop.keyboard.tap(keys.ESCAPE)
        self.wait_until_not_recording()
        self.desktop.keyboard.up(keys.RIGHT_ALT)
        time.sleep(1.0)
        self.assertEqual(quenda.answers(), [])
        self.assert_nothing_inserted()
        self.dictate()
        self.wait_for_transcript(quenda)

    def test_short_press_is_dropped(self) -> None:
        quenda = self.start_quenda()
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        time.sleep(0.1)
        self.desktop.keyboard.up(keys.RIGHT_ALT)
        time.sleep(1.0)
        self.assertEqual(quenda.answers(), [])
        self.assert_nothing_inserted()

    def test_words_arrive_in_a_terminal(self) -> None:
        quenda = self.start_quenda()
        typed = self.desktop.home / "typed.txt"
        self.desktop.open_xterm(typed)
        self.dictate()
        wait_until(quenda.answers, "the engine's answer", 30)
        words = cleaned(quenda.answers()[0]["text"])
        self.assertTrue(words)
        quenda.wait_for_log(" chars in ")
        time.sleep(0.3)
        self.desktop.keyboard.tap(keys.RETURN)  # a terminal passes on whole lines
        wait_until(lambda: typed.read_text(encoding="utf-8") == words + "\n",
                   "the words in the terminal")
        self.assert_nothing_inserted()

    def test_what_no_keyboard_has_arrives(self) -> None:
        text = "Grüße — 你好, 😀 naïve"
        quenda = self.start_quenda(controls={"TEXT": text})
        self.dictate("hello world")
        self.assertEqual(self.wait_for_transcript(quenda), text)


if __name__ == "__main__":
    run()
