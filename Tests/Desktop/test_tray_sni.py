#!/usr/bin/python3
"""The menu in a status area that shows items by D-Bus, and hosts that come late and go."""

import subprocess

from desktop_test import DesktopTest, keys, run
from quenda_program import Quenda
from status_item import StatusItem, has_host, named, shown, start_panel, titles
from waiting import wait_until

MENU = ["Ready — model.bin", "—", "Hold Right Alt to dictate", "Mic: Virtual Microphone", "—",
        "Recent Dictations", "—", "Settings…", "Restart Engine", "Check for Updates…",
        "About Quenda", "—", "Quit Quenda"]


class StatusAreaByDBus(DesktopTest):
    @property
    def bus_address(self) -> str:
        return self.desktop.environment["DBUS_SESSION_BUS_ADDRESS"]

    def start_panel(self) -> subprocess.Popen:
        panel = start_panel(self.desktop.start, self.desktop.home)
        self.addCleanup(self.end, panel)
        return panel

    def end(self, process: subprocess.Popen) -> None:
        process.kill()
        process.wait()

    def item_of(self, quenda: Quenda) -> StatusItem:
        item = StatusItem(self.bus_address, quenda.process.pid)
        self.addCleanup(item.close)
        return item

    def shown(self) -> tuple[StatusItem, Quenda]:
        """The program's item in a panel that was there before."""
        self.start_panel()
        wait_until(lambda: has_host(self.bus_address), "the panel to show items")
        quenda = self.start_quenda()
        item = self.item_of(quenda)
        item.wait_until_shown()
        return item, quenda

    def test_the_menu_shows_what_there_is_to_do(self) -> None:
        item, quenda = self.shown()
        entries = item.open()
        self.assertEqual(titles(entries), MENU)
        disabled = [e.title for e in shown(entries) if not e.enabled]
        self.assertEqual(disabled, [MENU[0], MENU[2], MENU[3]])
        self.assertFalse(named(item.open(), "Recent Dictations").entries[0].enabled)
        self.assertEqual(titles(named(item.open(), "Recent Dictations").entries),
                         ["No dictations yet"])
        for title, window in (("About Quenda", "About Quenda"), ("Settings…", "Settings")):
            item.click(item.entry(title))
            wait_until(lambda: self.desktop.find_window(window), f"the window “{window}”")

    def test_recent_dictations_are_copied_and_cleared(self) -> None:
        item, quenda = self.shown()
        long = "the quick brown fox jumps over the lazy dog and on and on till it is tired"
        for text in ("a few words & more", long):
            quenda.control(TEXT=text)
            self.dictate("hello world")
            quenda.wait_for_log(f"→ {len(text)} chars in ")
        recent = item.entry("Recent Dictations")
        entries = item.open(recent.id)
        self.assertEqual(titles(entries),
                         [long[:50] + "…", "a few words & more", "—", "Clear History"])
        for entry, text in ((entries[0], long), (entries[1], "a few words & more")):
            item.click(entry)
            wait_until(lambda: self.desktop.clipboard() == text.encode(), f"“{text}” to paste")
        item.click(named(entries, "Clear History"))
        wait_until(lambda: titles(item.open(item.entry("Recent Dictations").id)) ==
                   ["No dictations yet"], "the end of the history")

    def test_a_host_that_comes_late_and_again(self) -> None:
        quenda = self.start_quenda()
        item = self.item_of(quenda)
        self.assertIsNone(item.find())
        for _ in range(3):
            panel = self.start_panel()
            item.wait_until_shown()
            self.assertEqual(titles(item.open()), MENU)
            self.end(panel)
            wait_until(lambda: item.find() is None, "the host's end")
        self.dictate()
        self.wait_for_transcript(quenda)

    def test_the_icon_is_red_while_recording(self) -> None:
        item, quenda = self.shown()

        def is_red() -> bool:
            drawn = [c for c in item.icon_colours() if c[0] > 128]
            self.assertTrue(drawn, "an empty icon")
            return sum(red > 150 and red > 2 * max(green, blue)
                       for _, red, green, blue in drawn) > len(drawn) / 2
        self.assertFalse(is_red())
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        try:
            wait_until(is_red, "the red icon")
        finally:
            self.desktop.keyboard.up(keys.RIGHT_ALT)
        wait_until(lambda: not is_red(), "the plain icon")

    def test_quit_ends_the_program_and_its_engine(self) -> None:
        item, quenda = self.shown()
        self.assertTrue(quenda.engines())
        item.click(item.entry("Quit Quenda"))
        self.assertEqual(quenda.process.wait(10), 0)
        quenda.wait_until_engine_gone()
        self.assertEqual(quenda.children(), [])

    def test_restart_engine(self) -> None:
        item, quenda = self.shown()
        item.click(item.entry("Restart Engine"))
        quenda.wait_until_ready(times=2)
        item.wait_for_entry(MENU[0])


if __name__ == "__main__":
    run()
