#!/usr/bin/python3
"""The real windows, driven by keyboard and mouse, looked at as assistive technology does."""

import json
import os
import re
import time
from pathlib import Path
from typing import Any

from accessible import AccessibleProgram
from desktop_test import DesktopTest, keys, run
from dictation import hold_and_speak
from model_server import ModelServer
from quenda_program import Quenda
from waiting import wait_until

TAB, DOWN, SPACE, HOME = 23, 116, 65, 110
MOST_TABS = 60
COMPACT = "ggml-large-v3-turbo-q5_0.bin"

# Everything that the settings window offers when it recognises on the device.
SETTINGS_CONTROLS = [
    ("combo box", "Dictation key"), ("combo box", "Activation"),
    ("slider", "Ignore taps shorter than"), ("slider", "Auto-stop after"),
    ("combo box", "Language"), ("check box", "Remove filler words (um, uh, erm)"),
    ("text", "Custom words & names"), ("combo box", "Service"),
    ("push button", "Download"), ("push button", "Open Models Folder"),
    ("link", "Browse all models…"),
    ("combo box", "Free memory when idle for"), ("text", "Server port"),
    ("text", "whisper-server path"), ("push button", "Restart Engine"),
    ("check box", "Launch at login"),
    ("check box", "Play sound cues when recording starts/stops"),
    ("check box", "Check for updates automatically"),
]
CLOUD_CONTROLS = [("password text", "API key"), ("text", "Model")]


class Windows(DesktopTest):
    def start(self, **options: Any) -> Quenda:
        variables = {"QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"} | options.pop("variables", {})
        quenda = self.desktop.start_quenda(relay=True, trace=True, variables=variables, **options)
        self.addCleanup(self._end, quenda)
        self.seen = AccessibleProgram(self.desktop.environment, quenda.process.pid)
        return quenda

    # What a person does

    def open_settings(self, quenda: Quenda) -> Any:
        """A cloud service without its key: the dictation key leads to the settings."""
        quenda.wait_for_log("app: launched")

        def opened() -> bool:
            self.desktop.keyboard.tap(keys.RIGHT_ALT)
            return bool(self.desktop.find_window("Quenda Settings"))
        wait_until(opened, "the settings window", 20, interval=0.5)
        return self.activate("Quenda Settings")

    def activate(self, title: str) -> Any:
        window = self.seen.window(title)
        self.desktop.run("xdotool", "windowactivate", "--sync", self.desktop.find_window(title))
        return window

    def tab_to(self, window: Any, role: str, name: str) -> None:
        """Presses the tab key until the control has the keyboard."""
        passed = []
        for _ in range(MOST_TABS):
            before = self.seen.focused(window)
            if before == (role, name):
                return
            passed.append(before)
            self.desktop.keyboard.tap(TAB)
            time.sleep(0.1)  # neighbours of the same name follow each other: no change to wait for
        self.fail(f"the tab key does not lead to {role} “{name}”, only to {passed}")

    def choose(self, window: Any, name: str, steps: int) -> None:
        """Goes down the picker's list from its first entry."""
        self.tab_to(window, "combo box", name)
        self.desktop.keyboard.tap(HOME)
        for _ in range(steps):
            self.desktop.keyboard.tap(DOWN)

    def click(self, window: Any, role: str, name: str) -> None:
        node = wait_until(lambda: self.seen.find(window, role, name), f"{role} “{name}”", 20)
        x, y = self.seen.centre(node)
        self.desktop.run("xdotool", "mousemove", str(x), str(y), "click", "1")

    def setting(self, quenda: Quenda, name: str) -> Any:
        try:
            return json.loads((quenda.data / "config.json").read_text(encoding="utf-8")).get(name)
        except (OSError, ValueError):
            return None

    def wait_for_setting(self, quenda: Quenda, name: str, value: Any) -> None:
        wait_until(lambda: self.setting(quenda, name) == value,
                   f"the setting {name} to be {value!r}", 10)

    def shares_done(self, window: Any) -> list[int]:
        """The percentages that the window shows."""
        return [int(name[:-1]) for role, name in self.seen.controls(window)
                if role == "label" and re.fullmatch(r"\d+%", name)]

    # What is expected

    def test_every_control_has_its_name_and_role(self) -> None:
        window = self.open_settings(self.start(settings={"provider": "openai"}))
        found = self.seen.controls(window)
        missing = [control for control in SETTINGS_CONTROLS + CLOUD_CONTROLS
                   if control not in found]
        self.assertEqual(missing, [], found)
        nameless = [role for role, name in found if not name and role in (
            "combo box", "slider", "check box", "text", "password text", "push button")]
        self.assertEqual(nameless, [])

    def test_key_and_mode_changed_by_keyboard_are_dictated_with(self) -> None:
        quenda = self.start(settings={"provider": "openai"})
        window = self.open_settings(quenda)
        self.choose(window, "Dictation key", 2)
        self.wait_for_setting(quenda, "hotkey", "rightControl")
        self.choose(window, "Activation", 1)
        self.wait_for_setting(quenda, "activationMode", "toggle")
        self.choose(window, "Service", 0)
        self.wait_for_setting(quenda, "provider", "local")
        quenda.wait_until_ready()
        self.editor.focus()
        self.desktop.keyboard.tap(keys.RIGHT_CONTROL)
        self.wait_until_recording()
        self.desktop.say("hello world")
        self.desktop.keyboard.tap(keys.RIGHT_CONTROL)
        self.wait_for_transcript(quenda)

    def test_the_tab_key_passes_every_control_once(self) -> None:
        window = self.open_settings(self.start(settings={"provider": "openai"}))
        self.tab_to(window, "push button", "Open Models Folder")
        passed = []
        for _ in range(3):
            self.desktop.keyboard.tap(TAB)
            time.sleep(0.2)
            passed.append(self.seen.focused(window))
        self.assertEqual(passed, [
            ("link", "Browse all models…"), ("combo box", "Free memory when idle for"),
            ("text", "Server port")])

    def test_the_window_manager_is_asked_for_a_close_button_only(self) -> None:
        """Motif's hints: openbox does not look at single buttons, others do."""
        self.open_settings(self.start(settings={"provider": "openai"}))
        told = self.desktop.output("xprop", "-id", self.desktop.find_window("Quenda Settings"),
                                   "_MOTIF_WM_HINTS", "_NET_WM_ALLOWED_ACTIONS",
                                   "WM_NORMAL_HINTS")
        flags, functions, decorations = (
            int(number, 16) for number in re.search(
                r"_MOTIF_WM_HINTS\) = (\w+), (\w+), (\w+)", told).groups())
        self.assertEqual(flags & 3, 3, told)
        self.assertEqual(functions & (1 | 8 | 16), 0, f"minimize or maximize: {told}")
        self.assertEqual(functions & 32, 32, f"close: {told}")
        self.assertEqual(decorations & (1 | 32 | 64), 0, f"their buttons: {told}")
        self.assertEqual(decorations & 8, 8, f"title: {told}")
        self.assertNotIn("ACTION_RESIZE", told)
        self.assertNotIn("ACTION_MAXIMIZE", told)
        sizes = re.findall(r"program specified (?:minimum|maximum) size: (.*)", told)
        self.assertEqual(sizes, ["480 by 580"] * 2, told)

    def test_a_port_that_is_none_is_refused_at_the_field(self) -> None:
        quenda = self.start(settings={"provider": "openai"})
        window = self.open_settings(quenda)
        port = self.setting(quenda, "serverPort")
        self.tab_to(window, "text", "Server port")
        self.desktop.run("xdotool", "key", "ctrl+a")
        self.desktop.run("xdotool", "type", "0")
        wait_until(lambda: self.seen.find(window, "label", "Enter a whole number from 1 to 65535."),
                   "the reason beside the field")
        self.assertEqual(self.setting(quenda, "serverPort"), port)

    def test_a_model_downloaded_in_the_settings_is_adopted(self) -> None:
        server = ModelServer()
        self.addCleanup(server.stop)
        quenda = self.start(settings={"provider": "openai"}, model=Path("/nonexistent/model.bin"),
                            variables={"QUENDA_MODEL_BASE_URL": server.base_url})
        window = self.open_settings(quenda)
        if shots := os.environ.get("QUENDA_SHOTS"):
            self.desktop.screenshot(Path(shots) / "settings-on-a-desktop.png")
        self.tab_to(window, "push button", "Download")
        self.desktop.keyboard.tap(SPACE)
        wait_until(lambda: any(self.shares_done(window)), "the download to show", 20)
        server.release()
        model = quenda.data / "models" / "ggml-large-v3-turbo.bin"
        self.wait_for_setting(quenda, "modelPath", str(model))
        self.assertEqual(model.read_bytes(), server.body)
        wait_until(lambda: self.seen.find(window, "label", "In use"), "the model in use", 20)

    def test_first_launch_to_first_dictation(self) -> None:
        server = ModelServer()
        self.addCleanup(server.stop)
        quenda = self.start(
            first_launch=True, model=Path("/nonexistent/model.bin"),
            variables={"QUENDA_MODEL_BASE_URL": server.base_url})
        window = self.activate("Welcome to Quenda")
        wait_until(lambda: any(40 <= share <= 50 for share in self.shares_done(window)),
                   "half of the model", 20)
        self.assertIsNotNone(self.seen.find(window, "push button", "Finish Later"))
        server.release()
        model = quenda.data / "models" / COMPACT
        self.wait_for_setting(quenda, "modelPath", str(model))
        self.assertEqual(model.read_bytes(), server.body)
        self.assertEqual(server.asked, [f"/{COMPACT}"])
        quenda.wait_until_ready()
        self.click(window, "push button", "Start Dictating")
        wait_until(lambda: not self.desktop.find_window("Welcome to Quenda"),
                   "the welcome window to close")
        self.editor.focus()
        hold_and_speak(self.desktop, self.speech())
        self.wait_for_transcript(quenda)


if __name__ == "__main__":
    run()
