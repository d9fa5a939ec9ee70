"""An echo server with which the suite is tested: it passes every case, unless it is given a defect.

usage: reference_server.py [--max-message BYTES] [DEFECT...]
"""

import argparse
import contextlib
import socket
import socketserver
import threading

import reference_opening
import reference_session

# For what a client sends behind the end of the server's half of the connection.
LINGER_SECONDS = 5

HEAD_END = b"\r\n\r\n"


class Handler(socketserver.BaseRequestHandler):
    def handle(self):
        self.request.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        with contextlib.suppress(OSError):
            self._serve()
            if "tcp-stays" not in self.server.defects:
                self.request.shutdown(socket.SHUT_WR)
            self.request.settimeout(LINGER_SECONDS)
            while self.request.recv(1 << 18):
                pass

    def _serve(self):
        received = b""
        while HEAD_END not in received:
            part = self.request.recv(1 << 16)
            if not part:
                return
            received += part
        head, rest = received.split(HEAD_END, 1)
        defects = self.server.defects
        answer, is_opened, compression = reference_opening.Opener(defects).answer(head)
        self.request.sendall(answer)
        if is_opened:
            early = b"" if "early-bytes-lost" in defects else rest
            reference_session.Session(self.request, early, compression, self.server.limit, defects).serve()


class Server(socketserver.ThreadingTCPServer):
    daemon_threads = True
    block_on_close = False
    request_queue_size = 128

    def __init__(self, limit, defects=()):
        super().__init__(("127.0.0.1", 0), Handler)
        self.limit = limit
        self.defects = frozenset(defects)

    @property
    def url(self):
        return f"ws://127.0.0.1:{self.server_address[1]}/ws"


@contextlib.contextmanager
def serving(limit, defects=()):
    """The URL of a server, while it serves."""
    with Server(limit, defects) as server:
        thread = threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.05})
        thread.start()
        try:
            yield server.url
        finally:
            server.shutdown()
            thread.join()


def main():
    parser = argparse.ArgumentParser(description="An echo server with defects.")
    parser.add_argument("--max-message", type=int, default=1 << 20)
    parser.add_argument("defects", nargs="*")
    arguments = parser.parse_args()
    with Server(arguments.max_message, arguments.defects) as server:
        print(server.url, flush=True)
        server.serve_forever()


if __name__ == "__main__":
    main()
