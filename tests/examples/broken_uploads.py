"""Uploads that break off half-way. usage: broken_uploads.py PORT DIRECTORY (where the server keeps uploads)"""

import pathlib
import socket
import struct
import sys
import time

SECONDS = 60
PART = 262144  # whole pieces of the server's, so that it writes all of them down

HEADS = {
    "with a length": b"Content-Length: 10000000\r\n\r\n",
    "inside a chunk": b"Transfer-Encoding: chunked\r\n\r\n989680\r\n",
    "between chunks": b"Transfer-Encoding: chunked\r\n\r\n40000\r\n",
}


def close(client):
    client.close()


def reset(client):
    client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    client.close()


def half_close(client):
    client.shutdown(socket.SHUT_WR)
    answer = b""
    try:
        while part := client.recv(65536):
            answer += part
    except ConnectionResetError:
        pass
    assert not answer.startswith(b"HTTP/1.1 2"), answer
    client.close()


def sizes(directory):
    found = []
    for path in directory.iterdir():
        try:
            found.append(path.stat().st_size)
        except FileNotFoundError:
            pass  # removed meanwhile
    return sorted(found)


def until(condition, what):
    deadline = time.monotonic() + SECONDS
    while not condition():
        assert time.monotonic() < deadline, what
        time.sleep(0.01)


port, directory = int(sys.argv[1]), pathlib.Path(sys.argv[2])
for kind, head in HEADS.items():
    for end in (close, reset, half_close):
        before = sizes(directory)
        client = socket.create_connection(("127.0.0.1", port), timeout=SECONDS)
        client.sendall(b"POST / HTTP/1.1\r\nHost: a\r\n" + head + bytes(PART))
        if kind == "between chunks":
            client.sendall(b"\r\n")
        # Only an end that arrives by itself is noticed at once.
        until(lambda: len(sizes(directory)) > len(before) and PART in sizes(directory), "nothing is written down")
        end(client)
        until(lambda: not list(directory.glob("*.part")), "a part stays")
        assert sizes(directory) == before, f"kept: {kind}, {end.__name__}"
        print(f"ok: nothing is kept of an upload {kind}: {end.__name__}", flush=True)
