#!/usr/bin/python3
"""A whisper-server that answers at once: the n-th text of a list that its caller can work out, too.

Usage: soak_engine.py NAME FOLDER [whisper-server's arguments]

Every recording is checked: a whole WAV file, not silent. FOLDER/NAME.jsonl gets a line for each
request: its samples, its loudest sample, the text or the kind of failure answered. FOLDER/NAME.next
may hold an order for what comes next, "KIND SECONDS": wait so long, then answer a text, an empty
one, an error with a message, something that is no JSON, or break off in the midst of the answer.
An order is for one request. Where SOAK_API_KEY is set, that key must be shown.
"""

import array
import json
import os
import re
import socketserver
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler
from pathlib import Path
from typing import Any

ORDERS = ("text", "empty", "error", "garbage", "cut")
REFUSAL = "This recording was refused on purpose"
_TEXTS = (
    "{name} number {n}.",
    "{name} ünd nümber {n} — 你好 😀.",
    "{name} {n}: the quick brown fox, which nobody sees, jumps over the lazy dog again.",
)


def text_of(name: str, number: int) -> str:
    """What the engine of that name answers as its text of that number, from 1."""
    if number % 40 == 0:
        return f"{name} {number} " + "goes on and on, " * 120 + "and ends."
    return _TEXTS[number % len(_TEXTS)].format(name=name, n=number)


def samples_of(wav: bytes) -> array.array:
    """The samples of a canonical 16 kHz mono WAV file; raises ValueError for anything else."""
    if len(wav) < 44 or wav[:4] != b"RIFF" or wav[8:16] != b"WAVEfmt " or wav[36:40] != b"data":
        raise ValueError("no WAV file")
    sizes = [int.from_bytes(wav[at:at + 4], "little") for at in (4, 40, 24)]
    if sizes != [len(wav) - 8, len(wav) - 44, 16000]:
        raise ValueError("sizes or rate that do not fit")
    return array.array("h", wav[44:])


def file_of(body: bytes, content_type: str) -> bytes:
    """The part named "file" of a multipart body."""
    found = re.search(r"boundary=(\S+)", content_type)
    if not found:
        raise ValueError("no boundary")
    delimiter = b"--" + found.group(1).encode()
    if not body.endswith(b"\r\n" + delimiter + b"--\r\n"):
        raise ValueError("a body without its end")
    begin = body.find(b'name="file"')
    begin = body.find(b"\r\n\r\n", begin) + 4 if begin >= 0 else -1
    if begin < 4:
        raise ValueError("no file")
    return body[begin:body.find(b"\r\n" + delimiter, begin)]


class Engine(socketserver.ThreadingMixIn, socketserver.TCPServer):
    """The server, its count of texts and its notes."""

    allow_reuse_address = True
    daemon_threads = True

    def __init__(self, name: str, folder: Path, port: int) -> None:
        self.name = name
        self.notes = folder / f"{name}.jsonl"
        self.order_file = folder / f"{name}.next"
        self.key = os.environ.get("SOAK_API_KEY", "")
        # One that was ended and started again goes on counting.
        self.texts = sum(json.loads(line)["answer"] == "text"
                         for line in self.notes.read_text().splitlines()) \
            if self.notes.exists() else 0
        self.one_at_a_time = threading.Lock()
        super().__init__(("127.0.0.1", port), Handler)

    def order(self) -> tuple[str, float]:
        try:
            kind, seconds = self.order_file.read_text().split()
            self.order_file.unlink()
        except FileNotFoundError:
            return "text", 0.0
        if kind not in ORDERS:
            raise ValueError(f"unknown order {kind}")
        return kind, float(seconds)

    def note(self, **fields: Any) -> None:
        with open(self.notes, "a", encoding="utf-8") as file:
            file.write(json.dumps(fields) + "\n")


class Handler(BaseHTTPRequestHandler):
    server: Engine

    def do_GET(self) -> None:  # noqa: N802
        self._answer(200, b'{"status":"ok"}')

    def do_POST(self) -> None:  # noqa: N802
        with self.server.one_at_a_time:
            body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
            if self.server.key and self.headers.get("Authorization") != f"Bearer {self.server.key}":
                self.server.note(answer="unauthorised")
                self._answer(401, b'{"error":{"message":"Invalid API key"}}')
                return
            try:
                samples = samples_of(file_of(body, self.headers.get("Content-Type", "")))
            except ValueError as fault:
                self.server.note(answer="fault", fault=str(fault))
                self._answer(400, b"Invalid request")
                return
            del body
            kind, seconds = self.server.order()
            time.sleep(seconds)
            self._serve(kind, len(samples), max(max(samples), -min(samples)) if samples else 0)

    def _serve(self, kind: str, samples: int, peak: int) -> None:
        text = ""
        if kind == "text":
            self.server.texts += 1
            text = text_of(self.server.name, self.server.texts)
        self.server.note(answer=kind, samples=samples, peak=peak, text=text)
        if kind in ("text", "empty"):
            self._answer(200, json.dumps({"text": f" {text}\n"}).encode())
        elif kind == "error":
            self._answer(500, json.dumps({"error": {"message": REFUSAL}}).encode())
        elif kind == "garbage":
            self._answer(200, b"\xff\x00 this is {not JSON")
        else:
            self._answer(200, b'{"text": "half of', announced=4000)

    def _answer(self, status: int, body: bytes, announced: int = 0) -> None:
        self.send_response(status)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(announced or len(body)))
        self.end_headers()
        self.wfile.write(body)
        self.close_connection = True

    def log_message(self, format: str, *arguments: Any) -> None:  # noqa: A002
        pass


def main() -> None:
    name, folder, *arguments = sys.argv[1:]
    port = int(arguments[arguments.index("--port") + 1])
    Engine(name, Path(folder), port).serve_forever()


if __name__ == "__main__":
    main()
