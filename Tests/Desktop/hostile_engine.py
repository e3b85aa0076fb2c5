#!/usr/bin/python3
"""Stands before the engine like engine_relay.py, and answers inferences in its place as no engine
should: as the line HOSTILE=NAME of the file says that SPHINX_CONTROL names. Without such a line it
only passes on.
"""

import os
import socket
import sys
import threading
import time
from typing import Callable

from engine_relay import Exchange, Framing, stand_before

TWO_GIGABYTES = 2 << 30
PIECE = b"a" * (1 << 20)
WORDS = b'{"text":" the quick brown fox\\n"}'
HEAD = b"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\n"


def two_gigabytes_announced(client: socket.socket) -> None:
    client.sendall(HEAD + b"Content-Length: %d\r\n\r\n{\"text\":\"" % TWO_GIGABYTES)
    flood(client)


def two_gigabytes_unannounced(client: socket.socket) -> None:
    client.sendall(HEAD + b"\r\n{\"text\":\"")
    flood(client)


def flood(client: socket.socket) -> None:
    for _ in range(TWO_GIGABYTES // len(PIECE)):
        client.sendall(PIECE)
    client.sendall(b'"}')


def half(client: socket.socket) -> None:
    client.sendall(HEAD + b"Content-Length: %d\r\n\r\n" % len(WORDS) + WORDS[:len(WORDS) // 2])


def nothing(client: socket.socket) -> None:
    del client


def head_without_end(client: socket.socket) -> None:
    client.sendall(b"HTTP/1.1 200 OK\r\n")
    field = b"X-%06d: " + bytes(b"a" * 1000) + b"\r\n"
    for number in range(TWO_GIGABYTES // 1012):
        client.sendall(field % number)


def bytes_that_are_not_http(client: socket.socket) -> None:
    client.sendall(bytes(range(256)) * 16)


def drop_by_drop(client: socket.socket) -> None:
    answer = HEAD + b"Content-Length: %d\r\n\r\n" % len(WORDS) + WORDS
    for byte in answer:
        client.sendall(bytes([byte]))
        time.sleep(0.01)


def megabytes_of_annotations(client: socket.socket) -> None:
    body = b'{"text":"' + b"[a] (b)\\n" * 220_000 + b'the quick brown fox"}'
    client.sendall(HEAD + b"Content-Length: %d\r\n\r\n" % len(body) + body)


ANSWERS: dict[str, Callable[[socket.socket], None]] = {
    answer.__name__: answer for answer in (
        two_gigabytes_announced, two_gigabytes_unannounced, half, nothing,
        head_without_end, bytes_that_are_not_http, drop_by_drop, megabytes_of_annotations)}


def wanted() -> str:
    with open(os.environ["SPHINX_CONTROL"], encoding="utf-8") as file:
        for line in file:
            if line.startswith("HOSTILE="):
                return line.strip().partition("=")[2]
    return ""


def serve(client: socket.socket, engine_port: int) -> None:
    answer = ANSWERS.get(wanted())
    if not answer or client.recv(4, socket.MSG_PEEK) != b"POST":
        Exchange(client, engine_port, lambda **_: None).run()
        return
    with client:
        complete = threading.Event()
        request = Framing(lambda *_: complete.set())
        while not complete.is_set():
            data = client.recv(1 << 18)
            if not data:
                return
            request.feed(data)
        try:
            answer(client)
        except OSError:
            pass  # it hung up, as it should


def main() -> None:
    engine, _, *arguments = sys.argv[1:]
    stand_before(engine, arguments, serve)


if __name__ == "__main__":
    main()
