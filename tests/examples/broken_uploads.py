"""Uploads that break off, at each stage. usage: broken_uploads.py PORT DIRECTORY [METHOD TARGET [FORM-TARGET]]

DIRECTORY is where the server keeps uploads. Forms are sent to FORM-TARGET."""

import pathlib
import socket
import struct
import sys
import time

SECONDS = 60
PART = 2097152  # more than the server keeps back from the application

LENGTH = b"Content-Length: 10000000\r\n\r\n"
CHUNKED = b"Transfer-Encoding: chunked\r\n\r\n"
FORM_TYPE = b"Content-Type: multipart/form-data; boundary=XX\r\n"
FORM = FORM_TYPE + LENGTH


def begun_file(content):
    return b'--XX\r\nContent-Disposition: form-data; name="f"; filename="a"\r\n\r\n' + content


def whole_file(content):
    return begun_file(content) + b"\r\n"


SMALL_FILE = whole_file(b"the first file")


# What is sent before the end, none of which the server needs to tell the application of.
EARLY = {
    "in its head": b"Content-Len",
    "behind its head": LENGTH,
    "before it is asked to go on": b"Expect: 100-continue\r\n" + LENGTH,
    "behind its first byte": LENGTH + b"x",
    "in the size of a chunk": CHUNKED + b"1000",
    "behind the size of a chunk": CHUNKED + b"1000\r\n",
    "in a chunk": CHUNKED + b"1000\r\n" + bytes(100),
    "in the end of a chunk": CHUNKED + b"4\r\nabcd\r",
    "before the last chunk": CHUNKED + b"4\r\nabcd\r\n",
    "in the last chunk": CHUNKED + b"4\r\nabcd\r\n0\r\n",
    "before the last byte": b"Content-Length: 5\r\n\r\nabcd",
}

EARLY_FORMS = {
    "in its first line": FORM + b"--X",
    "in the head of a part": FORM + b'--XX\r\nContent-Disposition: form-data; name="f"; filen',
    "in a file": FORM + begun_file(b"the first file"),
    "between two files": FORM + SMALL_FILE,
    "before its end": FORM_TYPE + b"Content-Length: %d\r\n\r\n" % (len(SMALL_FILE) + 6) + SMALL_FILE + b"--XX-",
}

# What the application has written down when the end comes.
LATE = {
    "with a length": LENGTH + bytes(PART),
    "inside a chunk": CHUNKED + b"989680\r\n" + bytes(PART),
    "between chunks": CHUNKED + b"200000\r\n" + bytes(PART) + b"\r\n",
}

LATE_FORMS = {
    # A little more of each file than is waited for: the end of one is held back until it is known to be none.
    "in a file that is large": FORM + begun_file(bytes(PART + 65536)),
    "in its second file": FORM + SMALL_FILE + begun_file(bytes(PART + 65536)),
    "behind a file that is large": FORM + whole_file(bytes(PART)) + b"--XX\r\n",
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
    assert b"HTTP/1.1 2" not in answer, answer
    client.close()


def sizes(directory):
    found = []
    for path in directory.iterdir():
        try:
            found.append(path.stat().st_size)
        except FileNotFoundError:
            pass  # removed meanwhile
    return sorted(found)


def large(found):
    return sum(size >= PART for size in found)


def until(condition, what):
    deadline = time.monotonic() + SECONDS
    while not condition():
        assert time.monotonic() < deadline, what
        time.sleep(0.01)


def begin(method, target, bytes_sent):
    client = socket.create_connection(("127.0.0.1", port), timeout=SECONDS)
    client.sendall(f"{method} {target} HTTP/1.1\r\nHost: a\r\n".encode() + bytes_sent)
    return client


port, directory = int(sys.argv[1]), pathlib.Path(sys.argv[2])
method, target = sys.argv[3:5] or ("POST", "/")
form_target = (sys.argv[5:6] or [None])[0]
before = sizes(directory)


def nothing_is_kept(what):
    until(lambda: sizes(directory) == before, f"kept: {what}: {sizes(directory)}, not {before}")
    print(f"ok: nothing is kept of an upload that breaks off {what}", flush=True)


def break_off(method, target, early, late):
    for end in (close, reset, half_close):
        for what, sent in early.items():
            end(begin(method, target, sent))
            nothing_is_kept(f"{what}: {end.__name__}")
        for what, sent in late.items():
            client = begin(method, target, sent)
            # Only an end that arrives by itself is noticed at once.
            until(lambda: large(sizes(directory)) > large(before), "nothing is written down")
            end(client)
            nothing_is_kept(f"{what}: {end.__name__}")


break_off(method, target, EARLY, LATE)
if form_target:
    break_off("POST", form_target, EARLY_FORMS, LATE_FORMS)
