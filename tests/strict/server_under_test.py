"""Starts the server of the tests of strict HTTP, and speaks to it in bytes."""

import contextlib
import dataclasses
import json
import re
import select
import socket
import subprocess
import time

# For what comes; it is far more than a slow machine takes.
PATIENCE_SECONDS = 20


def settle(port):
    """Returns once the server has read all that was sent to it, and answered it: the engine, 0.9.75 as well as 1.0,
    reads through a null pointer when its thread refuses a request in the moment in which it is stopped."""
    deadline = time.monotonic() + PATIENCE_SECONDS
    while has_unread(port) and time.monotonic() < deadline:
        time.sleep(0.01)
    # Requests that came together are answered in as many turns of its thread; so is each of these.
    for _ in range(100):
        exchange = Exchange(port, b"GET / HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n")
        if not exchange.wait(PATIENCE_SECONDS, lambda answers: False):
            raise AssertionError("the server does not answer any more")
        exchange.close()


def has_unread(port):
    with open("/proc/net/tcp", encoding="ascii") as table:
        for line in table.readlines()[1:]:
            _, local, _, state, queues, *_ = line.split()
            is_listener = state == "0A"
            if int(local.partition(":")[2], 16) == port and not is_listener and int(queues.partition(":")[2], 16) != 0:
                return True
    return False


@contextlib.contextmanager
def serving(program, *arguments):
    """The server's port and the version of its engine, while it serves."""
    with subprocess.Popen([program, *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE) as server:
        try:
            port, version = server.stdout.readline().decode().split()
            yield int(port), version
            settle(int(port))
            server.stdin.close()
            if server.wait(PATIENCE_SECONDS) != 0:
                raise AssertionError(f"the server ended with {server.returncode}")
        finally:
            server.kill()


@dataclasses.dataclass
class Answer:
    status: int
    # From name in lower case to value; the last one of a name.
    headers: dict
    body: bytes

    def seen(self):
        """What the application saw of the request, which it tells with the status 200 alone."""
        text = self.headers.get("seen") or self.body.decode("ascii")
        return json.loads(text) if self.status == 200 else None


HEAD = re.compile(rb"HTTP/1\.1 (\d{3}) [^\r\n]*\r\n((?:[^\r\n]+\r\n)*)\r\n")


def answers_in(received):
    """The answers that are whole, without the interim ones."""
    answers = []
    while match := HEAD.match(received):
        fields = (line.split(b":", 1) for line in match[2].split(b"\r\n")[:-1])
        headers = {name.decode().lower(): value.strip().decode() for name, value in fields}
        # Of what is asked for with HEAD, only the head is sent.
        length = 0 if "seen" in headers else int(headers.get("content-length", 0))
        if len(received) < match.end() + length:
            break
        if not match[1].startswith(b"1"):
            answers.append(Answer(int(match[1]), headers, received[match.end():match.end() + length]))
        received = received[match.end() + length:]
    return answers


class Exchange:
    """A connection on which everything is sent, as soon as the server takes it, while the answers are read."""

    def __init__(self, port, sent):
        self.socket = socket.create_connection(("127.0.0.1", port), timeout=PATIENCE_SECONDS)
        self.socket.setblocking(False)
        self.unsent = memoryview(sent)
        self.received = b""
        # Whether the server has ended the connection.
        self.ended = False

    def wait(self, seconds, is_enough):
        """Returns once is_enough(answers) or the end of the connection; false when neither comes in time."""
        deadline = time.monotonic() + seconds
        while not self.ended and not is_enough(answers_in(self.received)):
            writers = [self.socket] if self.unsent else []
            readable, writable, _ = select.select([self.socket], writers, [], max(0, deadline - time.monotonic()))
            if not readable and not writable:
                return False
            if writable:
                self.send()
            if readable:
                self.receive()
        return True

    def send(self):
        try:
            self.unsent = self.unsent[self.socket.send(self.unsent):]
        except (BrokenPipeError, ConnectionResetError):
            self.unsent = memoryview(b"")  # what was answered can still be read

    def receive(self):
        try:
            part = self.socket.recv(65536)
        except ConnectionResetError:
            part = b""
        self.received += part
        self.ended = not part

    def answers(self):
        return answers_in(self.received)

    def close(self):
        self.socket.close()
