#!/usr/bin/python3
"""Sessions in which no program hears keys in the background: said once, and all else works."""

import os
import subprocess
import time
from typing import Optional

from commands import DONE, CommandTest
from desktop_test import run
from quenda_program import Quenda
from virtual_desktop import QUENDA_BINARY
from waiting import wait_until

NOTICE = "The dictation key cannot be heard here"
DEFAULTS = "toldWhereToBindTheKey=true"


class NoKeyListener(CommandTest):
    def start_server(self, *options: str) -> str:
        """A further X server; its display."""
        ours, theirs = os.pipe()
        self.desktop.start(["Xvfb", "-displayfd", str(theirs), "-noreset", "-nolisten", "tcp",
                            *options], "xvfb2", pass_fds=[theirs])
        os.close(theirs)
        with os.fdopen(ours) as announced:
            return f":{announced.readline().strip()}"

    def notice(self, display: str) -> bool:
        tree = subprocess.run(["xwininfo", "-root", "-tree", "-display", display], text=True,
                              capture_output=True, check=True,
                              env=self.environment()).stdout
        return NOTICE in tree

    def restart(self, quenda: Quenda) -> subprocess.Popen:
        """Once more with the same folders, that is on the same machine."""
        return self.desktop.start([str(QUENDA_BINARY)], "again", env=quenda.environment,
                                  cwd=str(quenda.folder))

    def assert_says_it_once(self, display: str, **variables: Optional[str]) -> Quenda:
        quenda = self.start_quenda(variables={"DISPLAY": display} | variables)
        wait_until(lambda: self.notice(display), "the notice", 10)
        self.assertEqual(quenda.count("hotkey: this session lets no program hear"), 1)
        settings = quenda.folder / "config" / "Quenda" / "Quenda.conf"
        self.assertIn(DEFAULTS, settings.read_text(encoding="utf-8"))
        self.assert_outcome(self.command("quit"), DONE)
        again = self.restart(quenda)
        wait_until(lambda: quenda.count("hotkey: this session lets no program hear") == 2,
                   "the second start", 20)
        time.sleep(1)
        self.assertFalse(self.notice(display))
        self.assertFalse(self.status()["keyHeard"])
        self.assert_outcome(self.command("quit"), DONE)
        self.assertEqual(again.wait(5), 0)
        return quenda

    def test_an_x_server_without_xtest(self) -> None:
        self.assert_says_it_once(self.start_server("-extension", "XTEST"))

    def test_a_wayland_session(self) -> None:
        self.assert_says_it_once(self.desktop.environment["DISPLAY"], XDG_SESSION_TYPE="wayland",
                                 XDG_CURRENT_DESKTOP="GNOME")

    def test_commands_dictate_all_the_same(self) -> None:
        display = self.start_server("-extension", "XTEST")
        quenda = self.start_quenda(variables={"DISPLAY": display})
        wait_until(lambda: self.notice(display), "the notice", 10)
        self.done("toggle")
        self.desktop.say("the quick brown fox jumps over the lazy dog")
        time.sleep(0.15)
        self.done("toggle")
        wait_until(quenda.answers, "the engine's answer", 20)
        wait_until(lambda: self.done("history").startswith("1  "), "the history")
        said = self.done("history").removeprefix("1  ").strip()
        self.assertIn("lazy", said)


if __name__ == "__main__":
    run()
