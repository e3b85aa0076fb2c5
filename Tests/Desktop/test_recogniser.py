#!/usr/bin/python3
"""The recogniser keeps whisper-server's manners, and the relay before it changes nothing."""

import json
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.error
import urllib.request
from pathlib import Path
from typing import Any, Optional

from isolation import isolate
from quenda_program import RELAY
from sound import speech
from virtual_desktop import RECOGNISER
from waiting import wait_until

PORT = 8698
BOUNDARY = "quenda-test"


def multipart(wav: Optional[bytes], **fields: str) -> bytes:
    body = b"".join(f'--{BOUNDARY}\r\nContent-Disposition: form-data; name="{name}"\r\n\r\n'
                    f"{value}\r\n".encode() for name, value in fields.items())
    if wav is not None:
        body += (f'--{BOUNDARY}\r\nContent-Disposition: form-data; name="file"; '
                 f'filename="audio.wav"\r\nContent-Type: audio/wav\r\n\r\n').encode()
        body += wav + b"\r\n"
    return body + f"--{BOUNDARY}--\r\n".encode()


def request(path: str, body: Optional[bytes] = None, key: str = "",
            seconds: float = 30) -> tuple[int, bytes, Any]:
    asked = urllib.request.Request(f"http://127.0.0.1:{PORT}{path}", data=body)
    if body is not None:
        asked.add_header("Content-Type", f"multipart/form-data; boundary={BOUNDARY}")
    if key:
        asked.add_header("Authorization", f"Bearer {key}")
    try:
        with urllib.request.urlopen(asked, timeout=seconds) as answer:
            return answer.status, answer.read(), answer.headers
    except urllib.error.HTTPError as error:
        with error:
            return error.code, error.read(), error.headers


def listens() -> bool:
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", PORT)) == 0


class Recogniser(unittest.TestCase):
    folder: Path
    wav: bytes

    @classmethod
    def setUpClass(cls) -> None:
        holder = tempfile.TemporaryDirectory(prefix="quenda-recogniser.")
        cls.addClassCleanup(holder.cleanup)
        cls.folder = Path(holder.name)
        spoken = speech("the quick brown fox jumps over the lazy dog", cls.folder / "spoken.wav")
        narrow = cls.folder / "narrow.wav"
        subprocess.run(["sox", str(spoken), "-r", "16000", "-c", "1", "-b", "16", str(narrow)],
                       check=True)
        cls.wav = narrow.read_bytes()
        (cls.folder / "model.bin").touch()

    def start(self, *arguments: str, wait: bool = True, command: Optional[list[str]] = None,
              **controls: str) -> subprocess.Popen:
        server = subprocess.Popen(
            [*(command or [str(RECOGNISER)]), "-m", str(self.folder / "model.bin"), "--host",
             "127.0.0.1", "--port", str(PORT), "--no-timestamps", *arguments],
            env={f"SPHINX_{name}": value for name, value in controls.items()},
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)
        if wait:
            wait_until(listens, "the recogniser to listen", 20)
        return server

    def transcript(self, wav: bytes, path: str = "/inference") -> str:
        status, body, headers = request(path, multipart(wav, response_format="json"))
        self.assertEqual(status, 200)
        self.assertEqual(headers["Access-Control-Allow-Origin"], "*")
        return json.loads(body)["text"]

    def test_answers(self) -> None:
        self.start("--vad", "--vad-model", "/nonexistent")
        self.assertEqual(request("/")[0], 200)
        self.assertEqual(json.loads(request("/health")[1]), {"status": "ok"})
        self.assertEqual(request("/nowhere")[0], 404)
        heard = self.transcript(self.wav)
        self.assertIn("brown fox", heard)
        self.assertTrue(heard.startswith(" ") and heard.endswith("\n"))
        self.assertEqual(self.transcript(self.wav), heard, "the same audio, other words")
        for body in (multipart(None, language="en"), multipart(self.wav[:-100]),
                     multipart(b"RIFF....WAVE"), b"nothing of the kind"):
            status, text, _ = request("/inference", body)
            self.assertEqual((status, text), (400, b"Invalid request"))

    def test_less_than_a_tenth_of_a_second(self) -> None:
        self.start()
        short = self.folder / "short.wav"
        subprocess.run(["sox", "-n", "-r", "16000", "-c", "1", "-b", "16", str(short), "trim", "0",
                        "0.05"], check=True)
        self.assertEqual(self.transcript(short.read_bytes()), "")

    def test_refuses_connections_while_loading(self) -> None:
        begun = time.monotonic()
        self.start(wait=False, LOAD_DELAY_MS="700")
        while time.monotonic() - begun < 0.7:
            self.assertFalse(listens())
            time.sleep(0.05)
        wait_until(listens, "the recogniser to listen", 20)

    def test_exit_status(self) -> None:
        quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL, "check": False}
        missing = subprocess.run([str(RECOGNISER), "-m", "/nonexistent"], **quiet)
        self.assertEqual(missing.returncode, 3)
        unknown = subprocess.run([str(RECOGNISER), "--no-such-argument"], **quiet)
        self.assertEqual(unknown.returncode, 0)

    def test_second_server_on_the_same_port_starts_too(self) -> None:
        first, second = self.start(), self.start()
        time.sleep(0.5)
        self.assertIsNone(first.poll())
        self.assertIsNone(second.poll())

    def test_health_during_an_inference(self) -> None:
        self.start(ANSWER="never")
        with socket.create_connection(("127.0.0.1", PORT)) as busy:
            body = multipart(self.wav)
            busy.sendall(f"POST /inference HTTP/1.1\r\nContent-Length: {len(body)}\r\n"
                         f"Content-Type: multipart/form-data; boundary={BOUNDARY}\r\n\r\n".encode()
                         + body)
            self.assertEqual(request("/health")[0], 200)
            with self.assertRaises(TimeoutError):
                request("/inference", multipart(self.wav), seconds=0.3)

    def test_as_a_cloud_service(self) -> None:
        path = "/v1/audio/transcriptions"
        self.start("--inference-path", path, API_KEY="sk-test")
        self.assertEqual(request("/inference", multipart(self.wav))[0], 404)
        status, body, _ = request(path, multipart(self.wav), key="sk-wrong")
        self.assertEqual(status, 401)
        self.assertTrue(json.loads(body)["error"]["message"])
        status, body, _ = request(path, multipart(self.wav, model="whisper-1"), key="sk-test")
        self.assertEqual(status, 200)
        self.assertIn("brown fox", json.loads(body)["text"])

    def test_relay_notes_the_answer_and_dies_with_the_engine(self) -> None:
        record = self.folder / "relay.jsonl"
        relay = self.start(command=[sys.executable, str(RELAY), str(RECOGNISER), str(record)],
                           ANSWER_DELAY_MS="300")
        heard = self.transcript(self.wav)
        # The relay hands the answer on first, so that its own writing delays nothing.
        noted = json.loads(wait_until(
            lambda: record.exists() and record.read_text(encoding="utf-8").rstrip("\n"),
            "the relay's note"))
        self.assertEqual((noted["status"], noted["text"]), (200, heard))
        self.assertGreater(noted["answered_ns"] - noted["asked_ns"], 300_000_000)
        children = Path(f"/proc/{relay.pid}/task/{relay.pid}/children").read_text().split()
        self.assertEqual(len(children), 1)
        subprocess.run(["kill", "-KILL", children[0]], check=True)
        self.assertEqual(relay.wait(5), -9)


if __name__ == "__main__":
    isolate()
    unittest.main(verbosity=2)
