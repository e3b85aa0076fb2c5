"""A web proxy of the test's own, that may refuse."""

import socket
import socketserver
import threading
from typing import Optional
from urllib.parse import urlsplit

REFUSAL = (b"HTTP/1.1 %s\r\nContent-Type: text/html\r\nContent-Length: 16\r\n"
           b"Proxy-Authenticate: Basic realm=\"office\"\r\nConnection: close\r\n\r\n<h1>Refused</h1>")


class Proxy:
    """Passes plain requests on to `target`, whatever host they name, while `answer` is None; else
    gives that answer, and hangs up without a word if it is empty."""

    def __init__(self, port: int, target: tuple[str, int]) -> None:
        self.answer: Optional[bytes] = None
        self.passed = 0
        outer = self

        class Handler(socketserver.BaseRequestHandler):
            def handle(self) -> None:
                outer._serve(self.request, target)

        class Server(socketserver.ThreadingTCPServer):
            allow_reuse_address = True
            daemon_threads = True

        self._server = Server(("127.0.0.1", port), Handler)
        threading.Thread(target=self._server.serve_forever, daemon=True).start()

    def _serve(self, client: socket.socket, target: tuple[str, int]) -> None:
        received = b""
        while b"\r\n\r\n" not in received:
            data = client.recv(1 << 16)
            if not data:
                return
            received += data
        if self.answer is not None:
            # Qt may lose an answer that comes while it is still sending.
            head, _, body = received.partition(b"\r\n\r\n")
            length = next((int(field.split(b":")[1]) for field in head.lower().split(b"\r\n")
                           if field.startswith(b"content-length:")), 0)
            missing = length - len(body)
            while self.answer and missing > 0 and (data := client.recv(1 << 16)):
                missing -= len(data)
            client.sendall(self.answer)
            client.shutdown(socket.SHUT_WR)
            while client.recv(1 << 16):
                pass  # lest the answer be lost with what was not read
            return
        head, _, body = received.partition(b"\r\n\r\n")
        first, *fields = head.split(b"\r\n")
        method, url, version = first.split(b" ")
        kept = [field for field in fields if b"connection:" not in field.lower()]
        first = b" ".join((method, urlsplit(url).path, version))
        head = b"\r\n".join([first, *kept, b"Connection: close"])
        self.passed += 1
        with socket.create_connection(target) as server:
            server.sendall(head + b"\r\n\r\n" + body)
            threading.Thread(target=pump, args=(client, server), daemon=True).start()
            pump(server, client)

    def stop(self) -> None:
        self._server.shutdown()
        self._server.server_close()


def pump(source: socket.socket, destination: socket.socket) -> None:
    try:
        while data := source.recv(1 << 16):
            destination.sendall(data)
    except OSError:
        pass  # either side went away
