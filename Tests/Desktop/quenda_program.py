"""The program under test: its folders, its settings, its log and its end."""

import json
import signal
import subprocess
import sys
from pathlib import Path
from typing import Any, Callable, Optional

from processes import is_alive, running, wait_until_gone
from waiting import now_ns, wait_until

Start = Callable[..., subprocess.Popen]

RELAY = Path(__file__).with_name("engine_relay.py")
PORT = 8698


class Quenda:
    """A running Quenda.

    binary    the program
    engine    the whisper-server to name in the settings
    model     the model file to name in the settings; an empty file of our own if not given
    settings  further settings
    controls  variables for the recogniser, see SphinxWhisperServer.cpp
    relay     whether a relay stands before the engine and notes what it answered
    answers   where a relay of the test's own notes answers, in place of that
    trace     whether the program writes its milestones
    first_launch  whether it has never run before, and so shows the welcome window
    variables further variables of its environment
    """

    def __init__(self, start: Start, environment: dict[str, str], folder: Path, *, binary: Path,
                 engine: Path, model: Optional[Path] = None,
                 settings: Optional[dict[str, Any]] = None,
                 controls: Optional[dict[str, str]] = None, relay: bool = False,
                 answers: Optional[Path] = None, trace: bool = False, first_launch: bool = False,
                 variables: Optional[dict[str, str]] = None) -> None:
        self.folder = folder
        folder.mkdir()
        self.controls_file = folder / "controls"
        self.relay_file = answers or folder / "relay.jsonl"
        self.trace_file = folder / "trace"
        self.data = folder / "data" / "Quenda"
        self.log_file = folder / "state" / "Quenda" / "quenda.log"
        config_home = folder / "config"
        if model is None:
            model = folder / "model.bin"
            model.touch()
        self.engine_file = str(engine)
        if relay:
            engine = self._wrap(engine)
        self.data.mkdir(parents=True)
        (self.data / "config.json").write_text(json.dumps({
            "whisperServerPath": str(engine), "modelPath": str(model), "serverPort": PORT,
            "checkForUpdates": False, **(settings or {})}), encoding="utf-8")
        (config_home / "Quenda").mkdir(parents=True)
        if not first_launch:
            (config_home / "Quenda" / "Quenda.conf").write_text(
                "[General]\nhasSeenWelcome=true\n", encoding="utf-8")
        self.control(**(controls or {}))
        self.environment = environment | {
            "XDG_DATA_HOME": str(folder / "data"), "XDG_STATE_HOME": str(folder / "state"),
            "XDG_CONFIG_HOME": str(config_home), "XDG_CACHE_HOME": str(folder / "cache"),
            "SPHINX_CONTROL": str(self.controls_file),
        } | (variables or {})
        if trace:
            self.environment["QUENDA_TRACE"] = str(self.trace_file)
        self.started_ns = now_ns()
        self.process = start([str(binary)], folder.name, env=self.environment,
                             cwd=str(folder))

    def _wrap(self, engine: Path) -> Path:
        """A `whisper-server` that is the relay before the real one."""
        wrapper = self.folder / "whisper-server"
        wrapper.write_text(f"#!/bin/sh\nexec '{sys.executable}' -S -E '{RELAY}' '{engine}' "
                           f"'{self.relay_file}' \"$@\"\n", encoding="utf-8")
        wrapper.chmod(0o755)
        return wrapper

    def control(self, **controls: str) -> None:
        """Replaces the recogniser's controls, at once and also for one that runs already."""
        fresh = self.controls_file.with_suffix(".new")
        fresh.write_text("".join(f"{name}={value}\n" for name, value in controls.items()),
                         encoding="utf-8")
        fresh.replace(self.controls_file)

    # Log

    def log(self) -> str:
        try:
            return self.log_file.read_text(encoding="utf-8")
        except FileNotFoundError:
            return ""

    def messages(self) -> list[str]:
        """The log's lines without their time stamps."""
        return [line[20:] for line in self.log().splitlines()]

    def count(self, message: str) -> int:
        """How many log lines contain the message."""
        return sum(message in line for line in self.messages())

    def wait_for_log(self, message: str, times: int = 1, seconds: float = 20.0) -> None:
        """Waits until so many log lines contain the message."""
        def there() -> bool:
            if self.process.poll() is not None:
                raise AssertionError(f"the program ended with {self.process.returncode}")
            return self.count(message) >= times
        wait_until(there, f"{times} × “{message}” in the log", seconds)

    def wait_until_ready(self, times: int = 1) -> None:
        """Waits until the engine was ready for the given time."""
        self.wait_for_log("engine: Ready", times)

    def trace(self) -> list[tuple[int, str]]:
        """The milestones that the program wrote: time in nanoseconds, event."""
        try:
            lines = self.trace_file.read_text(encoding="utf-8").splitlines()
        except FileNotFoundError:
            return []
        return [(int(time), event) for time, event in (line.split(" ", 1) for line in lines)]

    def answers(self) -> list[dict[str, Any]]:
        """What the relay saw of the engine: `asked_ns`, `answered_ns`, `status`, `text`."""
        try:
            lines = self.relay_file.read_text(encoding="utf-8").splitlines()
        except FileNotFoundError:
            return []
        return [json.loads(line) for line in lines]

    def engine_log(self) -> str:
        """What the running engine printed."""
        try:
            return self.log_file.with_name("whisper-server.log").read_text(errors="replace")
        except FileNotFoundError:
            return ""

    def wait_for_engine_log(self, message: str, seconds: float = 20.0) -> None:
        """Waits until the running engine has printed the message."""
        wait_until(lambda: message in self.engine_log(), f"“{message}” of the engine", seconds)

    # Processes

    def children(self) -> list[int]:
        """The program's living child processes."""
        try:
            listed = Path(f"/proc/{self.process.pid}/task").iterdir()
            ids = [int(child) for task in listed
                   for child in (task / "children").read_text().split()]
        except OSError:
            return []
        return [child for child in ids if is_alive(child)]

    def engines(self) -> list[int]:
        """The living processes of the engine, and of the relay before it if there is one."""
        return sorted(running(self.engine_file))

    def wait_until_engine_gone(self) -> None:
        """Waits until no process of the engine is left."""
        wait_until_gone(self.engine_file)

    def terminate(self, seconds: float = 10.0) -> int:
        """Asks the program to end; its exit status."""
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(seconds)
