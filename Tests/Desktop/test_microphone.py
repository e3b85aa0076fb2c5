#!/usr/bin/python3
"""The microphone goes away or another one comes; a running dictation is cancelled, the next
works."""

import time

from desktop_test import DesktopTest, keys, run

CHANGED = "audio: default input device changed to "


class Microphone(DesktopTest):
    def test_microphone_goes_during_a_recording(self) -> None:
        quenda = self.start_quenda()
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        self.wait_until_recording()
        self.desktop.say("hello world")
        self.desktop.sound.remove_microphone("microphone")
        quenda.wait_for_log(CHANGED)
        self.desktop.keyboard.up(keys.RIGHT_ALT)
        time.sleep(1.0)
        self.assertEqual(quenda.answers(), [])
        self.assert_nothing_inserted()

        lines = quenda.count(CHANGED)
        self.desktop.sound.add_microphone("microphone", "Virtual Microphone")
        self.desktop.sound.set_default("microphone")
        self.desktop.sound.keep_running("microphone")
        quenda.wait_for_log(CHANGED, times=lines + 1)
        self.dictate()
        self.wait_for_transcript(quenda)

    def test_another_default_microphone_cancels(self) -> None:
        self.desktop.sound.add_microphone("second", "Second Microphone")
        self.addCleanup(self.desktop.sound.remove_microphone, "second")
        self.addCleanup(self.desktop.sound.set_default, "microphone")
        quenda = self.start_quenda()
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        self.wait_until_recording()
        self.desktop.say("hello world")
        self.desktop.sound.set_default("second")
        quenda.wait_for_log(CHANGED + "Second Microphone")
        self.wait_until_not_recording()
        self.desktop.keyboard.up(keys.RIGHT_ALT)
        time.sleep(0.5)
        self.assert_nothing_inserted()
        self.dictate()
        self.wait_for_transcript(quenda)


if __name__ == "__main__":
    run()
