#!/usr/bin/python3
"""The engine dies, answers nonsense or is slow to load; the program tells and goes on."""

import time

from desktop_test import SENTENCE, DesktopTest, keys, run
from processes import kill
from waiting import wait_until

ALERT = "Transcription failed"


class EngineFailures(DesktopTest):
    def dismiss_alert(self) -> None:
        """Waits for the alert and presses its default button."""
        window = wait_until(lambda: self.desktop.find_window(ALERT), "the alert", 20)
        self.desktop.run("xdotool", "windowactivate", "--sync", window)
        self.desktop.keyboard.tap(keys.RETURN)
        wait_until(lambda: not self.desktop.find_window(ALERT), "the end of the alert")
        self.editor.focus()

    def test_engine_killed_during_an_inference(self) -> None:
        quenda = self.start_quenda(relay=False)
        quenda.control(ANSWER="never")
        self.dictate()
        quenda.wait_for_engine_log("inference begins")
        [engine] = quenda.engines()
        kill(engine)
        quenda.wait_for_log("engine: whisper-server exited unexpectedly (status 9, crash 1 in "
                            "window)")
        quenda.wait_for_log("dictation: failed after ")
        quenda.control()
        self.dismiss_alert()
        self.assert_nothing_inserted()
        quenda.wait_for_log("engine: launched whisper-server pid=", times=2)
        quenda.wait_until_ready(times=2)
        self.dictate()
        wait_until(self.inserted, "the words in the document", 30)
        self.assertIn("brown fox", self.editor.saved_text())

    def test_engine_that_answers_nonsense(self) -> None:
        for answer in ("garbage", "no-text", "error"):
            with self.subTest(answer=answer):
                quenda = self.start_quenda(controls={"ANSWER": answer})
                self.dictate("hello world")
                quenda.wait_for_log("Unexpected response from whisper-server.")
                self.dismiss_alert()
                self.assert_nothing_inserted()
                self._end(quenda)

    def test_dictation_while_the_engine_loads(self) -> None:
        quenda = self.desktop.start_quenda(relay=True, controls={"LOAD_DELAY_MS": "4500"})
        self.addCleanup(self._end, quenda)
        quenda.wait_for_log("engine: launched whisper-server pid=")
        self.dictate()
        self.assertEqual(quenda.count("engine: Ready"), 0)
        self.wait_for_transcript(quenda)

    def test_no_model_means_no_dictation(self) -> None:
        quenda = self.desktop.start_quenda(model=self.desktop.folder / "no-model.bin")
        self.addCleanup(self._end, quenda)
        quenda.wait_for_log("engine: No model installed yet. Open Settings to download one.")
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        self.desktop.say(SENTENCE)
        self.assertFalse(self.desktop.sound.is_recorded())
        self.desktop.keyboard.up(keys.RIGHT_ALT)
        time.sleep(0.3)
        self.assert_nothing_inserted()


if __name__ == "__main__":
    run()
