#!/usr/bin/python3
"""What was on the clipboard is back after a dictation; an owner that hangs stops nobody."""

import signal
import time

from desktop_test import SENTENCE, DesktopTest, cleaned, run
from dictation import measure
from waiting import wait_until

RESTORE_SECONDS = 1.0
# Beyond the usual. Programs that believe in an owner wait for it for seconds; how much less ours
# waits is the clipboard's own tests' matter.
MOST_DELAY_MS = 1000


class Clipboard(DesktopTest):
    def test_image_is_back_byte_for_byte(self) -> None:
        image = self.desktop.folder / "image.png"
        self.desktop.run("convert", "-size", "320x200", "plasma:", str(image))
        quenda = self.start_quenda()
        self.desktop.own_clipboard(image, "image/png")
        self.dictate()
        words = self.wait_for_transcript(quenda)
        time.sleep(max(0.0, RESTORE_SECONDS + 0.2))
        self.assertEqual(self.desktop.clipboard("image/png"), image.read_bytes())
        self.assertNotEqual(self.desktop.clipboard(), words.encode())

    def test_long_text_is_back(self) -> None:
        text = self.desktop.folder / "long.txt"
        text.write_text("".join(f"line {i} äöü\n" for i in range(20_000)), encoding="utf-8")
        quenda = self.start_quenda()
        self.desktop.own_clipboard(text, "UTF8_STRING")
        self.dictate()
        self.wait_for_transcript(quenda)
        time.sleep(RESTORE_SECONDS + 0.2)
        self.assertEqual(self.desktop.clipboard(), text.read_bytes())

    def test_what_the_person_copies_meanwhile_stays(self) -> None:
        quenda = self.start_quenda()
        copied = self.desktop.folder / "copied.txt"
        copied.write_text("copied meanwhile", encoding="utf-8")
        self.dictate()
        wait_until(self.inserted, "the words in the document", 30)
        self.desktop.own_clipboard(copied, "UTF8_STRING")
        self.wait_for_transcript(quenda)
        time.sleep(RESTORE_SECONDS + 0.2)
        self.assertEqual(self.desktop.clipboard(), b"copied meanwhile")

    def test_hung_owner_delays_the_words_hardly(self) -> None:
        quenda = self.start_quenda()
        wav = self.speech(SENTENCE)
        usual = measure(self.desktop, quenda, self.editor, wav)
        self.assertTrue(usual.arrived)
        time.sleep(RESTORE_SECONDS + 0.2)

        text = self.desktop.folder / "hung.txt"
        text.write_text("out of reach", encoding="utf-8")
        owner = self.desktop.own_clipboard(text, "UTF8_STRING")
        owner.send_signal(signal.SIGSTOP)
        self.addCleanup(owner.send_signal, signal.SIGCONT)
        hung = measure(self.desktop, quenda, self.editor, wav)
        self.assertTrue(hung.arrived)
        self.assertEqual(hung.transcript, cleaned(quenda.answers()[-1]["text"]))
        self.assertLess(hung.overhead_ms, usual.overhead_ms + MOST_DELAY_MS)


if __name__ == "__main__":
    run()
