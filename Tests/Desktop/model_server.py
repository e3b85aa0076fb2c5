"""A web server of the test's own that offers speech models, slowly enough to watch."""

import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer


class ModelServer:
    """Serves `size` bytes under every file name. Nothing beyond half of it before release()."""

    CHUNK = 200_000

    def __init__(self, size: int = 4_000_000) -> None:
        self.asked: list[str] = []
        self.body = bytes(range(256)) * (size // 256)
        self._go_on = threading.Event()
        outer = self

        class Handler(BaseHTTPRequestHandler):
            def do_GET(self) -> None:
                outer.asked.append(self.path)
                self.send_response(200)
                self.send_header("Content-Length", str(len(outer.body)))
                self.end_headers()
                half = len(outer.body) // 2
                try:
                    for start in range(0, half, outer.CHUNK):
                        self.wfile.write(outer.body[start:min(start + outer.CHUNK, half)])
                        time.sleep(0.12)
                    outer._go_on.wait(60)
                    self.wfile.write(outer.body[half:])
                except OSError:
                    pass  # the program went away

            def log_message(self, *_: object) -> None:
                pass

        self._server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self._server.daemon_threads = True
        threading.Thread(target=self._server.serve_forever, daemon=True).start()
        self.base_url = f"http://127.0.0.1:{self._server.server_port}/"

    def release(self) -> None:
        """Lets the second half of every download come."""
        self._go_on.set()

    def stop(self) -> None:
        self._go_on.set()
        self._server.shutdown()
        self._server.server_close()
