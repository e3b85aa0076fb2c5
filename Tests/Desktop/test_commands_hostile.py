#!/usr/bin/python3
"""Commands when the program, the caller or the bus do not do what they should."""

import signal
import socket
import subprocess
import sys
import time

import dbus
import dbus.bus

from commands import (DONE, INTERFACE, NO_ANSWER, NOT_RUNNING, OBJECT, REFUSED, SERVICE,
                      CommandTest)
from desktop_test import run
from virtual_desktop import QUENDA_BINARY
from waiting import wait_until

NOWHERE = "unix:path=/nonexistent/bus"
# A program that has the name and does none of what is asked of it.
THIEF = """
import dbus, dbus.mainloop.glib
from gi.repository import GLib
dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
bus.request_name("org.quenda.Quenda")
GLib.MainLoop().run()
"""
PATIENCE = 6  # seconds until a command gives up, at most
UNKNOWN = "org.freedesktop.DBus.Error.UnknownMethod"


class Hostile(CommandTest):
    def bus(self) -> dbus.bus.BusConnection:
        bus = dbus.bus.BusConnection(self.desktop.environment["DBUS_SESSION_BUS_ADDRESS"])
        bus.set_exit_on_disconnect(False)
        self.addCleanup(bus.close)
        return bus

    # The program

    def test_a_hung_program(self) -> None:
        quenda = self.start_quenda()
        self.status()
        quenda.process.send_signal(signal.SIGSTOP)
        try:
            for words in ([], ["status"], ["toggle"], ["quit"]):
                outcome = self.command(*words)
                self.assert_outcome(outcome, NO_ANSWER, "does not answer")
                self.assertLess(outcome.seconds, PATIENCE)
        finally:
            quenda.process.send_signal(signal.SIGCONT)
        # It does late what it was told, the last of which was to end.
        self.assertEqual(quenda.process.wait(5), 0)
        quenda.wait_until_engine_gone()

    def test_a_program_that_dies_while_it_is_asked(self) -> None:
        quenda = self.start_quenda()
        self.status()
        quenda.process.send_signal(signal.SIGSTOP)
        asking = subprocess.Popen([QUENDA_BINARY, "status"], env=self.desktop.environment,
                                  stderr=subprocess.PIPE, text=True)
        time.sleep(0.5)
        quenda.process.kill()
        quenda.process.wait(5)
        _, error = asking.communicate(timeout=PATIENCE)
        self.assertEqual((asking.returncode, error), (NOT_RUNNING, "quenda: Quenda is not running.\n"))

    # The caller

    def test_callers_that_die(self) -> None:
        quenda = self.start_quenda()
        self.status()
        for delay in (0.0, 0.002, 0.005, 0.01, 0.02):
            caller = subprocess.Popen([QUENDA_BINARY, "history"], env=self.desktop.environment,
                                      stdout=subprocess.DEVNULL)
            time.sleep(delay)
            caller.kill()
            caller.wait()
        # One that has sent its call for certain, and is gone before the answer.
        quenda.process.send_signal(signal.SIGSTOP)
        bus = self.bus()
        for _ in range(50):
            call = dbus.lowlevel.MethodCallMessage(SERVICE, OBJECT, INTERFACE, "Status")
            bus.send_message(call)
        bus.flush()
        bus.close()
        quenda.process.send_signal(signal.SIGCONT)
        self.assertEqual(self.status()["state"], "ready")
        self.dictate_by_command(quenda)

    def test_wrong_calls(self) -> None:
        self.start_quenda()
        self.status()
        bus = self.bus()

        def error(interface: str, method: str, signature: str, *arguments: object,
                  path: str = OBJECT) -> str:
            try:
                bus.call_blocking(SERVICE, path, interface, method, signature, arguments, timeout=5)
            except dbus.DBusException as refusal:
                return refusal.get_dbus_name()
            return ""
        application = "org.freedesktop.Application"
        action = "ActivateAction"
        self.assertEqual(error(INTERFACE, "Dance", ""), UNKNOWN)
        self.assertEqual(error(INTERFACE, "Start", "s", "x" * 1000000), UNKNOWN)
        self.assertEqual(error(INTERFACE, "CopyHistory", ""), UNKNOWN)
        self.assertEqual(error(INTERFACE, "CopyHistory", "i", -1), UNKNOWN)
        self.assertEqual(error(INTERFACE, "CopyHistory", "s", "1"), UNKNOWN)
        self.assertEqual(error(INTERFACE, "CopyHistory", "u", 4294967295),
                         "org.quenda.Quenda.Error.Refused")
        self.assertEqual(error(application, action, "sava{sv}", "dance", [], {}), UNKNOWN)
        self.assertEqual(error(application, action, "s", "toggle"), UNKNOWN)
        self.assertEqual(error(application, "Activate", ""), UNKNOWN)
        self.assertNotEqual(error("org.example.Other", "Start", ""), "")
        self.assertNotEqual(error(INTERFACE, "Start", "", path="/"), "")
        self.assertNotEqual(error(INTERFACE, "Start", "", path=OBJECT + "/deeper"), "")
        self.assertNotEqual(error("org.freedesktop.DBus.Properties", "Get", "ss", INTERFACE, "x"), "")
        self.assertFalse(self.status()["recording"])

    # The bus

    def test_a_silent_program_that_has_the_name(self) -> None:
        self.bus().request_name(SERVICE)
        outcome = self.command("status")
        self.assert_outcome(outcome, REFUSED, "Another program has the name")
        self.assertLess(outcome.seconds, PATIENCE)

    def test_a_name_that_another_program_has(self) -> None:
        thief = self.desktop.start([sys.executable, "-c", THIEF], "thief")
        bus = self.bus()
        wait_until(lambda: bus.name_has_owner(SERVICE), "the thief")
        self.assert_outcome(self.command("status"), REFUSED, "Another program has the name")
        quenda = self.start_quenda()
        quenda.wait_for_log("remote: another program has the bus name")
        for words in ([], ["start"], ["status"]):
            self.assert_outcome(self.command(*words), REFUSED, "Another program has the name")
        self.dictate()
        self.wait_for_transcript(quenda)
        thief.kill()
        thief.wait(5)
        self.assertEqual(self.status()["state"], "ready")

    def test_no_bus(self) -> None:
        quenda = self.start_quenda(variables={"DBUS_SESSION_BUS_ADDRESS": NOWHERE})
        self.dictate()
        self.wait_for_transcript(quenda)
        for words in ([], ["status"]):
            for address in (NOWHERE, self.desktop.environment["DBUS_SESSION_BUS_ADDRESS"]):
                outcome = self.command(*words, DBUS_SESSION_BUS_ADDRESS=address)
                self.assert_outcome(outcome, NO_ANSWER, "over this session bus")
        self.assertEqual(quenda.count("app: launched"), 1)
        self._end(quenda)
        self.assert_outcome(self.command("status", DBUS_SESSION_BUS_ADDRESS=NOWHERE), NOT_RUNNING)

    def test_a_bus_that_never_answers(self) -> None:
        path = self.desktop.folder / "mute"
        with socket.socket(socket.AF_UNIX) as mute:
            mute.bind(str(path))
            mute.listen(64)
            address = f"unix:path={path}"
            outcome = self.command("status", DBUS_SESSION_BUS_ADDRESS=address)
            self.assert_outcome(outcome, NOT_RUNNING)
            self.assertLess(outcome.seconds, PATIENCE)
            quenda = self.start_quenda(variables={"DBUS_SESSION_BUS_ADDRESS": address})
            self.dictate()
            self.wait_for_transcript(quenda)
            outcome = self.command("status", DBUS_SESSION_BUS_ADDRESS=address)
            self.assert_outcome(outcome, NO_ANSWER)
            self.assertLess(outcome.seconds, PATIENCE)
            self._end(quenda)

    def test_a_bus_that_goes_away(self) -> None:
        address = f"unix:path={self.desktop.folder}/second-bus"
        daemon = self.desktop.start(["dbus-daemon", "--session", "--nofork", "--nopidfile",
                                     f"--address={address}"], "second-bus")
        wait_until((self.desktop.folder / "second-bus").exists, "the second bus")
        quenda = self.start_quenda(variables={"DBUS_SESSION_BUS_ADDRESS": address})
        self.assert_outcome(self.command("status", DBUS_SESSION_BUS_ADDRESS=address), DONE)
        daemon.kill()
        daemon.wait(5)
        self.dictate()
        self.wait_for_transcript(quenda)
        self.assert_outcome(self.command("status", DBUS_SESSION_BUS_ADDRESS=address), NO_ANSWER)

    # The desktop

    def test_no_display(self) -> None:
        outcome = self.command(DISPLAY=None)
        self.assert_outcome(outcome, REFUSED, "neither DISPLAY nor WAYLAND_DISPLAY")
        outcome = self.command(DISPLAY=":987")
        self.assertEqual(outcome.code, REFUSED, outcome)
        self.assertIn("quenda: Quenda cannot open its windows", outcome.error)
        self.assert_outcome(self.command("status"), NOT_RUNNING)


if __name__ == "__main__":
    run()
