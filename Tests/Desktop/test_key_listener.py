#!/usr/bin/python3
"""The X server cuts the key listener's connection; the program listens again."""

import time

from desktop_test import DesktopTest, keys, run
from waiting import wait_until
from x_clients import XClients

LONGEST_DEAF_SECONDS = 35  # the watchdog looks every 30 s


class KeyListener(DesktopTest):
    def hears_the_key(self) -> bool:
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        time.sleep(0.3)
        heard = self.desktop.sound.is_recorded()
        self.desktop.keyboard.tap(keys.ESCAPE)
        self.desktop.keyboard.up(keys.RIGHT_ALT)
        return heard

    def test_listens_again_after_its_connections_were_cut(self) -> None:
        quenda = self.start_quenda()
        clients = XClients(self.desktop.environment["DISPLAY"])
        self.addCleanup(clients.close)
        connections = clients.of_process(quenda.process.pid)
        self.assertGreater(len(connections), 1, "the listener has no connection of its own")
        for connection in connections[:-1]:  # the last one, with the most resources, is Qt's
            clients.cut(connection)
        wait_until(self.hears_the_key, "the program to hear the key again", LONGEST_DEAF_SECONDS,
                   interval=0.5)
        self.wait_until_not_recording()
        self.dictate()
        self.wait_for_transcript(quenda)


    def test_connection_cut_while_the_key_is_held(self) -> None:
        quenda = self.start_quenda()
        clients = XClients(self.desktop.environment["DISPLAY"])
        self.addCleanup(clients.close)
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        self.wait_until_recording()
        for connection in clients.of_process(quenda.process.pid)[:-1]:
            clients.cut(connection)
        self.desktop.keyboard.up(keys.RIGHT_ALT)
        wait_until(lambda: not self.desktop.sound.is_recorded(), "the end of the recording",
                   LONGEST_DEAF_SECONDS)


if __name__ == "__main__":
    run()
