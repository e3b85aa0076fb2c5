#!/usr/bin/python3
"""Stands between the program and the engine and notes, for every inference, when the last byte of
the request came by, when the answer came by, and the text it carried.

Usage: engine_relay.py ENGINE FILE [the engine's arguments]

It starts ENGINE with the same arguments on another port, listens on the given one as soon as the
engine does, ends when the engine ends, and the engine ends with it. One JSON object a line goes to
FILE.
"""

import ctypes
import json
import os
import selectors
import signal
import socket
import subprocess
import sys
import threading
import time
from typing import Callable

PR_SET_PDEATHSIG = 1


class Framing:
    """Follows one direction of an HTTP/1.1 connection and tells the end of each message."""

    def __init__(self, on_message: Callable[[bytes, bytes], None]) -> None:
        self._on_message = on_message
        self._buffer = bytearray()
        self._head: bytes | None = None
        self._length = 0

    def feed(self, data: bytes) -> None:
        self._buffer += data
        while True:
            if self._head is None:
                end = self._buffer.find(b"\r\n\r\n")
                if end < 0:
                    return
                self._head = bytes(self._buffer[:end])
                del self._buffer[:end + 4]
                self._length = content_length(self._head)
            if len(self._buffer) < self._length:
                return
            head, body = self._head, bytes(self._buffer[:self._length])
            del self._buffer[:self._length]
            self._head = None
            self._on_message(head, body)


def content_length(head: bytes) -> int:
    for line in head.split(b"\r\n")[1:]:
        name, _, value = line.partition(b":")
        if name.strip().lower() == b"content-length" and value.strip().isdigit():
            return int(value)
    return 0


class Exchange:
    """One connection of the program and the one to the engine that it is passed on to."""

    def __init__(self, client: socket.socket, engine_port: int, note: Callable[..., None]) -> None:
        self._client = client
        self._engine = socket.create_connection(("127.0.0.1", engine_port))
        for side in (self._client, self._engine):
            side.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._note = note
        self._seen = 0  # when the chunk that is being looked at was received
        self._inference = False
        self._asked = 0

    def run(self) -> None:
        requests, answers = Framing(self._asked_for), Framing(self._answered)
        selector = selectors.DefaultSelector()
        selector.register(self._client, selectors.EVENT_READ, (self._engine, requests))
        selector.register(self._engine, selectors.EVENT_READ, (self._client, answers))
        with selector, self._client, self._engine:
            while True:
                for key, _ in selector.select():
                    other, framing = key.data
                    source = key.fileobj
                    assert isinstance(source, socket.socket)
                    try:
                        data = source.recv(1 << 18)
                        self._seen = time.clock_gettime_ns(time.CLOCK_MONOTONIC)
                        if data:
                            other.sendall(data)
                    except OSError:
                        return
                    if not data:
                        return  # the other side learns it by the closing of both
                    framing.feed(data)

    def _asked_for(self, head: bytes, _body: bytes) -> None:
        self._inference = head.startswith(b"POST ")
        self._asked = self._seen

    def _answered(self, head: bytes, body: bytes) -> None:
        if not self._inference:
            return
        status = head.split(b" ", 2)[1].decode()
        try:
            text = json.loads(body)["text"]
        except (ValueError, KeyError, TypeError):
            text = None
        self._note(asked_ns=self._asked, answered_ns=self._seen, status=int(status), text=text)


def start_engine(engine: str, arguments: list[str], port: int) -> subprocess.Popen:
    parent = os.getpid()
    libc = ctypes.CDLL(None)
    arguments = list(arguments)
    arguments[arguments.index("--port") + 1] = str(port)

    def die_with_parent() -> None:
        libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
        if os.getppid() != parent:
            os._exit(1)

    return subprocess.Popen([engine, *arguments], preexec_fn=die_with_parent)


def free_port(avoid: int) -> int:
    """One that does not begin with the digits of the port to avoid: whoever looks for that one in
    command lines must not find the engine behind the relay."""
    while True:
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        if not str(port).startswith(str(avoid)):
            return port


def stand_before(engine: str, arguments: list[str],
                 serve: Callable[[socket.socket, int], None]) -> None:
    """Runs the engine on another port and serves its own one; never returns. `serve` is called on
    a thread of its own for each connection, with the connection and the engine's port."""
    port = int(arguments[arguments.index("--port") + 1])
    engine_port = free_port(port)
    process = start_engine(engine, arguments, engine_port)

    def end_with_engine() -> None:
        status = process.wait()
        if status < 0:
            signal.signal(-status, signal.SIG_DFL) if -status != signal.SIGKILL else None
            os.kill(os.getpid(), -status)
        os._exit(status if status >= 0 else 1)

    threading.Thread(target=end_with_engine, daemon=True).start()
    while True:
        try:
            socket.create_connection(("127.0.0.1", engine_port)).close()
            break
        except ConnectionRefusedError:
            time.sleep(0.005)

    # Every address of this desktop: a cloud service is reached over its network.
    listener = socket.create_server(("", port), reuse_port=True)
    while True:
        client, _ = listener.accept()
        threading.Thread(target=serve, args=(client, engine_port), daemon=True).start()


def main() -> None:
    engine, record, *arguments = sys.argv[1:]
    lock = threading.Lock()

    def note(**fields: object) -> None:
        with lock, open(record, "a", encoding="utf-8") as file:
            file.write(json.dumps(fields) + "\n")

    stand_before(engine, arguments,
                 lambda client, engine_port: Exchange(client, engine_port, note).run())


if __name__ == "__main__":
    main()
