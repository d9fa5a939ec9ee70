"""A program of the comparison does what the page says. usage: comparison.py PROGRAM [websocket]"""

import http.client
import json
import pathlib
import socket
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "support"))
sys.dont_write_bytecode = True
from websocket import TEXT, WebSocket  # noqa: E402

PATIENCE = 60


def free_port():
    """One that nobody has now."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def is_serving(port):
    """Whether somebody listens."""
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


def start():
    """The program, at a port that is free."""
    for _ in range(5):
        port = free_port()
        process = subprocess.Popen([sys.argv[1], str(port)], stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + PATIENCE
        while process.poll() is None and time.monotonic() < deadline:
            if is_serving(port):
                return process, port
            time.sleep(0.02)
        process.kill()
        process.wait()
    sys.exit("FAILED: it does not serve")


def answer(port, *request):
    """Status, type and body."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=PATIENCE)
    connection.request(*request)
    response = connection.getresponse()
    found = response.status, response.getheader("Content-Type"), response.read()
    connection.close()
    return found


def main():
    """Asks it."""
    process, port = start()
    try:
        status, kind, body = answer(port, "GET", "/hello/you")
        assert (status, kind, json.loads(body)) == (200, "application/json", {"hello": "you"}), (status, kind, body)
        assert answer(port, "GET", "/hello/")[0] == 404
        assert answer(port, "PUT", "/upload", b"x" * 1000)[2] == b"1000 bytes\n"
        # The head alone, since who is refused there need not be read.
        with socket.create_connection(("127.0.0.1", port), PATIENCE) as large:
            large.sendall(b"PUT /upload HTTP/1.1\r\nHost: a\r\nContent-Length: 2000000\r\n\r\n")
            assert large.recv(1000).startswith(b"HTTP/1.1 413 ")
        if "websocket" in sys.argv[2:]:
            echo = WebSocket(port, "/echo")
            echo.send(b"hello")
            assert echo.receive() == (TEXT, b"hello")
    finally:
        process.kill()
        process.wait()


main()
