#!/usr/bin/python3
"""One instance, and what it is told over the real bus by the real command line."""

import os
import signal
import subprocess
import time
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import dbus
import dbus.bus

from commands import (DONE, INTERFACE, NOT_RUNNING, OBJECT, REFUSED, SERVICE, USAGE, CommandTest,
                      run_command)
from desktop_test import keys, run
from virtual_desktop import QUENDA_BINARY, REPOSITORY
from waiting import wait_until

INTROSPECTION = REPOSITORY / "Resources" / "dbus" / "org.quenda.Quenda.xml"
APPLICATION = "org.freedesktop.Application"


class Commands(CommandTest):
    def object(self) -> dbus.proxies.ProxyObject:
        bus = dbus.bus.BusConnection(self.desktop.environment["DBUS_SESSION_BUS_ADDRESS"])
        self.addCleanup(bus.close)
        return bus.get_object(SERVICE, OBJECT, introspect=False)

    def wait_for_name(self) -> None:
        """The program takes calls a moment after its engine is ready, at the latest."""
        self.done("status")

    # One instance

    def test_a_second_start_opens_the_settings_of_the_first(self) -> None:
        quenda = self.start_quenda()
        self.assertEqual(self.desktop.find_window("Quenda Settings"), "")
        outcome = self.command()
        self.assert_outcome(outcome, DONE)
        self.assertEqual(outcome.output, "")
        wait_until(lambda: self.desktop.find_window("Quenda Settings"), "the settings window")
        self.assertIsNone(quenda.process.poll())
        self.assertEqual(quenda.count("app: launched"), 1)

    def test_a_second_start_needs_no_display(self) -> None:
        self.start_quenda()
        self.assert_outcome(self.command(DISPLAY=None), DONE)
        wait_until(lambda: self.desktop.find_window("Quenda Settings"), "the settings window")

    def test_a_restored_session_opens_nothing_of_a_program_that_runs(self) -> None:
        self.start_quenda()
        self.assert_outcome(self.command("-session", "10f_1_2_3"), DONE)
        time.sleep(0.5)
        self.assertEqual(self.desktop.find_window("Quenda Settings"), "")

    def test_of_several_starts_at_once_one_stays(self) -> None:
        folder = self.desktop.folder / "crowd"
        folder.mkdir()
        environment = self.environment(XDG_DATA_HOME=str(folder), XDG_STATE_HOME=str(folder),
                                       XDG_CONFIG_HOME=str(folder))
        crowd = [subprocess.Popen([QUENDA_BINARY], env=environment, stdin=subprocess.DEVNULL)
                 for _ in range(5)]
        try:
            wait_until(lambda: sum(p.poll() is None for p in crowd) == 1, "one to stay", 20)
            time.sleep(0.5)
            self.assertEqual(sorted(p.poll() is None for p in crowd), [False] * 4 + [True])
            self.assertEqual({p.poll() for p in crowd} - {None}, {DONE})
            log = (folder / "Quenda" / "quenda.log").read_text(encoding="utf-8")
            self.assertEqual(log.count("app: launched"), 1)
        finally:
            for process in crowd:
                if process.poll() is None:
                    process.send_signal(signal.SIGTERM)
                process.wait(10)

    def test_a_killed_program_leaves_no_trace_of_itself(self) -> None:
        quenda = self.start_quenda()
        self.wait_for_name()
        quenda.process.kill()
        quenda.process.wait(5)
        self.assert_outcome(self.command("status"), NOT_RUNNING, "not running")
        self.start_quenda()
        self.assertEqual(self.status()["state"], "ready")

    # Each command

    def test_start_and_stop_dictate(self) -> None:
        quenda = self.start_quenda()
        words = self.dictate_by_command(quenda)
        self.assertEqual(self.done("history"), f"1  {words}\n")
        self.assert_outcome(self.command("stop"), REFUSED, "No dictation is running.")
        self.assertNotIn(words, quenda.log())

    def test_toggle_cancel_and_status(self) -> None:
        quenda = self.start_quenda()
        idle = self.status()
        self.assertEqual((idle["state"], idle["recording"], idle["transcribing"]),
                         ("ready", False, False))
        self.assertEqual(idle["statusLine"], "Ready — model.bin")
        self.assertEqual((idle["provider"], idle["hotkey"], idle["activationMode"]),
                         ("local", "rightOption", "hold"))
        self.assertEqual(idle["hotkeyHint"], "Hold Right Alt to dictate")
        self.assertIs(idle["keyHeard"], True)
        self.assertEqual(f"Quenda {idle['version']}\n", self.done("--version"))
        self.done("toggle")
        self.wait_until_recording()
        self.assertTrue(self.status()["recording"])
        self.assertIn("Recording: yes\n", self.done("status"))
        self.assert_outcome(self.command("start"), REFUSED, "A dictation is running already.")
        self.done("cancel")
        self.wait_until_not_recording()
        self.assertFalse(self.status()["recording"])
        self.assert_outcome(self.command("cancel"), REFUSED, "No dictation is running.")
        self.done("toggle")
        self.desktop.say("hello world")
        self.done("toggle")
        self.wait_for_transcript(quenda)

    def test_escape_cancels_what_a_command_began(self) -> None:
        self.start_quenda()
        self.done("start")
        self.wait_until_recording()
        self.desktop.keyboard.tap(keys.ESCAPE)
        self.wait_until_not_recording()

    def test_history_is_copied_by_number(self) -> None:
        quenda = self.start_quenda()
        self.assertEqual(self.done("history"), "")
        self.assert_outcome(self.command("history", "--copy", "1"), REFUSED,
                            "There are no dictations yet.")
        words = self.dictate_by_command(quenda)
        time.sleep(1.5)  # the paste gives the clipboard back after a second
        self.done("history", "--copy", "1")
        wait_until(lambda: (self.desktop.clipboard() or b"").decode() == words, "the clipboard")
        self.assert_outcome(self.command("history", "--copy", "2"), REFUSED, "number 2")

    def test_retry(self) -> None:
        self.start_quenda()
        self.assert_outcome(self.command("retry"), REFUSED, "no failed dictation")

    def test_windows(self) -> None:
        self.start_quenda()
        for word, title in (("settings", "Quenda Settings"), ("welcome", "Welcome to Quenda"),
                            ("about", "About Quenda")):
            self.done(word)
            wait_until(lambda name=title: self.desktop.find_window(name), title)

    def test_quit_returns_when_the_program_has_ended(self) -> None:
        quenda = self.start_quenda()
        self.done("quit")
        self.assertEqual(quenda.process.wait(0.5), 0)
        quenda.wait_until_engine_gone()
        self.assert_outcome(self.command("quit"), NOT_RUNNING, "not running")

    def test_a_start_right_after_quit_is_a_start(self) -> None:
        first = self.start_quenda()
        subprocess.Popen([QUENDA_BINARY, "quit"], env=self.desktop.environment).wait(10)
        self.assertEqual(first.process.wait(1), 0)
        self.start_quenda()
        self.assertEqual(self.status()["state"], "ready")

    def test_a_command_waits_for_a_program_that_is_starting(self) -> None:
        quenda = self.desktop.start_quenda()
        self.addCleanup(self._end, quenda)
        lock = Path(self.desktop.environment["XDG_RUNTIME_DIR"], "quenda.lock")
        wait_until(lock.exists, "the lock")
        self.done("settings")
        wait_until(lambda: self.desktop.find_window("Quenda Settings"), "the settings window")

    # Without the program, without a desktop

    def test_not_running(self) -> None:
        for word in (["start"], ["stop"], ["toggle"], ["cancel"], ["retry"], ["status"],
                     ["history"], ["settings"], ["welcome"], ["about"], ["quit"],
                     ["status", "--json"], ["history", "--copy", "1"]):
            outcome = self.command(*word)
            self.assert_outcome(outcome, NOT_RUNNING, "Quenda is not running.")
            self.assertLess(outcome.seconds, 2)

    def test_help_and_version_need_nothing(self) -> None:
        bare = {"PATH": os.environ["PATH"]}
        for word in ("--help", "-h"):
            outcome = run_command(bare, word)
            self.assertEqual((outcome.code, outcome.error), (DONE, ""))
            self.assertTrue(outcome.output.startswith("Usage: quenda [COMMAND]\n"))
        for word in ("--version", "-v"):
            outcome = run_command(bare, word)
            self.assertEqual((outcome.code, outcome.error), (DONE, ""))
            self.assertRegex(outcome.output, r"^Quenda \d+\.\d+\.\d+\n$")
        self.assert_outcome(run_command(bare, "status"), NOT_RUNNING)

    def test_wrong_arguments(self) -> None:
        for words in (["dance"], ["--loud"], ["start", "now"], ["history", "--copy"],
                      ["history", "--copy", "0"], ["history", "--copy", "x"], ["status", "--xml"],
                      [""], ["\x1b[2J\n"], ["x" * 100000]):
            self.assert_outcome(self.command(*words), USAGE)

    def test_what_cannot_be_printed_is_a_failure(self) -> None:
        with open("/dev/full", "w", encoding="utf-8") as full:
            result = subprocess.run([QUENDA_BINARY, "--help"], stdout=full, check=False)
        self.assertEqual(result.returncode, REFUSED)

    # The interfaces

    def test_the_introspection_is_what_is_installed(self) -> None:
        self.start_quenda()
        self.wait_for_name()
        said = ElementTree.fromstring(self.object().Introspect(
            dbus_interface="org.freedesktop.DBus.Introspectable"))

        def methods(root: ElementTree.Element, name: str) -> dict[str, list[tuple]]:
            interface = next(i for i in root.iter("interface") if i.get("name") == name)
            return {method.get("name", ""): [(a.get("type"), a.get("direction"))
                                             for a in method.iter("arg")]
                    for method in interface.iter("method")}
        installed = ElementTree.parse(INTROSPECTION).getroot()
        self.assertEqual(methods(said, INTERFACE), methods(installed, INTERFACE))
        self.assertEqual(len(methods(said, INTERFACE)), 12)
        self.assertEqual(set(methods(said, APPLICATION)), {"Activate", "Open", "ActivateAction"})

    def test_the_desktop_activates_the_program(self) -> None:
        self.start_quenda()
        self.wait_for_name()
        nothing = dbus.Dictionary({}, "sv")
        application = dbus.Interface(self.object(), APPLICATION)
        application.ActivateAction("toggle", dbus.Array([], "v"), nothing)
        self.wait_until_recording()
        application.ActivateAction("cancel", dbus.Array([], "v"), nothing)
        self.wait_until_not_recording()
        application.Activate(nothing)
        wait_until(lambda: self.desktop.find_window("Quenda Settings"), "the settings window")
        application.Open(dbus.Array(["file:///etc/passwd"], "s"), nothing)


if __name__ == "__main__":
    run()
