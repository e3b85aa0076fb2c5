#!/usr/bin/python3
"""Dictates through a cloud service of the person's own that wants a key."""

from cloud_service import KEY, cloud_settings
from desktop_test import DesktopTest, keys, run
from quenda_program import Quenda
from waiting import wait_until

ALERT = "Transcription failed"
WRONG_KEY = "sk-desktop-test-wrong-9876543210"


class Cloud(DesktopTest):
    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        cls.service = cls.desktop.start_cloud_service()

    def start_quenda_with(self, key: str) -> Quenda:
        self.service.answers_file.unlink(missing_ok=True)
        quenda = self.desktop.start_quenda(settings=cloud_settings(key), trace=True,
                                           engine=self.desktop.folder / "no-engine",
                                           answers=self.service.answers_file)
        self.addCleanup(self._end, quenda)
        quenda.wait_for_log("app: launched Quenda")
        return quenda

    def assert_keeps_secret(self, quenda: Quenda, *secrets: str) -> None:
        """Nothing the program writes or shows to other programs tells any of them."""
        said = "\n".join([quenda.log(), *(log.read_text(errors="replace")
                                          for log in self.desktop.logs.iterdir())])
        self.assertIn("dictation: ", said)
        for secret in secrets:
            self.assertNotIn(secret, said)

    def test_words_arrive_with_the_right_key(self) -> None:
        quenda = self.start_quenda_with(KEY)
        self.dictate()
        words = self.wait_for_transcript(quenda)
        self.assertIn("brown fox", words)
        quenda.wait_for_log(f"→ {len(words)} chars in ")
        self.assertEqual(quenda.children(), [], "an engine of its own that is not needed")
        self.assert_keeps_secret(quenda, KEY, words)

    def test_wrong_key_is_told_with_the_words_of_the_service(self) -> None:
        quenda = self.start_quenda_with(WRONG_KEY)
        self.dictate()
        window = wait_until(lambda: self.desktop.find_window(ALERT), "the alert", 20)
        quenda.wait_for_log("dictation: failed after ")
        self.assertEqual(quenda.count(" — Invalid API key"), 1)
        [answer] = quenda.answers()
        self.assertEqual(answer["status"], 401)
        self.desktop.run("xdotool", "windowactivate", "--sync", window)
        self.desktop.keyboard.tap(keys.RETURN)
        wait_until(lambda: not self.desktop.find_window(ALERT), "the end of the alert")
        self.editor.focus()
        self.assert_nothing_inserted()
        self.assert_keeps_secret(quenda, WRONG_KEY)

    def test_without_a_key_nothing_is_recorded(self) -> None:
        quenda = self.start_quenda_with("")
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        self.desktop.say("hello world")
        self.assertFalse(self.desktop.sound.is_recorded())
        self.desktop.keyboard.up(keys.RIGHT_ALT)
        self.assert_nothing_inserted()
        self.assertEqual(quenda.answers(), [])


if __name__ == "__main__":
    run()
