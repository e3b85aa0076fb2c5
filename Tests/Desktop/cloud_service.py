"""The recogniser as the cloud service that the settings' custom provider names."""

import socket
import subprocess
import sys
from pathlib import Path
from typing import Any, Callable

from quenda_program import RELAY, write_controls
from waiting import wait_until

Start = Callable[..., subprocess.Popen]

PORT = 8710
PATH = "/v1/audio/transcriptions"
KEY = "sk-desktop-test-0123456789"


class CloudService:
    """Answers on loopback whoever shows the key, and notes the answers as the relay does."""

    def __init__(self, start: Start, environment: dict[str, str], folder: Path,
                 recogniser: Path) -> None:
        folder.mkdir()
        self.answers_file = folder / "answers.jsonl"
        model = folder / "model.bin"
        model.touch()
        self.controls_file = folder / "controls"
        self.control()
        self.process = start(
            [sys.executable, "-S", "-E", str(RELAY), str(recogniser), str(self.answers_file), "-m",
             str(model), "--host", "127.0.0.1", "--port", str(PORT), "--inference-path", PATH],
            "cloud-service", env=environment | {"SPHINX_API_KEY": KEY,
                                              "SPHINX_CONTROL": str(self.controls_file)})
        wait_until(self._listens, "the cloud service", 30)

    def control(self, **controls: str) -> None:
        """Replaces the recogniser's controls, see SphinxWhisperServer.cpp."""
        write_controls(self.controls_file, controls)

    def _listens(self) -> bool:
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", PORT)) == 0


def cloud_settings(key: str = KEY, host: str = "127.0.0.1") -> dict[str, Any]:
    """What a person who uses the service has in the settings."""
    return {"provider": "custom", "customBaseURL": f"http://{host}:{PORT}/v1",
            "apiKeys": {"custom": key}}
