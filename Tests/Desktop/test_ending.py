#!/usr/bin/python3
"""However and whenever the program ends, it ends soon and leaves no process behind."""

import signal

from desktop_test import DesktopTest, keys, run
from quenda_program import Quenda


class Ending(DesktopTest):
    def assert_ends(self, quenda: Quenda, with_signal: int = signal.SIGTERM) -> None:
        self.assertEqual(len(quenda.engines()), 1)
        quenda.process.send_signal(with_signal)
        status = quenda.process.wait(5)
        self.assertEqual(status, -with_signal if with_signal == signal.SIGKILL else 0)
        quenda.wait_until_engine_gone()
        self.assertFalse(self.desktop.sound.is_recorded())

    def test_when_idle(self) -> None:
        for with_signal in (signal.SIGTERM, signal.SIGINT, signal.SIGKILL):
            with self.subTest(with_signal.name):
                self.assert_ends(self.start_quenda(relay=False), with_signal)

    def test_while_recording(self) -> None:
        for with_signal in (signal.SIGTERM, signal.SIGKILL):
            with self.subTest(with_signal.name):
                quenda = self.start_quenda(relay=False)
                self.desktop.keyboard.down(keys.RIGHT_ALT)
                self.wait_until_recording()
                self.assert_ends(quenda, with_signal)
                self.desktop.keyboard.up(keys.RIGHT_ALT)

    def test_while_transcribing(self) -> None:
        for with_signal in (signal.SIGTERM, signal.SIGKILL):
            with self.subTest(with_signal.name):
                quenda = self.start_quenda(relay=False, controls={"ANSWER": "never"})
                self.dictate("hello world")
                quenda.wait_for_engine_log("inference begins")
                self.assert_ends(quenda, with_signal)
                self.assert_nothing_inserted()

    def test_while_loading(self) -> None:
        for with_signal in (signal.SIGTERM, signal.SIGKILL):
            with self.subTest(with_signal.name):
                quenda = self.desktop.start_quenda(controls={"LOAD_DELAY_MS": "60000"})
                quenda.wait_for_log("engine: launched whisper-server pid=")
                self.assert_ends(quenda, with_signal)
                self.assertEqual(quenda.count("engine: Ready"), 0)


if __name__ == "__main__":
    run()
