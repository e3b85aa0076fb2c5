#!/usr/bin/python3
"""The key listener's connection to the X server is cut; the program listens again."""

import time

from desktop_test import DesktopTest, keys, run
from waiting import wait_until
from x_connections import cut_all_but_the_first

LONGEST_DEAF_SECONDS = 35  # the watchdog looks every 30 s


class KeyListener(DesktopTest):
    def hears_the_key(self) -> bool:
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        time.sleep(0.3)
        heard = self.desktop.sound.is_recorded()
        self.desktop.keyboard.tap(keys.ESCAPE)
        self.desktop.keyboard.up(keys.RIGHT_ALT)
        return heard

    def test_listens_again_after_its_connection_was_cut(self) -> None:
        quenda = self.start_quenda()
        self.assertGreater(cut_all_but_the_first(quenda.process.pid), 0)
        wait_until(self.hears_the_key, "the program to hear the key again", LONGEST_DEAF_SECONDS,
                   interval=0.5)
        self.wait_until_not_recording()
        self.dictate()
        self.wait_for_transcript(quenda)

    def test_release_that_nobody_heard_ends_the_recording(self) -> None:
        quenda = self.start_quenda()
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        self.wait_until_recording()
        self.desktop.say("hello world")
        cut_all_but_the_first(quenda.process.pid)
        self.desktop.keyboard.up(keys.RIGHT_ALT)
        wait_until(lambda: not self.desktop.sound.is_recorded(), "the end of the recording",
                   LONGEST_DEAF_SECONDS)
        self.wait_for_transcript(quenda)


if __name__ == "__main__":
    run()
