#!/usr/bin/python3
"""The icon in a status area of the X server's kind, and its menu under mouse and keyboard."""

import os
import subprocess
import time
from pathlib import Path
from typing import Optional

from desktop_test import DesktopTest, keys, run
from waiting import wait_until
from x_windows import Window, click, pixels, windows

# Where QUENDA_SHOTS names a folder, what a person sees is kept there.
SHOTS = os.environ.get("QUENDA_SHOTS")
UP = 111
RIGHT_BUTTON = 3
LARGEST_ICON = 64


class StatusAreaByXEmbed(DesktopTest):
    def start_panel(self) -> subprocess.Popen:
        panel = self.desktop.start(["tint2"], "tint2")
        self.addCleanup(self.end, panel)
        return panel

    def end(self, process: subprocess.Popen) -> None:
        process.kill()
        process.wait()

    def icon(self) -> Optional[Window]:
        """The icon's window in the panel, if it shows."""
        return next((w for w in windows(self.desktop, "--class", "^quenda$")
                     if w.width <= LARGEST_ICON), None)

    def menu(self) -> Optional[Window]:
        """The open menu, if it is: a window that the window manager has no say in."""
        return next((w for w in windows(self.desktop, "--class", "^quenda$")
                     if w.width > LARGEST_ICON and "Override Redirect State: yes" in
                     self.desktop.output("xwininfo", "-id", w.id)), None)

    def wait_for_icon(self) -> Window:
        icon = wait_until(self.icon, "the icon in the panel", 15)
        time.sleep(0.3)  # the panel moves its icons about when one comes
        return self.icon() or icon

    def open_menu(self, button: int = RIGHT_BUTTON) -> Window:
        icon = self.wait_for_icon()
        click(self.desktop, icon, icon.width // 2, icon.height // 2, button)
        return wait_until(self.menu, "the menu")

    def is_red(self, icon: Window) -> bool:
        shown = pixels(self.desktop, icon)
        red = sum(r > 150 and r > 2 * max(g, b) for r, g, b in shown)
        return red > len(shown) / 10

    def shoot(self, name: str) -> None:
        if SHOTS:
            time.sleep(0.3)  # for the menu to be drawn
            self.desktop.screenshot(Path(SHOTS) / name)

    def test_the_menu_opens_by_either_button_and_is_chosen_from(self) -> None:
        self.start_panel()
        self.start_quenda()
        for button in (RIGHT_BUTTON, 1):
            menu = self.open_menu(button)
            self.assertLess(menu.top + menu.height, 801, "the menu leaves the screen")
            self.shoot("menu-open.png")
            self.desktop.keyboard.tap(keys.ESCAPE)
            wait_until(lambda: not self.menu(), "the menu's end")
        self.open_menu()
        self.desktop.keyboard.tap(UP)  # to the last entry, which quits
        self.desktop.keyboard.tap(UP)
        self.desktop.keyboard.tap(keys.RETURN)
        wait_until(lambda: self.desktop.find_window("^About Quenda$"), "the window about Quenda")
        self.assertIsNone(self.menu())

    def test_the_icon_is_red_while_recording(self) -> None:
        self.start_panel()
        self.start_quenda()
        icon = self.wait_for_icon()
        self.assertFalse(self.is_red(icon))
        self.assertGreater(len(set(pixels(self.desktop, icon))), 4, "an empty icon")
        self.desktop.keyboard.down(keys.RIGHT_ALT)
        try:
            wait_until(lambda: self.is_red(icon), "the red icon")
            self.shoot("icon-red.png")
        finally:
            self.desktop.keyboard.up(keys.RIGHT_ALT)
        wait_until(lambda: not self.is_red(icon), "the plain icon")

    def test_a_panel_that_comes_late_and_again(self) -> None:
        self.start_quenda()
        for _ in range(2):
            self.assertIsNone(self.icon())
            panel = self.start_panel()
            self.open_menu()
            self.desktop.keyboard.tap(keys.ESCAPE)
            wait_until(lambda: not self.menu(), "the menu's end")
            self.end(panel)
            wait_until(lambda: not self.icon(), "the icon's end")


if __name__ == "__main__":
    run()
