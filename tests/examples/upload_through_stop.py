"""An upload that is under way when the server is told to end. usage: upload_through_stop.py PORT PID DIRECTORY TARGET

DIRECTORY is where the server keeps uploads, by their SHA-256."""

import hashlib
import os
import pathlib
import signal
import socket
import sys
import time

SECONDS = 60
SIZE = 3000000  # more than the server keeps back from the application

port, pid, directory, target = int(sys.argv[1]), int(sys.argv[2]), pathlib.Path(sys.argv[3]), sys.argv[4]
content = os.urandom(SIZE)


def until(condition, what):
    deadline = time.monotonic() + SECONDS
    while not condition():
        assert time.monotonic() < deadline, what
        time.sleep(0.01)


def is_refused():
    try:
        socket.create_connection(("127.0.0.1", port), timeout=SECONDS).close()
    except ConnectionRefusedError:
        return True
    return False


client = socket.create_connection(("127.0.0.1", port), timeout=SECONDS)
client.sendall(f"PUT {target} HTTP/1.1\r\nHost: a\r\nContent-Length: {SIZE}\r\n\r\n".encode() + content[: SIZE // 2])
until(lambda: list(directory.glob(".*.part")), "nothing is written down")
os.kill(pid, signal.SIGTERM)
until(is_refused, "it still takes connections")
client.sendall(content[SIZE // 2 :])
answer = b""
while part := client.recv(65536):
    answer += part
digest = hashlib.sha256(content).hexdigest()
assert answer.startswith(b"HTTP/1.1 201 ") and answer.endswith(f"{digest}\n".encode()), answer
assert (directory / digest).read_bytes() == content
(directory / digest).unlink()
print("ok: an upload is finished while the server ends")
