#!/usr/bin/env python3
"""A fast HTTP server on the loopback interface, the other end of the transfer benchmarks.

GET /bytes/N answers N bytes (sent by the kernel from a file in memory).
POST reads the body and answers {"text":"…"}; for each one a line goes to standard output:
the length, and the monotonic clock in nanoseconds at the first and at the last byte.

Prints the port it listens on as its first line. Ends when its standard input is closed.
"""

import os
import socket
import sys
import threading
import time

CHUNK = 64 * 1024 * 1024


def read_head(connection):
    head = b""
    while b"\r\n\r\n" not in head:
        piece = connection.recv(65536)
        if not piece:
            return None, b""
        head += piece
    head, _, rest = head.partition(b"\r\n\r\n")
    return head.decode("latin-1"), rest


def content_length(head):
    for line in head.split("\r\n"):
        name, _, value = line.partition(":")
        if name.lower() == "content-length":
            return int(value)
    return 0


def send_bytes(connection, count, memory):
    connection.sendall(
        b"HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\n"
        b"Content-Length: %d\r\n\r\n" % count
    )
    left = count
    while left:
        offset = 0
        piece = min(left, CHUNK)
        while offset < piece:
            offset += os.sendfile(connection.fileno(), memory, offset, piece - offset)
        left -= piece


def wants_close(head):
    return "connection: close" in head.lower()


def receive_body(connection, count, rest, first, closes):
    buffer = bytearray(1024 * 1024)
    got = len(rest)
    while got < count:
        received = connection.recv_into(buffer)
        if not received:
            return
        got += received
    last = time.monotonic_ns()
    print(got, first, last, flush=True)
    answer = b'{"text":" Benchmark."}'
    connection.sendall(
        b"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
        + (b"Connection: close\r\n" if closes else b"")
        + b"Content-Length: %d\r\n\r\n" % len(answer)
        + answer
    )


def serve(connection, memory):
    with connection:
        try:
            while True:
                head, rest = read_head(connection)
                if head is None:
                    return
                first = time.monotonic_ns()
                method, path, _ = head.split(" ", 2)
                if method == "POST":
                    if "100-continue" in head.lower():
                        connection.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
                    receive_body(connection, content_length(head), rest, first, wants_close(head))
                else:
                    send_bytes(connection, int(path.rsplit("/", 1)[1]), memory)
                if wants_close(head):
                    return
        except (BrokenPipeError, ConnectionResetError):
            return


def main():
    memory = os.memfd_create("bytes")
    with open(memory, "wb", closefd=False) as file:
        file.write(os.urandom(1024 * 1024) * (CHUNK // (1024 * 1024)))
    listener = socket.create_server(("127.0.0.1", 0))
    print(listener.getsockname()[1], flush=True)

    def accept():
        while True:
            connection, _ = listener.accept()
            connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            threading.Thread(target=serve, args=(connection, memory), daemon=True).start()

    threading.Thread(target=accept, daemon=True).start()
    sys.stdin.read()


if __name__ == "__main__":
    main()
